#pragma once

// Helpers shared by the fuzz targets that drive streams: an input back-end
// that cuts its bytes into spans of chosen lengths, and the abort-on-failure
// check every target uses for its invariants.

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <QXPlatform/streams/qxstream.h>

namespace qxfuzz {

// Ends the run when an invariant does not hold; the fuzzer keeps the input.
inline void Check(bool ok) {
  if (!ok) {
    abort();
  }
}

// Hands out its bytes in spans whose lengths cycle through a list (each at
// least 1 and at most one block), so code above it must give the same
// answers however the data is cut. A seekable one can go back to any
// position; one that is not refuses every seek, as a pipe does.
class ChoppedStream : public QXPlatform::qxistream {
 public:
  ChoppedStream(const std::string& data, std::vector<size_t> spans,
                bool seekable = true)
      : _data(data),
        _spans(std::move(spans)),
        _next(0),
        _pos(0),
        _seekable(seekable) {
    if (_spans.empty()) {
      _spans.push_back(1);
    }
    _eof = false;
  }

 protected:
  bool _qxfill() override {
    _offset += static_cast<unsigned long long>(_ptr - _begin);
    if (_pos >= _data.size()) {
      _begin = _ptr = _end = _buffer;
      _eof = true;
      return false;
    }
    size_t want = std::max<size_t>(
        1, std::min<size_t>(_spans[_next++ % _spans.size()], kBlockSize));
    size_t n = std::min(want, _data.size() - _pos);
    memcpy(_buffer, _data.data() + _pos, n);
    _pos += n;
    _begin = _ptr = _buffer;
    _end = _buffer + n;
    return true;
  }

  bool _qxseek(long long pos) override {
    if (!_seekable || pos < 0 ||
        static_cast<unsigned long long>(pos) > _data.size()) {
      return false;
    }
    _pos = static_cast<size_t>(pos);
    _offset = _pos;
    _begin = _ptr = _end = _buffer;
    _eof = false;
    return _qxfill();
  }

 private:
  std::string _data;
  std::vector<size_t> _spans;
  size_t _next;
  size_t _pos;
  bool _seekable;
};

}  // namespace qxfuzz
