// Handing the Java VM over with QXSetJavaVM, as a toolkit's own JNI_OnLoad
// does. The stored VM is process-wide, so these tests have their own
// executable. qxthread.h comes before jni.h on purpose: both declare JavaVM,
// and they must agree.

// clang-format off
#include <QXPlatform/system/qxthread.h>
// clang-format on

#include <atomic>
#include <string>

#include <gtest/gtest.h>
#include <jni.h>

#include "support/qxtest_fakevm.h"
#include "support/qxtest_support.h"

namespace QXPlatform {
namespace {

using testing::CaptureFd;
using testing::FakeVm;

std::atomic<int> g_attaches{0};
std::atomic<int> g_detaches{0};

JNIEnv* FakeEnvironment() {
  static char storage;
  return reinterpret_cast<JNIEnv*>(&storage);
}

jint JNICALL FakeAttach(JavaVM* /*vm*/, void** penv, void* /*args*/) {
  ++g_attaches;
  *penv = FakeEnvironment();
  return JNI_OK;
}

jint JNICALL FakeDetach(JavaVM* /*vm*/) {
  ++g_detaches;
  return JNI_OK;
}

FakeVm& TheVm() {
  static FakeVm fake(&FakeAttach, &FakeDetach);
  return fake;
}

class CountingThread : public QXThread {
 public:
  void* Run(void* /*arg*/) override {
    attachesSeen = g_attaches.load();
    return nullptr;
  }
  int attachesSeen = -1;
};

void ResetCounts() {
  g_attaches = 0;
  g_detaches = 0;
}

TEST(QXSetJavaVMTest, NoVmUntilOneIsHandedOver) {
  EXPECT_EQ(QXGetJavaVM(), nullptr);
}

TEST(QXSetJavaVMTest, HandedOverVmIsStoredSilentlyAndThreadsAttach) {
  ResetCounts();
  CaptureFd err(2);
  QXSetJavaVM(&TheVm().vm);
  EXPECT_EQ(err.Finish(), "");
  EXPECT_EQ(QXGetJavaVM(), &TheVm().vm);

  CountingThread thread;
  ASSERT_TRUE(thread.Start(nullptr));
  thread.Join();
  EXPECT_EQ(thread.attachesSeen, 1);
  EXPECT_EQ(g_detaches.load(), 1);

  int attachesInFunction = -1;
  QXRunThread([&] { attachesInFunction = g_attaches.load(); }).Join();
  EXPECT_EQ(attachesInFunction, 2);
  EXPECT_EQ(g_detaches.load(), 2);
}

TEST(QXSetJavaVMTest, NullForgetsTheVmSilently) {
  QXSetJavaVM(&TheVm().vm);
  ResetCounts();
  CaptureFd err(2);
  QXSetJavaVM(nullptr);
  EXPECT_EQ(err.Finish(), "");
  EXPECT_EQ(QXGetJavaVM(), nullptr);
  QXRunThread([] {}).Join();
  CountingThread thread;
  ASSERT_TRUE(thread.Start(nullptr));
  thread.Join();
  EXPECT_EQ(g_attaches.load(), 0);
  EXPECT_EQ(g_detaches.load(), 0);
}

TEST(QXSetJavaVMTest, TheLibrarysOwnLoadSeesTheHandedOverVm) {
  // Loading the library after the toolkit handed the same VM over is the
  // quiet repeat, not a second VM.
  QXSetJavaVM(&TheVm().vm);
  CaptureFd err(2);
  EXPECT_EQ(JNI_OnLoad(&TheVm().vm, nullptr), JNI_VERSION_1_8);
  EXPECT_EQ(err.Finish(), "");
  QXSetJavaVM(nullptr);
  EXPECT_EQ(JNI_OnLoad(&TheVm().vm, nullptr), JNI_VERSION_1_8);
  EXPECT_EQ(QXGetJavaVM(), &TheVm().vm);
  QXSetJavaVM(nullptr);
}

}  // namespace
}  // namespace QXPlatform
