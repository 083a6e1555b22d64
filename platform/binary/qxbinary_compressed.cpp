// Bit-packed unsigned arrays and quantised float arrays.

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include "../streams/qxstream.h"
#include "qxbinary.h"
#include "qxbinary_simd_private.h"

#define QX_ALWAYS_INLINE inline __attribute__((always_inline))

namespace QXPlatform {
namespace {

// The fast packer and unpacker move 32 values at a time: 32 * n bits are
// exactly n 32-bit words, so every block starts on a byte boundary.
constexpr unsigned kBlock = 32;
// Floats are quantised and packed in slices of this many values, so the
// codes stay in cache between the two steps.
constexpr size_t kSlice = 4096;

// Deliberate: values are not masked to n bits; the packer copies as many
// bytes of each value as cover n bits, so a value of 2^n or more spills into
// the bits of the values after it.
constexpr uint32_t CoverMask(unsigned n) {
  return n == 0 ? 0u : n > 24 ? 0xFFFFFFFFu : (1u << (8 * ((n + 7) / 8))) - 1u;
}

constexpr uint32_t LowMask(unsigned n) { return ~(~0u << n); }

// Deliberate: the product wraps in 32 bits, and the image always has one
// byte more than the whole bytes, even when N * n is a multiple of 8. This
// is the size the functions return.
unsigned long PackedSize(unsigned int n, unsigned int count) {
  unsigned int bits = count * n;
  return static_cast<unsigned long>(bits / 8) + 1;
}

// Deliberate: past 2^32 bits the image is this size, not PackedSize, so that
// every value is written and read at its own bit position instead of being
// dropped. Equal to PackedSize below 2^32 bits.
size_t ImageSize(unsigned int n, unsigned int count) {
  return static_cast<size_t>(static_cast<uint64_t>(count) * n / 8) + 1;
}

// Little-endian stores and loads, byte by byte; compilers fold them into
// single moves.
QX_ALWAYS_INLINE void Store32(unsigned char* p, uint64_t v) {
  p[0] = static_cast<unsigned char>(v);
  p[1] = static_cast<unsigned char>(v >> 8);
  p[2] = static_cast<unsigned char>(v >> 16);
  p[3] = static_cast<unsigned char>(v >> 24);
}

QX_ALWAYS_INLINE uint64_t Load64(const unsigned char* p) {
  return static_cast<uint64_t>(p[0]) | static_cast<uint64_t>(p[1]) << 8 |
         static_cast<uint64_t>(p[2]) << 16 | static_cast<uint64_t>(p[3]) << 24 |
         static_cast<uint64_t>(p[4]) << 32 | static_cast<uint64_t>(p[5]) << 40 |
         static_cast<uint64_t>(p[6]) << 48 | static_cast<uint64_t>(p[7]) << 56;
}

void PutFloat(unsigned char* dst, float f) {
  uint32_t u;
  memcpy(&u, &f, sizeof u);
  dst[0] = static_cast<unsigned char>(u >> 24);
  dst[1] = static_cast<unsigned char>(u >> 16);
  dst[2] = static_cast<unsigned char>(u >> 8);
  dst[3] = static_cast<unsigned char>(u);
}

float GetFloat(const unsigned char* src) {
  uint32_t u = static_cast<uint32_t>(src[0]) << 24 |
               static_cast<uint32_t>(src[1]) << 16 |
               static_cast<uint32_t>(src[2]) << 8 | src[3];
  float f;
  memcpy(&f, &u, sizeof f);
  return f;
}

// One block of 32 values at N bits, unrolled at compile time: acc holds the
// bits from word W on; value I goes at bit I * N. Words are stored as soon
// as no later value can reach them. Bits a value spills past the block stay
// in acc for the next block.
template <unsigned N, unsigned I, unsigned W>
QX_ALWAYS_INLINE void PackStep(const uint32_t* v, unsigned char* out,
                               uint64_t& acc) {
  if constexpr (I == kBlock) {
    if constexpr (W < N) {
      Store32(out + 4 * W, acc);
      acc >>= 32;
      PackStep<N, I, W + 1>(v, out, acc);
    }
  } else if constexpr (I * N >= 32 * (W + 1)) {
    Store32(out + 4 * W, acc);
    acc >>= 32;
    PackStep<N, I, W + 1>(v, out, acc);
  } else {
    acc |= static_cast<uint64_t>(v[I] & CoverMask(N)) << (I * N - 32 * W);
    PackStep<N, I + 1, W>(v, out, acc);
  }
}

template <unsigned N>
uint64_t PackBlocks(const uint32_t* v, size_t blocks, unsigned char* out,
                    uint64_t acc) {
  for (size_t b = 0; b < blocks; ++b) {
    PackStep<N, 0, 0>(v + b * kBlock, out + b * 4 * N, acc);
  }
  return acc;
}

// Value I of a block: an 8-byte load at its first byte covers all its bits
// (at most 7 + 31), so values are extracted independently of each other.
template <unsigned N, unsigned I>
QX_ALWAYS_INLINE void UnpackStep(const unsigned char* in, uint32_t* v) {
  if constexpr (I < kBlock) {
    constexpr unsigned pos = I * N;
    v[I] =
        static_cast<uint32_t>(Load64(in + pos / 8) >> (pos % 8)) & LowMask(N);
    UnpackStep<N, I + 1>(in, v);
  }
}

template <unsigned N>
void UnpackBlocks(const unsigned char* in, size_t blocks, uint32_t* v) {
  for (size_t b = 0; b < blocks; ++b) {
    UnpackStep<N, 0>(in + b * 4 * N, v + b * kBlock);
  }
}

using PackFn = uint64_t (*)(const uint32_t*, size_t, unsigned char*, uint64_t);
using UnpackFn = void (*)(const unsigned char*, size_t, uint32_t*);

template <size_t... I>
constexpr std::array<PackFn, 32> MakePackTable(std::index_sequence<I...>) {
  return {{nullptr, &PackBlocks<I + 1>...}};
}

template <size_t... I>
constexpr std::array<UnpackFn, 32> MakeUnpackTable(std::index_sequence<I...>) {
  return {{nullptr, &UnpackBlocks<I + 1>...}};
}

constexpr std::array<PackFn, 32> kPackTable =
    MakePackTable(std::make_index_sequence<31>());
constexpr std::array<UnpackFn, 32> kUnpackTable =
    MakeUnpackTable(std::make_index_sequence<31>());

// Writes the bit stream of values at n bits (1 to 31) into exactly size
// bytes, across as many Add calls as wanted. Bits that would land past size
// bytes are dropped, so a wrapped size or an oversized last value never
// writes outside the image.
class BitPacker {
 public:
  BitPacker(unsigned char* out, size_t size, unsigned bits)
      : _out(out), _size(size), _bits(bits) {}

  bool Full() const { return _pos >= _size; }

  void Add(const uint32_t* values, size_t count) {
    if (_bits == 0) {
      return;
    }
    if (_fill == 0 && _pos < _size) {
      size_t blocks =
          std::min(count / kBlock, (_size - _pos) / (4 * size_t{_bits}));
      if (blocks != 0) {
        _acc = kPackTable[_bits](values, blocks, _out + _pos, _acc);
        _pos += blocks * 4 * _bits;
        values += blocks * kBlock;
        count -= blocks * kBlock;
      }
    }
    const uint32_t mask = CoverMask(_bits);
    for (size_t i = 0; i < count && _pos < _size; ++i) {
      _acc |= static_cast<uint64_t>(values[i] & mask) << _fill;
      _fill += _bits;
      while (_fill >= 8) {
        if (_pos < _size) {
          _out[_pos++] = static_cast<unsigned char>(_acc);
        }
        _acc >>= 8;
        _fill -= 8;
      }
    }
  }

  // Writes the pending bits and zero bytes up to the end of the image.
  void Finish() {
    while (_pos < _size) {
      _out[_pos++] = static_cast<unsigned char>(_acc);
      _acc >>= 8;
    }
  }

 private:
  unsigned char* _out;
  size_t _size;
  unsigned _bits;
  size_t _pos = 0;
  uint64_t _acc = 0;
  unsigned _fill = 0;
};

// Reads values first to first + count - 1 of the bit stream at n bits in the
// size bytes at in. Bits past the image read as zero.
void Unpack(const unsigned char* in, size_t size, unsigned n, size_t first,
            uint32_t* values, size_t count) {
  if (n == 0) {
    std::fill(values, values + count, 0u);
    return;
  }
  uint64_t bit = static_cast<uint64_t>(first) * n;
  if (bit % 8 == 0 && size >= 8) {
    size_t start = static_cast<size_t>(bit / 8);
    size_t blocks = 0;
    if (start + 8 <= size) {
      blocks = std::min(count / kBlock, (size - start - 8) / (4 * size_t{n}));
    }
    if (blocks != 0) {
      kUnpackTable[n](in + start, blocks, values);
      values += blocks * kBlock;
      count -= blocks * kBlock;
      bit += static_cast<uint64_t>(blocks) * kBlock * n;
    }
  }
  const uint32_t mask = LowMask(n);
  const uint64_t limit = static_cast<uint64_t>(size) * 8;
  for (size_t i = 0; i < count; ++i, bit += n) {
    if (bit >= limit) {
      std::fill(values + i, values + count, 0u);
      return;
    }
    size_t byte = static_cast<size_t>(bit / 8);
    uint64_t word = 0;
    for (size_t k = 0; k < 5 && byte + k < size; ++k) {
      word |= static_cast<uint64_t>(in[byte + k]) << (8 * k);
    }
    values[i] = static_cast<uint32_t>(word >> (bit % 8)) & mask;
  }
}

// S(n) = 2^n - 1 as a float; 0 for n = 0.
float Scale(unsigned int n) { return static_cast<float>(LowMask(n)); }

void PackFloats(const float* values, unsigned int count, unsigned int n,
                float maximum, float minimum, unsigned char* out, size_t size) {
  BitPacker packer(out, size, n);
  // Equal bounds give all-zero codes, which Finish writes by itself.
  if (maximum != minimum) {
    const binarysimd::Kernels& kernels = binarysimd::Active();
    const float scale = Scale(n);
    const float inv = 1.0f / (maximum - minimum);
    uint32_t codes[kSlice];
    for (size_t i = 0; i < count && !packer.Full(); i += kSlice) {
      size_t len = std::min<size_t>(kSlice, count - i);
      kernels.quantise(values + i, len, minimum, scale, inv, codes);
      packer.Add(codes, len);
    }
  }
  packer.Finish();
}

void UnpackFloats(const unsigned char* in, size_t size, unsigned int n,
                  float maximum, float minimum, float* values,
                  unsigned int count) {
  const binarysimd::Kernels& kernels = binarysimd::Active();
  const float range = maximum - minimum;
  // Deliberate: for n = 0 this is 1 / 0, an infinity, and every value reads
  // back as NaN.
  const float inv = 1.0f / Scale(n);
  uint32_t codes[kSlice];
  for (size_t i = 0; i < count; i += kSlice) {
    size_t len = std::min<size_t>(kSlice, count - i);
    Unpack(in, size, n, i, codes, len);
    kernels.dequantise(codes, len, range, inv, minimum, values + i);
  }
}

// Scans values by the quantiser's rule: the first value starts both
// bounds, and only a value comparing greater or less replaces one.
void Bounds(const float* values, unsigned int count, float* maximum,
            float* minimum) {
  binarysimd::Active().minMax(values, count, maximum, minimum);
}

unsigned int BitLength(uint32_t m) {
  unsigned int k = 0;
  while (m != 0) {
    ++k;
    m >>= 1;
  }
  return k;
}

// One host word to the image's big-endian order, or back.
QX_ALWAYS_INLINE void ImageWord(unsigned char* dst, const unsigned char* src) {
  unsigned char b[4] = {src[0], src[1], src[2], src[3]};
  if (binarysimd::kHostBigEndian) {
    memcpy(dst, b, 4);
  } else {
    dst[0] = b[3];
    dst[1] = b[2];
    dst[2] = b[1];
    dst[3] = b[0];
  }
}

void WriteWords(qxostream& out, const unsigned char* src, unsigned int count) {
  unsigned char word[4];
  for (unsigned int i = 0; i < count; ++i, src += 4) {
    ImageWord(word, src);
    out.write(word, 4);
  }
}

unsigned long ReadWords(qxistream& in, unsigned char* dst, unsigned int count) {
  unsigned long got = 0;
  for (unsigned int i = 0; i < count; ++i, dst += 4) {
    got = in.read(dst, 4);
    ImageWord(dst, dst);
  }
  return got;
}

unsigned char* Bytes(void* p) { return static_cast<unsigned char*>(p); }

}  // namespace

unsigned long QX_io_write_binary_compressed(unsigned char* dst,
                                            unsigned int* values,
                                            unsigned int n, unsigned int N) {
  if (dst == nullptr || values == nullptr || N == 0) {
    return 0;
  }
  if (n >= 32) {
    binarysimd::ImageOrder(dst, Bytes(values), 4, N);
    return static_cast<unsigned long>(N) * 4;
  }
  BitPacker packer(dst, ImageSize(n, N), n);
  packer.Add(values, N);
  packer.Finish();
  return PackedSize(n, N);
}

unsigned long QX_io_write_binary_compressed(qxostream& out,
                                            unsigned int* values,
                                            unsigned int n, unsigned int N) {
  if (values == nullptr || N == 0) {
    return 0;
  }
  if (n >= 32) {
    WriteWords(out, Bytes(values), N);
    return static_cast<unsigned long>(N) * 4;
  }
  size_t size = ImageSize(n, N);
  std::unique_ptr<unsigned char[]> packed(new unsigned char[size]);
  BitPacker packer(packed.get(), size, n);
  packer.Add(values, N);
  packer.Finish();
  out.write(packed.get(), size);
  return PackedSize(n, N);
}

unsigned long QX_io_write_binary_compressed(unsigned char* dst, float* values,
                                            unsigned int n, unsigned int N) {
  if (dst == nullptr || values == nullptr || N == 0) {
    return 0;
  }
  if (n >= 32) {
    binarysimd::ImageOrder(dst, Bytes(values), 4, N);
    return static_cast<unsigned long>(N) * 4;
  }
  float maximum;
  float minimum;
  Bounds(values, N, &maximum, &minimum);
  PutFloat(dst, maximum);
  PutFloat(dst + 4, minimum);
  PackFloats(values, N, n, maximum, minimum, dst + 8, ImageSize(n, N));
  return PackedSize(n, N) + 8;
}

unsigned long QX_io_write_binary_compressed(qxostream& out, float* values,
                                            unsigned int n, unsigned int N) {
  if (values == nullptr || N == 0) {
    return 0;
  }
  if (n >= 32) {
    WriteWords(out, Bytes(values), N);
    return static_cast<unsigned long>(N) * 4;
  }
  float maximum;
  float minimum;
  Bounds(values, N, &maximum, &minimum);
  unsigned char header[4];
  PutFloat(header, maximum);
  out.write(header, 4);
  PutFloat(header, minimum);
  out.write(header, 4);
  size_t size = ImageSize(n, N);
  std::unique_ptr<unsigned char[]> packed(new unsigned char[size]);
  PackFloats(values, N, n, maximum, minimum, packed.get(), size);
  out.write(packed.get(), size);
  return PackedSize(n, N) + 8;
}

unsigned long QX_io_read_binary_compressed(const unsigned char* src,
                                           unsigned int* dst, unsigned int n,
                                           unsigned int N) {
  if (src == nullptr || dst == nullptr || N == 0) {
    return 0;
  }
  if (n >= 32) {
    binarysimd::ImageOrder(Bytes(dst), src, 4, N);
    return static_cast<unsigned long>(N) * 4;
  }
  Unpack(src, ImageSize(n, N), n, 0, dst, N);
  return PackedSize(n, N);
}

unsigned long QX_io_read_binary_compressed(qxistream& in, unsigned int* dst,
                                           unsigned int n, unsigned int N) {
  if (dst == nullptr || N == 0) {
    return 0;
  }
  if (n >= 32) {
    return ReadWords(in, Bytes(dst), N);
  }
  size_t size = ImageSize(n, N);
  // Deliberate: a short read is not reported. The block is zeroed, so the
  // missing bits unpack as zeros rather than garbage.
  std::unique_ptr<unsigned char[]> packed(new unsigned char[size]());
  in.read(packed.get(), size);
  Unpack(packed.get(), size, n, 0, dst, N);
  return PackedSize(n, N);
}

unsigned long QX_io_read_binary_compressed(const unsigned char* src, float* dst,
                                           unsigned int n, unsigned int N) {
  if (src == nullptr || dst == nullptr || N == 0) {
    return 0;
  }
  if (n >= 32) {
    binarysimd::ImageOrder(Bytes(dst), src, 4, N);
    return static_cast<unsigned long>(N) * 4;
  }
  float maximum = GetFloat(src);
  float minimum = GetFloat(src + 4);
  UnpackFloats(src + 8, ImageSize(n, N), n, maximum, minimum, dst, N);
  return PackedSize(n, N) + 8;
}

unsigned long QX_io_read_binary_compressed(qxistream& in, float* dst,
                                           unsigned int n, unsigned int N) {
  if (dst == nullptr || N == 0) {
    return 0;
  }
  if (n >= 32) {
    return ReadWords(in, Bytes(dst), N);
  }
  unsigned char header[8] = {0, 0, 0, 0, 0, 0, 0, 0};
  unsigned long got = in.read(header, 4);
  got += in.read(header + 4, 4);
  size_t size = ImageSize(n, N);
  std::unique_ptr<unsigned char[]> packed(new unsigned char[size]());
  in.read(packed.get(), size);
  UnpackFloats(packed.get(), size, n, GetFloat(header), GetFloat(header + 4),
               dst, N);
  return got + PackedSize(n, N);
}

unsigned int QX_io_util_calc_NumBits(unsigned int* values, unsigned int N) {
  if (values == nullptr || N == 0) {
    return 0;
  }
  unsigned int largest = 0;
  for (unsigned int i = 0; i < N; ++i) {
    largest = std::max(largest, values[i]);
  }
  return BitLength(largest);
}

unsigned int QX_io_util_calc_NumBits(float* values, unsigned int N,
                                     float precision) {
  if (values == nullptr || N == 0) {
    return 0;
  }
  float maximum;
  float minimum;
  Bounds(values, N, &maximum, &minimum);
  // A NaN quotient (a NaN bound, or 0 / 0) counts as no steps; a zero
  // precision over a real range saturates to 32 bits.
  uint32_t steps =
      binarysimd::TruncateToUnsigned((maximum - minimum) / precision + 0.5f);
  return BitLength(steps);
}

}  // namespace QXPlatform
