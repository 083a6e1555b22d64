#pragma once

// Compression methods of the tool, and the copy loops that stream data
// through the library's gzip and zstd streams with bounded memory.

#include <string>

#include <QXPlatform/QXPlatform.h>

namespace qxtool {

enum class Method { kNone, kGz, kZstd };

// "gz" or "zstd" from a method name given on the command line; kNone for
// anything else.
Method MethodFromText(const std::string& text);
// The method a file name's suffix (".gz", ".zst") names; kNone for others.
Method MethodFromName(const std::string& name);
// "gz" or "zstd".
const char* MethodText(Method method);
// ".gz" or ".zst".
const char* MethodSuffix(Method method);
// The method whose magic bytes start data (n bytes): gzip's, or those of a
// zstd frame or of a skippable frame for zstd; kNone when neither.
Method MethodFromMagic(const char* data, unsigned long n);

// An input stream that delivers a few bytes already read from another
// stream and then the rest of that stream: lets the tool look at the magic
// bytes of a pipe and still hand every byte to a reader.
class PeekedStream : public QXPlatform::qxistream {
 public:
  // Reads up to 4 bytes from inner at once (see head()).
  explicit PeekedStream(QXPlatform::qxistream& inner);
  ~PeekedStream() override;
  // The bytes read ahead and their number (fewer than 4 at a short end).
  const char* head() const { return _head; }
  unsigned long headSize() const { return _headSize; }
  // The bytes read from inner so far, head included.
  unsigned long long consumed() const { return _consumed; }

 protected:
  bool _qxfill() override;

 private:
  QXPlatform::qxistream& _inner;
  char _head[4];
  unsigned long _headSize;
  bool _headPending;
  unsigned long long _consumed;
};

// Why a copy stopped: on which side, and the reason in the words of the
// system or of the stream's errortext().
struct Failure {
  bool onOutput = false;
  std::string reason;
};

// Copies all of in onto out unchanged and flushes out. False with why filled
// in on a read or write failure.
bool CopyStream(QXPlatform::qxistream& in, QXPlatform::qxostream& out,
                Failure* why);
// Packs all of in onto out as one gzip member or one zstd frame; level 0 is
// the method's default. threads above 1 pack on that many threads (gzip in
// blocks, zstd with workers). Flushes out but does not close it. False with
// why filled in on a read or write failure.
bool CompressStream(Method method, int level, QXPlatform::qxistream& in,
                    QXPlatform::qxostream& out, Failure* why,
                    unsigned threads = 1);
// A thread count given on the command line: 1 to 64; 0 for anything else.
unsigned ThreadsFromText(const std::string& text);
// Unpacks all of in onto out. kGz: concatenated members; data that are not
// gzip pass through unchanged. kZstd: concatenated frames; the data must start
// with a frame. Damage is a failure on the input side ("unexpected end of
// file", "invalid compressed data--crc error", ...). When out is null, the
// data are unpacked and checked but go nowhere; *unpacked, when given,
// receives the number of bytes unpacked.
bool UncompressStream(Method method, QXPlatform::qxistream& in,
                      QXPlatform::qxostream* out, Failure* why,
                      unsigned long long* unpacked = nullptr);

}  // namespace qxtool
