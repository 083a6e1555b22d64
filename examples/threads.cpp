// Threads, a monitor and a mutex: a QXThread body per worker, a producer and
// a consumer meeting in a QXCondition, a QXMutex under std::lock_guard, and
// the clock functions.

#include <deque>
#include <mutex>
#include <string>

#include <QXPlatform/QXPlatform.h>

using namespace QXPlatform;

namespace {

int failures = 0;

void Check(bool ok, const char* what) {
  if (!ok) {
    qxerr << "threads: failed: " << what << qxendl;
    ++failures;
  }
}

// Sums the numbers from 1 to the given count; the result is the thread's
// return value, collected by Join.
struct Range {
  unsigned long count;
  unsigned long sum;
};

class Summer : public QXThread {
 public:
  void* Run(void* arg) override {
    Range* range = static_cast<Range*>(arg);
    range->sum = 0;
    for (unsigned long i = 1; i <= range->count; ++i) {
      range->sum += i;
    }
    return range;
  }
};

// A queue guarded by a monitor: the consumer waits until an item or the end
// arrives. Wait() can wake up spuriously, so it loops on the predicate.
struct Mailbox {
  QXCondition monitor;
  std::deque<int> items;
  bool done = false;
};

class Consumer : public QXThread {
 public:
  explicit Consumer(Mailbox& box) : _box(box) {}
  long total = 0;

  void* Run(void*) override {
    _box.monitor.Acquire();
    for (;;) {
      while (_box.items.empty() && !_box.done) {
        _box.monitor.Wait();
      }
      if (_box.items.empty()) {
        break;
      }
      total += _box.items.front();
      _box.items.pop_front();
    }
    _box.monitor.Release();
    return nullptr;
  }

 private:
  Mailbox& _box;
};

// Increments a shared counter under a QXMutex.
struct Counter {
  QXMutex mutex;
  long value = 0;
};

class Incrementer : public QXThread {
 public:
  void* Run(void* arg) override {
    Counter* counter = static_cast<Counter*>(arg);
    for (int i = 0; i < 10000; ++i) {
      std::lock_guard<QXMutex> lock(counter->mutex);
      ++counter->value;
    }
    return nullptr;
  }
};

}  // namespace

int main() {
  // Start hands the argument to Run on a new thread; Join returns what Run
  // returned. A stack size of 0 means the system's default.
  Range range = {1000, 0};
  Summer summer;
  summer.SetStackSize(256 * 1024);
  Check(summer.Start(&range), "Start");
  Check(summer.Join() == &range && range.sum == 500500, "Join");

  Mailbox box;
  Consumer consumer(box);
  Check(consumer.Start(nullptr), "consumer Start");
  for (int i = 1; i <= 100; ++i) {
    box.monitor.Acquire();
    box.items.push_back(i);
    box.monitor.Release();
    box.monitor.Signal();
  }
  box.monitor.Acquire();
  box.done = true;
  box.monitor.Broadcast();
  box.monitor.Release();
  consumer.Join();
  Check(consumer.total == 5050, "every item consumed");

  Counter counter;
  Incrementer workers[4];
  for (Incrementer& worker : workers) {
    Check(worker.Start(&counter), "worker Start");
  }
  for (Incrementer& worker : workers) {
    worker.Join();
  }
  Check(counter.value == 40000, "mutex keeps increments apart");

  // QXCycleTime counts nanoseconds on a clock that never goes back;
  // QXSleep takes milliseconds.
  unsigned long start = QXCycleTime();
  Check(QXSleep(20) == 0, "QXSleep");
  unsigned long elapsed = QXCycleTime() - start;
  Check(elapsed >= 19000000UL, "at least about 20 ms passed");

  // The text form of the current time keeps asctime's newline.
  std::string now = QXCurrentTime();
  Check(now.size() == 25 && now.back() == '\n', "QXCurrentTime text");

  if (failures != 0) {
    return 1;
  }
  qxout << "threads: all checks passed" << qxendl;
  return 0;
}
