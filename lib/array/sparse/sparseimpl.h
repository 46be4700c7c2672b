#pragma once
// Helpers shared by the source files of Sparse.
#include <complex>

#include "qvarray/sparse/sparse.h"
#include "qvutil/exception.h"

namespace qvarray {

namespace sparsedetail {}  // namespace sparsedetail

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
