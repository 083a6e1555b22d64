#include <errno.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_files.h"
#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

// Only existence is checked when TMPDIR is chosen, so a plain file is taken
// and every temporary file below it then fails.
TEST(QXFileSystemTest, TmpdirNamingAPlainFileMakesCreationFailWithPerror) {
  testing::ScratchDir scratch;
  const std::string plain = scratch.File("plain");
  testing::WriteFile(plain, "x");
  // Captures first: they make their files under TMPDIR too.
  testing::CaptureFd out(1);
  testing::CaptureFd err(2);
  testing::ScopedEnvironment environment("TMPDIR", plain.c_str());

  std::string name = "before";
  const int fd = QXFileTempDescriptor(name);
  const std::string dir = QXFileTempDirectory("");
  const std::string messages = err.Finish();
  EXPECT_EQ(out.Finish(), "");

  EXPECT_EQ(QXFileTempPath(), plain);
  EXPECT_EQ(fd, -1);
  // The name holds the attempted path, whatever mkstemp left in it.
  EXPECT_EQ(name.substr(0, plain.size() + 4), plain + "/QX_");
  EXPECT_EQ(name.size(), plain.size() + 10);
  EXPECT_EQ(dir, "");
  EXPECT_EQ(
      messages,
      "mkstemp failed: Not a directory\nmkdtemp failed: Not a directory\n");
  EXPECT_EQ(messages, std::string("mkstemp failed: ") + std::strerror(ENOTDIR) +
                          "\nmkdtemp failed: " + std::strerror(ENOTDIR) + "\n");
}

}  // namespace
}  // namespace QXPlatform
