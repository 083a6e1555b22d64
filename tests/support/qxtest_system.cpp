#include "support/qxtest_system.h"

#include <stdlib.h>
#include <sys/mount.h>
#include <unistd.h>

#include <string>

namespace QXPlatform {
namespace testing {
namespace {

std::string LinkTarget(const char* path) {
  char target[256];
  ssize_t n = readlink(path, target, sizeof(target) - 1);
  if (n < 0) {
    return std::string();
  }
  return std::string(target, static_cast<size_t>(n));
}

}  // namespace

std::string NamespaceMismatch(const std::string& setup) {
  const char* current = getenv("QXTEST_NAMESPACE");
  if (current == nullptr || setup != current) {
    return "needs the namespace setup \"" + setup +
           "\"; run it through ctest (tests/system/run_in_namespace.sh)";
  }
  std::string own = LinkTarget("/proc/self/ns/mnt");
  if (own.empty() || own == LinkTarget("/proc/1/ns/mnt")) {
    return "the mount namespace is the one of process 1; refusing to mount";
  }
  return std::string();
}

ScopedTmpfs::ScopedTmpfs(const std::string& target)
    : _target(target),
      _ok(mount("tmpfs", target.c_str(), "tmpfs", 0, "size=4m") == 0) {}

ScopedTmpfs::~ScopedTmpfs() {
  if (_ok) {
    umount2(_target.c_str(), MNT_DETACH);
  }
}

ScopedBind::ScopedBind(const std::string& source, const std::string& target)
    : _target(target),
      _ok(mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) ==
          0) {}

ScopedBind::~ScopedBind() {
  if (_ok) {
    umount2(_target.c_str(), MNT_DETACH);
  }
}

std::string DottedQuad(const unsigned char* address) {
  if (address == nullptr) {
    return "null";
  }
  return std::to_string(address[0]) + "." + std::to_string(address[1]) + "." +
         std::to_string(address[2]) + "." + std::to_string(address[3]);
}

}  // namespace testing
}  // namespace QXPlatform
