#include <errno.h>
#include <sys/stat.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_files.h"
#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

TEST(QXFileSystemTest, UnwritableTmpdirMakesCreationFailWithPerror) {
  if (testing::RunningAsRoot()) {
    GTEST_SKIP() << "running as root: a directory with mode 0500 stays "
                    "writable to root, so the permission-denied case cannot "
                    "be made";
  }
  testing::ScratchDir scratch;
  const std::string locked = scratch.File("locked");
  ASSERT_EQ(mkdir(locked.c_str(), 0500), 0);
  // Captures first: they make their files under TMPDIR too.
  testing::CaptureFd out(1);
  testing::CaptureFd err(2);
  testing::ScopedEnvironment environment("TMPDIR", locked.c_str());

  std::string name;
  const int fd = QXFileTempDescriptor(name);
  const std::string dir = QXFileTempDirectory("");
  const std::string messages = err.Finish();
  EXPECT_EQ(out.Finish(), "");

  EXPECT_EQ(QXFileTempPath(), locked);
  EXPECT_EQ(fd, -1);
  EXPECT_EQ(name.substr(0, locked.size() + 4), locked + "/QX_");
  EXPECT_EQ(dir, "");
  EXPECT_EQ(messages, std::string("mkstemp failed: ") + std::strerror(EACCES) +
                          "\nmkdtemp failed: " + std::strerror(EACCES) + "\n");
}

}  // namespace
}  // namespace QXPlatform
