#pragma once
// The unchecked product layer below the Vector functions of
// sparseproducts.h: raw vector views, the serial product over operand types,
// and the parallel one. Also used by SparseOperator.
#include <complex>
#include <cstddef>

#include "qvarray/sparse/sparse.h"
#include "qvarray/trans.h"

namespace qvarray::spmv {

/// A read-only vector: real (d) or complex (z) as `complex` says.
struct ConstVec {
  const double* d = nullptr;
  const std::complex<double>* z = nullptr;
  size_t n = 0;
  bool complex = false;
};

/// A writable vector.
struct MutVec {
  double* d = nullptr;
  std::complex<double>* z = nullptr;
  size_t n = 0;
  bool complex = false;
};

enum class Path { Select, Serial, Parallel };

/// y ±= op(A)·x without checks: the lengths fit (or A is partial), y is
/// complex when A or x is, and x and y do not overlap. Select takes the
/// parallel path when A has ≥ 10000 non-zeros and more than one thread is
/// available.
void addProduct(const Sparse& A, const ConstVec& x, const MutVec& y, Trans_t t, bool minus,
                Path path);

/// The two paths (t already mapped 2 → 1 for real storage).
void serialProduct(const Sparse& A, const ConstVec& x, const MutVec& y, Trans_t t, bool minus);
void parallelProduct(const Sparse& A, const ConstVec& x, const MutVec& y, Trans_t t, bool minus);

}  // namespace qvarray::spmv
