// Creating a file under a name where symbolic links come and go, and the
// close-on-exec flag of every descriptor the library opens.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

using testing::ReadFile;
using testing::ScratchDir;
using testing::WriteFile;

const char kKept[] = "must survive";

TEST(QXFileCreateLinkTest, ALinkPlantedDuringCreationIsNotFollowed) {
  ScratchDir scratch;
  std::string target = scratch.File("target");
  std::string name = scratch.File("name");
  WriteFile(target, kKept);
  std::atomic<bool> stop(false);
  // Plants a link to the target under the name and removes whatever is
  // there, over and over.
  std::thread planter([&] {
    while (!stop) {
      if (::symlink(target.c_str(), name.c_str()) != 0) {
        ::unlink(name.c_str());
      }
      ::unlink(name.c_str());
    }
  });
  auto until = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  long calls = 0;
  while (calls < 200000 && std::chrono::steady_clock::now() < until) {
    QXFileCreate(name, 0644);
    ++calls;
    if (ReadFile(target) != kKept) {
      break;
    }
  }
  stop = true;
  planter.join();
  EXPECT_EQ(ReadFile(target), kKept) << "after " << calls << " calls";
  struct stat st;
  ASSERT_EQ(::lstat(target.c_str(), &st), 0);
  EXPECT_TRUE(S_ISREG(st.st_mode));
}

TEST(QXFileCreateLinkTest, ADanglingLinkIsLeftAloneAndItsTargetNotMade) {
  ScratchDir scratch;
  std::string target = scratch.File("nowhere");
  std::string name = scratch.File("dangling");
  ASSERT_EQ(::symlink(target.c_str(), name.c_str()), 0);
  QXFile file = QXFileCreate(name, 0644);
  EXPECT_FALSE(file.Exists());
  struct stat st;
  EXPECT_NE(::lstat(target.c_str(), &st), 0);
  ASSERT_EQ(::lstat(name.c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
}

bool CloseOnExec(int fd) {
  int flags = ::fcntl(fd, F_GETFD);
  return flags != -1 && (flags & FD_CLOEXEC) != 0;
}

TEST(QXCloseOnExecTest, FileStreamsOpenTheirDescriptorsCloseOnExec) {
  ScratchDir scratch;
  std::string path = scratch.File("file");
  WriteFile(path, "data");
  qxifstream in(path.c_str());
  ASSERT_GE(in.descriptor(), 3);
  EXPECT_TRUE(CloseOnExec(in.descriptor()));
  qxofstream out(scratch.File("out").c_str());
  ASSERT_GE(out.descriptor(), 3);
  EXPECT_TRUE(CloseOnExec(out.descriptor()));
  qxofstream appended;
  ASSERT_TRUE(appended.append(scratch.File("log").c_str()));
  EXPECT_TRUE(CloseOnExec(appended.descriptor()));
  qxiofstream both(scratch.File("both").c_str());
  ASSERT_GE(both.descriptor(), 3);
  EXPECT_TRUE(CloseOnExec(both.descriptor()));
  qxistream* named = QXOpenIStream(path.c_str());
  ASSERT_NE(named, nullptr);
  qxifstream* file = dynamic_cast<qxifstream*>(named);
  ASSERT_NE(file, nullptr);
  EXPECT_TRUE(CloseOnExec(file->descriptor()));
  QXCloseIStream(named);
}

TEST(QXCloseOnExecTest, TemporaryFileDescriptorsAreCloseOnExec) {
  std::string name;
  int fd = QXFileTempDescriptor(name);
  ASSERT_GE(fd, 0);
  EXPECT_TRUE(CloseOnExec(fd));
  ::close(fd);
  ::unlink(name.c_str());
}

}  // namespace
}  // namespace QXPlatform
