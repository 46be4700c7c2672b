// Matrix kernels: y += op(A)·x, triangular solves, C = alpha·A·B + beta·C and
// the (conjugate) transpose.
//
// Matrices go to BLAS with leading dimension size0, so the kernels that take
// m and n work on a leading block of a larger array. The transposition
// selector is validated (blas::trans) before the size checks, because which
// sizes are needed depends on it.
#include <algorithm>
#include <utility>

#include "backend/blas.h"
#include "qvarray/arrayutil.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

using blas::leadingDim;
using blas::toInt;

double conjugate(double v) { return v; }
dcomplex conjugate(dcomplex v) { return std::conj(v); }

template <class T>
void yPlusAMulxImpl(Array<T, 1>& y, const Array<T, 2>& A, const Array<T, 1>& x, Trans_t t, int m,
                    int n) {
  (void)blas::trans<T>(t);
  if (m < 0) m = toInt(A.sizes[0]);
  if (n < 0) n = toInt(A.sizes[1]);
  const size_t um = static_cast<size_t>(m), un = static_cast<size_t>(n);
  QV_CHECK(A.sizes[0] >= um && A.sizes[1] >= un, arrayutil, Internal_numerical_error,
           "yPlusAMulx: Size of A less than required by m and n.");
  const bool plain = t == NoTrans;
  QV_CHECK(y.count >= (plain ? um : un) && x.count >= (plain ? un : um), arrayutil,
           Internal_numerical_error, "yPlusAMulx: Size of x or y less than required by m and n.");
  blas::gemv(t, m, n, T(1), A.data, leadingDim(A.sizes[0]), x.data, 1, T(1), y.data, 1);
}

template <class T>
void triSolveImpl(const Array<T, 2>& A, Array<T, 1>& x, bool upper, Trans_t t, int n) {
  (void)blas::trans<T>(t);
  if (n < 0) n = toInt(A.sizes[1]);
  const size_t un = static_cast<size_t>(n);
  QV_CHECK(A.sizes[0] >= un && A.sizes[1] >= un && x.count >= un, arrayutil,
           Internal_numerical_error, "triSolve: Size of A or x is less than n.");
  blas::trsv(upper, t, false, n, A.data, leadingDim(A.sizes[0]), x.data, 1);
}

template <class T>
void matmatImpl(const Array<T, 2>& A, const Array<T, 2>& B, T alpha, T beta, Array<T, 2>& C) {
  QV_CHECK(A.sizes[1] == B.sizes[0], arrayutil, Internal_numerical_error,
           "matmatAMulB: Inner sizes of A and B differ.");
  if (beta != T(0))
    QV_CHECK(C.sizes[0] == A.sizes[0] && C.sizes[1] == B.sizes[1], arrayutil,
             Internal_numerical_error, "matmatAMulB: Size of C does not match A and B.");
  if (&C == &A || &C == &B) {
    // BLAS must not write into its own input: work on a copy.
    Array<T, 2> product;
    if (beta != T(0)) product = C;
    matmatImpl(A, B, alpha, beta, product);
    C = std::move(product);
    return;
  }
  const int m = toInt(A.sizes[0]), n = toInt(B.sizes[1]), k = toInt(A.sizes[1]);
  if (beta == T(0)) C.resize(A.sizes[0], B.sizes[1]);
  blas::gemm(NoTrans, NoTrans, m, n, k, alpha, A.data, leadingDim(A.sizes[0]), B.data,
             leadingDim(B.sizes[0]), beta, C.data, leadingDim(C.sizes[0]));
}

// B = conj(A)ᵀ, tile by tile so that both the reads and the writes stay in cache.
template <class T>
void adjointImpl(const Array<T, 2>& A, Array<T, 2>& B) {
  if (&A == &B) {
    Array<T, 2> result;
    adjointImpl(A, result);
    B = std::move(result);
    return;
  }
  constexpr size_t kTile = 32;
  const size_t rows = A.sizes[0], cols = A.sizes[1];
  B.resize(cols, rows);
  for (size_t j0 = 0; j0 < cols; j0 += kTile) {
    const size_t j1 = std::min(cols, j0 + kTile);
    for (size_t i0 = 0; i0 < rows; i0 += kTile) {
      const size_t i1 = std::min(rows, i0 + kTile);
      for (size_t j = j0; j < j1; ++j)
        for (size_t i = i0; i < i1; ++i) B.data[j + i * cols] = conjugate(A.data[i + j * rows]);
    }
  }
}

}  // namespace

void yPlusAMulx(Array<double, 1>& y, const Array<double, 2>& A, const Array<double, 1>& x,
                Trans_t t, int m, int n) {
  yPlusAMulxImpl(y, A, x, t, m, n);
}

void yPlusAMulx(Array<dcomplex, 1>& y, const Array<dcomplex, 2>& A, const Array<dcomplex, 1>& x,
                Trans_t t, int m, int n) {
  yPlusAMulxImpl(y, A, x, t, m, n);
}

void triSolve(const Array<double, 2>& A, Array<double, 1>& x, bool upper, Trans_t t, int n) {
  triSolveImpl(A, x, upper, t, n);
}

void triSolve(const Array<dcomplex, 2>& A, Array<dcomplex, 1>& x, bool upper, Trans_t t, int n) {
  triSolveImpl(A, x, upper, t, n);
}

void matmatAMulB(const Array<double, 2>& A, const Array<double, 2>& B, double alpha, double beta,
                 Array<double, 2>& C) {
  matmatImpl(A, B, alpha, beta, C);
}

void matmatAMulB(const Array<dcomplex, 2>& A, const Array<dcomplex, 2>& B, dcomplex alpha,
                 dcomplex beta, Array<dcomplex, 2>& C) {
  matmatImpl(A, B, alpha, beta, C);
}

void adjoint(const Array<double, 2>& A, Array<double, 2>& B) { adjointImpl(A, B); }
void adjoint(const Array<dcomplex, 2>& A, Array<dcomplex, 2>& B) { adjointImpl(A, B); }

}  // namespace qvarray
