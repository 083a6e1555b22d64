// Run by run_in_namespace.sh with the setup "loopback" (host alpha, domain
// beta.gamma, address 127.0.0.1). The host-name getters keep what they find
// for the life of the process, so the race among first callers happens once
// per process: each round forks a fresh child in which sixteen threads make
// their first calls at the same moment, and all must get the same answers.

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_system.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

const int kThreads = 16;
const int kRounds = 12;

struct Answers {
  const char* host = nullptr;
  const char* domain = nullptr;
  const unsigned char* address = nullptr;
  long ident = -1;
  int processors = 0;
  std::string machine;
};

// The race itself, in a child; the exit status says what went wrong.
int RaceInChild() {
  std::vector<Answers> answers(kThreads);
  std::atomic<int> ready(0);
  std::atomic<bool> go(false);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&answers, &ready, &go, t] {
      ++ready;
      while (!go.load()) {
        std::this_thread::yield();
      }
      Answers& mine = answers[t];
      // Different orders, so that each getter has several first callers.
      switch (t % 4) {
        case 0:
          mine.host = QXGetHostName();
          mine.domain = QXGetDomainName();
          mine.address = QXGetIPAddress();
          break;
        case 1:
          mine.domain = QXGetDomainName();
          mine.address = QXGetIPAddress();
          mine.host = QXGetHostName();
          break;
        case 2:
          mine.address = QXGetIPAddress();
          mine.host = QXGetHostName();
          mine.domain = QXGetDomainName();
          break;
        default:
          mine.ident = QXGetHostIdent();
          mine.host = QXGetHostName();
          mine.address = QXGetIPAddress();
          mine.domain = QXGetDomainName();
          break;
      }
      mine.ident = QXGetHostIdent();
      mine.processors = QXGetNumProcessors();
      mine.machine = QXGetMachineName();
    });
  }
  while (ready.load() < kThreads) {
    std::this_thread::yield();
  }
  go = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  const Answers& first = answers[0];
  if (first.host == nullptr || first.domain == nullptr ||
      first.address == nullptr) {
    return 2;
  }
  if (std::strcmp(first.host, "alpha") != 0 ||
      std::strcmp(first.domain, "beta.gamma") != 0) {
    return 3;
  }
  static const unsigned char kLoopback[4] = {127, 0, 0, 1};
  if (std::memcmp(first.address, kLoopback, 4) != 0) {
    return 4;
  }
  for (const Answers& mine : answers) {
    // One computation: the very same buffers for every caller.
    if (mine.host != first.host || mine.domain != first.domain ||
        mine.address != first.address) {
      return 5;
    }
    if (mine.ident != first.ident || mine.processors != first.processors ||
        mine.machine != first.machine) {
      return 6;
    }
  }
  return 0;
}

TEST(QXHostStressTest, SixteenFirstCallersGetOneAnswerInEveryFreshProcess) {
  std::string why = testing::NamespaceMismatch("loopback");
  if (!why.empty()) {
    GTEST_SKIP() << why;
  }
  for (int round = 0; round < kRounds; ++round) {
    fflush(nullptr);
    pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
      _exit(RaceInChild());
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << "round " << round;
    EXPECT_EQ(WEXITSTATUS(status), 0) << "round " << round;
  }
}

}  // namespace
}  // namespace QXPlatform
