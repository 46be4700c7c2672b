#pragma once
// Helpers shared by the source files of Sparse.
#include <complex>

#include "qvarray/sparse.h"
#include "qvutil/exception.h"

namespace qvarray {

namespace sparsedetail {
inline constexpr const char* kModule = "sparse";
}  // namespace sparsedetail

template <class F>
decltype(auto) Sparse::visit(F&& f) const {
  if (real_) return f(static_cast<const dstore&>(*dsp_));
  return f(static_cast<const zstore&>(*zsp_));
}

template <class F>
decltype(auto) Sparse::visitMutable(F&& f) {
  clearAuxData();
  if (real_) {
    uniqueD();
    return f(*dsp_);
  }
  uniqueZ();
  return f(*zsp_);
}

}  // namespace qvarray

/// Raises qvbase::Exception(module "sparse", line, key, details...).
#define QV_SPARSE_THROW(...) \
  throw ::qvbase::Exception(::qvarray::sparsedetail::kModule, __LINE__, __VA_ARGS__)
