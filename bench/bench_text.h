#pragma once

// The text the benchmarks pack and unpack: words, numbers and line ends with
// the repetition of a log or a table, from a seeded generator.

#include <random>
#include <string>

namespace qxbench {

// n bytes of text; the same seed gives the same text.
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

}  // namespace qxbench
