#pragma once

// The library's own messages on qxerr: each one goes out whole.

#include <string>

namespace QXPlatform {

// Writes text (one or more whole lines) to qxerr and flushes it while holding
// a lock that every message of the library takes, so that messages written
// by several threads at once never mix or repeat. Callers' own writes to
// qxerr do not take it: they stay the caller's to serialise. Any thread.
void QXWriteDiagnostic(const std::string& text);

}  // namespace QXPlatform
