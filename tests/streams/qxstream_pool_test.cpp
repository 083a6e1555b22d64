// Runs in a process of its own: it replaces the global allocation functions
// to count heap use, and it relies on the pool being as load time left it.

#include <errno.h>
#include <stdlib.h>

#include <atomic>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_streams.h"
#include <QXPlatform/QXPlatform.h>

namespace {

std::atomic<long> gAllocations(0);
std::atomic<unsigned long> gLastSize(0);
// Set when the watched pointer is freed.
std::atomic<void*> gWatched(nullptr);
std::atomic<bool> gWatchedFreed(false);

void* Allocate(std::size_t size) {
  ++gAllocations;
  gLastSize = size;
  void* p = malloc(size == 0 ? 1 : size);
  if (p == nullptr) {
    throw std::bad_alloc();
  }
  return p;
}

void Free(void* p) {
  if (p != nullptr && p == gWatched.load()) {
    gWatchedFreed = true;
  }
  free(p);
}

}  // namespace

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
void operator delete(void* p) noexcept { Free(p); }
void operator delete[](void* p) noexcept { Free(p); }
void operator delete(void* p, std::size_t) noexcept { Free(p); }
void operator delete[](void* p, std::size_t) noexcept { Free(p); }

namespace QXPlatform {
namespace {

using testing::Fields;

const long kBlock = 32768;

// Heap allocations made while f runs.
template <typename F>
long AllocationsDuring(F f) {
  long before = gAllocations;
  f();
  return gAllocations - before;
}

TEST(QXBoundedCacheTest, GlobalStreamsTookTheTopBlocksInLoadOrder) {
  qxstream::BufferCache& cache = qxstream::GetBufferCache();
  char* in = Fields::buffer(qxin);
  EXPECT_TRUE(cache.Owns(in));
  EXPECT_EQ(Fields::buffer(qxout), in - kBlock);
  EXPECT_EQ(Fields::buffer(qxerr), in - 2 * kBlock);
  EXPECT_EQ(Fields::buffer(qxnul), in - 3 * kBlock);
  // The highest block sits above qxin's and is never lent.
  EXPECT_TRUE(cache.Owns(in + kBlock));
  EXPECT_FALSE(cache.Owns(in + 2 * kBlock));
  EXPECT_TRUE(cache.Owns(in - 30 * kBlock));
  EXPECT_FALSE(cache.Owns(in - 30 * kBlock - 1));
}

TEST(QXBoundedCacheTest, ThirtySecondLiveStreamGetsAHeapBlockThatIsFreed) {
  // Four global streams hold blocks already: 27 more fill the pool.
  ASSERT_EQ(testing::FreePoolBlocks(), 27);
  std::vector<std::unique_ptr<qxisstream>> streams;
  streams.reserve(40);
  char* previous = Fields::buffer(qxnul);
  long allocations = AllocationsDuring([&] {
    for (int i = 0; i < 27; ++i) {
      streams.emplace_back(new qxisstream());
    }
  });
  // Only the stream objects themselves came from the heap.
  EXPECT_EQ(allocations, 27);
  for (const std::unique_ptr<qxisstream>& s : streams) {
    EXPECT_EQ(Fields::buffer(*s), previous - kBlock);
    previous = Fields::buffer(*s);
  }
  EXPECT_EQ(testing::FreePoolBlocks(), 0);
  qxisstream* last = new qxisstream();
  char* heapBlock = Fields::buffer(*last);
  EXPECT_FALSE(qxstream::GetBufferCache().Owns(heapBlock));
  gWatched = heapBlock;
  delete last;
  EXPECT_TRUE(gWatchedFreed.load());
  gWatched = nullptr;
  EXPECT_EQ(testing::FreePoolBlocks(), 0);
  // A pooled block released is the next one handed out.
  char* released = Fields::buffer(*streams[10]);
  streams[10].reset();
  qxosstream next;
  EXPECT_EQ(Fields::buffer(next), released);
}

TEST(QXBoundedCacheTest, StreamsBelowTheLimitAllocateNothing) {
  long allocations = AllocationsDuring([] {
    for (int round = 0; round < 100; ++round) {
      qxistream a;
      qxostream b;
      qxisstream c;
      qxosstream d;
      qxifstream e;
      qxofstream f;
      qxiofstream g;
      qxistdstream h;
      qxostdstream i;
      qxisstream j("shared", 6, false);
      qxifstream k(-1);
      qxofstream l(-1);
    }
  });
  EXPECT_EQ(allocations, 0);
}

TEST(qxisstreamTest, SetWithNoBytesAllocatesNothing) {
  qxisstream in;
  const char* data = "abc";
  long allocations =
      AllocationsDuring([&] { EXPECT_FALSE(in.set(data, 0, true)); });
  EXPECT_EQ(allocations, 0);
  allocations = AllocationsDuring([&] { EXPECT_TRUE(in.set(data, 3, true)); });
  EXPECT_EQ(allocations, 1);
  EXPECT_EQ(gLastSize.load(), 3u);
}

TEST(qxistreamTest, LineScratchStaysOnTheStackBelowTheThreshold) {
  ASSERT_EQ(QXGetAllocaThreshold(), 1024u);
  qxisstream in("short\nshort\nshort\n");
  std::string line;
  line.reserve(64);
  long allocations =
      AllocationsDuring([&] { EXPECT_TRUE(in.getline(line, 1008)); });
  EXPECT_EQ(allocations, 0);
  allocations = AllocationsDuring([&] { EXPECT_TRUE(in.getline(line, 1009)); });
  EXPECT_EQ(allocations, 1);
  EXPECT_EQ(gLastSize.load(), 1025u);
  EXPECT_EQ(line, "short");
}

TEST(qxostreamTest, FormattingAllocatesNothing) {
  qxostream out;
  long allocations = AllocationsDuring([&] {
    for (int i = 0; i < 1000; ++i) {
      out << i << ' ' << 1.5 * i << ' ' << -7L << 3.25f << "text" << true
          << qxendl;
    }
  });
  EXPECT_EQ(allocations, 0);
}

TEST(qxistreamTest, PlainNumbersAreReadWithoutAllocating) {
  errno = 0;
  std::string text;
  for (int i = 0; i < 1000; ++i) {
    text += std::to_string(i) + " " + std::to_string(i) + ".25 ";
  }
  qxisstream in(text);
  long allocations = AllocationsDuring([&] {
    for (int i = 0; i < 1000; ++i) {
      int n = -1;
      double d = -1;
      in >> n >> d;
      EXPECT_EQ(n, i);
      EXPECT_EQ(d, i + 0.25);
    }
  });
  EXPECT_EQ(allocations, 0);
}

}  // namespace
}  // namespace QXPlatform
