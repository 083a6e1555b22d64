// The native half of a toolkit that uses QXPlatform from Java. The toolkit's
// library defines its own JNI_OnLoad, as most do, so the VM never calls the
// one in libQXPlatform: the toolkit hands the VM over itself.

#include <string>

#include <jni.h>

#include <QXPlatform/QXPlatform.h>

namespace {

// What a thread body saw, reported back to Java; empty when all was well.
std::string CheckAttachedAndCallBack(jclass toolkit) {
  JavaVM* vm = QXPlatform::QXGetJavaVM();
  if (vm == nullptr) {
    return "no VM was handed over";
  }
  JNIEnv* env = nullptr;
  if (vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_8) != JNI_OK) {
    return "the body is not attached to the VM";
  }
  jmethodID callback = env->GetStaticMethodID(toolkit, "callback", "()V");
  if (callback == nullptr) {
    env->ExceptionClear();
    return "callback() not found";
  }
  env->CallStaticVoidMethod(toolkit, callback);
  if (env->ExceptionCheck()) {
    env->ExceptionClear();
    return "callback() threw";
  }
  return "";
}

class ToolkitThread : public QXPlatform::QXThread {
 public:
  explicit ToolkitThread(jclass toolkit) : _toolkit(toolkit) {}
  void* Run(void* /*arg*/) override {
    problem = CheckAttachedAndCallBack(_toolkit);
    return nullptr;
  }
  std::string problem;

 private:
  jclass _toolkit;
};

}  // namespace

// The VM calls this when Java loads the toolkit's library.
extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void* /*reserved*/) {
  // From here on, every QXThread and QXRunThread body attaches to vm.
  QXPlatform::QXSetJavaVM(vm);
  return JNI_VERSION_1_8;
}

// Runs one QXThread and one QXRunThread function; each checks that it is
// attached and calls back into Java. Null when both went well.
extern "C" JNIEXPORT jstring JNICALL
Java_QXToolkitExample_runLibraryThreads(JNIEnv* env, jclass toolkit) {
  // A local reference belongs to this thread; the bodies need a global one.
  jclass shared = static_cast<jclass>(env->NewGlobalRef(toolkit));
  ToolkitThread thread(shared);
  std::string problem;
  if (!thread.Start(nullptr)) {
    problem = "QXThread did not start";
  } else {
    thread.Join();
    problem = thread.problem;
  }
  if (problem.empty()) {
    QXPlatform::QXRunThread([&] {
      problem = CheckAttachedAndCallBack(shared);
    }).Join();
  }
  env->DeleteGlobalRef(shared);
  return problem.empty() ? nullptr : env->NewStringUTF(problem.c_str());
}
