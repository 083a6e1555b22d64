// Whole-buffer compression with "zstd" and "gz", beside the raw library
// calls: zstd's streaming calls with one reused context at level 7 (the
// frames QXCompress makes), its one-shot calls, and zlib's one-shot gzip.

#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <zlib.h>
#include <zstd.h>

#include "qxbench_support.h"
#include <QXPlatform/QXPlatform.h>

namespace {

using qxbench::MakeText;
using QXPlatform::QXCompress;
using QXPlatform::QXUncompress;

// The streaming calls as QXCompress makes them, with one context for the
// whole run.
struct RawZstd {
  RawZstd()
      : c(ZSTD_createCStream()),
        d(ZSTD_createDStream()),
        cblock(ZSTD_CStreamOutSize()),
        dblock(ZSTD_DStreamOutSize()) {
    ZSTD_initCStream(c, 7);
    ZSTD_initDStream(d);
  }
  ~RawZstd() {
    ZSTD_freeCStream(c);
    ZSTD_freeDStream(d);
  }
  void Compress(const std::string& in, std::string& out) {
    out.clear();
    ZSTD_inBuffer src = {in.data(), in.size(), 0};
    while (src.pos < src.size) {
      ZSTD_outBuffer dst = {cblock.data(), cblock.size(), 0};
      ZSTD_compressStream(c, &dst, &src);
      out.append(cblock.data(), dst.pos);
    }
    ZSTD_outBuffer dst = {cblock.data(), cblock.size(), 0};
    ZSTD_endStream(c, &dst);
    out.append(cblock.data(), dst.pos);
  }
  void Uncompress(const std::string& in, std::string& out) {
    out.clear();
    ZSTD_inBuffer src = {in.data(), in.size(), 0};
    while (src.pos < src.size) {
      ZSTD_outBuffer dst = {dblock.data(), dblock.size(), 0};
      ZSTD_decompressStream(d, &dst, &src);
      out.append(dblock.data(), dst.pos);
    }
  }
  ZSTD_CStream* c;
  ZSTD_DStream* d;
  std::vector<char> cblock;
  std::vector<char> dblock;
};

void BM_QXCompressZstd(benchmark::State& state) {
  std::string text = MakeText(static_cast<size_t>(state.range(0)), 1);
  std::string out;
  for (auto _ : state) {
    QXCompress(out, text, "zstd");
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_QXCompressZstd)->Arg(1 << 10)->Arg(1 << 16)->Arg(1 << 20);

void BM_ZstdStreamingCompress(benchmark::State& state) {
  std::string text = MakeText(static_cast<size_t>(state.range(0)), 1);
  RawZstd raw;
  std::string out;
  for (auto _ : state) {
    raw.Compress(text, out);
    benchmark::DoNotOptimize(out.data());
  }
  std::string ours;
  QXCompress(ours, text, "zstd");
  if (ours != out) {
    state.SkipWithError("frames differ from QXCompress");
  }
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_ZstdStreamingCompress)->Arg(1 << 10)->Arg(1 << 16)->Arg(1 << 20);

void BM_ZstdOneShotCompress2(benchmark::State& state) {
  std::string text = MakeText(static_cast<size_t>(state.range(0)), 1);
  ZSTD_CCtx* cctx = ZSTD_createCCtx();
  ZSTD_CCtx_setParameter(cctx, ZSTD_c_compressionLevel, 7);
  std::vector<char> out(ZSTD_compressBound(text.size()));
  for (auto _ : state) {
    size_t n =
        ZSTD_compress2(cctx, out.data(), out.size(), text.data(), text.size());
    benchmark::DoNotOptimize(n);
  }
  ZSTD_freeCCtx(cctx);
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_ZstdOneShotCompress2)->Arg(1 << 10)->Arg(1 << 16)->Arg(1 << 20);

void BM_QXUncompressZstd(benchmark::State& state) {
  std::string text = MakeText(static_cast<size_t>(state.range(0)), 1);
  std::string packed;
  QXCompress(packed, text, "zstd");
  std::string out;
  for (auto _ : state) {
    out.clear();
    QXUncompress(out, packed, "zstd");
    benchmark::DoNotOptimize(out.data());
  }
  if (out != text) {
    state.SkipWithError("round trip failed");
  }
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_QXUncompressZstd)->Arg(1 << 10)->Arg(1 << 16)->Arg(1 << 20);

void BM_ZstdStreamingDecompress(benchmark::State& state) {
  std::string text = MakeText(static_cast<size_t>(state.range(0)), 1);
  RawZstd raw;
  std::string packed;
  raw.Compress(text, packed);
  std::string out;
  for (auto _ : state) {
    raw.Uncompress(packed, out);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_ZstdStreamingDecompress)->Arg(1 << 10)->Arg(1 << 16)->Arg(1 << 20);

void BM_ZstdOneShotDecompress(benchmark::State& state) {
  std::string text = MakeText(static_cast<size_t>(state.range(0)), 1);
  std::string packed;
  QXCompress(packed, text, "zstd");
  ZSTD_DCtx* dctx = ZSTD_createDCtx();
  std::vector<char> out(text.size());
  for (auto _ : state) {
    size_t n = ZSTD_decompressDCtx(dctx, out.data(), out.size(), packed.data(),
                                   packed.size());
    benchmark::DoNotOptimize(n);
  }
  ZSTD_freeDCtx(dctx);
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_ZstdOneShotDecompress)->Arg(1 << 10)->Arg(1 << 16)->Arg(1 << 20);

void BM_QXCompressGz(benchmark::State& state) {
  std::string text = MakeText(static_cast<size_t>(state.range(0)), 1);
  std::string out;
  for (auto _ : state) {
    QXCompress(out, text, "gz");
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_QXCompressGz)->Arg(1 << 10)->Arg(1 << 16)->Arg(1 << 20);

// zlib's own gzip wrapping in one deflate call at the same level.
void BM_ZlibGzipDeflate(benchmark::State& state) {
  std::string text = MakeText(static_cast<size_t>(state.range(0)), 1);
  std::vector<unsigned char> out(compressBound(text.size()) + 32);
  for (auto _ : state) {
    z_stream z{};
    deflateInit2(&z, Z_DEFAULT_COMPRESSION, Z_DEFLATED, 16 + MAX_WBITS, 8,
                 Z_DEFAULT_STRATEGY);
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    z.avail_in = static_cast<uInt>(text.size());
    z.next_out = out.data();
    z.avail_out = static_cast<uInt>(out.size());
    deflate(&z, Z_FINISH);
    benchmark::DoNotOptimize(z.total_out);
    deflateEnd(&z);
  }
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_ZlibGzipDeflate)->Arg(1 << 10)->Arg(1 << 16)->Arg(1 << 20);

void BM_QXUncompressGz(benchmark::State& state) {
  std::string text = MakeText(static_cast<size_t>(state.range(0)), 1);
  std::string packed;
  QXCompress(packed, text, "gz");
  std::string out;
  for (auto _ : state) {
    out.clear();
    QXUncompress(out, packed, "gz");
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_QXUncompressGz)->Arg(1 << 10)->Arg(1 << 16)->Arg(1 << 20);

void BM_ZlibGzipInflate(benchmark::State& state) {
  std::string text = MakeText(static_cast<size_t>(state.range(0)), 1);
  std::string packed;
  QXCompress(packed, text, "gz");
  std::vector<unsigned char> out(text.size() + 1);
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
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_ZlibGzipInflate)->Arg(1 << 10)->Arg(1 << 16)->Arg(1 << 20);

}  // namespace

BENCHMARK_MAIN();
