#include <stdlib.h>
#include <time.h>

#include <random>
#include <string>

#include <gtest/gtest.h>

#include <QXPlatform/system/qxtime.h>

namespace QXPlatform {
namespace {

// Every test here sets TZ, which is process-wide; this file has its own
// executable.
void UseZone(const char* zone) {
  setenv("TZ", zone, 1);
  tzset();
}

TEST(QXTimeTest, LocalTimeOfTheEpochInUtc) {
  UseZone("UTC0");
  tm got;
  ASSERT_TRUE(QXLocalTime(&got, 0));
  EXPECT_EQ(got.tm_year, 70);
  EXPECT_EQ(got.tm_mon, 0);
  EXPECT_EQ(got.tm_mday, 1);
  EXPECT_EQ(got.tm_hour, 0);
  EXPECT_EQ(got.tm_min, 0);
  EXPECT_EQ(got.tm_sec, 0);
  EXPECT_EQ(got.tm_wday, 4);
  EXPECT_EQ(got.tm_yday, 0);
  EXPECT_EQ(got.tm_isdst, 0);
}

TEST(QXTimeTest, LocalTimeAppliesAHalfHourOffset) {
  UseZone("<+0530>-5:30");
  tm got;
  ASSERT_TRUE(QXLocalTime(&got, -1));
  EXPECT_EQ(got.tm_year, 70);
  EXPECT_EQ(got.tm_mday, 1);
  EXPECT_EQ(got.tm_hour, 5);
  EXPECT_EQ(got.tm_min, 29);
  EXPECT_EQ(got.tm_sec, 59);
  EXPECT_EQ(got.tm_gmtoff, 19800);
}

TEST(QXTimeTest, LocalTimeAppliesDaylightSavingRules) {
  UseZone("EST5EDT,M3.2.0,M11.1.0");
  tm summer;
  // 2023-06-29 00:53:20 UTC.
  ASSERT_TRUE(QXLocalTime(&summer, 1688000000));
  EXPECT_EQ(summer.tm_year, 123);
  EXPECT_EQ(summer.tm_mon, 5);
  EXPECT_EQ(summer.tm_mday, 28);
  EXPECT_EQ(summer.tm_hour, 20);
  EXPECT_EQ(summer.tm_min, 53);
  EXPECT_EQ(summer.tm_isdst, 1);
  tm winter;
  // 2023-11-14 22:13:20 UTC.
  ASSERT_TRUE(QXLocalTime(&winter, 1700000000));
  EXPECT_EQ(winter.tm_mday, 14);
  EXPECT_EQ(winter.tm_hour, 17);
  EXPECT_EQ(winter.tm_isdst, 0);
}

TEST(QXTimeTest, LocalTimeMatchesLocaltimeInSeveralZones) {
  const char* kZones[] = {"UTC0", "<+0530>-5:30", "EST5EDT,M3.2.0,M11.1.0",
                          "<-03>3", "CET-1CEST,M3.5.0,M10.5.0/3"};
  std::mt19937_64 random(20261115);
  std::uniform_int_distribution<long> seconds(-4000000000L, 8000000000L);
  for (const char* zone : kZones) {
    UseZone(zone);
    for (int i = 0; i < 2000; ++i) {
      long moment = seconds(random);
      tm got;
      ASSERT_TRUE(QXLocalTime(&got, moment)) << zone << " " << moment;
      time_t t = moment;
      tm expected;
      ASSERT_NE(localtime_r(&t, &expected), nullptr);
      ASSERT_EQ(got.tm_year, expected.tm_year) << zone << " " << moment;
      ASSERT_EQ(got.tm_yday, expected.tm_yday) << zone << " " << moment;
      ASSERT_EQ(got.tm_hour, expected.tm_hour) << zone << " " << moment;
      ASSERT_EQ(got.tm_min, expected.tm_min) << zone << " " << moment;
      ASSERT_EQ(got.tm_sec, expected.tm_sec) << zone << " " << moment;
      ASSERT_EQ(got.tm_isdst, expected.tm_isdst) << zone << " " << moment;
      ASSERT_EQ(got.tm_gmtoff, expected.tm_gmtoff) << zone << " " << moment;
    }
  }
}

TEST(QXTimeTest, CurrentTimeInUtcEqualsTheUniversalTime) {
  UseZone("UTC0");
  for (int attempt = 0; attempt < 10; ++attempt) {
    time_t before = time(nullptr);
    tm got;
    bool ok = QXCurrentTime(&got);
    std::string text = QXCurrentTime();
    time_t after = time(nullptr);
    if (before == after) {
      ASSERT_TRUE(ok);
      tm universal;
      ASSERT_NE(gmtime_r(&before, &universal), nullptr);
      EXPECT_EQ(got.tm_hour, universal.tm_hour);
      EXPECT_EQ(got.tm_min, universal.tm_min);
      EXPECT_EQ(got.tm_sec, universal.tm_sec);
      EXPECT_EQ(got.tm_yday, universal.tm_yday);
      char buf[26];
      ASSERT_NE(asctime_r(&universal, buf), nullptr);
      EXPECT_EQ(text, std::string(buf));
      return;
    }
  }
  FAIL() << "the clock moved on during every attempt";
}

}  // namespace
}  // namespace QXPlatform
