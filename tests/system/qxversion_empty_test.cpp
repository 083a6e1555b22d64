// No provider is ever registered in this program.

#include <string.h>

#include <string>

#include <gtest/gtest.h>

#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

std::string Report() {
  qxosstream out;
  QXGetVersions(out);
  return out.str();
}

TEST(QXVersionTest, BuildIdStartsAsTheTextTheBuildWasGiven) {
  ASSERT_NE(BUILD_ID, nullptr);
  EXPECT_STREQ(BUILD_ID, QXTEST_BUILD_ID);
}

TEST(QXVersionTest, ReportIsEmptyWithoutProvidersAndBuildId) {
  const char* saved = BUILD_ID;
  BUILD_ID = "";
  EXPECT_EQ(Report(), "");
  BUILD_ID = saved;
}

TEST(QXVersionTest, ReportBuildIdAloneGivesItsLineAndAnEmptyLine) {
  const char* saved = BUILD_ID;
  BUILD_ID = "r1234";
  EXPECT_EQ(Report(), "Build ID: r1234\n\n");
  BUILD_ID = saved;
}

}  // namespace
}  // namespace QXPlatform
