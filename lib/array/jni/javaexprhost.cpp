// The Java host of expressions: the static methods parseExprToPrefix and simp
// of the host's class com/qubrix/nativejni/util/ExprTree, reached through JNI
// from whichever thread asks. Installed as the expression host when a JVM
// loads this library (JNI_OnLoad).
//
// Each call attaches the thread when it is not attached (for the call only),
// looks the class up through the class loader kept at load time, and
// releases the class and string references before it returns. The two
// method IDs are looked up on first use and kept for the life of the process;
// two first calls at once look an ID up twice, which is harmless.
#include "javaexprhost.h"

#include <atomic>
#include <memory>
#include <string>

#include "qvarray/expr/exprhost.h"
#include "qvarray/jni/jniaccess.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

constexpr const char* kHostClass = "com/qubrix/nativejni/util/ExprTree";

std::atomic<jmethodID> gParseId{nullptr};
std::atomic<jmethodID> gSimpId{nullptr};

// Clears the host's pending exception, if any, and raises
// "Internal_error_callback" with `what`.
[[noreturn]] void callbackFailed(JNIEnv* env, const char* what) {
  env->ExceptionClear();
  QV_RAISE(exprimpl, Internal_error_callback, what);
}

// Calls the static String method `name` of the host class with `text` (and
// the two flags true when `flags`); returns its answer (empty for "").
std::string callHost(std::atomic<jmethodID>& id, const char* name, const char* signature,
                     const std::string& text, bool flags) {
  qvutil::AttachThread thread;
  JNIEnv* env = thread.env();
  qvbase::LocalRef<jclass> cls(env, qvbase::findClass(env, kHostClass));
  if (!cls.get()) callbackFailed(env, "Host class com/qubrix/nativejni/util/ExprTree not found.");
  jmethodID method = id.load(std::memory_order_relaxed);
  if (!method) {
    method = env->GetStaticMethodID(cls.get(), name, signature);
    if (!method) callbackFailed(env, "Host method not found.");
    id.store(method, std::memory_order_relaxed);
  }
  qvbase::LocalRef<jstring> arg(env, env->NewStringUTF(qvbase::toModifiedUtf8(text).c_str()));
  if (!arg.get()) {
    env->ExceptionClear();
    QV_RAISE(exprimpl, JNI_error, "NewStringUTF failed.");
  }
  qvbase::LocalRef<jstring> answer(
      env, static_cast<jstring>(flags ? env->CallStaticObjectMethod(cls.get(), method, arg.get(),
                                                                    JNI_TRUE, JNI_TRUE)
                                      : env->CallStaticObjectMethod(cls.get(), method, arg.get())));
  if (env->ExceptionCheck()) callbackFailed(env, "The host threw an exception.");
  if (!answer.get()) callbackFailed(env, "The host answered null.");
  // The answer stays in JNI's modified UTF-8, as the scanner counts a string
  // literal's length: a character above U+FFFF is two surrogates there, so the
  // count is Java's String.length(). Text going to the host is converted
  // (toModifiedUtf8), which leaves such surrogates as they are.
  const char* chars = env->GetStringUTFChars(answer.get(), nullptr);
  if (!chars) callbackFailed(env, "GetStringUTFChars failed.");
  std::string prefix;
  try {
    prefix = chars;
  } catch (...) {
    env->ReleaseStringUTFChars(answer.get(), chars);
    throw;
  }
  env->ReleaseStringUTFChars(answer.get(), chars);
  return prefix;
}

class JavaExprHost : public ExprHost {
 public:
  std::string parseExprToPrefix(const std::string& text) const override {
    return callHost(gParseId, "parseExprToPrefix", "(Ljava/lang/String;ZZ)Ljava/lang/String;",
                    text, true);
  }
  std::string simp(const std::string& text) const override {
    return callHost(gSimpId, "simp", "(Ljava/lang/String;)Ljava/lang/String;", text, false);
  }
};

}  // namespace

void installJavaExprHost() { setExprHost(std::make_shared<JavaExprHost>()); }

}  // namespace qvarray
