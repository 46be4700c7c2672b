#pragma once
// Oracles of the product tests: the represented matrix of any symmetry mode
// as a dense one, dense products in long double, random matrices and vectors,
// and a scope that sets the thread count.
#include <gtest/gtest.h>

#include <complex>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "qvarray/matriximpl.h"
#include "qvarray/sparse/sparse.h"
#include "qvutil/parallel.h"
#include "sparsetest.h"

namespace producttest {

using dcomplex = std::complex<double>;
using sparsetest::Dense;

inline constexpr Trans_t kTrans[] = {qvarray::NoTrans, qvarray::Trans, qvarray::ConjTrans};
inline constexpr Symm_t kModes[] = {qvarray::SymmNone, qvarray::SymmSymmetric,
                                    qvarray::SymmHermitian, qvarray::SymmTransposed};
inline bool isSymmetric(Symm_t s) { return s == qvarray::SymmSymmetric || s == qvarray::SymmHermitian; }

/// Sets AVAILABLETHREADS() for its lifetime, and lets every parallel step
/// start all of them, however small and however busy the machine, so that
/// the parallel kernels run.
class Threads {
 public:
  explicit Threads(int n) : saved_(AVAILABLETHREADS()), grain_(qvbase::Parallel::minWorkPerThread()) {
    qvbase::Parallel::setAvailableThreads(n);
    qvbase::Parallel::setMinWorkPerThread(1);
    qvbase::Parallel::setAdaptive(false);
  }
  ~Threads() {
    qvbase::Parallel::setAvailableThreads(saved_);
    qvbase::Parallel::setMinWorkPerThread(grain_);
    qvbase::Parallel::setAdaptive(true);
  }
  /// True when n threads can be had on this machine.
  static bool available(int n) { return MAXAVAILABLETHREADS >= n; }

 private:
  int saved_;
  size_t grain_;
};

/// Runs body(threads) with 1 and, where the machine has them, 2 threads.
template <class F>
void onOneAndTwoThreads(F&& body) {
  for (int threads : {1, 2})
    if (Threads::available(threads)) {
      Threads scope(threads);
      body(threads);
    }
}

/// The matrix that A represents (its symmetry mode applied), as a dense
/// complex matrix; stored rows are taken minus the first-row offset.
inline Dense<dcomplex> represented(const qvarray::Sparse& A) {
  const size_t m = A.getM() - A.getFirstRow(), n = A.getN();
  const Symm_t symm = A.getSymm();
  const bool transposed = symm == qvarray::SymmTransposed;
  Dense<dcomplex> D(transposed ? n : m, transposed ? m : n);
  const size_t *cp = A.getColPtr(), *row = A.getRow();
  for (size_t j = 0; j < n; ++j)
    for (size_t p = cp[j]; p < cp[j + 1]; ++p) {
      const size_t i = row[p] - A.getFirstRow();
      const dcomplex v = A.isReal() ? dcomplex(A.getDoubleVal()[p]) : A.getDcmplxVal()[p];
      (transposed ? D(j, i) : D(i, j)) += v;
      if (isSymmetric(symm)) D(j, i) += symm == qvarray::SymmHermitian ? std::conj(v) : v;
    }
  return D;
}

/// op(D) for a transposition selector (ConjTrans on a real-valued D is Trans).
inline Dense<dcomplex> applyTrans(const Dense<dcomplex>& D, qvarray::Trans_t t) {
  if (t == qvarray::NoTrans) return D;
  Dense<dcomplex> T(D.n, D.m);
  for (size_t j = 0; j < D.n; ++j)
    for (size_t i = 0; i < D.m; ++i) T(j, i) = t == qvarray::ConjTrans ? std::conj(D(i, j)) : D(i, j);
  return T;
}

/// y ± D·x in long double, and the scale Σ|d||x| + |y| of each entry for a
/// rounding bound.
struct Reference {
  std::vector<dcomplex> value;
  std::vector<double> scale;
};

inline Reference denseProduct(const Dense<dcomplex>& D, const qvarray::Vector& x,
                              const qvarray::Vector& y, bool minus = false) {
  using lcomplex = std::complex<long double>;
  Reference r{std::vector<dcomplex>(D.m), std::vector<double>(D.m)};
  for (size_t i = 0; i < D.m; ++i) {
    lcomplex s = 0;
    long double sc = std::abs(y.get(i));
    for (size_t j = 0; j < D.n; ++j) {
      const lcomplex d(D(i, j).real(), D(i, j).imag()), xv(x.get(j).real(), x.get(j).imag());
      s += d * xv;
      sc += std::abs(d) * std::abs(xv);
    }
    const lcomplex res = lcomplex(y.get(i).real(), y.get(i).imag()) + (minus ? -s : s);
    r.value[i] = dcomplex(static_cast<double>(res.real()), static_cast<double>(res.imag()));
    r.scale[i] = static_cast<double>(sc);
  }
  return r;
}

inline void expectNear(const qvarray::Vector& y, const Reference& ref, const std::string& what) {
  ASSERT_EQ(y.size(), ref.value.size()) << what;
  for (size_t i = 0; i < y.size(); ++i)
    ASSERT_LE(std::abs(y.get(i) - ref.value[i]), 1e-14 * (ref.scale[i] + 1e-300) + 1e-300)
        << what << " entry " << i;
}

/// Bit-for-bit equality of two vectors of the same kind.
inline void expectSameBits(const qvarray::Vector& a, const qvarray::Vector& b,
                           const std::string& what) {
  ASSERT_EQ(a.isReal(), b.isReal()) << what;
  ASSERT_EQ(a.size(), b.size()) << what;
  for (size_t i = 0; i < a.size(); ++i) {
    const dcomplex u = a.get(i), v = b.get(i);
    ASSERT_TRUE(std::memcmp(&u, &v, sizeof u) == 0) << what << " entry " << i << ": " << u << " vs " << v;
  }
}

inline qvarray::Vector randomVector(size_t n, bool real, unsigned seed) {
  std::mt19937_64 g(seed);
  std::uniform_real_distribution<double> u(-1, 1);
  qvarray::Vector v;
  v.resize(n, real);
  for (size_t i = 0; i < n; ++i)
    if (real)
      v.d(i) = u(g);
    else
      v.z(i) = dcomplex(u(g), u(g));
  return v;
}

/// A random m×n matrix with about `count` entries (duplicates summed), some
/// empty columns and rows, in mode `symm`.
inline qvarray::Sparse randomSparse(size_t m, size_t n, size_t count, bool real, Symm_t symm,
                                    unsigned seed) {
  std::mt19937_64 g(seed);
  std::uniform_real_distribution<double> u(-1, 1);
  sparsetest::Triplets<dcomplex> t(m, n);
  for (size_t k = 0; k < count; ++k) {
    size_t i = g() % m, j = g() % n;
    if (j % 7 == 3) j = (j + 1) % n;  // columns 3, 10, 17, … stay empty
    if (i % 11 == 5) i = (i + 1) % m;  // and rows 5, 16, 27, …
    const double re = u(g), im = u(g);
    t.add(i, j, dcomplex(re, real ? 0.0 : im));
  }
  qvarray::Sparse A = t.assemble();
  if (real) A.convertZeroImagToReal();
  A.setSymm(symm);
  return A;
}

}  // namespace producttest
