// Every kind of output stream writing a file under a small file-size limit,
// with SIGXFSZ ignored so that the refused write fails with EFBIG instead of
// ending the process: the file keeps exactly the bytes below the limit, the
// failure shows in flush() or eof() as documented, and nothing crashes or
// leaks. Changes a process-wide limit and a signal disposition: own executable.

#include <signal.h>
#include <sys/resource.h>

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxcompress.h>
#include <QXPlatform/streams/qxfstream.h>
#include <QXPlatform/streams/qxgzstream.h>
#include <QXPlatform/streams/qxstdstream.h>
#include <QXPlatform/streams/qxwrapperstream.h>

namespace QXPlatform {
namespace {

const rlim_t kLimit = 40000;

// Lowers the soft file-size limit while it lives.
class FileSizeLimit {
 public:
  FileSizeLimit() {
    signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &_saved);
    struct rlimit small = _saved;
    small.rlim_cur = kLimit;
    _ok = setrlimit(RLIMIT_FSIZE, &small) == 0;
  }
  ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &_saved); }
  bool ok() const { return _ok; }

 private:
  struct rlimit _saved;
  bool _ok;
};

std::string Pattern(size_t n) {
  std::string data(n, '\0');
  for (size_t i = 0; i < n; ++i) {
    data[i] = static_cast<char>(i * 13 + i / 256);
  }
  return data;
}

// Two whole blocks do not fit under the limit: the first is written, the
// second is cut short by the limit, which fails the stream.
void ExpectCutAtTheLimit(qxofstream& out, const std::string& path) {
  std::string data = Pattern(100000);
  ASSERT_FALSE(out.eof());
  EXPECT_EQ(out.write(data.data(), data.size()), 0u);
  EXPECT_TRUE(out.eof());
  EXPECT_FALSE(out.flush());
  out << "more" << qxendl;
  out.close();
  EXPECT_EQ(testing::ReadFile(path), data.substr(0, kLimit));
}

TEST(qxofstreamFaultTest, FileSizeLimitCutsTheFileAndFailsTheStream) {
  testing::ScratchDir dir;
  std::string path = dir.File("out");
  FileSizeLimit limit;
  ASSERT_TRUE(limit.ok());
  qxofstream out(path.c_str());
  ExpectCutAtTheLimit(out, path);
}

TEST(qxiofstreamFaultTest, FileSizeLimitCutsTheFileAndFailsTheStream) {
  testing::ScratchDir dir;
  std::string path = dir.File("out");
  FileSizeLimit limit;
  ASSERT_TRUE(limit.ok());
  qxiofstream out(path.c_str());
  ExpectCutAtTheLimit(out, path);
}

TEST(qxofstreamFaultTest, AppendStopsAtTheLimitToo) {
  testing::ScratchDir dir;
  std::string path = dir.File("out");
  testing::WriteFile(path, std::string(kLimit - 10, 'a'));
  FileSizeLimit limit;
  ASSERT_TRUE(limit.ok());
  qxofstream out;
  ASSERT_TRUE(out.append(path.c_str()));
  EXPECT_EQ(out.write("0123456789ABCDEF", 16), 16u);
  EXPECT_FALSE(out.flush());
  EXPECT_TRUE(out.eof());
  out.close();
  EXPECT_EQ(testing::ReadFile(path),
            std::string(kLimit - 10, 'a') + "0123456789");
}

TEST(qxostdstreamFaultTest, FileSizeLimitLeavesTheStandardStreamBad) {
  testing::ScratchDir dir;
  std::string path = dir.File("out");
  FileSizeLimit limit;
  ASSERT_TRUE(limit.ok());
  std::ofstream* file = new std::ofstream(path, std::ios::binary);
  qxostdstream out(file, true);
  std::string data = Pattern(100000);
  EXPECT_EQ(out.write(data.data(), data.size()), data.size());
  // Deliberate in the adapter: the standard stream's failure is not seen.
  EXPECT_TRUE(out.flush());
  EXPECT_TRUE(file->bad());
  EXPECT_TRUE(out.close());
  EXPECT_EQ(testing::ReadFile(path), data.substr(0, kLimit));
}

TEST(qxowrapperstreamFaultTest, FileSizeLimitUnderTheWrapperFailsItsWrites) {
  testing::ScratchDir dir;
  std::string path = dir.File("out");
  std::string data = Pattern(100000);
  FileSizeLimit limit;
  ASSERT_TRUE(limit.ok());
  {
    qxowrapperstream wrapper(new qxofstream(path.c_str()), true);
    EXPECT_EQ(wrapper.write(data.data(), data.size()), 0u);
    EXPECT_FALSE(wrapper.flush());
    EXPECT_TRUE(wrapper.close());
  }
  EXPECT_EQ(testing::ReadFile(path), data.substr(0, kLimit));
}

TEST(qxogzstreamFaultTest, FileSizeLimitCutsTheMemberAndFailsTheStream) {
  testing::ScratchDir dir;
  std::string path = dir.File("out.gz");
  std::string data = testing::RandomBytes(100000, 1);
  std::string packed;
  ASSERT_TRUE(QXCompress(packed, data, "gz"));
  ASSERT_GT(packed.size(), kLimit);
  FileSizeLimit limit;
  ASSERT_TRUE(limit.ok());
  testing::CaptureFd err(2);
  {
    qxofstream* file = new qxofstream(path.c_str());
    qxogzstream gz(file, true);
    gz.write(data.data(), data.size());
    gz.close();
    EXPECT_TRUE(gz.eof());
  }
  qxerr.flush();
  EXPECT_EQ(err.Finish(), "");
  EXPECT_EQ(testing::ReadFile(path), packed.substr(0, kLimit));
}

TEST(qxmultiostreamFaultTest, FileSizeLimitCutsEveryFile) {
  testing::ScratchDir dir;
  std::string first = dir.File("first");
  std::string second = dir.File("second");
  std::string data = Pattern(100000);
  FileSizeLimit limit;
  ASSERT_TRUE(limit.ok());
  {
    qxmultiostream multi;
    multi.addstream(new qxofstream(first.c_str()), true);
    multi.addstream(new qxofstream(second.c_str()), true);
    EXPECT_EQ(multi.write(data.data(), data.size()), 0u);
    EXPECT_FALSE(multi.flush());
  }
  EXPECT_EQ(testing::ReadFile(first), data.substr(0, kLimit));
  EXPECT_EQ(testing::ReadFile(second), data.substr(0, kLimit));
}

}  // namespace
}  // namespace QXPlatform
