// info: the facts the library knows about this host, machine, user and
// process, one "field: value" line each.

#include <stdio.h>

#include <string>

#include <QXPlatform/QXPlatform.h>

#include "commands.h"

namespace qxtool {
namespace {

using QXPlatform::qxendl;
using QXPlatform::qxout;

void PrintHelp(FILE* to) {
  fputs(
      "usage: qxplatform info\n"
      "\n"
      "Prints host name, domain, IPv4 address, host identifier, processors,\n"
      "platform, processor, user, home, application-data and documents\n"
      "directories, temporary directory, working directory, memory use,\n"
      "release and current time.\n",
      to);
}

void Field(const char* name, const std::string& value) {
  std::string label = std::string(name) + ":";
  label.resize(22, ' ');
  qxout << label << (value.empty() ? "(none)" : value) << "\n";
}

std::string Text(const char* value) { return value ? value : ""; }

std::string Address(const unsigned char* bytes) {
  if (bytes == nullptr) {
    return std::string();
  }
  char text[32];
  snprintf(text, sizeof text, "%u.%u.%u.%u", bytes[0], bytes[1], bytes[2],
           bytes[3]);
  return text;
}

std::string Hex(long value) {
  char text[32];
  snprintf(text, sizeof text, "0x%08lx", static_cast<unsigned long>(value));
  return text;
}

std::string MemoryUse() {
  unsigned long virtualBytes = 0;
  unsigned long residentBytes = 0;
  if (QXPlatform::QXGetProcessMemUsage(virtualBytes, residentBytes) != 0) {
    return std::string();
  }
  return "virtual " + std::to_string(virtualBytes) + " bytes, resident " +
         std::to_string(residentBytes) + " bytes";
}

std::string WithoutNewline(std::string text) {
  while (!text.empty() && text.back() == '\n') {
    text.pop_back();
  }
  return text;
}

}  // namespace

int RunInfo(int argc, char** argv) {
  if (WantsHelp(argc, argv)) {
    PrintHelp(stdout);
    return kExitOk;
  }
  if (argc > 1) {
    return UsageError("info", "takes no arguments", PrintHelp);
  }
  using namespace QXPlatform;
  Field("host name", Text(QXGetHostName()));
  Field("domain", Text(QXGetDomainName()));
  Field("IPv4 address", Address(QXGetIPAddress()));
  Field("host identifier", Hex(QXGetHostIdent()));
  Field("processors", std::to_string(QXGetNumProcessors()));
  Field("platform", QXGetPlatformInfo());
  Field("processor", QXGetProcessorInfo());
  Field("user", QXGetUserName());
  Field("home", QXGetUserHomeDir());
  Field("application data", QXGetUserAppDataDir());
  Field("documents", QXGetUserDocumentsDir());
  Field("temporary directory", QXFileTempPath());
  Field("working directory", QXGetCurrentWorkingDirectory());
  Field("memory use", MemoryUse());
  Field("release", QXToolkitsGetRelease());
  Field("current time", WithoutNewline(QXCurrentTime()));
  if (!qxout.flush()) {
    Complain("info", "standard output", "write failed");
    return kExitFailure;
  }
  return kExitOk;
}

}  // namespace qxtool
