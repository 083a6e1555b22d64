// Wrapper and fan-out streams over inner streams that deliver one byte at a
// time, fail part way or throw, and over a device that refuses every byte:
// the documented results and messages, data before a fault kept, no leak.

#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "fault/qxfault_streams.h"
#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxfstream.h>
#include <QXPlatform/streams/qxsstream.h>
#include <QXPlatform/streams/qxstdstream.h>
#include <QXPlatform/streams/qxwrapperstream.h>

namespace QXPlatform {
namespace {

using testing::CaptureFd;
using testing::Fault;
using testing::FaultyIStream;
using testing::FaultyOStream;
using testing::kReadFault;
using testing::kWriteFault;
using testing::RandomBytes;

const unsigned long kPlenty = 1UL << 30;

std::string ReadAll(qxistream& in) {
  std::string all;
  in.read(all);
  return all;
}

TEST(qxiwrapperstreamFaultTest, OneByteInnerGivesEverything) {
  std::string data = RandomBytes(70000, 1);
  FaultyIStream inner(data, 1, kPlenty, Fault::kNone);
  qxiwrapperstream wrapper(&inner, false);
  EXPECT_EQ(ReadAll(wrapper), data);
  EXPECT_TRUE(wrapper.eof());
}

TEST(qxiwrapperstreamFaultTest, FailingInnerEndsTheDataWhereItFailed) {
  std::string data = RandomBytes(70000, 2);
  FaultyIStream inner(data, 1000, 40000, Fault::kFail);
  qxiwrapperstream wrapper(&inner, false);
  std::string line;
  EXPECT_EQ(ReadAll(wrapper), data.substr(0, 40000));
  EXPECT_TRUE(wrapper.eof());
  EXPECT_FALSE(wrapper.getline(line));
  EXPECT_GE(inner.faults(), 1);
}

TEST(qxiwrapperstreamFaultTest, ThrowingInnerPassesThroughAndTheWrapperLives) {
  // No line ends, so that getline reaches the fault.
  std::string data(70000, 'a');
  {
    FaultyIStream* inner = new FaultyIStream(data, 1000, 40000, Fault::kThrow);
    qxiwrapperstream wrapper(inner, true);
    char piece[50000];
    try {
      wrapper.read(piece, sizeof piece);
      ADD_FAILURE() << "no exception";
    } catch (const QXIOError& error) {
      EXPECT_STREQ(error.what(), kReadFault);
    }
    // The owned inner stream is still deleted with the wrapper.
  }
  FaultyIStream inner(data, 1000, 40000, Fault::kThrow);
  qxiwrapperstream wrapper(&inner, false);
  std::string text;
  EXPECT_THROW(wrapper.getline(text), QXIOError);
  EXPECT_THROW(wrapper.skip(50000), QXIOError);
}

TEST(qxowrapperstreamFaultTest, OneByteInnerReceivesEverything) {
  std::string data = RandomBytes(100000, 4);
  FaultyOStream inner(1, 0, Fault::kNone);
  {
    qxowrapperstream wrapper(&inner, false);
    EXPECT_EQ(wrapper.write(data.data(), data.size()), data.size());
    wrapper << "tail" << qxendl;
    EXPECT_TRUE(wrapper.close());
  }
  EXPECT_EQ(inner.text(), data + "tail\n");
}

TEST(qxowrapperstreamFaultTest,
     FailingInnerFailsTheFlushAndKeepsWhatWentBefore) {
  FaultyOStream inner(kPlenty, 3, Fault::kFail);
  qxowrapperstream wrapper(&inner, false);
  wrapper << "first" << qxendl;
  wrapper << "second" << qxendl;
  EXPECT_EQ(inner.text(), "first\nsecond\n");
  wrapper << "third";
  // The wrapper passes the inner stream's verdict on; its own span is
  // emptied either way.
  EXPECT_FALSE(wrapper.flush());
  EXPECT_TRUE(inner.eof());
  EXPECT_EQ(inner.text(), "first\nsecond\n");
  std::string big(40000, 'x');
  EXPECT_EQ(wrapper.write(big.data(), big.size()), 0u);
}

TEST(qxowrapperstreamFaultTest, ThrowingInnerPassesThroughWrites) {
  FaultyOStream inner(kPlenty, 1, Fault::kThrow);
  CaptureFd err(2);
  {
    qxowrapperstream wrapper(&inner, false);
    wrapper << "abc";
    EXPECT_THROW(wrapper.flush(), QXIOError);
    std::string big(40000, 'y');
    EXPECT_THROW(wrapper.write(big.data(), big.size()), QXIOError);
    EXPECT_THROW(wrapper << qxendl, QXIOError);
  }
  qxerr.flush();
  // The destructor flushes the inner stream inside a handler and reports.
  EXPECT_EQ(err.Finish(),
            "Caught QXIOError during qxowrapperstream destruction: " +
                std::string(kWriteFault) + "\n");
}

TEST(qxmultiostreamFaultTest, FailingStreamDoesNotStopTheOthers) {
  FaultyOStream failing(kPlenty, 1, Fault::kFail);
  FaultyOStream oneByte(1, 0, Fault::kNone);
  qxosstream healthy;
  qxmultiostream multi;
  multi.addstream(&failing, false);
  multi.addstream(&oneByte, false);
  multi.addstream(&healthy, false);
  std::string data = RandomBytes(70000, 5);
  // The first full span already meets the failing stream's flush, so the
  // write reports failure; the other streams still get every byte.
  EXPECT_EQ(multi.write(data.data(), data.size()), 0u);
  EXPECT_FALSE(multi.flush());
  EXPECT_TRUE(failing.eof());
  EXPECT_EQ(oneByte.text(), data.substr(0, 32768));
  EXPECT_EQ(healthy.str(), data.substr(0, 32768));
  multi << "more" << qxendl;
  EXPECT_EQ(healthy.str(), data.substr(0, 32768) + "more\n");
  EXPECT_EQ(oneByte.text(), healthy.str());
}

TEST(qxmultiostreamFaultTest, ThrowingStreamPassesThroughAndStopsThatFlush) {
  qxosstream before;
  FaultyOStream throwing(kPlenty, 1, Fault::kThrow);
  qxosstream after;
  CaptureFd err(2);
  {
    qxmultiostream multi;
    multi.addstream(&before, false);
    multi.addstream(&throwing, false);
    multi.addstream(&after, false);
    multi << "abc";
    EXPECT_THROW(multi.flush(), QXIOError);
  }
  qxerr.flush();
  // The streams ahead of the thrower got the bytes, those behind it not;
  // the destructor does not flush and so reports nothing.
  EXPECT_EQ(before.str(), "abc");
  EXPECT_EQ(after.str(), "");
  EXPECT_EQ(err.Finish(), "");
}

const char kFull[] = "/dev/full";

TEST(qxowrapperstreamFaultTest, FullDeviceUnderTheWrapperFailsItsFlush) {
  if (access(kFull, W_OK) != 0) {
    GTEST_SKIP() << "no /dev/full";
  }
  CaptureFd err(2);
  {
    qxofstream* device = new qxofstream(kFull);
    qxowrapperstream wrapper(device, true);
    wrapper << "line" << qxendl;
    EXPECT_TRUE(device->eof());
    EXPECT_FALSE(wrapper.flush());
    std::string big(40000, 'z');
    EXPECT_EQ(wrapper.write(big.data(), big.size()), 0u);
    EXPECT_TRUE(wrapper.close());
  }
  qxerr.flush();
  EXPECT_EQ(err.Finish(), "");
}

TEST(qxmultiostreamFaultTest, FullDeviceBesideAFileFailsTheFlushOnly) {
  if (access(kFull, W_OK) != 0) {
    GTEST_SKIP() << "no /dev/full";
  }
  testing::ScratchDir dir;
  std::string path = dir.File("copy");
  std::string data = RandomBytes(100000, 6);
  {
    qxmultiostream multi;
    multi.addstream(new qxofstream(kFull), true);
    multi.addstream(new qxofstream(path.c_str()), true);
    // The first span reaches both streams; the failed flush then ends the
    // write, and the rest of the data is not taken.
    EXPECT_EQ(multi.write(data.data(), data.size()), 0u);
    EXPECT_EQ(testing::ReadFile(path), data.substr(0, 32768));
    EXPECT_EQ(multi.write(data.data(), 100), 100u);
    EXPECT_FALSE(multi.flush());
  }
  EXPECT_EQ(testing::ReadFile(path),
            data.substr(0, 32768) + data.substr(0, 100));
}

}  // namespace
}  // namespace QXPlatform
