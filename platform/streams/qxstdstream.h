#pragma once

// Adapters that let a standard-library stream serve as a source or sink, and
// the four process-wide streams built when the library is loaded.

#include <iosfwd>

#include "qxfstream.h"
#include "qxstream.h"

namespace QXPlatform {

// Reads from an attached std::istream, optionally owning it.
class QXPLATFORM_EXPORT qxistdstream : public qxistream {
 public:
  // Nothing attached.
  qxistdstream();
  // Attaches s; deletes it when letting go if own is set.
  qxistdstream(std::istream* s, bool own);
  ~qxistdstream() override;

 protected:
  bool _qxseek(long long pos) override;
  bool _qxclose() override;
  bool _qxfill() override;

  // Drops the back-end's private state; used by clear() and set().
  virtual void _qxclear();
  // Hook for attaching a new source; true.
  virtual bool _qxset(std::istream* s);

 public:
  // Attaches s (letting go of the old stream); false for a null or failed
  // stream. The stream already attached changes nothing.
  bool set(std::istream* s, bool own);
  // Lets go of the stream.
  void clear();

 protected:
  std::istream* _stream;
  bool _own;

 private:
  void LetGo();
  void Reset();
};

// Writes to an attached std::ostream, optionally owning it. Bytes still in
// the span when it is destroyed, cleared or re-set are lost: flush first.
class QXPLATFORM_EXPORT qxostdstream : public qxostream {
 public:
  qxostdstream();
  qxostdstream(std::ostream* s, bool own);
  ~qxostdstream() override;

 protected:
  bool _qxseek(long long pos) override;
  bool _qxclose() override;
  bool _qxflush() override;

  virtual void _qxclear();
  virtual bool _qxset(std::ostream* s);

 public:
  bool set(std::ostream* s, bool own);
  void clear();

 protected:
  std::ostream* _stream;
  bool _own;

 private:
  void LetGo(bool flushFirst);
  void Reset();
};

// Standard input, standard output, standard error and a sink that counts and
// drops. Shared by the whole process and not synchronised.
extern QXPLATFORM_EXPORT qxifstream qxin;
extern QXPLATFORM_EXPORT qxofstream qxout;
extern QXPLATFORM_EXPORT qxofstream qxerr;
extern QXPLATFORM_EXPORT qxostream qxnul;

}  // namespace QXPlatform
