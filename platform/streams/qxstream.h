#pragma once

// Buffered byte streams: the base classes every back-end derives from, the
// pool their 32768-byte blocks come from, and the I/O exception type.

#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <string>

#include "../qxexport.h"

namespace QXPlatform {

class qxstream;
class qxistream;
class qxostream;

QXPLATFORM_EXPORT qxostream& qxendl(qxostream& out);
QXPLATFORM_EXPORT qxostream& qxends(qxostream& out);
QXPLATFORM_EXPORT qxostream& qxflush(qxostream& out);
struct QXWord;
QXPLATFORM_EXPORT qxistream& operator>>(qxistream& in, const QXWord& word);

// A pool of Count blocks of BlockSize bytes kept inside the object, with heap
// blocks handed out once the pool is empty. Take and Give may be called from
// any thread.
template <unsigned long BlockSize, unsigned long Count>
class QXBoundedCache {
 public:
  QXBoundedCache() : _head(nullptr) {
    static_assert(Count >= 2, "the pool keeps its highest block in reserve");
    static_assert(BlockSize >= sizeof(char*), "a free block holds a link");
    // Deliberate: the highest block is never linked, so at most Count - 1
    // blocks are lent; the second-highest is handed out first.
    for (unsigned long i = 0; i + 1 < Count; ++i) {
      char* block = _arena + i * BlockSize;
      char* next = i == 0 ? nullptr : _arena + (i - 1) * BlockSize;
      std::memcpy(block, &next, sizeof next);
    }
    _head = _arena + (Count - 2) * BlockSize;
  }
  QXBoundedCache(const QXBoundedCache&) = delete;
  QXBoundedCache& operator=(const QXBoundedCache&) = delete;

  // Returns a block of BlockSize bytes, not cleared. Throws std::bad_alloc
  // when the pool is empty and the heap has no room.
  char* Take() {
    {
      std::lock_guard<std::mutex> lock(_mutex);
      char* block = _head;
      if (block != nullptr) {
        std::memcpy(&_head, block, sizeof _head);
        return block;
      }
    }
    // The lock covers only the list: a heap block needs no shared state.
    return new char[BlockSize];
  }

  // Gives back a block from Take; null is ignored. Arena blocks go to the
  // head of the free list, so the block released last is handed out next.
  void Give(char* block) {
    if (Owns(block)) {
      std::lock_guard<std::mutex> lock(_mutex);
      std::memcpy(block, &_head, sizeof _head);
      _head = block;
    } else {
      delete[] block;
    }
  }

  // True when the block lies inside the arena.
  bool Owns(const char* block) const {
    // Compared as addresses: the block may come from anywhere.
    std::uintptr_t at = reinterpret_cast<std::uintptr_t>(block);
    std::uintptr_t first = reinterpret_cast<std::uintptr_t>(_arena);
    return at >= first && at < first + sizeof _arena;
  }

 private:
  alignas(64) char _arena[BlockSize * Count];
  char* _head;
  std::mutex _mutex;
};

// The exception type offered to back-ends and callers for I/O failures. The
// library's own streams never throw it; destructors that call hooks catch it.
class QXPLATFORM_EXPORT QXIOError {
 public:
  // The message is the text of the current errno, or a fixed text when the
  // error text cannot be had.
  QXIOError();
  // The message is a copy of msg.
  explicit QXIOError(const char* msg);
  virtual ~QXIOError();

  // The message; valid as long as the object lives.
  const char* what() const;

 private:
  std::string _message;
};

// Puts the text of the current errno into buffer (size bytes); returns 0 on
// success, non-zero when no text could be had. Any thread may call it.
QXPLATFORM_EXPORT int QXInternalStrError(char* buffer, unsigned long size);

// The common part of input and output streams: one 32768-byte block from the
// shared pool, the span inside it and the position bookkeeping. A stream is
// used by one thread at a time; streams may be created on any thread.
class QXPLATFORM_EXPORT qxstream {
  friend class qxistream;
  friend class qxostream;
  // Back-ends that sit on other streams reach into them.
  friend class qxiwrapperstream;
  friend class qxowrapperstream;
  friend class qxigzstream;
  friend class qxogzstream;
  friend class qxizstdstream;
  friend class QXStreamManager;

 public:
  typedef QXBoundedCache<32768, 32> BufferCache;
  // The size of every stream's block. constexpr makes it an inline
  // definition, so callers may bind it by reference (std::min, std::max).
  static constexpr unsigned long kBlockSize = 32768;

  // The process-wide block pool, built on first use.
  static BufferCache& GetBufferCache();

  qxstream();
  qxstream(const qxstream& other);
  qxstream& operator=(const qxstream& other);

 protected:
  // Moves the back-end to absolute byte pos and re-establishes the span;
  // false when the stream cannot be positioned.
  virtual bool _qxseek(long long pos);
  // The total size when _sizeknown is not set.
  virtual unsigned long long _qxsize();
  // The stream position: bytes before the span plus those consumed in it.
  virtual unsigned long long _qxtell() const;
  // The state of a stream with nothing open: empty span at the block, no
  // position, no known size, _eof set. _begin is left alone.
  void ResetToClosed() {
    _ptr = _end = _buffer;
    _offset = 0;
    _size = 0;
    _sizeknown = false;
    _eof = true;
  }

 public:
  virtual ~qxstream();

  // The stream position.
  unsigned long long tell() const { return _qxtell(); }
  // The size of the stream: the cached size when known, else the back-end's.
  unsigned long long size() { return _sizeknown ? _size : _qxsize(); }
  // Repositions at absolute byte pos; false when that cannot be done.
  bool seek(long long pos) { return _qxseek(pos); }
  // Input: the source can deliver no more. Output: the sink takes no more.
  bool eof() const { return _eof; }
  // Bytes moved by the most recent unformatted read or write.
  unsigned long long count() const { return _count; }
  // True when data is waiting in the span.
  bool buffered() const { return _ptr < _end; }

  // The first failure since the stream was constructed or last opened: 0
  // while there is none (reaching the end of the data is not a failure),
  // else an errno value: the system's own for a failed call, ENOSPC for
  // caller memory that is full, EBADMSG for damaged compressed input. Closing
  // keeps it, so it can be asked after close(). The same thread as the
  // stream's other calls.
  int error() const { return _error; }
  // The text of error(): "" while there is none, else a fixed text that
  // lives as long as the process (the system's text for an errno value, or
  // the kind of damage for EBADMSG).
  const char* errortext() const { return _errortext; }

 protected:
  // Records a failure unless one is recorded already, so the first cause is
  // the one reported. A null text means the system's text for code; a text
  // given must live as long as the process (a literal). code 0 is ignored.
  void SetError(int code, const char* text = nullptr);
  // Records the failure of a stream this one reads from or writes to.
  void TakeError(const qxstream& inner) {
    if (inner._error != 0 && _error == 0) {
      SetError(inner._error, inner._errortext);
    }
  }
  // Forgets the recorded failure; opening does this.
  void ClearError() {
    _error = 0;
    _errortext = "";
  }

  char* _buffer;
  char* _ptr;
  char* _begin;
  char* _end;
  unsigned long long _count;
  unsigned long long _offset;
  unsigned long long _size;
  bool _sizeknown;
  bool _eof;
  int _error;
  const char* _errortext;
};

// An input stream. The base class reads memory handed to open(data, n) and
// reports end of data afterwards; back-ends supply _qxfill and friends.
class QXPLATFORM_EXPORT qxistream : public qxstream {
  friend class qxostream;
  // Back-ends that sit on other streams reach into them.
  friend class qxiwrapperstream;
  friend class qxowrapperstream;
  friend class qxigzstream;
  friend class qxogzstream;
  friend class qxizstdstream;
  friend class QXStreamManager;

 public:
  qxistream();
  qxistream(const qxistream& other) = default;
  qxistream& operator=(const qxistream& other) = default;
  ~qxistream() override;

 protected:
  // Opens the source named by name; the plain input stream cannot.
  virtual bool _qxopen(const char* name);
  // Releases the source; open and close stop when this returns false.
  virtual bool _qxclose();
  // Called with an empty span when more input is wanted: makes a non-empty
  // span and returns true, or sets _eof and returns false.
  virtual bool _qxfill();

 public:
  // Text extraction. None of these changes the stream's state on bad data:
  // numbers become 0, bytes 0xFF and bools false at end of data.
  virtual qxistream& operator>>(qxistream& (*manip)(qxistream&));
  virtual qxistream& operator>>(qxstream& (*manip)(qxstream&));
  virtual qxistream& operator>>(bool& value);
  virtual qxistream& operator>>(char& value);
  virtual qxistream& operator>>(unsigned char& value);
  virtual qxistream& operator>>(signed char& value);
  virtual qxistream& operator>>(std::string& value);
  virtual qxistream& operator>>(short& value);
  virtual qxistream& operator>>(int& value);
  virtual qxistream& operator>>(long& value);
  virtual qxistream& operator>>(unsigned short& value);
  virtual qxistream& operator>>(unsigned int& value);
  virtual qxistream& operator>>(unsigned long& value);
  virtual qxistream& operator>>(float& value);
  virtual qxistream& operator>>(double& value);
  // Copies the rest of this stream into out; copies nothing when _eof is
  // already set (use out << in for streams that keep _eof set while full).
  virtual qxistream& operator>>(qxostream& out);

  // One token as a plain decimal: an optional sign, then digits, read up to
  // the first byte that is not a digit. The token is taken as the other
  // number extractions take it (leading whitespace is not skipped). 0 at end
  // of data, for a token that starts with no digit, and for a value outside
  // the type; for the unsigned type a leading '-' negates modulo 2^64, as
  // the other unsigned extractions wrap ("-1" gives 2^64 - 1). Not virtual:
  // back-ends keep the slots they were built with, and a back-end that declares
  // its own operator>> hides these as it hides the others.
  qxistream& operator>>(long long& value);
  qxistream& operator>>(unsigned long long& value);

  // Copies up to n bytes and returns how many arrived (also in count()).
  unsigned long read(char* into, unsigned long n) {
    _count = 0;
    if (n == 0) {
      return 0;
    }
    if (static_cast<unsigned long>(_end - _ptr) >= n) {
      std::memcpy(into, _ptr, n);
      _ptr += n;
      _count = n;
      return n;
    }
    return ReadSlow(into, n);
  }
  unsigned long read(unsigned char* into, unsigned long n) {
    return read(reinterpret_cast<char*>(into), n);
  }
  unsigned long read(signed char* into, unsigned long n) {
    return read(reinterpret_cast<char*>(into), n);
  }
  // Replaces into with up to n bytes; returns how many.
  unsigned long read(std::string& into, unsigned long n);
  // Replaces into with everything up to the end of the stream.
  unsigned long read(std::string& into);

  // Skips n bytes; true for n == 0, false for negative n or when the data
  // ends first (the stream is then at its end).
  bool skip(long long n);

  // Opens the source named by name; true on success.
  bool open(const char* name);
  bool open(const std::string& name);
  // Reads the n bytes at data in place: neither copied nor owned.
  bool open(unsigned char* data, unsigned long n);
  // Releases the source; false when the back-end refuses.
  bool close();

  // One token: bytes up to the next whitespace byte, which is consumed.
  // Leading whitespace is not skipped. buffer holds max bytes and always
  // receives a terminating NUL; false at end of data or when max is 0.
  bool gettoken(char* buffer, unsigned long max);
  bool gettoken(unsigned char* buffer, unsigned long max);
  bool gettoken(signed char* buffer, unsigned long max);
  // One token of at most max - 1 bytes.
  bool gettoken(std::string& token, unsigned long max);

  // One line, ended by LF, CR, CR LF or runs of CR before an LF; control
  // bytes other than tab are dropped. A line longer than max - 1 bytes is
  // cut and its rest discarded. False at end of data or when max is 0.
  bool getline(char* buffer, unsigned long max);
  bool getline(unsigned char* buffer, unsigned long max);
  bool getline(signed char* buffer, unsigned long max);
  // One line of at most max - 1 bytes; throws std::bad_alloc for an absurd
  // max.
  bool getline(std::string& line, unsigned long max);
  // One line of any length.
  bool getline(std::string& line);
  // Discards the rest of the current line; false at end of data.
  bool skipline();

 private:
  unsigned long ReadSlow(char* into, unsigned long n);
  // True when a byte is in the span, refilling once when it is empty.
  bool HaveByte() { return _ptr != _end || _qxfill(); }
  void ConsumeLineEnd(unsigned char first);
  // Skips whitespace, then appends bytes up to the next whitespace to word.
  void ReadWord(std::string& word);
  friend qxistream& operator>>(qxistream& in, const QXWord& word);
  const char* NumberToken(char* small, unsigned long smallSize,
                          std::unique_ptr<char[]>& heap);
};

// An output stream. The base class is the discarding sink: bytes written to
// its own block are counted and dropped; opened on caller memory it fills
// that memory and then fails.
class QXPLATFORM_EXPORT qxostream : public qxstream {
  friend class qxistream;
  // Back-ends that sit on other streams reach into them.
  friend class qxiwrapperstream;
  friend class qxowrapperstream;
  friend class qxigzstream;
  friend class qxogzstream;
  friend class QXStreamManager;

 public:
  qxostream();
  qxostream(const qxostream& other) = default;
  qxostream& operator=(const qxostream& other) = default;
  ~qxostream() override;

 protected:
  // Opens the sink named by name; the plain output stream cannot.
  virtual bool _qxopen(const char* name);
  // Releases the sink.
  virtual bool _qxclose();
  // Hands [_begin, _ptr) to the sink and makes room; false (with _eof set)
  // when the sink fails.
  virtual bool _qxflush();
  // Called when the caller asks for everything written so far to reach the
  // sink (flush(), qxflush, qxendl), as opposed to _qxflush making room for
  // more. A back-end that holds data back between the two (a compressor)
  // overrides it. _qxflush().
  virtual bool _qxsync();

 public:
  // Text insertion: every value has exactly one textual form.
  virtual qxostream& operator<<(qxostream& (*manip)(qxostream&));
  virtual qxostream& operator<<(qxstream& (*manip)(qxstream&));
  virtual qxostream& operator<<(const char* text);
  virtual qxostream& operator<<(const unsigned char* text);
  virtual qxostream& operator<<(const signed char* text);
  virtual qxostream& operator<<(const std::string& text);
  virtual qxostream& operator<<(bool value);
  virtual qxostream& operator<<(char value);
  virtual qxostream& operator<<(unsigned char value);
  virtual qxostream& operator<<(signed char value);
  virtual qxostream& operator<<(short value);
  virtual qxostream& operator<<(unsigned short value);
  virtual qxostream& operator<<(int value);
  virtual qxostream& operator<<(unsigned int value);
  virtual qxostream& operator<<(long value);
  virtual qxostream& operator<<(unsigned long value);
  virtual qxostream& operator<<(float value);
  virtual qxostream& operator<<(double value);
  // Copies the rest of in, byte for byte.
  virtual qxostream& operator<<(qxistream& in);

  // "%lld" and "%llu": plain decimals, so tell(), size() and count() can be
  // written directly. Not virtual: back-ends keep the slots they were built
  // with. Every call that compiled before these existed still picks the
  // overload it picked; the long long forms are chosen only for arguments
  // whose own type is long long or unsigned long long.
  qxostream& operator<<(long long value);
  qxostream& operator<<(unsigned long long value);

  // Writes n bytes; returns n, or 0 when data is null or the sink failed
  // (bytes already taken stay handed on or buffered).
  unsigned long write(const char* data, unsigned long n) {
    if (data != nullptr && _ptr != _end &&
        n <= static_cast<unsigned long>(_end - _ptr)) {
      std::memcpy(_ptr, data, n);
      _ptr += n;
      _count = n;
      return n;
    }
    return WriteSlow(data, n);
  }
  unsigned long write(const unsigned char* data, unsigned long n) {
    return write(reinterpret_cast<const char*>(data), n);
  }
  unsigned long write(const signed char* data, unsigned long n) {
    return write(reinterpret_cast<const char*>(data), n);
  }
  // Writes all bytes of s, embedded NULs included; 0 on failure.
  unsigned long long write(const std::string& s);
  // Writes n bytes from the start of s; n is not checked against s.size().
  unsigned long long write(const std::string& s, unsigned long n);

  // Hands the span to the sink; the result of _qxsync, which is that of
  // _qxflush unless a back-end says otherwise.
  bool flush() { return _qxsync(); }
  bool open(const char* name);
  bool open(const std::string& name);
  // Writes into the n bytes at data in place.
  bool open(unsigned char* data, unsigned long n);
  // Flushes, then releases the sink; the back-end's result.
  bool close();

 private:
  unsigned long WriteSlow(const char* data, unsigned long n);
  // Stores one byte, flushing first when the span is full; false when the
  // sink failed.
  bool PutByte(char c) {
    if (_ptr == _end && !_qxflush()) {
      return false;
    }
    *_ptr++ = c;
    return true;
  }
  void PutFormatted(const char* text, unsigned long n);
  void WriteText(const char* text);

  friend qxostream& qxendl(qxostream& out);
  friend qxostream& qxends(qxostream& out);
  friend qxostream& qxflush(qxostream& out);
};

// Writes LF and flushes.
QXPLATFORM_EXPORT qxostream& qxendl(qxostream& out);
// Writes one NUL byte without flushing.
QXPLATFORM_EXPORT qxostream& qxends(qxostream& out);
// Flushes.
QXPLATFORM_EXPORT qxostream& qxflush(qxostream& out);

// What qxword makes: the string one word is read into.
struct QXWord {
  std::string* word;
};

// For in >> qxword(s): skips whitespace, then replaces s with the bytes up to
// the next whitespace byte, which stays unread. Whitespace is blank, tab,
// line feed, vertical tab, form feed and carriage return, whatever the
// locale; every other byte (NUL and bytes above 127 included) belongs to a
// word. A word is never empty, so an empty s means the data ended before
// one. Nothing else of the stream changes. word is held by pointer: it must
// outlive the expression.
inline QXWord qxword(std::string& word) { return QXWord{&word}; }
qxistream& operator>>(qxistream& in, const QXWord& word);

// What qxexact makes: a value and whether it is a float.
struct QXExact {
  double value;
  bool single;
};

// For out << qxexact(x): the shortest decimal text that reads back to x
// exactly (as float for a float), in fixed or scientific form as it comes
// out shorter: 0.1, 1e-10, 123456789, -0, 1.7976931348623157e+308. inf,
// -inf, nan and -nan for the special values; a NaN's payload is not kept.
// in >> x of the text gives x back. Deliberate: a double below the normal
// range (below 2.2250738585072014e-308 in magnitude, not 0) is written in
// exact hexadecimal (0x1p-1074), because a decimal text of it converts with a
// range error and the extraction turns that into 0. Any thread that owns out.
inline QXExact qxexact(double value) { return QXExact{value, false}; }
inline QXExact qxexact(float value) { return QXExact{value, true}; }
QXPLATFORM_EXPORT qxostream& operator<<(qxostream& out, const QXExact& value);

// Maps the standard manipulators: std::ends acts as qxends, std::flush as
// qxflush, and std::endl and every other one as qxendl.
QXPLATFORM_EXPORT qxostream& operator<<(qxostream& out,
                                        std::ostream& (*manip)(std::ostream&));
// Format manipulators such as std::hex have nothing to change here; they act
// as qxendl, which keeps them from being written as a bool.
QXPLATFORM_EXPORT qxostream& operator<<(
    qxostream& out, std::ios_base& (*manip)(std::ios_base&));

}  // namespace QXPlatform
