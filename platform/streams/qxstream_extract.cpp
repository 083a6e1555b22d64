// Text extraction: tokens, lines, bytes and numbers read with the library's
// own rules (see the comments in qxstream.h).

#include <ctype.h>
#include <errno.h>
#include <langinfo.h>
#include <stdint.h>
#include <stdlib.h>

#include <memory>
#include <new>
#include <string>

#include "../qxassert_private.h"
#include "../system/qxmemory.h"
#include "qxstream.h"

// The vector scanners are written for x86; every other processor uses the
// byte loops below, which find the same bytes.
#if defined(__x86_64__) || (defined(__i386__) && defined(__SSE2__))
#define QX_X86_SCANNERS 1
#include <emmintrin.h>
#include <immintrin.h>
#endif

namespace QXPlatform {
namespace {

const unsigned long kNumberScratch = 32768;

inline bool IsSpace(unsigned char c) { return isspace(c) != 0; }

// The byte rules of the scanners, one byte at a time: the whole scan on
// processors without vector scanners, and the tail of the vector ones.

// First byte in [p, end) that is below 32 and not a tab, or end: the bytes
// that stop a run of line text.
inline const char* FindLineStopScalar(const char* p, const char* end) {
  while (p < end) {
    unsigned char c = static_cast<unsigned char>(*p);
    if (c < 32 && c != '\t') {
      return p;
    }
    ++p;
  }
  return end;
}

// First LF or CR in [p, end), or end.
inline const char* FindLineEndScalar(const char* p, const char* end) {
  while (p < end && *p != '\n' && *p != '\r') {
    ++p;
  }
  return p;
}

// First byte in [p, end) that is below 33 or above 127: the bytes that may
// end or be dropped from a token, or whose class depends on the locale.
inline const char* FindTokenStopScalar(const char* p, const char* end) {
  while (p < end) {
    unsigned char c = static_cast<unsigned char>(*p);
    if (c < 33 || c > 127) {
      return p;
    }
    ++p;
  }
  return end;
}

#ifdef QX_X86_SCANNERS

// Marks the bytes of v that are below 32 and not a tab.
inline __m128i LineStops(__m128i v) {
  const __m128i limit = _mm_set1_epi8(31);
  const __m128i tab = _mm_set1_epi8('\t');
  __m128i low = _mm_cmpeq_epi8(_mm_max_epu8(v, limit), limit);
  return _mm_andnot_si128(_mm_cmpeq_epi8(v, tab), low);
}

// First byte in [p, end) that is below 32 and not a tab, or end: the bytes
// that stop a run of line text. Baseline version for every x86-64 processor.
// Lines are mostly longer than 16 bytes, so two vectors are tested per step.
const char* FindLineStopSse2(const char* p, const char* end) {
  while (end - p >= 32) {
    __m128i a = LineStops(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    __m128i b =
        LineStops(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16)));
    if (_mm_movemask_epi8(_mm_or_si128(a, b)) != 0) {
      unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(a)) |
                      static_cast<unsigned>(_mm_movemask_epi8(b)) << 16;
      return p + __builtin_ctz(mask);
    }
    p += 32;
  }
  if (end - p >= 16) {
    int mask = _mm_movemask_epi8(
        LineStops(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))));
    if (mask != 0) {
      return p + __builtin_ctz(static_cast<unsigned>(mask));
    }
    p += 16;
  }
  return FindLineStopScalar(p, end);
}

// The same with 32-byte vectors, for processors that have them; scanning is
// most of the cost of reading lines.
__attribute__((target("avx2"))) const char* FindLineStopAvx2(const char* p,
                                                             const char* end) {
  const __m256i limit = _mm256_set1_epi8(31);
  const __m256i tab = _mm256_set1_epi8('\t');
  while (end - p >= 32) {
    __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    __m256i low = _mm256_cmpeq_epi8(_mm256_max_epu8(v, limit), limit);
    __m256i stop = _mm256_andnot_si256(_mm256_cmpeq_epi8(v, tab), low);
    unsigned mask = static_cast<unsigned>(_mm256_movemask_epi8(stop));
    if (mask != 0) {
      return p + __builtin_ctz(mask);
    }
    p += 32;
  }
  return FindLineStopSse2(p, end);
}

typedef const char* (*LineStopFinder)(const char*, const char*);

// Chosen once for the processor the process runs on.
LineStopFinder ChooseLineStopFinder() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2") ? FindLineStopAvx2 : FindLineStopSse2;
}

inline const char* FindLineStop(const char* p, const char* end) {
  static const LineStopFinder finder = ChooseLineStopFinder();
  return finder(p, end);
}

// First LF or CR in [p, end), or end.
const char* FindLineEnd(const char* p, const char* end) {
  const __m128i lf = _mm_set1_epi8('\n');
  const __m128i cr = _mm_set1_epi8('\r');
  while (end - p >= 16) {
    __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    int mask = _mm_movemask_epi8(
        _mm_or_si128(_mm_cmpeq_epi8(v, lf), _mm_cmpeq_epi8(v, cr)));
    if (mask != 0) {
      return p + __builtin_ctz(static_cast<unsigned>(mask));
    }
    p += 16;
  }
  return FindLineEndScalar(p, end);
}

// First byte in [p, end) that is below 33 or above 127: the bytes that may
// end or be dropped from a token, or whose class depends on the locale.
const char* FindTokenStop(const char* p, const char* end) {
  const __m128i limit = _mm_set1_epi8(32);
  const __m128i high = _mm_set1_epi8(static_cast<char>(0x80));
  while (end - p >= 16) {
    __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    __m128i low = _mm_cmpeq_epi8(_mm_max_epu8(v, limit), limit);
    int mask = _mm_movemask_epi8(_mm_or_si128(low, _mm_and_si128(v, high)));
    if (mask != 0) {
      return p + __builtin_ctz(static_cast<unsigned>(mask));
    }
    p += 16;
  }
  return FindTokenStopScalar(p, end);
}

#else  // !QX_X86_SCANNERS

inline const char* FindLineStop(const char* p, const char* end) {
  return FindLineStopScalar(p, end);
}

inline const char* FindLineEnd(const char* p, const char* end) {
  return FindLineEndScalar(p, end);
}

inline const char* FindTokenStop(const char* p, const char* end) {
  return FindTokenStopScalar(p, end);
}

#endif  // QX_X86_SCANNERS

// The conversions the extractors promise: exactly what atoi, atol and atof
// give, followed by the errno rule. A plain decimal token is converted here
// without the C library; anything else goes to it.
template <typename T>
T ApplyRangeRule(T value) {
  // Deliberate: errno is not cleared first, so an ERANGE left over from an
  // earlier call also turns the value into 0.
  return errno == ERANGE ? T(0) : value;
}

// Parses [+-]digits followed by anything as strtol would, when the value
// fits a long; false when the C library must decide.
bool ParsePlainLong(const char* text, long* value) {
  const char* p = text;
  bool negative = false;
  if (*p == '+' || *p == '-') {
    negative = *p == '-';
    ++p;
  }
  unsigned long long acc = 0;
  int digits = 0;
  while (*p >= '0' && *p <= '9') {
    if (++digits > 19) {
      return false;
    }
    acc = acc * 10 + static_cast<unsigned>(*p - '0');
    ++p;
  }
  const unsigned long long kLongMax = 0x7FFFFFFFFFFFFFFFull;
  if (acc > kLongMax + (negative ? 1 : 0)) {
    return false;
  }
  // Negated as unsigned, so the most negative long needs no special case.
  *value = static_cast<long>(negative ? 0 - acc : acc);
  return true;
}

long ConvertLong(const char* text) {
  long value;
  if (!ParsePlainLong(text, &value)) {
    value = atol(text);
  }
  return ApplyRangeRule(value);
}

int ConvertInt(const char* text) {
  long value;
  int result;
  if (ParsePlainLong(text, &value)) {
    // atoi is strtol narrowed to int.
    result = static_cast<int>(value);
  } else {
    result = atoi(text);
  }
  return ApplyRangeRule(result);
}

const double kExactPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                               1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                               1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// True when the current locale's decimal point is the single byte '.'; in
// any other locale strtod reads the number differently.
bool DecimalPointIsDot() {
  const char* point = nl_langinfo(RADIXCHAR);
  return point != nullptr && point[0] == '.' && point[1] == '\0';
}

// A decimal number whose significant digits form an integer of at most 2^53
// and whose power of ten is at most 22 is one correctly rounded product or
// quotient of two exactly representable doubles, which is what strtod gives.
// Anything else (hexadecimal, infinities, NaNs, long mantissas, big
// exponents, denormal results) is left to the C library.
bool ParsePlainDouble(const char* text, double* value) {
  const char* p = text;
  bool negative = false;
  if (*p == '+' || *p == '-') {
    negative = *p == '-';
    ++p;
  }
  unsigned long long mantissa = 0;
  int digits = 0;
  int scale = 0;
  bool any = false;
  while (*p >= '0' && *p <= '9') {
    any = true;
    if (mantissa != 0 || *p != '0') {
      if (++digits > 19) {
        return false;
      }
    }
    mantissa = mantissa * 10 + static_cast<unsigned>(*p - '0');
    ++p;
  }
  if (*p == '.') {
    ++p;
    while (*p >= '0' && *p <= '9') {
      any = true;
      if (mantissa != 0 || *p != '0') {
        if (++digits > 19) {
          return false;
        }
      }
      mantissa = mantissa * 10 + static_cast<unsigned>(*p - '0');
      --scale;
      ++p;
    }
  }
  if (!any) {
    return false;
  }
  if (*p == 'e' || *p == 'E') {
    const char* q = p + 1;
    bool expNegative = false;
    if (*q == '+' || *q == '-') {
      expNegative = *q == '-';
      ++q;
    }
    if (*q >= '0' && *q <= '9') {
      int exponent = 0;
      while (*q >= '0' && *q <= '9') {
        if (exponent > 100000) {
          return false;
        }
        exponent = exponent * 10 + (*q - '0');
        ++q;
      }
      scale += expNegative ? -exponent : exponent;
      p = q;
    }
  }
  // "0x" starts a hexadecimal number for strtod.
  if ((*p == 'x' || *p == 'X') && p == text + (negative || *text == '+') + 1) {
    return false;
  }
  // Any other decimal point than '.' changes where the number ends.
  if (!DecimalPointIsDot()) {
    return false;
  }
  double v;
  if (mantissa == 0) {
    v = 0.0;
  } else {
    if (mantissa > (1ull << 53) || scale < -22 || scale > 22) {
      return false;
    }
    v = static_cast<double>(mantissa);
    if (scale < 0) {
      v /= kExactPowers[-scale];
    } else {
      v *= kExactPowers[scale];
    }
  }
  *value = negative ? -v : v;
  return true;
}

// [+-]digits up to the first other byte, as a magnitude and a sign; false
// when no digit comes or the magnitude passes 2^64 - 1.
bool ParseDecimal(const char* text, unsigned long long* magnitude,
                  bool* negative) {
  const char* p = text;
  *negative = false;
  if (*p == '+' || *p == '-') {
    *negative = *p == '-';
    ++p;
  }
  if (*p < '0' || *p > '9') {
    return false;
  }
  unsigned long long acc = 0;
  while (*p >= '0' && *p <= '9') {
    unsigned digit = static_cast<unsigned>(*p - '0');
    if (acc > (~0ull - digit) / 10) {
      return false;
    }
    acc = acc * 10 + digit;
    ++p;
  }
  *magnitude = acc;
  return true;
}

long long ConvertLongLong(const char* text) {
  unsigned long long magnitude;
  bool negative;
  if (!ParseDecimal(text, &magnitude, &negative)) {
    return 0;
  }
  const unsigned long long kMax = 0x7FFFFFFFFFFFFFFFull;
  if (magnitude > kMax + (negative ? 1 : 0)) {
    return 0;
  }
  // Negated as unsigned, so the most negative value needs no special case.
  return static_cast<long long>(negative ? 0 - magnitude : magnitude);
}

unsigned long long ConvertUnsignedLongLong(const char* text) {
  unsigned long long magnitude;
  bool negative;
  if (!ParseDecimal(text, &magnitude, &negative)) {
    return 0;
  }
  return negative ? 0 - magnitude : magnitude;
}

// The whitespace of words: the six ASCII bytes, whatever the locale.
inline bool IsWordSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

double ConvertDouble(const char* text) {
  double value;
  if (!ParsePlainDouble(text, &value)) {
    value = atof(text);
  }
  return ApplyRangeRule(value);
}

}  // namespace

// ---------------------------------------------------------------------------
// Manipulators, bytes and strings

qxistream& qxistream::operator>>(qxistream& (*manip)(qxistream&)) {
  return manip(*this);
}

qxistream& qxistream::operator>>(qxstream& (*manip)(qxstream&)) {
  manip(*this);
  return *this;
}

qxistream& qxistream::operator>>(bool& value) {
  // Deliberate: a boolean is one byte being present, whatever its value.
  if (HaveByte()) {
    ++_ptr;
    value = true;
  } else {
    value = false;
  }
  return *this;
}

qxistream& qxistream::operator>>(char& value) {
  value = HaveByte() ? *_ptr++ : static_cast<char>(0xFF);
  return *this;
}

qxistream& qxistream::operator>>(unsigned char& value) {
  value = HaveByte() ? static_cast<unsigned char>(*_ptr++) : 0xFF;
  return *this;
}

qxistream& qxistream::operator>>(signed char& value) {
  value = static_cast<signed char>(HaveByte() ? *_ptr++ : 0xFF);
  return *this;
}

qxistream& qxistream::operator>>(std::string& value) {
  read(value);
  return *this;
}

// ---------------------------------------------------------------------------
// Tokens

bool qxistream::gettoken(char* buffer, unsigned long max) {
  if (_ptr == _end) {
    _qxfill();
  }
  if (max == 0 || _ptr == _end) {
    buffer[0] = '\0';
    return false;
  }
  char* dst = buffer;
  unsigned long room = max - 1;
  for (;;) {
    if (_ptr == _end && !_qxfill()) {
      break;
    }
    const char* stop = FindTokenStop(_ptr, _end);
    unsigned long run = static_cast<unsigned long>(stop - _ptr);
    if (run > room) {
      // The token is full: the next byte is dropped and the rest of its
      // line goes too, line end included.
      std::memcpy(dst, _ptr, room);
      dst += room;
      _ptr += room + 1;
      skipline();
      break;
    }
    std::memcpy(dst, _ptr, run);
    dst += run;
    room -= run;
    _ptr += run;
    if (_ptr == _end) {
      continue;
    }
    unsigned char c = static_cast<unsigned char>(*_ptr++);
    if (IsSpace(c)) {
      break;
    }
    if (c < 33) {
      continue;
    }
    // A byte above 127 that the locale does not call whitespace.
    if (room == 0) {
      skipline();
      break;
    }
    *dst++ = static_cast<char>(c);
    --room;
  }
  *dst = '\0';
  return true;
}

bool qxistream::gettoken(unsigned char* buffer, unsigned long max) {
  return gettoken(reinterpret_cast<char*>(buffer), max);
}

bool qxistream::gettoken(signed char* buffer, unsigned long max) {
  return gettoken(reinterpret_cast<char*>(buffer), max);
}

bool qxistream::gettoken(std::string& token, unsigned long max) {
  if (max == static_cast<unsigned long>(-1)) {
    throw std::bad_alloc();
  }
  std::unique_ptr<char[]> scratch(new char[max + 1]);
  bool ok = gettoken(scratch.get(), max);
  if (ok) {
    token.assign(scratch.get());
  } else {
    token.clear();
  }
  return ok;
}

// ---------------------------------------------------------------------------
// Lines

// Called after a CR has been consumed: the CRs that follow directly go too,
// then one LF if it comes next. An LF needs nothing more.
void qxistream::ConsumeLineEnd(unsigned char first) {
  if (first != '\r') {
    return;
  }
  while (HaveByte()) {
    if (*_ptr == '\r') {
      ++_ptr;
      continue;
    }
    if (*_ptr == '\n') {
      ++_ptr;
    }
    return;
  }
}

bool qxistream::getline(char* buffer, unsigned long max) {
  if (_ptr == _end) {
    _qxfill();
  }
  if (max == 0 || _ptr == _end) {
    buffer[0] = '\0';
    return false;
  }
  char* dst = buffer;
  unsigned long room = max - 1;
  for (;;) {
    if (_ptr == _end && !_qxfill()) {
      break;
    }
    const char* stop = FindLineStop(_ptr, _end);
    unsigned long run = static_cast<unsigned long>(stop - _ptr);
    if (run > room) {
      // The line is longer than the buffer: keep what fits, drop the rest of
      // the line with its end.
      std::memcpy(dst, _ptr, room);
      dst += room;
      _ptr += room + 1;
      skipline();
      break;
    }
    std::memcpy(dst, _ptr, run);
    dst += run;
    room -= run;
    _ptr += run;
    if (_ptr == _end) {
      continue;
    }
    unsigned char c = static_cast<unsigned char>(*_ptr++);
    if (c == '\n' || c == '\r') {
      ConsumeLineEnd(c);
      break;
    }
  }
  // Compared as addresses, so that an absurd max cannot make the check
  // itself undefined.
  QX_CHECK_TEXT(reinterpret_cast<uintptr_t>(dst) <
                    reinterpret_cast<uintptr_t>(buffer) + max,
                "(size_t)dst < (size_t)(buffer + max)", "getline");
  *dst = '\0';
  return true;
}

bool qxistream::getline(unsigned char* buffer, unsigned long max) {
  return getline(reinterpret_cast<char*>(buffer), max);
}

bool qxistream::getline(signed char* buffer, unsigned long max) {
  return getline(reinterpret_cast<char*>(buffer), max);
}

bool qxistream::getline(std::string& line, unsigned long max) {
  if (max >= static_cast<unsigned long>(-16)) {
    throw std::bad_alloc();
  }
  unsigned long need = max + 16;
  if (need <= QXGetAllocaThreshold()) {
    char stackScratch[4096 + 16];
    bool ok = getline(stackScratch, max);
    line.assign(ok ? stackScratch : "");
    return ok;
  }
  std::unique_ptr<char[]> scratch(new char[need]);
  bool ok = getline(scratch.get(), max);
  line.assign(ok ? scratch.get() : "");
  return ok;
}

bool qxistream::getline(std::string& line) {
  line.clear();
  if (_ptr == _end && !_qxfill()) {
    return false;
  }
  for (;;) {
    if (_ptr == _end && !_qxfill()) {
      return true;
    }
    const char* stop = FindLineStop(_ptr, _end);
    line.append(_ptr, static_cast<size_t>(stop - _ptr));
    _ptr = const_cast<char*>(stop);
    if (_ptr == _end) {
      continue;
    }
    unsigned char c = static_cast<unsigned char>(*_ptr++);
    if (c == '\n' || c == '\r') {
      ConsumeLineEnd(c);
      return true;
    }
  }
}

bool qxistream::skipline() {
  if (_ptr == _end && !_qxfill()) {
    return false;
  }
  for (;;) {
    if (_ptr == _end && !_qxfill()) {
      return true;
    }
    const char* stop = FindLineEnd(_ptr, _end);
    _ptr = const_cast<char*>(stop);
    if (_ptr == _end) {
      continue;
    }
    unsigned char c = static_cast<unsigned char>(*_ptr++);
    ConsumeLineEnd(c);
    return true;
  }
}

// ---------------------------------------------------------------------------
// Numbers

// The token of one numeric extraction, or null at end of data. A token that
// sits whole in the span, ends at a whitespace byte and holds only plain
// ASCII is copied straight into small; any other goes through gettoken into a
// heap scratch of 32769 bytes. Both give the same text.
const char* qxistream::NumberToken(char* small, unsigned long smallSize,
                                   std::unique_ptr<char[]>& heap) {
  if (_ptr == _end && !_qxfill()) {
    return nullptr;
  }
  const char* stop = FindTokenStop(_ptr, _end);
  unsigned long run = static_cast<unsigned long>(stop - _ptr);
  if (stop != _end && run < smallSize &&
      static_cast<unsigned char>(*stop) < 33 &&
      IsSpace(static_cast<unsigned char>(*stop))) {
    std::memcpy(small, _ptr, run);
    small[run] = '\0';
    _ptr += run + 1;
    return small;
  }
  heap.reset(new char[kNumberScratch + 1]);
  if (!gettoken(heap.get(), kNumberScratch)) {
    return nullptr;
  }
  return heap.get();
}

#define QX_DEFINE_NUMBER_EXTRACTOR(Type, Convert)              \
  qxistream& qxistream::operator>>(Type& value) {              \
    char small[128];                                           \
    std::unique_ptr<char[]> heap;                              \
    const char* text = NumberToken(small, sizeof small, heap); \
    value = static_cast<Type>(text ? Convert(text) : 0);       \
    return *this;                                              \
  }

QX_DEFINE_NUMBER_EXTRACTOR(short, ConvertInt)
QX_DEFINE_NUMBER_EXTRACTOR(unsigned short, ConvertInt)
QX_DEFINE_NUMBER_EXTRACTOR(int, ConvertInt)
QX_DEFINE_NUMBER_EXTRACTOR(unsigned int, ConvertInt)
QX_DEFINE_NUMBER_EXTRACTOR(long, ConvertLong)
QX_DEFINE_NUMBER_EXTRACTOR(unsigned long, ConvertLong)
QX_DEFINE_NUMBER_EXTRACTOR(float, ConvertDouble)
QX_DEFINE_NUMBER_EXTRACTOR(double, ConvertDouble)
QX_DEFINE_NUMBER_EXTRACTOR(long long, ConvertLongLong)
QX_DEFINE_NUMBER_EXTRACTOR(unsigned long long, ConvertUnsignedLongLong)

#undef QX_DEFINE_NUMBER_EXTRACTOR

// ---------------------------------------------------------------------------
// Words

void qxistream::ReadWord(std::string& word) {
  word.clear();
  for (;;) {
    if (_ptr == _end && !_qxfill()) {
      return;
    }
    while (_ptr != _end && IsWordSpace(*_ptr)) {
      ++_ptr;
    }
    if (_ptr != _end) {
      break;
    }
  }
  for (;;) {
    const char* p = _ptr;
    while (p != _end && !IsWordSpace(*p)) {
      ++p;
    }
    word.append(_ptr, static_cast<size_t>(p - _ptr));
    _ptr = const_cast<char*>(p);
    if (_ptr != _end || !_qxfill()) {
      return;
    }
  }
}

qxistream& operator>>(qxistream& in, const QXWord& word) {
  in.ReadWord(*word.word);
  return in;
}

// ---------------------------------------------------------------------------
// Copying to an output stream

qxistream& qxistream::operator>>(qxostream& out) {
  // Deliberate: a stream that keeps _eof set while it holds data (a memory
  // input stream) copies nothing this way; out << in copies it.
  char chunk[4096];
  while (!_eof) {
    if (out._ptr == out._end && out._eof) {
      break;
    }
    unsigned long got = read(chunk, sizeof chunk);
    if (got == 0) {
      break;
    }
    if (out._ptr == out._end && !out._qxflush()) {
      continue;
    }
    out.WriteSlow(chunk, got);
  }
  return *this;
}

}  // namespace QXPlatform
