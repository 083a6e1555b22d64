// Runs in a process of its own: it installs signal handlers and changes the
// file-size limit.

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

using testing::ScratchDir;

std::atomic<int> gSignals(0);

void CountSignal(int) { ++gSignals; }

// Installs CountSignal for SIGUSR1 without SA_RESTART, so that a blocked
// read or write returns EINTR, and puts the old handler back afterwards.
class InterruptingHandler {
 public:
  InterruptingHandler() {
    struct sigaction action = {};
    action.sa_handler = CountSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    sigaction(SIGUSR1, &action, &_old);
  }
  ~InterruptingHandler() { sigaction(SIGUSR1, &_old, nullptr); }

 private:
  struct sigaction _old;
};

void SleepMs(int ms) {
  struct timespec t = {0, ms * 1000000L};
  nanosleep(&t, nullptr);
}

// Once *started is set, waits until the target is surely blocked, then
// interrupts it a few times.
void Interrupt(pthread_t target, const std::atomic<bool>* started) {
  while (!started->load()) {
    SleepMs(1);
  }
  for (int i = 0; i < 3; ++i) {
    SleepMs(50);
    pthread_kill(target, SIGUSR1);
  }
  SleepMs(50);
}

TEST(qxifstreamTest, ReadInterruptedBySignalsIsRetried) {
  InterruptingHandler handler;
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  gSignals = 0;
  std::atomic<bool> started(false);
  pthread_t self = pthread_self();
  std::thread helper([&] {
    Interrupt(self, &started);
    EXPECT_EQ(write(fds[1], "late data\n", 10), 10);
    close(fds[1]);
  });
  qxifstream in(fds[0]);
  started = true;
  std::string line;
  EXPECT_TRUE(in.getline(line));
  helper.join();
  EXPECT_EQ(line, "late data");
  EXPECT_EQ(gSignals.load(), 3);
  EXPECT_FALSE(in.getline(line));
}

TEST(qxofstreamTest, WriteInterruptedBeforeAnyByteIsRetried) {
  InterruptingHandler handler;
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  // Fill the pipe completely, so that the next write blocks before it can
  // put a single byte.
  int flags = fcntl(fds[1], F_GETFL);
  fcntl(fds[1], F_SETFL, flags | O_NONBLOCK);
  char filler[4096] = {};
  long queued = 0;
  long n;
  while ((n = write(fds[1], filler, sizeof filler)) > 0) {
    queued += n;
  }
  while ((n = write(fds[1], filler, 1)) > 0) {
    queued += n;
  }
  fcntl(fds[1], F_SETFL, flags);
  gSignals = 0;
  std::atomic<bool> started(false);
  std::atomic<long> drained(0);
  pthread_t self = pthread_self();
  std::thread helper([&] {
    Interrupt(self, &started);
    char buffer[65536];
    long got;
    while ((got = read(fds[0], buffer, sizeof buffer)) > 0) {
      drained += got;
    }
  });
  bool flushed;
  {
    qxofstream out(fds[1]);
    std::string data(32768, 'w');
    out.write(data.data(), data.size());
    started = true;
    flushed = out.flush();
    EXPECT_FALSE(out.eof());
  }
  helper.join();
  EXPECT_TRUE(flushed);
  EXPECT_EQ(gSignals.load(), 3);
  EXPECT_EQ(drained.load(), queued + 32768);
  close(fds[0]);
}

TEST(qxofstreamTest, ShortWriteSetsTheFailFlagAndDropsTheRest) {
  ScratchDir dir;
  struct sigaction ignore = {};
  struct sigaction old;
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGXFSZ, &ignore, &old);
  struct rlimit saved;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
  struct rlimit small = saved;
  small.rlim_cur = 1000;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  bool flushed;
  bool failed;
  unsigned long long position;
  {
    qxofstream out(dir.File("f").c_str());
    std::string data(5000, 's');
    out.write(data.data(), data.size());
    flushed = out.flush();
    failed = out.eof();
    position = out.tell();
  }
  setrlimit(RLIMIT_FSIZE, &saved);
  sigaction(SIGXFSZ, &old, nullptr);
  EXPECT_FALSE(flushed);
  EXPECT_TRUE(failed);
  EXPECT_EQ(position, 5000u);
  EXPECT_EQ(testing::ReadFile(dir.File("f")), std::string(1000, 's'));
}

}  // namespace
}  // namespace QXPlatform
