#include "support/qxtest_streams.h"

#include <cstring>

#include <gtest/gtest.h>

#include <QXPlatform/streams/qxstreammngr.h>

namespace QXPlatform {
namespace testing {

std::string ReadThroughManager(const std::string& name) {
  qxistream* in = QXOpenIStream(name.c_str());
  if (in == nullptr) {
    return "<null>";
  }
  std::string all;
  in->read(all);
  QXCloseIStream(in);
  return all;
}

void WriteThroughManager(const std::string& name, const std::string& data) {
  qxostream* out = QXOpenOStream(name.c_str());
  ASSERT_NE(out, nullptr) << name;
  EXPECT_EQ(out->write(data.data(), data.size()), data.size()) << name;
  QXCloseOStream(out);
}

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
