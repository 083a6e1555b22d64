#pragma once

// Gzip streams: an input stream that unpacks gzip data read from another
// stream (passing anything else through unchanged), and an output stream that
// packs what is written to it into one gzip member on another stream.

#include "../qxexport.h"
#include "qxstream.h"
#include "qxwrapperstream.h"

namespace QXPlatform {

// The compression state of one gzip stream; defined where it is used.
struct gz_stream;

// Reads gzip data from an inner stream and delivers the unpacked bytes.
// Concatenated members read as one stream; input that is not gzip is
// delivered unchanged. A damaged or cut member ends the stream where the
// damage is found, and error() tells it from the end of the data: EBADMSG
// with errortext() "unexpected end of file", "invalid compressed data--crc
// error", "invalid compressed data--length error" (recorded only: the
// stream reads on) or "invalid compressed data--format violated"; a failure
// of the inner stream is reported as that failure. One thread at a time.
class QXPLATFORM_EXPORT qxigzstream : public qxiwrapperstream {
 public:
  // No inner stream until set() is called.
  qxigzstream();
  // Reads from inner, deleting it when closed or destroyed if owned is set.
  qxigzstream(qxistream* inner, bool owned);
  qxigzstream(const qxigzstream&) = delete;
  qxigzstream& operator=(const qxigzstream&) = delete;
  // Ends the decompression and frees its state; an owned inner stream is
  // deleted too.
  ~qxigzstream() override;

 protected:
  // Positions in unpacked bytes. Forward seeks unpack up to the target;
  // backward ones rewind the inner stream to 0 and unpack from the start.
  // False when the target is at or past the end of the data.
  bool _qxseek(long long pos) override;
  // Unpacks everything to count it, then returns to the old position; 0
  // when nothing can be read.
  unsigned long long _qxsize() override;
  // Unpacks up to 16384 bytes into the block.
  bool _qxfill() override;
  // Ends the decompression.
  void _qxclear() override;
  // True.
  bool _qxset(qxistream* inner) override;

  // Starts (or restarts) unpacking from the inner stream's current position;
  // true only when a valid gzip header was found.
  static bool gzi_init(qxistream* inner, gz_stream* s);
  // One unpacking step into the block; avail receives what is left of the
  // 16384 bytes offered. False when an error or the end of input stops it.
  static bool gzi_inflate(qxistream* inner, gz_stream* s, long long& avail);
  // Reads a member header; true when one was read whole and is acceptable.
  static bool check_header(gz_stream* s, qxistream* inner);
  // Reads a 32-bit little-endian number (garbage at the end of input).
  static unsigned long getLong(gz_stream* s, qxistream* inner);

  gz_stream* _gz;

 private:
  bool Forward(unsigned long long target);
  bool RewindInner();
  void EndInflate();
  // Hands the inner stream's failure and the damage found so far to
  // error().
  void Collect();
};

// Packs what is written into one gzip member on an inner stream. Data leave
// in whole 32768-byte blocks: flush() of a partly filled block writes
// nothing, and the member is finished (last data and trailer) by close(),
// clear(), set() with another stream or the destructor. error() reports why
// the inner stream refused bytes (data, flush or trailer); the fail flag that
// a pass ending with the output chunk exactly full raises is not a failure.
// One thread at a time.
class QXPLATFORM_EXPORT qxogzstream : public qxowrapperstream {
 public:
  // No inner stream until set() is called.
  qxogzstream();
  // Writes to inner, deleting it when closed or destroyed if owned is set.
  qxogzstream(qxostream* inner, bool owned);
  // The same with zlib's compression level: 1 (fastest) to 9 (smallest); 0
  // or -1 give zlib's default (6), as the form above. Any other level is
  // refused: error() is EINVAL and nothing can be written.
  qxogzstream(qxostream* inner, bool owned, int level);
  // The same, packing on up to threads threads (more than 64 count as 64).
  // 0 and 1 are the form above, byte for byte. With more, the data are cut
  // into blocks of 128 KiB, each packed on a worker thread with the 32 KiB
  // before it as its dictionary and ended on a byte boundary, and the blocks
  // are written in order as one ordinary gzip member: any gzip reader gets
  // the same data back. The packed bytes depend on the data and the level
  // only, not on the thread count or on how the data were written, and are
  // a little larger than on one thread. At most two blocks per thread are
  // held; a writer that gets ahead waits. The workers start with the first
  // full block and end with the member; they touch no stream, so the inner
  // stream is used by the writing thread alone. flush() behaves as on one
  // thread.
  qxogzstream(qxostream* inner, bool owned, int level, unsigned threads);
  qxogzstream(const qxogzstream&) = delete;
  qxogzstream& operator=(const qxogzstream&) = delete;
  // Finishes the member on the inner stream (a QXIOError on the way is
  // reported on qxerr) and frees the compression state.
  ~qxogzstream() override;

 protected:
  // False: a gzip stream cannot be repositioned.
  bool _qxseek(long long pos) override;
  // The number of bytes written so far, as tell().
  unsigned long long _qxsize() override;
  // Packs a full block (or, while finishing, a partial one).
  bool _qxflush() override;
  // Finishes the member: packs the rest and writes the trailer.
  void _qxclear() override;
  // True; a new inner stream gets a new member.
  bool _qxset(qxostream* inner) override;

  // Finishes the member on inner: drains the packer, writes the trailer and
  // ends the compression.
  static void gzo_clear(qxostream* inner, gz_stream* s);

  gz_stream* _gz;
  bool _clearing;

 private:
  bool Start();
  // Records why the inner stream refused compressed bytes.
  void LostWrite();
  // Start and the packing of one block, on several threads.
  bool ParallelStart();
  bool ParallelPack(unsigned long fill);
  // Records why packing on several threads stopped.
  void ParallelFailed();
};

}  // namespace QXPlatform
