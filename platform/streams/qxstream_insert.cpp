// Text insertion: every value has one textual form, byte-identical to the
// printf format named beside it; the standard manipulators are mapped here.

#include <stdio.h>
#include <string.h>

#include <cfloat>
#include <charconv>
#include <cmath>
#include <ostream>

#include "../qxassert_private.h"
#include "qxstream.h"

namespace QXPlatform {
namespace {

// Large enough for any "%f" of a double (309 integer digits at most).
const int kFormatScratch = 1024;

}  // namespace

// Copies formatted characters, flushing as the span fills; a failed flush
// drops the rest without notice.
void qxostream::PutFormatted(const char* text, unsigned long n) {
  if (n <= static_cast<unsigned long>(_end - _ptr)) {
    std::memcpy(_ptr, text, n);
    _ptr += n;
    return;
  }
  for (unsigned long i = 0; i < n; ++i) {
    if (!PutByte(text[i])) {
      return;
    }
  }
}

void qxostream::WriteText(const char* text) {
  if (text == nullptr) {
    return;
  }
  // Deliberate: the length is taken as 32 bits, so a text of 4 GiB or more
  // is written modulo 2^32 bytes.
  unsigned int len = static_cast<unsigned int>(strlen(text));
  write(text, len);
}

qxostream& qxostream::operator<<(qxostream& (*manip)(qxostream&)) {
  return manip(*this);
}

qxostream& qxostream::operator<<(qxstream& (*manip)(qxstream&)) {
  manip(*this);
  return *this;
}

qxostream& qxostream::operator<<(const char* text) {
  WriteText(text);
  return *this;
}

qxostream& qxostream::operator<<(const unsigned char* text) {
  WriteText(reinterpret_cast<const char*>(text));
  return *this;
}

qxostream& qxostream::operator<<(const signed char* text) {
  WriteText(reinterpret_cast<const char*>(text));
  return *this;
}

qxostream& qxostream::operator<<(const std::string& text) {
  // Up to the first NUL, as the C-string form writes it.
  return *this << text.c_str();
}

qxostream& qxostream::operator<<(bool value) {
  PutByte(value ? '1' : '0');
  return *this;
}

qxostream& qxostream::operator<<(char value) {
  PutByte(value);
  return *this;
}

qxostream& qxostream::operator<<(unsigned char value) {
  PutByte(static_cast<char>(value));
  return *this;
}

qxostream& qxostream::operator<<(signed char value) {
  PutByte(static_cast<char>(value));
  return *this;
}

// Integers: std::to_chars gives the same digits as "%hd", "%hu", "%d", "%u",
// "%ld" and "%lu" without the cost of parsing a format.
#define QX_DEFINE_INTEGER_INSERTER(Type)                                     \
  qxostream& qxostream::operator<<(Type value) {                             \
    char text[32];                                                           \
    std::to_chars_result r = std::to_chars(text, text + sizeof text, value); \
    PutFormatted(text, static_cast<unsigned long>(r.ptr - text));            \
    return *this;                                                            \
  }

QX_DEFINE_INTEGER_INSERTER(short)
QX_DEFINE_INTEGER_INSERTER(unsigned short)
QX_DEFINE_INTEGER_INSERTER(int)
QX_DEFINE_INTEGER_INSERTER(unsigned int)
QX_DEFINE_INTEGER_INSERTER(long)
QX_DEFINE_INTEGER_INSERTER(unsigned long)
QX_DEFINE_INTEGER_INSERTER(long long)
QX_DEFINE_INTEGER_INSERTER(unsigned long long)

#undef QX_DEFINE_INTEGER_INSERTER

qxostream& qxostream::operator<<(float value) {
  return *this << static_cast<double>(value);
}

qxostream& qxostream::operator<<(double value) {
  // Fixed notation with six decimals is exactly "%f", infinities and NaNs
  // included.
  char text[kFormatScratch];
  std::to_chars_result r = std::to_chars(text, text + sizeof text, value,
                                         std::chars_format::fixed, 6);
  unsigned long n;
  if (r.ec == std::errc()) {
    n = static_cast<unsigned long>(r.ptr - text);
  } else {
    n = static_cast<unsigned long>(snprintf(text, sizeof text, "%f", value));
  }
  PutFormatted(text, n);
  return *this;
}

qxostream& qxostream::operator<<(qxistream& in) {
  if (in._ptr == in._end && in._eof) {
    return *this;
  }
  char chunk[4096];
  do {
    if (_eof) {
      break;
    }
    unsigned long got = in.read(chunk, sizeof chunk);
    if (got == 0) {
      break;
    }
    if (_ptr == _end && !_qxflush()) {
      continue;
    }
    WriteSlow(chunk, got);
  } while (in._ptr < in._end || !in._eof);
  return *this;
}

qxostream& operator<<(qxostream& out, const QXExact& exact) {
  // The longest shortest form is a negative double in scientific notation
  // with 17 digits (24 bytes); a hexadecimal subnormal takes 25.
  char text[64];
  char* end;
  double value = exact.value;
  if (exact.single) {
    float single = static_cast<float>(value);
    end = std::to_chars(text, text + sizeof text, single).ptr;
    // Text is read back as a double and then narrowed. For a few floats the
    // shortest text lies so close to the midpoint between two floats that
    // the double it reads as narrows to the neighbour (7.038531e-26 is
    // one); those get the double's shortest text, which reads back as the
    // float's exact value.
    double readBack = 0;
    std::from_chars(text, end, readBack);
    if (std::isfinite(single) && static_cast<float>(readBack) != single) {
      end = std::to_chars(text, text + sizeof text, value).ptr;
    }
  } else if (value != 0 && std::fabs(value) < DBL_MIN) {
    char* p = text;
    if (std::signbit(value)) {
      *p++ = '-';
      value = -value;
    }
    *p++ = '0';
    *p++ = 'x';
    end =
        std::to_chars(p, text + sizeof text, value, std::chars_format::hex).ptr;
  } else {
    end = std::to_chars(text, text + sizeof text, value).ptr;
  }
  out.write(text, static_cast<unsigned long>(end - text));
  return out;
}

qxostream& qxendl(qxostream& out) {
  if (out._ptr == out._end && !out._qxflush()) {
    out._qxflush();
    return out;
  }
  *out._ptr++ = '\n';
  out._qxsync();
  return out;
}

qxostream& qxends(qxostream& out) {
  if (out._ptr == out._end && !out._qxflush()) {
    return out;
  }
  *out._ptr++ = '\0';
  return out;
}

qxostream& qxflush(qxostream& out) {
  out._qxsync();
  return out;
}

qxostream& operator<<(qxostream& out, std::ostream& (*manip)(std::ostream&)) {
  typedef std::ostream& (*Manip)(std::ostream&);
  if (manip == static_cast<Manip>(std::ends)) {
    return qxends(out);
  }
  if (manip == static_cast<Manip>(std::flush)) {
    return qxflush(out);
  }
  return qxendl(out);
}

qxostream& operator<<(qxostream& out, std::ios_base& (*)(std::ios_base&)) {
  return qxendl(out);
}

}  // namespace QXPlatform
