// Dense MatrixMarket reading and writing: round trips, symmetric expansion
// against a second reading of the same files, every format error with its
// file and line, and independence from the process's locale.
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <locale>
#include <sstream>

#include "qvarray/io/densemm.h"
#include "qvtest.h"
#include "qvutil/numeric.h"

using qvarray::MatrixMarketInfo;
using dcomplex = std::complex<double>;

namespace {

const std::string kDir = QV_MATRIX_DIR;

template <class T>
Array<T, 2> parse(const std::string& text) {
  std::istringstream in(text);
  Array<T, 2> A;
  qvarray::readMatrixMarket(in, "m.mtx", A);
  return A;
}

template <class T>
std::string format(const Array<T, 2>& A, const std::string& comment = {}) {
  std::ostringstream out;
  qvarray::writeMatrixMarket(out, A, comment);
  return out.str();
}

template <class T>
bool sameBits(const Array<T, 2>& a, const Array<T, 2>& b) {
  return a.sizes[0] == b.sizes[0] && a.sizes[1] == b.sizes[1] &&
         (a.count == 0 || std::memcmp(a.data, b.data, a.count * sizeof(T)) == 0);
}

// Independent reading of a coordinate file: the sum of all entries of the
// expanded matrix, computed from the stored entries with iostreams.
dcomplex expandedSum(const std::string& path, bool pattern, bool complexField, double mirrorSign) {
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line) && line[0] == '%') {
  }
  dcomplex sum = 0;
  for (size_t i, j; in >> i >> j;) {
    double re = 1, im = 0;
    if (!pattern) in >> re;
    if (complexField) in >> im;
    const dcomplex v(re, im);
    sum += v;
    if (i != j && mirrorSign != 0) sum += mirrorSign > 0 ? v : -v;
  }
  return sum;
}

dcomplex arraySum(const Array<dcomplex, 2>& A) {
  dcomplex s = 0;
  for (const dcomplex& v : A) s += v;
  return s;
}

}  // namespace

TEST(DenseMM, RoundTripIsBitExactInMemoryAndThroughFiles) {
  qvtest::Rng rng;
  for (auto [m, n] : {std::pair<size_t, size_t>{0, 0}, {1, 1}, {3, 5}, {40, 2}}) {
    Array<double, 2> A(m, n);
    Array<dcomplex, 2> Z(m, n);
    rng.fill(A);
    rng.fill(Z);
    if (A.count >= 4) {
      A[0] = -0.0;
      A[1] = 1e-310;  // subnormal
      A[2] = 1.7976931348623157e308;
      A[3] = 0.1;
    }
    EXPECT_TRUE(sameBits(parse<double>(format(A, "line one\nline two")), A)) << m << "x" << n;
    EXPECT_TRUE(sameBits(parse<dcomplex>(format(Z)), Z)) << m << "x" << n;
  }
  const auto path = std::filesystem::temp_directory_path() / "qv_test_densemm.mtx";
  Array<dcomplex, 2> Z(4, 3), back;
  rng.fill(Z);
  qvarray::writeMatrixMarket(path.string(), Z, "written by test_densemm");
  const MatrixMarketInfo info = qvarray::readMatrixMarket(path.string(), back);
  std::filesystem::remove(path);
  EXPECT_TRUE(sameBits(back, Z));
  EXPECT_TRUE(info.format == MatrixMarketInfo::Format::Array && info.isComplex());
  EXPECT_EQ(info.entries, 12u);
}

TEST(DenseMM, ExpandsSymmetriesAndToleratesCommentsBlankLinesCrLfAndCase) {
  struct Case {
    const char* text;
    std::vector<dcomplex> columnMajor;
  };
  const Case cases[] = {
      // Array format holds the lower triangle column by column.
      {"%%MatrixMarket matrix array real symmetric\n3 3\n1\n2\n3\n4\n5\n6\n",
       {1, 2, 3, 2, 4, 5, 3, 5, 6}},
      {"%%MatrixMarket matrix array real skew-symmetric\n3 3\n1\n2\n3\n",
       {0, 1, 2, -1, 0, 3, -2, -3, 0}},
      // Coordinate: unlisted positions are zero, repeated ones summed, the
      // hermitian mirror conjugated.
      {"%%MatrixMarket matrix coordinate complex hermitian\n2 2 3\n1 1 2 0\n2 1 1 1\n2 1 0.5 1\n",
       {2, {1.5, 2}, {1.5, -2}, 0}},
      {"%%MatrixMarket MATRIX Coordinate Integer General\r\n% note\r\n\r\n2 3 2\r\n"
       "% between entries\r\n1 3 +7\r\n\r\n2 1 -4\r\n",
       {0, -4, 0, 0, 7, 0}},
  };
  for (const Case& c : cases) {
    const Array<dcomplex, 2> Z = parse<dcomplex>(c.text);
    EXPECT_TRUE(std::equal(Z.begin(), Z.end(), c.columnMajor.begin(), c.columnMajor.end()))
        << c.text;
    if (std::strstr(c.text, "complex")) continue;
    const Array<double, 2> A = parse<double>(c.text);  // real fields also into real arrays
    EXPECT_TRUE(std::equal(A.begin(), A.end(), c.columnMajor.begin(), c.columnMajor.end()))
        << c.text;
  }
}

TEST(DenseMM, ReadsTheSharedMatricesLikeASecondReader) {
  struct Case {
    const char* file;
    bool pattern, complexField;
    double mirror;  // 0 general, 1 symmetric, -1 skew
  };
  for (const Case c : {Case{"west0067.mtx", false, false, 0}, Case{"494_bus.mtx", false, false, 1},
                       Case{"dwt_992.mtx", true, false, 1}, Case{"lp_afiro.mtx", false, false, 0},
                       Case{"young1c.mtx", false, true, 0}}) {
    const std::string path = kDir + "/" + c.file;
    Array<dcomplex, 2> Z;
    const MatrixMarketInfo info = qvarray::readMatrixMarket(path, Z);
    EXPECT_TRUE(Z.sizes[0] == info.rows && Z.sizes[1] == info.cols) << c.file;
    const dcomplex want = expandedSum(path, c.pattern, c.complexField, c.mirror);
    EXPECT_LT(std::abs(arraySum(Z) - want), 1e-9 * (1 + std::abs(want))) << c.file;
    for (size_t j = 0; j < Z.sizes[1] && c.mirror > 0; ++j)
      for (size_t i = 0; i < j; ++i) ASSERT_EQ(Z(i, j), Z(j, i)) << c.file;
    if (c.complexField) continue;
    Array<double, 2> A;  // a real file gives the same values in a real array
    qvarray::readMatrixMarket(path, A);
    ASSERT_EQ(A.count, Z.count);
    for (size_t k = 0; k < A.count; ++k) ASSERT_EQ(Z[k], dcomplex(A[k], 0)) << c.file;
  }
}

// The format errors of both readers are tested in test_matrixmarket.cpp;
// here the dense reader's own.
TEST(DenseMM, DenseOnlyErrors) {
  Array<dcomplex, 2> A(1, 1);
  std::istringstream in("%%MatrixMarket matrix coordinate real general\n"
                        "4294967296 4294967296 1\n1 1 1\n");
  const auto e = qvtest::expectThrowKey([&] { qvarray::readMatrixMarket(in, "m.mtx", A); },
                                        "Invalid_MatrixMarket_file",
                                        "A 4294967296 x 4294967296 matrix is too large for a "
                                        "dense array.");
  EXPECT_EQ(e.module(), "densemm");
  EXPECT_TRUE(e.detail("File") == "m.mtx" && e.detail("Line") == "2");
}

TEST(DenseMM, FileLevelErrors) {
  Array<double, 2> A(1, 1);
  A(0, 0) = 3;
  auto e = qvtest::expectThrowKey([&] { qvarray::readMatrixMarket(kDir + "/young1c.mtx", A); },
                                  "Complex_MatrixMarket_file_for_real_array");
  EXPECT_EQ(e.detail("File"), kDir + "/young1c.mtx");
  EXPECT_EQ(e.detail("Line"), "1");
  EXPECT_EQ(A(0, 0), 3.0);
  e = qvtest::expectThrowKey([&] { qvarray::readMatrixMarket(kDir + "/none.mtx", A); },
                             "Cannot_open_file");
  EXPECT_EQ(e.detail("File"), kDir + "/none.mtx");
  EXPECT_EQ(e.detail("Reason"), std::string(std::strerror(ENOENT)));
  qvtest::expectThrowKey([&] { qvarray::readMatrixMarketInfo(kDir); }, "Cannot_open_file");
  // Opens, but every read fails (EIO at address 0).
  qvtest::expectThrowKey([&] { qvarray::readMatrixMarket("/proc/self/mem", A); },
                         "Cannot_read_file");
  qvtest::expectThrowKey([&] { qvarray::writeMatrixMarket(kDir + "/no/such/dir.mtx", A); },
                         "Cannot_write_file");
}

TEST(DenseMM, InfoReadsOnlyTheHeader) {
  const MatrixMarketInfo i = qvarray::readMatrixMarketInfo(kDir + "/494_bus.mtx");
  EXPECT_TRUE(i.format == MatrixMarketInfo::Format::Coordinate &&
              i.field == MatrixMarketInfo::Field::Real &&
              i.symmetry == MatrixMarketInfo::Symmetry::Symmetric);
  EXPECT_TRUE(i.rows == 494 && i.cols == 494 && i.entries == 1080 && i.sizeLine == 14);
}

namespace {
// Decimal comma and '.' grouping, as in many European locales.
struct CommaPunct : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};
}  // namespace

TEST(DenseMM, IndependentOfTheLocale) {
  const std::locale savedCpp =
      std::locale::global(std::locale(std::locale::classic(), new CommaPunct));
  const std::string savedC = std::setlocale(LC_ALL, nullptr);
  const bool haveC = std::setlocale(LC_ALL, "de_DE.UTF-8") || std::setlocale(LC_ALL, "fr_FR.UTF-8");
  Array<double, 2> A(2, 1000);
  for (size_t k = 0; k < A.count; ++k) A[k] = 0.5 + static_cast<double>(k);
  const std::string text = format(A);
  const Array<double, 2> back = parse<double>(text);
  std::locale::global(savedCpp);
  std::setlocale(LC_ALL, savedC.c_str());
  EXPECT_NE(text.find("\n2 1000\n"), std::string::npos);  // no digit grouping
  EXPECT_NE(text.find("\n1999.5\n"), std::string::npos);
  EXPECT_EQ(text.find(','), std::string::npos);
  EXPECT_TRUE(sameBits(back, A));
  if (!haveC) std::printf("note: no comma locale installed; C locale part not exercised\n");
}
