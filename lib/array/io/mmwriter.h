#pragma once
// The one MatrixMarket writer: header, comments, size line and values, in
// large pieces, numbers in the shortest form that reads back to the same bits
// whatever the process's locale. Dense arrays are written in the array
// format, sparse matrices in the coordinate format, both through it.
#include <complex>
#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>

#include "qvarray/io/matrixmarket.h"

namespace qvarray::mmio {

class Writer {
 public:
  /// Writes to `out`; `name` stands for the file in errors.
  Writer(std::ostream& out, const std::string& name);

  /// "%%MatrixMarket matrix <format> <real|complex> <symmetry>", then each
  /// line of `comment` as a '%' line.
  void header(MatrixMarketInfo::Format format, bool complex, MatrixMarketInfo::Symmetry symmetry,
              const std::string& comment = std::string());
  /// The size line of the array format / of the coordinate format.
  void sizes(size_t m, size_t n);
  void sizes(size_t m, size_t n, size_t entries);
  /// One value line of the array format.
  void value(double v);
  void value(const std::complex<double>& v);
  /// One entry line of the coordinate format; i and j are 0-based.
  void entry(size_t i, size_t j, double v);
  void entry(size_t i, size_t j, const std::complex<double>& v);
  /// Hands the rest to the stream and flushes it; raises "Cannot_write_file"
  /// with ("File", name) and ("Reason", ...) when the stream failed.
  void finish();

 private:
  void number(double v);
  void number(size_t v);
  void endLine();
  void flush();

  static constexpr size_t kPiece = size_t{1} << 18;
  std::ostream& out_;
  const std::string& name_;
  std::string buf_;
};

}  // namespace qvarray::mmio
