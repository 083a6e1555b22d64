#include <functional>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "support/qxtest_gzip.h"
#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxcompress.h>

namespace QXPlatform {
namespace {

using testing::CaptureFd;
using testing::Crc32;
using testing::LittleEndian32;
using testing::MakeMember;
using testing::RandomBytes;
using testing::SampleText;
using testing::ZlibGunzip;

// Each thread keeps its own zstd decoder, which carries state from call to
// call; tests that leave it mid-frame run on a thread of their own.
void OnFreshThread(const std::function<void()>& body) {
  std::thread worker(body);
  worker.join();
}

const size_t kSizes[] = {0,     1,      1000,   32767,   32768,          32769,
                         65536, 131072, 131073, 1 << 20, (1 << 20) + 777};

TEST(QXCompressTest, GzRoundTripGivesTheBytesBack) {
  for (size_t n : kSizes) {
    for (int kind = 0; kind < 2; ++kind) {
      std::string data = kind == 0 ? SampleText(n, static_cast<unsigned>(n))
                                   : RandomBytes(n, static_cast<unsigned>(n));
      std::string packed;
      ASSERT_TRUE(QXCompress(packed, data, "gz"));
      std::string back;
      ASSERT_TRUE(QXUncompress(back, packed, "gz"));
      EXPECT_EQ(back, data) << n << " " << kind;
    }
  }
}

TEST(QXCompressTest, ZstdRoundTripGivesTheBytesBack) {
  OnFreshThread([] {
    for (size_t n : kSizes) {
      for (int kind = 0; kind < 2; ++kind) {
        std::string data = kind == 0 ? SampleText(n, static_cast<unsigned>(n))
                                     : RandomBytes(n, static_cast<unsigned>(n));
        std::string packed;
        ASSERT_TRUE(QXCompress(packed, data, "zstd"));
        std::string back;
        ASSERT_TRUE(QXUncompress(back, packed, "zstd"));
        EXPECT_EQ(back, data) << n << " " << kind;
      }
    }
  });
}

TEST(QXCompressTest, GzMakesOneMemberWithTheFixedHeader) {
  std::string packed;
  ASSERT_TRUE(QXCompress(packed, "hello", 5, "gz"));
  ASSERT_GE(packed.size(), 18u);
  EXPECT_EQ(packed.substr(0, 10),
            std::string("\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\x03", 10));
  EXPECT_EQ(packed.substr(packed.size() - 8),
            LittleEndian32(Crc32("hello")) + LittleEndian32(5));
  bool ok = false;
  EXPECT_EQ(ZlibGunzip(packed, &ok), "hello");
  EXPECT_TRUE(ok);
}

TEST(QXCompressTest, GzOfNothingIsACompleteEmptyMember) {
  std::string packed = "old";
  ASSERT_TRUE(QXCompress(packed, "", 0, "gz"));
  EXPECT_EQ(packed.size(), 20u);
  bool ok = false;
  EXPECT_EQ(ZlibGunzip(packed, &ok), "");
  EXPECT_TRUE(ok);
}

TEST(QXCompressTest, CompressReplacesTheOutput) {
  std::string packed = "previous contents";
  ASSERT_TRUE(QXCompress(packed, "abc", 3, "gz"));
  EXPECT_EQ(ZlibGunzip(packed), "abc");
  OnFreshThread([] {
    std::string zpacked = "previous contents";
    ASSERT_TRUE(QXCompress(zpacked, "abc", 3, "zstd"));
    std::string back;
    ASSERT_TRUE(QXUncompress(back, zpacked, "zstd"));
    EXPECT_EQ(back, "abc");
  });
}

TEST(QXCompressTest, UncompressAppendsToWhatIsThere) {
  std::string packed;
  QXCompress(packed, "new", 3, "gz");
  std::string out = "old:";
  ASSERT_TRUE(QXUncompress(out, packed, "gz"));
  EXPECT_EQ(out, "old:new");
  OnFreshThread([] {
    std::string zpacked;
    QXCompress(zpacked, "new", 3, "zstd");
    std::string zout = "old:";
    ASSERT_TRUE(QXUncompress(zout, zpacked, "zstd"));
    EXPECT_EQ(zout, "old:new");
  });
}

TEST(QXCompressTest, ZstdOfNoInputIsTrueAndAddsNothing) {
  std::string out = "kept";
  EXPECT_TRUE(QXUncompress(out, "", 0, "zstd"));
  EXPECT_EQ(out, "kept");
  EXPECT_TRUE(QXUncompress(out, nullptr, 0, "zstd"));
  EXPECT_EQ(out, "kept");
}

TEST(QXCompressTest, ZstdFramesOfOneThreadAreEachComplete) {
  OnFreshThread([] {
    std::string first;
    std::string second;
    ASSERT_TRUE(QXCompress(first, std::string(5000, 'a'), "zstd"));
    ASSERT_TRUE(QXCompress(second, std::string(5000, 'a'), "zstd"));
    EXPECT_EQ(first, second);
    // Zstandard frame magic, little-endian.
    EXPECT_EQ(first.substr(0, 4), std::string("\x28\xb5\x2f\xfd", 4));
  });
}

TEST(QXCompressTest, UnknownAndNullMethodsGiveFalseAndAnEmptyOutput) {
  for (const char* method : {"zip", "GZ", "gzip", "zst", "", "zstd ", "lz4"}) {
    std::string out = "full";
    EXPECT_FALSE(QXCompress(out, "data", 4, method)) << method;
    EXPECT_EQ(out, "") << method;
    out = "full";
    EXPECT_FALSE(QXUncompress(out, "data", 4, method)) << method;
    EXPECT_EQ(out, "") << method;
  }
  std::string out = "full";
  EXPECT_FALSE(QXCompress(out, std::string("data"), nullptr));
  EXPECT_EQ(out, "");
  out = "full";
  EXPECT_FALSE(QXUncompress(out, std::string("data"), nullptr));
  EXPECT_EQ(out, "");
}

TEST(QXCompressTest, AvailabilityLooksAtTheFirstTwoLettersOnly) {
  EXPECT_TRUE(QXCompressionAvailable("gz"));
  EXPECT_TRUE(QXCompressionAvailable("gzip"));
  EXPECT_TRUE(QXCompressionAvailable("gzanything"));
  EXPECT_FALSE(QXCompressionAvailable("zstd"));
  EXPECT_FALSE(QXCompressionAvailable(nullptr));
  EXPECT_FALSE(QXCompressionAvailable("g"));
  EXPECT_FALSE(QXCompressionAvailable(""));
  EXPECT_FALSE(QXCompressionAvailable("GZ"));
}

TEST(QXCompressTest, GzUncompressPassesPlainDataThrough) {
  std::string plain = SampleText(50000, 3);
  plain[0] = 'x';
  std::string out;
  EXPECT_TRUE(QXUncompress(out, plain, "gz"));
  EXPECT_EQ(out, plain);
  std::string nothing;
  EXPECT_TRUE(QXUncompress(nothing, "", 0, "gz"));
  EXPECT_EQ(nothing, "");
}

TEST(QXCompressTest, GzUncompressReadsConcatenatedMembers) {
  std::string out;
  EXPECT_TRUE(QXUncompress(out, MakeMember("one ") + MakeMember("two"), "gz"));
  EXPECT_EQ(out, "one two");
}

TEST(QXCompressTest, GzUncompressKeepsWhatADamagedMemberGave) {
  std::string data = SampleText(300000, 4);
  std::string packed;
  QXCompress(packed, data, "gz");
  std::string out;
  EXPECT_TRUE(QXUncompress(out, packed.substr(0, packed.size() / 2), "gz"));
  EXPECT_GT(out.size(), 0u);
  EXPECT_LT(out.size(), data.size());
  EXPECT_EQ(out, data.substr(0, out.size()));

  std::string badCrc = packed;
  badCrc[badCrc.size() - 8] ^= 0x10;
  out.clear();
  EXPECT_TRUE(QXUncompress(out, badCrc + MakeMember("more"), "gz"));
  EXPECT_EQ(out, data);
}

TEST(QXCompressTest, GzUncompressOfHostileDataNeverCrashes) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    std::string junk = RandomBytes(3000, seed);
    if (seed % 2 == 0) {
      junk = std::string("\x1f\x8b\x08", 3) + junk;
      junk[3] = static_cast<char>(junk[3] & 0x1E);
    }
    CaptureFd err(2);
    std::string out;
    EXPECT_TRUE(QXUncompress(out, junk, "gz"));
    err.Finish();
  }
}

TEST(QXCompressTest, ACutZstdFrameGivesWhatCouldBeDecoded) {
  OnFreshThread([] {
    std::string data = RandomBytes(300000, 5);
    std::string packed;
    ASSERT_TRUE(QXCompress(packed, data, "zstd"));
    std::string out;
    // The decoder takes in every byte and waits for more: true.
    EXPECT_TRUE(QXUncompress(out, packed.substr(0, packed.size() / 2), "zstd"));
    EXPECT_LT(out.size(), data.size());
    EXPECT_EQ(out, data.substr(0, out.size()));
  });
}

TEST(QXCompressTest, TheThreadsDecoderContinuesFromTheLastCall) {
  OnFreshThread([] {
    std::string data = SampleText(400000, 6);
    std::string packed;
    ASSERT_TRUE(QXCompress(packed, data, "zstd"));
    size_t half = packed.size() / 2;
    std::string out;
    ASSERT_TRUE(QXUncompress(out, packed.data(), half, "zstd"));
    ASSERT_TRUE(
        QXUncompress(out, packed.data() + half, packed.size() - half, "zstd"));
    EXPECT_EQ(out, data);
  });
}

TEST(QXCompressTest, AnErrorDoesNotSpoilTheThreadsLaterCalls) {
  OnFreshThread([] {
    std::string data = SampleText(100000, 10);
    std::string packed;
    ASSERT_TRUE(QXCompress(packed, data, "zstd"));
    std::string out;
    EXPECT_FALSE(QXUncompress(out, "garbage!garbage!", 16, "zstd"));
    out.clear();
    EXPECT_TRUE(QXUncompress(out, packed, "zstd"));
    EXPECT_EQ(out, data);
  });
}

TEST(QXCompressTest, AFrameCutShortIsContinuedByTheNextCall) {
  OnFreshThread([] {
    std::string data = RandomBytes(300000, 11);
    std::string packed;
    ASSERT_TRUE(QXCompress(packed, data, "zstd"));
    std::string out;
    ASSERT_TRUE(QXUncompress(out, packed.substr(0, packed.size() / 2), "zstd"));
    // The next buffer is taken as the rest of that frame: a whole new frame
    // does not fit there and is an error.
    std::string next;
    EXPECT_FALSE(QXUncompress(next, packed, "zstd"));
    // After the error the decoder starts afresh.
    next.clear();
    EXPECT_TRUE(QXUncompress(next, packed, "zstd"));
    EXPECT_EQ(next, data);
  });
}

TEST(QXCompressTest, AFlippedZstdFrameIsAnErrorOrPartialNeverACrash) {
  std::string data = SampleText(200000, 7);
  std::string packed;
  ASSERT_TRUE(QXCompress(packed, data, "zstd"));
  std::string noise = RandomBytes(200, 8);
  int errors = 0;
  for (size_t i = 0; i < 100; ++i) {
    std::string damaged = packed;
    size_t at =
        (static_cast<unsigned char>(noise[i]) * 257 + i * 131) % damaged.size();
    damaged[at] = static_cast<char>(damaged[at] ^ 0x5A);
    OnFreshThread([&] {
      std::string out;
      if (!QXUncompress(out, damaged, "zstd")) {
        ++errors;
      }
      EXPECT_LE(out.size(), data.size() + (1 << 20));
    });
  }
  EXPECT_GT(errors, 0);
}

TEST(QXCompressTest, ABadZstdMagicIsAnError) {
  OnFreshThread([] {
    std::string out = "kept:";
    EXPECT_FALSE(QXUncompress(out, "definitely not zstd", 19, "zstd"));
    EXPECT_EQ(out, "kept:");
  });
  OnFreshThread([] {
    std::string out;
    std::string junk = RandomBytes(5000, 9);
    junk[0] = 'j';
    EXPECT_FALSE(QXUncompress(out, junk, "zstd"));
  });
}

TEST(QXCompressTest, NullDataCountAsNoData) {
  std::string packed;
  ASSERT_TRUE(QXCompress(packed, nullptr, 10, "gz"));
  EXPECT_EQ(ZlibGunzip(packed), "");
  OnFreshThread([] {
    std::string zpacked;
    ASSERT_TRUE(QXCompress(zpacked, nullptr, 10, "zstd"));
    std::string back = "x";
    ASSERT_TRUE(QXUncompress(back, zpacked, "zstd"));
    EXPECT_EQ(back, "x");
  });
}

}  // namespace
}  // namespace QXPlatform
