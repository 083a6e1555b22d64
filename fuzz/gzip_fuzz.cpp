// Gzip input from anywhere through qxigzstream and QXUncompress: reading to
// the end, the buffer function, an inner stream cut into fuzzer-chosen spans
// (one that can seek and one that cannot, as a pipe), seeks forward and back
// and size() all agree on the same bytes; where zlib's own decoder accepts the
// whole input the result is exactly zlib's; the only messages are the
// documented ones. Compression of the input round-trips through zlib and the
// library, and the output stream gives the same member however the writes are
// cut.

#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>
#include <zlib.h>

#include "fuzz_gzip.h"
#include "fuzz_messages.h"
#include "fuzz_streams.h"
#include <QXPlatform/streams/qxcompress.h>
#include <QXPlatform/streams/qxgzstream.h>
#include <QXPlatform/streams/qxsstream.h>
#include <QXPlatform/streams/qxstdstream.h>

namespace {

using qxfuzz::Check;
using qxfuzz::ChoppedStream;
using qxfuzz::ZlibGzip;

using QXPlatform::qxigzstream;
using QXPlatform::qxisstream;
using QXPlatform::qxistream;
using QXPlatform::qxogzstream;
using QXPlatform::qxosstream;

// Every member of gz with zlib's own decoder; false unless all members are
// whole and valid and nothing follows the last one.
bool ZlibGunzip(const std::string& gz, std::string* out) {
  out->clear();
  if (gz.empty()) {
    return false;
  }
  z_stream z;
  memset(&z, 0, sizeof z);
  if (inflateInit2(&z, 16 + MAX_WBITS) != Z_OK) {
    return false;
  }
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(gz.data()));
  z.avail_in = static_cast<uInt>(gz.size());
  char piece[16384];
  bool ok = false;
  for (;;) {
    z.next_out = reinterpret_cast<Bytef*>(piece);
    z.avail_out = sizeof piece;
    int status = inflate(&z, Z_NO_FLUSH);
    out->append(piece, sizeof piece - z.avail_out);
    if (status == Z_STREAM_END) {
      if (z.avail_in == 0) {
        ok = true;
        break;
      }
      inflateReset(&z);
    } else if (status != Z_OK) {
      break;
    }
  }
  inflateEnd(&z);
  return ok;
}

// Every line on qxerr must be one of the documented gzip messages.
void CheckMessages(int fd) {
  std::string text = qxfuzz::TakeQxerr(fd);
  static const char* const kAllowed[] = {"qxigzstream fill error",
                                         "qxigzstream init error",
                                         "qxigzstream clear error"};
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    Check(end != std::string::npos);
    std::string line = text.substr(start, end - start);
    bool known = false;
    for (const char* allowed : kAllowed) {
      size_t n = strlen(allowed);
      if (line.compare(0, n, allowed) == 0 &&
          (line.size() == n || line.compare(n, 2, ": ") == 0)) {
        known = true;
      }
    }
    Check(known);
    start = end + 1;
  }
}

std::string ReadAll(qxistream& in) {
  std::string all;
  in.read(all);
  return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  int messages = qxfuzz::QxerrFile();
  FuzzedDataProvider provider(data, size);
  int shape = provider.ConsumeIntegralInRange<int>(0, 4);
  size_t where = provider.ConsumeIntegral<uint16_t>();
  uint8_t flip = provider.ConsumeIntegral<uint8_t>();
  int level = provider.ConsumeIntegralInRange<int>(0, 9);
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

  // The compressed input: the bytes themselves, or a zlib-made member of
  // them, damaged, cut short or followed by more.
  std::string input;
  switch (shape) {
    case 0:
      input = payload;
      break;
    case 1:
      input = ZlibGzip(payload, level);
      break;
    case 2:
      input = ZlibGzip(payload, level);
      input[where % input.size()] ^= static_cast<char>(flip | 1);
      break;
    case 3:
      input = ZlibGzip(payload, level);
      input.resize(where % input.size());
      break;
    default:
      input = ZlibGzip(payload, level) +
              ZlibGzip(payload.substr(0, where % (payload.size() + 1)), 9) +
              payload.substr(0, flip);
      break;
  }

  // Reading to the end.
  qxisstream source(input.data(), input.size(), false);
  qxigzstream gz(&source, false);
  std::string full = ReadAll(gz);
  Check(gz.eof());

  // The buffer function appends the same bytes.
  std::string viaBuffer = "kept";
  Check(QXPlatform::QXUncompress(viaBuffer, input, "gz"));
  Check(viaBuffer == "kept" + full);

  // zlib agrees wherever it accepts the input.
  std::string reference;
  if (ZlibGunzip(input, &reference)) {
    Check(full == reference);
  }

  // However the inner stream cuts its data, the result is the same.
  ChoppedStream chopped(input, spans);
  qxigzstream overChopped(&chopped, false);
  Check(ReadAll(overChopped) == full);
  // And when it cannot go back either, as a pipe.
  ChoppedStream flowing(input, spans, false);
  qxigzstream overFlowing(&flowing, false);
  Check(ReadAll(overFlowing) == full);

  // The size is the decompressed length and leaves the position alone;
  // seeks land on the same bytes, forward and back, over both inners.
  qxfuzz::CheckSizeAndSeeks<qxigzstream>(input, full, cuts[0], spans, seeks);
  CheckMessages(messages);

  // Compression round trips: zlib and the library read the member back, the
  // header is the fixed one, and the output stream writes the same member
  // whatever the cuts and flushes.
  std::string packed;
  Check(QXPlatform::QXCompress(packed, payload, "gz"));
  static const unsigned char kHeader[10] = {0x1F, 0x8B, 8, 0, 0, 0, 0, 0, 0, 3};
  Check(packed.size() >= 18 && memcmp(packed.data(), kHeader, 10) == 0);
  std::string back;
  Check(ZlibGunzip(packed, &back) && back == payload);
  back.clear();
  Check(QXPlatform::QXUncompress(back, packed, "gz") && back == payload);

  qxosstream sink;
  {
    qxogzstream out(&sink, false);
    size_t at = 0;
    for (size_t i = 0; at < payload.size(); ++i) {
      size_t n = std::min(cuts[i % cuts.size()] + 1, payload.size() - at);
      Check(out.write(payload.data() + at, n) == n);
      at += n;
      if (i % 3 == 2) {
        out.flush();
      }
    }
    Check(out.size() == payload.size());
    Check(!out.seek(0));
    out.clear();
  }
  Check(sink.str() == packed);
  CheckMessages(messages);
  return 0;
}
