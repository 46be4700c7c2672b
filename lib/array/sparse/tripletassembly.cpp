// Triplet assembly of llsparse<T>: count, cumulative sum, scatter, merge.
//
// Contract (see llsparse.h): the triplets need not be sorted; duplicates are
// summed in input order; within a column the rows keep the order of their
// first appearance; the inputs are not modified; cost is linear in the number
// of triplets; scratch memory is released on return.
//
// Two ways give that result bit for bit. The counting way below groups the
// triplets by column and merges repeats with a row marker: the faster one,
// with 12 bytes of scratch per triplet and 4 per row or column, whichever
// are more. The hashed way (triplethashed.cpp) finds repeats in a table of
// llsp_hashsize(N) slots, with about 15.4 bytes per triplet (more when keys
// are wide). Real values go the counting way unless its scratch would exceed
// the hashed way's (rows or columns more than about 0.86 times the
// triplets); complex values, whose records would take 20 bytes, go the
// hashed way.
//
// The counting way, for N triplets:
//  1. Count: the triplets of column j in next[j + 1]; columns are checked.
//  2. Cumulative sum: next[j] becomes the first place of column j.
//  3. Scatter: the record (row, value) of triplet k goes to place
//     next[col]++; rows are checked. Within a column the records keep the
//     input order; afterwards next[j] is the end of column j.
//  4. Merge, column by column: the first record of a row moves down to the
//     next free place, later ones add their value to it, in input order.
//     mark[row] is that place + 1; places of earlier columns lie below the
//     column's first place, so the marker needs no reset between columns.
//     colptr[j] goes from the end of column j to its first merged place.
//  5. Copy the merged records into arrays of exactly nnz entries.
//
// Triplet counts stay below 2^32 (kMaxHashSize), so places, counters and
// markers are 32-bit (half the cache footprint of 64-bit ones), and records
// are 12 bytes: a 32-bit row beside the value, unaligned, so that a
// scattered record costs one cache line rather than two. The scatter comes
// in two forms, chosen on a sample of the input: for columns that jump about
// at random it prefetches column starts and targets ahead; for columns that
// come in runs or stay near each other (mesh order) it keeps the place of the
// current column in a register, where prefetching would only cost.
#include <algorithm>
#include <complex>
#include <cstdint>
#include <type_traits>

#include "qvarray/sparse/llsparse.h"
#include "qvutil/errors.h"
#include "sparse/tripletassembly.h"

namespace qvarray {

using namespace tripletdetail;

namespace {

using Place = std::uint32_t;  // a place in the records

struct __attribute__((packed)) Record {
  std::uint32_t row;
  double value;
};
static_assert(sizeof(Record) == 12);

// Step 1.
void countColumns(const size_t* cols, size_t N, size_t n, Place* next) {
  for (size_t k = 0; k < N; ++k) {
    const size_t c = cols[k];
    if (c >= n) throwIndexOutOfRange();
    ++next[c + 1];
  }
}

// Whether most triplets lie far (more than kNear columns) from the previous
// triplet's column, judged on kSamples runs of kSamples pairs spread evenly
// over the input.
bool scatteredColumns(const size_t* cols, size_t N) {
  constexpr size_t kNear = 1024, kSamples = 64;
  const size_t runs = std::min(kSamples, N / kSamples);
  size_t pairs = 0, far = 0;
  for (size_t i = 0; i < runs; ++i) {
    const size_t* c = cols + i * (N - kSamples) / runs;
    for (size_t k = 1; k < kSamples; ++k, ++pairs)
      far += c[k] - c[k - 1] + kNear > 2 * kNear;  // |difference| > kNear, wrapping
  }
  return 2 * far > pairs;
}

// Step 3 for input whose columns come in runs or stay near each other: a
// run of triplets of one column advances a register, not colptr.
void scatterLocal(const size_t* rows, const size_t* cols, const double* values, size_t stride,
                  size_t N, size_t m, Place* next, Record* rec) {
  size_t c = cols[0];
  Place p = next[c];
  for (size_t k = 0; k < N; ++k) {
    if (cols[k] != c) {
      next[c] = p;
      c = cols[k];
      p = next[c];
    }
    const size_t r = rows[k];
    if (r >= m) throwIndexOutOfRange();
    rec[p].row = static_cast<std::uint32_t>(r);
    rec[p].value = values[k * stride];
    ++p;
  }
  next[c] = p;
}

// Step 3 for scattered input: column starts and targets are prefetched
// 2·kAhead and kAhead triplets ahead.
void scatterFar(const size_t* rows, const size_t* cols, const double* values, size_t stride,
                size_t N, size_t m, Place* next, Record* rec) {
  for (size_t k = 0; k < N; ++k) {
    if (k + 2 * kAhead < N) prefetch(next + cols[k + 2 * kAhead]);
    if (k + kAhead < N) prefetch(rec + next[cols[k + kAhead]]);
    const size_t r = rows[k];
    if (r >= m) throwIndexOutOfRange();
    const Place p = next[cols[k]]++;
    rec[p].row = static_cast<std::uint32_t>(r);
    rec[p].value = values[k * stride];
  }
}

// Step 4. colptr[j] holds the end of column j on entry and its first merged
// place on return. Returns nnz.
size_t mergeColumns(Record* rec, size_t* colptr, size_t n, Place* mark) {
  Place begin = 0, out = 0;
  for (size_t j = 0; j < n; ++j) {
    const Place end = static_cast<Place>(colptr[j]), first = out;
    colptr[j] = first;
    for (Place p = begin; p < end; ++p) {
      const std::uint32_t r = rec[p].row;
      const Place q = mark[r];
      const double v = rec[p].value;
      if (q > first) {
        rec[q - 1].value += v;
      } else {
        mark[r] = out + 1;
        rec[out].row = r;
        rec[out].value = v;
        ++out;
      }
    }
    begin = end;
  }
  colptr[n] = out;
  return out;
}

// The counting way (see the top of the file).
void assembleCounting(const size_t* rows, const size_t* cols, const double* values, size_t stride,
                      size_t N, size_t m, size_t n, size_t* colptr,
                      std::shared_ptr<Array<size_t, 1>>& rowArr,
                      std::shared_ptr<Array<double, 1>>& valArr) {
  // One block holds the column places of steps 1 to 3, then the row marker.
  ScratchBlock places(std::max(m, n + 1) * sizeof(Place), true);
  Place* next = places.as<Place>();
  countColumns(cols, N, n, next);
  for (size_t j = 0; j < n; ++j) next[j + 1] += next[j];

  ScratchBlock records(N * sizeof(Record), false);
  Record* rec = records.as<Record>();
  if (scatteredColumns(cols, N))
    scatterFar(rows, cols, values, stride, N, m, next, rec);
  else
    scatterLocal(rows, cols, values, stride, N, m, next, rec);

  std::copy_n(next, n, colptr);
  std::fill_n(next, m, Place{0});
  const size_t nnz = mergeColumns(rec, colptr, n, next);

  rowArr = std::make_shared<Array<size_t, 1>>(nnz);
  valArr = std::make_shared<Array<double, 1>>(nnz);
  adviseHugePages(rowArr->data, nnz * sizeof(size_t));
  adviseHugePages(valArr->data, nnz * sizeof(double));
  size_t* row = rowArr->data;
  double* value = valArr->data;
  for (size_t p = 0; p < nnz; ++p) {
    row[p] = rec[p].row;
    value[p] = rec[p].value;
  }
}

// Whether the counting way takes no more scratch than the hashed way for real
// values (see the top of the file).
bool countingFits(size_t N, size_t m, size_t n) {
  return m <= UINT32_MAX && N * sizeof(Record) + std::max(m, n + 1) * sizeof(Place) <=
                                hashedScratchBytes(N, m, n);
}

}  // namespace

template <class T>
void llsparse<T>::assembleTriplets(const size_t* rows, const size_t* cols, const T* values,
                                   size_t nnzIn, size_t mIn, size_t nIn, bool oneValue) {
  if (nnzIn > kMaxHashSize) QV_RAISE(sparse, Size_input_vector_too_large);
  Array<size_t, 1> cp(nIn + 1);
  cp.fill(0);
  std::shared_ptr<Array<size_t, 1>> rowArr;
  std::shared_ptr<Array<T, 1>> valArr;

  if (mIn != 0 && nIn != 0 && nnzIn != 0) {
    const size_t stride = oneValue ? 0 : 1;
    bool counted = false;
    if constexpr (std::is_same_v<T, double>) {
      counted = countingFits(nnzIn, mIn, nIn);
      if (counted)
        assembleCounting(rows, cols, values, stride, nnzIn, mIn, nIn, cp.data, rowArr, valArr);
    }
    if (!counted)
      assembleHashed(rows, cols, values, stride, nnzIn, mIn, nIn, cp.data, rowArr, valArr);
  }

  // Commit: nothing above touched *this.
  const size_t count = cp[nIn];
  rowData = std::move(rowArr);
  valueData = std::move(valArr);
  row = rowData ? rowData->data : nullptr;
  value = valueData ? valueData->data : nullptr;
  colptr = std::move(cp);
  m = mIn;
  n = nIn;
  nnz = count;
  nzmax = count;
  form = FormUnordered;
  diag = Array<size_t, 1>();
  newVersion();
}

template void llsparse<double>::assembleTriplets(const size_t*, const size_t*, const double*,
                                                 size_t, size_t, size_t, bool);
template void llsparse<std::complex<double>>::assembleTriplets(const size_t*, const size_t*,
                                                               const std::complex<double>*,
                                                               size_t, size_t, size_t, bool);

}  // namespace qvarray
