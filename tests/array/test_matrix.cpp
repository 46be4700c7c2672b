#include <gtest/gtest.h>

#include <cmath>

#include "qvarray/matriximpl.h"
#include "qvarray/matrixutil.h"
#include "qvtest.h"
#include "qvutil/numeric.h"

using qvarray::ConjTrans;
using qvarray::NoTrans;
using qvarray::Trans;
using qvarray::Trans_t;
using dcomplex = std::complex<double>;

namespace {

Matrix randomMatrix(size_t m, size_t n, bool real, qvtest::Rng& rng) {
  Matrix A(m, n);
  if (!real) A.makeComplex();
  for (size_t j = 0; j < n; ++j)
    for (size_t i = 0; i < m; ++i) A.set(i, j, real ? dcomplex(rng.real()) : rng.complex());
  return A;
}

Vector randomVector(size_t n, bool real, qvtest::Rng& rng) {
  Vector v(n);
  if (!real) v.makeComplex();
  for (size_t i = 0; i < n; ++i) v.set(i, real ? dcomplex(rng.real()) : rng.complex());
  return v;
}

// op(A)(i, j) by the definition of the selector.
dcomplex opAt(const Matrix& A, Trans_t t, size_t i, size_t j) {
  if (t == NoTrans) return A.get(i, j);
  return t == Trans ? A.get(j, i) : std::conj(A.get(j, i));
}

double maxDiff(const Matrix& A, const Matrix& B) {
  EXPECT_EQ(A.rows(), B.rows());
  EXPECT_EQ(A.cols(), B.cols());
  double d = 0.0;
  for (size_t j = 0; j < A.cols(); ++j)
    for (size_t i = 0; i < A.rows(); ++i) d = std::max(d, std::abs(A.get(i, j) - B.get(i, j)));
  return d;
}

double maxDiff(const Vector& a, const Vector& b) {
  EXPECT_EQ(a.size(), b.size());
  double d = 0.0;
  for (size_t i = 0; i < a.size(); ++i) d = std::max(d, std::abs(a.get(i) - b.get(i)));
  return d;
}

}  // namespace

// ---------------------------------------------------------------------------
// Storage

TEST(DenseStorage, RealToComplexAndBackKeepsValues) {
  Vector v(std::vector<double>{1.0, -2.0, 3.5});
  const double* before = v.getdArr().data;
  EXPECT_TRUE(v.isReal());
  EXPECT_EQ(v.getdArr().data, before) << "storage is handed out without copying";
  v.makeComplex();
  EXPECT_FALSE(v.isReal());
  EXPECT_EQ(v.getdArr().count, 0u) << "only one storage is in use";
  EXPECT_EQ(v.getzArr()[1], dcomplex(-2.0, 0.0));
  EXPECT_TRUE(v.compact()) << "all imaginary parts zero: back to real";
  EXPECT_EQ(v.d(2), 3.5);

  // Storing a value with an imaginary part switches to complex on demand.
  v.set(0, dcomplex(1.0, 1.0));
  EXPECT_FALSE(v.isReal());
  EXPECT_FALSE(v.compact());
  v.makeReal();
  EXPECT_EQ(v.get(0), dcomplex(1.0, 0.0));
  EXPECT_EQ(v.size(), 3u);
}

TEST(DenseStorage, CopiesAreDeepAndResizeKeepsOrZeroes) {
  qvtest::Rng rng;
  Matrix A = randomMatrix(2, 3, false, rng);
  Matrix B = A;
  B.set(0, 0, 5.0);
  EXPECT_NE(A.get(0, 0), B.get(0, 0));
  EXPECT_NE(A.getzArr().data, B.getzArr().data);

  const dcomplex a10 = A.get(1, 0);
  A.resize(3, 2);  // same count: values kept, reinterpreted column-major
  EXPECT_EQ(A.rows(), 3u);
  EXPECT_EQ(A.getzArr().strides[1], 3u);
  EXPECT_EQ(A.get(1, 0), a10);
  A.resize(4, 4);
  EXPECT_FALSE(A.isReal());
  EXPECT_EQ(A.normFro(), 0.0);
  A.resize(2, 2, true);
  EXPECT_TRUE(A.isReal());

  Matrix I = Matrix::identity(3);
  EXPECT_EQ(I.normFro(), std::sqrt(3.0));
  EXPECT_EQ(I.get(2, 2), 1.0);
  EXPECT_EQ(I.get(1, 2), 0.0);
}

TEST(DenseStorage, Matrix3SlicesRoundTrip) {
  qvtest::Rng rng;
  Matrix3 M(3, 2, 4);
  const Matrix S = randomMatrix(3, 2, false, rng);
  M.setSlice(2, S);
  EXPECT_FALSE(M.isReal());
  EXPECT_EQ(maxDiff(M.slice(2), S), 0.0);
  EXPECT_EQ(M.slice(0).normFro(), 0.0);
  EXPECT_EQ(M.get(1, 1, 2), S.get(1, 1));
  EXPECT_EQ(&M.z(1, 1, 2), &M.getzArr()(1, 1, 2));
  qvtest::expectThrowKey([&] { M.setSlice(0, Matrix(2, 2)); }, "Internal_numerical_error",
                         "setSlice: Size of A differs from the slice.");
  qvtest::expectThrowKey([&] { (void)M.slice(4); }, "Internal_numerical_error",
                         "slice: Slice index out of range.");
}

// ---------------------------------------------------------------------------
// Algebra against element-by-element definitions

TEST(DenseAlgebra, ScaledSumsNormsAndDot) {
  qvtest::Rng rng(11);
  Vector x = randomVector(60, true, rng), y = randomVector(60, false, rng);
  const Vector y0 = y;
  qvmatrix::yPlusaMulx(y, dcomplex(0.5, -1.0), x);
  for (size_t i = 0; i < 60; ++i)
    EXPECT_NEAR(std::abs(y.get(i) - (y0.get(i) + dcomplex(0.5, -1.0) * x.get(i))), 0.0, 1e-15);

  Vector r = x;  // real stays real with a real factor
  qvmatrix::yPlusaMulx(r, 2.0, x);
  EXPECT_TRUE(r.isReal());
  EXPECT_NEAR(maxDiff(r, Vector(x) *= 3.0), 0.0, 1e-15);

  dcomplex ref = 0.0;
  for (size_t i = 0; i < 60; ++i) ref += std::conj(y.get(i)) * x.get(i);
  EXPECT_NEAR(std::abs(qvmatrix::dot(y, x) - ref), 0.0, 1e-13);
  EXPECT_NEAR(qvmatrix::dot(y, y).real(), y.norm() * y.norm(), 1e-12);
  double maxModulus = 0.0, sumModulus = 0.0;
  for (size_t i = 0; i < 60; ++i) {
    maxModulus = std::max(maxModulus, std::abs(y.get(i)));
    sumModulus += std::abs(y.get(i));
  }
  EXPECT_EQ(y.normInf(), maxModulus);
  EXPECT_NEAR(y.norm1(), sumModulus, 1e-13);

  Vector s = x;
  s += y;
  s -= y;
  EXPECT_FALSE(s.isReal());
  EXPECT_NEAR(maxDiff(s, x), 0.0, 1e-15);
  qvtest::expectThrowKey([&] { s += Vector(3); }, "Internal_numerical_error",
                         "Vector: x and y does not have the same length.");
  qvtest::expectThrowKey([&] { (void)qvmatrix::dot(s, Vector(3)); }, "Internal_numerical_error",
                         "dot: x and y does not have the same length.");
}

TEST(DenseAlgebra, ProductsWithEverySelectorAndKind) {
  qvtest::Rng rng(5);
  for (bool realA : {true, false})
    for (bool realB : {true, false})
      for (Trans_t ta : {NoTrans, Trans, ConjTrans})
        for (Trans_t tb : {NoTrans, Trans, ConjTrans}) {
          const Matrix A = ta == NoTrans ? randomMatrix(4, 3, realA, rng) : randomMatrix(3, 4, realA, rng);
          const Matrix B = tb == NoTrans ? randomMatrix(3, 5, realB, rng) : randomMatrix(5, 3, realB, rng);
          Matrix C;
          qvmatrix::mul(A, B, C, ta, tb);
          EXPECT_EQ(C.isReal(), realA && realB);
          Matrix ref(4, 5, dcomplex(0.0, 1.0));
          for (size_t i = 0; i < 4; ++i)
            for (size_t j = 0; j < 5; ++j) {
              dcomplex s = 0.0;
              for (size_t k = 0; k < 3; ++k) s += opAt(A, ta, i, k) * opAt(B, tb, k, j);
              ref.set(i, j, s);
            }
          EXPECT_LT(maxDiff(C, ref), 1e-14) << realA << realB << ta << tb;
        }

  for (bool realA : {true, false})
    for (bool realX : {true, false})
      for (Trans_t t : {NoTrans, Trans, ConjTrans}) {
        const Matrix A = randomMatrix(4, 3, realA, rng);
        const size_t nx = t == NoTrans ? 3 : 4, ny = t == NoTrans ? 4 : 3;
        const Vector x = randomVector(nx, realX, rng);
        Vector y = randomVector(ny, true, rng);
        const Vector y0 = y;
        qvmatrix::yPlusAMulx(y, A, x, t);
        EXPECT_EQ(y.isReal(), realA && realX);
        for (size_t i = 0; i < ny; ++i) {
          dcomplex s = y0.get(i);
          for (size_t k = 0; k < nx; ++k) s += opAt(A, t, i, k) * x.get(k);
          EXPECT_NEAR(std::abs(y.get(i) - s), 0.0, 1e-14);
        }
        Vector z;
        qvmatrix::mul(A, x, z, t);
        Vector d = y;
        d -= y0;
        EXPECT_LT(maxDiff(z, d), 1e-14);
      }

  const Matrix A = randomMatrix(3, 4, false, rng);
  Matrix AH, AT;
  qvmatrix::adjoint(A, AH);
  qvmatrix::transpose(A, AT);
  for (size_t i = 0; i < 3; ++i)
    for (size_t j = 0; j < 4; ++j) {
      EXPECT_EQ(AH.get(j, i), std::conj(A.get(i, j)));
      EXPECT_EQ(AT.get(j, i), A.get(i, j));
    }
  Vector y(3);
  qvtest::expectThrowKey([&] { qvmatrix::yPlusAMulx(y, A, Vector(3)); }, "Internal_numerical_error",
                         "yPlusAMulx: Size of A does not match x and y.");
  EXPECT_EQ(y.normInf(), 0.0) << "nothing changed by a failed check";
  Matrix C;
  qvtest::expectThrowKey([&] { qvmatrix::mul(A, A, C); }, "Internal_numerical_error",
                         "mul: Inner dimensions of A and B do not agree.");
}

TEST(DenseAlgebra, MatrixNorms) {
  Matrix A(2, 2);
  A.set(0, 0, 1.0);
  A.set(0, 1, dcomplex(0.0, -2.0));
  A.set(1, 0, -3.0);
  A.set(1, 1, 4.0);
  EXPECT_DOUBLE_EQ(A.norm1(), 6.0);    // column sums 4, 6
  EXPECT_DOUBLE_EQ(A.normInf(), 7.0);  // row sums 3, 7
  EXPECT_DOUBLE_EQ(A.normFro(), std::sqrt(30.0));
  Matrix B = A;
  B *= dcomplex(0.0, 1.0);
  B -= A;
  EXPECT_NEAR(B.normFro(), std::sqrt(60.0), 1e-14);
}

// ---------------------------------------------------------------------------
// Solves and factorisations, checked by residuals and reconstructions

TEST(DenseSolve, SolveInverseAndDeterminant) {
  qvtest::Rng rng(21);
  for (bool realA : {true, false})
    for (bool realB : {true, false}) {
      const size_t n = 7;
      Matrix A = randomMatrix(n, n, realA, rng);
      for (size_t i = 0; i < n; ++i) A.set(i, i, A.get(i, i) + 4.0);
      const Vector b = randomVector(n, realB, rng);
      Vector x = b;
      EXPECT_EQ(qvmatrix::solve(A, x, 3), 0);
      Vector r;
      qvmatrix::mul(A, x, r);
      r -= b;
      EXPECT_LT(r.norm(), 1e-13);

      Matrix Ainv, P;
      qvmatrix::inverse(A, Ainv, 3);
      qvmatrix::mul(A, Ainv, P);
      EXPECT_LT(maxDiff(P, Matrix::identity(n)), 1e-13);
      // det(A)·det(A⁻¹) = 1.
      EXPECT_NEAR(std::abs(qvmatrix::det(A) * qvmatrix::det(Ainv) - 1.0), 0.0, 1e-12);
    }
  // A known determinant, with pivoting: det [[0,2,1],[3,0,0],[1,1,4]] = −3·(2·4 − 1·1) = −21.
  Matrix T(3, 3);
  T.set(0, 1, 2.0);
  T.set(0, 2, 1.0);
  T.set(1, 0, 3.0);
  T.set(2, 0, 1.0);
  T.set(2, 1, 1.0);
  T.set(2, 2, 4.0);
  EXPECT_NEAR(qvmatrix::det(T).real(), -21.0, 1e-13);
}

TEST(DenseSolve, SingularSystemFollowsTheFlagWord) {
  Matrix A(2, 2, 1.0);  // rank one
  Vector b(std::vector<double>{1.0, 2.0});
  EXPECT_GT(qvmatrix::solve(A, b, 0), 0);
  EXPECT_TRUE(std::isnan(b.d(0)) && std::isnan(b.d(1)));
  Vector c(std::vector<double>{1.0, 2.0});
  qvtest::expectThrowKey([&] { qvmatrix::solve(A, c, 1); }, "Error_in_LAPACK_call", "Singular_matrix");
  EXPECT_EQ(qvmatrix::det(A), 0.0);
  qvtest::expectThrowKey([&] { qvmatrix::solve(A, c = Vector(3), 3); }, "Internal_numerical_error",
                         "solve: A must be square and match the rows of B.");
}

TEST(DenseSolve, FactorisationsReconstruct) {
  qvtest::Rng rng(8);
  for (bool real : {true, false}) {
    const Matrix A = randomMatrix(6, 4, real, rng);
    Matrix Q, R, QR, QHQ;
    qvmatrix::qr(A, Q, R, 3);
    EXPECT_EQ(Q.rows(), 6u);
    EXPECT_EQ(Q.cols(), 4u);
    qvmatrix::mul(Q, R, QR);
    EXPECT_LT(maxDiff(QR, A), 1e-14);
    qvmatrix::mul(Q, Q, QHQ, ConjTrans, NoTrans);
    EXPECT_LT(maxDiff(QHQ, Matrix::identity(4)), 1e-14);
    for (size_t j = 0; j < 4; ++j)
      for (size_t i = j + 1; i < 4; ++i) EXPECT_EQ(R.get(i, j), 0.0);

    Matrix U, VT, US;
    qvarray::Array<double, 1> S;
    qvmatrix::svd(A, U, S, VT, 3);
    US = U;
    for (size_t j = 0; j < S.count; ++j)
      for (size_t i = 0; i < 6; ++i) US.set(i, j, U.get(i, j) * S[j]);
    Matrix USV;
    qvmatrix::mul(US, VT, USV);
    EXPECT_LT(maxDiff(USV, A), 1e-13);
    qvarray::Array<double, 1> S2;
    qvmatrix::svd(A, S2, 3);
    EXPECT_NEAR(S2[0], S[0], 1e-13);
    EXPECT_EQ(qvmatrix::rank(A), 4);

    // Cholesky of AᴴA + I: Rᴴ·R reproduces it.
    Matrix G;
    qvmatrix::mul(A, A, G, ConjTrans, NoTrans);
    G += Matrix::identity(4);
    Matrix Rc = G, RHR;
    EXPECT_EQ(qvmatrix::chol(Rc, 3), 0);
    qvmatrix::mul(Rc, Rc, RHR, ConjTrans, NoTrans);
    EXPECT_LT(maxDiff(RHR, G), 1e-13);

    // Eigenpairs: A·V = V·diag(w), also for complex pairs of a real matrix.
    const Matrix B = randomMatrix(5, 5, real, rng);
    Vector w;
    Matrix V, BV;
    qvmatrix::eig(B, w, V, 3);
    EXPECT_FALSE(w.isReal());
    qvmatrix::mul(B, V, BV);
    for (size_t j = 0; j < 5; ++j)
      for (size_t i = 0; i < 5; ++i) EXPECT_NEAR(std::abs(BV.get(i, j) - V.get(i, j) * w.get(j)), 0.0, 1e-12);
    Vector w2;
    qvmatrix::eig(B, w2, 3);
    EXPECT_LT(maxDiff(w, w2), 1e-12);

    // LU and its solve against a plain solve.
    Matrix F = randomMatrix(5, 5, real, rng);
    const Matrix F0 = F;
    qvarray::Array<int, 1> ipiv;
    qvmatrix::lu(F, ipiv, 3);
    Vector b = randomVector(5, false, rng), x1 = b, x2 = b;
    qvmatrix::luSolve(F, ipiv, x1);
    qvmatrix::solve(F0, x2, 3);
    EXPECT_LT(maxDiff(x1, x2), 1e-12);
  }
}

TEST(DenseSolve, LeastSquaresSatisfiesTheNormalEquations) {
  qvtest::Rng rng(4);
  for (bool realA : {true, false})
    for (bool realB : {true, false}) {
      const Matrix A = randomMatrix(9, 4, realA, rng);
      const Vector b = randomVector(9, realB, rng);
      Vector x;
      int rank = 0;
      qvmatrix::leastSquares(A, b, x, 1e-12, 3, &rank);
      EXPECT_EQ(rank, 4);
      EXPECT_EQ(x.size(), 4u);
      Vector r;
      qvmatrix::mul(A, x, r);
      r -= b;
      Vector g;
      qvmatrix::mul(A, r, g, ConjTrans);  // Aᴴ·(A·x − b) = 0
      EXPECT_LT(g.norm(), 1e-13);
    }
}
