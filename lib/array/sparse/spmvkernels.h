#pragma once
// The storage kernels of the sparse matrix–vector products, shared by the
// serial path (one call over all columns) and the parallel path (one call per
// thread over its own range).
//
// Notation: column j holds the entries p = colptr[j] … colptr[j+1] − 1 with
// row index row[p] and value v[p]; `off` is the first-row offset, subtracted
// from a row index before it indexes a vector. Template flags: Conj uses
// conj(v) (complex storage only), Sub subtracts the contribution instead of
// adding it. TA, TX, TY are the value types of the matrix, x and y; TS, the
// type of a product v·x, is complex when either factor is.
#include <algorithm>
#include <complex>
#include <cstddef>
#include <type_traits>
#include <vector>

#include "qvarray/sparse/sparsemodes.h"
#include "qvarray/trans.h"

namespace qvarray::spmv {

using dcomplex = std::complex<double>;

template <bool C, class T>
inline T cj(const T& v) {
  if constexpr (C && !std::is_same_v<T, double>)
    return std::conj(v);
  else
    return v;
}

// Products written out: the library's complex multiplication adds a call for
// its infinity/NaN recovery, which the kernels do not want per entry.
inline double mul(double a, double b) { return a * b; }
inline dcomplex mul(double a, const dcomplex& b) { return {a * b.real(), a * b.imag()}; }
inline dcomplex mul(const dcomplex& a, double b) { return {a.real() * b, a.imag() * b}; }
inline dcomplex mul(const dcomplex& a, const dcomplex& b) {
  return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

template <class TA, class TX>
using ProductType = decltype(mul(TA{}, TX{}));

// Software prefetch of the index and value streams, kPrefetchAhead entries
// (4 KiB of indices) ahead of the entry about to be read: on the processors
// measured (bench_spmv) the hardware prefetcher alone keeps too few of these
// lines in flight, and asking this far ahead brings the dot-product form
// close to the speed of a plain read of the two arrays. Once per column or
// row; clamped to the last entry of the caller's range (lastEntry).
inline constexpr size_t kPrefetchAhead = 512;

// The last entry before position `end` (0 for none: the address stays valid).
inline size_t lastEntry(size_t end) { return end > 0 ? end - 1 : 0; }

template <class TA>
inline void prefetchEntries(const size_t* idx, const TA* v, size_t p, size_t last) {
  const size_t q = std::min(p + kPrefetchAhead, last);
  __builtin_prefetch(idx + q);
  __builtin_prefetch(v + q);
}

template <bool Sub, class T, class U>
inline void accumulate(T& y, const U& v) {
  if constexpr (Sub)
    y -= v;
  else
    y += v;
}

// y[row[p] − off] ±= v[p]·x[j] for j in [c0, c1): the column (axpy) form,
// unrolled by four, x[j] loaded once per column.
template <bool Conj, bool Sub, class TA, class TX, class TY>
void scatterColumns(const size_t* colptr, const size_t* row, const TA* v, size_t off, size_t c0,
                    size_t c1, const TX* __restrict x, TY* __restrict y) {
  const size_t last = lastEntry(colptr[c1]);
  for (size_t j = c0; j < c1; ++j) {
    const TX xj = x[j];
    size_t p = colptr[j];
    const size_t end = colptr[j + 1];
    prefetchEntries(row, v, p, last);
    for (; p + 4 <= end; p += 4) {
      accumulate<Sub>(y[row[p] - off], mul(cj<Conj>(v[p]), xj));
      accumulate<Sub>(y[row[p + 1] - off], mul(cj<Conj>(v[p + 1]), xj));
      accumulate<Sub>(y[row[p + 2] - off], mul(cj<Conj>(v[p + 2]), xj));
      accumulate<Sub>(y[row[p + 3] - off], mul(cj<Conj>(v[p + 3]), xj));
    }
    for (; p < end; ++p) accumulate<Sub>(y[row[p] - off], mul(cj<Conj>(v[p]), xj));
  }
}

// Σ v[p]·x[idx[p] − off] over p in [begin, end) with four partial sums,
// combined as (s0 + s1) + (s2 + s3): a fixed order, hence fixed bits.
template <bool Conj, class TA, class TX>
inline ProductType<TA, TX> dot(const size_t* idx, const TA* v, size_t off, size_t begin,
                               size_t end, const TX* __restrict x) {
  using TS = ProductType<TA, TX>;
  TS s0(0), s1(0), s2(0), s3(0);
  size_t p = begin;
  for (; p + 4 <= end; p += 4) {
    s0 += mul(cj<Conj>(v[p]), x[idx[p] - off]);
    s1 += mul(cj<Conj>(v[p + 1]), x[idx[p + 1] - off]);
    s2 += mul(cj<Conj>(v[p + 2]), x[idx[p + 2] - off]);
    s3 += mul(cj<Conj>(v[p + 3]), x[idx[p + 3] - off]);
  }
  for (; p < end; ++p) s0 += mul(cj<Conj>(v[p]), x[idx[p] - off]);
  return (s0 + s1) + (s2 + s3);
}

// y[j] ±= Σ_p v[p]·x[row[p] − off] for j in [c0, c1): the dot-product form.
template <bool Conj, bool Sub, class TA, class TX, class TY>
void gatherColumns(const size_t* colptr, const size_t* row, const TA* v, size_t off, size_t c0,
                   size_t c1, const TX* __restrict x, TY* __restrict y) {
  const size_t last = lastEntry(colptr[c1]);
  for (size_t j = c0; j < c1; ++j) {
    prefetchEntries(row, v, colptr[j], last);
    accumulate<Sub>(y[j], dot<Conj>(row, v, off, colptr[j], colptr[j + 1], x));
  }
}

// The symmetric modes, one pass per column: the column update
// y[row[p] − off] ±= v'[p]·x[j] and the mirrored row sum
// s += v''[p]·x[row[p] − off] (v' = conj(v) with ConjS, v'' with ConjG). y[j]
// is saved and zeroed first and finally becomes saved ± s plus what the
// column updates added to it; a diagonal entry is not special-cased, so it
// acts twice (the storage convention A = S + Sᵀ or S + Sᴴ). With Clip, the
// column updates go only to the entries y[lo … hi − 1] (the sums take every
// entry), for a part of the parallel product that owns those entries.
template <bool ConjS, bool ConjG, bool Sub, bool Clip = false, class TA, class TX, class TY>
void symmetricColumns(const size_t* colptr, const size_t* row, const TA* v, size_t off, size_t c0,
                      size_t c1, const TX* __restrict x, TY* __restrict y, size_t lo = 0,
                      size_t hi = 0) {
  using TS = ProductType<TA, TX>;
  const size_t last = lastEntry(colptr[c1]);
  auto update = [&](size_t r, const TA& a, const TX& xj) {
    if (!Clip || r - lo < hi - lo) accumulate<Sub>(y[r], mul(cj<ConjS>(a), xj));
  };
  for (size_t j = c0; j < c1; ++j) {
    const TX xj = x[j];
    const TY saved = y[j];
    y[j] = TY(0);
    TS s0(0), s1(0), s2(0), s3(0);
    size_t p = colptr[j];
    const size_t end = colptr[j + 1];
    prefetchEntries(row, v, p, last);
    for (; p + 4 <= end; p += 4) {
      const size_t r0 = row[p] - off, r1 = row[p + 1] - off;
      const size_t r2 = row[p + 2] - off, r3 = row[p + 3] - off;
      update(r0, v[p], xj);
      s0 += mul(cj<ConjG>(v[p]), x[r0]);
      update(r1, v[p + 1], xj);
      s1 += mul(cj<ConjG>(v[p + 1]), x[r1]);
      update(r2, v[p + 2], xj);
      s2 += mul(cj<ConjG>(v[p + 2]), x[r2]);
      update(r3, v[p + 3], xj);
      s3 += mul(cj<ConjG>(v[p + 3]), x[r3]);
    }
    for (; p < end; ++p) {
      const size_t r = row[p] - off;
      update(r, v[p], xj);
      s0 += mul(cj<ConjG>(v[p]), x[r]);
    }
    TY result = saved;
    accumulate<Sub>(result, (s0 + s1) + (s2 + s3));
    y[j] = result + y[j];
  }
}

// Row-compressed form (stored row r holds q = rowptr[r] … rowptr[r+1] − 1
// with column col[q], columns ascending): for each non-empty row r in
// [r0, r1), y[r − off] ±= v[q]·x[col[q]] one entry after the other in column
// order. This is the order and rounding in which scatterColumns adds into
// y[r − off], so both give the same bits. Empty rows are not touched.
template <bool Conj, bool Sub, class TA, class TX, class TY>
void gatherRows(const size_t* rowptr, const size_t* col, const TA* v, size_t off, size_t r0,
                size_t r1, const TX* __restrict x, TY* __restrict y) {
  const size_t last = lastEntry(rowptr[r1]);
  for (size_t r = r0; r < r1; ++r) {
    const size_t begin = rowptr[r], end = rowptr[r + 1];
    if (begin == end) continue;
    prefetchEntries(col, v, begin, last);
    TY a = y[r - off];
    for (size_t q = begin; q < end; ++q) accumulate<Sub>(a, mul(cj<Conj>(v[q]), x[col[q]]));
    y[r - off] = a;
  }
}

// The column updates that a part of the symmetric product owning y[lo …
// hi − 1] gets from columns outside its range, from the row-compressed
// companion (stored row i + off, columns ascending): for each listed index i,
// y[i] ±= v'[q]·x[col[q]] one entry after the other over the entries of
// columns before lo (Before) or from hi on (!Before). Added before and after
// the part's own columns (symmetricColumns with Clip), they come in the
// order of the serial column pass, so the part's entries get its bits.
template <bool Before, bool ConjS, bool Sub, class TA, class TX, class TY>
void symmetricOutside(const std::vector<size_t>& indices, const size_t* rowptr, const size_t* col,
                      const TA* rv, size_t off, size_t lo, size_t hi, const TX* __restrict x,
                      TY* __restrict y) {
  for (const size_t i : indices) {
    const size_t r = i + off;
    const size_t first = rowptr[r], last = rowptr[r + 1];
    size_t q = first, end = last;
    if (Before)
      for (end = first; end < last && col[end] < lo;) ++end;
    else
      for (q = last; q > first && col[q - 1] >= hi;) --q;
    TY a = y[i];
    for (; q < end; ++q) accumulate<Sub>(a, mul(cj<ConjS>(rv[q]), x[col[q]]));
    y[i] = a;
  }
}

// Which loop a product runs and where conjugation goes.
enum class Form { Scatter, Gather, Symmetric };
struct Plan {
  Form form;
  bool conjA;  // Scatter/Gather: conj(v); Symmetric: conj in the column update
  bool conjB;  // Symmetric: conj in the mirrored row sum
};

// The plan of op(A) for storage mode `symm` (t already mapped 2 → 1 for real
// storage; conjugation flags are meaningless on real values).
inline Plan planFor(Symm_t symm, Trans_t t) {
  const bool conj = t == ConjTrans;
  switch (symm) {
    case SymmSymmetric:  // A = S + Sᵀ: Aᵀ = A, Aᴴ = conj(S) + conj(S)ᵀ
      return {Form::Symmetric, conj, conj};
    case SymmHermitian:  // A = S + Sᴴ: Aᴴ = A, Aᵀ = Sᵀ + conj(S)
      return t == Trans ? Plan{Form::Symmetric, true, false}
                        : Plan{Form::Symmetric, false, true};
    case SymmTransposed:  // A = Sᵀ: A·x gathers, Aᵀ·x and Aᴴ·x scatter
      return {t == NoTrans ? Form::Gather : Form::Scatter, conj, false};
    default:
      return {t == NoTrans ? Form::Scatter : Form::Gather, conj, false};
  }
}

// The serial kernel of a form over all n columns.
template <bool ConjA, bool ConjB, bool Sub, class TA, class TX, class TY>
void serialColumns(Form form, const size_t* colptr, const size_t* row, const TA* v, size_t off,
                   size_t n, const TX* __restrict x, TY* __restrict y) {
  switch (form) {
    case Form::Scatter:
      return scatterColumns<ConjA, Sub>(colptr, row, v, off, 0, n, x, y);
    case Form::Gather:
      return gatherColumns<ConjA, Sub>(colptr, row, v, off, 0, n, x, y);
    case Form::Symmetric:
      return symmetricColumns<ConjA, ConjB, Sub>(colptr, row, v, off, 0, n, x, y);
  }
}

// Calls f(std::bool_constant<a>, std::bool_constant<b>, std::bool_constant<c>).
template <class F>
void withFlags(bool a, bool b, bool c, F&& f) {
  auto inner = [&](auto A) {
    auto mid = [&](auto B) {
      if (c)
        f(A, B, std::true_type{});
      else
        f(A, B, std::false_type{});
    };
    if (b)
      mid(std::true_type{});
    else
      mid(std::false_type{});
  };
  if (a)
    inner(std::true_type{});
  else
    inner(std::false_type{});
}

}  // namespace qvarray::spmv
