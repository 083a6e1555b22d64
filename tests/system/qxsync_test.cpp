#include <errno.h>
#include <string.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include <QXPlatform/system/qxsync.h>
#include <QXPlatform/system/qxthread.h>

namespace QXPlatform {
namespace {

using testing::CaptureFd;

// Shared state of a small monitor: threads announce that they wait, then
// wait for the go flag.
struct Monitor {
  QXCondition condition;
  int waiting = 0;
  int woken = 0;
  bool go = false;
};

class Waiter : public QXThread {
 public:
  explicit Waiter(Monitor& monitor) : _monitor(monitor) {}
  void* Run(void* arg) override {
    _monitor.condition.Acquire();
    ++_monitor.waiting;
    // Wakes the owner, who waits on the same condition for everyone to be
    // waiting.
    _monitor.condition.Broadcast();
    while (!_monitor.go) {
      _monitor.condition.Wait();
    }
    ++_monitor.woken;
    _monitor.condition.Release();
    return arg;
  }

 private:
  Monitor& _monitor;
};

// Returns with the monitor acquired once count threads wait on it.
void AcquireWhenWaiting(Monitor& monitor, int count) {
  monitor.condition.Acquire();
  while (monitor.waiting < count) {
    monitor.condition.Wait();
  }
}

TEST(QXConditionTest, SignalWithoutWaiterPrintsNothing) {
  CaptureFd err(2);
  {
    QXCondition condition;
    condition.Acquire();
    condition.Signal();
    condition.Broadcast();
    condition.Release();
  }
  EXPECT_EQ(err.Finish(), "");
}

TEST(QXConditionTest, SignalWakesTheWaitingThread) {
  Monitor monitor;
  Waiter waiter(monitor);
  int tag = 0;
  CaptureFd err(2);
  ASSERT_TRUE(waiter.Start(&tag));
  AcquireWhenWaiting(monitor, 1);
  // The waiter is inside Wait now: it released the monitor to let us in.
  EXPECT_EQ(monitor.woken, 0);
  monitor.go = true;
  monitor.condition.Signal();
  monitor.condition.Release();
  EXPECT_EQ(waiter.Join(), &tag);
  EXPECT_EQ(monitor.woken, 1);
  EXPECT_EQ(err.Finish(), "");
}

TEST(QXConditionTest, BroadcastWakesEveryWaitingThread) {
  const int kThreads = 6;
  Monitor monitor;
  std::vector<std::unique_ptr<Waiter>> waiters;
  CaptureFd err(2);
  for (int i = 0; i < kThreads; ++i) {
    waiters.push_back(std::make_unique<Waiter>(monitor));
    ASSERT_TRUE(waiters.back()->Start(nullptr));
  }
  AcquireWhenWaiting(monitor, kThreads);
  EXPECT_EQ(monitor.woken, 0);
  monitor.go = true;
  monitor.condition.Broadcast();
  monitor.condition.Release();
  for (auto& waiter : waiters) {
    waiter->Join();
  }
  EXPECT_EQ(monitor.woken, kThreads);
  EXPECT_EQ(err.Finish(), "");
}

TEST(QXConditionTest, DestroyingAHeldConditionReportsTheBusyMutex) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "ThreadSanitizer treats destroying a held mutex as a bug";
#endif
  CaptureFd err(2);
  {
    QXCondition condition;
    condition.Acquire();
  }
  EXPECT_EQ(err.Finish(), "Unable to destroy mutex in QXCondition: " +
                              std::string(strerror(EBUSY)) + "\n");
}

class Incrementer : public QXThread {
 public:
  Incrementer(QXMutex& mutex, long& counter)
      : _mutex(mutex), _counter(counter) {}
  void* Run(void* arg) override {
    for (int i = 0; i < 100000; ++i) {
      std::lock_guard<QXMutex> hold(_mutex);
      ++_counter;
    }
    return arg;
  }

 private:
  QXMutex& _mutex;
  long& _counter;
};

TEST(QXMutexTest, LockGuardKeepsFourThreadsOfIncrementsExact) {
  QXMutex mutex;
  long counter = 0;
  std::vector<std::unique_ptr<Incrementer>> threads;
  for (int i = 0; i < 4; ++i) {
    threads.push_back(std::make_unique<Incrementer>(mutex, counter));
    ASSERT_TRUE(threads.back()->Start(nullptr));
  }
  for (auto& thread : threads) {
    thread->Join();
  }
  EXPECT_EQ(counter, 400000);
}

class TryLocker : public QXThread {
 public:
  explicit TryLocker(QXMutex& mutex) : _mutex(mutex) {}
  void* Run(void* arg) override {
    if (!_mutex.try_lock()) {
      return nullptr;
    }
    _mutex.unlock();
    return arg;
  }

 private:
  QXMutex& _mutex;
};

TEST(QXMutexTest, TryLockFailsWhileAnotherThreadHoldsTheMutex) {
  QXMutex mutex;
  int tag = 0;
  TryLocker other(mutex);
  {
    std::unique_lock<QXMutex> hold(mutex);
    ASSERT_TRUE(other.Start(&tag));
    EXPECT_EQ(other.Join(), nullptr);
  }
  ASSERT_TRUE(other.Start(&tag));
  EXPECT_EQ(other.Join(), &tag);
}

TEST(QXMutexTest, TryLockTakesAFreeMutex) {
  QXMutex mutex;
  ASSERT_TRUE(mutex.try_lock());
  mutex.unlock();
  std::unique_lock<QXMutex> hold(mutex, std::try_to_lock);
  EXPECT_TRUE(hold.owns_lock());
}

}  // namespace
}  // namespace QXPlatform
