#include <dirent.h>
#include <limits.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>
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

const std::string kRejected = std::string("\t\n \"&'();<>[]{|}");

bool IsRejected(int c) {
  return c > 0 && kRejected.find(static_cast<char>(c)) != std::string::npos;
}

bool IsCWhiteSpace(int c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' ||
         c == '\r';
}

std::map<std::string, int> ScanAll(QXDirectoryScan& scan) {
  std::map<std::string, int> seen;
  while (const char* name = scan.Next()) {
    ++seen[name];
  }
  return seen;
}

int OpenDescriptorCount() {
  int count = 0;
  DIR* dir = opendir("/proc/self/fd");
  if (dir == nullptr) {
    return -1;
  }
  while (readdir(dir) != nullptr) {
    ++count;
  }
  closedir(dir);
  return count;
}

std::string RealPath(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) ? resolved : "";
}

// Seeded bytes that neither sanitiser changes: no NUL, no rejected
// character, no white space and no leading "~".
std::string RandomSafeText() {
  std::string text = testing::RandomBytes(200000, 42);
  for (char& c : text) {
    const int code = static_cast<unsigned char>(c);
    if (code == 0 || IsRejected(code) || IsCWhiteSpace(code)) {
      c = 'k';
    }
  }
  text[0] = 's';
  return text;
}

std::string OverlongPath() {
  std::string path;
  for (int i = 0; i < 40; ++i) {
    path += "/" + std::string(200, 'q');
  }
  return path;
}

TEST(QXDirectoryScanTest, ReturnsDotDotDotAndEveryEntryExactlyOnce) {
  ScratchDir scratch;
  std::vector<std::string> names = {"a", ".hidden", "b c", "dir"};
  for (int i = 0; i < 300; ++i) {
    names.push_back("file" + std::to_string(i));
  }
  for (const std::string& name : names) {
    if (name == "dir") {
      ASSERT_EQ(mkdir(scratch.File(name).c_str(), 0700), 0);
    } else {
      WriteFile(scratch.File(name), "");
    }
  }
  QXDirectoryScan scan(scratch.path().c_str());
  EXPECT_TRUE(scan);
  std::map<std::string, int> seen = ScanAll(scan);
  EXPECT_EQ(seen.size(), names.size() + 2);
  EXPECT_EQ(seen["."], 1);
  EXPECT_EQ(seen[".."], 1);
  for (const std::string& name : names) {
    EXPECT_EQ(seen[name], 1) << name;
  }
}

TEST(QXDirectoryScanTest, ClosesItselfAfterTheLastEntry) {
  ScratchDir scratch;
  QXDirectoryScan scan(scratch.path().c_str());
  ASSERT_TRUE(scan);
  ASSERT_NE(scan.Next(), nullptr);
  ASSERT_NE(scan.Next(), nullptr);
  EXPECT_EQ(scan.Next(), nullptr);
  EXPECT_FALSE(scan);
  EXPECT_EQ(scan.Next(), nullptr);
  EXPECT_EQ(scan.Close(), 0);
}

TEST(QXDirectoryScanTest, CloseTwiceReturnsZeroTheSecondTime) {
  ScratchDir scratch;
  QXDirectoryScan scan(scratch.path().c_str());
  ASSERT_TRUE(scan);
  EXPECT_EQ(scan.Close(), 0);
  EXPECT_FALSE(scan);
  EXPECT_EQ(scan.Close(), 0);
  EXPECT_EQ(scan.Next(), nullptr);
}

TEST(QXDirectoryScanTest, CloseGivesBackTheDescriptor) {
  ScratchDir scratch;
  int before = OpenDescriptorCount();
  ASSERT_GT(before, 0);
  {
    QXDirectoryScan open(scratch.path().c_str());
    ASSERT_TRUE(open);
    EXPECT_EQ(OpenDescriptorCount(), before + 1);
    QXDirectoryScan closed(scratch.path().c_str());
    closed.Close();
    EXPECT_EQ(OpenDescriptorCount(), before + 1);
  }
  EXPECT_EQ(OpenDescriptorCount(), before);
  for (int i = 0; i < 3000; ++i) {
    QXDirectoryScan scan(scratch.path().c_str());
    ASSERT_TRUE(scan);
  }
  EXPECT_EQ(OpenDescriptorCount(), before);
}

TEST(QXDirectoryScanTest, NamesWithBytesAbove127ComeBackUnchanged) {
  ScratchDir scratch;
  const std::string name = "\xc3\xa9\x80\xff";
  WriteFile(scratch.File(name), "");
  QXDirectoryScan scan(scratch.path().c_str());
  std::map<std::string, int> seen = ScanAll(scan);
  EXPECT_EQ(seen[name], 1);
  EXPECT_EQ(seen.size(), 3u);
}

TEST(QXDirectoryScanTest, UnopenableDirectoriesGiveAClosedScanQuietly) {
  ScratchDir scratch;
  WriteFile(scratch.File("plain"), "x");
  const std::string bad[] = {
      "",
      scratch.File("missing"),
      scratch.File("plain"),
      scratch.File(std::string(300, 'n')),
      OverlongPath(),
      scratch.File("\x80\xff"),
  };
  CaptureFd out(1);
  CaptureFd err(2);
  for (const std::string& dir : bad) {
    EXPECT_NO_THROW({
      QXDirectoryScan scan(dir.c_str());
      EXPECT_FALSE(scan);
      EXPECT_EQ(scan.Next(), nullptr);
      EXPECT_EQ(scan.Close(), 0);
    });
  }
  EXPECT_EQ(out.Finish(), "");
  EXPECT_EQ(err.Finish(), "");
}

TEST(QXDirectoryScanTest, UnreadableDirectoryGivesAClosedScan) {
  if (testing::RunningAsRoot()) {
    GTEST_SKIP() << "running as root: a directory with mode 0 stays readable "
                    "to root, so the permission-denied case cannot be made";
  }
  ScratchDir scratch;
  ASSERT_EQ(mkdir(scratch.File("locked").c_str(), 0), 0);
  QXDirectoryScan scan(scratch.File("locked").c_str());
  EXPECT_FALSE(scan);
  EXPECT_EQ(scan.Next(), nullptr);
}

TEST(QXDirectoryTest, CurrentWorkingDirectoryMatchesTheSystem) {
  char expected[PATH_MAX];
  ASSERT_NE(getcwd(expected, sizeof expected), nullptr);
  EXPECT_EQ(QXGetCurrentWorkingDirectory(), expected);
}

TEST(QXDirectoryTest, AbsolutePathResolvesLinksAndDots) {
  ScratchDir scratch;
  ASSERT_EQ(mkdir(scratch.File("real").c_str(), 0700), 0);
  WriteFile(scratch.File("real/f"), "");
  ASSERT_EQ(symlink("real", scratch.File("link").c_str()), 0);
  const std::string canonical = RealPath(scratch.path()) + "/real/f";
  EXPECT_EQ(QXGetAbsolutePath(scratch.File("link/f")), canonical);
  EXPECT_EQ(QXGetAbsolutePath(scratch.File("real/../link/./f")), canonical);
  EXPECT_EQ(QXGetAbsolutePath(scratch.File("real//f")), canonical);
  EXPECT_EQ(QXGetAbsolutePath("/"), "/");
  EXPECT_EQ(QXGetAbsolutePath("//"), "/");
}

TEST(QXDirectoryTest, AbsolutePathOfBadInputIsEmptyAndQuiet) {
  ScratchDir scratch;
  WriteFile(scratch.File("plain"), "x");
  CaptureFd out(1);
  CaptureFd err(2);
  EXPECT_EQ(QXGetAbsolutePath(""), "");
  EXPECT_EQ(QXGetAbsolutePath(scratch.File("missing")), "");
  EXPECT_EQ(QXGetAbsolutePath(scratch.File("plain/below")), "");
  EXPECT_EQ(QXGetAbsolutePath(scratch.File(std::string(300, 'n'))), "");
  EXPECT_EQ(QXGetAbsolutePath(OverlongPath()), "");
  EXPECT_EQ(QXGetAbsolutePath(scratch.File("\x80\xff")), "");
  EXPECT_EQ(out.Finish(), "");
  EXPECT_EQ(err.Finish(), "");
}

TEST(QXDirectoryTest, AbsolutePathKeepsBytesAbove127) {
  ScratchDir scratch;
  const std::string name = "\xc3\xa9\xff";
  WriteFile(scratch.File(name), "");
  EXPECT_EQ(QXGetAbsolutePath(scratch.File(name)),
            RealPath(scratch.path()) + "/" + name);
}

TEST(QXDirectoryTest, IsSecureRejectsExactlyTheSixteenCharacters) {
  int rejected = 0;
  for (int c = 0; c <= 255; ++c) {
    EXPECT_EQ(IsSecure(c), !IsRejected(c)) << "character code " << c;
    rejected += IsSecure(c) ? 0 : 1;
  }
  EXPECT_EQ(rejected, 16);
  for (char c : std::string("$`*?!\\=\v\f\r")) {
    EXPECT_TRUE(IsSecure(c)) << "character code " << int{c};
  }
  EXPECT_TRUE(IsSecure(0));
  for (int c : {-128, -1, 256, 300, 1 << 20}) {
    EXPECT_TRUE(IsSecure(c)) << "value " << c;
  }
}

TEST(QXDirectoryTest, CommandSanitiserRemovesRejectedBytesAndKeepsAllOthers) {
  for (int c = 1; c <= 255; ++c) {
    SCOPED_TRACE(c);
    const std::string input = std::string("a") + static_cast<char>(c) + "z";
    const std::string expected = IsRejected(c) ? std::string("az") : input;
    EXPECT_EQ(QXProcessSystemCommand(input.c_str()), expected);
  }
}

TEST(QXDirectoryTest, FileNameSanitiserRemovesRejectedBytesAndStopsAtSpace) {
  for (int c = 1; c <= 255; ++c) {
    SCOPED_TRACE(c);
    const std::string input = std::string("a") + static_cast<char>(c) + "z";
    std::string expected = input;
    if (IsCWhiteSpace(c)) {
      expected = "a";
    } else if (IsRejected(c)) {
      expected = "az";
    }
    EXPECT_EQ(QXProcessFileName(input.c_str()), expected);
  }
}

TEST(QXDirectoryTest, SanitisersRemoveEveryRejectedCharacterAtOnce) {
  const std::string noisy = "x\"&'();<>[]{|}y";
  EXPECT_EQ(QXProcessFileName(noisy.c_str()), "xy");
  EXPECT_EQ(QXProcessSystemCommand((noisy + " \t\nz").c_str()), "xyz");
}

TEST(QXDirectoryTest, SanitisersOfNullAreEmpty) {
  EXPECT_EQ(QXProcessFileName(nullptr), "");
  EXPECT_EQ(QXProcessSystemCommand(nullptr), "");
  EXPECT_EQ(QXProcessFileName(""), "");
  EXPECT_EQ(QXProcessSystemCommand(""), "");
  EXPECT_EQ(QXProcessFileName(" \t\n\v\f\r"), "");
  EXPECT_EQ(QXProcessSystemCommand(" \t\n\v\f\r"), "");
}

TEST(QXDirectoryTest, FileNameStopsAtInnerSpaceWhileCommandContinues) {
  EXPECT_EQ(QXProcessFileName("a;b|c"), "abc");
  EXPECT_EQ(QXProcessSystemCommand("  rm -rf x; echo"), "rm-rfxecho");
  EXPECT_EQ(QXProcessSystemCommand("ls -l"), "ls-l");
  EXPECT_EQ(QXProcessFileName("  data/in.txt  more"), "data/in.txt");
  EXPECT_EQ(QXProcessFileName("one\vtwo"), "one");
  EXPECT_EQ(QXProcessSystemCommand("one\vtwo"), "one\vtwo");
  EXPECT_EQ(QXProcessFileName("\r\n\tname\rrest"), "name");
}

TEST(QXDirectoryTest, ShellCharactersOutsideTheSetPassBothSanitisers) {
  const char* text = "$HOME`id`*?!\\=%#^~";
  EXPECT_EQ(QXProcessFileName(text), text);
  EXPECT_EQ(QXProcessSystemCommand(text), text);
}

TEST(QXDirectoryTest, FileNameOfUnknownUserKeepsTheTildeAndTheName) {
  EXPECT_EQ(QXProcessFileName("~nosuchuser/x"), "~nosuchuser/x");
  EXPECT_EQ(QXProcessFileName("~nosuchuser"), "~nosuchuser");
  // The typed user name is not filtered; the rest is.
  EXPECT_EQ(QXProcessFileName("~no;user/a;b"), "~no;user/ab");
  EXPECT_EQ(QXProcessFileName("  ~no|user/a b"), "~no|user/a");
  const std::string longUser = "~" + std::string(5000, 'u') + "/x";
  EXPECT_EQ(QXProcessFileName(longUser.c_str()), longUser);
  EXPECT_EQ(QXProcessFileName("~\xc3\xa9\xff/x"), "~\xc3\xa9\xff/x");
}

TEST(QXDirectoryTest, FileNameOfKnownUserStartsWithTheirHome) {
  struct passwd* root = getpwnam("root");
  if (root == nullptr) {
    GTEST_SKIP() << "no user named root in the password database";
  }
  const std::string home = root->pw_dir;
  endpwent();
  EXPECT_EQ(QXProcessFileName("~root/x;y"), home + "/xy");
  EXPECT_EQ(QXProcessFileName("~root"), home);
  EXPECT_EQ(QXProcessFileName("\t~root more"), home);
  EXPECT_EQ(QXProcessFileName("~root;x/a"), "~root;x/a");
}

TEST(QXDirectoryTest, TildeInsideTheTextIsNotExpanded) {
  EXPECT_EQ(QXProcessFileName("a/~root"), "a/~root");
  EXPECT_EQ(QXProcessSystemCommand("~root"), "~root");
}

TEST(QXDirectoryTest, SanitisersHandleVeryLongInput) {
  const std::string input = RandomSafeText();
  EXPECT_EQ(QXProcessFileName(input.c_str()), input);
  EXPECT_EQ(QXProcessSystemCommand(input.c_str()), input);
}

}  // namespace
}  // namespace QXPlatform
