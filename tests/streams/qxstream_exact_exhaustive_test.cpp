// Every float, and a hundred million random doubles, written with qxexact and
// read back with the stream's own extraction. Long: CI runs it in a step of
// its own (`ctest -L long`); the everyday run leaves it out.

#include <errno.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

const unsigned kBatch = 1 << 16;

bool SameValue(double got, double want) {
  if (std::isnan(want)) {
    return std::isnan(got) && std::signbit(got) == std::signbit(want);
  }
  return got == want && std::signbit(got) == std::signbit(want);
}

// Writes a batch of values separated by blanks, reads them back and counts
// those that differ; the first one goes to firstBad.
template <typename T, typename Next>
uint64_t CheckBatches(uint64_t batches, Next next, std::string* firstBad) {
  uint64_t bad = 0;
  std::vector<T> values(kBatch);
  for (uint64_t b = 0; b < batches; ++b) {
    qxosstream out;
    for (unsigned i = 0; i < kBatch; ++i) {
      values[i] = next();
      out << qxexact(values[i]) << ' ';
    }
    std::string text = out.str();
    qxisstream in(text.data(), text.size(), false);
    errno = 0;
    for (unsigned i = 0; i < kBatch; ++i) {
      T got = 0;
      in >> got;
      if (!SameValue(got, values[i])) {
        if (bad++ == 0) {
          qxosstream note;
          note << qxexact(values[i]);
          *firstBad = note.str();
        }
      }
    }
  }
  return bad;
}

TEST(qxexactExhaustiveTest, EveryFloatReadsBack) {
  const uint64_t kAll = 1ull << 32;
  uint64_t halfBatches = kAll / kBatch / 2;
  uint64_t bad[2] = {0, 0};
  std::string firstBad[2];
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([t, &bad, &firstBad, halfBatches] {
      uint32_t bits = static_cast<uint32_t>(t) << 31;
      auto next = [&bits] {
        float value;
        std::memcpy(&value, &bits, sizeof value);
        ++bits;
        return value;
      };
      bad[t] = CheckBatches<float>(halfBatches, next, &firstBad[t]);
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(bad[0], 0u) << "first: " << firstBad[0];
  EXPECT_EQ(bad[1], 0u) << "first: " << firstBad[1];
}

TEST(qxexactExhaustiveTest, HundredMillionRandomDoublesReadBack) {
  const uint64_t kCount = 100000000;
  uint64_t halfBatches = (kCount + 2 * kBatch - 1) / kBatch / 2;
  uint64_t bad[2] = {0, 0};
  std::string firstBad[2];
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([t, &bad, &firstBad, halfBatches] {
      std::mt19937_64 random(2026 + static_cast<unsigned>(t));
      auto next = [&random] {
        uint64_t bits = random();
        double value;
        std::memcpy(&value, &bits, sizeof value);
        return value;
      };
      bad[t] = CheckBatches<double>(halfBatches, next, &firstBad[t]);
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(bad[0], 0u) << "first: " << firstBad[0];
  EXPECT_EQ(bad[1], 0u) << "first: " << firstBad[1];
}

}  // namespace
}  // namespace QXPlatform
