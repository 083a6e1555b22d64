#pragma once

// Gzip test data made with zlib alone, independently of the library's own
// framing code: raw deflate bodies, hand-assembled member headers and
// trailers, and a reference decoder.

#include <cstdint>
#include <string>

namespace QXPlatform {
namespace testing {

// Raw deflate data (no header) of bytes at the given level.
std::string RawDeflate(const std::string& bytes, int level = 6);
// CRC-32 of bytes, as stored in a gzip trailer.
uint32_t Crc32(const std::string& bytes);
// Four bytes, least significant first.
std::string LittleEndian32(uint32_t value);

// The parts of a hand-made member header. FEXTRA, FNAME, FCOMMENT and FHCRC
// are set in the flag byte when the matching field is used; extraFlags are
// or-ed in on top.
struct GzipHeader {
  int method = 8;
  int extraFlags = 0;
  bool useExtra = false;
  std::string extra;
  bool useName = false;
  std::string name;
  bool useComment = false;
  std::string comment;
  bool useHeaderCrc = false;
  uint32_t mtime = 0;
};

// The header bytes described by h.
std::string MakeHeader(const GzipHeader& h);
// A whole member of payload with header h and a correct trailer.
std::string MakeMember(const std::string& payload,
                       const GzipHeader& h = GzipHeader(), int level = 6);
// Unpacks every member of gzip data with zlib's own gzip decoder; sets ok
// to false when zlib reports an error or the data end early.
std::string ZlibGunzip(const std::string& gz, bool* ok = nullptr);
// Text with some repetition, as a log or table would have; seeded.
std::string SampleText(size_t n, unsigned seed);

}  // namespace testing
}  // namespace QXPlatform
