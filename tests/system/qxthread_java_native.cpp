// Native half of QXThreadJavaTest: starts library threads from Java and
// reports what their bodies saw. Built as a shared library that the Java test
// loads after libQXPlatform.

#include <stdint.h>
#include <stdio.h>
#include <unistd.h>

#include <sstream>
#include <string>

#include <jni.h>

#include <QXPlatform/system/qxthread.h>

namespace QXPlatform {
namespace {

JavaVM* TheVm(JNIEnv* env) {
  JavaVM* vm = nullptr;
  return env->GetJavaVM(&vm) == JNI_OK ? vm : nullptr;
}

// Checks that the body runs attached and calls QXThreadJavaTest.callback().
// Returns null on success, otherwise a static description of the problem.
class CallbackThread : public QXThread {
 public:
  CallbackThread(JavaVM* vm, jclass testClass, JNIEnv* ownerEnv)
      : _vm(vm), _class(testClass), _ownerEnv(ownerEnv) {}

  void* Run(void* /*arg*/) override {
    JNIEnv* env = nullptr;
    if (_vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_8) !=
        JNI_OK) {
      return const_cast<char*>("GetEnv did not report an attached thread");
    }
    if (env == _ownerEnv) {
      return const_cast<char*>("the body got the owner's environment");
    }
    jmethodID callback = env->GetStaticMethodID(_class, "callback", "()V");
    if (callback == nullptr) {
      env->ExceptionClear();
      return const_cast<char*>("callback() not found");
    }
    env->CallStaticVoidMethod(_class, callback);
    if (env->ExceptionCheck()) {
      env->ExceptionDescribe();
      env->ExceptionClear();
      return const_cast<char*>("callback() threw");
    }
    return nullptr;
  }

 private:
  JavaVM* _vm;
  jclass _class;
  JNIEnv* _ownerEnv;
};

// Checks that the body runs without being attached.
class UnattachedThread : public QXThread {
 public:
  explicit UnattachedThread(JavaVM* vm) : _vm(vm) {}

  void* Run(void* /*arg*/) override {
    JNIEnv* env = nullptr;
    jint status = _vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_8);
    if (status != JNI_EDETACHED) {
      return const_cast<char*>("GetEnv did not report a detached thread");
    }
    return nullptr;
  }

 private:
  JavaVM* _vm;
};

jstring Result(JNIEnv* env, QXThread& thread) {
  int marker = 0;
  if (!thread.Start(&marker)) {
    return env->NewStringUTF("Start failed");
  }
  void* result = thread.Join();
  if (result != thread.GetReturn()) {
    return env->NewStringUTF("Join and GetReturn disagree");
  }
  return result == nullptr ? nullptr
                           : env->NewStringUTF(static_cast<char*>(result));
}

jint& LastOnLoadResult() {
  static jint result = 0;
  return result;
}

// Everything fd 2 receives while JNI_OnLoad runs.
std::string CaptureOnLoad(JavaVM* vm) {
  fflush(stderr);
  int saved = dup(2);
  FILE* sink = tmpfile();
  if (saved < 0 || sink == nullptr) {
    return "cannot capture standard error";
  }
  dup2(fileno(sink), 2);
  LastOnLoadResult() = JNI_OnLoad(vm, nullptr);
  fflush(stderr);
  dup2(saved, 2);
  close(saved);
  std::string text;
  rewind(sink);
  char buf[256];
  size_t got;
  while ((got = fread(buf, 1, sizeof buf, sink)) > 0) {
    text.append(buf, got);
  }
  fclose(sink);
  return text;
}

}  // namespace
}  // namespace QXPlatform

using QXPlatform::CallbackThread;
using QXPlatform::UnattachedThread;

extern "C" {

JNIEXPORT jlong JNICALL Java_QXThreadJavaTest_vmPointer(JNIEnv* env, jclass) {
  return static_cast<jlong>(reinterpret_cast<intptr_t>(QXPlatform::TheVm(env)));
}

JNIEXPORT jstring JNICALL Java_QXThreadJavaTest_pointerText(JNIEnv* env, jclass,
                                                            jlong pointer) {
  std::ostringstream text;
  text << reinterpret_cast<void*>(static_cast<intptr_t>(pointer));
  return env->NewStringUTF(text.str().c_str());
}

JNIEXPORT jstring JNICALL Java_QXThreadJavaTest_callOnLoad(JNIEnv* env, jclass,
                                                           jlong vm) {
  std::string text = QXPlatform::CaptureOnLoad(
      reinterpret_cast<JavaVM*>(static_cast<intptr_t>(vm)));
  return env->NewStringUTF(text.c_str());
}

JNIEXPORT jint JNICALL Java_QXThreadJavaTest_lastOnLoadResult(JNIEnv*, jclass) {
  return QXPlatform::LastOnLoadResult();
}

JNIEXPORT jstring JNICALL
Java_QXThreadJavaTest_runAttachedThread(JNIEnv* env, jclass testClass) {
  // A local reference belongs to this thread; the body needs a global one.
  jclass shared = static_cast<jclass>(env->NewGlobalRef(testClass));
  CallbackThread thread(QXPlatform::TheVm(env), shared, env);
  jstring result = QXPlatform::Result(env, thread);
  env->DeleteGlobalRef(shared);
  return result;
}

JNIEXPORT jstring JNICALL Java_QXThreadJavaTest_runDetachedThread(JNIEnv* env,
                                                                  jclass) {
  UnattachedThread thread(QXPlatform::TheVm(env));
  return QXPlatform::Result(env, thread);
}

}  // extern "C"
