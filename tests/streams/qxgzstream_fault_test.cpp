// zlib failures that real data cannot cause, injected by interposing the
// zlib entry points the library calls. The interposers forward to zlib
// unless a test arms them; this executable has no other tests.

#include <dlfcn.h>

#include <string>

#include <gtest/gtest.h>
#include <zlib.h>

#include "support/qxtest_gzip.h"
#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxgzstream.h>
#include <QXPlatform/streams/qxsstream.h>

namespace {

// What an armed entry point does instead of its work: return code, with
// msg (when not null) left in the stream.
struct Fault {
  bool armed = false;
  int code = Z_MEM_ERROR;
  const char* msg = nullptr;
  // deflate only: fail only calls with this flush value.
  int onlyFlush = -1;
};

Fault gDeflateInit;
Fault gDeflate;
Fault gDeflateEnd;
Fault gInflateInit;
Fault gInflateEnd;

template <typename F>
F Real(const char* name) {
  return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

int deflateInit2_(z_streamp strm, int level, int method, int windowBits,
                  int memLevel, int strategy, const char* version,
                  int stream_size) {
  static auto real =
      Real<int (*)(z_streamp, int, int, int, int, int, const char*, int)>(
          "deflateInit2_");
  if (gDeflateInit.armed) {
    strm->msg = const_cast<char*>(gDeflateInit.msg);
    return gDeflateInit.code;
  }
  return real(strm, level, method, windowBits, memLevel, strategy, version,
              stream_size);
}

int deflate(z_streamp strm, int flush) {
  static auto real = Real<int (*)(z_streamp, int)>("deflate");
  if (gDeflate.armed &&
      (gDeflate.onlyFlush < 0 || gDeflate.onlyFlush == flush)) {
    strm->msg = const_cast<char*>(gDeflate.msg);
    return gDeflate.code;
  }
  return real(strm, flush);
}

int deflateEnd(z_streamp strm) {
  static auto real = Real<int (*)(z_streamp)>("deflateEnd");
  int result = real(strm);
  if (gDeflateEnd.armed) {
    strm->msg = const_cast<char*>(gDeflateEnd.msg);
    return gDeflateEnd.code;
  }
  return result;
}

int inflateInit2_(z_streamp strm, int windowBits, const char* version,
                  int stream_size) {
  static auto real =
      Real<int (*)(z_streamp, int, const char*, int)>("inflateInit2_");
  if (gInflateInit.armed) {
    strm->msg = const_cast<char*>(gInflateInit.msg);
    return gInflateInit.code;
  }
  return real(strm, windowBits, version, stream_size);
}

int inflateEnd(z_streamp strm) {
  static auto real = Real<int (*)(z_streamp)>("inflateEnd");
  int result = real(strm);
  if (gInflateEnd.armed) {
    strm->msg = const_cast<char*>(gInflateEnd.msg);
    return gInflateEnd.code;
  }
  return result;
}

}  // extern "C"

namespace QXPlatform {
namespace {

using testing::CaptureFd;
using testing::MakeMember;
using testing::SampleText;
using testing::ZlibGunzip;

class FaultTest : public ::testing::Test {
 protected:
  void TearDown() override {
    gDeflateInit = Fault();
    gDeflate = Fault();
    gDeflateEnd = Fault();
    gInflateInit = Fault();
    gInflateEnd = Fault();
  }
};

// What qxerr received while a gzip stream wrote data and was closed.
std::string ErrorsWhileWriting(const std::string& data, std::string* packed) {
  qxosstream sink;
  CaptureFd err(2);
  {
    qxogzstream gz(&sink, false);
    gz.write(data.data(), data.size());
    gz.close();
  }
  std::string text = err.Finish();
  *packed = sink.str();
  return text;
}

// What qxerr received while a gzip stream read all of gz and was closed.
std::string ErrorsWhileReading(const std::string& gz, std::string* out) {
  qxisstream source(gz);
  CaptureFd err(2);
  {
    qxigzstream in(&source, false);
    in.read(*out);
    in.close();
  }
  return err.Finish();
}

using qxogzstreamFaultTest = FaultTest;
using qxigzstreamFaultTest = FaultTest;

TEST_F(qxogzstreamFaultTest, InitFailureIsReportedWithZlibsMessage) {
  gDeflateInit.armed = true;
  gDeflateInit.msg = "injected";
  std::string packed;
  EXPECT_EQ(ErrorsWhileWriting("abc", &packed),
            "qxogzstream init error: injected\n");
  EXPECT_EQ(packed, "");
}

TEST_F(qxogzstreamFaultTest, InitFailureWithoutAMessageIsReportedBare) {
  gDeflateInit.armed = true;
  std::string packed;
  EXPECT_EQ(ErrorsWhileWriting("abc", &packed), "qxogzstream init error\n");
}

TEST_F(qxogzstreamFaultTest, InitFailureMakesTheFlushOfAFullBlockFail) {
  gDeflateInit.armed = true;
  qxosstream sink;
  CaptureFd err(2);
  {
    qxogzstream gz(&sink, false);
    std::string block(32768, 'b');
    EXPECT_EQ(gz.write(block.data(), block.size()), block.size());
    EXPECT_FALSE(gz.flush());
    gDeflateInit.armed = false;
    gz.clear();
  }
  EXPECT_EQ(err.Finish(), "qxogzstream init error\n");
}

TEST_F(qxogzstreamFaultTest, DeflateFailureIsReportedAsAFlushError) {
  gDeflate.armed = true;
  gDeflate.code = Z_STREAM_ERROR;
  gDeflate.msg = "injected";
  gDeflate.onlyFlush = Z_NO_FLUSH;
  std::string packed;
  EXPECT_EQ(ErrorsWhileWriting("some data", &packed),
            "qxogzstream flush error: injected\n");
  gDeflate.msg = nullptr;
  EXPECT_EQ(ErrorsWhileWriting("some data", &packed),
            "qxogzstream flush error\n");
}

TEST_F(qxogzstreamFaultTest, DeflateEndFailureIsReportedAsAClearError) {
  gDeflateEnd.armed = true;
  gDeflateEnd.code = Z_DATA_ERROR;
  gDeflateEnd.msg = "injected";
  std::string packed;
  EXPECT_EQ(ErrorsWhileWriting("data", &packed),
            "qxogzstream clear error: injected\n");
  // The member itself was complete before the end call failed.
  EXPECT_EQ(ZlibGunzip(packed), "data");
  gDeflateEnd.msg = nullptr;
  EXPECT_EQ(ErrorsWhileWriting("data", &packed), "qxogzstream clear error\n");
}

TEST_F(qxigzstreamFaultTest, InitFailureIsReportedThenTheStreamEnds) {
  gInflateInit.armed = true;
  gInflateInit.msg = "injected";
  std::string out;
  // The failed stream cannot be ended either, and the fill that follows
  // finds no usable state.
  EXPECT_EQ(ErrorsWhileReading(MakeMember("payload"), &out),
            "qxigzstream init error: injected\n"
            "qxigzstream clear error: injected\n"
            "qxigzstream fill error: injected\n");
  EXPECT_EQ(out, "");
}

TEST_F(qxigzstreamFaultTest, InitFailureWithoutAMessageIsReportedBare) {
  gInflateInit.armed = true;
  std::string out;
  EXPECT_EQ(ErrorsWhileReading(MakeMember("payload"), &out),
            "qxigzstream init error\n"
            "qxigzstream clear error\n"
            "qxigzstream fill error\n");
  EXPECT_EQ(out, "");
}

TEST_F(qxigzstreamFaultTest, InflateEndFailureIsReportedOnClose) {
  gInflateEnd.armed = true;
  gInflateEnd.code = Z_STREAM_ERROR;
  gInflateEnd.msg = "injected";
  std::string out;
  EXPECT_EQ(ErrorsWhileReading(MakeMember("payload"), &out),
            "qxigzstream clear error: injected\n");
  EXPECT_EQ(out, "payload");
  gInflateEnd.msg = nullptr;
  out.clear();
  EXPECT_EQ(ErrorsWhileReading(MakeMember("payload"), &out),
            "qxigzstream clear error\n");
}

TEST_F(qxigzstreamFaultTest, InflateEndFailureIsReportedWhenSeekingBack) {
  std::string data = SampleText(100000, 1);
  qxisstream source(MakeMember(data));
  qxigzstream in(&source, false);
  std::string piece;
  in.read(piece, 50000);
  gInflateEnd.armed = true;
  gInflateEnd.code = Z_STREAM_ERROR;
  gInflateEnd.msg = "injected";
  CaptureFd err(2);
  EXPECT_TRUE(in.seek(10));
  EXPECT_EQ(err.Finish(), "qxigzstream clear error: injected\n");
  gInflateEnd.armed = false;
  in.read(piece, 10);
  EXPECT_EQ(piece, data.substr(10, 10));
}

}  // namespace
}  // namespace QXPlatform
