#include "qxtime.h"

#include <stdint.h>
#include <stdio.h>
#include <unistd.h>

#include "../qxassert_private.h"

namespace QXPlatform {
namespace {

// Shared by both conversions; the text names QXCurrentTime even when
// QXLocalTime failed.
const char kLocalTimeFailed[] = "QXCurrentTime received error from localtime_r";

}  // namespace

bool QXCurrentTime(tm* out) {
  time_t now = time(nullptr);
  if (now == static_cast<time_t>(-1)) {
    return false;
  }
  if (localtime_r(&now, out) == nullptr) {
    perror(kLocalTimeFailed);
    return false;
  }
  return true;
}

std::string QXCurrentTime() {
  time_t now = time(nullptr);
  if (now == static_cast<time_t>(-1)) {
    return std::string();
  }
  tm local;
  if (localtime_r(&now, &local) == nullptr) {
    perror(kLocalTimeFailed);
    return std::string();
  }
  // asctime_r writes 24 characters, a newline and the terminator.
  char buf[26];
  char* tmp_buff = asctime_r(&local, buf);
  QX_CHECK(tmp_buff != 0, "QXCurrentTime");
  QX_CHECK(buf[25] == '\0', "QXCurrentTime");
  // Deliberate: the newline stays part of the text.
  return std::string(buf);
}

bool QXLocalTime(tm* out, long seconds) {
  time_t moment = static_cast<time_t>(seconds);
  if (localtime_r(&moment, out) == nullptr) {
    perror(kLocalTimeFailed);
    return false;
  }
  return true;
}

int QXSleep(unsigned long milliseconds) {
  // Deliberate: the microseconds are counted in 32 bits, so a request above
  // 4294967 ms wraps to a shorter sleep.
  uint32_t micros = static_cast<uint32_t>(milliseconds) * 1000u;
  return usleep(micros);
}

unsigned long QXCycleTime() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC_RAW, &now);
  return static_cast<unsigned long>(now.tv_sec) * 1000000000ul +
         static_cast<unsigned long>(now.tv_nsec);
}

bool QXGetTimeOfDay(timeval* out) { return gettimeofday(out, nullptr) == 0; }

}  // namespace QXPlatform
