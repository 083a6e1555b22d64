// Half-float conversions beside their references in one run: the inline
// single conversions against a hand-written loop of the same rule, the batch
// conversions against a loop over the single ones and against the F16C
// hardware conversion (which rounds to nearest even, so it is a speed
// reference only).

#include <cpuid.h>
#include <immintrin.h>
#include <stdint.h>
#include <string.h>

#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include <QXPlatform/binary/qxhalffloat.h>

namespace {

using QXPlatform::QXHalfFloat;

const size_t kCount = 1u << 20;

// Magnitudes from below the smallest subnormal to the largest half, both
// signs, so that every branch of the rule is taken unpredictably.
const std::vector<float>& Floats() {
  static std::vector<float> values = [] {
    std::vector<float> v(kCount);
    std::mt19937 gen(3);
    for (float& f : v) {
      uint32_t bits = (static_cast<uint32_t>(gen()) & 0x807FFFFFu) |
                      ((100u + gen() % 42) << 23);
      memcpy(&f, &bits, 4);
    }
    return v;
  }();
  return values;
}

const std::vector<QXHalfFloat>& Halves() {
  static std::vector<QXHalfFloat> values = [] {
    std::vector<QXHalfFloat> v(kCount);
    std::mt19937 gen(4);
    for (QXHalfFloat& h : v) {
      // Every finite half, subnormals included.
      unsigned short bits = static_cast<unsigned short>(gen() & 0xFFFF);
      if ((bits & 0x7C00) == 0x7C00) {
        bits &= 0xBFFF;
      }
      h = QXHalfFloat::fromBits(bits);
    }
    return v;
  }();
  return values;
}

// The rounding rule written out step by step, as a user would.
inline unsigned short HandFloatToHalf(float f) {
  uint32_t u;
  memcpy(&u, &f, 4);
  uint32_t s = (u >> 16) & 0x8000u;
  int e = static_cast<int>((u >> 23) & 0xFF);
  uint32_t m = u & 0x7FFFFFu;
  int x = e - 112;
  if (x <= 0) {
    if (e < 102) {
      return 0;
    }
    m = (m | 0x800000u) >> (1 - x);
    if (m & 0x1000u) {
      m += 0x2000u;
    }
    return static_cast<unsigned short>(s | (m >> 13));
  }
  if (e == 255) {
    if (m == 0) {
      return static_cast<unsigned short>(s | 0x7C00u);
    }
    m >>= 13;
    return static_cast<unsigned short>(s | 0x7C00u | m | (m == 0));
  }
  if (m & 0x1000u) {
    m += 0x2000u;
    if (m & 0x800000u) {
      m = 0;
      ++x;
    }
  }
  if (x > 30) {
    volatile float big = 1.0e10f;
    for (int i = 0; i < 10; ++i) {
      big = big * big;
    }
    return static_cast<unsigned short>(s | 0x7C00u);
  }
  return static_cast<unsigned short>(s | (static_cast<uint32_t>(x) << 10) |
                                     (m >> 13));
}

inline float HandHalfToFloat(unsigned short h) {
  uint32_t sign = static_cast<uint32_t>(h & 0x8000u) << 16;
  uint32_t x = (h >> 10) & 0x1F;
  uint32_t f = h & 0x3FF;
  uint32_t bits;
  if (x == 31) {
    bits = sign | 0x7F800000u | (f << 13);
  } else if (x != 0) {
    bits = sign | ((x + 112) << 23) | (f << 13);
  } else if (f == 0) {
    bits = sign;
  } else {
    int shift = 0;
    while ((f & 0x400u) == 0) {
      f <<= 1;
      ++shift;
    }
    bits = sign | (static_cast<uint32_t>(113 - shift) << 23) |
           ((f & 0x3FFu) << 13);
  }
  float result;
  memcpy(&result, &bits, 4);
  return result;
}

void BM_HalfFromFloatInline(benchmark::State& state) {
  const std::vector<float>& in = Floats();
  std::vector<QXHalfFloat> out(kCount);
  for (auto _ : state) {
    for (size_t i = 0; i < kCount; ++i) {
      out[i] = QXHalfFloat(in[i]);
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_HalfFromFloatInline);

void BM_HandWrittenFloatToHalf(benchmark::State& state) {
  const std::vector<float>& in = Floats();
  std::vector<unsigned short> out(kCount);
  for (size_t i = 0; i < kCount; ++i) {
    if (HandFloatToHalf(in[i]) != QXHalfFloat::toFloat16(in[i])) {
      state.SkipWithError("the hand-written rule disagrees");
      return;
    }
  }
  for (auto _ : state) {
    for (size_t i = 0; i < kCount; ++i) {
      out[i] = HandFloatToHalf(in[i]);
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_HandWrittenFloatToHalf);

void BM_HalfToFloatInline(benchmark::State& state) {
  const std::vector<QXHalfFloat>& in = Halves();
  std::vector<float> out(kCount);
  for (auto _ : state) {
    for (size_t i = 0; i < kCount; ++i) {
      out[i] = in[i];
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_HalfToFloatInline);

void BM_HandWrittenHalfToFloat(benchmark::State& state) {
  const std::vector<QXHalfFloat>& in = Halves();
  std::vector<float> out(kCount);
  for (size_t i = 0; i < kCount; ++i) {
    float a = HandHalfToFloat(in[i].bits());
    float b = in[i];
    if (memcmp(&a, &b, 4) != 0) {
      state.SkipWithError("the hand-written rule disagrees");
      return;
    }
  }
  for (auto _ : state) {
    for (size_t i = 0; i < kCount; ++i) {
      out[i] = HandHalfToFloat(in[i].bits());
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_HandWrittenHalfToFloat);

void BM_BatchFloatToHalf(benchmark::State& state) {
  const std::vector<float>& in = Floats();
  std::vector<QXHalfFloat> out(kCount);
  for (auto _ : state) {
    QXPlatform::QXFloatToHalf(in.data(), out.data(), kCount);
    benchmark::ClobberMemory();
  }
  for (size_t i = 0; i < kCount; ++i) {
    if (out[i].bits() != QXHalfFloat::toFloat16(in[i])) {
      state.SkipWithError("batch and single conversions differ");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_BatchFloatToHalf);

void BM_LoopOfSingleFloatToHalf(benchmark::State& state) {
  const std::vector<float>& in = Floats();
  std::vector<unsigned short> out(kCount);
  for (auto _ : state) {
    for (size_t i = 0; i < kCount; ++i) {
      out[i] = QXHalfFloat::toFloat16(in[i]);
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_LoopOfSingleFloatToHalf);

bool HasF16c() {
  unsigned a = 0, b = 0, c = 0, d = 0;
  return __builtin_cpu_supports("avx2") && __get_cpuid(1, &a, &b, &c, &d) &&
         (c & bit_F16C) != 0;
}

__attribute__((target("avx2,f16c"))) void F16cFloatToHalf(const float* in,
                                                          unsigned short* out,
                                                          size_t n) {
  for (size_t i = 0; i + 8 <= n; i += 8) {
    __m128i h =
        _mm256_cvtps_ph(_mm256_loadu_ps(in + i), _MM_FROUND_TO_NEAREST_INT);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), h);
  }
}

__attribute__((target("avx2,f16c"))) void F16cHalfToFloat(
    const unsigned short* in, float* out, size_t n) {
  for (size_t i = 0; i + 8 <= n; i += 8) {
    __m128i h = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
    _mm256_storeu_ps(out + i, _mm256_cvtph_ps(h));
  }
}

void BM_F16cFloatToHalf(benchmark::State& state) {
  if (!HasF16c()) {
    state.SkipWithError("no F16C on this processor");
    return;
  }
  const std::vector<float>& in = Floats();
  std::vector<unsigned short> out(kCount);
  for (auto _ : state) {
    F16cFloatToHalf(in.data(), out.data(), kCount);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_F16cFloatToHalf);

void BM_BatchHalfToFloat(benchmark::State& state) {
  const std::vector<QXHalfFloat>& in = Halves();
  std::vector<float> out(kCount);
  for (auto _ : state) {
    QXPlatform::QXHalfToFloat(in.data(), out.data(), kCount);
    benchmark::ClobberMemory();
  }
  for (size_t i = 0; i < kCount; ++i) {
    float single = in[i];
    if (memcmp(&single, &out[i], 4) != 0) {
      state.SkipWithError("batch and single conversions differ");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_BatchHalfToFloat);

void BM_LoopOfSingleHalfToFloat(benchmark::State& state) {
  const std::vector<QXHalfFloat>& in = Halves();
  std::vector<float> out(kCount);
  for (auto _ : state) {
    for (size_t i = 0; i < kCount; ++i) {
      out[i] = static_cast<float>(in[i]);
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_LoopOfSingleHalfToFloat);

void BM_F16cHalfToFloat(benchmark::State& state) {
  if (!HasF16c()) {
    state.SkipWithError("no F16C on this processor");
    return;
  }
  const std::vector<QXHalfFloat>& in = Halves();
  std::vector<unsigned short> words(kCount);
  for (size_t i = 0; i < kCount; ++i) {
    words[i] = in[i].bits();
  }
  std::vector<float> out(kCount);
  for (auto _ : state) {
    F16cHalfToFloat(words.data(), out.data(), kCount);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_F16cHalfToFloat);

}  // namespace

BENCHMARK_MAIN();
