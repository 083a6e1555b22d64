#include "qxdeflate_parallel_private.h"

#include <string.h>
#include <zlib.h>

#include "qxstream.h"

namespace QXPlatform {

struct QXParallelDeflate::Job {
  std::string input;
  std::string dictionary;
  std::string output;
  unsigned long crc = 0;
  unsigned long length = 0;
  bool last = false;
  bool done = false;
  int result = Z_OK;
};

QXParallelDeflate::QXParallelDeflate(int level, unsigned threads)
    : _level(level),
      _threads(threads),
      _stopping(false),
      _crc(crc32(0L, Z_NULL, 0)),
      _total(0),
      _failed(0) {}

QXParallelDeflate::~QXParallelDeflate() {
  {
    std::lock_guard<std::mutex> lock(_lock);
    _stopping = true;
  }
  _wake.notify_all();
  for (std::thread& worker : _workers) {
    worker.join();
  }
}

void QXParallelDeflate::Compress(Job& job, int level) {
  z_stream z;
  memset(&z, 0, sizeof z);
  job.result = deflateInit2(&z, level, Z_DEFLATED, -MAX_WBITS, 8,
                            Z_DEFAULT_STRATEGY);
  if (job.result != Z_OK) {
    return;
  }
  if (!job.dictionary.empty()) {
    job.result = deflateSetDictionary(
        &z, reinterpret_cast<const Bytef*>(job.dictionary.data()),
        static_cast<uInt>(job.dictionary.size()));
  }
  // Room for the whole block at once, plus the empty stored block that ends
  // a piece on a byte boundary.
  job.output.resize(deflateBound(&z, job.input.size()) + 16);
  z.next_in = reinterpret_cast<Bytef*>(&job.input[0]);
  z.avail_in = static_cast<uInt>(job.input.size());
  z.next_out = reinterpret_cast<Bytef*>(&job.output[0]);
  z.avail_out = static_cast<uInt>(job.output.size());
  if (job.result == Z_OK) {
    // A full flush would also forget the window, which the next block does
    // not need either; a sync flush keeps the piece slightly smaller.
    int flush = job.last ? Z_FINISH : Z_SYNC_FLUSH;
    job.result = deflate(&z, flush);
    if ((job.last && job.result == Z_STREAM_END) ||
        (!job.last && job.result == Z_OK && z.avail_in == 0 &&
         z.avail_out != 0)) {
      job.result = Z_OK;
    } else if (job.result == Z_OK) {
      // The bound was not enough: cannot happen with deflateBound's room.
      job.result = Z_BUF_ERROR;
    }
  }
  job.output.resize(job.output.size() - z.avail_out);
  deflateEnd(&z);
  job.length = static_cast<unsigned long>(job.input.size());
  job.crc = crc32_z(0L, reinterpret_cast<const Bytef*>(job.input.data()),
                    job.input.size());
  // The input is no longer needed; the memory goes back at once.
  std::string().swap(job.input);
  std::string().swap(job.dictionary);
}

void QXParallelDeflate::Work() {
  for (;;) {
    Job* job;
    {
      std::unique_lock<std::mutex> lock(_lock);
      _wake.wait(lock, [this] { return _stopping || !_queue.empty(); });
      // Stopping drops what is queued: nobody will write it.
      if (_stopping) {
        return;
      }
      job = _queue.front();
      _queue.pop_front();
    }
    Compress(*job, _level);
    {
      std::lock_guard<std::mutex> lock(_lock);
      job->done = true;
    }
    _done.notify_all();
  }
}

void QXParallelDeflate::Submit(bool last) {
  std::unique_ptr<Job> job(new Job);
  job->input.swap(_block);
  job->dictionary = _window;
  job->last = last;
  // The window of the next block: the last 32 KiB of the data so far.
  if (job->input.size() >= kWindow) {
    _window.assign(job->input, job->input.size() - kWindow, kWindow);
  } else {
    _window.append(job->input);
    if (_window.size() > kWindow) {
      _window.erase(0, _window.size() - kWindow);
    }
  }
  _block.clear();
  _block.reserve(kBlock);
  if (_workers.empty()) {
    for (unsigned i = 0; i < _threads; ++i) {
      _workers.emplace_back([this] { Work(); });
    }
  }
  {
    std::lock_guard<std::mutex> lock(_lock);
    _queue.push_back(job.get());
  }
  _pending.push_back(std::move(job));
  _wake.notify_one();
}

bool QXParallelDeflate::WriteOldest(qxostream* out) {
  Job* job = _pending.front().get();
  {
    std::unique_lock<std::mutex> lock(_lock);
    _done.wait(lock, [job] { return job->done; });
  }
  bool written = false;
  if (job->result != Z_OK) {
    _failed = job->result;
  } else {
    unsigned long size = static_cast<unsigned long>(job->output.size());
    if (out->write(job->output.data(), size) != size) {
      _failed = -1;
    } else {
      _crc = crc32_combine(_crc, job->crc, static_cast<z_off_t>(job->length));
      written = true;
    }
  }
  _pending.pop_front();
  return written;
}

bool QXParallelDeflate::Add(const char* data, unsigned long n,
                            qxostream* out) {
  if (_failed != 0) {
    return false;
  }
  _total += n;
  while (n > 0) {
    unsigned long room = kBlock - static_cast<unsigned long>(_block.size());
    unsigned long take = n < room ? n : room;
    _block.append(data, take);
    data += take;
    n -= take;
    if (_block.size() == kBlock) {
      while (_pending.size() >= 2 * static_cast<size_t>(_threads)) {
        if (!WriteOldest(out)) {
          return false;
        }
      }
      Submit(false);
    }
    // Write what is finished without waiting for it.
    while (!_pending.empty()) {
      bool ready;
      {
        std::lock_guard<std::mutex> lock(_lock);
        ready = _pending.front()->done;
      }
      if (!ready) {
        break;
      }
      if (!WriteOldest(out)) {
        return false;
      }
    }
  }
  return true;
}

bool QXParallelDeflate::Finish(qxostream* out) {
  if (_failed != 0) {
    return false;
  }
  while (_pending.size() >= 2 * static_cast<size_t>(_threads)) {
    if (!WriteOldest(out)) {
      return false;
    }
  }
  Submit(true);
  while (!_pending.empty()) {
    if (!WriteOldest(out)) {
      return false;
    }
  }
  return true;
}

}  // namespace QXPlatform
