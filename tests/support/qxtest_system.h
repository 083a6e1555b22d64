#pragma once

// Helpers for tests that change what the machine looks like: they run inside
// private UTS, network and mount namespaces made by
// tests/system/run_in_namespace.sh, and change mounts there.

#include <string>

namespace QXPlatform {
namespace testing {

// Empty when the process runs in the namespaces the script prepared with the
// named setup (and its mount namespace is not the one of process 1);
// otherwise the reason why not, for GTEST_SKIP.
std::string NamespaceMismatch(const std::string& setup);

// Mounts a fresh tmpfs on target until the object goes away.
class ScopedTmpfs {
 public:
  explicit ScopedTmpfs(const std::string& target);
  ~ScopedTmpfs();
  ScopedTmpfs(const ScopedTmpfs&) = delete;
  ScopedTmpfs& operator=(const ScopedTmpfs&) = delete;
  bool ok() const { return _ok; }

 private:
  std::string _target;
  bool _ok;
};

// Bind-mounts source over target until the object goes away.
class ScopedBind {
 public:
  ScopedBind(const std::string& source, const std::string& target);
  ~ScopedBind();
  ScopedBind(const ScopedBind&) = delete;
  ScopedBind& operator=(const ScopedBind&) = delete;
  bool ok() const { return _ok; }

 private:
  std::string _target;
  bool _ok;
};

// "a.b.c.d" for four address bytes; "null" for a null pointer.
std::string DottedQuad(const unsigned char* address);

}  // namespace testing
}  // namespace QXPlatform
