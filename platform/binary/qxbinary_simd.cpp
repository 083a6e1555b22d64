#include <string.h>

#include <cmath>
#include <initializer_list>

#include "qxbinary_simd_private.h"

// The vector kernels are written for x86; other processors run the scalar
// rules, which every vector kernel is held to bit for bit.
#if defined(__x86_64__) || defined(__i386__)
#define QX_X86_KERNELS 1
#include <immintrin.h>
#endif

// GCC 12 warns about the deliberately undefined vectors inside its own
// AVX-512 intrinsics once they are inlined here; the warning is about the
// compiler's header, not this file.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

namespace QXPlatform {
namespace binarysimd {
namespace {

// ---------------------------------------------------------------------------
// Scalar rules. Every vector kernel below must agree with these bit for bit.

void Swap16Scalar(unsigned char* dst, const unsigned char* src, size_t count) {
  for (size_t i = 0; i < count; ++i, src += 2, dst += 2) {
    unsigned char b0 = src[0];
    unsigned char b1 = src[1];
    dst[0] = b1;
    dst[1] = b0;
  }
}

void Swap32Scalar(unsigned char* dst, const unsigned char* src, size_t count) {
  for (size_t i = 0; i < count; ++i, src += 4, dst += 4) {
    uint32_t v = static_cast<uint32_t>(src[0]) << 24 |
                 static_cast<uint32_t>(src[1]) << 16 |
                 static_cast<uint32_t>(src[2]) << 8 | src[3];
    dst[0] = static_cast<unsigned char>(v);
    dst[1] = static_cast<unsigned char>(v >> 8);
    dst[2] = static_cast<unsigned char>(v >> 16);
    dst[3] = static_cast<unsigned char>(v >> 24);
  }
}

void Swap64Scalar(unsigned char* dst, const unsigned char* src, size_t count) {
  for (size_t i = 0; i < count; ++i, src += 8, dst += 8) {
    uint64_t v = 0;
    for (int k = 0; k < 8; ++k) {
      v = v << 8 | src[k];
    }
    for (int k = 0; k < 8; ++k) {
      dst[k] = static_cast<unsigned char>(v >> (8 * k));
    }
  }
}

uint32_t FloatBits(float f) {
  uint32_t u;
  memcpy(&u, &f, sizeof u);
  return u;
}

float BitsFloat(uint32_t u) {
  float f;
  memcpy(&f, &u, sizeof f);
  return f;
}

#ifdef QX_X86_KERNELS
// The scan keeps the first of several equal extremes. Vector lanes find the
// right value but may have met +0 and -0 in another order, so a zero result
// takes its sign from the first zero of the array.
void FixZeroSigns(const float* values, size_t n, float* maximum,
                  float* minimum) {
  if (*maximum != 0.0f && *minimum != 0.0f) {
    return;
  }
  for (size_t i = 0; i < n; ++i) {
    if (values[i] == 0.0f) {
      if (*maximum == 0.0f) {
        *maximum = values[i];
      }
      if (*minimum == 0.0f) {
        *minimum = values[i];
      }
      return;
    }
  }
}

#endif  // QX_X86_KERNELS

void MinMaxScalarFrom(const float* values, size_t from, size_t n,
                      float* maximum, float* minimum) {
  float hi = *maximum;
  float lo = *minimum;
  for (size_t i = from; i < n; ++i) {
    float v = values[i];
    if (v > hi) {
      hi = v;
    }
    if (v < lo) {
      lo = v;
    }
  }
  *maximum = hi;
  *minimum = lo;
}

void MinMaxScalar(const float* values, size_t n, float* maximum,
                  float* minimum) {
  *maximum = *minimum = values[0];
  MinMaxScalarFrom(values, 1, n, maximum, minimum);
}

#ifdef QX_X86_KERNELS
// Combines lane results in lane order with the scan's own rule, then the
// remainder of the array.
void FinishMinMax(const float* hiLanes, const float* loLanes, size_t lanes,
                  const float* values, size_t done, size_t n, float* maximum,
                  float* minimum) {
  float hi = hiLanes[0];
  float lo = loLanes[0];
  for (size_t i = 1; i < lanes; ++i) {
    if (hiLanes[i] > hi) {
      hi = hiLanes[i];
    }
    if (loLanes[i] < lo) {
      lo = loLanes[i];
    }
  }
  *maximum = hi;
  *minimum = lo;
  MinMaxScalarFrom(values, done, n, maximum, minimum);
  FixZeroSigns(values, n, maximum, minimum);
}

#endif  // QX_X86_KERNELS

void QuantiseScalar(const float* values, size_t n, float minimum, float scale,
                    float inv, uint32_t* codes) {
  for (size_t i = 0; i < n; ++i) {
    float q = (values[i] - minimum) * scale;
    codes[i] = TruncateToUnsigned(std::fma(q, inv, 0.5f));
  }
}

void DequantiseScalar(const uint32_t* codes, size_t n, float range, float inv,
                      float minimum, float* values) {
  for (size_t i = 0; i < n; ++i) {
    float product = range * static_cast<float>(codes[i]);
    values[i] = std::fma(product, inv, minimum);
  }
}

// The half rounding rule without raising the overflow condition; the batch
// caller raises it once for the whole array. Same arithmetic as toFloat16.
uint16_t FloatToHalfRule(uint32_t u, bool* overflow) {
  uint32_t s = (u >> 16) & 0x8000u;
  uint32_t mag = u & 0x7FFFFFFFu;
  if (mag - 0x38800000u < 0x7F800000u - 0x38800000u) {
    uint32_t half = ((mag + 0x1000u) >> 13) - (112u << 10);
    if (half > 0x7BFFu) {
      *overflow = true;
      return static_cast<uint16_t>(s | 0x7C00u);
    }
    return static_cast<uint16_t>(s | half);
  }
  uint32_t e = mag >> 23;
  uint32_t m = u & 0x7FFFFFu;
  if (e == 255) {
    if (m == 0) {
      return static_cast<uint16_t>(s | 0x7C00u);
    }
    m >>= 13;
    return static_cast<uint16_t>(s | 0x7C00u | m | (m == 0 ? 1u : 0u));
  }
  if (e < 102) {
    return 0;
  }
  m = (m | 0x800000u) >> (113 - e);
  return static_cast<uint16_t>(s | ((m + 0x1000u) >> 13));
}

bool FloatToHalfScalar(const float* in, uint16_t* out, size_t n) {
  bool overflow = false;
  for (size_t i = 0; i < n; ++i) {
    out[i] = FloatToHalfRule(FloatBits(in[i]), &overflow);
  }
  return overflow;
}

float HalfToFloatRule(uint16_t h) {
  uint32_t sign = static_cast<uint32_t>(h & 0x8000u) << 16;
  uint32_t x = (h >> 10) & 0x1Fu;
  uint32_t f = h & 0x3FFu;
  if (x == 31) {
    return BitsFloat(sign | 0x7F800000u | (f << 13));
  }
  if (x != 0) {
    return BitsFloat(sign | ((x + 112) << 23) | (f << 13));
  }
  // f times 2^-24: both steps are exact, so this is the normalised value.
  float magnitude = static_cast<float>(f) * 5.9604644775390625e-8f;
  return BitsFloat(sign | FloatBits(magnitude));
}

void HalfToFloatScalar(const uint16_t* in, float* out, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    out[i] = HalfToFloatRule(in[i]);
  }
}

#ifdef QX_X86_KERNELS

// ---------------------------------------------------------------------------
// SSSE3: byte reversal only.

#define QX_TARGET_SSSE3 __attribute__((target("ssse3")))

template <int Width>
QX_TARGET_SSSE3 __m128i ReverseMask128() {
  if (Width == 2) {
    return _mm_setr_epi8(1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14);
  }
  if (Width == 4) {
    return _mm_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12);
  }
  return _mm_setr_epi8(7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8);
}

template <int Width>
QX_TARGET_SSSE3 void SwapSsse3(unsigned char* dst, const unsigned char* src,
                               size_t count) {
  const __m128i mask = ReverseMask128<Width>();
  size_t bytes = count * Width;
  size_t i = 0;
  for (; i + 64 <= bytes; i += 64) {
    __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 16));
    __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 32));
    __m128i d = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 48));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i),
                     _mm_shuffle_epi8(a, mask));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i + 16),
                     _mm_shuffle_epi8(b, mask));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i + 32),
                     _mm_shuffle_epi8(c, mask));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i + 48),
                     _mm_shuffle_epi8(d, mask));
  }
  for (; i + 16 <= bytes; i += 16) {
    __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i),
                     _mm_shuffle_epi8(a, mask));
  }
  size_t rest = (bytes - i) / Width;
  if (Width == 2) {
    Swap16Scalar(dst + i, src + i, rest);
  } else if (Width == 4) {
    Swap32Scalar(dst + i, src + i, rest);
  } else {
    Swap64Scalar(dst + i, src + i, rest);
  }
}

// ---------------------------------------------------------------------------
// AVX2 with FMA.

#define QX_TARGET_AVX2 __attribute__((target("avx2,fma")))

template <int Width>
QX_TARGET_AVX2 __m256i ReverseMask256() {
  if (Width == 2) {
    return _mm256_setr_epi8(1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15,
                            14, 1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12,
                            15, 14);
  }
  if (Width == 4) {
    return _mm256_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13,
                            12, 3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14,
                            13, 12);
  }
  return _mm256_setr_epi8(7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8,
                          7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8);
}

template <int Width>
QX_TARGET_AVX2 void SwapAvx2(unsigned char* dst, const unsigned char* src,
                             size_t count) {
  const __m256i mask = ReverseMask256<Width>();
  size_t bytes = count * Width;
  size_t i = 0;
  for (; i + 128 <= bytes; i += 128) {
    __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i));
    __m256i b =
        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i + 32));
    __m256i c =
        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i + 64));
    __m256i d =
        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i + 96));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i),
                        _mm256_shuffle_epi8(a, mask));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i + 32),
                        _mm256_shuffle_epi8(b, mask));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i + 64),
                        _mm256_shuffle_epi8(c, mask));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i + 96),
                        _mm256_shuffle_epi8(d, mask));
  }
  for (; i + 32 <= bytes; i += 32) {
    __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i),
                        _mm256_shuffle_epi8(a, mask));
  }
  size_t rest = (bytes - i) / Width;
  if (Width == 2) {
    Swap16Scalar(dst + i, src + i, rest);
  } else if (Width == 4) {
    Swap32Scalar(dst + i, src + i, rest);
  } else {
    Swap64Scalar(dst + i, src + i, rest);
  }
}

QX_TARGET_AVX2 void MinMaxAvx2(const float* values, size_t n, float* maximum,
                               float* minimum) {
  if (n < 64 || std::isnan(values[0])) {
    MinMaxScalar(values, n, maximum, minimum);
    return;
  }
  // maxps(a, b) is a > b ? a : b, which is the scan's replacement rule with
  // the new value as a.
  __m256 hi0 = _mm256_set1_ps(values[0]);
  __m256 hi1 = hi0;
  __m256 lo0 = hi0;
  __m256 lo1 = hi0;
  size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    __m256 a = _mm256_loadu_ps(values + i);
    __m256 b = _mm256_loadu_ps(values + i + 8);
    hi0 = _mm256_max_ps(a, hi0);
    lo0 = _mm256_min_ps(a, lo0);
    hi1 = _mm256_max_ps(b, hi1);
    lo1 = _mm256_min_ps(b, lo1);
  }
  float hi[16];
  float lo[16];
  _mm256_storeu_ps(hi, hi0);
  _mm256_storeu_ps(hi + 8, hi1);
  _mm256_storeu_ps(lo, lo0);
  _mm256_storeu_ps(lo + 8, lo1);
  FinishMinMax(hi, lo, 16, values, i, n, maximum, minimum);
}

// Toward zero to unsigned 32 bits with TruncateToUnsigned's saturation.
QX_TARGET_AVX2 __m256i TruncateToUnsignedAvx2(__m256 r) {
  // maxps with r first turns NaN into the second operand, 0.
  r = _mm256_max_ps(r, _mm256_setzero_ps());
  const __m256 two31 = _mm256_set1_ps(2147483648.0f);
  __m256 big = _mm256_cmp_ps(r, two31, _CMP_GE_OQ);
  __m256 huge = _mm256_cmp_ps(r, _mm256_set1_ps(4294967296.0f), _CMP_GE_OQ);
  __m256 reduced = _mm256_sub_ps(r, _mm256_and_ps(big, two31));
  __m256i t = _mm256_cvttps_epi32(reduced);
  t = _mm256_xor_si256(t, _mm256_and_si256(_mm256_castps_si256(big),
                                           _mm256_set1_epi32(INT32_MIN)));
  return _mm256_or_si256(t, _mm256_castps_si256(huge));
}

QX_TARGET_AVX2 void QuantiseAvx2(const float* values, size_t n, float minimum,
                                 float scale, float inv, uint32_t* codes) {
  const __m256 vmin = _mm256_set1_ps(minimum);
  const __m256 vscale = _mm256_set1_ps(scale);
  const __m256 vinv = _mm256_set1_ps(inv);
  const __m256 half = _mm256_set1_ps(0.5f);
  size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    __m256 a = _mm256_loadu_ps(values + i);
    __m256 b = _mm256_loadu_ps(values + i + 8);
    a = _mm256_fmadd_ps(_mm256_mul_ps(_mm256_sub_ps(a, vmin), vscale), vinv,
                        half);
    b = _mm256_fmadd_ps(_mm256_mul_ps(_mm256_sub_ps(b, vmin), vscale), vinv,
                        half);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(codes + i),
                        TruncateToUnsignedAvx2(a));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(codes + i + 8),
                        TruncateToUnsignedAvx2(b));
  }
  QuantiseScalar(values + i, n - i, minimum, scale, inv, codes + i);
}

// Unsigned 32-bit to float with one rounding: the high half times 65536 is
// exact, the fused add rounds once.
QX_TARGET_AVX2 __m256 UnsignedToFloatAvx2(__m256i v) {
  __m256 hi = _mm256_cvtepi32_ps(_mm256_srli_epi32(v, 16));
  __m256 lo =
      _mm256_cvtepi32_ps(_mm256_and_si256(v, _mm256_set1_epi32(0xFFFF)));
  return _mm256_fmadd_ps(hi, _mm256_set1_ps(65536.0f), lo);
}

QX_TARGET_AVX2 void DequantiseAvx2(const uint32_t* codes, size_t n, float range,
                                   float inv, float minimum, float* values) {
  const __m256 vrange = _mm256_set1_ps(range);
  const __m256 vinv = _mm256_set1_ps(inv);
  const __m256 vmin = _mm256_set1_ps(minimum);
  size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    __m256 a = UnsignedToFloatAvx2(
        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(codes + i)));
    __m256 b = UnsignedToFloatAvx2(
        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(codes + i + 8)));
    _mm256_storeu_ps(values + i,
                     _mm256_fmadd_ps(_mm256_mul_ps(vrange, a), vinv, vmin));
    _mm256_storeu_ps(values + i + 8,
                     _mm256_fmadd_ps(_mm256_mul_ps(vrange, b), vinv, vmin));
  }
  DequantiseScalar(codes + i, n - i, range, inv, minimum, values + i);
}

// Eight floats to eight half words (in 32-bit lanes); overflow collects the
// lanes that rounded past the largest half.
QX_TARGET_AVX2 __m256i FloatToHalfAvx2Lanes(__m256i u, __m256i* overflow) {
  const __m256i one = _mm256_set1_epi32(1);
  const __m256i inf = _mm256_set1_epi32(0x7C00);
  __m256i sign =
      _mm256_and_si256(_mm256_srli_epi32(u, 16), _mm256_set1_epi32(0x8000));
  __m256i mag = _mm256_and_si256(u, _mm256_set1_epi32(0x7FFFFFFF));
  __m256i e = _mm256_srli_epi32(mag, 23);
  __m256i m = _mm256_and_si256(u, _mm256_set1_epi32(0x7FFFFF));
  // Normal range: rounding at bit 12 may carry into the exponent.
  __m256i normal = _mm256_sub_epi32(
      _mm256_srli_epi32(_mm256_add_epi32(mag, _mm256_set1_epi32(0x1000)), 13),
      _mm256_set1_epi32(112 << 10));
  __m256i over = _mm256_cmpgt_epi32(normal, _mm256_set1_epi32(0x7BFF));
  normal = _mm256_blendv_epi8(normal, inf, over);
  // Below the normal range: hidden bit, shift by 113 - e, round at bit 12.
  __m256i shift = _mm256_sub_epi32(_mm256_set1_epi32(113), e);
  __m256i small =
      _mm256_srlv_epi32(_mm256_or_si256(m, _mm256_set1_epi32(0x800000)), shift);
  small =
      _mm256_srli_epi32(_mm256_add_epi32(small, _mm256_set1_epi32(0x1000)), 13);
  // Infinity and NaN: keep the top ten fraction bits, never lose the NaN.
  __m256i top = _mm256_srli_epi32(m, 13);
  __m256i lost =
      _mm256_andnot_si256(_mm256_cmpeq_epi32(m, _mm256_setzero_si256()),
                          _mm256_cmpeq_epi32(top, _mm256_setzero_si256()));
  __m256i special =
      _mm256_or_si256(_mm256_or_si256(inf, top), _mm256_and_si256(lost, one));

  __m256i isSpecial = _mm256_cmpeq_epi32(e, _mm256_set1_epi32(255));
  __m256i isNormal = _mm256_cmpgt_epi32(e, _mm256_set1_epi32(112));
  __m256i isSmall = _mm256_cmpgt_epi32(e, _mm256_set1_epi32(101));
  __m256i r = _mm256_blendv_epi8(small, normal, isNormal);
  r = _mm256_blendv_epi8(r, special, isSpecial);
  r = _mm256_and_si256(_mm256_or_si256(r, sign), isSmall);
  *overflow = _mm256_or_si256(
      *overflow,
      _mm256_andnot_si256(isSpecial, _mm256_and_si256(over, isNormal)));
  return r;
}

QX_TARGET_AVX2 bool FloatToHalfAvx2(const float* in, uint16_t* out, size_t n) {
  __m256i overflow = _mm256_setzero_si256();
  size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    __m256i a = FloatToHalfAvx2Lanes(
        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i)),
        &overflow);
    __m256i b = FloatToHalfAvx2Lanes(
        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i + 8)),
        &overflow);
    __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi32(a, b),
                                              _MM_SHUFFLE(3, 1, 2, 0));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), packed);
  }
  bool any = !_mm256_testz_si256(overflow, overflow);
  return FloatToHalfScalar(in + i, out + i, n - i) || any;
}

QX_TARGET_AVX2 __m256 HalfToFloatAvx2Lanes(__m256i h) {
  __m256i sign =
      _mm256_slli_epi32(_mm256_and_si256(h, _mm256_set1_epi32(0x8000)), 16);
  __m256i em = _mm256_and_si256(h, _mm256_set1_epi32(0x7FFF));
  __m256i x = _mm256_srli_epi32(em, 10);
  __m256i shifted = _mm256_slli_epi32(em, 13);
  __m256i normal = _mm256_add_epi32(shifted, _mm256_set1_epi32(112 << 23));
  __m256i special = _mm256_or_si256(shifted, _mm256_set1_epi32(0x7F800000));
  __m256i small = _mm256_castps_si256(_mm256_mul_ps(
      _mm256_cvtepi32_ps(em), _mm256_set1_ps(5.9604644775390625e-8f)));
  __m256i r = _mm256_blendv_epi8(normal, small,
                                 _mm256_cmpeq_epi32(x, _mm256_setzero_si256()));
  r = _mm256_blendv_epi8(r, special,
                         _mm256_cmpeq_epi32(x, _mm256_set1_epi32(31)));
  return _mm256_castsi256_ps(_mm256_or_si256(r, sign));
}

QX_TARGET_AVX2 void HalfToFloatAvx2(const uint16_t* in, float* out, size_t n) {
  size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    __m256i h = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i));
    __m256i a = _mm256_cvtepu16_epi32(_mm256_castsi256_si128(h));
    __m256i b = _mm256_cvtepu16_epi32(_mm256_extracti128_si256(h, 1));
    _mm256_storeu_ps(out + i, HalfToFloatAvx2Lanes(a));
    _mm256_storeu_ps(out + i + 8, HalfToFloatAvx2Lanes(b));
  }
  HalfToFloatScalar(in + i, out + i, n - i);
}

// ---------------------------------------------------------------------------
// AVX-512 (F, BW, DQ, VL) with FMA.

#define QX_TARGET_AVX512 \
  __attribute__((target("avx512f,avx512bw,avx512dq,avx512vl,avx2,fma,bmi2")))

template <int Width>
QX_TARGET_AVX512 void SwapAvx512(unsigned char* dst, const unsigned char* src,
                                 size_t count) {
  const __m512i mask = _mm512_broadcast_i32x4(ReverseMask128<Width>());
  size_t bytes = count * Width;
  size_t i = 0;
  for (; i + 256 <= bytes; i += 256) {
    __m512i a = _mm512_loadu_si512(src + i);
    __m512i b = _mm512_loadu_si512(src + i + 64);
    __m512i c = _mm512_loadu_si512(src + i + 128);
    __m512i d = _mm512_loadu_si512(src + i + 192);
    _mm512_storeu_si512(dst + i, _mm512_shuffle_epi8(a, mask));
    _mm512_storeu_si512(dst + i + 64, _mm512_shuffle_epi8(b, mask));
    _mm512_storeu_si512(dst + i + 128, _mm512_shuffle_epi8(c, mask));
    _mm512_storeu_si512(dst + i + 192, _mm512_shuffle_epi8(d, mask));
  }
  for (; i + 64 <= bytes; i += 64) {
    _mm512_storeu_si512(dst + i,
                        _mm512_shuffle_epi8(_mm512_loadu_si512(src + i), mask));
  }
  if (i < bytes) {
    // The masked load and store never touch bytes outside the array.
    __mmask64 lanes = _bzhi_u64(~0ULL, static_cast<unsigned>(bytes - i));
    __m512i a = _mm512_maskz_loadu_epi8(lanes, src + i);
    _mm512_mask_storeu_epi8(dst + i, lanes, _mm512_shuffle_epi8(a, mask));
  }
}

QX_TARGET_AVX512 void MinMaxAvx512(const float* values, size_t n,
                                   float* maximum, float* minimum) {
  if (n < 64 || std::isnan(values[0])) {
    MinMaxScalar(values, n, maximum, minimum);
    return;
  }
  __m512 hi0 = _mm512_set1_ps(values[0]);
  __m512 hi1 = hi0;
  __m512 lo0 = hi0;
  __m512 lo1 = hi0;
  size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    __m512 a = _mm512_loadu_ps(values + i);
    __m512 b = _mm512_loadu_ps(values + i + 16);
    hi0 = _mm512_max_ps(a, hi0);
    lo0 = _mm512_min_ps(a, lo0);
    hi1 = _mm512_max_ps(b, hi1);
    lo1 = _mm512_min_ps(b, lo1);
  }
  float hi[32];
  float lo[32];
  _mm512_storeu_ps(hi, hi0);
  _mm512_storeu_ps(hi + 16, hi1);
  _mm512_storeu_ps(lo, lo0);
  _mm512_storeu_ps(lo + 16, lo1);
  FinishMinMax(hi, lo, 32, values, i, n, maximum, minimum);
}

QX_TARGET_AVX512 __m512i QuantiseAvx512Lanes(__m512 v, __m512 vmin,
                                             __m512 vscale, __m512 vinv) {
  __m512 r = _mm512_fmadd_ps(_mm512_mul_ps(_mm512_sub_ps(v, vmin), vscale),
                             vinv, _mm512_set1_ps(0.5f));
  // maxps with r first turns NaN into 0; the unsigned conversion saturates
  // 2^32 and above to all ones.
  r = _mm512_max_ps(r, _mm512_setzero_ps());
  return _mm512_cvttps_epu32(r);
}

QX_TARGET_AVX512 void QuantiseAvx512(const float* values, size_t n,
                                     float minimum, float scale, float inv,
                                     uint32_t* codes) {
  const __m512 vmin = _mm512_set1_ps(minimum);
  const __m512 vscale = _mm512_set1_ps(scale);
  const __m512 vinv = _mm512_set1_ps(inv);
  size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    __m512i a =
        QuantiseAvx512Lanes(_mm512_loadu_ps(values + i), vmin, vscale, vinv);
    __m512i b = QuantiseAvx512Lanes(_mm512_loadu_ps(values + i + 16), vmin,
                                    vscale, vinv);
    _mm512_storeu_si512(codes + i, a);
    _mm512_storeu_si512(codes + i + 16, b);
  }
  for (; i < n; i += 16) {
    __mmask16 lanes = static_cast<__mmask16>(
        _bzhi_u32(0xFFFFu, static_cast<unsigned>(n - i < 16 ? n - i : 16)));
    __m512i a = QuantiseAvx512Lanes(_mm512_maskz_loadu_ps(lanes, values + i),
                                    vmin, vscale, vinv);
    _mm512_mask_storeu_epi32(codes + i, lanes, a);
  }
}

QX_TARGET_AVX512 void DequantiseAvx512(const uint32_t* codes, size_t n,
                                       float range, float inv, float minimum,
                                       float* values) {
  const __m512 vrange = _mm512_set1_ps(range);
  const __m512 vinv = _mm512_set1_ps(inv);
  const __m512 vmin = _mm512_set1_ps(minimum);
  size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    __m512 a = _mm512_cvtepu32_ps(_mm512_loadu_si512(codes + i));
    __m512 b = _mm512_cvtepu32_ps(_mm512_loadu_si512(codes + i + 16));
    _mm512_storeu_ps(values + i,
                     _mm512_fmadd_ps(_mm512_mul_ps(vrange, a), vinv, vmin));
    _mm512_storeu_ps(values + i + 16,
                     _mm512_fmadd_ps(_mm512_mul_ps(vrange, b), vinv, vmin));
  }
  for (; i < n; i += 16) {
    __mmask16 lanes = static_cast<__mmask16>(
        _bzhi_u32(0xFFFFu, static_cast<unsigned>(n - i < 16 ? n - i : 16)));
    __m512 a = _mm512_cvtepu32_ps(_mm512_maskz_loadu_epi32(lanes, codes + i));
    _mm512_mask_storeu_ps(
        values + i, lanes,
        _mm512_fmadd_ps(_mm512_mul_ps(vrange, a), vinv, vmin));
  }
}

QX_TARGET_AVX512 __m512i FloatToHalfAvx512Lanes(__m512i u,
                                                __mmask16* overflow) {
  const __m512i inf = _mm512_set1_epi32(0x7C00);
  __m512i sign =
      _mm512_and_si512(_mm512_srli_epi32(u, 16), _mm512_set1_epi32(0x8000));
  __m512i mag = _mm512_and_si512(u, _mm512_set1_epi32(0x7FFFFFFF));
  __m512i e = _mm512_srli_epi32(mag, 23);
  __m512i m = _mm512_and_si512(u, _mm512_set1_epi32(0x7FFFFF));
  __mmask16 isSpecial = _mm512_cmpeq_epi32_mask(e, _mm512_set1_epi32(255));
  __mmask16 isNormal = _mm512_cmpgt_epi32_mask(e, _mm512_set1_epi32(112));
  __mmask16 isSmall = _mm512_cmpgt_epi32_mask(e, _mm512_set1_epi32(101));

  __m512i normal = _mm512_sub_epi32(
      _mm512_srli_epi32(_mm512_add_epi32(mag, _mm512_set1_epi32(0x1000)), 13),
      _mm512_set1_epi32(112 << 10));
  __mmask16 over = _mm512_mask_cmpgt_epi32_mask(
      isNormal & static_cast<__mmask16>(~isSpecial), normal,
      _mm512_set1_epi32(0x7BFF));
  normal = _mm512_mask_mov_epi32(normal, over, inf);

  __m512i shift = _mm512_sub_epi32(_mm512_set1_epi32(113), e);
  __m512i small =
      _mm512_srlv_epi32(_mm512_or_si512(m, _mm512_set1_epi32(0x800000)), shift);
  small =
      _mm512_srli_epi32(_mm512_add_epi32(small, _mm512_set1_epi32(0x1000)), 13);

  __m512i top = _mm512_srli_epi32(m, 13);
  __mmask16 lost =
      _mm512_test_epi32_mask(m, m) & _mm512_testn_epi32_mask(top, top);
  __m512i special = _mm512_or_si512(inf, top);
  special = _mm512_mask_or_epi32(special, lost, special, _mm512_set1_epi32(1));

  __m512i r = _mm512_mask_mov_epi32(small, isNormal, normal);
  r = _mm512_mask_mov_epi32(r, isSpecial, special);
  r = _mm512_maskz_or_epi32(isSmall, r, sign);
  *overflow = static_cast<__mmask16>(*overflow | over);
  return r;
}

QX_TARGET_AVX512 bool FloatToHalfAvx512(const float* in, uint16_t* out,
                                        size_t n) {
  __mmask16 overflow = 0;
  size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    __m512i a = FloatToHalfAvx512Lanes(_mm512_loadu_si512(in + i), &overflow);
    __m512i b =
        FloatToHalfAvx512Lanes(_mm512_loadu_si512(in + i + 16), &overflow);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i),
                        _mm512_cvtepi32_epi16(a));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i + 16),
                        _mm512_cvtepi32_epi16(b));
  }
  for (; i < n; i += 16) {
    __mmask16 lanes = static_cast<__mmask16>(
        _bzhi_u32(0xFFFFu, static_cast<unsigned>(n - i < 16 ? n - i : 16)));
    __mmask16 laneOverflow = 0;
    __m512i a = FloatToHalfAvx512Lanes(_mm512_maskz_loadu_epi32(lanes, in + i),
                                       &laneOverflow);
    overflow = static_cast<__mmask16>(overflow | (laneOverflow & lanes));
    _mm512_mask_cvtepi32_storeu_epi16(out + i, lanes, a);
  }
  return overflow != 0;
}

QX_TARGET_AVX512 __m512 HalfToFloatAvx512Lanes(__m512i h) {
  __m512i sign =
      _mm512_slli_epi32(_mm512_and_si512(h, _mm512_set1_epi32(0x8000)), 16);
  __m512i em = _mm512_and_si512(h, _mm512_set1_epi32(0x7FFF));
  __m512i x = _mm512_srli_epi32(em, 10);
  __m512i shifted = _mm512_slli_epi32(em, 13);
  __m512i r = _mm512_add_epi32(shifted, _mm512_set1_epi32(112 << 23));
  __m512i small = _mm512_castps_si512(_mm512_mul_ps(
      _mm512_cvtepi32_ps(em), _mm512_set1_ps(5.9604644775390625e-8f)));
  r = _mm512_mask_mov_epi32(r, _mm512_testn_epi32_mask(x, x), small);
  r = _mm512_mask_or_epi32(r, _mm512_cmpeq_epi32_mask(x, _mm512_set1_epi32(31)),
                           shifted, _mm512_set1_epi32(0x7F800000));
  return _mm512_castsi512_ps(_mm512_or_si512(r, sign));
}

QX_TARGET_AVX512 void HalfToFloatAvx512(const uint16_t* in, float* out,
                                        size_t n) {
  size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    __m512i a = _mm512_cvtepu16_epi32(
        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i)));
    __m512i b = _mm512_cvtepu16_epi32(
        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i + 16)));
    _mm512_storeu_ps(out + i, HalfToFloatAvx512Lanes(a));
    _mm512_storeu_ps(out + i + 16, HalfToFloatAvx512Lanes(b));
  }
  for (; i < n; i += 16) {
    __mmask16 lanes = static_cast<__mmask16>(
        _bzhi_u32(0xFFFFu, static_cast<unsigned>(n - i < 16 ? n - i : 16)));
    __m512i a = _mm512_cvtepu16_epi32(_mm256_maskz_loadu_epi16(lanes, in + i));
    _mm512_mask_storeu_ps(out + i, lanes, HalfToFloatAvx512Lanes(a));
  }
}

#endif  // QX_X86_KERNELS

// ---------------------------------------------------------------------------
// Tables and selection.

const Kernels kScalarKernels = {
    Swap16Scalar,   Swap32Scalar,     Swap64Scalar,      MinMaxScalar,
    QuantiseScalar, DequantiseScalar, FloatToHalfScalar, HalfToFloatScalar,
};

#ifdef QX_X86_KERNELS
const Kernels kSsse3Kernels = {
    SwapSsse3<2>,   SwapSsse3<4>,     SwapSsse3<8>,      MinMaxScalar,
    QuantiseScalar, DequantiseScalar, FloatToHalfScalar, HalfToFloatScalar,
};

const Kernels kAvx2Kernels = {
    SwapAvx2<2>,  SwapAvx2<4>,    SwapAvx2<8>,     MinMaxAvx2,
    QuantiseAvx2, DequantiseAvx2, FloatToHalfAvx2, HalfToFloatAvx2,
};

const Kernels kAvx512Kernels = {
    SwapAvx512<2>,  SwapAvx512<4>,    SwapAvx512<8>,     MinMaxAvx512,
    QuantiseAvx512, DequantiseAvx512, FloatToHalfAvx512, HalfToFloatAvx512,
};

#endif  // QX_X86_KERNELS

}  // namespace

bool Supported(Isa isa) {
#ifdef QX_X86_KERNELS
  __builtin_cpu_init();
  switch (isa) {
    case Isa::kScalar:
      return true;
    case Isa::kSsse3:
      return __builtin_cpu_supports("ssse3");
    case Isa::kAvx2:
      return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    case Isa::kAvx512:
      return __builtin_cpu_supports("avx512f") &&
             __builtin_cpu_supports("avx512bw") &&
             __builtin_cpu_supports("avx512dq") &&
             __builtin_cpu_supports("avx512vl") &&
             __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") &&
             __builtin_cpu_supports("bmi2");
  }
  return false;
#else
  return isa == Isa::kScalar;
#endif
}

const Kernels& KernelsFor(Isa isa) {
#ifdef QX_X86_KERNELS
  switch (isa) {
    case Isa::kScalar:
      return kScalarKernels;
    case Isa::kSsse3:
      return kSsse3Kernels;
    case Isa::kAvx2:
      return kAvx2Kernels;
    case Isa::kAvx512:
      return kAvx512Kernels;
  }
#else
  static_cast<void>(isa);
#endif
  return kScalarKernels;
}

const Kernels& Active() {
  static const Kernels* const active = [] {
    for (Isa isa : {Isa::kAvx512, Isa::kAvx2, Isa::kSsse3}) {
      if (Supported(isa)) {
        return &KernelsFor(isa);
      }
    }
    return &kScalarKernels;
  }();
  return *active;
}

void ImageOrder(unsigned char* dst, const unsigned char* src, unsigned width,
                size_t count) {
  if (kHostBigEndian) {
    if (dst != src) {
      memcpy(dst, src, width * count);
    }
    return;
  }
  const Kernels& kernels = Active();
  if (width == 2) {
    kernels.swap16(dst, src, count);
  } else if (width == 4) {
    kernels.swap32(dst, src, count);
  } else {
    kernels.swap64(dst, src, count);
  }
}

}  // namespace binarysimd
}  // namespace QXPlatform
