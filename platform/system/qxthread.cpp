#include "qxthread.h"

#include <errno.h>
#include <stdio.h>

#include <atomic>
#include <functional>
#include <iostream>
#include <memory>
#include <utility>

#include <jni.h>

#include "../qxassert_private.h"

namespace QXPlatform {
namespace {

// The thread functions return their error instead of setting errno; perror
// reports errno, so it is set first.
void ReportThreadError(int error, const char* text) {
  errno = error;
  perror(text);
}

// Attaches the current thread to the stored Java VM for the lifetime of the
// object, so that a body may call back into Java.
class ScopedJavaThreadAttachment {
 public:
  ScopedJavaThreadAttachment() : _vm(nullptr) {
    JavaVM* vm = s_jvm.load(std::memory_order_acquire);
    if (vm == nullptr) {
      return;
    }
    JNIEnv* env = nullptr;
    jint result =
        vm->AttachCurrentThread(reinterpret_cast<void**>(&env), nullptr);
    // A null JNI_OnLoad may have withdrawn the VM while we attached; then
    // the thread runs as if no VM were there.
    if (result == 0 && s_jvm.load(std::memory_order_acquire) != nullptr &&
        env != nullptr) {
      _vm = vm;
    }
  }

  // Runs during unwinding too; an exception from the VM here ends the
  // process.
  ~ScopedJavaThreadAttachment() { Detach(); }

  ScopedJavaThreadAttachment(const ScopedJavaThreadAttachment&) = delete;
  ScopedJavaThreadAttachment& operator=(const ScopedJavaThreadAttachment&) =
      delete;

  void Detach() {
    if (_vm != nullptr) {
      JavaVM* vm = _vm;
      _vm = nullptr;
      vm->DetachCurrentThread();
    }
  }

  // The VM that loaded the library, null until JNI_OnLoad names one. Written
  // only by JNI_OnLoad, read by every new thread; constant-initialised, so it
  // is ready before any code of the library runs.
  static std::atomic<JavaVM*> s_jvm;

 private:
  JavaVM* _vm;
};

std::atomic<JavaVM*> ScopedJavaThreadAttachment::s_jvm{nullptr};

}  // namespace

// A QXThread whose body is a function object.
class QXPrivateThreadHandle : public QXThread {
 public:
  explicit QXPrivateThreadHandle(std::function<void()> body)
      : _body(std::move(body)) {}

  void* Run(void* /*arg*/) override {
    std::function<void()> body = std::move(_body);
    body();
    return nullptr;
  }

 private:
  std::function<void()> _body;
};

void QXSetJavaVM(JavaVM* vm) {
  ScopedJavaThreadAttachment::s_jvm.store(vm, std::memory_order_release);
}

JavaVM* QXGetJavaVM() {
  return ScopedJavaThreadAttachment::s_jvm.load(std::memory_order_acquire);
}

QXThreadHandle::QXThreadHandle() = default;

QXThreadHandle::QXThreadHandle(std::unique_ptr<QXPrivateThreadHandle> thread)
    : _private(std::move(thread)) {}

QXThreadHandle::~QXThreadHandle() { Join(); }

QXThreadHandle::QXThreadHandle(QXThreadHandle&& other) noexcept = default;

QXThreadHandle& QXThreadHandle::operator=(QXThreadHandle&& other) noexcept {
  if (this != &other) {
    Join();
    _private = std::move(other._private);
  }
  return *this;
}

bool QXThreadHandle::Joinable() const { return _private != nullptr; }

void QXThreadHandle::Join() {
  if (_private != nullptr) {
    _private->Join();
    _private.reset();
  }
}

QXThreadHandle QXRunThread(std::function<void()> body) {
  std::unique_ptr<QXPrivateThreadHandle> thread(
      new QXPrivateThreadHandle(std::move(body)));
  if (!thread->Start(nullptr)) {
    return QXThreadHandle();
  }
  return QXThreadHandle(std::move(thread));
}

QXThread::QXThread()
    : _thread(0), _arg(nullptr), _return(nullptr), _stackSize(0) {}

QXThread::~QXThread() = default;

bool QXThread::Start(void* arg) {
  _arg = arg;
  int error;
  if (_stackSize == 0) {
    error = pthread_create(&_thread, nullptr, &QXThread::ThreadEntry, this);
  } else {
    // Deliberate: the attribute object is never destroyed; on this system
    // it owns nothing that would leak.
    pthread_attr_t attr;
    error = pthread_attr_init(&attr);
    if (error != 0) {
      ReportThreadError(error, "pthread_attr_init failed");
      return false;
    }
    size_t defaultSize = 0;
    error = pthread_attr_getstacksize(&attr, &defaultSize);
    if (error != 0) {
      ReportThreadError(error, "pthread_attr_getstacksize failed");
      return false;
    }
    error = pthread_attr_setstacksize(&attr, _stackSize);
    if (error != 0) {
      ReportThreadError(error, "pthread_attr_setstacksize failed");
      return false;
    }
    error = pthread_create(&_thread, &attr, &QXThread::ThreadEntry, this);
  }
  if (error != 0) {
    ReportThreadError(error, "Cannot start QXThread");
    return false;
  }
  return true;
}

void* QXThread::Join() {
  void* ret = nullptr;
  int error = pthread_join(_thread, &ret);
  if (error != 0) {
    ReportThreadError(error, "Could not wait for the QXThread");
  }
  QX_CHECK(ret == GetReturn(), "Join");
  return ret;
}

void* QXThread::GetArg() { return _arg; }

void QXThread::SetArg(void* arg) { _arg = arg; }

void* QXThread::GetReturn() { return _return; }

void QXThread::SetReturn(void* ret) { _return = ret; }

unsigned int QXThread::GetStackSize() const { return _stackSize; }

void QXThread::SetStackSize(unsigned int bytes) { _stackSize = bytes; }

void* QXThread::ThreadEntry(void* thread) {
  QXThread* self = static_cast<QXThread*>(thread);
  ScopedJavaThreadAttachment attachment;
  void* result;
  try {
    result = self->Run(self->_arg);
  } catch (...) {
    // An exception that nothing catches ends the process without unwinding
    // this frame, so the thread detaches here before it goes on.
    attachment.Detach();
    throw;
  }
  self->_return = result;
  attachment.Detach();
  return result;
}

}  // namespace QXPlatform

// The Java VM calls this when it loads the library; from then on every
// QXThread attaches to that VM while its body runs.
extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void* /*reserved*/) {
  using QXPlatform::ScopedJavaThreadAttachment;
  JavaVM* old =
      ScopedJavaThreadAttachment::s_jvm.load(std::memory_order_acquire);
  if (vm != nullptr && vm == old) {
    return JNI_VERSION_1_8;
  }
  if (vm != nullptr && old != nullptr) {
    std::cerr << "JNI_OnLoad called with jvm already set, was: "
              << static_cast<void*>(old) << " now: " << static_cast<void*>(vm)
              << std::endl;
  } else if (vm == nullptr) {
    std::cerr << "JNI_OnLoad called with Null jvm argument, was: "
              << static_cast<void*>(old) << " now: " << static_cast<void*>(vm)
              << std::endl;
  }
  ScopedJavaThreadAttachment::s_jvm.store(vm, std::memory_order_release);
  return JNI_VERSION_1_8;
}
