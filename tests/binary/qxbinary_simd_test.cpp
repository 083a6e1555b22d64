// Every vector table the processor can run must give bit for bit what the
// scalar table gives. The kernels are compiled into this test from the
// library's own source, so each table can be called by name.

#include <stdint.h>
#include <string.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "binary/qxbinary_simd_private.h"

namespace QXPlatform {
namespace {

using binarysimd::Isa;
using binarysimd::Kernels;

const char* IsaName(Isa isa) {
  switch (isa) {
    case Isa::kScalar:
      return "scalar";
    case Isa::kSsse3:
      return "ssse3";
    case Isa::kAvx2:
      return "avx2";
    case Isa::kAvx512:
      return "avx512";
  }
  return "?";
}

std::vector<Isa> VectorIsas() {
  std::vector<Isa> isas;
  for (Isa isa : {Isa::kSsse3, Isa::kAvx2, Isa::kAvx512}) {
    if (binarysimd::Supported(isa)) {
      isas.push_back(isa);
    }
  }
  return isas;
}

const Kernels& Scalar() { return binarysimd::KernelsFor(Isa::kScalar); }

float BitsFloat(uint32_t u) {
  float f;
  memcpy(&f, &u, sizeof f);
  return f;
}

uint32_t FloatBits(float f) {
  uint32_t u;
  memcpy(&u, &f, sizeof u);
  return u;
}

bool SameBits(const float* a, const float* b, size_t n) {
  return memcmp(a, b, n * sizeof(float)) == 0;
}

// A float drawn to reach the corners: random bit patterns, small integers,
// values near a few magnitudes, zeros of both signs, infinities and NaNs.
float AwkwardFloat(std::mt19937& gen) {
  switch (gen() % 10) {
    case 0:
      return BitsFloat(static_cast<uint32_t>(gen()));
    case 1:
      return static_cast<float>(static_cast<int>(gen() % 65) - 32);
    case 2:
      return (gen() & 1) ? 0.0f : -0.0f;
    case 3: {
      const float specials[] = {HUGE_VALF,
                                -HUGE_VALF,
                                std::numeric_limits<float>::quiet_NaN(),
                                BitsFloat(0xFFC00123u),
                                std::numeric_limits<float>::denorm_min(),
                                -std::numeric_limits<float>::max()};
      return specials[gen() % 6];
    }
    default: {
      std::uniform_real_distribution<float> spread(-1000.0f, 1000.0f);
      return spread(gen);
    }
  }
}

TEST(QXBinarySimdTest, TheTableInUseIsOneTheProcessorSupports) {
  const Kernels& active = binarysimd::Active();
  bool found = false;
  for (Isa isa : {Isa::kScalar, Isa::kSsse3, Isa::kAvx2, Isa::kAvx512}) {
    // Where a processor has no vector tables, every name gives the scalar
    // one; only supported names count.
    if (&binarysimd::KernelsFor(isa) == &active && binarysimd::Supported(isa)) {
      found = true;
    }
  }
  EXPECT_TRUE(found);
  EXPECT_TRUE(binarysimd::Supported(Isa::kScalar));
}

TEST(QXBinarySimdTest, ByteReversalMatchesScalarAtEveryLengthAndOffset) {
  std::mt19937 gen(1);
  std::vector<unsigned char> src(8 * 700 + 16);
  for (unsigned char& b : src) {
    b = static_cast<unsigned char>(gen());
  }
  for (Isa isa : VectorIsas()) {
    const Kernels& k = binarysimd::KernelsFor(isa);
    for (int width : {2, 4, 8}) {
      auto swap = width == 2 ? k.swap16 : width == 4 ? k.swap32 : k.swap64;
      auto reference = width == 2   ? Scalar().swap16
                       : width == 4 ? Scalar().swap32
                                    : Scalar().swap64;
      for (size_t count = 0; count < 700; count += (count < 140 ? 1 : 37)) {
        for (size_t offset : {0u, 1u, 3u}) {
          std::vector<unsigned char> expected(count * width + 16, 0xEE);
          std::vector<unsigned char> got(count * width + 16, 0xEE);
          reference(expected.data() + offset, src.data() + offset, count);
          swap(got.data() + offset, src.data() + offset, count);
          ASSERT_EQ(got, expected)
              << IsaName(isa) << " width " << width << " count " << count;
          // In place.
          std::vector<unsigned char> data(src.begin(),
                                          src.begin() + count * width + 3);
          swap(data.data() + offset, data.data() + offset, count);
          ASSERT_EQ(memcmp(data.data() + offset, expected.data() + offset,
                           count * width),
                    0);
        }
      }
    }
  }
}

TEST(QXBinarySimdTest, BoundsScanMatchesScalarIncludingZeroSignsAndNaNs) {
  std::mt19937 gen(2);
  size_t checked = 0;
  for (Isa isa : VectorIsas()) {
    const Kernels& k = binarysimd::KernelsFor(isa);
    for (int round = 0; round < 3000; ++round) {
      size_t n = 1 + gen() % 700;
      std::vector<float> values(n);
      int kind = round % 5;
      for (float& v : values) {
        if (kind == 0) {
          v = AwkwardFloat(gen);
        } else if (kind == 1) {
          // Mostly negative or zero: the maximum is a zero of some sign.
          v = (gen() % 3 == 0) ? ((gen() & 1) ? 0.0f : -0.0f)
                               : -static_cast<float>(1 + gen() % 100);
        } else if (kind == 2) {
          v = (gen() % 3 == 0) ? ((gen() & 1) ? 0.0f : -0.0f)
                               : static_cast<float>(1 + gen() % 100);
        } else if (kind == 3) {
          v = 5.0f;
        } else {
          v = static_cast<float>(static_cast<int>(gen() % 7) - 3);
        }
      }
      if (round % 7 == 0) {
        values[0] = std::numeric_limits<float>::quiet_NaN();
      }
      if (round % 11 == 0 && n > 1) {
        values[gen() % n] = std::numeric_limits<float>::quiet_NaN();
      }
      float hi1, lo1, hi2, lo2;
      Scalar().minMax(values.data(), n, &hi1, &lo1);
      k.minMax(values.data(), n, &hi2, &lo2);
      ASSERT_EQ(FloatBits(hi2), FloatBits(hi1)) << IsaName(isa) << " " << round;
      ASSERT_EQ(FloatBits(lo2), FloatBits(lo1)) << IsaName(isa) << " " << round;
      ++checked;
    }
  }
  if (VectorIsas().empty()) {
    GTEST_SKIP() << "no vector instruction set on this processor";
  }
  EXPECT_GT(checked, 0u);
}

struct QuantiseCase {
  float minimum;
  float scale;
  float inv;
};

TEST(QXBinarySimdTest, QuantiserMatchesScalarOnMillionsOfValues) {
  if (VectorIsas().empty()) {
    GTEST_SKIP() << "no vector instruction set on this processor";
  }
  std::mt19937 gen(3);
  const size_t n = 4099;
  std::vector<float> values(n);
  std::vector<uint32_t> expected(n);
  std::vector<uint32_t> got(n);
  size_t compared = 0;
  for (int round = 0; round < 400; ++round) {
    QuantiseCase c;
    unsigned bits = 1 + gen() % 31;
    c.scale = static_cast<float>((1u << bits) - 1);
    int kind = round % 4;
    if (kind == 0) {
      // Power-of-two range over small integers: many exact ties at .5.
      float range = std::ldexp(1.0f, static_cast<int>(gen() % 8));
      c.minimum = 0.0f;
      c.inv = 1.0f / range;
      for (float& v : values) {
        v = static_cast<float>(gen() % (static_cast<unsigned>(range) + 1));
      }
    } else if (kind == 1) {
      std::uniform_real_distribution<float> spread(-100.0f, 100.0f);
      float a = spread(gen);
      float b = spread(gen);
      c.minimum = std::min(a, b);
      c.inv = 1.0f / (std::max(a, b) - c.minimum);
      for (float& v : values) {
        v = spread(gen);
      }
    } else if (kind == 2) {
      // Hostile parameters: infinite, zero, NaN and subnormal reciprocals.
      const float invs[] = {HUGE_VALF,
                            0.0f,
                            std::numeric_limits<float>::quiet_NaN(),
                            std::numeric_limits<float>::denorm_min(),
                            -1.0f,
                            1.0e30f};
      c.inv = invs[gen() % 6];
      c.minimum = AwkwardFloat(gen);
      for (float& v : values) {
        v = AwkwardFloat(gen);
      }
    } else {
      c.minimum = AwkwardFloat(gen);
      c.inv = AwkwardFloat(gen);
      c.scale = AwkwardFloat(gen);
      for (float& v : values) {
        v = AwkwardFloat(gen);
      }
    }
    Scalar().quantise(values.data(), n, c.minimum, c.scale, c.inv,
                      expected.data());
    for (Isa isa : VectorIsas()) {
      size_t len = n - gen() % 40;
      std::fill(got.begin(), got.end(), 0xDEADBEEF);
      binarysimd::KernelsFor(isa).quantise(values.data(), len, c.minimum,
                                           c.scale, c.inv, got.data());
      ASSERT_TRUE(std::equal(got.begin(), got.begin() + len, expected.begin()))
          << IsaName(isa) << " round " << round;
      ASSERT_EQ(got[len < n ? len : n - 1],
                len < n ? 0xDEADBEEFu : expected[n - 1]);
      compared += len;
    }
  }
  EXPECT_GT(compared, 1000000u);
}

TEST(QXBinarySimdTest, SaturationOfTheQuantiserIsThatOfTheScalarRule) {
  EXPECT_EQ(
      binarysimd::TruncateToUnsigned(std::numeric_limits<float>::quiet_NaN()),
      0u);
  EXPECT_EQ(binarysimd::TruncateToUnsigned(-5.0f), 0u);
  EXPECT_EQ(binarysimd::TruncateToUnsigned(0.99f), 0u);
  EXPECT_EQ(binarysimd::TruncateToUnsigned(127.9f), 127u);
  EXPECT_EQ(binarysimd::TruncateToUnsigned(4294967040.0f), 4294967040u);
  EXPECT_EQ(binarysimd::TruncateToUnsigned(4294967296.0f), 4294967295u);
  EXPECT_EQ(binarysimd::TruncateToUnsigned(HUGE_VALF), 4294967295u);
  const float edge[] = {std::numeric_limits<float>::quiet_NaN(),
                        -1.0f,
                        2147483648.0f,
                        3000000000.0f,
                        4294967040.0f,
                        4294967296.0f,
                        HUGE_VALF,
                        0.5f,
                        1.5f,
                        -0.0f,
                        -HUGE_VALF,
                        16777217.0f,
                        1.0f,
                        2.0f,
                        7.0f,
                        8.0f};
  for (Isa isa : VectorIsas()) {
    uint32_t expected[16];
    uint32_t got[16];
    // Minimum 0, scale 1 and inverse 1 make each code v + 0.5, truncated.
    Scalar().quantise(edge, 16, 0.0f, 1.0f, 1.0f, expected);
    binarysimd::KernelsFor(isa).quantise(edge, 16, 0.0f, 1.0f, 1.0f, got);
    for (int i = 0; i < 16; ++i) {
      EXPECT_EQ(got[i], expected[i]) << IsaName(isa) << " " << edge[i];
    }
  }
}

TEST(QXBinarySimdTest, DequantiserMatchesScalarOnMillionsOfCodes) {
  if (VectorIsas().empty()) {
    GTEST_SKIP() << "no vector instruction set on this processor";
  }
  std::mt19937 gen(4);
  const size_t n = 4101;
  std::vector<uint32_t> codes(n);
  std::vector<float> expected(n);
  std::vector<float> got(n);
  size_t compared = 0;
  for (int round = 0; round < 400; ++round) {
    unsigned bits = 1 + gen() % 31;
    for (uint32_t& c : codes) {
      c = (round % 3 == 0) ? static_cast<uint32_t>(gen())
                           : static_cast<uint32_t>(gen()) & ((1u << bits) - 1);
    }
    float range = (round % 4 == 3)
                      ? AwkwardFloat(gen)
                      : std::ldexp(static_cast<float>(gen() % 1000),
                                   static_cast<int>(gen() % 20) - 10);
    float inv = 1.0f / static_cast<float>((1u << bits) - 1);
    if (round % 5 == 4) {
      inv = (round % 2) ? HUGE_VALF : AwkwardFloat(gen);
    }
    float minimum = (round % 4 == 2) ? AwkwardFloat(gen) : -3.25f;
    Scalar().dequantise(codes.data(), n, range, inv, minimum, expected.data());
    for (Isa isa : VectorIsas()) {
      size_t len = n - gen() % 40;
      std::fill(got.begin(), got.end(), 12345.0f);
      binarysimd::KernelsFor(isa).dequantise(codes.data(), len, range, inv,
                                             minimum, got.data());
      ASSERT_TRUE(SameBits(got.data(), expected.data(), len))
          << IsaName(isa) << " round " << round;
      if (len < n) {
        ASSERT_EQ(got[len], 12345.0f);
      }
      compared += len;
    }
  }
  EXPECT_GT(compared, 1000000u);
}

TEST(QXBinarySimdTest, HalfConversionsMatchScalarOnTailsAndOverflowFlags) {
  std::mt19937 gen(6);
  for (Isa isa : VectorIsas()) {
    const Kernels& k = binarysimd::KernelsFor(isa);
    for (size_t n = 0; n < 200; ++n) {
      std::vector<float> in(n);
      for (float& f : in) {
        // Exponents up to 141: nothing overflows by itself.
        f = BitsFloat(static_cast<uint32_t>(gen()) & 0xC6FFFFFFu);
      }
      // Overflow only in the last element, which lands in each tail.
      if (n > 0 && n % 3 == 0) {
        in[n - 1] = 1.0e20f;
      }
      std::vector<uint16_t> expected(n + 1, 0x5555);
      std::vector<uint16_t> got(n + 1, 0x5555);
      bool expectedOverflow =
          Scalar().floatToHalf(in.data(), expected.data(), n);
      bool gotOverflow = k.floatToHalf(in.data(), got.data(), n);
      ASSERT_EQ(got, expected) << IsaName(isa) << " n " << n;
      ASSERT_EQ(gotOverflow, expectedOverflow) << IsaName(isa) << " n " << n;
      ASSERT_EQ(expectedOverflow, n > 0 && n % 3 == 0);

      std::vector<float> back1(n + 1, 1.0f);
      std::vector<float> back2(n + 1, 1.0f);
      Scalar().halfToFloat(expected.data(), back1.data(), n);
      k.halfToFloat(expected.data(), back2.data(), n);
      ASSERT_TRUE(SameBits(back1.data(), back2.data(), n + 1))
          << IsaName(isa) << " n " << n;
    }
  }
}

}  // namespace
}  // namespace QXPlatform
