// Run by run_in_namespace.sh with the setup "en0": host name alpha without a
// dot, system domain example.test, lo up and an Ethernet en0 with hardware
// address 02:11:22:33:44:55, 10.11.12.13/24 and then 10.99.0.1/24; no name
// server.

#include <stdlib.h>

#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_system.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

class QXHostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string why = testing::NamespaceMismatch("en0");
    if (!why.empty()) {
      GTEST_SKIP() << why;
    }
  }
};

// Kept in one test: the order of the first calls is what is checked.
TEST_F(QXHostTest, DomainNameFirstCallFixesTheAddressAndFallsBackToTheSystem) {
  const char* domain = QXGetDomainName();
  ASSERT_NE(domain, nullptr);
  // The address has no reverse entry, so the system domain answers.
  EXPECT_STREQ(domain, "example.test");
  ASSERT_EQ(system("ip addr del 10.11.12.13/24 dev en0"), 0);
  // The address was fixed by the domain's lookup, before the change.
  EXPECT_EQ(testing::DottedQuad(QXGetIPAddress()), "10.11.12.13");
}

TEST_F(QXHostTest, HostNameWithoutDotIsKeptWhole) {
  const char* host = QXGetHostName();
  ASSERT_NE(host, nullptr);
  EXPECT_STREQ(host, "alpha");
}

TEST_F(QXHostTest, HostIdentIsTheFirstFourHardwareAddressBytesBigEndian) {
  EXPECT_EQ(QXGetHostIdent(), 0x02112233L);
}

}  // namespace
}  // namespace QXPlatform
