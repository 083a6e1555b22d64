#pragma once

// A thread object whose derived classes supply the body. While a Java VM has
// loaded the library, every body runs attached to that VM.

#include <pthread.h>

#include <functional>
#include <memory>

#include "../qxexport.h"

// The Java VM type exactly as jni.h declares it for C++, so this header and
// jni.h can be included together in either order.
struct JavaVM_;
typedef JavaVM_ JavaVM;

namespace QXPlatform {

// Hands the library the Java VM its threads attach to. A toolkit whose own
// JNI library defines JNI_OnLoad calls this from there: the VM then calls
// only the toolkit's JNI_OnLoad, never the library's. Every QXThread and
// QXRunThread started afterwards attaches its body to vm; bodies already
// running are not affected. Null forgets the VM, so later bodies run
// unattached. Prints nothing. Any thread.
QXPLATFORM_EXPORT void QXSetJavaVM(JavaVM* vm);
// The VM bodies attach to, as set by QXSetJavaVM or the library's own
// JNI_OnLoad; null when there is none. Not owned by the caller. Any thread.
QXPLATFORM_EXPORT JavaVM* QXGetJavaVM();

// Derive, implement Run, then Start and Join from the owning thread. The
// object is shared by the owner and the running body, so it must outlive the
// thread.
//
// The destructor neither joins nor detaches the thread: the owner joins it
// before destroying the object. Destroying a running QXThread leaves its body
// working on freed memory.
class QXPLATFORM_EXPORT QXThread {
 public:
  // Idle: handle, argument, return value and stack size are all zero.
  QXThread();
  // Frees nothing but the object itself; see the class comment.
  virtual ~QXThread();

  QXThread(const QXThread&) = delete;
  QXThread& operator=(const QXThread&) = delete;

  // Stores arg and runs Run(arg) on a new POSIX thread, with the stack size
  // set by SetStackSize (0: the system's default attributes). Returns true
  // when the thread was created; on failure prints the failing call on
  // standard error with perror and returns false. Calling it again while a
  // body still runs starts one more thread and forgets the first handle, so
  // that thread can no longer be joined through this object. Owner only.
  bool Start(void* arg);
  // Waits for the thread of the last Start and returns what its body
  // returned. A failed wait is reported with perror. Aborts the process when
  // the thread's result differs from GetReturn(), for instance after a
  // SetReturn while the body ran. Owner only, once per Start.
  void* Join();

  // The argument handed to the body. Not synchronised with the body.
  void* GetArg();
  void SetArg(void* arg);
  // The body's result once it has returned; before that, what SetReturn
  // stored (null initially). Not synchronised with the body.
  void* GetReturn();
  void SetReturn(void* ret);
  // Stack size in bytes for the next Start; 0 means the system's default.
  unsigned int GetStackSize() const;
  void SetStackSize(unsigned int bytes);

  // The thread's body, given the argument of Start; its result becomes the
  // thread's result. Runs on the new thread, attached to the Java VM when one
  // has loaded the library. An exception leaving it ends the process.
  virtual void* Run(void* arg) = 0;

 protected:
  // The start routine handed to the thread library, given this object: it
  // attaches to the Java VM, runs the body, stores the result and detaches.
  static void* ThreadEntry(void* thread);

 private:
  pthread_t _thread;
  void* _arg;
  void* _return;
  unsigned int _stackSize;
};

class QXPrivateThreadHandle;
class QXThreadHandle;

QXPLATFORM_EXPORT QXThreadHandle QXRunThread(std::function<void()> body);

// A function running on a thread of its own, from QXRunThread. The handle is
// moved, never copied; the thread that holds it waits for the function with
// Join or by destroying the handle. Not to be joined from the function's own
// thread.
class QXPLATFORM_EXPORT QXThreadHandle {
 public:
  // A handle with no thread.
  QXThreadHandle();
  // Waits for the function to return, when it still has a thread.
  ~QXThreadHandle();
  QXThreadHandle(QXThreadHandle&& other) noexcept;
  // Waits for this handle's own function first, then takes other's.
  QXThreadHandle& operator=(QXThreadHandle&& other) noexcept;
  QXThreadHandle(const QXThreadHandle&) = delete;
  QXThreadHandle& operator=(const QXThreadHandle&) = delete;

  // True while there is a thread to wait for.
  bool Joinable() const;
  // Waits for the function to return; afterwards the handle has no thread.
  // Does nothing when there is none.
  void Join();

 private:
  friend QXThreadHandle QXRunThread(std::function<void()> body);
  explicit QXThreadHandle(std::unique_ptr<QXPrivateThreadHandle> thread);

  std::unique_ptr<QXPrivateThreadHandle> _private;
};

// Runs body on a new thread with the system's default stack, attached to the
// Java VM when one is known (as a QXThread body is), and returns the handle
// that waits for it. body is moved onto the new thread and destroyed there
// after it returns. An exception leaving body ends the process. When the
// thread cannot be created, prints "Cannot start QXThread" with perror and
// returns a handle with no thread (body is not run). Any thread.
QXThreadHandle QXRunThread(std::function<void()> body);

}  // namespace QXPlatform
