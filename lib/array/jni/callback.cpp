// The callback manager (callback.h): cached method IDs, one global reference,
// and the thread attachment of each call.
#include "qvarray/jni/callback.h"

#include "qvarray/jni/jniaccess.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

// Raises "Java_exception_in_callback" when the host method just called threw.
void checkHostException(JNIEnv* env, const char* method) {
  if (!env->ExceptionCheck()) return;
  env->ExceptionClear();
  QV_RAISE(callback, Java_exception_in_callback, qvbase::DetailPairs{{"Name", method}});
}

}  // namespace

CallbackManager::CallbackManager(JNIEnv* env, jobject host) {
  if (!host) QV_RAISE(callback, JNI_error, "Null callback object.");
  qvbase::LocalRef<jclass> cls(env, env->GetObjectClass(host));
  isCancelledId_ = env->GetMethodID(cls.get(), "isCancelled", "()Z");
  progressId_ = isCancelledId_ ? env->GetMethodID(cls.get(), "progress", "(D)V") : nullptr;
  if (!progressId_) {
    env->ExceptionClear();  // NoSuchMethodError: said by the key instead
    QV_RAISE(callback, JNI_error, "Callback object lacks isCancelled()Z or progress(D)V.");
  }
  host_ = env->NewGlobalRef(host);
  if (!host_) QV_RAISE(callback, JNI_error, "NewGlobalRef failed.");
}

CallbackManager::~CallbackManager() {
  try {
    qvutil::AttachThread thread;
    thread.env()->DeleteGlobalRef(host_);
  } catch (...) {
    // No VM any more: the reference went with it.
  }
}

bool CallbackManager::isCancelled() const {
  if (RunInfo::isCancelled() || hostCancelled_.load(std::memory_order_relaxed)) return true;
  qvutil::AttachThread thread;
  JNIEnv* env = thread.env();
  const bool cancelled = env->CallBooleanMethod(host_, isCancelledId_) == JNI_TRUE;
  checkHostException(env, "isCancelled");
  // Remembered, so that later polls need not ask the host.
  if (cancelled) hostCancelled_.store(true, std::memory_order_relaxed);
  return cancelled;
}

void CallbackManager::checkCancelled() const {
  if (isCancelled()) qvbase::raiseCancel(qvbase::ErrModule::callback, __LINE__);
}

void CallbackManager::progress(double done) const {
  qvutil::AttachThread thread;
  JNIEnv* env = thread.env();
  env->CallVoidMethod(host_, progressId_, static_cast<jdouble>(done));
  checkHostException(env, "progress");
}

}  // namespace qvarray
