#include <errno.h>
#include <limits.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>

#include <chrono>
#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include <QXPlatform/system/qxtime.h>

namespace QXPlatform {
namespace {

using testing::CaptureFd;

using Clock = std::chrono::steady_clock;

long long MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() -
                                                               start)
      .count();
}

unsigned long RawNanoseconds() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC_RAW, &now);
  return static_cast<unsigned long>(now.tv_sec) * 1000000000ul +
         static_cast<unsigned long>(now.tv_nsec);
}

std::string AsctimeOf(time_t moment) {
  tm local;
  if (localtime_r(&moment, &local) == nullptr) {
    return std::string();
  }
  char buf[26];
  return asctime_r(&local, buf) != nullptr ? std::string(buf) : std::string();
}

bool SameFields(const tm& a, const tm& b) {
  return a.tm_year == b.tm_year && a.tm_mon == b.tm_mon &&
         a.tm_mday == b.tm_mday && a.tm_hour == b.tm_hour &&
         a.tm_min == b.tm_min && a.tm_sec == b.tm_sec &&
         a.tm_wday == b.tm_wday && a.tm_yday == b.tm_yday &&
         a.tm_isdst == b.tm_isdst && a.tm_gmtoff == b.tm_gmtoff;
}

TEST(QXTimeTest, CurrentTimeTextIsTwentyFiveCharactersEndingInNewline) {
  std::string text = QXCurrentTime();
  ASSERT_EQ(text.size(), 25u);
  EXPECT_EQ(text.back(), '\n');
  EXPECT_EQ(text.find('\n'), 24u);
}

TEST(QXTimeTest, CurrentTimeTextEqualsAsctimeOfTheSameSecond) {
  // Retry when the second changes between the readings.
  for (int attempt = 0; attempt < 10; ++attempt) {
    time_t before = time(nullptr);
    std::string text = QXCurrentTime();
    time_t after = time(nullptr);
    if (before == after) {
      EXPECT_EQ(text, AsctimeOf(before));
      return;
    }
  }
  FAIL() << "the clock moved on during every attempt";
}

TEST(QXTimeTest, CurrentTimeStructEqualsLocaltimeOfTheSameSecond) {
  for (int attempt = 0; attempt < 10; ++attempt) {
    time_t before = time(nullptr);
    tm got;
    memset(&got, 0, sizeof got);
    bool ok = QXCurrentTime(&got);
    time_t after = time(nullptr);
    if (before == after) {
      ASSERT_TRUE(ok);
      tm expected;
      ASSERT_NE(localtime_r(&before, &expected), nullptr);
      EXPECT_TRUE(SameFields(got, expected));
      return;
    }
  }
  FAIL() << "the clock moved on during every attempt";
}

TEST(QXTimeTest, LocalTimeMatchesLocaltimeOfTheGivenSeconds) {
  const long kMoments[] = {0, 1, -1, 86399, 951782400, 1700000000, 4102444800};
  for (long seconds : kMoments) {
    tm got;
    ASSERT_TRUE(QXLocalTime(&got, seconds)) << seconds;
    time_t moment = seconds;
    tm expected;
    ASSERT_NE(localtime_r(&moment, &expected), nullptr);
    EXPECT_TRUE(SameFields(got, expected)) << seconds;
  }
}

TEST(QXTimeTest, LocalTimeReportsAYearBeyondRangeUnderTheCurrentTimeName) {
  tm got;
  CaptureFd err(2);
  bool ok = QXLocalTime(&got, LONG_MAX);
  std::string text = err.Finish();
  EXPECT_FALSE(ok);
  EXPECT_EQ(text, "QXCurrentTime received error from localtime_r: " +
                      std::string(strerror(EOVERFLOW)) + "\n");
}

TEST(QXTimeTest, SleepZeroReturnsAtOnce) {
  Clock::time_point start = Clock::now();
  EXPECT_EQ(QXSleep(0), 0);
  EXPECT_LT(MillisecondsSince(start), 50);
}

TEST(QXTimeTest, SleepWaitsAtLeastTheGivenMilliseconds) {
  Clock::time_point start = Clock::now();
  EXPECT_EQ(QXSleep(30), 0);
  EXPECT_GE(MillisecondsSince(start), 30);
}

TEST(QXTimeTest, SleepAboveTheThirtyTwoBitLimitWrapsToAShortSleep) {
  // 4294968 ms is 4294968000 us, which wraps to 704 us in 32 bits.
  Clock::time_point start = Clock::now();
  EXPECT_EQ(QXSleep(4294968ul), 0);
  EXPECT_LT(MillisecondsSince(start), 1000);
}

TEST(QXTimeTest, CycleTimeNeverDecreases) {
  unsigned long previous = QXCycleTime();
  unsigned long decreases = 0;
  for (int i = 0; i < 1000000; ++i) {
    unsigned long now = QXCycleTime();
    if (now < previous) {
      ++decreases;
    }
    previous = now;
  }
  EXPECT_EQ(decreases, 0ul);
}

TEST(QXTimeTest, CycleTimeCountsNanosecondsOfTheRawMonotonicClock) {
  unsigned long before = RawNanoseconds();
  unsigned long reading = QXCycleTime();
  unsigned long after = RawNanoseconds();
  EXPECT_LE(before, reading);
  EXPECT_LE(reading, after);
}

TEST(QXTimeTest, CycleTimeAdvancesAboutTenMillionOverATenMillisecondSleep) {
  unsigned long start = QXCycleTime();
  ASSERT_EQ(QXSleep(10), 0);
  unsigned long elapsed = QXCycleTime() - start;
  EXPECT_GE(elapsed, 10000000ul);
  // Generous upper bound: a busy machine may oversleep.
  EXPECT_LT(elapsed, 200000000ul);
}

TEST(QXTimeTest, GetTimeOfDayAgreesWithTime) {
  time_t before = time(nullptr);
  timeval now;
  ASSERT_TRUE(QXGetTimeOfDay(&now));
  time_t after = time(nullptr);
  EXPECT_GE(now.tv_sec, before);
  EXPECT_LE(now.tv_sec, after);
  EXPECT_GE(now.tv_usec, 0);
  EXPECT_LT(now.tv_usec, 1000000);
}

}  // namespace
}  // namespace QXPlatform
