#include "qxcompress.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include <zstd.h>

#include "qxgzstream.h"
#include "qxinflate_private.h"
#include "qxsstream.h"

namespace QXPlatform {
namespace {

const unsigned long kGzReadPiece = 2048;
const int kZstdLevel = 7;

// One compression stream per thread, reused for every frame it makes: after
// ZSTD_endStream the next call starts a new frame by itself.
struct ZstdCStreamStorage {
  ZstdCStreamStorage()
      : stream(ZSTD_createCStream()),
        size(ZSTD_CStreamOutSize()),
        block(static_cast<char*>(malloc(size))) {
    ZSTD_initCStream(stream, kZstdLevel);
  }
  ~ZstdCStreamStorage() {
    ZSTD_freeCStream(stream);
    free(block);
  }
  ZstdCStreamStorage(const ZstdCStreamStorage&) = delete;
  ZstdCStreamStorage& operator=(const ZstdCStreamStorage&) = delete;

  ZSTD_CStream* stream;
  size_t size;
  char* block;
};

// One decompression stream per thread, never reset: each call continues
// from the state the previous one left.
struct ZstdDStreamStorage {
  ZstdDStreamStorage()
      : stream(ZSTD_createDStream()),
        size(ZSTD_DStreamOutSize()),
        block(static_cast<char*>(malloc(size))) {
    ZSTD_initDStream(stream);
  }
  ~ZstdDStreamStorage() {
    ZSTD_freeDStream(stream);
    free(block);
  }
  ZstdDStreamStorage(const ZstdDStreamStorage&) = delete;
  ZstdDStreamStorage& operator=(const ZstdDStreamStorage&) = delete;

  ZSTD_DStream* stream;
  size_t size;
  char* block;
};

ZstdCStreamStorage& CompressionStorage() {
  thread_local ZstdCStreamStorage storage;
  return storage;
}

ZstdDStreamStorage& DecompressionStorage() {
  thread_local ZstdDStreamStorage storage;
  return storage;
}

bool IsMethod(const char* method, const char* name) {
  return method != nullptr && strcmp(method, name) == 0;
}

void GzCompress(std::string& out, const char* data, size_t len, int level = 0,
                unsigned threads = 1) {
  qxosstream sink;
  qxogzstream gz(&sink, false, level, threads);
  if (data != nullptr && len != 0) {
    gz.write(data, len);
  }
  // Packs what is buffered, writes the trailer and lets go of the sink.
  gz.clear();
  out = sink.str();
}

bool ZstdCompress(ZstdCStreamStorage& z, std::string& out, const char* data,
                  size_t len) {
  ZSTD_inBuffer in = {data, data != nullptr ? len : 0, 0};
  std::string result;
  while (in.pos < in.size) {
    ZSTD_outBuffer piece = {z.block, z.size, 0};
    size_t status = ZSTD_compressStream(z.stream, &piece, &in);
    if (ZSTD_isError(status)) {
      return false;
    }
    result.append(z.block, piece.pos);
  }
  // A frame's epilogue fits one output block, so one call finishes it.
  ZSTD_outBuffer piece = {z.block, z.size, 0};
  ZSTD_endStream(z.stream, &piece);
  result.append(z.block, piece.pos);
  out.swap(result);
  return true;
}

// Returns the gzip stream's error(): 0, or EBADMSG for damaged data.
int GzUncompress(std::string& out, const char* data, size_t len) {
  // Whole valid members decode faster another way, with the same result and
  // no failure; the stream below decides every other case.
  if (QXInternalGunzipWholeMembers(data, len, out)) {
    return 0;
  }
  qxisstream source(data, static_cast<unsigned long>(len), false);
  qxigzstream gz(&source, false);
  char piece[kGzReadPiece];
  for (;;) {
    unsigned long got = gz.read(piece, kGzReadPiece);
    if (got == 0) {
      break;
    }
    out.append(piece, got);
    if (got < kGzReadPiece) {
      break;
    }
  }
  return gz.error();
}

bool ZstdUncompress(ZstdDStreamStorage& z, std::string& out, const char* data,
                    size_t len) {
  if (len == 0 || data == nullptr) {
    return true;
  }
  ZSTD_inBuffer in = {data, len, 0};
  while (in.pos < in.size) {
    ZSTD_outBuffer piece = {z.block, z.size, 0};
    size_t before = in.pos;
    size_t status = ZSTD_decompressStream(z.stream, &piece, &in);
    if (ZSTD_isError(status)) {
      // A decoder that reported an error refuses all further input; start
      // it afresh so that one bad buffer does not spoil the thread's later
      // calls. A frame merely cut short is kept and continued next time.
      ZSTD_initDStream(z.stream);
      return false;
    }
    out.append(z.block, piece.pos);
    if (in.pos == before) {
      return false;
    }
  }
  // Deliberate: bytes the decoder still holds once all input is taken are
  // not drained.
  return true;
}

// As ZstdUncompress, but on a decoder started afresh, with what it still
// holds drained, and left afresh for the next call: a frame cut short is
// reported as EBADMSG instead of being continued by a later call. *ok gets
// what ZstdUncompress gives on a fresh decoder.
int ZstdUncompressChecked(ZstdDStreamStorage& z, std::string& out,
                          const char* data, size_t len, bool* ok) {
  ZSTD_DCtx_reset(z.stream, ZSTD_reset_session_only);
  *ok = true;
  if (len == 0 || data == nullptr) {
    return 0;
  }
  ZSTD_inBuffer in = {data, len, 0};
  size_t status = 0;
  while (in.pos < in.size) {
    ZSTD_outBuffer piece = {z.block, z.size, 0};
    size_t before = in.pos;
    status = ZSTD_decompressStream(z.stream, &piece, &in);
    if (ZSTD_isError(status)) {
      ZSTD_DCtx_reset(z.stream, ZSTD_reset_session_only);
      *ok = false;
      return EBADMSG;
    }
    out.append(z.block, piece.pos);
    if (in.pos == before) {
      ZSTD_DCtx_reset(z.stream, ZSTD_reset_session_only);
      *ok = false;
      return EBADMSG;
    }
  }
  // 0 means every frame is complete and flushed; anything else that makes
  // no more output is a frame cut short.
  while (status != 0) {
    ZSTD_outBuffer piece = {z.block, z.size, 0};
    status = ZSTD_decompressStream(z.stream, &piece, &in);
    if (ZSTD_isError(status) || piece.pos == 0) {
      break;
    }
    out.append(z.block, piece.pos);
  }
  ZSTD_DCtx_reset(z.stream, ZSTD_reset_session_only);
  return status != 0 ? EBADMSG : 0;
}

}  // namespace

bool QXCompress(std::string& out, const char* data, size_t len,
                const char* method) {
  if (IsMethod(method, "gz")) {
    GzCompress(out, data, len);
    return true;
  }
  // The thread's stream (some 9 MB at level 7) is made on its first "zstd"
  // call only: threads that pack gzip or pass an unknown method never pay
  // for it.
  if (IsMethod(method, "zstd")) {
    return ZstdCompress(CompressionStorage(), out, data, len);
  }
  out.clear();
  return false;
}

bool QXCompress(std::string& out, const std::string& data, const char* method) {
  return QXCompress(out, data.data(), data.size(), method);
}

bool QXCompress(std::string& out, const char* data, size_t len,
                const char* method, int level) {
  if (level == 0) {
    return QXCompress(out, data, len, method);
  }
  if (IsMethod(method, "gz")) {
    if (level < 1 || level > 9) {
      return false;
    }
    GzCompress(out, data, len, level);
    return true;
  }
  if (IsMethod(method, "zstd")) {
    if (level < ZSTD_minCLevel() || level > ZSTD_maxCLevel()) {
      return false;
    }
    ZstdCStreamStorage& z = CompressionStorage();
    // A new frame at the level asked for; the thread's stream goes back to
    // the default level afterwards, for the forms without a level.
    ZSTD_CCtx_reset(z.stream, ZSTD_reset_session_only);
    ZSTD_CCtx_setParameter(z.stream, ZSTD_c_compressionLevel, level);
    bool ok = ZstdCompress(z, out, data, len);
    ZSTD_CCtx_reset(z.stream, ZSTD_reset_session_only);
    ZSTD_CCtx_setParameter(z.stream, ZSTD_c_compressionLevel, kZstdLevel);
    return ok;
  }
  out.clear();
  return false;
}

bool QXCompress(std::string& out, const std::string& data, const char* method,
                int level) {
  return QXCompress(out, data.data(), data.size(), method, level);
}

bool QXCompress(std::string& out, const char* data, size_t len,
                const char* method, int level, unsigned threads) {
  if (threads <= 1) {
    return QXCompress(out, data, len, method, level);
  }
  if (IsMethod(method, "gz")) {
    if (level != 0 && (level < 1 || level > 9)) {
      return false;
    }
    GzCompress(out, data, len, level, threads);
    return true;
  }
  if (IsMethod(method, "zstd")) {
    if (level != 0 &&
        (level < ZSTD_minCLevel() || level > ZSTD_maxCLevel())) {
      return false;
    }
    // A context of its own: the thread's stream keeps no workers.
    ZSTD_CCtx* c = ZSTD_createCCtx();
    if (c == nullptr) {
      return false;
    }
    bool ok = !ZSTD_isError(ZSTD_CCtx_setParameter(
                  c, ZSTD_c_compressionLevel, level == 0 ? kZstdLevel : level)) &&
              !ZSTD_isError(ZSTD_CCtx_setParameter(
                  c, ZSTD_c_nbWorkers, static_cast<int>(threads)));
    std::string result;
    if (ok) {
      ZSTD_inBuffer in = {data, data != nullptr ? len : 0, 0};
      std::vector<char> block(ZSTD_CStreamOutSize());
      size_t left;
      do {
        ZSTD_outBuffer piece = {block.data(), block.size(), 0};
        left = ZSTD_compressStream2(c, &piece, &in, ZSTD_e_end);
        if (ZSTD_isError(left)) {
          ok = false;
          break;
        }
        result.append(block.data(), piece.pos);
      } while (left != 0);
    }
    ZSTD_freeCCtx(c);
    if (ok) {
      out.swap(result);
    }
    return ok;
  }
  out.clear();
  return false;
}

bool QXCompress(std::string& out, const std::string& data, const char* method,
                int level, unsigned threads) {
  return QXCompress(out, data.data(), data.size(), method, level, threads);
}

bool QXUncompress(std::string& out, const char* data, size_t len,
                  const char* method) {
  // Deliberate: unlike compression, the result is appended to what out
  // already holds.
  if (IsMethod(method, "gz")) {
    GzUncompress(out, data, len);
    return true;
  }
  // The decoder, too, is made on the thread's first "zstd" call only.
  if (IsMethod(method, "zstd")) {
    return ZstdUncompress(DecompressionStorage(), out, data, len);
  }
  out.clear();
  return false;
}

bool QXUncompress(std::string& out, const std::string& data,
                  const char* method) {
  return QXUncompress(out, data.data(), data.size(), method);
}

bool QXUncompress(std::string& out, const char* data, size_t len,
                  const char* method, int* error) {
  bool ok = true;
  int failure = 0;
  if (IsMethod(method, "gz")) {
    failure = GzUncompress(out, data, len);
  } else if (IsMethod(method, "zstd")) {
    failure =
        ZstdUncompressChecked(DecompressionStorage(), out, data, len, &ok);
  } else {
    out.clear();
    ok = false;
    failure = EINVAL;
  }
  if (error != nullptr) {
    *error = failure;
  }
  return ok;
}

bool QXUncompress(std::string& out, const std::string& data, const char* method,
                  int* error) {
  return QXUncompress(out, data.data(), data.size(), method, error);
}

bool QXCompressionAvailable(const char* method) {
  // Deliberate: only the first two letters are looked at, and "zstd" is not
  // reported although it works.
  return method != nullptr && method[0] == 'g' && method[1] == 'z';
}

}  // namespace QXPlatform
