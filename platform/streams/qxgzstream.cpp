#include "qxgzstream.h"

#include <errno.h>
#include <stdio.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include <zlib.h>

#include "qxdeflate_parallel_private.h"
#include "qxstdstream.h"
#include "qxstdstream_private.h"

namespace QXPlatform {

// The state of one gzip stream. The member framing (header, trailer,
// concatenated members, pass-through) is ours; zlib only does raw deflate.
struct gz_stream {
  z_stream stream;
  // The last zlib result, or our own verdict on the framing.
  int z_err;
  // Set once the inner input stream has nothing more to give.
  int z_eof;
  // The zlib stream has been initialised and must be ended.
  unsigned char inuse;
  // Input: a header was read. Output: the header was written.
  unsigned char ready;
  Bytef* inbuf;
  Bytef* outbuf;
  // Input that is not gzip data is delivered unchanged.
  int transparent;
  long long headerlen;
  unsigned int crc;
  // total_out when the current member began, to check its stored length.
  uLong memberstart;
  // The first failure found and not yet handed to the stream: an errno
  // value and its fixed text. Restarting keeps it.
  int error;
  const char* errortext;
  // Output: the zlib level asked for; checked when an inner stream is set.
  int level;
  // Output: the threads asked for; 1 packs on the caller's thread.
  unsigned threads;
  // Output on several threads: the packer of the current member.
  QXParallelDeflate* parallel;
};

namespace {

// Compressed data move in chunks of this size: read from the inner stream,
// written to it, and unpacked per step.
const unsigned int kChunk = 16384;
// More packing threads than this are not started.
const unsigned kMaxThreads = 64;
const int kEnd = -1;

const int kMagic1 = 0x1F;
const int kMagic2 = 0x8B;
const int kHeadCrc = 0x02;
const int kExtraField = 0x04;
const int kOrigName = 0x08;
const int kComment = 0x10;
const int kReserved = 0xE0;

// What is wrong with damaged input, as error() and errortext() give it.
const char* const kTruncated = "unexpected end of file";
const char* const kCrcError = "invalid compressed data--crc error";
const char* const kLengthError = "invalid compressed data--length error";
const char* const kFormatError = "invalid compressed data--format violated";

// Records a failure on the record unless one is waiting already.
void Fail(gz_stream* s, int code, const char* text) {
  if (s->error == 0) {
    s->error = code;
    s->errortext = text;
  }
}

// The input is damaged in the way text says.
void Damage(gz_stream* s, const char* text) { Fail(s, EBADMSG, text); }

// The errno value for a zlib result that is not about the data.
int SystemErrorOf(int zerr) { return zerr == Z_MEM_ERROR ? ENOMEM : EIO; }

// Prints "<what>: <zlib message>", or only what when zlib gave no message.
void Report(const char* what, const char* message) {
  if (message != nullptr) {
    QXWriteDiagnostic(std::string(what) + ": " + message + "\n");
  } else {
    QXWriteDiagnostic(std::string(what) + "\n");
  }
}

gz_stream* NewRecord(Bytef* inbuf, Bytef* outbuf) {
  gz_stream* s = new gz_stream;
  std::memset(&s->stream, 0, sizeof s->stream);
  s->z_err = Z_OK;
  s->z_eof = 0;
  s->inuse = 0;
  s->ready = 0;
  s->inbuf = inbuf;
  s->outbuf = outbuf;
  s->transparent = 0;
  s->headerlen = 0;
  s->crc = static_cast<unsigned int>(crc32(0L, Z_NULL, 0));
  s->memberstart = 0;
  s->error = 0;
  s->errortext = nullptr;
  s->level = Z_DEFAULT_COMPRESSION;
  s->threads = 1;
  s->parallel = nullptr;
  return s;
}

// Back to the start state; the zlib stream must not be in use.
void ResetRecord(gz_stream* s) {
  std::memset(&s->stream, 0, sizeof s->stream);
  s->stream.next_in = s->inbuf;
  s->stream.next_out = s->outbuf;
  s->z_err = Z_OK;
  s->z_eof = 0;
  s->transparent = 0;
  s->headerlen = 0;
  s->crc = static_cast<unsigned int>(crc32(0L, Z_NULL, 0));
  s->memberstart = 0;
}

// Reads the next chunk of compressed input; sets z_eof when none comes.
bool Refill(gz_stream* s, qxistream* inner) {
  unsigned long n = inner != nullptr ? inner->read(s->inbuf, kChunk) : 0;
  if (n == 0) {
    s->z_eof = 1;
    return false;
  }
  s->stream.next_in = s->inbuf;
  s->stream.avail_in = static_cast<uInt>(n);
  return true;
}

int GetByte(gz_stream* s, qxistream* inner) {
  if (s->stream.avail_in == 0) {
    if (s->z_eof || !Refill(s, inner)) {
      return kEnd;
    }
  }
  s->stream.avail_in--;
  return *s->stream.next_in++;
}

void PutBack(gz_stream* s, unsigned int n) {
  s->stream.next_in -= n;
  s->stream.avail_in += n;
}

void SkipBytes(gz_stream* s, qxistream* inner, unsigned long n) {
  while (n > 0) {
    if (s->stream.avail_in == 0 && (s->z_eof || !Refill(s, inner))) {
      return;
    }
    uInt take =
        n < s->stream.avail_in ? static_cast<uInt>(n) : s->stream.avail_in;
    s->stream.next_in += take;
    s->stream.avail_in -= take;
    n -= take;
  }
}

void SkipThroughZero(gz_stream* s, qxistream* inner) {
  int c;
  do {
    c = GetByte(s, inner);
  } while (c != 0 && c != kEnd);
}

void EndDeflate(gz_stream* s, bool report) {
  int err = deflateEnd(&s->stream);
  if (report && err != Z_OK) {
    Report("qxogzstream clear error", s->stream.msg);
  }
  s->inuse = 0;
}

void PutLong(qxostream* inner, unsigned long x) {
  for (int i = 0; i < 4; ++i) {
    char byte = static_cast<char>(x & 0xFF);
    inner->write(&byte, 1);
    x >>= 8;
  }
}

}  // namespace

// ---------------------------------------------------------------------------
// Input

qxigzstream::qxigzstream()
    : qxiwrapperstream(nullptr, false),
      _gz(NewRecord(new Bytef[kChunk], reinterpret_cast<Bytef*>(_buffer))) {}

qxigzstream::qxigzstream(qxistream* inner, bool owned) : qxigzstream() {
  set(inner, owned);
}

qxigzstream::~qxigzstream() {
  EndInflate();
  delete[] _gz->inbuf;
  delete _gz;
  _gz = nullptr;
}

void qxigzstream::EndInflate() {
  if (_gz->inuse) {
    if (inflateEnd(&_gz->stream) != Z_OK) {
      Report("qxigzstream clear error", _gz->stream.msg);
    }
  }
  _gz->inuse = 0;
  _gz->ready = 0;
}

void qxigzstream::_qxclear() {
  Collect();
  EndInflate();
}

void qxigzstream::Collect() {
  if (_stream != nullptr) {
    TakeError(*_stream);
  }
  if (_gz->error != 0) {
    SetError(_gz->error, _gz->errortext);
    _gz->error = 0;
    _gz->errortext = nullptr;
  }
}

bool qxigzstream::_qxset(qxistream*) { return true; }

bool qxigzstream::check_header(gz_stream* s, qxistream* inner) {
  int c = GetByte(s, inner);
  if (c != kMagic1) {
    if (c != kEnd) {
      PutBack(s, 1);
      s->transparent = 1;
    }
    s->z_err = s->stream.avail_in != 0 ? Z_OK : Z_STREAM_END;
    return false;
  }
  // The two magic bytes may straddle two reads: keep the first in front of
  // the new chunk so that both can still be put back.
  if (s->stream.avail_in == 0 && !s->z_eof) {
    s->inbuf[0] = static_cast<Bytef>(kMagic1);
    unsigned long n =
        inner != nullptr ? inner->read(s->inbuf + 1, kChunk - 1) : 0;
    s->stream.next_in = s->inbuf + 1;
    s->stream.avail_in = static_cast<uInt>(n);
    if (n == 0) {
      s->z_eof = 1;
    }
  }
  c = GetByte(s, inner);
  if (c == kEnd) {
    if (s->z_eof) {
      Damage(s, kTruncated);
    }
    PutBack(s, 1);
    s->z_err = s->stream.avail_in != 0 ? Z_OK : Z_STREAM_END;
    return false;
  }
  if (c != kMagic2) {
    PutBack(s, 2);
    s->transparent = 1;
    s->z_err = s->stream.avail_in != 0 ? Z_OK : Z_STREAM_END;
    return false;
  }
  int method = GetByte(s, inner);
  int flags = GetByte(s, inner);
  if (method != Z_DEFLATED || flags == kEnd || (flags & kReserved) != 0) {
    Damage(s, method == kEnd || flags == kEnd ? kTruncated : kFormatError);
    s->z_err = Z_DATA_ERROR;
    return false;
  }
  // Modification time, extra flags and operating system.
  SkipBytes(s, inner, 6);
  if ((flags & kExtraField) != 0) {
    int low = GetByte(s, inner);
    int high = GetByte(s, inner);
    if (low != kEnd && high != kEnd) {
      SkipBytes(s, inner, static_cast<unsigned long>(low | (high << 8)));
    }
  }
  if ((flags & kOrigName) != 0) {
    SkipThroughZero(s, inner);
  }
  if ((flags & kComment) != 0) {
    SkipThroughZero(s, inner);
  }
  // The header CRC is skipped, not checked.
  if ((flags & kHeadCrc) != 0) {
    SkipBytes(s, inner, 2);
  }
  s->z_err = s->z_eof ? Z_DATA_ERROR : Z_OK;
  if (s->z_eof) {
    Damage(s, kTruncated);
  }
  return s->z_err == Z_OK;
}

unsigned long qxigzstream::getLong(gz_stream* s, qxistream* inner) {
  unsigned long x = 0;
  for (int i = 0; i < 4; ++i) {
    int c = GetByte(s, inner);
    if (c == kEnd) {
      Damage(s, kTruncated);
      s->z_err = Z_DATA_ERROR;
      // Beyond 32 bits, so that it never matches a checksum.
      return x | (1UL << 32);
    }
    x |= static_cast<unsigned long>(c) << (8 * i);
  }
  return x;
}

bool qxigzstream::gzi_init(qxistream* inner, gz_stream* s) {
  if (inner == nullptr || (inner->_ptr >= inner->_end && inner->_eof)) {
    return false;
  }
  if (s->inuse) {
    if (inflateEnd(&s->stream) != Z_OK) {
      Report("qxigzstream clear error", s->stream.msg);
    }
  }
  s->inuse = 0;
  s->ready = 0;
  ResetRecord(s);
  unsigned long n = inner->read(s->inbuf, kChunk);
  if (n == 0) {
    return false;
  }
  s->inuse = 1;
  s->ready = 1;
  s->stream.avail_in = static_cast<uInt>(n);
  int err = inflateInit2(&s->stream, -MAX_WBITS);
  if (err != Z_OK) {
    Fail(s, SystemErrorOf(err), nullptr);
    Report("qxigzstream init error", s->stream.msg);
    if (inflateEnd(&s->stream) != Z_OK) {
      Report("qxigzstream clear error", s->stream.msg);
    }
    s->inuse = 0;
    s->ready = 0;
    return false;
  }
  // Deliberate: data that is not gzip leaves the ready flag clear, so the
  // next fill examines the next chunk afresh.
  s->ready = check_header(s, inner) ? 1 : 0;
  return s->ready != 0;
}

bool qxigzstream::gzi_inflate(qxistream* inner, gz_stream* s,
                              long long& avail) {
  avail = 0;
  if (s->z_err == Z_STREAM_END) {
    avail = kChunk;
    return true;
  }
  if (s->z_err == Z_DATA_ERROR || s->z_err == Z_ERRNO) {
    return false;
  }
  if (s->stream.avail_in == 0 && !Refill(s, inner)) {
    if (!s->transparent) {
      // The input ended inside the compressed data of a member.
      Damage(s, kTruncated);
    }
    return false;
  }
  Bytef* start = s->outbuf;
  s->stream.next_out = start;
  s->stream.avail_out = kChunk;
  if (s->transparent) {
    uInt n = s->stream.avail_in < kChunk ? s->stream.avail_in : kChunk;
    std::memcpy(start, s->stream.next_in, n);
    s->stream.next_in += n;
    s->stream.avail_in -= n;
    s->stream.next_out += n;
    s->stream.avail_out -= n;
    s->stream.total_in += n;
    s->stream.total_out += n;
    avail = s->stream.avail_out;
    return true;
  }
  s->z_err = inflate(&s->stream, Z_NO_FLUSH);
  if (s->z_err == Z_OK) {
    s->crc = static_cast<unsigned int>(
        crc32(s->crc, start, static_cast<uInt>(s->stream.next_out - start)));
    avail = s->stream.avail_out;
    return true;
  }
  if (s->z_err == Z_STREAM_END) {
    s->crc = static_cast<unsigned int>(
        crc32(s->crc, start, static_cast<uInt>(s->stream.next_out - start)));
    if (getLong(s, inner) != s->crc) {
      // A stored CRC cut short is counted as the cut, not as a mismatch.
      Damage(s, kCrcError);
      s->z_err = Z_DATA_ERROR;
    } else {
      // Deliberate: a wrong stored length does not stop the stream; it is
      // only recorded for error().
      unsigned long length = getLong(s, inner);
      if (s->z_err != Z_DATA_ERROR &&
          length != ((s->stream.total_out - s->memberstart) & 0xFFFFFFFFUL)) {
        Damage(s, kLengthError);
      }
      check_header(s, inner);
      if (s->z_err == Z_OK) {
        uLong totalIn = s->stream.total_in;
        uLong totalOut = s->stream.total_out;
        inflateReset(&s->stream);
        s->stream.total_in = totalIn;
        s->stream.total_out = totalOut;
        s->crc = static_cast<unsigned int>(crc32(0L, Z_NULL, 0));
        s->memberstart = totalOut;
      }
    }
    avail = s->stream.avail_out;
    return true;
  }
  if (s->z_err == Z_MEM_ERROR) {
    Fail(s, ENOMEM, nullptr);
  } else {
    Damage(s, kFormatError);
  }
  Report("qxigzstream fill error", s->stream.msg);
  return false;
}

bool qxigzstream::_qxfill() {
  if (_stream == nullptr || _gz == nullptr) {
    _eof = true;
    return false;
  }
  if (!_gz->ready) {
    gzi_init(_stream, _gz);
  }
  if (_gz->z_eof) {
    Collect();
    _eof = true;
    return false;
  }
  _offset += static_cast<unsigned long long>(_ptr - _buffer);
  for (;;) {
    long long avail;
    if (!gzi_inflate(_stream, _gz, avail)) {
      Collect();
      _ptr = _end = _begin = _buffer;
      _eof = true;
      return false;
    }
    if (_gz->error != 0) {
      Collect();
    }
    long long produced = kChunk - avail;
    _ptr = _begin = _buffer;
    _end = _buffer + produced;
    _eof = produced == 0;
    if (produced != 0 || _gz->z_eof || _gz->z_err == Z_STREAM_END) {
      return produced != 0;
    }
  }
}

bool qxigzstream::RewindInner() {
  qxistream* inner = _stream;
  unsigned long long span =
      inner->_begin == nullptr
          ? 0
          : static_cast<unsigned long long>(inner->_end - inner->_begin);
  if (inner->_offset == 0 && span > 0) {
    inner->_ptr = inner->_begin;
    return true;
  }
  return inner->_qxseek(0);
}

bool qxigzstream::Forward(unsigned long long target) {
  for (;;) {
    _ptr = _end;
    if (!_qxfill()) {
      return false;
    }
    if (target - _offset < static_cast<unsigned long long>(_end - _buffer)) {
      _ptr = _buffer + (target - _offset);
      _eof = false;
      return true;
    }
  }
}

bool qxigzstream::_qxseek(long long pos) {
  if (_stream == nullptr || _gz == nullptr || pos < 0) {
    return false;
  }
  unsigned long long target = static_cast<unsigned long long>(pos);
  unsigned long long span = static_cast<unsigned long long>(_end - _buffer);
  if (target >= _offset && target - _offset < span) {
    _ptr = _buffer + (target - _offset);
    _eof = false;
    return true;
  }
  if (target < _offset) {
    // Nothing is indexed: going back means unpacking again from the start.
    if (!RewindInner()) {
      return false;
    }
    EndInflate();
    _offset = 0;
    _ptr = _end = _begin = _buffer;
    _eof = false;
  }
  return Forward(target);
}

unsigned long long qxigzstream::_qxsize() {
  if (_stream == nullptr || _gz == nullptr) {
    return 0;
  }
  if (!_gz->ready && !gzi_init(_stream, _gz) && !_gz->transparent) {
    return 0;
  }
  unsigned long long here = tell();
  unsigned long long spanStart = _offset;
  unsigned long long spanLength =
      static_cast<unsigned long long>(_end - _buffer);
  unsigned long long total = spanStart + spanLength;
  bool spanInBlock = true;
  while (!_gz->z_eof) {
    long long avail;
    if (!gzi_inflate(_stream, _gz, avail)) {
      // A step that fails may already have unpacked into the block.
      spanInBlock = false;
      break;
    }
    unsigned long long produced =
        static_cast<unsigned long long>(kChunk - avail);
    if (produced == 0 && _gz->z_err == Z_STREAM_END) {
      break;
    }
    if (produced != 0) {
      spanStart = total;
      spanLength = produced;
      total += produced;
    }
  }
  Collect();
  _size = total;
  _sizeknown = true;
  // The block now holds the last piece unpacked; stay inside it if the old
  // position lies there, else go back the long way.
  if (spanInBlock && here >= spanStart && here - spanStart < spanLength) {
    _offset = spanStart;
    _ptr = _begin = _buffer;
    _end = _buffer + spanLength;
    _ptr = _buffer + (here - spanStart);
    _eof = false;
  } else {
    _offset = total;
    _ptr = _end = _begin = _buffer;
    _qxseek(static_cast<long long>(here));
  }
  return total;
}

// ---------------------------------------------------------------------------
// Output

qxogzstream::qxogzstream()
    : qxowrapperstream(nullptr, false),
      _gz(NewRecord(reinterpret_cast<Bytef*>(_buffer), new Bytef[kChunk])),
      _clearing(false) {}

qxogzstream::qxogzstream(qxostream* inner, bool owned) : qxogzstream() {
  set(inner, owned);
}

qxogzstream::qxogzstream(qxostream* inner, bool owned, int level)
    : qxogzstream() {
  // 0 and zlib's own -1 ask for the default the two-argument form uses.
  _gz->level = level == 0 ? Z_DEFAULT_COMPRESSION : level;
  set(inner, owned);
}

qxogzstream::qxogzstream(qxostream* inner, bool owned, int level,
                         unsigned threads)
    : qxogzstream() {
  _gz->level = level == 0 ? Z_DEFAULT_COMPRESSION : level;
  _gz->threads = threads < 1 ? 1 : threads > kMaxThreads ? kMaxThreads : threads;
  set(inner, owned);
}

qxogzstream::~qxogzstream() {
  _clearing = true;
  try {
    _qxflush();
  } catch (const QXIOError& error) {
    QXWriteDiagnostic(
        std::string("Caught QXIOError during qxogzstream destruction: ") +
        error.what() + "\n");
  } catch (...) {
    std::abort();
  }
  try {
    gzo_clear(_stream, _gz);
  } catch (const QXIOError& error) {
    QXWriteDiagnostic(
        std::string("Caught QXIOError during qxogzstream destruction: ") +
        error.what() + "\n");
  } catch (...) {
    std::abort();
  }
  _clearing = false;
  if (_gz->inuse && _gz->parallel == nullptr) {
    deflateEnd(&_gz->stream);
  }
  delete _gz->parallel;
  delete[] _gz->outbuf;
  delete _gz;
  _gz = nullptr;
}

bool qxogzstream::_qxseek(long long) { return false; }

unsigned long long qxogzstream::_qxsize() { return tell(); }

bool qxogzstream::_qxset(qxostream*) {
  if (_gz->level != Z_DEFAULT_COMPRESSION &&
      (_gz->level < 1 || _gz->level > 9)) {
    SetError(EINVAL);
    // No room, so that the first write already fails.
    _end = _buffer;
    return false;
  }
  // A new inner stream gets a member of its own.
  if (!_gz->inuse) {
    _gz->ready = 0;
  }
  return true;
}

bool qxogzstream::Start() {
  gz_stream* s = _gz;
  ResetRecord(s);
  s->stream.avail_out = kChunk;
  int err = deflateInit2(&s->stream, s->level, Z_DEFLATED, -MAX_WBITS, 8,
                         Z_DEFAULT_STRATEGY);
  if (err != Z_OK) {
    SetError(SystemErrorOf(err));
    Report("qxogzstream init error", s->stream.msg);
    if (s->inuse) {
      EndDeflate(s, true);
    }
    return false;
  }
  // No name, no time stamp, Unix: ten fixed bytes.
  char header[11];
  snprintf(header, sizeof header, "%c%c%c%c%c%c%c%c%c%c", kMagic1, kMagic2,
           Z_DEFLATED, 0, 0, 0, 0, 0, 0, 0x03);
  if (s->stream.avail_out >= 10) {
    std::memcpy(s->stream.next_out, header, 10);
    s->stream.next_out += 10;
    s->stream.avail_out -= 10;
    s->headerlen = 10;
  }
  s->inuse = 1;
  s->ready = 1;
  return true;
}

bool qxogzstream::_qxflush() {
  if (_stream == nullptr) {
    return false;
  }
  // Deliberate: only a full block is packed, except while finishing, so a
  // flush() of a partly filled stream writes nothing.
  if (_ptr != _end && !_clearing) {
    return true;
  }
  gz_stream* s = _gz;
  if (!s->ready && !(s->threads > 1 ? ParallelStart() : Start())) {
    return false;
  }
  if (!s->inuse) {
    // The member is finished; nothing more goes into it.
    _eof = true;
    return false;
  }
  unsigned long fill = static_cast<unsigned long>(_ptr - _buffer);
  _offset += fill;
  if (fill == 0) {
    _eof = true;
    return false;
  }
  if (s->parallel != nullptr) {
    return ParallelPack(fill);
  }
  s->stream.next_in = reinterpret_cast<Bytef*>(_buffer);
  s->stream.avail_in = static_cast<uInt>(fill);
  while (s->stream.avail_in > 0) {
    if (s->stream.avail_out == 0) {
      if (_stream->write(reinterpret_cast<char*>(s->outbuf), kChunk) !=
          kChunk) {
        LostWrite();
        _eof = true;
        _ptr = _end;
        return false;
      }
      s->stream.next_out = s->outbuf;
      s->stream.avail_out = kChunk;
    }
    s->z_err = deflate(&s->stream, Z_NO_FLUSH);
    if (s->z_err != Z_OK) {
      SetError(SystemErrorOf(s->z_err));
      Report("qxogzstream flush error", s->stream.msg);
      break;
    }
  }
  s->crc = static_cast<unsigned int>(crc32(
      s->crc, reinterpret_cast<Bytef*>(_buffer), static_cast<uInt>(fill)));
  _ptr = _buffer;
  // Deliberate: a pass that leaves the output chunk exactly full marks the
  // stream failed, though it succeeded.
  if (s->stream.avail_out == 0) {
    _eof = true;
  }
  return true;
}

bool qxogzstream::ParallelStart() {
  gz_stream* s = _gz;
  // The same ten bytes as on one thread, written at once.
  static const char kHeader[10] = {kMagic1, static_cast<char>(kMagic2),
                                   Z_DEFLATED, 0, 0, 0, 0, 0, 0, 0x03};
  ResetRecord(s);
  s->ready = 1;
  s->headerlen = 10;
  if (_stream->write(kHeader, 10) != 10) {
    // The member is over before it began; inuse stays clear.
    LostWrite();
    s->z_err = Z_ERRNO;
    _eof = true;
    _ptr = _end;
    return false;
  }
  s->parallel = new QXParallelDeflate(s->level, s->threads);
  s->inuse = 1;
  return true;
}

bool qxogzstream::ParallelPack(unsigned long fill) {
  if (!_gz->parallel->Add(_buffer, fill, _stream)) {
    ParallelFailed();
    _eof = true;
    _ptr = _end;
    return false;
  }
  _ptr = _buffer;
  return true;
}

void qxogzstream::ParallelFailed() {
  gz_stream* s = _gz;
  if (s->parallel->failed() == -1) {
    s->z_err = Z_ERRNO;
    LostWrite();
  } else {
    s->z_err = s->parallel->failed();
    SetError(SystemErrorOf(s->z_err));
    Report("qxogzstream flush error", nullptr);
  }
}

void qxogzstream::_qxclear() {
  // Cleared again on the way out should the inner stream throw.
  struct ClearingScope {
    bool& flag;
    explicit ClearingScope(bool& f) : flag(f) { flag = true; }
    ~ClearingScope() { flag = false; }
  } scope(_clearing);
  _qxflush();
  gzo_clear(_stream, _gz);
  if (_gz->z_err == Z_ERRNO) {
    LostWrite();
  }
  if (_gz->error != 0) {
    SetError(_gz->error, _gz->errortext);
    _gz->error = 0;
    _gz->errortext = nullptr;
  }
}

void qxogzstream::LostWrite() {
  if (_stream != nullptr) {
    TakeError(*_stream);
  }
  // An inner stream that keeps no cause still lost the bytes.
  SetError(EIO);
}

void qxogzstream::gzo_clear(qxostream* inner, gz_stream* s) {
  if (!s->inuse) {
    return;
  }
  if (s->parallel != nullptr) {
    bool finished = inner != nullptr && s->z_err == Z_OK &&
                    s->parallel->Finish(inner);
    if (finished) {
      PutLong(inner, s->parallel->crc());
      PutLong(inner, static_cast<unsigned long>(s->parallel->total()));
    } else if (inner != nullptr && s->z_err == Z_OK) {
      int failed = s->parallel->failed();
      if (failed == -1) {
        s->z_err = Z_ERRNO;
      } else {
        Fail(s, SystemErrorOf(failed), nullptr);
      }
    }
    delete s->parallel;
    s->parallel = nullptr;
    s->inuse = 0;
    return;
  }
  if (inner == nullptr) {
    EndDeflate(s, true);
    return;
  }
  s->stream.avail_in = 0;
  bool done = false;
  for (;;) {
    unsigned long len = kChunk - s->stream.avail_out;
    if (len != 0) {
      if (inner->write(reinterpret_cast<char*>(s->outbuf), len) != len) {
        s->z_err = Z_ERRNO;
        EndDeflate(s, false);
        return;
      }
      s->stream.next_out = s->outbuf;
      s->stream.avail_out = kChunk;
    }
    if (done) {
      break;
    }
    s->z_err = deflate(&s->stream, Z_FINISH);
    // No progress with nothing pending is not an error here.
    if (len == 0 && s->z_err == Z_BUF_ERROR) {
      s->z_err = Z_OK;
    }
    done = s->stream.avail_out != 0 || s->z_err == Z_STREAM_END;
    if (s->z_err != Z_OK && s->z_err != Z_STREAM_END) {
      Fail(s, SystemErrorOf(s->z_err), nullptr);
      break;
    }
  }
  PutLong(inner, s->crc);
  PutLong(inner, s->stream.total_in);
  EndDeflate(s, true);
}

}  // namespace QXPlatform
