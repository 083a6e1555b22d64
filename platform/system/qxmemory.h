#pragma once

// The process-wide size up to which scratch arrays live on the stack, and the
// process's memory use.

#include "../qxexport.h"

namespace QXPlatform {

// The current scratch threshold in bytes (1024 unless changed).
QXPLATFORM_EXPORT unsigned long QXGetAllocaThreshold();
// Sets the threshold when bytes is at most 4096; otherwise keeps the old
// value and says so on standard output. Meant for start-up: not locked.
QXPLATFORM_EXPORT void QXSetAllocaThreshold(unsigned long bytes);
// Stores the virtual and resident sizes of the process in bytes and returns
// 0; on failure returns the errno and leaves both untouched.
QXPLATFORM_EXPORT int QXGetProcessMemUsage(unsigned long& virtualBytes,
                                           unsigned long& residentBytes);

}  // namespace QXPlatform
