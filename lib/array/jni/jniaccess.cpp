// The virtual machine, thread attachment, class lookup through the loader
// kept at load time, and the translation of C++ exceptions into Java ones.
#include "qvarray/jni/jniaccess.h"

#include <atomic>
#include <exception>
#include <new>
#include <string>

#include "qvutil/errors.h"

namespace {

// Set once by JNI_OnLoad before any other call into the library can happen;
// read from any thread afterwards.
std::atomic<JavaVM*> gVm{nullptr};
jobject gLoader = nullptr;       // global reference
jmethodID gLoadClass = nullptr;  // ClassLoader.loadClass(String)

constexpr jint kVersion = JNI_VERSION_1_8;

}  // namespace

namespace qvutil {

void VMData::setVM(JavaVM* vm, JNIEnv* env) {
  // The loader that loaded the classes of the host: the loading thread's
  // context class loader, else the system class loader.
  jclass threadClass = env->FindClass("java/lang/Thread");
  if (!threadClass) QV_RAISE(jniaccess, JNI_error, "FindClass(java/lang/Thread) failed.");
  jmethodID current =
      env->GetStaticMethodID(threadClass, "currentThread", "()Ljava/lang/Thread;");
  jmethodID contextLoader =
      current ? env->GetMethodID(threadClass, "getContextClassLoader", "()Ljava/lang/ClassLoader;")
              : nullptr;
  jobject thread = contextLoader ? env->CallStaticObjectMethod(threadClass, current) : nullptr;
  jobject loader =
      thread && !env->ExceptionCheck() ? env->CallObjectMethod(thread, contextLoader) : nullptr;
  env->DeleteLocalRef(thread);
  env->DeleteLocalRef(threadClass);
  if (env->ExceptionCheck()) QV_RAISE(jniaccess, JNI_error, "Thread.getContextClassLoader failed.");
  jclass loaderClass = env->FindClass("java/lang/ClassLoader");
  if (!loaderClass) QV_RAISE(jniaccess, JNI_error, "FindClass(java/lang/ClassLoader) failed.");
  if (!loader) {
    jmethodID system =
        env->GetStaticMethodID(loaderClass, "getSystemClassLoader", "()Ljava/lang/ClassLoader;");
    loader = system ? env->CallStaticObjectMethod(loaderClass, system) : nullptr;
    if (env->ExceptionCheck()) loader = nullptr;
  }
  jmethodID loadClass =
      loader ? env->GetMethodID(loaderClass, "loadClass", "(Ljava/lang/String;)Ljava/lang/Class;")
             : nullptr;
  env->DeleteLocalRef(loaderClass);
  jobject global = loadClass ? env->NewGlobalRef(loader) : nullptr;
  env->DeleteLocalRef(loader);
  if (!global) QV_RAISE(jniaccess, JNI_error, "No class loader.");
  gLoader = global;
  gLoadClass = loadClass;
  gVm.store(vm, std::memory_order_release);
}

JavaVM* VMData::getVM() { return gVm.load(std::memory_order_acquire); }

JNIEnv* VMData::getJNIEnv() {
  JavaVM* vm = getVM();
  if (!vm) QV_RAISE(jniaccess, JNI_error, "No Java virtual machine.");
  void* env = nullptr;
  if (vm->GetEnv(&env, kVersion) != JNI_OK || !env)
    QV_RAISE(jniaccess, JNI_error, "Thread not attached to the Java virtual machine.");
  return static_cast<JNIEnv*>(env);
}

AttachThread::AttachThread() {
  JavaVM* vm = VMData::getVM();
  if (!vm) QV_RAISE(jniaccess, JNI_error, "No Java virtual machine.");
  void* env = nullptr;
  const jint status = vm->GetEnv(&env, kVersion);
  if (status == JNI_EDETACHED) {
    if (vm->AttachCurrentThread(&env, nullptr) != JNI_OK || !env)
      QV_RAISE(jniaccess, JNI_error, "AttachCurrentThread failed.");
    attached_ = true;
  } else if (status != JNI_OK || !env) {
    QV_RAISE(jniaccess, JNI_error, "GetEnv failed.");
  }
  env_ = static_cast<JNIEnv*>(env);
}

AttachThread::~AttachThread() {
  // A thread that Java code never saw leaves no exception behind for anyone.
  if (!attached_) return;
  if (env_->ExceptionCheck()) env_->ExceptionClear();
  VMData::getVM()->DetachCurrentThread();
}

}  // namespace qvutil

namespace qvbase {

// Modified UTF-8 differs from UTF-8 in two forms: U+0000 is written C0 80, and
// a code point above U+FFFF is written as its two UTF-16 surrogates, three
// bytes each. Surrogates already written that way (text that came from Java)
// pass unchanged.
std::string toModifiedUtf8(std::string_view utf8) {
  std::string out;
  out.reserve(utf8.size());
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(utf8[i]); };
  const auto put3 = [&](unsigned u) {
    out += static_cast<char>(0xE0 | (u >> 12));
    out += static_cast<char>(0x80 | ((u >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (u & 0x3F));
  };
  for (size_t i = 0; i < utf8.size();) {
    const unsigned b = byte(i);
    // Length and value of the sequence at i; 0 for a byte that starts none.
    size_t len = b < 0x80 ? 1 : b >= 0xC2 && b < 0xE0 ? 2 : b >= 0xE0 && b < 0xF0 ? 3
                 : b >= 0xF0 && b < 0xF5 ? 4 : 0;
    unsigned cp = len == 1 ? b : len == 2 ? b & 0x1F : len == 3 ? b & 0x0F : b & 0x07;
    for (size_t k = 1; k < len; ++k) {
      if (i + k >= utf8.size() || (byte(i + k) & 0xC0) != 0x80) {
        len = 0;
        break;
      }
      cp = (cp << 6) | (byte(i + k) & 0x3F);
    }
    const bool overlong = (len == 3 && cp < 0x800) || (len == 4 && cp < 0x10000);
    if (len == 0 || overlong || cp > 0x10FFFF) {
      out += '?';  // not UTF-8: one replacement per byte
      ++i;
      continue;
    }
    if (cp == 0) {
      out += "\xC0\x80";
    } else if (cp >= 0x10000) {
      put3(0xD800 + ((cp - 0x10000) >> 10));
      put3(0xDC00 + ((cp - 0x10000) & 0x3FF));
    } else {
      out.append(utf8.substr(i, len));
    }
    i += len;
  }
  return out;
}

std::string fromModifiedUtf8(std::string_view mutf8) {
  std::string out;
  out.reserve(mutf8.size());
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(mutf8[i]); };
  const auto triple = [&](size_t i) {
    return ((byte(i) & 0x0Fu) << 12) | ((byte(i + 1) & 0x3Fu) << 6) | (byte(i + 2) & 0x3Fu);
  };
  for (size_t i = 0; i < mutf8.size();) {
    if (byte(i) == 0xC0 && i + 1 < mutf8.size() && byte(i + 1) == 0x80) {
      out += '\0';
      i += 2;
    } else if (byte(i) == 0xED && i + 5 < mutf8.size() && byte(i + 3) == 0xED &&
               (byte(i + 1) & 0xF0) == 0xA0 && (byte(i + 4) & 0xF0) == 0xB0) {
      // A surrogate pair: one code point above U+FFFF, four bytes of UTF-8.
      const unsigned cp = 0x10000 + ((triple(i) - 0xD800) << 10) + (triple(i + 3) - 0xDC00);
      out += static_cast<char>(0xF0 | (cp >> 18));
      out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
      i += 6;
    } else {
      out += mutf8[i++];
    }
  }
  return out;
}

jstring newJavaString(JNIEnv* env, std::string_view utf8) {
  jstring s = env->NewStringUTF(toModifiedUtf8(utf8).c_str());
  if (!s) QV_RAISE(jniaccess, JNI_error, "NewStringUTF failed.");
  return s;
}

std::string javaStringToUtf8(JNIEnv* env, jstring s) {
  const char* chars = env->GetStringUTFChars(s, nullptr);
  if (!chars) QV_RAISE(jniaccess, JNI_error, "GetStringUTFChars failed.");
  std::string out;
  try {
    out = fromModifiedUtf8(chars);
  } catch (...) {
    env->ReleaseStringUTFChars(s, chars);
    throw;
  }
  env->ReleaseStringUTFChars(s, chars);
  return out;
}

jclass findClass(JNIEnv* env, const char* name) {
  if (!gLoader) return env->FindClass(name);
  // loadClass takes the binary name: dots where JNI writes slashes.
  std::string binary(name);
  for (char& c : binary)
    if (c == '/') c = '.';
  jstring text = env->NewStringUTF(binary.c_str());
  if (!text) return nullptr;
  auto cls = static_cast<jclass>(env->CallObjectMethod(gLoader, gLoadClass, text));
  env->DeleteLocalRef(text);
  if (env->ExceptionCheck()) {
    env->DeleteLocalRef(cls);
    return nullptr;
  }
  return cls;
}

namespace {

// Throws a new `className` with `message`; a pending Java exception becomes
// its cause when the class takes one (RuntimeException), else it is dropped.
void throwNew(JNIEnv* env, const char* className, const std::string& message) noexcept {
  try {
    jthrowable cause = env->ExceptionOccurred();
    if (cause) env->ExceptionClear();
    jclass cls = env->FindClass(className);
    if (!cls) return;  // a Java exception is pending: it leaves the native method
    jmethodID ctor =
        cause ? env->GetMethodID(cls, "<init>", "(Ljava/lang/String;Ljava/lang/Throwable;)V")
              : nullptr;
    if (env->ExceptionCheck()) env->ExceptionClear();  // no such constructor
    jstring text = ctor ? newJavaString(env, message) : nullptr;
    if (ctor) {
      auto thrown = static_cast<jthrowable>(env->NewObject(cls, ctor, text, cause));
      if (thrown) env->Throw(thrown);
      env->DeleteLocalRef(thrown);
    } else {
      env->ThrowNew(cls, toModifiedUtf8(message).c_str());
    }
    env->DeleteLocalRef(text);
    env->DeleteLocalRef(cls);
    env->DeleteLocalRef(cause);
  } catch (...) {
    // Out of memory while building the message: the JVM has thrown its own.
  }
}

}  // namespace

void throwToJava(JNIEnv* env) noexcept {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    throwNew(env, "java/lang/OutOfMemoryError", "bad allocation");
  } catch (const std::exception& e) {
    throwNew(env, "java/lang/RuntimeException", e.what());
  } catch (...) {
    throwNew(env, "java/lang/RuntimeException", "unknown native exception");
  }
}

}  // namespace qvbase
