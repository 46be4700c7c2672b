// Native side of bench/jvm/JniSpeed.java: x = 2x + 1 over a Java double[],
// through the bridge's copying conversion and through its no-copy (critical)
// access. The loops are vectorised as the JIT vectorises the Java loop they
// are compared with.
#include <jni.h>

#include "qvarray/jni/jniaccess.h"
#include "qvarray/jni/jniarrayutil.h"
#include "qvarray/jni/qvjarray.h"

using namespace qvarray;
using qvbase::callFromJava;

extern "C" {

JNIEXPORT void JNICALL Java_JniSpeed_affineCopy(JNIEnv* env, jclass, jdoubleArray a) {
  callFromJava(env, [&] {
    Array<double, 1> x = getArray(env, a);
    double* p = x.data;
#pragma omp simd
    for (size_t k = 0; k < x.count; ++k) p[k] = 2 * p[k] + 1;
    setJavaArray(env, a, x);
  });
}

JNIEXPORT void JNICALL Java_JniSpeed_affineInPlace(JNIEnv* env, jclass, jdoubleArray a) {
  callFromJava(env, [&] {
    jdoubleArrayRH x(env, a, JMode::ReadWrite, JAccess::Critical);
    double* p = x.data();
#pragma omp simd
    for (size_t k = 0; k < x.size(); ++k) p[k] = 2 * p[k] + 1;
  });
}

}  // extern "C"
