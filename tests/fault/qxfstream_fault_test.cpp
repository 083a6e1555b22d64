// Output streams on a device that refuses every byte (/dev/full): the
// failure shows in flush() and eof() as documented, writes that need a flush
// return 0, and destroying the streams reports nothing and leaks nothing.

#include <unistd.h>

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxfstream.h>
#include <QXPlatform/streams/qxstdstream.h>

namespace QXPlatform {
namespace {

const char kFull[] = "/dev/full";

bool HaveDevFull() { return access(kFull, W_OK) == 0; }

// Common checks for a descriptor stream opened on /dev/full.
void ExpectRefusedByDevice(qxofstream& out) {
  ASSERT_FALSE(out.eof());
  // Fits in the span: accepted without touching the device.
  EXPECT_EQ(out.write("0123456789", 10), 10u);
  EXPECT_FALSE(out.flush());
  EXPECT_TRUE(out.eof());
  // The failed flush emptied the span; a write larger than it needs a flush.
  std::string big(40000, 'b');
  EXPECT_EQ(out.write(big.data(), big.size()), 0u);
  out << "text" << 12 << qxendl;
  EXPECT_TRUE(out.eof());
  EXPECT_FALSE(out.flush());
}

TEST(qxofstreamFaultTest, DeviceThatRefusesEveryByteFailsTheFlush) {
  if (!HaveDevFull()) {
    GTEST_SKIP() << "no /dev/full";
  }
  qxofstream out(kFull);
  ExpectRefusedByDevice(out);
  EXPECT_TRUE(out.close());
}

TEST(qxiofstreamFaultTest, DeviceThatRefusesEveryByteFailsTheFlush) {
  if (!HaveDevFull()) {
    GTEST_SKIP() << "no /dev/full";
  }
  qxiofstream out(kFull);
  ExpectRefusedByDevice(out);
  // Reading the device still works: it reads as zero bytes.
  char buf[4] = {1, 1, 1, 1};
  EXPECT_EQ(out.pread(buf, sizeof buf, 0), 4);
  EXPECT_EQ(std::string(buf, 4), std::string(4, '\0'));
}

TEST(qxofstreamFaultTest,
     DestroyingAStreamWithPendingBytesOnAFullDeviceIsQuiet) {
  if (!HaveDevFull()) {
    GTEST_SKIP() << "no /dev/full";
  }
  testing::CaptureFd err(2);
  {
    qxofstream out(kFull);
    out << "never written";
    qxiofstream both(kFull);
    both << "never written either";
  }
  qxerr.flush();
  EXPECT_EQ(err.Finish(), "");
}

TEST(qxostdstreamFaultTest, FullDeviceIsNotNoticedByTheAdapter) {
  if (!HaveDevFull()) {
    GTEST_SKIP() << "no /dev/full";
  }
  std::ofstream* file = new std::ofstream(kFull, std::ios::binary);
  ASSERT_TRUE(file->good());
  qxostdstream out(file, true);
  EXPECT_EQ(out.write("0123456789", 10), 10u);
  // Deliberate in the adapter: the standard stream's state is not checked,
  // so its flush reports success while the standard stream has gone bad.
  EXPECT_TRUE(out.flush());
  EXPECT_FALSE(out.eof());
  EXPECT_TRUE(file->bad());
  std::string big(100000, 'c');
  EXPECT_EQ(out.write(big.data(), big.size()), big.size());
  out << "more" << qxendl;
  EXPECT_TRUE(out.close());
}

}  // namespace
}  // namespace QXPlatform
