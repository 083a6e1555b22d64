#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_files.h"
#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

using testing::PermissionBits;
using testing::ScratchDir;

const int kPerThread = 5000;

// Points TMPDIR at a scratch directory of this process before the library
// makes its once-only choice, and sets the umask the mode checks assume.
const std::string& TempBase() {
  static ScratchDir base;
  static const bool prepared = [] {
    setenv("TMPDIR", base.path().c_str(), 1);
    umask(022);
    return true;
  }();
  (void)prepared;
  return base.path();
}

bool IsTemplateTail(const std::string& text) {
  return text.size() == 9 && text.compare(0, 3, "QX_") == 0 &&
         text.substr(3) != "XXXXXX";
}

TEST(QXFileSystemTest, TempPathIsTheTmpdirValue) {
  const std::string& base = TempBase();
  EXPECT_EQ(QXFileTempPath(), base);
}

TEST(QXFileSystemTest, TempDescriptorMakesAnOwnerOnlyReadWriteFile) {
  const std::string& base = TempBase();
  std::string name = "unchanged";
  testing::CaptureFd err(2);
  int fd = QXFileTempDescriptor(name);
  EXPECT_EQ(err.Finish(), "");
  ASSERT_GE(fd, 0);
  ASSERT_EQ(name.size(), base.size() + 10);
  EXPECT_EQ(name.substr(0, base.size() + 1), base + "/");
  EXPECT_TRUE(IsTemplateTail(name.substr(base.size() + 1)));
  EXPECT_TRUE(QXFileIsFile(name));
  EXPECT_EQ(QXFileSize(name), 0);
  EXPECT_EQ(PermissionBits(name), 0600);
  ASSERT_EQ(write(fd, "abc", 3), 3);
  char back[3] = {0, 0, 0};
  ASSERT_EQ(pread(fd, back, 3, 0), 3);
  EXPECT_EQ(std::string(back, 3), "abc");
  close(fd);
  // Nothing removes the file for the caller.
  EXPECT_EQ(QXFileSize(name), 3);
}

TEST(QXFileSystemTest, TempDirectoryWithEmptyArgumentUsesTheTempPath) {
  const std::string& base = TempBase();
  std::string made = QXFileTempDirectory("");
  ASSERT_EQ(made.size(), base.size() + 10);
  EXPECT_EQ(made.substr(0, base.size() + 1), base + "/");
  EXPECT_TRUE(IsTemplateTail(made.substr(base.size() + 1)));
  EXPECT_TRUE(QXFileIsDirectory(made));
  EXPECT_EQ(PermissionBits(made), 0700);
}

TEST(QXFileSystemTest, CreateDirectoryUsesMode0755BeforeTheUmask) {
  const std::string& base = TempBase();
  ASSERT_TRUE(QXCreateDirectory((base + "/d755").c_str()));
  EXPECT_EQ(PermissionBits(base + "/d755"), 0755);
  mode_t old = umask(077);
  EXPECT_TRUE(QXCreateDirectory((base + "/d700").c_str()));
  umask(old);
  EXPECT_EQ(PermissionBits(base + "/d700"), 0700);
}

TEST(QXFileSystemTest, CreateUsesTheLowSixteenBitsOfTheMode) {
  const std::string& base = TempBase();
  EXPECT_TRUE(QXFileCreate(base + "/m640", 0640).IsFile());
  EXPECT_EQ(PermissionBits(base + "/m640"), 0640);
  EXPECT_TRUE(QXFileCreate(base + "/m666", 0666).IsFile());
  EXPECT_EQ(PermissionBits(base + "/m666"), 0644);
  EXPECT_TRUE(QXFileCreate(base + "/high", 0x70000 | 0604).IsFile());
  EXPECT_EQ(PermissionBits(base + "/high"), 0604);
}

TEST(QXFileSystemTest, TwoThreadsMakeUniqueTemporaryFiles) {
  TempBase();
  std::vector<std::string> names[2];
  int failures[2] = {0, 0};
  auto work = [&](int t) {
    for (int i = 0; i < kPerThread; ++i) {
      std::string name;
      int fd = QXFileTempDescriptor(name);
      if (fd < 0) {
        ++failures[t];
        continue;
      }
      close(fd);
      names[t].push_back(name);
    }
  };
  std::thread first(work, 0);
  std::thread second(work, 1);
  first.join();
  second.join();
  EXPECT_EQ(failures[0] + failures[1], 0);
  std::set<std::string> unique(names[0].begin(), names[0].end());
  unique.insert(names[1].begin(), names[1].end());
  EXPECT_EQ(unique.size(), 2u * kPerThread);
  for (const std::string& name : unique) {
    ASSERT_TRUE(QXFileIsFile(name)) << name;
    ASSERT_TRUE(QXUnlink(name.c_str())) << name;
  }
}

TEST(QXFileSystemTest, TwoThreadsMakeUniqueTemporaryDirectories) {
  TempBase();
  std::vector<std::string> names[2];
  auto work = [&](int t) {
    for (int i = 0; i < kPerThread; ++i) {
      names[t].push_back(QXFileTempDirectory(""));
    }
  };
  std::thread first(work, 0);
  std::thread second(work, 1);
  first.join();
  second.join();
  std::set<std::string> unique(names[0].begin(), names[0].end());
  unique.insert(names[1].begin(), names[1].end());
  EXPECT_EQ(unique.count(""), 0u);
  EXPECT_EQ(unique.size(), 2u * kPerThread);
  for (const std::string& name : unique) {
    ASSERT_TRUE(QXFileIsDirectory(name)) << name;
    ASSERT_TRUE(QXUnlinkDirectory(name.c_str())) << name;
  }
}

TEST(QXFileSystemTest, FirstUseFromSeveralThreadsChoosesOneDirectory) {
  const std::string& base = TempBase();
  std::string seen[4];
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&seen, t] { seen[t] = QXFileTempPath(); });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (const std::string& path : seen) {
    EXPECT_EQ(path, base);
  }
}

}  // namespace
}  // namespace QXPlatform
