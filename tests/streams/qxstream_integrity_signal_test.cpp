// Lost writes that only a process-wide setting lets a stream see: a reader
// that has gone (SIGPIPE ignored) and the file-size limit (SIGXFSZ
// ignored), through the stream manager, plain and gzip. A process of its
// own: both settings stay for the rest of the process.

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxstreammngr.h>

namespace QXPlatform {
namespace {

using testing::RandomBytes;
using testing::ScratchDir;

// Writes data to name through the manager; the checked close's result.
int WriteAndClose(const std::string& name, const std::string& data) {
  qxostream* out = QXOpenOStream(name.c_str());
  if (out == nullptr) {
    return -1;
  }
  out->write(data.data(), data.size());
  return QXCloseOStreamChecked(out);
}

class qxstreamIntegritySignalTest : public ::testing::Test {
 protected:
  void SetUp() override {
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
  }
};

TEST_F(qxstreamIntegritySignalTest, ReaderThatHasGoneIsABrokenPipe) {
  ScratchDir dir;
  std::string data = RandomBytes(1 << 20, 1);
  for (const char* leaf : {"pipe", "pipe.gz"}) {
    std::string name = dir.File(leaf);
    ASSERT_EQ(mkfifo(name.c_str(), 0600), 0);
    // A reader must be there for the writer's open to return; it leaves
    // before anything is written.
    int reader = ::open(name.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    qxostream* out = QXOpenOStream(name.c_str());
    ASSERT_NE(out, nullptr) << leaf;
    ::close(reader);
    out->write(data.data(), data.size());
    EXPECT_EQ(out->error(), EPIPE) << leaf;
    EXPECT_EQ(QXCloseOStreamChecked(out), EPIPE) << leaf;
  }
}

TEST_F(qxstreamIntegritySignalTest, FileSizeLimitIsFileTooLarge) {
  ScratchDir dir;
  struct rlimit old;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
  struct rlimit limit = old;
  // Not a multiple of the block size: the write at the limit is short.
  limit.rlim_cur = 100000;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  std::string data = RandomBytes(1 << 20, 2);
  int plain = WriteAndClose(dir.File("big.bin"), data);
  int packed = WriteAndClose(dir.File("big.bin.gz"), data);
  // At the limit exactly: the next write finds no room at all.
  limit.rlim_cur = 32768 * 2;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  int aligned = WriteAndClose(dir.File("aligned.bin"), data);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &old), 0);
  EXPECT_EQ(plain, EFBIG);
  EXPECT_EQ(packed, EFBIG);
  EXPECT_EQ(aligned, EFBIG);
  struct stat st;
  ASSERT_EQ(stat(dir.File("big.bin").c_str(), &st), 0);
  EXPECT_EQ(st.st_size, 100000);
  // Below the limit nothing fails.
  EXPECT_EQ(WriteAndClose(dir.File("small.bin.gz"), data.substr(0, 5000)), 0);
}

}  // namespace
}  // namespace QXPlatform
