// Cases that need gigabytes: a string longer than a 32-bit length can say,
// and packed arrays whose 32-bit bit count wraps. Run with `ctest -L bigmem`.

#include <stdio.h>
#include <string.h>

#include <new>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_binary.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

using testing::ByteVector;
using testing::CaptureStderr;

const char kRefusal[] = "Attempting to write a string larger than 4GB\n";

TEST(QXBinaryBigMemoryTest, StringsPastFourGigabytesAreRefused) {
  std::string huge;
  try {
    huge.assign(0x100000000ULL, 'x');
  } catch (const std::bad_alloc&) {
    GTEST_SKIP() << "4 GiB could not be had";
  }
  unsigned char image[8];
  memset(image, 0xEE, sizeof image);
  unsigned long result = 1;
  std::string message =
      CaptureStderr([&] { result = QX_io_write_binary(image, huge); });
  EXPECT_EQ(result, 0u);
  EXPECT_EQ(message, kRefusal);
  EXPECT_EQ(ByteVector(image, image + 8), ByteVector(8, 0xEE));

  qxosstream out;
  message = CaptureStderr([&] { result = QX_io_write_binary(out, huge); });
  EXPECT_EQ(result, 0u);
  EXPECT_EQ(message, kRefusal);
  EXPECT_EQ(out.str(), "");

  // One byte less is the longest string there is room for.
  huge.resize(0xFFFFFFFFULL);
  qxostream sink;
  message = CaptureStderr([&] { result = QX_io_write_binary(sink, huge); });
  EXPECT_EQ(result, 0xFFFFFFFFULL + 4);
  EXPECT_EQ(sink.tell(), 0xFFFFFFFFULL + 4);
  EXPECT_EQ(message, "");
}

// 138547333 values at 31 bits are 4294967323 bits, which wrap to 27: the
// image is 4 bytes. Nothing may be written or read past them.
const unsigned kWrapCount = 138547333u;

TEST(QXBinaryBigMemoryTest, WrappedPackedSizeBoundsEveryAccess) {
  std::vector<unsigned int> values(kWrapCount, 0x7FFFFFFFu);
  values[0] = 0x12345678u;
  values[1] = 0x00000001u;
  unsigned char image[12];
  memset(image, 0xEE, sizeof image);
  EXPECT_EQ(QX_io_write_binary_compressed(image, values.data(), 31, kWrapCount),
            4u);
  // Value 0 in bits 0 to 30, bit 0 of value 1 in bit 31.
  EXPECT_EQ(ByteVector(image, image + 12),
            (ByteVector{0x78, 0x56, 0x34, 0x92, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE,
                        0xEE, 0xEE, 0xEE}));
  qxosstream out;
  EXPECT_EQ(QX_io_write_binary_compressed(out, values.data(), 31, kWrapCount),
            4u);
  EXPECT_EQ(testing::ToBytes(out.str()), ByteVector(image, image + 4));

  std::vector<unsigned int> back(kWrapCount, 5);
  EXPECT_EQ(QX_io_read_binary_compressed(image, back.data(), 31, kWrapCount),
            4u);
  EXPECT_EQ(back[0], 0x12345678u);
  EXPECT_EQ(back[1], 1u);
  // Bits past the image read as zero.
  EXPECT_EQ(back[2], 0u);
  EXPECT_EQ(back[kWrapCount - 1], 0u);
  qxisstream in(out.str());
  std::vector<unsigned int> streamed(kWrapCount, 5);
  EXPECT_EQ(QX_io_read_binary_compressed(in, streamed.data(), 31, kWrapCount),
            4u);
  EXPECT_TRUE(streamed == back);
}

TEST(QXBinaryBigMemoryTest, WrappedFloatImageHoldsOnlyItsFirstCodes) {
  std::vector<float> values(kWrapCount, 0.5f);
  values[0] = 0.0f;
  values[1] = 1.0f;
  unsigned char image[16];
  memset(image, 0xEE, sizeof image);
  EXPECT_EQ(QX_io_write_binary_compressed(image, values.data(), 31, kWrapCount),
            12u);
  // Bounds 1 and 0, code 0, then bit 0 of the maximum's code 2^31: zero.
  EXPECT_EQ(ByteVector(image, image + 16),
            (ByteVector{0x3F, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xEE, 0xEE,
                        0xEE, 0xEE}));
  std::vector<float> back(kWrapCount, 7.0f);
  EXPECT_EQ(QX_io_read_binary_compressed(image, back.data(), 31, kWrapCount),
            12u);
  EXPECT_EQ(back[0], 0.0f);
  EXPECT_EQ(back[kWrapCount - 1], 0.0f);
}

// The peak resident size of the process in bytes (VmHWM), after resetting
// it when reset is true; 0 when it cannot be read.
unsigned long long PeakResident(bool reset) {
  if (reset) {
    FILE* clear = fopen("/proc/self/clear_refs", "w");
    if (clear == nullptr) {
      return 0;
    }
    fputs("5", clear);
    fclose(clear);
  }
  FILE* status = fopen("/proc/self/status", "r");
  if (status == nullptr) {
    return 0;
  }
  char line[256];
  unsigned long long kib = 0;
  while (fgets(line, sizeof line, status) != nullptr) {
    if (sscanf(line, "VmHWM: %llu kB", &kib) == 1) {
      break;
    }
  }
  fclose(status);
  return kib * 1024;
}

bool UnderASanitizer() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
  return true;
#else
  return false;
#endif
#else
  return false;
#endif
}

TEST(QXBinaryBigMemoryTest, AShortStringClaimingAGigabyteCostsOneGigabyte) {
  if (UnderASanitizer()) {
    GTEST_SKIP() << "a sanitizer's shadow memory distorts the resident size";
  }
  const unsigned long long kClaim = 1ULL << 30;
  // 14 bytes: a length word claiming 1 GiB and 10 bytes of the string.
  std::string record(
      "\x40\x00\x00\x00"
      "0123456789",
      14);
  std::string s = "old";
  unsigned long long before = PeakResident(true);
  ASSERT_GT(before, 0u);
  unsigned long result = 0;
  try {
    qxisstream in(record);
    result = QX_io_read_binary(in, s);
  } catch (const std::bad_alloc&) {
    GTEST_SKIP() << "1 GiB could not be had";
  }
  unsigned long long peak = PeakResident(false);
  EXPECT_EQ(result, 14u);
  ASSERT_EQ(s.size(), kClaim);
  EXPECT_EQ(s.compare(0, 10, "0123456789"), 0);
  EXPECT_EQ(s[10], '\0');
  EXPECT_EQ(s[kClaim / 2], '\0');
  EXPECT_EQ(s[kClaim - 1], '\0');
  // The string itself is 1 GiB; a scratch copy beside it would double that.
  EXPECT_LT(peak - before, kClaim + kClaim / 4)
      << "peak grew by " << (peak - before) << " bytes";
}

}  // namespace
}  // namespace QXPlatform
