#pragma once

// Objects that write and read their own binary body, framed on streams by a
// 4-byte big-endian size, and the result codes of binary dumps.

#include "../qxexport.h"

namespace QXPlatform {

class qxistream;
class qxostream;

// Implemented by client classes that carry a binary body of their own (built
// with the big-endian functions of qxbinary.h). The library defines no
// implementation; the stream operators below frame the body.
class QXPLATFORM_EXPORT QXBinaryIO {
 public:
  virtual ~QXBinaryIO();
  // Writes the body to out, in the object's own format.
  virtual void Write(qxostream& out) const = 0;
  // Reads the body from in; returns the bytes it consumed.
  virtual unsigned long long Read(qxistream& in) = 0;
  // The size of the body in bytes; only its low 32 bits are framed.
  virtual unsigned long long GetSize() const = 0;
};

// Writes the low 32 bits of obj.GetSize() as 4 big-endian bytes, then the
// body through obj.Write; the size is not checked against what Write
// produced. Returns out. Throws only what the object or stream throws.
QXPLATFORM_EXPORT qxostream& operator<<(qxostream& out, const QXBinaryIO& obj);

// Reads the 4-byte size, then the body through obj.Read. When the size and
// the low 32 bits of what Read consumed differ, a two-line warning goes to
// qxerr; nothing is skipped or rewound and no error is raised. Returns in.
QXPLATFORM_EXPORT qxistream& operator>>(qxistream& in, QXBinaryIO& obj);

// The result codes of binary dumps and their printable names.
struct QXPLATFORM_EXPORT QXBinaryDump {
  struct QXPLATFORM_EXPORT ReturnCode {
    enum : unsigned int {
      Success,
      UnsupportedVersion,
      SizeMismatch,
      ContainerSize64Bit,
      EndOfStream,
      ExceededMaxRead,
      ExceededMaxWrite,
      UndefinedError
    };
    // The name of code ("Success", ...), "UNKNOWN" for any other value. The
    // text is static and never freed; any thread may call it.
    static const char* Name(unsigned int code);
  };
};

}  // namespace QXPlatform
