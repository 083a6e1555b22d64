#include <pthread.h>

#include <mutex>
#include <thread>

#include <benchmark/benchmark.h>

#include <QXPlatform/system/qxsync.h>
#include <QXPlatform/system/qxthread.h>

namespace {

void BM_QXMutexLockUnlock(benchmark::State& state) {
  QXPlatform::QXMutex mutex;
  long counter = 0;
  for (auto _ : state) {
    std::lock_guard<QXPlatform::QXMutex> hold(mutex);
    benchmark::DoNotOptimize(++counter);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_QXMutexLockUnlock);

void BM_StdMutexLockUnlock(benchmark::State& state) {
  std::mutex mutex;
  long counter = 0;
  for (auto _ : state) {
    std::lock_guard<std::mutex> hold(mutex);
    benchmark::DoNotOptimize(++counter);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_StdMutexLockUnlock);

void BM_QXConditionAcquireRelease(benchmark::State& state) {
  QXPlatform::QXCondition condition;
  long counter = 0;
  for (auto _ : state) {
    condition.Acquire();
    benchmark::DoNotOptimize(++counter);
    condition.Release();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_QXConditionAcquireRelease);

void BM_PthreadMutexLockUnlock(benchmark::State& state) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  long counter = 0;
  for (auto _ : state) {
    pthread_mutex_lock(&mutex);
    benchmark::DoNotOptimize(++counter);
    pthread_mutex_unlock(&mutex);
  }
  pthread_mutex_destroy(&mutex);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PthreadMutexLockUnlock);

class Echo : public QXPlatform::QXThread {
 public:
  void* Run(void* arg) override { return arg; }
};

void BM_QXThreadStartJoin(benchmark::State& state) {
  Echo thread;
  int value = 0;
  for (auto _ : state) {
    thread.Start(&value);
    benchmark::DoNotOptimize(thread.Join());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_QXThreadStartJoin);

void BM_StdThreadStartJoin(benchmark::State& state) {
  int value = 0;
  for (auto _ : state) {
    void* result = nullptr;
    std::thread thread([&] { result = &value; });
    thread.join();
    benchmark::DoNotOptimize(result);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_StdThreadStartJoin);

}  // namespace

BENCHMARK_MAIN();
