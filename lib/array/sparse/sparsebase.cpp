// SparseBase: default implementations, each reporting that the operation is
// not available on this kind of matrix.
#include "qvarray/sparse/sparsebase.h"

#include <ostream>

#include "qvutil/errors.h"

namespace qvarray {

namespace {

[[noreturn]] void notAvailable(int line, const char* operation) {
  qvbase::raise(qvbase::ErrModule::sparsebase, line, qvbase::ErrKey::Internal_error_sparse_base,
                operation);
}

}  // namespace

#define QV_NOT_AVAILABLE(op) notAvailable(__LINE__, op)

std::ostream& operator<<(std::ostream& os, const SparseBase& A) {
  A.outputImpl(os);
  return os;
}

void SparseBase::outputImpl(std::ostream&) const { QV_NOT_AVAILABLE("outputImpl"); }
Vector SparseBase::AMulxImpl(const Vector&, Trans_t) const { QV_NOT_AVAILABLE("AMulxImpl"); }
void SparseBase::mulVecImpl(Vector&, const Vector&, Trans_t) const {
  QV_NOT_AVAILABLE("mulVecImpl");
}
Vector& SparseBase::yPlusAMulxImpl(Vector&, const Vector&, Trans_t) const {
  QV_NOT_AVAILABLE("yPlusAMulxImpl");
}
Vector& SparseBase::yPlusAMulxImpl(Vector&, const Matrix&, Trans_t, size_t) const {
  QV_NOT_AVAILABLE("yPlusAMulxImpl");
}
Vector& SparseBase::yMinusAMulxImpl(Vector&, const Vector&, Trans_t) const {
  QV_NOT_AVAILABLE("yMinusAMulxImpl");
}
int SparseBase::JacobiItsImpl(Vector&, Vector&, double) const { QV_NOT_AVAILABLE("JacobiItsImpl"); }
int SparseBase::SORItImpl(Vector&, Vector&, double, bool) const { QV_NOT_AVAILABLE("SORItImpl"); }
int SparseBase::SORItImpl(Vector&, Vector&, double, bool, const Array<size_t, 1>&) const {
  QV_NOT_AVAILABLE("SORItImpl");
}
int SparseBase::SORItImpl(Vector&, Vector&, double, bool, const Array<size_t, 1>&,
                          const Array<size_t, 1>&, const Array<size_t, 1>&) const {
  QV_NOT_AVAILABLE("SORItImpl");
}
int SparseBase::SORUpdaterImpl(Vector&, double, bool) const { QV_NOT_AVAILABLE("SORUpdaterImpl"); }
int SparseBase::SORUpdaterImpl(Vector&, double, bool, const Array<size_t, 1>&) const {
  QV_NOT_AVAILABLE("SORUpdaterImpl");
}
int SparseBase::SORUpdaterImpl(Vector&, double, bool, const Array<size_t, 1>&,
                               const Array<size_t, 1>&, const Array<size_t, 1>&) const {
  QV_NOT_AVAILABLE("SORUpdaterImpl");
}
int SparseBase::SORItUpdaterImpl(Vector&, Vector&, double, bool) const {
  QV_NOT_AVAILABLE("SORItUpdaterImpl");
}
int SparseBase::SORItUpdaterImpl(Vector&, Vector&, double, bool, const Array<size_t, 1>&) const {
  QV_NOT_AVAILABLE("SORItUpdaterImpl");
}
int SparseBase::SORItUpdaterImpl(Vector&, Vector&, double, bool, const Array<size_t, 1>&,
                                 const Array<size_t, 1>&, const Array<size_t, 1>&) const {
  QV_NOT_AVAILABLE("SORItUpdaterImpl");
}

size_t SparseBase::getM() const { QV_NOT_AVAILABLE("getM"); }
size_t SparseBase::getN() const { QV_NOT_AVAILABLE("getN"); }
size_t SparseBase::getNnz() const { QV_NOT_AVAILABLE("getNnz"); }
size_t SparseBase::getNzmax() const { QV_NOT_AVAILABLE("getNzmax"); }
const size_t* SparseBase::getColPtr() const { QV_NOT_AVAILABLE("getColPtr"); }
const size_t* SparseBase::getRow() const { QV_NOT_AVAILABLE("getRow"); }
const size_t* SparseBase::getDiag() const { QV_NOT_AVAILABLE("getDiag"); }
const double* SparseBase::getDoubleVal() const { QV_NOT_AVAILABLE("getDoubleVal"); }
const std::complex<double>* SparseBase::getDcmplxVal() const { QV_NOT_AVAILABLE("getDcmplxVal"); }
std::shared_ptr<const llsparse<double>> SparseBase::getptrD() const { QV_NOT_AVAILABLE("getptrD"); }
std::shared_ptr<const llsparse<std::complex<double>>> SparseBase::getptrZ() const {
  QV_NOT_AVAILABLE("getptrZ");
}
bool SparseBase::isReal() const { QV_NOT_AVAILABLE("isReal"); }
Form_t SparseBase::getForm() const { QV_NOT_AVAILABLE("getForm"); }
SparseBase& SparseBase::setForm(Form_t) { QV_NOT_AVAILABLE("setForm"); }
Symm_t SparseBase::getSymm() const { QV_NOT_AVAILABLE("getSymm"); }
SparseBase& SparseBase::setSymm(Symm_t) { QV_NOT_AVAILABLE("setSymm"); }
bool SparseBase::isSymmetric(double, Trans_t) const { QV_NOT_AVAILABLE("isSymmetric"); }
bool SparseBase::isEqual(const SparseBase&, double, Trans_t) const { QV_NOT_AVAILABLE("isEqual"); }

SparseBase& SparseBase::triplet2sparse(const Array<size_t, 1>&, const Array<size_t, 1>&,
                                       const Vector&, size_t, size_t) {
  QV_NOT_AVAILABLE("triplet2sparse");
}
SparseBase& SparseBase::flat2sparse(const Array<size_t, 1>&, const Array<size_t, 1>&,
                                    const Array<double, 1>&, size_t, size_t) {
  QV_NOT_AVAILABLE("flat2sparse");
}
SparseBase& SparseBase::flat2sparse(const Array<size_t, 1>&, const Array<size_t, 1>&,
                                    const Array<std::complex<double>, 1>&, size_t, size_t) {
  QV_NOT_AVAILABLE("flat2sparse");
}
SparseBase& SparseBase::zeros(size_t) { QV_NOT_AVAILABLE("zeros"); }
SparseBase& SparseBase::zeros(size_t, size_t, size_t, bool) { QV_NOT_AVAILABLE("zeros"); }
SparseBase& SparseBase::eye(size_t) { QV_NOT_AVAILABLE("eye"); }
SparseBase& SparseBase::clear() { QV_NOT_AVAILABLE("clear"); }

SparseBase& SparseBase::setElem(size_t, size_t, std::complex<double>) {
  QV_NOT_AVAILABLE("setElem");
}
SparseBase& SparseBase::scale(std::complex<double>) { QV_NOT_AVAILABLE("scale"); }
SparseBase& SparseBase::rowscale(const Vector&) { QV_NOT_AVAILABLE("rowscale"); }
SparseBase& SparseBase::rowscaleInv(const Vector&) { QV_NOT_AVAILABLE("rowscaleInv"); }
SparseBase& SparseBase::colscale(const Vector&) { QV_NOT_AVAILABLE("colscale"); }
SparseBase& SparseBase::colscaleInv(const Vector&) { QV_NOT_AVAILABLE("colscaleInv"); }
SparseBase& SparseBase::conjugate() { QV_NOT_AVAILABLE("conjugate"); }
SparseBase& SparseBase::sign() { QV_NOT_AVAILABLE("sign"); }
SparseBase& SparseBase::real2complex() { QV_NOT_AVAILABLE("real2complex"); }
bool SparseBase::convertZeroImagToReal() { QV_NOT_AVAILABLE("convertZeroImagToReal"); }
SparseBase& SparseBase::makeSymmetric(Trans_t) { QV_NOT_AVAILABLE("makeSymmetric"); }
SparseBase& SparseBase::uniqueSymmetric() { QV_NOT_AVAILABLE("uniqueSymmetric"); }
SparseBase& SparseBase::truncateCols(double) { QV_NOT_AVAILABLE("truncateCols"); }
SparseBase& SparseBase::mulRight(const SparseBase&, Trans_t, bool) { QV_NOT_AVAILABLE("mulRight"); }
SparseBase& SparseBase::multLeft(const SparseBase&, Trans_t, bool) { QV_NOT_AVAILABLE("multLeft"); }
SparseBase& SparseBase::addMat(std::complex<double>, const SparseBase&, bool) {
  QV_NOT_AVAILABLE("addMat");
}
SparseBase& SparseBase::format(Form_t, bool) { QV_NOT_AVAILABLE("format"); }
SparseBase& SparseBase::reallocate(double) { QV_NOT_AVAILABLE("reallocate"); }
size_t SparseBase::nonZeros(int, Array<int, 1>&) const { QV_NOT_AVAILABLE("nonZeros"); }
SparseBase& SparseBase::zeroCols(const Array<size_t, 1>&) { QV_NOT_AVAILABLE("zeroCols"); }
SparseBase& SparseBase::removeZeroCols(Array<size_t, 1>&) { QV_NOT_AVAILABLE("removeZeroCols"); }
size_t SparseBase::getIdx(size_t, size_t) const { QV_NOT_AVAILABLE("getIdx"); }
void SparseBase::getIdxBlock(const Array<size_t, 1>&, const Array<size_t, 1>&,
                             Array<size_t, 2>&) const {
  QV_NOT_AVAILABLE("getIdxBlock");
}
double SparseBase::getReal(size_t, size_t) const { QV_NOT_AVAILABLE("getReal"); }
void SparseBase::getRealBlock(const Array<size_t, 1>&, const Array<size_t, 1>&,
                              Array<double, 2>&) const {
  QV_NOT_AVAILABLE("getRealBlock");
}
double SparseBase::getImag(size_t, size_t) const { QV_NOT_AVAILABLE("getImag"); }
void SparseBase::getImagBlock(const Array<size_t, 1>&, const Array<size_t, 1>&,
                              Array<double, 2>&) const {
  QV_NOT_AVAILABLE("getImagBlock");
}
void SparseBase::getVectorPair(size_t, Array<size_t, 1>&, Vector&) const {
  QV_NOT_AVAILABLE("getVectorPair");
}
SparseBase& SparseBase::operator=(const SparseBase&) { QV_NOT_AVAILABLE("operator="); }
SparseBase::~SparseBase() = default;

}  // namespace qvarray
