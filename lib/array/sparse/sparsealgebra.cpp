// Sparse: matrix-level algebra — scaling by diagonal matrices, sums,
// sparse–sparse products and the symmetric storage conversions.
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "qvutil/errors.h"
#include "sparse/cscalgebra.h"
#include "sparse/sparseimpl.h"

namespace qvarray {

namespace {

using dcomplex = std::complex<double>;

const Sparse& asSparse(const SparseBase& B, const char* operation) {
  const auto* s = dynamic_cast<const Sparse*>(&B);
  if (!s)
    QV_RAISE(sparse, Internal_error_sparse_base,
             std::string(operation) + " needs a Sparse operand.");
  return *s;
}

void refusePartial(const Sparse& A, const char* operation) {
  if (A.isPartial())
    QV_RAISE(sparse, Internal_error_sparse,
             std::string(operation) + " is not available for a partial matrix.");
}

bool isZero(const Vector& d, size_t i) { return d.get(i) == dcomplex(0); }

// The scaling vector of rows (stored rows minus the first-row offset) or
// columns: its length must fit, and a divisor must have no zero.
void checkScaling(const Sparse& A, const Vector& d, bool rows, bool divides) {
  bool fits = d.size() == (rows ? A.getM() : A.getN());
  if (rows && A.isPartial())  // global row indices from the first row on
    fits = d.size() >= A.getM() - std::min(A.getM(), A.getFirstRow());
  if (!fits) QV_RAISE(sparse, Size_vector_sparse_matrix_disagree);
  if (divides)
    for (size_t i = 0; i < d.size(); ++i)
      if (isZero(d, i)) QV_RAISE(sparse, Matrix_has_zero_on_diagonal);
}

// value[p] ← value[p]·f(d[index]) or value[p]/f(d[index]); index = row −
// first row or column.
template <class T, class D>
void scaleValues(llsparse<T>& s, const D* d, bool rows, bool divides) {
  s.ownValues();
  for (size_t j = 0; j < s.n; ++j)
    for (size_t p = s.colptr[j]; p < s.colptr[j + 1]; ++p) {
      const D f = d[rows ? s.row[p] - s.firstRow : j];
      if constexpr (std::is_same_v<T, double>) {
        if (divides)
          s.value[p] /= std::real(f);
        else
          s.value[p] *= std::real(f);
      } else {
        if (divides)
          s.value[p] /= f;
        else
          s.value[p] *= f;
      }
    }
}

}  // namespace

// ---- diagonal scaling -------------------------------------------------------------

Sparse& Sparse::scaleByVector(const Vector& d, bool rows, bool divides) {
  checkScaling(*this, d, rows, divides);
  if (real_ && !d.isReal()) real2complex();
  visitMutable([&](auto& s) {
    using T = std::decay_t<decltype(*s.value)>;
    if (d.isReal())
      scaleValues(s, d.getdArr().data, rows, divides);
    else if constexpr (!std::is_same_v<T, double>)
      scaleValues(s, d.getzArr().data, rows, divides);
  });
  return *this;
}

Sparse& Sparse::rowscale(const Vector& d) { return scaleByVector(d, true, false); }
Sparse& Sparse::rowscaleInv(const Vector& d) { return scaleByVector(d, true, true); }
Sparse& Sparse::colscale(const Vector& d) { return scaleByVector(d, false, false); }
Sparse& Sparse::colscaleInv(const Vector& d) { return scaleByVector(d, false, true); }

// ---- sums and products --------------------------------------------------------------

Sparse& Sparse::addMat(dcomplex a, const SparseBase& Bb, bool dropZeros) {
  const Sparse& B = asSparse(Bb, "addMat");
  if (getM() != B.getM() || getN() != B.getN() || getFirstRow() != B.getFirstRow() ||
      getFirstColumn() != B.getFirstColumn())
    QV_RAISE(sparse, Size_sparse_matrices_disagree);
  if (getSymm() != B.getSymm()) QV_RAISE(sparse, Symmetry_sparse_matrices_disagree);
  // S + a·S' represents A + a·B in every mode but the Hermitian one, where a
  // must be real to keep A + a·B Hermitian.
  if (getSymm() == SymmHermitian && a.imag() != 0)
    QV_RAISE(sparse, Symmetry_sparse_matrices_disagree);
  const bool real = real_ && B.isReal() && a.imag() == 0;
  if (!real) real2complex();
  const Sparse Bkeep = B;  // B may be *this
  if (!dropZeros && getRowColptrVersion() == Bkeep.getRowColptrVersion() &&
      getNnz() == Bkeep.getNnz()) {
    // The same pattern: the values add entry by entry.
    visitMutable([&](auto& s) {
      s.ownValues();
      if constexpr (std::is_same_v<std::decay_t<decltype(*s.value)>, double>) {
        const double* bv = Bkeep.getDoubleVal();
        for (size_t p = 0; p < s.nnz; ++p) s.value[p] += a.real() * bv[p];
      } else {
        for (size_t p = 0; p < s.nnz; ++p)
          s.value[p] += a * (Bkeep.isReal() ? dcomplex(Bkeep.getDoubleVal()[p])
                                            : Bkeep.getDcmplxVal()[p]);
      }
    });
    return *this;
  }
  if (real) {
    const auto& sa = *dsp_;
    csc::Matrix<double> c = csc::add(1.0, csc::stored<double>(sa), a.real(),
                                     csc::stored<double>(*Bkeep.getptrD()), dropZeros);
    auto t = csc::toStorage(c, sa.symm);
    t->firstRow = sa.firstRow;
    t->firstColumn = sa.firstColumn;
    if (sa.form == FormSorted) t->sortColumns();
    adopt(std::move(t));
  } else {
    const auto& sa = *zsp_;
    const csc::Matrix<dcomplex> b = Bkeep.isReal() ? csc::stored<dcomplex>(*Bkeep.getptrD())
                                                   : csc::stored<dcomplex>(*Bkeep.getptrZ());
    csc::Matrix<dcomplex> c = csc::add(dcomplex(1), csc::stored<dcomplex>(sa), a, b, dropZeros);
    auto t = csc::toStorage(c, sa.symm);
    t->firstRow = sa.firstRow;
    t->firstColumn = sa.firstColumn;
    if (sa.form == FormSorted) t->sortColumns();
    adopt(std::move(t));
  }
  return *this;
}

namespace {

// The represented matrix of A (value type T), op applied.
template <class T>
csc::Matrix<T> operand(const Sparse& A, Trans_t t) {
  csc::Matrix<T> a = A.isReal() ? csc::represented<T>(*A.getptrD())
                                : csc::represented<T>(*A.getptrZ());
  if (t == NoTrans) return a;
  return csc::transpose(a, t == ConjTrans);
}

// left·right of the represented matrices, as a mode 0 storage object.
template <class T>
std::shared_ptr<llsparse<T>> product(const Sparse& left, Trans_t tl, const Sparse& right,
                                     Trans_t tr, bool dropZeros) {
  const csc::Matrix<T> a = operand<T>(left, tl), b = operand<T>(right, tr);
  if (a.n != b.m) QV_RAISE(sparse, Size_sparse_matrices_disagree);
  return csc::toStorage(csc::multiply(a, b, dropZeros), SymmNone);
}

void checkTrans(Trans_t t) {
  if (t != NoTrans && t != Trans && t != ConjTrans)
    QV_RAISE(sparse, Internal_error_sparse, "Invalid transposition selector.");
}

}  // namespace

Sparse& Sparse::mulRight(const SparseBase& Bb, Trans_t t, bool dropZeros) {
  const Sparse B = asSparse(Bb, "mulRight");  // a handle: B may be *this
  checkTrans(t);
  refusePartial(*this, "mulRight");
  refusePartial(B, "mulRight");
  if (real_ && B.isReal())
    adopt(product<double>(*this, NoTrans, B, t, dropZeros));
  else
    adopt(product<dcomplex>(*this, NoTrans, B, t, dropZeros));
  return *this;
}

Sparse& Sparse::multLeft(const SparseBase& Bb, Trans_t t, bool dropZeros) {
  const Sparse B = asSparse(Bb, "multLeft");
  checkTrans(t);
  refusePartial(*this, "multLeft");
  refusePartial(B, "multLeft");
  if (real_ && B.isReal())
    adopt(product<double>(B, t, *this, NoTrans, dropZeros));
  else
    adopt(product<dcomplex>(B, t, *this, NoTrans, dropZeros));
  return *this;
}

// ---- symmetric storage --------------------------------------------------------------

namespace {

// Triplets of the lower-triangle storage of the symmetric (conj = false) or
// Hermitian part H = (R + op(R))/2 of the represented matrix R: H_ij for
// i > j and H_jj/2 on the diagonal, so that S + Sᵀ (S + Sᴴ) equals H.
template <class T>
std::shared_ptr<llsparse<T>> symmetricPart(const csc::Matrix<T>& r, bool conj, Symm_t symm) {
  std::vector<size_t> rows, cols;
  std::vector<T> values;
  rows.reserve(r.nnz());
  cols.reserve(r.nnz());
  values.reserve(r.nnz());
  for (size_t j = 0; j < r.n; ++j)
    for (size_t p = r.colptr[j]; p < r.colptr[j + 1]; ++p) {
      const size_t i = r.row[p];
      const T a = r.value[p];
      if (i > j) {
        rows.push_back(i), cols.push_back(j), values.push_back(a * 0.5);
      } else if (i < j) {
        rows.push_back(j), cols.push_back(i), values.push_back(csc::conjIf(a, conj) * 0.5);
      } else {
        rows.push_back(j), cols.push_back(j), values.push_back((a + csc::conjIf(a, conj)) * 0.25);
      }
    }
  return csc::fromTriplets(rows, cols, values, r.m, r.n, symm);
}

// The stored entries of symmetric storage folded into its lower triangle:
// S_ij + S_ji (conjugated for the Hermitian mode) below the diagonal, S_jj
// (its real part for the Hermitian mode) on it; the same represented matrix.
template <class T>
std::shared_ptr<llsparse<T>> foldLower(const llsparse<T>& s) {
  const bool herm = s.symm == SymmHermitian;
  std::vector<size_t> rows, cols;
  std::vector<T> values;
  rows.reserve(s.nnz);
  cols.reserve(s.nnz);
  values.reserve(s.nnz);
  for (size_t j = 0; j < s.n; ++j)
    for (size_t p = s.colptr[j]; p < s.colptr[j + 1]; ++p) {
      const size_t i = s.row[p];
      const T v = s.value[p];
      if (i > j) {
        rows.push_back(i), cols.push_back(j), values.push_back(v);
      } else if (i < j) {
        rows.push_back(j), cols.push_back(i), values.push_back(csc::conjIf(v, herm));
      } else {
        rows.push_back(j), cols.push_back(j), values.push_back(herm ? T(std::real(v)) : v);
      }
    }
  return csc::fromTriplets(rows, cols, values, s.m, s.n, s.symm);
}

}  // namespace

Sparse& Sparse::makeSymmetric(Trans_t t) {
  checkTrans(t);
  refusePartial(*this, "makeSymmetric");
  const bool transposed = getSymm() == SymmTransposed;
  const size_t rows = transposed ? getN() : getM(), cols = transposed ? getM() : getN();
  if (rows != cols) QV_RAISE(sparse, Matrix_not_square);
  const bool herm = t == ConjTrans;
  const Symm_t symm = herm ? SymmHermitian : SymmSymmetric;
  if (real_)
    adopt(symmetricPart(csc::represented<double>(*dsp_), false, symm));
  else
    adopt(symmetricPart(csc::represented<dcomplex>(*zsp_), herm, symm));
  return *this;
}

Sparse& Sparse::uniqueSymmetric() {
  refusePartial(*this, "uniqueSymmetric");
  const Symm_t symm = getSymm();
  if (symm != SymmSymmetric && symm != SymmHermitian) return *this;
  if (getM() != getN()) QV_RAISE(sparse, Matrix_not_square);
  if (real_)
    adopt(foldLower(*dsp_));
  else
    adopt(foldLower(*zsp_));
  return *this;
}

}  // namespace qvarray
