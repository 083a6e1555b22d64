#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_files.h"
#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

TEST(QXFileSystemTest, EmptyTmpdirFallsBackToTmp) {
  if (!QXFileIsDirectory("/tmp")) {
    GTEST_SKIP() << "this machine has no /tmp directory to fall back to";
  }
  testing::ScopedEnvironment environment("TMPDIR", "");
  EXPECT_EQ(QXFileTempPath(), "/tmp");

  std::string name;
  int fd = QXFileTempDescriptor(name);
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_EQ(name.substr(0, 8), "/tmp/QX_");
  EXPECT_EQ(name.size(), 14u);
  EXPECT_TRUE(QXUnlink(name.c_str()));

  const std::string dir = QXFileTempDirectory("");
  EXPECT_EQ(dir.substr(0, 8), "/tmp/QX_");
  EXPECT_EQ(dir.size(), 14u);
  EXPECT_TRUE(QXUnlinkDirectory(dir.c_str()));
}

}  // namespace
}  // namespace QXPlatform
