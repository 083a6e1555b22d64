// The block pool under many threads: streams created and destroyed in large
// numbers never share a block while both are alive, and the pool is whole
// again afterwards.

#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_streams.h"
#include <QXPlatform/streams/qxsstream.h>
#include <QXPlatform/streams/qxstream.h>

namespace QXPlatform {
namespace {

// Arena blocks currently held by a live stream. A block entered twice was
// handed to two live streams at once.
class BlockRegistry {
 public:
  bool Enter(const char* block) {
    std::lock_guard<std::mutex> lock(_mutex);
    return _blocks.insert(block).second;
  }
  void Leave(const char* block) {
    std::lock_guard<std::mutex> lock(_mutex);
    _blocks.erase(block);
  }

 private:
  std::mutex _mutex;
  std::set<const char*> _blocks;
};

// A stream that stamps its own block with a tag at construction and checks
// the stamp before it lets the block go.
class StampedStream : public qxistream {
 public:
  StampedStream(uint64_t tag, BlockRegistry& registry,
                std::atomic<int>& failures)
      : _tag(tag), _registry(registry), _failures(failures) {
    if (qxstream::GetBufferCache().Owns(_buffer) && !_registry.Enter(_buffer)) {
      ++_failures;
    }
    for (unsigned long at : kStampOffsets) {
      std::memcpy(_buffer + at, &_tag, sizeof _tag);
    }
  }
  ~StampedStream() override {
    if (!Intact()) {
      ++_failures;
    }
    if (qxstream::GetBufferCache().Owns(_buffer)) {
      _registry.Leave(_buffer);
    }
  }
  bool Intact() const {
    for (unsigned long at : kStampOffsets) {
      uint64_t seen;
      std::memcpy(&seen, _buffer + at, sizeof seen);
      if (seen != _tag) {
        return false;
      }
    }
    return true;
  }

 private:
  // The first word (the free-list link), both block ends and points in
  // between.
  static constexpr unsigned long kStampOffsets[] = {0,     8,     4096, 8192,
                                                    16384, 24576, 32760};
  uint64_t _tag;
  BlockRegistry& _registry;
  std::atomic<int>& _failures;
};

constexpr unsigned long StampedStream::kStampOffsets[];

TEST(qxstreamStressTest, EightThreadsNeverShareABlockAcrossAMillionStreams) {
  const int kThreads = 8;
  const int kStreamsPerThread = 1000000 / kThreads;
  const int freeBefore = testing::FreePoolBlocks();
  BlockRegistry registry;
  std::atomic<int> failures(0);
  std::atomic<long> created(0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      std::mt19937 random(static_cast<unsigned>(t) * 7919u + 1);
      // Each thread keeps a changing number of streams alive (up to eight),
      // so the eight threads together run past the pool's 31 blocks and mix
      // pooled and heap blocks.
      std::vector<std::unique_ptr<StampedStream>> live;
      uint64_t serial = 0;
      int made = 0;
      while (made < kStreamsPerThread || !live.empty()) {
        bool create = made < kStreamsPerThread &&
                      (live.empty() || (live.size() < 8 && random() % 2 == 0));
        if (create) {
          uint64_t tag = (static_cast<uint64_t>(t + 1) << 48) | ++serial;
          live.emplace_back(new StampedStream(tag, registry, failures));
          ++made;
        } else {
          size_t victim = random() % live.size();
          if (!live[victim]->Intact()) {
            ++failures;
          }
          live[victim] = std::move(live.back());
          live.pop_back();
        }
      }
      created += made;
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(created.load(), 1000000);
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(testing::FreePoolBlocks(), freeBefore);
}

TEST(qxstreamStressTest, MemoryStreamsOnManyThreadsKeepTheirOwnData) {
  const int kThreads = 8;
  const int kRounds = 300;
  std::atomic<int> failures(0);
  const int freeBefore = testing::FreePoolBlocks();
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      std::mt19937 random(static_cast<unsigned>(t) + 100);
      for (int round = 0; round < kRounds; ++round) {
        // Lengths around the block size make the output stream flush.
        size_t length = random() % 70000;
        std::string data(length, '\0');
        unsigned char step = static_cast<unsigned char>(random() | 1);
        for (size_t i = 0; i < length; ++i) {
          data[i] = static_cast<char>(i * step + static_cast<size_t>(t));
        }
        qxosstream out;
        out.write(data.data(), data.size());
        std::string written = out.str();
        qxisstream in(written);
        std::string back;
        in.read(back);
        if (written != data || back != data) {
          ++failures;
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(testing::FreePoolBlocks(), freeBefore);
}

}  // namespace
}  // namespace QXPlatform
