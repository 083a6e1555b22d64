// Zstandard input from anywhere through qxizstdstream: reading to the end,
// an inner stream cut into fuzzer-chosen spans, seeks forward and back and
// size() all agree on the same bytes and the same failure; the failure is
// one of the documented ones; where libzstd accepts the whole input the
// result is exactly libzstd's. What qxozstdstream writes, however the writes
// are cut and flushed, decodes with libzstd and with the reader.

#include <errno.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>
#include <zstd.h>

#include "fuzz_streams.h"
#include <QXPlatform/streams/qxsstream.h>
#include <QXPlatform/streams/qxzstdstream.h>

namespace {

using qxfuzz::Check;
using qxfuzz::ChoppedStream;

using QXPlatform::qxisstream;
using QXPlatform::qxistream;
using QXPlatform::qxizstdstream;
using QXPlatform::qxosstream;
using QXPlatform::qxozstdstream;

// A frame of payload made by libzstd.
std::string Frame(const std::string& payload, int level, bool checksum) {
  ZSTD_CCtx* c = ZSTD_createCCtx();
  Check(c != nullptr);
  ZSTD_CCtx_setParameter(c, ZSTD_c_compressionLevel, level);
  ZSTD_CCtx_setParameter(c, ZSTD_c_checksumFlag, checksum ? 1 : 0);
  std::string out(ZSTD_compressBound(payload.size()), '\0');
  size_t n =
      ZSTD_compress2(c, &out[0], out.size(), payload.data(), payload.size());
  ZSTD_freeCCtx(c);
  Check(!ZSTD_isError(n));
  out.resize(n);
  return out;
}

// Every frame of data decoded by libzstd with the reader's window limit;
// false unless all of it is whole, valid frames.
bool LibzstdDecode(const std::string& data, std::string* out) {
  out->clear();
  if (data.size() < 4) {
    return false;
  }
  ZSTD_DStream* d = ZSTD_createDStream();
  ZSTD_DCtx_setParameter(d, ZSTD_d_windowLogMax, 27);
  ZSTD_inBuffer in = {data.data(), data.size(), 0};
  std::vector<char> piece(ZSTD_DStreamOutSize());
  size_t status = 0;
  bool ok = true;
  for (;;) {
    ZSTD_outBuffer o = {piece.data(), piece.size(), 0};
    size_t before = in.pos;
    status = ZSTD_decompressStream(d, &o, &in);
    if (ZSTD_isError(status)) {
      ok = false;
      break;
    }
    out->append(piece.data(), o.pos);
    if (in.pos == in.size && o.pos < o.size) {
      ok = status == 0;
      break;
    }
    if (in.pos == before && o.pos == 0) {
      ok = false;
      break;
    }
  }
  ZSTD_freeDStream(d);
  return ok;
}

struct Result {
  std::string bytes;
  int error;
  std::string text;
};

Result ReadAll(qxizstdstream& in) {
  Result r;
  in.read(r.bytes);
  r.error = in.error();
  r.text = in.errortext();
  return r;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider provider(data, size);
  int shape = provider.ConsumeIntegralInRange<int>(0, 4);
  size_t where = provider.ConsumeIntegral<uint16_t>();
  uint8_t flip = provider.ConsumeIntegral<uint8_t>();
  int level = provider.ConsumeIntegralInRange<int>(-5, 9);
  bool checksum = provider.ConsumeBool();
  std::vector<size_t> spans;
  size_t spanCount = provider.ConsumeIntegralInRange<size_t>(1, 4);
  for (size_t i = 0; i < spanCount; ++i) {
    spans.push_back(provider.ConsumeIntegralInRange<size_t>(1, 40000));
  }
  std::vector<size_t> cuts;
  size_t cutCount = provider.ConsumeIntegralInRange<size_t>(1, 6);
  for (size_t i = 0; i < cutCount; ++i) {
    cuts.push_back(provider.ConsumeIntegralInRange<size_t>(0, 70000));
  }
  std::vector<std::pair<size_t, size_t>> seeks;
  size_t seekCount = provider.ConsumeIntegralInRange<size_t>(0, 6);
  for (size_t i = 0; i < seekCount; ++i) {
    size_t pos = provider.ConsumeIntegral<uint32_t>();
    size_t n = provider.ConsumeIntegralInRange<size_t>(0, 40000);
    seeks.emplace_back(pos, n);
  }
  std::string payload = provider.ConsumeRemainingBytesAsString();

  // The input: the bytes themselves (arbitrary frames), or a libzstd frame of
  // them, damaged, cut short, or followed by a skippable frame, another
  // frame and plain bytes.
  std::string input;
  switch (shape) {
    case 0:
      input = payload;
      break;
    case 1:
      input = Frame(payload, level, checksum);
      break;
    case 2:
      input = Frame(payload, level, checksum);
      input[where % input.size()] ^= static_cast<char>(flip | 1);
      break;
    case 3:
      input = Frame(payload, level, checksum);
      input.resize(where % input.size());
      break;
    default: {
      std::string skippable = "\x5A\x2A\x4D\x18";
      size_t n = flip;
      for (int i = 0; i < 4; ++i) {
        skippable.push_back(static_cast<char>((n >> (8 * i)) & 0xFF));
      }
      skippable += payload.substr(0, n);
      skippable.resize(8 + n, 'k');
      input = Frame(payload, level, checksum) + skippable +
              Frame(payload.substr(0, where % (payload.size() + 1)), 1, true) +
              payload.substr(0, flip);
      break;
    }
  }

  qxisstream source(input.data(), input.size(), false);
  qxizstdstream z(&source, false);
  Result full = ReadAll(z);
  Check(z.eof());

  // Only the documented failures.
  if (full.error == 0) {
    Check(full.text.empty());
  } else if (full.error == EBADMSG) {
    Check(full.text == "unexpected end of file" ||
          full.text == "invalid compressed data--crc error" ||
          full.text == "invalid compressed data--format violated");
  } else {
    Check(full.error == ENOMEM);
  }

  // libzstd agrees wherever it accepts the whole input.
  std::string reference;
  if (LibzstdDecode(input, &reference)) {
    Check(full.error == 0);
    Check(full.bytes == reference);
  }
  if (shape == 1) {
    Check(full.error == 0 && full.bytes == payload);
  }
  if (shape == 3 && input.size() > 0) {
    Check(full.error == EBADMSG && full.text == "unexpected end of file");
    Check(full.bytes == payload.substr(0, full.bytes.size()));
  }

  // However the inner stream cuts its data, the result is the same.
  ChoppedStream chopped(input, spans);
  qxizstdstream overChopped(&chopped, false);
  Result viaChopped = ReadAll(overChopped);
  // The failure is the same; on damaged input the bytes before it may not
  // be: libzstd hands out a stored block as its bytes arrive but a packed
  // block only once it is whole, so one reading can stop short of the other.
  Check(viaChopped.error == full.error && viaChopped.text == full.text);
  if (full.error == 0) {
    Check(viaChopped.bytes == full.bytes);
  } else {
    const std::string& shorter = viaChopped.bytes.size() < full.bytes.size()
                                     ? viaChopped.bytes
                                     : full.bytes;
    const std::string& longer = viaChopped.bytes.size() < full.bytes.size()
                                    ? full.bytes
                                    : viaChopped.bytes;
    Check(longer.compare(0, shorter.size(), shorter) == 0);
  }

  // The size is the decoded length and leaves the position alone; seeks
  // land on the same bytes, forward and back, over both inners.
  // Over damaged input, only over the memory inner stream (see above).
  qxfuzz::CheckSizeAndSeeks<qxizstdstream>(input, full.bytes, cuts[0], spans,
                                           seeks, full.error == 0);

  // Writing: one frame, whatever the cuts and flushes.
  qxosstream sink;
  {
    qxozstdstream out(&sink, false, level);
    size_t at = 0;
    for (size_t i = 0; at < payload.size(); ++i) {
      size_t n = std::min(cuts[i % cuts.size()] + 1, payload.size() - at);
      Check(out.write(payload.data() + at, n) == n);
      at += n;
      if (i % 3 == 2) {
        Check(out.flush());
      }
    }
    Check(out.close());
    Check(out.error() == 0);
  }
  std::string back;
  Check(LibzstdDecode(sink.str(), &back) && back == payload);
  qxisstream packed(sink.str());
  qxizstdstream reader(&packed, false);
  Result again = ReadAll(reader);
  Check(again.error == 0 && again.bytes == payload);
  return 0;
}
