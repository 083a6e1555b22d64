#include <ifaddrs.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include <QXPlatform/streams/qxsstream.h>
#include <QXPlatform/system/qxhost.h>
#include <QXPlatform/system/qxmemory.h>
#include <QXPlatform/system/qxversion.h>

namespace {

// After the first call the host name is one once-flag check away.
void BM_QXGetHostName(benchmark::State& state) {
  QXPlatform::QXGetHostName();
  for (auto _ : state) {
    benchmark::DoNotOptimize(QXPlatform::QXGetHostName());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_QXGetHostName);

// What a caller would pay without the cache: ask the kernel and cut.
void BM_GethostnameAndCut(benchmark::State& state) {
  char name[128];
  for (auto _ : state) {
    if (gethostname(name, sizeof(name)) == 0) {
      char* dot = strchr(name, '.');
      if (dot != nullptr) {
        *dot = '\0';
      }
    }
    benchmark::DoNotOptimize(name);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GethostnameAndCut);

// The identifier with its scratch block on the stack (threshold 4096) or on
// the heap (threshold 0).
void BM_QXGetHostIdent(benchmark::State& state) {
  unsigned long saved = QXPlatform::QXGetAllocaThreshold();
  QXPlatform::QXSetAllocaThreshold(static_cast<unsigned long>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(QXPlatform::QXGetHostIdent());
  }
  QXPlatform::QXSetAllocaThreshold(saved);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_QXGetHostIdent)->Arg(4096)->Arg(0);

// The floor under the identifier: fetching and releasing the interface list.
void BM_GetifaddrsAndFree(benchmark::State& state) {
  for (auto _ : state) {
    struct ifaddrs* list = nullptr;
    if (getifaddrs(&list) == 0) {
      freeifaddrs(list);
    }
    benchmark::DoNotOptimize(list);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GetifaddrsAndFree);

QXPlatform::QXVersion BenchProvider() {
  return QXPlatform::QXVersion("Bench", "Component", "1.0.0");
}

// A report of range(0) entries, against formatting the same lines with the
// standard library.
void BM_QXGetVersions(benchmark::State& state) {
  static long registered = 0;
  for (; registered < state.range(0); ++registered) {
    QXPlatform::QXRegisterVersion(BenchProvider);
  }
  for (auto _ : state) {
    QXPlatform::qxosstream out;
    QXPlatform::QXGetVersions(out);
    benchmark::DoNotOptimize(out.str().size());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_QXGetVersions)->Arg(64);

// The same report built with standard-library containers and streams.
void BM_SortAndFormatWithStdStreams(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<std::pair<std::string, std::string>> entries;
    for (long i = 0; i < state.range(0); ++i) {
      QXPlatform::QXVersion v = BenchProvider();
      entries.emplace_back(v.group, v.component + " Version: " + v.version);
    }
    std::sort(entries.begin(), entries.end());
    std::ostringstream out;
    std::string group;
    for (const auto& entry : entries) {
      if (entry.first != group) {
        if (!group.empty()) {
          out << '\n';
        }
        group = entry.first;
        out << "========== " << group << " ========== \n";
      }
      out << entry.second << '\n';
    }
    benchmark::DoNotOptimize(out.str().size());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_SortAndFormatWithStdStreams)->Arg(64);

}  // namespace

BENCHMARK_MAIN();
