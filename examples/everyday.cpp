// What a new user reaches for first: stream handles that close themselves,
// one word at a time, numbers that read back exactly, the widest integers.

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

  Check(QXFileDelete(path) && QXUnlinkDirectory(dir.c_str()), "clean up");
  if (failures != 0) {
    return 1;
  }
  qxout << "everyday: all checks passed" << qxendl;
  return 0;
}
