// Wrappers around the global standard streams. Standard input is a file put
// on descriptor 0 before qxin first reads it; each test runs in a process of
// its own under ctest.

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxstdstream.h>
#include <QXPlatform/streams/qxwrapperstream.h>

namespace QXPlatform {
namespace {

using testing::CaptureFd;
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

using qxiwrapperstreamStdioTest = StdioTest;
using qxowrapperstreamStdioTest = StdioTest;

TEST_F(qxiwrapperstreamStdioTest,
       WrappersAroundQxinCloseAndDieWithoutClosingIt) {
  Stdin("standard input survives");
  for (int i = 0; i < 5; ++i) {
    qxiwrapperstream wrapper(&qxin, false);
    EXPECT_TRUE(wrapper.close());
    EXPECT_TRUE(wrapper.close());
    wrapper.set(&qxin, false);
    wrapper.clear();
  }
  for (int i = 0; i < 5; ++i) {
    qxiwrapperstream wrapper(&qxin, false);
  }
  EXPECT_EQ(qxin.descriptor(), 0);
  std::string all;
  qxin.read(all);
  EXPECT_EQ(all, "standard input survives");
}

TEST_F(qxowrapperstreamStdioTest,
       WrappersAroundQxoutCloseAndDieWithoutClosingIt) {
  CaptureFd out(1);
  for (int i = 0; i < 5; ++i) {
    qxowrapperstream wrapper(&qxout, false);
    wrapper << i;
    EXPECT_TRUE(wrapper.close());
    EXPECT_TRUE(wrapper.close());
  }
  for (int i = 0; i < 5; ++i) {
    qxowrapperstream wrapper(&qxout, false);
    wrapper << "lost";
  }
  EXPECT_EQ(qxout.descriptor(), 1);
  qxout << "|still open" << qxflush;
  EXPECT_EQ(out.Finish(), "01234|still open");
}

}  // namespace
}  // namespace QXPlatform
