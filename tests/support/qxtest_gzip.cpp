#include "support/qxtest_gzip.h"

#include <random>
#include <stdexcept>
#include <vector>

#include <zlib.h>

namespace QXPlatform {
namespace testing {

std::string RawDeflate(const std::string& bytes, int level) {
  z_stream z{};
  if (deflateInit2(&z, level, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) !=
      Z_OK) {
    throw std::runtime_error("deflateInit2 failed");
  }
  std::string out(deflateBound(&z, bytes.size()) + 16, '\0');
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  z.avail_in = static_cast<uInt>(bytes.size());
  z.next_out = reinterpret_cast<Bytef*>(&out[0]);
  z.avail_out = static_cast<uInt>(out.size());
  int err = deflate(&z, Z_FINISH);
  deflateEnd(&z);
  if (err != Z_STREAM_END) {
    throw std::runtime_error("deflate did not finish");
  }
  out.resize(z.total_out);
  return out;
}

uint32_t Crc32(const std::string& bytes) {
  return static_cast<uint32_t>(
      crc32(crc32(0L, Z_NULL, 0), reinterpret_cast<const Bytef*>(bytes.data()),
            static_cast<uInt>(bytes.size())));
}

std::string LittleEndian32(uint32_t value) {
  std::string out;
  for (int i = 0; i < 4; ++i) {
    out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
  }
  return out;
}

std::string MakeHeader(const GzipHeader& h) {
  int flags = h.extraFlags;
  if (h.useHeaderCrc) flags |= 0x02;
  if (h.useExtra) flags |= 0x04;
  if (h.useName) flags |= 0x08;
  if (h.useComment) flags |= 0x10;
  std::string out;
  out.push_back('\x1f');
  out.push_back('\x8b');
  out.push_back(static_cast<char>(h.method));
  out.push_back(static_cast<char>(flags));
  out += LittleEndian32(h.mtime);
  out.push_back('\0');
  out.push_back('\x03');
  if (h.useExtra) {
    out.push_back(static_cast<char>(h.extra.size() & 0xFF));
    out.push_back(static_cast<char>((h.extra.size() >> 8) & 0xFF));
    out += h.extra;
  }
  if (h.useName) {
    out += h.name;
    out.push_back('\0');
  }
  if (h.useComment) {
    out += h.comment;
    out.push_back('\0');
  }
  if (h.useHeaderCrc) {
    uint32_t crc = Crc32(out);
    out.push_back(static_cast<char>(crc & 0xFF));
    out.push_back(static_cast<char>((crc >> 8) & 0xFF));
  }
  return out;
}

std::string MakeMember(const std::string& payload, const GzipHeader& h,
                       int level) {
  return MakeHeader(h) + RawDeflate(payload, level) +
         LittleEndian32(Crc32(payload)) +
         LittleEndian32(static_cast<uint32_t>(payload.size()));
}

std::string ZlibGunzip(const std::string& gz, bool* ok) {
  std::string out;
  bool good = true;
  size_t pos = 0;
  std::vector<unsigned char> chunk(65536);
  while (pos < gz.size()) {
    z_stream z{};
    if (inflateInit2(&z, 16 + MAX_WBITS) != Z_OK) {
      good = false;
      break;
    }
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(gz.data() + pos));
    z.avail_in = static_cast<uInt>(gz.size() - pos);
    int err;
    do {
      z.next_out = chunk.data();
      z.avail_out = static_cast<uInt>(chunk.size());
      err = inflate(&z, Z_NO_FLUSH);
      out.append(reinterpret_cast<char*>(chunk.data()),
                 chunk.size() - z.avail_out);
    } while (err == Z_OK);
    pos += z.total_in;
    inflateEnd(&z);
    if (err != Z_STREAM_END) {
      good = false;
      break;
    }
  }
  if (ok != nullptr) {
    *ok = good;
  }
  return out;
}

std::string SampleText(size_t n, unsigned seed) {
  static const char* const kWords[] = {
      "alpha", "beta", "gamma", "delta", "sample", "value", "stream",
      "0.125", "42",   "-7",    "north", "south",  "total", "count"};
  std::mt19937 gen(seed);
  std::string out;
  out.reserve(n + 16);
  while (out.size() < n) {
    out += kWords[gen() % (sizeof kWords / sizeof kWords[0])];
    out.push_back(gen() % 9 == 0 ? '\n' : ' ');
  }
  out.resize(n);
  return out;
}

}  // namespace testing
}  // namespace QXPlatform
