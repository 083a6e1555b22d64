// Gzip streams over damaged data and over inner streams that deliver one
// byte at a time, fail part way or throw: the documented results and
// messages, the bytes delivered before a fault kept, nothing leaked.

#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <zlib.h>

#include "fault/qxfault_streams.h"
#include "support/qxtest_gzip.h"
#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxcompress.h>
#include <QXPlatform/streams/qxfstream.h>
#include <QXPlatform/streams/qxgzstream.h>
#include <QXPlatform/streams/qxsstream.h>
#include <QXPlatform/streams/qxstdstream.h>

namespace QXPlatform {
namespace {

using testing::CaptureFd;
using testing::Fault;
using testing::FaultyIStream;
using testing::FaultyOStream;
using testing::MakeMember;
using testing::SampleText;

// A member whose deflate data give the bytes of text in a block that is not
// the last, then a block of the reserved type: zlib hands out text and
// reports the bad block in the same call.
std::string MemberEndingInABadBlock(const std::string& text) {
  z_stream z;
  std::memset(&z, 0, sizeof z);
  EXPECT_EQ(deflateInit2(&z, 6, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY), Z_OK);
  std::string body(deflateBound(&z, text.size()) + 64, '\0');
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  z.avail_in = static_cast<uInt>(text.size());
  z.next_out = reinterpret_cast<Bytef*>(&body[0]);
  z.avail_out = static_cast<uInt>(body.size());
  EXPECT_EQ(deflate(&z, Z_SYNC_FLUSH), Z_OK);
  body.resize(z.total_out);
  deflateEnd(&z);
  // Last-block bit set, block type 3 (reserved).
  body += '\x07';
  return std::string("\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\x03", 10) + body +
         std::string(8, '\0');
}

std::string ReadAll(qxistream& in) {
  std::string all;
  in.read(all);
  return all;
}

// Each line of text must be exactly line.
void ExpectOnlyLines(const std::string& text, const std::string& line) {
  ASSERT_FALSE(text.empty());
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    ASSERT_NE(end, std::string::npos);
    EXPECT_EQ(text.substr(start, end - start), line);
    start = end + 1;
  }
}

TEST(qxigzstreamFaultTest, SizeOverDataEndingInABadBlockKeepsTheBytesAhead) {
  std::string payload = SampleText(5000, 3);
  std::string data = MakeMember(payload) +
                     MemberEndingInABadBlock("bytes before the bad block");
  CaptureFd err(2);
  std::string full;
  {
    qxisstream source(data.data(), data.size(), false);
    qxigzstream gz(&source, false);
    full = ReadAll(gz);
  }
  // The bytes of a step that ends in an error are not delivered.
  EXPECT_EQ(full, payload);
  for (size_t k :
       {size_t(0), size_t(1), size_t(4000), full.size() - 7, full.size() - 1}) {
    qxisstream source(data.data(), data.size(), false);
    qxigzstream gz(&source, false);
    std::string head;
    gz.read(head, k);
    ASSERT_EQ(head.size(), k);
    EXPECT_EQ(gz.size(), full.size());
    EXPECT_EQ(gz.tell(), k);
    EXPECT_TRUE(head + ReadAll(gz) == full) << "after " << k << " bytes";
  }
  qxerr.flush();
  ExpectOnlyLines(err.Finish(), "qxigzstream fill error: invalid block type");
}

const unsigned long kPlenty = 1UL << 30;

TEST(qxigzstreamFaultTest, OneByteInnerUnpacksEverything) {
  std::string payload = SampleText(100000, 4);
  FaultyIStream inner(MakeMember(payload), 1, kPlenty, Fault::kNone);
  qxigzstream gz(&inner, false);
  EXPECT_TRUE(ReadAll(gz) == payload);
  EXPECT_TRUE(gz.eof());
}

TEST(qxigzstreamFaultTest, InnerFailingInsideAMemberDeliversAPrefixQuietly) {
  std::string payload = SampleText(100000, 5);
  std::string member = MakeMember(payload);
  CaptureFd err(2);
  for (unsigned long budget :
       {0UL, 5UL, 10UL, 11UL, 100UL, 16384UL, member.size() / 2,
        member.size() - 8, member.size() - 1}) {
    FaultyIStream inner(member, 1000, budget, Fault::kFail);
    qxigzstream gz(&inner, false);
    std::string got = ReadAll(gz);
    EXPECT_TRUE(got == payload.substr(0, got.size())) << budget;
    if (budget < member.size() - 8) {
      EXPECT_LT(got.size(), payload.size()) << budget;
    } else {
      // Only the trailer is missing: all data came out before it.
      EXPECT_EQ(got.size(), payload.size()) << budget;
    }
    EXPECT_TRUE(gz.eof());
    std::string line;
    EXPECT_FALSE(gz.getline(line));
  }
  qxerr.flush();
  EXPECT_EQ(err.Finish(), "");
}

TEST(qxigzstreamFaultTest, ThrowingInnerPassesThroughAndNothingLeaks) {
  std::string payload = testing::RandomBytes(100000, 6);
  std::string member = MakeMember(payload);
  for (unsigned long budget : {0UL, 10UL, 20000UL}) {
    FaultyIStream* inner =
        new FaultyIStream(member, 4096, budget, Fault::kThrow);
    qxigzstream gz(inner, true);
    try {
      ReadAll(gz);
      ADD_FAILURE() << "no exception at " << budget;
    } catch (const QXIOError& error) {
      EXPECT_STREQ(error.what(), testing::kReadFault);
    }
    // Seeking back starts again from the inner stream's first byte.
    if (budget == 20000) {
      EXPECT_TRUE(gz.seek(0));
      std::string head;
      gz.read(head, 100);
      EXPECT_EQ(head, payload.substr(0, 100));
    }
  }
}

TEST(qxogzstreamFaultTest, OneByteSinkGetsTheSameMember) {
  std::string payload = SampleText(100000, 7);
  std::string packed;
  ASSERT_TRUE(QXCompress(packed, payload, "gz"));
  FaultyOStream sink(1, 0, Fault::kNone);
  {
    qxogzstream gz(&sink, false);
    EXPECT_EQ(gz.write(payload.data(), payload.size()), payload.size());
    EXPECT_TRUE(gz.close());
  }
  EXPECT_TRUE(sink.text() == packed);
}

TEST(qxogzstreamFaultTest, FailingSinkFailsTheStreamQuietly) {
  std::string payload = testing::RandomBytes(200000, 8);
  CaptureFd err(2);
  FaultyOStream sink(kPlenty, 2, Fault::kFail);
  {
    qxogzstream gz(&sink, false);
    unsigned long written = gz.write(payload.data(), payload.size());
    EXPECT_EQ(written, 0u);
    EXPECT_TRUE(gz.eof());
    gz.close();
  }
  // What reached the sink before the failure is the start of the member.
  std::string packed;
  ASSERT_TRUE(QXCompress(packed, payload, "gz"));
  EXPECT_EQ(sink.text().size(), 32768u);
  EXPECT_TRUE(sink.text() == packed.substr(0, 32768));
  qxerr.flush();
  EXPECT_EQ(err.Finish(), "");
}

TEST(qxogzstreamFaultTest, ThrowingSinkPassesThroughAndDestructionReports) {
  std::string payload = testing::RandomBytes(100000, 9);
  FaultyOStream sink(kPlenty, 1, Fault::kThrow);
  CaptureFd err(2);
  {
    qxogzstream gz(&sink, false);
    try {
      gz.write(payload.data(), payload.size());
      ADD_FAILURE() << "no exception";
    } catch (const QXIOError& error) {
      EXPECT_STREQ(error.what(), testing::kWriteFault);
    }
  }
  qxerr.flush();
  std::string report = err.Finish();
  std::string gzLine = "Caught QXIOError during qxogzstream destruction: " +
                       std::string(testing::kWriteFault) + "\n";
  std::string wrapperLine =
      "Caught QXIOError during qxowrapperstream destruction: " +
      std::string(testing::kWriteFault) + "\n";
  EXPECT_EQ(report, gzLine + gzLine + wrapperLine);
}

TEST(qxogzstreamFaultTest, FullDeviceUnderGzipFailsTheStreamQuietly) {
  if (access("/dev/full", W_OK) != 0) {
    GTEST_SKIP() << "no /dev/full";
  }
  std::string payload = testing::RandomBytes(200000, 10);
  CaptureFd err(2);
  {
    qxofstream* device = new qxofstream("/dev/full");
    qxogzstream gz(device, true);
    EXPECT_EQ(gz.write(payload.data(), payload.size()), 0u);
    EXPECT_TRUE(gz.eof());
    EXPECT_TRUE(device->eof());
    gz.close();
  }
  qxerr.flush();
  EXPECT_EQ(err.Finish(), "");
}

}  // namespace
}  // namespace QXPlatform
