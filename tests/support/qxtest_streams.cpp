#include "support/qxtest_streams.h"

#include <cstring>

namespace QXPlatform {
namespace testing {

RecordingOStream::RecordingOStream(unsigned long span, int failAt)
    : onFlush(nullptr),
      context(nullptr),
      _spanLength(span),
      _failAt(failAt),
      _flushes(0) {
  _end = _buffer + span;
}

bool RecordingOStream::_qxflush() {
  if (onFlush != nullptr) {
    onFlush(*this, context);
  }
  ++_flushes;
  if (_failAt != 0 && _flushes >= _failAt) {
    _ptr = _begin;
    _eof = true;
    return false;
  }
  _text.append(_begin, static_cast<size_t>(_ptr - _begin));
  _offset += static_cast<unsigned long long>(_ptr - _begin);
  _ptr = _begin;
  _end = _begin + _spanLength;
  return true;
}

NoRoomOStream::NoRoomOStream() { _end = _buffer + 4; }

int FreePoolBlocks() {
  qxstream::BufferCache& cache = qxstream::GetBufferCache();
  std::vector<char*> taken;
  for (;;) {
    char* block = cache.Take();
    if (!cache.Owns(block)) {
      cache.Give(block);
      break;
    }
    taken.push_back(block);
  }
  int count = static_cast<int>(taken.size());
  while (!taken.empty()) {
    cache.Give(taken.back());
    taken.pop_back();
  }
  return count;
}

}  // namespace testing
}  // namespace QXPlatform
