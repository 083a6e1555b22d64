#pragma once

// Whole-buffer compression in memory by a method named in a string: "gz" (one
// gzip member) or "zstd" (one Zstandard frame).

#include <cstddef>
#include <string>

#include "../qxexport.h"

namespace QXPlatform {

// Replaces out with the len bytes at data compressed by method ("gz" or
// "zstd"); true on success. An unknown or null method gives false and an
// empty out; a zstd failure gives false and leaves out as it was. Null data
// count as no data. Any thread: each thread keeps its own zstd state, made
// on its first "zstd" call (other methods make none) and freed when it ends.
QXPLATFORM_EXPORT bool QXCompress(std::string& out, const char* data,
                                  size_t len, const char* method);
// The same with the bytes of data.
QXPLATFORM_EXPORT bool QXCompress(std::string& out, const std::string& data,
                                  const char* method);

// The same at a compression level: for "gz" zlib's 1 (fastest) to 9
// (smallest), for "zstd" zstd's levels from its fastest negative ones up to
// 22. 0 means the level of the forms above (zlib's default for "gz", 7 for
// "zstd"), which then give the very same result. A level out of range gives
// false and leaves out as it was; an unknown or null method gives false and
// an empty out. Any thread.
QXPLATFORM_EXPORT bool QXCompress(std::string& out, const char* data,
                                  size_t len, const char* method, int level);
// The same with the bytes of data.
QXPLATFORM_EXPORT bool QXCompress(std::string& out, const std::string& data,
                                  const char* method, int level);

// The same on up to threads threads: for "gz" as qxogzstream with a thread
// count (one ordinary gzip member; 0 and 1 give the form above byte for
// byte), for "zstd" with that many zstd worker threads (0 and 1 give the
// form above; more give false, leaving out as it was, when the linked zstd
// library was built without threads). Level and method as above. Any
// thread.
QXPLATFORM_EXPORT bool QXCompress(std::string& out, const char* data,
                                  size_t len, const char* method, int level,
                                  unsigned threads);
// The same with the bytes of data.
QXPLATFORM_EXPORT bool QXCompress(std::string& out, const std::string& data,
                                  const char* method, int level,
                                  unsigned threads);

// Appends to out (without clearing it first) the len bytes at data
// uncompressed by method. "gz": true, also for data that are not gzip (they
// come out unchanged) and for damaged data (what could be unpacked is kept).
// "zstd": false when the decoder reports an error (it then starts afresh on
// the next call) or makes no progress; otherwise the thread's decoder carries
// its state over to the next call, so a frame cut short is continued by it. An
// unknown or null method gives false and an empty out. Any thread.
QXPLATFORM_EXPORT bool QXUncompress(std::string& out, const char* data,
                                    size_t len, const char* method);
// The same with the bytes of data.
QXPLATFORM_EXPORT bool QXUncompress(std::string& out, const std::string& data,
                                    const char* method);

// QXUncompress that also tells damaged input from sound input. The result
// and out are those of the form above, with two differences for "zstd": the
// call starts from a fresh decoder and leaves one behind (a frame cut short
// by an earlier call on the thread is not continued, and one cut short here
// is not left for the next call), and what the decoder still holds once the
// input is taken is drained into out. *error (when error is not null) gets
// 0 when the data were sound, or EBADMSG when they were cut short (inside a
// gzip member or its trailer, or inside a zstd frame), failed their CRC or
// length check, or were not valid compressed data; EINVAL for an unknown or
// null method, which also gives false. Data that are not gzip at all pass
// through "gz" unchanged with 0, as the gzip streams deliver them. A
// ruined result is not thrown away: out keeps what could be unpacked. Any
// thread; memory exhaustion throws std::bad_alloc.
QXPLATFORM_EXPORT bool QXUncompress(std::string& out, const char* data,
                                    size_t len, const char* method,
                                    int* error);
// The same with the bytes of data.
QXPLATFORM_EXPORT bool QXUncompress(std::string& out, const std::string& data,
                                    const char* method, int* error);

// True when method is not null and begins with "gz". Deliberately false for
// "zstd", which the functions above accept all the same. Any thread.
QXPLATFORM_EXPORT bool QXCompressionAvailable(const char* method);

}  // namespace QXPlatform
