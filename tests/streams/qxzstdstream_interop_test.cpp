// Zstandard data exchanged with the zstd command-line tool, both ways: frames
// of every shape it writes are read by qxizstdstream and QXOpenIStream, and
// what qxozstdstream writes is accepted and unpacked by it.

#include <errno.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_gzip.h"
#include "support/qxtest_streams.h"
#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxfstream.h>
#include <QXPlatform/streams/qxsstream.h>
#include <QXPlatform/streams/qxstreammngr.h>
#include <QXPlatform/streams/qxzstdstream.h>

namespace QXPlatform {
namespace {

using testing::RandomBytes;
using testing::ReadFile;
using testing::ReadThroughManager;
using testing::RunCommand;
using testing::SampleText;
using testing::ScratchDir;
using testing::Shell;
using testing::WriteFile;

const char* const kTruncated = "unexpected end of file";
const char* const kCrcError = "invalid compressed data--crc error";

struct Payload {
  std::string name;
  std::string bytes;
};

std::vector<Payload> Payloads() {
  return {{"empty", ""},
          {"one", "x"},
          {"text", SampleText(300000, 1)},
          {"edge", SampleText(32768, 2)},
          {"noise", RandomBytes(1 << 20, 3)}};
}

// Everything qxizstdstream delivers from the file; error receives its error().
std::string ReadZstdFile(const std::string& path, int* error = nullptr) {
  qxizstdstream z(new qxifstream(path.c_str()), true);
  std::string all;
  z.read(all);
  if (error != nullptr) {
    *error = z.error();
  }
  return all;
}

// A skippable frame, as its bytes: magic 0x184D2A5?, length, content.
std::string Skippable(const std::string& content) {
  return std::string("\x53\x2A\x4D\x18", 4) +
         testing::LittleEndian32(static_cast<uint32_t>(content.size())) +
         content;
}

class ZstdInteropTest : public ::testing::Test {
 protected:
  void SetUp() override { QXSetZstdStreams(true); }
  void TearDown() override { QXSetZstdStreams(false); }
  std::string Path(const std::string& name) { return dir.File(name); }
  ScratchDir dir;
};

TEST_F(ZstdInteropTest, ReadsWhatTheCliWritesInEveryShape) {
  // Default (checksum, content size), no checksum, no content size (from a
  // pipe), two threads, a long window, a high and a negative level.
  const char* const kShapes[] = {"zstd -q -c %s",
                                 "zstd -q -c --no-check %s",
                                 "cat %s | zstd -q -c",
                                 "cat %s | zstd -q -c --no-check",
                                 "zstd -q -c -T2 -B1MiB %s",
                                 "zstd -q -c --long %s",
                                 "zstd -q -c -19 %s",
                                 "zstd -q -c --fast=5 %s"};
  for (const Payload& p : Payloads()) {
    std::string plain = Path(p.name);
    WriteFile(plain, p.bytes);
    for (const char* shape : kShapes) {
      std::string command(shape);
      command.replace(command.find("%s"), 2, "'" + plain + "'");
      std::string packed = Path(p.name + ".zst");
      Shell(command + " > '" + packed + "'");
      int error = -1;
      EXPECT_EQ(ReadZstdFile(packed, &error), p.bytes)
          << p.name << ": " << command;
      EXPECT_EQ(error, 0) << p.name << ": " << command;
      if (!p.bytes.empty()) {
        EXPECT_EQ(ReadThroughManager(packed), p.bytes)
            << p.name << ": " << command;
      }
    }
  }
}

TEST_F(ZstdInteropTest, ThreadedCliOutputOfSeveralJobsReads) {
  std::string payload = SampleText(6 << 20, 4);
  WriteFile(Path("big"), payload);
  Shell("zstd -q -T2 -B1MiB -c '" + Path("big") + "' > '" + Path("big.zst") +
        "'");
  EXPECT_EQ(ReadThroughManager(Path("big.zst")), payload);
}

TEST_F(ZstdInteropTest, ConcatenatedFilesReadAsOne) {
  std::string a = SampleText(50000, 5);
  std::string b = RandomBytes(40000, 6);
  WriteFile(Path("a"), a);
  WriteFile(Path("b"), b);
  Shell("zstd -q -c '" + Path("a") + "' > '" + Path("a.zst") + "'");
  Shell("zstd -q -c --no-check '" + Path("b") + "' > '" + Path("b.zst") + "'");
  Shell("cat '" + Path("a.zst") + "' '" + Path("b.zst") + "' > '" +
        Path("ab.zst") + "'");
  EXPECT_EQ(ReadThroughManager(Path("ab.zst")), a + b);
  EXPECT_EQ(Shell("zstd -q -dc '" + Path("ab.zst") + "'"), a + b);
}

TEST_F(ZstdInteropTest, SkippableFramesAreSkippedAsTheCliSkipsThem) {
  std::string a = SampleText(20000, 7);
  WriteFile(Path("a"), a);
  Shell("zstd -q -c '" + Path("a") + "' > '" + Path("a.zst") + "'");
  std::string frame = ReadFile(Path("a.zst"));
  std::string data =
      Skippable("meta") + frame + Skippable(std::string(50000, 'z')) + frame;
  WriteFile(Path("skip.zst"), data);
  EXPECT_EQ(Shell("zstd -q -dc '" + Path("skip.zst") + "'"), a + a);
  EXPECT_EQ(ReadThroughManager(Path("skip.zst")), a + a);
}

TEST_F(ZstdInteropTest, CliUnpacksWhatTheStreamWrites) {
  for (const Payload& p : Payloads()) {
    for (int level : {1, 3, 19, -5}) {
      for (unsigned workers : {0u, 2u}) {
        std::string packed = Path(p.name + ".zst");
        {
          qxozstdstream z(new qxofstream(packed.c_str()), true, level, workers);
          ASSERT_EQ(z.write(p.bytes.data(), p.bytes.size()), p.bytes.size());
          ASSERT_TRUE(z.close());
          ASSERT_EQ(z.error(), 0);
        }
        std::string where = p.name + " level " + std::to_string(level) +
                            " workers " + std::to_string(workers);
        EXPECT_EQ(RunCommand("zstd -q -t '" + packed + "'"), 0) << where;
        EXPECT_EQ(Shell("zstd -q -dc '" + packed + "'"), p.bytes) << where;
        std::string list;
        RunCommand("zstd -lv '" + packed + "' 2>&1", &list);
        EXPECT_NE(list.find("Check: XXH64"), std::string::npos) << where;
      }
    }
  }
}

TEST_F(ZstdInteropTest, ManagerWritesZstNamesTheCliUnpacks) {
  std::string payload = SampleText(100000, 8);
  qxostream* out = QXOpenOStream(Path("out.zst").c_str());
  ASSERT_NE(out, nullptr);
  ASSERT_EQ(out->write(payload.data(), payload.size()), payload.size());
  QXCloseOStream(out);
  EXPECT_EQ(Shell("zstd -q -dc '" + Path("out.zst") + "'"), payload);
}

TEST_F(ZstdInteropTest, EveryCutOfASmallFileReportsUnexpectedEnd) {
  std::string a = SampleText(3000, 9);
  std::string b = "second frame";
  WriteFile(Path("a"), a);
  WriteFile(Path("b"), b);
  Shell("zstd -q -c '" + Path("a") + "' > '" + Path("a.zst") + "'");
  Shell("zstd -q -c --no-check '" + Path("b") + "' > '" + Path("b.zst") + "'");
  std::string first = ReadFile(Path("a.zst"));
  std::string whole = first + Skippable("note") + ReadFile(Path("b.zst"));
  std::string expected = a + b;
  // The ends of the frames are the only places where nothing is missing.
  size_t ends[] = {first.size(), first.size() + 12, whole.size()};
  for (size_t cut = 1; cut < whole.size(); ++cut) {
    if (cut == ends[0] || cut == ends[1]) {
      continue;
    }
    WriteFile(Path("cut.zst"), whole.substr(0, cut));
    qxizstdstream z(new qxifstream(Path("cut.zst").c_str()), true);
    std::string got;
    z.read(got);
    EXPECT_EQ(z.error(), EBADMSG) << cut;
    EXPECT_STREQ(z.errortext(), kTruncated) << cut;
    EXPECT_EQ(got, expected.substr(0, got.size())) << cut;
    if (cut % 97 == 0) {
      // The tool agrees that the file is damaged.
      EXPECT_NE(RunCommand("zstd -q -t '" + Path("cut.zst") + "' 2>/dev/null"),
                0)
          << cut;
    }
  }
}

TEST_F(ZstdInteropTest, FlippedChecksumByteReportsCrcError) {
  std::string a = SampleText(10000, 10);
  WriteFile(Path("a"), a);
  Shell("zstd -q -c '" + Path("a") + "' > '" + Path("a.zst") + "'");
  std::string packed = ReadFile(Path("a.zst"));
  for (size_t back = 1; back <= 4; ++back) {
    std::string damaged = packed;
    damaged[damaged.size() - back] ^= 0x20;
    WriteFile(Path("bad.zst"), damaged);
    EXPECT_NE(RunCommand("zstd -q -t '" + Path("bad.zst") + "' 2>/dev/null"),
              0);
    int error = 0;
    std::string got = ReadZstdFile(Path("bad.zst"), &error);
    EXPECT_EQ(error, EBADMSG) << back;
    qxizstdstream z(new qxifstream(Path("bad.zst").c_str()), true);
    z.read(got);
    EXPECT_STREQ(z.errortext(), kCrcError) << back;
    EXPECT_EQ(got, a.substr(0, got.size()));
  }
}

}  // namespace
}  // namespace QXPlatform
