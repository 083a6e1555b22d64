#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_streams.h"
#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxstdstream.h>

namespace QXPlatform {
namespace {

using testing::CaptureFd;
using testing::Fields;
using testing::RandomBytes;
using testing::ScratchDir;
using testing::WriteFile;

// Standard streams that say when they are destroyed and what they held.
struct WatchedIStream : std::istringstream {
  WatchedIStream(const std::string& text, int* counter)
      : std::istringstream(text), deaths(counter) {}
  ~WatchedIStream() override { ++*deaths; }
  int* deaths;
};

struct WatchedOStream : std::ostringstream {
  WatchedOStream(std::string* text, int* counter)
      : last(text), deaths(counter) {}
  ~WatchedOStream() override {
    *last = str();
    ++*deaths;
  }
  std::string* last;
  int* deaths;
};

// ---------------------------------------------------------------------------
// Input adapter

TEST(qxistdstreamTest, ReadsEverythingThenLetsGo) {
  int deaths = 0;
  qxistdstream in(new WatchedIStream("hello", &deaths), true);
  EXPECT_FALSE(in.eof());
  std::string s;
  EXPECT_EQ(in.read(s), 5u);
  EXPECT_EQ(s, "hello");
  EXPECT_EQ(deaths, 1);
  EXPECT_TRUE(in.eof());
  EXPECT_EQ(in.tell(), 0u);
}

TEST(qxistdstreamTest, ReadsLargeStreamsAcrossBlocks) {
  std::string data = RandomBytes(100000, 111);
  std::istringstream source(data);
  qxistdstream in(&source, false);
  char part[40000];
  EXPECT_EQ(in.read(part, sizeof part), sizeof part);
  EXPECT_EQ(in.tell(), 40000u);
  std::string rest;
  in.read(rest);
  EXPECT_EQ(std::string(part, sizeof part) + rest, data);
}

TEST(qxistdstreamTest, DefaultAdapterHasNothing) {
  qxistdstream in;
  EXPECT_TRUE(in.eof());
  char c;
  EXPECT_EQ(in.read(&c, 1), 0u);
  EXPECT_FALSE(in.seek(0));
  EXPECT_FALSE(in.open("name"));
  EXPECT_TRUE(in.close());
}

TEST(qxistdstreamTest, FailedStreamIsRefusedButEndOfFileIsNot) {
  std::istringstream failed("x");
  failed.setstate(std::ios::failbit);
  qxistdstream a(&failed, false);
  EXPECT_TRUE(a.eof());
  std::istringstream ended("x");
  ended.setstate(std::ios::eofbit);
  qxistdstream b(&ended, false);
  EXPECT_FALSE(b.eof());
  qxistdstream c(nullptr, false);
  EXPECT_TRUE(c.eof());
  qxistdstream d;
  EXPECT_FALSE(d.set(&failed, false));
  EXPECT_FALSE(d.set(nullptr, false));
  std::istringstream good("y");
  EXPECT_TRUE(d.set(&good, false));
  char ch = 0;
  d >> ch;
  EXPECT_EQ(ch, 'y');
}

TEST(qxistdstreamTest, SetWithTheAttachedStreamChangesNothing) {
  int deaths = 0;
  WatchedIStream* source = new WatchedIStream("abc", &deaths);
  qxistdstream in(source, true);
  EXPECT_TRUE(in.set(source, false));
  // Ownership stays as it was: letting go still deletes the stream.
  in.clear();
  EXPECT_EQ(deaths, 1);
  EXPECT_TRUE(in.eof());
  EXPECT_FALSE(in.set(nullptr, true));
}

TEST(qxistdstreamTest, SetLetsGoOfTheOldStream) {
  int deaths = 0;
  qxistdstream in(new WatchedIStream("abc", &deaths), true);
  char c;
  in >> c;
  std::istringstream next("xyz");
  EXPECT_TRUE(in.set(&next, false));
  EXPECT_EQ(deaths, 1);
  EXPECT_EQ(in.tell(), 0u);
  in >> c;
  EXPECT_EQ(c, 'x');
}

TEST(qxistdstreamTest, CloseLetsGoAndDestructionDeletesAnOwnedStream) {
  int deaths = 0;
  {
    qxistdstream in(new WatchedIStream("abc", &deaths), true);
    EXPECT_TRUE(in.close());
    EXPECT_EQ(deaths, 1);
  }
  { qxistdstream in(new WatchedIStream("abc", &deaths), true); }
  EXPECT_EQ(deaths, 2);
  WatchedIStream kept("abc", &deaths);
  { qxistdstream in(&kept, false); }
  EXPECT_EQ(deaths, 2);
}

TEST(qxistdstreamTest, SeekRefillsFromThePosition) {
  std::string data = RandomBytes(40000, 113);
  std::istringstream source(data);
  qxistdstream in(&source, false);
  char c;
  in >> c;
  EXPECT_TRUE(in.seek(35000));
  // Deliberate: the refill after the seek also counts the part of the old
  // span that had been read, one byte here.
  EXPECT_EQ(in.tell(), 35001u);
  in >> c;
  EXPECT_EQ(c, data[35000]);
}

TEST(qxistdstreamTest, SeekAfterTheEndFails) {
  std::istringstream source("0123456789");
  qxistdstream in(&source, false);
  std::string all;
  in.read(all);
  EXPECT_FALSE(in.seek(2));
}

// ---------------------------------------------------------------------------
// Output adapter

TEST(qxostdstreamTest, OwnedStreamReceivesBytesOnFlush) {
  std::string last;
  int deaths = 0;
  WatchedOStream* sink = new WatchedOStream(&last, &deaths);
  {
    qxostdstream out(sink, true);
    out << "hello " << 7;
    EXPECT_EQ(sink->str(), "");
    EXPECT_TRUE(out.flush());
    EXPECT_EQ(sink->str(), "hello 7");
    out << " lost";
  }
  // Deliberate: destruction does not flush the span.
  EXPECT_EQ(deaths, 1);
  EXPECT_EQ(last, "hello 7");
}

TEST(qxostdstreamTest, FlushReplacesTheOffsetWithTheBytesJustWritten) {
  std::ostringstream sink;
  qxostdstream out(&sink, false);
  out << "0123456789";
  out.flush();
  EXPECT_EQ(out.tell(), 10u);
  out << "abcde";
  out.flush();
  // Deliberate: the offset is replaced, not added to.
  EXPECT_EQ(out.tell(), 5u);
  EXPECT_EQ(sink.str(), "0123456789abcde");
}

TEST(qxostdstreamTest, LargeOutputCrossesBlocks) {
  std::string data = RandomBytes(100000, 112);
  std::ostringstream sink;
  qxostdstream out(&sink, false);
  EXPECT_EQ(out.write(data.data(), data.size()), data.size());
  out.flush();
  EXPECT_EQ(sink.str(), data);
}

TEST(qxostdstreamTest, SeekReturnsFalseEvenWhenTheStreamMoved) {
  ScratchDir dir;
  std::ofstream* file = new std::ofstream(dir.File("f"));
  qxostdstream out(file, true);
  out << "0123456789";
  EXPECT_FALSE(out.seek(2));
  EXPECT_EQ(out.tell(), 2u);
  out << "ab";
  EXPECT_TRUE(out.close());
  EXPECT_EQ(testing::ReadFile(dir.File("f")), "01ab456789");
}

TEST(qxostdstreamTest, FailedSeekLeavesTheOffset) {
  std::ostringstream sink;
  qxostdstream out(&sink, false);
  out << "abc";
  EXPECT_FALSE(out.seek(-5));
  EXPECT_EQ(out.tell(), 3u);
  EXPECT_TRUE(sink.fail());
  qxostdstream none;
  EXPECT_FALSE(none.seek(0));
}

TEST(qxostdstreamTest, DefaultAdapterHasRoomButNoSink) {
  qxostdstream out;
  EXPECT_FALSE(out.eof());
  EXPECT_TRUE(out.buffered());
  out << "x";
  EXPECT_FALSE(out.flush());
  std::string big(40000, 'b');
  EXPECT_EQ(out.write(big.data(), big.size()), 0u);
}

TEST(qxostdstreamTest, SetAndClearFlushTheStandardStreamButDropTheSpan) {
  std::ostringstream first;
  std::ostringstream second;
  qxostdstream out(&first, false);
  out << "dropped";
  EXPECT_TRUE(out.set(&second, false));
  EXPECT_EQ(first.str(), "");
  out << "kept";
  out.flush();
  out << "also dropped";
  out.clear();
  EXPECT_EQ(second.str(), "kept");
  EXPECT_TRUE(out.eof());
  EXPECT_FALSE(out.buffered());
}

TEST(qxostdstreamTest, SetRefusesNullAndFailedStreams) {
  std::ostringstream bad;
  bad.setstate(std::ios::badbit);
  qxostdstream out;
  EXPECT_FALSE(out.set(&bad, false));
  EXPECT_TRUE(out.eof());
  EXPECT_FALSE(out.buffered());
  EXPECT_EQ(out.write("x", 1), 0u);
  // The attached stream again: the ownership flag is ignored, so the stack
  // object is not deleted later.
  EXPECT_FALSE(out.set(&bad, true));
  EXPECT_FALSE(out.set(nullptr, false));
  std::ostringstream good;
  EXPECT_TRUE(out.set(&good, false));
  EXPECT_TRUE(out.set(&good, true));
  out << "z";
  out.flush();
  EXPECT_EQ(good.str(), "z");
}

TEST(qxostdstreamTest, ConstructorKeepsRoomWhateverTheStreamState) {
  std::ostringstream bad;
  bad.setstate(std::ios::failbit);
  qxostdstream out(&bad, false);
  EXPECT_FALSE(out.eof());
  EXPECT_TRUE(out.buffered());
}

TEST(qxostdstreamTest, DestructionDeletesAnOwnedStreamOnly) {
  std::string last;
  int deaths = 0;
  WatchedOStream kept(&last, &deaths);
  {
    qxostdstream out(&kept, false);
    out << "x";
    out.flush();
  }
  EXPECT_EQ(deaths, 0);
  EXPECT_EQ(kept.str(), "x");
}

// ---------------------------------------------------------------------------
// Global streams

TEST(qxnulTest, TakesAMebibyteAndCountsIt) {
  unsigned long long before = qxnul.tell();
  std::string chunk(4096, 'n');
  for (int i = 0; i < 256; ++i) {
    ASSERT_EQ(qxnul.write(chunk.data(), chunk.size()), chunk.size());
  }
  EXPECT_EQ(qxnul.tell() - before, 1048576u);
  EXPECT_FALSE(qxnul.eof());
  EXPECT_TRUE(qxnul.flush());
}

TEST(qxerrTest, WritesToStandardError) {
  CaptureFd capture(2);
  qxerr << "error " << 42 << qxendl;
  EXPECT_EQ(capture.Finish(), "error 42\n");
}

TEST(qxoutTest, WritesToStandardOutputOnFlush) {
  CaptureFd capture(1);
  qxout << "out " << 1.25 << '\n';
  qxout.flush();
  EXPECT_EQ(capture.Finish(), "out 1.250000\n");
}

TEST(qxinTest, IsBuiltOnStandardInput) {
  EXPECT_EQ(qxin.descriptor(), 0);
  EXPECT_EQ(qxout.descriptor(), 1);
  EXPECT_EQ(qxerr.descriptor(), 2);
  EXPECT_TRUE(Fields::sizeknown(qxnul));
}

}  // namespace
}  // namespace QXPlatform
