// Run by run_in_namespace.sh with the setup "loopbacks": lo up with
// 127.0.0.1 and then 127.9.9.9, no other interface, system domain empty.

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
    std::string why = testing::NamespaceMismatch("loopbacks");
    if (!why.empty()) {
      GTEST_SKIP() << why;
    }
  }
};

TEST_F(QXHostTest, IPAddressLastLoopbackAddressRemainsWhenThereIsNoOther) {
  // An empty system domain is no answer either.
  ASSERT_EQ(setdomainname("", 0), 0);
  EXPECT_EQ(testing::DottedQuad(QXGetIPAddress()), "127.9.9.9");
  EXPECT_EQ(QXGetDomainName(), nullptr);
}

}  // namespace
}  // namespace QXPlatform
