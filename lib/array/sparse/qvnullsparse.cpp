// qvNull, sparse method: Gauss–Jordan elimination of one block's constraints.
//
// Every pivot unknown p carries its expression through the free unknowns,
//   u_p = g_p + Σ_j c_pj·u_j,   g_p = Σ_i w_pi·r_i,
// so the expressions stay in reduced form. Constraint k, Σ_j b_kj·u_j = r_k,
// is taken up by substituting the expressions of its pivot unknowns:
//   Σ_free b'_kj·u_j = Σ_i w'_i·r_i,  b'_kj = b_kj + Σ_p b_kp·c_pj,
//   w' = e_k − Σ_p b_kp·w_p.
// If every |b'_kj| is at most rankTol times the magnitudes that were summed
// into it, constraint k is redundant and conj(w') spans part of null(Bᴴ).
// Otherwise a pivot q is chosen among the free unknowns with
// |b'_kq| ≥ pivotTol·max|b'_k|, its expression is u_q = (w'·r − Σ_{j≠q} b'_kj·u_j)/b'_kq,
// and it is substituted into the expressions that use u_q.
#include <algorithm>
#include <string>

#include "sparse/qvnullimpl.h"

namespace qvarray::nulldetail {

namespace {

// Adds a·src to the sparse list dst (entries keyed by index, order kept, new
// indices appended); sums that cancel to within rankTol of what was added are
// dropped. `where` (npos everywhere on entry and exit) maps an index to its
// place in dst. Calls onNew(index) for every index that dst did not hold.
template <class T, class OnNew>
void addScaled(std::vector<std::pair<size_t, T>>& dst, T a,
               const std::vector<std::pair<size_t, T>>& src, double rankTol,
               std::vector<size_t>& where, OnNew onNew) {
  for (size_t k = 0; k < dst.size(); ++k) where[dst[k].first] = k;
  for (const auto& [j, x] : src) {
    const T ax = a * x;
    if (where[j] == npos) {
      where[j] = dst.size();
      dst.emplace_back(j, ax);
      onNew(j);
    } else {
      T& d = dst[where[j]].second;
      const double scale = std::abs(d) + std::abs(ax);
      d += ax;
      if (std::abs(d) <= rankTol * scale) d = T(0);
    }
  }
  // Remove the cancelled entries and reset `where`.
  size_t q = 0;
  for (size_t k = 0; k < dst.size(); ++k) {
    where[dst[k].first] = npos;
    if (dst[k].second != T(0)) dst[q++] = dst[k];
  }
  dst.resize(q);
}

template <class T>
void prepare(EliminationWork<T>& w, size_t mb, size_t cb) {
  if (w.pivotOf.size() < cb) {
    w.pivotOf.resize(cb);
    w.remaining.resize(cb);
    w.users.resize(cb);
    w.acc.resize(cb, T(0));
    w.mag.resize(cb, 0.0);
    w.where.resize(cb, npos);
    w.isTouched.resize(cb, 0);
  }
  if (w.wacc.size() < mb) {
    w.wacc.resize(mb, T(0));
    w.isWTouched.resize(mb, 0);
  }
  if (w.where.size() < mb) w.where.resize(mb, npos);
  std::fill(w.pivotOf.begin(), w.pivotOf.begin() + cb, npos);
  std::fill(w.remaining.begin(), w.remaining.begin() + cb, size_t(0));
  for (size_t t = 0; t < cb; ++t) w.users[t].clear();
  w.expr.clear();
  w.redundant.clear();
  w.independent.clear();
}

}  // namespace

template <class T>
bool eliminateBlock(const Constraints<T>& B, const Blocks& blocks, size_t b,
                    const NullOptions& o, bool mayDecline, EliminationWork<T>& w,
                    Collect<T>& out) {
  const size_t mb = blocks.rowCount(b), cb = blocks.colCount(b);
  const size_t* rows = blocks.rows.data() + blocks.rowStart[b];
  const size_t* cols = blocks.cols.data() + blocks.colStart[b];
  const size_t* local = blocks.local.data();
  prepare(w, mb, cb);
  for (size_t t = 0; t < cb; ++t)
    w.remaining[t] = B.colptr[cols[t] + 1] - B.colptr[cols[t]];
  double growth = 0.0;

  for (size_t k = 0; k < mb; ++k) {
    // Scatter the reduced row b'_k and its weights w'.
    w.touched.clear();
    w.wtouched.clear();
    auto touch = [&](size_t t) {
      if (!w.isTouched[t]) w.isTouched[t] = 1, w.touched.push_back(t);
    };
    auto wtouch = [&](size_t li) {
      if (!w.isWTouched[li]) w.isWTouched[li] = 1, w.wtouched.push_back(li);
    };
    wtouch(k);
    w.wacc[k] = T(1);
    for (size_t p = B.rowptr[rows[k]]; p < B.rowptr[rows[k] + 1]; ++p) {
      const size_t t = local[B.col[p]];
      const T bkt = B.rval[p];
      --w.remaining[t];
      if (w.pivotOf[t] == npos) {
        touch(t);
        w.acc[t] += bkt;
        w.mag[t] += std::abs(bkt);
        continue;
      }
      const Expression<T>& e = w.expr[w.pivotOf[t]];
      for (const auto& [j, c] : e.coef) {
        touch(j);
        w.acc[j] += bkt * c;
        w.mag[j] += std::abs(bkt) * std::abs(c);
      }
      for (const auto& [li, x] : e.weight) {
        wtouch(li);
        w.wacc[li] -= bkt * x;
      }
    }
    double amax = 0.0, smax = 0.0;
    for (size_t t : w.touched) {
      amax = std::max(amax, std::abs(w.acc[t]));
      smax = std::max(smax, w.mag[t]);
    }

    if (amax <= o.rankTol * smax) {
      // Redundant: w'ᵀ·B vanishes, so conj(w') lies in null(Bᴴ).
      auto& z = w.redundant.emplace_back();
      for (size_t li : w.wtouched)
        if (w.wacc[li] != T(0)) z.emplace_back(li, w.wacc[li]);
    } else {
      // Pivot: fewest expressions to update, then fewest constraints still to
      // substitute it, then the largest magnitude, then the first unknown.
      size_t q = npos;
      for (size_t t : w.touched) {
        const double a = std::abs(w.acc[t]);
        if (a < o.pivotTol * amax) continue;
        if (q == npos) {
          q = t;
          continue;
        }
        const size_t ut = w.users[t].size(), uq = w.users[q].size();
        const double aq = std::abs(w.acc[q]);
        if (ut != uq ? ut < uq
            : w.remaining[t] != w.remaining[q] ? w.remaining[t] < w.remaining[q]
            : a != aq ? a > aq
                      : t < q)
          q = t;
      }
      const size_t id = w.expr.size();
      Expression<T>& e = w.expr.emplace_back();
      e.unknown = q;
      const T piv = w.acc[q];
      for (size_t t : w.touched) {
        if (t == q || std::abs(w.acc[t]) <= o.rankTol * w.mag[t]) continue;
        const T c = -w.acc[t] / piv;
        e.coef.emplace_back(t, c);
        growth = std::max(growth, std::abs(c));
      }
      for (size_t li : w.wtouched)
        if (w.wacc[li] != T(0)) e.weight.emplace_back(li, w.wacc[li] / piv);
      w.independent.push_back(k);

      // Substitute u_q into the expressions that use it.
      for (size_t u : w.users[q]) {
        Expression<T>& f = w.expr[u];
        auto it = std::find_if(f.coef.begin(), f.coef.end(),
                               [q](const auto& x) { return x.first == q; });
        if (it == f.coef.end()) continue;  // cancelled since
        const T c = it->second;
        f.coef.erase(it);
        addScaled(f.coef, c, e.coef, o.rankTol, w.where, [&](size_t j) { w.users[j].push_back(u); });
        addScaled(f.weight, c, e.weight, o.rankTol, w.where, [](size_t) {});
        for (const auto& [j, x] : f.coef) growth = std::max(growth, std::abs(x));
      }
      w.users[q].clear();
      w.pivotOf[q] = id;
      for (const auto& [j, c] : e.coef) w.users[j].push_back(id);
    }

    for (size_t t : w.touched) w.acc[t] = T(0), w.mag[t] = 0.0, w.isTouched[t] = 0;
    for (size_t li : w.wtouched) w.wacc[li] = T(0), w.isWTouched[li] = 0;
  }

  if (mayDecline && (!w.redundant.empty() || growth > kNullGrowthLimit)) return false;

  // Null columns: e_j + Σ_p c_pj·e_p for every free unknown j, anchored at
  // j, gathered by column (counts in `where`, reset below).
  std::vector<size_t>& count = w.where;
  std::fill(count.begin(), count.begin() + cb, size_t(0));
  for (const Expression<T>& e : w.expr)
    for (const auto& [j, c] : e.coef) ++count[j];
  size_t total = 0;
  for (size_t t = 0; t < cb; ++t) {
    const size_t c = count[t];
    count[t] = total;
    total += c;
  }
  w.column.resize(total);
  for (const Expression<T>& e : w.expr)
    for (const auto& [j, c] : e.coef) w.column[count[j]++] = {cols[e.unknown], c};
  for (size_t t = 0, begin = 0; t < cb; ++t) {
    const size_t end = count[t];
    if (w.pivotOf[t] == npos) {
      auto first = w.column.begin() + static_cast<std::ptrdiff_t>(begin);
      auto last = w.column.begin() + static_cast<std::ptrdiff_t>(end);
      std::sort(first, last, [](const auto& x, const auto& y) { return x.first < y.first; });
      out.N.open(cols[t]);
      bool unitDone = false;
      for (auto it = first; it != last; ++it) {
        if (!unitDone && it->first > cols[t]) out.N.add(cols[t], T(1)), unitDone = true;
        out.N.add(it->first, it->second);
      }
      if (!unitDone) out.N.add(cols[t], T(1));
      out.N.close();
    }
    begin = end;
  }
  std::fill(count.begin(), count.begin() + cb, npos);

  // Pivot by pivot: the unit column, the constraint's conjugated row, the
  // column of B at the pivot, and the particular solution's weights.
  out.rank += w.expr.size();
  for (size_t x = 0; x < w.expr.size(); ++x) {
    const Expression<T>& e = w.expr[x];
    const size_t unknown = cols[e.unknown], row = rows[w.independent[x]];
    out.complement.add(unknown, out.complement.newColumn(), T(1));
    const size_t cr = out.rangeBt.newColumn();
    for (size_t p = B.rowptr[row]; p < B.rowptr[row + 1]; ++p)
      out.rangeBt.add(B.col[p], cr, conjugate(B.rval[p]));
    const size_t cc = out.rangeB.newColumn();
    for (size_t p = B.colptr[unknown]; p < B.colptr[unknown + 1]; ++p)
      out.rangeB.add(B.row[p], cc, B.cval[p]);
    for (const auto& [li, x2] : e.weight) out.P.add(unknown, rows[li], x2);
  }
  for (const auto& z : w.redundant) {
    const size_t c = out.leftNull.newColumn();
    for (const auto& [li, x] : z) out.leftNull.add(rows[li], c, conjugate(x));
  }
  return true;
}

template bool eliminateBlock<double>(const Constraints<double>&, const Blocks&, size_t,
                                     const NullOptions&, bool, EliminationWork<double>&,
                                     Collect<double>&);
template bool eliminateBlock<dcomplex>(const Constraints<dcomplex>&, const Blocks&, size_t,
                                       const NullOptions&, bool, EliminationWork<dcomplex>&,
                                       Collect<dcomplex>&);

}  // namespace qvarray::nulldetail
