#pragma once
// Error raising shared by the band matrix classes (module "bandmatrix").
#include "qvutil/exception.h"

namespace qvarray::detail {

inline constexpr const char* kBandModule = "bandmatrix";

}  // namespace qvarray::detail

/// Argument check: raises "Internal_numerical_error" with the sentence unless
/// cond holds. Use before anything is changed.
#define QV_BAND_CHECK(cond, sentence)                                                     \
  do {                                                                                    \
    if (!(cond))                                                                          \
      throw ::qvbase::Exception(::qvarray::detail::kBandModule, __LINE__,                 \
                                "Internal_numerical_error", sentence);                    \
  } while (0)
