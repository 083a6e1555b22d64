#pragma once

// Opening and closing streams by name: the standard streams for no name,
// handlers registered under a name prefix, files otherwise; gzip input is
// unpacked by its content and names containing ".gz" are packed on output.

#include <memory>

#include "../qxexport.h"
#include "qxstream.h"

namespace QXPlatform {

class QXStreamManager;
class QXPrivateStreamManager;

// The process's manager, built on first use (thread-safely) and destroyed at
// exit.
QXPLATFORM_EXPORT QXStreamManager& QXStreamMngr();

// Opens name for reading: as QXStreamManager::openInput, then a name that
// cannot be opened is tried again with ".gz" appended, and data starting
// with the gzip magic bytes 0x1F 0x8B are unpacked, whatever the name (and,
// with QXSetZstdStreams(true), data starting with the zstd magic). An
// empty file gives an empty stream. Null when nothing could be opened. The
// caller owns the result and gives it back with QXCloseIStream. Any thread.
QXPLATFORM_EXPORT qxistream* QXOpenIStream(const char* name);
// Opens name for writing: as QXStreamManager::openOutput; when the name
// contains ".gz" anywhere the data are packed as gzip. Null when nothing
// could be opened. With QXSetZstdStreams(true), a name ending in ".zst" is
// packed as zstd instead. Give the result back with QXCloseOStream. Any
// thread.
QXPLATFORM_EXPORT qxostream* QXOpenOStream(const char* name);
// Closes s and disposes of it: through the closer of the handler that made
// it, else by deleting it. Null is ignored. Any thread.
QXPLATFORM_EXPORT void QXCloseIStream(qxistream* s);
// Closes s (flushing it; a gzip stream writes its trailer) and disposes of
// it as QXCloseIStream does. Null is ignored. Any thread.
QXPLATFORM_EXPORT void QXCloseOStream(qxostream* s);
// Exactly QXCloseIStream, and then tells whether anything failed: 0 when
// nothing did (reaching the end of the data is not a failure), else the
// stream's error() as it stood after closing, taken before the stream is
// disposed of: an errno value such as EIO, or EBADMSG for damaged gzip input
// (the stream's errortext() says which damage; strerror does not). 0 for
// null. Any thread.
QXPLATFORM_EXPORT int QXCloseIStreamChecked(qxistream* s);
// Exactly QXCloseOStream, and then tells whether every byte written reached
// its destination: 0 when nothing failed, else the stream's error() after
// the last block, the gzip trailer and the closing of the file: ENOSPC for
// a full device, EFBIG past the file-size limit, EPIPE for a reader that has
// gone, EIO, ... The result is the only way left to learn of a lost write,
// since the stream is gone afterwards. 0 for null. Any thread.
QXPLATFORM_EXPORT int QXCloseOStreamChecked(qxostream* s);

// Deleters that give a stream back with QXCloseIStream or QXCloseOStream.
struct QXIStreamCloser {
  void operator()(qxistream* s) const { QXCloseIStream(s); }
};
struct QXOStreamCloser {
  void operator()(qxostream* s) const { QXCloseOStream(s); }
};

// Streams from the manager that close themselves when the handle goes out of
// scope (or is reset); release() hands the pointer back to manual closing.
// The size of one pointer. A handle is moved, never copied; one thread uses
// it at a time.
typedef std::unique_ptr<qxistream, QXIStreamCloser> QXIStreamHandle;
typedef std::unique_ptr<qxostream, QXOStreamCloser> QXOStreamHandle;

// QXOpenIStream(name) in a handle: empty when nothing could be opened. Any
// thread.
QXPLATFORM_EXPORT QXIStreamHandle QXOpenIStreamHandle(const char* name);
// QXOpenOStream(name) in a handle: empty when nothing could be opened. The
// handle's close flushes (a gzip stream writes its trailer) but cannot say
// whether that worked: when it matters, close with
// QXCloseOStreamChecked(handle.release()) instead. Any thread.
QXPLATFORM_EXPORT QXOStreamHandle QXOpenOStreamHandle(const char* name);
// Registers open and close for names whose part before the first ':' is
// prefix (a name without ':' is its own prefix), replacing an earlier pair.
// True. Handlers cannot be removed. Any thread.
// open returns a stream allocated with new (or null): the manager deletes a
// handler's stream itself, bypassing close, when it is empty with its end
// flag set (a failed open) and when a wrapper it was put in (gzip, zstd, or
// the one that yields looked-at bytes of a stream that cannot go back) is
// closed.
// close disposes of every other stream open made, once, after its close().
QXPLATFORM_EXPORT bool QXRegisterIStream(const char* prefix,
                                         qxistream* (*open)(const char* name),
                                         void (*close)(qxistream* s));
QXPLATFORM_EXPORT bool QXRegisterOStream(const char* prefix,
                                         qxostream* (*open)(const char* name),
                                         void (*close)(qxostream* s));

// The registry of name prefixes and the record of which handler made which
// open stream. One per process, built on first use and destroyed at exit;
// every function may be called from any thread. The input side and the
// output side have separate locks, each held while a handler runs, so a
// handler must not call back into the manager on its own side.
class QXPLATFORM_EXPORT QXStreamManager {
 public:
  QXStreamManager();
  QXStreamManager(const QXStreamManager&) = delete;
  QXStreamManager& operator=(const QXStreamManager&) = delete;
  // Leaves the streams that are still open alone.
  ~QXStreamManager();

  // Resolves a name to a new input stream without looking at its content:
  // null or "" gives a wrapper around qxin that never closes it; a name
  // whose part before the first ':' is a registered prefix goes, whole, to
  // that handler; anything else opens a file of that name. Null only when a
  // handler returned null. The caller owns the result.
  qxistream* openInput(const char* name);
  // The same for output, with qxout and files created or truncated.
  qxostream* openOutput(const char* name);

 private:
  typedef qxistream* (*IOpener)(const char* name);
  typedef qxostream* (*OOpener)(const char* name);
  typedef void (*ICloser)(qxistream* s);
  typedef void (*OCloser)(qxostream* s);

  friend qxistream* QXOpenIStream(const char* name);
  friend qxostream* QXOpenOStream(const char* name);
  friend void QXCloseIStream(qxistream* s);
  friend void QXCloseOStream(qxostream* s);
  friend int QXCloseIStreamChecked(qxistream* s);
  friend int QXCloseOStreamChecked(qxostream* s);
  friend bool QXRegisterIStream(const char* prefix, IOpener open,
                                ICloser close);
  friend bool QXRegisterOStream(const char* prefix, OOpener open,
                                OCloser close);

  qxistream* OpenIStream(const char* name);
  // With zstd streams on, s wrapped in a zstd reader when its data start
  // with the zstd magic, else s itself; s has a byte in its span.
  qxistream* UnpackZstd(qxistream* s);
  // Where a stream stood before bytes at its start were looked at.
  struct StartMark {
    char* at;
    char* span;
    unsigned long long offset;
  };
  static StartMark MarkStart(const qxistream* s);
  // Puts s back on its first byte after the n bytes taken were read from
  // its start; a stream that cannot go back is returned with the bytes in
  // front of what is left, perhaps inside a wrapper that owns it.
  qxistream* RewindToFirstByte(qxistream* s, const StartMark& mark,
                               const unsigned char* taken, unsigned long n);
  qxostream* OpenOStream(const char* name);
  int CloseIStream(qxistream* s);
  int CloseOStream(qxostream* s);
  bool RegisterIStream(const char* prefix, IOpener open, ICloser close);
  bool RegisterOStream(const char* prefix, OOpener open, OCloser close);

  // The registries, the closer tables and their two locks.
  std::unique_ptr<QXPrivateStreamManager> _private;
};

}  // namespace QXPlatform
