// Each thread's zstd streams are made only when the thread first uses
// "zstd": counted by interposing the zstd library's constructors, which the
// interposers forward to the real ones. This executable has no other tests.

#include <dlfcn.h>

#include <atomic>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <zstd.h>

#include <QXPlatform/streams/qxcompress.h>

namespace {

std::atomic<int> gCStreams(0);
std::atomic<int> gDStreams(0);

template <typename F>
F Real(const char* name) {
  return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

ZSTD_CStream* ZSTD_createCStream(void) {
  static auto real = Real<ZSTD_CStream* (*)(void)>("ZSTD_createCStream");
  ++gCStreams;
  return real();
}

ZSTD_DStream* ZSTD_createDStream(void) {
  static auto real = Real<ZSTD_DStream* (*)(void)>("ZSTD_createDStream");
  ++gDStreams;
  return real();
}

}  // extern "C"

namespace QXPlatform {
namespace {

// Runs body on a thread of its own, which starts without zstd state.
template <typename Body>
void OnFreshThread(Body body) {
  std::thread thread(body);
  thread.join();
}

TEST(QXCompressContextsTest, GzipAndUnknownMethodsMakeNoZstdStream) {
  int cBefore = gCStreams;
  int dBefore = gDStreams;
  OnFreshThread([] {
    std::string out;
    std::string packed;
    EXPECT_TRUE(QXCompress(packed, "text", 4, "gz"));
    EXPECT_FALSE(QXCompress(out, "text", 4, "nope"));
    EXPECT_FALSE(QXCompress(out, "text", 4, nullptr));
    EXPECT_TRUE(QXUncompress(out, packed, "gz"));
    EXPECT_EQ(out, "text");
    EXPECT_FALSE(QXUncompress(out, packed, "zst"));
    int error = -1;
    out.clear();
    EXPECT_TRUE(QXUncompress(out, packed, "gz", &error));
    EXPECT_EQ(out, "text");
    EXPECT_FALSE(QXUncompress(out, packed, "zst", &error));
  });
  EXPECT_EQ(gCStreams - cBefore, 0);
  EXPECT_EQ(gDStreams - dBefore, 0);
}

TEST(QXCompressContextsTest, ZstdMakesOneStreamPerThreadAndDirection) {
  int cBefore = gCStreams;
  int dBefore = gDStreams;
  OnFreshThread([] {
    std::string packed;
    std::string again;
    EXPECT_TRUE(QXCompress(packed, "text", 4, "zstd"));
    EXPECT_TRUE(QXCompress(again, "more", 4, "zstd"));
    std::string out;
    EXPECT_TRUE(QXUncompress(out, packed, "zstd"));
    EXPECT_EQ(out, "text");
  });
  EXPECT_EQ(gCStreams - cBefore, 1);
  EXPECT_EQ(gDStreams - dBefore, 1);
  OnFreshThread([] {
    std::string packed;
    EXPECT_TRUE(QXCompress(packed, "text", 4, "zstd"));
  });
  EXPECT_EQ(gCStreams - cBefore, 2);
  EXPECT_EQ(gDStreams - dBefore, 1);
}

}  // namespace
}  // namespace QXPlatform
