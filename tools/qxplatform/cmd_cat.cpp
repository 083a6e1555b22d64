// cat: opens each name through the stream manager (so gzip and zstd input
// are unpacked by their content) and copies it to standard output.

#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include <QXPlatform/QXPlatform.h>

#include "commands.h"

namespace qxtool {
namespace {

using QXPlatform::qxistream;
using QXPlatform::qxout;

void PrintHelp(FILE* to) {
  fputs(
      "usage: qxplatform cat [NAME...]\n"
      "\n"
      "Opens each NAME by name (a file path, or a registered prefix) and copies\n"
      "it to standard output; gzip and zstd data are recognised by their\n"
      "content and unpacked. No NAME, or '-', reads standard input.\n",
      to);
}

// Copies in to qxout with read/write; false when standard output failed.
bool CopyToOutput(qxistream& in) {
  char chunk[65536];
  for (;;) {
    unsigned long got = in.read(chunk, sizeof chunk);
    if (got == 0) {
      return true;
    }
    if (qxout.write(chunk, got) != got) {
      return false;
    }
  }
}

}  // namespace

int RunCat(int argc, char** argv) {
  if (WantsHelp(argc, argv)) {
    PrintHelp(stdout);
    return kExitOk;
  }
  std::vector<std::string> names;
  for (int i = 1; i < argc; ++i) {
    names.push_back(argv[i]);
  }
  if (names.empty()) {
    names.push_back("-");
  }
  int status = kExitOk;
  for (const std::string& name : names) {
    // A directory opens as a file on this system and reads as empty; say so
    // instead of printing nothing.
    struct stat st;
    if (name != "-" && stat(name.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
      Complain("cat", name, strerror(EISDIR));
      status = kExitFailure;
      continue;
    }
    const char* managerName = name == "-" ? "" : name.c_str();
    qxistream* in = QXPlatform::QXOpenIStream(managerName);
    if (in == nullptr) {
      Complain("cat", name, WhyUnreadable(name));
      status = kExitFailure;
      continue;
    }
    bool ok = CopyToOutput(*in);
    // Damaged or unreadable input ends like the end of the data; the status
    // tells them apart. The text is taken before the stream is gone.
    std::string why = WhyFailed(*in, EIO);
    int failure = QXPlatform::QXCloseIStreamChecked(in);
    if (!ok) {
      Complain("cat", "standard output", WhyFailed(qxout, EIO));
      return kExitFailure;
    }
    if (failure != 0) {
      Complain("cat", Shown(name, "standard input"), why);
      status = kExitFailure;
    }
  }
  if (!qxout.flush()) {
    Complain("cat", "standard output", WhyFailed(qxout, EIO));
    return kExitFailure;
  }
  return status;
}

}  // namespace qxtool
