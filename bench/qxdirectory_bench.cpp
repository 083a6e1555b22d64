// Walking /usr/share (warm cache) with QXWalkDirectory beside the standard
// library's recursive_directory_iterator, and with the older way of
// QXDirectoryScan plus a QXFileIs... question per entry.

#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <benchmark/benchmark.h>

#include <QXPlatform/QXPlatform.h>

namespace {

const char kTree[] = "/usr/share";

void BM_StdRecursiveDirectoryIterator(benchmark::State& state) {
  size_t entries = 0;
  for (auto _ : state) {
    entries = 0;
    std::error_code error;
    std::filesystem::recursive_directory_iterator it(
        kTree, std::filesystem::directory_options::skip_permission_denied,
        error);
    for (; !error && it != std::filesystem::recursive_directory_iterator();
         it.increment(error)) {
      benchmark::DoNotOptimize(it->path().native().size());
      ++entries;
    }
  }
  state.counters["entries"] = static_cast<double>(entries);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * entries));
}
BENCHMARK(BM_StdRecursiveDirectoryIterator)->Unit(benchmark::kMillisecond);

void BM_WalkDirectory(benchmark::State& state) {
  size_t entries = 0;
  for (auto _ : state) {
    entries = 0;
    QXPlatform::QXWalkDirectory(
        kTree,
        [&entries](const QXPlatform::QXWalkEntry& entry) {
          benchmark::DoNotOptimize(entry.path.size());
          entries += entry.error == 0;
          return QXPlatform::QXWalkAction::kContinue;
        },
        QXPlatform::QXWalkOptions());
  }
  state.counters["entries"] = static_cast<double>(entries);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * entries));
}
BENCHMARK(BM_WalkDirectory)->Unit(benchmark::kMillisecond);

// Recursion by hand, as callers did before the walker: a scan per
// directory, then a question per entry (which examines it with stat).
size_t ScanWithQuestions(const std::string& dir) {
  size_t entries = 0;
  std::vector<std::string> subdirs;
  QXPlatform::QXDirectoryScan scan(dir.c_str());
  while (const char* name = scan.Next()) {
    std::string n(name);
    if (n == "." || n == "..") {
      continue;
    }
    ++entries;
    std::string path = QXPlatform::QXPathJoin(dir, n);
    if (!QXPlatform::QXFileIsLink(path) &&
        QXPlatform::QXFileIsDirectory(path)) {
      subdirs.push_back(path);
    }
  }
  scan.Close();
  for (const std::string& sub : subdirs) {
    entries += ScanWithQuestions(sub);
  }
  return entries;
}

void BM_ScanWithFileQuestions(benchmark::State& state) {
  size_t entries = 0;
  for (auto _ : state) {
    entries = ScanWithQuestions(kTree);
  }
  state.counters["entries"] = static_cast<double>(entries);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * entries));
}
BENCHMARK(BM_ScanWithFileQuestions)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
