#pragma once

// The system clock: local time as a structure or as text, a millisecond
// sleep, a monotonic tick counter and the time of day.

#include <sys/time.h>
#include <time.h>

#include <string>

#include "../qxexport.h"

namespace QXPlatform {

// Fills out (not null) with the current local time and returns true; false
// when the clock cannot be read, or when the conversion fails, which is also
// reported with perror. Any thread.
QXPLATFORM_EXPORT bool QXCurrentTime(tm* out);
// The current local time as 24 characters such as "Sun Nov 15 01:13:49 2026"
// followed by a newline (25 characters, the newline kept). Empty when the
// clock cannot be read or the conversion fails (the latter reported with
// perror). Any thread.
QXPLATFORM_EXPORT std::string QXCurrentTime();
// Fills out (not null) with the local time of the given seconds since the
// epoch and returns true; on failure reports it with perror and returns false.
// Any thread.
QXPLATFORM_EXPORT bool QXLocalTime(tm* out, long seconds);
// Sleeps the given milliseconds and returns the result of usleep (0, or -1
// with errno set). The microsecond count is computed in 32 bits, so requests
// above 4294967 ms wrap around to a shorter sleep. Any thread.
QXPLATFORM_EXPORT int QXSleep(unsigned long milliseconds);
// A tick count that never decreases, in nanoseconds of an arbitrary origin
// not adjusted by clock changes; only differences mean anything. Any thread.
QXPLATFORM_EXPORT unsigned long QXCycleTime();
// Fills out (not null) with the wall-clock time of day; true on success.
// Any thread.
QXPLATFORM_EXPORT bool QXGetTimeOfDay(timeval* out);

}  // namespace QXPlatform
