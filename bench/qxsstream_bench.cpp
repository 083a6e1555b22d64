// Memory output measured beside a copy into a fresh buffer of the final
// size: 256 MiB written in 4 KiB pieces, then taken out as one string.

#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <QXPlatform/QXPlatform.h>

namespace {

const size_t kTotal = 256ul << 20;
const size_t kPiece = 4096;

const char* Source() {
  static std::vector<char> piece = [] {
    std::vector<char> p(kPiece);
    for (size_t i = 0; i < kPiece; ++i) {
      p[i] = static_cast<char>(i * 13);
    }
    return p;
  }();
  return piece.data();
}

void BM_MemcpyFreshBuffer(benchmark::State& state) {
  const char* from = Source();
  for (auto _ : state) {
    char* to = static_cast<char*>(malloc(kTotal));
    for (size_t at = 0; at < kTotal; at += kPiece) {
      memcpy(to + at, from, kPiece);
    }
    benchmark::DoNotOptimize(to);
    benchmark::ClobberMemory();
    free(to);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotal));
}
BENCHMARK(BM_MemcpyFreshBuffer)->Unit(benchmark::kMillisecond);

void BM_OsstreamStr(benchmark::State& state) {
  const char* from = Source();
  for (auto _ : state) {
    QXPlatform::qxosstream out;
    for (size_t at = 0; at < kTotal; at += kPiece) {
      out.write(from, kPiece);
    }
    std::string all = out.str();
    benchmark::DoNotOptimize(all.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotal));
}
BENCHMARK(BM_OsstreamStr)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
