// Providers with an empty group, duplicates and a counter, registered once
// for the whole program.

#include <string>

#include <gtest/gtest.h>

#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

int calls = 0;

QXVersion Counted() {
  ++calls;
  return QXVersion("Beta", "Counted", "1");
}
QXVersion Ungrouped() { return QXVersion("", "Loose", "0.1"); }
QXVersion AlphaOne() { return QXVersion("Alpha", "One", "1"); }
QXVersion AlphaLonger() { return QXVersion("Alphabet", "Two", "2"); }

std::string Report() {
  qxosstream out;
  QXGetVersions(out);
  return out.str();
}

class QXVersionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    static bool registered = false;
    if (!registered) {
      QXRegisterVersion(Counted);
      QXRegisterVersion(AlphaLonger);
      QXRegisterVersion(Ungrouped);
      QXRegisterVersion(Counted);
      QXRegisterVersion(AlphaOne);
      registered = true;
    }
    _saved = BUILD_ID;
    BUILD_ID = "";
  }
  void TearDown() override { BUILD_ID = _saved; }

 private:
  const char* _saved = nullptr;
};

TEST_F(QXVersionTest, ReportEmptyGroupFirstHasNoHeadingAndNoBlankLineAfter) {
  EXPECT_EQ(Report(),
            "Loose Version: 0.1\n"
            "========== Alpha ========== \n"
            "One Version: 1\n"
            "\n"
            "========== Alphabet ========== \n"
            "Two Version: 2\n"
            "\n"
            "========== Beta ========== \n"
            "Counted Version: 1\n"
            "Counted Version: 1\n");
}

TEST_F(QXVersionTest, ReportEveryRegistrationIsAskedOnEveryReport) {
  int before = calls;
  Report();
  EXPECT_EQ(calls - before, 2);
  Report();
  EXPECT_EQ(calls - before, 4);
}

}  // namespace
}  // namespace QXPlatform
