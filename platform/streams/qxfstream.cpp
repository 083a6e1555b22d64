#include "qxfstream.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "qxstdstream.h"
#include "qxstdstream_private.h"

namespace QXPlatform {
namespace {

// Deliberate: every descriptor opened here is closed on exec (O_CLOEXEC),
// so that child processes do not inherit the library's files.

// A signal may interrupt read(); only a real error or the end stops it.
long ReadRetryingOnInterrupt(int fd, char* into, unsigned long size) {
  long got;
  do {
    got = ::read(fd, into, size);
  } while (got < 0 && errno == EINTR);
  return got;
}

long WriteRetryingOnInterrupt(int fd, const char* from, unsigned long size) {
  long put;
  do {
    put = ::write(fd, from, size);
  } while (put < 0 && errno == EINTR);
  return put;
}

// Why a write(2) stored fewer bytes than asked without an errno. The rest of
// the block is not retried (that would change what reaches the file), so
// the cause is read off the descriptor instead: a pipe or socket whose
// reader has gone, a file at the size limit of the process, a full device.
int ShortWriteCause(int fd) {
  struct stat st;
  if (fstat(fd, &st) != 0) {
    return EIO;
  }
  if (S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode)) {
    struct pollfd p = {fd, POLLOUT, 0};
    if (poll(&p, 1, 0) == 1 && (p.revents & (POLLERR | POLLHUP)) != 0) {
      return EPIPE;
    }
    return EIO;
  }
  if (!S_ISREG(st.st_mode) && !S_ISBLK(st.st_mode)) {
    return EIO;
  }
  struct rlimit limit;
  off_t at = lseek(fd, 0, SEEK_CUR);
  if (S_ISREG(st.st_mode) && at != -1 &&
      getrlimit(RLIMIT_FSIZE, &limit) == 0 &&
      limit.rlim_cur != RLIM_INFINITY &&
      static_cast<unsigned long long>(at) >= limit.rlim_cur) {
    return EFBIG;
  }
  struct statvfs device;
  if (fstatvfs(fd, &device) == 0 && device.f_bavail == 0) {
    return ENOSPC;
  }
  return EIO;
}

}  // namespace

// ---------------------------------------------------------------------------
// Reading

qxifstream::qxifstream() : fd(-1) {}

qxifstream::qxifstream(const char* name) : fd(-1) { open(name); }

qxifstream::qxifstream(int newFd) : fd(-1) { openfd(newFd, false); }

qxifstream::~qxifstream() { close(); }

void qxifstream::_qxclear() {}

bool qxifstream::_qxopen(const char* name) {
  if (name == nullptr) {
    fd = -1;
    return false;
  }
  fd = ::open(name, O_RDONLY | O_CLOEXEC);
  if (fd == -1) {
    SetError(errno);
  }
  return fd != -1;
}

bool qxifstream::_qxclose() {
  // Standard input is never closed, and refuses to be.
  if (fd == 0) {
    return false;
  }
  if (fd >= 3) {
    ::close(fd);
  }
  fd = -1;
  _eof = true;
  return true;
}

bool qxifstream::_qxfill() {
  if (fd == -1) {
    return false;
  }
  long n = ReadRetryingOnInterrupt(fd, _buffer, kBlockSize);
  if (n > 0) {
    _offset += static_cast<unsigned long long>(_ptr - _buffer);
    _ptr = _begin = _buffer;
    _end = _buffer + n;
    return true;
  }
  // Deliberate: after the end of the input the position reads as 0, not as
  // the file length. Read errors end the input like the end of file does;
  // error() tells them apart.
  if (n < 0) {
    SetError(errno);
  }
  _offset = 0;
  _ptr = _end = _begin = _buffer;
  _eof = true;
  return false;
}

bool qxifstream::_qxseek(long long pos) {
  if (fd == 0 || fd == -1) {
    return false;
  }
  if (lseek(fd, pos, SEEK_SET) == -1) {
    return false;
  }
  _offset = static_cast<unsigned long long>(pos);
  _ptr = _end = _begin = _buffer;
  _eof = false;
  return _qxfill();
}

unsigned long long qxifstream::_qxsize() {
  if (fd == 0 || fd == -1) {
    return 0;
  }
  unsigned long long offset = _offset;
  long distance = _ptr - _buffer;
  off_t end = lseek(fd, 0, SEEK_END);
  _size = end == -1 ? 0 : static_cast<unsigned long long>(end);
  _sizeknown = true;
  lseek(fd, static_cast<off_t>(offset), SEEK_SET);
  _ptr = _end = _begin = _buffer;
  if (!_qxfill()) {
    _ptr = _end;
    _eof = true;
    _size = 0;
    return 0;
  }
  _ptr = _buffer + distance;
  _offset = offset;
  return _size;
}

bool qxifstream::openfd(int newFd, bool closeFirst) {
  if (closeFirst && !_qxclose()) {
    return false;
  }
  _ptr = _end = _begin = _buffer;
  _offset = 0;
  _size = 0;
  _sizeknown = false;
  ClearError();
  fd = newFd;
  _eof = newFd == -1;
  return newFd != -1;
}

long qxifstream::pread(char* buf, unsigned long n, long long offset) const {
  return ::pread(fd, buf, n, offset);
}

// ---------------------------------------------------------------------------
// Writing

qxofstream::qxofstream() : fd(-1) {
  _end = _buffer;
  _eof = true;
  _sizeknown = false;
}

qxofstream::qxofstream(const char* name) : fd(-1) { open(name); }

qxofstream::qxofstream(int newFd) : fd(-1) {
  flush();
  openfd(newFd, false);
}

qxofstream::~qxofstream() {
  try {
    close();
  } catch (const QXIOError& error) {
    QXWriteDiagnostic(
        std::string("Caught QXIOError during qxofstream destruction: ") +
        error.what() + "\n");
  } catch (...) {
    std::abort();
  }
}

void qxofstream::_qxclear() {}

bool qxofstream::_qxopen(const char* name) {
  if (name == nullptr) {
    fd = -1;
    return false;
  }
  fd = ::open(name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd == -1) {
    SetError(errno);
  }
  return fd != -1;
}

bool qxofstream::_qxclose() {
  // Some file systems report a lost write only here.
  if (fd >= 3 && ::close(fd) != 0) {
    SetError(errno);
  }
  fd = -1;
  _eof = true;
  return true;
}

bool qxofstream::_qxflush() {
  if (fd == -1) {
    return false;
  }
  unsigned long len = static_cast<unsigned long>(_ptr - _buffer);
  long put = WriteRetryingOnInterrupt(fd, _buffer, len);
  bool ok = put == static_cast<long>(len) && !_eof;
  if (put != static_cast<long>(len)) {
    // Deliberate: a short write is not continued; the rest is dropped and
    // the stream is marked failed.
    SetError(put < 0 ? errno : ShortWriteCause(fd));
    _eof = true;
  }
  _offset += len;
  _ptr = _buffer;
  return ok;
}

bool qxofstream::_qxseek(long long) { return false; }

unsigned long long qxofstream::_qxsize() { return 0; }

bool qxofstream::openfd(int newFd, bool closeFirst) {
  if (closeFirst) {
    _qxclose();
  } else {
    flush();
  }
  _ptr = _end = _begin = _buffer;
  _offset = 0;
  _size = 0;
  _sizeknown = false;
  _eof = true;
  ClearError();
  fd = newFd;
  if (newFd != -1) {
    _eof = false;
    _end = _buffer + kBlockSize;
  }
  return newFd != -1;
}

bool qxofstream::append(const char* name) {
  _qxflush();
  _qxclose();
  _ptr = _end = _begin = _buffer;
  _offset = 0;
  _size = 0;
  _sizeknown = false;
  _eof = true;
  ClearError();
  if (name == nullptr) {
    fd = -1;
    return false;
  }
  fd = ::open(name, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd == -1) {
    SetError(errno);
    return false;
  }
  _eof = false;
  _end = _buffer + kBlockSize;
  return true;
}

bool qxofstream::append(const std::string& name) {
  return append(name.c_str());
}

// ---------------------------------------------------------------------------
// Writing and reading back

qxiofstream::qxiofstream() = default;

qxiofstream::qxiofstream(const char* name) : qxofstream() { open(name); }

qxiofstream::qxiofstream(int newFd) : qxofstream(newFd) {}

qxiofstream::~qxiofstream() {
  // Closed here without the guard of the base destructor, which then finds
  // the descriptor already gone.
  qxostream::close();
}

bool qxiofstream::_qxopen(const char* name) {
  if (name == nullptr) {
    fd = -1;
    return false;
  }
  fd = ::open(name, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd == -1) {
    SetError(errno);
  }
  return fd != -1;
}

long qxiofstream::pread(char* buf, unsigned long n, long long offset) const {
  return ::pread(fd, buf, n, offset);
}

}  // namespace QXPlatform
