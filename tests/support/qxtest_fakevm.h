#pragma once

// A stand-in Java VM for tests that need no real one: its invocation table
// holds only the attach and detach functions the test supplies.

#include <jni.h>

namespace QXPlatform {
namespace testing {

struct FakeVm {
  typedef jint(JNICALL* Attach)(JavaVM*, void**, void*);
  typedef jint(JNICALL* Detach)(JavaVM*);

  FakeVm(Attach attach, Detach detach) {
    table.AttachCurrentThread = attach;
    table.DetachCurrentThread = detach;
    vm.functions = &table;
  }
  FakeVm(const FakeVm&) = delete;
  FakeVm& operator=(const FakeVm&) = delete;

  JNIInvokeInterface_ table{};
  JavaVM vm{};
};

}  // namespace testing
}  // namespace QXPlatform
