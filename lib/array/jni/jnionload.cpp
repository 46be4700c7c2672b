// Entry of the library into a Java virtual machine. When the JVM loads
// libqvarrayjni it initialises the array library and keeps the VM, so that the
// Java bridge can attach native threads for its callbacks. Everything that
// needs <jni.h> lives in this target; the core library never includes it.
#include <jni.h>

#include "qvarray/init.h"

namespace {

JavaVM* gVm = nullptr;

}  // namespace

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void*) {
  gVm = vm;
  try {
    qvarray::initializeArray();
  } catch (...) {
    return JNI_ERR;
  }
  return JNI_VERSION_1_8;
}
