// Dense Matrix and Vector: real/complex storage switching, and the qvmatrix
// algebra and factorisations against densecheck's naive complex products.
#include <gtest/gtest.h>

#include <cmath>

#include "densecheck.h"
#include "qvarray/matriximpl.h"
#include "qvarray/matrixutil.h"

using namespace qvtest;
using qvarray::ConjTrans;
using qvarray::NoTrans;
using qvarray::Trans;
using qvarray::Trans_t;
using CMat = Array<dcomplex, 2>;
using CVec = Array<dcomplex, 1>;

namespace {

constexpr const char* kNumErr = "Internal_numerical_error";

// op(A) by the definition of the selector.
CMat op(const CMat& A, Trans_t t) {
  if (t == NoTrans) return A;
  CMat B = adj(A);
  if (t == Trans)
    for (dcomplex& v : B) v = std::conj(v);
  return B;
}

}  // namespace

TEST(DenseStorage, RealComplexSwitchingCopiesAndResize) {
  Vector v(std::vector<double>{1.0, -2.0, 3.5});
  EXPECT_TRUE(v.isReal());
  v.makeComplex();
  EXPECT_TRUE(!v.isReal() && v.getdArr().count == 0) << "only one storage is in use";
  EXPECT_EQ(v.getzArr()[1], dcomplex(-2.0, 0.0));
  EXPECT_TRUE(v.compact()) << "all imaginary parts zero: back to real";
  EXPECT_EQ(v.d(2), 3.5);
  v.set(0, dcomplex(1.0, 1.0));  // a value with an imaginary part switches to complex
  EXPECT_FALSE(v.isReal() || v.compact());
  v.makeReal();
  EXPECT_TRUE(v.get(0) == dcomplex(1.0, 0.0) && v.size() == 3);

  Rng rng;
  Matrix A = randomM(2, 3, false, rng), B = A;
  B.set(0, 0, 5.0);
  EXPECT_NE(A.get(0, 0), B.get(0, 0));
  const dcomplex a10 = A.get(1, 0);
  A.resize(3, 2);  // same count: values kept, reinterpreted column-major
  EXPECT_TRUE(A.rows() == 3 && A.getzArr().strides[1] == 3 && A.get(1, 0) == a10);
  A.resize(4, 4);
  EXPECT_TRUE(!A.isReal() && A.normFro() == 0.0);
  A.resize(2, 2, true);
  EXPECT_TRUE(A.isReal());
  EXPECT_EQ(normF(minus(Z(Matrix::identity(3)), identity<dcomplex>(3))), 0.0);

  Matrix3 M(3, 2, 4);
  const Matrix S = randomM(3, 2, false, rng);
  M.setSlice(2, S);
  EXPECT_FALSE(M.isReal());
  EXPECT_EQ(normF(minus(Z(M.slice(2)), Z(S))) + M.slice(0).normFro(), 0.0);
  expectThrowsAll(kNumErr, {{[&] { M.setSlice(0, Matrix(2, 2)); },
                             "setSlice: Size of A differs from the slice."},
                            {[&] { (void)M.slice(4); }, "slice: Slice index out of range."}});
}

TEST(DenseAlgebra, ScaledSumsNormsAndDot) {
  Rng rng(11);
  const Vector x = randomV(60, true, rng), y0 = randomV(60, false, rng);
  const dcomplex a(0.5, -1.0);
  Vector y = y0, r = x, s = x;
  qvmatrix::yPlusaMulx(y, a, x);
  CVec ref = Z(y0);
  dcomplex dotRef = 0.0;
  double maxModulus = 0.0, sumModulus = 0.0;
  for (size_t i = 0; i < 60; ++i) {
    ref[i] += a * x.get(i);
    dotRef += std::conj(y.get(i)) * x.get(i);
    maxModulus = std::max(maxModulus, std::abs(y.get(i)));
    sumModulus += std::abs(y.get(i));
  }
  EXPECT_LT(normF(minus(Z(y), ref)), 1e-14);
  qvmatrix::yPlusaMulx(r, 2.0, x);  // real stays real with a real factor
  EXPECT_TRUE(r.isReal());
  EXPECT_LT(relDiff(Z(r), Z(Vector(x) *= 3.0)), 1e-15);
  EXPECT_NEAR(std::abs(qvmatrix::dot(y, x) - dotRef), 0.0, 1e-13);
  EXPECT_NEAR(qvmatrix::dot(y, y).real(), y.norm() * y.norm(), 1e-12);
  EXPECT_EQ(y.normInf(), maxModulus);
  EXPECT_NEAR(y.norm1(), sumModulus, 1e-13);
  s += y;
  s -= y;
  EXPECT_FALSE(s.isReal());
  EXPECT_LT(relDiff(Z(s), Z(x)), 1e-15);
  expectThrowsAll(kNumErr,
                  {{[&] { s += Vector(3); }, "Vector: x and y does not have the same length."},
                   {[&] { (void)qvmatrix::dot(s, Vector(3)); },
                    "dot: x and y does not have the same length."}});
  // Matrix norms of [[1, −2i], [−3, 4]]: column sums 4, 6; row sums 3, 7.
  Matrix A(2, 2);
  A.set(0, 0, 1.0);
  A.set(0, 1, dcomplex(0.0, -2.0));
  A.set(1, 0, -3.0);
  A.set(1, 1, 4.0);
  EXPECT_DOUBLE_EQ(A.norm1(), 6.0);
  EXPECT_DOUBLE_EQ(A.normInf(), 7.0);
  EXPECT_DOUBLE_EQ(A.normFro(), std::sqrt(30.0));
  Matrix B = A;
  B *= dcomplex(0.0, 1.0);
  B -= A;
  EXPECT_NEAR(B.normFro(), std::sqrt(60.0), 1e-14);
}

TEST(DenseAlgebra, ProductsWithEverySelectorAndKind) {
  Rng rng(5);
  for (bool realA : {true, false})
    for (bool realB : {true, false})
      for (Trans_t ta : {NoTrans, Trans, ConjTrans}) {
        for (Trans_t tb : {NoTrans, Trans, ConjTrans}) {
          const Matrix A = ta == NoTrans ? randomM(4, 3, realA, rng) : randomM(3, 4, realA, rng);
          const Matrix B = tb == NoTrans ? randomM(3, 5, realB, rng) : randomM(5, 3, realB, rng);
          Matrix C;
          qvmatrix::mul(A, B, C, ta, tb);
          EXPECT_EQ(C.isReal(), realA && realB);
          EXPECT_LT(relDiff(Z(C), mul(op(Z(A), ta), op(Z(B), tb))), 1e-14)
              << realA << realB << ta << tb;
        }
        // matrix·vector, as an update and as a product; realB is x's kind here
        const Matrix A = randomM(4, 3, realA, rng);
        const Vector x = randomV(ta == NoTrans ? 3 : 4, realB, rng);
        const Vector y0 = randomV(ta == NoTrans ? 4 : 3, true, rng);
        Vector y = y0, z;
        qvmatrix::yPlusAMulx(y, A, x, ta);
        qvmatrix::mul(A, x, z, ta);
        EXPECT_EQ(y.isReal(), realA && realB);
        const CVec Ax = mul(op(Z(A), ta), Z(x));
        EXPECT_LT(relDiff(minus(Z(y), Z(y0)), Ax), 1e-14);
        EXPECT_LT(relDiff(Z(z), Ax), 1e-14);
      }
  const Matrix A = randomM(3, 4, false, rng);
  Matrix AH, AT, C;
  qvmatrix::adjoint(A, AH);
  qvmatrix::transpose(A, AT);
  EXPECT_EQ(normF(minus(Z(AH), adj(Z(A)))) + normF(minus(Z(AT), op(Z(A), Trans))), 0.0);
  Vector y(3);
  expectThrowsAll(kNumErr, {{[&] { qvmatrix::yPlusAMulx(y, A, Vector(3)); },
                             "yPlusAMulx: Size of A does not match x and y."},
                            {[&] { qvmatrix::mul(A, A, C); },
                             "mul: Inner dimensions of A and B do not agree."}});
  EXPECT_EQ(y.normInf(), 0.0) << "nothing changed by a failed check";
}

TEST(DenseSolve, SolveInverseDeterminantAndSingularFlags) {
  Rng rng(21);
  const size_t n = 7;
  for (bool realA : {true, false})
    for (bool realB : {true, false}) {
      Matrix A = randomM(n, n, realA, rng);
      for (size_t i = 0; i < n; ++i) A.set(i, i, A.get(i, i) + 4.0);
      const Vector b = randomV(n, realB, rng);
      Vector x = b;
      Matrix Ainv;
      EXPECT_EQ(qvmatrix::solve(A, x, 3), 0);
      EXPECT_LT(scaledResidual(Z(A), Z(x), Z(b)), kScaledBound);
      qvmatrix::inverse(A, Ainv, 3);
      EXPECT_LT(normF(minus(mul(Z(A), Z(Ainv)), identity<dcomplex>(n))), 1e-13);
      EXPECT_NEAR(std::abs(qvmatrix::det(A) * qvmatrix::det(Ainv) - 1.0), 0.0, 1e-12);
    }
  // A known determinant, with pivoting: det [[0,2,1],[3,0,0],[1,1,4]] = −3·(2·4 − 1·1).
  EXPECT_NEAR(qvmatrix::det(Matrix(mat<double>(3, 3, {0, 3, 1, 2, 0, 1, 1, 0, 4}))).real(), -21.0,
              1e-13);
  // Rank one: NaN solution without flag bit 1, the key with it; det 0.
  const Matrix S(2, 2, 1.0);
  Vector b(std::vector<double>{1.0, 2.0}), c = b;
  EXPECT_GT(qvmatrix::solve(S, b, 0), 0);
  EXPECT_TRUE(std::isnan(b.d(0)) && std::isnan(b.d(1)));
  expectThrowKey([&] { qvmatrix::solve(S, c, 1); }, "Error_in_LAPACK_call", "Singular_matrix");
  EXPECT_EQ(qvmatrix::det(S), 0.0);
  expectThrowKey([&] { qvmatrix::solve(S, c = Vector(3), 3); }, kNumErr,
                 "solve: A must be square and match the rows of B.");
}

TEST(DenseSolve, FactorisationsReconstruct) {
  Rng rng(8);
  for (bool real : {true, false}) {
    const Matrix A = randomM(6, 4, real, rng);
    const CMat a = Z(A);
    Matrix Q, R, U, VT, G, Rc;
    qvmatrix::qr(A, Q, R, 3);
    EXPECT_TRUE(Q.rows() == 6 && Q.cols() == 4);
    EXPECT_LT(reconstructionError(a, mul(Z(Q), Z(R))), kScaledBound);
    EXPECT_LT(orthonormalityError(Z(Q)), kScaledBound);
    EXPECT_EQ(maxBelow(Z(R)), 0.0);

    Array<double, 1> S, S2;
    qvmatrix::svd(A, U, S, VT, 3);
    CMat US = Z(U);
    for (size_t j = 0; j < S.count; ++j)
      for (size_t i = 0; i < 6; ++i) US(i, j) *= S[j];
    EXPECT_LT(reconstructionError(a, mul(US, Z(VT))), kScaledBound);
    qvmatrix::svd(A, S2, 3);
    EXPECT_NEAR(S2[0], S[0], 1e-13);
    EXPECT_EQ(qvmatrix::rank(A), 4);

    // Cholesky of AᴴA + I: Rᴴ·R reproduces it.
    qvmatrix::mul(A, A, G, ConjTrans, NoTrans);
    G += Matrix::identity(4);
    Rc = G;
    EXPECT_EQ(qvmatrix::chol(Rc, 3), 0);
    EXPECT_LT(reconstructionError(Z(G), mul(adj(Z(Rc)), Z(Rc))), kScaledBound);

    // Eigenpairs: B·V = V·diag(w), also for complex pairs of a real matrix.
    const Matrix B = randomM(5, 5, real, rng);
    Vector w, w2;
    Matrix V;
    qvmatrix::eig(B, w, V, 3);
    qvmatrix::eig(B, w2, 3);
    EXPECT_FALSE(w.isReal());
    CMat VW = Z(V);
    for (size_t j = 0; j < 5; ++j)
      for (size_t i = 0; i < 5; ++i) VW(i, j) *= w.get(j);
    EXPECT_LT(normF(minus(mul(Z(B), Z(V)), VW)), 1e-12);
    EXPECT_LT(relDiff(Z(w2), Z(w)), 1e-12);

    // LU and its solve against a plain solve.
    Matrix F = randomM(5, 5, real, rng);
    const Matrix F0 = F;
    qvarray::Array<int, 1> ipiv;
    qvmatrix::lu(F, ipiv, 3);
    Vector b = randomV(5, false, rng), x1 = b, x2 = b;
    qvmatrix::luSolve(F, ipiv, x1);
    qvmatrix::solve(F0, x2, 3);
    EXPECT_LT(relDiff(Z(x1), Z(x2)), 1e-12);
  }
}

TEST(DenseSolve, LeastSquaresSatisfiesTheNormalEquations) {
  Rng rng(4);
  for (bool realA : {true, false})
    for (bool realB : {true, false}) {
      const Matrix A = randomM(9, 4, realA, rng);
      const Vector b = randomV(9, realB, rng);
      Vector x;
      int rank = 0;
      qvmatrix::leastSquares(A, b, x, 1e-12, 3, &rank);
      EXPECT_TRUE(rank == 4 && x.size() == 4);
      // Aᴴ·(A·x − b) = 0
      EXPECT_LT(normF(mul(adj(Z(A)), minus(mul(Z(A), Z(x)), Z(b)))), 1e-13);
    }
}
