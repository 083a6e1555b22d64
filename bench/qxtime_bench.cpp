#include <time.h>

#include <chrono>
#include <string>

#include <benchmark/benchmark.h>

#include <QXPlatform/system/qxtime.h>

namespace {

void BM_QXCycleTime(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(QXPlatform::QXCycleTime());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_QXCycleTime);

void BM_SteadyClockNow(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(std::chrono::steady_clock::now());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SteadyClockNow);

void BM_QXCurrentTimeText(benchmark::State& state) {
  for (auto _ : state) {
    std::string text = QXPlatform::QXCurrentTime();
    benchmark::DoNotOptimize(text.data());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_QXCurrentTimeText);

void BM_AsctimeOfLocaltime(benchmark::State& state) {
  for (auto _ : state) {
    time_t now = time(nullptr);
    tm local;
    localtime_r(&now, &local);
    char buf[26];
    std::string text(asctime_r(&local, buf));
    benchmark::DoNotOptimize(text.data());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_AsctimeOfLocaltime);

}  // namespace

BENCHMARK_MAIN();
