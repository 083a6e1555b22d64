// Runs in a process of its own: the scratch threshold is process-wide.

#include <stdio.h>
#include <unistd.h>

#include <iostream>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include <QXPlatform/system/qxmemory.h>

namespace QXPlatform {
namespace {

using testing::CaptureFd;

TEST(QXAllocaThresholdTest, StartsAt1024) {
  EXPECT_EQ(QXGetAllocaThreshold(), 1024u);
}

TEST(QXAllocaThresholdTest, AcceptsValuesUpTo4096) {
  QXSetAllocaThreshold(4096);
  EXPECT_EQ(QXGetAllocaThreshold(), 4096u);
  QXSetAllocaThreshold(0);
  EXPECT_EQ(QXGetAllocaThreshold(), 0u);
  QXSetAllocaThreshold(1024);
  EXPECT_EQ(QXGetAllocaThreshold(), 1024u);
}

TEST(QXAllocaThresholdTest, RefusesMoreThan4096OnStandardOutput) {
  QXSetAllocaThreshold(2000);
  std::cout.flush();
  CaptureFd capture(1);
  QXSetAllocaThreshold(4097);
  QXSetAllocaThreshold(18446744073709551615ul);
  std::cout.flush();
  EXPECT_EQ(capture.Finish(),
            "QXSetAllocaThreshold() 4097 invalid alloca threshold size\n"
            "QXSetAllocaThreshold() 18446744073709551615 invalid alloca "
            "threshold size\n");
  EXPECT_EQ(QXGetAllocaThreshold(), 2000u);
  QXSetAllocaThreshold(1024);
}

TEST(QXGetProcessMemUsageTest, ReportsVirtualAndResidentBytes) {
  unsigned long virtualBytes = 0;
  unsigned long residentBytes = 0;
  ASSERT_EQ(QXGetProcessMemUsage(virtualBytes, residentBytes), 0);
  long page = sysconf(_SC_PAGESIZE);
  EXPECT_GT(residentBytes, 0u);
  EXPECT_GE(virtualBytes, residentBytes);
  EXPECT_EQ(virtualBytes % static_cast<unsigned long>(page), 0u);
  EXPECT_EQ(residentBytes % static_cast<unsigned long>(page), 0u);
}

TEST(QXGetProcessMemUsageTest, FollowsMemoryTouchedByTheProcess) {
  unsigned long virtualBefore = 0;
  unsigned long residentBefore = 0;
  ASSERT_EQ(QXGetProcessMemUsage(virtualBefore, residentBefore), 0);
  const size_t size = 64ul << 20;
  std::unique_ptr<char[]> block(new char[size]);
  for (size_t i = 0; i < size; i += 4096) {
    block[i] = static_cast<char>(i);
  }
  unsigned long virtualAfter = 0;
  unsigned long residentAfter = 0;
  ASSERT_EQ(QXGetProcessMemUsage(virtualAfter, residentAfter), 0);
  EXPECT_GE(virtualAfter, virtualBefore + size);
  EXPECT_GE(residentAfter, residentBefore + size / 2);
  EXPECT_EQ(block[4096], 0);
}

}  // namespace
}  // namespace QXPlatform
