#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_files.h"
#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

using testing::CaptureFd;
using testing::ScratchDir;
using testing::WriteFile;

struct SplitRow {
  const char* input;
  const char* directory;
  const char* name;
};

// The splitting rules worked out by hand for each shape of path.
const SplitRow kSplitTable[] = {
    {"a/b/c.txt", "a/b", "c.txt"},
    {"c.txt", "", "c.txt"},
    {"/c.txt", "/", "c.txt"},
    {"a\\b", "a", "b"},
    {"a/b/", "a", "b"},
    {"a/b//", "a", "b"},
    {"a//", "", "a"},
    {"a//b", "a/", "b"},
    {"//", "/", ""},
    {"/", "", ""},
    {"", "", ""},
};

std::vector<std::string> Sorted(std::vector<std::string> names) {
  std::sort(names.begin(), names.end());
  return names;
}

TEST(QXFileTest, DeterminePathAndNameFollowsEveryRowOfTheSplittingTable) {
  for (const SplitRow& row : kSplitTable) {
    SCOPED_TRACE(std::string("input '") + row.input + "'");
    std::string dir = "old directory";
    std::string name = "old name";
    QXFileDeterminePathAndName(row.input, dir, name);
    EXPECT_EQ(dir, row.directory);
    EXPECT_EQ(name, row.name);
  }
}

TEST(QXFileTest, DeterminePathAndDetermineNameAgreeWithTheTable) {
  for (const SplitRow& row : kSplitTable) {
    SCOPED_TRACE(std::string("input '") + row.input + "'");
    EXPECT_EQ(QXFileDeterminePath(row.input), row.directory);
    EXPECT_EQ(QXFileDetermineName(row.input), row.name);
  }
}

TEST(QXFileTest, ConstructorSplitsEveryRowOfTheTable) {
  for (const SplitRow& row : kSplitTable) {
    SCOPED_TRACE(std::string("input '") + row.input + "'");
    QXFile file(row.input);
    EXPECT_EQ(file.DirPath(), row.directory);
    EXPECT_EQ(file.FileName(), row.name);
  }
}

TEST(QXFileTest, TripleSeparatorKeepsTheRootAndDropsTheLeftoverName) {
  // "///" loses one trailing "/", the last separator is then the final byte,
  // so the search goes on to position 0; the name "/" loses its separator.
  std::string dir;
  std::string name;
  QXFileDeterminePathAndName("///", dir, name);
  EXPECT_EQ(dir, "/");
  EXPECT_EQ(name, "");
}

TEST(QXFileTest, DeterminePathAndDetermineNameLeaveTheInputAlone) {
  const std::string input = "a\\b\\c/";
  EXPECT_EQ(QXFileDeterminePath(input), "a/b");
  EXPECT_EQ(QXFileDetermineName(input), "c");
  EXPECT_EQ(input, "a\\b\\c/");
}

TEST(QXFileTest, CorrectSeparatorsRemovesExactlyOneTrailingSeparator) {
  std::string root = "/";
  QXFileCorrectSeparators(root);
  EXPECT_EQ(root, "");
  std::string twice = "a//";
  QXFileCorrectSeparators(twice);
  EXPECT_EQ(twice, "a/");
  std::string empty;
  QXFileCorrectSeparators(empty);
  EXPECT_EQ(empty, "");
  std::string plain = "abc";
  QXFileCorrectSeparators(plain);
  EXPECT_EQ(plain, "abc");
}

TEST(QXFileTest, CorrectSeparatorsTurnsEveryBackslashIntoSlash) {
  std::string path = "\\a\\b\\\\c\\";
  QXFileCorrectSeparators(path);
  EXPECT_EQ(path, "/a/b//c");
}

TEST(QXFileTest, SeparatorIsSlash) { EXPECT_EQ(QXFile::Separator, '/'); }

TEST(QXFileTest, RootAloneHasEmptyPartsAndDoesNotExist) {
  QXFile root("/");
  EXPECT_EQ(root.DirPath(), "");
  EXPECT_EQ(root.FileName(), "");
  EXPECT_EQ(root.AbsPath(), "");
  EXPECT_FALSE(root.Exists());
  EXPECT_FALSE(root.IsDirectory());
}

TEST(QXFileTest, DoubleSlashNamesTheRootAndExists) {
  QXFile root("//");
  EXPECT_EQ(root.DirPath(), "/");
  EXPECT_EQ(root.FileName(), "");
  EXPECT_EQ(root.AbsPath(), "//");
  EXPECT_TRUE(root.Exists());
  EXPECT_TRUE(root.IsDirectory());
}

TEST(QXFileTest, EntryDirectlyUnderRootJoinsWithDoubledSeparator) {
  EXPECT_EQ(QXFile("/etc/hosts").AbsPath(), "/etc/hosts");
  QXFile hosts("/hosts");
  EXPECT_EQ(hosts.DirPath(), "/");
  EXPECT_EQ(hosts.FileName(), "hosts");
  EXPECT_EQ(hosts.AbsPath(), "//hosts");
}

TEST(QXFileTest, BackslashPathSplitsLikeSlashes) {
  QXFile file("dir\\sub\\f");
  EXPECT_EQ(file.DirPath(), "dir/sub");
  EXPECT_EQ(file.FileName(), "f");
  EXPECT_EQ(file.AbsPath(), "dir/sub/f");
}

TEST(QXFileTest, FullPathIsTheNameAloneWithoutDirectoryPart) {
  QXFile file("plain.txt");
  EXPECT_EQ(file.DirPath(), "");
  EXPECT_EQ(file.AbsPath(), "plain.txt");
}

TEST(QXFileTest, TwoPartConstructorCorrectsBothPartsAndSplitsTheJoin) {
  QXFile trailingName("a", "b/");
  EXPECT_EQ(trailingName.DirPath(), "a");
  EXPECT_EQ(trailingName.FileName(), "b");
  QXFile trailingDir("a/", "b");
  EXPECT_EQ(trailingDir.DirPath(), "a");
  EXPECT_EQ(trailingDir.FileName(), "b");
  QXFile nameWithDirectory("", "x/y");
  EXPECT_EQ(nameWithDirectory.DirPath(), "x");
  EXPECT_EQ(nameWithDirectory.FileName(), "y");
  QXFile backslashes("a\\b", "c\\d");
  EXPECT_EQ(backslashes.DirPath(), "a/b/c");
  EXPECT_EQ(backslashes.FileName(), "d");
}

TEST(QXFileTest, SetFromPartsCorrectsTheRootDirectoryToNothing) {
  // "/" corrects to the empty string, so the name is split on its own.
  QXFile file("/", "etc");
  EXPECT_EQ(file.DirPath(), "");
  EXPECT_EQ(file.FileName(), "etc");
  QXFile fromRoot("/etc");
  QXFile copy(fromRoot);
  EXPECT_EQ(copy.DirPath(), "");
  EXPECT_EQ(copy.AbsPath(), "etc");
  fromRoot.Refresh();
  EXPECT_EQ(fromRoot.AbsPath(), "etc");
}

TEST(QXFileTest, SetReplacesThePartsAndAlwaysAnswersTrue) {
  QXFile file("a/b");
  EXPECT_TRUE(file.Set("c\\d\\e"));
  EXPECT_EQ(file.DirPath(), "c/d");
  EXPECT_EQ(file.FileName(), "e");
  EXPECT_TRUE(file.Set("x/", "y/"));
  EXPECT_EQ(file.AbsPath(), "x/y");
  EXPECT_TRUE(file.Set(""));
  EXPECT_EQ(file.AbsPath(), "");
}

TEST(QXFileTest, RefreshKeepsTheOwnPartsAndAnswersTrue) {
  QXFile file("dir/sub/name");
  EXPECT_TRUE(file.Refresh());
  EXPECT_EQ(file.DirPath(), "dir/sub");
  EXPECT_EQ(file.FileName(), "name");
}

TEST(QXFileTest, CachedStatusDoesNotSeeFileCreatedLaterUntilRefresh) {
  ScratchDir scratch;
  QXFile file(scratch.File("later.txt"));
  EXPECT_FALSE(file.Exists());
  WriteFile(scratch.File("later.txt"), "12345");
  EXPECT_FALSE(file.Exists());
  EXPECT_FALSE(file.IsFile());
  EXPECT_EQ(file.Size(), 0);
  EXPECT_TRUE(file.Refresh());
  EXPECT_TRUE(file.Exists());
  EXPECT_TRUE(file.IsFile());
  EXPECT_EQ(file.Size(), 5);
}

TEST(QXFileTest, CachedStatusKeepsRemovedFileUntilRefresh) {
  ScratchDir scratch;
  WriteFile(scratch.File("gone.txt"), "abc");
  QXFile file(scratch.File("gone.txt"));
  EXPECT_EQ(file.Size(), 3);
  ASSERT_EQ(unlink(scratch.File("gone.txt").c_str()), 0);
  EXPECT_TRUE(file.Exists());
  EXPECT_EQ(file.Size(), 3);
  file.Refresh();
  EXPECT_FALSE(file.Exists());
  EXPECT_EQ(file.Size(), 0);
}

TEST(QXFileTest, CachedStatusKeepsOldSizeUntilRefresh) {
  ScratchDir scratch;
  WriteFile(scratch.File("grow.txt"), "ab");
  QXFile file(scratch.File("grow.txt"));
  EXPECT_EQ(file.Size(), 2);
  WriteFile(scratch.File("grow.txt"), "abcdef");
  EXPECT_EQ(file.Size(), 2);
  file.Refresh();
  EXPECT_EQ(file.Size(), 6);
}

TEST(QXFileTest, SetForgetsTheCachedStatus) {
  ScratchDir scratch;
  QXFile file(scratch.File("f"));
  EXPECT_FALSE(file.Exists());
  WriteFile(scratch.File("f"), "x");
  file.Set(scratch.File("f"));
  EXPECT_TRUE(file.Exists());
}

TEST(QXFileTest, CopyForgetsCachedStatus) {
  ScratchDir scratch;
  QXFile original(scratch.File("f"));
  EXPECT_FALSE(original.Exists());
  WriteFile(scratch.File("f"), "x");
  QXFile copy(original);
  EXPECT_EQ(copy.AbsPath(), original.AbsPath());
  EXPECT_TRUE(copy.Exists());
  EXPECT_FALSE(original.Exists());
}

TEST(QXFileTest, AssignmentForgetsCachedStatusButSelfAssignmentDoesNot) {
  ScratchDir scratch;
  QXFile original(scratch.File("f"));
  QXFile target(scratch.File("other"));
  EXPECT_FALSE(original.Exists());
  EXPECT_FALSE(target.Exists());
  WriteFile(scratch.File("f"), "x");
  QXFile& self = original;
  original = self;
  EXPECT_FALSE(original.Exists());
  target = original;
  EXPECT_EQ(target.AbsPath(), scratch.File("f"));
  EXPECT_TRUE(target.Exists());
}

TEST(QXFileTest, DirectoryIsDirectoryAndNotFile) {
  ScratchDir scratch;
  QXFile dir(scratch.path());
  EXPECT_TRUE(dir.Exists());
  EXPECT_TRUE(dir.IsDirectory());
  EXPECT_FALSE(dir.IsFile());
  QXFile withSlash(scratch.path() + "/");
  EXPECT_TRUE(withSlash.IsDirectory());
}

TEST(QXFileTest, RegularFileIsFileAndNotDirectory) {
  ScratchDir scratch;
  WriteFile(scratch.File("r"), "data");
  QXFile file(scratch.File("r"));
  EXPECT_TRUE(file.Exists());
  EXPECT_TRUE(file.IsFile());
  EXPECT_FALSE(file.IsDirectory());
  EXPECT_EQ(file.Size(), 4);
}

TEST(QXFileTest, SocketCountsAsFileAndDirectoryByTheBitTests) {
  ScratchDir scratch;
  std::string path = scratch.File("sock");
  sockaddr_un address;
  std::memset(&address, 0, sizeof address);
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof address.sun_path);
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  QXFile socketFile(path);
  // The socket type 0xC000 carries both the 0x8000 and the 0x4000 bit.
  EXPECT_TRUE(socketFile.Exists());
  EXPECT_TRUE(socketFile.IsFile());
  EXPECT_TRUE(socketFile.IsDirectory());
  EXPECT_FALSE(socketFile.IsNamedPipe());
  close(fd);
}

TEST(QXFileTest, BlockDeviceCountsAsDirectoryByTheBitTest) {
  ScratchDir scratch;
  std::string path = scratch.File("block");
  if (mknod(path.c_str(), S_IFBLK | 0600, makedev(7, 0)) != 0) {
    GTEST_SKIP() << "this machine does not allow making a block device node: "
                 << std::strerror(errno);
  }
  QXFile block(path);
  EXPECT_TRUE(block.Exists());
  EXPECT_TRUE(block.IsDirectory());
  EXPECT_FALSE(block.IsFile());
}

TEST(QXFileTest, CharacterDeviceIsNeitherFileNorDirectory) {
  QXFile null("/dev/null");
  ASSERT_TRUE(null.Exists());
  EXPECT_FALSE(null.IsFile());
  EXPECT_FALSE(null.IsDirectory());
}

TEST(QXFileTest, FifoIsNeitherFileNorDirectory) {
  ScratchDir scratch;
  ASSERT_EQ(mkfifo(scratch.File("fifo").c_str(), 0600), 0);
  QXFile fifo(scratch.File("fifo"));
  EXPECT_TRUE(fifo.Exists());
  EXPECT_FALSE(fifo.IsFile());
  EXPECT_FALSE(fifo.IsDirectory());
}

TEST(QXFileTest, PermissionQuestionsReadOnlyTheOwnerBits) {
  ScratchDir scratch;
  std::string path = scratch.File("p");
  WriteFile(path, "x");
  struct Case {
    mode_t mode;
    bool readable, writable, executable;
  };
  const Case cases[] = {
      {0400, true, false, false},  {0200, false, true, false},
      {0100, false, false, true},  {0700, true, true, true},
      {0077, false, false, false}, {0000, false, false, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.mode);
    ASSERT_EQ(chmod(path.c_str(), c.mode), 0);
    QXFile file(path);
    EXPECT_TRUE(file.Exists());
    EXPECT_EQ(file.IsReadable(), c.readable);
    EXPECT_EQ(file.IsWritable(), c.writable);
    EXPECT_EQ(file.IsExecutable(), c.executable);
  }
}

TEST(QXFileTest, MissingFileAnswersFalseAndZeroToEveryQuestion) {
  ScratchDir scratch;
  QXFile file(scratch.File("missing"));
  EXPECT_FALSE(file.Exists());
  EXPECT_FALSE(file.IsDirectory());
  EXPECT_FALSE(file.IsFile());
  EXPECT_FALSE(file.IsReadable());
  EXPECT_FALSE(file.IsWritable());
  EXPECT_FALSE(file.IsExecutable());
  EXPECT_EQ(file.Size(), 0);
  EXPECT_FALSE(file.IsLink());
  EXPECT_FALSE(file.IsNamedPipe());
}

TEST(QXFileTest, IsLinkIsTrueForASymbolicLinkAndFalseForItsTarget) {
  ScratchDir scratch;
  WriteFile(scratch.File("target"), "x");
  ASSERT_EQ(symlink("target", scratch.File("link").c_str()), 0);
  QXFile link(scratch.File("link"));
  EXPECT_TRUE(link.IsLink());
  // The status questions follow the link.
  EXPECT_TRUE(link.IsFile());
  EXPECT_FALSE(QXFile(scratch.File("target")).IsLink());
  EXPECT_FALSE(QXFile(scratch.path()).IsLink());
}

TEST(QXFileTest, IsLinkIsTrueForADanglingLinkThatDoesNotExist) {
  ScratchDir scratch;
  ASSERT_EQ(symlink("nowhere", scratch.File("dangling").c_str()), 0);
  QXFile link(scratch.File("dangling"));
  EXPECT_TRUE(link.IsLink());
  EXPECT_FALSE(link.Exists());
}

TEST(QXFileTest, IsLinkNeitherUsesNorFillsTheCachedStatus) {
  ScratchDir scratch;
  QXFile link(scratch.File("link"));
  EXPECT_FALSE(link.IsLink());
  WriteFile(scratch.File("target"), "x");
  ASSERT_EQ(symlink("target", scratch.File("link").c_str()), 0);
  EXPECT_TRUE(link.IsLink());
  EXPECT_TRUE(link.Exists());
  ASSERT_EQ(unlink(scratch.File("link").c_str()), 0);
  EXPECT_FALSE(link.IsLink());
  EXPECT_TRUE(link.Exists());
}

TEST(QXFileTest, DirContentsOfDirectoryOfHiddenFilesReturnsThemAll) {
  ScratchDir scratch;
  WriteFile(scratch.File(".a"), "");
  WriteFile(scratch.File(".hidden"), "");
  WriteFile(scratch.File("..c"), "");
  ASSERT_EQ(mkdir(scratch.File(".d").c_str(), 0700), 0);
  std::vector<std::string> names = QXFile(scratch.path()).DirContents();
  EXPECT_EQ(Sorted(names),
            (std::vector<std::string>{"..c", ".a", ".d", ".hidden"}));
}

TEST(QXFileTest, DirContentsOfEmptyDirectoryIsEmpty) {
  ScratchDir scratch;
  EXPECT_TRUE(QXFile(scratch.path()).DirContents().empty());
}

TEST(QXFileTest, DirContentsOfPlainFileListsTheDirectoryHoldingIt) {
  ScratchDir scratch;
  WriteFile(scratch.File("one"), "");
  WriteFile(scratch.File("two"), "");
  EXPECT_EQ(Sorted(QXFile(scratch.File("one")).DirContents()),
            (std::vector<std::string>{"one", "two"}));
  // A missing name in an existing directory lists that directory as well.
  EXPECT_EQ(Sorted(QXFile(scratch.File("none")).DirContents()),
            (std::vector<std::string>{"one", "two"}));
}

TEST(QXFileTest, DirContentsWithoutDirectoryPartIsEmpty) {
  EXPECT_TRUE(QXFile("qxfile-test-no-such-name").DirContents().empty());
}

TEST(QXFileTest, DirContentsOfMissingDirectoryIsEmpty) {
  ScratchDir scratch;
  EXPECT_TRUE(QXFile(scratch.File("no/such/dir/x")).DirContents().empty());
}

TEST(QXFileTest, DirContentsFillsTheCachedStatus) {
  ScratchDir scratch;
  QXFile dir(scratch.File("sub"));
  EXPECT_TRUE(dir.DirContents().empty());
  ASSERT_EQ(mkdir(scratch.File("sub").c_str(), 0700), 0);
  EXPECT_FALSE(dir.IsDirectory());
  dir.Refresh();
  EXPECT_TRUE(dir.IsDirectory());
}

TEST(QXFileTest, DirContentsOfUnreadableDirectoryIsEmpty) {
  if (testing::RunningAsRoot()) {
    GTEST_SKIP() << "running as root: a directory with mode 0 stays readable "
                    "to root, so the permission-denied case cannot be made";
  }
  ScratchDir scratch;
  ASSERT_EQ(mkdir(scratch.File("locked").c_str(), 0700), 0);
  WriteFile(scratch.File("locked/inside"), "");
  ASSERT_EQ(chmod(scratch.File("locked").c_str(), 0), 0);
  QXFile locked(scratch.File("locked"));
  EXPECT_TRUE(locked.IsDirectory());
  EXPECT_TRUE(locked.DirContents().empty());
  EXPECT_FALSE(QXFile(scratch.File("locked/inside")).Exists());
}

TEST(QXFileTest, NamesWithBytesAbove127AreHandledLikeAnyOther) {
  ScratchDir scratch;
  const std::string name = "caf\xc3\xa9-\xff\x80";
  WriteFile(scratch.File(name), "abc");
  QXFile file(scratch.File(name));
  EXPECT_EQ(file.FileName(), name);
  EXPECT_TRUE(file.IsFile());
  EXPECT_EQ(file.Size(), 3);
  EXPECT_EQ(QXFile(scratch.path()).DirContents(),
            std::vector<std::string>{name});
}

TEST(QXFileTest, OverlongNamesAnswerFalseQuietlyWithoutThrowing) {
  ScratchDir scratch;
  const std::string beyondNameMax = scratch.File(std::string(300, 'n'));
  std::string beyondPathMax;
  for (int i = 0; i < 40; ++i) {
    beyondPathMax += "/" + std::string(200, 'd');
  }
  CaptureFd out(1);
  CaptureFd err(2);
  for (const std::string& path : {beyondNameMax, beyondPathMax}) {
    EXPECT_NO_THROW({
      QXFile file(path);
      EXPECT_FALSE(file.Exists());
      EXPECT_FALSE(file.IsDirectory());
      EXPECT_FALSE(file.IsFile());
      EXPECT_FALSE(file.IsReadable());
      EXPECT_FALSE(file.IsWritable());
      EXPECT_FALSE(file.IsExecutable());
      EXPECT_EQ(file.Size(), 0);
      EXPECT_FALSE(file.IsLink());
      EXPECT_FALSE(file.IsNamedPipe());
      EXPECT_TRUE(file.DirContents().empty());
    });
  }
  EXPECT_EQ(out.Finish(), "");
  EXPECT_EQ(err.Finish(), "");
}

TEST(QXFileTest, EmptyPathAnswersFalseQuietly) {
  CaptureFd err(2);
  QXFile empty("");
  EXPECT_EQ(empty.AbsPath(), "");
  EXPECT_FALSE(empty.Exists());
  EXPECT_EQ(empty.Size(), 0);
  EXPECT_FALSE(empty.IsLink());
  EXPECT_FALSE(empty.IsNamedPipe());
  EXPECT_TRUE(empty.DirContents().empty());
  EXPECT_EQ(err.Finish(), "");
}

}  // namespace
}  // namespace QXPlatform
