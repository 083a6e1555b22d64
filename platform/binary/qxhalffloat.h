#pragma once

// A 16-bit storage type for floating-point values in the IEEE binary16
// layout, batch conversions to and from float, and number classification.

#include <cstddef>
#include <cstring>
#include <iosfwd>

#include "../qxexport.h"

namespace QXPlatform {

// One IEEE binary16 word: bit 15 the sign, bits 14 to 10 the exponent (bias
// 15), bits 9 to 0 the fraction. Exactly two bytes, trivially copyable, no
// state beyond the word; values may be used from any thread.
class QXPLATFORM_EXPORT QXHalfFloat {
 public:
  // Positive zero.
  QXHalfFloat() : _bits(0) {}
  // Each value is converted to float first (the language's own conversion),
  // then rounded by toFloat16.
  QXHalfFloat(int value) : _bits(toFloat16(static_cast<float>(value))) {}
  QXHalfFloat(float value) : _bits(toFloat16(value)) {}
  QXHalfFloat(double value) : _bits(toFloat16(static_cast<float>(value))) {}
  QXHalfFloat(long double value)
      : _bits(toFloat16(static_cast<float>(value))) {}

  // The binary16 word nearest to f, ties rounded up in magnitude. Values too
  // small for the smallest subnormal give positive zero, whatever their
  // sign; overflow gives a signed infinity and raises the floating-point
  // overflow condition; a NaN keeps the top ten bits of its fraction and
  // stays a NaN.
  static unsigned short toFloat16(const float& f);

  // The exact float value of the word; NaNs keep sign and fraction bits.
  operator float() const;

  // The raw word.
  unsigned short bits() const { return _bits; }
  // The value holding the raw word.
  static QXHalfFloat fromBits(unsigned short word) {
    QXHalfFloat h;
    h._bits = word;
    return h;
  }

 private:
  // Squares a volatile 1.0e10 ten times so that the processor records an
  // overflow, as a hardware conversion would.
  static void RaiseOverflow() {
    volatile float big = 1.0e10f;
    for (int i = 0; i < 10; ++i) {
      big = big * big;
    }
  }

  unsigned short _bits;
};

inline unsigned short QXHalfFloat::toFloat16(const float& f) {
  unsigned int u;
  std::memcpy(&u, &f, sizeof u);
  unsigned int s = (u >> 16) & 0x8000u;
  unsigned int mag = u & 0x7FFFFFFFu;
  // Normal range (biased exponent 113 to 254): rounding at bit 12 carries
  // into the exponent by itself, and past 30 it has overflowed.
  if (mag - 0x38800000u < 0x7F800000u - 0x38800000u) {
    unsigned int half = ((mag + 0x1000u) >> 13) - (112u << 10);
    if (half > 0x7BFFu) {
      RaiseOverflow();
      return static_cast<unsigned short>(s | 0x7C00u);
    }
    return static_cast<unsigned short>(s | half);
  }
  unsigned int e = mag >> 23;
  unsigned int m = u & 0x7FFFFFu;
  if (e == 255) {
    if (m == 0) {
      return static_cast<unsigned short>(s | 0x7C00u);
    }
    m >>= 13;
    return static_cast<unsigned short>(s | 0x7C00u | m | (m == 0 ? 1u : 0u));
  }
  // Deliberate: anything below half the smallest subnormal becomes +0, the
  // sign of a tiny negative value is dropped.
  if (e < 102) {
    return 0;
  }
  m = (m | 0x800000u) >> (113 - e);
  return static_cast<unsigned short>(s | ((m + 0x1000u) >> 13));
}

inline QXHalfFloat::operator float() const {
  unsigned int h = _bits;
  unsigned int sign = (h & 0x8000u) << 16;
  unsigned int x = (h >> 10) & 0x1Fu;
  unsigned int bits;
  if (x - 1u < 30u) {
    bits = sign | (((h & 0x7FFFu) << 13) + (112u << 23));
  } else if (x == 31) {
    bits = sign | 0x7F800000u | ((h & 0x3FFu) << 13);
  } else {
    // Subnormal or zero: the fraction times 2^-24, both steps exact.
    float magnitude = static_cast<float>(h & 0x3FFu) * 5.9604644775390625e-8f;
    std::memcpy(&bits, &magnitude, sizeof bits);
    bits |= sign;
  }
  float result;
  std::memcpy(&result, &bits, sizeof result);
  return result;
}

// Inserts the value as the float that operator float gives, with the
// standard stream's own float formatting. Returns out.
QXPLATFORM_EXPORT std::ostream& operator<<(std::ostream& out,
                                           const QXHalfFloat& value);

// Converts n floats by toFloat16's rule into out; the results are exactly
// those of the single conversion. The overflow condition is raised once when
// any element overflowed. Null pointers or n == 0 do nothing. The arrays must
// not overlap; any thread may call it.
QXPLATFORM_EXPORT void QXFloatToHalf(const float* in, QXHalfFloat* out,
                                     size_t n);
// Converts n half floats exactly to float into out, as operator float does.
// Null pointers or n == 0 do nothing. The arrays must not overlap; any thread
// may call it.
QXPLATFORM_EXPORT void QXHalfToFloat(const QXHalfFloat* in, float* out,
                                     size_t n);

// True for every finite value (zero, subnormal, normal); false for
// infinities and NaN.
QXPLATFORM_EXPORT bool QXIsNormalNum(double value);
QXPLATFORM_EXPORT bool QXIsNormalNum(float value);
// Deliberate: for float and double this is the complement of QXIsNormalNum,
// so infinities count as NaN here; QXIsRealNaN asks about NaN alone.
QXPLATFORM_EXPORT bool QXIsNaN(double value);
QXPLATFORM_EXPORT bool QXIsNaN(float value);
// True only for a half NaN (exponent all ones, fraction not zero); a half
// infinity gives false.
QXPLATFORM_EXPORT bool QXIsNaN(QXHalfFloat value);
// True only for NaN.
QXPLATFORM_EXPORT bool QXIsRealNaN(double value);
QXPLATFORM_EXPORT bool QXIsRealNaN(float value);

}  // namespace QXPlatform
