// The MatrixMarket header and size line, and the header-only entry point.
#include "io/mmreader.h"

#include <utility>

#include "qvarray/array.h"

namespace qvarray {
namespace mmio {

namespace {

std::string lower(std::string_view s) {
  std::string r(s);
  for (char& c : r)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return r;
}

std::string shape(const Info& info) {
  return std::to_string(info.rows) + " x " + std::to_string(info.cols);
}

// Values the array format holds for the shape and symmetry: m·n, n(n+1)/2 or
// n(n−1)/2; false when the count overflows.
bool arrayValueCount(const Info& info, size_t& count) {
  const size_t n = info.rows;
  switch (info.symmetry) {
    case Info::Symmetry::General:
      return !__builtin_mul_overflow(info.rows, info.cols, &count);
    case Info::Symmetry::Symmetric:
    case Info::Symmetry::Hermitian:
      return !__builtin_mul_overflow(n % 2 ? n : n / 2, n % 2 ? (n + 1) / 2 : n + 1, &count);
    case Info::Symmetry::SkewSymmetric:
      if (n == 0) return count = 0, true;
      return !__builtin_mul_overflow(n % 2 ? n : n / 2, n % 2 ? (n - 1) / 2 : n - 1, &count);
  }
  return false;
}

}  // namespace

std::string plural(size_t n, const char* one, const char* many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

std::string entryName(size_t i, size_t j) {
  return "(" + std::to_string(i) + ", " + std::to_string(j) + ")";
}

namespace {

// The header's keywords, in the order the error sentences list them.
template <class E>
using Keywords = std::pair<const char*, E>[];
constexpr Keywords<Info::Format> kFormats = {{"array", Info::Format::Array},
                                             {"coordinate", Info::Format::Coordinate}};
constexpr Keywords<Info::Field> kFields = {{"real", Info::Field::Real},
                                           {"integer", Info::Field::Integer},
                                           {"complex", Info::Field::Complex},
                                           {"pattern", Info::Field::Pattern}};
constexpr Keywords<Info::Symmetry> kSymmetries = {
    {"general", Info::Symmetry::General},
    {"symmetric", Info::Symmetry::Symmetric},
    {"skew-symmetric", Info::Symmetry::SkewSymmetric},
    {"hermitian", Info::Symmetry::Hermitian}};

// The value of a lower-case keyword; false when the table has none.
template <class E, size_t N>
bool lookup(const std::pair<const char*, E> (&table)[N], const std::string& word, E& value) {
  for (const auto& [name, v] : table)
    if (word == name) return value = v, true;
  return false;
}

template <class E, size_t N>
const char* keyword(const std::pair<const char*, E> (&table)[N], E value) {
  for (const auto& [name, v] : table)
    if (v == value) return name;
  return "";
}

}  // namespace

const char* fieldName(Info::Field f) { return keyword(kFields, f); }
const char* symmetryName(Info::Symmetry s) { return keyword(kSymmetries, s); }

Info readHeader(Scanner& sc) {
  // Header: "%%MatrixMarket matrix <format> <field> <symmetry>".
  std::string_view line;
  if (!sc.nextLine(line))
    sc.failAt(1, "The file is empty; expected a '%%MatrixMarket matrix ...' header.");
  const Tokens t(line);
  if (t.count == 0 || lower(t.tok[0]) != "%%matrixmarket")
    sc.fail("The first line is not a '%%MatrixMarket matrix ...' header.");
  if (t.count < 5)
    sc.fail("The header needs object, format, field and symmetry after '%%MatrixMarket'.");
  if (t.count > 5) sc.fail("Unexpected " + quote(t.tok[5]) + " after the header's symmetry.");

  Info info;
  if (lower(t.tok[1]) != "matrix")
    sc.fail("Object " + quote(t.tok[1]) + " is not supported; expected 'matrix'.");
  if (!lookup(kFormats, lower(t.tok[2]), info.format))
    sc.fail("Unknown format " + quote(t.tok[2]) + "; expected 'array' or 'coordinate'.");
  if (!lookup(kFields, lower(t.tok[3]), info.field))
    sc.fail("Unknown field " + quote(t.tok[3]) +
            "; expected 'real', 'integer', 'complex' or 'pattern'.");
  if (!lookup(kSymmetries, lower(t.tok[4]), info.symmetry))
    sc.fail("Unknown symmetry " + quote(t.tok[4]) +
            "; expected 'general', 'symmetric', 'skew-symmetric' or 'hermitian'.");
  if (info.field == Info::Field::Pattern && info.format == Info::Format::Array)
    sc.fail("The array format has no 'pattern' field.");
  if (info.symmetry == Info::Symmetry::Hermitian && info.field != Info::Field::Complex)
    sc.fail(std::string("Hermitian symmetry needs the 'complex' field, not '") +
            fieldName(info.field) + "'.");
  if (info.symmetry == Info::Symmetry::SkewSymmetric && info.field == Info::Field::Pattern)
    sc.fail("A 'pattern' matrix cannot be skew-symmetric.");

  // Size line: "rows columns entries" (coordinate) or "rows columns" (array).
  const bool coord = info.format == Info::Format::Coordinate;
  if (!sc.nextDataLine(line))
    sc.fail(coord ? "The file ends before the size line 'rows columns entries'."
                  : "The file ends before the size line 'rows columns'.");
  info.sizeLine = sc.lineNumber();
  const Tokens s(line);
  if (s.count != (coord ? 3 : 2))
    sc.fail(coord ? "The size line must hold three numbers: rows columns entries."
                  : "The size line must hold two numbers: rows columns.");
  info.rows = sc.count(s.tok[0], "row count");
  info.cols = sc.count(s.tok[1], "column count");
  if (info.rows > kMaxDimension || info.cols > kMaxDimension)
    sc.fail("A " + shape(info) + " matrix is too large: at most " + std::to_string(kMaxDimension) +
            " rows and columns can be stored.");
  if (info.symmetry != Info::Symmetry::General && info.rows != info.cols)
    sc.fail("A " + shape(info) +
            " matrix cannot be stored as symmetric; the symmetries need a square matrix.");
  if (coord) info.entries = sc.count(s.tok[2], "entry count");
  else if (!arrayValueCount(info, info.entries))
    sc.fail("A " + shape(info) + " matrix is too large for the array format.");
  return info;
}

}  // namespace mmio

MatrixMarketInfo readMatrixMarketInfo(const std::string& path) {
  size_t size = 0;
  std::ifstream in = mmio::openForReading(path, size);
  mmio::Scanner sc(in, path, size);
  return mmio::readHeader(sc);
}

}  // namespace qvarray
