// The zstd streams against frames made and checked by libzstd directly:
// reading frames of every shape, damage, seeking, and the frames written.

#include <errno.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <zstd.h>

#include "support/qxtest_gzip.h"
#include "support/qxtest_streams.h"
#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxsstream.h>
#include <QXPlatform/streams/qxzstdstream.h>

namespace QXPlatform {
namespace {

using testing::RandomBytes;
using testing::RecordingOStream;
using testing::SampleText;
using testing::SpanStream;

const size_t kEdges[] = {0, 1, 32767, 32768, 32769, 65536};

const char* const kTruncated = "unexpected end of file";
const char* const kCrcError = "invalid compressed data--crc error";
const char* const kFormatError = "invalid compressed data--format violated";

// One frame of payload made by libzstd, with the given options. Streamed,
// so that libzstd keeps an explicit window log even for small payloads.
std::string Frame(const std::string& payload, int level = 3,
                  bool checksum = true, bool contentSize = true,
                  int windowLog = 0) {
  ZSTD_CCtx* c = ZSTD_createCCtx();
  ZSTD_CCtx_setParameter(c, ZSTD_c_compressionLevel, level);
  ZSTD_CCtx_setParameter(c, ZSTD_c_checksumFlag, checksum ? 1 : 0);
  if (windowLog != 0) {
    ZSTD_CCtx_setParameter(c, ZSTD_c_windowLog, windowLog);
  }
  if (contentSize) {
    ZSTD_CCtx_setPledgedSrcSize(c, payload.size());
  }
  std::string out;
  std::vector<char> piece(ZSTD_CStreamOutSize());
  ZSTD_inBuffer in = {payload.data(), payload.size(), 0};
  for (ZSTD_EndDirective mode : {ZSTD_e_continue, ZSTD_e_end}) {
    for (;;) {
      ZSTD_outBuffer o = {piece.data(), piece.size(), 0};
      size_t status = ZSTD_compressStream2(c, &o, &in, mode);
      EXPECT_FALSE(ZSTD_isError(status));
      out.append(piece.data(), o.pos);
      if (ZSTD_isError(status) ||
          (mode == ZSTD_e_continue ? in.pos == in.size : status == 0)) {
        break;
      }
    }
  }
  ZSTD_freeCCtx(c);
  return out;
}

// A skippable frame holding content, written as its bytes.
std::string Skippable(const std::string& content, unsigned char variant = 0) {
  std::string out = {static_cast<char>(0x50 | variant), 0x2A, 0x4D, 0x18};
  out += testing::LittleEndian32(static_cast<uint32_t>(content.size()));
  return out + content;
}

// Every frame of data decoded by libzstd; ok is false on any error or when
// the data end inside a frame.
std::string LibzstdDecode(const std::string& data, bool* ok) {
  ZSTD_DStream* d = ZSTD_createDStream();
  ZSTD_inBuffer in = {data.data(), data.size(), 0};
  std::string out;
  std::vector<char> piece(ZSTD_DStreamOutSize());
  size_t status = 0;
  *ok = true;
  while (in.pos < in.size || status != 0) {
    ZSTD_outBuffer o = {piece.data(), piece.size(), 0};
    size_t before = in.pos;
    status = ZSTD_decompressStream(d, &o, &in);
    if (ZSTD_isError(status)) {
      *ok = false;
      break;
    }
    out.append(piece.data(), o.pos);
    if (in.pos == before && o.pos == 0) {
      *ok = status == 0;
      break;
    }
  }
  ZSTD_freeDStream(d);
  return out;
}

std::string ReadAll(qxistream& in) {
  std::string all;
  in.read(all);
  return all;
}

std::string Unpack(const std::string& data) {
  qxisstream source(data.data(), static_cast<unsigned long>(data.size()),
                    false);
  qxizstdstream z(&source, false);
  return ReadAll(z);
}

// ---------------------------------------------------------------------------
// Input

TEST(qxizstdstreamTest, ReadsOneFrameAtTheBlockEdges) {
  for (size_t n : kEdges) {
    std::string payload = SampleText(n, 1);
    qxisstream source(Frame(payload));
    qxizstdstream z(&source, false);
    EXPECT_EQ(ReadAll(z), payload) << n;
    EXPECT_TRUE(z.eof());
    EXPECT_EQ(z.error(), 0) << n;
    EXPECT_STREQ(z.errortext(), "");
  }
}

TEST(qxizstdstreamTest, ReadsFramesWithAndWithoutChecksumAndContentSize) {
  std::string payload = SampleText(100000, 2);
  for (int shape = 0; shape < 4; ++shape) {
    std::string frame = Frame(payload, 5, (shape & 1) != 0, (shape & 2) != 0);
    EXPECT_EQ(Unpack(frame), payload) << shape;
  }
}

TEST(qxizstdstreamTest, ConcatenatedFramesReadAsOneStream) {
  std::string a = SampleText(40000, 3);
  std::string b = RandomBytes(70000, 4);
  std::string data = Frame(a) + Frame("") + Frame(b, 1, false, false);
  qxisstream source(data);
  qxizstdstream z(&source, false);
  EXPECT_EQ(ReadAll(z), a + b);
  EXPECT_EQ(z.error(), 0);
}

TEST(qxizstdstreamTest, SkippableFramesAreSkippedWherever) {
  std::string a = SampleText(5000, 5);
  std::string data = Skippable("header note", 3) + Frame(a) +
                     Skippable(std::string(70000, 'q'), 15) + Frame(a) +
                     Skippable("");
  bool ok;
  ASSERT_EQ(LibzstdDecode(data, &ok), a + a);
  ASSERT_TRUE(ok);
  EXPECT_EQ(Unpack(data), a + a);
}

TEST(qxizstdstreamTest, DataThatIsNotZstdComeOutUnchanged) {
  for (const std::string& plain :
       {std::string("plain text\n"), std::string("\x28\xB5\x2F\xFC rest"),
        RandomBytes(100000, 6), std::string("ab")}) {
    qxisstream source(plain);
    qxizstdstream z(&source, false);
    EXPECT_EQ(ReadAll(z), plain);
    EXPECT_EQ(z.error(), 0);
  }
}

TEST(qxizstdstreamTest, BytesAfterTheLastFrameComeOutUnchanged) {
  std::string a = SampleText(50000, 7);
  std::string tail = "trailing junk that is no frame";
  qxisstream source(Frame(a) + tail);
  qxizstdstream z(&source, false);
  EXPECT_EQ(ReadAll(z), a + tail);
  EXPECT_EQ(z.error(), 0);
}

TEST(qxizstdstreamTest, EmptyInnerGivesEmptyStream) {
  qxisstream source("");
  qxizstdstream z(&source, false);
  EXPECT_EQ(ReadAll(z), "");
  EXPECT_TRUE(z.eof());
  EXPECT_EQ(z.error(), 0);
}

TEST(qxizstdstreamTest, CutAtEveryOffsetReportsUnexpectedEnd) {
  std::string payload = SampleText(3000, 8);
  std::string frame = Frame(payload) + Frame("second");
  std::string full = payload + "second";
  for (size_t cut = 1; cut < frame.size(); ++cut) {
    if (cut == frame.size() - Frame("second").size()) {
      continue;  // Exactly between the two frames: nothing is missing.
    }
    qxisstream source(frame.substr(0, cut));
    qxizstdstream z(&source, false);
    std::string got = ReadAll(z);
    EXPECT_EQ(z.error(), EBADMSG) << cut;
    EXPECT_STREQ(z.errortext(), kTruncated) << cut;
    EXPECT_EQ(got, full.substr(0, got.size())) << cut;
    EXPECT_TRUE(z.eof());
  }
}

TEST(qxizstdstreamTest, WrongChecksumReportsCrcError) {
  std::string payload = SampleText(20000, 9);
  std::string frame = Frame(payload);
  frame[frame.size() - 1] ^= 0x01;
  qxisstream source(frame);
  qxizstdstream z(&source, false);
  std::string got = ReadAll(z);
  EXPECT_EQ(z.error(), EBADMSG);
  EXPECT_STREQ(z.errortext(), kCrcError);
  EXPECT_EQ(got, payload.substr(0, got.size()));
}

TEST(qxizstdstreamTest, DamagedFrameReportsFormatViolation) {
  std::string frame = Frame(SampleText(20000, 10));
  // The frame header descriptor's reserved bit must be clear.
  frame[4] = static_cast<char>(frame[4] | 0x08);
  qxisstream source(frame);
  qxizstdstream z(&source, false);
  EXPECT_EQ(ReadAll(z), "");
  EXPECT_EQ(z.error(), EBADMSG);
  EXPECT_STREQ(z.errortext(), kFormatError);
}

TEST(qxizstdstreamTest, AStatedSizeTheFrameDoesNotGiveIsAFormatViolation) {
  // A frame stating 121 bytes whose only block is an empty last one: the
  // decoder lets it pass when it meets it a byte at a time; the stream does
  // not, however the data arrive.
  const std::string frame("\x28\xB5\x2F\xFD\x20\x79\x01\x00\x00", 9);
  for (const std::vector<size_t>& spans :
       std::vector<std::vector<size_t>>{{1}, {2, 5}, {9}}) {
    SpanStream inner(frame, spans);
    qxizstdstream z(&inner, false);
    EXPECT_EQ(ReadAll(z), "") << spans[0];
    EXPECT_EQ(z.error(), EBADMSG) << spans[0];
    EXPECT_STREQ(z.errortext(), kFormatError) << spans[0];
  }
  qxisstream source(frame);
  qxizstdstream z(&source, false);
  EXPECT_EQ(ReadAll(z), "");
  EXPECT_STREQ(z.errortext(), kFormatError);
}

TEST(qxizstdstreamTest, HugeWindowIsRefusedWithNoMemory) {
  // Without a content size the frame announces its 256 MiB window.
  std::string frame = Frame("small", 3, true, false, 28);
  qxisstream source(frame);
  qxizstdstream z(&source, false);
  EXPECT_EQ(ReadAll(z), "");
  EXPECT_EQ(z.error(), ENOMEM);
  EXPECT_STREQ(z.errortext(), "Cannot allocate memory");
}

TEST(qxizstdstreamTest, SameBytesHoweverTheInnerStreamIsCut) {
  std::string payload = SampleText(200000, 11);
  std::string data = Frame(payload, 3, true, false) + Skippable("x") +
                     Frame(payload.substr(0, 999));
  std::string expected = payload + payload.substr(0, 999);
  for (const std::vector<size_t>& spans :
       std::vector<std::vector<size_t>>{{1}, {3, 1, 7}, {32768}, {5000, 2}}) {
    SpanStream inner(data, spans);
    qxizstdstream z(&inner, false);
    EXPECT_EQ(ReadAll(z), expected) << spans[0];
    EXPECT_EQ(z.error(), 0);
  }
}

TEST(qxizstdstreamTest, ReadStraddlingBlocks) {
  std::string payload = RandomBytes(100000, 12);
  qxisstream source(Frame(payload));
  qxizstdstream z(&source, false);
  std::string first;
  ASSERT_EQ(z.read(first, 32760), 32760u);
  std::string second;
  ASSERT_EQ(z.read(second, 20), 20u);
  EXPECT_EQ(first + second, payload.substr(0, 32780));
  EXPECT_EQ(z.tell(), 32780u);
}

TEST(qxizstdstreamTest, SeeksForwardAndBack) {
  std::string payload = SampleText(150000, 13);
  qxisstream source(Frame(payload.substr(0, 70000)) +
                    Frame(payload.substr(70000)));
  qxizstdstream z(&source, false);
  for (size_t pos : {100000ul, 5ul, 32768ul, 149999ul, 0ul, 70000ul}) {
    ASSERT_TRUE(z.seek(static_cast<long long>(pos))) << pos;
    EXPECT_EQ(z.tell(), pos);
    std::string got;
    z.read(got, 10);
    EXPECT_EQ(got, payload.substr(pos, 10)) << pos;
  }
  EXPECT_FALSE(z.seek(150000));
  EXPECT_FALSE(z.seek(-1));
}

TEST(qxizstdstreamTest, SizeCountsUnpackedBytesAndKeepsThePosition) {
  std::string payload = SampleText(100000, 14);
  for (size_t at : {0ul, 1ul, 40000ul, 99999ul, 100000ul}) {
    qxisstream source(Frame(payload));
    qxizstdstream z(&source, false);
    std::string head;
    z.read(head, at);
    EXPECT_EQ(z.size(), payload.size());
    EXPECT_EQ(z.tell(), at);
    EXPECT_EQ(head + ReadAll(z), payload) << at;
  }
}

TEST(qxizstdstreamTest, FramesStartWhereTheInnerStreamWasWhenSet) {
  std::string payload = SampleText(50000, 15);
  std::string data = "prefix" + Frame(payload);
  qxisstream source(data);
  std::string prefix;
  source.read(prefix, 6);
  qxizstdstream z(&source, false);
  EXPECT_EQ(ReadAll(z), payload);
  ASSERT_TRUE(z.seek(10));
  std::string got;
  z.read(got, 5);
  EXPECT_EQ(got, payload.substr(10, 5));
}

TEST(qxizstdstreamTest, OwnedInnerIsDeleted) {
  std::string payload = SampleText(1000, 16);
  qxizstdstream z(new qxisstream(Frame(payload)), true);
  EXPECT_EQ(ReadAll(z), payload);
  EXPECT_TRUE(z.close());
  EXPECT_EQ(z.stream(), nullptr);
}

TEST(qxizstdstreamTest, NoInnerStreamReadsNothing) {
  qxizstdstream z;
  EXPECT_EQ(ReadAll(z), "");
  EXPECT_TRUE(z.eof());
  EXPECT_FALSE(z.seek(0));
  EXPECT_EQ(z.size(), 0u);
}

// ---------------------------------------------------------------------------
// Output

std::string Pack(const std::string& payload, int level = 3,
                 unsigned workers = 0) {
  qxosstream sink;
  {
    qxozstdstream z(&sink, false, level, workers);
    EXPECT_EQ(z.write(payload.data(), payload.size()), payload.size());
    EXPECT_TRUE(z.close());
    EXPECT_EQ(z.error(), 0);
  }
  return sink.str();
}

TEST(qxozstdstreamTest, WritesOneFrameWithChecksumAtTheBlockEdges) {
  for (size_t n : kEdges) {
    std::string payload = SampleText(n, 20);
    std::string frame = Pack(payload);
    bool ok;
    EXPECT_EQ(LibzstdDecode(frame, &ok), payload) << n;
    EXPECT_TRUE(ok);
    // The magic, then the frame header descriptor with its checksum bit.
    ASSERT_GE(frame.size(), 9u);
    EXPECT_EQ(frame.substr(0, 4), "\x28\xB5\x2F\xFD");
    EXPECT_EQ(frame[4] & 0x04, 0x04);
    EXPECT_EQ(ZSTD_findFrameCompressedSize(frame.data(), frame.size()),
              frame.size());
  }
}

TEST(qxozstdstreamTest, NothingWrittenGivesAnEmptyFrame) {
  std::string frame = Pack("");
  ASSERT_GE(frame.size(), 4u);
  EXPECT_EQ(frame.substr(0, 4), "\x28\xB5\x2F\xFD");
  bool ok;
  EXPECT_EQ(LibzstdDecode(frame, &ok), "");
  EXPECT_TRUE(ok);
}

TEST(qxozstdstreamTest, LevelChangesTheOutput) {
  std::string payload = SampleText(400000, 21);
  std::string fast = Pack(payload, 1);
  std::string best = Pack(payload, 19);
  std::string negative = Pack(payload, -5);
  EXPECT_LT(best.size(), fast.size());
  EXPECT_GT(negative.size(), fast.size());
  for (const std::string* frame : {&fast, &best, &negative}) {
    bool ok;
    EXPECT_EQ(LibzstdDecode(*frame, &ok), payload);
    EXPECT_TRUE(ok);
  }
  // The default level is zstd's 3, and 0 asks for it too.
  EXPECT_EQ(Pack(payload, 0), Pack(payload));
  qxosstream sink;
  qxozstdstream z;
  ASSERT_TRUE(z.set(&sink, false));
  z.write(payload.data(), payload.size());
  z.close();
  EXPECT_EQ(sink.str(), Pack(payload, 3));
}

TEST(qxozstdstreamTest, WorkersProduceAFrameThatDecodes) {
  std::string payload = SampleText(3 << 20, 22);
  std::string frame = Pack(payload, 3, 2);
  bool ok;
  EXPECT_EQ(LibzstdDecode(frame, &ok), payload);
  EXPECT_TRUE(ok);
}

TEST(qxozstdstreamTest, LevelOutOfRangeIsRefused) {
  for (int level : {ZSTD_maxCLevel() + 1, ZSTD_minCLevel() - 1}) {
    RecordingOStream sink;
    qxozstdstream z(&sink, false, level);
    EXPECT_EQ(z.error(), EINVAL);
    EXPECT_STREQ(z.errortext(), "Invalid argument");
    EXPECT_TRUE(z.eof());
    EXPECT_EQ(z.write("x", 1), 0u);
    EXPECT_FALSE(z.flush());
    z.close();
    EXPECT_EQ(sink.text(), "");
  }
}

TEST(qxozstdstreamTest, MoreWorkersThanTheLibraryAllowsAreRefused) {
  ZSTD_bounds bounds = ZSTD_cParam_getBounds(ZSTD_c_nbWorkers);
  ASSERT_FALSE(ZSTD_isError(bounds.error));
  RecordingOStream sink;
  qxozstdstream z(&sink, false, 3,
                  static_cast<unsigned>(bounds.upperBound) + 1);
  EXPECT_EQ(z.error(), EINVAL);
  EXPECT_EQ(z.write("x", 1), 0u);
  z.close();
  EXPECT_EQ(sink.text(), "");
}

// Feeds what the sink holds so far to a streaming decoder and returns what
// comes out; the frame need not be finished.
std::string DecodeSoFar(const std::string& partial) {
  ZSTD_DStream* d = ZSTD_createDStream();
  ZSTD_inBuffer in = {partial.data(), partial.size(), 0};
  std::string out;
  std::vector<char> piece(ZSTD_DStreamOutSize());
  for (;;) {
    ZSTD_outBuffer o = {piece.data(), piece.size(), 0};
    size_t status = ZSTD_decompressStream(d, &o, &in);
    EXPECT_FALSE(ZSTD_isError(status));
    out.append(piece.data(), o.pos);
    if (ZSTD_isError(status) || (in.pos == in.size && o.pos < piece.size())) {
      break;
    }
  }
  ZSTD_freeDStream(d);
  return out;
}

TEST(qxozstdstreamTest, FlushLetsAReaderSeeEverythingWritten) {
  std::string payload = SampleText(130000, 23);
  RecordingOStream sink;
  qxozstdstream z(&sink, false);
  size_t written = 0;
  for (size_t piece : {5ul, 40000ul, 1ul, 32768ul, 32767ul, 20000ul}) {
    ASSERT_EQ(z.write(payload.data() + written, piece), piece);
    written += piece;
    ASSERT_TRUE(z.flush());
    EXPECT_EQ(DecodeSoFar(sink.text()), payload.substr(0, written)) << written;
  }
  z.close();
  bool ok;
  EXPECT_EQ(LibzstdDecode(sink.text(), &ok), payload.substr(0, written));
  EXPECT_TRUE(ok);
}

TEST(qxozstdstreamTest, ManipulatorsFlushLikeFlush) {
  RecordingOStream sink;
  qxozstdstream z(&sink, false);
  z << "first" << qxendl;
  EXPECT_EQ(DecodeSoFar(sink.text()), "first\n");
  z << "second" << qxflush;
  EXPECT_EQ(DecodeSoFar(sink.text()), "first\nsecond");
}

TEST(qxozstdstreamTest, BlocksFilledByWritesAreNotFlushedEarly) {
  std::string payload = SampleText(200000, 24);
  RecordingOStream sink;
  qxozstdstream z(&sink, false);
  ASSERT_EQ(z.write(payload.data(), payload.size()), payload.size());
  // Packing to make room ends no zstd block and flushes nothing.
  EXPECT_EQ(sink.flushes(), 0);
  EXPECT_LT(DecodeSoFar(sink.text()).size(), payload.size());
  ASSERT_TRUE(z.close());
  bool ok;
  EXPECT_EQ(LibzstdDecode(sink.text(), &ok), payload);
  EXPECT_TRUE(ok);
}

TEST(qxozstdstreamTest, DestructorFinishesTheFrame) {
  std::string payload = SampleText(50000, 25);
  qxosstream sink;
  {
    qxozstdstream z(&sink, false);
    z.write(payload.data(), payload.size());
  }
  bool ok;
  EXPECT_EQ(LibzstdDecode(sink.str(), &ok), payload);
  EXPECT_TRUE(ok);
}

TEST(qxozstdstreamTest, EachInnerStreamGetsAFrameOfItsOwn) {
  qxosstream first;
  qxosstream second;
  qxozstdstream z(&first, false);
  z.write("one", 3);
  ASSERT_TRUE(z.set(&second, false));
  z.write("two", 3);
  z.close();
  bool ok;
  EXPECT_EQ(LibzstdDecode(first.str(), &ok), "one");
  EXPECT_TRUE(ok);
  EXPECT_EQ(LibzstdDecode(second.str(), &ok), "two");
  EXPECT_TRUE(ok);
}

TEST(qxozstdstreamTest, FailedWriteOnTheInnerStreamIsReported) {
  std::string payload = RandomBytes(400000, 26);
  RecordingOStream sink(qxstream::kBlockSize, 1);
  qxozstdstream z(&sink, false);
  unsigned long total = 0;
  for (size_t at = 0; at < payload.size(); at += 1000) {
    total += z.write(payload.data() + at, 1000);
  }
  EXPECT_LT(total, payload.size());
  EXPECT_EQ(z.error(), EIO);
  EXPECT_STREQ(z.errortext(), "Input/output error");
  EXPECT_TRUE(z.eof());
  EXPECT_EQ(z.write("x", 1), 0u);
}

TEST(qxozstdstreamTest, CannotSeekAndSizeIsTell) {
  qxosstream sink;
  qxozstdstream z(&sink, false);
  z.write("hello", 5);
  EXPECT_FALSE(z.seek(0));
  EXPECT_EQ(z.size(), 5u);
  EXPECT_EQ(z.tell(), 5u);
}

TEST(qxozstdstreamTest, RoundTripThroughBothStreams) {
  for (size_t n : {0ul, 1ul, 32769ul, 1000000ul}) {
    std::string payload = RandomBytes(n / 2, 27) + SampleText(n - n / 2, 28);
    EXPECT_EQ(Unpack(Pack(payload, 7)), payload) << n;
  }
}

}  // namespace
}  // namespace QXPlatform
