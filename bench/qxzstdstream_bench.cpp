// Reading and writing zstd through the zstd streams, beside libzstd's own
// streaming functions with the same buffer sizes and the zstd command on the
// same file. Writing is also measured with two worker threads.

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <zstd.h>

#include "qxbench_support.h"
#include <QXPlatform/QXPlatform.h>

namespace {

using qxbench::MakeText;
using qxbench::TempDir;
using qxbench::TimeCommand;
using QXPlatform::QXCloseIStream;
using QXPlatform::qxistream;
using QXPlatform::qxofstream;
using QXPlatform::QXOpenIStream;
using QXPlatform::qxozstdstream;

const unsigned long kPiece = 32 * 1024;
const size_t kBigText = 256ul << 20;
const size_t kWriteText = 64ul << 20;
const int kLevel = 3;

// Writes all of [data, data + n) to fd.
bool WriteAll(int fd, const char* data, size_t n) {
  while (n > 0) {
    ssize_t put = write(fd, data, n);
    if (put <= 0) {
      return false;
    }
    data += put;
    n -= static_cast<size_t>(put);
  }
  return true;
}

// The 256 MiB text compressed by libzstd at level 3 with a checksum, made
// once and kept in the temporary directory for later runs.
const std::string& BigZstdFile() {
  static const std::string path = [] {
    std::string name = std::string(TempDir()) + "/qxzstdstream_bench_256m.zst";
    struct stat st;
    if (stat(name.c_str(), &st) == 0 && st.st_size > (1 << 20)) {
      return name;
    }
    std::string part = name + ".part";
    int fd = open(part.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ZSTD_CCtx* c = ZSTD_createCCtx();
    ZSTD_CCtx_setParameter(c, ZSTD_c_compressionLevel, kLevel);
    ZSTD_CCtx_setParameter(c, ZSTD_c_checksumFlag, 1);
    std::vector<char> out(ZSTD_CStreamOutSize());
    std::string text = MakeText(16 << 20, 1);
    for (size_t done = 0; done < kBigText; done += text.size()) {
      // Each 16 MiB slice differs a little, so the whole does not repeat.
      text[done % 1000] = static_cast<char>('a' + (done >> 24));
      bool last = done + text.size() >= kBigText;
      ZSTD_inBuffer in = {text.data(), text.size(), 0};
      ZSTD_EndDirective mode = last ? ZSTD_e_end : ZSTD_e_continue;
      for (;;) {
        ZSTD_outBuffer o = {out.data(), out.size(), 0};
        size_t status = ZSTD_compressStream2(c, &o, &in, mode);
        WriteAll(fd, out.data(), o.pos);
        if (ZSTD_isError(status) || (last ? status == 0 : in.pos == in.size)) {
          break;
        }
      }
    }
    ZSTD_freeCCtx(c);
    close(fd);
    rename(part.c_str(), name.c_str());
    return name;
  }();
  return path;
}

void BM_ReadZstdThroughQXOpenIStream(benchmark::State& state) {
  const std::string& file = BigZstdFile();
  QXPlatform::QXSetZstdStreams(true);
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
  QXPlatform::QXSetZstdStreams(false);
  state.SetBytesProcessed(static_cast<int64_t>(total));
}
BENCHMARK(BM_ReadZstdThroughQXOpenIStream)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

// The same buffers as the stream: 32 KiB read from the file at a time, 32 KiB
// of output per decoding step, copied out in 32 KiB pieces.
void BM_ReadZstdWithDecompressStream(benchmark::State& state) {
  const std::string& file = BigZstdFile();
  std::vector<char> input(kPiece);
  std::vector<char> output(kPiece);
  std::vector<char> piece(kPiece);
  size_t total = 0;
  for (auto _ : state) {
    int fd = open(file.c_str(), O_RDONLY);
    ZSTD_DStream* d = ZSTD_createDStream();
    ZSTD_inBuffer in = {input.data(), 0, 0};
    for (;;) {
      if (in.pos == in.size) {
        ssize_t got = read(fd, input.data(), input.size());
        if (got <= 0) {
          break;
        }
        in.size = static_cast<size_t>(got);
        in.pos = 0;
      }
      ZSTD_outBuffer out = {output.data(), output.size(), 0};
      size_t status = ZSTD_decompressStream(d, &out, &in);
      if (ZSTD_isError(status)) {
        state.SkipWithError("decoding failed");
        break;
      }
      memcpy(piece.data(), output.data(), out.pos);
      total += out.pos;
    }
    benchmark::DoNotOptimize(piece.data());
    ZSTD_freeDStream(d);
    close(fd);
  }
  state.SetBytesProcessed(static_cast<int64_t>(total));
}
BENCHMARK(BM_ReadZstdWithDecompressStream)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

void BM_ReadZstdWithZstdCommand(benchmark::State& state) {
  TimeCommand(state, "zstd -q -dc '" + BigZstdFile() + "' > /dev/null",
              kBigText);
}
BENCHMARK(BM_ReadZstdWithZstdCommand)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->Iterations(3);

const std::string& WriteText() {
  static const std::string text = MakeText(kWriteText, 2);
  return text;
}

// Argument: worker threads (0 packs on the calling thread). Wall-clock time,
// since the workers' CPU time is not the caller's.
void BM_WriteZstdThroughQXOzstdstream(benchmark::State& state) {
  const std::string& text = WriteText();
  std::string file = std::string(TempDir()) + "/qxzstdstream_bench_write.zst";
  unsigned workers = static_cast<unsigned>(state.range(0));
  for (auto _ : state) {
    qxozstdstream out(new qxofstream(file.c_str()), true, kLevel, workers);
    for (size_t at = 0; at < text.size(); at += kPiece) {
      out.write(text.data() + at, kPiece);
    }
    if (!out.close()) {
      state.SkipWithError("writing failed");
      break;
    }
  }
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * text.size()));
  remove(file.c_str());
}
BENCHMARK(BM_WriteZstdThroughQXOzstdstream)
    ->Arg(0)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3);

// The same level, checksum and buffers: 32 KiB in per call, libzstd's
// recommended output size written to the file when full.
void BM_WriteZstdWithCompressStream2(benchmark::State& state) {
  const std::string& text = WriteText();
  std::string file = std::string(TempDir()) + "/qxzstdstream_bench_direct.zst";
  std::vector<char> output(ZSTD_CStreamOutSize());
  for (auto _ : state) {
    int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ZSTD_CCtx* c = ZSTD_createCCtx();
    ZSTD_CCtx_setParameter(c, ZSTD_c_compressionLevel, kLevel);
    ZSTD_CCtx_setParameter(c, ZSTD_c_checksumFlag, 1);
    ZSTD_outBuffer out = {output.data(), output.size(), 0};
    for (size_t at = 0; at <= text.size(); at += kPiece) {
      bool last = at == text.size();
      ZSTD_inBuffer in = {text.data() + at, last ? 0 : kPiece, 0};
      ZSTD_EndDirective mode = last ? ZSTD_e_end : ZSTD_e_continue;
      for (;;) {
        size_t status = ZSTD_compressStream2(c, &out, &in, mode);
        bool done = last ? status == 0 : in.pos == in.size;
        if (out.pos == out.size || (last && done)) {
          WriteAll(fd, output.data(), out.pos);
          out.pos = 0;
        }
        if (ZSTD_isError(status) || done) {
          break;
        }
      }
    }
    ZSTD_freeCCtx(c);
    close(fd);
  }
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * text.size()));
  remove(file.c_str());
}
BENCHMARK(BM_WriteZstdWithCompressStream2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
