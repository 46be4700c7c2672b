// Sparse matrix–vector products: argument checks, the serial/parallel
// dispatch, and the serial product over operand types.
#include "qvarray/sparse/sparseproducts.h"

#include "qvarray/sparse/externalsparse.h"
#include "qvarray/sparse/parallelsparse.h"
#include "qvutil/errors.h"
#include "qvutil/parallel.h"
#include "sparse/sparseimpl.h"
#include "sparse/sparseproductimpl.h"
#include "sparse/spmvkernels.h"

namespace qvarray {

namespace spmv {

namespace {

// The storage kernel of op(S) over all columns.
template <class TA, class TX, class TY>
void storageProduct(const llsparse<TA>& s, const TX* x, TY* y, Trans_t t, bool minus) {
  constexpr bool kComplex = !std::is_same_v<TA, double>;
  const Plan plan = planFor(s.symm, t);
  const size_t* cp = s.colptr.data;
  withFlags(kComplex && plan.conjA, kComplex && plan.conjB, minus, [&](auto CA, auto CB, auto SUB) {
    serialColumns<CA(), CB(), SUB()>(plan.form, cp, s.row, s.value, s.firstRow, s.n, x, y);
  });
}

}  // namespace

void serialProduct(const Sparse& A, const ConstVec& x, const MutVec& y, Trans_t t, bool minus) {
  if (A.isReal()) {
    const llsparse<double>& s = *A.getptrD();
    if (!y.complex) {
      if (x.complex) QV_RAISE(sparse, Internal_error_sparse, "Complex product into a real vector.");
      // All real: an attached external representation may take the product.
      if (A.setExtData()) {
        A.getExtData()->mulAdd(minus ? -1.0 : 1.0, x.d, y.d, t);
        return;
      }
      storageProduct(s, x.d, y.d, t, minus);
    } else if (!x.complex) {
      storageProduct(s, x.d, y.z, t, minus);
    } else {
      storageProduct(s, x.z, y.z, t, minus);
    }
    return;
  }
  if (!y.complex) QV_RAISE(sparse, Internal_error_sparse, "Complex product into a real vector.");
  const llsparse<std::complex<double>>& s = *A.getptrZ();
  if (x.complex)
    storageProduct(s, x.z, y.z, t, minus);
  else
    storageProduct(s, x.d, y.z, t, minus);
}

void addProduct(const Sparse& A, const ConstVec& x, const MutVec& y, Trans_t t, bool minus,
                Path path) {
  if (x.n == 0 || y.n == 0 || A.getNnz() == 0) return;
  if (A.isReal() && t == ConjTrans) t = Trans;  // conjugation is void on real values
  if (path == Path::Select) path = usesParallelProduct(A) ? Path::Parallel : Path::Serial;
  if (path == Path::Parallel)
    parallelProduct(A, x, y, t, minus);
  else
    serialProduct(A, x, y, t, minus);
}

}  // namespace spmv

namespace {

using spmv::Path;

// True when op(A) works on the stored matrix transposed (the gather form for
// the general modes).
bool transposesStorage(Symm_t symm, Trans_t t) { return (t != NoTrans) != (symm == SymmTransposed); }

void checkTrans(Trans_t t) {
  if (t != NoTrans && t != Trans && t != ConjTrans)
    QV_RAISE(sparse, Internal_error_sparse, "Invalid transposition selector.");
}

// Lengths of x and y must fit op(A); partial matrices are not checked.
void checkSizes(const Sparse& A, size_t xn, size_t yn, Trans_t t) {
  checkTrans(t);
  if (A.isPartial()) return;
  const size_t m = A.getM(), n = A.getN();
  const Symm_t symm = A.getSymm();
  bool fits;
  if (symm == SymmSymmetric || symm == SymmHermitian)
    fits = m == n && xn == n && yn == n;
  else if (transposesStorage(symm, t))
    fits = xn == m && yn == n;
  else
    fits = yn == m && xn == n;
  if (!fits) QV_RAISE(sparse, Size_vector_sparse_matrix_disagree);
}

// Length of op(A)·x.
size_t resultLength(const Sparse& A, Trans_t t) {
  const Symm_t symm = A.getSymm();
  if (symm == SymmSymmetric || symm == SymmHermitian || transposesStorage(symm, t))
    return A.getN();
  const size_t m = A.getM(), first = A.getFirstRow();
  return m > first ? m - first : 0;
}

spmv::ConstVec view(const Vector& v) {
  if (v.isReal()) return {v.getdArr().data, nullptr, v.size(), false};
  return {nullptr, v.getzArr().data, v.size(), true};
}

spmv::MutVec view(Vector& v) {
  if (v.isReal()) return {v.getdArr().data, nullptr, v.size(), false};
  return {nullptr, v.getzArr().data, v.size(), true};
}

// y ±= op(A)·x, checked; the common body of every Vector product.
Vector& vectorProduct(Vector& y, const Sparse& A, const Vector& x, Trans_t t, bool minus,
                      Path path) {
  checkSizes(A, x.size(), y.size(), t);
  Vector copy;
  const Vector* xp = &x;
  if (&x == &y) {  // y += A·y: the product reads the old y
    copy = x;
    xp = &copy;
  }
  if (y.isReal() && (!A.isReal() || !xp->isReal())) y.makeComplex();
  spmv::addProduct(A, view(*xp), view(y), t, minus, path);
  return y;
}

Vector& columnProduct(Vector& y, const Sparse& A, const Matrix& X, Trans_t t, size_t k,
                      bool minus, Path path) {
  if (k >= X.cols()) QV_RAISE(sparse, Internal_error_sparse, "Column index out of range.");
  const size_t rows = X.rows();
  checkSizes(A, rows, y.size(), t);
  if (y.isReal() && (!A.isReal() || !X.isReal())) y.makeComplex();
  spmv::ConstVec x;
  if (X.isReal())
    x = {X.getdArr().data + k * rows, nullptr, rows, false};
  else
    x = {nullptr, X.getzArr().data + k * rows, rows, true};
  spmv::addProduct(A, x, view(y), t, minus, path);
  return y;
}

}  // namespace

bool usesParallelProduct(const Sparse& A) {
  return A.getNnz() >= kParallelNnzThreshold && AVAILABLETHREADS() > 1;
}

Vector& yPlusAMulx(Vector& y, const Sparse& A, const Vector& x, Trans_t t) {
  return vectorProduct(y, A, x, t, false, Path::Select);
}

Vector& yMinusAMulx(Vector& y, const Sparse& A, const Vector& x, Trans_t t) {
  return vectorProduct(y, A, x, t, true, Path::Select);
}

Vector AMulx(const Sparse& A, const Vector& x, Trans_t t) {
  const size_t len = resultLength(A, t);
  checkSizes(A, x.size(), len, t);
  Vector y;
  y.resize(len, A.isReal() && x.isReal());
  spmv::addProduct(A, view(x), view(y), t, false, Path::Select);
  return y;
}

void mulVec(Vector& y, const Sparse& A, const Vector& x, Trans_t t) { y = AMulx(A, x, t); }

Vector& yPlusAMulx(Vector& y, const Sparse& A, const Matrix& X, Trans_t t, size_t k) {
  return columnProduct(y, A, X, t, k, false, Path::Select);
}

Vector& yMinusAMulx(Vector& y, const Sparse& A, const Matrix& X, Trans_t t, size_t k) {
  return columnProduct(y, A, X, t, k, true, Path::Select);
}

Vector AMulx(const Sparse& A, const Matrix& X, Trans_t t, size_t k) {
  Vector y;
  y.resize(resultLength(A, t), A.isReal() && X.isReal());
  return columnProduct(y, A, X, t, k, false, Path::Select);
}

Vector& serialyPlusAMulx(Vector& y, const Sparse& A, const Vector& x, Trans_t t) {
  return vectorProduct(y, A, x, t, false, Path::Serial);
}

Vector& serialyPlusAMulx(Vector& y, const Sparse& A, const Matrix& X, Trans_t t, size_t k) {
  return columnProduct(y, A, X, t, k, false, Path::Serial);
}

Vector& serialyMinusAMulx(Vector& y, const Sparse& A, const Vector& x, Trans_t t) {
  return vectorProduct(y, A, x, t, true, Path::Serial);
}

Vector& selectyPlusAMulx(Vector& y, const Sparse& A, const Vector& x, Trans_t t) {
  return vectorProduct(y, A, x, t, false, Path::Select);
}

Vector& selectyPlusAMulx(Vector& y, const Sparse& A, const Matrix& X, Trans_t t, size_t k) {
  return columnProduct(y, A, X, t, k, false, Path::Select);
}

Vector& selectyMinusAMulx(Vector& y, const Sparse& A, const Vector& x, Trans_t t) {
  return vectorProduct(y, A, x, t, true, Path::Select);
}

Vector& parallelyPlusAMulx(Vector& y, const Sparse& A, const Vector& x, Trans_t t) {
  return vectorProduct(y, A, x, t, false, Path::Parallel);
}

Vector& parallelyPlusAMulx(Vector& y, const Sparse& A, const Matrix& X, Trans_t t, size_t k) {
  return columnProduct(y, A, X, t, k, false, Path::Parallel);
}

Vector& parallelyMinusAMulx(Vector& y, const Sparse& A, const Vector& x, Trans_t t) {
  return vectorProduct(y, A, x, t, true, Path::Parallel);
}

// ---- the interface forms and the virtual operations of Sparse -----------------

Vector& yPlusAMulx(Vector& y, const SparseBase& A, const Vector& x, Trans_t t) {
  return A.yPlusAMulxImpl(y, x, t);
}
Vector& yPlusAMulx(Vector& y, const SparseBase& A, const Matrix& X, Trans_t t, size_t k) {
  return A.yPlusAMulxImpl(y, X, t, k);
}
Vector& yMinusAMulx(Vector& y, const SparseBase& A, const Vector& x, Trans_t t) {
  return A.yMinusAMulxImpl(y, x, t);
}
Vector AMulx(const SparseBase& A, const Vector& x, Trans_t t) { return A.AMulxImpl(x, t); }
void mulVec(Vector& y, const SparseBase& A, const Vector& x, Trans_t t) { A.mulVecImpl(y, x, t); }

Vector Sparse::AMulxImpl(const Vector& x, Trans_t t) const { return qvarray::AMulx(*this, x, t); }
void Sparse::mulVecImpl(Vector& y, const Vector& x, Trans_t t) const {
  qvarray::mulVec(y, *this, x, t);
}
Vector& Sparse::yPlusAMulxImpl(Vector& y, const Vector& x, Trans_t t) const {
  return qvarray::yPlusAMulx(y, *this, x, t);
}
Vector& Sparse::yPlusAMulxImpl(Vector& y, const Matrix& X, Trans_t t, size_t k) const {
  return qvarray::yPlusAMulx(y, *this, X, t, k);
}
Vector& Sparse::yMinusAMulxImpl(Vector& y, const Vector& x, Trans_t t) const {
  return qvarray::yMinusAMulx(y, *this, x, t);
}

}  // namespace qvarray
