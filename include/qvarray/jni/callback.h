#pragma once
// Callbacks into the Java host during a long native operation: the run's
// cancellation and its progress, from any thread of the operation.
//
// The host passes an object with the methods
//   boolean isCancelled()          polled by the operation
//   void    progress(double done)  the fraction done, 0 to 1
// The manager keeps a global reference to it and the two method IDs, looked
// up once when it is made (on the Java thread of the native call). A call
// from a thread that the JVM does not know (an OpenMP worker) attaches that
// thread for the call and detaches it afterwards; a Java thread stays as it
// is. Once the host has answered true, isCancelled() answers true without
// asking again.
//
// Errors (module "callback"): "JNI_error" when the object lacks a method (or
// is null); "Java_exception_in_callback" when a host method throws, with the
// method's name (the Java exception is cleared: on a worker thread nobody
// else would see it).
#include <jni.h>

#include <atomic>

#include "qvutil/runinfo.h"

namespace qvarray {

class CallbackManager : public qvutil::RunInfo {
 public:
  /// `host`: the host's object (see above); env: the calling Java thread's.
  CallbackManager(JNIEnv* env, jobject host);
  ~CallbackManager() override;
  CallbackManager(const CallbackManager&) = delete;
  CallbackManager& operator=(const CallbackManager&) = delete;

  /// Asks the host (any thread).
  bool isCancelled() const override;
  /// Raises qvbase::CancelException ("Operation_cancelled") when cancelled.
  void checkCancelled() const;
  /// Tells the host the fraction done (any thread).
  void progress(double done) const;

 private:
  jobject host_ = nullptr;  // global reference
  jmethodID isCancelledId_ = nullptr;
  jmethodID progressId_ = nullptr;
  mutable std::atomic<bool> hostCancelled_{false};
};

}  // namespace qvarray
