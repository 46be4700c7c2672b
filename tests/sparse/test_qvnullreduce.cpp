// The reduction helpers against dense algebra: Nᴴ·K·N and Nᴴ·(f − K·u₀) with
// K in full and in symmetric storage, and a whole constrained solve against
// Lagrange multipliers.
#include <gtest/gtest.h>

#include <complex>

#include "densecheck.h"
#include "qvarray/arrayutil.h"
#include "qvarray/qvnull.h"
#include "qvarray/qvnullreduce.h"
#include "qvtest.h"
#include "sparsetest.h"

using qvarray::NullFun;
using qvarray::NullOptions;
using qvarray::NullSpace;
using qvarray::qvNull;
using qvarray::Sparse;
using qvtest::adj;
using qvtest::dcomplex;
using qvtest::mul;
using qvtest::normF;

namespace {

template <class T>
Array<T, 2> dense(const Sparse& A) {
  const auto D = sparsetest::toDense<T>(A);
  Array<T, 2> M(D.m, D.n);
  std::copy(D.a.begin(), D.a.end(), M.begin());
  return M;
}

template <class T>
Array<T, 1> dense(const Vector& v) {
  Array<T, 1> a(v.size());
  for (size_t i = 0; i < v.size(); ++i) {
    if constexpr (std::is_same_v<T, double>)
      a[i] = v.get(i).real();
    else
      a[i] = v.get(i);
  }
  return a;
}

// The Hermitian positive definite 5-point operator of an nx×ny grid plus a
// shift; complex values get a Hermitian imaginary part on the x couplings.
// With `lower`, only the lower triangle and half the diagonal are stored
// (symmetric or Hermitian mode).
template <class T>
Sparse gridOperator(size_t nx, size_t ny, bool lower) {
  sparsetest::Triplets<T> t(nx * ny, nx * ny);
  T cx = T(-1);
  if constexpr (qvtest::isComplex<T>) cx = T(-1, 0.4);
  for (size_t y = 0; y < ny; ++y)
    for (size_t x = 0; x < nx; ++x) {
      const size_t i = x + nx * y;
      t.add(i, i, T(lower ? 2.25 : 4.5));
      if (x + 1 < nx) {
        t.add(i + 1, i, cx);
        if (!lower) t.add(i, i + 1, qvtest::conjOf(cx));
      }
      if (y + 1 < ny) {
        t.add(i + nx, i, T(-1));
        if (!lower) t.add(i, i + nx, T(-1));
      }
    }
  Sparse K = t.assemble();
  if (lower) K.setSymm(qvtest::isComplex<T> ? qvarray::SymmHermitian : qvarray::SymmSymmetric);
  return K;
}

// Dirichlet on the bottom row, periodic left = right, a multi-point
// constraint in the middle (u_c = mean of its four neighbours).
template <class T>
Sparse gridConstraints(size_t nx, size_t ny) {
  sparsetest::Triplets<T> t(0, nx * ny);
  size_t m = 0;
  for (size_t x = 0; x < nx; ++x) t.add(m++, x, T(1));
  for (size_t y = 1; y < ny; ++y) {
    t.add(m, nx * y, T(1));
    t.add(m++, nx * y + nx - 1, T(-1));
  }
  const size_t c = nx / 2 + nx * (ny / 2);
  t.add(m, c, T(1));
  for (size_t nb : {c - 1, c + 1, c - nx, c + nx}) t.add(m, nb, T(-0.25));
  ++m;
  t.m = m;
  return t.assemble();
}

NullOptions method(NullFun f) {
  NullOptions o;
  o.nullfun = f;
  return o;
}

template <class T>
class QvNullReduce : public ::testing::Test {};
TYPED_TEST_SUITE(QvNullReduce, qvtest::ScalarTypes);

TYPED_TEST(QvNullReduce, ReducedMatrixAndVectorMatchDenseProducts) {
  using T = TypeParam;
  const size_t nx = 7, ny = 6, n = nx * ny;
  const Sparse B = gridConstraints<T>(nx, ny);
  qvtest::Rng rng(2);
  const Array<T, 1> f = qvtest::randomVector<T>(n, rng);
  for (NullFun fun : {NullFun::Orth, NullFun::Sparse}) {
    const NullSpace ns = qvNull(B, method(fun));
    const Array<T, 2> N = dense<T>(ns.N);
    const Vector u0 = ns.particular(Vector(qvtest::randomVector<T>(B.getM(), rng)));
    for (bool lower : {false, true}) {
      SCOPED_TRACE(std::string(qvarray::nullFunName(fun)) + (lower ? ", symmetric storage" : ""));
      const Sparse K = gridOperator<T>(nx, ny, lower);
      const Array<T, 2> Kd = dense<T>(gridOperator<T>(nx, ny, false));
      const Array<T, 2> expect = mul(adj(N), mul(Kd, N));
      const Sparse A = qvarray::reduceMatrix(ns, K);
      EXPECT_EQ(A.getSymm(), qvarray::SymmNone);
      EXPECT_LE(normF(qvtest::minus(dense<T>(A), expect)), 1e-13 * normF(expect));
      const Array<T, 1> g = qvtest::minus(f, mul(Kd, dense<T>(u0)));
      const Array<T, 1> expectV = mul(adj(N), g);
      const Vector h = qvarray::reduceVector(ns, K, Vector(f), u0);
      EXPECT_LE(normF(qvtest::minus(dense<T>(h), expectV)), 1e-13 * normF(expectV));
    }
  }
}

TYPED_TEST(QvNullReduce, ConstrainedSolveAgreesWithLagrangeMultipliers) {
  using T = TypeParam;
  const size_t nx = 8, ny = 7, n = nx * ny;
  const Sparse B = gridConstraints<T>(nx, ny), K = gridOperator<T>(nx, ny, true);
  const size_t m = B.getM();
  qvtest::Rng rng(4);
  const Array<T, 1> f = qvtest::randomVector<T>(n, rng), r = qvtest::randomVector<T>(m, rng);

  // [K Bᴴ; B 0]·[u; λ] = [f; r], dense.
  const Array<T, 2> Kd = dense<T>(gridOperator<T>(nx, ny, false)), Bd = dense<T>(B);
  Array<T, 2> S = qvtest::zeros<T>(n + m, n + m);
  Array<T, 1> rhs(n + m);
  for (size_t j = 0; j < n; ++j) {
    for (size_t i = 0; i < n; ++i) S(i, j) = Kd(i, j);
    for (size_t i = 0; i < m; ++i) S(n + i, j) = Bd(i, j), S(j, n + i) = qvtest::conjOf(Bd(i, j));
    rhs[j] = f[j];
  }
  for (size_t i = 0; i < m; ++i) rhs[n + i] = r[i];
  qvarray::linsolv(S, rhs, qvarray::RaiseAll);
  Array<T, 1> uL(n);
  std::copy(rhs.begin(), rhs.begin() + n, uL.begin());

  for (NullFun fun : {NullFun::Orth, NullFun::Sparse, NullFun::Auto}) {
    SCOPED_TRACE(qvarray::nullFunName(fun));
    const NullSpace ns = qvNull(B, method(fun));
    const Vector u0 = ns.particular(Vector(r));
    Array<T, 2> A = dense<T>(qvarray::reduceMatrix(ns, K));
    Array<T, 1> v = dense<T>(qvarray::reduceVector(ns, K, Vector(f), u0));
    qvarray::linsolv(A, v, qvarray::RaiseAll);
    const Array<T, 1> u = dense<T>(qvarray::expandSolution(ns, Vector(v), u0));
    EXPECT_LE(normF(qvtest::minus(u, uL)), 1e-12 * normF(uL));
    EXPECT_LE(normF(qvtest::minus(mul(Bd, u), r)), 1e-12 * normF(r));
  }
}

TEST(QvNullReduceInput, SizesAreChecked) {
  const Sparse B = gridConstraints<double>(4, 4);
  const NullSpace ns = qvNull(B);
  const Sparse K = gridOperator<double>(4, 4, false), K5 = gridOperator<double>(5, 4, false);
  const Vector f(16), u0 = ns.particular(Vector(B.getM()));
  qvtest::expectThrowKey([&] { qvarray::reduceMatrix(ns, K5); }, "Size_sparse_matrices_disagree");
  qvtest::expectThrowKey([&] { qvarray::reduceVector(ns, K5, f, u0); },
                         "Size_sparse_matrices_disagree");
  qvtest::expectThrowKey([&] { qvarray::reduceVector(ns, K, Vector(15), u0); },
                         "Size_vector_sparse_matrix_disagree");
  qvtest::expectThrowKey([&] { qvarray::expandSolution(ns, Vector(16), u0); },
                         "Size_vector_sparse_matrix_disagree");
  const Vector u = qvarray::expandSolution(ns, Vector(ns.N.getN()), u0);
  EXPECT_EQ(u.size(), 16u);
}

}  // namespace
