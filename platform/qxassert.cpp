#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

#include "qxassert_private.h"

namespace QXPlatform {

void AssertionFailed(const char* expr, const char* file, unsigned line,
                     const char* function) {
  const char* program = program_invocation_short_name;
  fflush(stdout);
  // The C library leaves out the program part when the name is empty.
  fprintf(stderr, "%s%s%s:%u: %s%sAssertion `%s' failed.\n", program,
          program[0] != '\0' ? ": " : "", file, line,
          function != nullptr ? function : "", function != nullptr ? ": " : "",
          expr);
  fflush(stderr);
  abort();
}

}  // namespace QXPlatform
