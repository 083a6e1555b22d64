// Runs in a process of its own: it replaces standard input and forks
// children that exit with output still in the global streams.

#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_streams.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

using testing::Fields;

std::string ReadAll(int fd) {
  std::string text;
  char buffer[4096];
  long n;
  while ((n = read(fd, buffer, sizeof buffer)) > 0) {
    text.append(buffer, static_cast<size_t>(n));
  }
  return text;
}

// Runs body in a child whose standard output and error both go to one pipe,
// lets it exit normally, and returns what arrived.
template <typename Body>
std::string ChildOutput(Body body) {
  int fds[2];
  if (pipe(fds) != 0) {
    return "pipe failed";
  }
  fflush(nullptr);
  pid_t child = fork();
  if (child == 0) {
    dup2(fds[1], 1);
    dup2(fds[1], 2);
    close(fds[0]);
    close(fds[1]);
    body();
    exit(0);
  }
  close(fds[1]);
  std::string text = ReadAll(fds[0]);
  close(fds[0]);
  int status = 0;
  waitpid(child, &status, 0);
  return text;
}

TEST(qxinTest, StartsOpenWithAnEmptySpan) {
  EXPECT_EQ(qxin.descriptor(), 0);
  EXPECT_FALSE(qxin.eof());
  EXPECT_FALSE(qxin.buffered());
  EXPECT_FALSE(Fields::sizeknown(qxin));
  EXPECT_FALSE(qxout.eof());
  EXPECT_FALSE(qxerr.eof());
  EXPECT_FALSE(qxnul.eof());
  EXPECT_EQ(Fields::end(qxout) - Fields::buffer(qxout), 32768);
  EXPECT_EQ(Fields::end(qxnul) - Fields::buffer(qxnul), 32768);
  EXPECT_TRUE(Fields::sizeknown(qxnul));
}

TEST(qxinTest, ReadsStandardInput) {
  int saved = dup(0);
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  dup2(fds[0], 0);
  close(fds[0]);
  ASSERT_EQ(write(fds[1], "12 line two\r\nrest", 17), 17);
  close(fds[1]);
  int value = 0;
  std::string line;
  qxin >> value;
  EXPECT_TRUE(qxin.getline(line));
  EXPECT_EQ(value, 12);
  EXPECT_EQ(line, "line two");
  // Closing refuses for standard input; reading goes on.
  EXPECT_FALSE(qxin.close());
  EXPECT_TRUE(qxin.getline(line));
  EXPECT_EQ(line, "rest");
  EXPECT_FALSE(qxin.getline(line));
  dup2(saved, 0);
  close(saved);
}

TEST(qxoutTest, PendingOutputIsWrittenAtExit) {
  std::string text = ChildOutput([] { qxout << "pending " << 42; });
  EXPECT_EQ(text, "pending 42");
}

TEST(qxoutTest, ExitDestroysTheGlobalsInReverseOrder) {
  // qxerr was built after qxout, so it is flushed first at exit.
  std::string text = ChildOutput([] {
    qxout << "out";
    qxerr << "err";
  });
  EXPECT_EQ(text, "errout");
}

TEST(qxoutTest, FailedOutputAtExitIsSilent) {
  std::string text = ChildOutput([] {
    close(1);
    qxout << "lost";
    qxerr << "seen";
  });
  EXPECT_EQ(text, "seen");
}

}  // namespace
}  // namespace QXPlatform
