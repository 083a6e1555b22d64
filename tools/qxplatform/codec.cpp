// Streaming compression for the tool: every byte goes through a stream of
// the library, one block at a time, so memory stays bounded whatever the
// size of the input.

#include "codec.h"

#include <stdlib.h>

#include <errno.h>
#include <string.h>

#include <memory>
#include <string>

#include <QXPlatform/streams/qxzstdstream.h>

namespace qxtool {
namespace {

using QXPlatform::qxistream;
using QXPlatform::qxostream;

const unsigned long kChunk = 65536;

std::string Reason(const QXPlatform::qxstream& stream, const char* fallback) {
  if (stream.error() != 0) {
    return stream.errortext();
  }
  return fallback;
}

// Copies in to out (null: nowhere) in chunks with read/write, counting the
// bytes. A stream-to-stream copy is avoided: a packing stream may raise its
// fail flag after a pass that fills its block exactly while it still takes
// data.
bool Copy(qxistream& in, qxostream* out, Failure* why,
          unsigned long long* copied) {
  static thread_local char chunk[kChunk];
  unsigned long long total = 0;
  for (;;) {
    unsigned long got = in.read(chunk, kChunk);
    if (got == 0) {
      break;
    }
    total += got;
    if (out != nullptr && out->write(chunk, got) != got) {
      why->onOutput = true;
      why->reason = Reason(*out, strerror(EIO));
      return false;
    }
  }
  if (copied != nullptr) {
    *copied = total;
  }
  if (in.error() != 0) {
    why->onOutput = false;
    why->reason = in.errortext();
    return false;
  }
  return true;
}

// Flushes out; false with why filled in when the data did not all go.
bool FlushOutput(qxostream& out, Failure* why) {
  if (!out.flush()) {
    why->onOutput = true;
    why->reason = Reason(out, strerror(EIO));
    return false;
  }
  return true;
}

bool FinishOutput(qxostream& packer, qxostream& out, Failure* why) {
  bool closed = packer.close();
  if (packer.error() != 0 || out.error() != 0 || !closed) {
    why->onOutput = true;
    why->reason = out.error() != 0 ? out.errortext()
                                   : Reason(packer, strerror(EIO));
    return false;
  }
  return FlushOutput(out, why);
}

}  // namespace

PeekedStream::PeekedStream(qxistream& inner)
    : _inner(inner), _headSize(0), _headPending(true), _consumed(0) {
  _headSize = inner.read(_head, sizeof _head);
  _consumed = _headSize;
  if (inner.error() != 0) {
    SetError(inner.error(), inner.errortext());
  }
  _eof = false;
}

PeekedStream::~PeekedStream() {}

bool PeekedStream::_qxfill() {
  unsigned long got = 0;
  if (_headPending) {
    _headPending = false;
    memcpy(_buffer, _head, _headSize);
    got = _headSize;
  }
  if (got == 0) {
    got = _inner.read(_buffer, kBlockSize);
    _consumed += got;
    if (_inner.error() != 0 && error() == 0) {
      SetError(_inner.error(), _inner.errortext());
    }
  }
  _offset += static_cast<unsigned long long>(_ptr - _buffer);
  _begin = _ptr = _buffer;
  _end = _buffer + got;
  if (got == 0) {
    _eof = true;
    return false;
  }
  return true;
}

Method MethodFromText(const std::string& text) {
  if (text == "gz") {
    return Method::kGz;
  }
  if (text == "zstd") {
    return Method::kZstd;
  }
  return Method::kNone;
}

Method MethodFromName(const std::string& name) {
  auto endsWith = [&name](const char* suffix) {
    size_t n = strlen(suffix);
    return name.size() > n && name.compare(name.size() - n, n, suffix) == 0;
  };
  if (endsWith(".gz")) {
    return Method::kGz;
  }
  if (endsWith(".zst")) {
    return Method::kZstd;
  }
  return Method::kNone;
}

const char* MethodText(Method method) {
  return method == Method::kZstd ? "zstd" : "gz";
}

const char* MethodSuffix(Method method) {
  return method == Method::kZstd ? ".zst" : ".gz";
}

Method MethodFromMagic(const char* data, unsigned long n) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(data);
  if (n >= 2 && p[0] == 0x1f && p[1] == 0x8b) {
    return Method::kGz;
  }
  if (n >= 4 && p[0] == 0x28 && p[1] == 0xb5 && p[2] == 0x2f && p[3] == 0xfd) {
    return Method::kZstd;
  }
  // A skippable frame (0x184D2A50 to 0x184D2A5F, least significant byte
  // first), which some writers put before the data.
  if (n >= 4 && (p[0] & 0xf0) == 0x50 && p[1] == 0x2a && p[2] == 0x4d &&
      p[3] == 0x18) {
    return Method::kZstd;
  }
  return Method::kNone;
}

bool CopyStream(qxistream& in, qxostream& out, Failure* why) {
  if (!Copy(in, &out, why, nullptr)) {
    return false;
  }
  return FlushOutput(out, why);
}

unsigned ThreadsFromText(const std::string& text) {
  if (text.empty() || text.size() > 2 ||
      text.find_first_not_of("0123456789") != std::string::npos) {
    return 0;
  }
  int n = atoi(text.c_str());
  return n >= 1 && n <= 64 ? static_cast<unsigned>(n) : 0;
}

bool CompressStream(Method method, int level, qxistream& in, qxostream& out,
                    Failure* why, unsigned threads) {
  std::unique_ptr<qxostream> packer;
  if (method == Method::kZstd) {
    packer.reset(new QXPlatform::qxozstdstream(
        &out, false, level == 0 ? 3 : level, threads > 1 ? threads : 0));
  } else if (threads > 1) {
    packer.reset(new QXPlatform::qxogzstream(&out, false, level, threads));
  } else if (level == 0) {
    packer.reset(new QXPlatform::qxogzstream(&out, false));
  } else {
    packer.reset(new QXPlatform::qxogzstream(&out, false, level));
  }
  if (packer->error() != 0) {
    why->onOutput = true;
    why->reason = packer->errortext();
    return false;
  }
  if (!Copy(in, packer.get(), why, nullptr)) {
    if (!why->onOutput) {
      packer->close();
    }
    return false;
  }
  return FinishOutput(*packer, out, why);
}

bool UncompressStream(Method method, qxistream& in, qxostream* out,
                      Failure* why, unsigned long long* unpacked) {
  std::unique_ptr<PeekedStream> peeked;
  std::unique_ptr<qxistream> reader;
  if (method == Method::kZstd) {
    // A zstd reader passes data that are no frame through unchanged; here the
    // data must start with one. Empty input is no frame either.
    peeked.reset(new PeekedStream(in));
    if (peeked->error() != 0) {
      why->reason = peeked->errortext();
      return false;
    }
    if (peeked->headSize() == 0) {
      // Empty input unpacks to nothing, as it does for gz.
      if (unpacked != nullptr) {
        *unpacked = 0;
      }
      return out == nullptr || FlushOutput(*out, why);
    }
    if (MethodFromMagic(peeked->head(), peeked->headSize()) != Method::kZstd) {
      why->reason = "not valid zstd data";
      return false;
    }
    reader.reset(new QXPlatform::qxizstdstream(peeked.get(), false));
  } else {
    reader.reset(new QXPlatform::qxigzstream(&in, false));
  }
  if (!Copy(*reader, out, why, unpacked)) {
    return false;
  }
  return out == nullptr || FlushOutput(*out, why);
}

}  // namespace qxtool
