// versions: the version report of every registered component, the tool's
// own included.

#include <stdio.h>

#include <QXPlatform/QXPlatform.h>

#include "commands.h"

#ifndef QXPLATFORM_TOOL_BUILD_ID
#define QXPLATFORM_TOOL_BUILD_ID ""
#endif

namespace qxtool {
namespace {

void PrintHelp(FILE* to) {
  fputs(
      "usage: qxplatform versions\n"
      "\n"
      "Prints the version report: the build identification when one was given\n"
      "at build time, then one section per group of registered components.\n",
      to);
}

QXPlatform::QXVersion ToolVersion() {
  return QXPlatform::QXVersion("QXPlatform", "qxplatform tool",
                               QXPlatform::QXToolkitsGetRelease());
}

QXPlatform::QXVersion LibraryVersion() {
  return QXPlatform::QXVersion("QXPlatform", "libQXPlatform",
                               QXPlatform::QXToolkitsGetRelease());
}

}  // namespace

int RunVersions(int argc, char** argv) {
  if (WantsHelp(argc, argv)) {
    PrintHelp(stdout);
    return kExitOk;
  }
  if (argc > 1) {
    return UsageError("versions", "takes no arguments", PrintHelp);
  }
  static const char kBuildId[] = QXPLATFORM_TOOL_BUILD_ID;
  if (kBuildId[0] != '\0') {
    QXPlatform::BUILD_ID = kBuildId;
  }
  QXPlatform::QXRegisterVersion(ToolVersion);
  QXPlatform::QXRegisterVersion(LibraryVersion);
  QXPlatform::QXGetVersions(QXPlatform::qxout);
  if (!QXPlatform::qxout.flush()) {
    Complain("versions", "standard output", "write failed");
    return kExitFailure;
  }
  return kExitOk;
}

}  // namespace qxtool
