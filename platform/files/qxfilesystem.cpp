#include "qxfilesystem.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "../streams/qxstdstream_private.h"

namespace QXPlatform {
namespace {

const char kTempTemplate[] = "QX_XXXXXX";

const char* const kRandomNameWarning[] = {
    "QXFileRandomName is deprecated as of QXCore 1.9.1 (2013.Feb):",
    "  Use QXFileTempDescriptor or QXFileTempDirectory instead to avoid",
    "  race conditions and security vulnerabilities.",
};

// The temporary directory of the process, chosen once when first needed.
class GetTempPath {
 public:
  GetTempPath() {
    const char* fromEnvironment = ::getenv("TMPDIR");
    // Only existence is checked, and the value is kept exactly as given,
    // trailing separator included.
    if (fromEnvironment != nullptr && QXFileExists(fromEnvironment)) {
      _path = fromEnvironment;
    } else if (QXFileExists("/tmp")) {
      _path = "/tmp";
    }
  }

  const std::string& path() const { return _path; }

 private:
  std::string _path;
};

const GetTempPath& TempPath() {
  static const GetTempPath tempPath;
  return tempPath;
}

// A writable, NUL-terminated copy for mkstemp and mkdtemp to fill in.
std::vector<char> WritableCopy(const std::string& text) {
  std::vector<char> buffer(text.begin(), text.end());
  buffer.push_back('\0');
  return buffer;
}

int OpenRetryingOnInterrupt(const char* path, int flags, mode_t mode) {
  int fd;
  do {
    fd = ::open(path, flags, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

}  // namespace

bool QXFileExists(const std::string& path) { return QXFile(path).Exists(); }

bool QXFileIsDirectory(const std::string& path) {
  return QXFile(path).IsDirectory();
}

bool QXFileIsFile(const std::string& path) { return QXFile(path).IsFile(); }

bool QXFileIsLink(const std::string& path) { return QXFile(path).IsLink(); }

bool QXFileIsNamedPipe(const std::string& path) {
  return QXFile(path).IsNamedPipe();
}

bool QXFileIsReadable(const std::string& path) {
  return QXFile(path).IsReadable();
}

bool QXFileIsWritable(const std::string& path) {
  return QXFile(path).IsWritable();
}

int64_t QXFileSize(const std::string& path) { return QXFile(path).Size(); }

bool QXUnlink(const char* path) { return ::unlink(path) == 0; }

bool QXRenameFile(const char* from, const char* to) {
  return ::rename(from, to) == 0;
}

bool QXCreateDirectory(const char* path) { return ::mkdir(path, 0755) == 0; }

bool QXUnlinkDirectory(const char* path) { return ::rmdir(path) == 0; }

bool QXFileDelete(const std::string& path) {
  return ::remove(path.c_str()) == 0;
}

bool QXFileDelete(QXFile& file) {
  if (::remove(file.AbsPath().c_str()) != 0) {
    return false;
  }
  file.Refresh();
  return true;
}

QXFile QXFileCreate(const std::string& path, int mode) {
  QXFile file(path);
  if (file.Exists()) {
    return file;
  }
  // Deliberate: the file is made exclusively and a symbolic link in its
  // place is not followed, since one planted between the check above and the
  // open would have had its target truncated.
  int fd = OpenRetryingOnInterrupt(
      file.AbsPath().c_str(),
      O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
      static_cast<mode_t>(mode & 0xFFFF));
  if (fd < 0) {
    // Something appeared under the name after the check: it exists, and is
    // left as it is.
    if (errno == EEXIST) {
      file.Refresh();
    }
    return file;
  }
  file.Refresh();
  if (fd > 2) {
    ::close(fd);
  }
  return file;
}

std::string QXFileTempPath() { return TempPath().path(); }

int QXFileTempDescriptor(std::string& name) {
  // Deliberate: the separator is always inserted, even after a temporary
  // directory that already ends with one.
  std::vector<char> buffer =
      WritableCopy(TempPath().path() + "/" + kTempTemplate);
  // Deliberate: the descriptor is closed on exec, so that children do not
  // inherit it.
  int fd = ::mkostemp(buffer.data(), O_CLOEXEC);
  if (fd == -1) {
    ::perror("mkstemp failed");
  }
  name = buffer.data();
  return fd;
}

std::string QXFileTempDirectory(const std::string& dir) {
  std::string base = dir.empty() ? TempPath().path() : dir;
  // Deliberate: unlike the file variant, a separator is added only when the
  // base does not already end with one, and never to an empty base.
  if (!base.empty() && base.back() != '/') {
    base += '/';
  }
  std::vector<char> buffer = WritableCopy(base + kTempTemplate);
  if (::mkdtemp(buffer.data()) == nullptr) {
    ::perror("mkdtemp failed");
    return std::string();
  }
  return std::string(buffer.data());
}

std::string QXFileRandomName() {
  static std::atomic<bool> haveWarned(false);
  if (!haveWarned.exchange(true)) {
    std::string warning;
    for (const char* line : kRandomNameWarning) {
      warning += line;
      warning += '\n';
    }
    QXWriteDiagnostic(warning);
  }
  int32_t seconds = static_cast<int32_t>(::time(nullptr));
  int r = ::rand() % 100;
  char text[32];
  ::snprintf(text, sizeof text, "%d%d", static_cast<int>(seconds), r);
  return std::string(text);
}

}  // namespace QXPlatform
