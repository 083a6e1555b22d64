#include "qxwrapperstream.h"

#include <cstdlib>
#include <string>

#include "qxfstream.h"
#include "qxstdstream.h"
#include "qxstdstream_private.h"

namespace QXPlatform {

// ---------------------------------------------------------------------------
// Input wrapper

qxiwrapperstream::qxiwrapperstream(qxistream* inner, bool owned)
    : _stream(nullptr), _owned(false) {
  Reset();
  set(inner, owned);
}

qxiwrapperstream::~qxiwrapperstream() {
  if (_owned) {
    delete _stream;
  }
  _stream = nullptr;
  _owned = false;
}

void qxiwrapperstream::Reset() {
  _begin = _buffer;
  ResetToClosed();
}

void qxiwrapperstream::_qxclear() {}

bool qxiwrapperstream::_qxset(qxistream*) { return true; }

bool qxiwrapperstream::set(qxistream* inner, bool owned) {
  if (inner != _stream) {
    _qxclear();
    if (_owned) {
      delete _stream;
    }
    Reset();
    ClearError();
    _stream = inner;
    _owned = owned;
  }
  if (inner != nullptr) {
    bool exhausted = inner->_ptr >= inner->_end && inner->_eof;
    if (!exhausted) {
      _eof = !_qxset(inner);
    }
  }
  return !_eof;
}

void qxiwrapperstream::clear() {
  _qxclear();
  if (_stream != nullptr) {
    TakeError(*_stream);
  }
  if (_owned) {
    delete _stream;
  }
  _stream = nullptr;
  _owned = false;
  Reset();
}

bool qxiwrapperstream::_qxclose() {
  clear();
  return true;
}

bool qxiwrapperstream::_qxfill() {
  if (_stream == nullptr) {
    return false;
  }
  unsigned long n = _stream->read(_buffer, kBlockSize);
  if (n < kBlockSize) {
    // A short read is the end of the inner stream, or its failure.
    TakeError(*_stream);
  }
  if (n > 0) {
    _offset += static_cast<unsigned long long>(_ptr - _buffer);
    _ptr = _begin = _buffer;
    _end = _buffer + n;
    return true;
  }
  _ptr = _end = _begin = _buffer;
  _eof = true;
  return false;
}

bool qxiwrapperstream::_qxseek(long long pos) {
  if (_stream == nullptr || pos < 0) {
    return false;
  }
  qxistream* inner = _stream;
  unsigned long long target = static_cast<unsigned long long>(pos);
  // An empty memory stream has no span start at all.
  unsigned long long span =
      inner->_begin == nullptr
          ? 0
          : static_cast<unsigned long long>(inner->_end - inner->_begin);
  if (target >= inner->_offset && target - inner->_offset < span) {
    inner->_ptr = inner->_begin + (target - inner->_offset);
    inner->_eof = false;
  } else if (!inner->_qxseek(pos)) {
    return false;
  }
  _offset = target;
  _ptr = _end = _begin = _buffer;
  _eof = false;
  return _qxfill();
}

unsigned long long qxiwrapperstream::_qxsize() {
  if (_stream == nullptr) {
    return 0;
  }
  return _stream->_sizeknown ? _stream->_size : _stream->_qxsize();
}

// ---------------------------------------------------------------------------
// Output wrapper

qxowrapperstream::qxowrapperstream(qxostream* inner, bool owned)
    : _stream(nullptr), _owned(false) {
  Reset();
  set(inner, owned);
}

qxowrapperstream::~qxowrapperstream() {
  if (_stream != nullptr) {
    bool kept = false;
    try {
      _stream->flush();
    } catch (const QXIOError& error) {
      QXWriteDiagnostic(
          std::string(
              "Caught QXIOError during qxowrapperstream destruction: ") +
          error.what() + "\n");
      kept = true;
    } catch (...) {
      std::abort();
    }
    if (!kept && _owned) {
      delete _stream;
    }
  }
}

void qxowrapperstream::Reset() {
  _begin = _buffer;
  ResetToClosed();
}

void qxowrapperstream::_qxclear() {}

bool qxowrapperstream::_qxset(qxostream*) { return true; }

bool qxowrapperstream::set(qxostream* inner, bool owned) {
  if (inner == _stream) {
    return !_eof;
  }
  _qxclear();
  if (_stream != nullptr) {
    _stream->flush();
    if (_owned) {
      delete _stream;
    }
  }
  Reset();
  ClearError();
  _stream = inner;
  _owned = owned;
  if (inner == nullptr || (inner->_ptr == inner->_end && inner->_eof)) {
    return false;
  }
  _end = _buffer + kBlockSize;
  bool ok = _qxset(inner);
  _eof = !ok;
  return ok;
}

void qxowrapperstream::clear() {
  _qxclear();
  if (_stream != nullptr) {
    _stream->flush();
    // A file stream is closed before it is deleted, so that a failure of
    // closing the descriptor reaches this stream's error(); its destructor
    // would close it anyway. Other owned streams see only the flush and the
    // delete, as they always have.
    if (_owned && dynamic_cast<qxofstream*>(_stream) != nullptr) {
      _stream->close();
    }
    TakeError(*_stream);
    if (_owned) {
      delete _stream;
    }
  }
  _stream = nullptr;
  _owned = false;
  Reset();
}

bool qxowrapperstream::_qxclose() {
  clear();
  return true;
}

bool qxowrapperstream::_qxflush() {
  if (_stream == nullptr) {
    return false;
  }
  unsigned long n = static_cast<unsigned long>(_ptr - _buffer);
  _stream->write(_buffer, n);
  bool ok = _stream->flush();
  TakeError(*_stream);
  _offset += n;
  _ptr = _buffer;
  return ok;
}

bool qxowrapperstream::_qxseek(long long pos) {
  if (_stream == nullptr) {
    return false;
  }
  _qxflush();
  qxostream* inner = _stream;
  bool moved = false;
  if (pos >= 0) {
    // Only bytes the inner stream still holds can be written over in place.
    unsigned long long target = static_cast<unsigned long long>(pos);
    unsigned long long held =
        static_cast<unsigned long long>(inner->_ptr - inner->_begin);
    if (target >= inner->_offset && target - inner->_offset < held) {
      inner->_ptr = inner->_begin + (target - inner->_offset);
      moved = true;
    } else {
      moved = inner->_qxseek(pos);
    }
  }
  if (moved) {
    _offset = static_cast<unsigned long long>(pos);
  }
  // Deliberate: the result is false even when the inner stream moved.
  return false;
}

unsigned long long qxowrapperstream::_qxsize() {
  if (_stream == nullptr) {
    return 0;
  }
  return _stream->_sizeknown ? _stream->_size : _stream->_qxsize();
}

// ---------------------------------------------------------------------------
// Fan-out

qxmultiostream::qxmultiostream() = default;

qxmultiostream::~qxmultiostream() { clear(); }

void qxmultiostream::addstream(qxostream* stream, bool owned) {
  _streams.emplace_back(stream, owned);
}

void qxmultiostream::clear() {
  for (auto& entry : _streams) {
    if (entry.second && entry.first != nullptr) {
      delete entry.first;
    }
  }
  _streams.clear();
}

bool qxmultiostream::_qxflush() {
  if (_begin != _buffer) {
    _ptr = _end = _begin = _buffer;
    _eof = true;
    return false;
  }
  unsigned long n = static_cast<unsigned long>(_ptr - _buffer);
  bool ok = true;
  for (auto& entry : _streams) {
    if (entry.first == nullptr) {
      continue;
    }
    entry.first->write(_buffer, n);
    ok = entry.first->flush() && ok;
    // The first target to fail is the one reported.
    TakeError(*entry.first);
  }
  _offset += n;
  _ptr = _buffer;
  return ok;
}

}  // namespace QXPlatform
