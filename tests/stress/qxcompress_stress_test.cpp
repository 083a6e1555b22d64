// Buffer compression on eight threads at once, both methods: every buffer
// comes back from its own thread's round trip, and from another thread's
// decoder as well, so that no thread's compression or decompression state
// leaks into another's.

#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <QXPlatform/streams/qxcompress.h>

namespace QXPlatform {
namespace {

const int kThreads = 8;
const int kBuffers = 40;

// Bytes that compress well or not at all, of a length around the block and
// chunk sizes.
std::string Buffer(std::mt19937& random) {
  static const size_t kLengths[] = {0,     1,     100,   16383, 16384,
                                    32768, 32769, 70000, 131073};
  size_t length = random() % 2 ? kLengths[random() % 9] : random() % 140000;
  std::string data(length, '\0');
  if (random() % 2) {
    for (char& c : data) {
      c = static_cast<char>(random());
    }
  } else {
    static const char kWords[] = "alpha beta gamma delta 0123456789\n";
    for (size_t i = 0; i < length; ++i) {
      data[i] = kWords[(i * 7 + random() % 3) % (sizeof kWords - 1)];
    }
  }
  return data;
}

struct Packed {
  std::string original;
  std::string gz;
  std::string zstd;
};

TEST(QXCompressStressTest, EightThreadsRoundTripBothMethods) {
  std::vector<std::vector<Packed>> made(kThreads);
  std::atomic<int> failures(0);
  std::atomic<int> ready(0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      std::mt19937 random(static_cast<unsigned>(t) * 31 + 5);
      for (int i = 0; i < kBuffers; ++i) {
        Packed p;
        p.original = Buffer(random);
        if (!QXCompress(p.gz, p.original, "gz") ||
            !QXCompress(p.zstd, p.original, "zstd")) {
          ++failures;
          continue;
        }
        std::string back;
        if (!QXUncompress(back, p.gz, "gz") || back != p.original) {
          ++failures;
        }
        back.clear();
        if (!QXUncompress(back, p.zstd, "zstd") || back != p.original) {
          ++failures;
        }
        made[t].push_back(std::move(p));
      }
      // Then every thread unpacks what its neighbour made.
      ++ready;
      while (ready.load() < kThreads) {
        std::this_thread::yield();
      }
      for (const Packed& p : made[(t + 1) % kThreads]) {
        std::string back;
        if (!QXUncompress(back, p.zstd, "zstd") || back != p.original) {
          ++failures;
        }
        back.clear();
        if (!QXUncompress(back, p.gz, "gz") || back != p.original) {
          ++failures;
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(failures.load(), 0);
  for (const std::vector<Packed>& list : made) {
    EXPECT_EQ(list.size(), static_cast<size_t>(kBuffers));
  }
}

}  // namespace
}  // namespace QXPlatform
