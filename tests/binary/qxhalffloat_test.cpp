#include <fenv.h>
#include <math.h>
#include <stdint.h>
#include <string.h>

#include <cmath>
#include <limits>
#include <random>
#include <sstream>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

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

unsigned short Half(float f) { return QXHalfFloat::toFloat16(f); }

TEST(QXHalfFloatTest, IsATwoByteTriviallyCopyableWord) {
  EXPECT_EQ(sizeof(QXHalfFloat), 2u);
  EXPECT_TRUE(std::is_trivially_copyable<QXHalfFloat>::value);
  EXPECT_EQ(QXHalfFloat().bits(), 0u);
  EXPECT_EQ(QXHalfFloat::fromBits(0xABCD).bits(), 0xABCDu);
}

TEST(QXHalfFloatTest, RoundsTheListedValues) {
  EXPECT_EQ(Half(1.0f), 0x3C00u);
  EXPECT_EQ(Half(65504.0f), 0x7BFFu);
  EXPECT_EQ(Half(65520.0f), 0x7C00u);
  EXPECT_EQ(Half(-65520.0f), 0xFC00u);
  // Exactly half a unit above 1 rounds up, not to even.
  EXPECT_EQ(Half(1.0f + std::ldexp(1.0f, -11)), 0x3C01u);
  EXPECT_EQ(Half(1.0f + 3 * std::ldexp(1.0f, -11)), 0x3C02u);
  EXPECT_EQ(Half(-1.0f - std::ldexp(1.0f, -11)), 0xBC01u);
  EXPECT_EQ(Half(std::ldexp(1.0f, -24)), 0x0001u);
  EXPECT_EQ(Half(std::ldexp(1.0f, -25)), 0x0001u);
  EXPECT_EQ(Half(-std::ldexp(1.0f, -25)), 0x8001u);
  EXPECT_EQ(Half(std::ldexp(1.0f, -14)), 0x0400u);
  EXPECT_EQ(Half(std::ldexp(1023.5f, -24)), 0x0400u);
  EXPECT_EQ(Half(0.5f), 0x3800u);
  EXPECT_EQ(Half(-2.0f), 0xC000u);
}

TEST(QXHalfFloatTest, TinyValuesBecomePositiveZero) {
  // Deliberate: the sign of a value below the smallest subnormal is dropped.
  EXPECT_EQ(Half(-1.0e-8f), 0x0000u);
  EXPECT_EQ(Half(-0.0f), 0x0000u);
  EXPECT_EQ(Half(0.0f), 0x0000u);
  EXPECT_EQ(Half(std::nextafter(std::ldexp(1.0f, -25), 0.0f)), 0x0000u);
  EXPECT_EQ(Half(-std::numeric_limits<float>::denorm_min()), 0x0000u);
}

TEST(QXHalfFloatTest, InfinitiesAndNaNsStayWhatTheyAre) {
  EXPECT_EQ(Half(HUGE_VALF), 0x7C00u);
  EXPECT_EQ(Half(-HUGE_VALF), 0xFC00u);
  // Only the low 13 fraction bits set: the NaN is kept by setting bit 0.
  EXPECT_EQ(Half(BitsFloat(0x7F800001u)), 0x7C01u);
  EXPECT_EQ(Half(BitsFloat(0xFF801FFFu)), 0xFC01u);
  EXPECT_EQ(Half(BitsFloat(0x7FC00000u)), 0x7E00u);
  EXPECT_EQ(Half(BitsFloat(0x7FFFE000u)), 0x7FFFu);
  EXPECT_EQ(Half(BitsFloat(0xFFA02000u)), 0xFD01u);
}

TEST(QXHalfFloatTest, OverflowRaisesTheOverflowCondition) {
  feclearexcept(FE_ALL_EXCEPT);
  EXPECT_EQ(Half(65504.0f), 0x7BFFu);
  EXPECT_EQ(fetestexcept(FE_OVERFLOW), 0);
  EXPECT_EQ(Half(1.0e6f), 0x7C00u);
  EXPECT_NE(fetestexcept(FE_OVERFLOW), 0);
  feclearexcept(FE_ALL_EXCEPT);
  // An infinity is no overflow.
  EXPECT_EQ(Half(HUGE_VALF), 0x7C00u);
  EXPECT_EQ(fetestexcept(FE_OVERFLOW), 0);
}

TEST(QXHalfFloatTest, ConstructorsConvertToFloatFirst) {
  EXPECT_EQ(QXHalfFloat(1).bits(), 0x3C00u);
  EXPECT_EQ(QXHalfFloat(-2).bits(), 0xC000u);
  EXPECT_EQ(QXHalfFloat(1.5f).bits(), 0x3E00u);
  EXPECT_EQ(QXHalfFloat(0.1).bits(), Half(0.1f));
  EXPECT_EQ(QXHalfFloat(static_cast<long double>(3.0)).bits(), 0x4200u);
  // 2049 is not a float-rounding case but a half-rounding one: half up.
  EXPECT_EQ(QXHalfFloat(2049).bits(), 0x6801u);
  // The double is first rounded to float: 1 + 2^-11 + 2^-40 becomes exactly
  // 1 + 2^-11, which then rounds up.
  EXPECT_EQ(
      QXHalfFloat(1.0 + std::ldexp(1.0, -11) + std::ldexp(1.0, -40)).bits(),
      0x3C01u);
}

TEST(QXHalfFloatTest, ConvertsBackExactly) {
  EXPECT_EQ(FloatBits(QXHalfFloat::fromBits(0x3C00)), FloatBits(1.0f));
  EXPECT_EQ(FloatBits(QXHalfFloat::fromBits(0x7BFF)), FloatBits(65504.0f));
  EXPECT_EQ(FloatBits(QXHalfFloat::fromBits(0x0001)),
            FloatBits(std::ldexp(1.0f, -24)));
  EXPECT_EQ(FloatBits(QXHalfFloat::fromBits(0x03FF)),
            FloatBits(std::ldexp(1023.0f, -24)));
  EXPECT_EQ(FloatBits(QXHalfFloat::fromBits(0x8000)), 0x80000000u);
  EXPECT_EQ(FloatBits(QXHalfFloat::fromBits(0x0000)), 0x00000000u);
  EXPECT_EQ(FloatBits(QXHalfFloat::fromBits(0xFC00)), 0xFF800000u);
  EXPECT_EQ(FloatBits(QXHalfFloat::fromBits(0x7E00)), 0x7FC00000u);
  // A signalling NaN keeps its fraction bits as they are.
  EXPECT_EQ(FloatBits(QXHalfFloat::fromBits(0x7C01)), 0x7F802000u);
  EXPECT_EQ(FloatBits(QXHalfFloat::fromBits(0x8401)),
            FloatBits(-std::ldexp(1025.0f, -24)));
  float f = QXHalfFloat(0.333f);
  EXPECT_NEAR(f, 0.333f, 1e-4f);
}

TEST(QXHalfFloatTest, StandardStreamShowsTheFloatValue) {
  std::ostringstream half;
  half << QXHalfFloat(1.5f) << ' ' << QXHalfFloat(-0.1f) << ' '
       << QXHalfFloat::fromBits(0x7C00);
  std::ostringstream plain;
  plain << 1.5f << ' ' << static_cast<float>(QXHalfFloat(-0.1f)) << ' '
        << HUGE_VALF;
  EXPECT_EQ(half.str(), plain.str());
  EXPECT_EQ(half.str().substr(0, 4), "1.5 ");
}

TEST(QXHalfFloatTest, NormalNumMeansFinite) {
  EXPECT_TRUE(QXIsNormalNum(0.0));
  EXPECT_TRUE(QXIsNormalNum(-0.0f));
  EXPECT_TRUE(QXIsNormalNum(std::numeric_limits<double>::denorm_min()));
  EXPECT_TRUE(QXIsNormalNum(std::numeric_limits<float>::denorm_min()));
  EXPECT_TRUE(QXIsNormalNum(std::numeric_limits<double>::max()));
  EXPECT_TRUE(QXIsNormalNum(-std::numeric_limits<float>::max()));
  EXPECT_FALSE(QXIsNormalNum(HUGE_VAL));
  EXPECT_FALSE(QXIsNormalNum(-HUGE_VALF));
  EXPECT_FALSE(QXIsNormalNum(std::numeric_limits<double>::quiet_NaN()));
  EXPECT_FALSE(QXIsNormalNum(std::numeric_limits<float>::signaling_NaN()));
}

TEST(QXHalfFloatTest, IsNaNCountsInfinitiesForFloatAndDouble) {
  EXPECT_TRUE(QXIsNaN(HUGE_VALF));
  EXPECT_TRUE(QXIsNaN(-HUGE_VAL));
  EXPECT_TRUE(QXIsNaN(std::numeric_limits<float>::quiet_NaN()));
  EXPECT_TRUE(QXIsNaN(-std::numeric_limits<double>::quiet_NaN()));
  EXPECT_FALSE(QXIsNaN(1.0f));
  EXPECT_FALSE(QXIsNaN(0.0));
  EXPECT_FALSE(QXIsRealNaN(HUGE_VALF));
  EXPECT_FALSE(QXIsRealNaN(-HUGE_VAL));
  EXPECT_FALSE(QXIsRealNaN(1.0));
  EXPECT_TRUE(QXIsRealNaN(std::numeric_limits<float>::quiet_NaN()));
  EXPECT_TRUE(QXIsRealNaN(std::numeric_limits<double>::signaling_NaN()));
  EXPECT_TRUE(QXIsRealNaN(BitsFloat(0xFF800001u)));
}

TEST(QXHalfFloatTest, HalfIsNaNOnlyForHalfNaNs) {
  EXPECT_FALSE(QXIsNaN(QXHalfFloat::fromBits(0x7C00)));
  EXPECT_FALSE(QXIsNaN(QXHalfFloat::fromBits(0xFC00)));
  EXPECT_TRUE(QXIsNaN(QXHalfFloat::fromBits(0x7E00)));
  EXPECT_TRUE(QXIsNaN(QXHalfFloat::fromBits(0xFC01)));
  EXPECT_FALSE(QXIsNaN(QXHalfFloat::fromBits(0x7BFF)));
  EXPECT_FALSE(QXIsNaN(QXHalfFloat(1.0f)));
  for (unsigned word = 0; word < 65536; ++word) {
    QXHalfFloat h = QXHalfFloat::fromBits(static_cast<unsigned short>(word));
    ASSERT_EQ(QXIsNaN(h), std::isnan(static_cast<float>(h))) << word;
  }
}

TEST(QXHalfFloatTest, BatchConversionsMatchTheSingleOnes) {
  std::mt19937 gen(9);
  for (size_t n = 0; n < 300; n += (n < 70 ? 1 : 23)) {
    std::vector<float> in(n);
    for (float& f : in) {
      uint32_t u = static_cast<uint32_t>(gen());
      // Keep most values in or near the half range.
      if (gen() % 4 != 0) {
        u = (u & 0x807FFFFFu) | ((95 + gen() % 60) << 23);
      }
      f = BitsFloat(u);
    }
    std::vector<QXHalfFloat> halves(n + 1, QXHalfFloat::fromBits(0x5555));
    QXFloatToHalf(in.data(), halves.data(), n);
    for (size_t i = 0; i < n; ++i) {
      ASSERT_EQ(halves[i].bits(), QXHalfFloat::toFloat16(in[i])) << i;
    }
    EXPECT_EQ(halves[n].bits(), 0x5555u);

    std::vector<float> back(n + 1, 7.0f);
    QXHalfToFloat(halves.data(), back.data(), n);
    for (size_t i = 0; i < n; ++i) {
      ASSERT_EQ(FloatBits(back[i]), FloatBits(halves[i])) << i;
    }
    EXPECT_EQ(back[n], 7.0f);
  }
}

TEST(QXHalfFloatTest, BatchWithNullOrNothingTouchesNothing) {
  float in[2] = {1.0f, 2.0f};
  QXHalfFloat out[2] = {QXHalfFloat::fromBits(9), QXHalfFloat::fromBits(9)};
  QXFloatToHalf(nullptr, out, 2);
  QXFloatToHalf(in, nullptr, 2);
  QXFloatToHalf(in, out, 0);
  EXPECT_EQ(out[0].bits(), 9u);
  float back[2] = {5.0f, 5.0f};
  QXHalfToFloat(nullptr, back, 2);
  QXHalfToFloat(out, nullptr, 2);
  QXHalfToFloat(out, back, 0);
  EXPECT_EQ(back[0], 5.0f);
}

TEST(QXHalfFloatTest, BatchOverflowRaisesTheCondition) {
  std::vector<float> in(100, 1.0f);
  std::vector<QXHalfFloat> out(100);
  feclearexcept(FE_ALL_EXCEPT);
  QXFloatToHalf(in.data(), out.data(), in.size());
  EXPECT_EQ(fetestexcept(FE_OVERFLOW), 0);
  in[57] = -1.0e30f;
  QXFloatToHalf(in.data(), out.data(), in.size());
  EXPECT_NE(fetestexcept(FE_OVERFLOW), 0);
  EXPECT_EQ(out[57].bits(), 0xFC00u);
  feclearexcept(FE_ALL_EXCEPT);
}

}  // namespace
}  // namespace QXPlatform
