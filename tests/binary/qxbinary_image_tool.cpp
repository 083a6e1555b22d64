// Writes binary images for the cross-check script: reads values as text on
// standard input and writes the image bytes to standard output, or reads an
// image (as hex text) and writes the values back as text. Every image is made
// by the buffer form and the stream form; they must agree (exit status 3).
//
//   qxbinary_image_tool ints WIDTH        decimal integers -> WIDTH-byte image
//   qxbinary_image_tool floats | doubles  decimal reals -> 4- or 8-byte image
//   qxbinary_image_tool string            raw bytes -> string image
//   qxbinary_image_tool pack BITS         decimal integers -> packed image
//   qxbinary_image_tool unpack BITS COUNT hex image -> decimal integers

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include <QXPlatform/QXPlatform.h>

namespace {

using QXPlatform::qxosstream;

int Emit(const std::vector<unsigned char>& image, const std::string& streamed) {
  if (streamed != std::string(image.begin(), image.end())) {
    fprintf(stderr, "buffer and stream images differ\n");
    return 3;
  }
  if (!image.empty()) {
    fwrite(image.data(), 1, image.size(), stdout);
  }
  return 0;
}

template <typename T>
int Ints(unsigned long width) {
  std::vector<T> values;
  unsigned long long v;
  while (std::cin >> v) {
    values.push_back(static_cast<T>(v));
  }
  unsigned count = static_cast<unsigned>(values.size());
  std::vector<unsigned char> image(count * width);
  const unsigned char* src =
      reinterpret_cast<const unsigned char*>(values.data());
  QXPlatform::QX_io_write_binary(image.data(), src, width, count);
  qxosstream out;
  QXPlatform::QX_io_write_binary(out, src, width, count);
  return Emit(image, out.str());
}

template <typename T>
int Reals() {
  std::vector<T> values;
  std::string word;
  while (std::cin >> word) {
    values.push_back(sizeof(T) == 4
                         ? static_cast<T>(strtof(word.c_str(), nullptr))
                         : static_cast<T>(strtod(word.c_str(), nullptr)));
  }
  unsigned count = static_cast<unsigned>(values.size());
  std::vector<unsigned char> image(count * sizeof(T));
  const unsigned char* src =
      reinterpret_cast<const unsigned char*>(values.data());
  QXPlatform::QX_io_write_binary(image.data(), src, sizeof(T), count);
  qxosstream out;
  QXPlatform::QX_io_write_binary(out, src, sizeof(T), count);
  return Emit(image, out.str());
}

int String() {
  std::string s((std::istreambuf_iterator<char>(std::cin)),
                std::istreambuf_iterator<char>());
  std::vector<unsigned char> image(s.size() + 4);
  QXPlatform::QX_io_write_binary(image.data(), s);
  qxosstream out;
  QXPlatform::QX_io_write_binary(out, s);
  return Emit(image, out.str());
}

int Pack(unsigned bits) {
  std::vector<unsigned int> values;
  unsigned long long v;
  while (std::cin >> v) {
    values.push_back(static_cast<unsigned int>(v));
  }
  unsigned count = static_cast<unsigned>(values.size());
  std::vector<unsigned char> image(static_cast<size_t>(count) * 4 + 8);
  unsigned long size = QXPlatform::QX_io_write_binary_compressed(
      image.data(), values.data(), bits, count);
  image.resize(size);
  qxosstream out;
  QXPlatform::QX_io_write_binary_compressed(out, values.data(), bits, count);
  return Emit(image, out.str());
}

int Unpack(unsigned bits, unsigned count) {
  std::vector<unsigned char> image;
  std::string hex;
  while (std::cin >> hex) {
    image.push_back(
        static_cast<unsigned char>(strtoul(hex.c_str(), nullptr, 16)));
  }
  std::vector<unsigned int> values(count);
  QXPlatform::QX_io_read_binary_compressed(image.data(), values.data(), bits,
                                           count);
  QXPlatform::qxisstream in(reinterpret_cast<const char*>(image.data()),
                            image.size(), false);
  std::vector<unsigned int> streamed(count);
  QXPlatform::QX_io_read_binary_compressed(in, streamed.data(), bits, count);
  if (streamed != values) {
    fprintf(stderr, "buffer and stream readers differ\n");
    return 3;
  }
  for (unsigned int value : values) {
    printf("%u\n", value);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "ints" && argc == 3) {
    unsigned long width = strtoul(argv[2], nullptr, 10);
    if (width == 2) {
      return Ints<uint16_t>(2);
    }
    if (width == 4) {
      return Ints<uint32_t>(4);
    }
    if (width == 8) {
      return Ints<uint64_t>(8);
    }
  } else if (mode == "floats" && argc == 2) {
    return Reals<float>();
  } else if (mode == "doubles" && argc == 2) {
    return Reals<double>();
  } else if (mode == "string" && argc == 2) {
    return String();
  } else if (mode == "pack" && argc == 3) {
    return Pack(static_cast<unsigned>(strtoul(argv[2], nullptr, 10)));
  } else if (mode == "unpack" && argc == 4) {
    return Unpack(static_cast<unsigned>(strtoul(argv[2], nullptr, 10)),
                  static_cast<unsigned>(strtoul(argv[3], nullptr, 10)));
  }
  fprintf(stderr, "usage: see the comment at the top of the source\n");
  return 2;
}
