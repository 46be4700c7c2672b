// Reading MatrixMarket files into triplets, on the shared scanner.
#include <algorithm>
#include <fstream>

#include "io/mmreader.h"
#include "qvarray/io/sparsemm.h"

namespace qvarray {

namespace {

using mmio::dcomplex;
using mmio::Info;

// The refusal of columns the file's values do not justify (see sparsemm.h).
void checkColumns(const mmio::Scanner& sc, const Info& info) {
  if (info.cols <= kSpareColumns || info.cols - kSpareColumns <= info.entries) return;
  const size_t bytes = (info.cols + 1) * sizeof(size_t);  // cols ≤ kMaxDimension: no overflow
  throw FileBadAlloc(sc.name(), info.sizeLine,
                     "A " + std::to_string(info.rows) + " x " + std::to_string(info.cols) +
                         " matrix with " + mmio::plural(info.entries, "entry", "entries") +
                         " would need " + std::to_string(bytes) + " bytes of column pointers");
}

MatrixMarketTriplets readTriplets(mmio::Scanner& sc, bool keepSymmetric) {
  const Info info = mmio::readHeader(sc);
  checkColumns(sc, info);
  MatrixMarketTriplets t;
  t.m = info.rows;
  t.n = info.cols;
  t.isComplex = info.isComplex();
  t.field = mmio::fieldName(info.field);
  t.symmetry = mmio::symmetryName(info.symmetry);
  t.file = sc.name();
  t.sizeLine = info.sizeLine;

  const bool arrayFormat = info.format == Info::Format::Array;
  const bool general = info.symmetry == Info::Symmetry::General;
  const bool hermitian = info.symmetry == Info::Symmetry::Hermitian;
  // Symmetric storage keeps the lower triangle with half the diagonal.
  const bool keep = keepSymmetric && !general && info.symmetry != Info::Symmetry::SkewSymmetric;
  if (keep) t.symm = hermitian ? SymmHermitian : SymmSymmetric;
  // One value 1 serves every entry of an expanded pattern file.
  const bool oneValue = info.field == Info::Field::Pattern && !keep;

  auto push = [&](size_t i, size_t j, const dcomplex& v) {
    t.rows.push_back(i);
    t.cols.push_back(j);
    if (t.isComplex)
      t.complexValues.push_back(v);
    else if (!oneValue)
      t.realValues.push_back(v.real());
  };
  auto entry = [&](size_t i, size_t j, const dcomplex& v) {
    if (arrayFormat && v == 0.0) return;  // a zero of a dense listing is not stored
    if (general) {
      push(i, j, v);
    } else if (i == j) {
      push(i, j, keep ? v * 0.5 : v);
    } else if (keep) {
      // The stored triangle becomes the lower one.
      if (i > j) push(i, j, v);
      else push(j, i, mmio::mirrored(v, info.symmetry));
    } else {
      push(i, j, v);
      push(j, i, mmio::mirrored(v, info.symmetry));
    }
  };

  try {
    // Reserve no more than the text can hold: an entry takes 4 bytes at least
    // ("1 1\n"), an array value 2 ("0\n"); without a known length, grow.
    const size_t room = sc.sizeHint() ? sc.sizeHint() / (arrayFormat ? 2 : 4) + 1 : 1 << 16;
    const size_t expect = std::min(info.entries, room) * (general || keep ? 1 : 2);
    t.rows.reserve(expect);
    t.cols.reserve(expect);
    if (t.isComplex) t.complexValues.reserve(expect);
    else if (!oneValue) t.realValues.reserve(expect);
    if (oneValue) t.realValues.assign(1, 1.0);
    mmio::readEntries(sc, info, entry);
  } catch (const std::bad_alloc&) {
    throw FileBadAlloc(sc.name(), sc.lineNumber());
  }
  return t;
}

}  // namespace

MatrixMarketTriplets parseMatrixMarket(std::string_view text, const std::string& name,
                                       bool keepSymmetric) {
  mmio::Scanner sc(text, name);
  return readTriplets(sc, keepSymmetric);
}

MatrixMarketTriplets readMatrixMarketTriplets(const std::string& path, bool keepSymmetric) {
  size_t size = 0;
  std::ifstream in = mmio::openForReading(path, size);
  mmio::Scanner sc(in, path, size);
  return readTriplets(sc, keepSymmetric);
}

}  // namespace qvarray
