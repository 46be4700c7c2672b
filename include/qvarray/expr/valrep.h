#pragma once
// ValRep: the value of an expression over a batch of evaluation points.
//
// A value is real or complex, scalar (one number per part, the same at every
// point) or nonscalar (nEl numbers per part), and holds nEp parts (more than
// one: structured). It may be marked zero (reads as 0, needs no parts) or NaN
// (a soft failure, possibly with an error record; reading its numbers raises
// "Unexpected_NaN"). Exactly one of four part lists is in use, chosen by the
// flags scalar and storedAsComplex:
//   real scalars    shared_ptr<double>          complex scalars  shared_ptr<Complex>
//   real arrays     shared_ptr<Array<double,1>> complex arrays   shared_ptr<Array<Complex,1>>
// An array part holds at least nEl elements (a standard block of the
// allocator may be longer); only the first nEl are the value's.
//
// Parts are shared between values and caches; a part is written in place
// only by a holder that owns it alone (hasUniqueData, uniquify). When the
// last owner drops a value, its parts go back to its allocator, which keeps
// those it owns alone. Not thread-safe: one thread owns a value at a time.
//
// Arithmetic (applyOp and the shortcuts) is in the second half of this header.
#include <complex>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "qvarray/array.h"
#include "qvarray/export.h"
#include "qvarray/expr/arrayallocator.h"
#include "qvutil/errinfo.h"

namespace qvarray {

class FunObj;

/// Reads a value element by element whatever its storage: part p, element k.
/// A scalar part repeats its number, a value with one part (or a zero value)
/// ignores p. Valid while the value and its parts are unchanged.
class QVARRAY_API DValRepReader {
 public:
  double operator()(uint64_t p, uint64_t k) const {
    const Part& q = parts_[single_ ? 0 : p];
    return q.data[k * q.stride];
  }
  double operator()(uint64_t k) const { return parts_[0].data[k * parts_[0].stride]; }

 private:
  friend class ValRep;
  friend class CValRepReader;
  // Real parts of part p at data[k·stride] (stride 0 scalar, 1 real, 2 complex).
  struct Part {
    const double* data;
    size_t stride;
    bool complex;
  };
  std::vector<Part> parts_;
  bool single_ = true;
};

/// DValRepReader's complex counterpart; real storage reads with imaginary part 0.
class QVARRAY_API CValRepReader {
 public:
  std::complex<double> operator()(uint64_t p, uint64_t k) const {
    return at(parts_[single_ ? 0 : p], k);
  }
  std::complex<double> operator()(uint64_t k) const { return at(parts_[0], k); }

 private:
  friend class ValRep;
  using Part = DValRepReader::Part;
  static std::complex<double> at(const Part& q, uint64_t k) {
    const double* x = q.data + k * q.stride;
    return {x[0], q.complex ? x[1] : 0.0};
  }
  std::vector<Part> parts_;
  bool single_ = true;
};

class QVARRAY_API ValRep {
 public:
  using Complex = std::complex<double>;
  using Ptr = std::shared_ptr<ValRep>;
  using AllocPtr = std::shared_ptr<ArrayAllocator>;
  using DArray = Array<double, 1>;
  using CArray = Array<Complex, 1>;

  /// Scalar, no parts, no allocator.
  ValRep();
  /// Nonscalar, no parts, drawing arrays from `alloc`.
  explicit ValRep(AllocPtr alloc);
  /// A scalar holding v (one part, nEl 1).
  explicit ValRep(double v);
  explicit ValRep(Complex v);
  ValRep(const ValRep&) = delete;
  ValRep& operator=(const ValRep&) = delete;
  /// Releases the parts to the allocator.
  ~ValRep();

  /// A scalar zero, evaluated. A scalar NaN, evaluated, without error record.
  static Ptr makeZero();
  static Ptr makeNaN();

  // Queries.
  bool isScalar() const { return scalar_; }
  bool isStoredAsComplex() const { return storedAsComplex_; }
  bool isComplex() const { return complex_; }
  bool isNaN() const { return nan_; }
  bool isEvaluated() const { return evaluated_; }
  bool isStructured() const { return nEp_ > 1; }
  uint64_t getNEl() const { return nEl_; }
  uint64_t getNEp() const { return nEp_; }
  /// The value is marked zero.
  bool isZero() const { return zero_; }
  /// Every number has modulus at most tol (a NaN value: false).
  bool isZero(double tol) const;
  /// Some stored complex number has a nonzero imaginary part.
  bool checkComplex() const;
  /// Largest modulus (0 for zero and for no parts; NaN for a NaN value).
  double maxAbs() const;
  /// Largest modulus and its place (part, element); the first place on ties.
  double maxAbsPos(std::pair<uint64_t, uint64_t>& pos) const;
  /// The allocator's block size; 0 without an allocator.
  int getAllocatorBlockSize() const;
  const AllocPtr& getAllocator() const { return alloc_; }
  void setAllocator(AllocPtr alloc) { alloc_ = std::move(alloc); }
  /// Every part in use is held by this value alone (true for zero and NaN).
  bool hasUniqueData() const;
  /// Replaces every shared part by a private copy.
  void uniquify();

  // Error record (carried by NaN values).
  /// The record, made on first use.
  std::shared_ptr<qvbase::ErrInfo>& getErrors();
  bool hasErrors() const { return errors_ && !errors_->empty(); }
  void setErrors(std::shared_ptr<qvbase::ErrInfo> errors) { errors_ = std::move(errors); }
  /// Raises "Unexpected_NaN" (evalrep) with the record's module and pairs as details.
  [[noreturn]] void throwError() const;

  // Reading; a value with one part ignores i. NaN values raise "Unexpected_NaN".
  /// The first number (0 for zero; a complex value's real part).
  double getDouble() const;
  /// The first number (imaginary part 0 for real storage).
  Complex getComplex() const;
  double getScalarDouble(uint64_t i) const;
  Complex getScalarComplex(uint64_t i) const;
  /// The numbers of array part i (nonscalar values of that storage only).
  double* getDoubleIterator(uint64_t i);
  Complex* getComplexIterator(uint64_t i);
  /// A reader of the real numbers; with `checkReal`, a complex-valued value
  /// raises "Complex_number_in_real_expression" (otherwise real parts are read).
  DValRepReader getDoubleReader(bool checkReal) const;
  CValRepReader getComplexReader() const;

  // Writing.
  /// Empties the value: no parts, the given flags and element count, zero, NaN
  /// and evaluated cleared, no error record.
  void reset(bool scalar, bool complex, uint64_t nEl);
  /// Makes this value a copy of `other`: flags, counts, allocator, record;
  /// the parts are shared, or copied when `copyData`.
  void reset(const ValRep& other, bool copyData);
  /// Appends an array part of nEl elements (a standard block when nEl is at
  /// most the block size) and clears zero. Reference valid until the next add.
  DArray& addDArray();
  CArray& addCArray();
  /// Appends a scalar part holding v and clears zero.
  double& addDScalar(double v = 0.0);
  Complex& addCScalar(Complex v = 0.0);
  void reserveDArray(size_t n) { dArrays_.reserve(n); }
  void reserveCArray(size_t n) { cArrays_.reserve(n); }
  /// Releases every part to the allocator; no parts remain.
  void clearData();
  /// Releases the parts of the lists not in use, and all parts of a zero or
  /// NaN value.
  void releaseUnused();
  void setEvaluated() { evaluated_ = true; }
  void setUnevaluated() { evaluated_ = false; }
  /// Marks NaN (and evaluated), clears zero; parts are released.
  void setNaN();
  /// Marks zero (and evaluated); parts are released.
  void setZero();
  void setNEl(uint64_t nEl) { nEl_ = nEl; }
  /// Marks a complex-stored value real-valued or not (storage unchanged).
  void setComplex(bool complex) { complex_ = complex && storedAsComplex_; }

  // Conversion. Storage kinds: a scalar becomes nonscalar by broadcasting; a
  // nonscalar value becomes scalar only when it has one element; real becomes
  // complex with imaginary part 0; complex becomes real only when every
  // imaginary part is 0 (else "Complex_number_in_real_expression"). The
  // element count of a nonscalar result equals the source's. Zero and NaN
  // values keep their marks (and record) and hold no parts.
  Ptr clone() const;
  Ptr cloneToReal() const;
  Ptr cloneCast(const AllocPtr& alloc, bool scalar, bool complex, uint64_t nEl) const;
  void cast(const AllocPtr& alloc, bool scalar, bool complex, uint64_t nEl);
  void copyCast(const ValRep& other, const AllocPtr& alloc, bool scalar, bool complex,
                uint64_t nEl);
  /// The elements at `indices` of every part (nonscalar: a value of
  /// indices.size() elements; scalar parts are kept).
  Ptr getPartial(const std::vector<uint64_t>& indices) const;

  // Export. The value's numbers in order "part-major": the nEl numbers of part
  // 0 (a scalar part repeated), then of part 1, ...; N = nEl·nEp in all. A
  // complex value exported to real raises "Complex_number_in_real_expression".
  /// out resized to N and filled.
  void copyToArray(DArray& out) const;
  void copyToArray(CArray& out) const;
  /// Number k goes to out[index[k]] (index of N entries within out).
  void copyToArray(DArray& out, const Array<int, 1>& index) const;
  void copyToArray(CArray& out, const Array<int, 1>& index) const;
  void copyToArray(DArray& out, const std::vector<int>& index) const;
  void copyToArray(CArray& out, const std::vector<int>& index) const;
  /// The first `count` numbers (at most N) go to buf[offset ...].
  void copyToArray(double* buf, size_t offset, size_t count) const;
  void copyToArray(Complex* buf, size_t offset, size_t count) const;
  /// out[k] += number k; out[k] *= number k (out of N elements).
  void addToArray(DArray& out) const;
  void addToArray(CArray& out) const;
  void multiplyArray(DArray& out) const;
  void multiplyArray(CArray& out) const;

  /// Zero: "0"; NaN: "NaN"; a scalar: its parts separated by "; " (complex
  /// numbers as "(re+im*i)"); nonscalar: "[" the numbers of a part separated
  /// by ", ", parts by "; ", then "]". Shortest round-trip digits.
  std::string toString() const;

  // Arithmetic: see the end of this header.
  static Ptr applyOp(const FunObj& f, const Ptr& a, bool overwrite);
  static Ptr applyOp(const FunObj& f, const Ptr& a, const Ptr& b, bool overwrite);
  static Ptr applyOp(const FunObj& f, const std::vector<Ptr>& args, bool overwrite);
  static void applyOpPost(const FunObj& f, const Ptr& result);
  static Ptr evalUnary(const FunObj& f, const Ptr& a, bool overwrite);
  static Ptr evalBinary(const FunObj& f, const Ptr& a, const Ptr& b, bool overwrite);
  static Ptr plus(const Ptr& a, const Ptr& b, bool overwrite);
  static Ptr plus(const Ptr& a, double c, bool overwrite);
  static Ptr minus(const Ptr& a, const Ptr& b, bool overwrite);
  static Ptr minus(const Ptr& a, double c, bool overwrite);
  static Ptr times(const Ptr& a, const Ptr& b, bool overwrite);
  static Ptr times(const Ptr& a, double c, bool overwrite);
  static Ptr divide(const Ptr& a, const Ptr& b, bool overwrite);
  static Ptr divide(const Ptr& a, double c, bool overwrite);
  static Ptr uminus(const Ptr& a, bool overwrite);
  static Ptr sqrt(const Ptr& a, bool overwrite);

  // Raw part lists, for the arithmetic and the engine's nodes.
  std::vector<std::shared_ptr<double>>& dScalars() { return dScalars_; }
  std::vector<std::shared_ptr<Complex>>& cScalars() { return cScalars_; }
  std::vector<std::shared_ptr<DArray>>& dArrays() { return dArrays_; }
  std::vector<std::shared_ptr<CArray>>& cArrays() { return cArrays_; }

 private:
  void checkNotNaN() const;
  size_t partIndex(uint64_t i) const { return nEp_ == 1 ? 0 : static_cast<size_t>(i); }
  template <class Out>
  void exportTo(Out&& put) const;
  bool copyRealArrays(double* y, size_t count) const;
  DValRepReader::Part readerPart(size_t p) const;
  template <class T>
  void copyToArrayIndexed(Array<T, 1>& out, const int* index, size_t n) const;

  bool scalar_ = true;
  bool storedAsComplex_ = false;
  bool complex_ = false;
  bool zero_ = false;
  bool nan_ = false;
  bool evaluated_ = false;
  uint64_t nEl_ = 0;
  uint64_t nEp_ = 0;
  AllocPtr alloc_;
  std::shared_ptr<qvbase::ErrInfo> errors_;
  std::vector<std::shared_ptr<double>> dScalars_;
  std::vector<std::shared_ptr<Complex>> cScalars_;
  std::vector<std::shared_ptr<DArray>> dArrays_;
  std::vector<std::shared_ptr<CArray>> cArrays_;
};

}  // namespace qvarray
