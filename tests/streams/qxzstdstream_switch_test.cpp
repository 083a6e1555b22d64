// The process-wide switch that lets the stream manager read and write zstd:
// off, every entry point behaves as it always has; on, zstd data are
// unpacked by content and ".zst" names packed; switching while other threads
// open streams is race-free.

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <zstd.h>

#include "support/qxtest_gzip.h"
#include "support/qxtest_streams.h"
#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxcompress.h>
#include <QXPlatform/streams/qxstreammngr.h>
#include <QXPlatform/streams/qxzstdstream.h>

namespace QXPlatform {
namespace {

using testing::MakeMember;
using testing::ReadFile;
using testing::ReadThroughManager;
using testing::SampleText;
using testing::ScratchDir;
using testing::WriteFile;
using testing::WriteThroughManager;

// One frame of payload made by libzstd alone.
std::string Frame(const std::string& payload) {
  std::string out(ZSTD_compressBound(payload.size()), '\0');
  size_t n =
      ZSTD_compress(&out[0], out.size(), payload.data(), payload.size(), 3);
  EXPECT_FALSE(ZSTD_isError(n));
  out.resize(ZSTD_isError(n) ? 0 : n);
  return out;
}

// The content of a zstd file decoded by libzstd; "<bad>" when it is not one
// whole valid frame.
std::string Decoded(const std::string& data) {
  unsigned long long size = ZSTD_getFrameContentSize(data.data(), data.size());
  std::string out;
  if (size == ZSTD_CONTENTSIZE_ERROR) {
    return "<bad>";
  }
  ZSTD_DStream* d = ZSTD_createDStream();
  ZSTD_inBuffer in = {data.data(), data.size(), 0};
  std::vector<char> piece(ZSTD_DStreamOutSize());
  size_t status = 1;
  while (in.pos < in.size) {
    ZSTD_outBuffer o = {piece.data(), piece.size(), 0};
    status = ZSTD_decompressStream(d, &o, &in);
    if (ZSTD_isError(status)) {
      break;
    }
    out.append(piece.data(), o.pos);
  }
  ZSTD_freeDStream(d);
  return status == 0 ? out : "<bad>";
}

class ZstdSwitchTest : public ::testing::Test {
 protected:
  void TearDown() override { QXSetZstdStreams(false); }
  std::string Path(const std::string& name) { return dir.File(name); }
  ScratchDir dir;
};

TEST_F(ZstdSwitchTest, OffByDefault) { EXPECT_FALSE(QXGetZstdStreams()); }

TEST_F(ZstdSwitchTest, SwitchReadsBackWhatWasSet) {
  QXSetZstdStreams(true);
  EXPECT_TRUE(QXGetZstdStreams());
  QXSetZstdStreams(false);
  EXPECT_FALSE(QXGetZstdStreams());
}

TEST_F(ZstdSwitchTest, OffOpenIStreamHandsOutZstdBytesUnchanged) {
  std::string frame = Frame(SampleText(50000, 1));
  WriteFile(Path("data.zst"), frame);
  EXPECT_EQ(ReadThroughManager(Path("data.zst")), frame);
}

TEST_F(ZstdSwitchTest, OffOpenOStreamWritesZstNamesPlain) {
  WriteThroughManager(Path("out.zst"), "plain text\n");
  EXPECT_EQ(ReadFile(Path("out.zst")), "plain text\n");
}

TEST_F(ZstdSwitchTest, OffCompressionOfBuffersIsUnchanged) {
  std::string payload = SampleText(20000, 2);
  std::string before;
  ASSERT_TRUE(QXCompress(before, payload, "zstd"));
  QXSetZstdStreams(true);
  std::string after;
  ASSERT_TRUE(QXCompress(after, payload, "zstd"));
  EXPECT_EQ(after, before);
  std::string back;
  ASSERT_TRUE(QXUncompress(back, after, "zstd"));
  EXPECT_EQ(back, payload);
}

TEST_F(ZstdSwitchTest, OnOpenIStreamUnpacksByContent) {
  QXSetZstdStreams(true);
  std::string payload = SampleText(100000, 3);
  // The name plays no part: the first four bytes decide.
  WriteFile(Path("data.bin"), Frame(payload) + Frame("tail"));
  EXPECT_EQ(ReadThroughManager(Path("data.bin")), payload + "tail");
}

TEST_F(ZstdSwitchTest, OnDataStartingWithASkippableFrameAreUnpacked) {
  QXSetZstdStreams(true);
  std::string payload = SampleText(10000, 9);
  std::string skippable("\x5E\x2A\x4D\x18\x02\0\0\0ab", 10);
  WriteFile(Path("skip.bin"), skippable + Frame(payload));
  EXPECT_EQ(ReadThroughManager(Path("skip.bin")), payload);
  // Three bytes of that magic and then something else are plain data.
  WriteFile(Path("near"), "\x5E\x2A\x4D\x19 text");
  EXPECT_EQ(ReadThroughManager(Path("near")), "\x5E\x2A\x4D\x19 text");
}

TEST_F(ZstdSwitchTest, OnNearMissesOfTheMagicStayPlain) {
  QXSetZstdStreams(true);
  for (const std::string& bytes :
       {std::string("\x28"), std::string("\x28\xB5\x2F"),
        std::string("\x28\xB5\x2F\xFC more"), std::string("(plain)")}) {
    WriteFile(Path("near"), bytes);
    EXPECT_EQ(ReadThroughManager(Path("near")), bytes);
  }
}

// A handler stream that cannot go back and hands out one byte per fill.
std::string& DripData() {
  static std::string data;
  return data;
}

qxistream* OpenDrip(const char*) {
  return new testing::SpanStream(DripData(), {1});
}

void CloseDrip(qxistream* s) { delete s; }

std::string ReadDripping(const std::string& data) {
  DripData() = data;
  return ReadThroughManager("drip:x");
}

TEST_F(ZstdSwitchTest, OnInputThatCannotGoBackLosesNoByteOfTheMagic) {
  ASSERT_TRUE(QXRegisterIStream("drip", OpenDrip, CloseDrip));
  QXSetZstdStreams(true);
  std::string payload = SampleText(30000, 4);
  EXPECT_EQ(ReadDripping(Frame(payload)), payload);
  for (const std::string& bytes :
       {std::string("\x28"), std::string("\x28\xB5\x2F"),
        std::string("\x28\xB5\x2F\xFC more"), std::string("\x5E\x2A plain")}) {
    EXPECT_EQ(ReadDripping(bytes), bytes);
  }
}

TEST_F(ZstdSwitchTest, OnGzipIsStillUnpacked) {
  QXSetZstdStreams(true);
  std::string payload = SampleText(30000, 4);
  WriteFile(Path("data.gz"), MakeMember(payload));
  EXPECT_EQ(ReadThroughManager(Path("data.gz")), payload);
}

TEST_F(ZstdSwitchTest, OnOpenOStreamPacksNamesEndingInZst) {
  QXSetZstdStreams(true);
  std::string payload = SampleText(70000, 5);
  WriteThroughManager(Path("out.zst"), payload);
  EXPECT_EQ(Decoded(ReadFile(Path("out.zst"))), payload);
  EXPECT_EQ(ReadThroughManager(Path("out.zst")), payload);
  // The ending wins over a ".gz" earlier in the name.
  WriteThroughManager(Path("out.gz.zst"), payload);
  EXPECT_EQ(Decoded(ReadFile(Path("out.gz.zst"))), payload);
}

TEST_F(ZstdSwitchTest, OnOtherNamesAreWrittenAsBefore) {
  QXSetZstdStreams(true);
  WriteThroughManager(Path("out.zst.txt"), "plain");
  EXPECT_EQ(ReadFile(Path("out.zst.txt")), "plain");
  WriteThroughManager(Path("out.ZST"), "plain");
  EXPECT_EQ(ReadFile(Path("out.ZST")), "plain");
  std::string payload = SampleText(1000, 6);
  WriteThroughManager(Path("out.zst.gz"), payload);
  std::string packed = ReadFile(Path("out.zst.gz"));
  ASSERT_GE(packed.size(), 2u);
  EXPECT_EQ(packed.substr(0, 2), "\x1F\x8B");
  EXPECT_EQ(testing::ZlibGunzip(packed), payload);
}

TEST_F(ZstdSwitchTest, OnOpenInputAndOpenOutputNeverLookAtContent) {
  QXSetZstdStreams(true);
  std::string frame = Frame("abc");
  WriteFile(Path("raw.zst"), frame);
  qxistream* in = QXStreamMngr().openInput(Path("raw.zst").c_str());
  ASSERT_NE(in, nullptr);
  std::string all;
  in->read(all);
  delete in;
  EXPECT_EQ(all, frame);
  qxostream* out = QXStreamMngr().openOutput(Path("w.zst").c_str());
  ASSERT_NE(out, nullptr);
  out->write("plain", 5);
  out->close();
  delete out;
  EXPECT_EQ(ReadFile(Path("w.zst")), "plain");
}

TEST_F(ZstdSwitchTest, OffAgainAfterOnBehavesAsBefore) {
  std::string frame = Frame(SampleText(5000, 7));
  WriteFile(Path("data.zst"), frame);
  QXSetZstdStreams(true);
  EXPECT_NE(ReadThroughManager(Path("data.zst")), frame);
  QXSetZstdStreams(false);
  EXPECT_EQ(ReadThroughManager(Path("data.zst")), frame);
  WriteThroughManager(Path("out.zst"), "plain");
  EXPECT_EQ(ReadFile(Path("out.zst")), "plain");
}

TEST_F(ZstdSwitchTest, SwitchingWhileOtherThreadsOpenStreamsIsRaceFree) {
  std::string payload = SampleText(40000, 8);
  std::string frame = Frame(payload);
  WriteFile(Path("data.zst"), frame);
  std::atomic<bool> stop(false);
  std::atomic<int> unexpected(0);
  std::atomic<int> decoded(0);
  std::atomic<int> raw(0);
  std::thread toggler([&] {
    for (int i = 0; !stop.load(); ++i) {
      QXSetZstdStreams(i % 2 == 0);
    }
  });
  std::vector<std::thread> workers;
  for (int t = 0; t < 4; ++t) {
    workers.emplace_back([&, t] {
      std::string name = Path("w" + std::to_string(t) + ".zst");
      for (int i = 0; i < 60; ++i) {
        std::string got = ReadThroughManager(Path("data.zst"));
        if (got == payload) {
          ++decoded;
        } else if (got == frame) {
          ++raw;
        } else {
          ++unexpected;
        }
        WriteThroughManager(name, "line\n");
        std::string written = ReadFile(name);
        if (written != "line\n" && Decoded(written) != "line\n") {
          ++unexpected;
        }
      }
    });
  }
  for (std::thread& w : workers) {
    w.join();
  }
  stop = true;
  toggler.join();
  EXPECT_EQ(unexpected.load(), 0);
  EXPECT_EQ(decoded.load() + raw.load(), 240);
}

}  // namespace
}  // namespace QXPlatform
