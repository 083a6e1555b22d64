#include "qxfault_streams.h"

#include <algorithm>
#include <cstring>

namespace QXPlatform {
namespace testing {
namespace {

// By value: std::min binds references, which the in-class constant has no
// storage for.
unsigned long SpanLength(unsigned long wanted) {
  unsigned long block = qxstream::kBlockSize;
  return wanted == 0 ? 1 : std::min(wanted, block);
}

}  // namespace

const char kReadFault[] = "injected read fault";
const char kWriteFault[] = "injected write fault";

FaultyIStream::FaultyIStream(std::string data, unsigned long span,
                             unsigned long budget, Fault fault)
    : _data(std::move(data)),
      _span(SpanLength(span)),
      _budget(budget),
      _fault(fault),
      _pos(0),
      _fills(0),
      _faults(0) {
  _eof = false;
}

bool FaultyIStream::_qxfill() {
  ++_fills;
  unsigned long limit = std::min<unsigned long>(_budget, _data.size());
  if (_pos >= limit) {
    _offset += static_cast<unsigned long long>(_ptr - _begin);
    _begin = _ptr = _end = _buffer;
    _eof = true;
    if (_pos < _data.size() && _fault != Fault::kNone) {
      ++_faults;
      if (_fault == Fault::kThrow) {
        throw QXIOError(kReadFault);
      }
    }
    return false;
  }
  unsigned long n = std::min(_span, limit - _pos);
  _offset += static_cast<unsigned long long>(_ptr - _begin);
  std::memcpy(_buffer, _data.data() + _pos, n);
  _pos += n;
  _begin = _ptr = _buffer;
  _end = _buffer + n;
  return true;
}

bool FaultyIStream::_qxseek(long long pos) {
  if (pos < 0 || static_cast<unsigned long long>(pos) > _data.size()) {
    return false;
  }
  _pos = static_cast<unsigned long>(pos);
  _offset = _pos;
  _begin = _ptr = _end = _buffer;
  _eof = false;
  return _qxfill();
}

FaultyOStream::FaultyOStream(unsigned long room, int faultAt, Fault fault)
    : _room(SpanLength(room)), _faultAt(faultAt), _fault(fault), _flushes(0) {
  _end = _buffer + _room;
}

bool FaultyOStream::_qxflush() {
  ++_flushes;
  if (_faultAt != 0 && _flushes >= _faultAt && _fault != Fault::kNone) {
    if (_fault == Fault::kThrow) {
      throw QXIOError(kWriteFault);
    }
    _ptr = _begin;
    _eof = true;
    return false;
  }
  _text.append(_begin, static_cast<size_t>(_ptr - _begin));
  _offset += static_cast<unsigned long long>(_ptr - _begin);
  _ptr = _begin = _buffer;
  _end = _buffer + _room;
  return !_eof;
}

}  // namespace testing
}  // namespace QXPlatform
