#pragma once

// Gzip members made by zlib alone, for fuzz targets that feed the library
// real members to damage, cut and join.

#include <string.h>

#include <string>

#include <zlib.h>

#include "fuzz_streams.h"

namespace qxfuzz {

// A single gzip member of payload made by zlib at level.
inline std::string ZlibGzip(const std::string& payload, int level) {
  z_stream z;
  memset(&z, 0, sizeof z);
  Check(deflateInit2(&z, level, Z_DEFLATED, 16 + MAX_WBITS, 8,
                     Z_DEFAULT_STRATEGY) == Z_OK);
  std::string out(deflateBound(&z, payload.size()) + 32, '\0');
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(payload.data()));
  z.avail_in = static_cast<uInt>(payload.size());
  z.next_out = reinterpret_cast<Bytef*>(&out[0]);
  z.avail_out = static_cast<uInt>(out.size());
  Check(deflate(&z, Z_FINISH) == Z_STREAM_END);
  out.resize(z.total_out);
  deflateEnd(&z);
  return out;
}

}  // namespace qxfuzz
