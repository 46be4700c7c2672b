#pragma once
// qvmatrix: dense matrix operations on Vector and Matrix.
//
// Thin layer over the qvarray kernels and LAPACK wrappers (arrayutil.h) that
// picks the real or complex routine. Rules shared by every function:
// - Mixed operands: the result is complex when any operand is complex. A real
//   matrix applied to complex data works on real and imaginary parts
//   separately; a real operand of a complex matrix is promoted.
// - Inputs passed by const reference are left unchanged (the LAPACK-backed
//   functions factor a copy); outputs are resized (and their kind set) here.
// - Shape mismatches raise "Internal_numerical_error" with a sentence naming
//   the function, before anything is changed.
// - LAPACK-backed functions take the flag word of the wrappers (bit value 1
//   raises on INFO > 0, bit value 2 on INFO < 0) and return INFO. A singular
//   system solved without bit 1 gives a solution full of NaN.
#include <complex>

#include "qvarray/array.h"
#include "qvarray/export.h"
#include "qvarray/matriximpl.h"
#include "qvarray/trans.h"

namespace qvmatrix {

using dcomplex = std::complex<double>;
using qvarray::Matrix;
using qvarray::Vector;

// ---------------------------------------------------------------------------
// Vector operations

/// y += a·x.
QVARRAY_API void yPlusaMulx(Vector& y, double a, const Vector& x);
QVARRAY_API void yPlusaMulx(Vector& y, dcomplex a, const Vector& x);
/// Σ conj(x)·y for ConjTrans, Σ x·y otherwise (real vectors: the plain dot product).
QVARRAY_API dcomplex dot(const Vector& x, const Vector& y, qvarray::Trans_t t = qvarray::ConjTrans);

// ---------------------------------------------------------------------------
// Products

/// y += op(A)·x.
QVARRAY_API void yPlusAMulx(Vector& y, const Matrix& A, const Vector& x,
                            qvarray::Trans_t t = qvarray::NoTrans);
/// y = op(A)·x (y may be x).
QVARRAY_API void mul(const Matrix& A, const Vector& x, Vector& y,
                     qvarray::Trans_t t = qvarray::NoTrans);
/// C = op(A)·op(B) (C may be A or B).
QVARRAY_API void mul(const Matrix& A, const Matrix& B, Matrix& C,
                     qvarray::Trans_t ta = qvarray::NoTrans, qvarray::Trans_t tb = qvarray::NoTrans);
/// B = Aᴴ (conjugate transpose; the transpose for a real A).
QVARRAY_API void adjoint(const Matrix& A, Matrix& B);
/// B = Aᵀ (no conjugation).
QVARRAY_API void transpose(const Matrix& A, Matrix& B);

// ---------------------------------------------------------------------------
// Solves

/// Solves A·X = B in place of B (xGESV on a copy of A); A square, B with
/// A.rows() rows.
QVARRAY_API int solve(const Matrix& A, Vector& b, int flags);
QVARRAY_API int solve(const Matrix& A, Matrix& B, int flags);
/// Ainv = A⁻¹ (NaN when A is singular and flags bit 1 is clear).
QVARRAY_API int inverse(const Matrix& A, Matrix& Ainv, int flags);
/// Determinant through the LU factors (0 for a singular A).
QVARRAY_API dcomplex det(const Matrix& A);
/// Minimum-norm least-squares solution X of A·X ≈ B through the SVD (xGELSS);
/// singular values below rcond·σmax count as zero, *rank receives the
/// effective rank when given.
QVARRAY_API int leastSquares(const Matrix& A, const Matrix& B, Matrix& X, double rcond, int flags,
                             int* rank = nullptr);
QVARRAY_API int leastSquares(const Matrix& A, const Vector& b, Vector& x, double rcond, int flags,
                             int* rank = nullptr);

// ---------------------------------------------------------------------------
// Factorisations (in place where the argument is non-const)

/// LU with partial pivoting (xGETRF): A = P·L·U, ipiv 1-based as LAPACK's.
QVARRAY_API int lu(Matrix& A, qvarray::Array<int, 1>& ipiv, int flags);
/// Solves with the factors of lu (xGETRS, "N") in place of b.
QVARRAY_API int luSolve(const Matrix& LU, const qvarray::Array<int, 1>& ipiv, Vector& b,
                        int flags = 2);
/// Upper Cholesky factor R in place, A = Rᴴ·R, strictly lower triangle zeroed
/// (xPOTRF); failure with any flag raises "Input_matrix_must_be_positive_definite".
QVARRAY_API int chol(Matrix& A, int flags);
/// Thin QR: A = Q·R with Q m×k orthonormal columns and R k×n upper
/// triangular, k = min(m, n).
QVARRAY_API int qr(const Matrix& A, Matrix& Q, Matrix& R, int flags);
/// Singular values, descending (S resized to min(m, n)).
QVARRAY_API int svd(const Matrix& A, qvarray::Array<double, 1>& S, int flags);
/// Thin SVD A = U·diag(S)·VT: U m×k, VT k×n, k = min(m, n).
QVARRAY_API int svd(const Matrix& A, Matrix& U, qvarray::Array<double, 1>& S, Matrix& VT,
                    int flags);
/// Eigenvalues of a square A (w complex, in LAPACK's order). Non-convergence
/// with bit 1 raises "Iteration_in_the_QR_algorithm_failed".
QVARRAY_API int eig(const Matrix& A, Vector& w, int flags);
/// Eigenvalues and right eigenvectors (columns of V, complex, unit norm), A·V = V·diag(w).
QVARRAY_API int eig(const Matrix& A, Vector& w, Matrix& V, int flags);
/// Numerical rank: singular values above tol·σmax (tol < 0: max(m, n)·ε).
QVARRAY_API int rank(const Matrix& A, double tol = -1.0);

}  // namespace qvmatrix
