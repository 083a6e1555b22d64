#include <stdlib.h>
#include <string.h>

#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

TEST(QXHostTest, SplitDomainNameKeepsEverythingAfterTheFirstDot) {
  char domain[64] = "junk";
  EXPECT_TRUE(QXSplitDomainName(domain, "alpha.beta.gamma"));
  EXPECT_STREQ(domain, "beta.gamma");
}

TEST(QXHostTest, SplitDomainNameWithoutDotGivesFalseAndEmptyOutput) {
  char domain[64] = "junk";
  EXPECT_FALSE(QXSplitDomainName(domain, "alpha"));
  EXPECT_STREQ(domain, "");
}

TEST(QXHostTest, SplitDomainNameEndingInDotGivesTrueAndEmptyOutput) {
  char domain[64] = "junk";
  EXPECT_TRUE(QXSplitDomainName(domain, "a."));
  EXPECT_STREQ(domain, "");
}

TEST(QXHostTest, SplitDomainNameEmptyNameGivesFalseAndEmptyOutput) {
  char domain[64] = "junk";
  EXPECT_FALSE(QXSplitDomainName(domain, ""));
  EXPECT_STREQ(domain, "");
}

TEST(QXHostTest, SplitDomainNameLeadingDotGivesTheRest) {
  char domain[64] = "junk";
  EXPECT_TRUE(QXSplitDomainName(domain, ".local"));
  EXPECT_STREQ(domain, "local");
}

TEST(QXHostTest, SplitDomainNameSecondDotStaysInTheDomain) {
  char domain[64] = "junk";
  EXPECT_TRUE(QXSplitDomainName(domain, "a..b"));
  EXPECT_STREQ(domain, ".b");
}

TEST(QXHostTest, SplitDomainNameSameBufferForBothAlwaysGivesFalseAndEmpties) {
  char buffer[64] = "alpha.beta.gamma";
  EXPECT_FALSE(QXSplitDomainName(buffer, buffer));
  EXPECT_STREQ(buffer, "");
}

TEST(QXHostTest, SplitDomainNameNullNameGivesFalseAndEmptyOutput) {
  char domain[64] = "junk";
  EXPECT_FALSE(QXSplitDomainName(domain, nullptr));
  EXPECT_STREQ(domain, "");
}

TEST(QXHostTest, SplitDomainNameNullOutputGivesFalse) {
  EXPECT_FALSE(QXSplitDomainName(nullptr, "alpha.beta"));
}

TEST(QXHostTest, SplitDomainNameLongNameIsCopiedWhole) {
  std::string label(200, 'x');
  std::string fqdn = "h." + label + ".example";
  std::string domain(fqdn.size() + 1, '?');
  EXPECT_TRUE(QXSplitDomainName(&domain[0], fqdn.c_str()));
  EXPECT_STREQ(domain.c_str(), (label + ".example").c_str());
}

TEST(QXHostTest, SplitHostNameKeepsThePartBeforeTheFirstDot) {
  char host[64] = "junk";
  QXSplitHostName(host, "alpha.beta.gamma");
  EXPECT_STREQ(host, "alpha");
}

TEST(QXHostTest, SplitHostNameWithoutDotIsCopiedWhole) {
  char host[64] = "junk";
  QXSplitHostName(host, "alpha");
  EXPECT_STREQ(host, "alpha");
}

TEST(QXHostTest, SplitHostNameEmptyOrLeadingDotGivesEmptyHost) {
  char host[64] = "junk";
  QXSplitHostName(host, "");
  EXPECT_STREQ(host, "");
  strcpy(host, "junk");
  QXSplitHostName(host, ".alpha");
  EXPECT_STREQ(host, "");
}

TEST(QXHostTest, SplitHostNameTrailingDotIsDropped) {
  char host[64] = "junk";
  QXSplitHostName(host, "a.");
  EXPECT_STREQ(host, "a");
}

TEST(QXHostTest, SplitHostNameNullNameGivesEmptyHostAndNullHostIsLeftAlone) {
  char host[64] = "junk";
  QXSplitHostName(host, nullptr);
  EXPECT_STREQ(host, "");
  QXSplitHostName(nullptr, "alpha.beta");
}

TEST(QXHostTest, WriteCallbackAppendsSizeTimesCountBytesAndReturnsThem) {
  std::string target = "head:";
  char data[] = {'a', 'b', 'c', '\0', 'e', 'f'};
  EXPECT_EQ(write_callback(data, 2, 3, &target), 6u);
  EXPECT_EQ(target, std::string("head:abc\0ef", 11));
  EXPECT_EQ(write_callback(data, 1, 2, &target), 2u);
  EXPECT_EQ(target, std::string("head:abc\0efab", 13));
}

TEST(QXHostTest, WriteCallbackZeroCountAppendsNothing) {
  std::string target = "x";
  char data[] = "abc";
  EXPECT_EQ(write_callback(data, 3, 0, &target), 0u);
  EXPECT_EQ(write_callback(data, 0, 3, &target), 0u);
  EXPECT_EQ(target, "x");
}

TEST(QXHostTest, WriteCallbackNullTargetConsumesNothing) {
  char data[] = "abc";
  EXPECT_EQ(write_callback(data, 1, 3, nullptr), 0u);
}

// The kernel's own view of en0, read from sysfs: its identifier when it is
// an Ethernet interface with an address, 0 otherwise.
long IdentFromSysfs() {
  std::string type = testing::ReadFile("/sys/class/net/en0/type");
  std::string address = testing::ReadFile("/sys/class/net/en0/address");
  if (type != "1\n" || address.size() < 11) {
    return 0;
  }
  unsigned long ident = 0;
  for (int i = 0; i < 4; ++i) {
    ident =
        (ident << 8) | strtoul(address.substr(i * 3, 2).c_str(), nullptr, 16);
  }
  return static_cast<long>(ident);
}

TEST(QXHostTest, HostIdentMatchesTheKernelViewOfEn0OnThisMachine) {
  EXPECT_EQ(QXGetHostIdent(), IdentFromSysfs());
}

}  // namespace
}  // namespace QXPlatform
