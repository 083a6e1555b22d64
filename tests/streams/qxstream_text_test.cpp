// Words, exact floating-point text and the widest integers written and read
// as text.

#include <errno.h>
#include <limits.h>
#include <stdio.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

// An input stream that hands out its text in spans of chunk bytes, so words
// cross span edges.
class ChunkedIStream : public qxistream {
 public:
  ChunkedIStream(std::string text, size_t chunk)
      : _text(std::move(text)), _chunk(chunk), _at(0) {
    _ptr = _end = _buffer;
    _eof = false;
  }

 protected:
  bool _qxfill() override {
    if (_at >= _text.size()) {
      _eof = true;
      return false;
    }
    size_t n = std::min(_chunk, _text.size() - _at);
    std::memcpy(_buffer, _text.data() + _at, n);
    _at += n;
    _ptr = _buffer;
    _end = _buffer + n;
    return true;
  }

 private:
  std::string _text;
  size_t _chunk;
  size_t _at;
};

std::vector<std::string> Words(qxistream& in) {
  std::vector<std::string> words;
  std::string word = "stale";
  for (;;) {
    in >> qxword(word);
    if (word.empty()) {
      break;
    }
    words.push_back(word);
  }
  return words;
}

std::vector<std::string> StandardWords(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> words;
  std::string word;
  while (in >> word) {
    words.push_back(word);
  }
  return words;
}

TEST(qxwordTest, ReadsOneWordAndLeavesTheWhitespaceAfterIt) {
  std::string text = "  \t\none two\n";
  qxistream in;
  in.open(reinterpret_cast<unsigned char*>(&text[0]), text.size());
  std::string word;
  in >> qxword(word);
  EXPECT_EQ(word, "one");
  char next = 0;
  in >> next;
  EXPECT_EQ(next, ' ');
  in >> qxword(word);
  EXPECT_EQ(word, "two");
  in >> qxword(word);
  EXPECT_EQ(word, "");
  in >> qxword(word);
  EXPECT_EQ(word, "");
}

TEST(qxwordTest, EmptyAndBlankInputGiveNoWord) {
  for (std::string text : {std::string(""), std::string(" \t\n\v\f\r ")}) {
    ChunkedIStream in(text, 3);
    std::string word = "stale";
    in >> qxword(word);
    EXPECT_EQ(word, "") << "for <" << text << ">";
  }
}

TEST(qxwordTest, ChainsAndKeepsNulAndHighBytes) {
  std::string text("a\0b \xC3\xA9t\xE9 c", 10);
  ChunkedIStream in(text, 2);
  std::string a, b, c;
  in >> qxword(a) >> qxword(b) >> qxword(c);
  EXPECT_EQ(a, std::string("a\0b", 3));
  EXPECT_EQ(b, "\xC3\xA9t\xE9");
  EXPECT_EQ(c, "c");
}

TEST(qxwordTest, AgreesWithTheStandardStreamOnRandomWhitespaceMixes) {
  std::mt19937 random(20261123);
  const char kSpaces[] = " \t\n\v\f\r";
  for (int round = 0; round < 300; ++round) {
    std::string text;
    size_t length = random() % 300;
    for (size_t i = 0; i < length; ++i) {
      unsigned pick = random() % 4;
      if (pick == 0) {
        text += kSpaces[random() % 6];
      } else if (pick == 1) {
        text += static_cast<char>(random() % 256);
      } else {
        text += static_cast<char>('a' + random() % 26);
      }
    }
    // Long words cross span edges of every size.
    if (round % 10 == 0) {
      text += std::string(40000 + random() % 40000, 'w');
    }
    size_t chunk = 1 + random() % 64;
    if (round % 7 == 0) {
      chunk = qxstream::kBlockSize;
    }
    ChunkedIStream in(text, chunk);
    EXPECT_EQ(Words(in), StandardWords(text)) << "round " << round;
  }
}

TEST(qxwordTest, WhitespaceIsTheSameInEveryLocale) {
  // 0xA0 is a space in some single-byte locales; a word keeps it.
  std::string text =
      "a\xA0"
      "b c";
  ChunkedIStream in(text, 4);
  std::vector<std::string> expected = {
      "a\xA0"
      "b",
      "c"};
  EXPECT_EQ(Words(in), expected);
}

template <typename T>
std::string Exact(T value) {
  qxosstream out;
  out << qxexact(value);
  return out.str();
}

TEST(qxexactTest, WritesTheShortestTextThatReadsBack) {
  EXPECT_EQ(Exact(0.1), "0.1");
  EXPECT_EQ(Exact(1e-10), "1e-10");
  EXPECT_EQ(Exact(123456789.0), "123456789");
  EXPECT_EQ(Exact(-0.0), "-0");
  EXPECT_EQ(Exact(0.0), "0");
  EXPECT_EQ(Exact(DBL_MAX), "1.7976931348623157e+308");
  EXPECT_EQ(Exact(DBL_MIN), "2.2250738585072014e-308");
  EXPECT_EQ(Exact(1.0 / 3), "0.3333333333333333");
  EXPECT_EQ(Exact(0.1f), "0.1");
  EXPECT_EQ(Exact(1.0f / 3), "0.33333334");
  EXPECT_EQ(Exact(FLT_MAX), "3.4028235e+38");
  EXPECT_EQ(Exact(std::numeric_limits<float>::denorm_min()), "1e-45");
  EXPECT_EQ(Exact(std::numeric_limits<double>::infinity()), "inf");
  EXPECT_EQ(Exact(-std::numeric_limits<double>::infinity()), "-inf");
  EXPECT_EQ(Exact(std::numeric_limits<double>::quiet_NaN()), "nan");
  EXPECT_EQ(Exact(-std::numeric_limits<double>::quiet_NaN()), "-nan");
  EXPECT_EQ(Exact(-std::numeric_limits<float>::infinity()), "-inf");
}

TEST(qxexactTest, SubnormalDoublesAreWrittenInExactHexadecimal) {
  EXPECT_EQ(Exact(std::numeric_limits<double>::denorm_min()),
            "0x0.0000000000001p-1022");
  EXPECT_EQ(Exact(-std::numeric_limits<double>::denorm_min()),
            "-0x0.0000000000001p-1022");
  EXPECT_EQ(Exact(std::nextafter(DBL_MIN, 0.0)), "0x0.fffffffffffffp-1022");
}

template <typename T>
T ReadBack(const std::string& text) {
  std::string copy = text + " ";
  qxistream in;
  in.open(reinterpret_cast<unsigned char*>(&copy[0]), copy.size());
  T value = 42;
  errno = 0;
  in >> value;
  return value;
}

bool SameValue(double a, double b) {
  if (std::isnan(a) || std::isnan(b)) {
    return std::isnan(a) && std::isnan(b) && std::signbit(a) == std::signbit(b);
  }
  return a == b && std::signbit(a) == std::signbit(b);
}

TEST(qxexactTest, FloatWhoseShortestTextNarrowsWrongGetsTheDoubleText) {
  // Its shortest float text, 7.038531e-26, reads as a double that narrows
  // to the next float up.
  uint32_t bits = 0x15ae43fd;
  float value;
  std::memcpy(&value, &bits, sizeof value);
  ASSERT_NE(static_cast<float>(std::strtod("7.038531e-26", nullptr)), value);
  EXPECT_EQ(Exact(value), "7.038530691851209e-26");
  EXPECT_EQ(Exact(-value), "-7.038530691851209e-26");
  EXPECT_EQ(ReadBack<float>(Exact(value)), value);
  EXPECT_EQ(ReadBack<float>(Exact(-value)), -value);
}

TEST(qxexactTest, SpecialValuesReadBack) {
  const double kDoubles[] = {0.0,
                             -0.0,
                             DBL_MAX,
                             -DBL_MAX,
                             DBL_MIN,
                             std::numeric_limits<double>::denorm_min(),
                             -std::numeric_limits<double>::denorm_min(),
                             std::nextafter(DBL_MIN, 0.0),
                             std::numeric_limits<double>::infinity(),
                             -std::numeric_limits<double>::infinity(),
                             std::numeric_limits<double>::quiet_NaN(),
                             -std::numeric_limits<double>::quiet_NaN(),
                             1e22,
                             1e23,
                             5e-324 * 3,
                             9007199254740993.0,
                             0.1,
                             -2.5};
  for (double value : kDoubles) {
    std::string text = Exact(value);
    EXPECT_TRUE(SameValue(ReadBack<double>(text), value)) << text;
  }
  const float kFloats[] = {0.0f,
                           -0.0f,
                           FLT_MAX,
                           FLT_MIN,
                           std::numeric_limits<float>::denorm_min(),
                           std::numeric_limits<float>::infinity(),
                           std::numeric_limits<float>::quiet_NaN(),
                           -std::numeric_limits<float>::quiet_NaN(),
                           16777217.0f,
                           0.1f};
  for (float value : kFloats) {
    std::string text = Exact(value);
    EXPECT_TRUE(SameValue(ReadBack<float>(text), value)) << text;
  }
}

TEST(qxexactTest, RandomDoublesAndFloatsReadBack) {
  std::mt19937_64 random(1123);
  for (int i = 0; i < 200000; ++i) {
    uint64_t bits = random();
    double value;
    std::memcpy(&value, &bits, sizeof value);
    std::string text = Exact(value);
    ASSERT_TRUE(SameValue(ReadBack<double>(text), value)) << text;
    uint32_t fbits = static_cast<uint32_t>(bits >> 17);
    float single;
    std::memcpy(&single, &fbits, sizeof single);
    text = Exact(single);
    ASSERT_TRUE(SameValue(ReadBack<float>(text), single)) << text;
  }
}

TEST(qxexactTest, PythonReadsTheDecimalFormsBack) {
  // Checked against an independent reader: python3's float().
  std::mt19937_64 random(77);
  std::string script = "import sys\nbad = 0\n";
  std::vector<double> values;
  for (int i = 0; i < 2000; ++i) {
    uint64_t bits = random();
    double value;
    std::memcpy(&value, &bits, sizeof value);
    if (!std::isfinite(value) || (value != 0 && std::fabs(value) < DBL_MIN)) {
      continue;
    }
    values.push_back(value);
  }
  testing::ScratchDir scratch;
  std::string path = scratch.File("qxexact_check.py");
  FILE* file = fopen(path.c_str(), "w");
  ASSERT_NE(file, nullptr);
  fputs("import struct, sys\nbad = 0\n", file);
  for (double value : values) {
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    fprintf(file,
            "bad += struct.unpack('<Q', struct.pack('<d', float('%s')))[0] != "
            "%llu\n",
            Exact(value).c_str(), static_cast<unsigned long long>(bits));
  }
  fputs("print(bad)\n", file);
  fclose(file);
  std::string command = "python3 " + path;
  FILE* pipe = popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  char line[64] = {};
  ASSERT_NE(fgets(line, sizeof line, pipe), nullptr);
  EXPECT_EQ(pclose(pipe), 0);
  EXPECT_STREQ(line, "0\n");
}

TEST(qxostreamTest, WidestIntegersAreWrittenAsPlainDecimals) {
  qxosstream out;
  out << LLONG_MIN << ' ' << LLONG_MAX << ' ' << ULLONG_MAX << ' ' << 0LL << ' '
      << 0ULL;
  EXPECT_EQ(out.str(),
            "-9223372036854775808 9223372036854775807 18446744073709551615 0 "
            "0");
}

TEST(qxostreamTest, TellOfAStreamCanBeWrittenDirectly) {
  std::string text = "0123456789";
  qxistream in;
  in.open(reinterpret_cast<unsigned char*>(&text[0]), text.size());
  in.skip(4);
  qxosstream out;
  out << in.tell();
  EXPECT_EQ(out.str(), "4");
}

template <typename T>
std::vector<T> ReadAll(const std::string& text) {
  std::string copy = text;
  qxistream in;
  in.open(reinterpret_cast<unsigned char*>(&copy[0]), copy.size());
  std::vector<T> values;
  while (in.buffered()) {
    T value = 42;
    in >> value;
    values.push_back(value);
  }
  return values;
}

TEST(qxistreamTest, LongLongIsReadAsAPlainDecimal) {
  std::vector<long long> expected = {LLONG_MIN, LLONG_MAX, 0, 17, -3,
                                     12,        0,         0, 0,  0};
  EXPECT_EQ(ReadAll<long long>("-9223372036854775808 9223372036854775807 "
                               "0 +17 -3 12abc x 9223372036854775808 "
                               "-9223372036854775809 - "),
            expected);
}

TEST(qxistreamTest, UnsignedLongLongIsReadAsAPlainDecimal) {
  std::vector<unsigned long long> expected = {ULLONG_MAX, 0, ULLONG_MAX,
                                              1,          0, 0};
  EXPECT_EQ(ReadAll<unsigned long long>("18446744073709551615 0 -1 "
                                        "-18446744073709551615 "
                                        "18446744073709551616 0x10 "),
            expected);
}

TEST(qxistreamTest, LongLongIsZeroAtTheEndAndForLeadingSpace) {
  std::string text = " 5";
  qxistream in;
  in.open(reinterpret_cast<unsigned char*>(&text[0]), text.size());
  long long value = 42;
  in >> value;
  EXPECT_EQ(value, 0);
  in >> value;
  EXPECT_EQ(value, 5);
  unsigned long long uvalue = 42;
  in >> uvalue;
  EXPECT_EQ(uvalue, 0u);
}

TEST(qxistreamTest, LongLongIgnoresALeftOverRangeError) {
  // Unlike the C-library conversions, these do not look at errno.
  std::string text = "12 ";
  qxistream in;
  in.open(reinterpret_cast<unsigned char*>(&text[0]), text.size());
  errno = ERANGE;
  long long value = 0;
  in >> value;
  EXPECT_EQ(value, 12);
}

TEST(QXStreamHandleTest, HandlesCloseTheirStreams) {
  testing::ScratchDir scratch;
  std::string path = scratch.File("handle.txt");
  {
    QXOStreamHandle out = QXOpenOStreamHandle(path.c_str());
    ASSERT_TRUE(out);
    *out << "written " << 12345678901234LL << qxendl;
  }
  {
    QXIStreamHandle in = QXOpenIStreamHandle(path.c_str());
    ASSERT_TRUE(in);
    std::string word;
    long long number = 0;
    *in >> qxword(word) >> number;
    EXPECT_EQ(word, "written");
    // The word left the blank unread; the number extraction stops there.
    EXPECT_EQ(number, 0);
    *in >> number;
    EXPECT_EQ(number, 12345678901234LL);
  }
  EXPECT_FALSE(QXOpenIStreamHandle((path + ".missing/x").c_str()));
  static_assert(sizeof(QXIStreamHandle) == sizeof(void*),
                "a handle is one pointer");
}

TEST(QXStreamHandleTest, ReleaseHandsTheStreamBack) {
  testing::ScratchDir scratch;
  std::string path = scratch.File("release.txt");
  QXOStreamHandle out = QXOpenOStreamHandle(path.c_str());
  ASSERT_TRUE(out);
  qxostream* raw = out.release();
  EXPECT_FALSE(out);
  *raw << "kept";
  QXCloseOStream(raw);
  QXIStreamHandle in = QXOpenIStreamHandle(path.c_str());
  ASSERT_TRUE(in);
  std::string all;
  *in >> all;
  EXPECT_EQ(all, "kept");
  in.reset();
  EXPECT_FALSE(in);
}

}  // namespace
}  // namespace QXPlatform
