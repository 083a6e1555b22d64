#include <ctype.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <climits>
#include <cstdint>
#include <new>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_streams.h"
#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

using testing::RandomBytes;
using testing::RecordingOStream;
using testing::SpanStream;

// Span patterns that put every byte at every position of a span.
const std::vector<std::vector<size_t>> kSpanPatterns = {
    {1}, {2}, {3}, {1, 2, 3, 4, 5, 6, 7}, {32768}, {5, 1, 1, 9}};

// ---------------------------------------------------------------------------
// Reference models of the rules, written byte by byte.

// Consumes a line end starting at data[i] (after its first byte was taken).
void ModelLineEnd(const std::string& data, size_t& i, unsigned char first) {
  if (first != '\r') {
    return;
  }
  while (i < data.size() && data[i] == '\r') {
    ++i;
  }
  if (i < data.size() && data[i] == '\n') {
    ++i;
  }
}

void ModelSkipLine(const std::string& data, size_t& i) {
  while (i < data.size()) {
    unsigned char c = static_cast<unsigned char>(data[i++]);
    if (c == '\n' || c == '\r') {
      ModelLineEnd(data, i, c);
      return;
    }
  }
}

// The lines getline gives, with a limit of max - 1 bytes (0: no limit).
std::vector<std::string> ModelLines(const std::string& data,
                                    unsigned long max = 0) {
  std::vector<std::string> lines;
  size_t i = 0;
  while (i < data.size()) {
    std::string line;
    while (i < data.size()) {
      unsigned char c = static_cast<unsigned char>(data[i++]);
      if (c == '\n' || c == '\r') {
        ModelLineEnd(data, i, c);
        break;
      }
      if (c == '\t' || c >= 32) {
        if (max != 0 && line.size() == max - 1) {
          ModelSkipLine(data, i);
          break;
        }
        line.push_back(static_cast<char>(c));
      }
    }
    lines.push_back(line);
  }
  return lines;
}

// The tokens gettoken gives with a buffer of max bytes.
std::vector<std::string> ModelTokens(const std::string& data,
                                     unsigned long max) {
  std::vector<std::string> tokens;
  size_t i = 0;
  while (i < data.size()) {
    std::string token;
    while (i < data.size()) {
      unsigned char c = static_cast<unsigned char>(data[i++]);
      if (isspace(c)) {
        break;
      }
      if (c < 33) {
        continue;
      }
      if (token.size() == max - 1) {
        ModelSkipLine(data, i);
        break;
      }
      token.push_back(static_cast<char>(c));
    }
    tokens.push_back(token);
  }
  return tokens;
}

std::vector<std::string> StreamLines(qxistream& in) {
  std::vector<std::string> lines;
  std::string line;
  while (in.getline(line)) {
    lines.push_back(line);
  }
  return lines;
}

// ---------------------------------------------------------------------------
// Numbers

TEST(qxistreamTest, IntegersAreSeparatedBySingleWhitespaceBytes) {
  errno = 0;
  int a = -1;
  int b = -1;
  int c = -1;
  qxisstream one("12 34");
  one >> a >> b;
  EXPECT_EQ(a, 12);
  EXPECT_EQ(b, 34);
  // Deliberate rule: the empty token between two spaces reads as 0.
  qxisstream two("12  34");
  two >> a >> b >> c;
  EXPECT_EQ(a, 12);
  EXPECT_EQ(b, 0);
  EXPECT_EQ(c, 34);
}

TEST(qxistreamTest, LeadingSpaceGivesZeroAndConsumesOnlyTheSpace) {
  errno = 0;
  qxisstream in(" 7");
  int value = -1;
  in >> value;
  EXPECT_EQ(value, 0);
  EXPECT_EQ(in.tell(), 1u);
  in >> value;
  EXPECT_EQ(value, 7);
}

TEST(qxistreamTest, ShortKeepsTheLowSixteenBitsOfTheInt) {
  errno = 0;
  qxisstream in("70000 -70000 65535");
  short s = 0;
  unsigned short u = 0;
  in >> s;
  EXPECT_EQ(s, 4464);
  in >> s;
  EXPECT_EQ(s, -4464);
  in >> u;
  EXPECT_EQ(u, 65535);
}

TEST(qxistreamTest, RangeErrorLeftFromEarlierZeroesEveryNumber) {
  qxisstream in("70000 123 4567890123 2.5 1.5 9");
  short s = -1;
  int i = -1;
  long l = -1;
  double d = -1;
  float f = -1;
  unsigned int u = 99;
  errno = ERANGE;
  in >> s >> i >> l >> d >> f >> u;
  EXPECT_EQ(s, 0);
  EXPECT_EQ(i, 0);
  EXPECT_EQ(l, 0);
  EXPECT_EQ(d, 0.0);
  EXPECT_EQ(f, 0.0f);
  EXPECT_EQ(u, 0u);
  EXPECT_EQ(errno, ERANGE);
  errno = 0;
  qxisstream again("70000");
  again >> s;
  EXPECT_EQ(s, 4464);
}

TEST(qxistreamTest, OutOfRangeNumberBecomesZeroAndStaysSo) {
  errno = 0;
  qxisstream in("99999999999999999999 5 1e999 7");
  long l = -1;
  int i = -1;
  double d = -1;
  in >> l;
  EXPECT_EQ(l, 0);
  EXPECT_EQ(errno, ERANGE);
  // errno is never cleared, so the next number reads as 0 too.
  in >> i;
  EXPECT_EQ(i, 0);
  errno = 0;
  in >> d;
  EXPECT_EQ(d, 0.0);
  errno = 0;
  in >> i;
  EXPECT_EQ(i, 7);
}

TEST(qxistreamTest, NumbersAtEndOfDataAreZero) {
  errno = 0;
  qxisstream in;
  short s = 1;
  unsigned short us = 1;
  int i = 1;
  unsigned int ui = 1;
  long l = 1;
  unsigned long ul = 1;
  float f = 1;
  double d = 1;
  in >> s >> us >> i >> ui >> l >> ul >> f >> d;
  EXPECT_EQ(s, 0);
  EXPECT_EQ(us, 0);
  EXPECT_EQ(i, 0);
  EXPECT_EQ(ui, 0u);
  EXPECT_EQ(l, 0);
  EXPECT_EQ(ul, 0u);
  EXPECT_EQ(f, 0.0f);
  EXPECT_EQ(d, 0.0);
}

TEST(qxistreamTest, TextThatIsNotANumberGivesItsNumericPrefix) {
  errno = 0;
  qxisstream in("12abc abc -0x10 3.75kg");
  int a = -1;
  int b = -1;
  int c = -1;
  double d = -1;
  in >> a >> b >> c >> d;
  EXPECT_EQ(a, 12);
  EXPECT_EQ(b, 0);
  EXPECT_EQ(c, 0);
  EXPECT_EQ(d, 3.75);
}

TEST(qxistreamTest, NumberTokenMayCrossSpans) {
  errno = 0;
  for (const std::vector<size_t>& spans : kSpanPatterns) {
    SpanStream in("123456789 -98765.4321e-3\t42", spans);
    long l = 0;
    double d = 0;
    unsigned int u = 0;
    in >> l >> d >> u;
    EXPECT_EQ(l, 123456789);
    EXPECT_EQ(d, atof("-98765.4321e-3"));
    EXPECT_EQ(u, 42u);
  }
}

TEST(qxistreamTest, ControlBytesInsideANumberAreDropped) {
  errno = 0;
  qxisstream in(
      std::string("1\x01"
                  "2\x02"
                  "3 4\x7f"
                  "5",
                  9));
  int a = 0;
  int b = 0;
  in >> a >> b;
  EXPECT_EQ(a, 123);
  // DEL is not a control byte below 33: it is kept and ends the digits.
  EXPECT_EQ(b, 4);
}

TEST(qxistreamTest, TokenOfMoreThan32767BytesIsCut) {
  errno = 0;
  std::string digits = "0." + std::string(39998, '1');
  digits[32767] = '9';
  qxisstream in(digits + "7\nnext 5");
  double d = 0;
  int i = 0;
  in >> d;
  EXPECT_EQ(d, atof(digits.substr(0, 32767).c_str()));
  in >> i;
  EXPECT_EQ(i, 0);
  in >> i;
  EXPECT_EQ(i, 5);
}

// Tokens that the conversions treat specially, plus random ones.
std::vector<std::string> IntegerTokens() {
  std::vector<std::string> tokens = {
      "0",
      "-0",
      "+0",
      "1",
      "-1",
      "+17",
      "2147483647",
      "2147483648",
      "-2147483648",
      "-2147483649",
      "4294967295",
      "4294967296",
      "32767",
      "32768",
      "-32768",
      "-32769",
      "65535",
      "65536",
      "70000",
      "9223372036854775807",
      "9223372036854775808",
      "-9223372036854775808",
      "-9223372036854775809",
      "18446744073709551615",
      "18446744073709551616",
      "99999999999999999999",
      "1234567890123456789",
      "12345678901234567890",
      "-1234567890123456789",
      "00000000000000000000000012",
      "-0000000000000000000009223372036854775808",
      "0x10",
      "0X1f",
      "12abc",
      "+",
      "-",
      "+-5",
      "--5",
      "1e5",
      "3.9",
      "-3.9",
      "abc",
      "\xff\xfe",
      "1\xe9",
      "007",
      "9223372036854775807000"};
  std::mt19937_64 gen(11);
  for (int i = 0; i < 4000; ++i) {
    std::string t;
    int sign = static_cast<int>(gen() % 3);
    if (sign == 1) {
      t += '-';
    } else if (sign == 2) {
      t += '+';
    }
    int zeros = gen() % 4 == 0 ? static_cast<int>(gen() % 5) : 0;
    t.append(static_cast<size_t>(zeros), '0');
    int digits = 1 + static_cast<int>(gen() % 22);
    for (int k = 0; k < digits; ++k) {
      t += static_cast<char>('0' + gen() % 10);
    }
    if (gen() % 10 == 0) {
      t += "xyz";
    }
    tokens.push_back(t);
  }
  return tokens;
}

std::vector<std::string> FloatTokens() {
  std::vector<std::string> tokens = {"0",
                                     "-0",
                                     "+0",
                                     "0.0",
                                     "-0.0",
                                     "0e99999",
                                     "-0.000e-99999",
                                     "1e308",
                                     "1.7976931348623157e308",
                                     "1.7976931348623159e308",
                                     "2e308",
                                     "-2e308",
                                     "4.9406564584124654e-324",
                                     "5e-324",
                                     "2e-324",
                                     "1e-310",
                                     "-1e-310",
                                     "2.2250738585072014e-308",
                                     "2.2250738585072011e-308",
                                     "1e-400",
                                     "inf",
                                     "-inf",
                                     "INF",
                                     "infinity",
                                     "-Infinity",
                                     "infinite",
                                     "nan",
                                     "-nan",
                                     "NAN",
                                     "nan(123)",
                                     "nan(abc)",
                                     "0x1p3",
                                     "0x1.8p1",
                                     "-0x10",
                                     "0x",
                                     "0xg",
                                     "0X1P-1074",
                                     "1e",
                                     "1e+",
                                     "1e-",
                                     "1.",
                                     ".5",
                                     "-.5",
                                     ".",
                                     "-",
                                     "+",
                                     "+-1",
                                     "--1",
                                     "1..2",
                                     "1.2.3",
                                     "12abc",
                                     "1,5",
                                     "0000000000000000000000123",
                                     "00012.5000",
                                     "123456789012345678901234567890",
                                     "9007199254740993",
                                     "9007199254740992",
                                     "9007199254740991",
                                     "18014398509481985",
                                     "1e22",
                                     "1e23",
                                     "123456789e-22",
                                     "1.5e-22",
                                     "1.5e-23",
                                     "3.14159",
                                     "1e0000000000000005",
                                     "1e99999999999999999999",
                                     "1e-99999999999999999999",
                                     "0.1",
                                     "0.2",
                                     "0.3",
                                     "123.456e-7",
                                     "4.35",
                                     "8.589973e9",
                                     "1.00000000000000000000001",
                                     "0.000000000000000000001",
                                     "1234567890123456789",
                                     "12345678901234567890.5",
                                     "2.5",
                                     "-2.5",
                                     "1e-7",
                                     "5e-7",
                                     "0.5e1",
                                     "1E+2",
                                     "1e+0002",
                                     "9.999999999999999e22",
                                     "3.4028235e38",
                                     "3.5e38",
                                     "1e-46",
                                     "1.4e-45",
                                     "7e-46",
                                     "00x10"};
  std::mt19937_64 gen(12);
  std::uniform_int_distribution<int> exponent(-330, 330);
  char text[128];
  for (int i = 0; i < 6000; ++i) {
    switch (gen() % 4) {
      case 0: {
        double v;
        uint64_t bits = gen();
        memcpy(&v, &bits, sizeof v);
        snprintf(text, sizeof text, "%.*g", static_cast<int>(1 + gen() % 20),
                 v);
        break;
      }
      case 1: {
        double v = static_cast<double>(gen() % 100000000) / 1000.0;
        snprintf(text, sizeof text, "%.*f", static_cast<int>(gen() % 9),
                 gen() % 2 ? v : -v);
        break;
      }
      case 2: {
        std::string t = gen() % 2 ? "-" : "";
        int digits = 1 + static_cast<int>(gen() % 24);
        int point = static_cast<int>(gen() % (digits + 1));
        for (int k = 0; k < digits; ++k) {
          if (k == point) {
            t += '.';
          }
          t += static_cast<char>('0' + gen() % 10);
        }
        if (gen() % 2) {
          t += gen() % 2 ? "e" : "E";
          t += std::to_string(exponent(gen) / (gen() % 2 ? 1 : 10));
        }
        snprintf(text, sizeof text, "%s", t.c_str());
        break;
      }
      default: {
        snprintf(text, sizeof text, "%lu.%lue%d", gen() % 1000000, gen() % 1000,
                 exponent(gen) / 10);
        break;
      }
    }
    tokens.push_back(text);
  }
  return tokens;
}

std::string Join(const std::vector<std::string>& tokens) {
  std::string text;
  for (const std::string& t : tokens) {
    text += t;
    text += ' ';
  }
  return text;
}

template <typename T, typename Reference>
void ExpectSameAsCLibrary(const std::vector<std::string>& tokens,
                          Reference reference) {
  std::string text = Join(tokens);
  for (const std::vector<size_t>& spans :
       {std::vector<size_t>{32768}, std::vector<size_t>{1, 2, 3}}) {
    SpanStream in(text, spans);
    for (const std::string& token : tokens) {
      errno = 0;
      T expected = reference(token.c_str());
      if (errno == ERANGE) {
        expected = T(0);
      }
      int expectedErrno = errno;
      errno = 0;
      T got = T(123);
      in >> got;
      ASSERT_EQ(memcmp(&got, &expected, sizeof got), 0)
          << "token \"" << token << "\": " << +got << " != " << +expected;
      ASSERT_EQ(errno, expectedErrno) << token;
    }
  }
}

TEST(qxistreamTest, IntegersConvertExactlyAsAtoi) {
  std::vector<std::string> tokens = IntegerTokens();
  ExpectSameAsCLibrary<int>(tokens, [](const char* t) { return atoi(t); });
  ExpectSameAsCLibrary<unsigned int>(
      tokens, [](const char* t) { return static_cast<unsigned int>(atoi(t)); });
  ExpectSameAsCLibrary<short>(
      tokens, [](const char* t) { return static_cast<short>(atoi(t)); });
  ExpectSameAsCLibrary<unsigned short>(tokens, [](const char* t) {
    return static_cast<unsigned short>(atoi(t));
  });
}

TEST(qxistreamTest, LongsConvertExactlyAsAtol) {
  std::vector<std::string> tokens = IntegerTokens();
  ExpectSameAsCLibrary<long>(tokens, [](const char* t) { return atol(t); });
  ExpectSameAsCLibrary<unsigned long>(tokens, [](const char* t) {
    return static_cast<unsigned long>(atol(t));
  });
}

TEST(qxistreamTest, FloatingPointConvertsExactlyAsAtof) {
  std::vector<std::string> tokens = FloatTokens();
  std::vector<std::string> integers = IntegerTokens();
  tokens.insert(tokens.end(), integers.begin(), integers.end());
  ExpectSameAsCLibrary<double>(tokens, [](const char* t) { return atof(t); });
  ExpectSameAsCLibrary<float>(
      tokens, [](const char* t) { return static_cast<float>(atof(t)); });
}

// ---------------------------------------------------------------------------
// Single bytes, strings and manipulators

TEST(qxistreamTest, BoolIsTrueWheneverAByteIsThere) {
  qxisstream in("0");
  bool value = false;
  in >> value;
  EXPECT_TRUE(value);
  in >> value;
  EXPECT_FALSE(value);
  qxisstream empty;
  value = true;
  empty >> value;
  EXPECT_FALSE(value);
}

TEST(qxistreamTest, BytesAreTakenRawAndAreAllOnesAtTheEnd) {
  qxisstream in(std::string(" \n\xff", 3));
  char c = 0;
  unsigned char u = 0;
  signed char s = 0;
  in >> c >> u >> s;
  EXPECT_EQ(c, ' ');
  EXPECT_EQ(u, '\n');
  EXPECT_EQ(s, static_cast<signed char>(0xFF));
  c = 0;
  u = 0;
  s = 0;
  in >> c >> u >> s;
  EXPECT_EQ(static_cast<unsigned char>(c), 0xFF);
  EXPECT_EQ(u, 0xFF);
  EXPECT_EQ(static_cast<unsigned char>(s), 0xFF);
}

TEST(qxistreamTest, StringExtractionTakesEverythingLeft) {
  std::string data = RandomBytes(50000, 21);
  SpanStream in(data, {777});
  char first[3];
  in.read(first, 3);
  std::string rest;
  in >> rest;
  EXPECT_EQ(rest, data.substr(3));
  EXPECT_EQ(in.count(), data.size() - 3);
}

qxistream& CountingManipulator(qxistream& in) {
  in.skip(1);
  return in;
}

qxstream& BaseManipulator(qxstream& s) { return s; }

TEST(qxistreamTest, ManipulatorsAreCalledWithTheStream) {
  qxisstream in("ab");
  char c = 0;
  in >> CountingManipulator >> c;
  EXPECT_EQ(c, 'b');
  qxistream& same = in >> BaseManipulator;
  EXPECT_EQ(&same, &in);
}

// ---------------------------------------------------------------------------
// Tokens

TEST(qxistreamTest, FullTokenBufferDropsTheRestOfTheLine) {
  qxisstream in("abcdef ghi\nxyz");
  char buffer[4];
  EXPECT_TRUE(in.gettoken(buffer, 4));
  EXPECT_STREQ(buffer, "abc");
  std::string rest;
  in.read(rest);
  EXPECT_EQ(rest, "xyz");
}

TEST(qxistreamTest, TokenOfExactlyTheRoomIsKept) {
  qxisstream in("abc def");
  char buffer[4];
  EXPECT_TRUE(in.gettoken(buffer, 4));
  EXPECT_STREQ(buffer, "abc");
  EXPECT_TRUE(in.gettoken(buffer, 4));
  EXPECT_STREQ(buffer, "def");
  EXPECT_FALSE(in.gettoken(buffer, 4));
  EXPECT_STREQ(buffer, "");
}

TEST(qxistreamTest, TokenDoesNotSkipLeadingWhitespace) {
  qxisstream in("\t\tword\r\nnext");
  std::string token = "x";
  EXPECT_TRUE(in.gettoken(token, 100));
  EXPECT_EQ(token, "");
  EXPECT_TRUE(in.gettoken(token, 100));
  EXPECT_EQ(token, "");
  EXPECT_TRUE(in.gettoken(token, 100));
  EXPECT_EQ(token, "word");
  // CR ended the token; the LF is the next (empty) token.
  EXPECT_TRUE(in.gettoken(token, 100));
  EXPECT_EQ(token, "");
  EXPECT_TRUE(in.gettoken(token, 100));
  EXPECT_EQ(token, "next");
  EXPECT_FALSE(in.gettoken(token, 100));
  EXPECT_EQ(token, "");
}

TEST(qxistreamTest, TokenWithZeroRoomStoresOnlyTheTerminator) {
  qxisstream in("abc");
  char buffer[2] = {'x', 'x'};
  EXPECT_FALSE(in.gettoken(buffer, 0));
  EXPECT_EQ(buffer[0], '\0');
  EXPECT_EQ(buffer[1], 'x');
  EXPECT_EQ(in.tell(), 0u);
  unsigned char ubuffer[4];
  signed char sbuffer[4];
  EXPECT_TRUE(in.gettoken(ubuffer, 4));
  EXPECT_STREQ(reinterpret_cast<char*>(ubuffer), "abc");
  EXPECT_FALSE(in.gettoken(sbuffer, 4));
}

TEST(qxistreamTest, TokenAtEndOfDataIsReturnedAndThenFalse) {
  SpanStream in("tail", {1});
  char buffer[16];
  EXPECT_TRUE(in.gettoken(buffer, sizeof buffer));
  EXPECT_STREQ(buffer, "tail");
  EXPECT_FALSE(in.gettoken(buffer, sizeof buffer));
}

TEST(qxistreamTest, TokensFollowTheRulesOverEveryByteAndSpanPattern) {
  std::mt19937 gen(31);
  const char alphabet[] = "ab \t\r\n\x01\x1f\x80\xff\x0b\x0c";
  for (int round = 0; round < 200; ++round) {
    std::string data;
    size_t length = gen() % 200;
    for (size_t i = 0; i < length; ++i) {
      data += alphabet[gen() % (sizeof alphabet - 1)];
    }
    unsigned long max = 1 + gen() % 6;
    std::vector<std::string> expected = ModelTokens(data, max);
    for (const std::vector<size_t>& spans : kSpanPatterns) {
      SpanStream in(data, spans);
      std::vector<std::string> got;
      std::vector<char> buffer(max);
      while (in.gettoken(buffer.data(), max)) {
        got.push_back(buffer.data());
      }
      ASSERT_EQ(got, expected) << round;
    }
  }
}

// ---------------------------------------------------------------------------
// Lines

TEST(qxistreamTest, LineDropsControlBytesAndEndsAtCrCrLf) {
  qxisstream in(
      "a\tb\x01"
      "c\r\r\nnext");
  std::string line;
  EXPECT_TRUE(in.getline(line));
  EXPECT_EQ(line, "a\tbc");
  std::string rest;
  in.read(rest);
  EXPECT_EQ(rest, "next");
}

TEST(qxistreamTest, EveryKindOfLineEndCountsOnce) {
  qxisstream in("lf\ncr\rcrlf\r\ncrcrlf\r\r\ncrcr\r\rlast");
  std::vector<std::string> expected = {"lf",     "cr",   "crlf",
                                       "crcrlf", "crcr", "last"};
  EXPECT_EQ(StreamLines(in), expected);
  qxisstream lfcr("a\n\rb\n\nc");
  std::vector<std::string> expected2 = {"a", "", "b", "", "c"};
  EXPECT_EQ(StreamLines(lfcr), expected2);
}

TEST(qxistreamTest, LineEndsSplitAcrossSpansCountOnce) {
  std::string data = "x\r\ny\r\r\nz\r\rw\rv\n\nu\r";
  std::vector<std::string> expected = {"x", "y", "z", "w", "v", "", "u"};
  for (size_t first = 1; first <= data.size(); ++first) {
    for (const std::vector<size_t>& spans : kSpanPatterns) {
      std::vector<size_t> pattern = {first};
      pattern.insert(pattern.end(), spans.begin(), spans.end());
      SpanStream in(data, pattern);
      EXPECT_EQ(StreamLines(in), expected) << first;
      SpanStream skipping(data, pattern);
      int skipped = 0;
      while (skipping.skipline()) {
        ++skipped;
      }
      EXPECT_EQ(skipped, 7);
      SpanStream fixed(data, pattern);
      char buffer[8];
      std::vector<std::string> got;
      while (fixed.getline(buffer, sizeof buffer)) {
        got.push_back(buffer);
      }
      EXPECT_EQ(got, expected);
    }
  }
}

TEST(qxistreamTest, LinesFollowTheRulesOverRandomBytesAndSpans) {
  std::mt19937 gen(41);
  const char alphabet[] = "ab\t\r\n\x01\x1f\x7f\x80\xff ";
  for (int round = 0; round < 300; ++round) {
    std::string data;
    size_t length = gen() % 300;
    for (size_t i = 0; i < length; ++i) {
      data += alphabet[gen() % (sizeof alphabet - 1)];
    }
    for (const std::vector<size_t>& spans : kSpanPatterns) {
      SpanStream in(data, spans);
      ASSERT_EQ(StreamLines(in), ModelLines(data)) << round;
      unsigned long max = 1 + gen() % 8;
      SpanStream cut(data, spans);
      std::vector<std::string> got;
      std::vector<char> buffer(max);
      while (cut.getline(buffer.data(), max)) {
        got.push_back(buffer.data());
      }
      ASSERT_EQ(got, ModelLines(data, max)) << round << " max " << max;
      SpanStream viaString(data, spans);
      got.clear();
      std::string line;
      while (viaString.getline(line, max)) {
        got.push_back(line);
      }
      ASSERT_EQ(got, ModelLines(data, max)) << round << " max " << max;
    }
  }
}

TEST(qxistreamTest, LongLinesCrossManyBlocks) {
  std::string a(100000, 'a');
  std::string b = RandomBytes(70000, 3);
  for (char& c : b) {
    c = static_cast<char>(32 + static_cast<unsigned char>(c) % 95);
  }
  std::string data = a + "\r\n" + b + "\n\x01" + a;
  for (const std::vector<size_t>& spans :
       {std::vector<size_t>{32768}, std::vector<size_t>{4093, 1}}) {
    SpanStream in(data, spans);
    std::vector<std::string> expected = {a, b, a};
    EXPECT_EQ(StreamLines(in), expected);
  }
}

TEST(qxistreamTest, LineOfOneByteBufferIsEmptyAndDiscarded) {
  qxisstream in("hello\nworld");
  char buffer[1] = {'x'};
  EXPECT_TRUE(in.getline(buffer, 1));
  EXPECT_EQ(buffer[0], '\0');
  std::string rest;
  in.read(rest);
  EXPECT_EQ(rest, "world");
}

TEST(qxistreamTest, LineWithZeroRoomOrNoDataIsFalse) {
  qxisstream in("abc");
  char buffer[2] = {'x', 'x'};
  EXPECT_FALSE(in.getline(buffer, 0));
  EXPECT_EQ(buffer[0], '\0');
  EXPECT_EQ(in.tell(), 0u);
  unsigned char u[8];
  EXPECT_TRUE(in.getline(u, sizeof u));
  EXPECT_STREQ(reinterpret_cast<char*>(u), "abc");
  signed char s[8] = {'x'};
  EXPECT_FALSE(in.getline(s, sizeof s));
  EXPECT_EQ(s[0], '\0');
  std::string line = "x";
  EXPECT_FALSE(in.getline(line));
  EXPECT_EQ(line, "");
  EXPECT_FALSE(in.getline(line, 10));
  EXPECT_EQ(line, "");
}

TEST(qxistreamTest, UnterminatedLastLineIsReturned) {
  SpanStream in("one\ntwo", {2});
  std::vector<std::string> expected = {"one", "two"};
  EXPECT_EQ(StreamLines(in), expected);
}

TEST(qxistreamTest, LineLimitedByStringLengthIsCut) {
  std::string longLine(5000, 'q');
  qxisstream in("abcdef\n" + longLine + "\nend");
  std::string line;
  EXPECT_TRUE(in.getline(line, 4));
  EXPECT_EQ(line, "abc");
  // Above the threshold the scratch comes from the heap; same result.
  EXPECT_TRUE(in.getline(line, 4000));
  EXPECT_EQ(line, longLine.substr(0, 3999));
  EXPECT_TRUE(in.getline(line, 2));
  EXPECT_EQ(line, "e");
  EXPECT_FALSE(in.getline(line, 2));
}

TEST(qxistreamTest, AbsurdLineLimitThrowsBadAlloc) {
  qxisstream in("abc");
  std::string line;
  EXPECT_THROW(in.getline(line, ULONG_MAX), std::bad_alloc);
  EXPECT_THROW(in.getline(line, ULONG_MAX - 15), std::bad_alloc);
  EXPECT_EQ(in.tell(), 0u);
}

TEST(qxistreamTest, SkipLineOnEmptyStreamIsFalse) {
  qxisstream empty;
  EXPECT_FALSE(empty.skipline());
  qxisstream in("abc");
  EXPECT_TRUE(in.skipline());
  EXPECT_FALSE(in.buffered());
  EXPECT_FALSE(in.skipline());
  qxisstream two("a\r\r\nb\rc");
  EXPECT_TRUE(two.skipline());
  char c = 0;
  two >> c;
  EXPECT_EQ(c, 'b');
}

TEST(qxistreamDeathTest, TerminatorOutsideTheBufferStopsTheProcess) {
  // A limit so large that buffer + max wraps around: the terminator cannot
  // be shown to lie inside the buffer.
  EXPECT_DEATH(
      {
        qxisstream in("ab\n");
        char buffer[8];
        in.getline(buffer, ULONG_MAX);
      },
      "^[^:]*streams_tests: [^:]*qxstream_extract\\.cpp:[0-9]+: getline: "
      "Assertion `\\(size_t\\)dst < \\(size_t\\)\\(buffer \\+ max\\)' "
      "failed\\.\n");
}

// ---------------------------------------------------------------------------
// Bad input

TEST(qxistreamTest, BinaryGarbageGivesTheDefinedResults) {
  std::string garbage = RandomBytes(200000, 51);
  for (const std::vector<size_t>& spans :
       {std::vector<size_t>{32768}, std::vector<size_t>{1, 3, 7}}) {
    SpanStream in(garbage, spans);
    int steps = 0;
    errno = 0;
    while (in.buffered() || !in.eof()) {
      int i;
      double d;
      long l;
      char c;
      std::string s;
      char token[64];
      switch (steps++ % 7) {
        case 0:
          in >> i;
          break;
        case 1:
          in >> d;
          break;
        case 2:
          in >> l;
          break;
        case 3:
          in.getline(s);
          break;
        case 4:
          in.gettoken(token, sizeof token);
          break;
        case 5:
          in.skipline();
          break;
        default:
          in >> c;
          break;
      }
    }
    EXPECT_GT(steps, 100);
    int value = 1;
    in >> value;
    EXPECT_EQ(value, 0);
  }
  // The same garbage split by the rules gives the model's lines and tokens.
  SpanStream lines(garbage, {5, 32768});
  EXPECT_EQ(StreamLines(lines), ModelLines(garbage));
  SpanStream tokens(garbage, {32768});
  std::vector<std::string> got;
  char buffer[40];
  while (tokens.gettoken(buffer, sizeof buffer)) {
    got.push_back(buffer);
  }
  EXPECT_EQ(got, ModelTokens(garbage, sizeof buffer));
}

// ---------------------------------------------------------------------------
// Copying into an output stream

TEST(qxistreamTest, ShiftIntoOutputCopiesTheRestOfALiveSource) {
  std::string data = RandomBytes(100000, 61);
  SpanStream in(data, {1000, 32768});
  char first[10];
  in.read(first, 10);
  qxosstream out;
  in >> out;
  EXPECT_EQ(out.str(), data.substr(10));
  EXPECT_TRUE(in.eof());
}

TEST(qxistreamTest, ShiftIntoOutputCopiesNothingFromAMemoryStream) {
  // Deliberate: a memory stream keeps its end flag set while it holds data.
  qxisstream in("some data");
  qxosstream out;
  in >> out;
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(in.tell(), 0u);
}

TEST(qxistreamTest, ShiftIntoAFailedOutputStopsBeforeReading) {
  unsigned char memory[1];
  qxostream out;
  ASSERT_TRUE(out.open(memory, 1));
  out.write("a", 1);
  out.write("b", 1);
  ASSERT_TRUE(out.eof());
  SpanStream in("data", {4});
  in >> out;
  EXPECT_EQ(in.tell(), 0u);
  EXPECT_EQ(in.fills(), 0);
}

TEST(qxistreamTest, ShiftIntoAFailingSinkDrainsTheSource) {
  std::string data = RandomBytes(20000, 62);
  SpanStream in(data, {32768});
  RecordingOStream out(10, 1);
  in >> out;
  EXPECT_TRUE(in.eof());
  EXPECT_EQ(out.text(), "");
  EXPECT_TRUE(out.eof());
}

}  // namespace
}  // namespace QXPlatform
