#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_files.h"
#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

using testing::CaptureFd;
using testing::ReadFile;
using testing::ScratchDir;
using testing::WriteFile;

std::string PerrorLine(const char* text, int error) {
  return std::string(text) + ": " + std::strerror(error) + "\n";
}

bool IsTemplateTail(const std::string& text) {
  return text.size() == 9 && text.compare(0, 3, "QX_") == 0 &&
         text.substr(3) != "XXXXXX";
}

std::string OverlongPath() {
  std::string path;
  for (int i = 0; i < 40; ++i) {
    path += "/" + std::string(200, 'q');
  }
  return path;
}

TEST(QXFileSystemTest, PathQuestionsAnswerLikeTheFileObject) {
  ScratchDir scratch;
  WriteFile(scratch.File("f"), "hello");
  ASSERT_EQ(chmod(scratch.File("f").c_str(), 0600), 0);
  EXPECT_TRUE(QXFileExists(scratch.File("f")));
  EXPECT_TRUE(QXFileIsFile(scratch.File("f")));
  EXPECT_FALSE(QXFileIsDirectory(scratch.File("f")));
  EXPECT_TRUE(QXFileIsReadable(scratch.File("f")));
  EXPECT_TRUE(QXFileIsWritable(scratch.File("f")));
  EXPECT_FALSE(QXFileIsLink(scratch.File("f")));
  EXPECT_EQ(QXFileSize(scratch.File("f")), 5);
  EXPECT_TRUE(QXFileExists(scratch.path()));
  EXPECT_TRUE(QXFileIsDirectory(scratch.path()));
  EXPECT_FALSE(QXFileIsFile(scratch.path()));
}

TEST(QXFileSystemTest, PathQuestionsSplitBackslashesToo) {
  ScratchDir scratch;
  ASSERT_EQ(mkdir(scratch.File("sub").c_str(), 0700), 0);
  WriteFile(scratch.File("sub/f"), "ab");
  EXPECT_TRUE(QXFileIsFile(scratch.path() + "\\sub\\f"));
  EXPECT_EQ(QXFileSize(scratch.path() + "\\sub\\f"), 2);
  EXPECT_TRUE(QXFileIsDirectory(scratch.path() + "\\sub\\"));
}

TEST(QXFileSystemTest, PermissionQuestionsReadOnlyTheOwnerBits) {
  ScratchDir scratch;
  WriteFile(scratch.File("f"), "x");
  ASSERT_EQ(chmod(scratch.File("f").c_str(), 0066), 0);
  EXPECT_TRUE(QXFileExists(scratch.File("f")));
  EXPECT_FALSE(QXFileIsReadable(scratch.File("f")));
  EXPECT_FALSE(QXFileIsWritable(scratch.File("f")));
  ASSERT_EQ(chmod(scratch.File("f").c_str(), 0400), 0);
  EXPECT_TRUE(QXFileIsReadable(scratch.File("f")));
  EXPECT_FALSE(QXFileIsWritable(scratch.File("f")));
  ASSERT_EQ(chmod(scratch.File("f").c_str(), 0200), 0);
  EXPECT_FALSE(QXFileIsReadable(scratch.File("f")));
  EXPECT_TRUE(QXFileIsWritable(scratch.File("f")));
}

TEST(QXFileSystemTest, SizeOfMissingPathIsZeroLikeAnEmptyFile) {
  ScratchDir scratch;
  WriteFile(scratch.File("empty"), "");
  EXPECT_EQ(QXFileSize(scratch.File("empty")), 0);
  EXPECT_EQ(QXFileSize(scratch.File("missing")), 0);
  EXPECT_TRUE(QXFileExists(scratch.File("empty")));
  EXPECT_FALSE(QXFileExists(scratch.File("missing")));
}

TEST(QXFileSystemTest, IsLinkSeesTheLinkAndTheOtherQuestionsFollowIt) {
  ScratchDir scratch;
  ASSERT_EQ(mkdir(scratch.File("dir").c_str(), 0700), 0);
  ASSERT_EQ(symlink("dir", scratch.File("link").c_str()), 0);
  EXPECT_TRUE(QXFileIsLink(scratch.File("link")));
  EXPECT_TRUE(QXFileIsDirectory(scratch.File("link")));
  EXPECT_FALSE(QXFileIsLink(scratch.File("dir")));
  EXPECT_FALSE(QXFileIsLink(scratch.File("missing")));
}

TEST(QXFileSystemTest, RootQuestionsFollowTheSplittingRules) {
  EXPECT_FALSE(QXFileExists("/"));
  EXPECT_FALSE(QXFileIsDirectory("/"));
  EXPECT_TRUE(QXFileExists("//"));
  EXPECT_TRUE(QXFileIsDirectory("//"));
}

TEST(QXFileSystemTest, UnlinkRemovesAFileAndLeavesErrnoOnFailure) {
  ScratchDir scratch;
  WriteFile(scratch.File("f"), "x");
  EXPECT_TRUE(QXUnlink(scratch.File("f").c_str()));
  EXPECT_FALSE(QXFileExists(scratch.File("f")));
  errno = 0;
  EXPECT_FALSE(QXUnlink(scratch.File("f").c_str()));
  EXPECT_EQ(errno, ENOENT);
  errno = 0;
  EXPECT_FALSE(QXUnlink(scratch.path().c_str()));
  EXPECT_NE(errno, 0);
  EXPECT_TRUE(QXFileIsDirectory(scratch.path()));
}

TEST(QXFileSystemTest, RenameFileMovesAndLeavesErrnoOnFailure) {
  ScratchDir scratch;
  WriteFile(scratch.File("from"), "content");
  EXPECT_TRUE(
      QXRenameFile(scratch.File("from").c_str(), scratch.File("to").c_str()));
  EXPECT_FALSE(QXFileExists(scratch.File("from")));
  EXPECT_EQ(ReadFile(scratch.File("to")), "content");
  errno = 0;
  EXPECT_FALSE(QXRenameFile(scratch.File("from").c_str(),
                            scratch.File("again").c_str()));
  EXPECT_EQ(errno, ENOENT);
}

TEST(QXFileSystemTest, CreateDirectoryAndUnlinkDirectoryReportTheCall) {
  ScratchDir scratch;
  std::string dir = scratch.File("d");
  EXPECT_TRUE(QXCreateDirectory(dir.c_str()));
  EXPECT_TRUE(QXFileIsDirectory(dir));
  errno = 0;
  EXPECT_FALSE(QXCreateDirectory(dir.c_str()));
  EXPECT_EQ(errno, EEXIST);
  WriteFile(dir + "/inside", "");
  errno = 0;
  EXPECT_FALSE(QXUnlinkDirectory(dir.c_str()));
  EXPECT_EQ(errno, ENOTEMPTY);
  ASSERT_EQ(unlink((dir + "/inside").c_str()), 0);
  EXPECT_TRUE(QXUnlinkDirectory(dir.c_str()));
  EXPECT_FALSE(QXFileExists(dir));
  errno = 0;
  EXPECT_FALSE(QXUnlinkDirectory(dir.c_str()));
  EXPECT_EQ(errno, ENOENT);
}

TEST(QXFileSystemTest, CreateDirectoryFailsInMissingParent) {
  ScratchDir scratch;
  errno = 0;
  EXPECT_FALSE(QXCreateDirectory(scratch.File("no/such").c_str()));
  EXPECT_EQ(errno, ENOENT);
}

TEST(QXFileSystemTest, DeleteByPathRemovesFilesAndEmptyDirectoriesOnly) {
  ScratchDir scratch;
  WriteFile(scratch.File("f"), "x");
  ASSERT_EQ(mkdir(scratch.File("empty").c_str(), 0700), 0);
  ASSERT_EQ(mkdir(scratch.File("full").c_str(), 0700), 0);
  WriteFile(scratch.File("full/x"), "x");
  EXPECT_TRUE(QXFileDelete(scratch.File("f")));
  EXPECT_TRUE(QXFileDelete(scratch.File("empty")));
  EXPECT_FALSE(QXFileDelete(scratch.File("full")));
  EXPECT_TRUE(QXFileIsDirectory(scratch.File("full")));
  errno = 0;
  EXPECT_FALSE(QXFileDelete(scratch.File("f")));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(QXFileDelete(std::string()));
}

TEST(QXFileSystemTest, DeleteOfAFileObjectForgetsItsStatusOnSuccess) {
  ScratchDir scratch;
  WriteFile(scratch.File("f"), "x");
  QXFile file(scratch.File("f"));
  ASSERT_TRUE(file.Exists());
  EXPECT_TRUE(QXFileDelete(file));
  EXPECT_EQ(file.AbsPath(), scratch.File("f"));
  EXPECT_FALSE(file.Exists());
}

TEST(QXFileSystemTest, FailedDeleteOfAFileObjectLeavesItsStatusCached) {
  ScratchDir scratch;
  ASSERT_EQ(mkdir(scratch.File("full").c_str(), 0700), 0);
  WriteFile(scratch.File("full/x"), "x");
  QXFile dir(scratch.File("full"));
  ASSERT_TRUE(dir.IsDirectory());
  EXPECT_FALSE(QXFileDelete(dir));
  testing::RemoveTree(scratch.File("full"));
  EXPECT_TRUE(dir.Exists());
  EXPECT_TRUE(dir.IsDirectory());
}

TEST(QXFileSystemTest, CreateMakesAnEmptyFileAndReportsIt) {
  ScratchDir scratch;
  QXFile file = QXFileCreate(scratch.File("new"), 0600);
  EXPECT_EQ(file.AbsPath(), scratch.File("new"));
  EXPECT_TRUE(file.Exists());
  EXPECT_TRUE(file.IsFile());
  EXPECT_EQ(file.Size(), 0);
  EXPECT_TRUE(QXFileIsFile(scratch.File("new")));
  EXPECT_EQ(testing::PermissionBits(scratch.File("new")) & 0700, 0600);
}

TEST(QXFileSystemTest, CreateLeavesAnExistingFileIntact) {
  ScratchDir scratch;
  WriteFile(scratch.File("keep"), "precious");
  ASSERT_EQ(chmod(scratch.File("keep").c_str(), 0640), 0);
  QXFile file = QXFileCreate(scratch.File("keep"), 0600);
  EXPECT_TRUE(file.Exists());
  EXPECT_EQ(file.Size(), 8);
  EXPECT_EQ(ReadFile(scratch.File("keep")), "precious");
  EXPECT_EQ(testing::PermissionBits(scratch.File("keep")), 0640);
}

TEST(QXFileSystemTest, CreateOnAnExistingDirectoryReturnsItUntouched) {
  ScratchDir scratch;
  QXFile dir = QXFileCreate(scratch.path(), 0600);
  EXPECT_TRUE(dir.IsDirectory());
}

TEST(QXFileSystemTest, CreateUsesTheSplitFullPath) {
  ScratchDir scratch;
  QXFile file = QXFileCreate(scratch.path() + "\\made.txt", 0600);
  EXPECT_EQ(file.AbsPath(), scratch.File("made.txt"));
  EXPECT_TRUE(QXFileIsFile(scratch.File("made.txt")));
}

TEST(QXFileSystemTest, FailedCreateReturnsTheFileWithItsStatusCached) {
  ScratchDir scratch;
  CaptureFd err(2);
  QXFile file = QXFileCreate(scratch.File("missing/f"), 0600);
  EXPECT_EQ(err.Finish(), "");
  EXPECT_FALSE(file.Exists());
  // The failed attempt's answer stays until the object is refreshed.
  ASSERT_EQ(mkdir(scratch.File("missing").c_str(), 0700), 0);
  WriteFile(scratch.File("missing/f"), "x");
  EXPECT_FALSE(file.Exists());
  file.Refresh();
  EXPECT_TRUE(file.Exists());
}

TEST(QXFileSystemTest, TempDirectoryInsideAGivenDirectoryAddsOneSeparator) {
  ScratchDir scratch;
  CaptureFd err(2);
  std::string made = QXFileTempDirectory(scratch.path());
  std::string madeAfterSlash = QXFileTempDirectory(scratch.path() + "/");
  EXPECT_EQ(err.Finish(), "");
  ASSERT_EQ(made.size(), scratch.path().size() + 10);
  EXPECT_EQ(made.substr(0, scratch.path().size() + 1), scratch.path() + "/");
  EXPECT_TRUE(IsTemplateTail(made.substr(scratch.path().size() + 1)));
  EXPECT_TRUE(QXFileIsDirectory(made));
  ASSERT_EQ(madeAfterSlash.size(), scratch.path().size() + 10);
  EXPECT_EQ(madeAfterSlash.substr(0, scratch.path().size() + 1),
            scratch.path() + "/");
  EXPECT_TRUE(IsTemplateTail(madeAfterSlash.substr(scratch.path().size() + 1)));
  EXPECT_TRUE(QXFileIsDirectory(madeAfterSlash));
  EXPECT_NE(made, madeAfterSlash);
  EXPECT_EQ(testing::PermissionBits(made), 0700);
}

TEST(QXFileSystemTest, TempDirectoryInMissingBaseReportsThroughPerror) {
  ScratchDir scratch;
  CaptureFd out(1);
  CaptureFd err(2);
  std::string made = QXFileTempDirectory(scratch.File("missing"));
  std::string printed = err.Finish();
  EXPECT_EQ(out.Finish(), "");
  EXPECT_EQ(made, "");
  EXPECT_EQ(printed, PerrorLine("mkdtemp failed", ENOENT));
  EXPECT_EQ(printed, "mkdtemp failed: No such file or directory\n");
}

TEST(QXFileSystemTest, TempDirectoryInsideAFileReportsThroughPerror) {
  ScratchDir scratch;
  WriteFile(scratch.File("plain"), "x");
  CaptureFd err(2);
  std::string made = QXFileTempDirectory(scratch.File("plain"));
  std::string printed = err.Finish();
  EXPECT_EQ(made, "");
  EXPECT_EQ(printed, PerrorLine("mkdtemp failed", ENOTDIR));
}

TEST(QXFileSystemTest, TempDirectoryInUnwritableBaseReportsThroughPerror) {
  if (testing::RunningAsRoot()) {
    GTEST_SKIP() << "running as root: a directory with mode 0 stays writable "
                    "to root, so the permission-denied case cannot be made";
  }
  ScratchDir scratch;
  ASSERT_EQ(mkdir(scratch.File("locked").c_str(), 0500), 0);
  CaptureFd err(2);
  std::string made = QXFileTempDirectory(scratch.File("locked"));
  std::string printed = err.Finish();
  EXPECT_EQ(made, "");
  EXPECT_EQ(printed, PerrorLine("mkdtemp failed", EACCES));
}

TEST(QXFileSystemTest, TempDirectoryWithOverlongBaseReportsThroughPerror) {
  CaptureFd err(2);
  std::string made;
  EXPECT_NO_THROW(made = QXFileTempDirectory(OverlongPath()));
  std::string printed = err.Finish();
  EXPECT_EQ(made, "");
  EXPECT_EQ(printed, PerrorLine("mkdtemp failed", ENAMETOOLONG));
}

TEST(QXFileSystemTest, BadPathsGiveTheEmptyAnswerQuietly) {
  ScratchDir scratch;
  const std::string beyondNameMax = scratch.File(std::string(300, 'n'));
  const std::string beyondPathMax = OverlongPath();
  const std::string highBytes = scratch.File("\x80\xfe\xff missing");
  CaptureFd out(1);
  CaptureFd err(2);
  for (const std::string& path :
       {std::string(), beyondNameMax, beyondPathMax, highBytes}) {
    EXPECT_NO_THROW({
      EXPECT_FALSE(QXFileExists(path));
      EXPECT_FALSE(QXFileIsDirectory(path));
      EXPECT_FALSE(QXFileIsFile(path));
      EXPECT_FALSE(QXFileIsLink(path));
      EXPECT_FALSE(QXFileIsNamedPipe(path));
      EXPECT_FALSE(QXFileIsReadable(path));
      EXPECT_FALSE(QXFileIsWritable(path));
      EXPECT_EQ(QXFileSize(path), 0);
      EXPECT_FALSE(QXUnlink(path.c_str()));
      EXPECT_FALSE(QXRenameFile(path.c_str(), scratch.File("to").c_str()));
      EXPECT_FALSE(QXUnlinkDirectory(path.c_str()));
      EXPECT_FALSE(QXFileDelete(path));
      QXFile file(path);
      EXPECT_FALSE(QXFileDelete(file));
      // Never the bare "/sub" an empty path would give.
      const std::string uncreatable = path.empty() ? path : path + "/sub";
      EXPECT_FALSE(QXFileCreate(uncreatable, 0600).Exists());
    });
  }
  EXPECT_FALSE(QXCreateDirectory(""));
  EXPECT_FALSE(QXCreateDirectory(beyondPathMax.c_str()));
  EXPECT_FALSE(QXCreateDirectory(beyondNameMax.c_str()));
  EXPECT_EQ(out.Finish(), "");
  EXPECT_EQ(err.Finish(), "");
}

TEST(QXFileSystemTest, NamesWithBytesAbove127WorkEverywhere) {
  ScratchDir scratch;
  const std::string name = scratch.File("\xc3\xa9t\xc3\xa9-\xff");
  QXFile made = QXFileCreate(name, 0600);
  EXPECT_TRUE(made.IsFile());
  EXPECT_TRUE(QXFileExists(name));
  EXPECT_TRUE(QXRenameFile(name.c_str(), (name + "\x80").c_str()));
  EXPECT_TRUE(QXFileIsFile(name + "\x80"));
  EXPECT_TRUE(QXUnlink((name + "\x80").c_str()));
  EXPECT_TRUE(QXCreateDirectory(name.c_str()));
  EXPECT_TRUE(QXFileIsDirectory(name));
  std::string temp = QXFileTempDirectory(name);
  EXPECT_TRUE(QXFileIsDirectory(temp));
  EXPECT_EQ(temp.substr(0, name.size() + 1), name + "/");
}

}  // namespace
}  // namespace QXPlatform
