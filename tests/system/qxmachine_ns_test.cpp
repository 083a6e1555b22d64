// Run by run_in_namespace.sh with the setup "plain": the tests mount over
// /etc, /proc/cpuinfo and /proc in their own mount namespace. This program
// also defines sysconf, which the library's calls reach, so that the
// processor queries can be made to answer 0 or -1.

#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include "support/qxtest_system.h"
#include <QXPlatform/QXPlatform.h>

extern "C" long __sysconf(int name) noexcept;

namespace {

const long kAskTheLibrary = -1000;
long fakeOnline = kAskTheLibrary;
long fakeConfigured = kAskTheLibrary;

}  // namespace

// Sanitizer runtimes ask for sysconf while they start, before instrumented
// code may run, so this function is left uninstrumented.
extern "C" __attribute__((no_sanitize("thread", "address", "undefined"))) long
sysconf(int name) noexcept {
  if (name == _SC_NPROCESSORS_ONLN && fakeOnline != kAskTheLibrary) {
    return fakeOnline;
  }
  if (name == _SC_NPROCESSORS_CONF && fakeConfigured != kAskTheLibrary) {
    return fakeConfigured;
  }
  return __sysconf(name);
}

namespace QXPlatform {
namespace {

class QXMachineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string why = testing::NamespaceMismatch("plain");
    if (!why.empty()) {
      GTEST_SKIP() << why;
    }
  }
  void TearDown() override {
    fakeOnline = kAskTheLibrary;
    fakeConfigured = kAskTheLibrary;
  }

  // Puts an empty /etc in place for the rest of the test and notes the
  // system name and release that uname gives this process.
  void EmptyEtc() {
    struct utsname names;
    ASSERT_EQ(uname(&names), 0);
    _system = names.sysname;
    _release = names.release;
    ASSERT_FALSE(_system.empty());
    ASSERT_FALSE(_release.empty());
    _etc.reset(new testing::ScopedTmpfs("/etc"));
    ASSERT_TRUE(_etc->ok());
  }
  void WriteRelease(const std::string& content) {
    testing::WriteFile("/etc/lsb-release", content);
  }
  std::string WithRelease(const std::string& description) const {
    return description + " (" + _release + ")";
  }

  // The count from a /proc/cpuinfo with the given content, with both
  // processor queries answering 0.
  int CountFrom(const std::string& content) {
    testing::ScratchDir dir;
    testing::WriteFile(dir.File("cpuinfo"), content);
    testing::ScopedBind bind(dir.File("cpuinfo"), "/proc/cpuinfo");
    EXPECT_TRUE(bind.ok());
    fakeOnline = 0;
    fakeConfigured = 0;
    int count = QXGetNumProcessors();
    fakeOnline = kAskTheLibrary;
    fakeConfigured = kAskTheLibrary;
    return count;
  }

  std::string _system;
  std::string _release;

 private:
  std::unique_ptr<testing::ScopedTmpfs> _etc;
};

TEST_F(QXMachineTest, PlatformInfoWithoutTheFileIsSystemNameAndRelease) {
  ASSERT_NO_FATAL_FAILURE(EmptyEtc());
  EXPECT_EQ(QXGetPlatformInfo(), WithRelease(_system));
}

TEST_F(QXMachineTest, PlatformInfoQuotedDescriptionIsKeptWithItsQuotes) {
  ASSERT_NO_FATAL_FAILURE(EmptyEtc());
  WriteRelease(
      "DISTRIB_ID=Example\n"
      "DISTRIB_RELEASE=24.04\n"
      "DISTRIB_CODENAME=sample\n"
      "DISTRIB_DESCRIPTION=\"Example Linux 24.04 LTS\"\n");
  EXPECT_EQ(QXGetPlatformInfo(), WithRelease("\"Example Linux 24.04 LTS\""));
}

TEST_F(QXMachineTest, PlatformInfoLastOfTwoDescriptionLinesWins) {
  ASSERT_NO_FATAL_FAILURE(EmptyEtc());
  WriteRelease(
      "DISTRIB_DESCRIPTION=First One\n"
      "DISTRIB_ID=Example\n"
      "DISTRIB_DESCRIPTION=Second One\n");
  EXPECT_EQ(QXGetPlatformInfo(), WithRelease("Second One"));
}

TEST_F(QXMachineTest, PlatformInfoBareDescriptionLineIsIgnored) {
  ASSERT_NO_FATAL_FAILURE(EmptyEtc());
  WriteRelease(
      "DISTRIB_DESCRIPTION=Kept\n"
      "DISTRIB_DESCRIPTION=\n");
  EXPECT_EQ(QXGetPlatformInfo(), WithRelease("Kept"));
  WriteRelease("DISTRIB_DESCRIPTION=\n");
  EXPECT_EQ(QXGetPlatformInfo(), WithRelease(_system));
}

TEST_F(QXMachineTest, PlatformInfoOneCharacterAfterTheKeyIsEnough) {
  ASSERT_NO_FATAL_FAILURE(EmptyEtc());
  WriteRelease("DISTRIB_DESCRIPTION=x");
  EXPECT_EQ(QXGetPlatformInfo(), WithRelease("x"));
}

TEST_F(QXMachineTest, PlatformInfoKeyMustStartTheLineExactly) {
  ASSERT_NO_FATAL_FAILURE(EmptyEtc());
  WriteRelease(
      " DISTRIB_DESCRIPTION=Indented\n"
      "distrib_description=Lower\n"
      "XDISTRIB_DESCRIPTION=Prefixed\n"
      "DISTRIB_DESCRIPTION Spaced\n");
  EXPECT_EQ(QXGetPlatformInfo(), WithRelease(_system));
}

TEST_F(QXMachineTest, PlatformInfoValueIsTakenVerbatimUpToTheLineEnd) {
  ASSERT_NO_FATAL_FAILURE(EmptyEtc());
  WriteRelease("DISTRIB_DESCRIPTION= padded = value \r\nDISTRIB_ID=x\r\n");
  EXPECT_EQ(QXGetPlatformInfo(), WithRelease(" padded = value "));
}

TEST_F(QXMachineTest, PlatformInfoFileWithoutOwnerReadBitIsNotRead) {
  ASSERT_NO_FATAL_FAILURE(EmptyEtc());
  WriteRelease("DISTRIB_DESCRIPTION=Hidden\n");
  ASSERT_EQ(chmod("/etc/lsb-release", 0044), 0);
  EXPECT_EQ(QXGetPlatformInfo(), WithRelease(_system));
  ASSERT_EQ(chmod("/etc/lsb-release", 0400), 0);
  EXPECT_EQ(QXGetPlatformInfo(), WithRelease("Hidden"));
}

TEST_F(QXMachineTest, PlatformInfoDirectoryInPlaceOfTheFileGivesNoDescription) {
  ASSERT_NO_FATAL_FAILURE(EmptyEtc());
  ASSERT_EQ(mkdir("/etc/lsb-release", 0755), 0);
  EXPECT_EQ(QXGetPlatformInfo(), WithRelease(_system));
}

TEST_F(QXMachineTest, UserNameIsEmptyWithoutAnEntryAndFollowsTheDatabase) {
  ASSERT_EQ(getuid(), 0u);
  ASSERT_NO_FATAL_FAILURE(EmptyEtc());
  testing::WriteFile("/etc/nsswitch.conf", "passwd: files\n");
  testing::WriteFile("/etc/passwd", "daemon:x:1:1::/:/bin/sh\n");
  EXPECT_EQ(QXGetUserName(), "");
  testing::WriteFile("/etc/passwd", "admin:x:0:0::/:/bin/sh\n");
  EXPECT_EQ(QXGetUserName(), "admin");
}

TEST_F(QXMachineTest, NumProcessorsOnlineAnswersFirst) {
  fakeConfigured = 3;
  EXPECT_EQ(QXGetNumProcessors(),
            static_cast<int>(__sysconf(_SC_NPROCESSORS_ONLN)));
}

TEST_F(QXMachineTest, NumProcessorsErrorFromTheOnlineQueryIsReturnedAsItIs) {
  fakeOnline = -1;
  fakeConfigured = 3;
  EXPECT_EQ(QXGetNumProcessors(), -1);
}

TEST_F(QXMachineTest, NumProcessorsConfiguredAnswersWhenOnlineGivesZero) {
  fakeOnline = 0;
  fakeConfigured = 6;
  EXPECT_EQ(QXGetNumProcessors(), 6);
}

TEST_F(QXMachineTest, NumProcessorsEightProcessorLinesGiveEight) {
  std::string content;
  for (int i = 0; i < 8; ++i) {
    content += "processor\t: " + std::to_string(i) +
               "\nvendor_id\t: Example\nmodel name\t: Example processor\n\n";
  }
  EXPECT_EQ(CountFrom(content), 8);
}

TEST_F(QXMachineTest, NumProcessorsOnlyLinesBeginningWithTheWordCount) {
  EXPECT_EQ(CountFrom("processor\t: 0\n"
                      " processor\t: 1\n"
                      "\tprocessor\t: 2\n"
                      "Processor\t: 3\n"
                      "model name\t: processor\n"
                      "process\n"
                      "processors of any kind\n"
                      "processor"),
            3);
}

TEST_F(QXMachineTest, NumProcessorsLongLinesAndLineEndsDoNotHideTheWord) {
  std::string content = std::string(100000, 'x') + "\nprocessor\r\n" +
                        "flags: " + std::string(70000, 'f') + "\rprocessor\n";
  EXPECT_EQ(CountFrom(content), 2);
}

TEST_F(QXMachineTest, NumProcessorsEmptyCpuinfoGivesZero) {
  EXPECT_EQ(CountFrom(""), 0);
}

TEST_F(QXMachineTest, NumProcessorsMachineCpuinfoIsCountedLikeGrepDoes) {
  std::string expected;
  ASSERT_EQ(
      testing::RunCommand("grep -c '^processor' /proc/cpuinfo", &expected), 0);
  fakeOnline = 0;
  fakeConfigured = 0;
  EXPECT_EQ(QXGetNumProcessors(), std::stoi(expected));
}

TEST_F(QXMachineTest, NumProcessorsMissingCpuinfoGivesZero) {
  testing::ScopedTmpfs proc("/proc");
  ASSERT_TRUE(proc.ok());
  fakeOnline = 0;
  fakeConfigured = 0;
  EXPECT_EQ(QXGetNumProcessors(), 0);
}

}  // namespace
}  // namespace QXPlatform
