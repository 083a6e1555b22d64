#pragma once

// Streams that sit on other streams instead of a device: an input and an
// output wrapper that can be re-pointed and may own what they wrap, and an
// output stream that copies everything to any number of streams.

#include <utility>
#include <vector>

#include "../qxexport.h"
#include "qxstream.h"

namespace QXPlatform {

// Reads through another input stream with a block of its own. The inner
// stream is deleted by the wrapper when owned. error() takes the inner
// stream's failure; set() with another stream forgets it. One thread at a
// time.
class QXPLATFORM_EXPORT qxiwrapperstream : public qxistream {
 public:
  // Empty, then set(inner, owned). The inner stream may be null.
  qxiwrapperstream(qxistream* inner, bool owned);
  qxiwrapperstream(const qxiwrapperstream&) = delete;
  qxiwrapperstream& operator=(const qxiwrapperstream&) = delete;
  // Deletes the inner stream when owned.
  ~qxiwrapperstream() override;

 protected:
  // Moves the inner stream to pos (inside its span when pos lies there) and
  // refills; false without an inner stream or when it cannot move.
  bool _qxseek(long long pos) override;
  // The inner stream's size; 0 without one.
  unsigned long long _qxsize() override;
  // Lets go of the inner stream, as clear(); true.
  bool _qxclose() override;
  // Reads up to a whole block from the inner stream.
  bool _qxfill() override;

  // Called whenever the inner stream is about to be let go; derived classes
  // finish their own work here. Does nothing.
  virtual void _qxclear();
  // Asked whether inner is acceptable as the new inner stream; true.
  virtual bool _qxset(qxistream* inner);

 public:
  // Makes inner the stream read through, letting go of the old one (deleting
  // it when owned) when inner is another stream. True when there is
  // something to read: false for null and for an exhausted inner stream.
  // The same stream again changes nothing.
  bool set(qxistream* inner, bool owned);
  // Lets go of the inner stream (deleting it when owned) and empties.
  void clear();
  // The inner stream, null when there is none; still owned by the wrapper
  // when it was set as owned.
  qxistream* stream() const { return _stream; }

 protected:
  qxistream* _stream;
  bool _owned;

 private:
  void Reset();
};

// Writes through another output stream with a block of its own. Bytes still
// in the block when the wrapper is destroyed, cleared or re-set are lost:
// flush() or close() first. error() takes the inner stream's failure; an
// owned inner file stream (qxofstream) is closed before it is deleted, so a
// failure of closing its descriptor is seen too, while any other owned inner
// stream is flushed and deleted only. One thread at a time.
class QXPLATFORM_EXPORT qxowrapperstream : public qxostream {
 public:
  // Empty (no room), then set(inner, owned).
  qxowrapperstream(qxostream* inner, bool owned);
  qxowrapperstream(const qxowrapperstream&) = delete;
  qxowrapperstream& operator=(const qxowrapperstream&) = delete;
  // Flushes the inner stream and deletes it when owned; a QXIOError from
  // that flush is reported on qxerr and the inner stream is then kept.
  ~qxowrapperstream() override;

 protected:
  // Flushes, then moves the inner stream to pos. Deliberately false in every
  // case, also when the inner stream moved.
  bool _qxseek(long long pos) override;
  // The inner stream's size; 0 without one.
  unsigned long long _qxsize() override;
  // Lets go of the inner stream, as clear().
  bool _qxclose() override;
  // Writes the block to the inner stream and flushes it; the inner flush's
  // result, false without an inner stream.
  bool _qxflush() override;

  // Called whenever the inner stream is about to be let go; derived classes
  // finish their own work here. Does nothing.
  virtual void _qxclear();
  // Asked whether inner is acceptable as the new inner stream; true.
  virtual bool _qxset(qxostream* inner);

 public:
  // Makes inner the stream written to, flushing the old one and deleting it
  // when owned. False for null or a failed stream. The same stream again
  // changes nothing and returns whether the wrapper can write.
  bool set(qxostream* inner, bool owned);
  // Flushes the inner stream, lets go of it (deleting it when owned) and
  // empties; the wrapper's own unflushed bytes are dropped.
  void clear();
  // The inner stream, null when there is none.
  qxostream* stream() const { return _stream; }

 protected:
  qxostream* _stream;
  bool _owned;

 private:
  void Reset();
};

// Copies everything written to it to each of its streams, in the order
// added. Pending bytes are not flushed by the destructor. error() reports
// the failure of the first stream, in that order, that has one. One thread
// at a time, and the streams added must not be used elsewhere meanwhile.
class QXPLATFORM_EXPORT qxmultiostream : public qxostream {
 public:
  // No streams.
  qxmultiostream();
  qxmultiostream(const qxmultiostream&) = delete;
  qxmultiostream& operator=(const qxmultiostream&) = delete;
  // Deletes the owned streams, as clear().
  ~qxmultiostream() override;

 protected:
  // Writes the block to every stream and flushes each; true when every
  // flush succeeded (also with no streams). A failing stream does not stop
  // the others.
  bool _qxflush() override;

 public:
  // Appends stream; with owned set it is deleted by clear() and the
  // destructor. The same stream may be added twice and then gets everything
  // twice.
  void addstream(qxostream* stream, bool owned);
  // Deletes the owned streams in the order added and forgets all of them.
  void clear();

 protected:
  std::vector<std::pair<qxostream*, bool>> _streams;
};

}  // namespace QXPlatform
