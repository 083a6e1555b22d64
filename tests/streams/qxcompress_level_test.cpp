// Compression levels chosen by the caller: the gzip output stream's level
// and the level forms of buffer compression, checked against zlib and
// libzstd used directly.

#include <errno.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <zstd.h>

#include "support/qxtest_gzip.h"
#include "support/qxtest_streams.h"
#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxcompress.h>
#include <QXPlatform/streams/qxgzstream.h>
#include <QXPlatform/streams/qxsstream.h>

namespace QXPlatform {
namespace {

using testing::LittleEndian32;
using testing::RawDeflate;
using testing::RecordingOStream;
using testing::SampleText;
using testing::ZlibGunzip;

// The member the gzip output stream writes: its fixed ten-byte header, raw
// deflate data at level, CRC and length.
std::string ExpectedMember(const std::string& payload, int level) {
  return std::string("\x1F\x8B\x08\0\0\0\0\0\0\x03", 10) +
         RawDeflate(payload, level) + LittleEndian32(testing::Crc32(payload)) +
         LittleEndian32(static_cast<uint32_t>(payload.size()));
}

std::string GzStream(const std::string& payload, int level) {
  qxosstream sink;
  {
    qxogzstream gz(&sink, false, level);
    EXPECT_EQ(gz.write(payload.data(), payload.size()), payload.size());
    gz.clear();
  }
  return sink.str();
}

// One zstd frame decoded by libzstd alone; "<bad>" when it does not decode
// whole.
std::string ZstdDecode(const std::string& frame) {
  ZSTD_DStream* d = ZSTD_createDStream();
  ZSTD_inBuffer in = {frame.data(), frame.size(), 0};
  std::vector<char> piece(ZSTD_DStreamOutSize());
  std::string out;
  size_t status = 1;
  while (in.pos < in.size) {
    ZSTD_outBuffer o = {piece.data(), piece.size(), 0};
    status = ZSTD_decompressStream(d, &o, &in);
    if (ZSTD_isError(status)) {
      break;
    }
    out.append(piece.data(), o.pos);
  }
  while (status != 0 && !ZSTD_isError(status)) {
    ZSTD_outBuffer o = {piece.data(), piece.size(), 0};
    status = ZSTD_decompressStream(d, &o, &in);
    out.append(piece.data(), o.pos);
    if (o.pos == 0) {
      break;
    }
  }
  ZSTD_freeDStream(d);
  return status == 0 ? out : "<bad>";
}

TEST(qxogzstreamTest, LevelIsZlibsLevel) {
  std::string payload = SampleText(200000, 1);
  for (int level : {1, 5, 9}) {
    EXPECT_EQ(GzStream(payload, level), ExpectedMember(payload, level))
        << level;
  }
  EXPECT_LT(GzStream(payload, 9).size(), GzStream(payload, 1).size());
}

TEST(qxogzstreamTest, LevelZeroOrMinusOneIsTheDefaultOfTheTwoArgumentForm) {
  std::string payload = SampleText(100000, 2);
  qxosstream sink;
  {
    qxogzstream gz(&sink, false);
    gz.write(payload.data(), payload.size());
    gz.clear();
  }
  EXPECT_EQ(sink.str(), ExpectedMember(payload, 6));
  EXPECT_EQ(GzStream(payload, 0), sink.str());
  EXPECT_EQ(GzStream(payload, -1), sink.str());
}

TEST(qxogzstreamTest, LevelOutOfRangeIsRefused) {
  for (int level : {10, -2, 100}) {
    RecordingOStream sink;
    qxogzstream gz(&sink, false, level);
    EXPECT_EQ(gz.error(), EINVAL) << level;
    EXPECT_STREQ(gz.errortext(), "Invalid argument");
    EXPECT_TRUE(gz.eof());
    EXPECT_EQ(gz.write("x", 1), 0u);
    gz.close();
    EXPECT_EQ(sink.text(), "") << level;
  }
}

TEST(QXCompressTest, LevelZeroGivesTheFormWithoutLevel) {
  std::string payload = SampleText(50000, 3);
  for (const char* method : {"gz", "zstd"}) {
    std::string plain;
    ASSERT_TRUE(QXCompress(plain, payload, method));
    std::string leveled;
    ASSERT_TRUE(QXCompress(leveled, payload, method, 0));
    EXPECT_EQ(leveled, plain) << method;
    std::string fromPointer;
    ASSERT_TRUE(
        QXCompress(fromPointer, payload.data(), payload.size(), method, 0));
    EXPECT_EQ(fromPointer, plain) << method;
  }
}

TEST(QXCompressTest, GzLevelsAreZlibsLevels) {
  std::string payload = SampleText(150000, 4);
  for (int level : {1, 6, 9}) {
    std::string out;
    ASSERT_TRUE(QXCompress(out, payload, "gz", level));
    EXPECT_EQ(out, ExpectedMember(payload, level)) << level;
    EXPECT_EQ(ZlibGunzip(out), payload);
  }
}

TEST(QXCompressTest, ZstdLevelsDecodeAndChangeTheSize) {
  std::string payload = SampleText(400000, 5);
  std::string fast;
  std::string small;
  std::string negative;
  ASSERT_TRUE(QXCompress(fast, payload, "zstd", 1));
  ASSERT_TRUE(QXCompress(small, payload, "zstd", 19));
  ASSERT_TRUE(QXCompress(negative, payload.data(), payload.size(), "zstd", -5));
  EXPECT_LT(small.size(), fast.size());
  EXPECT_LT(fast.size(), negative.size());
  for (const std::string* frame : {&fast, &small, &negative}) {
    EXPECT_EQ(ZstdDecode(*frame), payload);
  }
}

TEST(QXCompressTest, ZstdLevelDoesNotStickToTheThread) {
  std::string payload = SampleText(100000, 6);
  std::string before;
  ASSERT_TRUE(QXCompress(before, payload, "zstd"));
  std::string other;
  ASSERT_TRUE(QXCompress(other, payload, "zstd", 1));
  EXPECT_NE(other, before);
  std::string after;
  ASSERT_TRUE(QXCompress(after, payload, "zstd"));
  EXPECT_EQ(after, before);
  std::string seven;
  ASSERT_TRUE(QXCompress(seven, payload, "zstd", 7));
  EXPECT_EQ(seven, before);
}

TEST(QXCompressTest, LevelOutOfRangeGivesFalseAndKeepsOut) {
  struct Case {
    const char* method;
    int level;
  };
  for (Case c : {Case{"gz", 10}, Case{"gz", -1}, Case{"gz", -7},
                 Case{"zstd", ZSTD_maxCLevel() + 1},
                 Case{"zstd", ZSTD_minCLevel() - 1}}) {
    std::string out = "kept";
    EXPECT_FALSE(QXCompress(out, "data", 4, c.method, c.level)) << c.level;
    EXPECT_EQ(out, "kept");
  }
}

TEST(QXCompressTest, UnknownMethodWithLevelGivesFalseAndEmptyOut) {
  std::string out = "old";
  EXPECT_FALSE(QXCompress(out, std::string("data"), "lz4", 3));
  EXPECT_EQ(out, "");
  out = "old";
  EXPECT_FALSE(QXCompress(out, "data", 4, nullptr, 3));
  EXPECT_EQ(out, "");
}

}  // namespace
}  // namespace QXPlatform
