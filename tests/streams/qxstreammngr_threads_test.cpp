// The stream manager used from several threads at once while prefixes are
// being registered.

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/qxtest_gzip.h"
#include "support/qxtest_support.h"
#include <QXPlatform/streams/qxsstream.h>
#include <QXPlatform/streams/qxstreammngr.h>

namespace QXPlatform {
namespace {

using testing::MakeMember;
using testing::SampleText;
using testing::ScratchDir;
using testing::WriteFile;

std::atomic<int> gOpened{0};
std::atomic<int> gClosed{0};

qxistream* OpenNumbers(const char* name) {
  ++gOpened;
  return new qxisstream(std::string("handled ") + name);
}

void CloseNumbers(qxistream* s) {
  ++gClosed;
  delete s;
}

qxostream* OpenSink(const char*) { return new qxosstream(); }

void CloseSink(qxostream* s) { delete s; }

TEST(QXStreamMngrThreadsTest, FourThreadsOpenAndCloseWhileAnotherRegisters) {
  ScratchDir dir;
  std::string plain = SampleText(50000, 1);
  std::string packed = SampleText(80000, 2);
  WriteFile(dir.File("plain"), plain);
  WriteFile(dir.File("packed"), MakeMember(packed));
  ASSERT_TRUE(QXRegisterIStream("fixed", OpenNumbers, CloseNumbers));

  std::atomic<bool> stop{false};
  std::atomic<int> mismatches{0};
  std::thread registrar([&] {
    for (int i = 0; i < 2000 && !stop; ++i) {
      std::string prefix = "p" + std::to_string(i);
      QXRegisterIStream(prefix.c_str(), OpenNumbers, CloseNumbers);
      QXRegisterOStream(prefix.c_str(), OpenSink, CloseSink);
    }
  });
  std::vector<std::thread> workers;
  for (int t = 0; t < 4; ++t) {
    workers.emplace_back([&, t] {
      for (int i = 0; i < 150; ++i) {
        std::string all;
        qxistream* in = QXOpenIStream(dir.File("plain").c_str());
        if (in == nullptr) {
          ++mismatches;
          continue;
        }
        in->read(all);
        QXCloseIStream(in);
        mismatches += all != plain;

        in = QXOpenIStream(dir.File("packed").c_str());
        if (in == nullptr) {
          ++mismatches;
          continue;
        }
        in->read(all);
        QXCloseIStream(in);
        mismatches += all != packed;

        in = QXOpenIStream("fixed:x");
        in->read(all);
        QXCloseIStream(in);
        mismatches += all != "handled fixed:x";

        std::string name = dir.File("out" + std::to_string(t) + ".gz");
        qxostream* out = QXOpenOStream(name.c_str());
        if (out == nullptr) {
          ++mismatches;
          continue;
        }
        *out << "thread " << t << " round " << i;
        QXCloseOStream(out);
        in = QXOpenIStream(name.c_str());
        in->read(all);
        QXCloseIStream(in);
        mismatches += all != "thread " + std::to_string(t) + " round " +
                                 std::to_string(i);
      }
    });
  }
  for (auto& w : workers) {
    w.join();
  }
  stop = true;
  registrar.join();
  EXPECT_EQ(mismatches, 0);
  EXPECT_EQ(gOpened, 600);
  // Closer entries stay after closing, so file streams that reuse the
  // address of a handled stream are disposed of by its closer too.
  EXPECT_GE(gClosed, 600);
}

}  // namespace
}  // namespace QXPlatform
