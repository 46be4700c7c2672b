// Parallel SOR sweeps and updates.
//
// Blocks. The columns are cut into `blocks` contiguous ranges of about equal
// weight (stored entries plus columns: the column split of the parallel
// products). Block t owns the row-space entries of its columns' diagonal
// rows, the stored rows [lo_t, lo_t+1) (the first block also owns the rows
// before, the last the rows after, so that every row has an owner).
//
// Ordering. A column is a boundary column when it is coupled to another
// block: one of its entries lies in a row another block owns, or a column of
// another block has an entry in its diagonal row. All other columns are
// interior: their entries lie in rows of their own block, and no other block
// has entries in their rows. The parallel sweep is the SOR sweep for the
// ordering P = the interior columns of every block (increasing within a
// block; interiors of different blocks do not couple), then the boundary
// columns (increasing). A forward sweep relaxes the interiors of all blocks
// at once and then the boundary columns on one thread; a backward sweep runs
// P in reverse, boundary columns first. It is a true SOR sweep of the
// symmetrically permuted matrix, so it converges as the serial sweep does for
// every ω; the result depends on the number of blocks (through P), never on
// the scheduling or on how many threads run the blocks (a qvbase::Team may
// run them all on the calling thread). Interior columns whose entries all
// lie in interior rows take the serial kernel's step; the others tell the
// rows that come earlier in P by a per-row flag.
//
// The sweep with residual (SORItUpdater) gives y = r + A·δ exactly: mode 0 in
// the same pass (its fused step works in any order), the gathering kinds by a
// second in-place pass in the order of the sweep. The update (SORUpdater) is
// a product with the old vector: the parts copy it (phase 1), then compute
// their columns from the copy (phase 2), each value with the arithmetic of
// the serial pass, so that the result is the serial one bit for bit and a
// team of one runs the serial pass itself.
#include <algorithm>
#include <utility>
#include <vector>

#include "qvarray/sparse/parallelsparse.h"
#include "qvutil/parallel.h"
#include "sparse/relaxkernels.h"

namespace qvarray::relax {

// ---- the ordering ------------------------------------------------------------------

template <class TA>
std::shared_ptr<const Ordering> makeOrdering(const View<TA>& A, int blocks) {
  auto P = std::make_shared<Ordering>();
  const size_t n = A.n, nb = static_cast<size_t>(blocks);
  const size_t fr = A.firstRow, fc = A.shift + A.firstRow;
  const size_t rows = A.m - fr;  // row-space length (the caller checked m ≥ first row)
  P->blocks = nb;
  P->col.resize(nb + 1);
  P->lo.resize(nb);
  for (size_t t = 0; t <= nb; ++t) P->col[t] = ParallelSparse::columnSplit(A.colptr, n, t, nb);
  P->lo[0] = 0;
  for (size_t t = 1; t < nb; ++t) P->lo[t] = P->col[t] + fc;
  // Boundary columns: an entry in another block's row marks its column and
  // the column of that row.
  std::vector<unsigned char> boundary(n, 0);
  for (size_t t = 0; t < nb; ++t) {
    const size_t lo = P->lo[t], hi = P->hi(t);
    for (size_t j = P->col[t]; j < P->col[t + 1]; ++j)
      for (size_t p = A.colptr[j]; p < A.colptr[j + 1]; ++p) {
        const size_t k = A.row[p];
        if (k >= lo && k < hi) continue;
        boundary[j] = 1;
        if (k - fc < n) boundary[k - fc] = 1;
      }
  }
  // Rows: interior when they are the diagonal row of an interior column; rows
  // of no column count as boundary rows.
  P->rowInterior.assign(rows, 0);
  for (size_t j = 0; j < n; ++j)
    if (!boundary[j]) P->rowInterior[j + A.shift] = 1;
  P->kind.resize(n);
  for (size_t j = 0; j < n; ++j) {
    if (boundary[j]) {
      P->kind[j] = Ordering::kBoundary;
      P->boundary.push_back(j);
      continue;
    }
    bool deep = true;
    for (size_t p = A.colptr[j]; p < A.colptr[j + 1] && deep; ++p)
      deep = P->rowInterior[A.row[p] - fr] != 0;
    P->kind[j] = deep ? Ordering::kDeep : Ordering::kNear;
  }
  return P;
}

template std::shared_ptr<const Ordering> makeOrdering(const View<double>&, int);
template std::shared_ptr<const Ordering> makeOrdering(const View<dcomplex>&, int);

namespace {

// Which rows a step at column i has already seen in the sweep's visiting
// order (P forward, P reversed backward), by row-space index k.
struct Seen {
  const unsigned char* interior;
  size_t ri;  // column i's own row
  bool boundaryColumn;
  bool backward;
  bool operator()(size_t k) const {
    const bool in = interior[k] != 0;
    const bool earlierInP = boundaryColumn ? (in || k < ri) : (in && k < ri);
    return backward ? !earlierInP && k != ri : earlierInP;
  }
};

// One SOR step in the parallel ordering: gather over the rows seen, scatter
// over the others.
template <bool Gather, bool Scatter, bool Herm, class TA, class TX, class TR>
void orderedSweepStep(const View<TA>& A, TX* x, TR* r, double omega, size_t i, const Seen& seen) {
  const size_t fr = A.firstRow;
  const size_t cs = A.colptr[i], ce = A.colptr[i + 1], dp = A.diag[i];
  TR& ri = r[i + A.shift];
  TR s = ri;
  if constexpr (Gather)
    for (size_t p = cs; p < ce; ++p) {
      const size_t k = A.row[p] - fr;
      if (p != dp && seen(k)) s += mirror<Herm>(A.val[p]) * r[k];
    }
  const TR delta = -(s / divisor<Herm>(A.val[dp])) * omega;
  ri = delta;
  x[i] += delta;
  if constexpr (Scatter)
    for (size_t p = cs; p < ce; ++p) {
      const size_t k = A.row[p] - fr;
      if (p != dp && !seen(k)) r[k] += delta * A.val[p];
    }
}

// One step of the residual pass in the parallel ordering: v_i ← c·d_i·v_i +
// Σ over the rows not yet seen (still δ) of mirror(a)·v_k, and v_k += a·v_i_old
// for the rows seen (already residuals).
template <bool Gather, bool Scatter, bool Herm, class TA, class TV>
void orderedPassStep(const View<TA>& A, TV* v, double c, size_t i, const Seen& seen) {
  const size_t fr = A.firstRow;
  const size_t cs = A.colptr[i], ce = A.colptr[i + 1], dp = A.diag[i];
  TV& vi = v[i + A.shift];
  const TV old = vi;
  TV w = c * divisor<Herm>(A.val[dp]) * old;
  for (size_t p = cs; p < ce; ++p) {
    if (p == dp) continue;
    const size_t k = A.row[p] - fr;
    if (seen(k)) {
      if constexpr (Scatter) v[k] += A.val[p] * old;
    } else if constexpr (Gather) {
      w += mirror<Herm>(A.val[p]) * v[k];
    }
  }
  vi = w;
}

// Runs the steps of one sweep (or pass) in the parallel ordering: the
// interiors of the blocks as parts of one parallel step, and the boundary
// columns on the calling thread, after them forward and before them backward,
// so that a sweep costs one parallel region and no barrier. deepStep(i)
// serves interior columns with interior rows only, orderedStep(i, seen) the
// others.
template <class Deep, class Ordered>
void inOrder(const Ordering& P, size_t work, bool backward, Deep&& deepStep,
             Ordered&& orderedStep) {
  auto interiors = [&](int part) {
    const size_t t = static_cast<size_t>(part), c0 = P.col[t], c1 = P.col[t + 1];
    for (size_t k = 0; k < c1 - c0; ++k) {
      const size_t i = backward ? c1 - 1 - k : c0 + k;
      if (P.kind[i] == Ordering::kDeep)
        deepStep(i);
      else if (P.kind[i] == Ordering::kNear)
        orderedStep(i, false);
    }
  };
  auto boundaries = [&] {
    const size_t nbd = P.boundary.size();
    for (size_t k = 0; k < nbd; ++k) orderedStep(P.boundary[backward ? nbd - 1 - k : k], true);
  };
  if (backward) boundaries();
  qvbase::runParts(static_cast<int>(P.blocks), work, interiors);
  if (!backward) boundaries();
}

// The work units of a sweep or update: stored entries and columns.
template <class TA>
size_t stepWork(const View<TA>& A) {
  return A.colptr[A.n] + A.n;
}

// A scratch vector of at least n entries, kept by the calling thread.
template <class T>
T* scratch(size_t n) {
  static thread_local std::vector<T> buffer;
  if (buffer.size() < n) buffer.resize(n);
  return buffer.data();
}

}  // namespace

template <class TA, class TX, class TR>
int parallelSweep(const View<TA>& A, const Ordering& P, TX* x, TR* r, double omega,
                  bool backward) {
  const double w = factorsFor(A.symm, omega).omega;
  const unsigned char* interior = P.rowInterior.data();
  const size_t work = stepWork(A);
  withKind<TA>(A.symm, [&](auto g, auto s, auto h) {
    withBool(backward, [&](auto bw) {
      constexpr bool G = decltype(g)::value, S = decltype(s)::value, H = decltype(h)::value;
      constexpr bool B = decltype(bw)::value;
      inOrder(
          P, work, B,
          [&](size_t i) {
            sweepColumn<G, S, H, B>(A, x, r, w, i, sidesOf(A.colptr, A.diag, i));
          },
          [&](size_t i, bool bd) {
            orderedSweepStep<G, S, H>(A, x, r, w, i, Seen{interior, i + A.shift, bd, B});
          });
    });
  });
  return static_cast<int>(P.blocks);
}

template <class TA, class TX, class TR>
int parallelSweepUpdate(const View<TA>& A, const Ordering& P, TX* x, TR* y, double omega,
                        bool backward) {
  const Factors f = factorsFor(A.symm, omega);
  const unsigned char* interior = P.rowInterior.data();
  const size_t work = stepWork(A);
  withKind<TA>(A.symm, [&](auto g, auto s, auto h) {
    withBool(backward, [&](auto bw) {
      constexpr bool G = decltype(g)::value, S = decltype(s)::value, H = decltype(h)::value;
      constexpr bool B = decltype(bw)::value;
      if constexpr (!G) {
        // Mode 0: the fused step, in the order of the sweep.
        auto step = [&](size_t i) { sweepResidualColumn(A, x, y, f.omega, i); };
        inOrder(P, work, B, step, [&](size_t i, bool) { step(i); });
      } else {
        inOrder(
            P, work, B,
            [&](size_t i) {
              sweepColumn<G, S, H, B>(A, x, y, f.omega, i, sidesOf(A.colptr, A.diag, i));
            },
            [&](size_t i, bool bd) {
              orderedSweepStep<G, S, H>(A, x, y, f.omega, i, Seen{interior, i + A.shift, bd, B});
            });
        // y holds δ: the residual pass visits the columns in the same order.
        inOrder(
            P, work, B,
            [&](size_t i) {
              passColumn<G, S, H, !B>(A, y, f.c, i, sidesOf(A.colptr, A.diag, i));
            },
            [&](size_t i, bool bd) {
              orderedPassStep<G, S, H>(A, y, f.c, i, Seen{interior, i + A.shift, bd, B});
            });
      }
    });
  });
  return static_cast<int>(P.blocks);
}

template <class TA, class TV>
int parallelUpdate(const View<TA>& A, TV* x, double omega, bool flag, int blocks) {
  const qvbase::Team team(blocks, stepWork(A));
  if (team.threads() == 1) {
    serialUpdate(A, x, omega, flag);
    return blocks;
  }
  const double c = factorsFor(A.symm, omega).c;
  const size_t n = A.n, nb = static_cast<size_t>(blocks);
  const size_t rows = A.m - A.firstRow;
  TV* old = scratch<TV>(rows);
  withKind<TA>(A.symm, [&](auto, auto, auto h) {
    withBool(flag, [&](auto fl) {
      constexpr bool H = decltype(h)::value, F = decltype(fl)::value;
      auto copy = [&](int part) {
        const size_t t = static_cast<size_t>(part);
        std::copy(x + rows * t / nb, x + rows * (t + 1) / nb, old + rows * t / nb);
      };
      auto update = [&](int part) {
        const size_t t = static_cast<size_t>(part);
        const size_t c0 = ParallelSparse::columnSplit(A.colptr, n, t, nb);
        const size_t c1 = ParallelSparse::columnSplit(A.colptr, n, t + 1, nb);
        for (size_t i = c0; i < c1; ++i)
          x[i + A.shift] = updatedValue<H, F>(A, old, c, i, sidesOf(A.colptr, A.diag, i));
      };
      team.run(copy, update);
    });
  });
  return blocks;
}

#define QV_RELAX_PARALLEL_SWEEPS(TA, TX, TR)                                                   \
  template int parallelSweep<TA, TX, TR>(const View<TA>&, const Ordering&, TX*, TR*, double,   \
                                         bool);                                                \
  template int parallelSweepUpdate<TA, TX, TR>(const View<TA>&, const Ordering&, TX*, TR*,     \
                                               double, bool);
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
