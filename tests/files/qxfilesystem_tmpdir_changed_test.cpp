#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_files.h"
#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

TEST(QXFileSystemTest, ChangingTmpdirAfterFirstUseHasNoEffect) {
  testing::ScratchDir first;
  testing::ScratchDir second;
  testing::ScopedEnvironment environment("TMPDIR", first.path().c_str());
  std::string name;
  int fd = QXFileTempDescriptor(name);
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_EQ(name.substr(0, first.path().size() + 1), first.path() + "/");

  setenv("TMPDIR", second.path().c_str(), 1);
  EXPECT_EQ(QXFileTempPath(), first.path());
  fd = QXFileTempDescriptor(name);
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_EQ(name.substr(0, first.path().size() + 1), first.path() + "/");
  const std::string dir = QXFileTempDirectory("");
  EXPECT_EQ(dir.substr(0, first.path().size() + 1), first.path() + "/");

  unsetenv("TMPDIR");
  EXPECT_EQ(QXFileTempPath(), first.path());
}

}  // namespace
}  // namespace QXPlatform
