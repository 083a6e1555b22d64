// The standard streams through the stream manager.
// Standard input is a file put on descriptor 0 before qxin first reads it;
// each test runs in a process of its own under ctest.

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_gzip.h"
#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxgzstream.h>
#include <QXPlatform/streams/qxstdstream.h>
#include <QXPlatform/streams/qxstreammngr.h>

namespace QXPlatform {
namespace {

using testing::CaptureFd;
using testing::MakeMember;
using testing::SampleText;
using testing::ScratchDir;
using testing::WriteFile;

class StdioTest : public ::testing::Test {
 protected:
  void SetUp() override { _saved = dup(0); }
  void TearDown() override {
    dup2(_saved, 0);
    close(_saved);
  }

  // Puts bytes on standard input.
  void Stdin(const std::string& bytes) {
    WriteFile(dir.File("stdin"), bytes);
    int fd = open(dir.File("stdin").c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    dup2(fd, 0);
    close(fd);
  }

  ScratchDir dir;

 private:
  int _saved = -1;
};

using QXStreamMngrStdioTest = StdioTest;

TEST_F(QXStreamMngrStdioTest, NoNameReadsStandardInput) {
  Stdin("line one\nline two\n");
  qxistream* in = QXOpenIStream(nullptr);
  ASSERT_NE(in, nullptr);
  std::string all;
  in->read(all);
  EXPECT_EQ(all, "line one\nline two\n");
  QXCloseIStream(in);
}

TEST_F(QXStreamMngrStdioTest, AnEmptyNameReadsStandardInputAndLeavesItUsable) {
  std::string data = SampleText(100000, 1);
  Stdin(data);
  qxistream* in = QXOpenIStream("");
  ASSERT_NE(in, nullptr);
  std::string piece;
  in->read(piece, 10);
  EXPECT_EQ(piece, data.substr(0, 10));
  QXCloseIStream(in);
  // The wrapper took one block from qxin; qxin goes on after it.
  std::string rest;
  qxin.read(rest);
  EXPECT_EQ(rest, data.substr(32768));
}

TEST_F(QXStreamMngrStdioTest, GzipOnStandardInputIsUnpacked) {
  std::string data = SampleText(200000, 2);
  Stdin(MakeMember(data));
  qxistream* in = QXOpenIStream(nullptr);
  ASSERT_NE(in, nullptr);
  EXPECT_NE(dynamic_cast<qxigzstream*>(in), nullptr);
  std::string all;
  in->read(all);
  EXPECT_EQ(all, data);
  QXCloseIStream(in);
}

TEST_F(QXStreamMngrStdioTest, EmptyStandardInputGivesAnEmptyStream) {
  Stdin("");
  qxistream* in = QXOpenIStream(nullptr);
  ASSERT_NE(in, nullptr);
  char c;
  EXPECT_EQ(in->read(&c, 1), 0u);
  QXCloseIStream(in);
}

TEST_F(QXStreamMngrStdioTest, ExhaustedStandardInputGivesNull) {
  Stdin("all of it");
  std::string all;
  qxin.read(all);
  ASSERT_EQ(all, "all of it");
  EXPECT_EQ(QXOpenIStream(nullptr), nullptr);
  EXPECT_EQ(QXOpenIStream(""), nullptr);
}

TEST_F(QXStreamMngrStdioTest, NoNameWritesStandardOutputAndLeavesItUsable) {
  CaptureFd out(1);
  qxostream* s = QXOpenOStream(nullptr);
  ASSERT_NE(s, nullptr);
  *s << "through the manager";
  QXCloseOStream(s);
  s = QXOpenOStream("");
  ASSERT_NE(s, nullptr);
  *s << ", again";
  QXCloseOStream(s);
  qxout << ", then directly" << qxflush;
  EXPECT_EQ(out.Finish(), "through the manager, again, then directly");
}

}  // namespace
}  // namespace QXPlatform
