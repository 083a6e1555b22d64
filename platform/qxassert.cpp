#include "qxassert_private.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

namespace QXPlatform {

void AssertionFailed(const char* expr, const char* file, unsigned line,
                     const char* function) {
  fflush(stdout);
  fprintf(stderr, "%s: %s:%u: %s: Assertion `%s' failed.\n",
          program_invocation_short_name, file, line, function, expr);
  fflush(stderr);
  abort();
}

}  // namespace QXPlatform
