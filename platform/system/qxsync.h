#pragma once

// A monitor (one mutex with one condition variable) and a plain mutex.

#include <memory>
#include <mutex>

#include "../qxexport.h"

namespace QXPlatform {

struct QXPrivateCondition;

// A mutex and a condition variable in one heap block that never moves. Every
// operation reports a failed POSIX call with perror and returns normally; none
// throws (the constructor throws std::bad_alloc only when memory runs out).
// Any thread may call any operation; Wait needs the monitor acquired.
class QXPLATFORM_EXPORT QXCondition {
 public:
  // Both parts get default attributes; a failed initialisation is reported
  // and the object kept.
  QXCondition();
  // Destroys both parts and frees the block. No thread may still wait on or
  // hold the monitor.
  ~QXCondition();

  QXCondition(const QXCondition&) = delete;
  QXCondition& operator=(const QXCondition&) = delete;

  // Locks the mutex, blocking until it is free.
  void Acquire();
  // Unlocks the mutex; the caller must hold it.
  void Release();
  // Releases the mutex while waiting for a Signal or Broadcast and holds it
  // again on return. Wake-ups may be spurious: loop on your own predicate.
  void Wait();
  // The same, giving up after milliseconds on the monotonic clock (so a
  // change of the wall clock neither shortens nor stretches it). True when
  // woken (perhaps spuriously), false when the time ran out or the wait
  // failed (reported with perror); the mutex is held again either way. 0
  // gives up at once unless a wake-up is already due.
  bool Wait(unsigned long milliseconds);
  // Wakes one waiting thread, if any; the mutex may be held or not.
  void Signal();
  // Wakes every waiting thread; the mutex may be held or not.
  void Broadcast();

 private:
  std::unique_ptr<QXPrivateCondition> _private;
};

// A plain mutual-exclusion lock meeting the standard Lockable requirements,
// so std::lock_guard and std::unique_lock work with it. Not recursive.
class QXPLATFORM_EXPORT QXMutex {
 public:
  QXMutex();
  // Destroys the mutex, which must not be held.
  ~QXMutex();

  QXMutex(const QXMutex&) = delete;
  QXMutex& operator=(const QXMutex&) = delete;

  // Blocks until this thread holds the mutex.
  void lock();
  // Takes the mutex when free and returns true; false at once otherwise.
  bool try_lock();
  // Releases the mutex held by this thread.
  void unlock();

 private:
  std::mutex _mutex;
};

}  // namespace QXPlatform
