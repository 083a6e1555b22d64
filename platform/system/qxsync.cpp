#include "qxsync.h"

#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <time.h>

namespace QXPlatform {

// Waiting threads hold the addresses of both members, so the block is
// allocated once and never moves.
struct QXPrivateCondition {
  pthread_mutex_t mutex;
  pthread_cond_t cond;
};

namespace {

// The thread functions return their error instead of setting errno; perror
// reports errno, so it is set first.
void ReportIfFailed(int error, const char* text) {
  if (error != 0) {
    errno = error;
    perror(text);
  }
}

}  // namespace

QXCondition::QXCondition() : _private(new QXPrivateCondition) {
  ReportIfFailed(pthread_mutex_init(&_private->mutex, nullptr),
                 "Unable to initialize mutex in QXCondition");
  ReportIfFailed(pthread_cond_init(&_private->cond, nullptr),
                 "Unable to initialize cond in QXCondition");
}

QXCondition::~QXCondition() {
  if (_private == nullptr) {
    return;
  }
  ReportIfFailed(pthread_cond_destroy(&_private->cond),
                 "Unable to destroy cond in QXCondition");
  ReportIfFailed(pthread_mutex_destroy(&_private->mutex),
                 "Unable to destroy mutex in QXCondition");
}

void QXCondition::Acquire() {
  ReportIfFailed(pthread_mutex_lock(&_private->mutex),
                 "Problem occured acquiring an QXCondition");
}

void QXCondition::Release() {
  ReportIfFailed(pthread_mutex_unlock(&_private->mutex),
                 "Problem occured releasing an QXCondition");
}

void QXCondition::Wait() {
  ReportIfFailed(pthread_cond_wait(&_private->cond, &_private->mutex),
                 "Problem occured waiting on QXCondition");
}

bool QXCondition::Wait(unsigned long milliseconds) {
  struct timespec deadline;
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  const unsigned long kMaxSeconds = 0x7FFFFFFFul;
  unsigned long seconds = milliseconds / 1000;
  long nanoseconds =
      deadline.tv_nsec + static_cast<long>(milliseconds % 1000) * 1000000;
  if (nanoseconds >= 1000000000) {
    nanoseconds -= 1000000000;
    ++seconds;
  }
  // A wait of decades is a wait for ever: the deadline stays representable.
  if (seconds > kMaxSeconds) {
    seconds = kMaxSeconds;
  }
  deadline.tv_sec += static_cast<time_t>(seconds);
  deadline.tv_nsec = nanoseconds;
  int error = pthread_cond_clockwait(&_private->cond, &_private->mutex,
                                     CLOCK_MONOTONIC, &deadline);
  if (error == ETIMEDOUT) {
    return false;
  }
  ReportIfFailed(error, "Problem occured waiting on QXCondition");
  return error == 0;
}

void QXCondition::Signal() {
  ReportIfFailed(pthread_cond_signal(&_private->cond),
                 "Problem occured signaling an QXCondition");
}

void QXCondition::Broadcast() {
  ReportIfFailed(pthread_cond_broadcast(&_private->cond),
                 "Problem occured broadcasting an QXCondition");
}

QXMutex::QXMutex() = default;

QXMutex::~QXMutex() = default;

void QXMutex::lock() { _mutex.lock(); }

bool QXMutex::try_lock() { return _mutex.try_lock(); }

void QXMutex::unlock() { _mutex.unlock(); }

}  // namespace QXPlatform
