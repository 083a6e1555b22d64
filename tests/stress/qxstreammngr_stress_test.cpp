// The stream manager under four threads that open and close streams by name
// (files, gzip files, registered prefixes) while prefixes are registered and
// re-registered in between: every stream reads what was put there, every
// handler-made stream is closed by its handler, and nothing is lost.

#include <unistd.h>

#include <atomic>
#include <mutex>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxsstream.h>
#include <QXPlatform/streams/qxstreammngr.h>

namespace QXPlatform {
namespace {

const int kThreads = 4;
const int kRounds = 1500;

std::atomic<long> gOpened(0);
std::atomic<long> gClosed(0);

// Handler streams come from storage of their own, which the library's
// streams never reuse, so the counts below cannot be upset by a file stream
// at a freed handler stream's address, whatever the manager does.
template <typename Base>
class Pooled : public Base {
 public:
  using Base::Base;
  static void* operator new(size_t size) {
    std::lock_guard<std::mutex> lock(Slots().mutex);
    for (Slot& slot : Slots().slots) {
      if (!slot.used && size <= sizeof slot.bytes) {
        slot.used = true;
        return slot.bytes;
      }
    }
    throw std::bad_alloc();
  }
  static void operator delete(void* p) {
    std::lock_guard<std::mutex> lock(Slots().mutex);
    for (Slot& slot : Slots().slots) {
      if (slot.bytes == p) {
        slot.used = false;
      }
    }
  }

 private:
  struct Slot {
    alignas(64) unsigned char bytes[sizeof(Base) + 64];
    bool used = false;
  };
  struct Storage {
    std::mutex mutex;
    Slot slots[64];
  };
  static Storage& Slots() {
    static Storage storage;
    return storage;
  }
};

// What every registered input handler serves, whatever the name.
std::string Served(const char* name) { return std::string("served:") + name; }

qxistream* OpenServed(const char* name) {
  ++gOpened;
  return new Pooled<qxisstream>(Served(name));
}
void CloseServed(qxistream* s) {
  ++gClosed;
  delete s;
}
// A second pair with the same behaviour, so that re-registering a prefix
// swaps functions while other threads use it.
qxistream* OpenServedToo(const char* name) {
  ++gOpened;
  return new Pooled<qxisstream>(Served(name));
}
void CloseServedToo(qxistream* s) {
  ++gClosed;
  delete s;
}

std::atomic<long> gOutOpened(0);
std::atomic<long> gOutClosed(0);
std::atomic<long> gOutWrong(0);

qxostream* OpenSink(const char*) {
  ++gOutOpened;
  return new Pooled<qxosstream>();
}
void CloseSink(qxostream* s) {
  ++gOutClosed;
  if (static_cast<qxosstream*>(s)->str() != "sink text") {
    ++gOutWrong;
  }
  delete s;
}

std::string ReadAll(qxistream* in) {
  std::string all;
  in->read(all);
  return all;
}

TEST(QXStreamManagerStressTest, FourThreadsOpenAndCloseWhilePrefixesChange) {
  testing::ScratchDir dir;
  // Shared files, plain and packed, that every thread reads.
  std::vector<std::string> names;
  std::vector<std::string> contents;
  for (int i = 0; i < 4; ++i) {
    std::string name =
        dir.File("shared" + std::to_string(i) + (i % 2 ? ".gz" : ".txt"));
    std::string content = testing::RandomBytes(1000 + 20000 * i, i);
    qxostream* out = QXOpenOStream(name.c_str());
    ASSERT_NE(out, nullptr);
    out->write(content.data(), content.size());
    QXCloseOStream(out);
    names.push_back(name);
    contents.push_back(content);
  }
  ASSERT_TRUE(QXRegisterIStream("shared", OpenServed, CloseServed));
  ASSERT_TRUE(QXRegisterOStream("sink", OpenSink, CloseSink));

  std::atomic<int> failures(0);
  std::atomic<long> handlerOpens(0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      std::mt19937 random(static_cast<unsigned>(t) + 11);
      for (int round = 0; round < kRounds; ++round) {
        switch (random() % 6) {
          case 0: {
            size_t i = random() % names.size();
            qxistream* in = QXOpenIStream(names[i].c_str());
            if (in == nullptr || ReadAll(in) != contents[i]) {
              ++failures;
            }
            QXCloseIStream(in);
            break;
          }
          case 1: {
            // A file of this thread's own, written and read back by name.
            std::string name = dir.File("t" + std::to_string(t) +
                                        (round % 2 ? ".gz" : ".log"));
            std::string text = "round " + std::to_string(round);
            qxostream* out = QXOpenOStream(name.c_str());
            if (out == nullptr) {
              ++failures;
              break;
            }
            *out << text;
            QXCloseOStream(out);
            qxistream* in = QXOpenIStream(name.c_str());
            if (in == nullptr || ReadAll(in) != text) {
              ++failures;
            }
            QXCloseIStream(in);
            unlink(name.c_str());
            break;
          }
          case 2: {
            std::string name = "shared:" + std::to_string(round);
            qxistream* in = QXOpenIStream(name.c_str());
            ++handlerOpens;
            if (in == nullptr || ReadAll(in) != Served(name.c_str())) {
              ++failures;
            }
            QXCloseIStream(in);
            break;
          }
          case 3: {
            // Swap the shared prefix's functions under the other threads.
            if (random() % 2) {
              QXRegisterIStream("shared", OpenServed, CloseServed);
            } else {
              QXRegisterIStream("shared", OpenServedToo, CloseServedToo);
            }
            break;
          }
          case 4: {
            // A prefix of this thread's own, registered and used at once.
            std::string prefix =
                "p" + std::to_string(t) + "_" + std::to_string(round % 50);
            QXRegisterIStream(prefix.c_str(), OpenServed, CloseServed);
            std::string name = prefix + ":x";
            qxistream* in = QXOpenIStream(name.c_str());
            ++handlerOpens;
            if (in == nullptr || ReadAll(in) != Served(name.c_str())) {
              ++failures;
            }
            QXCloseIStream(in);
            break;
          }
          default: {
            qxostream* out = QXOpenOStream("sink:y");
            if (out == nullptr) {
              ++failures;
              break;
            }
            *out << "sink text";
            QXCloseOStream(out);
            break;
          }
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(failures.load(), 0);
  // Every stream a handler made was closed by a handler.
  EXPECT_EQ(gOpened.load(), handlerOpens.load());
  EXPECT_EQ(gClosed.load(), gOpened.load());
  EXPECT_EQ(gOutClosed.load(), gOutOpened.load());
  EXPECT_GT(gOutOpened.load(), 0);
  EXPECT_EQ(gOutWrong.load(), 0);
}

}  // namespace
}  // namespace QXPlatform
