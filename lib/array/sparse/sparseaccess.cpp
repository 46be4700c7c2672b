// Sparse: element access and comparison.
#include <algorithm>
#include <cmath>
#include <tuple>
#include <vector>

#include "qvutil/errors.h"
#include "sparse/sparseimpl.h"

namespace qvarray {

namespace {

using dcomplex = std::complex<double>;
constexpr size_t npos = llsparse<double>::npos;

void checkIndices(const Array<size_t, 1>& idx, size_t bound) {
  for (size_t k = 0; k < idx.count; ++k)
    if (idx[k] >= bound) QV_RAISE(sparse, Internal_error_sparse, "Index out of range.");
}

// Positions of the elements (rows[a], cols[b]); the first stored entry of an
// element wins, as in llsparse::find.
template <class S>
void blockPositions(const S& s, const Array<size_t, 1>& rows, const Array<size_t, 1>& cols,
                    Array<size_t, 2>& idx) {
  checkIndices(rows, s.m);
  checkIndices(cols, s.n);
  idx.resize(rows.count, cols.count);
  std::vector<size_t> pos(s.m, npos);
  for (size_t b = 0; b < cols.count; ++b) {
    const size_t begin = s.colptr[cols[b]], end = s.colptr[cols[b] + 1];
    for (size_t p = end; p-- > begin;) pos[s.row[p]] = p;
    for (size_t a = 0; a < rows.count; ++a) idx(a, b) = pos[rows[a]];
    for (size_t p = begin; p < end; ++p) pos[s.row[p]] = npos;
  }
}

// The stored matrix, or its (conjugate) transpose, with rows sorted within
// columns and duplicates summed: the common ground of comparisons.
struct Canonical {
  size_t m = 0, n = 0;
  std::vector<size_t> colptr, row;
  std::vector<dcomplex> value;
};

template <class S>
Canonical canonical(const S& s, Trans_t t) {
  const bool transpose = t != NoTrans;
  const bool conj = t == ConjTrans;
  std::vector<std::tuple<size_t, size_t, dcomplex>> entries;  // (col, row, value)
  entries.reserve(s.nnz);
  for (size_t j = 0; j < s.n; ++j)
    for (size_t p = s.colptr[j]; p < s.colptr[j + 1]; ++p) {
      dcomplex v(s.value[p]);
      if (conj) v = std::conj(v);
      if (transpose)
        entries.emplace_back(s.row[p], j, v);
      else
        entries.emplace_back(j, s.row[p], v);
    }
  std::stable_sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) {
    return std::tie(std::get<0>(a), std::get<1>(a)) < std::tie(std::get<0>(b), std::get<1>(b));
  });
  Canonical c;
  c.m = transpose ? s.n : s.m;
  c.n = transpose ? s.m : s.n;
  c.colptr.assign(c.n + 1, 0);
  bool havePrevious = false;
  size_t prevCol = 0, prevRow = 0;
  for (const auto& [col, r, v] : entries) {
    if (havePrevious && col == prevCol && r == prevRow) {
      c.value.back() += v;  // a duplicate: summed
      continue;
    }
    c.row.push_back(r);
    c.value.push_back(v);
    ++c.colptr[col + 1];
    prevCol = col;
    prevRow = r;
    havePrevious = true;
  }
  for (size_t j = 0; j < c.n; ++j) c.colptr[j + 1] += c.colptr[j];
  return c;
}

bool nearlyEqual(const Canonical& a, const Canonical& b, double tol) {
  if (a.m != b.m || a.n != b.n) return false;
  // The scale is the largest finite magnitude; equal values (infinities
  // included) always agree.
  double scale = 0;
  for (const auto* values : {&a.value, &b.value})
    for (const auto& v : *values)
      if (std::isfinite(std::abs(v))) scale = std::max(scale, std::abs(v));
  const double bound = tol > 0 ? tol * scale : 0.0;
  for (size_t j = 0; j < a.n; ++j) {
    size_t p = a.colptr[j], q = b.colptr[j];
    const size_t pe = a.colptr[j + 1], qe = b.colptr[j + 1];
    while (p < pe || q < qe) {
      dcomplex x, y;  // the two values of one element
      if (q == qe || (p < pe && a.row[p] < b.row[q])) {
        x = a.value[p++];
      } else if (p == pe || b.row[q] < a.row[p]) {
        y = b.value[q++];
      } else {
        x = a.value[p++];
        y = b.value[q++];
      }
      if (x != y && !(std::abs(x - y) <= bound)) return false;
    }
  }
  return true;
}

}  // namespace

size_t Sparse::getIdx(size_t i, size_t j) const {
  return visit([&](const auto& s) {
    if (i >= s.m || j >= s.n) QV_RAISE(sparse, Internal_error_sparse, "Index out of range.");
    return s.find(i, j);
  });
}

void Sparse::getIdxBlock(const Array<size_t, 1>& rows, const Array<size_t, 1>& cols,
                         Array<size_t, 2>& idx) const {
  visit([&](const auto& s) { blockPositions(s, rows, cols, idx); });
}

double Sparse::getReal(size_t i, size_t j) const {
  const size_t p = getIdx(i, j);
  if (p == npos) return 0.0;
  return real_ ? dsp_->value[p] : zsp_->value[p].real();
}

double Sparse::getImag(size_t i, size_t j) const {
  const size_t p = getIdx(i, j);
  if (p == npos || real_) return 0.0;
  return zsp_->value[p].imag();
}

void Sparse::getRealBlock(const Array<size_t, 1>& rows, const Array<size_t, 1>& cols,
                          Array<double, 2>& block) const {
  Array<size_t, 2> idx;
  getIdxBlock(rows, cols, idx);
  block.resize(rows.count, cols.count);
  for (size_t k = 0; k < idx.count; ++k)
    block[k] = idx[k] == npos ? 0.0 : real_ ? dsp_->value[idx[k]] : zsp_->value[idx[k]].real();
}

void Sparse::getImagBlock(const Array<size_t, 1>& rows, const Array<size_t, 1>& cols,
                          Array<double, 2>& block) const {
  Array<size_t, 2> idx;
  getIdxBlock(rows, cols, idx);
  block.resize(rows.count, cols.count);
  for (size_t k = 0; k < idx.count; ++k)
    block[k] = idx[k] == npos || real_ ? 0.0 : zsp_->value[idx[k]].imag();
}

void Sparse::getVectorPair(size_t j, Array<size_t, 1>& rows, Vector& values) const {
  visit([&](const auto& s) {
    using T = std::remove_reference_t<decltype(*s.value)>;
    if (j >= s.n) QV_RAISE(sparse, Internal_error_sparse, "Index out of range.");
    const size_t begin = s.colptr[j], len = s.colptr[j + 1] - begin;
    Array<T, 1> v(len);
    std::copy(s.value + begin, s.value + begin + len, v.data);
    Array<size_t, 1> r(len);
    std::copy(s.row + begin, s.row + begin + len, r.data);
    values = Vector(v);
    rows = std::move(r);
  });
}

bool Sparse::isEqual(const SparseBase& B, double tol, Trans_t t) const {
  const auto* other = dynamic_cast<const Sparse*>(&B);
  if (!other) QV_RAISE(sparse, Internal_error_sparse_base, "isEqual needs a Sparse operand.");
  const Canonical a = visit([](const auto& s) { return canonical(s, NoTrans); });
  const Canonical b = other->visit([t](const auto& s) { return canonical(s, t); });
  return nearlyEqual(a, b, tol);
}

bool Sparse::isSymmetric(double tol, Trans_t t) const {
  if (getM() != getN()) return false;
  return isEqual(*this, tol, t == NoTrans ? Trans : t);
}

}  // namespace qvarray
