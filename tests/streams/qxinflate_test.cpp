#include <dirent.h>
#include <errno.h>
#include <stdio.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <zlib.h>

#include "support/qxtest_gzip.h"
#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxcompress.h>
#include <QXPlatform/streams/qxinflate_private.h>

namespace QXPlatform {
namespace {

using testing::CaptureFd;
using testing::Crc32;
using testing::GzipHeader;
using testing::LittleEndian32;
using testing::MakeHeader;
using testing::MakeMember;
using testing::RandomBytes;
using testing::RawDeflate;
using testing::SampleText;

// What a call of QXUncompress leaves behind: result, bytes and messages.
struct Outcome {
  bool ok;
  int error;
  std::string out;
  std::string messages;
};

Outcome UncompressWith(QXInflateEngine engine, const std::string& gz) {
  QXInflateEngine old = QXInternalInflateEngine();
  QXInternalSelectInflateEngine(engine);
  Outcome o;
  o.out = "kept";
  CaptureFd err(2);
  o.error = -1;
  o.ok = QXUncompress(o.out, gz, "gz", &o.error);
  o.messages = err.Finish();
  QXInternalSelectInflateEngine(old);
  return o;
}

// Both engines give the same result, bytes and messages; returns zlib's.
Outcome UncompressBoth(const std::string& gz) {
  Outcome zlib = UncompressWith(QXInflateEngine::kZlib, gz);
  Outcome isal = UncompressWith(QXInflateEngine::kIsal, gz);
  EXPECT_EQ(isal.ok, zlib.ok);
  EXPECT_EQ(isal.error, zlib.error);
  EXPECT_EQ(isal.out, zlib.out);
  EXPECT_EQ(isal.messages, zlib.messages);
  return zlib;
}

// The fast path's own verdict; out keeps "kept" in front.
bool Whole(const std::string& gz, std::string* out) {
  *out = "kept";
  return QXInternalGunzipWholeMembers(gz.data(), gz.size(), *out);
}

// Deflate bits, least significant first; Huffman codes go most significant
// bit first, as the format wants.
class BitWriter {
 public:
  void Put(unsigned value, int n) {
    for (int i = 0; i < n; ++i) {
      _acc |= ((value >> i) & 1U) << _n;
      if (++_n == 8) {
        _out.push_back(static_cast<char>(_acc));
        _acc = 0;
        _n = 0;
      }
    }
  }
  void PutCode(unsigned code, int n) {
    for (int i = n - 1; i >= 0; --i) {
      Put((code >> i) & 1U, 1);
    }
  }
  std::string Done() {
    if (_n != 0) {
      _out.push_back(static_cast<char>(_acc));
    }
    return _out;
  }

 private:
  std::string _out;
  unsigned _acc = 0;
  int _n = 0;
};

std::vector<unsigned> Canonical(const std::vector<int>& lens) {
  std::vector<int> count(16, 0);
  for (int l : lens) {
    if (l != 0) {
      count[l]++;
    }
  }
  std::vector<unsigned> next(16, 0);
  unsigned code = 0;
  for (int b = 1; b < 16; ++b) {
    code = (code + count[b - 1]) << 1;
    next[b] = code;
  }
  std::vector<unsigned> codes(lens.size(), 0);
  for (size_t i = 0; i < lens.size(); ++i) {
    if (lens[i] != 0) {
      codes[i] = next[lens[i]]++;
    }
  }
  return codes;
}

// One final dynamic block with the given code lengths (code length code
// lengths, literal/length, distance) that spells the literals of text.
std::string DynamicBlock(const std::vector<int>& codeLens,
                         const std::vector<int>& lit,
                         const std::vector<int>& dist,
                         const std::string& text) {
  static const int kOrder[19] = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                 11, 4,  12, 3, 13, 2, 14, 1, 15};
  BitWriter b;
  b.Put(1, 1);
  b.Put(2, 2);
  b.Put(static_cast<unsigned>(lit.size() - 257), 5);
  b.Put(static_cast<unsigned>(dist.size() - 1), 5);
  b.Put(19 - 4, 4);
  for (int i = 0; i < 19; ++i) {
    b.Put(static_cast<unsigned>(codeLens[kOrder[i]]), 3);
  }
  std::vector<unsigned> cc = Canonical(codeLens);
  for (int l : lit) {
    b.PutCode(cc[l], codeLens[l]);
  }
  for (int l : dist) {
    b.PutCode(cc[l], codeLens[l]);
  }
  std::vector<unsigned> lc = Canonical(lit);
  for (unsigned char c : text) {
    b.PutCode(lc[c], lit[c]);
  }
  b.PutCode(lc[256], lit[256]);
  return b.Done();
}

// A complete code length code: 13 codes of 4 bits and 6 of 5.
std::vector<int> CompleteCodeLens() {
  std::vector<int> lens(19, 5);
  for (int i = 0; i < 13; ++i) {
    lens[i] = 4;
  }
  return lens;
}

// Literals 'a' to 'g' and the end code, 3 bits each: complete.
std::vector<int> CompleteLiterals() {
  std::vector<int> lit(257, 0);
  for (int c = 'a'; c < 'a' + 7; ++c) {
    lit[c] = 3;
  }
  lit[256] = 3;
  return lit;
}

std::string MemberAround(const std::string& deflate, const std::string& text) {
  return MakeHeader(GzipHeader()) + deflate + LittleEndian32(Crc32(text)) +
         LittleEndian32(static_cast<uint32_t>(text.size()));
}

TEST(QXInflateTest, IsalIsTheDefaultWhenBuiltIn) {
  EXPECT_EQ(QXInternalInflateEngine(), QXInternalIsalBuiltIn()
                                           ? QXInflateEngine::kIsal
                                           : QXInflateEngine::kZlib);
}

TEST(QXInflateTest, SelectingIsalWithoutItGivesZlib) {
  QXInflateEngine got = QXInternalSelectInflateEngine(QXInflateEngine::kIsal);
  EXPECT_EQ(got, QXInternalIsalBuiltIn() ? QXInflateEngine::kIsal
                                         : QXInflateEngine::kZlib);
  EXPECT_EQ(QXInternalInflateEngine(), got);
  EXPECT_EQ(QXInternalSelectInflateEngine(QXInflateEngine::kZlib),
            QXInflateEngine::kZlib);
  std::string out;
  EXPECT_FALSE(Whole(MakeMember("with zlib selected"), &out));
  EXPECT_EQ(out, "kept");
  QXInternalSelectInflateEngine(QXInflateEngine::kIsal);
}

TEST(QXInflateTest, WholeMembersOfEveryLevelUnpackToThePayload) {
  if (!QXInternalIsalBuiltIn()) {
    GTEST_SKIP() << "built without ISA-L";
  }
  const size_t sizes[] = {0, 1, 1000, 32767, 32768, 32769, 65536, 300001};
  for (size_t n : sizes) {
    for (int level = 0; level <= 9; ++level) {
      std::string payload = level % 2 == 0
                                ? SampleText(n, static_cast<unsigned>(n))
                                : RandomBytes(n, static_cast<unsigned>(level));
      std::string out;
      ASSERT_TRUE(Whole(MakeMember(payload, GzipHeader(), level), &out))
          << n << " bytes at level " << level;
      EXPECT_EQ(out, "kept" + payload);
    }
  }
}

TEST(QXInflateTest, ConcatenatedMembersAndOptionalHeaderFieldsAreTaken) {
  if (!QXInternalIsalBuiltIn()) {
    GTEST_SKIP() << "built without ISA-L";
  }
  GzipHeader all;
  all.useExtra = true;
  all.extra = std::string("ab\0cd", 5);
  all.useName = true;
  all.name = "name.txt";
  all.useComment = true;
  all.comment = "a comment";
  all.useHeaderCrc = true;
  std::string first = SampleText(70000, 1);
  std::string second = SampleText(5, 2);
  std::string gz = MakeMember(first, all) + MakeMember("") +
                   MakeMember(second, GzipHeader(), 1);
  std::string out;
  ASSERT_TRUE(Whole(gz, &out));
  EXPECT_EQ(out, "kept" + first + second);
}

TEST(QXInflateTest, AnythingButWholeValidMembersIsLeftToTheStream) {
  std::string member = MakeMember(SampleText(3000, 3));
  std::string badCrc = member;
  badCrc[badCrc.size() - 8] ^= 1;
  std::string badLength = member;
  badLength[badLength.size() - 4] ^= 1;
  std::string reserved = member;
  reserved[3] = 0x20;
  std::string method = member;
  method[2] = 7;
  std::vector<std::string> refused = {
      "",     "plain text", member + "x", member + member.substr(0, 2),
      badCrc, reserved,     method,       "\x1f\x8b"};
  for (size_t cut = 0; cut < member.size(); ++cut) {
    refused.push_back(member.substr(0, cut));
  }
  for (const std::string& gz : refused) {
    std::string out;
    EXPECT_FALSE(Whole(gz, &out)) << gz.size();
    EXPECT_EQ(out, "kept");
  }
}

// ISA-L decodes these streams; zlib refuses their code sets, so the result
// must be zlib's refusal.
TEST(QXInflateTest, CodeSetsZlibRefusesGiveZlibsResult) {
  const std::string text = "abcdefgabc";
  std::vector<int> lit = CompleteLiterals();
  std::vector<int> oneDist = {1};

  std::vector<int> incompleteLit = lit;
  incompleteLit['g'] = 0;
  std::vector<int> incompleteCodes = CompleteCodeLens();
  incompleteCodes[18] = 0;
  std::vector<int> incompleteDist = {2, 2, 2, 0};

  struct Case {
    std::string deflate;
    std::string text;
    const char* message;
  };
  const Case cases[] = {
      {DynamicBlock(CompleteCodeLens(), incompleteLit, oneDist, "abcdef"),
       "abcdef", "qxigzstream fill error: invalid literal/lengths set\n"},
      {DynamicBlock(incompleteCodes, lit, oneDist, text), text,
       "qxigzstream fill error: invalid code lengths set\n"},
      {DynamicBlock(CompleteCodeLens(), lit, incompleteDist, text), text,
       "qxigzstream fill error: invalid distances set\n"},
  };
  for (const Case& c : cases) {
    std::string gz = MemberAround(c.deflate, c.text);
    std::string out;
    EXPECT_FALSE(Whole(gz, &out));
    EXPECT_EQ(out, "kept");
    Outcome o = UncompressBoth(gz);
    EXPECT_TRUE(o.ok);
    EXPECT_EQ(o.error, EBADMSG);
    EXPECT_EQ(o.out, "kept");
    EXPECT_EQ(o.messages, c.message);
  }
  // The same block with complete sets, or with no distance code at all
  // (zlib takes that while no distance is used), is taken by both.
  for (const std::vector<int>& dist : {oneDist, std::vector<int>{0}}) {
    std::string good =
        MemberAround(DynamicBlock(CompleteCodeLens(), lit, dist, text), text);
    Outcome o = UncompressBoth(good);
    EXPECT_EQ(o.error, 0);
    EXPECT_EQ(o.out, "kept" + text);
    EXPECT_EQ(o.messages, "");
    if (QXInternalIsalBuiltIn()) {
      std::string out;
      EXPECT_TRUE(Whole(good, &out));
    }
  }
}

TEST(QXInflateTest, DamagedAndCutMembersGiveTheSameResultWithBothEngines) {
  std::string payload = SampleText(100000, 7);
  std::string member = MakeMember(payload);
  for (size_t at = 0; at < member.size(); at += 997) {
    std::string flipped = member;
    flipped[at] ^= 0x10;
    UncompressBoth(flipped);
    UncompressBoth(member.substr(0, at));
    UncompressBoth(member + member.substr(0, at));
  }
}

// The files of the installed documentation: many compressors, levels and
// sizes. Each reads the same through both engines and as gzip itself
// gives it.
TEST(QXInflateTest, DocumentationFilesReadAsGzipGivesThem) {
  std::vector<std::string> files;
  std::vector<std::string> dirs = {"/usr/share/doc"};
  while (!dirs.empty()) {
    std::string dir = dirs.back();
    dirs.pop_back();
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) {
      continue;
    }
    while (struct dirent* e = readdir(d)) {
      std::string name = e->d_name;
      if (name == "." || name == "..") {
        continue;
      }
      std::string path = dir + "/" + name;
      struct stat st;
      if (lstat(path.c_str(), &st) != 0) {
        continue;
      }
      if (S_ISDIR(st.st_mode)) {
        dirs.push_back(path);
      } else if (S_ISREG(st.st_mode) && name.size() > 3 &&
                 name.compare(name.size() - 3, 3, ".gz") == 0) {
        files.push_back(path);
      }
    }
    closedir(d);
  }
  if (files.empty()) {
    GTEST_SKIP() << "no .gz files under /usr/share/doc";
  }
  size_t fast = 0;
  for (const std::string& path : files) {
    std::string gz = testing::ReadFile(path);
    std::string expected;
    ASSERT_EQ(testing::RunCommand("gzip -dc '" + path + "'", &expected), 0)
        << path;
    Outcome o = UncompressBoth(gz);
    EXPECT_TRUE(o.ok) << path;
    EXPECT_EQ(o.error, 0) << path;
    EXPECT_EQ(o.out, "kept" + expected) << path;
    EXPECT_EQ(o.messages, "") << path;
    std::string out;
    if (Whole(gz, &out)) {
      ++fast;
    }
  }
  // Every one of them is whole and valid, so ISA-L decodes them all.
  EXPECT_EQ(fast, QXInternalIsalBuiltIn() ? files.size() : 0U);
}

}  // namespace
}  // namespace QXPlatform
