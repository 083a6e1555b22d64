// Run by run_in_namespace.sh with the setup "nosource": no interface up, an
// empty /etc/hosts, no name server and the default system domain "(none)".
// The test empties the host name itself before the first query.

#include <string.h>
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
    std::string why = testing::NamespaceMismatch("nosource");
    if (!why.empty()) {
      GTEST_SKIP() << why;
    }
  }
};

TEST_F(QXHostTest, EveryMissingSourceGivesNullOrZero) {
  ASSERT_EQ(sethostname("", 0), 0);
  char domain[128];
  ASSERT_EQ(getdomainname(domain, sizeof(domain)), 0);
  ASSERT_STREQ(domain, "(none)");

  EXPECT_EQ(QXGetHostName(), nullptr);
  EXPECT_EQ(QXGetIPAddress(), nullptr);
  // "(none)" from the system is no answer, and nothing else has one.
  EXPECT_EQ(QXGetDomainName(), nullptr);
  EXPECT_EQ(QXGetHostIdent(), 0);
}

}  // namespace
}  // namespace QXPlatform
