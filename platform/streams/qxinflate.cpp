#include <stdint.h>
#include <string.h>

#include <atomic>
#include <memory>

#include "qxinflate_private.h"

#if QXPLATFORM_HAVE_ISAL
#include <isa-l/crc.h>
#include <isa-l/igzip_lib.h>
#endif

namespace QXPlatform {
namespace {

#if QXPLATFORM_HAVE_ISAL
const QXInflateEngine kDefaultEngine = QXInflateEngine::kIsal;
#else
const QXInflateEngine kDefaultEngine = QXInflateEngine::kZlib;
#endif

std::atomic<int>& SelectedEngine() {
  static std::atomic<int> engine(static_cast<int>(kDefaultEngine));
  return engine;
}

#if QXPLATFORM_HAVE_ISAL

const unsigned char kMagic1 = 0x1F;
const unsigned char kMagic2 = 0x8B;
const unsigned char kDeflated = 8;
const unsigned char kHeadCrc = 0x02;
const unsigned char kExtraField = 0x04;
const unsigned char kOrigName = 0x08;
const unsigned char kComment = 0x10;
const unsigned char kReserved = 0xE0;
const size_t kTrailer = 8;
// ISA-L counts in 32 bits: input and output are offered in pieces no larger.
const size_t kMaxPiece = size_t{1} << 30;

// The length of the member header at the start of in (n bytes) when the
// gzip input accepts it by the same rules (magic, method 8, no reserved
// flag, optional fields skipped, header CRC not checked) and deflate data
// follows it; 0 otherwise.
size_t HeaderLength(const unsigned char* in, size_t n) {
  if (n < 10 || in[0] != kMagic1 || in[1] != kMagic2 || in[2] != kDeflated ||
      (in[3] & kReserved) != 0) {
    return 0;
  }
  unsigned char flags = in[3];
  size_t at = 10;
  if ((flags & kExtraField) != 0) {
    if (n - at < 2) {
      return 0;
    }
    size_t extra = static_cast<size_t>(in[at]) | (size_t{in[at + 1]} << 8);
    at += 2;
    if (n - at < extra) {
      return 0;
    }
    at += extra;
  }
  for (unsigned char field : {kOrigName, kComment}) {
    if ((flags & field) != 0) {
      while (at < n && in[at] != 0) {
        ++at;
      }
      if (at == n) {
        return 0;
      }
      ++at;
    }
  }
  if ((flags & kHeadCrc) != 0) {
    if (n - at < 2) {
      return 0;
    }
    at += 2;
  }
  return at < n ? at : 0;
}

// Walks a raw deflate stream without producing its output, to decide what
// ISA-L cannot tell: whether zlib accepts the stream whole. ISA-L takes code
// sets that zlib refuses (incomplete literal/length, distance and code
// length codes) and would decode them; zlib ends with an error instead. So
// ISA-L's output is used only for streams this walk accepts. The walk is
// stricter than zlib where that is simpler (a code length code with no
// codes, a literal/length code whose only code is one bit long): such
// streams merely go the zlib way. It also finds where the stream ends, counted
// as zlib counts it, and how many bytes it unpacks to.
class DeflateWalk {
 public:
  // True when zlib would unpack the whole raw deflate stream at in (n bytes)
  // without complaint.
  bool Run(const unsigned char* in, size_t n) {
    _in = in;
    _n = n;
    _pos = 0;
    _bits = 0;
    _count = 0;
    _produced = 0;
    for (;;) {
      if (!Need(3)) {
        return false;
      }
      unsigned last = Take(1);
      unsigned type = Take(2);
      bool ok;
      if (type == 0) {
        ok = Stored();
      } else if (type == 1) {
        ok = Coded(FixedLiterals(), FixedDistances());
      } else if (type == 2) {
        ok = Dynamic();
      } else {
        ok = false;
      }
      if (!ok) {
        return false;
      }
      if (last != 0) {
        return true;
      }
    }
  }

  // Input bytes through the one holding the stream's last bit.
  size_t Used() const { return _pos - _count / 8; }
  uint64_t Produced() const { return _produced; }

 private:
  // A canonical code: a root table indexed by the next kRootBits bits for
  // the short codes (entry: symbol in the low 16 bits, code length above; 0
  // for a longer code or none), and the counts and symbols in code order
  // that decode the long ones bit by bit.
  static const unsigned kRootBits = 10;
  static const size_t kRootSize = size_t{1} << kRootBits;

  struct Table {
    uint32_t root[kRootSize];
    unsigned short count[16];
    unsigned short symbol[320];
  };

  // Refills the bit buffer; false when fewer than n bits remain in all.
  bool Need(unsigned n) {
    if (_count < n) {
      Fill();
    }
    return _count >= n;
  }

  // Tops the bit buffer up to at least 56 bits while the input lasts. Bits
  // above the count may already hold the bytes that follow: they are
  // loaded again at the same place, so or-ing them in changes nothing.
  void Fill() {
    if (_count > 56) {
      return;
    }
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    if (_n - _pos >= 8) {
      // Eight bytes at once; the bytes are in stream order on this host.
      uint64_t word;
      memcpy(&word, _in + _pos, 8);
      _bits |= word << _count;
      _pos += (63 - _count) / 8;
      _count |= 56;
      return;
    }
#endif
    while (_count <= 56 && _pos < _n) {
      _bits |= static_cast<uint64_t>(_in[_pos++]) << _count;
      _count += 8;
    }
  }

  unsigned Take(unsigned n) {
    unsigned v = static_cast<unsigned>(_bits & ((uint64_t{1} << n) - 1));
    _bits >>= n;
    _count -= n;
    return v;
  }

  // Builds the table of the canonical code with the given lengths, by
  // zlib's rules: an over-subscribed set is refused, an incomplete one too
  // unless allowIncomplete and its only code is one bit long, and a set with
  // no codes at all is taken only when allowIncomplete (distances).
  static bool Build(const unsigned char* lens, unsigned n, Table& table,
                    bool allowIncomplete) {
    unsigned short* count = table.count;
    memset(count, 0, sizeof table.count);
    for (unsigned i = 0; i < n; ++i) {
      count[lens[i]]++;
    }
    unsigned max = 15;
    while (max >= 1 && count[max] == 0) {
      --max;
    }
    if (max == 0) {
      // No codes at all: zlib takes such a distance set and fails only when
      // a distance is met, as the empty table here does.
      memset(table.root, 0, sizeof table.root);
      return allowIncomplete;
    }
    int left = 1;
    for (unsigned len = 1; len <= 15; ++len) {
      left <<= 1;
      left -= static_cast<int>(count[len]);
      if (left < 0) {
        return false;
      }
    }
    if (left > 0 && (!allowIncomplete || max != 1)) {
      return false;
    }
    count[0] = 0;
    unsigned offset[16];
    unsigned next[16];
    unsigned code = 0;
    offset[1] = 0;
    for (unsigned len = 1; len <= 15; ++len) {
      code = (code + count[len - 1]) << 1;
      next[len] = code;
      if (len < 15) {
        offset[len + 1] = offset[len] + count[len];
      }
    }
    memset(table.root, 0, sizeof table.root);
    for (unsigned sym = 0; sym < n; ++sym) {
      unsigned len = lens[sym];
      if (len == 0) {
        continue;
      }
      table.symbol[offset[len]++] = static_cast<unsigned short>(sym);
      unsigned c = next[len]++;
      if (len > kRootBits) {
        continue;
      }
      unsigned reversed = 0;
      for (unsigned i = 0; i < len; ++i) {
        reversed = (reversed << 1) | ((c >> i) & 1);
      }
      uint32_t entry = sym | (len << 16);
      for (size_t at = reversed; at < kRootSize; at += size_t{1} << len) {
        table.root[at] = entry;
      }
    }
    return true;
  }

  static const Table& FixedLiterals() {
    static const Table* table = [] {
      static Table made;
      unsigned char lens[288];
      for (unsigned i = 0; i < 288; ++i) {
        lens[i] = i < 144 ? 8 : i < 256 ? 9 : i < 280 ? 7 : 8;
      }
      Build(lens, 288, made, false);
      return &made;
    }();
    return *table;
  }

  static const Table& FixedDistances() {
    static const Table* table = [] {
      static Table made;
      unsigned char lens[32];
      memset(lens, 5, sizeof lens);
      Build(lens, 32, made, false);
      return &made;
    }();
    return *table;
  }

  // The next code by table; false when no code starts there or the input
  // ends inside it.
  bool Decode(const Table& table, unsigned* symbol) {
    // A refill covers several codes: the longest is 15 bits.
    if (_count < 15) {
      Fill();
    }
    uint32_t entry = table.root[static_cast<size_t>(_bits) & (kRootSize - 1)];
    unsigned len = entry >> 16;
    if (len != 0) {
      if (len > _count) {
        return false;
      }
      _bits >>= len;
      _count -= len;
      *symbol = entry & 0xFFFF;
      return true;
    }
    // A code longer than the root, or none: canonical decoding bit by bit.
    int code = 0;
    int first = 0;
    int index = 0;
    for (len = 1; len <= 15 && len <= _count; ++len) {
      code |= static_cast<int>((_bits >> (len - 1)) & 1);
      int count = table.count[len];
      if (code - count < first) {
        *symbol = table.symbol[index + (code - first)];
        _bits >>= len;
        _count -= len;
        return true;
      }
      index += count;
      first += count;
      first <<= 1;
      code <<= 1;
    }
    return false;
  }

  bool Stored() {
    Take(_count % 8);
    if (!Need(32)) {
      return false;
    }
    unsigned len = Take(16);
    unsigned nlen = Take(16);
    if (len != (~nlen & 0xFFFF)) {
      return false;
    }
    _produced += len;
    while (len > 0 && _count >= 8) {
      Take(8);
      --len;
    }
    if (len > 0) {
      if (_n - _pos < len) {
        return false;
      }
      // The buffer is empty; what it held past the count was stored data.
      _pos += len;
      _bits = 0;
    }
    return true;
  }

  bool Dynamic() {
    static const unsigned char kOrder[19] = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                             11, 4,  12, 3, 13, 2, 14, 1, 15};
    if (!Need(14)) {
      return false;
    }
    unsigned nlen = Take(5) + 257;
    unsigned ndist = Take(5) + 1;
    unsigned ncode = Take(4) + 4;
    if (nlen > 286 || ndist > 30) {
      return false;
    }
    unsigned char lens[320] = {0};
    for (unsigned i = 0; i < ncode; ++i) {
      if (!Need(3)) {
        return false;
      }
      lens[kOrder[i]] = static_cast<unsigned char>(Take(3));
    }
    if (!Build(lens, 19, _codes, false)) {
      return false;
    }
    unsigned char lengths[320] = {0};
    unsigned have = 0;
    while (have < nlen + ndist) {
      unsigned symbol;
      if (!Decode(_codes, &symbol)) {
        return false;
      }
      if (symbol < 16) {
        lengths[have++] = static_cast<unsigned char>(symbol);
        continue;
      }
      unsigned char len = 0;
      unsigned copy;
      if (symbol == 16) {
        if (have == 0 || !Need(2)) {
          return false;
        }
        len = lengths[have - 1];
        copy = 3 + Take(2);
      } else if (symbol == 17) {
        if (!Need(3)) {
          return false;
        }
        copy = 3 + Take(3);
      } else {
        if (!Need(7)) {
          return false;
        }
        copy = 11 + Take(7);
      }
      if (have + copy > nlen + ndist) {
        return false;
      }
      while (copy-- > 0) {
        lengths[have++] = len;
      }
    }
    if (lengths[256] == 0) {
      return false;
    }
    if (!Build(lengths, nlen, _literals, false) ||
        !Build(lengths + nlen, ndist, _distances, true)) {
      return false;
    }
    return Coded(_literals, _distances);
  }

  bool Coded(const Table& literals, const Table& distances) {
    static const unsigned short kLengthBase[29] = {
        3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
        31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
    static const unsigned char kLengthExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1,
                                                   1, 1, 2, 2, 2, 2, 3, 3, 3, 3,
                                                   4, 4, 4, 4, 5, 5, 5, 5, 0};
    static const unsigned short kDistanceBase[30] = {
        1,    2,    3,    4,    5,    7,    9,    13,    17,    25,
        33,   49,   65,   97,   129,  193,  257,  385,   513,   769,
        1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
    static const unsigned char kDistanceExtra[30] = {
        0, 0, 0, 0, 1, 1, 2, 2,  3,  3,  4,  4,  5,  5,  6,
        6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};
    for (;;) {
      unsigned symbol;
      if (!Decode(literals, &symbol)) {
        return false;
      }
      if (symbol < 256) {
        _produced++;
        continue;
      }
      if (symbol == 256) {
        return true;
      }
      symbol -= 257;
      if (symbol >= 29 || !Need(kLengthExtra[symbol])) {
        return false;
      }
      unsigned length = kLengthBase[symbol] + Take(kLengthExtra[symbol]);
      if (!Decode(distances, &symbol) || symbol >= 30 ||
          !Need(kDistanceExtra[symbol])) {
        return false;
      }
      unsigned distance = kDistanceBase[symbol] + Take(kDistanceExtra[symbol]);
      if (distance > _produced) {
        return false;
      }
      _produced += length;
    }
  }

  const unsigned char* _in;
  size_t _n;
  size_t _pos;
  uint64_t _bits;
  unsigned _count;
  uint64_t _produced;
  Table _codes;
  Table _literals;
  Table _distances;
};

uint32_t LittleEndian32(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
         (static_cast<uint32_t>(p[2]) << 16) |
         (static_cast<uint32_t>(p[3]) << 24);
}

// One ISA-L state and one walk per thread, reused for every member: about
// 100 KiB that need not be allocated per call.
struct Decoders {
  inflate_state isal;
  DeflateWalk walk;
};

Decoders& ThreadDecoders() {
  thread_local std::unique_ptr<Decoders> decoders(new Decoders);
  return *decoders;
}

// Unpacks the raw deflate stream at in (n bytes) with ISA-L onto the end of
// out; produced is the length the walk found. False when ISA-L disagrees.
bool InflateMember(inflate_state& state, const unsigned char* in, size_t n,
                   uint64_t produced, std::string& out) {
  isal_inflate_init(&state);
  state.crc_flag = ISAL_DEFLATE;
  size_t start = out.size();
  out.resize(start + produced);
  size_t taken = 0;
  size_t written = 0;
  while (state.block_state != ISAL_BLOCK_FINISH) {
    if (state.avail_in == 0 && taken < n) {
      size_t piece = n - taken < kMaxPiece ? n - taken : kMaxPiece;
      state.next_in = const_cast<unsigned char*>(in + taken);
      state.avail_in = static_cast<uint32_t>(piece);
      taken += piece;
    }
    size_t room =
        produced - written < kMaxPiece ? produced - written : kMaxPiece;
    // One spare byte: a stream that unpacks to more than the walk counted
    // is refused rather than cut.
    char spare;
    state.next_out = room != 0
                         ? reinterpret_cast<uint8_t*>(&out[start + written])
                         : reinterpret_cast<uint8_t*>(&spare);
    state.avail_out = room != 0 ? static_cast<uint32_t>(room) : 1;
    uint32_t inBefore = state.avail_in;
    int status = isal_inflate(&state);
    size_t got = (room != 0 ? room : 1) - state.avail_out;
    if (status < 0 || (room == 0 && got != 0) ||
        (got == 0 && state.avail_in == inBefore &&
         state.block_state != ISAL_BLOCK_FINISH)) {
      return false;
    }
    written += got;
  }
  return written == produced;
}

bool IsalGunzipWholeMembers(const unsigned char* in, size_t n,
                            std::string& out) {
  Decoders& decoders = ThreadDecoders();
  size_t kept = out.size();
  size_t at = 0;
  while (at < n) {
    size_t header = HeaderLength(in + at, n - at);
    bool ok = header != 0;
    if (ok) {
      at += header;
      ok = decoders.walk.Run(in + at, n - at) &&
           n - at - decoders.walk.Used() >= kTrailer;
    }
    size_t start = out.size();
    if (ok) {
      ok = InflateMember(decoders.isal, in + at, decoders.walk.Used(),
                         decoders.walk.Produced(), out);
    }
    if (ok) {
      at += decoders.walk.Used();
      uint32_t crc = crc32_gzip_refl(
          0, reinterpret_cast<const unsigned char*>(out.data()) + start,
          out.size() - start);
      // A wrong stored length only marks the stream's failure status: the
      // zlib path records it.
      ok = crc == LittleEndian32(in + at) &&
           LittleEndian32(in + at + 4) ==
               static_cast<uint32_t>(out.size() - start);
      at += kTrailer;
    }
    if (!ok) {
      out.resize(kept);
      return false;
    }
  }
  return true;
}

#endif

}  // namespace

bool QXInternalIsalBuiltIn() {
  return kDefaultEngine == QXInflateEngine::kIsal;
}

QXInflateEngine QXInternalSelectInflateEngine(QXInflateEngine engine) {
  if (!QXInternalIsalBuiltIn()) {
    engine = QXInflateEngine::kZlib;
  }
  SelectedEngine().store(static_cast<int>(engine));
  return engine;
}

QXInflateEngine QXInternalInflateEngine() {
  return static_cast<QXInflateEngine>(SelectedEngine().load());
}

bool QXInternalGunzipWholeMembers(const char* data, size_t len,
                                  std::string& out) {
#if QXPLATFORM_HAVE_ISAL
  if (data == nullptr || len == 0 ||
      QXInternalInflateEngine() != QXInflateEngine::kIsal) {
    return false;
  }
  return IsalGunzipWholeMembers(reinterpret_cast<const unsigned char*>(data),
                                len, out);
#else
  (void)data;
  (void)len;
  (void)out;
  return false;
#endif
}

}  // namespace QXPlatform
