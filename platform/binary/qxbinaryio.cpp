#include "qxbinaryio.h"

#include <stdint.h>

#include <string>

#include "../streams/qxstdstream_private.h"
#include "../streams/qxstream.h"

namespace QXPlatform {
namespace {

const char* const kReturnCodeNames[] = {
    "Success",          "UnsupportedVersion",
    "SizeMismatch",     "ContainerSize64Bit",
    "EndOfStream",      "ExceededMaxRead",
    "ExceededMaxWrite", "UndefinedError",
};

}  // namespace

QXBinaryIO::~QXBinaryIO() = default;

qxostream& operator<<(qxostream& out, const QXBinaryIO& obj) {
  uint32_t size = static_cast<uint32_t>(obj.GetSize());
  unsigned char word[4] = {
      static_cast<unsigned char>(size >> 24),
      static_cast<unsigned char>(size >> 16),
      static_cast<unsigned char>(size >> 8),
      static_cast<unsigned char>(size),
  };
  out.write(word, 4);
  obj.Write(out);
  return out;
}

qxistream& operator>>(qxistream& in, QXBinaryIO& obj) {
  // A short read leaves the missing bytes zero; the comparison below then
  // normally fails and says so.
  unsigned char word[4] = {0, 0, 0, 0};
  in.read(word, 4);
  uint32_t expected = static_cast<uint32_t>(word[0]) << 24 |
                      static_cast<uint32_t>(word[1]) << 16 |
                      static_cast<uint32_t>(word[2]) << 8 | word[3];
  unsigned long long consumed = obj.Read(in);
  // Deliberate: a mismatch is only reported; nothing is skipped or rewound.
  if (static_cast<uint32_t>(consumed) != expected) {
    // Both lines in one piece, so that nothing comes between them.
    QXWriteDiagnostic(
        "WARNING operator>>(qxistream& istr, QXBinaryIO& obj) \n"
        "Record size (" +
        std::to_string(static_cast<unsigned int>(expected)) +
        ") is not equal to number of bytes read (" +
        std::to_string(static_cast<unsigned long>(consumed)) + ")\n");
  }
  return in;
}

const char* QXBinaryDump::ReturnCode::Name(unsigned int code) {
  if (code < sizeof kReturnCodeNames / sizeof kReturnCodeNames[0]) {
    return kReturnCodeNames[code];
  }
  return "UNKNOWN";
}

}  // namespace QXPlatform
