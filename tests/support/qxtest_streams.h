#pragma once

// Stream helpers for the tests: a view of the protected fields of any stream,
// an output back-end that records what it is handed and can be made to fail,
// and small input back-ends with chosen behaviour.

#include <string>
#include <vector>

#include <QXPlatform/streams/qxstream.h>

namespace QXPlatform {
namespace testing {

// Everything QXOpenIStream delivers for name, closed through the manager;
// "<null>" when it gives null.
std::string ReadThroughManager(const std::string& name);
// Writes data to QXOpenOStream(name) and closes it through the manager; the
// test fails when the open or the write does.
void WriteThroughManager(const std::string& name, const std::string& data);

// Read access to the protected fields of any stream object.
struct Fields : qxstream {
  static char* buffer(const qxstream& s) { return s.*(&Fields::_buffer); }
  static char* ptr(const qxstream& s) { return s.*(&Fields::_ptr); }
  static char* begin(const qxstream& s) { return s.*(&Fields::_begin); }
  static char* end(const qxstream& s) { return s.*(&Fields::_end); }
  static unsigned long long offset(const qxstream& s) {
    return s.*(&Fields::_offset);
  }
  static unsigned long long size(const qxstream& s) {
    return s.*(&Fields::_size);
  }
  static bool sizeknown(const qxstream& s) { return s.*(&Fields::_sizeknown); }
  // Bytes left in the span (input) or room left (output).
  static long span(const qxstream& s) { return end(s) - ptr(s); }
};

// An output back-end that appends every flushed span to text(). Its span can
// be made shorter than a block, and flush number failAt (counting from 1)
// and every later one fail: they drop the span, set the end flag and return
// false. 0 never fails.
class RecordingOStream : public qxostream {
 public:
  explicit RecordingOStream(unsigned long span = kBlockSize, int failAt = 0);
  const std::string& text() const { return _text; }
  int flushes() const { return _flushes; }
  // Called at the start of every flush, before anything changes.
  void (*onFlush)(RecordingOStream& self, void* context);
  void* context;

 protected:
  bool _qxflush() override;

 private:
  std::string _text;
  unsigned long _spanLength;
  int _failAt;
  int _flushes;
};

// An output back-end whose flush claims success without making room: the
// write algorithm must stop the process.
class NoRoomOStream : public qxostream {
 public:
  NoRoomOStream();

 protected:
  bool _qxflush() override { return true; }
};

// An input back-end whose close refuses (returns false) and counts calls.
class RefusingIStream : public qxistream {
 public:
  RefusingIStream() : closes(0) {}
  int closes;

 protected:
  bool _qxclose() override {
    ++closes;
    return false;
  }
};

// Number of pooled blocks free right now, found by taking them all and giving
// them back in the reverse order (so the free list keeps its order).
int FreePoolBlocks();

}  // namespace testing
}  // namespace QXPlatform
