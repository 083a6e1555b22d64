// The binary layer over streams that deliver one byte at a time, end early or
// throw: values as from a buffer of the same bytes, the documented counts for
// short reads, exceptions passing through readers and writers with their
// scratch memory given back, and the record warning on a short record.

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fault/qxfault_streams.h"
#include "support/qxtest_support.h"
#include <QXPlatform/binary/qxbinary.h>
#include <QXPlatform/binary/qxbinaryio.h>
#include <QXPlatform/streams/qxsstream.h>
#include <QXPlatform/streams/qxstdstream.h>

namespace QXPlatform {
namespace {

using testing::CaptureFd;
using testing::Fault;
using testing::FaultyIStream;
using testing::FaultyOStream;
using testing::kReadFault;
using testing::kWriteFault;
using testing::RandomBytes;

const unsigned long kPlenty = 1UL << 30;

const unsigned char* Bytes(const std::string& s) {
  return reinterpret_cast<const unsigned char*>(s.data());
}

TEST(QXBinaryFaultTest, OneByteStreamReadsEveryWidthLikeTheBuffer) {
  std::string image = RandomBytes(8 * 1000, 1);
  for (unsigned long width : {1UL, 2UL, 4UL, 8UL}) {
    unsigned int count = static_cast<unsigned int>(image.size() / width);
    std::vector<unsigned char> fromBuffer(image.size());
    std::vector<unsigned char> fromStream(image.size());
    ASSERT_EQ(QX_io_read_binary(Bytes(image), fromBuffer.data(), width, count),
              image.size());
    FaultyIStream in(image, 1, kPlenty, Fault::kNone);
    // The stream form reports the last element's bytes, not a total.
    EXPECT_EQ(QX_io_read_binary(in, fromStream.data(), width, count),
              width == 1 ? image.size() : width);
    EXPECT_EQ(fromBuffer, fromStream) << "width " << width;
  }
}

TEST(QXBinaryFaultTest, OneByteStreamReadsStringsAndPackedArraysLikeTheBuffer) {
  std::string text = RandomBytes(5000, 2);
  std::string image(4 + text.size(), '\0');
  ASSERT_EQ(
      QX_io_write_binary(reinterpret_cast<unsigned char*>(&image[0]), text),
      image.size());
  std::vector<unsigned int> values(1000);
  for (size_t i = 0; i < values.size(); ++i) {
    values[i] = static_cast<unsigned int>(i * 2654435761u) & 0x1FFF;
  }
  qxosstream packed;
  unsigned long p =
      QX_io_write_binary_compressed(packed, values.data(), 13, values.size());
  std::vector<float> floats(700);
  for (size_t i = 0; i < floats.size(); ++i) {
    floats[i] = static_cast<float>(i) * 0.37f - 50.0f;
  }
  qxosstream quantised;
  unsigned long q = QX_io_write_binary_compressed(quantised, floats.data(), 11,
                                                  floats.size());
  std::string all = image + packed.str() + quantised.str();

  FaultyIStream in(all, 1, kPlenty, Fault::kNone);
  std::string s;
  EXPECT_EQ(QX_io_read_binary(in, s), image.size());
  EXPECT_EQ(s, text);
  std::vector<unsigned int> unpacked(values.size());
  EXPECT_EQ(
      QX_io_read_binary_compressed(in, unpacked.data(), 13, values.size()), p);
  EXPECT_EQ(unpacked, values);
  std::vector<float> fromStream(floats.size());
  std::vector<float> fromBuffer(floats.size());
  EXPECT_EQ(
      QX_io_read_binary_compressed(in, fromStream.data(), 11, floats.size()),
      q);
  EXPECT_EQ(QX_io_read_binary_compressed(Bytes(quantised.str()),
                                         fromBuffer.data(), 11, floats.size()),
            q);
  EXPECT_EQ(0, std::memcmp(fromStream.data(), fromBuffer.data(),
                           floats.size() * sizeof(float)));
}

TEST(QXBinaryFaultTest, ShortArrayReportsTheLastReadOnly) {
  // Three whole 4-byte elements and one byte of a fourth.
  std::string image = RandomBytes(13, 3);
  FaultyIStream in(image, 5, 13, Fault::kFail);
  unsigned int values[10] = {};
  EXPECT_EQ(
      QX_io_read_binary(in, reinterpret_cast<unsigned char*>(values), 4, 10),
      0u);
  unsigned int whole[3];
  QX_io_read_binary(Bytes(image), reinterpret_cast<unsigned char*>(whole), 4,
                    3);
  EXPECT_EQ(0, std::memcmp(values, whole, sizeof whole));
}

TEST(QXBinaryFaultTest, ShortStringKeepsItsAnnouncedLength) {
  std::string text = "0123456789abcdefghij";
  std::string image(4 + text.size(), '\0');
  QX_io_write_binary(reinterpret_cast<unsigned char*>(&image[0]), text);
  FaultyIStream in(image, 3, 4 + 8, Fault::kFail);
  std::string s;
  EXPECT_EQ(QX_io_read_binary(in, s), 4u + 8u);
  ASSERT_EQ(s.size(), text.size());
  EXPECT_EQ(s.substr(0, 8), text.substr(0, 8));
}

TEST(QXBinaryFaultTest, ShortPackedArrayIsNotDetected) {
  std::vector<unsigned int> values(100, 5);
  std::string image(14 * 100 / 8 + 1, '\0');
  unsigned long p = QX_io_write_binary_compressed(
      reinterpret_cast<unsigned char*>(&image[0]), values.data(), 14, 100);
  ASSERT_EQ(p, image.size());
  FaultyIStream in(image, 7, 20, Fault::kFail);
  std::vector<unsigned int> back(100, 0xFFFFFFFFu);
  EXPECT_EQ(QX_io_read_binary_compressed(in, back.data(), 14, 100), p);
  // The first values, whose bits arrived, are right.
  for (size_t i = 0; i < 20 * 8 / 14; ++i) {
    EXPECT_EQ(back[i], 5u) << i;
  }
}

// Runs one reader on a stream of bytes that throws after a few; the
// exception must come out unchanged (and the sanitizers see any scratch
// memory that was not given back).
template <typename Reader>
void ExpectReadFault(const std::string& image, Reader reader) {
  FaultyIStream in(image, 3, 10, Fault::kThrow);
  try {
    reader(in);
    ADD_FAILURE() << "no exception";
  } catch (const QXIOError& error) {
    EXPECT_STREQ(error.what(), kReadFault);
  }
}

TEST(QXBinaryFaultTest, ThrowingStreamPassesThroughEveryReader) {
  std::string image = RandomBytes(100, 4);
  image[0] = 0;  // a string length of at most 2^24 - 1
  std::vector<unsigned char> bytes(1000);
  std::vector<unsigned int> values(100);
  std::vector<float> floats(100);
  for (unsigned long width : {1UL, 2UL, 4UL, 8UL}) {
    ExpectReadFault(image, [&](qxistream& in) {
      QX_io_read_binary(in, bytes.data(), width, 100);
    });
  }
  ExpectReadFault(image, [](qxistream& in) {
    std::string s;
    QX_io_read_binary(in, s);
  });
  for (unsigned int bits : {3u, 17u, 32u}) {
    ExpectReadFault(image, [&](qxistream& in) {
      QX_io_read_binary_compressed(in, values.data(), bits, 100);
    });
    ExpectReadFault(image, [&](qxistream& in) {
      QX_io_read_binary_compressed(in, floats.data(), bits, 100);
    });
  }
}

// Runs one writer on a sink whose first flush throws.
template <typename Writer>
void ExpectWriteFault(Writer writer) {
  FaultyOStream out(16, 1, Fault::kThrow);
  try {
    writer(out);
    ADD_FAILURE() << "no exception";
  } catch (const QXIOError& error) {
    EXPECT_STREQ(error.what(), kWriteFault);
  }
}

TEST(QXBinaryFaultTest, ThrowingSinkPassesThroughEveryWriter) {
  std::vector<unsigned char> bytes(800, 7);
  std::vector<unsigned int> values(100, 3);
  std::vector<float> floats(100, 2.5f);
  for (unsigned long width : {1UL, 2UL, 4UL, 8UL}) {
    ExpectWriteFault([&](qxostream& out) {
      QX_io_write_binary(out, bytes.data(), width, 100);
    });
  }
  ExpectWriteFault(
      [](qxostream& out) { QX_io_write_binary(out, std::string(100, 's')); });
  for (unsigned int bits : {3u, 17u, 32u}) {
    ExpectWriteFault([&](qxostream& out) {
      QX_io_write_binary_compressed(out, values.data(), bits, 100);
    });
    ExpectWriteFault([&](qxostream& out) {
      QX_io_write_binary_compressed(out, floats.data(), bits, 100);
    });
  }
}

// A record of a fixed number of bytes that reads a chosen number back.
class Record : public QXBinaryIO {
 public:
  explicit Record(unsigned long long reads) : _reads(reads) {}
  void Write(qxostream& out) const override { out.write("0123456789ab", 12); }
  unsigned long long Read(qxistream& in) override {
    char body[64];
    return in.read(body, _reads);
  }
  unsigned long long GetSize() const override { return 12; }

 private:
  unsigned long long _reads;
};

TEST(QXBinaryFaultTest, RecordCutShortWarnsWithWhatArrived) {
  qxosstream out;
  out << Record(12);
  std::string image = out.str();
  ASSERT_EQ(image.size(), 16u);
  CaptureFd err(2);
  {
    // Four bytes of the body arrive, then the stream ends.
    FaultyIStream in(image, 1, 8, Fault::kFail);
    Record record(12);
    in >> record;
  }
  qxerr.flush();
  EXPECT_EQ(err.Finish(),
            "WARNING operator>>(qxistream& istr, QXBinaryIO& obj) \n"
            "Record size (12) is not equal to number of bytes read (4)\n");
}

TEST(QXBinaryFaultTest, RecordOverAThrowingStreamPassesThrough) {
  qxosstream out;
  out << Record(12);
  FaultyIStream in(out.str(), 2, 6, Fault::kThrow);
  Record record(12);
  EXPECT_THROW(in >> record, QXIOError);
  FaultyOStream sink(8, 1, Fault::kThrow);
  EXPECT_THROW(sink << Record(12), QXIOError);
}

}  // namespace
}  // namespace QXPlatform
