// Dense MatrixMarket reading and writing, on the shared scanner and writer.
#include "qvarray/io/densemm.h"

#include <cstdint>
#include <fstream>
#include <istream>
#include <ostream>
#include <type_traits>

#include "io/mmreader.h"
#include "io/mmwriter.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

using mmio::dcomplex;
using mmio::Info;

template <class T>
T as(const dcomplex& v) {
  if constexpr (std::is_same_v<T, double>) return v.real();
  else return v;
}

template <class T>
Info readDense(mmio::Scanner& sc, Array<T, 2>& A) {
  const Info info = mmio::readHeader(sc);
  if constexpr (std::is_same_v<T, double>) {
    if (info.isComplex())
      QV_RAISE(densemm, Complex_MatrixMarket_file_for_real_array,
               mmio::errorDetails("The file holds a complex matrix; read it into a complex array.",
                                  sc.name(), 1));
  }
  // An element count beyond size_t is no dense array; one whose bytes no
  // allocation can hold is refused by the array below, as a bad allocation.
  size_t count = 0;
  if (__builtin_mul_overflow(info.rows, info.cols, &count))
    QV_RAISE(densemm, Invalid_MatrixMarket_file,
             mmio::errorDetails("A " + std::to_string(info.rows) + " x " +
                                    std::to_string(info.cols) +
                                    " matrix is too large for a dense array.",
                                sc.name(), info.sizeLine));

  // Read into a fresh array so that A is untouched when the file is bad.
  Array<T, 2> M;
  try {
    M.resize(info.rows, info.cols);
  } catch (const std::bad_alloc&) {
    throw FileBadAlloc(sc.name(), info.sizeLine);
  }
  M.fill(T(0.0));
  const bool mirror = info.symmetry != Info::Symmetry::General;
  if (info.format == Info::Format::Array) {
    // Each position is given once: assigned, so that -0.0 stays -0.0.
    mmio::readEntries(sc, info, [&](size_t i, size_t j, const dcomplex& v) {
      M(i, j) = as<T>(v);
      if (mirror && i != j) M(j, i) = as<T>(mmio::mirrored(v, info.symmetry));
    });
  } else {
    // Repeated positions are summed.
    mmio::readEntries(sc, info, [&](size_t i, size_t j, const dcomplex& v) {
      M(i, j) += as<T>(v);
      if (mirror && i != j) M(j, i) += as<T>(mmio::mirrored(v, info.symmetry));
    });
  }
  A.swap(M);
  return info;
}

template <class T>
Info readDensePath(const std::string& path, Array<T, 2>& A) {
  size_t size = 0;
  std::ifstream in = mmio::openForReading(path, size);
  mmio::Scanner sc(in, path, size);
  return readDense(sc, A);
}

template <class T>
Info readDenseStream(std::istream& in, const std::string& name, Array<T, 2>& A) {
  mmio::Scanner sc(in, name);
  return readDense(sc, A);
}

template <class T>
void writeDense(std::ostream& out, const std::string& name, const Array<T, 2>& A,
                const std::string& comment) {
  mmio::Writer w(out, name);
  w.header(Info::Format::Array, std::is_same_v<T, dcomplex>, Info::Symmetry::General, comment);
  w.sizes(A.sizes[0], A.sizes[1]);
  // Column-major storage is exactly the array format's order.
  for (size_t k = 0; k < A.count; ++k) w.value(A.data[k]);
  w.finish();
}

template <class T>
void writeDensePath(const std::string& path, const Array<T, 2>& A, const std::string& comment) {
  std::ofstream out = mmio::openForWriting(path);
  writeDense(out, path, A, comment);
  mmio::closeWritten(out, path);
}

const std::string kStream = "(stream)";

}  // namespace

MatrixMarketInfo readMatrixMarket(const std::string& path, Array<double, 2>& A) {
  return readDensePath(path, A);
}
MatrixMarketInfo readMatrixMarket(const std::string& path, Array<dcomplex, 2>& A) {
  return readDensePath(path, A);
}
MatrixMarketInfo readMatrixMarket(std::istream& in, const std::string& name, Array<double, 2>& A) {
  return readDenseStream(in, name, A);
}
MatrixMarketInfo readMatrixMarket(std::istream& in, const std::string& name,
                                  Array<dcomplex, 2>& A) {
  return readDenseStream(in, name, A);
}

void writeMatrixMarket(const std::string& path, const Array<double, 2>& A,
                       const std::string& comment) {
  writeDensePath(path, A, comment);
}
void writeMatrixMarket(const std::string& path, const Array<dcomplex, 2>& A,
                       const std::string& comment) {
  writeDensePath(path, A, comment);
}
void writeMatrixMarket(std::ostream& out, const Array<double, 2>& A, const std::string& comment) {
  writeDense(out, kStream, A, comment);
}
void writeMatrixMarket(std::ostream& out, const Array<dcomplex, 2>& A,
                       const std::string& comment) {
  writeDense(out, kStream, A, comment);
}

}  // namespace qvarray
