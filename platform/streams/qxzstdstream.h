#pragma once

// Zstandard streams: an input stream that unpacks zstd frames read from
// another stream (passing anything else through unchanged), an output stream
// that packs what is written to it into one zstd frame on another stream, and
// the switch that lets the stream manager use them.

#include <memory>

#include "../qxexport.h"
#include "qxstream.h"
#include "qxwrapperstream.h"

namespace QXPlatform {

// The decoding and encoding state of one stream; defined where it is used.
class QXPrivateZstdIStream;
class QXPrivateZstdOStream;

// Reads zstd data from an inner stream and delivers the unpacked bytes.
// Concatenated frames read as one stream; skippable frames are skipped; a
// frame's content checksum is verified when it has one. Input that does not
// start with a frame, and whatever follows a frame without being one, is
// delivered unchanged. Damage ends the stream where it is found, after the
// bytes decoded before it, and is reported by error() as EBADMSG with
// errortext() "unexpected end of file" (the input stops inside a frame or
// inside the four magic bytes), "invalid compressed data--crc error" (the
// content checksum does not match) or "invalid compressed data--format
// violated" (anything else). A frame that needs more than 128 MiB of window
// is refused with ENOMEM. Memory stays bounded: the decoder, its window and
// the block; the inner stream is read one span at a time, so bytes flushed by
// a writer on a pipe are delivered without waiting for more. One thread at a
// time.
class QXPLATFORM_EXPORT qxizstdstream : public qxiwrapperstream {
 public:
  // No inner stream until set() is called.
  qxizstdstream();
  // Reads from inner, deleting it when closed or destroyed if owned is set.
  // The frames start at inner's current position.
  qxizstdstream(qxistream* inner, bool owned);
  qxizstdstream(const qxizstdstream&) = delete;
  qxizstdstream& operator=(const qxizstdstream&) = delete;
  // Frees the decoder; an owned inner stream is deleted too.
  ~qxizstdstream() override;

 protected:
  // Positions in unpacked bytes. Forward seeks unpack up to the target;
  // backward ones move the inner stream back to where the frames start and
  // unpack from there. False when the target is at or past the end of the
  // data, or when the inner stream cannot go back.
  bool _qxseek(long long pos) override;
  // Unpacks everything to count it, then returns to the old position; 0
  // when nothing can be read.
  unsigned long long _qxsize() override;
  // Unpacks up to a block.
  bool _qxfill() override;
  // Forgets the decoding state.
  void _qxclear() override;
  // Notes where the frames start in inner; true.
  bool _qxset(qxistream* inner) override;

 private:
  unsigned long Decode(char* into, unsigned long room);
  bool Restart();
  bool Forward(unsigned long long target);

  std::unique_ptr<QXPrivateZstdIStream> _zstd;
};

// Packs what is written into one zstd frame on an inner stream, with the
// content checksum. Whole blocks are packed as they fill; flush() (and
// qxflush, qxendl) also ends a zstd block, hands everything packed to the
// inner stream and flushes it, so a reader sees every byte written before
// it. close(), clear(), set() with another stream and the destructor finish
// the frame. A failed write on the inner stream is reported by error() with
// that stream's errno (EIO when it has none) and the stream takes no more.
// One thread at a time.
class QXPLATFORM_EXPORT qxozstdstream : public qxowrapperstream {
 public:
  // No inner stream until set() is called; level 3, no worker threads.
  qxozstdstream();
  // Writes to inner, deleting it when closed or destroyed if owned is set.
  // level: zstd's compression level, from its fastest negative levels up to
  // 22; 0 means zstd's default (3). workers: 0 packs on the calling thread,
  // more packs on that many threads of the zstd library while the caller
  // goes on writing. A level out of range or more workers than the library
  // allows is refused: error() is EINVAL and nothing can be written. When the
  // linked zstd library was built without threads, any workers are refused
  // the same way with ENOTSUP and a line on qxerr.
  qxozstdstream(qxostream* inner, bool owned, int level = 3,
                unsigned workers = 0);
  qxozstdstream(const qxozstdstream&) = delete;
  qxozstdstream& operator=(const qxozstdstream&) = delete;
  // Finishes the frame on the inner stream (a QXIOError on the way is
  // reported on qxerr) and frees the encoder.
  ~qxozstdstream() override;

 protected:
  // False: a zstd stream cannot be repositioned.
  bool _qxseek(long long pos) override;
  // The number of bytes written so far, as tell().
  unsigned long long _qxsize() override;
  // Packs the block to make room; the packed bytes reach the inner stream
  // in pieces of about 128 KiB.
  bool _qxflush() override;
  // Packs the block, ends a zstd block, writes everything packed and
  // flushes the inner stream.
  bool _qxsync() override;
  // Packs the rest and writes the frame's epilogue.
  void _qxclear() override;
  // Starts a new frame for inner; false when the level or workers were
  // refused.
  bool _qxset(qxostream* inner) override;

 private:
  bool Pack(int mode);
  void Finish();

  std::unique_ptr<QXPrivateZstdOStream> _zstd;
};

// Lets QXOpenIStream unpack data starting with the zstd magic bytes 0x28 0xB5
// 0x2F 0xFD or with a skippable frame (recognised by content, as gzip is)
// and QXOpenOStream pack names
// ending in ".zst" as zstd (level 3, checksum on). Off by default: then zstd
// data are opened as plain bytes and ".zst" names written plain. Any thread,
// at any time; a stream already open keeps what it was opened as.
QXPLATFORM_EXPORT void QXSetZstdStreams(bool enabled);
// Whether zstd streams are on. Any thread.
QXPLATFORM_EXPORT bool QXGetZstdStreams();

}  // namespace QXPlatform
