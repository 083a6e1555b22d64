// The stream base measured beside plain references: writes into caller
// memory against memcpy, stream construction against a 32 KiB malloc, and
// number extraction against std::istream.

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <QXPlatform/QXPlatform.h>

namespace {

const size_t kTotal = 256ul << 20;
const size_t kPiece = 4096;

// One destination of kTotal bytes, touched once so that page faults are not
// part of any measurement.
char* Destination() {
  static char* memory = [] {
    char* m = static_cast<char*>(malloc(kTotal));
    memset(m, 1, kTotal);
    return m;
  }();
  return memory;
}

const char* Source() {
  static std::vector<char> piece = [] {
    std::vector<char> p(kPiece);
    for (size_t i = 0; i < kPiece; ++i) {
      p[i] = static_cast<char>(i * 7);
    }
    return p;
  }();
  return piece.data();
}

void BM_MemcpyPieces(benchmark::State& state) {
  char* to = Destination();
  const char* from = Source();
  for (auto _ : state) {
    for (size_t at = 0; at < kTotal; at += kPiece) {
      memcpy(to + at, from, kPiece);
    }
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotal));
}
BENCHMARK(BM_MemcpyPieces)->Unit(benchmark::kMillisecond);

void BM_WriteToCallerMemory(benchmark::State& state) {
  char* to = Destination();
  const char* from = Source();
  QXPlatform::qxostream out;
  for (auto _ : state) {
    out.open(reinterpret_cast<unsigned char*>(to), kTotal);
    for (size_t at = 0; at < kTotal; at += kPiece) {
      out.write(from, kPiece);
    }
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotal));
}
BENCHMARK(BM_WriteToCallerMemory)->Unit(benchmark::kMillisecond);

void BM_MallocFree32K(benchmark::State& state) {
  for (auto _ : state) {
    void* p = malloc(32768);
    benchmark::DoNotOptimize(p);
    free(p);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(BM_MallocFree32K);

void BM_ConstructDestroyStream(benchmark::State& state) {
  for (auto _ : state) {
    QXPlatform::qxisstream in;
    benchmark::DoNotOptimize(&in);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(BM_ConstructDestroyStream);

void BM_ConstructDestroyOutputStream(benchmark::State& state) {
  for (auto _ : state) {
    QXPlatform::qxostream out;
    benchmark::DoNotOptimize(&out);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(BM_ConstructDestroyOutputStream);

const int kNumbers = 1 << 20;

const std::string& IntegerText() {
  static std::string text = [] {
    std::mt19937 gen(1);
    std::string t;
    char buffer[32];
    for (int i = 0; i < kNumbers; ++i) {
      int v = static_cast<int>(gen()) >> (gen() % 31);
      t.append(buffer,
               static_cast<size_t>(snprintf(buffer, sizeof buffer, "%d%c", v,
                                            i % 10 == 9 ? '\n' : ' ')));
    }
    return t;
  }();
  return text;
}

const std::string& DoubleText() {
  static std::string text = [] {
    std::mt19937 gen(2);
    std::string t;
    char buffer[64];
    for (int i = 0; i < kNumbers; ++i) {
      double v =
          (static_cast<double>(gen()) - 2147483648.0) / (1 << (gen() % 20));
      t.append(buffer,
               static_cast<size_t>(snprintf(buffer, sizeof buffer, "%.*f%c",
                                            static_cast<int>(gen() % 7), v,
                                            i % 10 == 9 ? '\n' : ' ')));
    }
    return t;
  }();
  return text;
}

void BM_StdIstreamInt(benchmark::State& state) {
  const std::string& text = IntegerText();
  for (auto _ : state) {
    std::istringstream in(text);
    long sum = 0;
    int v;
    for (int i = 0; i < kNumbers; ++i) {
      in >> v;
      sum += v;
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kNumbers));
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_StdIstreamInt)->Unit(benchmark::kMillisecond);

void BM_ExtractInt(benchmark::State& state) {
  const std::string& text = IntegerText();
  for (auto _ : state) {
    QXPlatform::qxisstream in(text.data(), text.size(), false);
    long sum = 0;
    int v;
    for (int i = 0; i < kNumbers; ++i) {
      in >> v;
      sum += v;
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kNumbers));
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_ExtractInt)->Unit(benchmark::kMillisecond);

void BM_StdIstreamDouble(benchmark::State& state) {
  const std::string& text = DoubleText();
  for (auto _ : state) {
    std::istringstream in(text);
    double sum = 0;
    double v;
    for (int i = 0; i < kNumbers; ++i) {
      in >> v;
      sum += v;
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kNumbers));
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_StdIstreamDouble)->Unit(benchmark::kMillisecond);

void BM_ExtractDouble(benchmark::State& state) {
  const std::string& text = DoubleText();
  for (auto _ : state) {
    QXPlatform::qxisstream in(text.data(), text.size(), false);
    double sum = 0;
    double v;
    for (int i = 0; i < kNumbers; ++i) {
      in >> v;
      sum += v;
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kNumbers));
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_ExtractDouble)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
