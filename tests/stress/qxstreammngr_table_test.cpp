// The manager's record of which handler made which stream holds only the
// streams that are open: a million handler streams, each at an address never
// used before, opened and closed one after another leave no trace in the
// heap.

#include <malloc.h>
#include <sys/mman.h>

#include <new>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxstreammngr.h>

namespace QXPlatform {
namespace {

const long kOpens = 1000000;

// Handler streams are built in place, one slot after another, in memory the
// test maps itself, so no address repeats and the heap sees none of them.
struct FreshSlots {
  unsigned char* base = nullptr;
  long next = 0;
};

FreshSlots& Slots() {
  static FreshSlots slots;
  return slots;
}

const size_t kSlot = (sizeof(qxistream) + 63) / 64 * 64;

qxistream* OpenFresh(const char*) {
  FreshSlots& slots = Slots();
  if (slots.next >= kOpens) {
    return nullptr;
  }
  void* at = slots.base + kSlot * static_cast<size_t>(slots.next++);
  qxistream* s = new (at) qxistream();
  // Something to read, so that the manager hands the stream out.
  static unsigned char byte[1] = {'x'};
  s->open(byte, 1);
  return s;
}

// Ends the stream's life but keeps its memory, so the address stays unused.
void CloseFresh(qxistream* s) { s->~qxistream(); }

size_t HeapInUse() {
  struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

TEST(QXStreamManagerTableStressTest,
     AMillionFreshHandlerStreamsLeaveNoEntries) {
  if (testing::UnderAllocatingSanitizer()) {
    GTEST_SKIP() << "a sanitizer's allocator does not report through mallinfo2";
  }
  size_t bytes = kSlot * static_cast<size_t>(kOpens);
  void* map = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(map, MAP_FAILED);
  Slots().base = static_cast<unsigned char*>(map);
  ASSERT_TRUE(QXRegisterIStream("fresh", OpenFresh, CloseFresh));
  // One round first, so that the manager and the pool exist before the
  // heap is measured.
  QXCloseIStream(QXOpenIStream("fresh:"));
  size_t before = HeapInUse();
  for (long i = 1; i < kOpens; ++i) {
    qxistream* s = QXOpenIStream("fresh:");
    ASSERT_NE(s, nullptr);
    QXCloseIStream(s);
  }
  size_t after = HeapInUse();
  EXPECT_EQ(Slots().next, kOpens);
  // An entry left per stream would be tens of bytes each: tens of megabytes.
  EXPECT_LT(after, before + 1024 * 1024)
      << "the heap grew by " << (after - before) << " bytes";
  munmap(map, bytes);
}

}  // namespace
}  // namespace QXPlatform
