// The library's own messages on qxerr from four threads at once: every line
// arrives whole, once, and the two lines of a record warning stay together.
// Standard error is captured for the whole run, so this executable has no
// other tests.

#include <map>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_gzip.h"
#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

using testing::CaptureFd;

const int kMessages = 100000;

// A record whose Read takes one byte less than its size says: reading it
// back prints the two-line warning.
class ShortRecord : public QXBinaryIO {
 public:
  void Write(qxostream& out) const override { out.write("ab", 2); }
  unsigned long long Read(qxistream& in) override {
    char byte;
    return in.read(&byte, 1);
  }
  unsigned long long GetSize() const override { return 2; }
};

void UndefinedBlockSizes(unsigned long blocksize) {
  unsigned char src[8] = {0};
  unsigned char dst[8];
  for (int i = 0; i < kMessages; ++i) {
    QX_io_write_binary(dst, src, blocksize, 1);
  }
}

void RecordWarnings() {
  qxosstream image;
  ShortRecord record;
  image << record;
  std::string bytes = image.str();
  for (int i = 0; i < kMessages; ++i) {
    qxisstream in(bytes);
    in >> record;
  }
}

void GzipDiagnostics(const std::string& damaged) {
  for (int i = 0; i < kMessages; ++i) {
    std::string out;
    QXUncompress(out, damaged, "gz");
  }
}

// A member whose deflate data start with a reserved block type.
std::string DamagedMember() {
  std::string member = testing::MakeMember("some text to pack");
  member[10] = static_cast<char>(0xFF);
  return member;
}

TEST(QXDiagnosticsThreadsTest, EveryLibraryMessageArrivesWhole) {
  std::string damaged = DamagedMember();
  CaptureFd capture(2);
  // What one gzip diagnostic looks like, learnt from a single call.
  {
    std::string out;
    QXUncompress(out, damaged, "gz");
  }
  std::string gzipLine = capture.Finish();
  ASSERT_FALSE(gzipLine.empty());
  ASSERT_EQ(gzipLine.find('\n'), gzipLine.size() - 1) << gzipLine;

  CaptureFd all(2);
  std::vector<std::thread> threads;
  threads.emplace_back(UndefinedBlockSizes, 3);
  threads.emplace_back(UndefinedBlockSizes, 5);
  threads.emplace_back(RecordWarnings);
  threads.emplace_back(GzipDiagnostics, damaged);
  for (std::thread& thread : threads) {
    thread.join();
  }
  std::string text = all.Finish();

  const std::string warning =
      "WARNING operator>>(qxistream& istr, QXBinaryIO& obj) \n"
      "Record size (2) is not equal to number of bytes read (1)\n";
  std::map<std::string, int> seen;
  size_t at = 0;
  long broken = 0;
  while (at < text.size()) {
    if (text.compare(at, warning.size(), warning) == 0) {
      ++seen[warning];
      at += warning.size();
      continue;
    }
    size_t end = text.find('\n', at);
    if (end == std::string::npos) {
      ++broken;
      break;
    }
    std::string line = text.substr(at, end + 1 - at);
    if (line == "Error: undefined block size - 3\n" ||
        line == "Error: undefined block size - 5\n" || line == gzipLine) {
      ++seen[line];
    } else {
      ++broken;
    }
    at = end + 1;
  }
  EXPECT_EQ(broken, 0);
  EXPECT_EQ(seen["Error: undefined block size - 3\n"], kMessages);
  EXPECT_EQ(seen["Error: undefined block size - 5\n"], kMessages);
  EXPECT_EQ(seen[warning], kMessages);
  EXPECT_EQ(seen[gzipLine], kMessages);
}

}  // namespace
}  // namespace QXPlatform
