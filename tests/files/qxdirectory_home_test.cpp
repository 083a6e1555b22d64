#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_files.h"
#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

using testing::ScopedEnvironment;
using testing::ScopedWorkingDirectory;
using testing::ScratchDir;
using testing::WriteFile;

std::string RealPath(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) ? resolved : "";
}

TEST(QXDirectoryTest, FileNameTildeBecomesTheHomeValue) {
  ScopedEnvironment home("HOME", "/home/someone");
  EXPECT_EQ(QXProcessFileName("~"), "/home/someone");
  EXPECT_EQ(QXProcessFileName("  ~/data/in.txt  more"),
            "/home/someone/data/in.txt");
  EXPECT_EQ(QXProcessFileName("~/a;b"), "/home/someone/ab");
  EXPECT_EQ(QXProcessFileName("~ rest"), "/home/someone");
}

TEST(QXDirectoryTest, FileNameCopiesTheHomeValueUnfiltered) {
  ScopedEnvironment home("HOME", "/odd home;(x)");
  EXPECT_EQ(QXProcessFileName("~/f(1)"), "/odd home;(x)/f1");
}

TEST(QXDirectoryTest, FileNameTildeIsDotWithoutHome) {
  ScopedEnvironment home("HOME", nullptr);
  EXPECT_EQ(QXProcessFileName("~"), ".");
  EXPECT_EQ(QXProcessFileName("~/x"), "./x");
  // A named user does not depend on HOME.
  EXPECT_EQ(QXProcessFileName("~nosuchuser/x"), "~nosuchuser/x");
}

TEST(QXDirectoryTest, FileNameTildeIsEmptyWithEmptyHome) {
  ScopedEnvironment home("HOME", "");
  EXPECT_EQ(QXProcessFileName("~"), "");
  EXPECT_EQ(QXProcessFileName("~/x"), "/x");
}

TEST(QXDirectoryTest, AbsolutePathOfTildeIsTheCanonicalHome) {
  ScratchDir scratch;
  ASSERT_EQ(mkdir(scratch.File("real").c_str(), 0700), 0);
  ASSERT_EQ(symlink("real", scratch.File("home").c_str()), 0);
  WriteFile(scratch.File("real/f"), "");
  ScopedEnvironment home("HOME", scratch.File("home").c_str());
  const std::string canonical = RealPath(scratch.File("real"));
  EXPECT_EQ(QXGetAbsolutePath("~"), canonical);
  EXPECT_EQ(QXGetAbsolutePath("~/f"), canonical + "/f");
  EXPECT_EQ(QXGetAbsolutePath("~/missing"), "");
}

TEST(QXDirectoryTest, AbsolutePathGluesTheRestOfTheTextToHome) {
  ScratchDir scratch;
  ASSERT_EQ(mkdir(scratch.File("homename").c_str(), 0700), 0);
  WriteFile(scratch.File("homename/x"), "");
  ScopedEnvironment home("HOME", scratch.File("home").c_str());
  EXPECT_EQ(QXGetAbsolutePath("~name/x"),
            RealPath(scratch.File("homename")) + "/x");
}

TEST(QXDirectoryTest, AbsolutePathKeepsTildeWithoutHome) {
  ScratchDir scratch;
  ASSERT_EQ(mkdir(scratch.File("~").c_str(), 0700), 0);
  ScopedEnvironment home("HOME", nullptr);
  {
    ScopedWorkingDirectory cwd(scratch.path());
    ASSERT_TRUE(cwd.ok());
    EXPECT_EQ(QXGetAbsolutePath("~"), RealPath(scratch.path()) + "/~");
  }
  ScratchDir empty;
  ScopedWorkingDirectory cwd(empty.path());
  ASSERT_TRUE(cwd.ok());
  EXPECT_EQ(QXGetAbsolutePath("~"), "");
}

TEST(QXDirectoryTest, AbsolutePathWithEmptyHomeDropsTheTilde) {
  ScopedEnvironment home("HOME", "");
  EXPECT_EQ(QXGetAbsolutePath("~"), "");
  EXPECT_EQ(QXGetAbsolutePath("~/"), "/");
}

}  // namespace
}  // namespace QXPlatform
