#pragma once

// Invariant checks that stay on in every build type: they guard memory
// safety. A failure prints the C library's assertion report and aborts.

namespace QXPlatform {

// Prints "<program>: <file>:<line>: <function>: Assertion `<expr>' failed."
// on standard error, exactly as the C library's assert does, and aborts.
[[noreturn]] void AssertionFailed(const char* expr, const char* file,
                                  unsigned line, const char* function);

}  // namespace QXPlatform

// Checks expr; the report names function and quotes expr as written.
#define QX_CHECK(expr, function) \
  ((expr)                        \
       ? static_cast<void>(0)    \
       : ::QXPlatform::AssertionFailed(#expr, __FILE__, __LINE__, function))

// Checks cond but quotes text: for checks whose reported expression must
// differ from the code that evaluates it (for example to keep pointer
// arithmetic defined).
#define QX_CHECK_TEXT(cond, text, function) \
  ((cond) ? static_cast<void>(0)            \
          : ::QXPlatform::AssertionFailed(text, __FILE__, __LINE__, function))
