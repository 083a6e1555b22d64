#include "qxstream.h"

#include <assert.h>
#include <errno.h>
#include <string.h>

#include <algorithm>

#include "../qxassert_private.h"

namespace QXPlatform {

// ---------------------------------------------------------------------------
// I/O error

QXIOError::QXIOError() {
  char text[256];
  if (QXInternalStrError(text, sizeof text) != 0) {
    _message = "QXStrError failed to retrieve proper error message";
  } else {
    _message = text;
  }
}

QXIOError::QXIOError(const char* msg) : _message(msg ? msg : "") {}

QXIOError::~QXIOError() = default;

const char* QXIOError::what() const { return _message.c_str(); }

namespace {

// strerror_r comes in two shapes. The POSIX one already reports 0 or an
// error number.
[[maybe_unused]] int StrErrorResult(int result, char*, unsigned long) {
  return result;
}

// The GNU one returns the text instead; it hands back the caller's buffer
// only for an error number it does not know. Report as the POSIX shape
// does: EINVAL for an unknown number, ERANGE when the text was cut.
[[maybe_unused]] int StrErrorResult(const char* text, char* buffer,
                                    unsigned long size) {
  if (text == nullptr || text == buffer) {
    return EINVAL;
  }
  if (size == 0) {
    return ERANGE;
  }
  unsigned long length = strlen(text);
  unsigned long copied = length < size - 1 ? length : size - 1;
  std::memcpy(buffer, text, copied);
  buffer[copied] = '\0';
  return copied < length ? ERANGE : 0;
}

// The system's text for an errno value. The descriptions are the C
// library's own constant strings, so unlike strerror the result is never
// overwritten by another thread's call and may be kept.
const char* FixedErrorText(int code) {
  const char* text = strerrordesc_np(code);
  return text != nullptr ? text : "Unknown error";
}

}  // namespace

int QXInternalStrError(char* buffer, unsigned long size) {
  return StrErrorResult(strerror_r(errno, buffer, size), buffer, size);
}

// ---------------------------------------------------------------------------
// Base

qxstream::BufferCache& qxstream::GetBufferCache() {
  static BufferCache cache;
  return cache;
}

qxstream::qxstream()
    : _buffer(GetBufferCache().Take()),
      _ptr(_buffer),
      _begin(_buffer),
      _end(_buffer),
      _count(0),
      _offset(0),
      _size(0),
      _sizeknown(false),
      _eof(true),
      _error(0),
      _errortext("") {}

qxstream::qxstream(const qxstream& other)
    : _buffer(GetBufferCache().Take()),
      _count(other._count),
      _offset(other._offset),
      _size(other._size),
      _sizeknown(other._sizeknown),
      _eof(other._eof),
      _error(other._error),
      _errortext(other._errortext) {
  std::memcpy(_buffer, other._buffer, kBlockSize);
  _ptr = _buffer + (other._ptr - other._buffer);
  _end = _buffer + (other._end - other._buffer);
  _begin = _buffer;
}

qxstream& qxstream::operator=(const qxstream& other) {
  if (this == &other) {
    return *this;
  }
  _ptr = _buffer + (other._ptr - other._buffer);
  _end = _buffer + (other._end - other._buffer);
  _count = other._count;
  _offset = other._offset;
  _size = other._size;
  _sizeknown = other._sizeknown;
  _eof = other._eof;
  _error = other._error;
  _errortext = other._errortext;
  std::memcpy(_buffer, other._buffer, kBlockSize);
  // Deliberate: _begin stays where it was; only the block and the distances
  // are taken over.
  return *this;
}

qxstream::~qxstream() {
  GetBufferCache().Give(_buffer);
  _buffer = _ptr = _end = nullptr;
}

void qxstream::SetError(int code, const char* text) {
  if (code == 0 || _error != 0) {
    return;
  }
  _error = code;
  _errortext = text != nullptr ? text : FixedErrorText(code);
}

bool qxstream::_qxseek(long long) { return false; }

unsigned long long qxstream::_qxsize() { return 0; }

unsigned long long qxstream::_qxtell() const {
  return _offset + static_cast<unsigned long long>(_ptr - _begin);
}

// ---------------------------------------------------------------------------
// Input

qxistream::qxistream() = default;

qxistream::~qxistream() = default;

bool qxistream::_qxopen(const char*) { return false; }

bool qxistream::_qxclose() { return true; }

bool qxistream::_qxfill() {
  _ptr = _end;
  _eof = true;
  return false;
}

unsigned long qxistream::ReadSlow(char* into, unsigned long n) {
  for (;;) {
    unsigned long have = static_cast<unsigned long>(_end - _ptr);
    if (have >= n) {
      std::memcpy(into, _ptr, n);
      _ptr += n;
      _count += n;
      return _count;
    }
    if (have != 0) {
      std::memcpy(into, _ptr, have);
      into += have;
      _ptr = _end;
      _count += have;
      n -= have;
    }
    if (!_qxfill()) {
      return _count;
    }
  }
}

unsigned long qxistream::read(std::string& into, unsigned long n) {
  into.clear();
  _count = 0;
  if (n == 0) {
    return 0;
  }
  for (;;) {
    unsigned long have = static_cast<unsigned long>(_end - _ptr);
    unsigned long take = std::min(have, n);
    into.append(_ptr, take);
    _ptr += take;
    _count += take;
    n -= take;
    if (n == 0 || !_qxfill()) {
      return _count;
    }
  }
}

unsigned long qxistream::read(std::string& into) {
  into.clear();
  _count = 0;
  do {
    unsigned long have = static_cast<unsigned long>(_end - _ptr);
    into.append(_ptr, have);
    _count += have;
    _ptr = _end;
  } while (_qxfill());
  return _count;
}

bool qxistream::skip(long long n) {
  if (n < 1) {
    return n == 0;
  }
  unsigned long long left = static_cast<unsigned long long>(n);
  for (;;) {
    unsigned long long have = static_cast<unsigned long long>(_end - _ptr);
    if (left <= have) {
      _ptr += left;
      return true;
    }
    left -= have;
    _ptr = _end;
    if (!_qxfill()) {
      return false;
    }
  }
}

bool qxistream::open(const char* name) {
  if (!_qxclose()) {
    return false;
  }
  ResetToClosed();
  ClearError();
  bool ok = _qxopen(name);
  _eof = !ok;
  return ok;
}

bool qxistream::open(const std::string& name) { return open(name.c_str()); }

bool qxistream::open(unsigned char* data, unsigned long n) {
  if (!_qxclose()) {
    return false;
  }
  ResetToClosed();
  ClearError();
  if (data == nullptr) {
    return false;
  }
  _ptr = _begin = reinterpret_cast<char*>(data);
  _end = _begin + n;
  _eof = false;
  return true;
}

bool qxistream::close() {
  if (!_qxclose()) {
    return false;
  }
  ResetToClosed();
  return true;
}

// ---------------------------------------------------------------------------
// Output

qxostream::qxostream() {
  _end = _buffer + kBlockSize;
  _sizeknown = true;
  _eof = false;
}

qxostream::~qxostream() = default;

bool qxostream::_qxopen(const char*) { return false; }

bool qxostream::_qxclose() { return true; }

bool qxostream::_qxflush() {
  if (_begin != _buffer) {
    if (_ptr != _end) {
      return true;
    }
    // The caller's memory is full: what did not fit is lost.
    SetError(ENOSPC);
    _end = _begin;
  }
  // Deliberate: the span length is counted as a 32-bit quantity, enough for
  // a block but not for caller memory of 4 GiB or more.
  _offset += static_cast<unsigned int>(_ptr - _begin);
  _ptr = _begin;
  if (_begin == _end) {
    _eof = true;
    return false;
  }
  return !_eof;
}

bool qxostream::_qxsync() { return _qxflush(); }

unsigned long qxostream::WriteSlow(const char* data, unsigned long n) {
  if (data == nullptr) {
    return 0;
  }
  if (_ptr == _end && !_qxflush()) {
    return 0;
  }
  _count = 0;
  unsigned long len = n;
  for (;;) {
    unsigned long room = static_cast<unsigned long>(_end - _ptr);
    if (len <= room) {
      std::memcpy(_ptr, data, len);
      _ptr += len;
      _count += len;
      return _count;
    }
    std::memcpy(_ptr, data, room);
    _ptr = _end;
    _count += room;
    data += room;
    len -= room;
    if (!_qxflush()) {
      return 0;
    }
    QX_CHECK(len != 0 && _end != _ptr, "write");
  }
}

unsigned long long qxostream::write(const std::string& s) {
  if (s.data() == nullptr) {
    return 0;
  }
  return write(s.data(), static_cast<unsigned long>(s.size()));
}

unsigned long long qxostream::write(const std::string& s, unsigned long n) {
  if (s.data() == nullptr) {
    return 0;
  }
  return write(s.data(), n);
}

bool qxostream::open(const char* name) {
  _qxflush();
  _qxclose();
  ResetToClosed();
  ClearError();
  if (!_qxopen(name)) {
    return false;
  }
  _end = _begin + kBlockSize;
  _eof = false;
  return true;
}

bool qxostream::open(const std::string& name) { return open(name.c_str()); }

bool qxostream::open(unsigned char* data, unsigned long n) {
  _qxflush();
  _qxclose();
  ResetToClosed();
  ClearError();
  _size = n;
  _sizeknown = true;
  if (data == nullptr) {
    return false;
  }
  _ptr = _begin = reinterpret_cast<char*>(data);
  _end = _begin + n;
  _eof = false;
  return true;
}

bool qxostream::close() {
  _qxflush();
  bool ok = _qxclose();
  ResetToClosed();
  return ok;
}

}  // namespace QXPlatform
