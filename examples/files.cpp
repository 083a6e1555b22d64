// Files: a private temporary directory, file streams, QXFile and its cached
// status, directory scans, path splitting and the sanitisers for user text.

#include <algorithm>
#include <string>
#include <vector>

#include <QXPlatform/QXPlatform.h>

using namespace QXPlatform;

namespace {

int failures = 0;

void Check(bool ok, const char* what) {
  if (!ok) {
    qxerr << "files: failed: " << what << qxendl;
    ++failures;
  }
}

}  // namespace

int main() {
  // A new directory with owner-only permissions inside the temporary
  // directory (TMPDIR, else /tmp). The caller removes it.
  std::string dir = QXFileTempDirectory("");
  Check(!dir.empty(), "temporary directory");
  std::string path = dir + "/data.txt";

  // QXFile reads the file's status once, on the first question, and keeps
  // the answer until Refresh().
  QXFile file(path);
  Check(!file.Exists(), "not there yet");
  qxofstream out(path.c_str());
  out << "alpha\nbeta\n";
  out.close();
  Check(!file.Exists(), "the cached answer stays");
  file.Refresh();
  Check(file.Exists() && file.IsFile() && file.Size() == 11, "after Refresh");
  Check(file.FileName() == "data.txt", "name part");

  // Reading a file; after the end its position reads as 0, and seek(0)
  // starts again.
  qxifstream in(path.c_str());
  std::string line;
  Check(in.getline(line) && line == "alpha", "first line");
  Check(in.getline(line) && line == "beta", "second line");
  Check(!in.getline(line) && in.eof() && in.tell() == 0, "position 0 at end");
  Check(in.seek(0) && in.getline(line) && line == "alpha", "seek(0)");
  Check(in.size() == 11, "size of the whole file");
  in.close();

  // A temporary file as a descriptor; the stream closes descriptors from 3
  // up when it is closed.
  std::string tempName;
  int fd = QXFileTempDescriptor(tempName);
  Check(fd >= 3, "temporary file");
  qxofstream temp(fd);
  temp << "x";
  temp.close();
  Check(QXFileSize(tempName) == 1 && QXUnlink(tempName.c_str()), "temp file");

  // Creating, renaming and listing.
  Check(QXFileCreate(dir + "/empty", 0644).Exists(), "QXFileCreate");
  Check(QXCreateDirectory((dir + "/sub").c_str()), "QXCreateDirectory");
  Check(QXRenameFile(path.c_str(), (dir + "/renamed.txt").c_str()), "rename");
  std::vector<std::string> names;
  QXDirectoryScan scan(dir.c_str());
  while (const char* name = scan.Next()) {
    names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  Check(names ==
            std::vector<std::string>{".", "..", "empty", "renamed.txt", "sub"},
        "directory scan lists . and ..");
  Check(QXFile(dir).DirContents().size() == 3, "DirContents leaves them out");

  // Path splitting and joining follow fixed rules.
  Check(QXFileDeterminePath("a/b/c.txt") == "a/b", "directory part");
  Check(QXFileDetermineName("a\\b\\c.txt") == "c.txt", "backslashes");
  Check(QXFile("/hosts").AbsPath() == "//hosts", "root joins as //");

  // Sanitisers for text typed by users.
  Check(QXProcessFileName("  a;b|c more") == "abc", "file name sanitiser");
  Check(QXProcessSystemCommand("  rm -rf x; echo") == "rm-rfxecho",
        "command sanitiser");

  // Clean up: a directory must be empty before it goes.
  Check(!QXFileDelete(dir), "a non-empty directory stays");
  Check(QXFileDelete(dir + "/empty") && QXFileDelete(dir + "/renamed.txt") &&
            QXUnlinkDirectory((dir + "/sub").c_str()) &&
            QXUnlinkDirectory(dir.c_str()),
        "clean up");

  if (failures != 0) {
    return 1;
  }
  qxout << "files: all checks passed" << qxendl;
  return 0;
}
