// The MatrixMarket writer.
#include "io/mmwriter.h"

#include <charconv>
#include <ostream>

#include "io/mmreader.h"
#include "qvutil/errors.h"

namespace qvarray::mmio {

Writer::Writer(std::ostream& out, const std::string& name) : out_(out), name_(name) {
  buf_.reserve(kPiece + 128);
}

void Writer::header(MatrixMarketInfo::Format format, bool complex,
                    MatrixMarketInfo::Symmetry symmetry, const std::string& comment) {
  buf_ += "%%MatrixMarket matrix ";
  buf_ += format == MatrixMarketInfo::Format::Array ? "array " : "coordinate ";
  buf_ += complex ? "complex " : "real ";
  buf_ += symmetryName(symmetry);
  endLine();
  for (size_t pos = 0; pos < comment.size();) {
    size_t end = comment.find('\n', pos);
    if (end == std::string::npos) end = comment.size();
    buf_ += "% ";
    buf_.append(comment, pos, end - pos);
    endLine();
    pos = end + 1;
  }
}

void Writer::sizes(size_t m, size_t n) {
  number(m);
  buf_ += ' ';
  number(n);
  endLine();
}

void Writer::sizes(size_t m, size_t n, size_t entries) {
  number(m);
  buf_ += ' ';
  number(n);
  buf_ += ' ';
  number(entries);
  endLine();
}

void Writer::value(double v) {
  number(v);
  endLine();
}

void Writer::value(const std::complex<double>& v) {
  number(v.real());
  buf_ += ' ';
  number(v.imag());
  endLine();
}

void Writer::entry(size_t i, size_t j, double v) {
  number(i + 1);
  buf_ += ' ';
  number(j + 1);
  buf_ += ' ';
  value(v);
}

void Writer::entry(size_t i, size_t j, const std::complex<double>& v) {
  number(i + 1);
  buf_ += ' ';
  number(j + 1);
  buf_ += ' ';
  value(v);
}

// Shortest round-trip form ("inf", "nan" included), independent of the locale.
void Writer::number(double v) {
  char tmp[40];
  const auto r = std::to_chars(tmp, tmp + sizeof tmp, v);
  buf_.append(tmp, r.ptr);
}

void Writer::number(size_t v) {
  char tmp[24];
  const auto r = std::to_chars(tmp, tmp + sizeof tmp, v);
  buf_.append(tmp, r.ptr);
}

void Writer::endLine() {
  buf_ += '\n';
  if (buf_.size() >= kPiece) flush();
}

void Writer::flush() {
  out_.write(buf_.data(), static_cast<std::streamsize>(buf_.size()));
  buf_.clear();
}

void Writer::finish() {
  flush();
  out_.flush();
  if (!out_)
    QV_RAISE(matrixmarket, Cannot_write_file,
             qvbase::DetailPairs{{"File", name_}, {"Reason", "write failed"}});
}

}  // namespace qvarray::mmio
