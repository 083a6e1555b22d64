#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <climits>
#include <memory>
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_streams.h"
#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

using testing::Fields;
using testing::RandomBytes;
using testing::RecordingOStream;
using testing::SpanStream;

const unsigned long kBlock = 32768;
const unsigned long kEdgeSizes[] = {0, 1, 32767, 32768, 32769, 65536};

// A small pool of its own, so that its order can be checked from scratch.
typedef QXBoundedCache<64, 4> SmallCache;

TEST(QXBoundedCacheTest, HandsOutBlocksFromTheSecondHighestDownward) {
  std::unique_ptr<SmallCache> cache(new SmallCache);
  char* first = cache->Take();
  char* second = cache->Take();
  char* third = cache->Take();
  EXPECT_EQ(second, first - 64);
  EXPECT_EQ(third, second - 64);
  // The highest block lies right above the first one handed out and is
  // still inside the arena, yet it is never lent.
  EXPECT_TRUE(cache->Owns(first + 64));
  EXPECT_FALSE(cache->Owns(first + 128));
  EXPECT_FALSE(cache->Owns(third - 1));
  char* fourth = cache->Take();
  EXPECT_FALSE(cache->Owns(fourth));
  cache->Give(fourth);
  cache->Give(third);
  cache->Give(second);
  cache->Give(first);
}

TEST(QXBoundedCacheTest, ReleasedBlockIsTheNextOneHandedOut) {
  std::unique_ptr<SmallCache> cache(new SmallCache);
  char* a = cache->Take();
  char* b = cache->Take();
  cache->Give(a);
  EXPECT_EQ(cache->Take(), a);
  cache->Give(b);
  cache->Give(a);
  EXPECT_EQ(cache->Take(), a);
  EXPECT_EQ(cache->Take(), b);
  cache->Give(b);
  cache->Give(a);
}

TEST(QXBoundedCacheTest, HeapBlockIsFreedNotPooled) {
  std::unique_ptr<SmallCache> cache(new SmallCache);
  char* pooled[3];
  for (char*& block : pooled) {
    block = cache->Take();
    ASSERT_TRUE(cache->Owns(block));
  }
  char* heap = cache->Take();
  ASSERT_FALSE(cache->Owns(heap));
  memset(heap, 0x5A, 64);
  cache->Give(heap);
  // The free list is still empty: the heap block did not join it.
  char* next = cache->Take();
  EXPECT_FALSE(cache->Owns(next));
  cache->Give(next);
  cache->Give(nullptr);
  for (char* block : pooled) {
    cache->Give(block);
  }
}

// Callers may take the block size by reference, as std::min does; that needs
// a definition of the constant, not just its value.
TEST(qxstreamTest, BlockSizeCanBeBoundByReference) {
  const unsigned long& size = qxstream::kBlockSize;
  EXPECT_EQ(size, 32768u);
  EXPECT_EQ(std::min(qxstream::kBlockSize, 40000ul), 32768u);
}

TEST(qxstreamTest, EveryStreamUsesThePoolsBufferCache) {
  qxisstream in;
  EXPECT_EQ(&qxstream::GetBufferCache(), &qxstream::GetBufferCache());
  EXPECT_NE(Fields::buffer(in), nullptr);
}

TEST(qxstreamTest, NewInputStreamIsEmptyAndAtItsEnd) {
  qxistream in;
  EXPECT_EQ(Fields::ptr(in), Fields::buffer(in));
  EXPECT_EQ(Fields::begin(in), Fields::buffer(in));
  EXPECT_EQ(Fields::end(in), Fields::buffer(in));
  EXPECT_EQ(in.count(), 0u);
  EXPECT_EQ(Fields::offset(in), 0u);
  EXPECT_EQ(Fields::size(in), 0u);
  EXPECT_FALSE(Fields::sizeknown(in));
  EXPECT_TRUE(in.eof());
  EXPECT_FALSE(in.buffered());
  EXPECT_EQ(in.tell(), 0u);
  EXPECT_EQ(in.size(), 0u);
  EXPECT_FALSE(in.seek(0));
}

TEST(qxstreamTest, NewOutputStreamHasOneBlockOfRoom) {
  qxostream out;
  EXPECT_EQ(Fields::ptr(out), Fields::buffer(out));
  EXPECT_EQ(Fields::begin(out), Fields::buffer(out));
  EXPECT_EQ(Fields::end(out), Fields::buffer(out) + kBlock);
  EXPECT_TRUE(Fields::sizeknown(out));
  EXPECT_EQ(out.size(), 0u);
  EXPECT_FALSE(out.eof());
  EXPECT_TRUE(out.buffered());
}

TEST(qxstreamTest, CopyTakesAFreshBlockAndKeepsThePosition) {
  qxostream out;
  out.write("hello", 5);
  qxostream copy(out);
  EXPECT_NE(Fields::buffer(copy), Fields::buffer(out));
  EXPECT_EQ(Fields::begin(copy), Fields::buffer(copy));
  EXPECT_EQ(Fields::ptr(copy) - Fields::buffer(copy), 5);
  EXPECT_EQ(Fields::end(copy) - Fields::buffer(copy),
            static_cast<long>(kBlock));
  EXPECT_EQ(std::string(Fields::buffer(copy), 5), "hello");
  EXPECT_EQ(copy.count(), 5u);
  EXPECT_EQ(copy.tell(), 5u);
}

TEST(qxstreamTest, AssignmentCopiesTheBlockButKeepsItsSpanStart) {
  unsigned char memory[16];
  qxostream target;
  ASSERT_TRUE(target.open(memory, sizeof memory));
  qxostream source;
  source.write("abc", 3);
  target = source;
  // Deliberate quirk: the span start stays on the caller memory.
  EXPECT_EQ(Fields::begin(target), reinterpret_cast<char*>(memory));
  EXPECT_EQ(Fields::ptr(target) - Fields::buffer(target), 3);
  EXPECT_EQ(std::string(Fields::buffer(target), 3), "abc");
  EXPECT_EQ(target.count(), 3u);
  qxostream& alias = target;
  target = alias;
  EXPECT_EQ(Fields::ptr(target) - Fields::buffer(target), 3);
}

// ---------------------------------------------------------------------------
// Reading

TEST(qxistreamTest, ReadOfZeroBytesReturnsZeroWithoutFilling) {
  SpanStream in("abc", {3});
  char buffer[4] = {'x', 'x', 'x', 'x'};
  EXPECT_EQ(in.read(buffer, 0), 0u);
  EXPECT_EQ(in.fills(), 0);
  EXPECT_EQ(in.count(), 0u);
  EXPECT_EQ(buffer[0], 'x');
}

TEST(qxistreamTest, ReadCrossesSpansAndCountsTheBytes) {
  std::string data = RandomBytes(100000, 1);
  SpanStream in(data, {1, 2, 3, 5, 8, 13, 4096, 32768, 7});
  std::string got;
  unsigned long piece = 1;
  for (;;) {
    std::vector<char> chunk(piece);
    unsigned long n = in.read(chunk.data(), piece);
    EXPECT_EQ(in.count(), n);
    got.append(chunk.data(), n);
    if (n < piece) {
      break;
    }
    piece = piece * 3 % 9001 + 1;
  }
  EXPECT_EQ(got, data);
  EXPECT_TRUE(in.eof());
  EXPECT_EQ(in.read(std::vector<char>(4).data(), 4), 0u);
}

TEST(qxistreamTest, ReadOfTheThreeByteKindsGivesTheSameBytes) {
  qxisstream in("abcdefghi");
  char c[3];
  unsigned char u[3];
  signed char s[3];
  EXPECT_EQ(in.read(c, 3), 3u);
  EXPECT_EQ(in.read(u, 3), 3u);
  EXPECT_EQ(in.read(s, 3), 3u);
  EXPECT_EQ(std::string(c, 3), "abc");
  EXPECT_EQ(std::string(reinterpret_cast<char*>(u), 3), "def");
  EXPECT_EQ(std::string(reinterpret_cast<char*>(s), 3), "ghi");
}

TEST(qxistreamTest, ShortReadAtTheEndReturnsWhatArrived) {
  SpanStream in("abcdefg", {3});
  char buffer[16];
  EXPECT_EQ(in.read(buffer, 16), 7u);
  EXPECT_EQ(in.count(), 7u);
  EXPECT_EQ(std::string(buffer, 7), "abcdefg");
  EXPECT_TRUE(in.eof());
}

TEST(qxistreamTest, ReadIntoAStringReplacesItWithUpToNBytes) {
  SpanStream in("abcdefghij", {4});
  std::string s = "old";
  EXPECT_EQ(in.read(s, 0), 0u);
  EXPECT_EQ(s, "");
  EXPECT_EQ(in.fills(), 0);
  EXPECT_EQ(in.read(s, 6), 6u);
  EXPECT_EQ(s, "abcdef");
  EXPECT_EQ(in.read(s, 100), 4u);
  EXPECT_EQ(s, "ghij");
  EXPECT_EQ(in.count(), 4u);
}

TEST(qxistreamTest, ReadToTheEndCollectsEverything) {
  std::string data = RandomBytes(70000, 2);
  SpanStream in(data, {1000, 32768, 1});
  char first[10];
  in.read(first, 10);
  std::string rest = "junk";
  EXPECT_EQ(in.read(rest), data.size() - 10);
  EXPECT_EQ(rest, data.substr(10));
  EXPECT_EQ(in.count(), data.size() - 10);
  EXPECT_EQ(in.read(rest), 0u);
  EXPECT_EQ(rest, "");
}

TEST(qxistreamTest, SkipOfZeroIsTrueAndOfANegativeCountFalse) {
  SpanStream in("abc", {3});
  EXPECT_TRUE(in.skip(0));
  EXPECT_FALSE(in.skip(-1));
  EXPECT_EQ(in.fills(), 0);
  EXPECT_EQ(in.tell(), 0u);
}

TEST(qxistreamTest, SkipCrossesSpans) {
  std::string data = RandomBytes(100000, 3);
  SpanStream in(data, {1, 32768, 77});
  ASSERT_TRUE(in.skip(40000));
  char c;
  in.read(&c, 1);
  EXPECT_EQ(c, data[40000]);
  ASSERT_TRUE(in.skip(100000 - 40001));
  EXPECT_EQ(in.tell(), 100000u);
  EXPECT_FALSE(in.skip(1));
}

TEST(qxistreamTest, SkipPastTheEndFailsWithTheStreamAtItsEnd) {
  SpanStream in("abcdef", {4});
  EXPECT_FALSE(in.skip(10));
  EXPECT_FALSE(in.buffered());
  EXPECT_TRUE(in.eof());
  char c;
  EXPECT_EQ(in.read(&c, 1), 0u);
}

TEST(qxistreamTest, PlainInputStreamCannotBeOpenedByName) {
  qxistream in;
  EXPECT_FALSE(in.open("anything"));
  EXPECT_FALSE(in.open(std::string("anything")));
  EXPECT_TRUE(in.eof());
}

TEST(qxistreamTest, PlainInputStreamOpenedOnMemoryReadsItThenEnds) {
  unsigned char data[] = {'h', 'e', 'l', 'l', 'o'};
  qxistream in;
  ASSERT_TRUE(in.open(data, sizeof data));
  EXPECT_FALSE(in.eof());
  EXPECT_EQ(Fields::begin(in), reinterpret_cast<char*>(data));
  std::string s;
  EXPECT_EQ(in.read(s), 5u);
  EXPECT_EQ(s, "hello");
  EXPECT_TRUE(in.eof());
  EXPECT_FALSE(in.open(nullptr, 3));
  EXPECT_TRUE(in.eof());
  EXPECT_FALSE(in.buffered());
}

TEST(qxistreamTest, CloseResetsTheStream) {
  unsigned char data[] = {'a', 'b'};
  qxistream in;
  ASSERT_TRUE(in.open(data, 2));
  EXPECT_TRUE(in.close());
  EXPECT_TRUE(in.eof());
  EXPECT_EQ(Fields::ptr(in), Fields::buffer(in));
  EXPECT_EQ(Fields::end(in), Fields::buffer(in));
  EXPECT_EQ(Fields::offset(in), 0u);
  EXPECT_FALSE(Fields::sizeknown(in));
}

TEST(qxistreamTest, RefusedCloseStopsOpenAndCloseChangingNothing) {
  testing::RefusingIStream in;
  unsigned char data[] = {'a', 'b'};
  EXPECT_FALSE(in.open(data, 2));
  EXPECT_FALSE(in.open("name"));
  EXPECT_FALSE(in.close());
  EXPECT_EQ(in.closes, 3);
  EXPECT_EQ(Fields::begin(in), Fields::buffer(in));
  EXPECT_FALSE(in.buffered());
}

// ---------------------------------------------------------------------------
// Writing

TEST(qxostreamTest, PlainOutputStreamDropsTheBytesButAdvances) {
  qxostream out;
  std::string data = RandomBytes(100000, 4);
  EXPECT_EQ(out.write(data.data(), data.size()), data.size());
  EXPECT_EQ(out.tell(), 100000u);
  EXPECT_TRUE(out.flush());
  EXPECT_EQ(out.tell(), 100000u);
  EXPECT_FALSE(out.eof());
}

TEST(qxostreamTest, TenBytesOfMemoryTakeTenBytesAndNoMore) {
  unsigned char memory[10];
  qxostream out;
  ASSERT_TRUE(out.open(memory, sizeof memory));
  EXPECT_EQ(out.size(), 10u);
  EXPECT_EQ(out.write("0123456789", 10), 10u);
  EXPECT_FALSE(out.eof());
  EXPECT_EQ(out.write("x", 1), 0u);
  EXPECT_TRUE(out.eof());
  EXPECT_EQ(out.tell(), 10u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(memory), 10), "0123456789");
  EXPECT_EQ(out.write("y", 1), 0u);
  EXPECT_EQ(out.tell(), 10u);
}

TEST(qxostreamTest, FlushOfCallerMemoryWithRoomChangesNothing) {
  unsigned char memory[10];
  qxostream out;
  ASSERT_TRUE(out.open(memory, sizeof memory));
  out.write("abc", 3);
  EXPECT_TRUE(out.flush());
  EXPECT_EQ(out.tell(), 3u);
  EXPECT_EQ(Fields::span(out), 7);
}

TEST(qxostreamTest, OpenOnNullMemoryFailsButRecordsTheSize) {
  qxostream out;
  EXPECT_FALSE(out.open(nullptr, 12));
  EXPECT_TRUE(out.eof());
  EXPECT_EQ(out.size(), 12u);
  EXPECT_EQ(out.write("a", 1), 0u);
}

TEST(qxostreamTest, PlainOutputStreamCannotBeOpenedByName) {
  qxostream out;
  EXPECT_FALSE(out.open("name"));
  EXPECT_FALSE(out.open(std::string("name")));
  EXPECT_TRUE(out.eof());
  EXPECT_FALSE(out.buffered());
  EXPECT_EQ(out.write("a", 1), 0u);
}

TEST(qxostreamTest, WriteOfANullPointerReturnsZeroAndChangesNothing) {
  RecordingOStream out;
  out.write("ab", 2);
  EXPECT_EQ(out.write(static_cast<const char*>(nullptr), 5), 0u);
  EXPECT_EQ(out.write(static_cast<const unsigned char*>(nullptr), 5), 0u);
  EXPECT_EQ(out.write(static_cast<const signed char*>(nullptr), 5), 0u);
  EXPECT_EQ(out.tell(), 2u);
  EXPECT_EQ(out.count(), 2u);
  EXPECT_EQ(out.flushes(), 0);
}

TEST(qxostreamTest, WriteHandsFullSpansToTheSink) {
  std::string data = RandomBytes(100000, 5);
  RecordingOStream out(1000);
  EXPECT_EQ(out.write(data.data(), 2500), 2500u);
  EXPECT_EQ(out.flushes(), 2);
  EXPECT_EQ(
      out.write(reinterpret_cast<const unsigned char*>(data.data()) + 2500,
                500),
      500u);
  EXPECT_EQ(out.flushes(), 2);
  // A full span is flushed by the next write before anything is copied.
  EXPECT_EQ(out.write(reinterpret_cast<const signed char*>(data.data()) + 3000,
                      97000),
            97000u);
  EXPECT_EQ(out.count(), 97000u);
  EXPECT_TRUE(out.flush());
  EXPECT_EQ(out.text(), data);
  EXPECT_EQ(out.tell(), 100000u);
}

TEST(qxostreamTest, WriteOfZeroBytesFlushesAFullSpanFirst) {
  RecordingOStream out(4);
  out.write("abcd", 4);
  EXPECT_EQ(out.flushes(), 0);
  EXPECT_EQ(out.write("", 0), 0u);
  EXPECT_EQ(out.flushes(), 1);
  EXPECT_EQ(out.text(), "abcd");
}

TEST(qxostreamTest, FailedFlushInTheMiddleOfAWriteReturnsZero) {
  RecordingOStream out(10, 2);
  EXPECT_EQ(out.write("0123456789abcdefghijklmnop", 26), 0u);
  EXPECT_EQ(out.text(), "0123456789");
  EXPECT_TRUE(out.eof());
  // Bytes already taken were counted before the failure.
  EXPECT_EQ(out.count(), 20u);
}

TEST(qxostreamTest, FailedFlushOfAFullSpanWritesNothing) {
  RecordingOStream out(4, 1);
  out.write("abcd", 4);
  EXPECT_EQ(out.write("e", 1), 0u);
  EXPECT_EQ(out.count(), 4u);
  EXPECT_TRUE(out.eof());
}

TEST(qxostreamTest, CloseFlushesThenResets) {
  RecordingOStream out;
  out.write("abc", 3);
  EXPECT_TRUE(out.close());
  EXPECT_EQ(out.text(), "abc");
  EXPECT_TRUE(out.eof());
  EXPECT_EQ(Fields::ptr(out), Fields::buffer(out));
  EXPECT_EQ(Fields::end(out), Fields::buffer(out));
  EXPECT_EQ(out.tell(), 0u);
}

TEST(qxostreamDeathTest, FlushThatMakesNoRoomStopsTheProcess) {
  EXPECT_DEATH(
      {
        testing::NoRoomOStream out;
        out.write("0123456789", 10);
      },
      "^[^:]*streams_tests: [^:]*qxstream\\.cpp:[0-9]+: write: Assertion "
      "`len != 0 && _end != _ptr' failed\\.\n");
}

// ---------------------------------------------------------------------------
// Block edges

TEST(qxstreamTest, BytesCrossBlockEdgesIntactInPiecesOfEverySize) {
  for (unsigned long size : kEdgeSizes) {
    std::string data = RandomBytes(size, static_cast<unsigned>(size));
    RecordingOStream out;
    unsigned long piece = 1;
    for (unsigned long at = 0; at < size; at += piece, piece = piece * 7 + 3) {
      unsigned long n = std::min(piece, size - at);
      ASSERT_EQ(out.write(data.data() + at, n), n);
    }
    ASSERT_TRUE(out.flush());
    ASSERT_EQ(out.text(), data) << size;
    // A span is handed on only when it is full and more is to come, plus
    // the final flush.
    unsigned long blocks = (size + kBlock - 1) / kBlock;
    ASSERT_EQ(out.flushes(), static_cast<int>(blocks == 0 ? 1 : blocks));
    for (unsigned long readPiece : {1ul, 4095ul, 32767ul, 32768ul, 32769ul}) {
      SpanStream in(data, {kBlock});
      std::string back;
      std::vector<char> chunk(readPiece);
      unsigned long n;
      while ((n = in.read(chunk.data(), readPiece)) != 0) {
        back.append(chunk.data(), n);
      }
      EXPECT_EQ(back, data) << size << " " << readPiece;
      SpanStream skipper(data, {kBlock});
      EXPECT_EQ(skipper.skip(static_cast<long long>(size)), true);
      EXPECT_EQ(skipper.tell(), size);
      EXPECT_FALSE(skipper.skip(1));
    }
  }
}

// ---------------------------------------------------------------------------
// I/O error

TEST(QXIOErrorTest, DefaultMessageIsTheTextOfTheLastFailure) {
  ASSERT_EQ(::open("/nonexistent/qx/file", O_RDONLY), -1);
  QXIOError error;
  EXPECT_STREQ(error.what(), "No such file or directory");
  errno = EACCES;
  EXPECT_STREQ(QXIOError().what(), "Permission denied");
}

TEST(QXIOErrorTest, UnknownErrorNumberGivesTheFixedMessage) {
  errno = 123456;
  EXPECT_STREQ(QXIOError().what(),
               "QXStrError failed to retrieve proper error message");
}

TEST(QXIOErrorTest, MessageConstructorKeepsACopy) {
  std::string text = "disk on fire";
  QXIOError error(text.c_str());
  text[0] = 'X';
  EXPECT_STREQ(error.what(), "disk on fire");
  try {
    throw QXIOError("thrown");
  } catch (const QXIOError& caught) {
    EXPECT_STREQ(caught.what(), "thrown");
  }
}

TEST(QXIOErrorTest, StrErrorReportsSuccessAndCutTexts) {
  char buffer[256];
  errno = ENOENT;
  EXPECT_EQ(QXInternalStrError(buffer, sizeof buffer), 0);
  EXPECT_STREQ(buffer, "No such file or directory");
  errno = ENOENT;
  char small[4];
  EXPECT_EQ(QXInternalStrError(small, sizeof small), ERANGE);
  EXPECT_STREQ(small, "No ");
  errno = 123456;
  EXPECT_NE(QXInternalStrError(buffer, sizeof buffer), 0);
}

}  // namespace
}  // namespace QXPlatform

namespace {

// A source whose fill fails with the errno value it was given, so the
// recording rules of the failure status can be watched from outside.
class FailingSource : public QXPlatform::qxistream {
 public:
  explicit FailingSource(int code, const char* text = nullptr)
      : _code(code), _text(text) {}
  void Fail(int code, const char* text = nullptr) { SetError(code, text); }

 protected:
  bool _qxopen(const char*) override { return true; }
  bool _qxfill() override {
    SetError(_code, _text);
    _ptr = _end;
    _eof = true;
    return false;
  }

 private:
  int _code;
  const char* _text;
};

}  // namespace

TEST(qxstreamErrorTest, NewStreamReportsNoFailure) {
  QXPlatform::qxistream in;
  QXPlatform::qxostream out;
  EXPECT_EQ(in.error(), 0);
  EXPECT_STREQ(in.errortext(), "");
  EXPECT_EQ(out.error(), 0);
  EXPECT_STREQ(out.errortext(), "");
}

TEST(qxstreamErrorTest, EndOfDataIsNotAFailure) {
  unsigned char data[] = {'a', 'b'};
  QXPlatform::qxistream in;
  ASSERT_TRUE(in.open(data, sizeof data));
  char into[8];
  EXPECT_EQ(in.read(into, sizeof into), 2u);
  EXPECT_TRUE(in.eof());
  EXPECT_EQ(in.error(), 0);
  EXPECT_STREQ(in.errortext(), "");
}

TEST(qxstreamErrorTest, SystemFailureCarriesTheSystemText) {
  FailingSource in(EIO);
  ASSERT_TRUE(in.open("x"));
  char into[4];
  EXPECT_EQ(in.read(into, sizeof into), 0u);
  EXPECT_EQ(in.error(), EIO);
  EXPECT_STREQ(in.errortext(), "Input/output error");
}

TEST(qxstreamErrorTest, FirstFailureIsKeptAndSurvivesClose) {
  FailingSource in(EBADMSG, "unexpected end of file");
  ASSERT_TRUE(in.open("x"));
  char into[4];
  in.read(into, sizeof into);
  in.Fail(ENOSPC);
  EXPECT_EQ(in.error(), EBADMSG);
  EXPECT_STREQ(in.errortext(), "unexpected end of file");
  EXPECT_TRUE(in.close());
  EXPECT_EQ(in.error(), EBADMSG);
  EXPECT_STREQ(in.errortext(), "unexpected end of file");
}

TEST(qxstreamErrorTest, OpeningForgetsTheFailure) {
  FailingSource in(EIO);
  ASSERT_TRUE(in.open("x"));
  char into[4];
  in.read(into, sizeof into);
  ASSERT_EQ(in.error(), EIO);
  ASSERT_TRUE(in.open("y"));
  EXPECT_EQ(in.error(), 0);
  EXPECT_STREQ(in.errortext(), "");
}

TEST(qxstreamErrorTest, ZeroIsNotRecordedAndUnknownValuesHaveAText) {
  FailingSource in(0);
  in.Fail(0);
  EXPECT_EQ(in.error(), 0);
  in.Fail(99999);
  EXPECT_EQ(in.error(), 99999);
  EXPECT_STREQ(in.errortext(), "Unknown error");
}

TEST(qxstreamErrorTest, CopiesTakeTheFailureAlong) {
  FailingSource in(EIO);
  in.Fail(EPIPE);
  QXPlatform::qxistream copy(in);
  EXPECT_EQ(copy.error(), EPIPE);
  EXPECT_STREQ(copy.errortext(), "Broken pipe");
}
