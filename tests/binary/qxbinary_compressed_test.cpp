#include <stdint.h>
#include <string.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_binary.h"
#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

using testing::ByteVector;

unsigned long PackedSize(unsigned n, unsigned count) {
  return static_cast<unsigned long>(static_cast<uint32_t>(count * n) / 8) + 1;
}

// The layout taken literally, one bit at a time: bit k of the stream is bit
// k % 8 of byte k / 8, value i starts at bit i * n, least significant first.
ByteVector ReferencePack(const std::vector<uint32_t>& values, unsigned n) {
  ByteVector image(PackedSize(n, static_cast<unsigned>(values.size())), 0);
  for (size_t i = 0; i < values.size(); ++i) {
    for (unsigned b = 0; b < n; ++b) {
      if ((values[i] >> b) & 1) {
        size_t k = i * n + b;
        image[k / 8] |= static_cast<unsigned char>(1u << (k % 8));
      }
    }
  }
  return image;
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

ByteVector BigEndianWord(uint32_t u) {
  return ByteVector{
      static_cast<unsigned char>(u >> 24), static_cast<unsigned char>(u >> 16),
      static_cast<unsigned char>(u >> 8), static_cast<unsigned char>(u)};
}

// The quantiser written out in the test: first-wins bounds, product,
// reciprocal, fused multiply-add, saturating truncation.
std::vector<uint32_t> ReferenceCodes(const std::vector<float>& values,
                                     unsigned n, float* maxOut, float* minOut) {
  float hi = values[0];
  float lo = values[0];
  for (float v : values) {
    if (v > hi) {
      hi = v;
    }
    if (v < lo) {
      lo = v;
    }
  }
  *maxOut = hi;
  *minOut = lo;
  std::vector<uint32_t> codes(values.size(), 0);
  if (hi == lo) {
    return codes;
  }
  float scale = static_cast<float>(static_cast<uint32_t>((1ull << n) - 1));
  float inv = 1.0f / (hi - lo);
  for (size_t i = 0; i < values.size(); ++i) {
    float q = (values[i] - lo) * scale;
    float r = std::fma(q, inv, 0.5f);
    uint32_t code = 0;
    if (r >= 4294967296.0f) {
      code = 0xFFFFFFFFu;
    } else if (r >= 1.0f) {
      code = static_cast<uint32_t>(r);
    }
    codes[i] = code;
  }
  return codes;
}

ByteVector ReferenceFloatImage(const std::vector<float>& values, unsigned n) {
  float hi;
  float lo;
  std::vector<uint32_t> codes = ReferenceCodes(values, n, &hi, &lo);
  ByteVector image = BigEndianWord(FloatBits(hi));
  ByteVector low = BigEndianWord(FloatBits(lo));
  image.insert(image.end(), low.begin(), low.end());
  // Codes of 2^n and more (possible at n = 31) spill over, as the packer
  // ORs every value byte it covers.
  ByteVector packed(PackedSize(n, static_cast<unsigned>(codes.size())), 0);
  unsigned cover = n == 0 ? 0 : 8 * ((n + 7) / 8);
  for (size_t i = 0; i < codes.size(); ++i) {
    for (unsigned b = 0; b < cover; ++b) {
      size_t k = i * n + b;
      if (((codes[i] >> b) & 1) && k / 8 < packed.size()) {
        packed[k / 8] |= static_cast<unsigned char>(1u << (k % 8));
      }
    }
  }
  image.insert(image.end(), packed.begin(), packed.end());
  return image;
}

std::vector<uint32_t> RandomValues(size_t count, unsigned n, unsigned seed) {
  std::mt19937 gen(seed);
  std::vector<uint32_t> values(count);
  for (uint32_t& v : values) {
    v = n == 0 ? 0 : static_cast<uint32_t>(gen()) & ((1u << n) - 1);
  }
  return values;
}

TEST(QXBinaryCompressedTest, OneTwoThreeAtTwoBitsIsTheByte0x39) {
  unsigned int values[3] = {1, 2, 3};
  unsigned char image[2] = {0xEE, 0xEE};
  EXPECT_EQ(QX_io_write_binary_compressed(image, values, 2, 3), 1u);
  EXPECT_EQ(image[0], 0x39);
  EXPECT_EQ(image[1], 0xEE);
  unsigned int back[3] = {9, 9, 9};
  EXPECT_EQ(QX_io_read_binary_compressed(image, back, 2, 3), 1u);
  EXPECT_EQ(std::vector<unsigned>(back, back + 3),
            (std::vector<unsigned>{1, 2, 3}));
}

TEST(QXBinaryCompressedTest, WholeBytesStillGetOneMoreZeroByte) {
  unsigned int values[8] = {1, 0, 1, 1, 0, 0, 0, 1};
  unsigned char image[3] = {0xEE, 0xEE, 0xEE};
  EXPECT_EQ(QX_io_write_binary_compressed(image, values, 1, 8), 2u);
  EXPECT_EQ(ByteVector(image, image + 3), (ByteVector{0x8D, 0x00, 0xEE}));
  qxosstream out;
  EXPECT_EQ(QX_io_write_binary_compressed(out, values, 1, 8), 2u);
  EXPECT_EQ(testing::ToBytes(out.str()), (ByteVector{0x8D, 0x00}));
  // The packed block is one stream write.
  EXPECT_EQ(out.count(), 2u);
}

TEST(QXBinaryCompressedTest, ZeroBitsIsOneZeroByteAndReadsZeros) {
  unsigned int values[5] = {0, 0, 0, 0, 0};
  unsigned char image[2] = {0xEE, 0xEE};
  EXPECT_EQ(QX_io_write_binary_compressed(image, values, 0, 5), 1u);
  EXPECT_EQ(ByteVector(image, image + 2), (ByteVector{0x00, 0xEE}));
  unsigned int back[5] = {7, 7, 7, 7, 7};
  EXPECT_EQ(QX_io_read_binary_compressed(image, back, 0, 5), 1u);
  EXPECT_EQ(std::vector<unsigned>(back, back + 5), std::vector<unsigned>(5, 0));
  qxisstream in(std::string(1, '\0'));
  unsigned int streamed[5] = {7, 7, 7, 7, 7};
  EXPECT_EQ(QX_io_read_binary_compressed(in, streamed, 0, 5), 1u);
  EXPECT_EQ(std::vector<unsigned>(streamed, streamed + 5),
            std::vector<unsigned>(5, 0));
}

TEST(QXBinaryCompressedTest, PackedImagesMatchTheBitLayoutAtEveryWidth) {
  for (unsigned n = 0; n < 32; ++n) {
    for (unsigned count : {1u, 2u, 31u, 32u, 33u, 95u, 1000u, 4099u, 10001u}) {
      std::vector<uint32_t> values = RandomValues(count, n, n * 1000 + count);
      ByteVector expected = ReferencePack(values, n);
      ByteVector image(expected.size() + 8, 0xEE);
      ASSERT_EQ(
          QX_io_write_binary_compressed(image.data(), values.data(), n, count),
          expected.size());
      ASSERT_EQ(ByteVector(image.begin(), image.begin() + expected.size()),
                expected)
          << "n " << n << " count " << count;
      for (size_t k = expected.size(); k < image.size(); ++k) {
        ASSERT_EQ(image[k], 0xEE) << "n " << n << " count " << count;
      }
    }
  }
}

TEST(QXBinaryCompressedTest, RoundTripsAtEveryWidthInBothForms) {
  for (unsigned n = 1; n < 32; ++n) {
    for (unsigned count : {1u, 7u, 32u, 64u, 100u, 4096u, 5000u}) {
      std::vector<uint32_t> values = RandomValues(count, n, n + count * 31);
      ByteVector image(PackedSize(n, count));
      ASSERT_EQ(
          QX_io_write_binary_compressed(image.data(), values.data(), n, count),
          image.size());
      qxosstream out;
      ASSERT_EQ(QX_io_write_binary_compressed(out, values.data(), n, count),
                image.size());
      ASSERT_EQ(testing::ToBytes(out.str()), image) << "n " << n;

      std::vector<uint32_t> back(count, 0xDEADBEEF);
      ASSERT_EQ(
          QX_io_read_binary_compressed(image.data(), back.data(), n, count),
          image.size());
      ASSERT_EQ(back, values) << "n " << n << " count " << count;
      testing::SpanStream in(out.str(), {1, 5, 32768});
      std::vector<uint32_t> streamed(count, 0xDEADBEEF);
      ASSERT_EQ(QX_io_read_binary_compressed(in, streamed.data(), n, count),
                image.size());
      ASSERT_EQ(streamed, values) << "n " << n << " count " << count;
    }
  }
}

TEST(QXBinaryCompressedTest, ReadsValuesAtAnyOffsetOfAnUnalignedImage) {
  for (unsigned n : {3u, 7u, 13u, 31u}) {
    std::vector<uint32_t> values = RandomValues(777, n, n);
    ByteVector expected = ReferencePack(values, n);
    ByteVector shifted(expected.size() + 1);
    memcpy(shifted.data() + 1, expected.data(), expected.size());
    std::vector<uint32_t> back(777);
    QX_io_read_binary_compressed(shifted.data() + 1, back.data(), n, 777);
    EXPECT_EQ(back, values) << n;
  }
}

TEST(QXBinaryCompressedTest, OversizedValuesSpillIntoTheNextValue) {
  // Deliberate: 7 at two bits is not masked; its third bit lands in the
  // second value.
  unsigned int values[2] = {7, 0};
  unsigned char image[2] = {0xEE, 0xEE};
  EXPECT_EQ(QX_io_write_binary_compressed(image, values, 2, 2), 1u);
  EXPECT_EQ(image[0], 0x07);
  EXPECT_EQ(image[1], 0xEE);
  unsigned int back[2];
  QX_io_read_binary_compressed(image, back, 2, 2);
  EXPECT_EQ(back[0], 3u);
  EXPECT_EQ(back[1], 1u);
}

TEST(QXBinaryCompressedTest, SpillPastTheImageIsDropped) {
  // The last value starts at bit 4 of the one-byte image; its byte would
  // reach into a second byte that is not part of the image.
  unsigned int values[3] = {0, 0, 0xFF};
  unsigned char image[3] = {0xEE, 0xEE, 0xEE};
  EXPECT_EQ(QX_io_write_binary_compressed(image, values, 2, 3), 1u);
  EXPECT_EQ(ByteVector(image, image + 3), (ByteVector{0xF0, 0xEE, 0xEE}));
  qxosstream out;
  EXPECT_EQ(QX_io_write_binary_compressed(out, values, 2, 3), 1u);
  EXPECT_EQ(testing::ToBytes(out.str()), ByteVector{0xF0});
}

TEST(QXBinaryCompressedTest, ThirtyTwoBitsAndMoreArePlainBigEndianWords) {
  unsigned int values[2] = {0x01020304, 0xA0B0C0D0};
  for (unsigned n : {32u, 33u, 64u}) {
    unsigned char image[8];
    EXPECT_EQ(QX_io_write_binary_compressed(image, values, n, 2), 8u);
    EXPECT_EQ(ByteVector(image, image + 8),
              (ByteVector{1, 2, 3, 4, 0xA0, 0xB0, 0xC0, 0xD0}));
    qxosstream out;
    EXPECT_EQ(QX_io_write_binary_compressed(out, values, n, 2), 8u);
    EXPECT_EQ(testing::ToBytes(out.str()), ByteVector(image, image + 8));
    EXPECT_EQ(out.count(), 4u);
    unsigned int back[2] = {0, 0};
    EXPECT_EQ(QX_io_read_binary_compressed(image, back, n, 2), 8u);
    EXPECT_EQ(back[0], values[0]);
    EXPECT_EQ(back[1], values[1]);
    qxisstream in(out.str());
    unsigned int streamed[2] = {0, 0};
    // The stream form gives what the last 4-byte read delivered.
    EXPECT_EQ(QX_io_read_binary_compressed(in, streamed, n, 2), 4u);
    EXPECT_EQ(streamed[1], values[1]);
  }
}

TEST(QXBinaryCompressedTest, ShortPackedStreamReadsZeroBitsAndReturnsP) {
  std::vector<uint32_t> values = RandomValues(100, 9, 3);
  ByteVector image = ReferencePack(values, 9);
  ASSERT_EQ(image.size(), 113u);
  qxisstream in(
      testing::FromBytes(ByteVector(image.begin(), image.begin() + 50)));
  std::vector<uint32_t> back(100, 0xDEADBEEF);
  EXPECT_EQ(QX_io_read_binary_compressed(in, back.data(), 9, 100), 113u);
  ByteVector padded(image.begin(), image.begin() + 50);
  padded.resize(113, 0);
  std::vector<uint32_t> expected(100);
  QX_io_read_binary_compressed(padded.data(), expected.data(), 9, 100);
  EXPECT_EQ(back, expected);
  EXPECT_EQ(std::vector<uint32_t>(back.begin(), back.begin() + 44),
            std::vector<uint32_t>(values.begin(), values.begin() + 44));
}

TEST(QXBinaryCompressedTest, ShortWordStreamReturnsTheLastReadsBytes) {
  qxisstream in(std::string("\x00\x00\x01\x02\x00\x03", 6));
  unsigned int back[2] = {0, 0xA1A2A3A4};
  EXPECT_EQ(QX_io_read_binary_compressed(in, back, 32, 2), 2u);
  EXPECT_EQ(back[0], 258u);
  // 00 03 over the first two host bytes, then put in host order whole: on a
  // little-endian host A4 A3 are overwritten and the word reversed, on a
  // big-endian one A1 A2 are overwritten and the word kept.
  EXPECT_EQ(back[1], __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? 0x0003A3A4u
                                                            : 0x0003A2A1u);
}

TEST(QXBinaryCompressedTest, NullArraysAndZeroCountsReturnZeroAndTouchNothing) {
  unsigned int values[2] = {1, 2};
  float floats[2] = {1, 2};
  unsigned char image[16] = {};
  memset(image, 0xEE, sizeof image);
  qxosstream out;
  qxisstream in(std::string(16, '\x01'));
  for (unsigned n : {0u, 5u, 32u}) {
    EXPECT_EQ(QX_io_write_binary_compressed(
                  image, static_cast<unsigned*>(nullptr), n, 2),
              0u);
    EXPECT_EQ(QX_io_write_binary_compressed(image, values, n, 0), 0u);
    EXPECT_EQ(QX_io_write_binary_compressed(nullptr, values, n, 2), 0u);
    EXPECT_EQ(QX_io_write_binary_compressed(
                  out, static_cast<unsigned*>(nullptr), n, 2),
              0u);
    EXPECT_EQ(QX_io_write_binary_compressed(out, values, n, 0), 0u);
    EXPECT_EQ(QX_io_write_binary_compressed(image, static_cast<float*>(nullptr),
                                            n, 2),
              0u);
    EXPECT_EQ(QX_io_write_binary_compressed(image, floats, n, 0), 0u);
    EXPECT_EQ(QX_io_write_binary_compressed(nullptr, floats, n, 2), 0u);
    EXPECT_EQ(
        QX_io_write_binary_compressed(out, static_cast<float*>(nullptr), n, 2),
        0u);
    EXPECT_EQ(QX_io_write_binary_compressed(out, floats, n, 0), 0u);
    EXPECT_EQ(QX_io_read_binary_compressed(
                  image, static_cast<unsigned*>(nullptr), n, 2),
              0u);
    EXPECT_EQ(QX_io_read_binary_compressed(image, values, n, 0), 0u);
    EXPECT_EQ(QX_io_read_binary_compressed(nullptr, values, n, 2), 0u);
    EXPECT_EQ(
        QX_io_read_binary_compressed(in, static_cast<unsigned*>(nullptr), n, 2),
        0u);
    EXPECT_EQ(QX_io_read_binary_compressed(in, values, n, 0), 0u);
    EXPECT_EQ(
        QX_io_read_binary_compressed(image, static_cast<float*>(nullptr), n, 2),
        0u);
    EXPECT_EQ(QX_io_read_binary_compressed(image, floats, n, 0), 0u);
    EXPECT_EQ(QX_io_read_binary_compressed(nullptr, floats, n, 2), 0u);
    EXPECT_EQ(
        QX_io_read_binary_compressed(in, static_cast<float*>(nullptr), n, 2),
        0u);
    EXPECT_EQ(QX_io_read_binary_compressed(in, floats, n, 0), 0u);
  }
  EXPECT_EQ(ByteVector(image, image + 16), ByteVector(16, 0xEE));
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(in.tell(), 0u);
  EXPECT_EQ(values[0], 1u);
  EXPECT_EQ(values[1], 2u);
  EXPECT_EQ(floats[0], 1.0f);
  EXPECT_EQ(floats[1], 2.0f);
  EXPECT_EQ(QX_io_util_calc_NumBits(static_cast<unsigned*>(nullptr), 2), 0u);
  EXPECT_EQ(QX_io_util_calc_NumBits(values, 0), 0u);
  EXPECT_EQ(QX_io_util_calc_NumBits(static_cast<float*>(nullptr), 2, 0.1f), 0u);
  EXPECT_EQ(QX_io_util_calc_NumBits(floats, 0, 0.1f), 0u);
}

TEST(QXBinaryCompressedTest, NumBitsIsTheBitLengthOfTheLargestValue) {
  unsigned int zeros[2] = {0, 0};
  unsigned int one[1] = {1};
  unsigned int v255[1] = {255};
  unsigned int v256[1] = {256};
  unsigned int top[1] = {0x80000000u};
  EXPECT_EQ(QX_io_util_calc_NumBits(zeros, 2), 0u);
  EXPECT_EQ(QX_io_util_calc_NumBits(one, 1), 1u);
  EXPECT_EQ(QX_io_util_calc_NumBits(v255, 1), 8u);
  EXPECT_EQ(QX_io_util_calc_NumBits(v256, 1), 9u);
  EXPECT_EQ(QX_io_util_calc_NumBits(top, 1), 32u);
  unsigned int mixed[5] = {3, 0xFFFFFFFFu, 2, 1, 0};
  EXPECT_EQ(QX_io_util_calc_NumBits(mixed, 5), 32u);
  unsigned int later[4] = {1, 2, 1000, 5};
  EXPECT_EQ(QX_io_util_calc_NumBits(later, 4), 10u);
}

TEST(QXBinaryCompressedTest, FloatNumBitsCountsStepsOfThePrecision) {
  float range[3] = {0.0f, 1.0f, 0.5f};
  // 1 / 0.1 + 0.5 = 10.5, truncated to 10 steps: four bits.
  EXPECT_EQ(QX_io_util_calc_NumBits(range, 3, 0.1f), 4u);
  EXPECT_EQ(QX_io_util_calc_NumBits(range, 3, 1.0f / 255.0f), 8u);
  // A precision larger than twice the range needs no bits.
  EXPECT_EQ(QX_io_util_calc_NumBits(range, 3, 2.5f), 0u);
  EXPECT_EQ(QX_io_util_calc_NumBits(range, 3, 1.9f), 1u);
  float constant[4] = {3.0f, 3.0f, 3.0f, 3.0f};
  EXPECT_EQ(QX_io_util_calc_NumBits(constant, 4, 1.0e-6f), 0u);
  // A zero precision over a real range saturates; over no range it is 0 / 0.
  EXPECT_EQ(QX_io_util_calc_NumBits(range, 3, 0.0f), 32u);
  EXPECT_EQ(QX_io_util_calc_NumBits(constant, 4, 0.0f), 0u);
  float nanFirst[3] = {std::numeric_limits<float>::quiet_NaN(), 0.0f, 100.0f};
  EXPECT_EQ(QX_io_util_calc_NumBits(nanFirst, 3, 0.1f), 0u);
  float nanLater[3] = {0.0f, std::numeric_limits<float>::quiet_NaN(), 100.0f};
  EXPECT_EQ(QX_io_util_calc_NumBits(nanLater, 3, 1.0f), 7u);
}

TEST(QXBinaryCompressedTest, EightBitQuantisationRoundsHalfUp) {
  float values[3] = {0.0f, 0.5f, 1.0f};
  unsigned char image[12];
  EXPECT_EQ(QX_io_write_binary_compressed(image, values, 8, 3), 12u);
  EXPECT_EQ(ByteVector(image, image + 8),
            (ByteVector{0x3F, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}));
  // Codes 0, 128 and 255, eight bits each, then the padding byte.
  EXPECT_EQ(ByteVector(image + 8, image + 12),
            (ByteVector{0x00, 0x80, 0xFF, 0x00}));
  float back[3];
  EXPECT_EQ(QX_io_read_binary_compressed(image, back, 8, 3), 12u);
  EXPECT_EQ(back[0], 0.0f);
  EXPECT_NEAR(back[1], 0.50196f, 1e-5f);
  EXPECT_EQ(back[1], 128.0f * (1.0f / 255.0f));
  EXPECT_EQ(back[2], 1.0f);
}

TEST(QXBinaryCompressedTest, ZeroBitFloatsAreNineBytesAndReadAsNaN) {
  float values[4] = {1.0f, 2.0f, 3.0f, 4.0f};
  unsigned char image[10];
  memset(image, 0xEE, sizeof image);
  EXPECT_EQ(QX_io_write_binary_compressed(image, values, 0, 4), 9u);
  EXPECT_EQ(ByteVector(image, image + 10),
            (ByteVector{0x40, 0x80, 0, 0, 0x3F, 0x80, 0, 0, 0x00, 0xEE}));
  float back[4] = {0, 0, 0, 0};
  EXPECT_EQ(QX_io_read_binary_compressed(image, back, 0, 4), 9u);
  for (float v : back) {
    EXPECT_TRUE(std::isnan(v));
  }
}

TEST(QXBinaryCompressedTest, EqualValuesGiveEqualBoundsAndZeroCodes) {
  float values[5] = {2.5f, 2.5f, 2.5f, 2.5f, 2.5f};
  unsigned char image[8 + 4];
  EXPECT_EQ(QX_io_write_binary_compressed(image, values, 5, 5), 12u);
  EXPECT_EQ(ByteVector(image, image + 12),
            (ByteVector{0x40, 0x20, 0, 0, 0x40, 0x20, 0, 0, 0, 0, 0, 0}));
  for (unsigned n : {1u, 5u, 31u}) {
    std::vector<unsigned char> buf(8 + PackedSize(n, 5));
    QX_io_write_binary_compressed(buf.data(), values, n, 5);
    float back[5] = {0, 0, 0, 0, 0};
    QX_io_read_binary_compressed(buf.data(), back, n, 5);
    for (float v : back) {
      EXPECT_EQ(v, 2.5f);
    }
  }
}

TEST(QXBinaryCompressedTest, NaNFirstValueBecomesBothBoundsAndZeroCodes) {
  float nan = BitsFloat(0x7FC00001u);
  float values[4] = {nan, 1.0f, -3.0f, 7.0f};
  unsigned char image[8 + 3];
  EXPECT_EQ(QX_io_write_binary_compressed(image, values, 4, 4), 11u);
  EXPECT_EQ(ByteVector(image, image + 11),
            (ByteVector{0x7F, 0xC0, 0, 1, 0x7F, 0xC0, 0, 1, 0, 0, 0}));
}

TEST(QXBinaryCompressedTest, LaterNaNNeverReplacesABoundAndGetsCodeZero) {
  float values[4] = {1.0f, std::numeric_limits<float>::quiet_NaN(), 3.0f, 2.0f};
  unsigned char image[8 + 2];
  EXPECT_EQ(QX_io_write_binary_compressed(image, values, 2, 4), 10u);
  EXPECT_EQ(ByteVector(image, image + 10),
            (ByteVector{0x40, 0x40, 0, 0, 0x3F, 0x80, 0, 0,
                        // codes 0, 0 (NaN), 3, 2: 0b10110000
                        0xB0, 0x00}));
}

TEST(QXBinaryCompressedTest, FirstOfEqualZeroBoundsKeepsItsSign) {
  float values[3] = {-0.0f, -1.0f, 0.0f};
  unsigned char image[8 + 1];
  QX_io_write_binary_compressed(image, values, 1, 3);
  // The maximum is the -0 met first; +0 does not compare greater.
  EXPECT_EQ(ByteVector(image, image + 8),
            (ByteVector{0x80, 0, 0, 0, 0xBF, 0x80, 0, 0}));
  float values2[3] = {1.0f, 0.0f, -0.0f};
  QX_io_write_binary_compressed(image, values2, 1, 3);
  EXPECT_EQ(ByteVector(image, image + 8),
            (ByteVector{0x3F, 0x80, 0, 0, 0, 0, 0, 0}));
}

TEST(QXBinaryCompressedTest, FloatImagesMatchTheRuleWrittenOut) {
  std::mt19937 gen(77);
  std::uniform_real_distribution<float> spread(-1000.0f, 1000.0f);
  for (unsigned n = 0; n < 32; ++n) {
    for (unsigned count : {1u, 2u, 33u, 100u, 5000u}) {
      std::vector<float> values(count);
      for (float& v : values) {
        v = spread(gen);
      }
      ByteVector expected = ReferenceFloatImage(values, n);
      ByteVector image(expected.size() + 4, 0xEE);
      ASSERT_EQ(
          QX_io_write_binary_compressed(image.data(), values.data(), n, count),
          expected.size());
      ASSERT_EQ(ByteVector(image.begin(), image.begin() + expected.size()),
                expected)
          << "n " << n << " count " << count;
      EXPECT_EQ(ByteVector(image.end() - 4, image.end()), ByteVector(4, 0xEE));
      qxosstream out;
      ASSERT_EQ(QX_io_write_binary_compressed(out, values.data(), n, count),
                expected.size());
      ASSERT_EQ(testing::ToBytes(out.str()), expected);
    }
  }
}

// The rounding of the float arithmetic moves a code by up to S * 2^-23 of a
// step. Up to 21 bits that stays below half a step, so no code passes S; from
// 22 bits on the maximum's code can reach 2^n and spill into the next value
// (as ThirtyOneBitMaximumReachesTwoTo31AndSpills shows), so the bound holds
// only up to 21 bits.
TEST(QXBinaryCompressedTest, QuantisedFloatsComeBackWithinHalfAStep) {
  std::mt19937 gen(5);
  for (unsigned n = 1; n <= 21; ++n) {
    std::uniform_real_distribution<float> spread(-50.0f, 200.0f);
    const unsigned count = 3000;
    std::vector<float> values(count);
    for (float& v : values) {
      v = spread(gen);
    }
    ByteVector image(8 + PackedSize(n, count));
    QX_io_write_binary_compressed(image.data(), values.data(), n, count);
    float hi;
    float lo;
    ReferenceCodes(values, n, &hi, &lo);
    double range = static_cast<double>(hi) - lo;
    double scale = std::ldexp(1.0, static_cast<int>(n)) - 1.0;
    // Half a step, plus the float rounding of the arithmetic: the code may
    // be off by S * 2^-23 of a step, the value by a few units in the last
    // place.
    double tolerance = range / (2 * scale) + range * std::ldexp(1.0, -22) +
                       4 * std::fabs(hi) * std::ldexp(1.0, -24);

    std::vector<float> back(count);
    ASSERT_EQ(QX_io_read_binary_compressed(image.data(), back.data(), n, count),
              image.size());
    qxisstream in(testing::FromBytes(image));
    std::vector<float> streamed(count);
    ASSERT_EQ(QX_io_read_binary_compressed(in, streamed.data(), n, count),
              image.size());
    EXPECT_EQ(memcmp(back.data(), streamed.data(), count * sizeof(float)), 0);
    for (unsigned i = 0; i < count; ++i) {
      ASSERT_LE(std::fabs(static_cast<double>(back[i]) - values[i]), tolerance)
          << "n " << n << " i " << i;
    }
  }
}

TEST(QXBinaryCompressedTest, MinimumComesBackExactly) {
  float values[4] = {-7.25f, 3.0f, 100.5f, -7.25f};
  for (unsigned n : {1u, 8u, 16u, 24u}) {
    std::vector<unsigned char> image(8 + PackedSize(n, 4));
    QX_io_write_binary_compressed(image.data(), values, n, 4);
    float back[4];
    QX_io_read_binary_compressed(image.data(), back, n, 4);
    EXPECT_EQ(back[0], -7.25f);
    EXPECT_EQ(back[3], -7.25f);
  }
}

TEST(QXBinaryCompressedTest, ThirtyOneBitMaximumReachesTwoTo31AndSpills) {
  // S(31) as a float is 2^31, so the maximum's code is 2^31: its top bit
  // lands in the first bit past the value.
  float values[2] = {0.0f, 1.0f};
  unsigned char image[8 + 8];
  EXPECT_EQ(QX_io_write_binary_compressed(image, values, 31, 2), 16u);
  EXPECT_EQ(ByteVector(image + 8, image + 16),
            (ByteVector{0, 0, 0, 0, 0, 0, 0, 0x40}));
  float back[2];
  QX_io_read_binary_compressed(image, back, 31, 2);
  EXPECT_EQ(back[0], 0.0f);
  EXPECT_EQ(back[1], 0.0f);
}

TEST(QXBinaryCompressedTest, FloatStreamReaderCountsHeaderReadsPlusP) {
  float values[10] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
  qxosstream out;
  ASSERT_EQ(QX_io_write_binary_compressed(out, values, 4, 10), 14u);
  std::string image = out.str();
  qxisstream whole(image);
  float back[10];
  EXPECT_EQ(QX_io_read_binary_compressed(whole, back, 4, 10), 14u);
  for (int i = 0; i < 10; ++i) {
    EXPECT_NEAR(back[i], static_cast<float>(i), 9.0f / 30.0f + 1e-5f);
  }
  // Six bytes: the maximum and half the minimum; P is still counted.
  qxisstream cut(image.substr(0, 6));
  EXPECT_EQ(QX_io_read_binary_compressed(cut, back, 4, 10), 12u);
  qxisstream empty;
  EXPECT_EQ(QX_io_read_binary_compressed(empty, back, 4, 10), 6u);
}

TEST(QXBinaryCompressedTest, FloatsAtThirtyTwoBitsAreTheirBitPatterns) {
  float values[3] = {1.0f, -2.0f, BitsFloat(0x7F800001u)};
  unsigned char image[12];
  EXPECT_EQ(QX_io_write_binary_compressed(image, values, 32, 3), 12u);
  EXPECT_EQ(ByteVector(image, image + 12),
            (ByteVector{0x3F, 0x80, 0, 0, 0xC0, 0, 0, 0, 0x7F, 0x80, 0, 1}));
  qxosstream out;
  EXPECT_EQ(QX_io_write_binary_compressed(out, values, 40, 3), 12u);
  EXPECT_EQ(testing::ToBytes(out.str()), ByteVector(image, image + 12));
  float back[3];
  EXPECT_EQ(QX_io_read_binary_compressed(image, back, 32, 3), 12u);
  EXPECT_EQ(memcmp(back, values, sizeof back), 0);
  qxisstream in(out.str());
  float streamed[3];
  EXPECT_EQ(QX_io_read_binary_compressed(in, streamed, 32, 3), 4u);
  EXPECT_EQ(memcmp(streamed, values, sizeof streamed), 0);
}

}  // namespace
}  // namespace QXPlatform
