#include "qxsync.h"

#include <errno.h>
#include <pthread.h>
#include <stdio.h>

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
