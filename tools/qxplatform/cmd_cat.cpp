// cat: copies named files (or standard input) to standard output.

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include <QXPlatform/QXPlatform.h>

#include "commands.h"

namespace qxtool {
namespace {

using QXPlatform::qxistream;
using QXPlatform::qxout;

// Copies in to qxout with a read/write loop; false when the output failed.
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

void PrintCatHelp() {
  fputs(
      "usage: qxplatform cat [NAME...]\n"
      "\n"
      "Copies each NAME to standard output; no NAME or '-' reads standard input.\n",
      stdout);
}

int RunCat(int argc, char** argv) {
  int status = kExitOk;
  bool any = false;
  for (int i = 1; i < argc; ++i) {
    std::string name = argv[i];
    if (name == "--help" || name == "-h") {
      PrintCatHelp();
      return kExitOk;
    }
  }
  for (int i = 1; i < argc; ++i) {
    std::string name = argv[i];
    any = true;
    if (name == "-") {
      if (!CopyToOutput(QXPlatform::qxin)) {
        fprintf(stderr, "qxplatform cat: cannot write standard output\n");
        return kExitFailure;
      }
      continue;
    }
    QXPlatform::qxifstream in(name.c_str());
    if (in.eof()) {
      fprintf(stderr, "qxplatform cat: %s: %s\n", name.c_str(), strerror(errno));
      status = kExitFailure;
      continue;
    }
    if (!CopyToOutput(in)) {
      fprintf(stderr, "qxplatform cat: cannot write standard output\n");
      return kExitFailure;
    }
  }
  if (!any && !CopyToOutput(QXPlatform::qxin)) {
    fprintf(stderr, "qxplatform cat: cannot write standard output\n");
    return kExitFailure;
  }
  if (!qxout.flush()) {
    fprintf(stderr, "qxplatform cat: cannot write standard output\n");
    return kExitFailure;
  }
  return status;
}

}  // namespace qxtool
