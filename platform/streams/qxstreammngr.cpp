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
      return s;
    }
  } else if (s->_eof) {
    ForgetInput(*_private, s);
    delete s;
    return nullptr;
  } else if (!s->_qxfill()) {
    return s;
  } else if (static_cast<unsigned char>(*s->_ptr) != 0x1F) {
    return s;
  }
  // Puts the byte taken out of a stream that cannot go back (a pipe, a
  // terminal, a handler's stream) in front of what is left of it. When the
  // span lies in the stream's own block the byte goes there; any other span
  // belongs to the stream, so the stream is read through a wrapper instead
  // whose first block holds the byte and the span.
  auto putBack = [this](qxistream* s, char first) -> qxistream* {
    unsigned long left = s->_ptr == nullptr || s->_ptr >= s->_end
                             ? 0
                             : static_cast<unsigned long>(s->_end - s->_ptr);
    char* own = s->_buffer;
    bool inOwnBlock = own != nullptr && s->_ptr != nullptr && s->_ptr >= own &&
                      s->_end <= own + qxstream::kBlockSize;
    if (inOwnBlock && left < qxstream::kBlockSize) {
      if (left > 0) {
        memmove(own + 1, s->_ptr, left);
      }
      own[0] = first;
      s->_begin = s->_ptr = own;
      s->_end = own + 1 + left;
      s->_offset = 0;
      s->_eof = false;
      return s;
    }
    qxiwrapperstream* wrapper = new qxiwrapperstream(nullptr, false);
    // The wrapper's block takes the byte and as much of the span as fits;
    // the rest stays in the stream and is read after it.
    unsigned long taken =
        std::min<unsigned long>(left, qxstream::kBlockSize - 1);
    wrapper->_buffer[0] = first;
    if (taken > 0) {
      memcpy(wrapper->_buffer + 1, s->_ptr, taken);
      s->_ptr += taken;
    }
    wrapper->set(s, true);
    wrapper->_begin = wrapper->_ptr = wrapper->_buffer;
    wrapper->_end = wrapper->_buffer + 1 + taken;
    wrapper->_offset = 0;
    wrapper->_eof = false;
    WrappedInput(*_private, wrapper, s);
    return wrapper;
  };
  char first = *s->_ptr;
  // Where the first byte sits, to go back to it while the span still holds
  // it: a look at the second byte may replace the span, or fail and leave
  // it as it was.
  char* firstAt = s->_ptr;
  char* firstSpan = s->_begin;
  unsigned long long firstOffset = s->_offset;
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
  bool spanKept = s->_begin == firstSpan && s->_offset == firstOffset &&
                  firstAt >= s->_begin && firstAt < s->_end;
  if (spanKept && s->_offset == 0) {
    s->_ptr = s->_begin;
  } else if (!s->_qxseek(0)) {
    s = putBack(s, first);
  }
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

bool QXRegisterIStream(const char* prefix, qxistream* (*open)(const char* name),
                       void (*close)(qxistream* s)) {
  return QXStreamMngr().RegisterIStream(prefix, open, close);
}

bool QXRegisterOStream(const char* prefix, qxostream* (*open)(const char* name),
                       void (*close)(qxostream* s)) {
  return QXStreamMngr().RegisterOStream(prefix, open, close);
}

}  // namespace QXPlatform
