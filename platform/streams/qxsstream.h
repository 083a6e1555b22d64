#pragma once

// Memory streams: an input stream over a block of bytes, shared or owned, and
// an output stream that collects everything written to it in a string.

#include <string>

#include "qxstream.h"

namespace QXPlatform {

// Reads a block of bytes that it either shares with the caller or copies and
// owns. The pool block is taken as for every stream but never carries data.
class QXPLATFORM_EXPORT qxisstream : public qxistream {
 public:
  // An empty stream.
  qxisstream();
  // Holds the n bytes at data: an owned copy when copy is set, else the
  // caller's bytes, which must outlive the stream's use of them. Null or
  // empty data give an empty stream.
  qxisstream(const char* data, unsigned long n, bool copy);
  // Holds an owned copy of s.
  explicit qxisstream(const std::string& s);
  // Holds an owned copy of the NUL-terminated text; null gives an empty
  // stream.
  explicit qxisstream(const char* text);
  // Continues reading where other stands; an owning source is copied deeply,
  // a sharing one shared again.
  qxisstream(const qxisstream& other);
  qxisstream& operator=(const qxisstream& other);
  ~qxisstream() override;

 protected:
  unsigned long long _qxtell() const override;
  bool _qxfill() override;

  // Drops the back-end's private state; used by clear() and set().
  virtual void _qxclear();

 public:
  // Replaces the contents; true when data is not null and n is not 0.
  bool set(const char* data, unsigned long n, bool copy);
  bool set(char* data, unsigned long n, bool copy);
  // Replaces the contents with an owned copy of s; false when s is empty.
  bool set(const std::string& s);
  // Drops the contents (freeing them when owned).
  void clear();
  // Rewinds to the first byte; false when the stream is empty.
  bool reset();
  // Copies all the data, however much was read; true even when empty.
  bool getbuffer(std::string& out) const;

 protected:
  bool _owndata;

 private:
  void Drop();
};

// Collects everything written into a string. The block gathers up to 32768
// bytes and each flush appends them to the text.
class QXPLATFORM_EXPORT qxosstream : public qxostream {
 public:
  qxosstream();
  // The text starts as a copy of the n bytes at data.
  qxosstream(const unsigned char* data, unsigned long n);
  // The text starts as a copy of the NUL-terminated s.
  explicit qxosstream(const char* s);
  qxosstream(const qxosstream& other);
  qxosstream& operator=(const qxosstream& other);
  ~qxosstream() override;

 protected:
  bool _qxopen(const char* name) override;
  bool _qxflush() override;

  // Empties the text and releases its storage.
  virtual void _qxclear();

 public:
  // Everything written so far; the stream stays writable.
  std::string str();
  // Restarts with a copy of the given text; always true.
  bool set(const char* s);
  bool set(const unsigned char* data, unsigned long n);
  // Empties the text and resets the position to 0.
  void clear();

 protected:
  std::string _text;
};

}  // namespace QXPlatform
