// A stream back-end of your own: derive from qxistream or qxostream and
// implement the hooks; buffering, reading, writing and text formatting come
// from the base classes.

#include <string>

#include <QXPlatform/QXPlatform.h>

using namespace QXPlatform;

namespace {

int failures = 0;

void Check(bool ok, const char* what) {
  if (!ok) {
    qxerr << "custom_backend: failed: " << what << qxendl;
    ++failures;
  }
}

// An input stream that makes up its data: the letters a to z over and over,
// as many as the name given to open() says, in spans of 1000 bytes.
class AlphabetSource : public qxistream {
 public:
  explicit AlphabetSource(const char* count) { open(count); }

 protected:
  // Called with an empty span when more input is wanted.
  bool _qxfill() override {
    // The span just consumed moves into the offset, so that tell() stays
    // _offset + (_ptr - _begin).
    _offset += _ptr - _begin;
    if (_next >= _total) {
      _begin = _ptr = _end = _buffer;
      _eof = true;
      return false;
    }
    unsigned long long n = _total - _next < kSpan ? _total - _next : kSpan;
    for (unsigned long long i = 0; i < n; ++i) {
      _buffer[i] = static_cast<char>('a' + (_next + i) % 26);
    }
    _next += n;
    // Never return true with an empty span: callers loop on the result.
    _begin = _ptr = _buffer;
    _end = _buffer + n;
    return true;
  }

  // open(name) has already called _qxclose() and reset the span and flags.
  bool _qxopen(const char* name) override {
    _total = name == nullptr ? 0 : std::stoull(name);
    _next = 0;
    return true;
  }

  bool _qxclose() override {
    _total = _next = 0;
    return true;
  }

  // Moves to pos and makes a new span there.
  bool _qxseek(long long pos) override {
    if (pos < 0 || static_cast<unsigned long long>(pos) > _total) {
      return false;
    }
    _next = static_cast<unsigned long long>(pos);
    _offset = _next;
    _begin = _ptr = _end = _buffer;
    _eof = false;
    return _qxfill();
  }

  // Asked by size() while _sizeknown is not set.
  unsigned long long _qxsize() override { return _total; }

 private:
  static constexpr unsigned long long kSpan = 1000;
  unsigned long long _total = 0;
  unsigned long long _next = 0;
};

// An output stream that sums the bytes handed to it and, like a full
// device, takes no more than a fixed number of them.
class ChecksumSink : public qxostream {
 public:
  explicit ChecksumSink(unsigned long long limit) : _limit(limit) {}
  // The destructor of the base classes does not flush; a back-end that must
  // deliver pending bytes closes itself.
  ~ChecksumSink() override { close(); }

  unsigned long long taken() const { return _taken; }
  unsigned long long sum() const { return _sum; }

 protected:
  // Hands [_begin, _ptr) to the sink and makes the whole span free again.
  bool _qxflush() override {
    unsigned long long n = _ptr - _begin;
    unsigned long long room = _limit - _taken;
    unsigned long long take = n < room ? n : room;
    for (unsigned long long i = 0; i < take; ++i) {
      _sum += static_cast<unsigned char>(_begin[i]);
    }
    _taken += take;
    _offset += n;
    _ptr = _begin;
    if (take < n || _eof) {
      // A failing sink sets _eof and here also leaves no room, so that every
      // later write comes back to this hook and returns 0.
      _eof = true;
      _end = _begin;
      return false;
    }
    return true;
  }

 private:
  unsigned long long _limit;
  unsigned long long _taken = 0;
  unsigned long long _sum = 0;
};

unsigned long long AlphabetSum(unsigned long long n) {
  unsigned long long sum = 0;
  for (unsigned long long i = 0; i < n; ++i) {
    sum += 'a' + i % 26;
  }
  return sum;
}

}  // namespace

int main() {
  // Reading crosses many 1000-byte spans.
  AlphabetSource source("100000");
  std::string all;
  Check(source.read(all) == 100000 && all.size() == 100000, "read all");
  Check(all.compare(0, 3, "abc") == 0 && all[26] == 'a', "contents");
  Check(source.eof() && source.tell() == 100000, "position at the end");
  Check(source.size() == 100000, "size from _qxsize");

  // Seeking re-establishes the span; text extraction works on any back-end.
  Check(source.seek(26 * 7 + 3), "seek");
  char letters[5] = {0};
  Check(source.read(letters, 4) == 4 && std::string(letters) == "defg",
        "read after seek");
  Check(!source.seek(200000), "seek past the end fails");

  // Copying one custom stream into the other with out << in.
  ChecksumSink sink(1 << 20);
  AlphabetSource again("70000");
  sink << again;
  Check(sink.flush() && sink.taken() == 70000, "copy taken whole");
  Check(sink.sum() == AlphabetSum(70000) && sink.tell() == 70000, "checksum");

  // A sink that fills up: the failing flush makes write return 0 and sets
  // eof(), and later writes fail at once.
  ChecksumSink small(40000);
  std::string chunk(10000, 'z');
  unsigned long long accepted = 0;
  for (int i = 0; i < 10; ++i) {
    accepted += small.write(chunk.data(), chunk.size());
  }
  small.flush();
  Check(small.eof() && small.taken() == 40000, "sink stops at its limit");
  Check(accepted < 100000 && small.write("more", 4) == 0, "writes fail");

  if (failures != 0) {
    return 1;
  }
  qxout << "custom_backend: all checks passed" << qxendl;
  return 0;
}
