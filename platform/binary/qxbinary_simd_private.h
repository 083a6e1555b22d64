#pragma once

// Vector kernels of the binary layer: byte reversal, the quantiser's
// arithmetic and the half-float conversions, one table per instruction set.
// The table in use is picked once, at first use, from what the processor
// offers; every table gives bit for bit the results of the scalar one.

#include <stddef.h>
#include <stdint.h>

namespace QXPlatform {
namespace binarysimd {

enum class Isa { kScalar, kSsse3, kAvx2, kAvx512 };

struct Kernels {
  // Reverse the bytes of each 2-, 4- or 8-byte element of src into dst. dst
  // may equal src; other overlaps are not allowed. No alignment needed.
  void (*swap16)(unsigned char* dst, const unsigned char* src, size_t count);
  void (*swap32)(unsigned char* dst, const unsigned char* src, size_t count);
  void (*swap64)(unsigned char* dst, const unsigned char* src, size_t count);
  // The quantiser's scan: starting from values[0], a value replaces the
  // maximum when it compares greater and the minimum when it compares less.
  // n >= 1. Bit-exact, the sign of a zero extremum included.
  void (*minMax)(const float* values, size_t n, float* maximum, float* minimum);
  // codes[i] = TruncateToUnsigned(fma((values[i] - minimum) * scale, inv,
  // 0.5f)), each operation rounded to single precision.
  void (*quantise)(const float* values, size_t n, float minimum, float scale,
                   float inv, uint32_t* codes);
  // values[i] = fma(range * float(codes[i]), inv, minimum).
  void (*dequantise)(const uint32_t* codes, size_t n, float range, float inv,
                     float minimum, float* values);
  // The half-float rounding rule on each element; true when at least one
  // element overflowed to infinity (the caller raises the condition).
  bool (*floatToHalf)(const float* in, uint16_t* out, size_t n);
  // The exact half-to-float widening on each element.
  void (*halfToFloat)(const uint16_t* in, float* out, size_t n);
};

// True when this processor can run the table of isa.
bool Supported(Isa isa);
// The table of isa; only call it when Supported(isa).
const Kernels& KernelsFor(Isa isa);
// The best supported table, chosen once.
const Kernels& Active();

// True when the host keeps multi-byte numbers most significant byte first,
// as the image does: there an element is copied, not reversed.
constexpr bool kHostBigEndian = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;

// Converts count elements of width 2, 4 or 8 between host order and the
// big-endian image order (the same operation both ways). dst may equal src;
// other overlaps are not allowed.
void ImageOrder(unsigned char* dst, const unsigned char* src, unsigned width,
                size_t count);

// A float converted toward zero to unsigned 32 bits, saturating: NaN and
// anything below 1 give 0, 2^32 and above give 4294967295.
inline uint32_t TruncateToUnsigned(float r) {
  if (!(r > 0.0f)) {
    return 0;
  }
  if (r >= 4294967296.0f) {
    return 0xFFFFFFFFu;
  }
  return static_cast<uint32_t>(r);
}

}  // namespace binarysimd
}  // namespace QXPlatform
