#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <ios>
#include <iostream>
#include <limits>
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

template <typename T>
std::string Inserted(T value) {
  qxosstream out;
  out << value;
  return out.str();
}

std::string Printed(const char* format, ...)
    __attribute__((format(printf, 1, 2)));

std::string Printed(const char* format, ...) {
  char text[1024];
  va_list args;
  va_start(args, format);
  int n = vsnprintf(text, sizeof text, format, args);
  va_end(args);
  return std::string(text, static_cast<size_t>(n));
}

TEST(qxostreamTest, NumbersHaveTheirOneTextualForm) {
  EXPECT_EQ(Inserted(1.5), "1.500000");
  EXPECT_EQ(Inserted(1.5f), "1.500000");
  EXPECT_EQ(Inserted(-3), "-3");
  EXPECT_EQ(Inserted(true), "1");
  EXPECT_EQ(Inserted(false), "0");
  EXPECT_EQ(Inserted(static_cast<short>(-32768)), "-32768");
  EXPECT_EQ(Inserted(static_cast<unsigned short>(65535)), "65535");
  EXPECT_EQ(Inserted(4294967295u), "4294967295");
  EXPECT_EQ(Inserted(LONG_MIN), "-9223372036854775808");
  EXPECT_EQ(Inserted(ULONG_MAX), "18446744073709551615");
  EXPECT_EQ(Inserted(-0.0), "-0.000000");
  EXPECT_EQ(Inserted(std::numeric_limits<double>::infinity()), "inf");
  EXPECT_EQ(Inserted(-std::numeric_limits<double>::infinity()), "-inf");
  EXPECT_EQ(Inserted(std::nan("")), "nan");
  EXPECT_EQ(Inserted(-std::nan("")), "-nan");
}

TEST(qxostreamTest, BytesAreWrittenAsTheyAre) {
  qxosstream out;
  out << 'a' << static_cast<unsigned char>(0xFF) << static_cast<signed char>(-2)
      << '\0';
  EXPECT_EQ(out.str(), std::string("a\xff\xfe\0", 4));
}

// Special values and many random ones for every formatted type, compared
// with what sprintf writes for the type's format.
TEST(qxostreamTest, IntegersMatchSprintfByteForByte) {
  std::mt19937_64 gen(71);
  std::vector<long> longs = {
      0,        1,        -1,        9,          10,         -10,
      99,       100,      INT_MIN,   INT_MAX,    LONG_MIN,   LONG_MAX,
      SHRT_MIN, SHRT_MAX, USHRT_MAX, 1000000000, -1000000000};
  for (int i = 0; i < 20000; ++i) {
    long v = static_cast<long>(gen());
    longs.push_back(v >> (gen() % 64));
  }
  qxosstream out;
  std::string expected;
  for (long v : longs) {
    out << static_cast<short>(v) << ' ' << static_cast<unsigned short>(v) << ' '
        << static_cast<int>(v) << ' ' << static_cast<unsigned int>(v) << ' '
        << v << ' ' << static_cast<unsigned long>(v) << '\n';
    expected +=
        Printed("%hd %hu %d %u %ld %lu\n", static_cast<short>(v),
                static_cast<unsigned short>(v), static_cast<int>(v),
                static_cast<unsigned int>(v), v, static_cast<unsigned long>(v));
  }
  EXPECT_EQ(out.str(), expected);
}

TEST(qxostreamTest, FloatingPointMatchesSprintfByteForByte) {
  std::vector<double> values = {0.0,
                                -0.0,
                                1.0,
                                -1.0,
                                0.5,
                                0.0000005,
                                0.0000015,
                                0.0000025,
                                1.0000005,
                                2.5e-7,
                                1e-6,
                                123456.7890125,
                                0.1,
                                0.2,
                                0.3,
                                1e15,
                                1e16,
                                1e17,
                                1e22,
                                1e23,
                                1e100,
                                1e300,
                                1e308,
                                DBL_MAX,
                                -DBL_MAX,
                                DBL_MIN,
                                DBL_TRUE_MIN,
                                4.9406564584124654e-324,
                                1e-310,
                                FLT_MAX,
                                FLT_MIN,
                                std::numeric_limits<double>::infinity(),
                                -std::numeric_limits<double>::infinity(),
                                std::nan(""),
                                -std::nan(""),
                                std::nan("123"),
                                9007199254740993.0,
                                4294967295.5,
                                2.5,
                                3.5,
                                -2.5,
                                0.125,
                                999999.9999995,
                                999999.9999994};
  std::mt19937_64 gen(72);
  for (int i = 0; i < 20000; ++i) {
    uint64_t bits = gen();
    double v;
    memcpy(&v, &bits, sizeof v);
    values.push_back(v);
    values.push_back(static_cast<double>(static_cast<int64_t>(gen())) /
                     static_cast<double>(1ull << (gen() % 64)));
  }
  qxosstream out;
  std::string expected;
  for (double v : values) {
    out << v << ' ' << static_cast<float>(v) << '\n';
    expected +=
        Printed("%f %f\n", v, static_cast<double>(static_cast<float>(v)));
  }
  EXPECT_EQ(out.str(), expected);
}

TEST(qxostreamTest, TextStopsAtTheFirstNul) {
  std::string s("a\0b", 3);
  qxosstream out;
  out << s;
  EXPECT_EQ(out.str(), "a");
  qxosstream whole;
  EXPECT_EQ(whole.write(s), 3u);
  EXPECT_EQ(whole.str(), s);
  qxosstream part;
  EXPECT_EQ(part.write(s, 2), 2u);
  EXPECT_EQ(part.str(), std::string("a\0", 2));
}

TEST(qxostreamTest, NullTextWritesNothing) {
  qxosstream out;
  out << static_cast<const char*>(nullptr)
      << static_cast<const unsigned char*>(nullptr)
      << static_cast<const signed char*>(nullptr);
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(out.tell(), 0u);
}

TEST(qxostreamTest, TextOfEveryPointerKindIsWritten) {
  qxosstream out;
  const unsigned char u[] = "un";
  const signed char s[] = "signed";
  out << "plain " << u << ' ' << s;
  EXPECT_EQ(out.str(), "plain un signed");
  EXPECT_EQ(out.count(), 6u);
}

TEST(qxostreamTest, LongTextCrossesFlushes) {
  std::string text(100000, 'x');
  for (size_t i = 0; i < text.size(); ++i) {
    text[i] = static_cast<char>('a' + i % 26);
  }
  RecordingOStream out(1000);
  out << text.c_str();
  out.flush();
  EXPECT_EQ(out.text(), text);
  EXPECT_EQ(out.count(), 100000u);
}

TEST(qxostreamTest, StandardEndlAndFormatManipulatorsWriteLfAndFlush) {
  RecordingOStream out;
  out << "a" << std::endl;
  EXPECT_EQ(out.text(), "a\n");
  EXPECT_EQ(out.flushes(), 1);
  out << "b" << std::hex;
  EXPECT_EQ(out.text(), "a\nb\n");
  EXPECT_EQ(out.flushes(), 2);
  out << std::fixed << std::boolalpha;
  EXPECT_EQ(out.text(), "a\nb\n\n\n");
  EXPECT_EQ(out.flushes(), 4);
}

TEST(qxostreamTest, StandardEndsWritesNulWithoutFlushing) {
  RecordingOStream out;
  out << "a" << std::ends;
  EXPECT_EQ(out.flushes(), 0);
  out << std::flush;
  EXPECT_EQ(out.flushes(), 1);
  EXPECT_EQ(out.text(), std::string("a\0", 2));
}

TEST(qxostreamTest, OwnManipulatorsEndFlushAndTerminate) {
  RecordingOStream out;
  out << "x" << qxends;
  EXPECT_EQ(out.flushes(), 0);
  out << qxflush;
  EXPECT_EQ(out.flushes(), 1);
  out << "y" << qxendl;
  EXPECT_EQ(out.flushes(), 2);
  EXPECT_EQ(out.text(), std::string("x\0y\n", 4));
}

qxstream& BaseManipulator(qxstream& s) {
  static_cast<qxostream&>(s) << "!";
  return s;
}

TEST(qxostreamTest, ManipulatorOfTheBaseTypeIsCalled) {
  qxosstream out;
  qxostream& same = out << BaseManipulator;
  EXPECT_EQ(&same, &out);
  EXPECT_EQ(out.str(), "!");
}

TEST(qxostreamTest, EndlOnAFullSpanWhoseFlushFailsFlushesTwiceAndWritesNoLf) {
  RecordingOStream out(2, 1);
  out << "ab" << qxendl;
  EXPECT_EQ(out.flushes(), 2);
  EXPECT_EQ(out.text(), "");
  EXPECT_TRUE(out.eof());
}

TEST(qxostreamTest, EndsOnAFullSpanWhoseFlushFailsWritesNothing) {
  RecordingOStream out(2, 1);
  out << "ab" << qxends;
  EXPECT_EQ(out.flushes(), 1);
  EXPECT_EQ(out.tell(), 0u);
}

TEST(qxostreamTest, FailingSinkTakesOnlyAPrefixOfANumber) {
  RecordingOStream out(4, 2);
  out << 123456;
  EXPECT_EQ(out.text(), "1234");
  out << 789 << "more" << 'c' << true;
  EXPECT_EQ(out.text(), "1234");
  EXPECT_TRUE(out.eof());
}

TEST(qxostreamTest, BytesOnAFullSpanFlushFirst) {
  RecordingOStream out(1);
  out << 'a' << true << static_cast<unsigned char>('b')
      << static_cast<signed char>('c') << 12;
  out.flush();
  EXPECT_EQ(out.text(), "a1bc12");
  EXPECT_EQ(out.flushes(), 6);
}

// Remembers the most bytes the source handed over in one chunk, as seen by
// the sink while a chunk is being written.
void NoteChunk(RecordingOStream&, void* context) {
  std::pair<qxistream*, unsigned long long>* seen =
      static_cast<std::pair<qxistream*, unsigned long long>*>(context);
  if (seen->first->count() > seen->second) {
    seen->second = seen->first->count();
  }
}

TEST(qxostreamTest, CopyOfAnInputStreamDeliversEverythingInSmallChunks) {
  std::string data = RandomBytes(100000, 73);
  qxisstream in(data);
  RecordingOStream out(1000);
  std::pair<qxistream*, unsigned long long> seen(&in, 0);
  out.onFlush = NoteChunk;
  out.context = &seen;
  out << in;
  out.flush();
  EXPECT_EQ(out.text(), data);
  EXPECT_EQ(seen.second, 4096u);
  EXPECT_FALSE(in.buffered());
}

TEST(qxostreamTest, CopyOfALiveSourceCrossesItsSpans) {
  std::string data = RandomBytes(70001, 74);
  SpanStream in(data, {1, 32768, 5000});
  qxosstream out;
  out << in;
  EXPECT_EQ(out.str(), data);
}

TEST(qxostreamTest, CopyOfAnExhaustedSourceReturnsAtOnce) {
  SpanStream in("", {1});
  char c;
  in.read(&c, 1);
  ASSERT_EQ(in.fills(), 1);
  ASSERT_TRUE(in.eof());
  RecordingOStream out(2, 1);
  out << "ab";
  out << in;
  EXPECT_EQ(in.fills(), 1);
  EXPECT_EQ(out.flushes(), 0);
}

TEST(qxostreamTest, CopyIntoAFailedStreamStops) {
  qxisstream in("data");
  RecordingOStream out(2, 1);
  out << "ab"
      << "c";
  ASSERT_TRUE(out.eof());
  out << in;
  EXPECT_EQ(in.tell(), 0u);
}

TEST(qxostreamTest, StringWritesAreCountedAndZeroOnFailure) {
  RecordingOStream out(4, 1);
  EXPECT_EQ(out.write(std::string("abc")), 3u);
  EXPECT_EQ(out.write(std::string("defg")), 0u);
  EXPECT_TRUE(out.eof());
}

TEST(qxostreamTest, StringWriteLengthIsNotCheckedAgainstTheString) {
  qxosstream out;
  // The terminator that std::string keeps after its bytes is written too.
  EXPECT_EQ(out.write(std::string("ab"), 3), 3u);
  EXPECT_EQ(out.str(), std::string("ab\0", 3));
}

}  // namespace
}  // namespace QXPlatform
