#include <sys/stat.h>
#include <unistd.h>

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

TEST(QXFileTest, IsNamedPipeLooksAtTheBareNameInTheWorkingDirectory) {
  ScratchDir here;
  ScratchDir elsewhere;
  ASSERT_EQ(mkfifo(here.File("fifo").c_str(), 0600), 0);
  ScopedWorkingDirectory cwd(here.path());
  ASSERT_TRUE(cwd.ok());
  // The directory part is ignored: it does not even exist.
  EXPECT_TRUE(QXFile("/some/dir/fifo").IsNamedPipe());
  EXPECT_TRUE(QXFile("fifo").IsNamedPipe());
  EXPECT_TRUE(QXFile(elsewhere.File("fifo")).IsNamedPipe());
  EXPECT_TRUE(QXFileIsNamedPipe("/some/dir/fifo"));
  EXPECT_FALSE(QXFile("/some/dir/other").IsNamedPipe());
}

TEST(QXFileTest, IsNamedPipeIsFalseForAFifoOutsideTheWorkingDirectory) {
  ScratchDir here;
  ScratchDir elsewhere;
  ASSERT_EQ(mkfifo(elsewhere.File("pipe").c_str(), 0600), 0);
  ScopedWorkingDirectory cwd(here.path());
  ASSERT_TRUE(cwd.ok());
  QXFile fifo(elsewhere.File("pipe"));
  EXPECT_TRUE(fifo.Exists());
  EXPECT_FALSE(fifo.IsNamedPipe());
  EXPECT_FALSE(QXFileIsNamedPipe(elsewhere.File("pipe")));
  // A regular file of that name in the working directory is no FIFO either.
  WriteFile(here.File("pipe"), "");
  EXPECT_FALSE(fifo.IsNamedPipe());
}

TEST(QXFileTest, IsNamedPipeIsNotCached) {
  ScratchDir here;
  ScopedWorkingDirectory cwd(here.path());
  ASSERT_TRUE(cwd.ok());
  QXFile fifo("x/late");
  EXPECT_FALSE(fifo.IsNamedPipe());
  ASSERT_EQ(mkfifo(here.File("late").c_str(), 0600), 0);
  EXPECT_TRUE(fifo.IsNamedPipe());
  // The cached status was never filled, so the parts' full path is asked.
  EXPECT_FALSE(fifo.Exists());
}

TEST(QXFileTest, RelativePathsAreAnsweredAgainstTheWorkingDirectory) {
  ScratchDir here;
  ASSERT_EQ(mkdir(here.File("sub").c_str(), 0700), 0);
  WriteFile(here.File("sub/f"), "abc");
  ScopedWorkingDirectory cwd(here.path());
  ASSERT_TRUE(cwd.ok());
  QXFile file("sub/f");
  EXPECT_EQ(file.AbsPath(), "sub/f");
  EXPECT_TRUE(file.IsFile());
  EXPECT_EQ(file.Size(), 3);
  EXPECT_EQ(QXFile("sub").DirContents(), std::vector<std::string>{"f"});
  EXPECT_EQ(QXFileSize("sub\\f"), 3);
}

}  // namespace
}  // namespace QXPlatform
