// Run by run_in_namespace.sh with the setup "zerooctet": lo down and an
// Ethernet en0 whose only IPv4 address is 0.1.2.3/8.

#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_system.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

class QXHostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string why = testing::NamespaceMismatch("zerooctet");
    if (!why.empty()) {
      GTEST_SKIP() << why;
    }
  }
};

TEST_F(QXHostTest, IPAddressStartingWithZeroIsReportedAsAbsent) {
  EXPECT_EQ(QXGetIPAddress(), nullptr);
  EXPECT_EQ(QXGetHostIdent(), 0x02112233L);
}

}  // namespace
}  // namespace QXPlatform
