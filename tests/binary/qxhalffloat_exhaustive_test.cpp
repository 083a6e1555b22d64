// Every float bit pattern through toFloat16 and every half through operator
// float, each against a reference written here from the arithmetic meaning
// of the rule, and against the batch conversions of every kernel table. Two
// threads share the float range.

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#if defined(__x86_64__) || defined(__i386__)
#define QX_TEST_F16C 1
#include <cpuid.h>
#include <immintrin.h>
#endif

#include "binary/qxbinary_simd_private.h"
#include <QXPlatform/binary/qxhalffloat.h>

namespace QXPlatform {
namespace {

using binarysimd::Isa;

#if defined(__SANITIZE_THREAD__)
constexpr bool kUnderThreadSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
constexpr bool kUnderThreadSanitizer = true;
#else
constexpr bool kUnderThreadSanitizer = false;
#endif
#else
constexpr bool kUnderThreadSanitizer = false;
#endif

double BitsDouble(uint64_t u) {
  double d;
  memcpy(&d, &u, sizeof d);
  return d;
}

uint64_t DoubleBits(double d) {
  uint64_t u;
  memcpy(&u, &d, sizeof u);
  return u;
}

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

// The half nearest to the float, ties up in magnitude, worked out in double
// precision, where every step below is exact: the magnitude counted in units
// of the half's last place, plus one half, truncated.
uint16_t ReferenceToHalf(uint32_t bits) {
  uint16_t sign = static_cast<uint16_t>((bits >> 31) << 15);
  float f = BitsFloat(bits);
  if (std::isnan(f)) {
    uint16_t top = static_cast<uint16_t>((bits >> 13) & 0x3FF);
    return static_cast<uint16_t>(sign | 0x7C00 | (top != 0 ? top : 1));
  }
  if (std::isinf(f)) {
    return static_cast<uint16_t>(sign | 0x7C00);
  }
  double a = std::fabs(static_cast<double>(f));
  if (a < 0x1p-14) {
    // Subnormal halves: units of 2^-24. 1024 units is the smallest normal.
    int64_t units = static_cast<int64_t>(a * 0x1p24 + 0.5);
    if (units == 0) {
      return 0;  // the sign of a vanishing value is dropped
    }
    return static_cast<uint16_t>(sign | units);
  }
  int e = static_cast<int>((DoubleBits(a) >> 52) & 0x7FF) - 1023;
  // a / 2^(e - 10), as an exact product with the power of two 2^(10 - e).
  double perUnit = BitsDouble(static_cast<uint64_t>(10 - e + 1023) << 52);
  int64_t units = static_cast<int64_t>(a * perUnit + 0.5);  // 1024 to 2048
  if (units == 2048) {
    units = 1024;
    ++e;
  }
  if (e > 15) {
    return static_cast<uint16_t>(sign | 0x7C00);
  }
  return static_cast<uint16_t>(sign | ((e + 15) << 10) | (units - 1024));
}

// The value of a half, from its definition: (fraction) * 2^-24 for
// subnormals, (1024 + fraction) * 2^(exponent - 25) otherwise.
uint32_t ReferenceToFloatBits(uint16_t h) {
  uint32_t sign = static_cast<uint32_t>(h >> 15) << 31;
  int x = (h >> 10) & 0x1F;
  int f = h & 0x3FF;
  if (x == 31) {
    return sign | 0x7F800000u | static_cast<uint32_t>(f << 13);
  }
  double value = x == 0 ? std::ldexp(f, -24) : std::ldexp(1024 + f, x - 25);
  return sign | FloatBits(static_cast<float>(value));
}

#ifdef QX_TEST_F16C
// F16C is reported by CPUID; it needs the AVX state that "avx" checks with
// the operating system. (Not every compiler knows "f16c" as a feature name.)
bool HasF16c() {
  unsigned a = 0, b = 0, c = 0, d = 0;
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx") && __get_cpuid(1, &a, &b, &c, &d) &&
         (c & bit_F16C) != 0;
}

__attribute__((target("f16c"))) uint32_t HardwareToFloatBits(uint16_t h) {
  return FloatBits(_cvtsh_ss(h));
}

#endif  // QX_TEST_F16C

// The supported tables, each conversion kernel once (tables share the
// scalar conversions where they have no vector form of their own).
std::vector<Isa> SupportedIsas(bool widening) {
  std::vector<Isa> isas;
  std::vector<const void*> seen;
  for (Isa isa : {Isa::kScalar, Isa::kSsse3, Isa::kAvx2, Isa::kAvx512}) {
    if (!binarysimd::Supported(isa)) {
      continue;
    }
    const binarysimd::Kernels& k = binarysimd::KernelsFor(isa);
    const void* kernel = widening
                             ? reinterpret_cast<const void*>(k.halfToFloat)
                             : reinterpret_cast<const void*>(k.floatToHalf);
    if (std::find(seen.begin(), seen.end(), kernel) == seen.end()) {
      seen.push_back(kernel);
      isas.push_back(isa);
    }
  }
  return isas;
}

const char* IsaName(Isa isa) {
  switch (isa) {
    case Isa::kScalar:
      return "scalar table";
    case Isa::kSsse3:
      return "ssse3 table";
    case Isa::kAvx2:
      return "avx2 table";
    case Isa::kAvx512:
      return "avx512 table";
  }
  return "?";
}

// Collects the first few disagreements from any thread.
class Mismatches {
 public:
  void Add(const std::string& what) {
    std::lock_guard<std::mutex> lock(_mutex);
    if (_count++ < 10) {
      _first += what + "\n";
    }
  }
  uint64_t count() const { return _count; }
  const std::string& first() const { return _first; }

 private:
  std::mutex _mutex;
  std::atomic<uint64_t> _count{0};
  std::string _first;
};

std::string Describe(const char* who, uint32_t bits, unsigned got,
                     unsigned want) {
  char text[128];
  snprintf(text, sizeof text, "%s: float 0x%08X gives 0x%04X, rule says 0x%04X",
           who, bits, got, want);
  return text;
}

TEST(QXHalfFloatExhaustiveTest, EveryFloatRoundsByTheRule) {
  const uint64_t kChunk = 1 << 16;
  const uint64_t kChunks = (1ULL << 32) / kChunk;
  // Under ThreadSanitizer the point is the two threads, not the range, and
  // every access costs tens of times more: every 16th chunk is enough there.
  const uint64_t kStride = kUnderThreadSanitizer ? 16 : 1;
  std::vector<Isa> isas = SupportedIsas(false);
  std::atomic<uint64_t> next{0};
  std::atomic<uint64_t> checked{0};
  Mismatches bad;

  auto work = [&] {
    std::vector<float> in(kChunk);
    std::vector<uint16_t> want(kChunk);
    std::vector<uint16_t> single(kChunk);
    std::vector<QXHalfFloat> batch(kChunk);
    std::vector<uint16_t> table(kChunk);
    for (uint64_t c = next++ * kStride; c < kChunks; c = next++ * kStride) {
      uint32_t base = static_cast<uint32_t>(c * kChunk);
      for (uint64_t i = 0; i < kChunk; ++i) {
        uint32_t bits = base + static_cast<uint32_t>(i);
        in[i] = BitsFloat(bits);
        want[i] = ReferenceToHalf(bits);
      }
      for (uint64_t i = 0; i < kChunk; ++i) {
        single[i] = QXHalfFloat::toFloat16(in[i]);
      }
      QXFloatToHalf(in.data(), batch.data(), kChunk);
      // Element by element only where a whole chunk disagrees.
      auto compare = [&](const char* who, const void* got) {
        if (memcmp(got, want.data(), kChunk * sizeof(uint16_t)) == 0) {
          return;
        }
        const uint16_t* words = static_cast<const uint16_t*>(got);
        for (uint64_t i = 0; i < kChunk; ++i) {
          if (words[i] != want[i]) {
            bad.Add(Describe(who, base + static_cast<uint32_t>(i), words[i],
                             want[i]));
          }
        }
      };
      compare("toFloat16", single.data());
      compare("QXFloatToHalf", batch.data());
      for (Isa isa : isas) {
        binarysimd::KernelsFor(isa).floatToHalf(in.data(), table.data(),
                                                kChunk);
        compare(IsaName(isa), table.data());
      }
      checked += kChunk;
    }
  };
  std::thread helper(work);
  work();
  helper.join();

  EXPECT_EQ(checked.load(), (1ULL << 32) / kStride);
  EXPECT_EQ(bad.count(), 0u) << bad.first();
}

TEST(QXHalfFloatExhaustiveTest, EveryHalfWidensExactly) {
  std::vector<QXHalfFloat> halves(65536);
  for (uint32_t h = 0; h < 65536; ++h) {
    halves[h] = QXHalfFloat::fromBits(static_cast<unsigned short>(h));
  }
  std::vector<float> batch(65536);
  QXHalfToFloat(halves.data(), batch.data(), halves.size());
  std::vector<Isa> isas = SupportedIsas(true);
  std::vector<std::vector<float>> tables(isas.size(),
                                         std::vector<float>(65536));
  for (size_t t = 0; t < isas.size(); ++t) {
    binarysimd::KernelsFor(isas[t]).halfToFloat(
        reinterpret_cast<const uint16_t*>(halves.data()), tables[t].data(),
        65536);
  }
  for (uint32_t h = 0; h < 65536; ++h) {
    uint32_t want = ReferenceToFloatBits(static_cast<uint16_t>(h));
    ASSERT_EQ(FloatBits(halves[h]), want) << std::hex << h;
    ASSERT_EQ(FloatBits(batch[h]), want) << std::hex << h;
    for (size_t t = 0; t < isas.size(); ++t) {
      ASSERT_EQ(FloatBits(tables[t][h]), want) << std::hex << h;
    }
    // And back: every half that is not a NaN survives the round trip.
    if (!QXIsNaN(halves[h])) {
      ASSERT_EQ(QXHalfFloat::toFloat16(halves[h]), h == 0x8000 ? 0u : h)
          << std::hex << h;
    }
  }
}

TEST(QXHalfFloatExhaustiveTest, EveryHalfWidensAsTheHardwareDoes) {
#ifndef QX_TEST_F16C
  GTEST_SKIP() << "the F16C comparison is for x86 processors";
#else
  if (!HasF16c()) {
    GTEST_SKIP() << "this processor has no F16C conversion";
  }
  int quietened = 0;
  for (uint32_t h = 0; h < 65536; ++h) {
    uint32_t ours =
        FloatBits(QXHalfFloat::fromBits(static_cast<unsigned short>(h)));
    uint32_t hardware = HardwareToFloatBits(static_cast<uint16_t>(h));
    if (ours == hardware) {
      continue;
    }
    // The hardware quietens signalling NaNs; everything else must agree.
    bool signalling =
        (h & 0x7C00) == 0x7C00 && (h & 0x3FF) != 0 && (h & 0x200) == 0;
    ASSERT_TRUE(signalling)
        << std::hex << h << " ours " << ours << " hardware " << hardware;
    ASSERT_EQ(hardware, ours | 0x00400000u) << std::hex << h;
    ++quietened;
  }
  EXPECT_TRUE(quietened == 0 || quietened == 2 * 511) << quietened;
#endif
}

}  // namespace
}  // namespace QXPlatform
