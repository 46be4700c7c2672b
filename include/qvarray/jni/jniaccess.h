#pragma once
// Access to the Java virtual machine that loaded the Java bridge library: the
// companion library's JNI access (thread attachment, the JNIEnv of a thread,
// class lookup from any thread) and the one translation of C++ exceptions into
// Java exceptions at the boundary. Built into the JNI target (qvarrayjni), so
// that neither the core nor the utility library needs <jni.h>.
//
// Failures raise "JNI_error" (module "jniaccess") with a sentence naming the
// JNI call that failed; a Java exception that the failure left pending stays
// pending, and the boundary hands it on as the cause of the Java exception it
// throws.
#include <jni.h>

#include <string>
#include <string_view>
#include <utility>

namespace qvutil {

/// The virtual machine of the process: set once when the JVM loads the
/// library (JNI_OnLoad), read from any thread.
class VMData {
 public:
  /// Keeps `vm` and the class loader of the loading thread (its context class
  /// loader, else the system class loader), through which findClass looks up
  /// classes from natively attached threads. Called from JNI_OnLoad; raises
  /// "JNI_error" when the loader cannot be obtained.
  static void setVM(JavaVM* vm, JNIEnv* env);
  /// The virtual machine, or null when no JVM has loaded the library.
  static JavaVM* getVM();
  /// The JNIEnv of the calling thread, which must be attached (a Java
  /// thread, or within an AttachThread); "JNI_error" otherwise.
  static JNIEnv* getJNIEnv();
};

/// Attaches the calling thread to the virtual machine for the object's
/// lifetime, when it is not attached already (an OpenMP worker, a thread of
/// the product's own). The destructor detaches only a thread that this object
/// attached, so a Java thread and a thread attached further up stay attached.
/// Raises "JNI_error" when there is no VM or attaching fails.
class AttachThread {
 public:
  AttachThread();
  ~AttachThread();
  AttachThread(const AttachThread&) = delete;
  AttachThread& operator=(const AttachThread&) = delete;
  JNIEnv* env() const { return env_; }
  /// Whether this object attached the thread (and will detach it).
  bool attached() const { return attached_; }

 private:
  JNIEnv* env_ = nullptr;
  bool attached_ = false;
};

}  // namespace qvutil

namespace qvbase {

/// The class `name` ("java/lang/String" form), looked up through the class
/// loader kept when the library was loaded, so that the host's own classes
/// are found also from natively attached threads (where JNI's FindClass sees
/// only the system classes). Returns a local reference, or null with the
/// Java exception (ClassNotFoundException) pending, as FindClass does.
jclass findClass(JNIEnv* env, const char* name);

/// Holds a local reference and deletes it at the end of the scope: native
/// code that walks many objects (the rows of an array of arrays) or runs on
/// a natively attached thread, whose local references live until it
/// detaches, keeps a bounded number of them.
template <class T>
class LocalRef {
 public:
  LocalRef(JNIEnv* env, T ref) : env_(env), ref_(ref) {}
  ~LocalRef() {
    if (ref_) env_->DeleteLocalRef(ref_);
  }
  LocalRef(const LocalRef&) = delete;
  LocalRef& operator=(const LocalRef&) = delete;
  T get() const { return ref_; }
  /// Hands the reference on (to the caller of a native method).
  T release() {
    T r = ref_;
    ref_ = nullptr;
    return r;
  }

 private:
  JNIEnv* env_;
  T ref_;
};

/// Strings cross JNI as modified UTF-8 (NUL as C0 80, code points above
/// U+FFFF as two three-byte surrogates). These convert from and to standard
/// UTF-8; a byte that starts no valid UTF-8 sequence becomes "?", and
/// surrogates written as three bytes each (modified UTF-8 already) pass.
std::string toModifiedUtf8(std::string_view utf8);
std::string fromModifiedUtf8(std::string_view mutf8);
/// A new Java string (local reference) of UTF-8 text; "JNI_error" when the
/// JVM cannot make it (its OutOfMemoryError stays pending).
jstring newJavaString(JNIEnv* env, std::string_view utf8);
/// The UTF-8 text of a non-null Java string.
std::string javaStringToUtf8(JNIEnv* env, jstring s);

/// Throws the exception being handled (call inside a catch block only) into
/// Java, so that it leaves the native method as a Java exception:
/// qvbase::Exception and any other std::exception as
/// java.lang.RuntimeException whose message is what() ("key (module:line):
/// details"), std::bad_alloc as java.lang.OutOfMemoryError ("bad allocation").
/// A Java exception pending at that moment becomes the cause of the new one.
void throwToJava(JNIEnv* env) noexcept;

/// Runs body() at the boundary of a native method: returns its result, or,
/// when it throws, `onError` with the exception thrown into Java
/// (throwToJava). Nothing C++ crosses into the JVM.
template <class R, class Body>
R callFromJava(JNIEnv* env, R onError, Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    throwToJava(env);
    return onError;
  }
}

/// callFromJava for native methods without a result.
template <class Body>
void callFromJava(JNIEnv* env, Body&& body) noexcept {
  try {
    std::forward<Body>(body)();
  } catch (...) {
    throwToJava(env);
  }
}

}  // namespace qvbase
