// Native methods of JniTest.java for the Java expression host: expressions
// built by the library, whose texts go to the table-driven host class
// (tests/jni/host/com/qubrix/nativejni/util/ExprTree.java).
#include <jni.h>
#include <omp.h>

#include <exception>
#include <string>

#include "qvarray/expr/exprtree.h"
#include "qvarray/jni/jniaccess.h"

using qvbase::callFromJava;

namespace {

// fn(text) on the calling Java thread, or on an OpenMP worker that the host
// call attaches for itself.
template <class Fn>
jstring onThread(JNIEnv* env, jstring text, bool worker, Fn fn) {
  return callFromJava(env, jstring{}, [&] {
    const std::string t = qvbase::javaStringToUtf8(env, text);
    std::string out;
    std::exception_ptr failure;
#pragma omp parallel num_threads(worker ? 2 : 1)
    if (omp_get_thread_num() == (worker ? 1 : 0)) {
      try {
        out = fn(t);
      } catch (...) {
        failure = std::current_exception();
      }
    }
    if (failure) std::rethrow_exception(failure);
    return qvbase::newJavaString(env, out);
  });
}

}  // namespace

extern "C" {

JNIEXPORT jstring JNICALL Java_JniTest_exprToString(JNIEnv* env, jclass, jstring text,
                                                     jboolean worker) {
  return onThread(env, text, worker, [](const std::string& t) {
    return qvarray::ExprTree(t).toString();
  });
}

JNIEXPORT jstring JNICALL Java_JniTest_exprSimp(JNIEnv* env, jclass, jstring text) {
  return onThread(env, text, false, [](const std::string& t) {
    qvarray::ExprTree tree(t);
    tree.simp();
    return tree.toString();
  });
}

JNIEXPORT jstring JNICALL Java_JniTest_exprPrefix(JNIEnv* env, jclass, jstring text) {
  return onThread(env, text, false, [](const std::string& t) {
    return qvarray::ExprTree::parseExprToPrefix(t);
  });
}

}  // extern "C"
