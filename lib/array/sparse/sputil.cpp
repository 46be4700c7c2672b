// Free functions on sparse matrices: subMatrix, sparse2tril, hcatPrivate.
#include "qvarray/sparse/sputil.h"

#include <string>

#include "qvutil/errors.h"
#include "sparse/cscalgebra.h"
#include "sparse/sparseimpl.h"

namespace qvarray {

namespace {

using dcomplex = std::complex<double>;

void refusePartial(const Sparse& A, const char* operation) {
  if (A.isPartial())
    QV_RAISE(sparse, Internal_error_sparse,
             std::string(operation) + " is not available for a partial matrix.");
}

template <class T>
csc::Matrix<T> representedOf(const Sparse& A) {
  return A.isReal() ? csc::represented<T>(*A.getptrD()) : csc::represented<T>(*A.getptrZ());
}

template <class T>
Sparse block(const Sparse& A, const Array<size_t, 1>& rows, const Array<size_t, 1>& cols) {
  const csc::Matrix<T> a = representedOf<T>(A);
  for (size_t k = 0; k < rows.count; ++k)
    if (rows[k] >= a.m) QV_RAISE(sparse, Internal_error_sparse, "Row index out of range.");
  for (size_t k = 0; k < cols.count; ++k)
    if (cols[k] >= a.n) QV_RAISE(sparse, Internal_error_sparse, "Column index out of range.");
  // The positions a with rows[a] = i, as linked lists in increasing a.
  std::vector<size_t> head(a.m, csc::npos), next(rows.count, csc::npos);
  for (size_t k = rows.count; k-- > 0;) {
    next[k] = head[rows[k]];
    head[rows[k]] = k;
  }
  csc::Matrix<T> b;
  b.m = rows.count;
  b.n = cols.count;
  b.colptr.assign(cols.count + 1, 0);
  for (size_t c = 0; c < cols.count; ++c) {
    const size_t j = cols[c];
    for (size_t p = a.colptr[j]; p < a.colptr[j + 1]; ++p)
      for (size_t k = head[a.row[p]]; k != csc::npos; k = next[k]) {
        b.row.push_back(k);
        b.value.push_back(a.value[p]);
      }
    b.colptr[c + 1] = b.row.size();
  }
  return Sparse(csc::toStorage(b, SymmNone));
}

template <class T>
Sparse lowerTriangle(const Sparse& A) {
  csc::Matrix<T> a = representedOf<T>(A);
  if (a.m != a.n) QV_RAISE(sparse, Matrix_not_square);
  size_t q = 0;
  for (size_t j = 0; j < a.n; ++j) {
    const size_t begin = a.colptr[j], end = a.colptr[j + 1];
    a.colptr[j] = q;
    for (size_t p = begin; p < end; ++p)
      if (a.row[p] >= j) {
        a.row[q] = a.row[p];
        a.value[q] = a.value[p];
        ++q;
      }
  }
  a.colptr[a.n] = q;
  a.row.resize(q);
  a.value.resize(q);
  return Sparse(csc::toStorage(a, SymmNone));
}

template <class T>
Sparse concatenate(const std::vector<std::shared_ptr<Sparse>>& list, size_t m, Symm_t symm) {
  csc::Matrix<T> c;
  c.m = m;
  for (const auto& A : list) {
    const csc::Matrix<T> a =
        A->isReal() ? csc::stored<T>(*A->getptrD()) : csc::stored<T>(*A->getptrZ());
    const size_t base = c.row.size();
    for (size_t j = 0; j < a.n; ++j) c.colptr.push_back(base + a.colptr[j + 1]);
    c.row.insert(c.row.end(), a.row.begin(), a.row.end());
    c.value.insert(c.value.end(), a.value.begin(), a.value.end());
    c.n += a.n;
  }
  return Sparse(csc::toStorage(c, symm));
}

}  // namespace

Sparse subMatrix(const Sparse& A, const Array<size_t, 1>& rows, const Array<size_t, 1>& cols) {
  refusePartial(A, "subMatrix");
  return A.isReal() ? block<double>(A, rows, cols) : block<dcomplex>(A, rows, cols);
}

Sparse sparse2tril(const Sparse& A) {
  refusePartial(A, "sparse2tril");
  return A.isReal() ? lowerTriangle<double>(A) : lowerTriangle<dcomplex>(A);
}

Sparse hcatPrivate(const std::vector<std::shared_ptr<Sparse>>& list) {
  if (list.empty()) return Sparse();
  bool real = true;
  for (const auto& A : list) {
    if (!A) QV_RAISE(sparse, Internal_error_sparse, "Null matrix in the list.");
    refusePartial(*A, "hcatPrivate");
    if (A->getM() != list.front()->getM()) QV_RAISE(sparse, Size_sparse_matrices_disagree);
    if (A->getSymm() != list.front()->getSymm())
      QV_RAISE(sparse, Symmetry_sparse_matrices_disagree);
    real = real && A->isReal();
  }
  const size_t m = list.front()->getM();
  const Symm_t symm = list.front()->getSymm();
  return real ? concatenate<double>(list, m, symm) : concatenate<dcomplex>(list, m, symm);
}

}  // namespace qvarray
