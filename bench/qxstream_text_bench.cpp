// Writing doubles that read back exactly: out << qxexact(x) beside
// snprintf("%.17g") written to the same stream, the usual way to get text
// that reads back.

#include <stdio.h>
#include <string.h>

#include <cstdint>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include <QXPlatform/QXPlatform.h>

namespace {

const size_t kCount = 4096;

const std::vector<double>& Values() {
  static std::vector<double> values = [] {
    std::mt19937_64 random(42);
    std::uniform_real_distribution<double> spread(-1e6, 1e6);
    std::vector<double> v(kCount);
    for (double& x : v) {
      x = spread(random);
    }
    return v;
  }();
  return values;
}

// A sink of caller memory large enough for one round.
struct Sink {
  std::vector<unsigned char> memory = std::vector<unsigned char>(kCount * 32);
  QXPlatform::qxostream out;
  void Rewind() { out.open(memory.data(), memory.size()); }
};

void BM_SnprintfG17(benchmark::State& state) {
  const std::vector<double>& values = Values();
  Sink sink;
  for (auto _ : state) {
    sink.Rewind();
    for (double x : values) {
      char text[32];
      int n = snprintf(text, sizeof text, "%.17g ", x);
      sink.out.write(text, static_cast<unsigned long>(n));
    }
    benchmark::DoNotOptimize(sink.memory.data());
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kCount));
}
BENCHMARK(BM_SnprintfG17);

void BM_InsertExact(benchmark::State& state) {
  const std::vector<double>& values = Values();
  Sink sink;
  for (auto _ : state) {
    sink.Rewind();
    for (double x : values) {
      sink.out << QXPlatform::qxexact(x) << ' ';
    }
    benchmark::DoNotOptimize(sink.memory.data());
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kCount));
}
BENCHMARK(BM_InsertExact);

}  // namespace

BENCHMARK_MAIN();
