// Text extraction must not depend on how the source cuts its data into spans:
// the same bytes in one span and in spans of fuzzer-chosen lengths (from a
// stream that can seek and from one that cannot, as a pipe) give the same
// tokens, lines, numbers and bytes.

#include <errno.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz_streams.h"
#include <QXPlatform/streams/qxsstream.h>
#include <QXPlatform/streams/qxstream.h>

namespace {

using qxfuzz::ChoppedStream;

using QXPlatform::qxistream;

// Applies one operation and describes its result as text.
std::string Apply(qxistream& in, uint8_t op, uint8_t arg) {
  errno = 0;
  std::string out;
  char buf[300];
  unsigned long max = arg;
  switch (op % 20) {
    case 0: {
      std::string line;
      bool ok = in.getline(line);
      return std::to_string(ok) + line;
    }
    case 1: {
      bool ok = in.getline(buf, max);
      return std::to_string(ok) + (max ? std::string(buf) : std::string());
    }
    case 2: {
      std::string line;
      bool ok = in.getline(line, max);
      return std::to_string(ok) + line;
    }
    case 3: {
      bool ok = in.gettoken(buf, max);
      return std::to_string(ok) + (max ? std::string(buf) : std::string());
    }
    case 4: {
      std::string token;
      bool ok = in.gettoken(token, max);
      return std::to_string(ok) + token;
    }
    case 5:
      return std::to_string(in.skipline());
    case 6: {
      short v;
      in >> v;
      return std::to_string(v);
    }
    case 7: {
      unsigned short v;
      in >> v;
      return std::to_string(v);
    }
    case 8: {
      int v;
      in >> v;
      return std::to_string(v);
    }
    case 9: {
      unsigned int v;
      in >> v;
      return std::to_string(v);
    }
    case 10: {
      long v;
      in >> v;
      return std::to_string(v);
    }
    case 11: {
      unsigned long v;
      in >> v;
      return std::to_string(v);
    }
    case 12: {
      float v;
      in >> v;
      char text[64];
      snprintf(text, sizeof text, "%a", static_cast<double>(v));
      return text;
    }
    case 13: {
      double v;
      in >> v;
      char text[64];
      snprintf(text, sizeof text, "%a", v);
      return text;
    }
    case 14: {
      char c;
      in >> c;
      return std::string(1, c);
    }
    case 15: {
      bool b;
      in >> b;
      return std::to_string(b);
    }
    case 16: {
      unsigned long got = in.read(buf, max);
      return std::string(buf, got);
    }
    case 17:
      return std::to_string(in.skip(static_cast<long long>(arg) - 8));
    case 18: {
      std::string bytes;
      in.read(bytes, max);
      return bytes;
    }
    default: {
      signed char c;
      in >> c;
      return std::to_string(c);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider provider(data, size);
  std::vector<size_t> spans;
  size_t spanCount = provider.ConsumeIntegralInRange<size_t>(1, 8);
  for (size_t i = 0; i < spanCount; ++i) {
    spans.push_back(provider.ConsumeIntegralInRange<size_t>(1, 70));
  }
  std::string ops = provider.ConsumeBytesAsString(
      provider.ConsumeIntegralInRange<size_t>(0, 64));
  std::string text = provider.ConsumeRemainingBytesAsString();

  QXPlatform::qxisstream whole(text.data(), text.size(), false);
  ChoppedStream chopped(text, spans);
  // The same cuts from a stream that cannot go back, as a pipe.
  ChoppedStream flowing(text, spans, false);
  for (size_t i = 0; i < ops.size(); i += 2) {
    uint8_t op = static_cast<uint8_t>(ops[i]);
    uint8_t arg = i + 1 < ops.size() ? static_cast<uint8_t>(ops[i + 1]) : 16;
    std::string a = Apply(whole, op, arg);
    std::string b = Apply(chopped, op, arg);
    std::string c = Apply(flowing, op, arg);
    if (a != b || whole.tell() != chopped.tell() || a != c ||
        whole.tell() != flowing.tell()) {
      abort();
    }
  }
  // Whatever is left reads the same too.
  std::string restWhole;
  std::string restChopped;
  std::string restFlowing;
  whole.read(restWhole);
  chopped.read(restChopped);
  flowing.read(restFlowing);
  if (restWhole != restChopped || restWhole != restFlowing) {
    abort();
  }
  return 0;
}
