#pragma once

// A thread object whose derived classes supply the body. While a Java VM has
// loaded the library, every body runs attached to that VM.

#include <pthread.h>

#include "../qxexport.h"

namespace QXPlatform {

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

}  // namespace QXPlatform
