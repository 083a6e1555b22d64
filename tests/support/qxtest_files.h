#pragma once

// Helpers for tests that change process-wide state the file functions read:
// the working directory and environment variables. Each restores what it
// changed when it goes away.

#include <string>

namespace QXPlatform {
namespace testing {

// Changes the working directory to path and changes back on destruction.
// ok() says whether the change happened.
class ScopedWorkingDirectory {
 public:
  explicit ScopedWorkingDirectory(const std::string& path);
  ~ScopedWorkingDirectory();
  ScopedWorkingDirectory(const ScopedWorkingDirectory&) = delete;
  ScopedWorkingDirectory& operator=(const ScopedWorkingDirectory&) = delete;

  bool ok() const { return _ok; }

 private:
  int _saved;
  bool _ok;
};

// Sets (or, with a null value, unsets) an environment variable and puts the
// old value back on destruction.
class ScopedEnvironment {
 public:
  ScopedEnvironment(const std::string& name, const char* value);
  ~ScopedEnvironment();
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  std::string _name;
  std::string _old;
  bool _hadOld;
};

// The permission bits (mode & 07777) of path as lstat sees them; -1 when it
// cannot be examined.
int PermissionBits(const std::string& path);

// True when the process may ignore file permissions (running as root).
bool RunningAsRoot();

}  // namespace testing
}  // namespace QXPlatform
