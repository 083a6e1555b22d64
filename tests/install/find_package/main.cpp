// Links the installed library and uses its compression, which pulls in zlib
// and zstd through the library alone.
#include <string>

#include <QXPlatform/QXPlatform.h>

int main() {
  std::string packed;
  std::string unpacked;
  const std::string text = "find_package consumer";
  if (!QXPlatform::QXCompress(packed, text, "zstd") ||
      !QXPlatform::QXUncompress(unpacked, packed, "zstd")) {
    return 1;
  }
  return unpacked == text ? 0 : 1;
}
