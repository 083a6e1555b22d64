#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <QXPlatform/QXPlatform.h>

namespace {

const std::vector<std::string>& SamplePaths() {
  static const std::vector<std::string> paths = {
      "a/b/c.txt",
      "/usr/local/share/doc/readme.md",
      "c.txt",
      "dir\\sub\\f",
      "relative/dir/with/many/levels/file.tar.gz",
      "/c.txt",
  };
  return paths;
}

void BM_QXFileDeterminePathAndName(benchmark::State& state) {
  const std::vector<std::string>& paths = SamplePaths();
  std::string dir;
  std::string name;
  for (auto _ : state) {
    for (const std::string& path : paths) {
      QXPlatform::QXFileDeterminePathAndName(path, dir, name);
      benchmark::DoNotOptimize(dir.data());
      benchmark::DoNotOptimize(name.data());
    }
  }
  state.SetItemsProcessed(state.iterations() *
                          static_cast<int64_t>(paths.size()));
}
BENCHMARK(BM_QXFileDeterminePathAndName);

// Reference: the standard library's split into parent path and file name.
void BM_StdFilesystemParentAndFilename(benchmark::State& state) {
  const std::vector<std::string>& paths = SamplePaths();
  std::string dir;
  std::string name;
  for (auto _ : state) {
    for (const std::string& path : paths) {
      std::filesystem::path p(path);
      dir = p.parent_path().string();
      name = p.filename().string();
      benchmark::DoNotOptimize(dir.data());
      benchmark::DoNotOptimize(name.data());
    }
  }
  state.SetItemsProcessed(state.iterations() *
                          static_cast<int64_t>(paths.size()));
}
BENCHMARK(BM_StdFilesystemParentAndFilename);

void BM_QXFileExists(benchmark::State& state) {
  const std::string path = "/usr/include/stdio.h";
  for (auto _ : state) {
    benchmark::DoNotOptimize(QXPlatform::QXFileExists(path));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_QXFileExists);

// Reference: one stat call on the same path.
void BM_StatReference(benchmark::State& state) {
  const std::string path = "/usr/include/stdio.h";
  struct stat status;
  for (auto _ : state) {
    benchmark::DoNotOptimize(::stat(path.c_str(), &status) == 0);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_StatReference);

void BM_QXGetCurrentWorkingDirectory(benchmark::State& state) {
  for (auto _ : state) {
    std::string cwd = QXPlatform::QXGetCurrentWorkingDirectory();
    benchmark::DoNotOptimize(cwd.data());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_QXGetCurrentWorkingDirectory);

// Reference: getcwd into a PATH_MAX buffer, copied into a string.
void BM_GetcwdReference(benchmark::State& state) {
  char buffer[PATH_MAX];
  for (auto _ : state) {
    std::string cwd = ::getcwd(buffer, sizeof buffer);
    benchmark::DoNotOptimize(cwd.data());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GetcwdReference);

void BM_QXProcessSystemCommand(benchmark::State& state) {
  const std::string command(static_cast<size_t>(state.range(0)), 'a');
  for (auto _ : state) {
    std::string out = QXPlatform::QXProcessSystemCommand(command.c_str());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_QXProcessSystemCommand)->Range(1 << 10, 1 << 20);

// Reference: a plain copy of the same bytes into a string.
void BM_StringCopyReference(benchmark::State& state) {
  const std::string command(static_cast<size_t>(state.range(0)), 'a');
  for (auto _ : state) {
    std::string out(command.c_str());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_StringCopyReference)->Range(1 << 10, 1 << 20);

}  // namespace

BENCHMARK_MAIN();
