// Run by run_in_namespace.sh with the setup "longname": only lo up, and
// /etc/hosts names 127.0.0.1 with a qualified name of more than 200 bytes;
// the system domain is fallback.test.

#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_system.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

class QXHostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string why = testing::NamespaceMismatch("longname");
    if (!why.empty()) {
      GTEST_SKIP() << why;
    }
  }
};

TEST_F(QXHostTest, DomainNameSkipsAReverseAnswerTooLongForItsBuffer) {
  const char* domain = QXGetDomainName();
  ASSERT_NE(domain, nullptr);
  EXPECT_STREQ(domain, "fallback.test");
  EXPECT_EQ(testing::DottedQuad(QXGetIPAddress()), "127.0.0.1");
}

}  // namespace
}  // namespace QXPlatform
