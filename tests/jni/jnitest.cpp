// Native methods of JniTest.java: each runs one wrapper or conversion of the
// Java bridge on what Java hands it and gives the result back to Java, which
// checks it against its own computation. Errors leave through the bridge's
// boundary (callFromJava) as Java exceptions.
#include <jni.h>
#include <malloc.h>
#include <omp.h>

#include <atomic>
#include <string>

#include "keyrecorder.h"
#include "qvarray/jni/callback.h"
#include "qvarray/jni/jniaccess.h"
#include "qvarray/jni/jniarrayutil.h"
#include "qvarray/jni/qvjarray.h"
#include "qvarray/matrixutil.h"
#include "qvarray/sparse/sparsebase.h"
#include "qvutil/errors.h"

using namespace qvarray;
using qvbase::callFromJava;

namespace {

bool gLastCopy = false;

// Adds one to every element (negates a boolean) through the wrapper of T.
template <class T>
void bump(JNIEnv* env, typename JavaArrayTraits<T>::array a, JAccess access) {
  JArrayRH<T> h(env, a, JMode::ReadWrite, access);
  for (size_t i = 0; i < h.size(); ++i) h[i] = static_cast<T>(h[i] + 1);
}

// A complex array as interleaved double[] in column-major order.
template <int N>
jdoubleArray flatInterleaved(JNIEnv* env, const Array<dcomplex, N>& a) {
  Array<dcomplex, 1> flat(a.count);
  std::copy(a.data, a.data + a.count, flat.data);
  return newJavaArray(env, flat);
}

template <int N>
jdoubleArray flatReal(JNIEnv* env, const Array<double, N>& a) {
  Array<double, 1> flat(a.count);
  std::copy(a.data, a.data + a.count, flat.data);
  return newJavaArray(env, flat);
}

jdoubleArray flatMatrix(JNIEnv* env, const Matrix& A) {
  return A.isReal() ? flatReal(env, A.getdArr()) : flatInterleaved(env, A.getzArr());
}

}  // namespace

extern "C" {

// ---- error-key census -----------------------------------------------------------

JNIEXPORT void JNICALL Java_JniTest_recordKeys(JNIEnv*, jclass) { qvtest::keys::listen(); }

JNIEXPORT void JNICALL Java_JniTest_writeKeys(JNIEnv* env, jclass, jstring path) {
  callFromJava(env, [&] { qvtest::keys::write(qvbase::javaStringToUtf8(env, path)); });
}

// Bytes the process holds from malloc (the JVM's own native allocations
// included, such as the copies it hands out for array elements), in kB.
JNIEXPORT jlong JNICALL Java_JniTest_nativeHeapKb(JNIEnv*, jclass) {
  const struct mallinfo2 m = mallinfo2();
  return static_cast<jlong>((m.uordblks + m.hblkhd) / 1024);
}

// ---- strings ---------------------------------------------------------------------

// The UTF-8 bytes of s, and s back through UTF-8.
JNIEXPORT jint JNICALL Java_JniTest_utf8Length(JNIEnv* env, jclass, jstring s) {
  return callFromJava(env, jint{0}, [&] {
    return static_cast<jint>(qvbase::javaStringToUtf8(env, s).size());
  });
}

JNIEXPORT jstring JNICALL Java_JniTest_echo(JNIEnv* env, jclass, jstring s) {
  return callFromJava(env, jstring{}, [&] {
    return qvbase::newJavaString(env, qvbase::javaStringToUtf8(env, s));
  });
}

// ---- wrappers -------------------------------------------------------------------

JNIEXPORT void JNICALL Java_JniTest_bumpAll(JNIEnv* env, jclass, jdoubleArray d, jfloatArray f,
                                            jlongArray l, jintArray i, jshortArray s,
                                            jcharArray c, jbyteArray b, jbooleanArray z,
                                            jboolean critical) {
  callFromJava(env, [&] {
    const JAccess access = critical ? JAccess::Critical : JAccess::Elements;
    bump<jdouble>(env, d, access);
    bump<jfloat>(env, f, access);
    bump<jlong>(env, l, access);
    bump<jint>(env, i, access);
    bump<jshort>(env, s, access);
    bump<jchar>(env, c, access);
    bump<jbyte>(env, b, access);
    jbooleanArrayRH h(env, z, JMode::ReadWrite, access);
    for (size_t k = 0; k < h.size(); ++k) h[k] = h[k] ? JNI_FALSE : JNI_TRUE;
  });
}

// Doubles the elements, then fails: the wrapper aborts while unwinding.
JNIEXPORT void JNICALL Java_JniTest_doubleThenFail(JNIEnv* env, jclass, jdoubleArray a) {
  callFromJava(env, [&] {
    jdoubleArrayRH h(env, a);
    gLastCopy = h.isCopy();
    for (size_t k = 0; k < h.size(); ++k) h[k] *= 2;
    QV_RAISE(qvjarray, Java_array_sizes_disagree, "Test failure after writing.");
  });
}

// Writes through a read-only wrapper: nothing may come back.
JNIEXPORT void JNICALL Java_JniTest_writeReadOnly(JNIEnv* env, jclass, jdoubleArray a) {
  callFromJava(env, [&] {
    jdoubleArrayRH h(env, a, JMode::ReadOnly);
    gLastCopy = h.isCopy();
    for (size_t k = 0; k < h.size(); ++k) h[k] = -1;
    h.commit();
    h.commit();  // the second release does nothing
  });
}

JNIEXPORT jboolean JNICALL Java_JniTest_lastWasCopy(JNIEnv*, jclass) {
  return gLastCopy ? JNI_TRUE : JNI_FALSE;
}

// ---- conversions -----------------------------------------------------------------

JNIEXPORT jdoubleArray JNICALL Java_JniTest_vectorRoundTrip(JNIEnv* env, jclass, jdoubleArray re,
                                                            jdoubleArray im) {
  return callFromJava(env, jdoubleArray{}, [&] { return newJavaArray(env, getVector(env, re, im)); });
}

JNIEXPORT jdoubleArray JNICALL Java_JniTest_complexVectorRoundTrip(JNIEnv* env, jclass,
                                                                   jdoubleArray z, jboolean imag) {
  return callFromJava(env, jdoubleArray{}, [&] {
    return newJavaPart(env, getComplexVector(env, z).getzArr(), imag);
  });
}

JNIEXPORT jintArray JNICALL Java_JniTest_intRoundTrip(JNIEnv* env, jclass, jintArray a) {
  return callFromJava(env, jintArray{}, [&] { return newJavaArray(env, getArray(env, a)); });
}

JNIEXPORT jlongArray JNICALL Java_JniTest_indexRoundTrip(JNIEnv* env, jclass, jintArray a) {
  return callFromJava(env, jlongArray{}, [&] {
    return newJavaIndexArray(env, getIndexArray(env, a));
  });
}

// The matrix of rows (real, or split complex) in column-major order.
JNIEXPORT jdoubleArray JNICALL Java_JniTest_matrixColumnMajor(JNIEnv* env, jclass,
                                                              jobjectArray re, jobjectArray im) {
  return callFromJava(env, jdoubleArray{}, [&] { return flatMatrix(env, getMatrix(env, re, im)); });
}

JNIEXPORT jdoubleArray JNICALL Java_JniTest_complexRowsColumnMajor(JNIEnv* env, jclass,
                                                                   jobjectArray rows) {
  return callFromJava(env, jdoubleArray{}, [&] {
    return flatMatrix(env, getComplexMatrix(env, rows));
  });
}

// A flat column-major matrix (interleaved when complex) back as rows.
JNIEXPORT jobjectArray JNICALL Java_JniTest_flatToRows(JNIEnv* env, jclass, jdoubleArray a,
                                                       jlong m, jlong n, jboolean complex,
                                                       jint part) {
  return callFromJava(env, jobjectArray{}, [&] {
    if (!complex) return newJavaArray(env, Matrix(getArray2(env, a, m, n)));
    const Array<dcomplex, 2> z = getComplexArray2(env, a, m, n);
    return part < 0 ? newJavaArray(env, z) : newJavaPart(env, z, part == 1);
  });
}

// A 3-D array from slabs (real, split complex when `im` is given, or
// interleaved complex) as a flat column-major double[], interleaved when complex.
JNIEXPORT jdoubleArray JNICALL Java_JniTest_slabsColumnMajor(JNIEnv* env, jclass, jobjectArray re,
                                                             jobjectArray im,
                                                             jboolean interleaved) {
  return callFromJava(env, jdoubleArray{}, [&] {
    if (interleaved) return flatInterleaved(env, getComplexArray3(env, re));
    return im ? flatInterleaved(env, getComplexArray3(env, re, im))
              : flatReal(env, getArray3(env, re));
  });
}

// A flat column-major l×m×n array (interleaved when complex) back as slabs.
JNIEXPORT jobjectArray JNICALL Java_JniTest_flatToSlabs(JNIEnv* env, jclass, jdoubleArray a,
                                                        jlong l, jlong m, jlong n, jboolean complex,
                                                        jint part) {
  return callFromJava(env, jobjectArray{}, [&] {
    if (!complex) return newJavaArray(env, getArray3(env, a, l, m, n));
    const Array<dcomplex, 3> z = getComplexArray3(env, a, l, m, n);
    return part < 0 ? newJavaArray(env, z) : newJavaPart(env, z, part == 1);
  });
}

// y = A·x by the library's dense product.
JNIEXPORT jdoubleArray JNICALL Java_JniTest_matVec(JNIEnv* env, jclass, jobjectArray A,
                                                   jdoubleArray x) {
  return callFromJava(env, jdoubleArray{}, [&] {
    Vector y;
    qvmatrix::mul(getMatrix(env, A), getVector(env, x), y);
    return newJavaArray(env, y);
  });
}

// y = S·x, S from compressed columns in one of four forms: 0 int[] indices
// and real values, 1 long[] and real, 2 long[] and split complex, 3 long[]
// and interleaved complex. y is interleaved when complex.
JNIEXPORT jdoubleArray JNICALL Java_JniTest_sparseMulVec(JNIEnv* env, jclass, jint form,
                                                         jobject colPtr, jobject rowIndex,
                                                         jdoubleArray re, jdoubleArray im,
                                                         jlong m, jlong n, jdoubleArray x) {
  return callFromJava(env, jdoubleArray{}, [&] {
    auto ci = static_cast<jintArray>(colPtr), ri = static_cast<jintArray>(rowIndex);
    auto cl = static_cast<jlongArray>(colPtr), rl = static_cast<jlongArray>(rowIndex);
    const Sparse S = form == 0   ? getSparse(env, ci, ri, re, nullptr, m, n)
                     : form == 1 ? getSparse(env, cl, rl, re, nullptr, m, n)
                     : form == 2 ? getSparse(env, cl, rl, re, im, m, n)
                                 : getComplexSparse(env, cl, rl, re, m, n);
    return newJavaArray(env, AMulx(S, getVector(env, x), NoTrans));
  });
}

// The compressed columns of the real S back as {colPtr, rowIndex, values}.
JNIEXPORT jobjectArray JNICALL Java_JniTest_sparseParts(JNIEnv* env, jclass, jlongArray colPtr,
                                                        jlongArray rowIndex, jdoubleArray values,
                                                        jlong m, jlong n) {
  return callFromJava(env, jobjectArray{}, [&] {
    const Sparse S = getSparse(env, colPtr, rowIndex, values, nullptr, m, n);
    qvbase::LocalRef<jclass> objectClass(env, env->FindClass("java/lang/Object"));
    qvbase::LocalRef<jobjectArray> out(env, env->NewObjectArray(3, objectClass.get(), nullptr));
    qvbase::LocalRef<jobject> c(env, newJavaColPtr(env, S)), r(env, newJavaRowIndex(env, S)),
        v(env, newJavaValues(env, S));
    env->SetObjectArrayElement(out.get(), 0, c.get());
    env->SetObjectArrayElement(out.get(), 1, r.get());
    env->SetObjectArrayElement(out.get(), 2, v.get());
    return out.release();
  });
}

JNIEXPORT void JNICALL Java_JniTest_setArray(JNIEnv* env, jclass, jdoubleArray to,
                                             jdoubleArray from) {
  callFromJava(env, [&] { setJavaArray(env, to, getArray(env, from)); });
}

// A Java array of n doubles (fails with the JVM's OutOfMemoryError as cause
// when n is too large for the heap).
JNIEXPORT jdoubleArray JNICALL Java_JniTest_zeros(JNIEnv* env, jclass, jint n) {
  return callFromJava(env, jdoubleArray{}, [&] {
    auto out = env->NewDoubleArray(n);
    if (!out) QV_RAISE(jniaccess, JNI_error, "No new Java array.");
    return out;
  });
}

// ---- callbacks -------------------------------------------------------------------

// Runs n steps on `threads` OpenMP threads; every step polls the host and
// reports progress. Returns the steps done; a cancellation or a host
// exception leaves as a Java exception once the threads have finished.
JNIEXPORT jint JNICALL Java_JniTest_runSteps(JNIEnv* env, jclass, jobject host, jint n,
                                             jint threads) {
  return callFromJava(env, jint{0}, [&] {
    CallbackManager manager(env, host);
    std::exception_ptr failure;
    std::atomic<bool> stop{false};
    int done = 0;
#pragma omp parallel for num_threads(threads) schedule(static, 1) reduction(+ : done)
    for (int k = 0; k < n; ++k) {
      try {
        if (stop.load()) continue;
        manager.checkCancelled();
        manager.progress(static_cast<double>(k + 1) / n);
        ++done;
      } catch (...) {
#pragma omp critical(jnitest_failure)
        if (!failure) failure = std::current_exception();
        stop.store(true);
      }
    }
    if (failure) std::rethrow_exception(failure);
    return done;
  });
}

// Threads of an OpenMP team, other than the calling Java thread, that are
// attached to the JVM (none should stay attached after a callback).
JNIEXPORT jint JNICALL Java_JniTest_attachedWorkers(JNIEnv* env, jclass, jint threads) {
  return callFromJava(env, jint{0}, [&] {
    JavaVM* vm = qvutil::VMData::getVM();
    int attached = 0;
#pragma omp parallel num_threads(threads) reduction(+ : attached)
    {
      void* e = nullptr;
      if (omp_get_thread_num() != 0 && vm->GetEnv(&e, JNI_VERSION_1_8) == JNI_OK) ++attached;
    }
    return attached;
  });
}

// findClass from a natively attached thread: the class loader kept at load
// time finds the test's own class, which JNI's FindClass there would not.
JNIEXPORT jboolean JNICALL Java_JniTest_findFromWorker(JNIEnv* env, jclass, jstring name) {
  return callFromJava(env, jboolean{JNI_FALSE}, [&] {
    const std::string className = qvbase::javaStringToUtf8(env, name);
    bool found = false, attachedHere = false;
    std::exception_ptr failure;
#pragma omp parallel num_threads(2)
    if (omp_get_thread_num() == 1) {
      try {
        qvutil::AttachThread thread;
        attachedHere = thread.attached();
        jclass cls = qvbase::findClass(thread.env(), className.c_str());
        found = cls != nullptr;
        thread.env()->DeleteLocalRef(cls);
      } catch (...) {
        failure = std::current_exception();
      }
    }
    if (failure) std::rethrow_exception(failure);
    return found && attachedHere ? JNI_TRUE : JNI_FALSE;
  });
}

// JNI's own FindClass on a natively attached thread, for comparison: it
// sees only the system class loader.
JNIEXPORT jboolean JNICALL Java_JniTest_jniFindFromWorker(JNIEnv* env, jclass, jstring name) {
  return callFromJava(env, jboolean{JNI_FALSE}, [&] {
    const std::string className = qvbase::javaStringToUtf8(env, name);
    bool found = true;
#pragma omp parallel num_threads(2)
    if (omp_get_thread_num() == 1) {
      try {
        qvutil::AttachThread thread;
        jclass cls = thread.env()->FindClass(className.c_str());
        found = cls != nullptr;
        thread.env()->ExceptionClear();
        thread.env()->DeleteLocalRef(cls);
      } catch (...) {
      }
    }
    return found ? JNI_TRUE : JNI_FALSE;
  });
}

}  // extern "C"
