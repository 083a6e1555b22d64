// Every back-end records its first failure in error() and errortext(), and
// the specified results and flags stay as they were.

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>
#include <streambuf>
#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_gzip.h"
#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxfstream.h>
#include <QXPlatform/streams/qxgzstream.h>
#include <QXPlatform/streams/qxsstream.h>
#include <QXPlatform/streams/qxstdstream.h>
#include <QXPlatform/streams/qxstreammngr.h>
#include <QXPlatform/streams/qxwrapperstream.h>

namespace QXPlatform {
namespace {

using testing::MakeMember;
using testing::RandomBytes;
using testing::SampleText;
using testing::ScratchDir;
using testing::WriteFile;

// Delivers its bytes in spans of 1000, then fails with code.
class FailingSource : public qxistream {
 public:
  FailingSource(std::string data, int code)
      : _data(std::move(data)), _code(code), _pos(0) {
    _eof = false;
  }

 protected:
  bool _qxfill() override {
    if (_pos >= _data.size()) {
      SetError(_code);
      _ptr = _end;
      _eof = true;
      return false;
    }
    size_t n = std::min<size_t>(1000, _data.size() - _pos);
    std::copy(_data.data() + _pos, _data.data() + _pos + n, _buffer);
    _pos += n;
    _offset += static_cast<unsigned long long>(_ptr - _begin);
    _ptr = _begin = _buffer;
    _end = _buffer + n;
    return true;
  }

 private:
  std::string _data;
  int _code;
  size_t _pos;
};

// Refuses every flush with code.
class FailingSink : public qxostream {
 public:
  explicit FailingSink(int code) : _code(code) {}

 protected:
  bool _qxflush() override {
    SetError(_code);
    _ptr = _begin;
    _eof = true;
    return false;
  }

 private:
  int _code;
};

// ---------------------------------------------------------------------------
// Descriptor streams

TEST(qxstreamIntegrityTest, ReadingADirectoryIsNotTheEndOfAFile) {
  ScratchDir dir;
  qxifstream in(dir.path().c_str());
  ASSERT_FALSE(in.eof());
  std::string all;
  EXPECT_EQ(in.read(all), 0u);
  EXPECT_TRUE(in.eof());
  EXPECT_EQ(in.error(), EISDIR);
  EXPECT_STREQ(in.errortext(), "Is a directory");
}

TEST(qxstreamIntegrityTest, ReadingAFileToItsEndIsNoFailure) {
  ScratchDir dir;
  WriteFile(dir.File("a"), "abc");
  qxifstream in(dir.File("a").c_str());
  std::string all;
  EXPECT_EQ(in.read(all), 3u);
  EXPECT_EQ(in.error(), 0);
  EXPECT_STREQ(in.errortext(), "");
}

TEST(qxstreamIntegrityTest, FullDeviceIsNoSpaceAndSurvivesClose) {
  qxofstream out("/dev/full");
  ASSERT_FALSE(out.eof());
  EXPECT_EQ(out.write("abc", 3), 3u);
  EXPECT_FALSE(out.flush());
  EXPECT_TRUE(out.eof());
  EXPECT_EQ(out.error(), ENOSPC);
  EXPECT_STREQ(out.errortext(), "No space left on device");
  out.close();
  EXPECT_EQ(out.error(), ENOSPC);
  ASSERT_TRUE(out.open("/dev/null"));
  EXPECT_EQ(out.error(), 0);
}

TEST(qxstreamIntegrityTest, FailedOpenRecordsTheCause) {
  qxofstream out("/no/such/dir/x");
  EXPECT_EQ(out.error(), ENOENT);
  qxifstream in("/no/such/file");
  EXPECT_EQ(in.error(), ENOENT);
  qxofstream append;
  EXPECT_FALSE(append.append("/no/such/dir/x"));
  EXPECT_EQ(append.error(), ENOENT);
}

TEST(qxstreamIntegrityTest, OpeningADescriptorForgetsTheFailure) {
  qxofstream out("/dev/full");
  out.write("x", 1);
  out.flush();
  ASSERT_EQ(out.error(), ENOSPC);
  int fd = ::open("/dev/null", O_WRONLY);
  ASSERT_GE(fd, 3);
  ASSERT_TRUE(out.openfd(fd, true));
  EXPECT_EQ(out.error(), 0);
}

// ---------------------------------------------------------------------------
// Memory streams

TEST(qxstreamIntegrityTest, CallerMemoryThatIsFullIsNoSpace) {
  unsigned char memory[10];
  qxostream out;
  ASSERT_TRUE(out.open(memory, sizeof memory));
  EXPECT_EQ(out.write("0123456789", 10), 10u);
  EXPECT_EQ(out.error(), 0);
  // The specified results stay: 0, the end flag, position 10.
  EXPECT_EQ(out.write("x", 1), 0u);
  EXPECT_TRUE(out.eof());
  EXPECT_EQ(out.tell(), 10u);
  EXPECT_EQ(out.error(), ENOSPC);
  EXPECT_STREQ(out.errortext(), "No space left on device");
}

TEST(qxstreamIntegrityTest, MemoryOutputStreamOnFullCallerMemoryIsNoSpace) {
  unsigned char memory[4];
  qxosstream out;
  ASSERT_TRUE(out.open(memory, sizeof memory));
  EXPECT_EQ(out.write("abcdef", 6), 0u);
  EXPECT_EQ(out.error(), ENOSPC);
}

TEST(qxstreamIntegrityTest, GrowingMemoryAndTheNullSinkNeverFail) {
  qxosstream text;
  std::string big = RandomBytes(1 << 20, 1);
  text.write(big.data(), big.size());
  EXPECT_EQ(text.str(), big);
  EXPECT_EQ(text.error(), 0);
  qxnul.write(big.data(), big.size());
  EXPECT_TRUE(qxnul.flush());
  EXPECT_EQ(qxnul.error(), 0);
}

// ---------------------------------------------------------------------------
// Standard-library adapters

// A buffer whose reads and writes throw, which the standard streams turn
// into badbit.
class BrokenBuf : public std::streambuf {
 protected:
  int_type underflow() override { throw 1; }
  int_type overflow(int_type) override { throw 1; }
  std::streamsize xsputn(const char*, std::streamsize) override { throw 1; }
};

TEST(qxstreamIntegrityTest, StandardInputThatGoesBadIsAnIoError) {
  BrokenBuf buf;
  std::istream broken(&buf);
  qxistdstream in(&broken, false);
  char c;
  EXPECT_EQ(in.read(&c, 1), 0u);
  EXPECT_EQ(in.error(), EIO);
  EXPECT_STREQ(in.errortext(), "Input/output error");

  std::istringstream fine("hello");
  qxistdstream good(&fine, false);
  std::string all;
  good.read(all);
  EXPECT_EQ(all, "hello");
  EXPECT_EQ(good.error(), 0);
}

TEST(qxstreamIntegrityTest, StandardOutputThatFailsIsAnIoErrorResultKept) {
  BrokenBuf buf;
  std::ostream broken(&buf);
  qxostdstream out(&broken, false);
  out.write("abc", 3);
  // Deliberate behaviour kept: the flush result does not look at the
  // standard stream; error() does.
  EXPECT_TRUE(out.flush());
  EXPECT_EQ(out.error(), EIO);

  std::ostringstream fine;
  qxostdstream good(&fine, false);
  good.write("abc", 3);
  EXPECT_TRUE(good.flush());
  EXPECT_EQ(fine.str(), "abc");
  EXPECT_EQ(good.error(), 0);
}

// ---------------------------------------------------------------------------
// Wrappers and fan-out

TEST(qxstreamIntegrityTest, InputWrapperTakesTheInnerFailure) {
  FailingSource inner(SampleText(5000, 2), EIO);
  qxiwrapperstream in(&inner, false);
  std::string all;
  in.read(all);
  EXPECT_EQ(all.size(), 5000u);
  EXPECT_EQ(in.error(), EIO);
}

TEST(qxstreamIntegrityTest, OutputWrapperTakesTheInnerFailure) {
  qxofstream full("/dev/full");
  qxowrapperstream out(&full, false);
  out.write("abc", 3);
  EXPECT_FALSE(out.flush());
  EXPECT_EQ(out.error(), ENOSPC);
}

// Takes every byte, counts how often it is closed and fails when it is; its
// destructor does not close it.
class CountsCloses : public qxostream {
 public:
  explicit CountsCloses(int* closes) : _closes(closes) {}

 protected:
  bool _qxclose() override {
    ++*_closes;
    SetError(EIO);
    return true;
  }

 private:
  int* _closes;
};

TEST(qxstreamIntegrityTest, OwnedStreamOtherThanAFileIsOnlyFlushedAndDeleted) {
  int closes = 0;
  {
    qxowrapperstream owning(new CountsCloses(&closes), true);
    EXPECT_EQ(owning.write("abc", 3), 3u);
    owning.close();
    EXPECT_EQ(owning.error(), 0);
  }
  EXPECT_EQ(closes, 0);
}

TEST(qxstreamIntegrityTest, OwnedFileStreamIsClosedWithEverythingWritten) {
  std::string path = ::testing::TempDir() + "qx_owned_file_XXXXXX";
  int fd = mkstemp(&path[0]);
  ASSERT_GE(fd, 0);
  ::close(fd);
  qxowrapperstream owning(new qxofstream(path.c_str()), true);
  EXPECT_EQ(owning.write("abc", 3), 3u);
  owning.close();
  EXPECT_EQ(owning.error(), 0);
  std::FILE* f = std::fopen(path.c_str(), "rb");
  ASSERT_NE(f, nullptr);
  char got[8] = {};
  EXPECT_EQ(std::fread(got, 1, sizeof got, f), 3u);
  std::fclose(f);
  EXPECT_STREQ(got, "abc");
  ::unlink(path.c_str());
}

TEST(qxstreamIntegrityTest, FanOutReportsTheFirstFailingTarget) {
  qxosstream good;
  FailingSink first(EIO);
  qxofstream second("/dev/full");
  qxmultiostream out;
  out.addstream(&good, false);
  out.addstream(&first, false);
  out.addstream(&second, false);
  out.write("abc", 3);
  // Specified: every target is written, the result is false.
  EXPECT_FALSE(out.flush());
  EXPECT_EQ(good.str(), "abc");
  EXPECT_EQ(second.error(), ENOSPC);
  EXPECT_EQ(out.error(), EIO);
}

// ---------------------------------------------------------------------------
// Gzip over failing streams

TEST(qxstreamIntegrityTest, ReadFailureUnderGzipIsTheReadFailure) {
  std::string text = SampleText(200000, 3);
  std::string gz = MakeMember(text);
  FailingSource inner(gz.substr(0, gz.size() / 2), EIO);
  qxigzstream in(&inner, false);
  std::string all;
  in.read(all);
  EXPECT_LT(all.size(), text.size());
  EXPECT_EQ(all, text.substr(0, all.size()));
  EXPECT_EQ(in.error(), EIO);
  EXPECT_STREQ(in.errortext(), "Input/output error");
}

TEST(qxstreamIntegrityTest, GzipOutputTakesTheInnerFailure) {
  FailingSink inner(EPIPE);
  qxogzstream out(&inner, false);
  std::string data = RandomBytes(200000, 4);
  out.write(data.data(), data.size());
  out.close();
  EXPECT_EQ(out.error(), EPIPE);
}

TEST(qxstreamIntegrityTest, GzipOutputOnAFullDeviceThroughTheManager) {
  ScratchDir dir;
  std::string name = dir.File("full.gz");
  ASSERT_EQ(symlink("/dev/full", name.c_str()), 0);
  // A thousand bytes: nothing leaves before the close.
  qxostream* out = QXOpenOStream(name.c_str());
  ASSERT_NE(out, nullptr);
  std::string data = SampleText(1000, 5);
  EXPECT_EQ(out->write(data.data(), data.size()), data.size());
  EXPECT_TRUE(out->flush());
  EXPECT_EQ(out->error(), 0);
  EXPECT_EQ(QXCloseOStreamChecked(out), ENOSPC);

  out = QXOpenOStream("/dev/full");
  ASSERT_NE(out, nullptr);
  out->write(data.data(), data.size());
  EXPECT_EQ(QXCloseOStreamChecked(out), ENOSPC);

  out = QXOpenOStream(dir.File("fine.gz").c_str());
  ASSERT_NE(out, nullptr);
  out->write(data.data(), data.size());
  EXPECT_EQ(QXCloseOStreamChecked(out), 0);
}

// ---------------------------------------------------------------------------
// Registered prefixes

qxistream* OpenFailing(const char*) {
  return new FailingSource(SampleText(3000, 6), EIO);
}
void CloseFailing(qxistream* s) { delete s; }
qxostream* OpenFull(const char*) { return new qxofstream("/dev/full"); }
void CloseFull(qxostream* s) { delete s; }

TEST(qxstreamIntegrityTest, RegisteredStreamsReportWhatTheHandlerStreamDoes) {
  QXRegisterIStream("integrityfail", OpenFailing, CloseFailing);
  QXRegisterOStream("integrityfull", OpenFull, CloseFull);
  qxistream* in = QXOpenIStream("integrityfail:x");
  ASSERT_NE(in, nullptr);
  std::string all;
  in->read(all);
  EXPECT_EQ(all.size(), 3000u);
  EXPECT_EQ(QXCloseIStreamChecked(in), EIO);

  qxostream* out = QXOpenOStream("integrityfull:x");
  ASSERT_NE(out, nullptr);
  out->write("abc", 3);
  EXPECT_EQ(QXCloseOStreamChecked(out), ENOSPC);
  // Packed on the way: the gzip stream takes the handler stream's failure.
  out = QXOpenOStream("integrityfull:x.gz");
  ASSERT_NE(out, nullptr);
  out->write("abc", 3);
  EXPECT_EQ(QXCloseOStreamChecked(out), ENOSPC);
}

}  // namespace
}  // namespace QXPlatform
