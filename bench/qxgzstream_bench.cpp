// Reading and writing gzip files through the stream manager, beside zlib's
// own gz* functions and the zcat command on the same files.

#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <zlib.h>
#if QXPLATFORM_BENCH_WITH_ISAL
#include <isa-l/igzip_lib.h>
#endif

#include "qxbench_support.h"
#include <QXPlatform/QXPlatform.h>

namespace {

using qxbench::MakeText;
using qxbench::TempDir;
using qxbench::TimeCommand;
using QXPlatform::QXCloseIStream;
using QXPlatform::QXCloseOStream;
using QXPlatform::qxistream;
using QXPlatform::QXOpenIStream;
using QXPlatform::QXOpenOStream;
using QXPlatform::qxofstream;
using QXPlatform::qxogzstream;
using QXPlatform::qxostream;

const unsigned long kPiece = 32 * 1024;
const size_t kBigText = 256ul << 20;
const size_t kWriteText = 32ul << 20;

// The 256 MiB text, gzip-compressed by zlib at its default level, made once
// and kept in the temporary directory for later runs.
const std::string& BigGzipFile() {
  static const std::string path = [] {
    std::string name = std::string(TempDir()) + "/qxgzstream_bench_256m.gz";
    struct stat st;
    if (stat(name.c_str(), &st) == 0 && st.st_size > (1 << 20)) {
      return name;
    }
    std::string part = name + ".part";
    gzFile out = gzopen(part.c_str(), "wb6");
    std::string text = MakeText(16 << 20, 1);
    for (size_t done = 0; done < kBigText; done += text.size()) {
      // Each 16 MiB slice differs a little, so the whole does not repeat.
      text[done % 1000] = static_cast<char>('a' + (done >> 24));
      gzwrite(out, text.data(), static_cast<unsigned>(text.size()));
    }
    gzclose(out);
    rename(part.c_str(), name.c_str());
    return name;
  }();
  return path;
}

void BM_ReadGzipThroughQXOpenIStream(benchmark::State& state) {
  const std::string& file = BigGzipFile();
  std::vector<char> piece(kPiece);
  size_t total = 0;
  for (auto _ : state) {
    qxistream* in = QXOpenIStream(file.c_str());
    unsigned long got;
    while ((got = in->read(piece.data(), kPiece)) > 0) {
      total += got;
    }
    benchmark::DoNotOptimize(piece.data());
    QXCloseIStream(in);
  }
  state.SetBytesProcessed(static_cast<int64_t>(total));
}
BENCHMARK(BM_ReadGzipThroughQXOpenIStream)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

void BM_ReadGzipWithGzread(benchmark::State& state) {
  const std::string& file = BigGzipFile();
  std::vector<char> piece(kPiece);
  size_t total = 0;
  for (auto _ : state) {
    gzFile in = gzopen(file.c_str(), "rb");
    int got;
    while ((got = gzread(in, piece.data(), kPiece)) > 0) {
      total += static_cast<size_t>(got);
    }
    benchmark::DoNotOptimize(piece.data());
    gzclose(in);
  }
  state.SetBytesProcessed(static_cast<int64_t>(total));
}
BENCHMARK(BM_ReadGzipWithGzread)->Unit(benchmark::kMillisecond)->Iterations(3);

#if QXPLATFORM_BENCH_WITH_ISAL
// ISA-L's streaming isal_inflate on the same file, fed 16 KiB slices read
// from the file and asked for 32 KiB at a time: the ceiling for a stream.
void BM_ReadGzipWithIsalInflate(benchmark::State& state) {
  const std::string& file = BigGzipFile();
  std::vector<unsigned char> in(16384);
  std::vector<unsigned char> piece(kPiece);
  std::unique_ptr<inflate_state> s(new inflate_state);
  size_t total = 0;
  for (auto _ : state) {
    FILE* f = fopen(file.c_str(), "rb");
    isal_inflate_init(s.get());
    s->crc_flag = ISAL_GZIP;
    s->avail_in = 0;
    while (s->block_state != ISAL_BLOCK_FINISH) {
      if (s->avail_in == 0) {
        size_t got = fread(in.data(), 1, in.size(), f);
        if (got == 0) {
          break;
        }
        s->next_in = in.data();
        s->avail_in = static_cast<uint32_t>(got);
      }
      s->next_out = piece.data();
      s->avail_out = static_cast<uint32_t>(piece.size());
      if (isal_inflate(s.get()) < 0) {
        break;
      }
      total += piece.size() - s->avail_out;
    }
    benchmark::DoNotOptimize(piece.data());
    fclose(f);
  }
  state.SetBytesProcessed(static_cast<int64_t>(total));
}
BENCHMARK(BM_ReadGzipWithIsalInflate)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
#endif

void BM_GetlineThroughQXOpenIStream(benchmark::State& state) {
  const std::string& file = BigGzipFile();
  std::string line;
  size_t total = 0;
  for (auto _ : state) {
    qxistream* in = QXOpenIStream(file.c_str());
    while (in->getline(line)) {
      total += line.size() + 1;
    }
    QXCloseIStream(in);
  }
  state.SetBytesProcessed(static_cast<int64_t>(total));
}
BENCHMARK(BM_GetlineThroughQXOpenIStream)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

// Lines with zlib's gzgets into a buffer longer than any line of the text.
void BM_GetlineWithGzgets(benchmark::State& state) {
  const std::string& file = BigGzipFile();
  std::vector<char> line(1 << 16);
  size_t total = 0;
  for (auto _ : state) {
    gzFile in = gzopen(file.c_str(), "rb");
    gzbuffer(in, 1 << 16);
    while (gzgets(in, line.data(), static_cast<int>(line.size())) != nullptr) {
      total += strlen(line.data());
    }
    gzclose(in);
  }
  state.SetBytesProcessed(static_cast<int64_t>(total));
}
BENCHMARK(BM_GetlineWithGzgets)->Unit(benchmark::kMillisecond)->Iterations(3);

// Timed by the wall clock around the command; the counter child_cpu_ms gives
// the CPU time zcat (and its shell) used per run, for comparison with the CPU
// column of the in-process benchmarks on a busy machine.
void BM_ReadGzipWithZcat(benchmark::State& state) {
  TimeCommand(state, "zcat '" + BigGzipFile() + "' > /dev/null", kBigText);
}
BENCHMARK(BM_ReadGzipWithZcat)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->Iterations(3);

const std::string& WriteText() {
  static const std::string text = MakeText(kWriteText, 2);
  return text;
}

void BM_WriteGzipThroughQXOpenOStream(benchmark::State& state) {
  const std::string& text = WriteText();
  std::string file = std::string(TempDir()) + "/qxgzstream_bench_write.gz";
  for (auto _ : state) {
    qxostream* out = QXOpenOStream(file.c_str());
    for (size_t at = 0; at < text.size(); at += kPiece) {
      out->write(text.data() + at, kPiece);
    }
    QXCloseOStream(out);
  }
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * text.size()));
  remove(file.c_str());
}
BENCHMARK(BM_WriteGzipThroughQXOpenOStream)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

// The gzip stream at level 6 on state.range(0) threads, into a file: 1 is the
// stream every other form uses.
void BM_WriteGzipOnThreads(benchmark::State& state) {
  const std::string& text = WriteText();
  std::string file = std::string(TempDir()) + "/qxgzstream_bench_threads.gz";
  unsigned threads = static_cast<unsigned>(state.range(0));
  unsigned long long packed = 0;
  for (auto _ : state) {
    qxofstream sink(file.c_str());
    {
      qxogzstream out(&sink, false, 6, threads);
      for (size_t at = 0; at < text.size(); at += kPiece) {
        out.write(text.data() + at, kPiece);
      }
    }
    packed = sink.tell();
  }
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * text.size()));
  state.counters["packed_bytes"] = static_cast<double>(packed);
  remove(file.c_str());
}
BENCHMARK(BM_WriteGzipOnThreads)
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3);

void BM_WriteGzipWithGzwrite(benchmark::State& state) {
  const std::string& text = WriteText();
  std::string file = std::string(TempDir()) + "/qxgzstream_bench_gzwrite.gz";
  for (auto _ : state) {
    // The library writes at zlib's default level, 6.
    gzFile out = gzopen(file.c_str(), "wb6");
    for (size_t at = 0; at < text.size(); at += kPiece) {
      gzwrite(out, text.data() + at, kPiece);
    }
    gzclose(out);
  }
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * text.size()));
  remove(file.c_str());
}
BENCHMARK(BM_WriteGzipWithGzwrite)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
