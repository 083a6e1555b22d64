// The stream core and its text layer over back-ends that deliver one byte at
// a time, fail part way or throw: results are the documented ones, what
// arrived before a fault is kept, exceptions pass through untouched and
// nothing leaks on the way.

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fault/qxfault_streams.h"
#include <QXPlatform/streams/qxsstream.h>
#include <QXPlatform/streams/qxstream.h>

namespace QXPlatform {
namespace {

using testing::Fault;
using testing::FaultyIStream;
using testing::FaultyOStream;
using testing::kReadFault;
using testing::kWriteFault;

const unsigned long kPlenty = 1UL << 30;

TEST(qxistreamFaultTest, OneByteSpansGiveTheWholeText) {
  FaultyIStream in("12 -34 5.25 tok\r\r\nline\tone\x01\nlast", 1, kPlenty,
                   Fault::kNone);
  int a = 0;
  int b = 0;
  double c = 0;
  in >> a >> b >> c;
  EXPECT_EQ(a, 12);
  EXPECT_EQ(b, -34);
  EXPECT_EQ(c, 5.25);
  std::string token;
  ASSERT_TRUE(in.gettoken(token, 100));
  EXPECT_EQ(token, "tok");
  // The token took the first CR; the second CR and the LF end an empty line.
  std::string line;
  ASSERT_TRUE(in.getline(line));
  EXPECT_EQ(line, "");
  ASSERT_TRUE(in.getline(line));
  EXPECT_EQ(line, "line\tone");
  ASSERT_TRUE(in.getline(line));
  EXPECT_EQ(line, "last");
  EXPECT_FALSE(in.getline(line));
  EXPECT_TRUE(in.eof());
  EXPECT_EQ(in.faults(), 0);
}

TEST(qxistreamFaultTest, OneByteSpansReadLikeOneSpanForEveryReader) {
  std::string text;
  for (int i = 0; i < 300; ++i) {
    text += std::to_string(i * 7919 % 1000) + (i % 3 ? " " : "\r\n") +
            "w\x02rd" + (i % 5 ? "\t" : "\r\r");
  }
  for (unsigned long span : {1UL, 2UL, 3UL, 7UL, 4096UL}) {
    qxisstream whole(text);
    FaultyIStream chopped(text, span, kPlenty, Fault::kNone);
    for (int round = 0; round < 400; ++round) {
      switch (round % 6) {
        case 0: {
          int x = -1;
          int y = -1;
          whole >> x;
          chopped >> y;
          ASSERT_EQ(x, y) << "span " << span << " round " << round;
          break;
        }
        case 1: {
          std::string x;
          std::string y;
          ASSERT_EQ(whole.gettoken(x, 3), chopped.gettoken(y, 3));
          ASSERT_EQ(x, y) << "span " << span << " round " << round;
          break;
        }
        case 2: {
          std::string x;
          std::string y;
          ASSERT_EQ(whole.getline(x), chopped.getline(y));
          ASSERT_EQ(x, y) << "span " << span << " round " << round;
          break;
        }
        case 3: {
          char x[5];
          char y[5];
          ASSERT_EQ(whole.getline(x, sizeof x), chopped.getline(y, sizeof y));
          ASSERT_STREQ(x, y) << "span " << span << " round " << round;
          break;
        }
        case 4:
          ASSERT_EQ(whole.skipline(), chopped.skipline());
          break;
        default: {
          char x[9];
          char y[9];
          ASSERT_EQ(whole.read(x, sizeof x), chopped.read(y, sizeof y));
          ASSERT_EQ(std::string(x, whole.count()),
                    std::string(y, chopped.count()));
          break;
        }
      }
      ASSERT_EQ(whole.tell(), chopped.tell());
    }
  }
}

TEST(qxistreamFaultTest, ReadKeepsWhatArrivedBeforeAFailedFill) {
  FaultyIStream in("abcdefghij", 3, 5, Fault::kFail);
  char buf[10];
  EXPECT_EQ(in.read(buf, sizeof buf), 5u);
  EXPECT_EQ(std::string(buf, 5), "abcde");
  EXPECT_EQ(in.count(), 5u);
  EXPECT_TRUE(in.eof());
  EXPECT_EQ(in.tell(), 5u);
  EXPECT_EQ(in.faults(), 1);
  EXPECT_EQ(in.read(buf, sizeof buf), 0u);
  EXPECT_FALSE(in.skip(1));
  EXPECT_TRUE(in.skip(0));
}

TEST(qxistreamFaultTest, LinesAndTokensEndAtAFailedFill) {
  FaultyIStream lines("first line\nsecond line\n", 4, 15, Fault::kFail);
  std::string line;
  ASSERT_TRUE(lines.getline(line));
  EXPECT_EQ(line, "first line");
  ASSERT_TRUE(lines.getline(line));
  EXPECT_EQ(line, "seco");
  EXPECT_FALSE(lines.getline(line));
  EXPECT_EQ(line, "");
  EXPECT_FALSE(lines.skipline());

  FaultyIStream tokens("alpha beta gamma", 2, 8, Fault::kFail);
  char token[16];
  ASSERT_TRUE(tokens.gettoken(token, sizeof token));
  EXPECT_STREQ(token, "alpha");
  ASSERT_TRUE(tokens.gettoken(token, sizeof token));
  EXPECT_STREQ(token, "be");
  EXPECT_FALSE(tokens.gettoken(token, sizeof token));
  EXPECT_STREQ(token, "");
}

TEST(qxistreamFaultTest, ValuesAfterAFailedFillAreTheFixedFallbacks) {
  FaultyIStream in("123456 7", 2, 3, Fault::kFail);
  int first = -1;
  in >> first;
  EXPECT_EQ(first, 123);
  int second = -1;
  in >> second;
  EXPECT_EQ(second, 0);
  double real = -1;
  in >> real;
  EXPECT_EQ(real, 0.0);
  char c = 0;
  in >> c;
  EXPECT_EQ(static_cast<unsigned char>(c), 0xFF);
  bool b = true;
  in >> b;
  EXPECT_FALSE(b);
  std::string rest = "junk";
  in >> rest;
  EXPECT_EQ(rest, "");
  EXPECT_GE(in.faults(), 1);
}

// Runs one reader on a fresh stream whose first span is "abcd" and whose next
// fill throws; the exception must come out unchanged.
template <typename Reader>
void ExpectReadFault(Reader reader) {
  FaultyIStream in("abcdefgh ij\nkl", 4, 4, Fault::kThrow);
  try {
    reader(in);
    ADD_FAILURE() << "no exception";
  } catch (const QXIOError& error) {
    EXPECT_STREQ(error.what(), kReadFault);
  }
  EXPECT_EQ(in.faults(), 1);
}

TEST(qxistreamFaultTest, ThrowingFillPassesThroughEveryReader) {
  ExpectReadFault([](qxistream& in) {
    char buf[100];
    in.read(buf, sizeof buf);
  });
  ExpectReadFault([](qxistream& in) {
    std::string s;
    in.read(s);
  });
  ExpectReadFault([](qxistream& in) {
    std::string s;
    in.read(s, 100);
  });
  ExpectReadFault([](qxistream& in) { in.skip(100); });
  ExpectReadFault([](qxistream& in) { in.skipline(); });
  ExpectReadFault([](qxistream& in) {
    char buf[100];
    in.gettoken(buf, sizeof buf);
  });
  ExpectReadFault([](qxistream& in) {
    std::string s;
    in.gettoken(s, 100);
  });
  ExpectReadFault([](qxistream& in) {
    char buf[100];
    in.getline(buf, sizeof buf);
  });
  ExpectReadFault([](qxistream& in) {
    std::string s;
    in.getline(s);
  });
  // Scratch on the stack and, above the threshold, on the heap: the heap
  // scratch must be given back while the exception passes.
  ExpectReadFault([](qxistream& in) {
    std::string s;
    in.getline(s, 100);
  });
  ExpectReadFault([](qxistream& in) {
    std::string s;
    in.getline(s, 1UL << 20);
  });
  // Numbers take a heap scratch for their token.
  ExpectReadFault([](qxistream& in) {
    int x;
    in >> x;
  });
  ExpectReadFault([](qxistream& in) {
    unsigned long x;
    in >> x;
  });
  ExpectReadFault([](qxistream& in) {
    double x;
    in >> x;
  });
  ExpectReadFault([](qxistream& in) {
    std::string s;
    in >> s;
  });
  ExpectReadFault([](qxistream& in) {
    qxosstream out;
    in >> out;
  });
  ExpectReadFault([](qxistream& in) {
    qxosstream out;
    out << in;
  });
}

TEST(qxistreamFaultTest, ThrowingFirstFillPassesThroughByteReaders) {
  FaultyIStream chars("abc", 1, 0, Fault::kThrow);
  char c;
  EXPECT_THROW(chars >> c, QXIOError);
  FaultyIStream bools("abc", 1, 0, Fault::kThrow);
  bool b;
  EXPECT_THROW(bools >> b, QXIOError);
  // Once the thrower is spent the stream stays usable as an empty one.
  FaultyIStream once("abc", 1, 0, Fault::kFail);
  once >> c;
  EXPECT_EQ(static_cast<unsigned char>(c), 0xFF);
}

TEST(qxistreamFaultTest, CopyKeepsTheChunksBeforeAThrowingFill) {
  std::string data(6000, 'x');
  FaultyIStream in(data, 2, 5000, Fault::kThrow);
  FaultyOStream out(kPlenty, 0, Fault::kNone);
  EXPECT_THROW(out << in, QXIOError);
  // The first 4096-byte chunk was written; the second never arrived.
  EXPECT_EQ(out.pending() + out.text().size(), 4096u);
}

TEST(qxostreamFaultTest, OneByteSinkReceivesEverything) {
  FaultyOStream out(1, 0, Fault::kNone);
  out << "hello" << ' ' << 42 << ' ' << 1.5 << true << qxendl;
  EXPECT_EQ(out.text(), "hello 42 1.5000001\n");
  std::string big(100000, '\0');
  for (size_t i = 0; i < big.size(); ++i) {
    big[i] = static_cast<char>(i * 31 + 7);
  }
  EXPECT_EQ(out.write(big.data(), big.size()), big.size());
  EXPECT_TRUE(out.flush());
  EXPECT_EQ(out.text(), "hello 42 1.5000001\n" + big);
  EXPECT_FALSE(out.eof());
}

TEST(qxostreamFaultTest, FailingFlushEndsWritesAndSetsEof) {
  FaultyOStream out(8, 2, Fault::kFail);
  EXPECT_EQ(out.write("0123456789abcdef", 16), 16u);
  EXPECT_EQ(out.text(), "01234567");
  EXPECT_FALSE(out.eof());
  // The span is full: the next write needs the second flush, which fails.
  EXPECT_EQ(out.write("x", 1), 0u);
  EXPECT_TRUE(out.eof());
  EXPECT_EQ(out.write(std::string(16, 'y')), 0u);
  EXPECT_FALSE(out.flush());
  EXPECT_EQ(out.text(), "01234567");
}

TEST(qxostreamFaultTest, NumberIntoAFailingSinkKeepsTheFlushedPrefix) {
  FaultyOStream out(4, 2, Fault::kFail);
  out << 123456 << qxendl;
  EXPECT_EQ(out.text(), "1234");
  EXPECT_TRUE(out.eof());
  out << "more" << 1.0 << 'c' << qxendl;
  EXPECT_EQ(out.text(), "1234");
}

TEST(qxostreamFaultTest, EndlOnAFullFailingSpanFlushesTwiceWithoutTheLineFeed) {
  FaultyOStream out(4, 1, Fault::kFail);
  EXPECT_EQ(out.write("abcd", 4), 4u);
  out << qxendl;
  EXPECT_EQ(out.flushes(), 2);
  EXPECT_EQ(out.text(), "");
  EXPECT_TRUE(out.eof());
}

// Runs one writer on a fresh stream with a four-byte span whose first flush
// throws; the exception must come out unchanged.
template <typename Writer>
void ExpectWriteFault(Writer writer) {
  FaultyOStream out(4, 1, Fault::kThrow);
  try {
    writer(out);
    ADD_FAILURE() << "no exception";
  } catch (const QXIOError& error) {
    EXPECT_STREQ(error.what(), kWriteFault);
  }
  EXPECT_EQ(out.flushes(), 1);
}

TEST(qxostreamFaultTest, ThrowingFlushPassesThroughEveryWriter) {
  ExpectWriteFault([](qxostream& out) { out.write("0123456789", 10); });
  ExpectWriteFault([](qxostream& out) { out.write(std::string(10, 'a')); });
  ExpectWriteFault([](qxostream& out) { out << "longer than four"; });
  ExpectWriteFault([](qxostream& out) { out << std::string("a string"); });
  ExpectWriteFault([](qxostream& out) { out << 123456; });
  ExpectWriteFault([](qxostream& out) { out << 2.5; });
  ExpectWriteFault([](qxostream& out) { out << "abcd" << 'e'; });
  ExpectWriteFault([](qxostream& out) { out << "abcd" << true; });
  ExpectWriteFault([](qxostream& out) { out << qxendl; });
  ExpectWriteFault([](qxostream& out) { out << "abcd" << qxends; });
  ExpectWriteFault([](qxostream& out) { out << qxflush; });
  ExpectWriteFault([](qxostream& out) { out.flush(); });
  ExpectWriteFault([](qxostream& out) { out.close(); });
  ExpectWriteFault([](qxostream& out) {
    qxisstream in(std::string(100, 'z'));
    out << in;
  });
}

}  // namespace
}  // namespace QXPlatform
