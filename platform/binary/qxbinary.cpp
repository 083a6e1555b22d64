#include "qxbinary.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <memory>
#include <string>

#include "../streams/qxstdstream_private.h"
#include "../streams/qxstream.h"
#include "qxbinary_simd_private.h"

namespace QXPlatform {
namespace {

const char kStringTooLong[] = "Attempting to write a string larger than 4GB\n";
const unsigned long long kMaxStringLength = 0xFFFFFFFFULL;

void ReportUndefinedBlockSize(unsigned long blocksize) {
  QXWriteDiagnostic("Error: undefined block size - " +
                    std::to_string(blocksize) + "\n");
}

// Puts Width bytes from src into dst in the other order (image to host or
// host to image); the two may be the same element.
template <unsigned Width>
void ReverseElement(unsigned char* dst, const unsigned char* src) {
  unsigned char bytes[Width];
  memcpy(bytes, src, Width);
  for (unsigned k = 0; k < Width; ++k) {
    dst[k] = bytes[binarysimd::kHostBigEndian ? k : Width - 1 - k];
  }
}

void SwapElements(unsigned char* dst, const unsigned char* src,
                  unsigned long width, unsigned int count) {
  binarysimd::ImageOrder(dst, src, static_cast<unsigned>(width), count);
}

template <unsigned Width>
void WriteElements(qxostream& out, const unsigned char* src,
                   unsigned int count) {
  unsigned char element[Width];
  for (unsigned int i = 0; i < count; ++i, src += Width) {
    ReverseElement<Width>(element, src);
    out.write(element, Width);
  }
}

template <unsigned Width>
unsigned long ReadElements(qxistream& in, unsigned char* dst,
                           unsigned int count) {
  unsigned long got = 0;
  for (unsigned int i = 0; i < count; ++i, dst += Width) {
    got = in.read(dst, Width);
    // Deliberate: a short read is not detected; the element is reversed as
    // it stands.
    ReverseElement<Width>(dst, dst);
  }
  return got;
}

void PutLength(unsigned char* dst, uint32_t n) {
  dst[0] = static_cast<unsigned char>(n >> 24);
  dst[1] = static_cast<unsigned char>(n >> 16);
  dst[2] = static_cast<unsigned char>(n >> 8);
  dst[3] = static_cast<unsigned char>(n);
}

uint32_t GetLength(const unsigned char* src) {
  return static_cast<uint32_t>(src[0]) << 24 |
         static_cast<uint32_t>(src[1]) << 16 |
         static_cast<uint32_t>(src[2]) << 8 | src[3];
}

// The refusal goes to the C library's standard error, not to qxerr.
bool RefuseLongString(const std::string& s) {
  if (s.size() <= kMaxStringLength) {
    return false;
  }
  fwrite(kStringTooLong, 1, sizeof kStringTooLong - 1, stderr);
  return true;
}

}  // namespace

unsigned long QX_io_write_binary(unsigned char* dst, const unsigned char* src,
                                 unsigned long blocksize, unsigned int count) {
  if (dst == nullptr || src == nullptr || blocksize == 0) {
    return 0;
  }
  unsigned long bytes = blocksize * count;
  if (blocksize == 1) {
    memmove(dst, src, count);
  } else if (blocksize == 2 || blocksize == 4 || blocksize == 8) {
    SwapElements(dst, src, blocksize, count);
  } else {
    memmove(dst, src, bytes);
    ReportUndefinedBlockSize(blocksize);
  }
  return bytes;
}

unsigned long QX_io_read_binary(const unsigned char* src, unsigned char* dst,
                                unsigned long blocksize, unsigned int count) {
  if (dst == nullptr || src == nullptr || blocksize == 0) {
    return 0;
  }
  unsigned long bytes = blocksize * count;
  if (blocksize == 1) {
    memmove(dst, src, count);
  } else if (blocksize == 2 || blocksize == 4 || blocksize == 8) {
    SwapElements(dst, src, blocksize, count);
  } else {
    // Deliberate: an undefined width copies count bytes on the way in (the
    // write copied count * blocksize) and still reports the full size.
    memmove(dst, src, count);
    ReportUndefinedBlockSize(blocksize);
  }
  return bytes;
}

unsigned long QX_io_write_binary(qxostream& out, const unsigned char* src,
                                 unsigned long blocksize, unsigned int count) {
  if (src == nullptr || blocksize == 0) {
    return 0;
  }
  unsigned long bytes = blocksize * count;
  switch (blocksize) {
    case 1:
      out.write(src, count);
      break;
    case 2:
      WriteElements<2>(out, src, count);
      break;
    case 4:
      WriteElements<4>(out, src, count);
      break;
    case 8:
      WriteElements<8>(out, src, count);
      break;
    default:
      out.write(src, bytes);
      ReportUndefinedBlockSize(blocksize);
      break;
  }
  return bytes;
}

unsigned long QX_io_read_binary(qxistream& in, unsigned char* dst,
                                unsigned long blocksize, unsigned int count) {
  if (dst == nullptr || blocksize == 0) {
    return 0;
  }
  switch (blocksize) {
    case 1:
      return in.read(dst, count);
    case 2:
      return ReadElements<2>(in, dst, count);
    case 4:
      // Deliberate: the result is what the last element's read delivered,
      // not the total.
      return ReadElements<4>(in, dst, count);
    case 8:
      return ReadElements<8>(in, dst, count);
    default: {
      // Deliberate: only count bytes are read for an undefined width.
      unsigned long got = in.read(dst, count);
      ReportUndefinedBlockSize(blocksize);
      return got;
    }
  }
}

unsigned long QX_io_write_binary(unsigned char* dst, const std::string& s) {
  if (dst == nullptr || RefuseLongString(s)) {
    return 0;
  }
  uint32_t n = static_cast<uint32_t>(s.size());
  PutLength(dst, n);
  memcpy(dst + 4, s.data(), n);
  return static_cast<unsigned long>(n) + 4;
}

unsigned long QX_io_read_binary(const unsigned char* src, std::string& s) {
  if (src == nullptr) {
    return 0;
  }
  uint32_t n = GetLength(src);
  // assign copes with src pointing into s itself.
  s.assign(reinterpret_cast<const char*>(src + 4), n);
  return static_cast<unsigned long>(n) + 4;
}

unsigned long QX_io_write_binary(qxostream& out, const std::string& s) {
  if (RefuseLongString(s)) {
    return 0;
  }
  uint32_t n = static_cast<uint32_t>(s.size());
  unsigned char length[4];
  PutLength(length, n);
  out.write(length, 4);
  out.write(s.data(), n);
  return static_cast<unsigned long>(n) + 4;
}

unsigned long QX_io_read_binary(qxistream& in, std::string& s) {
  unsigned char length[4] = {0, 0, 0, 0};
  unsigned long got = in.read(length, 4);
  uint32_t n = GetLength(length);
  // The body is read straight into a string of the announced length (its
  // unread tail stays zero), so a length word that claims far more than the
  // stream holds costs that much memory once, not twice. It replaces s only
  // at the end, so s stays as it was should a back-end throw in the middle.
  std::string body(static_cast<size_t>(n), '\0');
  unsigned long bodyGot = in.read(&body[0], n);
  s.swap(body);
  return got + bodyGot;
}

}  // namespace QXPlatform
