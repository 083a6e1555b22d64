// The binary layer beside its references, so that ratios come from one run:
// byte reversal against memcpy of the same bytes, per-element stream writes
// against std::ofstream, packing against a plain 64-bit accumulator, and the
// float quantiser against a scalar std::fmaf loop of the same rule.

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <cmath>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <QXPlatform/QXPlatform.h>

namespace {

using namespace QXPlatform;

const size_t k64MiB = 64u << 20;
const unsigned kPackCount = 64u << 20;

std::vector<unsigned char>& Source() {
  static std::vector<unsigned char> bytes = [] {
    std::vector<unsigned char> b(k64MiB);
    std::mt19937_64 gen(1);
    for (size_t i = 0; i < b.size(); i += 8) {
      uint64_t v = gen();
      memcpy(&b[i], &v, 8);
    }
    return b;
  }();
  return bytes;
}

std::vector<unsigned char>& Target() {
  static std::vector<unsigned char> bytes(k64MiB + 64, 1);
  return bytes;
}

void BM_Memcpy64MiB(benchmark::State& state) {
  std::vector<unsigned char>& src = Source();
  std::vector<unsigned char>& dst = Target();
  for (auto _ : state) {
    memcpy(dst.data(), src.data(), k64MiB);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * k64MiB);
}
BENCHMARK(BM_Memcpy64MiB)->Unit(benchmark::kMillisecond);

void BM_WriteBinary64MiB(benchmark::State& state) {
  unsigned long width = static_cast<unsigned long>(state.range(0));
  std::vector<unsigned char>& src = Source();
  std::vector<unsigned char>& dst = Target();
  unsigned count = static_cast<unsigned>(k64MiB / width);
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        QX_io_write_binary(dst.data(), src.data(), width, count));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * k64MiB);
}
BENCHMARK(BM_WriteBinary64MiB)
    ->Arg(2)
    ->Arg(4)
    ->Arg(8)
    ->Unit(benchmark::kMillisecond);

void BM_ReadBinary64MiB(benchmark::State& state) {
  unsigned long width = static_cast<unsigned long>(state.range(0));
  std::vector<unsigned char>& src = Source();
  std::vector<unsigned char>& dst = Target();
  unsigned count = static_cast<unsigned>(k64MiB / width);
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        QX_io_read_binary(src.data(), dst.data(), width, count));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * k64MiB);
}
BENCHMARK(BM_ReadBinary64MiB)
    ->Arg(2)
    ->Arg(4)
    ->Arg(8)
    ->Unit(benchmark::kMillisecond);

const unsigned kStreamCount = 1u << 20;

void BM_StreamWriteWidth4(benchmark::State& state) {
  std::vector<unsigned char>& src = Source();
  for (auto _ : state) {
    qxosstream out;
    QX_io_write_binary(out, src.data(), 4, kStreamCount);
    out.flush();
    benchmark::DoNotOptimize(out.tell());
  }
  state.SetItemsProcessed(state.iterations() * kStreamCount);
  state.SetBytesProcessed(state.iterations() * kStreamCount * 4);
}
BENCHMARK(BM_StreamWriteWidth4)->Unit(benchmark::kMillisecond);

// The same per-element writes into the plain discarding stream: the cost
// of the binary layer without a sink that keeps the bytes.
void BM_StreamWriteWidth4Discarded(benchmark::State& state) {
  std::vector<unsigned char>& src = Source();
  for (auto _ : state) {
    qxostream out;
    QX_io_write_binary(out, src.data(), 4, kStreamCount);
    benchmark::DoNotOptimize(out.tell());
  }
  state.SetItemsProcessed(state.iterations() * kStreamCount);
  state.SetBytesProcessed(state.iterations() * kStreamCount * 4);
}
BENCHMARK(BM_StreamWriteWidth4Discarded)->Unit(benchmark::kMillisecond);

std::string ScratchFile() {
  const char* dir = getenv("TMPDIR");
  return std::string(dir != nullptr && *dir != '\0' ? dir : "/tmp") +
         "/qxbinary_bench.tmp";
}

// The reference: the same bytes reversed by hand and handed to
// std::ofstream::write four bytes at a time, into a file (argument 0) or
// into /dev/null (argument 1).
void BM_OfstreamWrite4(benchmark::State& state) {
  std::vector<unsigned char>& src = Source();
  std::string name = state.range(0) == 0 ? ScratchFile() : "/dev/null";
  for (auto _ : state) {
    std::ofstream out(name, std::ios::binary | std::ios::trunc);
    for (unsigned i = 0; i < kStreamCount; ++i) {
      const unsigned char* p = &src[i * 4];
      char element[4] = {static_cast<char>(p[3]), static_cast<char>(p[2]),
                         static_cast<char>(p[1]), static_cast<char>(p[0])};
      out.write(element, 4);
    }
    out.flush();
  }
  if (state.range(0) == 0) {
    remove(name.c_str());
  }
  state.SetItemsProcessed(state.iterations() * kStreamCount);
  state.SetBytesProcessed(state.iterations() * kStreamCount * 4);
}
BENCHMARK(BM_OfstreamWrite4)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

std::vector<unsigned int> PackValues(unsigned n) {
  std::vector<unsigned int> values(kPackCount);
  std::mt19937 gen(n);
  for (unsigned int& v : values) {
    v = gen() & ((1u << n) - 1);
  }
  return values;
}

size_t PackedSize(unsigned n, unsigned count) {
  return static_cast<uint32_t>(count * n) / 8 + 1;
}

// The reference packer: one 64-bit accumulator, bytes out as they fill.
void ReferencePack(const unsigned int* values, unsigned count, unsigned n,
                   unsigned char* out) {
  uint64_t acc = 0;
  unsigned fill = 0;
  size_t pos = 0;
  for (unsigned i = 0; i < count; ++i) {
    acc |= static_cast<uint64_t>(values[i]) << fill;
    fill += n;
    while (fill >= 8) {
      out[pos++] = static_cast<unsigned char>(acc);
      acc >>= 8;
      fill -= 8;
    }
  }
  out[pos++] = static_cast<unsigned char>(acc);
}

void ReferenceUnpack(const unsigned char* in, unsigned count, unsigned n,
                     unsigned int* values) {
  uint64_t acc = 0;
  unsigned fill = 0;
  size_t pos = 0;
  const uint32_t mask = (1u << n) - 1;
  for (unsigned i = 0; i < count; ++i) {
    while (fill < n) {
      acc |= static_cast<uint64_t>(in[pos++]) << fill;
      fill += 8;
    }
    values[i] = static_cast<uint32_t>(acc) & mask;
    acc >>= n;
    fill -= n;
  }
}

void BM_Pack(benchmark::State& state) {
  unsigned n = static_cast<unsigned>(state.range(0));
  std::vector<unsigned int> values = PackValues(n);
  std::vector<unsigned char> image(PackedSize(n, kPackCount));
  std::vector<unsigned char> reference(image.size());
  ReferencePack(values.data(), kPackCount, n, reference.data());
  for (auto _ : state) {
    benchmark::DoNotOptimize(QX_io_write_binary_compressed(
        image.data(), values.data(), n, kPackCount));
    benchmark::ClobberMemory();
  }
  if (image != reference) {
    state.SkipWithError("image differs from the reference packer");
  }
  state.SetItemsProcessed(state.iterations() * kPackCount);
}
BENCHMARK(BM_Pack)->Arg(7)->Arg(13)->Unit(benchmark::kMillisecond);

void BM_ReferencePack(benchmark::State& state) {
  unsigned n = static_cast<unsigned>(state.range(0));
  std::vector<unsigned int> values = PackValues(n);
  std::vector<unsigned char> image(PackedSize(n, kPackCount));
  for (auto _ : state) {
    ReferencePack(values.data(), kPackCount, n, image.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kPackCount);
}
BENCHMARK(BM_ReferencePack)->Arg(7)->Arg(13)->Unit(benchmark::kMillisecond);

void BM_Unpack(benchmark::State& state) {
  unsigned n = static_cast<unsigned>(state.range(0));
  std::vector<unsigned int> values = PackValues(n);
  std::vector<unsigned char> image(PackedSize(n, kPackCount));
  ReferencePack(values.data(), kPackCount, n, image.data());
  std::vector<unsigned int> back(kPackCount);
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        QX_io_read_binary_compressed(image.data(), back.data(), n, kPackCount));
    benchmark::ClobberMemory();
  }
  if (back != values) {
    state.SkipWithError("values differ after unpacking");
  }
  state.SetItemsProcessed(state.iterations() * kPackCount);
}
BENCHMARK(BM_Unpack)->Arg(7)->Arg(13)->Unit(benchmark::kMillisecond);

void BM_ReferenceUnpack(benchmark::State& state) {
  unsigned n = static_cast<unsigned>(state.range(0));
  std::vector<unsigned int> values = PackValues(n);
  std::vector<unsigned char> image(PackedSize(n, kPackCount) + 8);
  ReferencePack(values.data(), kPackCount, n, image.data());
  std::vector<unsigned int> back(kPackCount);
  for (auto _ : state) {
    ReferenceUnpack(image.data(), kPackCount, n, back.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kPackCount);
}
BENCHMARK(BM_ReferenceUnpack)->Arg(7)->Arg(13)->Unit(benchmark::kMillisecond);

const unsigned kFloatCount = 1u << 22;
const unsigned kFloatBits = 16;

std::vector<float> FloatValues() {
  std::vector<float> values(kFloatCount);
  std::mt19937 gen(7);
  std::uniform_real_distribution<float> spread(-300.0f, 900.0f);
  for (float& v : values) {
    v = spread(gen);
  }
  return values;
}

// The reference quantiser: the same scan and arithmetic one value at a time
// with std::fmaf, then the library's packer for the codes.
size_t ReferenceQuantise(const float* values, unsigned count, unsigned n,
                         unsigned char* out, std::vector<unsigned int>& codes) {
  float hi = values[0];
  float lo = values[0];
  for (unsigned i = 1; i < count; ++i) {
    if (values[i] > hi) {
      hi = values[i];
    }
    if (values[i] < lo) {
      lo = values[i];
    }
  }
  uint32_t u;
  memcpy(&u, &hi, 4);
  out[0] = static_cast<unsigned char>(u >> 24);
  out[1] = static_cast<unsigned char>(u >> 16);
  out[2] = static_cast<unsigned char>(u >> 8);
  out[3] = static_cast<unsigned char>(u);
  memcpy(&u, &lo, 4);
  out[4] = static_cast<unsigned char>(u >> 24);
  out[5] = static_cast<unsigned char>(u >> 16);
  out[6] = static_cast<unsigned char>(u >> 8);
  out[7] = static_cast<unsigned char>(u);
  float scale = static_cast<float>((1u << n) - 1);
  float inv = 1.0f / (hi - lo);
  for (unsigned i = 0; i < count; ++i) {
    float q = (values[i] - lo) * scale;
    float r = std::fmaf(q, inv, 0.5f);
    codes[i] = r >= 1.0f ? static_cast<unsigned int>(r) : 0u;
  }
  return 8 + QX_io_write_binary_compressed(out + 8, codes.data(), n, count);
}

void ReferenceDequantise(const unsigned char* image, unsigned count, unsigned n,
                         float* values, std::vector<unsigned int>& codes) {
  uint32_t u = static_cast<uint32_t>(image[0]) << 24 |
               static_cast<uint32_t>(image[1]) << 16 |
               static_cast<uint32_t>(image[2]) << 8 | image[3];
  float hi;
  memcpy(&hi, &u, 4);
  u = static_cast<uint32_t>(image[4]) << 24 |
      static_cast<uint32_t>(image[5]) << 16 |
      static_cast<uint32_t>(image[6]) << 8 | image[7];
  float lo;
  memcpy(&lo, &u, 4);
  QX_io_read_binary_compressed(image + 8, codes.data(), n, count);
  float range = hi - lo;
  float inv = 1.0f / static_cast<float>((1u << n) - 1);
  for (unsigned i = 0; i < count; ++i) {
    values[i] = std::fmaf(range * static_cast<float>(codes[i]), inv, lo);
  }
}

void BM_QuantiseFloats(benchmark::State& state) {
  std::vector<float> values = FloatValues();
  std::vector<unsigned char> image(8 + PackedSize(kFloatBits, kFloatCount));
  std::vector<unsigned char> reference(image.size());
  std::vector<unsigned int> codes(kFloatCount);
  ReferenceQuantise(values.data(), kFloatCount, kFloatBits, reference.data(),
                    codes);
  for (auto _ : state) {
    benchmark::DoNotOptimize(QX_io_write_binary_compressed(
        image.data(), values.data(), kFloatBits, kFloatCount));
    benchmark::ClobberMemory();
  }
  if (image != reference) {
    state.SkipWithError("image differs from the scalar rule");
  }
  state.SetItemsProcessed(state.iterations() * kFloatCount);
}
BENCHMARK(BM_QuantiseFloats)->Unit(benchmark::kMillisecond);

void BM_ReferenceQuantiseFmaf(benchmark::State& state) {
  std::vector<float> values = FloatValues();
  std::vector<unsigned char> image(8 + PackedSize(kFloatBits, kFloatCount));
  std::vector<unsigned int> codes(kFloatCount);
  for (auto _ : state) {
    benchmark::DoNotOptimize(ReferenceQuantise(
        values.data(), kFloatCount, kFloatBits, image.data(), codes));
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kFloatCount);
}
BENCHMARK(BM_ReferenceQuantiseFmaf)->Unit(benchmark::kMillisecond);

void BM_DequantiseFloats(benchmark::State& state) {
  std::vector<float> values = FloatValues();
  std::vector<unsigned char> image(8 + PackedSize(kFloatBits, kFloatCount));
  QX_io_write_binary_compressed(image.data(), values.data(), kFloatBits,
                                kFloatCount);
  std::vector<float> back(kFloatCount);
  std::vector<float> reference(kFloatCount);
  std::vector<unsigned int> codes(kFloatCount);
  ReferenceDequantise(image.data(), kFloatCount, kFloatBits, reference.data(),
                      codes);
  for (auto _ : state) {
    benchmark::DoNotOptimize(QX_io_read_binary_compressed(
        image.data(), back.data(), kFloatBits, kFloatCount));
    benchmark::ClobberMemory();
  }
  if (memcmp(back.data(), reference.data(), back.size() * sizeof(float)) != 0) {
    state.SkipWithError("values differ from the scalar rule");
  }
  state.SetItemsProcessed(state.iterations() * kFloatCount);
}
BENCHMARK(BM_DequantiseFloats)->Unit(benchmark::kMillisecond);

void BM_ReferenceDequantiseFmaf(benchmark::State& state) {
  std::vector<float> values = FloatValues();
  std::vector<unsigned char> image(8 + PackedSize(kFloatBits, kFloatCount));
  QX_io_write_binary_compressed(image.data(), values.data(), kFloatBits,
                                kFloatCount);
  std::vector<float> back(kFloatCount);
  std::vector<unsigned int> codes(kFloatCount);
  for (auto _ : state) {
    ReferenceDequantise(image.data(), kFloatCount, kFloatBits, back.data(),
                        codes);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kFloatCount);
}
BENCHMARK(BM_ReferenceDequantiseFmaf)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
