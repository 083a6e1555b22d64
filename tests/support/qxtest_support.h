#pragma once

// Helpers shared by the tests: scratch directories, capture of what a
// descriptor receives, and an input back-end that delivers chosen spans.

#include <stdlib.h>
#include <string.h>

#include <functional>
#include <string>
#include <vector>

#include <QXPlatform/streams/qxstream.h>

namespace QXPlatform {
namespace testing {

// True in a build with AddressSanitizer, whose quarantine keeps freed
// addresses unused for a while. Inline, so that it answers for the test's
// own build.
inline bool UnderAddressSanitizer() {
#if defined(__SANITIZE_ADDRESS__)
  return true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
  return true;
#else
  return false;
#endif
#else
  return false;
#endif
}

// True when the test runs under valgrind, whose allocator, like the
// sanitizers' quarantine, keeps freed addresses unused for a while: it
// preloads its own libraries into the process.
inline bool UnderValgrind() {
  const char* preload = getenv("LD_PRELOAD");
  return preload != nullptr && strstr(preload, "vgpreload") != nullptr;
}

// True when freed addresses are handed out again at once, as glibc does; not
// under AddressSanitizer or valgrind.
inline bool FreedAddressesAreReused() {
  return !UnderAddressSanitizer() && !UnderValgrind();
}

// True in a build with AddressSanitizer or ThreadSanitizer, whose allocators
// bypass mallinfo2 and whose shadow memory inflates the resident size.
inline bool UnderAllocatingSanitizer() {
#if defined(__SANITIZE_THREAD__)
  return true;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
  return true;
#else
  return UnderAddressSanitizer();
#endif
#else
  return UnderAddressSanitizer();
#endif
}

// A fresh directory under $TMPDIR (or /tmp), removed with its contents when
// the object goes away.
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  const std::string& path() const { return _path; }
  // path() + "/" + name.
  std::string File(const std::string& name) const;

 private:
  std::string _path;
};

// Removes a directory tree; errors are ignored.
void RemoveTree(const std::string& path);
// Writes bytes to a file, replacing it.
void WriteFile(const std::string& path, const std::string& bytes);
// The whole content of a file; empty when it cannot be read.
std::string ReadFile(const std::string& path);
// Runs a shell command; returns its exit status and, when out is given, its
// standard output.
int RunCommand(const std::string& command, std::string* out = nullptr);
// Standard output of command; the test fails when it exits non-zero.
std::string Shell(const std::string& command);
// Deterministic pseudo-random bytes.
std::string RandomBytes(size_t n, unsigned seed);

// Sends what is written to descriptor fd into a file until Finish, which
// returns it and puts the descriptor back. Flush C and C++ buffers of the
// descriptor yourself before Finish.
class CaptureFd {
 public:
  explicit CaptureFd(int fd);
  ~CaptureFd();
  std::string Finish();

 private:
  int _fd;
  int _saved;
  std::string _file;
  bool _done;
};

// An input back-end that hands out its bytes in spans of the given lengths
// (cycling through the list; a length of 0 is treated as 1) and counts how
// often it was asked for more.
class SpanStream : public qxistream {
 public:
  SpanStream(std::string data, std::vector<size_t> spans);
  int fills() const { return _fills; }

 protected:
  bool _qxfill() override;

 private:
  std::string _data;
  std::vector<size_t> _spans;
  size_t _next;
  size_t _pos;
  int _fills;
};

}  // namespace testing
}  // namespace QXPlatform
