#pragma once

// Invariant checks that stay on in every build type: they guard memory
// safety. A failure prints the C library's assertion report and aborts.

namespace QXPlatform {

// Prints "<program>: <file>:<line>: <function>: Assertion `<expr>' failed."
// on standard error and aborts.
[[noreturn]] void AssertionFailed(const char* expr, const char* file,
                                  unsigned line, const char* function);

}  // namespace QXPlatform

#define QX_CHECK(expr, function)          \
  ((expr) ? static_cast<void>(0)          \
          : ::QXPlatform::AssertionFailed(#expr, __FILE__, __LINE__, function))
