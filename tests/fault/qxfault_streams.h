#pragma once

// Back-ends that misbehave on purpose, for the fault tests: an input that
// hands out its bytes in small spans and then fails or throws, and an output
// that takes a few bytes per flush and then fails or throws.

#include <string>

#include <QXPlatform/streams/qxstream.h>

namespace QXPlatform {
namespace testing {

// What a faulty back-end does once its budget is used up.
enum class Fault {
  kNone,   // input: ordinary end of data; output: never fails
  kFail,   // the hook sets _eof and returns false
  kThrow,  // the hook throws QXIOError
};

// The messages of the injected exceptions.
extern const char kReadFault[];
extern const char kWriteFault[];

// Hands out data in spans of at most span bytes (1: one byte at a time).
// After budget bytes the next fill ends the data as fault says. Seeking
// repositions anywhere inside the bytes delivered so far or ahead of them.
class FaultyIStream : public qxistream {
 public:
  FaultyIStream(std::string data, unsigned long span, unsigned long budget,
                Fault fault);
  // Fills asked for so far, successful or not.
  int fills() const { return _fills; }
  // Faults raised so far.
  int faults() const { return _faults; }

 protected:
  bool _qxfill() override;
  bool _qxseek(long long pos) override;
  unsigned long long _qxsize() override { return _data.size(); }

 private:
  std::string _data;
  unsigned long _span;
  unsigned long _budget;
  Fault _fault;
  unsigned long _pos;
  int _fills;
  int _faults;
};

// Collects flushed bytes in text(). The span offers room bytes per flush
// (1: one byte at a time). Flush number faultAt (counting from 1) and every
// later one act as fault says; 0 never faults. A failing flush drops the
// span; a throwing one throws before touching anything.
class FaultyOStream : public qxostream {
 public:
  FaultyOStream(unsigned long room, int faultAt, Fault fault);
  const std::string& text() const { return _text; }
  int flushes() const { return _flushes; }
  // Bytes waiting in the span.
  unsigned long pending() const {
    return static_cast<unsigned long>(_ptr - _begin);
  }

 protected:
  bool _qxflush() override;

 private:
  std::string _text;
  unsigned long _room;
  int _faultAt;
  Fault _fault;
  int _flushes;
};

}  // namespace testing
}  // namespace QXPlatform
