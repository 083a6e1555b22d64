#include <stdint.h>
#include <string.h>

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
using testing::CaptureStderr;

// The expected image, built the slow and obvious way: every element's bytes
// in reverse order on a little-endian host; a big-endian host already holds
// them in image order.
ByteVector ReverseEach(const ByteVector& host, size_t width) {
  if (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__) {
    return host;
  }
  ByteVector image(host.size());
  for (size_t i = 0; i + width <= host.size(); i += width) {
    for (size_t k = 0; k < width; ++k) {
      image[i + k] = host[i + width - 1 - k];
    }
  }
  return image;
}

ByteVector RandomVector(size_t n, unsigned seed) {
  return testing::ToBytes(testing::RandomBytes(n, seed));
}

TEST(QXBinaryTest, WidthFourWritesMostSignificantByteFirst) {
  uint32_t value = 258;
  unsigned char image[4];
  EXPECT_EQ(
      QX_io_write_binary(image, reinterpret_cast<unsigned char*>(&value), 4, 1),
      4u);
  EXPECT_EQ(ByteVector(image, image + 4), (ByteVector{0x00, 0x00, 0x01, 0x02}));

  uint32_t back = 0;
  EXPECT_EQ(
      QX_io_read_binary(image, reinterpret_cast<unsigned char*>(&back), 4, 1),
      4u);
  EXPECT_EQ(back, 258u);
}

TEST(QXBinaryTest, WidthTwoAndEightReverseEveryElement) {
  uint16_t shorts[2] = {0x0102, 0xA0B0};
  unsigned char image2[4];
  EXPECT_EQ(QX_io_write_binary(image2, reinterpret_cast<unsigned char*>(shorts),
                               2, 2),
            4u);
  EXPECT_EQ(ByteVector(image2, image2 + 4),
            (ByteVector{0x01, 0x02, 0xA0, 0xB0}));

  uint64_t longs[1] = {0x0102030405060708ULL};
  unsigned char image8[8];
  EXPECT_EQ(
      QX_io_write_binary(image8, reinterpret_cast<unsigned char*>(longs), 8, 1),
      8u);
  EXPECT_EQ(ByteVector(image8, image8 + 8),
            (ByteVector{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(QXBinaryTest, DoubleKeepsItsValueThroughWriteAndRead) {
  double values[3] = {3.141592653589793, -1.0e-300, 6.02214076e23};
  unsigned char image[24];
  QX_io_write_binary(image, reinterpret_cast<unsigned char*>(values), 8, 3);
  // 3.141592653589793 is 0x400921FB54442D18.
  EXPECT_EQ(ByteVector(image, image + 8),
            (ByteVector{0x40, 0x09, 0x21, 0xFB, 0x54, 0x44, 0x2D, 0x18}));
  double back[3] = {0, 0, 0};
  QX_io_read_binary(image, reinterpret_cast<unsigned char*>(back), 8, 3);
  EXPECT_EQ(memcmp(values, back, sizeof values), 0);
}

TEST(QXBinaryTest, WidthOneCopiesBytesUnchanged) {
  ByteVector src = RandomVector(100, 1);
  ByteVector image(100, 0);
  EXPECT_EQ(QX_io_write_binary(image.data(), src.data(), 1, 100), 100u);
  EXPECT_EQ(image, src);
  ByteVector back(100, 0);
  EXPECT_EQ(QX_io_read_binary(image.data(), back.data(), 1, 100), 100u);
  EXPECT_EQ(back, src);
}

TEST(QXBinaryTest, BufferFormsMatchReversalAtEveryLengthAndAlignment) {
  for (size_t width : {1u, 2u, 4u, 8u}) {
    for (unsigned count = 0; count < 300; count += (count < 80 ? 1 : 17)) {
      for (size_t offset = 0; offset < 3; ++offset) {
        ByteVector host = RandomVector(count * width + 3, count * 7 + width);
        const unsigned char* src = host.data() + offset;
        ByteVector expected =
            ReverseEach(ByteVector(src, src + count * width), width);
        // Guard bytes after the array must stay as they are.
        ByteVector image(count * width + 8, 0xEE);
        ASSERT_EQ(QX_io_write_binary(image.data() + offset, src, width, count),
                  count * width);
        ASSERT_EQ(ByteVector(image.begin() + offset,
                             image.begin() + offset + count * width),
                  expected)
            << "width " << width << " count " << count;
        for (size_t k = offset + count * width; k < image.size(); ++k) {
          ASSERT_EQ(image[k], 0xEE);
        }
        ByteVector back(count * width + 3, 0);
        ASSERT_EQ(QX_io_read_binary(image.data() + offset, back.data() + 1,
                                    width, count),
                  count * width);
        ASSERT_EQ(
            ByteVector(back.begin() + 1, back.begin() + 1 + count * width),
            ByteVector(src, src + count * width));
      }
    }
  }
}

TEST(QXBinaryTest, BufferFormsConvertInPlace) {
  for (size_t width : {1u, 2u, 4u, 8u}) {
    ByteVector host = RandomVector(1000 * width, 5);
    ByteVector data = host;
    QX_io_write_binary(data.data(), data.data(), width, 1000);
    EXPECT_EQ(data, ReverseEach(host, width)) << width;
    QX_io_read_binary(data.data(), data.data(), width, 1000);
    EXPECT_EQ(data, host) << width;
  }
}

TEST(QXBinaryTest, CountZeroMovesNothing) {
  unsigned char src[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  unsigned char dst[8] = {9, 9, 9, 9, 9, 9, 9, 9};
  for (unsigned long width : {1ul, 2ul, 4ul, 8ul}) {
    EXPECT_EQ(QX_io_write_binary(dst, src, width, 0), 0u);
    EXPECT_EQ(QX_io_read_binary(src, dst, width, 0), 0u);
    qxosstream out;
    EXPECT_EQ(QX_io_write_binary(out, src, width, 0), 0u);
    EXPECT_EQ(out.str(), "");
    qxisstream in(reinterpret_cast<const char*>(src), 8, false);
    EXPECT_EQ(QX_io_read_binary(in, dst, width, 0), 0u);
  }
  EXPECT_EQ(ByteVector(dst, dst + 8), ByteVector(8, 9));
}

TEST(QXBinaryTest, NullPointersAndZeroWidthReturnZeroSilently) {
  unsigned char src[4] = {1, 2, 3, 4};
  unsigned char dst[4] = {9, 9, 9, 9};
  std::string message = CaptureStderr([&] {
    EXPECT_EQ(QX_io_write_binary(dst, nullptr, 4, 1), 0u);
    EXPECT_EQ(QX_io_write_binary(nullptr, src, 4, 1), 0u);
    EXPECT_EQ(QX_io_write_binary(dst, src, 0, 1), 0u);
    EXPECT_EQ(QX_io_read_binary(src, nullptr, 4, 1), 0u);
    EXPECT_EQ(QX_io_read_binary(nullptr, dst, 4, 1), 0u);
    EXPECT_EQ(QX_io_read_binary(src, dst, 0, 1), 0u);
    EXPECT_EQ(QX_io_write_binary(dst, nullptr, 3, 1), 0u);
    qxosstream out;
    EXPECT_EQ(QX_io_write_binary(out, nullptr, 4, 1), 0u);
    EXPECT_EQ(QX_io_write_binary(out, src, 0, 1), 0u);
    EXPECT_EQ(out.str(), "");
    qxisstream in(reinterpret_cast<const char*>(src), 4, false);
    EXPECT_EQ(QX_io_read_binary(in, nullptr, 4, 1), 0u);
    EXPECT_EQ(QX_io_read_binary(in, dst, 0, 1), 0u);
    EXPECT_EQ(in.tell(), 0u);
    std::string s = "kept";
    EXPECT_EQ(QX_io_write_binary(static_cast<unsigned char*>(nullptr), s), 0u);
    EXPECT_EQ(QX_io_read_binary(static_cast<const unsigned char*>(nullptr), s),
              0u);
    EXPECT_EQ(s, "kept");
  });
  EXPECT_EQ(message, "");
  EXPECT_EQ(ByteVector(dst, dst + 4), ByteVector(4, 9));
}

TEST(QXBinaryTest, UndefinedWidthWriteCopiesEverythingAndReports) {
  unsigned char src[6] = {1, 2, 3, 4, 5, 6};
  unsigned char image[8] = {0, 0, 0, 0, 0, 0, 0xEE, 0xEE};
  unsigned long result = 0;
  std::string message =
      CaptureStderr([&] { result = QX_io_write_binary(image, src, 3, 2); });
  EXPECT_EQ(result, 6u);
  EXPECT_EQ(ByteVector(image, image + 8),
            (ByteVector{1, 2, 3, 4, 5, 6, 0xEE, 0xEE}));
  EXPECT_EQ(message, "Error: undefined block size - 3\n");
}

TEST(QXBinaryTest, UndefinedWidthReadCopiesOnlyCountBytes) {
  unsigned char image[6] = {1, 2, 3, 4, 5, 6};
  unsigned char dst[6] = {9, 9, 9, 9, 9, 9};
  unsigned long result = 0;
  std::string message =
      CaptureStderr([&] { result = QX_io_read_binary(image, dst, 3, 2); });
  EXPECT_EQ(result, 6u);
  EXPECT_EQ(ByteVector(dst, dst + 6), (ByteVector{1, 2, 9, 9, 9, 9}));
  EXPECT_EQ(message, "Error: undefined block size - 3\n");
}

TEST(QXBinaryTest, EveryUndefinedWidthIsReportedWithItsNumber) {
  unsigned char src[64] = {};
  unsigned char dst[64] = {};
  for (unsigned long width : {3ul, 5ul, 6ul, 7ul, 9ul, 16ul}) {
    std::string message = CaptureStderr([&] {
      EXPECT_EQ(QX_io_write_binary(dst, src, width, 2), width * 2);
      EXPECT_EQ(QX_io_read_binary(src, dst, width, 2), width * 2);
    });
    std::string line =
        "Error: undefined block size - " + std::to_string(width) + "\n";
    EXPECT_EQ(message, line + line);
  }
  // Even with nothing to move the width is reported.
  std::string message = CaptureStderr(
      [&] { EXPECT_EQ(QX_io_write_binary(dst, src, 12, 0), 0u); });
  EXPECT_EQ(message, "Error: undefined block size - 12\n");
}

TEST(QXBinaryTest, StreamWriteGivesTheBufferImage) {
  for (unsigned long width : {1ul, 2ul, 4ul, 8ul}) {
    for (unsigned count : {0u, 1u, 7u, 1000u, 40000u}) {
      ByteVector host = RandomVector(count * width, count + 3);
      ByteVector image(count * width);
      QX_io_write_binary(image.data(), host.data(), width, count);
      qxosstream out;
      EXPECT_EQ(QX_io_write_binary(out, host.data(), width, count),
                count * width);
      EXPECT_EQ(testing::ToBytes(out.str()), image)
          << "width " << width << " count " << count;
    }
  }
}

TEST(QXBinaryTest, StreamWriteIssuesOneWritePerElement) {
  uint32_t values[3] = {1, 2, 3};
  qxosstream out;
  QX_io_write_binary(out, reinterpret_cast<unsigned char*>(values), 4, 3);
  // The count of the last unformatted write: one element.
  EXPECT_EQ(out.count(), 4u);
  QX_io_write_binary(out, reinterpret_cast<unsigned char*>(values), 1, 12);
  EXPECT_EQ(out.count(), 12u);
}

TEST(QXBinaryTest, StreamWriteResultIgnoresAFailingSink) {
  unsigned char memory[8];
  qxostream out;
  ASSERT_TRUE(out.open(memory, sizeof memory));
  uint32_t values[4] = {0x01020304, 0x05060708, 0x090A0B0C, 0x0D0E0F10};
  EXPECT_EQ(
      QX_io_write_binary(out, reinterpret_cast<unsigned char*>(values), 4, 4),
      16u);
  EXPECT_EQ(ByteVector(memory, memory + 8),
            (ByteVector{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(QXBinaryTest, StreamReadReturnsTheLastElementsBytes) {
  ByteVector image = RandomVector(80, 11);
  std::string text = testing::FromBytes(image);
  uint16_t shorts[10];
  qxisstream in2(text);
  EXPECT_EQ(
      QX_io_read_binary(in2, reinterpret_cast<unsigned char*>(shorts), 2, 10),
      2u);
  EXPECT_EQ(in2.tell(), 20u);
  EXPECT_EQ(in2.count(), 2u);
  ByteVector back(reinterpret_cast<unsigned char*>(shorts),
                  reinterpret_cast<unsigned char*>(shorts) + 20);
  EXPECT_EQ(back,
            ReverseEach(ByteVector(image.begin(), image.begin() + 20), 2));

  uint32_t words[5];
  qxisstream in4(text);
  EXPECT_EQ(
      QX_io_read_binary(in4, reinterpret_cast<unsigned char*>(words), 4, 5),
      4u);
  uint64_t longs[10];
  qxisstream in8(text);
  EXPECT_EQ(
      QX_io_read_binary(in8, reinterpret_cast<unsigned char*>(longs), 8, 10),
      8u);
  unsigned char bytes[80];
  qxisstream in1(text);
  EXPECT_EQ(QX_io_read_binary(in1, bytes, 1, 80), 80u);
  EXPECT_EQ(ByteVector(bytes, bytes + 80), image);
}

TEST(QXBinaryTest, StreamReadReversesAShortLastElementAsItStands) {
  std::string text("\x01\x02\x03\x04\x05\x06", 6);
  unsigned char dst[8] = {0, 0, 0, 0, 0xA1, 0xA2, 0xA3, 0xA4};
  qxisstream in(text);
  // The second element gets 05 06 over A1 A2 and is then put in host order
  // whole: reversed on a little-endian host, kept on a big-endian one.
  EXPECT_EQ(QX_io_read_binary(in, dst, 4, 2), 2u);
  EXPECT_EQ(ByteVector(dst, dst + 8),
            ReverseEach(ByteVector{1, 2, 3, 4, 5, 6, 0xA3, 0xA4}, 4));
  // Past the end every read delivers nothing.
  EXPECT_EQ(QX_io_read_binary(in, dst, 2, 3), 0u);
}

TEST(QXBinaryTest, StreamReadSplitsElementsAcrossFills) {
  ByteVector host = RandomVector(8 * 5000, 21);
  ByteVector image = ReverseEach(host, 8);
  testing::SpanStream in(testing::FromBytes(image), {3, 5, 7, 32768, 1});
  ByteVector back(host.size());
  EXPECT_EQ(QX_io_read_binary(in, back.data(), 8, 5000), 8u);
  EXPECT_EQ(back, host);
}

TEST(QXBinaryTest, StreamUndefinedWidthsMoveAsTheBufferFormsDo) {
  unsigned char src[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  qxosstream out;
  unsigned long written = 0;
  std::string message =
      CaptureStderr([&] { written = QX_io_write_binary(out, src, 3, 4); });
  EXPECT_EQ(written, 12u);
  EXPECT_EQ(testing::ToBytes(out.str()), ByteVector(src, src + 12));
  EXPECT_EQ(message, "Error: undefined block size - 3\n");

  qxisstream in(out.str());
  unsigned char dst[12] = {};
  unsigned long got = 0;
  message = CaptureStderr([&] { got = QX_io_read_binary(in, dst, 3, 4); });
  // Only count bytes are read, and the result is what arrived.
  EXPECT_EQ(got, 4u);
  EXPECT_EQ(in.tell(), 4u);
  EXPECT_EQ(ByteVector(dst, dst + 12),
            (ByteVector{1, 2, 3, 4, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(message, "Error: undefined block size - 3\n");

  qxisstream shortIn(std::string("\x01\x02", 2));
  message = CaptureStderr([&] { got = QX_io_read_binary(shortIn, dst, 5, 4); });
  EXPECT_EQ(got, 2u);
  EXPECT_EQ(message, "Error: undefined block size - 5\n");
}

TEST(QXBinaryTest, EmptyStringIsFourZeroBytes) {
  unsigned char image[4] = {9, 9, 9, 9};
  EXPECT_EQ(QX_io_write_binary(image, std::string()), 4u);
  EXPECT_EQ(ByteVector(image, image + 4), ByteVector(4, 0));
  std::string s = "old";
  EXPECT_EQ(QX_io_read_binary(static_cast<const unsigned char*>(image), s), 4u);
  EXPECT_EQ(s, "");

  qxosstream out;
  EXPECT_EQ(QX_io_write_binary(out, std::string()), 4u);
  EXPECT_EQ(out.str(), std::string(4, '\0'));
  qxisstream in(out.str());
  s = "old";
  EXPECT_EQ(QX_io_read_binary(in, s), 4u);
  EXPECT_EQ(s, "");
}

TEST(QXBinaryTest, StringImageIsLengthThenBytesWithZerosCarried) {
  std::string s("ab\0c", 4);
  unsigned char image[8];
  EXPECT_EQ(QX_io_write_binary(image, s), 8u);
  EXPECT_EQ(ByteVector(image, image + 8),
            (ByteVector{0, 0, 0, 4, 'a', 'b', 0, 'c'}));
  qxosstream out;
  EXPECT_EQ(QX_io_write_binary(out, s), 8u);
  EXPECT_EQ(testing::ToBytes(out.str()), ByteVector(image, image + 8));
  // The length and the bytes are two writes; the last was the body.
  EXPECT_EQ(out.count(), 4u);

  std::string back = "something longer than four";
  EXPECT_EQ(QX_io_read_binary(static_cast<const unsigned char*>(image), back),
            8u);
  EXPECT_EQ(back, s);
  qxisstream in(out.str());
  std::string streamed;
  EXPECT_EQ(QX_io_read_binary(in, streamed), 8u);
  EXPECT_EQ(streamed, s);
}

TEST(QXBinaryTest, LongStringImagesRoundTripThroughStreams) {
  std::string s = testing::RandomBytes(100000, 4);
  std::vector<unsigned char> image(s.size() + 4);
  EXPECT_EQ(QX_io_write_binary(image.data(), s), s.size() + 4);
  EXPECT_EQ(image[0], 0x00);
  EXPECT_EQ(image[1], 0x01);
  EXPECT_EQ(image[2], 0x86);
  EXPECT_EQ(image[3], 0xA0);
  qxosstream out;
  QX_io_write_binary(out, s);
  EXPECT_EQ(testing::ToBytes(out.str()), image);
  testing::SpanStream in(out.str(), {1, 3, 32768});
  std::string back;
  EXPECT_EQ(QX_io_read_binary(in, back), s.size() + 4);
  EXPECT_EQ(back, s);
}

TEST(QXBinaryTest, StringReadFromItsOwnStorage) {
  std::string s("\x00\x00\x00\x03xyz", 7);
  EXPECT_EQ(
      QX_io_read_binary(reinterpret_cast<const unsigned char*>(s.data()), s),
      7u);
  EXPECT_EQ(s, "xyz");
}

TEST(QXBinaryTest, ShortStringStreamKeepsTheAnnouncedLength) {
  // 1000 bytes announced, 10 present.
  std::string image("\x00\x00\x03\xE8", 4);
  image += "0123456789";
  qxisstream in(image);
  std::string s = "previous";
  EXPECT_EQ(QX_io_read_binary(in, s), 14u);
  ASSERT_EQ(s.size(), 1000u);
  EXPECT_EQ(s.substr(0, 10), "0123456789");
  EXPECT_EQ(s.substr(10), std::string(990, '\0'));
}

TEST(QXBinaryTest, PartLengthWordIsReadAsItStands) {
  // Two bytes of the length arrive: 00 01 then two zero bytes, 65536.
  qxisstream in(std::string("\x00\x01", 2));
  std::string s = "previous";
  EXPECT_EQ(QX_io_read_binary(in, s), 2u);
  EXPECT_EQ(s, std::string(65536, '\0'));

  qxisstream empty;
  EXPECT_EQ(QX_io_read_binary(empty, s), 0u);
  EXPECT_EQ(s, "");
}

TEST(QXBinaryTest, StreamStringReadsSeveralImagesInOrder) {
  qxosstream out;
  std::vector<std::string> strings = {"first", "", std::string(70000, 'x'),
                                      "last"};
  for (const std::string& s : strings) {
    QX_io_write_binary(out, s);
  }
  testing::SpanStream in(out.str(), {2, 32768, 5});
  for (const std::string& s : strings) {
    std::string back;
    EXPECT_EQ(QX_io_read_binary(in, back), s.size() + 4);
    EXPECT_EQ(back, s);
  }
}

}  // namespace
}  // namespace QXPlatform
