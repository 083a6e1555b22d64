#include "qxmachine.h"

#include <errno.h>
#include <pwd.h>
#include <stdlib.h>
#include <string.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "../files/qxfilesystem.h"
#include "../streams/qxfstream.h"

namespace QXPlatform {
namespace {

const char kCpuInfo[] = "/proc/cpuinfo";
const char kLsbRelease[] = "/etc/lsb-release";
const char kProcessorPrefix[] = "processor";
const size_t kProcessorPrefixLength = sizeof(kProcessorPrefix) - 1;
const char kDescriptionKey[] = "DISTRIB_DESCRIPTION=";
const size_t kDescriptionKeyLength = sizeof(kDescriptionKey) - 1;
const size_t kFirstPasswdBuffer = 1024;
const size_t kMaxPasswdBuffer = 1 << 20;

// Zeroed first, so that a failing call reads as empty fields.
struct utsname SystemNames() {
  struct utsname names;
  memset(&names, 0, sizeof(names));
  uname(&names);
  return names;
}

int CountProcessorLines() {
  if (!QXFileExists(kCpuInfo)) {
    return 0;
  }
  qxifstream in(kCpuInfo);
  int count = 0;
  std::string line;
  while (in.getline(line)) {
    if (line.compare(0, kProcessorPrefixLength, kProcessorPrefix) == 0) {
      ++count;
    }
  }
  in.close();
  return count;
}

std::string HomeSubdirectory(const char* name) {
  std::string home = QXGetUserHomeDir();
  if (home.empty()) {
    return home;
  }
  std::string candidate = home + "/" + name;
  // Deliberate: anything of that name will do, a plain file included.
  return QXFileExists(candidate) ? candidate : home;
}

}  // namespace

int QXGetNumProcessors() {
  // Deliberate: only 0 moves on to the next source, so an error result of
  // -1 is handed back as it is.
  long online = sysconf(_SC_NPROCESSORS_ONLN);
  if (online != 0) {
    return static_cast<int>(online);
  }
  long configured = sysconf(_SC_NPROCESSORS_CONF);
  if (configured != 0) {
    return static_cast<int>(configured);
  }
  return CountProcessorLines();
}

std::string QXGetPlatformInfo() {
  struct utsname names = SystemNames();
  std::string description = names.sysname;
  if (QXFileIsReadable(kLsbRelease)) {
    qxifstream in(kLsbRelease);
    std::string line;
    while (in.getline(line)) {
      if (line.size() > kDescriptionKeyLength &&
          line.compare(0, kDescriptionKeyLength, kDescriptionKey) == 0) {
        // Deliberate: the value is taken verbatim, quotation marks and all.
        description = line.substr(kDescriptionKeyLength);
      }
    }
    in.close();
  }
  if (names.release[0] != '\0') {
    description += " (";
    description += names.release;
    description += ")";
  }
  return description;
}

std::string QXGetProcessorInfo() { return SystemNames().machine; }

std::string QXGetMachineName() { return std::string(); }

std::string QXGetUserName() {
  // The reentrant lookup gives the same answer without sharing the C
  // library's static record with other threads.
  uid_t uid = getuid();
  std::vector<char> buffer(kFirstPasswdBuffer);
  for (;;) {
    struct passwd entry;
    struct passwd* found = nullptr;
    int error = getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found);
    if (error == ERANGE && buffer.size() < kMaxPasswdBuffer) {
      buffer.resize(buffer.size() * 2);
      continue;
    }
    if (error != 0 || found == nullptr || found->pw_name == nullptr) {
      return std::string();
    }
    return found->pw_name;
  }
}

std::string QXGetUserHomeDir() {
  const char* home = getenv("HOME");
  if (home == nullptr || home[0] == '\0' || !QXFileIsDirectory(home)) {
    return std::string();
  }
  return home;
}

std::string QXGetUserAppDataDir() { return HomeSubdirectory("Library"); }

std::string QXGetUserDocumentsDir() { return HomeSubdirectory("Documents"); }

}  // namespace QXPlatform
