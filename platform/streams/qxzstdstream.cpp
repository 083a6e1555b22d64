#include "qxzstdstream.h"

#include <errno.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

#include <zstd.h>
#include <zstd_errors.h>

#include "qxstdstream.h"

namespace QXPlatform {
namespace {

const char* const kTruncated = "unexpected end of file";
const char* const kCrcError = "invalid compressed data--crc error";
const char* const kFormatError = "invalid compressed data--format violated";

const unsigned char kMagic[4] = {0x28, 0xB5, 0x2F, 0xFD};
// Skippable frames: the first byte is any of 0x50 to 0x5F.
const unsigned char kSkippableMagic[3] = {0x2A, 0x4D, 0x18};

// Frames asking for a larger window than this are refused, so that memory
// stays bounded whatever the input says.
const int kWindowLogMax = 27;

std::atomic<bool>& ZstdStreamsSwitch() {
  static std::atomic<bool> enabled(false);
  return enabled;
}

bool IsMagic(const unsigned char* bytes) {
  return std::memcmp(bytes, kMagic, 4) == 0 ||
         ((bytes[0] & 0xF0) == 0x50 &&
          std::memcmp(bytes + 1, kSkippableMagic, 3) == 0);
}

// The n < 4 bytes could be the start of a frame cut short.
bool IsMagicPrefix(const unsigned char* bytes, size_t n) {
  if (n == 0) {
    return false;
  }
  if (std::memcmp(bytes, kMagic, n) == 0) {
    return true;
  }
  return (bytes[0] & 0xF0) == 0x50 &&
         std::memcmp(bytes + 1, kSkippableMagic, n - 1) == 0;
}

}  // namespace

void QXSetZstdStreams(bool enabled) {
  ZstdStreamsSwitch().store(enabled, std::memory_order_release);
}

bool QXGetZstdStreams() {
  return ZstdStreamsSwitch().load(std::memory_order_acquire);
}

// ---------------------------------------------------------------------------
// Input

class QXPrivateZstdIStream {
 public:
  enum State {
    // Between frames: the next bytes decide what follows.
    kNext,
    kFrame,
    // Not zstd data: delivered unchanged to the end.
    kPlain,
    kEnd
  };

  QXPrivateZstdIStream() : decoder(ZSTD_createDStream()) {
    if (decoder != nullptr) {
      ZSTD_DCtx_setParameter(decoder, ZSTD_d_windowLogMax, kWindowLogMax);
    }
    Reset();
  }
  ~QXPrivateZstdIStream() { ZSTD_freeDStream(decoder); }
  QXPrivateZstdIStream(const QXPrivateZstdIStream&) = delete;
  QXPrivateZstdIStream& operator=(const QXPrivateZstdIStream&) = delete;

  void Reset() {
    if (decoder != nullptr) {
      ZSTD_DCtx_reset(decoder, ZSTD_reset_session_only);
    }
    state = kNext;
    held = 0;
    heldPos = 0;
    NewFrame();
  }

  // Forgets the header and the count of the frame before.
  void NewFrame() {
    headerLen = 0;
    frameOut = 0;
  }

  // Keeps the first bytes of the frame fed to the decoder, up to a whole
  // header.
  void NoteFed(const unsigned char* bytes, size_t n) {
    size_t take = sizeof header - headerLen < n ? sizeof header - headerLen : n;
    std::memcpy(header + headerLen, bytes, take);
    headerLen += take;
  }

  // False when the frame's header states a content size other than what the
  // frame gave. The decoder checks this itself except after an empty last
  // block, and not at all when it never saw the whole header.
  bool SizeAsStated() const {
    unsigned long long stated = ZSTD_getFrameContentSize(header, headerLen);
    return stated == ZSTD_CONTENTSIZE_UNKNOWN ||
           stated == ZSTD_CONTENTSIZE_ERROR || stated == frameOut;
  }

  ZSTD_DStream* decoder;
  State state;
  // Up to four bytes taken from the inner stream while deciding what comes
  // next; they are decoded or delivered before the inner stream's own.
  unsigned char hold[4];
  size_t held;
  size_t heldPos;
  // The first bytes of the current frame, and how much it has given.
  // 18 bytes: the largest frame header.
  unsigned char header[18];
  size_t headerLen;
  unsigned long long frameOut;
  // Where the frames start in the inner stream.
  unsigned long long start;
};

qxizstdstream::qxizstdstream()
    : qxiwrapperstream(nullptr, false), _zstd(new QXPrivateZstdIStream) {
  _zstd->start = 0;
}

qxizstdstream::qxizstdstream(qxistream* inner, bool owned) : qxizstdstream() {
  set(inner, owned);
}

// Defined here, where QXPrivateZstdIStream is complete.
qxizstdstream::~qxizstdstream() = default;

void qxizstdstream::_qxclear() { _zstd->Reset(); }

bool qxizstdstream::_qxset(qxistream* inner) {
  _zstd->Reset();
  _zstd->start = inner->tell();
  return true;
}

unsigned long qxizstdstream::Decode(char* into, unsigned long room) {
  QXPrivateZstdIStream& z = *_zstd;
  qxistream* inner = _stream;
  unsigned long produced = 0;
  if (z.decoder == nullptr) {
    SetError(ENOMEM);
    z.state = QXPrivateZstdIStream::kEnd;
  }
  while (produced < room && z.state != QXPrivateZstdIStream::kEnd) {
    size_t span = static_cast<size_t>(inner->_end - inner->_ptr);
    if (z.state == QXPrivateZstdIStream::kNext) {
      if (z.held == 0 && span >= 4 &&
          !IsMagic(reinterpret_cast<unsigned char*>(inner->_ptr))) {
        z.state = QXPrivateZstdIStream::kPlain;
        continue;
      }
      // A frame's magic is always fed to the decoder from the hold, on its
      // own: the decoder then never takes a whole frame in one pass, which
      // it would do only when the whole frame sits in one span, so that the
      // result cannot depend on how the inner stream cuts its data.
      if (span > 0) {
        size_t take = 4 - z.held < span ? 4 - z.held : span;
        std::memcpy(z.hold + z.held, inner->_ptr, take);
        inner->_ptr += take;
        z.held += take;
        if (z.held == 4) {
          z.state = IsMagic(z.hold) ? QXPrivateZstdIStream::kFrame
                                    : QXPrivateZstdIStream::kPlain;
          z.NewFrame();
        }
        continue;
      }
      // Waiting for more would stall a reader of a pipe: deliver first.
      if (produced > 0) {
        break;
      }
      if (!inner->_qxfill()) {
        TakeError(*inner);
        if (IsMagicPrefix(z.hold, z.held)) {
          SetError(EBADMSG, kTruncated);
          z.state = QXPrivateZstdIStream::kEnd;
        } else {
          z.state = z.held == 0 ? QXPrivateZstdIStream::kEnd
                                : QXPrivateZstdIStream::kPlain;
        }
      }
      continue;
    }
    if (z.state == QXPrivateZstdIStream::kPlain) {
      if (z.heldPos < z.held) {
        size_t n = z.held - z.heldPos;
        if (n > room - produced) {
          n = room - produced;
        }
        std::memcpy(into + produced, z.hold + z.heldPos, n);
        z.heldPos += n;
        produced += n;
        continue;
      }
      if (span > 0) {
        size_t n = span < room - produced ? span : room - produced;
        std::memcpy(into + produced, inner->_ptr, n);
        inner->_ptr += n;
        produced += n;
        continue;
      }
      if (produced > 0) {
        break;
      }
      if (!inner->_qxfill()) {
        TakeError(*inner);
        z.state = QXPrivateZstdIStream::kEnd;
      }
      continue;
    }
    // Inside a frame: the held bytes first, then the inner stream's span in
    // place.
    bool fromHold = z.heldPos < z.held;
    ZSTD_inBuffer in;
    if (fromHold) {
      in = {z.hold, z.held, z.heldPos};
    } else {
      in = {inner->_ptr, span, 0};
    }
    ZSTD_outBuffer out = {into, room, produced};
    size_t fedFrom = in.pos;
    size_t status = ZSTD_decompressStream(z.decoder, &out, &in);
    z.NoteFed(static_cast<const unsigned char*>(in.src) + fedFrom,
              in.pos - fedFrom);
    z.frameOut += out.pos - produced;
    bool progress = in.pos != (fromHold ? z.heldPos : 0) || out.pos != produced;
    if (fromHold) {
      z.heldPos = in.pos;
    } else {
      inner->_ptr += in.pos;
    }
    produced = static_cast<unsigned long>(out.pos);
    if (ZSTD_isError(status)) {
      switch (ZSTD_getErrorCode(status)) {
        case ZSTD_error_checksum_wrong:
          SetError(EBADMSG, kCrcError);
          break;
        case ZSTD_error_frameParameter_windowTooLarge:
        case ZSTD_error_memory_allocation:
          SetError(ENOMEM);
          break;
        default:
          SetError(EBADMSG, kFormatError);
          break;
      }
      z.state = QXPrivateZstdIStream::kEnd;
      break;
    }
    if (status == 0) {
      if (!z.SizeAsStated()) {
        SetError(EBADMSG, kFormatError);
        z.state = QXPrivateZstdIStream::kEnd;
        break;
      }
      // The frame is whole and all of it delivered; its held bytes are used
      // up, since a frame is longer than four bytes.
      z.state = QXPrivateZstdIStream::kNext;
      z.held = 0;
      z.heldPos = 0;
      continue;
    }
    if (progress || z.heldPos < z.held || inner->_ptr < inner->_end) {
      continue;
    }
    if (produced > 0) {
      break;
    }
    if (!inner->_qxfill()) {
      TakeError(*inner);
      SetError(EBADMSG, kTruncated);
      z.state = QXPrivateZstdIStream::kEnd;
    }
  }
  return produced;
}

bool qxizstdstream::_qxfill() {
  _offset += static_cast<unsigned long long>(_end - _begin);
  _ptr = _end = _begin = _buffer;
  if (_stream == nullptr) {
    _eof = true;
    return false;
  }
  unsigned long produced = Decode(_buffer, kBlockSize);
  _end = _buffer + produced;
  _eof = produced == 0;
  return produced != 0;
}

bool qxizstdstream::Restart() {
  qxistream* inner = _stream;
  unsigned long long target = _zstd->start;
  // Inside the span when the start lies there (a memory stream can go back
  // no other way). An empty memory stream has no span start at all.
  unsigned long long span =
      inner->_begin == nullptr
          ? 0
          : static_cast<unsigned long long>(inner->_end - inner->_begin);
  if (target >= inner->_offset && target - inner->_offset < span) {
    inner->_ptr = inner->_begin + (target - inner->_offset);
    inner->_eof = false;
  } else if (!inner->_qxseek(static_cast<long long>(target))) {
    return false;
  }
  _zstd->Reset();
  _offset = 0;
  _ptr = _end = _begin = _buffer;
  _eof = false;
  return true;
}

bool qxizstdstream::Forward(unsigned long long target) {
  for (;;) {
    _ptr = _end;
    if (!_qxfill()) {
      return false;
    }
    if (target - _offset < static_cast<unsigned long long>(_end - _begin)) {
      _ptr = _begin + (target - _offset);
      return true;
    }
  }
}

bool qxizstdstream::_qxseek(long long pos) {
  if (_stream == nullptr || pos < 0) {
    return false;
  }
  unsigned long long target = static_cast<unsigned long long>(pos);
  unsigned long long span = static_cast<unsigned long long>(_end - _begin);
  if (target >= _offset && target - _offset < span) {
    _ptr = _begin + (target - _offset);
    _eof = false;
    return true;
  }
  if (target < _offset && !Restart()) {
    return false;
  }
  return Forward(target);
}

unsigned long long qxizstdstream::_qxsize() {
  if (_stream == nullptr) {
    return 0;
  }
  unsigned long long here = tell();
  unsigned long long lastOffset;
  unsigned long long lastLength;
  int errorBefore = error();
  do {
    lastOffset = _offset;
    lastLength = static_cast<unsigned long long>(_end - _begin);
    _ptr = _end;
  } while (_qxfill());
  unsigned long long total = lastOffset + lastLength;
  _size = total;
  _sizeknown = true;
  // The block still holds the last piece unpacked, unless the step that
  // found damage scribbled on it: stay there if the old position lies in it,
  // else go back the long way.
  if (error() == errorBefore && here >= lastOffset && here < total) {
    _offset = lastOffset;
    _begin = _buffer;
    _end = _buffer + lastLength;
    _ptr = _buffer + (here - lastOffset);
    _eof = false;
  } else if (here < total) {
    _qxseek(static_cast<long long>(here));
  }
  return total;
}

// ---------------------------------------------------------------------------
// Output

class QXPrivateZstdOStream {
 public:
  QXPrivateZstdOStream(int level, unsigned workers)
      : encoder(ZSTD_createCCtx()),
        room(ZSTD_CStreamOutSize()),
        out(new char[room]),
        used(0),
        refused(0),
        framing(false) {
    if (encoder == nullptr) {
      refused = ENOMEM;
      return;
    }
    if (level < ZSTD_minCLevel() || level > ZSTD_maxCLevel() ||
        ZSTD_isError(
            ZSTD_CCtx_setParameter(encoder, ZSTD_c_compressionLevel, level))) {
      refused = EINVAL;
      return;
    }
    ZSTD_CCtx_setParameter(encoder, ZSTD_c_checksumFlag, 1);
    if (workers == 0) {
      return;
    }
    ZSTD_bounds bounds = ZSTD_cParam_getBounds(ZSTD_c_nbWorkers);
    if (ZSTD_isError(bounds.error) || bounds.upperBound < 1) {
      qxerr << "qxozstdstream: the zstd library has no worker threads"
            << qxendl;
      refused = ENOTSUP;
      return;
    }
    if (workers > static_cast<unsigned>(bounds.upperBound)) {
      refused = EINVAL;
      return;
    }
    size_t status = ZSTD_CCtx_setParameter(encoder, ZSTD_c_nbWorkers,
                                           static_cast<int>(workers));
    if (ZSTD_isError(status)) {
      if (ZSTD_getErrorCode(status) == ZSTD_error_parameter_unsupported) {
        qxerr << "qxozstdstream: the zstd library has no worker threads"
              << qxendl;
        refused = ENOTSUP;
      } else {
        refused = EINVAL;
      }
    }
  }
  ~QXPrivateZstdOStream() { ZSTD_freeCCtx(encoder); }
  QXPrivateZstdOStream(const QXPrivateZstdOStream&) = delete;
  QXPrivateZstdOStream& operator=(const QXPrivateZstdOStream&) = delete;

  ZSTD_CCtx* encoder;
  size_t room;
  std::unique_ptr<char[]> out;
  // Packed bytes waiting in out.
  size_t used;
  // The errno of a refused level or worker count, else 0.
  int refused;
  // A frame is begun on the inner stream and not yet finished.
  bool framing;
};

qxozstdstream::qxozstdstream() : qxozstdstream(nullptr, false) {}

qxozstdstream::qxozstdstream(qxostream* inner, bool owned, int level,
                             unsigned workers)
    : qxowrapperstream(nullptr, false),
      _zstd(new QXPrivateZstdOStream(level, workers)) {
  SetError(_zstd->refused);
  set(inner, owned);
}

qxozstdstream::~qxozstdstream() {
  try {
    Finish();
  } catch (const QXIOError& error) {
    qxerr << "Caught QXIOError during qxozstdstream destruction: "
          << error.what() << qxendl;
  } catch (...) {
    std::abort();
  }
}

bool qxozstdstream::_qxseek(long long) { return false; }

unsigned long long qxozstdstream::_qxsize() { return tell(); }

bool qxozstdstream::_qxset(qxostream*) {
  if (_zstd->refused != 0) {
    SetError(_zstd->refused);
    // No room at all, so that the first write already fails.
    _end = _buffer;
    return false;
  }
  ZSTD_CCtx_reset(_zstd->encoder, ZSTD_reset_session_only);
  _zstd->used = 0;
  _zstd->framing = true;
  return true;
}

// mode is a ZSTD_EndDirective. Packs the block's bytes and, unless mode is
// ZSTD_e_continue, everything the encoder holds, writing to the inner stream
// whenever the output piece is full and at the end.
bool qxozstdstream::Pack(int mode) {
  QXPrivateZstdOStream& z = *_zstd;
  ZSTD_EndDirective directive = static_cast<ZSTD_EndDirective>(mode);
  ZSTD_inBuffer in = {_buffer, static_cast<size_t>(_ptr - _buffer), 0};
  bool ok = true;
  for (;;) {
    ZSTD_outBuffer out = {z.out.get(), z.room, z.used};
    size_t status = ZSTD_compressStream2(z.encoder, &out, &in, directive);
    z.used = out.pos;
    if (ZSTD_isError(status)) {
      SetError(ZSTD_getErrorCode(status) == ZSTD_error_memory_allocation
                   ? ENOMEM
                   : EIO);
      ok = false;
      break;
    }
    bool done = directive == ZSTD_e_continue ? in.pos == in.size : status == 0;
    if (z.used == z.room || (done && directive != ZSTD_e_continue)) {
      if (z.used != 0 && _stream->write(z.out.get(), z.used) != z.used) {
        TakeError(*_stream);
        SetError(EIO);
        ok = false;
        break;
      }
      z.used = 0;
    }
    if (done) {
      break;
    }
  }
  _offset += static_cast<unsigned long long>(_ptr - _buffer);
  _ptr = _buffer;
  if (!ok) {
    // A frame with a hole in it cannot go on: no room, no more writes.
    z.framing = false;
    _end = _buffer;
    _eof = true;
  }
  return ok;
}

bool qxozstdstream::_qxflush() {
  if (_stream == nullptr || !_zstd->framing) {
    _eof = true;
    return false;
  }
  return Pack(ZSTD_e_continue);
}

bool qxozstdstream::_qxsync() {
  if (_stream == nullptr || !_zstd->framing) {
    _eof = true;
    return false;
  }
  if (!Pack(ZSTD_e_flush)) {
    return false;
  }
  if (!_stream->flush()) {
    TakeError(*_stream);
    SetError(EIO);
    _zstd->framing = false;
    _end = _buffer;
    _eof = true;
    return false;
  }
  return true;
}

void qxozstdstream::Finish() {
  if (_stream == nullptr || !_zstd->framing) {
    return;
  }
  Pack(ZSTD_e_end);
  _zstd->framing = false;
}

void qxozstdstream::_qxclear() { Finish(); }

}  // namespace QXPlatform
