#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_files.h"
#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

using testing::ScopedWorkingDirectory;
using testing::ScratchDir;
using testing::WriteFile;

std::string RealPath(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) ? resolved : "";
}

TEST(QXDirectoryScanTest, NullDirectoryListsTheWorkingDirectory) {
  ScratchDir here;
  WriteFile(here.File("one"), "");
  WriteFile(here.File(".two"), "");
  ScopedWorkingDirectory cwd(here.path());
  ASSERT_TRUE(cwd.ok());
  QXDirectoryScan scan(nullptr);
  ASSERT_TRUE(scan);
  std::map<std::string, int> seen;
  while (const char* name = scan.Next()) {
    ++seen[name];
  }
  EXPECT_EQ(seen, (std::map<std::string, int>{
                      {".", 1}, {"..", 1}, {".two", 1}, {"one", 1}}));
  EXPECT_FALSE(scan);
  EXPECT_EQ(scan.Next(), nullptr);
}

TEST(QXDirectoryTest, CurrentWorkingDirectoryFollowsChdir) {
  ScratchDir here;
  ScopedWorkingDirectory cwd(here.path());
  ASSERT_TRUE(cwd.ok());
  EXPECT_EQ(QXGetCurrentWorkingDirectory(), RealPath(here.path()));
}

TEST(QXDirectoryTest, CurrentWorkingDirectoryLongerThanTheFirstBuffer) {
  ScratchDir scratch;
  const std::string base = RealPath(scratch.path());
  ASSERT_FALSE(base.empty());
  const std::string component(200, 'd');
  ScopedWorkingDirectory cwd(base);
  ASSERT_TRUE(cwd.ok());
  std::string expected = base;
  int depth = 0;
  // Built one level at a time: the whole path is far beyond PATH_MAX.
  while (expected.size() <= 10240 + 2 * component.size()) {
    ASSERT_EQ(mkdirat(AT_FDCWD, component.c_str(), 0700), 0) << depth;
    ASSERT_EQ(chdir(component.c_str()), 0) << depth;
    expected += "/" + component;
    ++depth;
  }
  ASSERT_GT(expected.size(), 10240u);
  const std::string answer = QXGetCurrentWorkingDirectory();
  EXPECT_EQ(answer.size(), expected.size());
  EXPECT_EQ(answer, expected);
  for (int i = 0; i < depth; ++i) {
    ASSERT_EQ(chdir(".."), 0);
    ASSERT_EQ(rmdir(component.c_str()), 0);
  }
}

TEST(QXDirectoryTest, CurrentWorkingDirectoryIsDotWhenItWasRemoved) {
  ScratchDir scratch;
  ASSERT_EQ(mkdir(scratch.File("doomed").c_str(), 0700), 0);
  ScopedWorkingDirectory cwd(scratch.File("doomed"));
  ASSERT_TRUE(cwd.ok());
  ASSERT_EQ(rmdir(scratch.File("doomed").c_str()), 0);
  testing::CaptureFd err(2);
  EXPECT_EQ(QXGetCurrentWorkingDirectory(), ".");
  EXPECT_EQ(err.Finish(), "");
}

TEST(QXDirectoryTest, AbsolutePathOfRelativePathUsesTheWorkingDirectory) {
  ScratchDir here;
  ASSERT_EQ(mkdir(here.File("sub").c_str(), 0700), 0);
  WriteFile(here.File("sub/f"), "");
  ScopedWorkingDirectory cwd(here.path());
  ASSERT_TRUE(cwd.ok());
  const std::string base = RealPath(here.path());
  EXPECT_EQ(QXGetAbsolutePath("sub/f"), base + "/sub/f");
  EXPECT_EQ(QXGetAbsolutePath("./sub/../sub/f"), base + "/sub/f");
  EXPECT_EQ(QXGetAbsolutePath("."), base);
  EXPECT_EQ(QXGetAbsolutePath("missing"), "");
}

}  // namespace
}  // namespace QXPlatform
