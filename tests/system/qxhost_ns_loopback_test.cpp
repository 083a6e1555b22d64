// Run by run_in_namespace.sh with the setup "loopback": host name
// alpha.beta.gamma, only lo up, and /etc/hosts naming 127.0.0.1
// alpha.beta.gamma.

#include <stdlib.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_system.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

class QXHostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string why = testing::NamespaceMismatch("loopback");
    if (!why.empty()) {
      GTEST_SKIP() << why;
    }
  }
};

TEST_F(QXHostTest, HostNameCutsTheSystemNameAtItsFirstDot) {
  const char* host = QXGetHostName();
  ASSERT_NE(host, nullptr);
  EXPECT_STREQ(host, "alpha");
}

TEST_F(QXHostTest, IPAddressIsLoopbackWhenOnlyLoIsUp) {
  EXPECT_EQ(testing::DottedQuad(QXGetIPAddress()), "127.0.0.1");
}

TEST_F(QXHostTest, DomainNameComesFromTheReverseLookupOfTheAddress) {
  const char* domain = QXGetDomainName();
  ASSERT_NE(domain, nullptr);
  EXPECT_STREQ(domain, "beta.gamma");
}

TEST_F(QXHostTest, HostNameDomainAndAddressKeepTheirBuffers) {
  const char* host = QXGetHostName();
  const char* domain = QXGetDomainName();
  const unsigned char* address = QXGetIPAddress();
  EXPECT_EQ(QXGetHostName(), host);
  EXPECT_EQ(QXGetDomainName(), domain);
  EXPECT_EQ(QXGetIPAddress(), address);
}

TEST_F(QXHostTest, HostNameDomainAndAddressIgnoreLaterSystemChanges) {
  ASSERT_NE(QXGetHostName(), nullptr);
  ASSERT_NE(QXGetIPAddress(), nullptr);
  ASSERT_EQ(sethostname("other.name", 10), 0);
  ASSERT_EQ(system("ip addr add 10.1.1.1/24 dev lo"), 0);
  EXPECT_STREQ(QXGetHostName(), "alpha");
  EXPECT_EQ(testing::DottedQuad(QXGetIPAddress()), "127.0.0.1");
  EXPECT_STREQ(QXGetDomainName(), "beta.gamma");
}

TEST_F(QXHostTest, HostIdentIsZeroWithoutEn0) {
  EXPECT_EQ(QXGetHostIdent(), 0);
}

}  // namespace
}  // namespace QXPlatform
