#pragma once
// Error raising shared by the dense kernels (module "arrayutil").
#include "qvutil/exception.h"

namespace qvarray::detail {

inline constexpr const char* kArrayModule = "arrayutil";

}  // namespace qvarray::detail

/// Argument check of a kernel: raises "Internal_numerical_error" with the
/// kernel's sentence unless cond holds. Use before anything is changed.
#define QV_ARRAY_CHECK(cond, sentence)                                                    \
  do {                                                                                    \
    if (!(cond))                                                                          \
      throw ::qvbase::Exception(::qvarray::detail::kArrayModule, __LINE__,                \
                                "Internal_numerical_error", sentence);                    \
  } while (0)

/// Assertion of a condition only a programming error can violate.
#define QV_ARRAY_ASSERT(cond)                                                             \
  do {                                                                                    \
    if (!(cond))                                                                          \
      throw ::qvbase::Exception(::qvarray::detail::kArrayModule, __LINE__,                \
                                "QUBRIX_assertion_failure");                              \
  } while (0)
