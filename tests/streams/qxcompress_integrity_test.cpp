// The QXUncompress forms that report damage: gzip buffers cut short or with
// a bad check, zstd frames cut short or invalid, each also refused by the
// zstd program or zlib's own gzip decoder.

#include <errno.h>

#include <functional>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "support/qxtest_gzip.h"
#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxcompress.h>

namespace QXPlatform {
namespace {

using testing::MakeMember;
using testing::RandomBytes;
using testing::RunCommand;
using testing::SampleText;
using testing::ScratchDir;
using testing::WriteFile;
using testing::ZlibGunzip;

// Each thread keeps its own zstd decoder; every test starts on a fresh one.
void OnFreshThread(const std::function<void()>& body) {
  std::thread worker(body);
  worker.join();
}

bool ZstdProgramRefuses(const std::string& frame) {
  ScratchDir dir;
  std::string path = dir.File("f.zst");
  WriteFile(path, frame);
  return RunCommand("zstd -q -t '" + path + "' 2>/dev/null") != 0;
}

TEST(QXUncompressCheckedTest, SoundDataReportZero) {
  OnFreshThread([] {
    std::string data = SampleText(300000, 1);
    for (const char* method : {"gz", "zstd"}) {
      std::string packed;
      ASSERT_TRUE(QXCompress(packed, data, method));
      std::string out = "kept:";
      int error = -1;
      EXPECT_TRUE(QXUncompress(out, packed, method, &error)) << method;
      EXPECT_EQ(error, 0) << method;
      EXPECT_EQ(out, "kept:" + data) << method;
    }
    int error = -1;
    std::string out;
    EXPECT_TRUE(QXUncompress(out, "", 0, "zstd", &error));
    EXPECT_EQ(error, 0);
    error = -1;
    EXPECT_TRUE(QXUncompress(out, "plain", 5, "gz", &error));
    EXPECT_EQ(out, "plain");
    EXPECT_EQ(error, 0);
  });
}

TEST(QXUncompressCheckedTest, DamagedGzipIsABadMessage) {
  std::string data = SampleText(50000, 2);
  std::string gz = MakeMember(data);
  std::string crc = gz;
  crc[crc.size() - 6] ^= 1;
  std::string length = gz;
  length[length.size() - 2] ^= 1;
  std::string body = gz;
  body[40] ^= 0x55;
  for (const std::string& bad :
       {gz.substr(0, gz.size() / 2), gz.substr(0, gz.size() - 1),
        gz.substr(0, 4), crc, length, body}) {
    bool zlibOk = true;
    ZlibGunzip(bad, &zlibOk);
    ASSERT_FALSE(zlibOk);
    std::string specified;
    // The specified form still says true.
    EXPECT_TRUE(QXUncompress(specified, bad, "gz"));
    std::string out;
    int error = 0;
    EXPECT_TRUE(QXUncompress(out, bad, "gz", &error));
    EXPECT_EQ(error, EBADMSG);
    EXPECT_EQ(out, specified);
  }
}

TEST(QXUncompressCheckedTest, CutZstdFrameIsABadMessageAndIsNotLeftBehind) {
  OnFreshThread([] {
    std::string data = RandomBytes(300000, 3);
    std::string packed;
    ASSERT_TRUE(QXCompress(packed, data, "zstd"));
    std::string cut = packed.substr(0, packed.size() / 2);
    ASSERT_TRUE(ZstdProgramRefuses(cut));
    std::string out;
    int error = 0;
    EXPECT_TRUE(QXUncompress(out, cut, "zstd", &error));
    EXPECT_EQ(error, EBADMSG);
    EXPECT_EQ(out, data.substr(0, out.size()));
    // The next call, with a whole unrelated frame, is not taken as the rest.
    std::string other = SampleText(1000, 4);
    std::string otherPacked;
    ASSERT_TRUE(QXCompress(otherPacked, other, "zstd"));
    std::string next;
    error = -1;
    EXPECT_TRUE(QXUncompress(next, otherPacked, "zstd", &error));
    EXPECT_EQ(error, 0);
    EXPECT_EQ(next, other);
    // Nor by the specified form after it.
    next.clear();
    EXPECT_TRUE(QXUncompress(next, otherPacked, "zstd"));
    EXPECT_EQ(next, other);
  });
}

TEST(QXUncompressCheckedTest, FrameLeftCutByTheSpecifiedFormIsNotContinued) {
  OnFreshThread([] {
    std::string data = RandomBytes(300000, 5);
    std::string packed;
    ASSERT_TRUE(QXCompress(packed, data, "zstd"));
    std::string out;
    ASSERT_TRUE(QXUncompress(out, packed.substr(0, packed.size() / 2), "zstd"));
    std::string next;
    int error = -1;
    EXPECT_TRUE(QXUncompress(next, packed, "zstd", &error));
    EXPECT_EQ(error, 0);
    EXPECT_EQ(next, data);
  });
}

TEST(QXUncompressCheckedTest, InvalidZstdIsFalseAndABadMessage) {
  OnFreshThread([] {
    std::string bad = "this is not a zstd frame at all";
    ASSERT_TRUE(ZstdProgramRefuses(bad));
    std::string out;
    int error = 0;
    EXPECT_FALSE(QXUncompress(out, bad, "zstd", &error));
    EXPECT_EQ(error, EBADMSG);
    std::string data = SampleText(100000, 6);
    std::string packed;
    ASSERT_TRUE(QXCompress(packed, data, "zstd"));
    packed[packed.size() / 2] ^= 0x5A;
    packed[packed.size() / 2 + 1] ^= 0x5A;
    ASSERT_TRUE(ZstdProgramRefuses(packed));
    out.clear();
    error = 0;
    QXUncompress(out, packed, "zstd", &error);
    EXPECT_EQ(error, EBADMSG);
  });
}

TEST(QXUncompressCheckedTest, UnknownMethodIsFalseAndInvalid) {
  std::string out = "x";
  int error = 0;
  EXPECT_FALSE(QXUncompress(out, "abc", 3, "lzma", &error));
  EXPECT_EQ(out, "");
  EXPECT_EQ(error, EINVAL);
  error = 0;
  EXPECT_FALSE(QXUncompress(out, std::string("abc"), nullptr, &error));
  EXPECT_EQ(error, EINVAL);
}

TEST(QXUncompressCheckedTest, NullErrorPointerIsAllowed) {
  std::string packed;
  ASSERT_TRUE(QXCompress(packed, std::string("hello"), "gz"));
  std::string out;
  EXPECT_TRUE(QXUncompress(out, packed.substr(0, 12), "gz", nullptr));
}

}  // namespace
}  // namespace QXPlatform
