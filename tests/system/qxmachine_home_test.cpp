// Changes HOME, so it runs in a program of its own.

#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_files.h"
#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

void ExpectNoUserDirectories() {
  EXPECT_EQ(QXGetUserHomeDir(), "");
  EXPECT_EQ(QXGetUserAppDataDir(), "");
  EXPECT_EQ(QXGetUserDocumentsDir(), "");
}

void MakeDirectory(const std::string& path) {
  ASSERT_EQ(testing::RunCommand("mkdir -p '" + path + "'"), 0) << path;
}

TEST(QXMachineTest, HomeUnsetGivesEmptyDirectories) {
  testing::ScopedEnvironment home("HOME", nullptr);
  ExpectNoUserDirectories();
}

TEST(QXMachineTest, HomeEmptyGivesEmptyDirectories) {
  testing::ScopedEnvironment home("HOME", "");
  ExpectNoUserDirectories();
}

TEST(QXMachineTest, HomeNamingARegularFileGivesEmptyDirectories) {
  testing::ScratchDir dir;
  testing::WriteFile(dir.File("plain"), "not a directory\n");
  testing::ScopedEnvironment home("HOME", dir.File("plain").c_str());
  ExpectNoUserDirectories();
}

TEST(QXMachineTest, HomeNamingNothingGivesEmptyDirectories) {
  testing::ScratchDir dir;
  testing::ScopedEnvironment home("HOME", dir.File("missing").c_str());
  ExpectNoUserDirectories();
}

TEST(QXMachineTest, HomeDirectoryWithoutSubdirectoriesServesForAllThree) {
  testing::ScratchDir dir;
  testing::ScopedEnvironment home("HOME", dir.path().c_str());
  EXPECT_EQ(QXGetUserHomeDir(), dir.path());
  EXPECT_EQ(QXGetUserAppDataDir(), dir.path());
  EXPECT_EQ(QXGetUserDocumentsDir(), dir.path());
}

TEST(QXMachineTest, HomeDocumentsAndLibraryAreUsedWhenPresent) {
  testing::ScratchDir dir;
  MakeDirectory(dir.File("Documents"));
  MakeDirectory(dir.File("Library"));
  testing::ScopedEnvironment home("HOME", dir.path().c_str());
  EXPECT_EQ(QXGetUserHomeDir(), dir.path());
  EXPECT_EQ(QXGetUserAppDataDir(), dir.File("Library"));
  EXPECT_EQ(QXGetUserDocumentsDir(), dir.File("Documents"));
}

TEST(QXMachineTest, HomeEachSubdirectoryIsCheckedOnItsOwn) {
  testing::ScratchDir dir;
  MakeDirectory(dir.File("Documents"));
  testing::ScopedEnvironment home("HOME", dir.path().c_str());
  EXPECT_EQ(QXGetUserDocumentsDir(), dir.File("Documents"));
  EXPECT_EQ(QXGetUserAppDataDir(), dir.path());
}

TEST(QXMachineTest, HomeSubdirectoryNameThatIsAFileStillCounts) {
  testing::ScratchDir dir;
  testing::WriteFile(dir.File("Documents"), "a file\n");
  testing::ScopedEnvironment home("HOME", dir.path().c_str());
  EXPECT_EQ(QXGetUserDocumentsDir(), dir.File("Documents"));
}

TEST(QXMachineTest, HomeIsUsedExactlyAsGiven) {
  testing::ScratchDir dir;
  MakeDirectory(dir.File("Library"));
  std::string slashed = dir.path() + "/";
  testing::ScopedEnvironment home("HOME", slashed.c_str());
  EXPECT_EQ(QXGetUserHomeDir(), slashed);
  EXPECT_EQ(QXGetUserAppDataDir(), slashed + "/Library");
  EXPECT_EQ(QXGetUserDocumentsDir(), slashed);
}

TEST(QXMachineTest, HomeEveryCallReadsHomeAgain) {
  testing::ScratchDir first;
  testing::ScratchDir second;
  testing::ScopedEnvironment home("HOME", first.path().c_str());
  EXPECT_EQ(QXGetUserHomeDir(), first.path());
  testing::ScopedEnvironment other("HOME", second.path().c_str());
  EXPECT_EQ(QXGetUserHomeDir(), second.path());
}

}  // namespace
}  // namespace QXPlatform
