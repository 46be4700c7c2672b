#pragma once
// qvarray kernels: level-1 vector kernels, matrix-vector and triangular
// kernels, and thin wrappers over LAPACK factorisations and solvers, for
// double and std::complex<double> elements in column-major storage.
//
// Conventions shared by every function here:
// - Argument checks come first and raise qvbase::Exception (module
//   "arrayutil") with key "Internal_numerical_error" and the kernel's own
//   sentence as detail; nothing is changed when a check fails.
// - LAPACK wrappers return LAPACK's INFO and take a flag word: bit value 1
//   raises on INFO > 0 (key "Error_in_LAPACK_call", detail naming the
//   condition, "Singular_matrix" for factorisations), bit value 2 raises on
//   INFO < 0 ("Internal_numerical_error" / "Illegal_input_values_in_LAPACK_call").
// - Wrappers size their outputs themselves and query LAPACK for workspace.
// - Matrices go to LAPACK with leading dimension size0, so a kernel may work
//   on a leading block of a larger array.
// - scale and norm use an inline loop for n <= 50 and BLAS above; copy is a
//   memory move at every length.
#include <complex>
#include <vector>

#include "qvarray/array.h"
#include "qvarray/export.h"
#include "qvarray/trans.h"

namespace qvarray {

using dcomplex = std::complex<double>;

/// Flag bits of the LAPACK wrappers.
enum LapackFlags : int {
  RaiseOnFailure = 1,  ///< INFO > 0 raises
  RaiseOnIllegal = 2,  ///< INFO < 0 raises
  RaiseAll = 3,
};

// ---------------------------------------------------------------------------
// Pointer kernels: runs of n contiguous elements; n <= 0 does nothing (dot and
// norm give 0).

QVARRAY_API double dot(const double* x, const double* y, int n);
/// Σ conj(x)·y for ConjTrans, Σ x·y otherwise.
QVARRAY_API dcomplex dot(const dcomplex* x, const dcomplex* y, int n, Trans_t t);

/// y += a·x
QVARRAY_API void yPlusaMulx(double* y, double a, const double* x, int n);
QVARRAY_API void yPlusaMulx(dcomplex* y, dcomplex a, const dcomplex* x, int n);
QVARRAY_API void yPlusaMulx(dcomplex* y, dcomplex a, const double* x, int n);

/// y += a elementwise
QVARRAY_API void yPlusa(double* y, double a, int n);
QVARRAY_API void yPlusa(dcomplex* y, dcomplex a, int n);

/// x *= a. Above 50 elements a NaN factor (for a complex factor: a NaN in
/// either part) sets every element to NaN instead of calling BLAS; below,
/// the plain multiplication propagates it.
QVARRAY_API void scale(double* x, double a, int n);
QVARRAY_API void scale(dcomplex* x, double a, int n);
QVARRAY_API void scale(dcomplex* x, dcomplex a, int n);

/// Euclidean norm.
QVARRAY_API double norm(const double* x, int n);
QVARRAY_API double norm(const dcomplex* x, int n);

/// y = x (the runs may overlap).
QVARRAY_API void copy(int n, const double* x, double* y);
QVARRAY_API void copy(int n, const dcomplex* x, dcomplex* y);

/// y = x + a; x and y may coincide.
QVARRAY_API void plus(int n, const double* x, const double& a, double* y);
QVARRAY_API void plus(int n, const dcomplex* x, const dcomplex& a, dcomplex* y);
/// y = a − x; x and y may coincide.
QVARRAY_API void minus(int n, const double& a, const double* x, double* y);
QVARRAY_API void minus(int n, const dcomplex& a, const dcomplex* x, dcomplex* y);
/// z = x·y elementwise; z may coincide with x or y.
QVARRAY_API void times(int n, const double* x, const double* y, double* z);
QVARRAY_API void times(int n, const dcomplex* x, const dcomplex* y, dcomplex* z);

/// x = x^p elementwise; integer p in −1..4 takes a fast path without pow:
/// −1: 1/x; 0: 1 (also for 0 and NaN); 1: x; 2: x·x; 3: (x·x)·x; 4: (x²)².
QVARRAY_API void pow(double* x, double p, int n);
/// The same fast paths; otherwise the real pow where an element is real and
/// positive, the complex pow elsewhere.
QVARRAY_API void pow(dcomplex* x, double p, int n);
/// Complex pow; an exponent with zero imaginary part is treated as real (above).
QVARRAY_API void pow(dcomplex* x, dcomplex p, int n);

// ---------------------------------------------------------------------------
// Array kernels: the same operations on whole arrays (lengths = count).
// Counts beyond the int range are processed in chunks of 2^30 elements.

QVARRAY_API double dot(const Array<double, 1>& x, const Array<double, 1>& y);
QVARRAY_API dcomplex dot(const Array<dcomplex, 1>& x, const Array<dcomplex, 1>& y, Trans_t t);
/// Frobenius products of two equally long matrices.
QVARRAY_API double dot(const Array<double, 2>& x, const Array<double, 2>& y);
QVARRAY_API dcomplex dot(const Array<dcomplex, 2>& x, const Array<dcomplex, 2>& y, Trans_t t);

QVARRAY_API void yPlusaMulx(Array<double, 1>& y, double a, const Array<double, 1>& x);
QVARRAY_API void yPlusaMulx(Array<dcomplex, 1>& y, dcomplex a, const Array<dcomplex, 1>& x);
QVARRAY_API void yPlusaMulx(Array<dcomplex, 1>& y, dcomplex a, const Array<double, 1>& x);

QVARRAY_API void yPlusa(Array<double, 1>& y, double a);
QVARRAY_API void yPlusa(Array<dcomplex, 1>& y, dcomplex a);

QVARRAY_API void scale(Array<double, 1>& x, double a);
QVARRAY_API void scale(Array<dcomplex, 1>& x, double a);
QVARRAY_API void scale(Array<dcomplex, 1>& x, dcomplex a);
QVARRAY_API void scale(std::vector<double>& x, double a);

QVARRAY_API double norm(const Array<double, 1>& x);
QVARRAY_API double norm(const Array<dcomplex, 1>& x);

/// Copies x's count elements into y's storage without resizing y; y must be
/// at least as long ("copy: y is shorter than x.").
QVARRAY_API void copy(const Array<double, 1>& x, Array<double, 1>& y);
QVARRAY_API void copy(const Array<dcomplex, 1>& x, Array<dcomplex, 1>& y);

QVARRAY_API void pow(Array<double, 1>& x, double p);
QVARRAY_API void pow(Array<dcomplex, 1>& x, double p);
QVARRAY_API void pow(Array<dcomplex, 1>& x, dcomplex p);

// ---------------------------------------------------------------------------
// Matrix kernels. Extents handed to BLAS must fit in an int
// ("QUBRIX_assertion_failure" otherwise). An illegal Trans_t raises
// "Internal_numerical_error" / "Illegal_input_values_in_LAPACK_call" before the
// size checks and before anything is changed.

/// y += op(A)·x on the leading m×n block of A (negative m, n: A's sizes).
QVARRAY_API void yPlusAMulx(Array<double, 1>& y, const Array<double, 2>& A,
                            const Array<double, 1>& x, Trans_t t, int m = -1, int n = -1);
QVARRAY_API void yPlusAMulx(Array<dcomplex, 1>& y, const Array<dcomplex, 2>& A,
                            const Array<dcomplex, 1>& x, Trans_t t, int m = -1, int n = -1);

/// Solves op(R)·z = x in place, R the upper (or lower) triangle of the leading
/// n×n block of A, non-unit diagonal (negative n: A.size1).
QVARRAY_API void triSolve(const Array<double, 2>& A, Array<double, 1>& x, bool upper, Trans_t t,
                          int n = -1);
QVARRAY_API void triSolve(const Array<dcomplex, 2>& A, Array<dcomplex, 1>& x, bool upper,
                          Trans_t t, int n = -1);

/// C = alpha·A·B + beta·C. C must be A.size0 × B.size1 ("matmatAMulB: Size of
/// C does not match A and B."); when beta is 0 it is resized to that shape
/// instead and its contents are not read. A.size1 ≠ B.size0 raises
/// "matmatAMulB: Inner sizes of A and B differ.". C may be A or B.
QVARRAY_API void matmatAMulB(const Array<double, 2>& A, const Array<double, 2>& B, double alpha,
                             double beta, Array<double, 2>& C);
QVARRAY_API void matmatAMulB(const Array<dcomplex, 2>& A, const Array<dcomplex, 2>& B,
                             dcomplex alpha, dcomplex beta, Array<dcomplex, 2>& C);

/// B = Aᴴ (complex) or Aᵀ (real); B is resized to A's transposed shape and
/// may be A itself.
QVARRAY_API void adjoint(const Array<double, 2>& A, Array<double, 2>& B);
QVARRAY_API void adjoint(const Array<dcomplex, 2>& A, Array<dcomplex, 2>& B);

/// Orthogonalises v against the first k columns of Q (assumed orthonormal) by
/// classical Gram–Schmidt, with a second pass when the first removes more
/// than 30 % of v's norm. h[0..k−1] receive the coefficients Qᴴ·v (both passes
/// summed), h[k] the norm of the remainder, and v is normalised when that norm
/// is non-zero. v must have Q.size0 elements, h at least k + 1, and
/// 0 ≤ k ≤ Q.size1 ("gramSchmidt: Size of Q, v or h does not match k.").
/// Returns h[k].
QVARRAY_API double gramSchmidt(const Array<double, 2>& Q, int k, Array<double, 1>& v,
                               Array<double, 1>& h);
QVARRAY_API double gramSchmidt(const Array<dcomplex, 2>& Q, int k, Array<dcomplex, 1>& v,
                               Array<dcomplex, 1>& h);

/// Givens update of column k of a Hessenberg matrix, as GMRES needs it: applies
/// the stored rotations 0..k−1 (c, s) to h[0..k], computes rotation k (LAPACK
/// xLARTG convention, c real) that zeroes h[k+1], stores it in c[k], s[k],
/// applies it to h and to g[k], g[k+1]. Returns |g[k+1]|, the new residual
/// norm. h and g need k + 2 elements, c and s k + 1 ("givensRot: Size of h,
/// c, s or g less than required by k.").
QVARRAY_API double givensRot(Array<double, 1>& h, int k, Array<double, 1>& c, Array<double, 1>& s,
                             Array<double, 1>& g);
QVARRAY_API double givensRot(Array<dcomplex, 1>& h, int k, Array<double, 1>& c,
                             Array<dcomplex, 1>& s, Array<dcomplex, 1>& g);

// ---------------------------------------------------------------------------
// LAPACK wrappers. Unless stated, A is overwritten as LAPACK overwrites it.

/// LU factorisation with partial pivoting (xGETRF); ipiv resized to
/// min(size0, size1). Only INFO < 0 can raise.
QVARRAY_API int lu(Array<double, 2>& A, Array<int, 1>& ipiv, int flags);
QVARRAY_API int lu(Array<dcomplex, 2>& A, Array<int, 1>& ipiv, int flags);

/// LU of a square A with a pre-sized ipiv; any non-zero INFO raises
/// "Internal_numerical_error", so the INFO returned is always 0.
QVARRAY_API int linsolvdecomp(Array<double, 2>& A, Array<int, 1>& ipiv);
QVARRAY_API int linsolvdecomp(Array<dcomplex, 2>& A, Array<int, 1>& ipiv);

/// Solves with the factors of lu/linsolvdecomp (xGETRS, "N"); the right-hand
/// sides are the trailing dimensions of B. Non-zero INFO raises
/// "Internal_numerical_error" when flags bit 2 is set; the 3-D form always raises.
QVARRAY_API int linsolvsolve(const Array<double, 2>& LU, const Array<int, 1>& ipiv,
                             Array<double, 1>& B, int flags = RaiseOnIllegal);
QVARRAY_API int linsolvsolve(const Array<double, 2>& LU, const Array<int, 1>& ipiv,
                             Array<double, 2>& B, int flags = RaiseOnIllegal);
QVARRAY_API void linsolvsolve(const Array<double, 2>& LU, const Array<int, 1>& ipiv,
                              Array<double, 3>& B);
QVARRAY_API int linsolvsolve(const Array<dcomplex, 2>& LU, const Array<int, 1>& ipiv,
                             Array<dcomplex, 1>& B, int flags = RaiseOnIllegal);
QVARRAY_API int linsolvsolve(const Array<dcomplex, 2>& LU, const Array<int, 1>& ipiv,
                             Array<dcomplex, 2>& B, int flags = RaiseOnIllegal);
QVARRAY_API void linsolvsolve(const Array<dcomplex, 2>& LU, const Array<int, 1>& ipiv,
                              Array<dcomplex, 3>& B);

/// Solves A·X = B (xGESV): A is overwritten by its LU factors, B by X. A
/// singular A without flags bit 1 gives a B full of NaN and INFO > 0.
QVARRAY_API int linsolv(Array<double, 2>& A, Array<double, 1>& B, int flags);
QVARRAY_API int linsolv(Array<double, 2>& A, Array<double, 2>& B, int flags);
QVARRAY_API int linsolv(Array<dcomplex, 2>& A, Array<dcomplex, 1>& B, int flags);
QVARRAY_API int linsolv(Array<dcomplex, 2>& A, Array<dcomplex, 2>& B, int flags);

/// Upper Cholesky factor in place (xPOTRF, "U"), A = Rᴴ·R; the strictly lower
/// triangle is zeroed. INFO ≠ 0 with any flag raises
/// "Input_matrix_must_be_positive_definite".
QVARRAY_API int chol(Array<double, 2>& A, int flags);
QVARRAY_API int chol(Array<dcomplex, 2>& A, int flags);

/// QR factorisation (xGEQRF); tau resized to min(m, n).
QVARRAY_API int qr(Array<double, 2>& A, Array<double, 1>& tau, int flags);
QVARRAY_API int qr(Array<dcomplex, 2>& A, Array<dcomplex, 1>& tau, int flags);
/// QR with column pivoting (xGEQP3): A·P = Q·R, jpvt resized to n and holding
/// 1-based column indices; non-zero entries of jpvt on entry are left as LAPACK
/// treats them (moved to the front) only when jpvt already has n elements.
QVARRAY_API int qr(Array<double, 2>& A, Array<double, 1>& tau, Array<int, 1>& jpvt, int flags);
QVARRAY_API int qr(Array<dcomplex, 2>& A, Array<dcomplex, 1>& tau, Array<int, 1>& jpvt, int flags);
/// Pivoted QR keeping only R (upper triangle of A) and the permutation; raises
/// on every failure.
QVARRAY_API int qr(Array<double, 2>& A, Array<int, 1>& jpvt);
QVARRAY_API int qr(Array<dcomplex, 2>& A, Array<int, 1>& jpvt);

/// Forms Q from a QR factorisation (xORGQR / xUNGQR) in place: A becomes the
/// m × min(m, n) matrix with orthonormal columns.
QVARRAY_API int q(Array<double, 2>& A, const Array<double, 1>& tau, int flags);
QVARRAY_API int q(Array<dcomplex, 2>& A, const Array<dcomplex, 1>& tau, int flags);

/// Least squares or minimum-norm solution of full-rank A·X = B (xGELS, "N").
/// B must have max(m, n) rows; X is returned in its first n rows.
QVARRAY_API int leastSquaresQR(Array<double, 2>& A, Array<double, 2>& B, int flags);
QVARRAY_API int leastSquaresQR(Array<dcomplex, 2>& A, Array<dcomplex, 2>& B, int flags);
/// As leastSquaresQR, but B has m rows and is resized to the n×nrhs solution.
QVARRAY_API int leastSquaresQRResize(Array<double, 2>& A, Array<double, 2>& B, int flags);
QVARRAY_API int leastSquaresQRResize(Array<dcomplex, 2>& A, Array<dcomplex, 2>& B, int flags);

/// Minimum-norm least-squares solution through the SVD (xGELSS): singular
/// values below rcond·σmax count as zero. A and B are left unchanged; X is
/// resized to n × nrhs. The effective rank is stored in *rank when given.
QVARRAY_API int leastSquares(const Array<double, 2>& A, const Array<double, 2>& B,
                             Array<double, 2>& X, double rcond, int flags, int* rank = nullptr);
QVARRAY_API int leastSquares(const Array<dcomplex, 2>& A, const Array<dcomplex, 2>& B,
                             Array<dcomplex, 2>& X, double rcond, int flags, int* rank = nullptr);

/// Singular value decomposition A = U·Σ·Vᴴ (xGESVD). S is resized to
/// min(m, n); U, VT to m×m / n×n for job 'A', m×k / k×n for job 'S'
/// (k = min(m, n)), left alone for 'N'. A is destroyed.
/// Non-convergence with flag bit 1 raises "DBDSQR_did_not_converge"
/// ("ZBDSQR_did_not_converge") with detail ("Unconverged_superdiagonals", INFO).
QVARRAY_API int svd(char jobu, char jobvt, Array<double, 2>& A, Array<double, 2>& U,
                    Array<double, 1>& S, Array<double, 2>& VT, int flags);
QVARRAY_API int svd(char jobu, char jobvt, Array<dcomplex, 2>& A, Array<dcomplex, 2>& U,
                    Array<double, 1>& S, Array<dcomplex, 2>& VT, int flags);
/// Singular values only.
QVARRAY_API int svd(Array<double, 2>& A, Array<double, 1>& S, int flags);
QVARRAY_API int svd(Array<dcomplex, 2>& A, Array<double, 1>& S, int flags);

/// Numerical rank: the number of singular values above tol·σmax (tol < 0:
/// max(m, n)·ε). A is not changed. sigmaMax receives σmax.
QVARRAY_API int rank(const Array<double, 2>& A, double tol);
QVARRAY_API int rank(const Array<double, 2>& A, double tol, double& sigmaMax);
QVARRAY_API int rank(const Array<dcomplex, 2>& A, double tol);
QVARRAY_API int rank(const Array<dcomplex, 2>& A, double tol, double& sigmaMax);

/// Selected eigenvalues (and eigenvectors for jobz 'V') of a real symmetric
/// n×n matrix in packed storage (DSPEVX; range 'A', 'V' or 'I'). AP is
/// destroyed; W is resized to n, Z to n×n (jobz 'V'), ifail to n; m receives
/// the number found (W[0..m−1], ascending).
QVARRAY_API int eig(char jobz, char range, char uplo, int n, Array<double, 1>& AP, double vl,
                    double vu, int il, int iu, double abstol, int& m, Array<double, 1>& W,
                    Array<double, 2>& Z, Array<int, 1>& ifail, int flags);
/// All eigenvalues of a packed symmetric matrix (upper triangle), ascending; W resized to n.
QVARRAY_API int eig(int n, Array<double, 1>& AP, Array<double, 1>& W, int flags);

/// Eigenvalues wr + i·wi and optional left/right eigenvectors (xGEEV, job
/// 'N' or 'V'); VL/VR resized to n×n for 'V'. A is destroyed.
QVARRAY_API int eig(char jobvl, char jobvr, Array<double, 2>& A, Array<double, 1>& wr,
                    Array<double, 1>& wi, Array<double, 2>& VL, Array<double, 2>& VR, int flags);
QVARRAY_API int eig(char jobvl, char jobvr, Array<dcomplex, 2>& A, Array<dcomplex, 1>& w,
                    Array<dcomplex, 2>& VL, Array<dcomplex, 2>& VR, int flags);
/// Eigenvalues only.
QVARRAY_API int eig(Array<double, 2>& A, Array<double, 1>& wr, Array<double, 1>& wi, int flags);
QVARRAY_API int eig(Array<dcomplex, 2>& A, Array<dcomplex, 1>& w, int flags);

/// Generalised eigenproblem A·v = λ·B·v (xGGEV): λ = (alphar + i·alphai)/beta
/// (real) or alpha/beta (complex). A and B are destroyed.
QVARRAY_API int eig(char jobvl, char jobvr, Array<double, 2>& A, Array<double, 2>& B,
                    Array<double, 1>& alphar, Array<double, 1>& alphai, Array<double, 1>& beta,
                    Array<double, 2>& VL, Array<double, 2>& VR, int flags);
QVARRAY_API int eig(char jobvl, char jobvr, Array<dcomplex, 2>& A, Array<dcomplex, 2>& B,
                    Array<dcomplex, 1>& alpha, Array<dcomplex, 1>& beta, Array<dcomplex, 2>& VL,
                    Array<dcomplex, 2>& VR, int flags);
/// Generalised eigenvalues only.
QVARRAY_API int eig(Array<double, 2>& A, Array<double, 2>& B, Array<double, 1>& alphar,
                    Array<double, 1>& alphai, Array<double, 1>& beta, int flags);
QVARRAY_API int eig(Array<dcomplex, 2>& A, Array<dcomplex, 2>& B, Array<dcomplex, 1>& alpha,
                    Array<dcomplex, 1>& beta, int flags);
/// Generalised eigenproblem with balancing (DGGEVX, balanc 'N', 'P', 'S' or
/// 'B'), right eigenvectors for jobvr 'V'.
QVARRAY_API int eig(Array<double, 2>& A, Array<double, 2>& B, char balanc, char jobvr,
                    Array<double, 1>& alphar, Array<double, 1>& alphai, Array<double, 1>& beta,
                    Array<double, 2>& VR, int flags);

/// Hessenberg form A = Q·H·Qᴴ (xGEHRD, then xORGHR / xUNGHR when wantQ): A
/// becomes H (zeros below the subdiagonal), Q is resized to n×n when wanted.
QVARRAY_API int hess(Array<double, 2>& A, Array<double, 2>& Q, bool wantQ, int flags = RaiseAll);
QVARRAY_API int hess(Array<dcomplex, 2>& A, Array<dcomplex, 2>& Q, bool wantQ,
                     int flags = RaiseAll);

/// Hessenberg–triangular form of the pencil (A, B): Qᴴ·A·Z = H, Qᴴ·B·Z = T
/// (B triangularised by QR, then xGGHRD). Q and Z are resized to n×n.
QVARRAY_API int generalizedHess(Array<double, 2>& A, Array<double, 2>& B, Array<double, 2>& Q,
                                Array<double, 2>& Z, int flags = RaiseAll);
QVARRAY_API int generalizedHess(Array<dcomplex, 2>& A, Array<dcomplex, 2>& B,
                                Array<dcomplex, 2>& Q, Array<dcomplex, 2>& Z,
                                int flags = RaiseAll);

/// Schur form A = Q·T·Qᴴ (xGEHRD + xORGHR + xHSEQR): A becomes T (real:
/// quasi-triangular with 2×2 blocks for complex pairs). Non-convergence with
/// bit 1 raises "Iteration_in_the_QR_algorithm_failed".
QVARRAY_API int schur(Array<double, 2>& A, Array<double, 2>& Q, bool wantQ, int flags = RaiseAll);
QVARRAY_API int schur(Array<dcomplex, 2>& A, Array<dcomplex, 2>& Q, bool wantQ,
                      int flags = RaiseAll);

/// Reorders a Schur factorisation (xTRSEN, job 'N', compq 'V') so that the
/// eigenvalues with select[i] ≠ 0 lead; T and Q are updated in place.
QVARRAY_API int ordschur(Array<double, 2>& T, Array<double, 2>& Q, const Array<int, 1>& select,
                         int flags = RaiseAll);
QVARRAY_API int ordschur(Array<dcomplex, 2>& T, Array<dcomplex, 2>& Q,
                         const Array<int, 1>& select, int flags = RaiseAll);

/// Roots of c[0]·x^d + c[1]·x^(d−1) + … + c[d] (leading zeros ignored) as
/// the eigenvalues of the companion matrix; outputs resized to the number of
/// roots.
QVARRAY_API int roots(const Array<double, 1>& c, Array<double, 1>& re, Array<double, 1>& im,
                      int flags);
QVARRAY_API int roots(const Array<dcomplex, 1>& c, Array<dcomplex, 1>& r, int flags);

/// Band LU (xGBTRF) of the n×n matrix in LAPACK band storage AB (leading
/// dimension AB.size0 ≥ 2·kl + ku + 1, AB.size1 ≥ n, asserted). ipiv grows
/// to n when shorter and is never shrunk.
QVARRAY_API int luBand(int n, int kl, int ku, Array<double, 2>& AB, Array<int, 1>& ipiv,
                       int flags);
QVARRAY_API int luBand(int n, int kl, int ku, Array<dcomplex, 2>& AB, Array<int, 1>& ipiv,
                       int flags);
/// Solves with the factors of luBand (xGBTRS, "N"); INFO is not examined.
QVARRAY_API void backSubstBand(int n, int kl, int ku, const Array<double, 2>& AB,
                               const Array<int, 1>& ipiv, Array<double, 1>& b);
QVARRAY_API void backSubstBand(int n, int kl, int ku, const Array<double, 2>& AB,
                               const Array<int, 1>& ipiv, Array<double, 2>& b);
QVARRAY_API void backSubstBand(int n, int kl, int ku, const Array<dcomplex, 2>& AB,
                               const Array<int, 1>& ipiv, Array<dcomplex, 1>& b);
QVARRAY_API void backSubstBand(int n, int kl, int ku, const Array<dcomplex, 2>& AB,
                               const Array<int, 1>& ipiv, Array<dcomplex, 2>& b);

}  // namespace qvarray
