#include "qxhalffloat.h"

#include <stdint.h>
#include <string.h>

#include <ostream>
#include <type_traits>

#include "qxbinary_simd_private.h"

namespace QXPlatform {
namespace {

static_assert(sizeof(QXHalfFloat) == 2, "a half float is one 16-bit word");
static_assert(std::is_trivially_copyable<QXHalfFloat>::value,
              "half floats are copied as plain words");

uint32_t FloatBits(float f) {
  uint32_t u;
  memcpy(&u, &f, sizeof u);
  return u;
}

uint64_t DoubleBits(double d) {
  uint64_t u;
  memcpy(&u, &d, sizeof u);
  return u;
}

// The same squaring that toFloat16 does, once for a whole batch.
void RaiseOverflowOnce() {
  volatile float big = 1.0e10f;
  for (int i = 0; i < 10; ++i) {
    big = big * big;
  }
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const QXHalfFloat& value) {
  return out << static_cast<float>(value);
}

void QXFloatToHalf(const float* in, QXHalfFloat* out, size_t n) {
  if (in == nullptr || out == nullptr || n == 0) {
    return;
  }
  // QXHalfFloat is exactly its word, so the array is an array of words.
  uint16_t* words = reinterpret_cast<uint16_t*>(out);
  if (binarysimd::Active().floatToHalf(in, words, n)) {
    RaiseOverflowOnce();
  }
}

void QXHalfToFloat(const QXHalfFloat* in, float* out, size_t n) {
  if (in == nullptr || out == nullptr || n == 0) {
    return;
  }
  const uint16_t* words = reinterpret_cast<const uint16_t*>(in);
  binarysimd::Active().halfToFloat(words, out, n);
}

bool QXIsNormalNum(double value) {
  return (DoubleBits(value) & 0x7FF0000000000000ULL) != 0x7FF0000000000000ULL;
}

bool QXIsNormalNum(float value) {
  return (FloatBits(value) & 0x7F800000u) != 0x7F800000u;
}

bool QXIsNaN(double value) { return !QXIsNormalNum(value); }

bool QXIsNaN(float value) { return !QXIsNormalNum(value); }

bool QXIsNaN(QXHalfFloat value) {
  unsigned short word = value.bits();
  return (word & 0x7C00u) == 0x7C00u && (word & 0x3FFu) != 0;
}

bool QXIsRealNaN(double value) {
  return (DoubleBits(value) & 0x7FFFFFFFFFFFFFFFULL) > 0x7FF0000000000000ULL;
}

bool QXIsRealNaN(float value) {
  return (FloatBits(value) & 0x7FFFFFFFu) > 0x7F800000u;
}

}  // namespace QXPlatform
