#include <string.h>

#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_binary.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

using testing::ByteVector;
using testing::CaptureStderr;

// A record whose body is a fixed byte string; Read consumes a chosen number
// of bytes and may claim a different count.
class Blob : public QXBinaryIO {
 public:
  explicit Blob(std::string text) : body(std::move(text)) {}

  void Write(qxostream& out) const override { out.write(body); }
  unsigned long long Read(qxistream& in) override {
    in.read(got, consume);
    ++reads;
    return claim != kNoClaim ? claim
                             : static_cast<unsigned long long>(got.size());
  }
  unsigned long long GetSize() const override {
    return size != kNoClaim ? size : body.size();
  }

  static const unsigned long long kNoClaim = ~0ULL;
  std::string body;
  std::string got;
  unsigned long consume = 0;
  unsigned long long claim = kNoClaim;
  unsigned long long size = kNoClaim;
  int reads = 0;
};

const char kWarning[] =
    "WARNING operator>>(qxistream& istr, QXBinaryIO& obj) \n";

TEST(QXBinaryIOTest, RecordIsBigEndianSizeThenBody) {
  Blob blob(std::string("hello", 5));
  qxosstream out;
  qxostream& same = (out << blob);
  EXPECT_EQ(&same, &out);
  EXPECT_EQ(testing::ToBytes(out.str()),
            (ByteVector{0, 0, 0, 5, 'h', 'e', 'l', 'l', 'o'}));
}

TEST(QXBinaryIOTest, ZeroSizeIsFramedAsFourZeroBytesBeforeTheBody) {
  Blob blob("body");
  blob.size = 0;
  qxosstream out;
  out << blob;
  EXPECT_EQ(testing::ToBytes(out.str()),
            (ByteVector{0, 0, 0, 0, 'b', 'o', 'd', 'y'}));
}

TEST(QXBinaryIOTest, OnlyTheLowThirtyTwoBitsOfTheSizeAreFramed) {
  Blob blob("");
  blob.size = 0x1000000FFULL;
  qxosstream out;
  out << blob;
  EXPECT_EQ(testing::ToBytes(out.str()), (ByteVector{0, 0, 0, 0xFF}));
}

TEST(QXBinaryIOTest, MatchingRecordReadsSilently) {
  std::string image(
      "\x00\x00\x00\x04"
      "abcd"
      "rest",
      12);
  qxisstream in(image);
  Blob blob("");
  blob.consume = 4;
  std::string message;
  message = CaptureStderr([&] {
    qxistream& same = (in >> blob);
    EXPECT_EQ(&same, &in);
  });
  EXPECT_EQ(message, "");
  EXPECT_EQ(blob.got, "abcd");
  EXPECT_EQ(in.tell(), 8u);
}

TEST(QXBinaryIOTest,
     SizeMismatchPrintsTwoLinesAndLeavesTheStreamWhereReadLeftIt) {
  // A 12-byte record of which Read consumes 10, then the next record.
  std::string image(
      "\x00\x00\x00\x0C"
      "0123456789AB"
      "\x00\x00\x00\x01"
      "z",
      21);
  qxisstream in(image);
  Blob blob("");
  blob.consume = 10;
  std::string message = CaptureStderr([&] { in >> blob; });
  EXPECT_EQ(message,
            std::string(kWarning) +
                "Record size (12) is not equal to number of bytes read (10)\n");
  EXPECT_EQ(blob.got, "0123456789");
  // Two bytes short of the next record: nothing was skipped.
  EXPECT_EQ(in.tell(), 14u);
  Blob next("");
  next.consume = 2;
  message = CaptureStderr([&] { in >> next; });
  EXPECT_EQ(next.got, std::string("\x00\x01", 2));
  // "AB" and two zero bytes make the size word 0x41420000.
  EXPECT_EQ(message,
            std::string(kWarning) +
                "Record size (1094844416) is not equal to number of bytes read "
                "(2)\n");
}

TEST(QXBinaryIOTest, SizeIsComparedOnItsLowThirtyTwoBits) {
  std::string image(
      "\x00\x00\x00\x03"
      "abc",
      7);
  qxisstream in(image);
  Blob blob("");
  blob.consume = 3;
  blob.claim = 0x100000003ULL;
  EXPECT_EQ(CaptureStderr([&] { in >> blob; }), "");

  qxisstream again(image);
  Blob other("");
  other.consume = 3;
  other.claim = 0x100000004ULL;
  EXPECT_EQ(CaptureStderr([&] { again >> other; }),
            std::string(kWarning) +
                "Record size (3) is not equal to number of bytes read "
                "(4294967300)\n");
}

TEST(QXBinaryIOTest, PartSizeWordIsComparedAsItStands) {
  // Two bytes of the size arrive: 00 0C then zeros, 786432.
  qxisstream in(std::string("\x00\x0C", 2));
  Blob blob("");
  blob.consume = 5;
  std::string message = CaptureStderr([&] { in >> blob; });
  EXPECT_EQ(blob.reads, 1);
  EXPECT_EQ(message,
            std::string(kWarning) +
                "Record size (786432) is not equal to number of bytes read "
                "(0)\n");
}

TEST(QXBinaryIOTest, RecordsRoundTripThroughAStream) {
  qxosstream out;
  Blob first(std::string(40000, 'q'));
  Blob second("tail");
  out << first << second;
  qxisstream in(out.str());
  Blob a("");
  a.consume = 40000;
  Blob b("");
  b.consume = 4;
  EXPECT_EQ(CaptureStderr([&] { in >> a >> b; }), "");
  EXPECT_EQ(a.got, first.body);
  EXPECT_EQ(b.got, "tail");
}

TEST(QXBinaryIOTest, ReturnCodesHaveTheirNames) {
  EXPECT_EQ(QXBinaryDump::ReturnCode::Success, 0u);
  EXPECT_EQ(QXBinaryDump::ReturnCode::UndefinedError, 7u);
  EXPECT_STREQ(
      QXBinaryDump::ReturnCode::Name(QXBinaryDump::ReturnCode::Success),
      "Success");
  EXPECT_STREQ(QXBinaryDump::ReturnCode::Name(1), "UnsupportedVersion");
  EXPECT_STREQ(QXBinaryDump::ReturnCode::Name(2), "SizeMismatch");
  EXPECT_STREQ(QXBinaryDump::ReturnCode::Name(3), "ContainerSize64Bit");
  EXPECT_STREQ(QXBinaryDump::ReturnCode::Name(4), "EndOfStream");
  EXPECT_STREQ(QXBinaryDump::ReturnCode::Name(5), "ExceededMaxRead");
  EXPECT_STREQ(QXBinaryDump::ReturnCode::Name(6), "ExceededMaxWrite");
  EXPECT_STREQ(
      QXBinaryDump::ReturnCode::Name(QXBinaryDump::ReturnCode::UndefinedError),
      "UndefinedError");
}

TEST(QXBinaryIOTest, UnknownCodesAreNamedUnknown) {
  EXPECT_STREQ(QXBinaryDump::ReturnCode::Name(8), "UNKNOWN");
  EXPECT_STREQ(QXBinaryDump::ReturnCode::Name(4294967295u), "UNKNOWN");
  // The texts are static: the same pointer every time.
  EXPECT_EQ(QXBinaryDump::ReturnCode::Name(2),
            QXBinaryDump::ReturnCode::Name(2));
}

}  // namespace
}  // namespace QXPlatform
