// What a new user reaches for first: stream handles that close themselves,
// one word at a time, numbers that read back exactly, the widest integers,
// paths, directory walks and functions on threads.

#include <string.h>

#include <string>

#include <QXPlatform/QXPlatform.h>

using namespace QXPlatform;

namespace {

int failures = 0;

void Check(bool ok, const char* what) {
  if (!ok) {
    qxerr << "everyday: failed: " << what << qxendl;
    ++failures;
  }
}

}  // namespace

int main() {
  std::string dir = QXFileTempDirectory("");
  Check(!dir.empty(), "temporary directory");
  std::string path = dir + "/numbers.txt";

  // A handle closes its stream (flushing it) when it goes out of scope.
  {
    QXOStreamHandle out = QXOpenOStreamHandle(path.c_str());
    Check(out != nullptr, "opened for writing");
    *out << "  pi " << qxexact(3.141592653589793) << " third "
         << qxexact(1.0f / 3) << " big " << 12345678901234567LL << '\n';
  }

  // qxword skips whitespace and reads one word; empty at the end.
  QXIStreamHandle in = QXOpenIStreamHandle(path.c_str());
  Check(in != nullptr, "opened for reading");
  std::string name;
  double pi = 0;
  float third = 0;
  long long big = 0;
  *in >> qxword(name);
  Check(name == "pi", "first word");
  // The word leaves its blank unread, and a number reads from here on.
  char blank = 0;
  *in >> blank >> pi >> qxword(name) >> blank >> third;
  Check(pi == 3.141592653589793 && third == 1.0f / 3, "exact round trip");
  *in >> qxword(name) >> blank >> big;
  Check(name == "big" && big == 12345678901234567LL, "long long");
  *in >> qxword(name);
  Check(name.empty(), "no word at the end");
  in.reset();

  // QXPathJoin keeps the root and never doubles a separator.
  Check(QXPathJoin("/", "usr") == "/usr", "root kept");
  Check(QXPathJoin(dir + "/", "/sub") == dir + "/sub", "one separator");

  // A walk over the tree: each entry's type comes from the directory
  // itself; the visitor may skip a subtree or stop, and errors arrive as
  // reports (error != 0) while the walk goes on.
  QXCreateDirectory(QXPathJoin(dir, "sub").c_str());
  QXCreateDirectory(QXPathJoin(dir, "sub/skipped").c_str());
  int files = 0;
  int directories = 0;
  bool whole = QXWalkDirectory(
      dir,
      [&](const QXWalkEntry& entry) {
        if (entry.error != 0) {
          qxerr << entry.path << ": " << strerror(entry.error) << qxendl;
          return QXWalkAction::kContinue;
        }
        files += entry.type == QXEntryType::kFile;
        directories += entry.type == QXEntryType::kDirectory;
        return std::string(entry.name) == "sub" ? QXWalkAction::kSkip
                                                : QXWalkAction::kContinue;
      },
      QXWalkOptions());
  Check(whole && files == 1 && directories == 1, "walk");

  // A function on a thread of its own; the handle waits for it when it goes
  // (or on Join). A Java VM handed over with QXSetJavaVM is attached.
  long long sum = 0;
  {
    QXThreadHandle worker = QXRunThread([&sum] {
      for (int i = 1; i <= 100; ++i) {
        sum += i;
      }
    });
  }
  Check(sum == 5050, "thread function");

  // A timed wait: false when the time ran out.
  QXCondition condition;
  condition.Acquire();
  Check(!condition.Wait(10ul), "timed out");
  condition.Release();

  Check(QXUnlinkDirectory(QXPathJoin(dir, "sub/skipped").c_str()) &&
            QXUnlinkDirectory(QXPathJoin(dir, "sub").c_str()),
        "clean up the tree");
  Check(QXFileDelete(path) && QXUnlinkDirectory(dir.c_str()), "clean up");
  if (failures != 0) {
    return 1;
  }
  qxout << "everyday: all checks passed" << qxendl;
  return 0;
}
