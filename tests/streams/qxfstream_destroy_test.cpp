// Runs in a process of its own: it puts its own close() in front of the C
// library's, so that closing one chosen descriptor throws QXIOError the way
// a failing back-end would.

#include <sys/syscall.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace {

int gThrowingDescriptor = -1;

}  // namespace

extern "C" int close(int fd) {
  if (fd == gThrowingDescriptor && fd >= 0) {
    gThrowingDescriptor = -1;
    syscall(SYS_close, fd);
    throw QXPlatform::QXIOError("device went away");
  }
  return static_cast<int>(syscall(SYS_close, fd));
}

namespace QXPlatform {
namespace {

using testing::CaptureFd;
using testing::ScratchDir;

TEST(qxofstreamTest, DestructorReportsACaughtIOError) {
  ScratchDir dir;
  CaptureFd capture(2);
  {
    qxofstream out(dir.File("f").c_str());
    out << "payload";
    gThrowingDescriptor = out.descriptor();
  }
  EXPECT_EQ(capture.Finish(),
            "Caught QXIOError during qxofstream destruction: device went "
            "away\n");
  EXPECT_EQ(testing::ReadFile(dir.File("f")), "payload");
}

TEST(qxofstreamTest, IOErrorFromCloseOutsideTheDestructorReachesTheCaller) {
  ScratchDir dir;
  qxofstream out(dir.File("f").c_str());
  gThrowingDescriptor = out.descriptor();
  EXPECT_THROW(out.close(), QXIOError);
}

}  // namespace
}  // namespace QXPlatform
