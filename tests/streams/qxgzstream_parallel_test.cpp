// Gzip output packed on several threads: one ordinary member that zlib, the
// gzip tool, pigz and Python read back whole; the same bytes whatever the
// thread count and the write pattern; one thread exactly as before; failures
// reported as on one thread.

#include <errno.h>

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_gzip.h"
#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxcompress.h>
#include <QXPlatform/streams/qxfstream.h>
#include <QXPlatform/streams/qxgzstream.h>
#include <QXPlatform/streams/qxsstream.h>

namespace QXPlatform {
namespace {

using testing::RandomBytes;
using testing::RunCommand;
using testing::SampleText;
using testing::ScratchDir;
using testing::WriteFile;

const size_t kBlock = 128 * 1024;

// data packed by a gzip stream with level and threads, written in pieces of
// the given size.
std::string Pack(const std::string& data, int level, unsigned threads,
                 size_t piece = 100000) {
  qxosstream sink;
  {
    qxogzstream gz(&sink, false, level, threads);
    for (size_t at = 0; at < data.size(); at += piece) {
      size_t n = std::min(piece, data.size() - at);
      EXPECT_EQ(gz.write(data.data() + at, n), n);
    }
    gz.clear();
    EXPECT_EQ(gz.error(), 0);
  }
  return sink.str();
}

// The sizes around the block and window edges, and some text and noise.
std::vector<std::string> Samples() {
  return {"",
          "x",
          SampleText(16383, 1),
          SampleText(16384, 2),
          SampleText(kBlock - 1, 3),
          SampleText(kBlock, 4),
          SampleText(kBlock + 1, 5),
          SampleText(3 * kBlock + 32768, 6),
          SampleText(2000000, 7),
          RandomBytes(700000, 8)};
}

// True when gz holds exactly one member: zlib stops at the end of the first
// member, and its trailer is the last eight bytes.
bool OneMember(const std::string& gz, const std::string& data) {
  if (gz.size() < 18 || static_cast<unsigned char>(gz[0]) != 0x1F ||
      static_cast<unsigned char>(gz[1]) != 0x8B) {
    return false;
  }
  bool ok = false;
  std::string inflated = testing::ZlibGunzip(gz, &ok);
  return ok && inflated == data &&
         gz.substr(gz.size() - 8, 4) ==
             testing::LittleEndian32(testing::Crc32(data)) &&
         gz.substr(gz.size() - 4) ==
             testing::LittleEndian32(static_cast<uint32_t>(data.size()));
}

TEST(qxogzstreamParallelTest, ZlibReadsOneMemberWithTheDataBack) {
  for (unsigned threads : {2u, 3u, 5u, 8u}) {
    for (const std::string& data : Samples()) {
      std::string gz = Pack(data, 6, threads);
      EXPECT_TRUE(OneMember(gz, data))
          << threads << " threads, " << data.size() << " bytes";
    }
  }
}

TEST(qxogzstreamParallelTest, OutputIsWithinOnePercentOfOneThread) {
  for (const std::string& data :
       {SampleText(4000000, 9), RandomBytes(2000000, 10)}) {
    size_t one = Pack(data, 6, 1).size();
    size_t two = Pack(data, 6, 2).size();
    EXPECT_LE(static_cast<double>(two), 1.01 * static_cast<double>(one))
        << one << " on one thread, " << two << " on two";
  }
}

TEST(qxogzstreamParallelTest, EveryLevelRoundTrips) {
  std::string data = SampleText(600000, 11);
  for (int level : {1, 2, 5, 6, 9}) {
    std::string gz = Pack(data, level, 2);
    EXPECT_TRUE(OneMember(gz, data)) << level;
  }
  // 0 is zlib's default, as on one thread.
  EXPECT_EQ(Pack(data, 0, 2), Pack(data, 6, 2));
  EXPECT_EQ(Pack(data, -1, 2), Pack(data, 6, 2));
}

TEST(qxogzstreamParallelTest, TheBytesDependOnTheDataAndTheLevelOnly) {
  std::string data = SampleText(5 * kBlock + 777, 12);
  std::string two = Pack(data, 6, 2);
  EXPECT_EQ(Pack(data, 6, 3), two);
  EXPECT_EQ(Pack(data, 6, 8), two);
  EXPECT_EQ(Pack(data, 6, 2, 1), two);
  EXPECT_EQ(Pack(data, 6, 2, 16384), two);
  EXPECT_EQ(Pack(data, 6, 2, kBlock + 3), two);
  EXPECT_NE(Pack(data, 1, 2), two);
}

TEST(qxogzstreamParallelTest, OneThreadAndZeroThreadsAreTheLevelFormExactly) {
  std::string data = SampleText(3 * kBlock, 13);
  for (int level : {0, 1, 6, 9}) {
    qxosstream sink;
    {
      qxogzstream gz(&sink, false, level);
      gz.write(data.data(), data.size());
    }
    EXPECT_EQ(Pack(data, level, 1), sink.str()) << level;
    EXPECT_EQ(Pack(data, level, 0), sink.str()) << level;
  }
}

TEST(qxogzstreamParallelTest, MoreThreadsThanBlocksAndAbsurdCountsWork) {
  std::string data = SampleText(kBlock / 2, 14);
  EXPECT_TRUE(OneMember(Pack(data, 6, 16), data));
  EXPECT_TRUE(OneMember(Pack(data, 6, 100000), data));
}

TEST(qxogzstreamParallelTest, ABadLevelIsRefusedAsOnOneThread) {
  qxosstream sink;
  qxogzstream gz(&sink, false, 10, 4);
  EXPECT_EQ(gz.error(), EINVAL);
  EXPECT_EQ(gz.write("x", 1), 0u);
}

TEST(qxogzstreamParallelTest, ASecondInnerStreamGetsAMemberOfItsOwn) {
  std::string first = SampleText(400000, 15);
  std::string second = SampleText(300000, 16);
  qxosstream a;
  qxosstream b;
  qxogzstream gz(&a, false, 6, 2);
  gz.write(first.data(), first.size());
  gz.set(&b, false);
  gz.write(second.data(), second.size());
  gz.clear();
  EXPECT_TRUE(OneMember(a.str(), first));
  EXPECT_TRUE(OneMember(b.str(), second));
}

TEST(qxogzstreamParallelTest, AFullDeviceIsReportedAndNothingHangs) {
  std::string data = SampleText(2000000, 17);
  qxofstream full("/dev/full");
  ASSERT_FALSE(full.eof());
  {
    qxogzstream gz(&full, false, 6, 3);
    gz.write(data.data(), data.size());
    gz.clear();
    EXPECT_EQ(gz.error(), ENOSPC);
    EXPECT_STREQ(gz.errortext(), "No space left on device");
  }
  // Failing in the destructor, with blocks still on the workers.
  {
    qxofstream again("/dev/full");
    qxogzstream gz(&again, false, 6, 4);
    gz.write(data.data(), data.size());
  }
}

TEST(qxogzstreamParallelTest, DestroyingWithoutClearFinishesTheMember) {
  std::string data = SampleText(900000, 18);
  qxosstream sink;
  {
    qxogzstream gz(&sink, false, 6, 2);
    gz.write(data.data(), data.size());
  }
  EXPECT_TRUE(OneMember(sink.str(), data));
}

TEST(qxogzstreamParallelTest, GzipPigzAndPythonReadIt) {
  ScratchDir dir;
  for (const std::string& data :
       {std::string(), SampleText(1500000, 19), RandomBytes(400000, 20)}) {
    std::string file = dir.File("parallel.gz");
    WriteFile(file, Pack(data, 6, 2));
    std::string out;
    EXPECT_EQ(RunCommand("gzip -t '" + file + "'"), 0);
    EXPECT_EQ(RunCommand("gzip -d -c '" + file + "'", &out), 0);
    EXPECT_EQ(out, data);
    EXPECT_EQ(RunCommand("pigz -d -c '" + file + "'", &out), 0);
    EXPECT_EQ(out, data);
    EXPECT_EQ(RunCommand("python3 -c \"import gzip,sys; "
                         "sys.stdout.buffer.write(gzip.open('" +
                             file + "').read())\"",
                         &out),
              0);
    EXPECT_EQ(out, data);
  }
}

TEST(QXCompressThreadsTest, GzOnSeveralThreadsIsTheStreamsMember) {
  std::string data = SampleText(1000000, 21);
  std::string out;
  ASSERT_TRUE(QXCompress(out, data, "gz", 6, 2));
  EXPECT_EQ(out, Pack(data, 6, 2));
  ASSERT_TRUE(QXCompress(out, data.data(), data.size(), "gz", 0, 4));
  EXPECT_EQ(out, Pack(data, 6, 2));
  std::string back;
  ASSERT_TRUE(QXUncompress(back, out, "gz"));
  EXPECT_EQ(back, data);
}

TEST(QXCompressThreadsTest, OneThreadIsTheLevelForm) {
  std::string data = SampleText(300000, 22);
  for (const char* method : {"gz", "zstd"}) {
    for (int level : {0, 1, 3}) {
      std::string levelForm;
      std::string threaded;
      ASSERT_TRUE(QXCompress(levelForm, data, method, level));
      ASSERT_TRUE(QXCompress(threaded, data, method, level, 1));
      EXPECT_EQ(threaded, levelForm) << method << level;
      ASSERT_TRUE(QXCompress(threaded, data, method, level, 0));
      EXPECT_EQ(threaded, levelForm) << method << level;
    }
  }
}

TEST(QXCompressThreadsTest, ZstdWorkersGiveAFrameThatDecodes) {
  std::string data = SampleText(3000000, 23);
  std::string out;
  if (!QXCompress(out, data, "zstd", 3, 2)) {
    // Only a zstd library without threads refuses, leaving out alone.
    EXPECT_TRUE(out.empty());
    GTEST_SKIP() << "the zstd library has no worker threads";
  }
  std::string back;
  ASSERT_TRUE(QXUncompress(back, out, "zstd"));
  EXPECT_EQ(back, data);
}

TEST(QXCompressThreadsTest, BadLevelsAndMethodsAreRefused) {
  std::string out = "kept";
  EXPECT_FALSE(QXCompress(out, "data", "gz", 10, 2));
  EXPECT_EQ(out, "kept");
  EXPECT_FALSE(QXCompress(out, "data", "zstd", 1000, 2));
  EXPECT_EQ(out, "kept");
  EXPECT_FALSE(QXCompress(out, "data", "lz4", 1, 2));
  EXPECT_EQ(out, "");
}

}  // namespace
}  // namespace QXPlatform
