#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <jni.h>

#include "support/qxtest_fakevm.h"
#include "support/qxtest_support.h"
#include <QXPlatform/system/qxthread.h>

// The stored Java VM is process-wide, so these tests have their own
// executable. A fake VM (a table of our own functions) counts the attach and
// detach calls that threads make.

namespace QXPlatform {
namespace {

using testing::CaptureFd;
using testing::FakeVm;

enum class AttachMode { kAccept, kRefuse, kNullEnvironment, kWithdrawVm };

struct VmLog {
  std::atomic<AttachMode> mode{AttachMode::kAccept};
  std::atomic<int> attaches{0};
  std::atomic<int> detaches{0};
  std::atomic<bool> attachArgsWereNull{false};
  std::atomic<pthread_t> attachThread{};
  std::atomic<pthread_t> detachThread{};
  // Announces the detach on standard error, for the death test.
  std::atomic<bool> announceDetach{false};
};

VmLog& Log() {
  static VmLog log;
  return log;
}

// Any non-null value will do: the bodies here never use the environment.
JNIEnv* FakeEnvironment() {
  static char storage;
  return reinterpret_cast<JNIEnv*>(&storage);
}

jint JNICALL FakeAttach(JavaVM* /*vm*/, void** penv, void* args) {
  VmLog& log = Log();
  log.attaches.fetch_add(1);
  log.attachArgsWereNull = args == nullptr;
  log.attachThread = pthread_self();
  switch (log.mode.load()) {
    case AttachMode::kAccept:
      *penv = FakeEnvironment();
      return JNI_OK;
    case AttachMode::kRefuse:
      return JNI_ERR;
    case AttachMode::kNullEnvironment:
      *penv = nullptr;
      return JNI_OK;
    case AttachMode::kWithdrawVm:
      // The VM pointer disappears while the thread attaches.
      JNI_OnLoad(nullptr, nullptr);
      *penv = FakeEnvironment();
      return JNI_OK;
  }
  return JNI_ERR;
}

jint JNICALL FakeDetach(JavaVM* /*vm*/) {
  VmLog& log = Log();
  log.detaches.fetch_add(1);
  log.detachThread = pthread_self();
  if (log.announceDetach) {
    const char kText[] = "fake VM: thread detached\n";
    ssize_t written = write(2, kText, sizeof kText - 1);
    (void)written;
  }
  return JNI_OK;
}

FakeVm& FirstVm() {
  static FakeVm fake(&FakeAttach, &FakeDetach);
  return fake;
}

FakeVm& SecondVm() {
  static FakeVm fake(&FakeAttach, &FakeDetach);
  return fake;
}

std::string PointerText(const void* p) {
  std::ostringstream text;
  text << p;
  return text.str();
}

// Stores vm as the process's VM, whatever was stored before, and clears the
// log. The messages of the replacement are checked elsewhere.
void InstallVm(JavaVM* vm, AttachMode mode = AttachMode::kAccept) {
  CaptureFd err(2);
  JNI_OnLoad(nullptr, nullptr);
  if (vm != nullptr) {
    JNI_OnLoad(vm, nullptr);
  }
  err.Finish();
  VmLog& log = Log();
  log.mode = mode;
  log.attaches = 0;
  log.detaches = 0;
  log.attachArgsWereNull = false;
  log.announceDetach = false;
}

// Records what the fake VM had seen when the body ran.
class ProbeThread : public QXThread {
 public:
  void* Run(void* arg) override {
    _self = pthread_self();
    _attachesDuringBody = Log().attaches.load();
    _detachesDuringBody = Log().detaches.load();
    return arg;
  }
  pthread_t _self{};
  int _attachesDuringBody = -1;
  int _detachesDuringBody = -1;
};

// Runs a ProbeThread to the end; false when it could not start.
bool RunProbe(ProbeThread& probe) {
  int tag = 0;
  if (!probe.Start(&tag)) {
    return false;
  }
  return probe.Join() == &tag;
}

TEST(QXThreadTest, FirstLoadStoresTheVmSilently) {
  InstallVm(nullptr);
  CaptureFd err(2);
  jint result = JNI_OnLoad(&FirstVm().vm, nullptr);
  EXPECT_EQ(err.Finish(), "");
  EXPECT_EQ(result, 0x10008);
}

TEST(QXThreadTest, LoadingTheSameVmAgainPrintsNothing) {
  InstallVm(&FirstVm().vm);
  CaptureFd err(2);
  jint first = JNI_OnLoad(&FirstVm().vm, nullptr);
  jint second = JNI_OnLoad(&FirstVm().vm, nullptr);
  EXPECT_EQ(err.Finish(), "");
  EXPECT_EQ(first, 0x10008);
  EXPECT_EQ(second, 0x10008);
}

TEST(QXThreadTest, AnotherVmIsReportedWithBothPointersAndReplacesTheFirst) {
  InstallVm(&FirstVm().vm);
  CaptureFd err(2);
  jint result = JNI_OnLoad(&SecondVm().vm, nullptr);
  EXPECT_EQ(err.Finish(), "JNI_OnLoad called with jvm already set, was: " +
                              PointerText(&FirstVm().vm) +
                              " now: " + PointerText(&SecondVm().vm) + "\n");
  EXPECT_EQ(result, 0x10008);
  // The second VM is the stored one now: loading it again is silent.
  CaptureFd again(2);
  EXPECT_EQ(JNI_OnLoad(&SecondVm().vm, nullptr), 0x10008);
  EXPECT_EQ(again.Finish(), "");
}

TEST(QXThreadTest, NullVmIsReportedAndClearsTheStoredVm) {
  InstallVm(&FirstVm().vm);
  CaptureFd err(2);
  jint result = JNI_OnLoad(nullptr, nullptr);
  EXPECT_EQ(err.Finish(), "JNI_OnLoad called with Null jvm argument, was: " +
                              PointerText(&FirstVm().vm) +
                              " now: " + PointerText(nullptr) + "\n");
  EXPECT_EQ(result, 0x10008);
  // Nothing is stored now: a VM is taken again without a message.
  CaptureFd again(2);
  EXPECT_EQ(JNI_OnLoad(&SecondVm().vm, nullptr), 0x10008);
  EXPECT_EQ(again.Finish(), "");
}

TEST(QXThreadTest, NullVmTwiceReportsTheNullPointerAsTheOldOne) {
  InstallVm(nullptr);
  CaptureFd err(2);
  EXPECT_EQ(JNI_OnLoad(nullptr, nullptr), 0x10008);
  EXPECT_EQ(err.Finish(), "JNI_OnLoad called with Null jvm argument, was: " +
                              PointerText(nullptr) +
                              " now: " + PointerText(nullptr) + "\n");
}

TEST(QXThreadTest, BodyRunsAttachedAndTheThreadDetachesAfterIt) {
  InstallVm(&FirstVm().vm);
  ProbeThread probe;
  ASSERT_TRUE(RunProbe(probe));
  VmLog& log = Log();
  EXPECT_EQ(probe._attachesDuringBody, 1);
  EXPECT_EQ(probe._detachesDuringBody, 0);
  EXPECT_EQ(log.attaches, 1);
  EXPECT_EQ(log.detaches, 1);
  EXPECT_TRUE(log.attachArgsWereNull);
  EXPECT_TRUE(pthread_equal(log.attachThread, probe._self));
  EXPECT_TRUE(pthread_equal(log.detachThread, probe._self));
  EXPECT_FALSE(pthread_equal(probe._self, pthread_self()));
}

TEST(QXThreadTest, WithoutAVmThreadsNeitherAttachNorDetach) {
  InstallVm(nullptr);
  ProbeThread probe;
  ASSERT_TRUE(RunProbe(probe));
  EXPECT_EQ(probe._attachesDuringBody, 0);
  EXPECT_EQ(Log().attaches, 0);
  EXPECT_EQ(Log().detaches, 0);
}

TEST(QXThreadTest, AfterANullLoadThreadsStopAttaching) {
  InstallVm(&FirstVm().vm);
  ProbeThread attached;
  ASSERT_TRUE(RunProbe(attached));
  EXPECT_EQ(Log().attaches, 1);
  CaptureFd err(2);
  JNI_OnLoad(nullptr, nullptr);
  err.Finish();
  ProbeThread detached;
  ASSERT_TRUE(RunProbe(detached));
  EXPECT_EQ(Log().attaches, 1);
  EXPECT_EQ(Log().detaches, 1);
}

TEST(QXThreadTest, RefusedAttachRunsTheBodyWithoutDetach) {
  InstallVm(&FirstVm().vm, AttachMode::kRefuse);
  ProbeThread probe;
  ASSERT_TRUE(RunProbe(probe));
  EXPECT_EQ(probe._attachesDuringBody, 1);
  EXPECT_EQ(Log().detaches, 0);
}

TEST(QXThreadTest, AttachWithoutEnvironmentDoesNotCountAsAttached) {
  InstallVm(&FirstVm().vm, AttachMode::kNullEnvironment);
  ProbeThread probe;
  ASSERT_TRUE(RunProbe(probe));
  EXPECT_EQ(probe._attachesDuringBody, 1);
  EXPECT_EQ(Log().detaches, 0);
}

TEST(QXThreadTest, VmWithdrawnDuringAttachDoesNotCountAsAttached) {
  InstallVm(&FirstVm().vm, AttachMode::kWithdrawVm);
  ProbeThread probe;
  CaptureFd err(2);
  ASSERT_TRUE(RunProbe(probe));
  std::string text = err.Finish();
  EXPECT_EQ(probe._attachesDuringBody, 1);
  EXPECT_EQ(Log().detaches, 0);
  EXPECT_EQ(text, "JNI_OnLoad called with Null jvm argument, was: " +
                      PointerText(&FirstVm().vm) +
                      " now: " + PointerText(nullptr) + "\n");
}

TEST(QXThreadTest, ThreadDetachesBeforeAnExceptionEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  class Thrower : public QXThread {
   public:
    void* Run(void* /*arg*/) override { throw 17; }
  };
  auto run = [] {
    InstallVm(&FirstVm().vm);
    Log().announceDetach = true;
    Thrower thread;
    if (thread.Start(nullptr)) {
      thread.Join();
    }
  };
  EXPECT_DEATH(run(),
               "fake VM: thread detached\nterminate called after throwing");
}

}  // namespace
}  // namespace QXPlatform
