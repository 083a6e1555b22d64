// Whole-buffer gzip decoding: QXUncompress "gz" with each inflate engine,
// beside zlib's one-shot inflate and ISA-L's isal_inflate used directly on
// the same members of text packed at zlib's default level.

#include <string.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <isa-l/igzip_lib.h>
#include <zlib.h>

#include "qxbench_support.h"
#include <QXPlatform/QXPlatform.h>
#include <QXPlatform/streams/qxinflate_private.h>

namespace {

using qxbench::MakeText;

using QXPlatform::QXInflateEngine;
using QXPlatform::QXInternalSelectInflateEngine;
using QXPlatform::QXUncompress;

// A gzip member of n bytes of text made by zlib at level 6; made once per
// size and kept for the run.
const std::string& Member(size_t n) {
  static std::vector<std::pair<size_t, std::string>> made;
  for (const auto& m : made) {
    if (m.first == n) {
      return m.second;
    }
  }
  std::string text = MakeText(n, 1);
  z_stream z{};
  deflateInit2(&z, 6, Z_DEFLATED, 16 + MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&z, text.size()) + 32, '\0');
  z.next_in = reinterpret_cast<Bytef*>(&text[0]);
  z.avail_in = static_cast<uInt>(text.size());
  z.next_out = reinterpret_cast<Bytef*>(&out[0]);
  z.avail_out = static_cast<uInt>(out.size());
  deflate(&z, Z_FINISH);
  out.resize(z.total_out);
  deflateEnd(&z);
  made.emplace_back(n, out);
  return made.back().second;
}

void Uncompress(benchmark::State& state, QXInflateEngine engine) {
  size_t n = static_cast<size_t>(state.range(0));
  const std::string& packed = Member(n);
  if (QXInternalSelectInflateEngine(engine) != engine) {
    state.SkipWithError("engine not built in");
    return;
  }
  std::string out;
  for (auto _ : state) {
    out.clear();
    QXUncompress(out, packed, "gz");
    benchmark::DoNotOptimize(out.data());
  }
  if (out.size() != n) {
    state.SkipWithError("wrong length");
  }
  QXInternalSelectInflateEngine(QXInflateEngine::kIsal);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

void BM_QXUncompressGzIsal(benchmark::State& state) {
  Uncompress(state, QXInflateEngine::kIsal);
}
BENCHMARK(BM_QXUncompressGzIsal)->Arg(1 << 20)->Arg(64 << 20);

// The path of a build without ISA-L.
void BM_QXUncompressGzZlib(benchmark::State& state) {
  Uncompress(state, QXInflateEngine::kZlib);
}
BENCHMARK(BM_QXUncompressGzZlib)->Arg(1 << 20)->Arg(64 << 20);

// zlib's own gzip decoding in one inflate call into a buffer of the right
// size: the reference.
void BM_ZlibInflateOneShot(benchmark::State& state) {
  size_t n = static_cast<size_t>(state.range(0));
  const std::string& packed = Member(n);
  std::vector<unsigned char> out(n + 1);
  for (auto _ : state) {
    z_stream z{};
    inflateInit2(&z, 16 + MAX_WBITS);
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));
    z.avail_in = static_cast<uInt>(packed.size());
    z.next_out = out.data();
    z.avail_out = static_cast<uInt>(out.size());
    inflate(&z, Z_FINISH);
    benchmark::DoNotOptimize(z.total_out);
    inflateEnd(&z);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}
BENCHMARK(BM_ZlibInflateOneShot)->Arg(1 << 20)->Arg(64 << 20);

// ISA-L's gzip decoding (header, CRC and trailer checked by ISA-L) in one
// isal_inflate call: the ceiling.
void BM_IsalInflateOneShot(benchmark::State& state) {
  size_t n = static_cast<size_t>(state.range(0));
  const std::string& packed = Member(n);
  std::vector<unsigned char> out(n + 1);
  std::unique_ptr<inflate_state> s(new inflate_state);
  for (auto _ : state) {
    isal_inflate_init(s.get());
    s->crc_flag = ISAL_GZIP;
    s->next_in = reinterpret_cast<uint8_t*>(const_cast<char*>(packed.data()));
    s->avail_in = static_cast<uint32_t>(packed.size());
    s->next_out = out.data();
    s->avail_out = static_cast<uint32_t>(out.size());
    isal_inflate(s.get());
    benchmark::DoNotOptimize(s->total_out);
  }
  if (s->total_out != n) {
    state.SkipWithError("wrong length");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}
BENCHMARK(BM_IsalInflateOneShot)->Arg(1 << 20)->Arg(64 << 20);

}  // namespace

BENCHMARK_MAIN();
