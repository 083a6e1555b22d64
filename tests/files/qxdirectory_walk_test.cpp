// Recursive walks, entry types from directory scans and path joining. The
// walk is checked against std::filesystem::recursive_directory_iterator on
// generated trees and on /usr/share, and its stat-family calls are counted:
// this program is linked with a counter that takes the C library's place.

#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_files.h"
#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

extern "C" long qxtest_stat_calls();

namespace QXPlatform {
namespace {

namespace fs = std::filesystem;
using testing::ScratchDir;
using testing::WriteFile;

TEST(QXPathJoinTest, JoinsWithExactlyOneSeparator) {
  EXPECT_EQ(QXPathJoin("a", "b"), "a/b");
  EXPECT_EQ(QXPathJoin("a/", "b"), "a/b");
  EXPECT_EQ(QXPathJoin("a", "/b"), "a/b");
  EXPECT_EQ(QXPathJoin("a//", "//b"), "a/b");
  EXPECT_EQ(QXPathJoin("/a/b", "c/d"), "/a/b/c/d");
}

TEST(QXPathJoinTest, KeepsTheRoot) {
  EXPECT_EQ(QXPathJoin("/", "usr"), "/usr");
  EXPECT_EQ(QXPathJoin("//", "usr"), "/usr");
  EXPECT_EQ(QXPathJoin("/", "/usr"), "/usr");
  EXPECT_EQ(QXPathJoin("/", "/"), "/");
}

TEST(QXPathJoinTest, EmptyPartsGiveTheOtherAsItIs) {
  EXPECT_EQ(QXPathJoin("", "b"), "b");
  EXPECT_EQ(QXPathJoin("", "/b"), "/b");
  EXPECT_EQ(QXPathJoin("a/", ""), "a/");
  EXPECT_EQ(QXPathJoin("", ""), "");
}

TEST(QXPathJoinTest, LeavesInnerSeparatorsAndBackslashesAlone) {
  EXPECT_EQ(QXPathJoin("a//b", "c//d"), "a//b/c//d");
  EXPECT_EQ(QXPathJoin("a\\", "\\b"), "a\\/\\b");
  EXPECT_EQ(QXPathJoin("a", "/"), "a/");
}

QXEntryType LstatType(const std::string& path) {
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) {
    return QXEntryType::kUnknown;
  }
  if (S_ISREG(status.st_mode)) {
    return QXEntryType::kFile;
  }
  if (S_ISDIR(status.st_mode)) {
    return QXEntryType::kDirectory;
  }
  if (S_ISLNK(status.st_mode)) {
    return QXEntryType::kSymlink;
  }
  return QXEntryType::kOther;
}

TEST(StatCounterTest, SeesTheCallsOfTheLibraryAndTheStandardLibrary) {
  // Without this the zero counts below would prove nothing.
  ScratchDir scratch;
  long before = qxtest_stat_calls();
  std::error_code error;
  EXPECT_EQ(fs::symlink_status(scratch.path(), error).type(),
            fs::file_type::directory);
  EXPECT_GT(qxtest_stat_calls(), before);
  before = qxtest_stat_calls();
  EXPECT_TRUE(QXFileIsDirectory(scratch.path()));
  EXPECT_GT(qxtest_stat_calls(), before);
}

TEST(QXDirectoryScanTest, TypeComesWithEachEntry) {
  ScratchDir scratch;
  WriteFile(scratch.File("file"), "x");
  ASSERT_EQ(mkdir(scratch.File("dir").c_str(), 0755), 0);
  ASSERT_EQ(symlink("file", scratch.File("link").c_str()), 0);
  ASSERT_EQ(symlink("missing", scratch.File("dangling").c_str()), 0);
  ASSERT_EQ(mkfifo(scratch.File("fifo").c_str(), 0600), 0);
  QXDirectoryScan scan(scratch.path().c_str());
  EXPECT_EQ(scan.Type(), QXEntryType::kUnknown);
  std::map<std::string, QXEntryType> types;
  long before = qxtest_stat_calls();
  while (const char* name = scan.Next()) {
    types[name] = scan.Type();
    // Asked again, the kept answer.
    EXPECT_EQ(scan.Type(), types[name]);
  }
  long calls = qxtest_stat_calls() - before;
  EXPECT_EQ(scan.Type(), QXEntryType::kUnknown);
  std::map<std::string, QXEntryType> expected = {
      {".", QXEntryType::kDirectory},  {"..", QXEntryType::kDirectory},
      {"file", QXEntryType::kFile},    {"dir", QXEntryType::kDirectory},
      {"link", QXEntryType::kSymlink}, {"dangling", QXEntryType::kSymlink},
      {"fifo", QXEntryType::kOther}};
  EXPECT_EQ(types, expected);
  for (const auto& entry : expected) {
    if (entry.first != "..") {
      EXPECT_EQ(LstatType(scratch.File(entry.first)), entry.second);
    }
  }
  // The scratch file system records types in its entries: no stat at all.
  EXPECT_EQ(calls, 0);
}

TEST(QXDirectoryScanTest, ClosedScanHasNoType) {
  QXDirectoryScan scan("/nonexistent/directory");
  EXPECT_EQ(scan.Type(), QXEntryType::kUnknown);
}

// A walk's visits, as "path type target depth error" lines.
struct Visit {
  std::string path;
  QXEntryType type;
  QXEntryType target;
  int depth;
  int error;
};

std::vector<Visit> WalkAll(const std::string& root, bool follow,
                           bool* result = nullptr) {
  std::vector<Visit> visits;
  QXWalkOptions options;
  options.followSymlinks = follow;
  bool ok = QXWalkDirectory(
      root,
      [&visits](const QXWalkEntry& entry) {
        visits.push_back(Visit{entry.path, entry.type, entry.target,
                               entry.depth, entry.error});
        EXPECT_EQ(std::string(entry.name),
                  entry.path.substr(entry.path.size() - strlen(entry.name)));
        return QXWalkAction::kContinue;
      },
      options);
  if (result != nullptr) {
    *result = ok;
  }
  return visits;
}

std::set<std::string> Paths(const std::vector<Visit>& visits) {
  std::set<std::string> paths;
  for (const Visit& visit : visits) {
    if (visit.error == 0) {
      EXPECT_TRUE(paths.insert(visit.path).second) << "twice: " << visit.path;
    }
  }
  return paths;
}

QXEntryType StandardType(fs::file_type type) {
  switch (type) {
    case fs::file_type::regular:
      return QXEntryType::kFile;
    case fs::file_type::directory:
      return QXEntryType::kDirectory;
    case fs::file_type::symlink:
      return QXEntryType::kSymlink;
    case fs::file_type::not_found:
    case fs::file_type::none:
    case fs::file_type::unknown:
      return QXEntryType::kUnknown;
    default:
      return QXEntryType::kOther;
  }
}

// What the standard library's walk sees below root: path to own type.
std::map<std::string, QXEntryType> StandardWalk(const std::string& root) {
  std::map<std::string, QXEntryType> seen;
  std::error_code error;
  fs::recursive_directory_iterator it(
      root, fs::directory_options::skip_permission_denied, error);
  for (; !error && it != fs::recursive_directory_iterator();
       it.increment(error)) {
    seen[it->path().string()] = StandardType(it->symlink_status().type());
  }
  EXPECT_FALSE(error) << error.message();
  return seen;
}

// The number of entries the standard library's walk visits; nothing but the
// walk itself, so that its own stat-family calls can be counted.
size_t StandardWalkOnly(const std::string& root) {
  size_t entries = 0;
  std::error_code error;
  fs::recursive_directory_iterator it(
      root, fs::directory_options::skip_permission_denied, error);
  for (; !error && it != fs::recursive_directory_iterator();
       it.increment(error)) {
    ++entries;
  }
  return entries;
}

// A random tree of directories, files, links to files, links to
// directories (which a walk without following must not enter), dangling
// links, links that loop, and names with odd bytes.
void MakeTree(const std::string& root, unsigned seed, int depth) {
  std::mt19937 random(seed);
  std::vector<std::string> dirs = {root};
  for (size_t i = 0; i < dirs.size() && dirs.size() < 200; ++i) {
    int level = 0;
    for (char c : dirs[i].substr(root.size())) {
      level += c == '/';
    }
    int entries = 1 + random() % 8;
    for (int e = 0; e < entries; ++e) {
      std::string name = "n" + std::to_string(random() % 1000);
      if (random() % 5 == 0) {
        name += " \t\xC3\xA9.x";
      }
      std::string path = dirs[i] + "/" + name;
      unsigned kind = random() % 6;
      if (kind <= 1 && level < depth) {
        if (mkdir(path.c_str(), 0755) == 0) {
          dirs.push_back(path);
        }
      } else if (kind == 2) {
        WriteFile(path, "data");
      } else if (kind == 3) {
        EXPECT_EQ(symlink("..", path.c_str()) == 0 || errno == EEXIST, true);
      } else if (kind == 4) {
        symlink(dirs[random() % dirs.size()].c_str(), path.c_str());
      } else {
        symlink("no/such/target", path.c_str());
      }
    }
  }
}

TEST(QXWalkDirectoryTest, SeesWhatTheStandardWalkSeesOnRandomTrees) {
  for (unsigned seed = 1; seed <= 6; ++seed) {
    ScratchDir scratch;
    MakeTree(scratch.path(), seed, 5);
    bool ok = false;
    std::vector<Visit> visits = WalkAll(scratch.path(), false, &ok);
    EXPECT_TRUE(ok);
    std::map<std::string, QXEntryType> ours;
    for (const Visit& visit : visits) {
      EXPECT_EQ(visit.error, 0) << visit.path;
      EXPECT_EQ(visit.target, visit.type) << visit.path;
      ours[visit.path] = visit.type;
      int slashes = 0;
      for (char c : visit.path.substr(scratch.path().size())) {
        slashes += c == '/';
      }
      EXPECT_EQ(visit.depth, slashes) << visit.path;
    }
    EXPECT_EQ(ours, StandardWalk(scratch.path())) << "seed " << seed;
  }
}

TEST(QXWalkDirectoryTest, MakesNoMoreStatCallsThanTheStandardWalk) {
  ScratchDir scratch;
  MakeTree(scratch.path(), 99, 6);
  long before = qxtest_stat_calls();
  WalkAll(scratch.path(), false);
  long ours = qxtest_stat_calls() - before;
  before = qxtest_stat_calls();
  EXPECT_GT(StandardWalkOnly(scratch.path()), 0u);
  long standard = qxtest_stat_calls() - before;
  EXPECT_LE(ours, standard);
  // Every entry carries its type here, so none is examined.
  EXPECT_EQ(ours, 0);
}

TEST(QXWalkDirectoryTest, UsrShareAgreesWithTheStandardWalk) {
  if (access("/usr/share", R_OK) != 0) {
    GTEST_SKIP() << "no /usr/share";
  }
  long before = qxtest_stat_calls();
  bool ok = false;
  std::vector<Visit> visits = WalkAll("/usr/share", false, &ok);
  long ours = qxtest_stat_calls() - before;
  before = qxtest_stat_calls();
  size_t standardEntries = StandardWalkOnly("/usr/share");
  long theirs = qxtest_stat_calls() - before;
  std::map<std::string, QXEntryType> standard = StandardWalk("/usr/share");
  EXPECT_EQ(standardEntries, standard.size());
  std::map<std::string, QXEntryType> seen;
  for (const Visit& visit : visits) {
    if (visit.error == 0) {
      seen[visit.path] = visit.type;
    }
  }
  EXPECT_GT(seen.size(), 100u);
  EXPECT_EQ(seen, standard);
  EXPECT_LE(ours, theirs);
  std::cout << "stat-family calls over " << seen.size()
            << " entries: walk " << ours << ", standard " << theirs << "\n";
  // Unreadable directories are reports in ours and skipped in theirs; as
  // root there are none.
  if (testing::RunningAsRoot()) {
    EXPECT_TRUE(ok);
  }
}

TEST(QXWalkDirectoryTest, RootTrailingSeparatorsAreNotDoubled) {
  ScratchDir scratch;
  ASSERT_EQ(mkdir(scratch.File("d").c_str(), 0755), 0);
  WriteFile(scratch.File("d/f"), "x");
  std::vector<Visit> visits = WalkAll(scratch.path() + "//", false);
  std::set<std::string> expected = {scratch.File("d"), scratch.File("d/f")};
  EXPECT_EQ(Paths(visits), expected);
}

TEST(QXWalkDirectoryTest, TheRootDirectoryKeepsItsSeparator) {
  std::string first;
  bool ok = QXWalkDirectory(
      "/",
      [&first](const QXWalkEntry& entry) {
        first = entry.path;
        return QXWalkAction::kStop;
      },
      QXWalkOptions());
  EXPECT_FALSE(ok);
  ASSERT_GE(first.size(), 2u);
  EXPECT_EQ(first[0], '/');
  EXPECT_NE(first[1], '/');
}

TEST(QXWalkDirectoryTest, SkipLeavesOutTheSubtree) {
  ScratchDir scratch;
  ASSERT_EQ(mkdir(scratch.File("skip").c_str(), 0755), 0);
  ASSERT_EQ(mkdir(scratch.File("skip/inner").c_str(), 0755), 0);
  WriteFile(scratch.File("skip/inner/f"), "x");
  ASSERT_EQ(mkdir(scratch.File("keep").c_str(), 0755), 0);
  WriteFile(scratch.File("keep/f"), "x");
  std::set<std::string> seen;
  bool ok = QXWalkDirectory(
      scratch.path(),
      [&seen](const QXWalkEntry& entry) {
        seen.insert(entry.path);
        return std::string(entry.name) == "skip" ? QXWalkAction::kSkip
                                                 : QXWalkAction::kContinue;
      },
      QXWalkOptions());
  EXPECT_TRUE(ok);
  std::set<std::string> expected = {scratch.File("skip"), scratch.File("keep"),
                                    scratch.File("keep/f")};
  EXPECT_EQ(seen, expected);
}

TEST(QXWalkDirectoryTest, StopEndsTheWalkAtOnce) {
  ScratchDir scratch;
  MakeTree(scratch.path(), 5, 4);
  size_t all = WalkAll(scratch.path(), false).size();
  ASSERT_GT(all, 5u);
  int visits = 0;
  bool ok = QXWalkDirectory(
      scratch.path(),
      [&visits](const QXWalkEntry&) {
        return ++visits == 5 ? QXWalkAction::kStop : QXWalkAction::kContinue;
      },
      QXWalkOptions());
  EXPECT_FALSE(ok);
  EXPECT_EQ(visits, 5);
}

TEST(QXWalkDirectoryTest, MissingRootIsReportedOnce) {
  bool ok = true;
  std::vector<Visit> visits = WalkAll("/nonexistent/walk/root", false, &ok);
  EXPECT_FALSE(ok);
  ASSERT_EQ(visits.size(), 1u);
  EXPECT_EQ(visits[0].path, "/nonexistent/walk/root");
  EXPECT_EQ(visits[0].depth, 0);
  EXPECT_EQ(visits[0].error, ENOENT);
  visits = WalkAll("", false, &ok);
  EXPECT_FALSE(ok);
  ASSERT_EQ(visits.size(), 1u);
  EXPECT_EQ(visits[0].error, ENOENT);
}

TEST(QXWalkDirectoryTest, RootThatIsAFileIsReported) {
  ScratchDir scratch;
  WriteFile(scratch.File("f"), "x");
  bool ok = true;
  std::vector<Visit> visits = WalkAll(scratch.File("f"), false, &ok);
  EXPECT_FALSE(ok);
  ASSERT_EQ(visits.size(), 1u);
  EXPECT_EQ(visits[0].error, ENOTDIR);
}

TEST(QXWalkDirectoryTest, RootThatIsALinkIsEntered) {
  ScratchDir scratch;
  ASSERT_EQ(mkdir(scratch.File("real").c_str(), 0755), 0);
  WriteFile(scratch.File("real/f"), "x");
  ASSERT_EQ(symlink("real", scratch.File("link").c_str()), 0);
  std::set<std::string> expected = {scratch.File("link/f")};
  EXPECT_EQ(Paths(WalkAll(scratch.File("link"), false)), expected);
}

TEST(QXWalkDirectoryTest, FollowingLinksEntersThemAndReportsLoops) {
  ScratchDir scratch;
  ASSERT_EQ(mkdir(scratch.File("a").c_str(), 0755), 0);
  ASSERT_EQ(mkdir(scratch.File("a/b").c_str(), 0755), 0);
  ASSERT_EQ(mkdir(scratch.File("other").c_str(), 0755), 0);
  WriteFile(scratch.File("other/f"), "x");
  ASSERT_EQ(symlink("../..", scratch.File("a/b/up").c_str()), 0);
  ASSERT_EQ(symlink("../other", scratch.File("a/there").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", scratch.File("a/dangling").c_str()), 0);
  bool ok = true;
  std::vector<Visit> visits = WalkAll(scratch.path(), true, &ok);
  EXPECT_FALSE(ok);
  std::set<std::string> expected = {
      scratch.File("a"),         scratch.File("a/b"),
      scratch.File("a/b/up"),    scratch.File("a/there"),
      scratch.File("a/there/f"), scratch.File("a/dangling"),
      scratch.File("other"),     scratch.File("other/f")};
  EXPECT_EQ(Paths(visits), expected);
  int loops = 0;
  for (const Visit& visit : visits) {
    if (visit.path == scratch.File("a/b/up")) {
      EXPECT_EQ(visit.type, QXEntryType::kSymlink);
      EXPECT_EQ(visit.target, QXEntryType::kDirectory);
      loops += visit.error == ELOOP;
    }
    if (visit.path == scratch.File("a/dangling")) {
      EXPECT_EQ(visit.target, QXEntryType::kUnknown);
    }
    if (visit.path == scratch.File("a/there/f")) {
      EXPECT_EQ(visit.depth, 3);
    }
  }
  EXPECT_EQ(loops, 1);
  // Without following, the links are leaves and nothing is reported.
  std::set<std::string> leaves = {
      scratch.File("a"),          scratch.File("a/b"),
      scratch.File("a/b/up"),     scratch.File("a/there"),
      scratch.File("a/dangling"), scratch.File("other"),
      scratch.File("other/f")};
  EXPECT_EQ(Paths(WalkAll(scratch.path(), false, &ok)), leaves);
  EXPECT_TRUE(ok);
}

// Runs body in a child process as the unprivileged user when the test runs
// as root, so that permissions apply; the child's exit status is returned.
int RunUnprivileged(const std::function<int()>& body) {
  if (!testing::RunningAsRoot()) {
    return body();
  }
  struct passwd* nobody = getpwnam("nobody");
  if (nobody == nullptr) {
    return 77;
  }
  pid_t child = fork();
  if (child == 0) {
    if (setgroups(0, nullptr) != 0 || setgid(nobody->pw_gid) != 0 ||
        setuid(nobody->pw_uid) != 0) {
      _exit(78);
    }
    _exit(body());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 99;
}

TEST(QXWalkDirectoryTest, UnreadableDirectoryIsReportedAndTheWalkGoesOn) {
  ScratchDir scratch;
  std::string root = scratch.File("tree");
  ASSERT_EQ(mkdir(root.c_str(), 0755), 0);
  ASSERT_EQ(chmod(scratch.path().c_str(), 0755), 0);
  ASSERT_EQ(mkdir((root + "/locked").c_str(), 0755), 0);
  WriteFile(root + "/locked/hidden", "x");
  ASSERT_EQ(mkdir((root + "/open").c_str(), 0755), 0);
  WriteFile(root + "/open/f", "x");
  ASSERT_EQ(chmod((root + "/locked").c_str(), 0), 0);
  // Checked in the child; the exit status says which check failed.
  int status = RunUnprivileged([&root] {
    bool ok = true;
    std::vector<Visit> visits;
    QXWalkDirectory(
        root,
        [&visits](const QXWalkEntry& entry) {
          visits.push_back(Visit{entry.path, entry.type, entry.target,
                                 entry.depth, entry.error});
          return QXWalkAction::kContinue;
        },
        QXWalkOptions());
    int reports = 0;
    std::set<std::string> paths;
    for (size_t i = 0; i < visits.size(); ++i) {
      if (visits[i].error != 0) {
        ++reports;
        if (visits[i].path != root + "/locked" || visits[i].error != EACCES ||
            i == 0 || visits[i - 1].path != root + "/locked" ||
            visits[i].depth != 1) {
          return 1;
        }
      } else {
        paths.insert(visits[i].path);
      }
    }
    std::set<std::string> expected = {root + "/locked", root + "/open",
                                      root + "/open/f"};
    if (reports != 1) {
      return 2;
    }
    if (paths != expected) {
      return 3;
    }
    visits.clear();
    ok = QXWalkDirectory(
        root,
        [](const QXWalkEntry& entry) {
          return entry.error != 0 ? QXWalkAction::kStop
                                  : QXWalkAction::kContinue;
        },
        QXWalkOptions());
    return ok ? 4 : 0;
  });
  chmod((root + "/locked").c_str(), 0755);
  if (status == 77) {
    GTEST_SKIP() << "no unprivileged user to run as";
  }
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace QXPlatform
