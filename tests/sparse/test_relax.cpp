// Relaxation steps: every mode and number type against dense oracles built
// from the represented matrix (Gauss–Seidel by substitution, residuals,
// triangular products), the restricted forms against the full ones and
// against the sweep of the extracted submatrix, the preparation of unsorted
// matrices, the dispatch thresholds, and the parallel kernels.
#include <gtest/gtest.h>

#include <cmath>
#include <algorithm>
#include <complex>
#include <functional>
#include <string>
#include <numeric>
#include <random>
#include <vector>

#include "qvarray/gmres.h"
#include "qvarray/sparse/poissongrid.h"
#include "producttest.h"
#include "qvarray/sparse/parallelsparse.h"
#include "qvarray/sparse/sparseproducts.h"
#include "qvarray/sparse/sparseoperator.h"
#include "qvarray/sparse/sparserelax.h"
#include "qvarray/sparse/ssorpreconditioner.h"
#include "qvtest.h"
#include "qvutil/parallel.h"
#include "sparsetest.h"

namespace {

using qvarray::Array;
using qvarray::Sparse;
using qvarray::SparseBase;
using qvarray::Symm_t;
using qvarray::Vector;
using sparsetest::dcomplex;
using sparsetest::Dense;

// How a test matrix is stored: the mode, and for the symmetric modes whether
// each off-diagonal pair sits in the lower triangle or on a random side.
struct Storage { Symm_t symm; bool mixed; };

const Storage kStorages[] = {{qvarray::SymmNone, false},      {qvarray::SymmTransposed, false},
                             {qvarray::SymmSymmetric, false}, {qvarray::SymmSymmetric, true},
                             {qvarray::SymmHermitian, false}, {qvarray::SymmHermitian, true}};

// A random stored matrix S (triplets in shuffled order) and the matrix A it
// represents, built from S by the definition of the mode.
template <class T>
struct Case {
  Sparse S;
  Dense<T> A{0, 0}, stored{0, 0};
};

template <class T>
Case<T> makeCase(size_t n, Storage st, unsigned seed, double density = 0.15) {
  qvtest::Rng rng(seed);
  std::mt19937 coin(seed);
  const bool sym = st.symm == qvarray::SymmSymmetric || st.symm == qvarray::SymmHermitian;
  const bool herm = st.symm == qvarray::SymmHermitian;
  sparsetest::Triplets<T> t(n, n);
  std::vector<double> rowSum(n, 1.0);
  for (size_t j = 0; j < n; ++j)
    for (size_t i = 0; i < n; ++i) {
      // One entry per symmetric pair, placed below the diagonal.
      if (i == j || std::uniform_real_distribution<double>(0, 1)(coin) > density || (sym && i < j)) continue;
      const T v = rng.value<T>();
      size_t r = i, c = j;
      if (sym && st.mixed && coin() % 2) std::swap(r, c);
      t.add(r, c, v);
      rowSum[i] += std::abs(v), rowSum[j] += std::abs(v);
    }
  for (size_t i = 0; i < n; ++i) {
    T d = T(rowSum[i] * (sym ? 0.5 : 1.0));
    if constexpr (std::is_same_v<T, dcomplex>) d += dcomplex(0, herm ? 0.25 : 0.5);
    t.add(i, i, d);
  }
  t.shuffle(seed + 1);
  Case<T> c;
  c.S = t.assemble();
  c.S.setSymm(st.symm);
  c.S.setForm(qvarray::FormSorted);
  c.stored = sparsetest::toDense<T>(c.S);
  c.A = Dense<T>(n, n);
  for (size_t j = 0; j < n; ++j)
    for (size_t i = 0; i < n; ++i) {
      const T s = c.stored(i, j);
      (st.symm == qvarray::SymmTransposed ? c.A(j, i) : c.A(i, j)) += s;
      if (sym) c.A(j, i) += herm ? T(2 * std::real(s)) - s : s;  // conj(s), also for real T
    }
  return c;
}

template <class T>
std::vector<T> randomVec(size_t n, unsigned seed) {
  qvtest::Rng rng(seed);
  std::vector<T> v(n);
  for (auto& e : v) e = rng.value<T>();
  return v;
}

template <class T>
const T* vdata(const Vector& v) {
  if constexpr (std::is_same_v<T, double>)
    return v.getdArr().data;
  else
    return v.getzArr().data;
}

template <class T>
void expectClose(const Vector& v, const std::vector<T>& ref, double tol = 1e-12) {
  ASSERT_EQ(v.size(), ref.size());
  ASSERT_EQ(v.isReal(), (std::is_same_v<T, double>));
  double scale = 1e-300;
  for (const T& e : ref) scale = std::max(scale, std::abs(e));
  const T* p = vdata<T>(v);
  for (size_t i = 0; i < ref.size(); ++i) ASSERT_LE(std::abs(p[i] - ref[i]), tol * scale) << i;
}

template <class T>
void expectSameVector(const Vector& a, const Vector& b, double tol = 1e-13) {
  ASSERT_EQ(a.size(), b.size());
  expectClose(a, std::vector<T>(vdata<T>(b), vdata<T>(b) + b.size()), tol);
}

// (D/ω + L)·δ = −r (forward) or (D/ω + U)·δ = −r (backward) by substitution.
template <class T>
std::vector<T> sorOracle(const Dense<T>& A, const std::vector<T>& r, double omega, bool backward) {
  const size_t n = A.n;
  std::vector<T> d(n);
  for (size_t k = 0; k < n; ++k) {
    const size_t i = backward ? n - 1 - k : k;
    T s = r[i];
    for (size_t j = 0; j < n; ++j)
      if (backward ? j > i : j < i) s += A(i, j) * d[j];
    d[i] = -omega * s / A(i, i);
  }
  return d;
}

// A·x + a·y, A dense.
template <class T>
std::vector<T> mulAdd(const Dense<T>& A, const std::vector<T>& x, const std::vector<T>& y, double a = 1) {
  std::vector<T> r(A.m, T(0));
  for (size_t j = 0; j < A.n; ++j)
    for (size_t i = 0; i < A.m; ++i) r[i] += A(i, j) * x[j];
  for (size_t i = 0; i < A.m; ++i) r[i] += a * y[i];
  return r;
}

template <class T>
std::vector<T> plus(std::vector<T> a, const std::vector<T>& b) {
  for (size_t i = 0; i < a.size(); ++i) a[i] += b[i];
  return a;
}

Array<size_t, 1> iota(size_t n, size_t from = 0) {
  Array<size_t, 1> a(n);
  for (size_t k = 0; k < n; ++k) a[k] = from + k;
  return a;
}

using sparsetest::sizes;

// Runs body<double> for every storage and body<dcomplex> for every storage;
// the Hermitian mode on real storage acts as the symmetric one.
template <class F>
void forEachCase(F&& body) {
  for (const Storage& st : kStorages) {
    body(double{}, st);
    body(dcomplex{}, st);
  }
}

testing::Message trace(Symm_t symm, bool backward) {
  return testing::Message() << "mode " << symm << (backward ? " backward" : " forward");
}

// x_i ← c·A_ii·x_i + Σ_{j>i} A_ij·x_j (upper) or over j < i (lower), A dense
// (or Aᵀ when `transposed`); `diagonalOnly` leaves out the off-diagonal sums.
template <class T>
std::vector<T> triangularProduct(const Dense<T>& A, const std::vector<T>& x, double c, bool upper,
                                 bool transposed, bool diagonalOnly) {
  std::vector<T> y(A.n);
  for (size_t i = 0; i < A.n; ++i) {
    T s = c * A(i, i) * x[i];
    for (size_t j = 0; j < A.n && !diagonalOnly; ++j)
      if (upper ? j > i : j < i) s += (transposed ? A(j, i) : A(i, j)) * x[j];
    y[i] = s;
  }
  return y;
}

// ---- every step against dense oracles ----------------------------------------------

TEST(RelaxDense, EveryStepInEveryModeDirectionAndOmega) {
  forEachCase([](auto zero, Storage st) {
    using T = decltype(zero);
    const Case<T> c = makeCase<T>(30, st, 7 + st.symm);
    const auto x0 = randomVec<T>(30, 1), r0 = randomVec<T>(30, 2);
    for (bool backward : {false, true})
      for (double omega : {1.0, 1.4}) {
        SCOPED_TRACE(trace(st.symm, backward) << (st.mixed ? " mixed" : "") << " ω " << omega);
        // The sweep: Gauss–Seidel/SOR by substitution.
        const auto delta = sorOracle(c.A, r0, omega, backward);
        Vector x(x0), r(r0);
        EXPECT_EQ(qvarray::SORIt(c.S, x, r, omega, backward), -1);
        expectClose(r, delta);
        expectClose(x, plus(x0, delta));
        // The sweep and update: y enters as the residual A·x0 − b (b = r0) and
        // leaves as that of the new iterate.
        const auto y0 = mulAdd(c.A, x0, r0, -1.0);
        const auto xNew = plus(x0, sorOracle(c.A, y0, omega, backward));
        Vector xu(x0), y(y0);
        EXPECT_EQ(qvarray::SORItUpdater(c.S, xu, y, omega, backward), -1);
        expectClose(xu, xNew);
        expectClose(y, mulAdd(c.A, xNew, r0, -1.0), 1e-11);
        // The update (flag = forward) reads each stored column as a row: (c·D + U)
        // and (c·D + L) of A in mode 3 and for lower symmetric storage (which has
        // nothing above the diagonal), of Aᵀ in mode 0.
        const bool flag = !backward, lowerSym = st.symm != qvarray::SymmNone && st.symm != qvarray::SymmTransposed;
        Vector u(x0);
        EXPECT_EQ(qvarray::SORUpdater(c.S, u, omega, flag), -1);
        if (!st.mixed)
          expectClose(u, triangularProduct(c.A, x0, (omega - 1) / omega, flag, st.symm == qvarray::SymmNone,
                                           lowerSym && !flag));
        // The Jacobi step: x − ω·D⁻¹·r (in mode 2 A_ii = 2·Re(s_ii)); r is only read.
        Vector xj(x0), rj(r0);
        EXPECT_EQ(qvarray::JacobiIts(c.S, xj, rj, omega), -1);
        std::vector<T> ref(30);
        for (size_t i = 0; i < 30; ++i) ref[i] = x0[i] - omega * r0[i] / c.A(i, i);
        expectClose(xj, ref);
        expectClose(rj, r0, 0.0);
      }
  });
}

TEST(RelaxDense, HandComputedSymmetricUpdate) {
  // Lower symmetric storage of [2 −1; −1 2] holds s = [1 0; −1 1]; the update
  // gives ω = 1: U·x = (−5, 0); ω = 2: c = 1/2, c' = 1: (1·3 − 5, 1·5).
  Sparse S;
  S.vectorTripletToSparse({0, 1, 1}, {0, 0, 1}, std::vector<double>{1.0, -1.0, 1.0}, 2, 2);
  S.setSymm(qvarray::SymmSymmetric);
  S.setForm(qvarray::FormSorted);
  for (auto [omega, y0, y1] : {std::tuple{1.0, -5.0, 0.0}, {2.0, -2.0, 5.0}}) {
    Vector u(std::vector<double>{3, 5});
    qvarray::SORUpdater(S, u, omega, true);
    EXPECT_EQ(u.d(0), y0);
    EXPECT_EQ(u.d(1), y1);
  }
}

// ---- number types ---------------------------------------------------------------------

TEST(RelaxTypes, RealStorageWithComplexVectorsActsOnBothParts) {
  const Case<double> c = makeCase<double>(20, {qvarray::SymmNone, false}, 31);
  const auto xr = randomVec<double>(20, 1), xi = randomVec<double>(20, 2);
  const auto rr = randomVec<double>(20, 3), ri = randomVec<double>(20, 4);
  std::vector<dcomplex> xz(20), rz(20);
  for (size_t i = 0; i < 20; ++i) xz[i] = {xr[i], xi[i]}, rz[i] = {rr[i], ri[i]};
  Vector x(xz), r(rz), x1(xr), r1(rr), x2(xi), r2(ri);
  for (auto [xv, rv] : {std::pair{&x, &r}, {&x1, &r1}, {&x2, &r2}}) qvarray::SORItUpdater(c.S, *xv, *rv, 1.2, false);
  for (size_t i = 0; i < 20; ++i) {
    EXPECT_NEAR(std::abs(x.z(i) - dcomplex(x1.d(i), x2.d(i))), 0, 1e-14);
    EXPECT_NEAR(std::abs(r.z(i) - dcomplex(r1.d(i), r2.d(i))), 0, 1e-14);
  }
  // A real residual keeps real arithmetic; a complex x just receives it.
  Vector xc(xz), rreal(rr), xreal(xr), rreal2(rr);
  qvarray::SORIt(c.S, xc, rreal, 1.2, false);
  EXPECT_TRUE(rreal.isReal());
  qvarray::SORIt(c.S, xreal, rreal2, 1.2, false);
  for (size_t i = 0; i < 20; ++i) EXPECT_EQ(xc.z(i), dcomplex(xreal.d(i), xi[i]));
  // Complex storage makes real vectors complex; Jacobi reads a real r as it is.
  const Case<dcomplex> z = makeCase<dcomplex>(20, {qvarray::SymmNone, false}, 32);
  Vector xj(xr), rj(rr);
  qvarray::JacobiIts(z.S, xj, rj, 1.0);
  EXPECT_FALSE(xj.isReal());
  EXPECT_TRUE(rj.isReal());
  EXPECT_NEAR(std::abs(xj.z(3) - (xr[3] - rr[3] / z.A(3, 3))), 0, 1e-15);
}

// ---- restricted forms ------------------------------------------------------------------

// With a subset J the steps act on A(J, J); with all columns listed, on A.
TEST(RelaxRestricted, ListedColumnsRelaxTheirPrincipalSubmatrix) {
  forEachCase([](auto zero, Storage st) {
    using T = decltype(zero);
    const size_t n = 30;
    const Case<T> c = makeCase<T>(n, st, 51 + st.symm, 0.3);
    const auto x0 = randomVec<T>(n, 3), r0 = randomVec<T>(n, 4);
    const auto subset = sizes({1, 2, 5, 8, 9, 10, 17, 22, 23, 29});
    for (const auto& J : {subset, iota(n)}) {
      const auto local = iota(J.size());
      Sparse sub = c.S.extractMatrix(J, J);
      sub.setForm(qvarray::FormSorted);
      std::vector<T> xl(J.size()), rl(J.size());
      for (size_t t = 0; t < J.size(); ++t) xl[t] = x0[J[t]], rl[t] = r0[J[t]];
      for (bool backward : {false, true})
        for (int step : {0, 1, 2}) {  // SORIt, SORItUpdater, SORUpdater
          SCOPED_TRACE(trace(st.symm, backward) << " step " << step << ", " << J.size() << " columns");
          auto run = [&](const Sparse& A, Vector& x, Vector& r, const auto&... lists) {
            if (step == 0) return qvarray::SORIt(A, x, r, 1.2, backward, lists...);
            if (step == 1) return qvarray::SORItUpdater(A, x, r, 1.2, backward, lists...);
            return qvarray::SORUpdater(A, x, 1.2, backward, lists...);
          };
          // Oracle: the full step of the extracted submatrix on compact vectors.
          Vector xs(xl), rs(rl);
          run(sub, xs, rs);
          // One list on the full vectors: the other entries stay as they were.
          Vector x(x0), r(r0);
          EXPECT_EQ(run(c.S, x, r, J), -1);
          std::vector<T> xe = x0, re = r0;
          for (size_t t = 0; t < J.size(); ++t) xe[J[t]] = vdata<T>(xs)[t], re[J[t]] = vdata<T>(rs)[t];
          expectClose(x, xe), expectClose(r, re);
          // Three lists on compact vectors.
          Vector x3(xl), r3(rl);
          EXPECT_EQ(run(c.S, x3, r3, J, local, local), -1);
          expectSameVector<T>(x3, xs), expectSameVector<T>(r3, rs);
        }
    }
    // The updater out of place: read the listed entries at idx2, write at idx3.
    const auto& J = subset;
    const auto local = iota(J.size());
    Sparse sub = c.S.extractMatrix(J, J);
    sub.setForm(qvarray::FormSorted);
    std::vector<T> v0(2 * J.size()), xl(J.size());
    for (size_t t = 0; t < J.size(); ++t) v0[t] = xl[t] = x0[J[t]];
    Vector v(v0), vs(xl);
    qvarray::SORUpdater(sub, vs, 1.5, true);
    qvarray::SORUpdater(c.S, v, 1.5, true, J, local, iota(J.size(), J.size()));
    for (size_t t = 0; t < J.size(); ++t) {
      EXPECT_EQ(vdata<T>(v)[t], v0[t]);
      EXPECT_NEAR(std::abs(vdata<T>(v)[J.size() + t] - vdata<T>(vs)[t]), 0, 1e-13);
    }
  });
}

// ---- preparation and errors -----------------------------------------------------------

TEST(RelaxPreparation, UnsortedMatricesAreRefusedAndMissingDiagonalsReported) {
  // Rows in first-appearance order: column 0 holds rows 2, 0.
  Sparse A;
  A.vectorTripletToSparse({2, 0, 1, 0}, {0, 0, 2, 1}, std::vector<double>{2.0, 1.0, 3.0, 4.0}, 3, 3);
  Vector x(std::vector<double>{1, 2, 3}), r(std::vector<double>{4, 5, 6});
  qvtest::expectThrowKey([&] { qvarray::SORIt(A, x, r, 1.0, false); }, "Internal_error_sparse",
                         "Relaxation needs the rows sorted within each column: call "
                         "setForm(FormSorted) first.");
  EXPECT_EQ(A.getForm(), qvarray::FormUnordered);
  A.setForm(qvarray::FormSorted);  // no (1,1), (2,2)
  for (const auto& step : std::vector<std::function<void()>>{
           [&] { qvarray::SORIt(A, x, r, 1.0, false); },
           [&] { qvarray::JacobiIts(A, x, r, 1.0); },
           [&] { qvarray::SORUpdater(A, x, 1.0, true); },
           [&] { qvarray::SORItUpdater(A, x, r, 1.0, false, sizes({0})); }}) {
    auto e = qvtest::expectThrowKey(step, "Matrix_has_zero_on_diagonal", "1");  // ("Column", 1)
    EXPECT_EQ(e.module(), "sparse");
  }
  EXPECT_EQ(x.d(1), 2.0);
  EXPECT_EQ(r.d(1), 5.0);
  // A stored zero on the diagonal divides by zero, as documented.
  Sparse Z;
  Z.vectorTripletToSparse({0, 1}, {0, 1}, std::vector<double>{0.0, 1.0}, 2, 2);
  Z.setForm(qvarray::FormSorted);
  Vector xz(2), rz(std::vector<double>{1, 1});
  qvarray::SORIt(Z, xz, rz, 1.0, false);
  EXPECT_FALSE(std::isfinite(xz.d(0)));
}

TEST(RelaxPreparation, BadArgumentsRaise) {
  const Case<double> c = makeCase<double>(5, {qvarray::SymmNone, false}, 71);
  Vector x(5), r(4), v(5);
  qvtest::expectThrowsAll("Size_vector_sparse_matrix_disagree",
                          {{[&] { qvarray::SORIt(c.S, x, r, 1.0, false); }, ""},
                           {[&] { qvarray::JacobiIts(c.S, r, v, 1.0); }, ""},
                           {[&] { qvarray::SORUpdater(c.S, r, 1.0, true); }, ""},
                           {[&] { qvarray::SORIt(c.S, x, r, 1.0, false, sizes({1}), sizes({0}), sizes({4})); }, ""}});
  qvtest::expectThrowsAll(
      "Internal_error_sparse",
      {{[&] { qvarray::SORIt(c.S, x, v, 1.0, false, sizes({2, 1})); }, "Column list not strictly increasing."},
       {[&] { qvarray::SORUpdater(c.S, v, 1.0, true, sizes({1, 5})); }, "Column index out of range."},
       {[&] { qvarray::SORIt(c.S, x, v, 1.0, false, sizes({1, 2}), sizes({0}), sizes({0, 1})); },
        "Index lists of different lengths."}});
}

// ---- offsets of a partial matrix ------------------------------------------------------

// The stored matrix of c moved down by `fc` rows and marked as a block whose
// first row and column are fr and fc: column i's diagonal sits in row i + fc.
template <class T>
Sparse shiftedCopy(const Case<T>& c, Symm_t symm, size_t fr, size_t fc) {
  const size_t n = c.stored.n;
  std::vector<size_t> rows, cols;
  std::vector<T> vals;
  for (size_t j = 0; j < n; ++j)
    for (size_t a = 0; a < n; ++a)
      if (c.stored(a, j) != T(0)) rows.push_back(a + fc), cols.push_back(j), vals.push_back(c.stored(a, j));
  Sparse P;
  P.vectorTripletToSparse(rows, cols, vals, n + fc, n);
  P.setSymm(symm);
  P.setForm(qvarray::FormSorted);
  P.setOffsets(fr, fc);
  return P;
}

TEST(RelaxOffsets, PartialMatricesAddressTheShiftedRowSpace) {
  const size_t n = 12, fr = 2, fc = 5, pad = fc - fr;  // column i owns r[i + 3]
  for (const Storage& st : kStorages) {
    SCOPED_TRACE(testing::Message() << "mode " << st.symm);
    const Case<double> c = makeCase<double>(n, st, 81 + st.symm, 0.3);
    const Sparse P = shiftedCopy(c, st.symm, fr, fc);
    const auto x0 = randomVec<double>(n, 1), r0 = randomVec<double>(n, 2);
    std::vector<double> rp0(pad, 7.0);  // the first `pad` entries belong to no column
    rp0.insert(rp0.end(), r0.begin(), r0.end());
    for (bool backward : {false, true}) {
      Vector x(x0), r(r0), xp(x0), rp(rp0);
      qvarray::SORItUpdater(c.S, x, r, 1.3, backward);
      qvarray::SORItUpdater(P, xp, rp, 1.3, backward);
      expectSameVector<double>(xp, x, 0.0);
      for (size_t i = 0; i < n + pad; ++i) EXPECT_EQ(rp.d(i), i < pad ? 7.0 : r.d(i - pad)) << i;
      Vector u(r0), up(rp0);
      qvarray::SORUpdater(c.S, u, 1.3, backward);
      qvarray::SORUpdater(P, up, 1.3, backward);
      for (size_t i = 0; i < n; ++i) EXPECT_EQ(up.d(i + pad), u.d(i)) << i;
    }
    // The Jacobi step reads r by column index, without the offsets.
    Vector xj(x0), rj(rp0);
    qvarray::JacobiIts(P, xj, rj, 1.0);
    for (size_t i = 0; i < n; ++i) EXPECT_NEAR(xj.d(i), x0[i] - rp0[i] / c.A(i, i), 1e-14) << i;
    // ... so an r of just the n entries it reads is enough.
    Vector xs(x0), rs(r0);
    qvarray::JacobiIts(P, xs, rs, 1.0);
    for (size_t i = 0; i < n; ++i) EXPECT_NEAR(xs.d(i), x0[i] - r0[i] / c.A(i, i), 1e-14) << i;
  }
  Sparse bad = makeCase<double>(4, kStorages[0], 1).S;
  bad.setOffsets(3, 1);
  Vector x(4), r(1);
  qvtest::expectThrowKey([&] { qvarray::SORIt(bad, x, r, 1.0, false); }, "Internal_error_sparse",
                         "The first column of a partial matrix lies before its first row.");
}

// ---- dispatch and the parallel kernels --------------------------------------------------

// AVAILABLETHREADS() for the scope, every step on all of them (see producttest.h).
using producttest::Threads;

// The n×n identity plus `extra` entries below the diagonal of the first column.
Sparse identityPlus(size_t n, size_t extra) {
  std::vector<size_t> rows(n), cols(n);
  std::iota(rows.begin(), rows.end(), 0), std::iota(cols.begin(), cols.end(), 0);
  std::vector<double> vals(n, 2.0);
  for (size_t k = 1; k <= extra; ++k) rows.push_back(k), cols.push_back(0), vals.push_back(-0.5);
  Sparse A;
  A.vectorTripletToSparse(rows, cols, vals, n, n);
  A.setForm(qvarray::FormSorted);
  return A;
}

TEST(RelaxDispatch, ThresholdsAndThreads) {
  if (qvbase::Parallel::maxThreads() < 2) GTEST_SKIP() << "one thread only";
  Threads two(2);
  Vector x(10000), r(10000, 1.0);
  EXPECT_EQ(qvarray::JacobiIts(identityPlus(10000, 0), x, r, 1.0), 2);
  Vector x9(9999), r9(9999, 1.0);
  EXPECT_EQ(qvarray::JacobiIts(identityPlus(9999, 5), x9, r9, 1.0), -1);  // columns decide
  EXPECT_EQ(qvarray::SORIt(identityPlus(9999, 0), x9, r9, 1.0, false), -1);
  const Sparse A = identityPlus(9999, 1);  // 10000 entries
  EXPECT_EQ(qvarray::SORIt(A, x9, r9, 1.0, false), 2);
  EXPECT_TRUE(A.hasParallelData());
  EXPECT_EQ(qvarray::SORUpdater(A, x9, 1.0, true), 2);
  EXPECT_EQ(qvarray::SORItUpdater(static_cast<const SparseBase&>(A), x9, r9, 1.0, false), 2);
  EXPECT_EQ(qvarray::SORIt(A, x9, r9, 1.0, false, sizes({0, 1})), -1);  // lists: serial
  Threads one(1);
  EXPECT_EQ(qvarray::JacobiIts(identityPlus(10000, 0), x, r, 1.0), -1);
  EXPECT_EQ(qvarray::SORIt(static_cast<const SparseBase&>(A), x9, r9, 1.0, false), -1);
}

// The grid's b is computed from the stencil, not from the matrix: A·u = b
// checks the assembly in both storages and dimensions.
TEST(PoissonGrid, ManufacturedSolutionSolvesTheAssembledSystemAndBadGridsRaise) {
  for (int dim : {2, 3})
    for (bool lowerHalf : {false, true}) {
      const qvarray::PoissonGrid g{dim, 7};
      std::vector<double> u, b;
      qvarray::manufacturedSolution(g, u, b);
      const Sparse A = qvarray::assemblePoisson(g, lowerHalf);
      ASSERT_EQ(A.getN(), g.unknowns());
      Vector r(b);
      qvarray::yMinusAMulx(r, A, Vector(u), qvarray::NoTrans);
      EXPECT_LT(r.normInf(), 1e-14) << dim << "D, lower half " << lowerHalf;
    }
  EXPECT_THROW(qvarray::assemblePoisson({4, 5}), qvbase::Exception);
  EXPECT_THROW(qvarray::assemblePoisson({2, 0}), qvbase::Exception);
  EXPECT_THROW(qvarray::assemblePoisson({3, size_t{1} << 22}), std::bad_alloc);
}

// A Poisson matrix in the given storage and a residual to relax.
Sparse poissonIn(Symm_t symm, size_t n) {
  const qvarray::PoissonGrid g{2, n};
  Sparse A = qvarray::assemblePoisson(g, symm == qvarray::SymmSymmetric);
  if (symm == qvarray::SymmTransposed) A.setSymm(symm);  // symmetric: the same A
  A.setForm(qvarray::FormSorted);
  return A;
}

TEST(RelaxParallel, JacobiAndUpdaterGiveTheSerialResults) {
  if (qvbase::Parallel::maxThreads() < 2) GTEST_SKIP() << "one thread only";
  for (Symm_t symm : {qvarray::SymmNone, qvarray::SymmTransposed, qvarray::SymmSymmetric}) {
    const Sparse A = poissonIn(symm, 110);
    const size_t N = A.getN();
    const auto x0 = randomVec<double>(N, 1), r0 = randomVec<double>(N, 2);
    auto run = [&](int threads) {
      Threads t(threads);
      const int expected = threads == 1 ? -1 : 2;
      std::vector<Vector> v{Vector(x0), Vector(x0), Vector(x0)};
      Vector r(r0);
      EXPECT_EQ(qvarray::JacobiIts(A, v[0], r, 0.8), expected);
      EXPECT_EQ(qvarray::SORUpdater(A, v[1], 1.3, true), expected);
      EXPECT_EQ(qvarray::SORUpdater(A, v[2], 1.3, false), expected);
      return v;
    };
    const auto serial = run(1), parallel = run(2);
    for (int k = 0; k < 3; ++k) expectSameVector<double>(parallel[k], serial[k], 0.0);
  }
}

// The represented matrix row by row: (column, value) pairs.
std::vector<std::vector<std::pair<size_t, double>>> rowsOf(const Sparse& S) {
  std::vector<std::vector<std::pair<size_t, double>>> rows(S.getN());
  const bool sym = S.getSymm() == qvarray::SymmSymmetric, transposed = S.getSymm() == qvarray::SymmTransposed;
  for (size_t j = 0; j < S.getN(); ++j)
    for (size_t p = S.getColPtr()[j]; p < S.getColPtr()[j + 1]; ++p) {
      const size_t k = S.getRow()[p];
      const double v = S.getDoubleVal()[p];
      (transposed ? rows[j] : rows[k]).emplace_back(transposed ? k : j, v);
      if (sym) rows[j].emplace_back(k, v);
    }
  return rows;
}

TEST(RelaxParallel, SweepIsTheSorSweepOfTheParallelOrderingAndKeepsTheExactResidual) {
  if (qvbase::Parallel::maxThreads() < 2) GTEST_SKIP() << "one thread only";
  Threads two(2);
  for (Symm_t symm : {qvarray::SymmNone, qvarray::SymmTransposed, qvarray::SymmSymmetric})
    for (bool backward : {false, true}) {
      SCOPED_TRACE(testing::Message() << "mode " << symm << (backward ? " backward" : ""));
      const Sparse A = poissonIn(symm, 90);
      const size_t N = A.getN();
      // The ordering, derived here from its definition: interior columns of
      // both blocks, then the columns coupled across the cut.
      const size_t cut = ParallelSparse::columnSplit(A.getColPtr(), N, 1, 2);
      ASSERT_TRUE(cut > 0 && cut < N) << cut;
      std::vector<char> boundary(N, 0);
      for (size_t j = 0; j < N; ++j)
        for (size_t p = A.getColPtr()[j]; p < A.getColPtr()[j + 1]; ++p)
          if ((A.getRow()[p] < cut) != (j < cut)) boundary[j] = boundary[A.getRow()[p]] = 1;
      std::vector<size_t> order;
      for (int pass = 0; pass < 2; ++pass)
        for (size_t j = 0; j < N; ++j)
          if (boundary[j] == pass) order.push_back(j);
      if (backward) std::reverse(order.begin(), order.end());
      std::vector<size_t> pos(N);
      for (size_t k = 0; k < N; ++k) pos[order[k]] = k;
      // Oracle: SOR in that order on the represented matrix.
      const auto rows = rowsOf(A);
      auto sweep = [&](const double* r) {
        std::vector<double> delta(N);
        for (size_t i : order) {
          double s = r[i], d = 0;
          for (const auto& [j, v] : rows[i]) {
            if (j == i) d += v;
            else if (pos[j] < pos[i]) s += v * delta[j];
          }
          delta[i] = -1.3 * s / d;
        }
        return delta;
      };
      const auto x0 = randomVec<double>(N, 3), r0 = randomVec<double>(N, 4), delta = sweep(r0.data());
      Vector x(x0), r(r0), x2(x0), r2(r0);
      EXPECT_EQ(qvarray::SORIt(A, x, r, 1.3, backward), 2);
      expectClose(r, delta, 1e-13);
      expectClose(x, plus(x0, delta), 1e-13);
      qvarray::SORIt(A, x2, r2, 1.3, backward);
      expectSameVector<double>(x2, x, 0.0), expectSameVector<double>(r2, r, 0.0);  // repeatable
      // The updater sweeps on the residual A·x − b and y leaves as the exact
      // residual of the new x.
      const Vector b(r0);
      auto residual = [&](const Vector& v) { return qvarray::AMulx(A, v, qvarray::NoTrans) -= b; };
      Vector xu(x0), y = residual(xu);
      const auto deltaU = sweep(vdata<double>(y));
      EXPECT_EQ(qvarray::SORItUpdater(A, xu, y, 1.3, backward), 2);
      expectClose(xu, plus(x0, deltaU), 1e-13);
      expectSameVector<double>(y, residual(xu), 1e-13);
    }
}

// On 2 threads a step has 2 parts, whether a team of two runs them or the
// calling thread runs both (below the work grain, or while the machine is
// busy): the sweeps and a GMRES solve with the SOR preconditioner give the
// same bits either way.
TEST(RelaxParallel, TwoPartsGiveTheSameBitsOnATeamOfOneOrTwo) {
  if (qvbase::Parallel::maxThreads() < 2) GTEST_SKIP() << "one thread only";
  for (Symm_t symm : {qvarray::SymmNone, qvarray::SymmSymmetric}) {
    const Sparse A = poissonIn(symm, 60);  // 1.8·10⁴ entries: parallel steps
    const size_t N = A.getN();
    const auto x0 = randomVec<double>(N, 7), r0 = randomVec<double>(N, 8);
    auto run = [&](size_t grain) {
      Threads two(2);
      qvbase::Parallel::setMinWorkPerThread(grain);
      std::vector<Vector> v{Vector(x0), Vector(r0), Vector(x0), Vector(r0), Vector()};
      for (bool backward : {false, true}) {
        EXPECT_EQ(qvarray::SORIt(A, v[0], v[1], 1.3, backward), 2);
        EXPECT_EQ(qvarray::SORItUpdater(A, v[2], v[3], 1.3, backward), 2);
      }
      const qvarray::SparseOperator op(A);
      const qvarray::SsorPreconditioner pre(A, 1.5);
      qvarray::GmresOptions o;
      o.maxIter = 40, o.tol = 0.0, o.precond = &pre;
      EXPECT_EQ(qvarray::gmres(op, Vector(r0), v[4], o).iterations, 40);
      return v;
    };
    const auto team = run(1), caller = run(size_t{1} << 40);
    for (size_t k = 0; k < team.size(); ++k) expectSameVector<double>(caller[k], team[k], 0.0);
  }
}

}  // namespace
