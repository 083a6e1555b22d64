#pragma once

// Deflate on several threads for the gzip output stream: the uncompressed
// data are cut into blocks at fixed offsets, each block is compressed on a
// worker with the 32 KiB before it as its dictionary and ended on a byte
// boundary, and the pieces are written in order, so that together they form
// one raw deflate stream. Private to the library.

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace QXPlatform {

class qxostream;

class QXParallelDeflate {
 public:
  // Uncompressed bytes per block, and the dictionary each block gets.
  static const unsigned long kBlock = 128 * 1024;
  static const unsigned long kWindow = 32 * 1024;

  // level is zlib's (already checked); threads is at least 2. No thread is
  // started before the first full block.
  QXParallelDeflate(int level, unsigned threads);
  // Stops and joins the workers; unwritten blocks are dropped.
  ~QXParallelDeflate();
  QXParallelDeflate(const QXParallelDeflate&) = delete;
  QXParallelDeflate& operator=(const QXParallelDeflate&) = delete;

  // Takes n bytes; full blocks go to the workers, and finished blocks are
  // written to out in order. At most twice as many blocks as threads are
  // held at any time: a caller that gets ahead waits for the oldest. False
  // when out refused bytes or deflate failed (see failed()).
  bool Add(const char* data, unsigned long n, qxostream* out);
  // Compresses what is left as the final block and writes every block;
  // false as Add. The checksum and the length of all the data taken are then
  // crc() and total().
  bool Finish(qxostream* out);

  unsigned long crc() const { return _crc; }
  unsigned long long total() const { return _total; }
  // 0, or the zlib result of a failed deflate; -1 when out refused bytes.
  int failed() const { return _failed; }

 private:
  struct Job;
  void Submit(bool last);
  bool WriteOldest(qxostream* out);
  void Work();
  static void Compress(Job& job, int level);

  int _level;
  unsigned _threads;
  std::vector<std::thread> _workers;
  std::mutex _lock;
  std::condition_variable _wake;
  std::condition_variable _done;
  bool _stopping;
  // Waiting for a worker, oldest first.
  std::deque<Job*> _queue;
  // Every block not yet written, in order.
  std::deque<std::unique_ptr<Job>> _pending;
  // The block being filled, and the 32 KiB before it.
  std::string _block;
  std::string _window;
  unsigned long _crc;
  unsigned long long _total;
  int _failed;
};

}  // namespace QXPlatform
