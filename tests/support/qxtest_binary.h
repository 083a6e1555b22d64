#pragma once

// Helpers for the binary-layer tests: capture of what reaches standard error
// through qxerr or stdio, and byte images as vectors.

#include <functional>
#include <string>
#include <vector>

namespace QXPlatform {
namespace testing {

typedef std::vector<unsigned char> ByteVector;

// Runs body with descriptor 2 captured; returns everything written there,
// byte for byte (qxerr and stderr are flushed before and after).
std::string CaptureStderr(const std::function<void()>& body);

// The bytes of a string as a vector, and back.
ByteVector ToBytes(const std::string& s);
std::string FromBytes(const ByteVector& bytes);

// "00 0a ff" for diagnostics.
std::string Hex(const unsigned char* data, size_t n);
std::string Hex(const ByteVector& bytes);

}  // namespace testing
}  // namespace QXPlatform
