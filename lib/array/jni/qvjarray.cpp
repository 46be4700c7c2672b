// Errors of the reference-holding wrappers (qvjarray.h), out of line so that
// the header stays free of the error layer.
#include "qvarray/jni/qvjarray.h"

#include <string>

#include "qvutil/errors.h"

namespace qvarray::detail {

void raiseNullJavaArray(const char* type) {
  QV_RAISE(qvjarray, Null_Java_array, std::string("Null ") + type + ".");
}

void raiseJavaElementsFailed(const char* type) {
  QV_RAISE(jniaccess, JNI_error, std::string("No access to the elements of a ") + type + ".");
}

}  // namespace qvarray::detail
