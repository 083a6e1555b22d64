// Run by run_in_namespace.sh with the setup "plain". Array allocations are
// counted by replacing the global array operators in this program, which the
// library's calls reach as well, to see where the identifier's scratch
// memory comes from.

#include <stdlib.h>

#include <atomic>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include "support/qxtest_system.h"
#include <QXPlatform/QXPlatform.h>

namespace {

std::atomic<bool> counting(false);
std::atomic<long> arrayNews(0);
std::atomic<long> arrayDeletes(0);
std::atomic<void*> lastNew(nullptr);
std::atomic<void*> lastDelete(nullptr);

void* CountedNew(size_t n) {
  void* p = malloc(n != 0 ? n : 1);
  if (p == nullptr) {
    throw std::bad_alloc();
  }
  if (counting.load()) {
    ++arrayNews;
    lastNew.store(p);
  }
  return p;
}

void CountedDelete(void* p) {
  if (p != nullptr && counting.load()) {
    ++arrayDeletes;
    lastDelete.store(p);
  }
  free(p);
}

}  // namespace

void* operator new[](size_t n) { return CountedNew(n); }
void* operator new[](size_t n, const std::nothrow_t&) noexcept {
  try {
    return CountedNew(n);
  } catch (...) {
    return nullptr;
  }
}
void operator delete[](void* p) noexcept { CountedDelete(p); }
void operator delete[](void* p, size_t) noexcept { CountedDelete(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept {
  CountedDelete(p);
}

namespace QXPlatform {
namespace {

class QXHostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string why = testing::NamespaceMismatch("plain");
    if (!why.empty()) {
      GTEST_SKIP() << why;
    }
    _saved = QXGetAllocaThreshold();
    ASSERT_EQ(testing::RunCommand("ip link add en0 type veth peer name en0p && "
                                  "ip link set en0 address 02:11:22:33:44:55"),
              0);
  }
  void TearDown() override {
    QXSetAllocaThreshold(_saved);
    testing::RunCommand("ip link del en0 2>/dev/null");
  }

  // The identifier, with the array allocations made while computing it.
  long CountedIdent() {
    arrayNews = 0;
    arrayDeletes = 0;
    lastNew = nullptr;
    lastDelete = nullptr;
    counting = true;
    long ident = QXGetHostIdent();
    counting = false;
    return ident;
  }

 private:
  unsigned long _saved = 0;
};

TEST_F(QXHostTest, HostIdentThresholdZeroPutsTheScratchBlockOnTheHeap) {
  QXSetAllocaThreshold(0);
  ASSERT_EQ(QXGetAllocaThreshold(), 0u);
  EXPECT_EQ(CountedIdent(), 0x02112233L);
  EXPECT_EQ(arrayNews.load(), 1);
  EXPECT_EQ(arrayDeletes.load(), 1);
  EXPECT_NE(lastNew.load(), nullptr);
  EXPECT_EQ(lastDelete.load(), lastNew.load());
}

TEST_F(QXHostTest, HostIdentThresholdOf4096KeepsASmallListOnTheStack) {
  QXSetAllocaThreshold(4096);
  ASSERT_EQ(QXGetAllocaThreshold(), 4096u);
  EXPECT_EQ(CountedIdent(), 0x02112233L);
  EXPECT_EQ(arrayNews.load(), 0);
  EXPECT_EQ(arrayDeletes.load(), 0);
}

TEST_F(QXHostTest, HostIdentListLargerThanTheThresholdGoesToTheHeap) {
  // 400 more link entries need far more than 4096 bytes of scratch.
  std::string batch;
  for (int i = 0; i < 200; ++i) {
    batch += "link add v" + std::to_string(i) + " type veth peer name w" +
             std::to_string(i) + "\n";
  }
  testing::ScratchDir dir;
  std::string file = dir.File("batch");
  testing::WriteFile(file, batch);
  ASSERT_EQ(testing::RunCommand("ip -batch " + file), 0);
  QXSetAllocaThreshold(4096);
  EXPECT_EQ(CountedIdent(), 0x02112233L);
  EXPECT_EQ(arrayNews.load(), 1);
  EXPECT_EQ(arrayDeletes.load(), 1);
  EXPECT_EQ(lastDelete.load(), lastNew.load());
  std::string removal;
  for (int i = 0; i < 200; ++i) {
    removal += "link del v" + std::to_string(i) + "\n";
  }
  testing::WriteFile(file, removal);
  EXPECT_EQ(testing::RunCommand("ip -batch " + file), 0);
  EXPECT_EQ(CountedIdent(), 0x02112233L);
  EXPECT_EQ(arrayNews.load(), 0);
}

TEST_F(QXHostTest, HostIdentLeavesNothingBehindEitherWay) {
  for (unsigned long threshold : {0UL, 4096UL}) {
    QXSetAllocaThreshold(threshold);
    for (int i = 0; i < 1000; ++i) {
      ASSERT_EQ(CountedIdent(), 0x02112233L);
      ASSERT_EQ(arrayNews.load(), arrayDeletes.load());
    }
  }
}

}  // namespace
}  // namespace QXPlatform
