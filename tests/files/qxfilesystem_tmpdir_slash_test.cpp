#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_files.h"
#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

// TMPDIR ends with a separator: the file template doubles it, the directory
// template does not.
TEST(QXFileSystemTest, TmpdirEndingInSlashIsKeptAsGiven) {
  testing::ScratchDir scratch;
  const std::string tmpdir = scratch.path() + "/";
  testing::ScopedEnvironment environment("TMPDIR", tmpdir.c_str());
  EXPECT_EQ(QXFileTempPath(), tmpdir);

  std::string name;
  int fd = QXFileTempDescriptor(name);
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_EQ(name.substr(0, tmpdir.size() + 4), scratch.path() + "//QX_");
  EXPECT_EQ(name.size(), tmpdir.size() + 10);
  EXPECT_TRUE(QXFileIsFile(name));

  const std::string dir = QXFileTempDirectory("");
  EXPECT_EQ(dir.substr(0, tmpdir.size() + 3), scratch.path() + "/QX_");
  EXPECT_EQ(dir.size(), tmpdir.size() + 9);
  EXPECT_TRUE(QXFileIsDirectory(dir));
}

}  // namespace
}  // namespace QXPlatform
