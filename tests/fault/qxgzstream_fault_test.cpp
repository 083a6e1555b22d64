// Gzip streams over damaged data and over inner streams that deliver one
// byte at a time, fail part way or throw: the documented results and
// messages, the bytes delivered before a fault kept, nothing leaked.

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <zlib.h>

#include "fault/qxfault_streams.h"
#include "support/qxtest_gzip.h"
#include "support/qxtest_support.h"
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

}  // namespace
}  // namespace QXPlatform
