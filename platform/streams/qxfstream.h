#pragma once

// Buffered streams over POSIX file descriptors: read a file, write a file,
// and write a file while reading back what reached it. Descriptors 0, 1 and 2
// are never closed.

#include <string>

#include "qxstream.h"

namespace QXPlatform {

// Reads a file or a descriptor, 32768 bytes at a time. A read error ends the
// data like the end of the file does; error() tells them apart (EISDIR,
// EIO, ...), and a failed open leaves its errno there too.
class QXPLATFORM_EXPORT qxifstream : public qxistream {
 public:
  // Not open.
  qxifstream();
  // Opens name read-only; eof() tells whether that failed.
  explicit qxifstream(const char* name);
  // Reads from fd, which is not duplicated; descriptors from 3 up are closed
  // with the stream, descriptor 0 never.
  explicit qxifstream(int fd);
  ~qxifstream() override;

 protected:
  bool _qxseek(long long pos) override;
  unsigned long long _qxsize() override;
  bool _qxopen(const char* name) override;
  bool _qxclose() override;
  bool _qxfill() override;

  // Drops the back-end's private state; used by clear() and set().
  virtual void _qxclear();

 public:
  // Reads from fd from now on (after closing the old descriptor when
  // closeFirst is set); false for -1, or when standard input refuses to be
  // closed.
  bool openfd(int fd, bool closeFirst);
  // Positional read on the descriptor; leaves the span alone. The result of
  // pread(2).
  long pread(char* buf, unsigned long n, long long offset) const;
  // The descriptor, -1 when not open.
  int descriptor() const { return fd; }

 protected:
  int fd;
};

// Writes a file or a descriptor; every flush is one write(2) of the span.
// error() gives the errno of a failed open, write or close(2). A short write
// carries no errno and is explained from the descriptor: EPIPE for a pipe or
// socket whose reader has gone, EFBIG for a file at the process's size
// limit, ENOSPC for a full device, else EIO.
class QXPLATFORM_EXPORT qxofstream : public qxostream {
 public:
  // Not open.
  qxofstream();
  // Creates or truncates name.
  explicit qxofstream(const char* name);
  // Writes to fd, which is not duplicated; descriptors from 3 up are closed
  // with the stream.
  explicit qxofstream(int fd);
  // Closes; a QXIOError from the final flush is reported on qxerr.
  ~qxofstream() override;

 protected:
  bool _qxseek(long long pos) override;
  unsigned long long _qxsize() override;
  bool _qxopen(const char* name) override;
  bool _qxclose() override;
  bool _qxflush() override;

  // Drops the back-end's private state; used by clear() and set().
  virtual void _qxclear();

 public:
  // Writes to fd from now on; false for -1.
  bool openfd(int fd, bool closeFirst);
  // Opens name for appending, creating it with mode 0644 when missing.
  bool append(const char* name);
  bool append(const std::string& name);
  // The descriptor, -1 when not open.
  int descriptor() const { return fd; }

 protected:
  int fd;
};

// Writes through the block and reads back, by positional reads, whatever has
// reached the file. Unflushed bytes are not visible to pread.
class QXPLATFORM_EXPORT qxiofstream : public qxofstream {
 public:
  qxiofstream();
  // Creates or truncates name for reading and writing.
  explicit qxiofstream(const char* name);
  explicit qxiofstream(int fd);
  ~qxiofstream() override;

 protected:
  bool _qxopen(const char* name) override;

 public:
  // Positional read on the descriptor; the result of pread(2).
  long pread(char* buf, unsigned long n, long long offset) const;
};

}  // namespace QXPlatform
