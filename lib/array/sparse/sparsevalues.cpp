// Sparse: operations on the values alone (the pattern and its version stay)
// and the conversions between real and complex storage.
#include <algorithm>
#include <cmath>

#include "qvutil/errors.h"
#include "sparse/sparseimpl.h"

namespace qvarray {

namespace {

using dcomplex = std::complex<double>;

// A storage object of value type To with the pattern of s (row array shared,
// same version) and the values conv(s.value[p]).
template <class To, class From, class Conv>
std::shared_ptr<llsparse<To>> convertStorage(const llsparse<From>& s, Conv conv) {
  auto t = std::make_shared<llsparse<To>>();
  if (s.nzmax > 0) {
    t->valueData = std::make_shared<Array<To, 1>>(s.nzmax);
    t->value = t->valueData->data;
    for (size_t p = 0; p < s.nnz; ++p) t->value[p] = conv(s.value[p]);
  }
  t->rowData = s.rowData;
  t->row = s.row;
  t->colptr = s.colptr;
  t->m = s.m;
  t->n = s.n;
  t->nnz = s.nnz;
  t->nzmax = s.nzmax;
  t->symm = s.symm;
  t->form = s.form;
  t->firstRow = s.firstRow;
  t->firstColumn = s.firstColumn;
  t->version = s.version;
  t->diag = s.diag;
  t->diagMissing = s.diagMissing;
  return t;
}

}  // namespace

Sparse& Sparse::scale(dcomplex a) {
  if (real_ && a.imag() != 0) real2complex();
  visitMutable([&](auto& s) {
    s.ownValues();
    if constexpr (std::is_same_v<std::remove_reference_t<decltype(*s.value)>, double>) {
      const double f = a.real();
      for (size_t p = 0; p < s.nnz; ++p) s.value[p] *= f;
    } else {
      for (size_t p = 0; p < s.nnz; ++p) s.value[p] *= a;
    }
  });
  return *this;
}

Sparse& Sparse::conjugate() {
  if (real_) return *this;
  clearAuxData();
  uniqueZ();
  zstore& s = *zsp_;
  s.ownValues();
  for (size_t p = 0; p < s.nnz; ++p) s.value[p] = std::conj(s.value[p]);
  return *this;
}

Sparse& Sparse::sign() {
  if (!real_) QV_RAISE(sparse, Sign_of_complex_Sparse_not_implemented);
  clearAuxData();
  uniqueD();
  dstore& s = *dsp_;
  s.ownValues();
  for (size_t p = 0; p < s.nnz; ++p) {
    const double v = s.value[p];
    s.value[p] = v > 0 ? 1.0 : v < 0 ? -1.0 : v;  // zeros keep their sign, NaN stays NaN
  }
  return *this;
}

Sparse& Sparse::real2complex() {
  if (!real_) return *this;
  adopt(convertStorage<dcomplex>(*dsp_, [](double v) { return dcomplex(v, 0.0); }));
  return *this;
}

bool Sparse::convertZeroImagToReal() {
  if (real_) return true;
  const zstore& s = *zsp_;
  if (std::any_of(s.value, s.value + s.nnz, [](const dcomplex& v) { return v.imag() != 0; }))
    return false;
  adopt(convertStorage<double>(s, [](const dcomplex& v) { return v.real(); }));
  return true;
}

}  // namespace qvarray
