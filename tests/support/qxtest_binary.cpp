#include "support/qxtest_binary.h"

#include <stdio.h>

#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxstdstream.h>

namespace QXPlatform {
namespace testing {

std::string CaptureStderr(const std::function<void()>& body) {
  qxerr.flush();
  fflush(stderr);
  CaptureFd capture(2);
  body();
  qxerr.flush();
  fflush(stderr);
  return capture.Finish();
}

ByteVector ToBytes(const std::string& s) {
  return ByteVector(s.begin(), s.end());
}

std::string FromBytes(const ByteVector& bytes) {
  return std::string(bytes.begin(), bytes.end());
}

std::string Hex(const unsigned char* data, size_t n) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < n; ++i) {
    if (i != 0) {
      text.push_back(' ');
    }
    text.push_back(kDigits[data[i] >> 4]);
    text.push_back(kDigits[data[i] & 15]);
  }
  return text;
}

std::string Hex(const ByteVector& bytes) {
  return Hex(bytes.data(), bytes.size());
}

}  // namespace testing
}  // namespace QXPlatform
