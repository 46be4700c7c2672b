// Entry of the library into a Java virtual machine. When the JVM loads
// libqvarrayjni it initialises the array library, keeps the VM and the
// loading thread's class loader, so that the Java bridge can attach native
// threads for its callbacks and find the host's classes from them, and makes
// the Java host the expression host.
// Everything that needs <jni.h> lives in this target; the core library never
// includes it.
#include <jni.h>

#include "javaexprhost.h"
#include "qvarray/init.h"
#include "qvarray/jni/jniaccess.h"

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void*) {
  void* env = nullptr;
  if (vm->GetEnv(&env, JNI_VERSION_1_8) != JNI_OK) return JNI_ERR;
  try {
    qvarray::initializeArray();
    qvutil::VMData::setVM(vm, static_cast<JNIEnv*>(env));
    qvarray::installJavaExprHost();
  } catch (...) {
    return JNI_ERR;
  }
  return JNI_VERSION_1_8;
}
