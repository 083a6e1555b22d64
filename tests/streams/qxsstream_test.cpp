#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_streams.h"
#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxsstream.h>

namespace QXPlatform {
namespace {

using testing::Fields;
using testing::RandomBytes;

const unsigned long kEdgeSizes[] = {0, 1, 32767, 32768, 32769, 65536};

// ---------------------------------------------------------------------------
// Memory input

TEST(qxisstreamTest, GetlineTreatsCrLfAsOneLineEnd) {
  qxisstream in("one\r\ntwo\n");
  std::string line;
  ASSERT_TRUE(in.getline(line));
  EXPECT_EQ(line, "one");
  ASSERT_TRUE(in.getline(line));
  EXPECT_EQ(line, "two");
  EXPECT_FALSE(in.getline(line));
}

TEST(qxisstreamTest, EmptyStreamHoldsNothing) {
  qxisstream in;
  EXPECT_EQ(Fields::begin(in), nullptr);
  EXPECT_EQ(Fields::ptr(in), Fields::buffer(in));
  EXPECT_EQ(Fields::end(in), Fields::buffer(in));
  EXPECT_TRUE(in.eof());
  EXPECT_EQ(in.tell(), 0u);
  EXPECT_EQ(in.size(), 0u);
  EXPECT_FALSE(in.reset());
  std::string all = "old";
  EXPECT_TRUE(in.getbuffer(all));
  EXPECT_EQ(all, "");
  char c;
  EXPECT_EQ(in.read(&c, 1), 0u);
}

TEST(qxisstreamTest, ConstructorsHoldTheirData) {
  qxisstream fromText("text");
  qxisstream fromString(std::string("a\0b", 3));
  qxisstream fromNull(static_cast<const char*>(nullptr));
  qxisstream fromEmpty("");
  std::string s;
  fromText.read(s);
  EXPECT_EQ(s, "text");
  fromString.read(s);
  EXPECT_EQ(s, std::string("a\0b", 3));
  EXPECT_EQ(Fields::begin(fromNull), nullptr);
  EXPECT_EQ(Fields::begin(fromEmpty), nullptr);
  EXPECT_EQ(fromText.size(), 4u);
  EXPECT_TRUE(Fields::sizeknown(fromText));
}

TEST(qxisstreamTest, HoldingDataKeepsTheEndFlagSet) {
  // Deliberate: reading is driven by the span alone.
  qxisstream in("abc");
  EXPECT_TRUE(in.eof());
  EXPECT_TRUE(in.buffered());
}

TEST(qxisstreamTest, SharedDataIsReadInPlace) {
  char data[] = "shared";
  qxisstream in(data, 6, false);
  EXPECT_EQ(Fields::begin(in), data);
  data[0] = 'S';
  std::string s;
  in.read(s);
  EXPECT_EQ(s, "Shared");
}

TEST(qxisstreamTest, CopiedDataIsIndependentOfTheCaller) {
  char data[] = "copied";
  qxisstream in(data, 6, true);
  EXPECT_NE(Fields::begin(in), data);
  data[0] = 'X';
  std::string s;
  in.read(s);
  EXPECT_EQ(s, "copied");
}

TEST(qxisstreamTest, SetWithNothingReturnsFalseAndEmpties) {
  qxisstream in("abc");
  const char* data = "xyz";
  EXPECT_FALSE(in.set(data, 0, true));
  EXPECT_EQ(Fields::begin(in), nullptr);
  EXPECT_FALSE(in.set(static_cast<const char*>(nullptr), 3, false));
  EXPECT_FALSE(in.set(std::string()));
  EXPECT_EQ(in.size(), 0u);
  char writable[] = "wr";
  EXPECT_TRUE(in.set(writable, 2, false));
  EXPECT_TRUE(in.set(std::string("new")));
  std::string s;
  in.read(s);
  EXPECT_EQ(s, "new");
}

TEST(qxisstreamTest, GetbufferGivesAllDataAndResetRereads) {
  qxisstream in("0123456789");
  char half[5];
  in.read(half, 5);
  EXPECT_EQ(in.tell(), 5u);
  std::string all;
  EXPECT_TRUE(in.getbuffer(all));
  EXPECT_EQ(all, "0123456789");
  EXPECT_TRUE(in.reset());
  EXPECT_EQ(in.tell(), 0u);
  char c;
  in >> c;
  EXPECT_EQ(c, '0');
}

TEST(qxisstreamTest, ResetAfterTheEndRereadsEverything) {
  qxisstream in("abc");
  std::string s;
  in.read(s);
  EXPECT_EQ(in.tell(), 3u);
  EXPECT_TRUE(in.reset());
  in.read(s);
  EXPECT_EQ(s, "abc");
}

TEST(qxisstreamTest, CopyOfAHalfReadStreamContinuesThere) {
  std::unique_ptr<qxisstream> source(new qxisstream("0123456789"));
  char half[4];
  source->read(half, 4);
  qxisstream copy(*source);
  EXPECT_NE(Fields::begin(copy), Fields::begin(*source));
  EXPECT_EQ(copy.tell(), 4u);
  source.reset();
  std::string rest;
  copy.read(rest);
  EXPECT_EQ(rest, "456789");
  EXPECT_TRUE(copy.reset());
  copy.read(rest);
  EXPECT_EQ(rest, "0123456789");
}

TEST(qxisstreamTest, CopyOfASharingStreamSharesAgain) {
  char data[] = "shared";
  qxisstream source(data, 6, false);
  qxisstream copy(source);
  EXPECT_EQ(Fields::begin(copy), data);
  qxisstream empty;
  qxisstream emptyCopy(empty);
  EXPECT_EQ(Fields::begin(emptyCopy), nullptr);
}

TEST(qxisstreamTest, AssignmentReplacesTheData) {
  qxisstream source("abcdef");
  char two[2];
  source.read(two, 2);
  qxisstream target("old data");
  target = source;
  EXPECT_EQ(target.tell(), 2u);
  std::string rest;
  target.read(rest);
  EXPECT_EQ(rest, "cdef");
  qxisstream& alias = target;
  target = alias;
  EXPECT_TRUE(target.reset());
  target.read(rest);
  EXPECT_EQ(rest, "abcdef");
}

TEST(qxisstreamTest, ClearDropsTheData) {
  qxisstream in("abc");
  in.clear();
  EXPECT_EQ(Fields::begin(in), nullptr);
  EXPECT_EQ(in.tell(), 0u);
  EXPECT_FALSE(in.reset());
}

TEST(qxisstreamTest, BlockEdgeSizesReadBackInAnyPieces) {
  for (unsigned long size : kEdgeSizes) {
    std::string data = RandomBytes(size, 81 + static_cast<unsigned>(size));
    for (unsigned long piece : {1ul, 32767ul, 32768ul, 32769ul, 70000ul}) {
      qxisstream in(data);
      std::string back;
      std::vector<char> chunk(piece);
      unsigned long n;
      while ((n = in.read(chunk.data(), piece)) != 0) {
        back.append(chunk.data(), n);
      }
      EXPECT_EQ(back, data);
      EXPECT_EQ(in.tell(), size);
    }
  }
}

// ---------------------------------------------------------------------------
// Memory output

TEST(qxosstreamTest, StrReturnsEverythingWrittenInOrder) {
  qxosstream out;
  std::string expected;
  for (int i = 0; i < 100000; ++i) {
    char c = static_cast<char>('a' + i % 26);
    out << c;
    expected.push_back(c);
  }
  EXPECT_EQ(out.str(), expected);
  EXPECT_EQ(out.tell(), 100000u);
  out << "!";
  EXPECT_EQ(out.str(), expected + "!");
}

TEST(qxosstreamTest, InitialTextComesFirst) {
  qxosstream out("ab");
  out << "cd";
  EXPECT_EQ(out.str(), "abcd");
  const unsigned char bytes[] = {'x', 0, 'y'};
  qxosstream binary(bytes, 3);
  binary << 'z';
  EXPECT_EQ(binary.str(), std::string("x\0yz", 4));
  qxosstream none(static_cast<const char*>(nullptr));
  EXPECT_EQ(none.str(), "");
}

TEST(qxosstreamTest, ClearEmptiesTheTextAndResetsThePosition) {
  qxosstream out("start");
  out.write("more", 4);
  EXPECT_EQ(out.count(), 4u);
  out.flush();
  out.clear();
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(out.tell(), 0u);
  EXPECT_FALSE(out.eof());
  EXPECT_EQ(out.count(), 4u);
  EXPECT_EQ(Fields::end(out), Fields::buffer(out) + 32768);
}

TEST(qxosstreamTest, SetRestartsWithTheGivenText) {
  qxosstream out;
  out << "gone";
  EXPECT_TRUE(out.set("fresh"));
  out << "!";
  EXPECT_EQ(out.str(), "fresh!");
  const unsigned char bytes[] = {'b', 0};
  EXPECT_TRUE(out.set(bytes, 2));
  EXPECT_EQ(out.str(), std::string("b\0", 2));
  EXPECT_TRUE(out.set(static_cast<const char*>(nullptr)));
  EXPECT_EQ(out.str(), "");
}

TEST(qxosstreamTest, OpenByNameFailsButTheStreamStaysWritable) {
  qxosstream out;
  out << "kept";
  out.flush();
  EXPECT_FALSE(out.open("anything"));
  EXPECT_FALSE(out.eof());
  EXPECT_EQ(out.tell(), 0u);
  out << " more";
  EXPECT_EQ(out.str(), "kept more");
}

TEST(qxosstreamTest, CloseHandsEverythingToTheText) {
  qxosstream out;
  out << "abc";
  EXPECT_TRUE(out.close());
  EXPECT_EQ(out.str(), "abc");
}

TEST(qxosstreamTest, OpenedOnCallerMemoryStrGivesThatMemory) {
  unsigned char memory[8];
  qxosstream out;
  ASSERT_TRUE(out.open(memory, sizeof memory));
  out << "abc";
  EXPECT_EQ(out.str(), "abc");
  EXPECT_EQ(out.write("12345678", 8), 0u);
  EXPECT_TRUE(out.eof());
  EXPECT_EQ(Fields::begin(out), Fields::buffer(out));
  EXPECT_EQ(Fields::end(out), Fields::buffer(out));
}

TEST(qxosstreamTest, CopyTakesOverTheSpanStartAndFailsItsNextFlush) {
  qxosstream source("text");
  source << "abc";
  qxosstream copy(source);
  // Deliberate: the span start still points into the source's block.
  EXPECT_EQ(Fields::begin(copy), Fields::begin(source));
  EXPECT_EQ(Fields::ptr(copy) - Fields::buffer(copy), 3);
  EXPECT_FALSE(copy.flush());
  EXPECT_TRUE(copy.eof());
  EXPECT_EQ(copy.write("x", 1), 0u);
  EXPECT_EQ(source.str(), "textabc");
}

TEST(qxosstreamTest, AssignmentTakesOverTheSpanStartAndText) {
  qxosstream source("text");
  qxosstream target;
  target = source;
  EXPECT_EQ(Fields::begin(target), Fields::begin(source));
  EXPECT_FALSE(target.flush());
  qxosstream self("same");
  qxosstream& alias = self;
  self = alias;
  EXPECT_EQ(self.str(), "same");
}

TEST(qxosstreamTest, BlockEdgeSizesComeBackWhole) {
  for (unsigned long size : kEdgeSizes) {
    std::string data = RandomBytes(size, 91 + static_cast<unsigned>(size));
    qxosstream out;
    unsigned long piece = 3;
    for (unsigned long at = 0; at < size; at += piece, piece *= 5) {
      out.write(data.data() + at, std::min(piece, size - at));
    }
    EXPECT_EQ(out.str(), data);
    EXPECT_EQ(out.tell(), size);
    qxisstream in(out.str());
    std::string back;
    in.read(back);
    EXPECT_EQ(back, data);
  }
}

}  // namespace
}  // namespace QXPlatform
