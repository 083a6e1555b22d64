// Zstandard input from anywhere through QXUncompress, and compression of the
// input through QXCompress. Every input runs on a thread of its own, because
// each thread keeps one decoder whose state deliberately carries from call to
// call; a fresh thread is a fresh decoder, so no input depends on another.
//
// Arbitrary input: the result and the bytes are those of a fresh zstd
// decoder driven the documented way, and they are a prefix of everything the
// data decode to. Round trip, on a second fresh thread: the frame made by
// QXCompress is read back by zstd itself and by QXUncompress (whole, and in
// two calls), the same bytes compress to the same frame again on the same
// thread, and uncompressing appends.

#include <stdint.h>
#include <stdlib.h>

#include <string>
#include <thread>

#include <fuzzer/FuzzedDataProvider.h>
#include <zstd.h>

#include <QXPlatform/streams/qxcompress.h>

namespace {

void Check(bool ok) {
  if (!ok) {
    abort();
  }
}

// A fresh decoder over all of data, called with one output block at a time
// for as long as input is left. undrained receives the bytes; drained the
// same plus whatever the decoder still held at the end. Returns the verdict
// of the documented loop: false on an error or a call that took no input.
bool Reference(const std::string& data, std::string* undrained,
               std::string* drained) {
  undrained->clear();
  drained->clear();
  if (data.empty()) {
    return true;
  }
  ZSTD_DStream* stream = ZSTD_createDStream();
  Check(stream != nullptr);
  ZSTD_initDStream(stream);
  std::string block(ZSTD_DStreamOutSize(), '\0');
  ZSTD_inBuffer in = {data.data(), data.size(), 0};
  bool ok = true;
  while (in.pos < in.size) {
    ZSTD_outBuffer out = {&block[0], block.size(), 0};
    size_t before = in.pos;
    size_t status = ZSTD_decompressStream(stream, &out, &in);
    if (ZSTD_isError(status)) {
      ok = false;
      break;
    }
    undrained->append(block.data(), out.pos);
    if (in.pos == before) {
      ok = false;
      break;
    }
  }
  *drained = *undrained;
  if (ok) {
    for (;;) {
      ZSTD_outBuffer out = {&block[0], block.size(), 0};
      size_t status = ZSTD_decompressStream(stream, &out, &in);
      drained->append(block.data(), out.pos);
      if (ZSTD_isError(status) || out.pos == 0) {
        break;
      }
    }
  }
  ZSTD_freeDStream(stream);
  return ok;
}

void Arbitrary(const std::string& input) {
  std::string undrained;
  std::string drained;
  bool expected = Reference(input, &undrained, &drained);
  std::string got;
  bool ok = QXPlatform::QXUncompress(got, input, "zstd");
  Check(ok == expected);
  Check(got == undrained);
  Check(drained.compare(0, got.size(), got) == 0);

  // Unknown methods clear the output in both directions.
  std::string cleared = "x";
  Check(!QXPlatform::QXUncompress(cleared, input, "zst"));
  Check(cleared.empty());
  cleared = "x";
  Check(!QXPlatform::QXCompress(cleared, input, nullptr));
  Check(cleared.empty());
}

void RoundTrip(const std::string& payload, size_t split) {
  std::string packed;
  Check(QXPlatform::QXCompress(packed, payload, "zstd"));
  // The thread's compression stream starts a new frame by itself.
  std::string again;
  Check(QXPlatform::QXCompress(again, payload, "zstd"));
  Check(again == packed);
  std::string independent(payload.size() + 1, '\0');
  size_t n = ZSTD_decompress(&independent[0], independent.size(),
                             packed.data(), packed.size());
  Check(!ZSTD_isError(n) && n == payload.size());
  independent.resize(n);
  Check(independent == payload);

  std::string back = "kept";
  Check(QXPlatform::QXUncompress(back, packed, "zstd"));
  Check(back == "kept" + payload);
  // The frame in two pieces: the decoder carries the first piece's state
  // into the second call.
  split %= packed.size() + 1;
  std::string pieces;
  Check(QXPlatform::QXUncompress(pieces, packed.data(), split, "zstd"));
  Check(QXPlatform::QXUncompress(pieces, packed.data() + split,
                                 packed.size() - split, "zstd"));
  Check(pieces == payload);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider provider(data, size);
  size_t split = provider.ConsumeIntegral<uint32_t>();
  size_t payloadLength = provider.ConsumeIntegralInRange<size_t>(0, size);
  std::string payload = provider.ConsumeBytesAsString(payloadLength);
  std::string input = provider.ConsumeRemainingBytesAsString();
  std::thread arbitrary(Arbitrary, input);
  arbitrary.join();
  std::thread roundTrip(RoundTrip, payload, split);
  roundTrip.join();
  return 0;
}
