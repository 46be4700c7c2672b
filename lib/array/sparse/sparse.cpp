// Sparse: the handle, its construction paths, copy on write and accessors.
#include "qvarray/sparse/sparse.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "qvutil/errors.h"
#include "sparse/sparseimpl.h"

namespace qvarray {

namespace {

using dcomplex = std::complex<double>;

// Triplet input of any origin: checks lengths, then assembles into a fresh
// storage object (the handle adopts it only on success).
template <class T>
std::shared_ptr<llsparse<T>> assemble(const size_t* rows, size_t nRows, const size_t* cols,
                                      size_t nCols, const T* values, size_t nValues, size_t m,
                                      size_t n) {
  const bool oneValue = nValues == 1 && nRows != 1;
  if (nCols != nRows || (nValues != nRows && !oneValue))
    QV_RAISE(sparse, Length_triplet_vectors_disagree);
  if (nRows > kMaxHashSize) QV_RAISE(sparse, Size_input_vector_too_large);
  checkSparseSizes(m, n);  // before assembly computes n + 1 column pointers
  auto store = std::make_shared<llsparse<T>>();
  store->assembleTriplets(rows, cols, values, nRows, m, n, oneValue);
  return store;
}

// Compressed-column input of any origin: checks lengths, then copies into a
// fresh storage object.
template <class T>
std::shared_ptr<llsparse<T>> compressed(const size_t* rowIndex, size_t nRowIndex,
                                        const size_t* colPtr, size_t nColPtr, const T* values,
                                        size_t nValues, size_t m, size_t n) {
  if (nRowIndex != nValues || n == SIZE_MAX || nColPtr != n + 1 || colPtr[n] != nValues)
    QV_RAISE(sparse, Length_triplet_vectors_disagree);
  if (nValues > kMaxHashSize) QV_RAISE(sparse, Size_input_vector_too_large);
  auto store = std::make_shared<llsparse<T>>();
  // Empty inputs go on as null arrays.
  store->setCompressed(nValues ? rowIndex : nullptr, colPtr, nValues ? values : nullptr, m, n);
  return store;
}

}  // namespace

// ---- handle -------------------------------------------------------------------

Sparse::Sparse() : dsp_(std::make_shared<dstore>()) {}

Sparse::Sparse(std::shared_ptr<dstore> store) { adopt(std::move(store)); }

Sparse::Sparse(std::shared_ptr<zstore> store) { adopt(std::move(store)); }

// The parallel data of B is taken only when published (flag first), so that
// copying a matrix whose data another thread is building is safe.
Sparse::Sparse(const Sparse& B)
    : SparseBase(B),
      dsp_(B.dsp_),
      zsp_(B.zsp_),
      real_(B.real_),
      extData_(B.extData_),
      hasExtData_(B.hasExtData_) {
  if (B.hasParallelData_.load(std::memory_order_acquire)) {
    parallelData_ = B.parallelData_;
    hasParallelData_.store(true, std::memory_order_release);
  }
}

Sparse::~Sparse() = default;

Sparse& Sparse::operator=(const Sparse& B) {
  if (this != &B) {
    dsp_ = B.dsp_;
    zsp_ = B.zsp_;
    real_ = B.real_;
    const bool hasData = B.hasParallelData_.load(std::memory_order_acquire);
    parallelData_ = hasData ? B.parallelData_ : nullptr;
    hasParallelData_.store(hasData, std::memory_order_release);
    extData_ = B.extData_;
    hasExtData_ = B.hasExtData_;
  }
  return *this;
}

Sparse& Sparse::operator=(const SparseBase& B) {
  const auto* other = dynamic_cast<const Sparse*>(&B);
  if (!other) QV_RAISE(sparse, Internal_error_sparse_base, "operator= needs a Sparse operand.");
  return *this = *other;
}

void Sparse::adopt(std::shared_ptr<dstore> store) {
  QV_DEBUG_ASSERT(!store || store->isConsistent(), sparse);
  dsp_ = std::move(store);
  zsp_.reset();
  real_ = true;
  clearAuxData();
}

void Sparse::adopt(std::shared_ptr<zstore> store) {
  QV_DEBUG_ASSERT(!store || store->isConsistent(), sparse);
  zsp_ = std::move(store);
  dsp_.reset();
  real_ = false;
  clearAuxData();
}

void Sparse::uniqueD() {
  if (dsp_ && dsp_.use_count() > 1) dsp_ = std::make_shared<dstore>(*dsp_);
}

void Sparse::uniqueZ() {
  if (zsp_ && zsp_.use_count() > 1) zsp_ = std::make_shared<zstore>(*zsp_);
}

void Sparse::clearAuxData() {
  hasParallelData_.store(false, std::memory_order_release);
  parallelData_.reset();
  extData_.reset();
  hasExtData_ = false;
}

// ---- construction --------------------------------------------------------------

Sparse& Sparse::triplet2sparse(const Array<size_t, 1>& rows, const Array<size_t, 1>& cols,
                               const Vector& values, size_t m, size_t n) {
  if (values.isReal()) {
    const auto& v = values.getdArr();
    adopt(assemble(rows.data, rows.count, cols.data, cols.count, v.data, v.count, m, n));
  } else {
    const auto& v = values.getzArr();
    adopt(assemble(rows.data, rows.count, cols.data, cols.count, v.data, v.count, m, n));
  }
  return *this;
}

Sparse& Sparse::vectorTripletToSparse(const std::vector<size_t>& rows,
                                      const std::vector<size_t>& cols,
                                      const std::vector<double>& values, size_t m, size_t n) {
  adopt(assemble(rows.data(), rows.size(), cols.data(), cols.size(), values.data(), values.size(),
                 m, n));
  return *this;
}

Sparse& Sparse::vectorTripletToSparse(const std::vector<size_t>& rows,
                                      const std::vector<size_t>& cols,
                                      const std::vector<dcomplex>& values, size_t m, size_t n) {
  adopt(assemble(rows.data(), rows.size(), cols.data(), cols.size(), values.data(), values.size(),
                 m, n));
  return *this;
}

Sparse& Sparse::flat2sparse(const Array<size_t, 1>& rowIndex, const Array<size_t, 1>& colPtr,
                            const Array<double, 1>& values, size_t m, size_t n) {
  adopt(compressed(rowIndex.data, rowIndex.count, colPtr.data, colPtr.count, values.data,
                   values.count, m, n));
  return *this;
}

Sparse& Sparse::flat2sparse(const Array<size_t, 1>& rowIndex, const Array<size_t, 1>& colPtr,
                            const Array<dcomplex, 1>& values, size_t m, size_t n) {
  adopt(compressed(rowIndex.data, rowIndex.count, colPtr.data, colPtr.count, values.data,
                   values.count, m, n));
  return *this;
}

Sparse& Sparse::flat2sparse(const std::vector<size_t>& rowIndex, const std::vector<size_t>& colPtr,
                            const std::vector<double>& values, size_t m, size_t n) {
  adopt(compressed(rowIndex.data(), rowIndex.size(), colPtr.data(), colPtr.size(), values.data(),
                   values.size(), m, n));
  return *this;
}

Sparse& Sparse::flat2sparse(const std::vector<size_t>& rowIndex, const std::vector<size_t>& colPtr,
                            const std::vector<dcomplex>& values, size_t m, size_t n) {
  adopt(compressed(rowIndex.data(), rowIndex.size(), colPtr.data(), colPtr.size(), values.data(),
                   values.size(), m, n));
  return *this;
}

Sparse& Sparse::zeros(size_t n) { return zeros(n, n, 0, true); }

Sparse& Sparse::zeros(size_t m, size_t n, size_t nzmax, bool isReal) {
  if (isReal) {
    auto store = std::make_shared<dstore>();
    store->setZeros(m, n, nzmax);
    adopt(std::move(store));
  } else {
    auto store = std::make_shared<zstore>();
    store->setZeros(m, n, nzmax);
    adopt(std::move(store));
  }
  return *this;
}

Sparse& Sparse::eye(size_t n) {
  auto store = std::make_shared<dstore>();
  store->setIdentity(n);
  adopt(std::move(store));
  return *this;
}

Sparse& Sparse::clear() { return zeros(0, 0, 0, true); }

// ---- accessors ------------------------------------------------------------------

std::int64_t Sparse::getRowColptrVersion() const {
  return visit([](const auto& s) { return s.version; });
}
size_t Sparse::getFirstRow() const {
  return visit([](const auto& s) { return s.firstRow; });
}
size_t Sparse::getFirstColumn() const {
  return visit([](const auto& s) { return s.firstColumn; });
}

Sparse& Sparse::setOffsets(size_t firstRow, size_t firstColumn) {
  visitMutable([&](auto& s) {
    s.firstRow = firstRow;
    s.firstColumn = firstColumn;
    if (s.form == FormSorted) s.rebuildDiag();
  });
  return *this;
}

size_t Sparse::getM() const {
  return visit([](const auto& s) { return s.m; });
}
size_t Sparse::getN() const {
  return visit([](const auto& s) { return s.n; });
}
size_t Sparse::getNnz() const {
  return visit([](const auto& s) { return s.nnz; });
}
size_t Sparse::getNzmax() const {
  return visit([](const auto& s) { return s.nzmax; });
}
const size_t* Sparse::getColPtr() const {
  return visit([](const auto& s) -> const size_t* { return s.colptr.data; });
}
const size_t* Sparse::getRow() const {
  return visit([](const auto& s) -> const size_t* { return s.row; });
}
const size_t* Sparse::getDiag() const {
  return visit([](const auto& s) -> const size_t* {
    return s.form == FormSorted && s.diag.count ? s.diag.data : nullptr;
  });
}
const double* Sparse::getDoubleVal() const { return real_ ? dsp_->value : nullptr; }
const dcomplex* Sparse::getDcmplxVal() const { return real_ ? nullptr : zsp_->value; }
std::shared_ptr<const llsparse<double>> Sparse::getptrD() const { return real_ ? dsp_ : nullptr; }
std::shared_ptr<const llsparse<dcomplex>> Sparse::getptrZ() const {
  return real_ ? nullptr : zsp_;
}

Form_t Sparse::getForm() const {
  return visit([](const auto& s) { return s.form; });
}
Sparse& Sparse::setForm(Form_t form) { return format(form, false); }

Symm_t Sparse::getSymm() const {
  return visit([](const auto& s) { return s.symm; });
}

Sparse& Sparse::setSymm(Symm_t symm) {
  if (symm < SymmNone || symm > SymmTransposed)
    QV_RAISE(sparse, Internal_error_sparse, "Invalid symmetry mode.");
  if (getSymm() != symm) visitMutable([&](auto& s) { s.symm = symm; });
  return *this;
}

}  // namespace qvarray
