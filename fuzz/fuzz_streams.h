#pragma once

// Helpers shared by the fuzz targets that drive streams: an input back-end
// that cuts its bytes into spans of chosen lengths, the abort-on-failure
// check every target uses for its invariants, and the size and seek checks
// of the decoding readers.

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <stdio.h>

#include <QXPlatform/streams/qxsstream.h>
#include <QXPlatform/streams/qxstream.h>

namespace qxfuzz {

// Ends the run when an invariant does not hold, naming the line of the
// check that failed; the fuzzer keeps the input.
inline void Check(bool ok, const char* file = __builtin_FILE(),
                  int line = __builtin_LINE()) {
  if (!ok) {
    fprintf(stderr, "check failed at %s:%d\n", file, line);
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

// For a decoding reader Reader (built from an inner stream and an owned
// flag) over input that decodes to full: size() is full's length and leaves
// the position alone after head bytes were read; seeks to the positions in
// seeks (taken modulo a little more than the length) land on the same bytes,
// forward and back, over a memory inner stream and, with choppedToo, over
// one cut into spans.
template <class Reader>
void CheckSizeAndSeeks(const std::string& input, const std::string& full,
                       size_t head, const std::vector<size_t>& spans,
                       const std::vector<std::pair<size_t, size_t>>& seeks,
                       bool choppedToo = true) {
  QXPlatform::qxisstream sizedSource(input.data(), input.size(), false);
  Reader sized(&sizedSource, false);
  std::string start;
  sized.read(start, std::min<size_t>(full.size(), head));
  Check(start == full.substr(0, start.size()));
  Check(sized.size() == full.size());
  Check(sized.tell() == start.size());
  std::string rest;
  sized.read(rest);
  Check(start + rest == full);

  ChoppedStream seekInner(input, spans);
  Reader overSeekInner(&seekInner, false);
  QXPlatform::qxisstream seekSource(input.data(), input.size(), false);
  Reader seeking(&seekSource, false);
  for (Reader* s : {&seeking, &overSeekInner}) {
    if (s == &overSeekInner && !choppedToo) {
      break;
    }
    for (const auto& seek : seeks) {
      size_t pos = seek.first % (full.size() + 3);
      bool ok = s->seek(static_cast<long long>(pos));
      // Deliberate in the readers: the target byte must exist.
      Check(ok == (pos < full.size()));
      if (ok) {
        Check(s->tell() == pos);
        std::string got;
        s->read(got, seek.second);
        Check(got == full.substr(pos, seek.second));
        Check(s->tell() == pos + got.size());
      }
    }
  }
}

}  // namespace qxfuzz
