#include <string>

#include <gtest/gtest.h>

#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

QXVersion AlphaZeta() { return QXVersion("Alpha", "Zeta", "2.0"); }
QXVersion AlphaCore() { return QXVersion("Alpha", "Core", "1.5"); }
QXVersion BetaTools() { return QXVersion("Beta", "Tools", "0.9-rc1"); }
QXVersion AlphaLower() { return QXVersion("Alpha", "core", "1.0"); }

std::string Report() {
  qxosstream out;
  QXGetVersions(out);
  return out.str();
}

// Registered in an order that differs from the sorted one. The registry
// cannot be emptied, so one process registers these once.
void RegisterOnce() {
  static bool done = false;
  if (!done) {
    QXRegisterVersion(BetaTools);
    QXRegisterVersion(AlphaZeta);
    QXRegisterVersion(AlphaLower);
    QXRegisterVersion(AlphaCore);
    done = true;
  }
}

class QXVersionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    _saved = BUILD_ID;
    BUILD_ID = "";
    RegisterOnce();
  }
  void TearDown() override { BUILD_ID = _saved; }

 private:
  const char* _saved = nullptr;
};

TEST_F(QXVersionTest, ReportSectionsAreSortedByGroupThenLineWithBlankLines) {
  EXPECT_EQ(Report(),
            "========== Alpha ========== \n"
            "Core Version: 1.5\n"
            "Zeta Version: 2.0\n"
            "core Version: 1.0\n"
            "\n"
            "========== Beta ========== \n"
            "Tools Version: 0.9-rc1\n");
}

TEST_F(QXVersionTest, ReportBuildIdComesFirstFollowedByAnEmptyLine) {
  BUILD_ID = "nightly 2026-01-31 abc123";
  EXPECT_EQ(Report(),
            "Build ID: nightly 2026-01-31 abc123\n"
            "\n"
            "========== Alpha ========== \n"
            "Core Version: 1.5\n"
            "Zeta Version: 2.0\n"
            "core Version: 1.0\n"
            "\n"
            "========== Beta ========== \n"
            "Tools Version: 0.9-rc1\n");
}

TEST_F(QXVersionTest, ReleaseIsTheFamilyRelease) {
  EXPECT_EQ(QXToolkitsGetRelease(), "2026.1.0");
}

TEST_F(QXVersionTest, ValueKeepsGroupComponentAndVersionInOrder) {
  QXVersion v("Group", "Component", "1.2.3");
  EXPECT_EQ(v.group, "Group");
  EXPECT_EQ(v.component, "Component");
  EXPECT_EQ(v.version, "1.2.3");
  QXVersion copy = v;
  EXPECT_EQ(copy.component, "Component");
}

}  // namespace
}  // namespace QXPlatform
