// Helpers shared by the subcommands.

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "commands.h"

namespace qxtool {

void Complain(const char* command, const std::string& what,
              const std::string& reason) {
  fprintf(stderr, "qxplatform %s: %s: %s\n", command, what.c_str(),
          reason.c_str());
}

int UsageError(const char* command, const std::string& problem,
               void (*help)(FILE*)) {
  fprintf(stderr, "qxplatform %s: %s\n", command, problem.c_str());
  if (help != nullptr) {
    help(stderr);
  }
  return kExitUsage;
}

bool WantsHelp(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      return true;
    }
  }
  return false;
}

std::string WhyUnreadable(const std::string& name) {
  struct stat st;
  if (stat(name.c_str(), &st) != 0) {
    return strerror(errno);
  }
  if (S_ISDIR(st.st_mode)) {
    return strerror(EISDIR);
  }
  int fd = open(name.c_str(), O_RDONLY);
  if (fd < 0) {
    return strerror(errno);
  }
  close(fd);
  return "cannot be opened";
}

std::string WhyFailed(const QXPlatform::qxstream& s, int fallback) {
  if (s.error() != 0) {
    return s.errortext();
  }
  return strerror(fallback);
}

std::string Shown(const std::string& name, const char* standard) {
  return name == "-" ? standard : name;
}

std::string WhyUnwritable(const std::string& name) {
  int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
  if (fd < 0) {
    return strerror(errno);
  }
  close(fd);
  return "cannot be opened for writing";
}

}  // namespace qxtool
