#pragma once
// Reference-holding wrappers of Java primitive arrays: jdoubleArrayRH,
// jintArrayRH and their kin hold the elements of one Java array for native
// code and give them back exactly once.
//
//   jdoubleArrayRH x(env, javaArray);            // Get<Type>ArrayElements
//   for (size_t i = 0; i < x.size(); ++i) x[i] *= 2;
//   // leaving the scope commits: the JVM sees the new values
//
// Access. Elements (the default) pins the array or hands out a copy; any JNI
// call may follow. Critical (Get/ReleasePrimitiveArrayCritical) is the way
// without a copy where the JVM can give one: no JNI call and no blocking may
// happen until the wrapper releases, so it suits short kernels only (arrays
// held together must all be critical, their lengths taken first: see the
// length constructor).
//
// Release. commit() writes the elements back (when they were a copy) and
// releases; abort() releases without writing back. Whichever comes first is
// the one release; later calls do nothing. The destructor releases what is
// still held: it commits, except for a read-only wrapper and while an
// exception unwinds the stack, when it aborts, so that a failed computation
// does not write back half its results from a copy (an array handed out
// without a copy, isCopy() false, holds every write at once).
//
// Errors (module "qvjarray"): "Null_Java_array" for a null array; "JNI_error"
// when the JVM cannot hand out the elements (its OutOfMemoryError stays
// pending and becomes the cause at the boundary).
#include <jni.h>

#include <cstddef>
#include <exception>

namespace qvarray {

enum class JAccess { Elements, Critical };
enum class JMode { ReadWrite, ReadOnly };

/// JNI's typed entry points for the element type T (jdouble, jint, ...).
template <class T>
struct JavaArrayTraits;

#define QV_JAVA_ARRAY_TRAITS(T, Name)                                                     \
  template <>                                                                             \
  struct JavaArrayTraits<T> {                                                             \
    using array = T##Array;                                                               \
    static constexpr const char* name = #T "Array";                                       \
    static T* get(JNIEnv* env, array a, jboolean* isCopy) {                               \
      return env->Get##Name##ArrayElements(a, isCopy);                                    \
    }                                                                                     \
    static void release(JNIEnv* env, array a, T* p, jint mode) {                          \
      env->Release##Name##ArrayElements(a, p, mode);                                      \
    }                                                                                     \
    static array make(JNIEnv* env, jsize n) { return env->New##Name##Array(n); }          \
    static void getRegion(JNIEnv* env, array a, jsize start, jsize n, T* to) {            \
      env->Get##Name##ArrayRegion(a, start, n, to);                                       \
    }                                                                                     \
    static void setRegion(JNIEnv* env, array a, jsize start, jsize n, const T* from) {    \
      env->Set##Name##ArrayRegion(a, start, n, from);                                     \
    }                                                                                     \
  };
QV_JAVA_ARRAY_TRAITS(jdouble, Double)
QV_JAVA_ARRAY_TRAITS(jfloat, Float)
QV_JAVA_ARRAY_TRAITS(jlong, Long)
QV_JAVA_ARRAY_TRAITS(jint, Int)
QV_JAVA_ARRAY_TRAITS(jshort, Short)
QV_JAVA_ARRAY_TRAITS(jchar, Char)
QV_JAVA_ARRAY_TRAITS(jbyte, Byte)
QV_JAVA_ARRAY_TRAITS(jboolean, Boolean)
#undef QV_JAVA_ARRAY_TRAITS

namespace detail {
[[noreturn]] void raiseNullJavaArray(const char* type);
[[noreturn]] void raiseJavaElementsFailed(const char* type);
}  // namespace detail

/// Length of a Java array; "Null_Java_array" for null.
inline size_t javaLength(JNIEnv* env, jarray a, const char* type = "array") {
  if (!a) detail::raiseNullJavaArray(type);
  return static_cast<size_t>(env->GetArrayLength(a));
}

template <class T>
class JArrayRH {
 public:
  using Traits = JavaArrayTraits<T>;
  using array_type = typename Traits::array;

  JArrayRH(JNIEnv* env, array_type a, JMode mode = JMode::ReadWrite,
           JAccess access = JAccess::Elements)
      : JArrayRH(env, a, javaLength(env, a, Traits::name), mode, access) {}

  /// With the length known (javaLength, taken before any critical access):
  /// holding several arrays critically makes no JNI call between them.
  JArrayRH(JNIEnv* env, array_type a, size_t length, JMode mode, JAccess access)
      : env_(env), array_(a), size_(length), mode_(mode), access_(access),
        unwinding_(std::uncaught_exceptions()) {
    if (!a) detail::raiseNullJavaArray(Traits::name);
    jboolean isCopy = JNI_FALSE;
    data_ = access == JAccess::Critical
                ? static_cast<T*>(env->GetPrimitiveArrayCritical(a, &isCopy))
                : Traits::get(env, a, &isCopy);
    if (!data_) detail::raiseJavaElementsFailed(Traits::name);
    isCopy_ = isCopy == JNI_TRUE;
  }

  ~JArrayRH() {
    if (!data_) return;
    if (mode_ == JMode::ReadOnly || std::uncaught_exceptions() > unwinding_)
      abort();
    else
      commit();
  }
  JArrayRH(const JArrayRH&) = delete;
  JArrayRH& operator=(const JArrayRH&) = delete;

  /// Writes the elements back (when they are a copy; never for a read-only
  /// wrapper) and releases them.
  void commit() { release(mode_ == JMode::ReadOnly ? JNI_ABORT : 0); }
  /// Releases the elements without writing them back.
  void abort() { release(JNI_ABORT); }

  /// The elements; null after the release.
  T* data() const { return data_; }
  size_t size() const { return size_; }
  T& operator[](size_t i) const { return data_[i]; }
  /// Whether the JVM handed out a copy rather than the array itself.
  bool isCopy() const { return isCopy_; }
  bool held() const { return data_ != nullptr; }

 private:
  void release(jint mode) {
    if (!data_) return;
    T* p = data_;
    data_ = nullptr;
    if (access_ == JAccess::Critical)
      env_->ReleasePrimitiveArrayCritical(array_, p, mode);
    else
      Traits::release(env_, array_, p, mode);
  }

  JNIEnv* env_;
  array_type array_;
  T* data_ = nullptr;
  size_t size_;
  JMode mode_;
  JAccess access_;
  int unwinding_;
  bool isCopy_ = false;
};

using jdoubleArrayRH = JArrayRH<jdouble>;
using jfloatArrayRH = JArrayRH<jfloat>;
using jlongArrayRH = JArrayRH<jlong>;
using jintArrayRH = JArrayRH<jint>;
using jshortArrayRH = JArrayRH<jshort>;
using jcharArrayRH = JArrayRH<jchar>;
using jbyteArrayRH = JArrayRH<jbyte>;
using jbooleanArrayRH = JArrayRH<jboolean>;

}  // namespace qvarray
