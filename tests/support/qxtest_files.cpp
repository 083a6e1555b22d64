#include "support/qxtest_files.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>

namespace QXPlatform {
namespace testing {

ScopedWorkingDirectory::ScopedWorkingDirectory(const std::string& path)
    : _saved(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)), _ok(false) {
  if (_saved < 0) {
    throw std::runtime_error("cannot remember the working directory");
  }
  _ok = chdir(path.c_str()) == 0;
}

ScopedWorkingDirectory::~ScopedWorkingDirectory() {
  if (fchdir(_saved) != 0) {
    abort();
  }
  close(_saved);
}

ScopedEnvironment::ScopedEnvironment(const std::string& name, const char* value)
    : _name(name), _hadOld(false) {
  if (const char* old = getenv(name.c_str())) {
    _old = old;
    _hadOld = true;
  }
  if (value != nullptr) {
    setenv(name.c_str(), value, 1);
  } else {
    unsetenv(name.c_str());
  }
}

ScopedEnvironment::~ScopedEnvironment() {
  if (_hadOld) {
    setenv(_name.c_str(), _old.c_str(), 1);
  } else {
    unsetenv(_name.c_str());
  }
}

int PermissionBits(const std::string& path) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0) {
    return -1;
  }
  return static_cast<int>(st.st_mode & 07777);
}

bool RunningAsRoot() { return geteuid() == 0; }

}  // namespace testing
}  // namespace QXPlatform
