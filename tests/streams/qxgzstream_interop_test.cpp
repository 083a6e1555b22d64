// Gzip and zstd data exchanged with tools written elsewhere: gzip, pigz,
// zcat, zstd and Python's gzip module.

#include <dirent.h>
#include <sys/stat.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_gzip.h"
#include "support/qxtest_streams.h"
#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxcompress.h>
#include <QXPlatform/streams/qxgzstream.h>
#include <QXPlatform/streams/qxsstream.h>
#include <QXPlatform/streams/qxstreammngr.h>

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
using testing::WriteThroughManager;

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

class InteropTest : public ::testing::Test {
 protected:
  std::string Path(const std::string& name) { return dir.File(name); }
  ScratchDir dir;
};

using qxogzstreamInteropTest = InteropTest;
using qxigzstreamInteropTest = InteropTest;
using QXCompressInteropTest = InteropTest;

// ---------------------------------------------------------------------------
// What we write, others read

TEST_F(qxogzstreamInteropTest, GzipPigzAndPythonReadWhatTheManagerWrites) {
  for (const Payload& p : Payloads()) {
    std::string file = Path(p.name + ".gz");
    WriteThroughManager(file, p.bytes);
    EXPECT_EQ(Shell("gzip -d -c '" + file + "'"), p.bytes) << p.name;
    EXPECT_EQ(Shell("pigz -d -c '" + file + "'"), p.bytes) << p.name;
    EXPECT_EQ(Shell("python3 -c \"import gzip,sys; "
                    "sys.stdout.buffer.write(gzip.decompress("
                    "open(sys.argv[1],'rb').read()))\" '" +
                    file + "'"),
              p.bytes)
        << p.name;
    EXPECT_EQ(Shell("gzip -t '" + file + "' && echo ok"), "ok\n") << p.name;
  }
}

TEST_F(qxogzstreamInteropTest, GzipReadsWhatQXCompressMakes) {
  for (const Payload& p : Payloads()) {
    std::string packed;
    ASSERT_TRUE(QXCompress(packed, p.bytes, "gz"));
    std::string file = Path(p.name + ".buf.gz");
    WriteFile(file, packed);
    EXPECT_EQ(Shell("gzip -d -c '" + file + "'"), p.bytes) << p.name;
    EXPECT_EQ(Shell("pigz -d -c '" + file + "'"), p.bytes) << p.name;
  }
}

// ---------------------------------------------------------------------------
// What others write, we read

TEST_F(qxigzstreamInteropTest, ReadsGzipAtTheFastestAndBestLevels) {
  for (const Payload& p : Payloads()) {
    WriteFile(Path(p.name), p.bytes);
    for (const char* level : {"-1", "-9"}) {
      std::string file = Path(p.name + level + ".gz");
      Shell(std::string("gzip ") + level + " -c '" + Path(p.name) + "' > '" +
            file + "'");
      EXPECT_EQ(ReadThroughManager(file), p.bytes) << p.name << level;
    }
  }
}

TEST_F(qxigzstreamInteropTest, ReadsPigzOutput) {
  for (const Payload& p : Payloads()) {
    WriteFile(Path(p.name), p.bytes);
    std::string file = Path(p.name + ".pigz.gz");
    Shell("pigz -p 2 -b 128 -c '" + Path(p.name) + "' > '" + file + "'");
    EXPECT_EQ(ReadThroughManager(file), p.bytes) << p.name;
  }
}

TEST_F(qxigzstreamInteropTest, ReadsPythonOutputWithAFileNameAndTime) {
  std::string data = SampleText(100000, 4);
  WriteFile(Path("src"), data);
  std::string file = Path("py.gz");
  Shell(
      "python3 -c \"import gzip,sys\n"
      "data = open(sys.argv[1],'rb').read()\n"
      "with open(sys.argv[2],'wb') as raw:\n"
      "    with gzip.GzipFile(filename='original-name.txt', mode='wb', "
      "fileobj=raw, mtime=1234567890) as g:\n"
      "        g.write(data)\n\" '" +
      Path("src") + "' '" + file + "'");
  std::string packed = ReadFile(file);
  ASSERT_GT(packed.size(), 30u);
  // FNAME is set and the time stored.
  EXPECT_EQ(packed[3] & 0x08, 0x08);
  EXPECT_EQ(ReadThroughManager(file), data);
}

TEST_F(qxigzstreamInteropTest, ReadsAHandMadeHeaderWithEveryOptionalField) {
  std::string data = SampleText(40000, 5);
  WriteFile(Path("src"), data);
  std::string file = Path("hand.gz");
  // FHCRC | FEXTRA | FNAME | FCOMMENT, header CRC over the header so far.
  Shell(
      "python3 -c \"import sys,struct,zlib\n"
      "data = open(sys.argv[1],'rb').read()\n"
      "extra = b'QX' + struct.pack('<H', 5) + b'hello'\n"
      "h = b'\\x1f\\x8b\\x08' + bytes([0x02|0x04|0x08|0x10])\n"
      "h += struct.pack('<I', 987654321) + b'\\x00\\x03'\n"
      "h += struct.pack('<H', len(extra)) + extra\n"
      "h += b'name.txt\\x00' + b'a comment\\x00'\n"
      "h += struct.pack('<H', zlib.crc32(h) & 0xffff)\n"
      "c = zlib.compressobj(6, zlib.DEFLATED, -15)\n"
      "body = c.compress(data) + c.flush()\n"
      "t = struct.pack('<II', zlib.crc32(data), len(data) & 0xffffffff)\n"
      "open(sys.argv[2],'wb').write(h + body + t)\n\" '" +
      Path("src") + "' '" + file + "'");
  // The hand-made member is valid gzip for gzip itself too.
  EXPECT_EQ(Shell("gzip -d -c '" + file + "'"), data);
  EXPECT_EQ(ReadThroughManager(file), data);
}

TEST_F(qxigzstreamInteropTest, ReadsConcatenatedGzipFiles) {
  std::string a = SampleText(70000, 6);
  std::string b = RandomBytes(50000, 7);
  WriteFile(Path("a"), a);
  WriteFile(Path("b"), b);
  Shell("gzip -c '" + Path("a") + "' > '" + Path("a.gz") + "'");
  Shell("gzip -c '" + Path("b") + "' > '" + Path("b.gz") + "'");
  Shell("cat '" + Path("a.gz") + "' '" + Path("b.gz") + "' > '" +
        Path("ab.gz") + "'");
  EXPECT_EQ(ReadThroughManager(Path("ab.gz")), a + b);
  EXPECT_EQ(Shell("zcat '" + Path("ab.gz") + "'"), a + b);
}

TEST_F(qxigzstreamInteropTest, ReadsAGzipFileFollowedByPlainText) {
  std::string data = SampleText(60000, 8);
  WriteFile(Path("d"), data);
  Shell("gzip -c '" + Path("d") + "' > '" + Path("d.gz") + "'");
  Shell("printf 'plain trailing text\\n' >> '" + Path("d.gz") + "'");
  EXPECT_EQ(ReadThroughManager(Path("d.gz")), data + "plain trailing text\n");
}

TEST_F(qxigzstreamInteropTest, EveryGzFileUnderUsrShareDocReadsAsZcatGivesIt) {
  std::vector<std::string> files;
  std::function<void(const std::string&)> walk = [&](const std::string& path) {
    DIR* d = opendir(path.c_str());
    if (d == nullptr) {
      return;
    }
    while (struct dirent* e = readdir(d)) {
      std::string name = e->d_name;
      if (name == "." || name == "..") {
        continue;
      }
      std::string full = path + "/" + name;
      struct stat st;
      if (lstat(full.c_str(), &st) != 0) {
        continue;
      }
      if (S_ISDIR(st.st_mode)) {
        walk(full);
      } else if (name.size() > 3 &&
                 name.compare(name.size() - 3, 3, ".gz") == 0 &&
                 full.find('\'') == std::string::npos) {
        files.push_back(full);
      }
    }
    closedir(d);
  };
  walk("/usr/share/doc");
  if (files.empty()) {
    GTEST_SKIP() << "no .gz files under /usr/share/doc";
  }
  size_t compared = 0;
  for (const std::string& file : files) {
    std::string expected;
    int status = RunCommand("zcat '" + file + "' 2>/dev/null", &expected);
    if (status != 0) {
      // A dangling link: neither side can read it.
      EXPECT_EQ(ReadThroughManager(file), "<null>") << file;
      continue;
    }
    EXPECT_EQ(ReadThroughManager(file), expected) << file;
    ++compared;
  }
  EXPECT_GT(compared, 0u);
  std::printf("compared %zu of %zu files\n", compared, files.size());
}

// ---------------------------------------------------------------------------
// zstd frames both ways

TEST_F(QXCompressInteropTest, ZstdToolReadsOurFrames) {
  for (const Payload& p : Payloads()) {
    std::string packed;
    ASSERT_TRUE(QXCompress(packed, p.bytes, "zstd"));
    std::string file = Path(p.name + ".zst");
    WriteFile(file, packed);
    EXPECT_EQ(Shell("zstd -q -d -c '" + file + "'"), p.bytes) << p.name;
  }
}

TEST_F(QXCompressInteropTest, WeReadTheZstdToolsFrames) {
  for (const Payload& p : Payloads()) {
    WriteFile(Path(p.name), p.bytes);
    for (const char* options : {"-1", "-7", "-19", "-3 --no-check"}) {
      std::string file = Path(p.name + ".zst");
      Shell(std::string("zstd -q -f ") + options + " -c '" + Path(p.name) +
            "' > '" + file + "'");
      std::string packed = ReadFile(file);
      std::string out;
      EXPECT_TRUE(QXUncompress(out, packed, "zstd")) << p.name << options;
      EXPECT_EQ(out, p.bytes) << p.name << options;
    }
  }
}

}  // namespace
}  // namespace QXPlatform
