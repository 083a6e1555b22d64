// The two inflate engines in one process on the same input: QXUncompress
// "gz" and qxigzstream (over memory and over an inner stream cut into
// fuzzer-chosen spans) must give the same result, bytes, steps, positions,
// flags, sizes, seek results and qxerr messages whichever engine is in
// effect. Inputs are raw bytes, zlib-made members (damaged, cut short,
// concatenated, followed by more) and raw deflate bodies wrapped in a member
// whose trailer holds the CRC-32 of what ISA-L makes of them: the streams
// where ISA-L and zlib disagree most.

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>
#include <zlib.h>
#if QXPLATFORM_FUZZ_WITH_ISAL
#include <isa-l/igzip_lib.h>
#endif

#include "fuzz_gzip.h"
#include "fuzz_messages.h"
#include "fuzz_streams.h"
#include <QXPlatform/streams/qxcompress.h>
#include <QXPlatform/streams/qxgzstream.h>
#include <QXPlatform/streams/qxinflate_private.h>
#include <QXPlatform/streams/qxsstream.h>

namespace {

using qxfuzz::Check;
using qxfuzz::ChoppedStream;
using qxfuzz::TakeQxerr;
using qxfuzz::ZlibGzip;

using QXPlatform::qxigzstream;
using QXPlatform::QXInflateEngine;
using QXPlatform::qxisstream;
using QXPlatform::qxistream;

// What ISA-L makes of a raw deflate body, as far as it gets (zlib's
// reading when the library is built without ISA-L).
std::string Unpacked(const std::string& body) {
  std::string out(1 << 20, '\0');
#if QXPLATFORM_FUZZ_WITH_ISAL
  std::unique_ptr<inflate_state> s(new inflate_state);
  isal_inflate_init(s.get());
  s->crc_flag = ISAL_DEFLATE;
  s->next_in = reinterpret_cast<uint8_t*>(const_cast<char*>(body.data()));
  s->avail_in = static_cast<uint32_t>(body.size());
  s->next_out = reinterpret_cast<uint8_t*>(&out[0]);
  s->avail_out = static_cast<uint32_t>(out.size());
  isal_inflate(s.get());
  out.resize(s->total_out);
#else
  z_stream z;
  memset(&z, 0, sizeof z);
  Check(inflateInit2(&z, -MAX_WBITS) == Z_OK);
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(body.data()));
  z.avail_in = static_cast<uInt>(body.size());
  z.next_out = reinterpret_cast<Bytef*>(&out[0]);
  z.avail_out = static_cast<uInt>(out.size());
  inflate(&z, Z_FINISH);
  out.resize(z.total_out);
  inflateEnd(&z);
#endif
  return out;
}

std::string LittleEndian32(uint32_t v) {
  std::string out;
  for (int i = 0; i < 4; ++i) {
    out.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
  }
  return out;
}

// Reaches the fill hook, so that every step can be recorded.
class SteppedGzip : public qxigzstream {
 public:
  SteppedGzip(qxistream* inner) : qxigzstream(inner, false) {}
  // Fills until the end; each step as "<produced>@<offset>:<eof>".
  std::string Steps(std::string* bytes) {
    std::string log;
    for (int i = 0; i < 100000; ++i) {
      _ptr = _end;
      bool ok = _qxfill();
      bytes->append(_ptr, static_cast<size_t>(_end - _ptr));
      log += std::to_string(_end - _ptr) + "@" + std::to_string(_offset) + ":" +
             (_eof ? "e" : "-") + (ok ? "+" : "!") + " ";
      if (!ok) {
        break;
      }
    }
    return log;
  }
};

struct Plan {
  std::vector<size_t> spans;
  std::vector<std::pair<size_t, size_t>> seeks;
  size_t sizeAfter;
};

// Everything observable about the input under the engine in effect, as one
// string: any difference between the engines shows as a difference here.
std::string Observe(const std::string& input, const Plan& plan, int fd) {
  std::string seen;
  std::string out = "kept";
  int error = -1;
  bool ok = QXPlatform::QXUncompress(out, input, "gz", &error);
  seen += std::string(ok ? "ok " : "no ") + std::to_string(error) + " " + out +
          "|" + TakeQxerr(fd);
  std::string plain;
  ok = QXPlatform::QXUncompress(plain, input, "gz");
  seen += std::string(ok ? "ok " : "no ") + plain + "|" + TakeQxerr(fd);

  for (int inner = 0; inner < 2; ++inner) {
    qxisstream memory(input.data(), input.size(), false);
    ChoppedStream chopped(input, plan.spans);
    qxistream* source =
        inner == 0 ? static_cast<qxistream*>(&memory) : &chopped;
    {
      SteppedGzip gz(source);
      std::string bytes;
      seen += "|" + gz.Steps(&bytes) + bytes + "|";
      seen += std::to_string(gz.tell()) + " " + (gz.eof() ? "e" : "-");
      seen += " " + std::to_string(gz.error()) + gz.errortext();
    }
    seen += "|" + TakeQxerr(fd);
  }

  qxisstream source(input.data(), input.size(), false);
  qxigzstream gz(&source, false);
  std::string head;
  gz.read(head, plan.sizeAfter);
  seen += "|" + head + "|" + std::to_string(gz.size()) + " " +
          std::to_string(gz.tell());
  for (const auto& seek : plan.seeks) {
    bool moved = gz.seek(static_cast<long long>(seek.first));
    std::string got;
    gz.read(got, seek.second);
    seen += std::string("|") + (moved ? "s" : "f") + std::to_string(gz.tell()) +
            (gz.eof() ? "e" : "-") + got;
  }
  seen +=
      "|" + std::to_string(gz.error()) + gz.errortext() + "|" + TakeQxerr(fd);
  return seen;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  int fd = qxfuzz::QxerrFile();
  FuzzedDataProvider provider(data, size);
  int shape = provider.ConsumeIntegralInRange<int>(0, 6);
  size_t where = provider.ConsumeIntegral<uint16_t>();
  uint8_t flip = provider.ConsumeIntegral<uint8_t>();
  int level = provider.ConsumeIntegralInRange<int>(0, 9);
  Plan plan;
  size_t spanCount = provider.ConsumeIntegralInRange<size_t>(1, 4);
  for (size_t i = 0; i < spanCount; ++i) {
    plan.spans.push_back(provider.ConsumeIntegralInRange<size_t>(1, 40000));
  }
  size_t seekCount = provider.ConsumeIntegralInRange<size_t>(0, 4);
  for (size_t i = 0; i < seekCount; ++i) {
    size_t pos = provider.ConsumeIntegralInRange<size_t>(0, 200000);
    size_t n = provider.ConsumeIntegralInRange<size_t>(0, 40000);
    plan.seeks.emplace_back(pos, n);
  }
  plan.sizeAfter = provider.ConsumeIntegralInRange<size_t>(0, 70000);
  std::string payload = provider.ConsumeRemainingBytesAsString();

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
    case 4:
      input = ZlibGzip(payload, level) +
              ZlibGzip(payload.substr(0, where % (payload.size() + 1)), 9) +
              payload.substr(0, flip);
      break;
    default: {
      // A raw deflate body in a member whose CRC matches ISA-L's reading.
      static const char kHeader[10] = {
          0x1F, static_cast<char>(0x8B), 8, 0, 0, 0, 0, 0, 0, 3};
      std::string made = Unpacked(payload);
      input = std::string(kHeader, 10) + payload +
              LittleEndian32(static_cast<uint32_t>(
                  crc32(0, reinterpret_cast<const Bytef*>(made.data()),
                        static_cast<uInt>(made.size())))) +
              LittleEndian32(static_cast<uint32_t>(made.size()));
      if (shape == 6) {
        input += input.substr(0, where % (input.size() + 1));
      }
      break;
    }
  }

  QXPlatform::QXInternalSelectInflateEngine(QXInflateEngine::kZlib);
  std::string zlib = Observe(input, plan, fd);
  QXPlatform::QXInternalSelectInflateEngine(QXInflateEngine::kIsal);
  std::string isal = Observe(input, plan, fd);
  Check(zlib == isal);
  return 0;
}
