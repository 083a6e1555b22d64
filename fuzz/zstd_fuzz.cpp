// Zstandard input from anywhere through QXUncompress, and compression of the
// input through QXCompress. Each thread keeps one decoder whose state
// deliberately carries from call to call, so arbitrary input is decoded on a
// worker thread whose decoder is as good as new: a decoder that finished a
// frame, or that reported an error (the library then starts it afresh),
// keeps its thread for the next input; one left in the middle of a frame
// goes with its thread, and the next input gets a new one. No input depends
// on another, and threads are started only for inputs that end mid-frame.
// Round trips run on the fuzzer's own thread, whose decoder always ends at a
// frame's end, and whose compression stream is made once.
//
// Arbitrary input: the result and the bytes are those of a fresh zstd
// decoder driven the documented way, and they are a prefix of everything the
// data decode to. Round trip, on a second fresh thread: the frame made by
// QXCompress is read back by zstd itself and by QXUncompress (whole, and in
// two calls), the same bytes compress to the same frame again on the same
// thread, and uncompressing appends.

#include <stdint.h>
#include <stdlib.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
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

// Runs jobs, one at a time, on a thread of its own that lives as long as
// the object.
class Worker {
 public:
  Worker() : _pending(false), _stop(false), _thread([this] { Loop(); }) {}
  ~Worker() {
    {
      std::lock_guard<std::mutex> lock(_mutex);
      _stop = true;
    }
    _wake.notify_all();
    _thread.join();
  }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  // Runs job on the worker's thread and waits until it is done.
  void Run(std::function<void()> job) {
    std::unique_lock<std::mutex> lock(_mutex);
    _job = std::move(job);
    _pending = true;
    _wake.notify_all();
    _wake.wait(lock, [this] { return !_pending; });
  }

 private:
  void Loop() {
    std::unique_lock<std::mutex> lock(_mutex);
    for (;;) {
      _wake.wait(lock, [this] { return _pending || _stop; });
      if (_stop) {
        return;
      }
      lock.unlock();
      _job();
      lock.lock();
      _pending = false;
      _wake.notify_all();
    }
  }

  std::mutex _mutex;
  std::condition_variable _wake;
  std::function<void()> _job;
  bool _pending;
  bool _stop;
  std::thread _thread;
};

// A fresh decoder over all of data, called with one output block at a time
// for as long as input is left. undrained receives the bytes; drained the
// same plus whatever the decoder still held at the end. Returns the verdict
// of the documented loop: false on an error or a call that took no input.
// settled tells whether a decoder driven this way is as good as new
// afterwards: no input, an error (after which the library starts its
// decoder afresh), or a last call that finished a frame and handed out all
// of it.
bool Reference(const std::string& data, std::string* undrained,
               std::string* drained, bool* settled) {
  undrained->clear();
  drained->clear();
  *settled = true;
  if (data.empty()) {
    return true;
  }
  ZSTD_DStream* stream = ZSTD_createDStream();
  Check(stream != nullptr);
  ZSTD_initDStream(stream);
  std::string block(ZSTD_DStreamOutSize(), '\0');
  ZSTD_inBuffer in = {data.data(), data.size(), 0};
  bool ok = true;
  size_t last = 1;
  while (in.pos < in.size) {
    ZSTD_outBuffer out = {&block[0], block.size(), 0};
    size_t before = in.pos;
    size_t status = ZSTD_decompressStream(stream, &out, &in);
    if (ZSTD_isError(status)) {
      ok = false;
      last = 0;
      break;
    }
    last = status;
    undrained->append(block.data(), out.pos);
    if (in.pos == before) {
      ok = false;
      break;
    }
  }
  *settled = last == 0;
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

// Returns whether the thread's decoder is as good as new afterwards.
bool Arbitrary(const std::string& input) {
  std::string undrained;
  std::string drained;
  bool settled = true;
  bool expected = Reference(input, &undrained, &drained, &settled);
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
  return settled;
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
  static std::unique_ptr<Worker> worker;
  if (!worker) {
    worker.reset(new Worker);
  }
  bool settled = true;
  worker->Run([&] { settled = Arbitrary(input); });
  if (!settled) {
    // Its decoder is in the middle of a frame: the thread goes with it.
    worker.reset();
  }
  RoundTrip(payload, split);
  return 0;
}
