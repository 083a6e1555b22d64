// Functions run on threads of their own through QXRunThread, and the timed
// wait of QXCondition.

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include <QXPlatform/system/qxsync.h>
#include <QXPlatform/system/qxthread.h>

namespace QXPlatform {
namespace {

using testing::CaptureFd;

TEST(QXRunThreadTest, RunsTheFunctionOnAnotherThread) {
  pthread_t caller = pthread_self();
  std::atomic<bool> sameThread{true};
  {
    QXThreadHandle handle = QXRunThread(
        [&] { sameThread = pthread_equal(pthread_self(), caller); });
    EXPECT_TRUE(handle.Joinable());
  }
  EXPECT_FALSE(sameThread.load());
}

TEST(QXRunThreadTest, DestroyingTheHandleWaitsForTheFunction) {
  std::atomic<bool> done{false};
  {
    QXThreadHandle handle = QXRunThread([&] {
      usleep(50000);
      done = true;
    });
  }
  EXPECT_TRUE(done.load());
}

TEST(QXRunThreadTest, JoinWaitsOnceAndLeavesAnEmptyHandle) {
  int value = 0;
  QXThreadHandle handle = QXRunThread([&value] { value = 7; });
  handle.Join();
  EXPECT_EQ(value, 7);
  EXPECT_FALSE(handle.Joinable());
  CaptureFd err(2);
  handle.Join();
  EXPECT_EQ(err.Finish(), "");
}

TEST(QXRunThreadTest, AnEmptyHandleHasNothingToWaitFor) {
  CaptureFd err(2);
  {
    QXThreadHandle handle;
    EXPECT_FALSE(handle.Joinable());
    handle.Join();
  }
  EXPECT_EQ(err.Finish(), "");
}

TEST(QXRunThreadTest, MovingTheHandleMovesTheWait) {
  std::atomic<int> finished{0};
  QXThreadHandle first = QXRunThread([&] {
    usleep(20000);
    ++finished;
  });
  QXThreadHandle moved(std::move(first));
  EXPECT_FALSE(first.Joinable());
  EXPECT_TRUE(moved.Joinable());
  moved.Join();
  EXPECT_EQ(finished.load(), 1);
}

TEST(QXRunThreadTest, MoveAssignmentWaitsForTheFunctionItReplaces) {
  std::atomic<bool> firstDone{false};
  std::atomic<bool> secondDone{false};
  QXThreadHandle handle = QXRunThread([&] {
    usleep(50000);
    firstDone = true;
  });
  handle = QXRunThread([&] { secondDone = true; });
  // The first function had to finish before the handle took the second.
  EXPECT_TRUE(firstDone.load());
  handle.Join();
  EXPECT_TRUE(secondDone.load());
}

TEST(QXRunThreadTest, TheFunctionIsDestroyedBeforeTheWaitEnds) {
  // What the function holds goes with it, on its own thread.
  auto shared = std::make_shared<int>(5);
  std::weak_ptr<int> watch = shared;
  QXThreadHandle handle =
      QXRunThread([held = std::move(shared)] { EXPECT_EQ(*held, 5); });
  handle.Join();
  EXPECT_TRUE(watch.expired());
}

TEST(QXRunThreadTest, ManyFunctionsRunAtOnce) {
  std::atomic<int> sum{0};
  std::vector<QXThreadHandle> handles;
  for (int i = 1; i <= 16; ++i) {
    handles.push_back(QXRunThread([&sum, i] { sum += i; }));
  }
  handles.clear();
  EXPECT_EQ(sum.load(), 136);
}

TEST(QXConditionTimedWaitTest, GivesUpAfterTheTimeAndHoldsTheMutexAgain) {
  QXCondition condition;
  CaptureFd err(2);
  condition.Acquire();
  auto start = std::chrono::steady_clock::now();
  bool woken = condition.Wait(30ul);
  auto waited = std::chrono::steady_clock::now() - start;
  condition.Release();
  EXPECT_FALSE(woken);
  EXPECT_GE(waited, std::chrono::milliseconds(30));
  // Releasing worked, so the mutex was held again.
  EXPECT_EQ(err.Finish(), "");
}

TEST(QXConditionTimedWaitTest, ZeroGivesUpAtOnce) {
  QXCondition condition;
  condition.Acquire();
  EXPECT_FALSE(condition.Wait(0ul));
  condition.Release();
}

// Waits with the given time-out until go is set; counts the wake-ups that
// came before the time ran out.
struct TimedMonitor {
  QXCondition condition;
  bool go = false;
  bool waiting = false;
};

TEST(QXConditionTimedWaitTest, ASignalEndsTheWaitWithTrue) {
  for (unsigned long timeout : {60000ul, ~0ul}) {
    TimedMonitor monitor;
    bool sawGo = false;
    bool timedOut = false;
    QXThreadHandle waiter = QXRunThread([&] {
      monitor.condition.Acquire();
      monitor.waiting = true;
      monitor.condition.Broadcast();
      while (!monitor.go) {
        if (!monitor.condition.Wait(timeout)) {
          timedOut = true;
          break;
        }
      }
      sawGo = monitor.go;
      monitor.condition.Release();
    });
    monitor.condition.Acquire();
    while (!monitor.waiting) {
      monitor.condition.Wait();
    }
    monitor.go = true;
    monitor.condition.Signal();
    monitor.condition.Release();
    waiter.Join();
    EXPECT_TRUE(sawGo) << timeout;
    EXPECT_FALSE(timedOut) << timeout;
  }
}

}  // namespace
}  // namespace QXPlatform
