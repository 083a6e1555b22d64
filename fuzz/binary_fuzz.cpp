// Binary images from anywhere, read with every reader both over a memory
// stream (cut into fuzzer-chosen spans, once able to seek and once not, as a
// pipe) and from a buffer of the same bytes:
// the two forms give the same values, the stream forms report the documented
// counts, writing the values again gives the same image (with the unused bits
// of a packed image cleared), quantised floats stay within one step of what
// was stored, and the only message is the documented one for an undefined
// block size.

#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz_messages.h"
#include "fuzz_streams.h"
#include <QXPlatform/binary/qxbinary.h>
#include <QXPlatform/streams/qxsstream.h>
#include <QXPlatform/streams/qxstdstream.h>

namespace {

using qxfuzz::Check;
using qxfuzz::ChoppedStream;

using QXPlatform::QX_io_read_binary;
using QXPlatform::QX_io_read_binary_compressed;
using QXPlatform::QX_io_util_calc_NumBits;
using QXPlatform::QX_io_write_binary;
using QXPlatform::QX_io_write_binary_compressed;
using QXPlatform::qxistream;
using QXPlatform::qxosstream;

// Packed size: one byte more than the whole bytes of count * bits, the
// product taken in 32 bits.
size_t PackedSize(unsigned int bits, unsigned int count) {
  return static_cast<size_t>(static_cast<uint32_t>(count * bits) / 8) + 1;
}

// The image with every bit from stream bit `used` on cleared.
std::string ClearedAfter(std::string image, size_t used) {
  for (size_t bit = used; bit < image.size() * 8; ++bit) {
    image[bit / 8] &= static_cast<char>(~(1u << (bit % 8)));
  }
  return image;
}

bool SameBits(const float* a, const float* b, size_t n) {
  return memcmp(a, b, n * sizeof(float)) == 0;
}

// One reader over both forms. at is the offset of the image in data.
class Reader {
 public:
  Reader(const std::string& data, const std::vector<size_t>& spans, int fd,
         bool seekable)
      : _data(data), _stream(data, spans, seekable), _at(0), _fd(fd) {}

  size_t left() const { return _data.size() - _at; }
  const unsigned char* here() const {
    return reinterpret_cast<const unsigned char*>(_data.data()) + _at;
  }

  void Array(unsigned long width, unsigned int count) {
    bool defined = width == 1 || width == 2 || width == 4 || width == 8;
    // Undefined widths read count bytes, whatever the width.
    size_t need = defined ? width * count : count;
    if (need > left()) {
      return;
    }
    std::vector<unsigned char> fromBuffer(width * count + 1, 0xAA);
    std::vector<unsigned char> fromStream(width * count + 1, 0xAA);
    unsigned long b =
        QX_io_read_binary(here(), fromBuffer.data(), width, count);
    unsigned long s =
        QX_io_read_binary(_stream, fromStream.data(), width, count);
    Check(b == width * count);
    if (width == 1 || !defined) {
      Check(s == count);
    } else {
      Check(s == (count == 0 ? 0 : width));
    }
    Check(fromBuffer == fromStream);
    _at += need;
    Check(_stream.tell() == _at);
    std::string messages = qxfuzz::TakeQxerr(_fd);
    if (!defined) {
      // One report from each form.
      std::string line =
          "Error: undefined block size - " + std::to_string(width) + "\n";
      Check(messages == line + line);
      return;
    }
    Check(messages.empty());
    // Writing the values again gives the image back, in both forms.
    std::vector<unsigned char> image(need + 1, 0x55);
    Check(QX_io_write_binary(image.data(), fromBuffer.data(), width, count) ==
          need);
    Check(memcmp(image.data(), here() - need, need) == 0);
    qxosstream out;
    Check(QX_io_write_binary(out, fromBuffer.data(), width, count) == need);
    Check(out.str() ==
          std::string(reinterpret_cast<const char*>(here()) - need, need));
  }

  void String() {
    if (left() < 4) {
      return;
    }
    const unsigned char* p = here();
    size_t n = (size_t(p[0]) << 24) | (size_t(p[1]) << 16) |
               (size_t(p[2]) << 8) | size_t(p[3]);
    // The readers trust the length; only images that hold it are read.
    if (n > left() - 4) {
      return;
    }
    std::string fromBuffer = "old";
    std::string fromStream = "old";
    Check(QX_io_read_binary(p, fromBuffer) == n + 4);
    Check(QX_io_read_binary(_stream, fromStream) == n + 4);
    Check(fromBuffer == fromStream);
    Check(fromBuffer == std::string(reinterpret_cast<const char*>(p) + 4, n));
    std::string image(n + 4, '\0');
    Check(QX_io_write_binary(reinterpret_cast<unsigned char*>(&image[0]),
                             fromBuffer) == n + 4);
    Check(image == std::string(reinterpret_cast<const char*>(p), n + 4));
    qxosstream out;
    Check(QX_io_write_binary(out, fromStream) == n + 4);
    Check(out.str() == image);
    _at += n + 4;
    Check(_stream.tell() == _at);
  }

  void Packed(unsigned int bits, unsigned int count) {
    if (count == 0) {
      return;
    }
    size_t need = bits < 32 ? PackedSize(bits, count) : size_t(count) * 4;
    if (need > left()) {
      return;
    }
    std::vector<unsigned int> fromBuffer(count, 0xAAAAAAAAu);
    std::vector<unsigned int> fromStream(count, 0x55555555u);
    Check(QX_io_read_binary_compressed(here(), fromBuffer.data(), bits,
                                       count) == need);
    unsigned long s =
        QX_io_read_binary_compressed(_stream, fromStream.data(), bits, count);
    Check(s == (bits < 32 ? need : 4));
    Check(fromBuffer == fromStream);
    std::string image(reinterpret_cast<const char*>(here()), need);
    _at += need;
    Check(_stream.tell() == _at);
    if (bits < 32) {
      for (unsigned int v : fromBuffer) {
        Check(bits == 0 ? v == 0 : (v >> bits) == 0 || bits == 32);
      }
      // The values need no more bits than they were stored with.
      Check(QX_io_util_calc_NumBits(fromBuffer.data(), count) <= bits);
    }
    // Packing them again gives the image, unused bits cleared.
    std::string expected =
        bits < 32 ? ClearedAfter(image, size_t(count) * bits) : image;
    std::string again(need, '\x77');
    Check(QX_io_write_binary_compressed(
              reinterpret_cast<unsigned char*>(&again[0]), fromBuffer.data(),
              bits, count) == need);
    Check(again == expected);
    qxosstream out;
    Check(QX_io_write_binary_compressed(out, fromStream.data(), bits, count) ==
          need);
    Check(out.str() == expected);
  }

  void Quantised(unsigned int bits, unsigned int count) {
    if (count == 0) {
      return;
    }
    size_t need = bits < 32 ? 8 + PackedSize(bits, count) : size_t(count) * 4;
    if (need > left()) {
      return;
    }
    std::vector<float> fromBuffer(count, 1.25f);
    std::vector<float> fromStream(count, -3.5f);
    Check(QX_io_read_binary_compressed(here(), fromBuffer.data(), bits,
                                       count) == need);
    unsigned long s =
        QX_io_read_binary_compressed(_stream, fromStream.data(), bits, count);
    Check(s == (bits < 32 ? need : 4));
    Check(SameBits(fromBuffer.data(), fromStream.data(), count));
    std::string image(reinterpret_cast<const char*>(here()), need);
    _at += need;
    Check(_stream.tell() == _at);
    if (bits >= 32) {
      // Plain words: writing them again gives the image.
      std::string again(need, '\0');
      Check(QX_io_write_binary_compressed(
                reinterpret_cast<unsigned char*>(&again[0]), fromBuffer.data(),
                bits, count) == need);
      Check(again == image);
    }
  }

  // Quantises values with bits and reads them back: both writer forms give
  // the same image, and every finite value comes back within one step.
  static void RoundTrip(std::vector<float> values, unsigned int bits) {
    unsigned int count = static_cast<unsigned int>(values.size());
    if (count == 0 || bits == 0 || bits >= 32) {
      return;
    }
    size_t need = 8 + PackedSize(bits, count);
    std::string image(need, '\0');
    Check(QX_io_write_binary_compressed(
              reinterpret_cast<unsigned char*>(&image[0]), values.data(), bits,
              count) == need);
    qxosstream out;
    Check(QX_io_write_binary_compressed(out, values.data(), bits, count) ==
          need);
    Check(out.str() == image);
    std::vector<float> back(count);
    Check(QX_io_read_binary_compressed(
              reinterpret_cast<const unsigned char*>(image.data()), back.data(),
              bits, count) == need);
    float hi = values[0];
    float lo = values[0];
    for (float v : values) {
      hi = v > hi ? v : hi;
      lo = v < lo ? v : lo;
    }
    double range = double(hi) - double(lo);
    if (!std::isfinite(hi) || !std::isfinite(lo) || !std::isfinite(range) ||
        !std::isfinite(float(range))) {
      return;
    }
    double scale = std::ldexp(1.0, static_cast<int>(bits)) - 1;
    // Deliberate in the format: the step products are single precision, so
    // a range whose product with the scale overflows gives infinities.
    if (range * scale >= 1e38) {
      return;
    }
    double tolerance =
        range / scale + (std::fabs(hi) + std::fabs(lo) + range) * 1e-6 + 1e-30;
    for (unsigned int i = 0; i < count; ++i) {
      if (std::isfinite(values[i])) {
        Check(std::fabs(double(back[i]) - double(values[i])) <= tolerance);
      }
    }
  }

 private:
  const std::string& _data;
  ChoppedStream _stream;
  size_t _at;
  int _fd;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  int fd = qxfuzz::QxerrFile();
  qxfuzz::TakeQxerr(fd);
  FuzzedDataProvider provider(data, size);
  std::vector<size_t> spans;
  size_t spanCount = provider.ConsumeIntegralInRange<size_t>(1, 4);
  for (size_t i = 0; i < spanCount; ++i) {
    spans.push_back(provider.ConsumeIntegralInRange<size_t>(1, 300));
  }
  size_t opCount = provider.ConsumeIntegralInRange<size_t>(0, 24);
  std::vector<uint32_t> ops;
  for (size_t i = 0; i < opCount; ++i) {
    ops.push_back(provider.ConsumeIntegral<uint32_t>());
  }
  // Up to 20 bits: wider codes can round past the top code, which is then
  // stored unmasked by design and spills into the next value.
  unsigned int quantBits = provider.ConsumeIntegralInRange<unsigned int>(1, 20);
  std::string image = provider.ConsumeRemainingBytesAsString();

  // The same reads from a stream that can seek and from one that cannot,
  // as a pipe.
  Reader seekable(image, spans, fd, true);
  Reader flowing(image, spans, fd, false);
  for (Reader* reader : {&seekable, &flowing}) {
    for (uint32_t op : ops) {
      unsigned int count = (op >> 8) % 300;
      switch (op % 5) {
        case 0: {
          static const unsigned long kWidths[] = {1, 2, 4, 8, 3,
                                                  5, 6, 7, 9, 16};
          reader->Array(kWidths[(op >> 4) % 10], count);
          break;
        }
        case 1:
          reader->String();
          break;
        case 2:
          reader->Packed((op >> 3) % 40, count);
          break;
        case 3:
          reader->Quantised((op >> 3) % 40, count);
          break;
        default:
          break;
      }
    }
  }
  // The image read as floats, quantised and read back.
  std::vector<float> values(image.size() / 4);
  if (!values.empty()) {
    memcpy(values.data(), image.data(), values.size() * 4);
  }
  Reader::RoundTrip(values, quantBits);
  Check(qxfuzz::TakeQxerr(fd).empty());
  return 0;
}
