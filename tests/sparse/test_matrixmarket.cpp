// MatrixMarket reading and writing: the collection's files read by the sparse
// and the dense reader alike, bit-exact round trips, symmetric storage, and
// every malformed or hostile input through both readers.
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <locale>
#include <sstream>
#include <tuple>

#include "qvarray/io/densemm.h"
#include "qvarray/io/sparsemm.h"
#include "qvtest.h"
#include "sparsetest.h"

using namespace sparsetest;
using namespace std::string_literals;
using qvarray::Sparse;

namespace {

const std::string kMM = "%%MatrixMarket matrix coordinate ", kHead = kMM + "real general\n";

std::string matrixFile(const char* name) { return std::string(QV_MATRIX_DIR) + "/" + name; }

std::string written(const Sparse& A) {
  std::ostringstream os;
  qvarray::writeMatrixMarket(os, A);
  return os.str();
}

Sparse parsed(const std::string& text, bool keepSymmetric = false) {
  Sparse A;
  qvarray::parseMatrixMarket(text, "text", keepSymmetric).assemble(A);
  return A;
}

// Same sizes, modes, column pointers, rows and value bits.
void expectIdentical(const Sparse& A, const Sparse& B) {
  ASSERT_EQ(std::tuple(A.getM(), A.getN(), A.getNnz(), A.isReal(), A.getSymm()),
            std::tuple(B.getM(), B.getN(), B.getNnz(), B.isReal(), B.getSymm()));
  auto same = [](const void* a, const void* b, size_t bytes) { return bytes == 0 || !std::memcmp(a, b, bytes); };
  const size_t nnz = A.getNnz();
  EXPECT_TRUE(same(A.getColPtr(), B.getColPtr(), (A.getN() + 1) * sizeof(size_t)));
  EXPECT_TRUE(same(A.getRow(), B.getRow(), nnz * sizeof(size_t)));
  EXPECT_TRUE(A.isReal() ? same(A.getDoubleVal(), B.getDoubleVal(), nnz * sizeof(double))
                         : same(A.getDcmplxVal(), B.getDcmplxVal(), nnz * sizeof(dcomplex)));
}

struct FileCase {
  const char* name;
  size_t m, n, stored;
  bool real;
  const char* symmetry;
};

const FileCase kFiles[] = {
    {"west0067.mtx", 67, 67, 294, true, "general"},
    {"494_bus.mtx", 494, 494, 1080, true, "symmetric"},
    {"dwt_992.mtx", 992, 992, 8868, true, "symmetric"},
    {"young1c.mtx", 841, 841, 4089, false, "general"},
    {"c.mtx", 3, 3, 5, false, "hermitian"},
    {"lp_afiro.mtx", 27, 51, 102, true, "general"},
    {"bcsstk13.mtx", 2003, 2003, 42943, true, "symmetric"},
    {"skew_fp64.mtx", 6, 6, 10, true, "skew-symmetric"},
    {"nnc1374.mtx", 1374, 1374, 8606, true, "general"},
};

TEST(MatrixMarket, CollectionFilesExpandAndRoundTrip) {
  for (const FileCase& f : kFiles) {
    SCOPED_TRACE(f.name);
    const auto t = qvarray::readMatrixMarketTriplets(matrixFile(f.name));
    EXPECT_EQ(t.symmetry, f.symmetry);
    const Sparse A = qvarray::readMatrixMarket(matrixFile(f.name));
    EXPECT_EQ(A.getM(), f.m);
    EXPECT_EQ(A.getN(), f.n);
    EXPECT_EQ(A.isReal(), f.real);
    EXPECT_EQ(A.getSymm(), qvarray::SymmNone);
    if (std::string(f.symmetry) == "general") {
      EXPECT_EQ(A.getNnz(), f.stored);
    } else {
      // Expanded: off-diagonal entries twice, and the matrix is (skew-)symmetric.
      size_t diagonal = 0;
      for (size_t k = 0; k < t.rows.size(); ++k) diagonal += t.rows[k] == t.cols[k];
      EXPECT_EQ(t.rows.size(), 2 * f.stored - diagonal);
      EXPECT_TRUE(A.isSymmetric(0.0, f.real ? qvarray::Trans : qvarray::ConjTrans) ||
                  std::string(f.symmetry) == "skew-symmetric");
    }
    EXPECT_TRUE(A.isReal() ? A.getptrD()->isConsistent() : A.getptrZ()->isConsistent());
    // The dense reader makes the same matrix of the file.
    Array<dcomplex, 2> D;
    qvarray::readMatrixMarket(matrixFile(f.name), D);
    const auto S = toDense<dcomplex>(A);
    EXPECT_TRUE(std::equal(S.a.begin(), S.a.end(), D.begin(), D.end()));
    const std::string once = written(A);
    const Sparse B = parsed(once);
    expectIdentical(A, B);
    EXPECT_EQ(written(B), once);
  }
}

TEST(MatrixMarket, SymmetricStorageKeepsLowerTriangleWithHalfDiagonal) {
  for (const char* name : {"494_bus.mtx", "dwt_992.mtx", "bcsstk13.mtx", "c.mtx"}) {
    SCOPED_TRACE(name);
    const Sparse A = qvarray::readMatrixMarket(matrixFile(name));
    const Sparse S = qvarray::readMatrixMarket(matrixFile(name), true);
    const bool hermitian = std::string(name) == "c.mtx";
    EXPECT_EQ(S.getSymm(), hermitian ? qvarray::SymmHermitian : qvarray::SymmSymmetric);
    // A = S + Sᵀ (or S + Sᴴ), entry by entry.
    const auto dS = toDense<dcomplex>(S), dA = toDense<dcomplex>(A);
    for (size_t j = 0; j < dA.n; ++j)
      for (size_t i = 0; i < dA.m; ++i) {
        ASSERT_TRUE(i >= j || dS(i, j) == 0.0);
        const auto mirrored = hermitian ? std::conj(dS(j, i)) : dS(j, i);
        ASSERT_EQ(dA(i, j), dS(i, j) + mirrored) << i << "," << j;
      }
    // Written back as the same kind of file, it reads to the same storage.
    const std::string text = written(S);
    EXPECT_EQ(text.rfind(hermitian ? "%%MatrixMarket matrix coordinate complex hermitian\n"
                                   : "%%MatrixMarket matrix coordinate real symmetric\n",
                         0),
              0u);
    expectIdentical(S, parsed(text, true));
  }
}

TEST(MatrixMarket, HermitianAndSkewEntries) {
  const Sparse H = qvarray::readMatrixMarket(matrixFile("c.mtx"));
  EXPECT_EQ(H.getImag(2, 0), -1.0);
  EXPECT_EQ(H.getImag(0, 2), 1.0);
  EXPECT_EQ(H.getReal(2, 2), 42.0);
  // Skew: the mirrored entry is negated, infinities included.
  const Sparse K = qvarray::readMatrixMarket(matrixFile("skew_fp64.mtx"));
  Sparse minusK = K;
  minusK.scale(-1.0);
  EXPECT_TRUE(K.isEqual(minusK, 0.0, qvarray::Trans));
  EXPECT_EQ(K.getReal(3, 0), -.12565458736262625);
  EXPECT_EQ(K.getReal(4, 0), std::numeric_limits<double>::infinity());
}

TEST(MatrixMarket, GeneratedRoundTripsAreBitExact) {
  const double special[] = {0.0,     -0.0,    1e-310,  -4.9406564584124654e-324, 1e308,
                            -1.7976931348623157e308, 0.1,     1.0 / 3.0, std::nextafter(1.0, 2.0),
                            std::numeric_limits<double>::infinity(), 123456789012345678.0};
  auto t = randomTriplets<double>(40, 30, 500, 0.1, 8);
  for (size_t k = 0; k < t.size(); ++k)
    if (k % 3 == 0) t.values[k] = special[k % std::size(special)];
  const Sparse A = t.assemble();
  expectIdentical(A, parsed(written(A)));

  auto z = randomTriplets<std::complex<double>>(25, 35, 400, 0.1, 6);
  for (size_t k = 0; k < z.size(); ++k)
    if (k % 4 == 0) z.values[k] = {special[k % std::size(special)], special[(k + 3) % std::size(special)]};
  const Sparse Z = z.assemble();
  expectIdentical(Z, parsed(written(Z)));

  // NaN keeps its bits through "nan".
  Sparse N;
  N.vectorTripletToSparse({0}, {0}, std::vector<double>{std::numeric_limits<double>::quiet_NaN()}, 1, 1);
  expectIdentical(N, parsed(written(N)));

  // The transposed mode writes the matrix it represents.
  Sparse T = t.assemble();
  T.setSymm(qvarray::SymmTransposed);
  const Sparse Tt = parsed(written(T));
  EXPECT_EQ(Tt.getM(), 30u);
  EXPECT_TRUE(Tt.isEqual(A, 0.0, qvarray::Trans));

  // Through a file.
  const std::string path =
      (std::filesystem::temp_directory_path() / "qvarray_test_roundtrip.mtx").string();
  qvarray::writeMatrixMarket(path, Z);
  expectIdentical(Z, qvarray::readMatrixMarket(path));
  std::filesystem::remove(path);
}

TEST(MatrixMarket, FieldsAndLayout) {
  // Integer, pattern, blank and comment lines, upper-triangle entries of a
  // symmetric file, keywords in any case, duplicates summed, '+' signs.
  const Sparse I = parsed(
      "%%MatrixMarket Matrix Coordinate INTEGER General\n%c\n\n 2 3  3 \n1 3 -7\n2 1 +5\n\n1 3 2\n");
  EXPECT_EQ(I.getNnz(), 2u);
  EXPECT_EQ(I.getReal(0, 2), -5.0);
  EXPECT_EQ(I.getReal(1, 0), 5.0);
  const Sparse P = parsed(kMM + "pattern symmetric\n3 3 3\n1 1\n3 1\n2 3\n");
  Dense<double> E(3, 3);
  E(0, 0) = 1;
  E(2, 0) = E(0, 2) = 1;
  E(2, 1) = E(1, 2) = 1;
  expectDenseEq(toDense<double>(P), E);
  const Sparse Ps = parsed(kMM + "pattern symmetric\n3 3 3\n1 1\n3 1\n2 3\n", true);
  EXPECT_EQ(Ps.getReal(0, 0), 0.5);
  EXPECT_EQ(Ps.getReal(2, 1), 1.0);
  const Sparse R = parsed("%%MatrixMarket matrix coordinate real general\r\n2 2 2\r\n1 1 1.5e0\r\n2 2 -.25\r\n");
  EXPECT_EQ(R.getReal(1, 1), -0.25);
  // The array format: zeros are not stored, the triangle is expanded.
  const Sparse Arr = parsed("%%MatrixMarket matrix array real skew-symmetric\n3 3\n0\n2\n-0\n");
  EXPECT_EQ(Arr.getNnz(), 2u);
  EXPECT_EQ(Arr.getReal(1, 0), 0.0);
  EXPECT_EQ(Arr.getReal(2, 0), 2.0);
  EXPECT_EQ(Arr.getReal(0, 2), -2.0);
  const Sparse Empty = parsed(kHead + "0 4 0\n");
  EXPECT_EQ(Empty.getN(), 4u);
  // 64-bit sizes.
  const Sparse Big = parsed(kHead + "8589934592 3 1\n8589934592 2 1\n");
  EXPECT_EQ(Big.getM(), 8589934592ULL);
  EXPECT_EQ(Big.getRow()[0], 8589934591ULL);
}

// A C++ locale whose decimal point is a comma.
struct CommaDecimal : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
};

TEST(MatrixMarket, NumbersIgnoreTheLocale) {
  const std::locale savedGlobal = std::locale::global(std::locale(std::locale::classic(), new CommaDecimal));
  const char* previous = std::setlocale(LC_NUMERIC, nullptr);
  const std::string saved = previous ? previous : "C";
  for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "fr_FR.utf8"})
    if (std::setlocale(LC_NUMERIC, name)) break;  // used where installed
  const Sparse A = parsed(kHead + "1 1 1\n1 1 2.5\n");
  const std::string text = written(A);
  std::setlocale(LC_NUMERIC, saved.c_str());
  std::locale::global(savedGlobal);
  EXPECT_EQ(A.getReal(0, 0), 2.5);
  EXPECT_EQ(text, kHead + "1 1 1\n1 1 2.5\n");
}

// Every malformed input, read by both readers: the same key, sentence, file
// and line, and the dense destination untouched.
TEST(MatrixMarket, MalformedInputNamesFileAndLineInBothReaders) {
  const std::string arr = "%%MatrixMarket matrix array real general\n";
  struct Bad {
    std::string text;
    size_t line;
    std::string sentence;
  };
  const Bad cases[] = {
      {"", 1, "The file is empty; expected a '%%MatrixMarket matrix ...' header."},
      {"%MatrixMarket matrix coordinate real general\n", 1,
       "The first line is not a '%%MatrixMarket matrix ...' header."},
      {"%%MatrixMarket matrix array real\n", 1,
       "The header needs object, format, field and symmetry after '%%MatrixMarket'."},
      {kHead.substr(0, kHead.size() - 1) + " x\n", 1, "Unexpected 'x' after the header's symmetry."},
      {"%%MatrixMarket vector array real general\n", 1,
       "Object 'vector' is not supported; expected 'matrix'."},
      {"%%MatrixMarket matrix dense real general\n", 1,
       "Unknown format 'dense'; expected 'array' or 'coordinate'."},
      {kMM + "double general\n", 1,
       "Unknown field 'double'; expected 'real', 'integer', 'complex' or 'pattern'."},
      {kMM + "real upper\n", 1,
       "Unknown symmetry 'upper'; expected 'general', 'symmetric', 'skew-symmetric' or "
       "'hermitian'."},
      {"%%MatrixMarket matrix array pattern general\n", 1, "The array format has no 'pattern' field."},
      {kMM + "real hermitian\n", 1, "Hermitian symmetry needs the 'complex' field, not 'real'."},
      {kMM + "integer hermitian\n", 1,
       "Hermitian symmetry needs the 'complex' field, not 'integer'."},
      {kMM + "pattern skew-symmetric\n", 1, "A 'pattern' matrix cannot be skew-symmetric."},
      {kHead + "% only a comment\n", 2, "The file ends before the size line 'rows columns entries'."},
      {kHead + "2 2\n", 2, "The size line must hold three numbers: rows columns entries."},
      {arr + "2 2 4\n", 2, "The size line must hold two numbers: rows columns."},
      {kHead + "3 x 1\n", 2, "Invalid column count 'x'."},
      {kMM + "real symmetric\n2 3 0\n", 2,
       "A 2 x 3 matrix cannot be stored as symmetric; the symmetries need a square matrix."},
      // Sizes no matrix can have.
      {kHead + "3 18446744073709551615 1\n1 1 1\n", 2,
       "A 3 x 18446744073709551615 matrix is too large: at most 1152921504606846974 rows and "
       "columns can be stored."},
      {kHead + "18446744073709551615 4 1\n1 1 1\n", 2,
       "A 18446744073709551615 x 4 matrix is too large: at most 1152921504606846974 rows and "
       "columns can be stored."},
      {arr + "4294967296 4294967296\n", 2,
       "A 4294967296 x 4294967296 matrix is too large for the array format."},
      // Values.
      {arr + "1 2\n1\n", 3, "The file ends after 1 of the 2 values announced."},
      {arr + "1 1\n1 2\n", 3, "Expected one value on the line, found 2."},
      {arr + "1 2\n1\n1,5\n", 4, "Invalid number '1,5'."},
      {arr + "1 1\n1e999\n", 3, "Number '1e999' is out of range."},
      {arr + "1 1\n1\n2\n", 4, "More data than the 1 value announced."},
      {"%%MatrixMarket matrix array complex general\n1 1\n1\n", 3,
       "Expected two numbers (real and imaginary part), found 1."},
      {kHead + "3 3 1\n1 1 1\0002\n"s, 3, "Invalid number '1\0002'."s},
      {kHead + "3 3 1\n1 1 " + std::string(50, '7') + "x\n", 3,
       "Invalid number '" + std::string(40, '7') + "...'."},
      // Entries.
      {kHead + "3 3 2\n1 1 1\n", 3, "The file ends after 1 of the 2 entries announced."},
      {kHead + "3 3 18446744073709551615\n1 1 1\n", 3,
       "The file ends after 1 of the 18446744073709551615 entries announced."},
      {kHead + "3 3 1\n1 1\n", 3, "Expected an entry 'row column value', found 2 numbers."},
      {kMM + "complex general\n3 3 1\n1 1 1\n", 3,
       "Expected an entry 'row column real imaginary', found 3 numbers."},
      {kHead + "3 3 2\n1 1 1\n\n4 1 1\n", 5, "Row index 4 is outside 1..3."},
      {kHead + "3 3 1\n1 0 1\n", 3, "Column index 0 is outside 1..3."},
      {kHead + "3 3 1\n-1 1 1\n", 3, "Invalid row index '-1'."},
      {kHead + "3 3 1\n1 1.0 1\n", 3, "Invalid column index '1.0'."},
      {kHead + "3 3 1\n1 1 1\n\n2 2 2\n", 5, "More data than the 1 entry announced."},
      {kMM + "integer general\n3 3 1\n1 1 1.5\n", 3, "Invalid integer '1.5'."},
      {kMM + "real skew-symmetric\n3 3 1\n2 2 1\n", 3,
       "Diagonal entry (2, 2) is not zero; a skew-symmetric matrix has a zero diagonal."},
      {kMM + "complex hermitian\n3 3 1\n2 2 1 1\n", 3,
       "Diagonal entry (2, 2) has an imaginary part; a hermitian matrix has a real diagonal."},
      {"%%MatrixMarket matrix array complex hermitian\n1 1\n1 1\n", 3,
       "Diagonal entry (1, 1) has an imaginary part; a hermitian matrix has a real diagonal."},
  };
  for (const Bad& b : cases) {
    SCOPED_TRACE(b.text);
    auto check = [&](const qvbase::Exception& e) {
      EXPECT_EQ(e.module(), "matrixmarket");
      EXPECT_EQ(e.detail("File").value_or(""), "bad.mtx");
      EXPECT_EQ(e.detail("Line").value_or(""), std::to_string(b.line));
    };
    check(qvtest::expectThrowKey([&] { (void)qvarray::parseMatrixMarket(b.text, "bad.mtx"); },
                                 "Invalid_MatrixMarket_file", b.sentence));
    Array<dcomplex, 2> D(1, 1);
    D(0, 0) = 42;
    std::istringstream in(b.text);
    check(qvtest::expectThrowKey([&] { qvarray::readMatrixMarket(in, "bad.mtx", D); },
                                 "Invalid_MatrixMarket_file", b.sentence));
    EXPECT_TRUE(D.count == 1 && D(0, 0) == 42.0) << "destination changed";
  }
}

// Storage the sizes ask for and cannot have is the standard allocation
// failure, naming the file and the size line; the assembly entry points
// refuse sizes no matrix can have before they allocate.
TEST(MatrixMarket, StorageBeyondReachIsABadAllocationAtTheSizeLine) {
  struct Case {
    std::string text;
    bool dense;  // read by the dense reader too (the sparse reader reads all)
  };
  const Case cases[] = {
      // 16 GiB of column pointers for one entry (a dense 3 x 2^31 array is
      // legitimately large: not read here).
      {kHead + "3 2147483648 1\n1 1 1\n", false},
      {"%%MatrixMarket matrix array real general\n0 1099511627776\n", false},
      // 2^62 dense elements: no allocation can hold them.
      {kHead + "2147483648 2147483648 1\n1 1 1\n", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    auto expectBadAlloc = [&](const std::function<void()>& read) {
      try {
        read();
        ADD_FAILURE() << "read";
      } catch (const qvarray::FileBadAlloc& e) {
        EXPECT_TRUE(e.file() == "big.mtx" && e.line() == 2u) << e.what();
        EXPECT_EQ(std::string(e.what()).rfind("bad allocation", 0), 0u);
      }
    };
    expectBadAlloc([&] { (void)qvarray::parseMatrixMarket(c.text, "big.mtx"); });
    Array<double, 2> D;
    std::istringstream in(c.text);
    if (c.dense) expectBadAlloc([&] { qvarray::readMatrixMarket(in, "big.mtx", D); });
  }
  Sparse A;
  A.eye(2);
  const auto storage = A.getptrD();
  const size_t huge = std::numeric_limits<size_t>::max();
  EXPECT_THROW(A.vectorTripletToSparse({0}, {0}, std::vector<double>{1}, 3, huge), std::bad_alloc);
  EXPECT_THROW(A.vectorTripletToSparse({0}, {0}, std::vector<double>{1}, huge, 4), std::bad_alloc);
  EXPECT_THROW(A.zeros(3, huge, 0, true), std::bad_alloc);
  EXPECT_THROW(A.eye(huge), std::bad_alloc);
  EXPECT_EQ(A.getptrD(), storage);
}

TEST(MatrixMarket, FileErrors) {
  const auto e = qvtest::expectThrowKey([] { (void)qvarray::readMatrixMarket("/nonexistent/a.mtx"); },
                                        "Cannot_open_file");
  EXPECT_EQ(e.detail("File").value_or(""), "/nonexistent/a.mtx");
  Sparse A;
  A.eye(2);
  qvtest::expectThrowKey([&] { qvarray::writeMatrixMarket("/nonexistent/dir/a.mtx", A); },
                         "Cannot_write_file");
}

}  // namespace
