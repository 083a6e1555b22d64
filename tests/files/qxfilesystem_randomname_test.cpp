#include <stdlib.h>
#include <time.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

const char kWarning[] =
    "QXFileRandomName is deprecated as of QXCore 1.9.1 (2013.Feb):\n"
    "  Use QXFileTempDescriptor or QXFileTempDirectory instead to avoid\n"
    "  race conditions and security vulnerabilities.\n";

// True when name is some second in [from, to] followed by a number below
// 100 written without padding.
bool IsSecondsThenNumber(const std::string& name, time_t from, time_t to) {
  for (time_t t = from; t <= to; ++t) {
    const std::string seconds = std::to_string(static_cast<int>(t));
    if (name.compare(0, seconds.size(), seconds) != 0) {
      continue;
    }
    const std::string rest = name.substr(seconds.size());
    if (rest.empty() || rest.size() > 2 ||
        rest.find_first_not_of("0123456789") != std::string::npos) {
      continue;
    }
    if (rest.size() == 2 && rest[0] == '0') {
      continue;
    }
    return true;
  }
  return false;
}

TEST(QXFileSystemTest, RandomNameWarnsOnceEvenFromEightThreadsAtOnce) {
  testing::CaptureFd err(2);
  std::atomic<int> ready(0);
  std::vector<std::string> names(8);
  std::vector<std::thread> threads;
  const time_t from = time(nullptr);
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      ++ready;
      while (ready.load() < 8) {
      }
      names[t] = QXFileRandomName();
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  const std::string later = QXFileRandomName();
  std::thread another([] { QXFileRandomName(); });
  another.join();
  const time_t to = time(nullptr);
  qxerr << qxflush;
  EXPECT_EQ(err.Finish(), kWarning);
  for (const std::string& name : names) {
    EXPECT_TRUE(IsSecondsThenNumber(name, from, to)) << name;
  }
  EXPECT_TRUE(IsSecondsThenNumber(later, from, to)) << later;
}

TEST(QXFileSystemTest, RandomNameIsTheSecondsFollowedByRandModHundred) {
  testing::CaptureFd err(2);
  std::string name;
  time_t before;
  int r;
  do {
    before = time(nullptr);
    srand(7);
    r = rand() % 100;
    srand(7);
    name = QXFileRandomName();
  } while (time(nullptr) != before);
  err.Finish();
  EXPECT_EQ(name, std::to_string(static_cast<int>(before)) + std::to_string(r));
}

TEST(QXFileSystemTest, RandomNameCanRepeatWithinOneSecond) {
  testing::CaptureFd err(2);
  std::string first;
  std::string second;
  time_t before;
  do {
    before = time(nullptr);
    srand(11);
    first = QXFileRandomName();
    srand(11);
    second = QXFileRandomName();
  } while (time(nullptr) != before);
  err.Finish();
  EXPECT_EQ(first, second);
  EXPECT_EQ(first.find('/'), std::string::npos);
}

}  // namespace
}  // namespace QXPlatform
