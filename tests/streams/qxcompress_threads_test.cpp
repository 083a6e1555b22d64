// Whole-buffer compression from several threads at once, each with its own
// zstd streams.

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_gzip.h"
#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxcompress.h>

namespace QXPlatform {
namespace {

using testing::RandomBytes;
using testing::SampleText;

TEST(QXCompressThreadsTest, EightThreadsCompressAndUncompressWithBothMethods) {
  std::atomic<int> failures{0};
  std::vector<std::thread> workers;
  for (int t = 0; t < 8; ++t) {
    workers.emplace_back([&failures, t] {
      for (int i = 0; i < 40; ++i) {
        size_t n = static_cast<size_t>((t * 7919 + i * 104729) % 200000);
        std::string data = i % 3 == 0 ? RandomBytes(n, t * 100 + i)
                                      : SampleText(n, t * 100 + i);
        for (const char* method : {"gz", "zstd"}) {
          std::string packed;
          std::string back;
          if (!QXCompress(packed, data, method) ||
              !QXUncompress(back, packed, method) || back != data) {
            ++failures;
          }
        }
      }
    });
  }
  for (auto& w : workers) {
    w.join();
  }
  EXPECT_EQ(failures, 0);
}

}  // namespace
}  // namespace QXPlatform
