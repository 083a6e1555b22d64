#include "qxstreammngr.h"

#include <string.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "qxfstream.h"
#include "qxgzstream.h"
#include "qxstdstream.h"
#include "qxwrapperstream.h"
#include "qxzstdstream.h"

namespace QXPlatform {

class QXPrivateStreamManager {
 public:
  typedef qxistream* (*IOpener)(const char* name);
  typedef qxostream* (*OOpener)(const char* name);
  typedef void (*ICloser)(qxistream* s);
  typedef void (*OCloser)(qxostream* s);

  // Prefixes compare byte for byte.
  std::map<std::string, std::pair<IOpener, ICloser>> inputs;
  std::map<std::string, std::pair<OOpener, OCloser>> outputs;
  // Which handler's closer disposes of a stream it made; only streams that
  // are still open are listed.
  std::map<qxistream*, ICloser> inputClosers;
  std::map<qxostream*, OCloser> outputClosers;
  // Handler streams the manager wrapped in a stream that owns them, by
  // wrapper: their closer entries go when the wrapper is closed.
  std::map<qxistream*, qxistream*> inputWrapped;
  std::map<qxostream*, qxostream*> outputWrapped;
  std::mutex inputLock;
  std::mutex outputLock;
};

namespace {

// The part of the name before its first ':', the whole name without one.
std::string PrefixOf(const char* name) {
  const char* colon = strchr(name, ':');
  return colon != nullptr ? std::string(name, static_cast<size_t>(colon - name))
                          : std::string(name);
}

// Drops the closer entry of a stream the manager deletes itself.
void ForgetInput(QXPrivateStreamManager& m, qxistream* s) {
  std::lock_guard<std::mutex> lock(m.inputLock);
  m.inputClosers.erase(s);
}

// The same for output.
void ForgetOutput(QXPrivateStreamManager& m, qxostream* s) {
  std::lock_guard<std::mutex> lock(m.outputLock);
  m.outputClosers.erase(s);
}

// Notes that wrapper owns inner, when inner came from a handler.
void WrappedInput(QXPrivateStreamManager& m, qxistream* wrapper,
                  qxistream* inner) {
  std::lock_guard<std::mutex> lock(m.inputLock);
  if (m.inputClosers.count(inner) != 0) {
    m.inputWrapped[wrapper] = inner;
  }
  // A wrapper around a wrapper: the handler's stream now goes with the
  // outer one.
  auto nested = m.inputWrapped.find(inner);
  if (nested != m.inputWrapped.end()) {
    m.inputWrapped[wrapper] = nested->second;
    m.inputWrapped.erase(nested);
  }
}

// The same for output.
void WrappedOutput(QXPrivateStreamManager& m, qxostream* wrapper,
                   qxostream* inner) {
  std::lock_guard<std::mutex> lock(m.outputLock);
  if (m.outputClosers.count(inner) != 0) {
    m.outputWrapped[wrapper] = inner;
  }
}

// The magic of a zstd frame, or of a skippable frame (0x184D2A50 to
// 0x184D2A5F, least significant byte first), which some writers put first.
bool IsZstdMagic(const unsigned char* bytes) {
  static const unsigned char kFrame[4] = {0x28, 0xB5, 0x2F, 0xFD};
  static const unsigned char kSkippable[3] = {0x2A, 0x4D, 0x18};
  return memcmp(bytes, kFrame, 4) == 0 ||
         ((bytes[0] & 0xF0) == 0x50 && memcmp(bytes + 1, kSkippable, 3) == 0);
}

bool EndsWith(const char* name, const char* tail) {
  size_t n = strlen(name);
  size_t t = strlen(tail);
  return n >= t && strcmp(name + n - t, tail) == 0;
}

}  // namespace

QXStreamManager::QXStreamManager() : _private(new QXPrivateStreamManager) {}

// Defined here, where QXPrivateStreamManager is complete.
QXStreamManager::~QXStreamManager() = default;

QXStreamManager& QXStreamMngr() {
  static QXStreamManager manager;
  return manager;
}

qxistream* QXStreamManager::openInput(const char* name) {
  if (name == nullptr || *name == '\0') {
    return new qxiwrapperstream(&qxin, false);
  }
  std::string prefix = PrefixOf(name);
  if (!prefix.empty()) {
    std::lock_guard<std::mutex> lock(_private->inputLock);
    auto handler = _private->inputs.find(prefix);
    if (handler != _private->inputs.end()) {
      qxistream* s = handler->second.first(name);
      _private->inputClosers[s] = handler->second.second;
      return s;
    }
  }
  return new qxifstream(name);
}

qxostream* QXStreamManager::openOutput(const char* name) {
  if (name == nullptr || *name == '\0') {
    return new qxowrapperstream(&qxout, false);
  }
  std::string prefix = PrefixOf(name);
  if (!prefix.empty()) {
    std::lock_guard<std::mutex> lock(_private->outputLock);
    auto handler = _private->outputs.find(prefix);
    if (handler != _private->outputs.end()) {
      qxostream* s = handler->second.first(name);
      _private->outputClosers[s] = handler->second.second;
      return s;
    }
  }
  return new qxofstream(name);
}

QXStreamManager::StartMark QXStreamManager::MarkStart(const qxistream* s) {
  return StartMark{s->_ptr, s->_begin, s->_offset};
}

qxistream* QXStreamManager::RewindToFirstByte(qxistream* s,
                                              const StartMark& mark,
                                              const unsigned char* taken,
                                              unsigned long n) {
  // Inside the span while it is still there.
  bool kept = s->_begin == mark.span && s->_offset == mark.offset &&
              mark.at != nullptr && mark.at >= s->_begin && mark.at < s->_end;
  if (kept && s->_offset == 0) {
    s->_ptr = s->_begin;
    return s;
  }
  if (s->_qxseek(0)) {
    return s;
  }
  // A stream that cannot go back (a pipe, a terminal, a handler's stream)
  // gets the bytes looked at put back in front of what is left.
  if (kept) {
    s->_ptr = mark.at;
    return s;
  }
  unsigned long left = s->_ptr == nullptr || s->_ptr >= s->_end
                           ? 0
                           : static_cast<unsigned long>(s->_end - s->_ptr);
  char* own = s->_buffer;
  bool inOwnBlock = own != nullptr && s->_ptr != nullptr && s->_ptr >= own &&
                    s->_end <= own + qxstream::kBlockSize;
  if (inOwnBlock) {
    // The span lies in the stream's own block. Without room there for the
    // bytes as well, the block is swapped for a larger one (the pool gives
    // blocks back with delete[], whatever their size).
    if (left + n > qxstream::kBlockSize) {
      char* larger = new char[left + n];
      memcpy(larger + n, s->_ptr, left);
      qxstream::GetBufferCache().Give(own);
      s->_buffer = own = larger;
    } else if (left > 0) {
      memmove(own + n, s->_ptr, left);
    }
    memcpy(own, taken, n);
    s->_begin = s->_ptr = own;
    s->_end = own + n + left;
    s->_offset = 0;
    s->_eof = false;
    return s;
  }
  // Any other span belongs to the stream: it is read through a wrapper whose
  // first block holds the bytes and as much of the span as fits; the rest
  // stays in the stream and is read after it.
  qxiwrapperstream* wrapper = new qxiwrapperstream(nullptr, false);
  unsigned long moved = std::min<unsigned long>(left, qxstream::kBlockSize - n);
  memcpy(wrapper->_buffer, taken, n);
  if (moved > 0) {
    memcpy(wrapper->_buffer + n, s->_ptr, moved);
    s->_ptr += moved;
  }
  wrapper->set(s, true);
  wrapper->_begin = wrapper->_ptr = wrapper->_buffer;
  wrapper->_end = wrapper->_buffer + n + moved;
  wrapper->_offset = 0;
  wrapper->_eof = false;
  WrappedInput(*_private, wrapper, s);
  return wrapper;
}

qxistream* QXStreamManager::UnpackZstd(qxistream* s) {
  unsigned char first = static_cast<unsigned char>(*s->_ptr);
  if (!QXGetZstdStreams() || (first != 0x28 && (first & 0xF0) != 0x50)) {
    return s;
  }
  bool packed;
  if (s->_end - s->_ptr >= 4) {
    packed = IsZstdMagic(reinterpret_cast<unsigned char*>(s->_ptr));
  } else {
    // The magic straddles spans: look at it byte by byte, then go back.
    StartMark mark = MarkStart(s);
    unsigned char magic[4];
    unsigned long got = s->read(magic, 4);
    packed = got == 4 && IsZstdMagic(magic);
    s = RewindToFirstByte(s, mark, magic, got);
  }
  if (packed) {
    qxistream* zst = new qxizstdstream(s, true);
    WrappedInput(*_private, zst, s);
    return zst;
  }
  return s;
}

qxistream* QXStreamManager::OpenIStream(const char* name) {
  qxistream* s = openInput(name);
  if (s == nullptr) {
    return nullptr;
  }
  // A name that cannot be opened may exist packed. Standard input has no
  // name to extend.
  if (s->_ptr >= s->_end && s->_eof && name != nullptr && *name != '\0') {
    s->open(std::string(name) + ".gz");
  }
  if (s->_ptr < s->_end) {
    if (static_cast<unsigned char>(*s->_ptr) != 0x1F) {
      return UnpackZstd(s);
    }
  } else if (s->_eof) {
    ForgetInput(*_private, s);
    delete s;
    return nullptr;
  } else if (!s->_qxfill()) {
    return s;
  } else if (static_cast<unsigned char>(*s->_ptr) != 0x1F) {
    return UnpackZstd(s);
  }
  StartMark mark = MarkStart(s);
  unsigned char first = static_cast<unsigned char>(*s->_ptr);
  ++s->_ptr;
  bool packed = false;
  if (s->_ptr < s->_end || s->_qxfill()) {
    unsigned char second = static_cast<unsigned char>(*s->_ptr);
    if (second == 0x8B) {
      packed = true;
    } else if (second == 0x9D) {
      // Deliberate: data of the old compress format are recognised but
      // handed out undecoded, like any other second byte.
      packed = false;
    }
  }
  s = RewindToFirstByte(s, mark, &first, 1);
  if (packed) {
    qxistream* gz = new qxigzstream(s, true);
    WrappedInput(*_private, gz, s);
    return gz;
  }
  return s;
}

qxostream* QXStreamManager::OpenOStream(const char* name) {
  qxostream* s = openOutput(name);
  if (s == nullptr) {
    return nullptr;
  }
  if (s->_ptr == s->_end && s->_eof) {
    ForgetOutput(*_private, s);
    delete s;
    return nullptr;
  }
  // Only a name's ending asks for zstd; it wins over a ".gz" earlier in the
  // name, as in "x.gz.zst".
  if (name != nullptr && QXGetZstdStreams() && EndsWith(name, ".zst")) {
    qxostream* zst = new qxozstdstream(s, true);
    WrappedOutput(*_private, zst, s);
    return zst;
  }
  // Deliberate: ".gz" anywhere in the name asks for gzip, not only at the
  // end.
  if (name != nullptr && strstr(name, ".gz") != nullptr) {
    qxostream* gz = new qxogzstream(s, true);
    WrappedOutput(*_private, gz, s);
    return gz;
  }
  return s;
}

int QXStreamManager::CloseIStream(qxistream* s) {
  if (s == nullptr) {
    return 0;
  }
  {
    // A handler's stream inside a gzip wrapper goes with the wrapper, so
    // its entry is dropped while the stream still holds its address.
    std::lock_guard<std::mutex> lock(_private->inputLock);
    auto wrapped = _private->inputWrapped.find(s);
    if (wrapped != _private->inputWrapped.end()) {
      _private->inputClosers.erase(wrapped->second);
      _private->inputWrapped.erase(wrapped);
    }
  }
  s->close();
  // Asked before the stream is disposed of; closing keeps the status.
  int error = s->error();
  std::lock_guard<std::mutex> lock(_private->inputLock);
  // Deliberate: the entry goes when its stream is closed, since a kept entry
  // routed the next plain stream at the freed address to the handler.
  auto closer = _private->inputClosers.find(s);
  if (closer != _private->inputClosers.end()) {
    ICloser close = closer->second;
    _private->inputClosers.erase(closer);
    close(s);
  } else {
    delete s;
  }
  return error;
}

int QXStreamManager::CloseOStream(qxostream* s) {
  if (s == nullptr) {
    return 0;
  }
  {
    std::lock_guard<std::mutex> lock(_private->outputLock);
    auto wrapped = _private->outputWrapped.find(s);
    if (wrapped != _private->outputWrapped.end()) {
      _private->outputClosers.erase(wrapped->second);
      _private->outputWrapped.erase(wrapped);
    }
  }
  s->close();
  int error = s->error();
  std::lock_guard<std::mutex> lock(_private->outputLock);
  // Deliberate: the entry goes when its stream is closed, for the reason
  // given on the input side.
  auto closer = _private->outputClosers.find(s);
  if (closer != _private->outputClosers.end()) {
    OCloser close = closer->second;
    _private->outputClosers.erase(closer);
    close(s);
  } else {
    delete s;
  }
  return error;
}

bool QXStreamManager::RegisterIStream(const char* prefix, IOpener open,
                                      ICloser close) {
  std::lock_guard<std::mutex> lock(_private->inputLock);
  _private->inputs[prefix != nullptr ? prefix : ""] =
      std::make_pair(open, close);
  return true;
}

bool QXStreamManager::RegisterOStream(const char* prefix, OOpener open,
                                      OCloser close) {
  std::lock_guard<std::mutex> lock(_private->outputLock);
  _private->outputs[prefix != nullptr ? prefix : ""] =
      std::make_pair(open, close);
  return true;
}

qxistream* QXOpenIStream(const char* name) {
  return QXStreamMngr().OpenIStream(name);
}

qxostream* QXOpenOStream(const char* name) {
  return QXStreamMngr().OpenOStream(name);
}

void QXCloseIStream(qxistream* s) { QXStreamMngr().CloseIStream(s); }

void QXCloseOStream(qxostream* s) { QXStreamMngr().CloseOStream(s); }

int QXCloseIStreamChecked(qxistream* s) {
  return QXStreamMngr().CloseIStream(s);
}

int QXCloseOStreamChecked(qxostream* s) {
  return QXStreamMngr().CloseOStream(s);
}

QXIStreamHandle QXOpenIStreamHandle(const char* name) {
  return QXIStreamHandle(QXOpenIStream(name));
}

QXOStreamHandle QXOpenOStreamHandle(const char* name) {
  return QXOStreamHandle(QXOpenOStream(name));
}

bool QXRegisterIStream(const char* prefix, qxistream* (*open)(const char* name),
                       void (*close)(qxistream* s)) {
  return QXStreamMngr().RegisterIStream(prefix, open, close);
}

bool QXRegisterOStream(const char* prefix, qxostream* (*open)(const char* name),
                       void (*close)(qxostream* s)) {
  return QXStreamMngr().RegisterOStream(prefix, open, close);
}

}  // namespace QXPlatform
