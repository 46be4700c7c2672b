// qvNull and the reduction helpers checked against dense oracles: B·N = 0,
// B·u₀ = r, dimensions from a dense rank, orthonormality of the SVD bases,
// the four subspaces against each other, Nᴴ·K·N and Nᴴ·(f − K·u₀) against
// dense products, and constrained solves by elimination against Lagrange
// multipliers.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <string>
#include <utility>
#include <vector>

#include "densecheck.h"
#include "qvarray/arrayutil.h"
#include "qvarray/sparse/qvnull.h"
#include "qvarray/sparse/qvnullreduce.h"
#include "qvtest.h"
#include "qvutil/prop.h"
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
using sparsetest::toArray;
using sparsetest::Triplets;

namespace {

template <class T>
double maxAbs(const Array<T, 2>& A) {
  double m = 0;
  for (const T& v : A) m = std::max(m, std::abs(v));
  return m;
}

// Numerical rank of A with its columns scaled to unit norm (the bases need
// not be balanced).
template <class T>
int denseRank(const Array<T, 2>& A) {
  if (A.sizes[0] == 0 || A.sizes[1] == 0) return 0;
  Array<T, 2> U(A);
  for (size_t j = 0; j < U.sizes[1]; ++j) {
    double s = 0;
    for (size_t i = 0; i < U.sizes[0]; ++i) s += std::norm(U(i, j));
    if (s > 0)
      for (size_t i = 0; i < U.sizes[0]; ++i) U(i, j) /= std::sqrt(s);
  }
  return qvarray::rank(U, 1e-9);
}

// Constraints of an nx×ny grid (unknown x + nx·y). Redundant: Dirichlet on
// the bottom and top rows, periodic left = right on every row, so each corner
// pair carries one redundant constraint. Otherwise of full row rank: Dirichlet
// on the bottom row, periodic on the rows above it, and a multi-point
// constraint in the middle (u_c = mean of its four neighbours).
template <class T>
Triplets<T> gridConstraints(size_t nx, size_t ny, bool redundant) {
  Triplets<T> t(0, nx * ny);
  for (size_t x = 0; x < nx; ++x) {
    t.add(t.m++, x, T(1));
    if (redundant) t.add(t.m++, x + nx * (ny - 1), T(1));
  }
  for (size_t y = redundant ? 0 : 1; y < ny; ++y) {
    t.add(t.m, nx * y, T(1));
    t.add(t.m++, nx * y + nx - 1, T(-1));
  }
  if (!redundant) {
    const size_t c = nx / 2 + nx * (ny / 2);
    t.add(t.m, c, T(1));
    for (size_t nb : {c - 1, c + 1, c - nx, c + nx}) t.add(t.m, nb, T(-0.25));
    ++t.m;
  }
  return t;
}

// A mixed set on n ≥ 36 unknowns: fixed values, ties u_a = u_b, multi-point
// constraints u_s = Σ a_k·u_k and a small coupled block (eight independent
// rows), then, when `redundant`, a zero row, a repeated row and a combination
// of two rows.
template <class T>
Triplets<T> mixedConstraints(size_t n, unsigned seed, bool redundant = true) {
  qvtest::Rng rng(seed);
  Triplets<T> t(0, n);
  auto row = [&](std::initializer_list<std::pair<size_t, T>> entries) {
    for (const auto& [j, v] : entries) t.add(t.m, j, v);
    ++t.m;
  };
  auto value = [&] { return rng.value<T>(); };
  row({{3, T(2)}});                  // fixed
  row({{5, T(1)}, {17, T(-1)}});     // tie
  row({{17, T(1)}, {30, T(-1)}});    // chained tie
  row({{8, T(1)}, {9, value()}, {10, value()}, {35, value()}});  // MPC
  for (size_t k = 0; k < 4; ++k)     // coupled block on 20..27
    row({{20 + k, value()}, {21 + k, value()}, {24 + k, value()}});
  if (!redundant) return t;
  t.m++;                             // a zero row
  row({{5, T(1)}, {17, T(-1)}});     // the tie again
  // 2·row 4 − 0.5·row 5: the combination of two block rows.
  const size_t k0 = t.size();
  for (size_t k = 0; k < k0; ++k)
    if (t.rows[k] == 4 || t.rows[k] == 5) t.add(t.m, t.cols[k], T(t.rows[k] == 4 ? 2 : -0.5) * t.values[k]);
  ++t.m;
  return t;
}

// The Hermitian positive definite 5-point operator of an nx×ny grid plus a
// shift; complex values get a Hermitian imaginary part on the x couplings.
// With `lower`, only the lower triangle and half the diagonal are stored
// (symmetric or Hermitian mode).
template <class T>
Sparse gridOperator(size_t nx, size_t ny, bool lower) {
  Triplets<T> t(nx * ny, nx * ny);
  auto couple = [&](size_t i, size_t k, T v) {
    t.add(k, i, v);
    if (!lower) t.add(i, k, qvtest::conjOf(v));
  };
  T cx = T(-1);
  if constexpr (qvtest::isComplex<T>) cx = T(-1, 0.4);
  for (size_t i = 0; i < nx * ny; ++i) {
    t.add(i, i, T(lower ? 2.25 : 4.5));
    if (i % nx + 1 < nx) couple(i, i + 1, cx);
    if (i + nx < nx * ny) couple(i, i + nx, T(-1));
  }
  Sparse K = t.assemble();
  if (lower) K.setSymm(qvtest::isComplex<T> ? qvarray::SymmHermitian : qvarray::SymmSymmetric);
  return K;
}

const NullFun kMethods[] = {NullFun::Orth, NullFun::Sparse, NullFun::Auto};

// Every property of the result that holds for both methods.
template <class T>
void checkBases(const Sparse& B, const NullSpace& ns, const char* what) {
  SCOPED_TRACE(what);
  const Array<T, 2> Bd = toArray<T>(B);
  const size_t m = Bd.sizes[0], n = Bd.sizes[1];
  const size_t r = static_cast<size_t>(denseRank(Bd));
  const double bmax = std::max(maxAbs(Bd), 1e-300);
  ASSERT_EQ(ns.m, m);
  ASSERT_EQ(ns.n, n);
  EXPECT_EQ(ns.rank, r);

  const Array<T, 2> N = toArray<T>(ns.N), C = toArray<T>(ns.complement), Rt = toArray<T>(ns.rangeBt),
                    R = toArray<T>(ns.rangeB), Z = toArray<T>(ns.leftNull);
  using Shape = std::pair<size_t, size_t>;
  auto shape = [](const Array<T, 2>& A) { return Shape(A.sizes[0], A.sizes[1]); };
  ASSERT_EQ(shape(N), Shape(n, n - r));
  ASSERT_EQ(shape(C), Shape(n, r));
  ASSERT_EQ(shape(Rt), Shape(n, r));
  ASSERT_EQ(shape(R), Shape(m, r));
  ASSERT_EQ(shape(Z), Shape(m, m - r));
  if (n > r) {
    // B·N = 0 relative to the sizes of B and N; N has full column rank.
    EXPECT_LE(maxAbs(mul(Bd, N)), 1e-12 * bmax * std::max(maxAbs(N), 1.0) * n);
    EXPECT_EQ(denseRank(N), static_cast<int>(n - r));
  }
  if (r > 0) {
    // [N, complement] is a basis of the whole space; range(Bᴴ) ⊥ null(B).
    Array<T, 2> NC(n, n);
    std::copy(N.begin(), N.end(), NC.begin());
    std::copy(C.begin(), C.end(), NC.begin() + N.count);
    EXPECT_EQ(denseRank(NC), static_cast<int>(n));
    EXPECT_EQ(denseRank(Rt), static_cast<int>(r));
    if (n > r) { EXPECT_LE(maxAbs(mul(adj(N), Rt)), 1e-11 * maxAbs(N) * maxAbs(Rt) * n); }
    // range(B): r independent columns, each a B·x (so orthogonal to null(Bᴴ)).
    EXPECT_EQ(denseRank(R), static_cast<int>(r));
    if (m > r) { EXPECT_LE(maxAbs(mul(adj(Z), R)), 1e-11 * maxAbs(Z) * maxAbs(R) * m); }
  }
  if (m > r) {
    // Bᴴ·Z = 0: the columns of Z are redundant combinations of constraints.
    if (n > 0) { EXPECT_LE(maxAbs(mul(adj(Bd), Z)), 1e-12 * bmax * maxAbs(Z) * m); }
    EXPECT_EQ(denseRank(Z), static_cast<int>(m - r));
  }

  // A consistent right-hand side r = B·x: u₀ solves B·u₀ = r and lies in the
  // span of the complement.
  qvtest::Rng rng(7);
  const Array<T, 1> x = qvtest::randomVector<T>(n, rng), rhs = mul(Bd, x);
  const Array<T, 1> u = toArray<T>(ns.particular(Vector(rhs)));
  ASSERT_EQ(u.count, n);
  EXPECT_LE(normF(qvtest::minus(mul(Bd, u), rhs)), 1e-11 * bmax * (normF(u) + normF(x)) + 1e-300);
  if (n > r && r > 0) {
    // u₀ = C·y for some y: appending u₀ to C does not raise its rank.
    Array<T, 2> Cu(n, r + 1);
    std::copy(C.begin(), C.end(), Cu.begin());
    std::copy(u.begin(), u.end(), Cu.begin() + C.count);
    EXPECT_EQ(denseRank(Cu), static_cast<int>(r));
  }
}

// The SVD bases are orthonormal, null(B) ⊥ range(Bᴴ) with [N, Rt] square,
// so N·Nᴴ + Rt·Rtᴴ = I, and u₀ is the minimum-norm solution.
template <class T>
void expectOrthonormal(const Sparse& B, const NullSpace& ns) {
  EXPECT_TRUE(ns.isOrthonormal());
  EXPECT_EQ(ns.svdBlocks, ns.blocks);
  for (const Sparse* S : {&ns.N, &ns.rangeBt, &ns.rangeB, &ns.leftNull})
    EXPECT_LE(qvtest::orthonormalityError(toArray<T>(*S)), 100.0);
  const Array<T, 2> N = toArray<T>(ns.N), Rt = toArray<T>(ns.rangeBt);
  Array<T, 2> P = mul(N, adj(N));
  const Array<T, 2> Q = mul(Rt, adj(Rt));
  for (size_t k = 0; k < P.count; ++k) P[k] += Q[k];
  EXPECT_LE(qvtest::reconstructionError(qvtest::identity<T>(ns.n), P), 100.0);
  qvtest::Rng rng(3);
  const Array<T, 1> x = qvtest::randomVector<T>(ns.n, rng);
  const Array<T, 1> u0 = toArray<T>(ns.particular(Vector(mul(toArray<T>(B), x))));
  EXPECT_LE(normF(mul(adj(N), u0)), 1e-13 * normF(u0) * ns.n);
}

// [K Bᴴ; B 0]·[u; λ] = [f; r] for K Hermitian positive definite and B of
// full row rank: the minimiser of ½uᴴKu − Re(uᴴf) subject to B·u = r.
template <class T>
Array<T, 1> lagrangeSolve(const Array<T, 2>& K, const Array<T, 2>& B, const Array<T, 1>& f,
                          const Array<T, 1>& r) {
  const size_t n = K.sizes[0], m = B.sizes[0];
  Array<T, 2> S = qvtest::zeros<T>(n + m, n + m);
  Array<T, 1> rhs(n + m);
  for (size_t j = 0; j < n; ++j) {
    for (size_t i = 0; i < n; ++i) S(i, j) = K(i, j);
    for (size_t i = 0; i < m; ++i) S(n + i, j) = B(i, j), S(j, n + i) = qvtest::conjOf(B(i, j));
    rhs[j] = f[j];
  }
  for (size_t i = 0; i < m; ++i) rhs[n + i] = r[i];
  qvarray::linsolv(S, rhs, qvarray::RaiseAll);
  Array<T, 1> u(n);
  std::copy(rhs.begin(), rhs.begin() + n, u.begin());
  return u;
}

template <class T>
class QvNull : public ::testing::Test {};
TYPED_TEST_SUITE(QvNull, qvtest::ScalarTypes);

TYPED_TEST(QvNull, BasesOfMixedConstraintsByEveryMethod) {
  using T = TypeParam;
  for (unsigned seed : {1u, 2u, 3u}) {
    const Sparse B = mixedConstraints<T>(48, seed).assemble();
    for (NullFun f : kMethods) {
      const NullSpace ns = qvNull(B, {.nullfun = f});
      checkBases<T>(B, ns, qvarray::nullFunName(f));
      EXPECT_EQ(ns.N.isReal(), !qvtest::isComplex<T>);
      EXPECT_EQ(ns.blocks, 4u);  // fixed, tie chain, MPC, coupled block
      if (f == NullFun::Orth) expectOrthonormal<T>(B, ns);
    }
  }
}

TYPED_TEST(QvNull, GridWithRedundantCorners) {
  using T = TypeParam;
  const auto t = gridConstraints<T>(5, 4, true);
  const Sparse B = t.assemble();
  for (NullFun f : kMethods) {
    const NullSpace ns = qvNull(B, {.nullfun = f});
    checkBases<T>(B, ns, qvarray::nullFunName(f));
    EXPECT_EQ(ns.rank, t.m - 2);  // two redundant corner constraints
    EXPECT_EQ(ns.leftNull.getN(), 2u);
    if (f == NullFun::Orth) expectOrthonormal<T>(B, ns);
    if (f != NullFun::Auto) continue;
    // Blocks: the two corner pairs (rank-deficient, redone by SVD), 3 + 3
    // inner Dirichlet values, 2 inner periodic pairs.
    EXPECT_EQ(ns.blocks, 2u + 6u + 2u);
    EXPECT_EQ(ns.svdBlocks, 2u);
  }
}

TYPED_TEST(QvNull, SparseMethodTiesUnknownsWithUnitEntries) {
  using T = TypeParam;
  // u0 = u1, u1 = u2 (a chain), u4 = 3, u5 = 0.5·u6 + 0.5·u7; n = 9.
  const Sparse B = sparsetest::tripletsOf<T>(4, 9, {{0, 0, T(1)}, {0, 1, T(-1)}, {1, 1, T(1)}, {1, 2, T(-1)},
                                                    {2, 4, T(1)}, {3, 5, T(1)}, {3, 6, T(-0.5)}, {3, 7, T(-0.5)}})
                       .assemble();
  const NullSpace ns = qvNull(B, {.nullfun = NullFun::Sparse});
  checkBases<T>(B, ns, "sparse");
  EXPECT_EQ(ns.svdBlocks, 0u);
  EXPECT_FALSE(ns.isOrthonormal());
  // Free: u1, u3, u6, u7, u8 (one column each, in the unknowns' order); the
  // second tie pivots on u2, which no expression uses yet.
  const Array<T, 2> N = toArray<T>(ns.N);
  ASSERT_EQ(N.sizes[1], 5u);
  EXPECT_EQ(ns.N.getNnz(), 3u + 1 + 2 + 2 + 1);
  for (size_t i : {0, 1, 2}) EXPECT_EQ(N(i, 0), T(1));  // the tied chain follows u1
  EXPECT_EQ(N(3, 1), T(1));
  EXPECT_EQ(N(6, 2), T(1));
  EXPECT_EQ(N(5, 2), T(0.5));
  EXPECT_EQ(N(8, 4), T(1));
  // u₀ is zero on the free unknowns and carries the fixed value.
  Vector r(4);
  r.set(2, 3.0);
  const Array<T, 1> u0 = toArray<T>(ns.particular(r));
  EXPECT_EQ(u0[4], T(3));
  for (size_t j : {1, 3, 6, 7, 8}) EXPECT_EQ(u0[j], T(0));
  // auto keeps the elimination for this well-posed set.
  EXPECT_EQ(qvNull(B).svdBlocks, 0u);
}

TYPED_TEST(QvNull, InconsistentConstraintsAreRefused) {
  using T = TypeParam;
  const auto t = gridConstraints<T>(4, 3, true);
  for (NullFun f : kMethods) {
    SCOPED_TRACE(qvarray::nullFunName(f));
    const NullSpace ns = qvNull(t.assemble(), {.nullfun = f});
    // Rows 0 and 6 fix the corners u0 = 1 and u3 = 2, row 8 ties u0 = u3.
    Vector r(t.m);
    r.set(0, 1.0);
    r.set(6, 2.0);
    const auto e = qvtest::expectThrowKey([&] { ns.particular(r); }, "Inconsistent_constraints");
    EXPECT_TRUE(e.detail("Relative_residual").has_value());
    // Consistent corner values pass; a mismatch within the tolerance too.
    r.set(6, 1.0 + 1e-12);
    EXPECT_NO_THROW(ns.particular(r));
  }
  // A zero row asks for 0 = r_i.
  const NullSpace ns = qvNull(sparsetest::tripletsOf<T>(2, 3, {{0, 1, T(1)}}).assemble());
  EXPECT_EQ(ns.rank, 1u);
  Vector r(2);
  r.set(1, 1e-30);
  qvtest::expectThrowKey([&] { ns.particular(r); }, "Inconsistent_constraints");
  qvtest::expectThrowKey([&] { ns.particular(Vector(3)); }, "Size_vector_sparse_matrix_disagree");
}

TYPED_TEST(QvNull, EmptyAndUnconstrained) {
  using T = TypeParam;
  for (NullFun f : kMethods) {
    // No constraints: N = I, u₀ = 0.
    Sparse B;
    B.zeros(0, 7, 0, !qvtest::isComplex<T>);
    NullSpace ns = qvNull(B, {.nullfun = f});
    EXPECT_EQ(ns.rank, 0u);
    EXPECT_EQ(ns.blocks, 0u);
    EXPECT_LE(qvtest::reconstructionError(qvtest::identity<T>(7), toArray<T>(ns.N)), 0.0);
    EXPECT_EQ(ns.particular(Vector()).normInf(), 0.0);
    // Constraint rows without entries: all redundant.
    B.zeros(3, 4, 0, !qvtest::isComplex<T>);
    ns = qvNull(B, {.nullfun = f});
    EXPECT_EQ(ns.N.getN(), 4u);
    EXPECT_EQ(ns.leftNull.getN(), 3u);
    // No unknowns at all.
    B.zeros(0, 0, 0, true);
    ns = qvNull(B, {.nullfun = f});
    EXPECT_EQ(ns.N.getM(), 0u);
    EXPECT_EQ(ns.N.getN(), 0u);
  }
}

TYPED_TEST(QvNull, StoredZerosDuplicatesAndTransposedStorage) {
  using T = TypeParam;
  auto t = mixedConstraints<T>(40, 9);
  t.add(0, 39, T(0));  // a stored zero must not couple unknown 39
  const Sparse B = t.assemble();
  const NullSpace ns = qvNull(B, {.nullfun = NullFun::Sparse});
  EXPECT_EQ(ns.blocks, 4u);
  checkBases<T>(B, ns, "with a stored zero");
  // The same constraints stored transposed (mode 3: the matrix is Sᵀ).
  Triplets<T> tt(t.n, t.m);
  for (size_t k = 0; k < t.size(); ++k) tt.add(t.cols[k], t.rows[k], t.values[k]);
  Sparse Bt = tt.assemble();
  Bt.setSymm(qvarray::SymmTransposed);
  const NullSpace nt = qvNull(Bt, {.nullfun = NullFun::Sparse});
  EXPECT_TRUE(nt.N.isEqual(ns.N, 0.0, qvarray::NoTrans));
  EXPECT_TRUE(nt.P.isEqual(ns.P, 0.0, qvarray::NoTrans));
}

TYPED_TEST(QvNull, SymmetricStorageIsReadAsTheMatrixItRepresents) {
  using T = TypeParam;
  // A square constraint matrix kept as S with A = S + Sᵀ (or S + Sᴴ).
  qvtest::Rng rng(8);
  Triplets<T> s(12, 12), full(12, 12);
  for (size_t k = 0; k < 10; ++k) {
    const size_t i = (5 * k + 3) % 12, j = (7 * k) % 12;
    const T v = rng.value<T>();
    s.add(i, j, v);
    full.add(i, j, v);
    full.add(j, i, qvtest::conjOf(v));
  }
  Sparse S = s.assemble();
  S.setSymm(qvtest::isComplex<T> ? qvarray::SymmHermitian : qvarray::SymmSymmetric);
  for (NullFun f : kMethods) {
    const NullSpace a = qvNull(S, {.nullfun = f}), b = qvNull(full.assemble(), {.nullfun = f});
    EXPECT_EQ(a.rank, b.rank);
    EXPECT_TRUE(a.N.isEqual(b.N, 1e-15, qvarray::NoTrans));
    checkBases<T>(full.assemble(), a, qvarray::nullFunName(f));
  }
}

TYPED_TEST(QvNull, AutoRedoesBlocksWithCoefficientGrowthBySvd) {
  using T = TypeParam;
  // 1e-7·u0 = u1 and u1 = u2: with a permissive pivot tolerance the first
  // row pivots on u0 (u1 is still needed by the second row), u0 = 1e7·u1.
  const Sparse B =
      sparsetest::tripletsOf<T>(2, 3, {{0, 0, T(1e-7)}, {0, 1, T(-1)}, {1, 1, T(1)}, {1, 2, T(-1)}}).assemble();
  NullOptions o{.nullfun = NullFun::Auto, .pivotTol = 1e-8};
  const NullSpace a = qvNull(B, o);
  EXPECT_EQ(a.svdBlocks, 1u);
  checkBases<T>(B, a, "auto");
  o.nullfun = NullFun::Sparse;
  const NullSpace s = qvNull(B, o);
  EXPECT_EQ(s.svdBlocks, 0u);
  EXPECT_EQ(toArray<T>(s.N)(0, 0), T(1e7));
  checkBases<T>(B, s, "sparse");
}

TYPED_TEST(QvNull, ReducedMatrixAndVectorMatchDenseProducts) {
  using T = TypeParam;
  const size_t nx = 7, ny = 6, n = nx * ny;
  const Sparse B = gridConstraints<T>(nx, ny, false).assemble();
  const Array<T, 2> Kd = toArray<T>(gridOperator<T>(nx, ny, false));
  qvtest::Rng rng(2);
  const Array<T, 1> f = qvtest::randomVector<T>(n, rng);
  for (NullFun fun : {NullFun::Orth, NullFun::Sparse}) {
    const NullSpace ns = qvNull(B, {.nullfun = fun});
    const Array<T, 2> N = toArray<T>(ns.N), expect = mul(adj(N), mul(Kd, N));
    const Vector u0 = ns.particular(Vector(qvtest::randomVector<T>(B.getM(), rng)));
    const Array<T, 1> expectV = mul(adj(N), qvtest::minus(f, mul(Kd, toArray<T>(u0))));
    for (bool lower : {false, true}) {
      SCOPED_TRACE(std::string(qvarray::nullFunName(fun)) + (lower ? ", symmetric storage" : ""));
      const Sparse K = gridOperator<T>(nx, ny, lower);
      const Sparse A = qvarray::reduceMatrix(ns, K);
      EXPECT_EQ(A.getSymm(), qvarray::SymmNone);
      EXPECT_LE(normF(qvtest::minus(toArray<T>(A), expect)), 1e-13 * normF(expect));
      const Vector h = qvarray::reduceVector(ns, K, Vector(f), u0);
      EXPECT_LE(normF(qvtest::minus(toArray<T>(h), expectV)), 1e-13 * normF(expectV));
    }
  }
}

TYPED_TEST(QvNull, EliminationAgreesWithLagrangeMultipliers) {
  using T = TypeParam;
  // Two sets of full row rank on an 8×ny grid: the mixed set without its
  // redundant rows, and the grid constraints with a multi-point constraint.
  for (size_t ny : {5, 7}) {
    const size_t n = 8 * ny;
    const Sparse B = (ny == 5 ? mixedConstraints<T>(n, 5, false) : gridConstraints<T>(8, ny, false)).assemble();
    const Sparse K = gridOperator<T>(8, ny, true);
    const Array<T, 2> Bd = toArray<T>(B);
    qvtest::Rng rng(11);
    const Array<T, 1> f = qvtest::randomVector<T>(n, rng), r = qvtest::randomVector<T>(B.getM(), rng);
    const Array<T, 1> uL = lagrangeSolve(toArray<T>(gridOperator<T>(8, ny, false)), Bd, f, r);
    for (NullFun fun : kMethods) {
      SCOPED_TRACE(std::string(qvarray::nullFunName(fun)) + ", ny " + std::to_string(ny));
      // Nᴴ·K·N·v = Nᴴ·(f − K·u₀), u = N·v + u₀.
      const NullSpace ns = qvNull(B, {.nullfun = fun});
      const Vector u0 = ns.particular(Vector(r));
      Array<T, 2> A = toArray<T>(qvarray::reduceMatrix(ns, K));
      Array<T, 1> v = toArray<T>(qvarray::reduceVector(ns, K, Vector(f), u0));
      qvarray::linsolv(A, v, qvarray::RaiseAll);
      const Array<T, 1> u = toArray<T>(qvarray::expandSolution(ns, Vector(v), u0));
      EXPECT_LE(normF(qvtest::minus(u, uL)), 1e-12 * normF(uL));
      EXPECT_LE(normF(qvtest::minus(mul(Bd, u), r)), 1e-12 * normF(r));
    }
  }
}

TEST(QvNullOptions, NamesPropertiesAndBadValues) {
  EXPECT_EQ(qvarray::parseNullFun("ORTH"), NullFun::Orth);
  EXPECT_EQ(qvarray::parseNullFun("sparse"), NullFun::Sparse);
  EXPECT_STREQ(qvarray::nullFunName(NullFun::Auto), "auto");
  qvbase::Prop props;
  qvarray::defineNullProps(props);
  EXPECT_EQ(qvarray::nullOptions(props).nullfun, NullFun::Auto);
  props.set("nullfun", std::string("Sparse"));
  EXPECT_EQ(props.getAs<std::string>("nullfun"), "sparse");
  props.set("nullranktol", 1e-6);
  const NullOptions o = qvarray::nullOptions(props);
  EXPECT_EQ(o.nullfun, NullFun::Sparse);
  EXPECT_EQ(o.rankTol, 1e-6);

  Sparse B;
  B.eye(3);
  qvtest::expectThrowsAll("Invalid_property_value",
                          {{[] { qvarray::parseNullFun("qr"); }, "nullfun"},
                           {[&] { props.set("nullfun", std::string("svd")); }, "nullfun"},
                           {[&] { props.set("nullpivottol", 0.0); }, "nullpivottol"},
                           {[&] { props.set("nullranktol", -1.0); }, "nullranktol"},
                           {[&] { qvNull(B, {.pivotTol = 2}); }, "nullpivottol"},
                           {[&] { qvNull(B, {.nullfun = static_cast<NullFun>(7)}); }, "nullfun"}});
}

TEST(QvNullInput, BadMatricesAndSizesAreRefused) {
  const Sparse N = sparsetest::tripletsOf<double>(2, 3, {{0, 0, 1.0}, {1, 2, std::nan("")}}).assemble();
  const auto e = qvtest::expectThrowKey([&] { qvNull(N); }, "Non_finite_constraint_coefficients");
  EXPECT_EQ(e.detail("Row"), "1");
  EXPECT_EQ(e.detail("Column"), "2");
  Sparse I;
  I.eye(3);
  I.setOffsets(1, 0);
  qvtest::expectThrowKey([&] { qvNull(I); }, "Internal_error_sparse");

  // The reduction helpers check their operands against the null space.
  const Sparse B = gridConstraints<double>(4, 4, false).assemble();
  const NullSpace ns = qvNull(B);
  const Sparse K = gridOperator<double>(4, 4, false), K5 = gridOperator<double>(5, 4, false);
  const Vector f(16), u0 = ns.particular(Vector(B.getM()));
  qvtest::expectThrowKey([&] { qvarray::reduceMatrix(ns, K5); }, "Size_sparse_matrices_disagree");
  qvtest::expectThrowKey([&] { qvarray::reduceVector(ns, K5, f, u0); }, "Size_sparse_matrices_disagree");
  qvtest::expectThrowKey([&] { qvarray::reduceVector(ns, K, Vector(15), u0); },
                         "Size_vector_sparse_matrix_disagree");
  qvtest::expectThrowKey([&] { qvarray::expandSolution(ns, Vector(16), u0); },
                         "Size_vector_sparse_matrix_disagree");
  EXPECT_EQ(qvarray::expandSolution(ns, Vector(ns.N.getN()), u0).size(), 16u);
}

TEST(QvNullInput, RealMatrixWithComplexRightHandSide) {
  const Sparse B = mixedConstraints<double>(40, 2, false).assemble();
  const Array<dcomplex, 2> Bz = toArray<dcomplex>(B);
  qvtest::Rng rng(5);
  const Array<dcomplex, 1> r = qvtest::randomVector<dcomplex>(8, rng);
  for (NullFun f : kMethods) {
    const Vector u0 = qvNull(B, {.nullfun = f}).particular(Vector(r));
    ASSERT_FALSE(u0.isReal());
    EXPECT_LE(normF(qvtest::minus(mul(Bz, u0.getzArr()), r)), 1e-12 * normF(r));
  }
}

}  // namespace
