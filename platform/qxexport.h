#pragma once

// Marks the declarations that form the library's public interface. The library
// is built with hidden visibility, so only what carries this mark is exported.

#if defined(QXPLATFORM_BUILDING)
#define QXPLATFORM_EXPORT __attribute__((visibility("default")))
#else
#define QXPLATFORM_EXPORT __attribute__((visibility("default")))
#endif
