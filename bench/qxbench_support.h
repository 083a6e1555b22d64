#pragma once

// Helpers shared by the benchmark programs: the sample text they compress,
// the temporary directory for their files, and the timing of an outside
// command beside the in-process benchmarks.

#include <stdlib.h>
#include <sys/resource.h>

#include <chrono>
#include <random>
#include <string>

#include <benchmark/benchmark.h>

namespace qxbench {

// Text with the repetition of a log or a table of numbers.
inline std::string MakeText(size_t n, unsigned seed) {
  static const char* const kWords[] = {
      "alpha", "beta",   "gamma",  "delta", "sample", "value", "stream",
      "0.125", "42",     "-7",     "north", "south",  "total", "count",
      "error", "result", "thread", "1e-3",  "ok",     "9999",  "name"};
  std::mt19937 gen(seed);
  std::string out;
  out.reserve(n + 16);
  while (out.size() < n) {
    out += kWords[gen() % (sizeof kWords / sizeof kWords[0])];
    unsigned r = gen() % 23;
    out.push_back(r == 0 ? '\n' : r == 1 ? '\t' : ' ');
    if (r == 2) {
      out += std::to_string(gen() % 100000);
    }
  }
  out.resize(n);
  return out;
}

// $TMPDIR, or /tmp when it is not set.
inline const char* TempDir() {
  const char* dir = getenv("TMPDIR");
  return dir != nullptr && *dir != '\0' ? dir : "/tmp";
}

// CPU seconds used by finished child processes so far.
inline double ChildCpuSeconds() {
  struct rusage usage;
  getrusage(RUSAGE_CHILDREN, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) /
             1e6;
}

// Runs command once per iteration, timed by the wall clock around it (use
// with UseManualTime); the counter child_cpu_ms gives the CPU time the
// command used per run, for comparison with the CPU column of the in-process
// benchmarks on a busy machine. bytes is what one run processes.
inline void TimeCommand(benchmark::State& state, const std::string& command,
                        size_t bytes) {
  double childCpu = 0;
  for (auto _ : state) {
    double cpuBefore = ChildCpuSeconds();
    auto start = std::chrono::steady_clock::now();
    if (system(command.c_str()) != 0) {
      state.SkipWithError("the command failed");
      break;
    }
    auto stop = std::chrono::steady_clock::now();
    childCpu += ChildCpuSeconds() - cpuBefore;
    state.SetIterationTime(std::chrono::duration<double>(stop - start).count());
  }
  state.counters["child_cpu_ms"] = benchmark::Counter(
      childCpu * 1000 / static_cast<double>(state.iterations()));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

}  // namespace qxbench
