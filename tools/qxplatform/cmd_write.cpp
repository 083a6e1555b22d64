// write: copies standard input to a stream opened by name; ".gz" anywhere in
// the name or a ".zst" ending compresses.

#include <errno.h>
#include <string.h>

#include <string>

#include <QXPlatform/QXPlatform.h>

#include "commands.h"

namespace qxtool {
namespace {

void PrintHelp(FILE* to) {
  fputs(
      "usage: qxplatform write NAME\n"
      "\n"
      "Copies standard input to NAME, opened by name; a NAME containing \".gz\"\n"
      "is written as gzip data, a NAME ending in \".zst\" as zstd data.\n",
      to);
}

}  // namespace

int RunWrite(int argc, char** argv) {
  if (WantsHelp(argc, argv)) {
    PrintHelp(stdout);
    return kExitOk;
  }
  if (argc != 2) {
    return UsageError("write", argc < 2 ? "missing NAME" : "too many arguments",
                      PrintHelp);
  }
  std::string name = argv[1];
  if (name.empty()) {
    return UsageError("write", "NAME must not be empty", PrintHelp);
  }
  QXPlatform::qxostream* out = QXPlatform::QXOpenOStream(name.c_str());
  if (out == nullptr) {
    Complain("write", name, WhyUnwritable(name));
    return kExitFailure;
  }
  // A read/write loop rather than out << in: a gzip stream may raise its fail
  // flag after a pass that fills its output block exactly while it still
  // takes data, and the stream-to-stream copy would stop there.
  char chunk[65536];
  bool ok = true;
  for (;;) {
    unsigned long got = QXPlatform::qxin.read(chunk, sizeof chunk);
    if (got == 0) {
      break;
    }
    if (out->write(chunk, got) != got) {
      ok = false;
      break;
    }
  }
  // A flush would end a block of compressed data early; the checked close
  // below finishes them.
  bool packed = name.find(".gz") != std::string::npos ||
                (name.size() >= 4 && name.compare(name.size() - 4, 4, ".zst") == 0);
  if (ok && !packed) {
    ok = out->flush();
  }
  // The last block, the gzip trailer and closing the file may still fail;
  // the checked close is the last chance to hear of it.
  int failure = QXPlatform::QXCloseOStreamChecked(out);
  if (!ok || failure != 0) {
    Complain("write", name, strerror(failure != 0 ? failure : EIO));
    return kExitFailure;
  }
  if (QXPlatform::qxin.error() != 0) {
    Complain("write", "standard input", QXPlatform::qxin.errortext());
    return kExitFailure;
  }
  return kExitOk;
}

}  // namespace qxtool
