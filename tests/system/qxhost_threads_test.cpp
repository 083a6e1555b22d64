// Run by run_in_namespace.sh with the setup "loopback", so that every getter
// has an answer: host alpha, domain beta.gamma, address 127.0.0.1.

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_system.h"
#include <QXPlatform/QXPlatform.h>

namespace QXPlatform {
namespace {

const int kThreads = 8;

struct Answers {
  const char* host = nullptr;
  const char* domain = nullptr;
  const unsigned char* address = nullptr;
  std::string hostText;
  std::string domainText;
};

TEST(QXHostTest, HostNameEightThreadsAtOnceGetTheSameBuffers) {
  std::string why = testing::NamespaceMismatch("loopback");
  if (!why.empty()) {
    GTEST_SKIP() << why;
  }
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
      // Each thread asks in a different order, so that every initialiser
      // is raced by several first callers.
      Answers& mine = answers[t];
      switch (t % 3) {
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
        default:
          mine.address = QXGetIPAddress();
          mine.host = QXGetHostName();
          mine.domain = QXGetDomainName();
          break;
      }
      mine.hostText = mine.host != nullptr ? mine.host : "";
      mine.domainText = mine.domain != nullptr ? mine.domain : "";
    });
  }
  while (ready.load() < kThreads) {
    std::this_thread::yield();
  }
  go = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  ASSERT_NE(answers[0].host, nullptr);
  ASSERT_NE(answers[0].domain, nullptr);
  ASSERT_NE(answers[0].address, nullptr);
  for (int t = 0; t < kThreads; ++t) {
    EXPECT_EQ(answers[t].host, answers[0].host) << "thread " << t;
    EXPECT_EQ(answers[t].domain, answers[0].domain) << "thread " << t;
    EXPECT_EQ(answers[t].address, answers[0].address) << "thread " << t;
    EXPECT_EQ(answers[t].hostText, "alpha") << "thread " << t;
    EXPECT_EQ(answers[t].domainText, "beta.gamma") << "thread " << t;
  }
  EXPECT_EQ(testing::DottedQuad(answers[0].address), "127.0.0.1");
}

}  // namespace
}  // namespace QXPlatform
