// Block-parallel SOR sweeps and updates.
//
// The columns are cut into `blocks` contiguous ranges of about equal weight
// (stored entries plus columns, the split of the parallel products); block t owns its columns and the row-space entries of their
// diagonal rows, the stored rows [lo_t, hi_t) (the first block also owns the
// rows before, the last the rows after, so that every row has an owner). A
// block only ever writes the entries it owns, and the blocks are processed by
// `omp for` loops whose implicit barriers separate the phases below, so the
// results depend on the number of blocks but not on the scheduling.
//
// - Sweep: each block runs the serial sweep on its own rows (Gauss–Seidel
//   inside the block, couplings to other blocks left out: Jacobi between
//   blocks).
// - Update: phase 1 reads, for the columns whose chosen side leaves the
//   block, the off-block part of the sum from the old vector; phase 2 runs
//   the in-place update inside each block and adds those parts. The result
//   is the serial product.
// - Sweep and residual: after the block sweep, couplings across blocks are
//   added exactly: parts gathered by a block's own columns are read while no
//   block writes (phase 2a), parts scattered by another block's columns are
//   posted to per-(source, destination) lists and added by the owner after
//   its in-place pass (phase 2b), in the fixed order of sources.
#include <omp.h>

#include <algorithm>
#include <exception>
#include <mutex>
#include <utility>
#include <vector>

#include "qvarray/parallelsparse.h"
#include "sparse/relaxkernels.h"

namespace qvarray::relax {

namespace {

struct Blocks {
  size_t count = 0;
  std::vector<size_t> col;  // count + 1 column boundaries
  std::vector<size_t> lo;   // stored rows owned by block t: [lo[t], lo[t + 1])
  size_t hi(size_t t) const { return t + 1 < count ? lo[t + 1] : static_cast<size_t>(-1); }
  size_t ownerOfRow(size_t k) const {
    return static_cast<size_t>(std::upper_bound(lo.begin(), lo.end(), k) - lo.begin()) - 1;
  }
};

template <class TA>
Blocks partition(const View<TA>& A, int blocks) {
  Blocks b;
  b.count = static_cast<size_t>(blocks);
  b.col.resize(b.count + 1);
  b.lo.resize(b.count);
  const size_t firstColumn = A.shift + A.firstRow;
  for (size_t t = 0; t <= b.count; ++t)
    b.col[t] = ParallelSparse::columnSplit(A.colptr, A.n, t, b.count);
  b.lo[0] = 0;
  for (size_t t = 1; t < b.count; ++t) b.lo[t] = b.col[t] + firstColumn;
  return b;
}

// Runs body(t) for every block inside one parallel region's `omp for`; the
// first exception is rethrown after the region.
class Failure {
 public:
  template <class F>
  void guard(F&& f) noexcept {
    try {
      f();
    } catch (...) {
      std::lock_guard<std::mutex> lock(mutex_);
      if (!error_) error_ = std::current_exception();
    }
  }
  void rethrow() const {
    if (error_) std::rethrow_exception(error_);
  }

 private:
  std::mutex mutex_;
  std::exception_ptr error_;
};

template <class T>
using Posts = std::vector<std::pair<size_t, T>>;

// Walks a per-block list of (column, value) in the order of a column pass.
template <class T>
class Cursor {
 public:
  Cursor(const Posts<T>& list, bool increasing)
      : list_(list), pos_(increasing ? 0 : list.size()), increasing_(increasing) {}
  T operator()(size_t i) {
    if (increasing_) {
      if (pos_ < list_.size() && list_[pos_].first == i) return list_[pos_++].second;
    } else if (pos_ > 0 && list_[pos_ - 1].first == i) {
      return list_[--pos_].second;
    }
    return T(0);
  }

 private:
  const Posts<T>& list_;
  size_t pos_;
  bool increasing_;
};

}  // namespace

template <class TA, class TX, class TR>
int parallelSweep(const View<TA>& A, TX* x, TR* r, double omega, bool backward, int blocks) {
  const Blocks b = partition(A, blocks);
  const double w = factorsFor(A.symm, omega).omega;
  withKind<TA>(A.symm, [&](auto g, auto s, auto h) {
    withBool(backward, [&](auto bw) {
      constexpr bool G = decltype(g)::value, S = decltype(s)::value, H = decltype(h)::value;
#pragma omp parallel for schedule(static, 1) num_threads(blocks)
      for (size_t t = 0; t < b.count; ++t)
        sweepColumns<G, S, H, true, decltype(bw)::value>(A, x, r, w, b.col[t], b.col[t + 1],
                                                          b.lo[t], b.hi(t));
    });
  });
  return blocks;
}

template <class TA, class TV>
int parallelUpdate(const View<TA>& A, TV* x, double omega, bool flag, int blocks) {
  const Blocks b = partition(A, blocks);
  const double c = factorsFor(A.symm, omega).c;
  const size_t fr = A.firstRow;
  std::vector<Posts<TV>> off(b.count);
  Failure failure;
  withKind<TA>(A.symm, [&](auto, auto, auto h) {
    withBool(flag, [&](auto fl) {
      constexpr bool H = decltype(h)::value, F = decltype(fl)::value;
#pragma omp parallel num_threads(blocks)
      {
        // Phase 1: the off-block parts, read before anything is written.
#pragma omp for schedule(static, 1)
        for (size_t t = 0; t < b.count; ++t)
          failure.guard([&] {
            for (size_t i = b.col[t]; i < b.col[t + 1]; ++i) {
              const Clip cl = clipColumn(A.colptr, A.row, A.diag, i, b.lo[t], b.hi(t));
              const size_t ob = F ? cl.fHi : cl.cs, oe = F ? cl.ce : cl.bLo;
              if (ob < oe) off[t].emplace_back(i, gather<H>(A.val, A.row, x, fr, ob, oe, TV(0)));
            }
          });
        // Phase 2: the in-place update inside each block.
#pragma omp for schedule(static, 1)
        for (size_t t = 0; t < b.count; ++t)
          passColumns<true, false, H, true, F>(A, x, c, b.col[t], b.col[t + 1], b.lo[t], b.hi(t),
                                               Cursor<TV>(off[t], F));
      }
    });
  });
  failure.rethrow();
  return blocks;
}

template <class TA, class TX, class TR>
int parallelSweepUpdate(const View<TA>& A, TX* x, TR* y, double omega, bool backward,
                        int blocks) {
  const Blocks b = partition(A, blocks);
  const Factors f = factorsFor(A.symm, omega);
  const size_t fr = A.firstRow;
  const size_t nb = b.count;
  std::vector<Posts<TR>> off(nb);         // per block: gathered off-block parts
  std::vector<Posts<TR>> posts(nb * nb);  // [source · nb + destination]: (stored row, value)
  Failure failure;
  // Adds the posts addressed to block t, sources in order.
  auto receive = [&](size_t t) {
    for (size_t src = 0; src < nb; ++src)
      for (const auto& [k, v] : posts[src * nb + t]) y[k - fr] += v;
  };
  withKind<TA>(A.symm, [&](auto g, auto s, auto h) {
    withBool(backward, [&](auto bw) {
      constexpr bool G = decltype(g)::value, S = decltype(s)::value, H = decltype(h)::value;
      constexpr bool B = decltype(bw)::value;
#pragma omp parallel num_threads(blocks)
      {
        if constexpr (!G) {
          // Mode 0: sweep and in-block residual in one pass, posting the rest.
#pragma omp for schedule(static, 1)
          for (size_t t = 0; t < nb; ++t)
            failure.guard([&] {
              auto post = [&](size_t k, TR v) { posts[t * nb + b.ownerOfRow(k)].emplace_back(k, v); };
              sweepResidualGeneral<true, B>(A, x, y, f.omega, b.col[t], b.col[t + 1], b.lo[t],
                                            b.hi(t), post);
            });
#pragma omp for schedule(static, 1)
          for (size_t t = 0; t < nb; ++t) receive(t);
        } else {
#pragma omp for schedule(static, 1)
          for (size_t t = 0; t < nb; ++t)
            sweepColumns<G, S, H, true, B>(A, x, y, f.omega, b.col[t], b.col[t + 1], b.lo[t],
                                           b.hi(t));
          // Phase 2a: y holds δ everywhere; read the off-block couplings.
#pragma omp for schedule(static, 1)
          for (size_t t = 0; t < nb; ++t)
            failure.guard([&] {
              for (size_t i = b.col[t]; i < b.col[t + 1]; ++i) {
                const Clip cl = clipColumn(A.colptr, A.row, A.diag, i, b.lo[t], b.hi(t));
                if (cl.cs == cl.bLo && cl.fHi == cl.ce) continue;
                TR o = gather<H>(A.val, A.row, y, fr, cl.cs, cl.bLo, TR(0));
                o = gather<H>(A.val, A.row, y, fr, cl.fHi, cl.ce, o);
                off[t].emplace_back(i, o);
                if constexpr (S) {
                  const TR delta = y[i + A.shift];
                  for (size_t p = cl.cs; p < cl.bLo; ++p)
                    posts[t * nb + b.ownerOfRow(A.row[p])].emplace_back(A.row[p], delta * A.val[p]);
                  for (size_t p = cl.fHi; p < cl.ce; ++p)
                    posts[t * nb + b.ownerOfRow(A.row[p])].emplace_back(A.row[p], delta * A.val[p]);
                }
              }
            });
          // Phase 2b: the in-block residual, then what other blocks posted.
#pragma omp for schedule(static, 1)
          for (size_t t = 0; t < nb; ++t) {
            passColumns<G, S, H, true, !B>(A, y, f.c, b.col[t], b.col[t + 1], b.lo[t], b.hi(t),
                                           Cursor<TR>(off[t], !B));
            if constexpr (S) receive(t);
          }
        }
      }
    });
  });
  failure.rethrow();
  return blocks;
}

#define QV_RELAX_PARALLEL_SWEEPS(TA, TX, TR)                                                 \
  template int parallelSweep<TA, TX, TR>(const View<TA>&, TX*, TR*, double, bool, int);      \
  template int parallelSweepUpdate<TA, TX, TR>(const View<TA>&, TX*, TR*, double, bool, int);
QV_RELAX_PARALLEL_SWEEPS(double, double, double)
QV_RELAX_PARALLEL_SWEEPS(double, dcomplex, double)
QV_RELAX_PARALLEL_SWEEPS(double, dcomplex, dcomplex)
QV_RELAX_PARALLEL_SWEEPS(dcomplex, dcomplex, dcomplex)
#undef QV_RELAX_PARALLEL_SWEEPS

template int parallelUpdate<double, double>(const View<double>&, double*, double, bool, int);
template int parallelUpdate<double, dcomplex>(const View<double>&, dcomplex*, double, bool, int);
template int parallelUpdate<dcomplex, dcomplex>(const View<dcomplex>&, dcomplex*, double, bool,
                                                int);

}  // namespace qvarray::relax
