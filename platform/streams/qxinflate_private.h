#pragma once

// The raw-deflate engines behind gzip input: zlib, always built, and ISA-L
// when the library is built with it, plus the process-wide choice between
// them that lets tests run both in one process.

#include <stddef.h>

#include <string>

#include "../qxexport.h"

namespace QXPlatform {

enum class QXInflateEngine { kZlib = 0, kIsal = 1 };

// True when the library was built with ISA-L.
QXPLATFORM_EXPORT bool QXInternalIsalBuiltIn();

// Makes engine the one whole gzip buffers are decoded with from now on,
// process-wide, and returns the engine now in effect: ISA-L asked for in a
// build without it gives zlib. Any thread; calls already under way keep the
// engine they started with. Meant for tests that compare the two engines;
// the default is ISA-L when it is built in.
QXPLATFORM_EXPORT QXInflateEngine
QXInternalSelectInflateEngine(QXInflateEngine engine);

// The engine in effect. Any thread.
QXPLATFORM_EXPORT QXInflateEngine QXInternalInflateEngine();

// With ISA-L in effect: when data (len bytes) is one or more whole gzip
// members, each with a header the gzip input accepts, a deflate stream that
// decodes without complaint and a stored CRC-32 and length that match, and
// nothing follows the last member, appends the payloads to out and returns
// true. In every other case, and always with zlib in effect, returns false and
// out is as it was: the caller then decodes with the zlib path, whose results
// on such input are the reference. Any thread; each thread keeps one decoder
// state of about 100 KiB.
QXPLATFORM_EXPORT bool QXInternalGunzipWholeMembers(const char* data,
                                                    size_t len,
                                                    std::string& out);

}  // namespace QXPlatform
