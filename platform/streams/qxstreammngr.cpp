#include "qxstreammngr.h"

#include <string.h>

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
  // Which handler's closer disposes of a stream it made.
  std::map<qxistream*, ICloser> inputClosers;
  std::map<qxostream*, OCloser> outputClosers;
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

void QXStreamManager::RewindToFirstByte(qxistream* s) {
  // Inside the span while it is still there.
  unsigned long long span =
      s->_begin == nullptr
          ? 0
          : static_cast<unsigned long long>(s->_end - s->_begin);
  if (s->_offset == 0 && span > 0) {
    s->_ptr = s->_begin;
  } else {
    s->_qxseek(0);
  }
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
    unsigned char magic[4];
    packed = s->read(magic, 4) == 4 && IsZstdMagic(magic);
    RewindToFirstByte(s);
  }
  if (packed) {
    return new qxizstdstream(s, true);
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
    delete s;
    return nullptr;
  } else if (!s->_qxfill()) {
    return s;
  } else if (static_cast<unsigned char>(*s->_ptr) != 0x1F) {
    return UnpackZstd(s);
  }
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
  RewindToFirstByte(s);
  if (packed) {
    return new qxigzstream(s, true);
  }
  return s;
}

qxostream* QXStreamManager::OpenOStream(const char* name) {
  qxostream* s = openOutput(name);
  if (s == nullptr) {
    return nullptr;
  }
  if (s->_ptr == s->_end && s->_eof) {
    delete s;
    return nullptr;
  }
  // Only a name's ending asks for zstd; it wins over a ".gz" earlier in the
  // name, as in "x.gz.zst".
  if (name != nullptr && QXGetZstdStreams() && EndsWith(name, ".zst")) {
    return new qxozstdstream(s, true);
  }
  // Deliberate: ".gz" anywhere in the name asks for gzip, not only at the
  // end.
  if (name != nullptr && strstr(name, ".gz") != nullptr) {
    return new qxogzstream(s, true);
  }
  return s;
}

int QXStreamManager::CloseIStream(qxistream* s) {
  if (s == nullptr) {
    return 0;
  }
  s->close();
  // Asked before the stream is disposed of; closing keeps the status.
  int error = s->error();
  std::lock_guard<std::mutex> lock(_private->inputLock);
  // Deliberate: the entry stays after closing; a later stream at the same
  // address from a handler overwrites it.
  auto closer = _private->inputClosers.find(s);
  if (closer != _private->inputClosers.end()) {
    closer->second(s);
  } else {
    delete s;
  }
  return error;
}

int QXStreamManager::CloseOStream(qxostream* s) {
  if (s == nullptr) {
    return 0;
  }
  s->close();
  int error = s->error();
  std::lock_guard<std::mutex> lock(_private->outputLock);
  auto closer = _private->outputClosers.find(s);
  if (closer != _private->outputClosers.end()) {
    closer->second(s);
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
