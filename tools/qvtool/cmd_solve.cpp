// qvtool solve: solves a dense linear system A·X = B read from MatrixMarket
// files with qvarray::linsolv and checks the answer by its relative residual.
#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <complex>
#include <cstdio>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "commands.h"
#include "qvarray/arrayutil.h"
#include "qvarray/io/densemm.h"
#include "qvutil/stopwatch.h"
#include "toolutil.h"

namespace {

using dcomplex = std::complex<double>;
using qvarray::MatrixMarketInfo;
using qvtool::Failure;

// Columns of the solution printed in full before the rest are summarised.
constexpr size_t kShownColumns = 3;

std::string describe(const MatrixMarketInfo& i) {
  static const char* fields[] = {"real", "integer", "complex", "pattern"};
  static const char* symmetries[] = {"general", "symmetric", "skew-symmetric", "hermitian"};
  const bool coord = i.format == MatrixMarketInfo::Format::Coordinate;
  return std::to_string(i.rows) + " x " + std::to_string(i.cols) + " " +
         fields[static_cast<int>(i.field)] + " " + symmetries[static_cast<int>(i.symmetry)] +
         (coord ? ", coordinate format, " + std::to_string(i.entries) + " entries stored"
                : ", array format");
}

bool isFinite(double v) { return std::isfinite(v); }
bool isFinite(const dcomplex& v) { return std::isfinite(v.real()) && std::isfinite(v.imag()); }

// Frobenius norm of A, column by column through the library's norm.
template <class T>
double frobenius(const Array<T, 2>& A) {
  const int m = static_cast<int>(A.sizes[0]);
  double s = 0;
  for (size_t j = 0; j < A.sizes[1]; ++j) s = std::hypot(s, qvarray::norm(&A(0, j), m));
  return s;
}

// Largest relative residual ||A·x − b|| / (||A||·||x||) over the columns.
template <class T>
double relativeResidual(const Array<T, 2>& A, const Array<T, 2>& X, const Array<T, 2>& B) {
  const size_t n = A.sizes[0];
  const double normA = frobenius(A);
  Array<T, 1> x(n), r(n);
  double worst = 0;
  for (size_t c = 0; c < B.sizes[1]; ++c) {
    std::copy(&X(0, c), &X(0, c) + n, x.data);
    std::copy(&B(0, c), &B(0, c) + n, r.data);
    qvarray::scale(r, -1.0);
    qvarray::yPlusAMulx(r, A, x, qvarray::NoTrans);  // r = A·x − b
    const double num = qvarray::norm(r), den = normA * qvarray::norm(x);
    const double rel = den > 0 ? num / den : (num == 0 ? 0.0 : HUGE_VAL);
    if (!(rel <= worst)) worst = rel;  // keeps a NaN
  }
  return worst;
}

// Raises a Failure when M holds a NaN or an infinity: at the line of the
// file that holds it, else (summed duplicates that overflowed) at its
// position. `file` is empty for a matrix that was not read.
template <class T>
void requireFinite(const Array<T, 2>& M, const std::string& name, const std::string& file) {
  for (size_t j = 0; j < M.sizes[1]; ++j)
    for (size_t i = 0; i < M.sizes[0]; ++i) {
      if (isFinite(M(i, j))) continue;
      if (!file.empty()) qvtool::failNonFinite(file, i, j);
      throw Failure(name + " holds a non-finite value at (" + std::to_string(i + 1) + "," +
                    std::to_string(j + 1) + ")");
    }
}

// Solves, prints the solution, residual and time (readSeconds < 0: nothing
// was read); writes X when asked. aFile and bFile are the files read (empty
// when built in).
template <class T>
int solveAndReport(Array<T, 2>& A, Array<T, 2>& B, const std::string& aName,
                   const std::string& aFile, const std::string& bFile,
                   const std::string& outPath, double readSeconds) {
  const size_t n = A.sizes[0];
  // An infinite or NaN input makes both the solution and its check meaningless.
  requireFinite(A, aName + ": A", aFile);
  requireFinite(B, (bFile.empty() ? std::string("b") : bFile) + ": B", bFile);
  const Array<T, 2> A0 = A, B0 = B;
  qvutil::Stopwatch clock;
  const int info = qvarray::linsolv(A, B, qvarray::RaiseOnIllegal);
  const double solveSeconds = clock.seconds();
  if (info > 0)
    throw Failure(aName + ": the matrix is singular: U(" + std::to_string(info) + "," +
                  std::to_string(info) + ") of its LU factors is exactly zero");
  const Array<T, 2>& X = B;

  const size_t nrhs = X.sizes[1];
  for (size_t c = 0; c < nrhs && c < kShownColumns; ++c) {
    if (nrhs == 1) std::printf("x (%zu values):\n", n);
    else std::printf("x(:,%zu) (%zu values):\n", c + 1, n);
    qvtool::printValues(&X(0, c), n);
  }
  if (nrhs > kShownColumns)
    std::printf("(%zu more solution columns not shown)\n", nrhs - kShownColumns);

  const double rel = relativeResidual(A0, X, B0);
  std::printf("relative residual ||A*x - b|| / (||A||*||x||) = %.3g\n", rel);
  if (readSeconds >= 0) std::printf("time: read %.3f ms, ", readSeconds * 1e3);
  else std::printf("time: ");
  std::printf("solve %.3f ms\n", solveSeconds * 1e3);
  if (!outPath.empty()) {
    qvarray::writeMatrixMarket(outPath, X, "solution of A*X = B for A = " + aName);
    std::printf("solution written to %s\n", outPath.c_str());
  }

  for (const T& v : X)
    if (!isFinite(v))
      throw Failure(aName + ": the solution overflowed; A is singular to working precision");
  if (!std::isfinite(rel)) throw Failure(aName + ": the residual of the solution overflows");
  // LU with partial pivoting is backward stable unless its pivots grow
  // greatly; a residual far above n·ε says that happened.
  if (rel > 1e3 * static_cast<double>(n) * DBL_EPSILON)
    std::printf("warning: the residual is large; the factorisation lost accuracy "
                "(strong pivot growth)\n");
  return 0;
}

template <class T>
int solveFiles(const std::vector<std::string>& files, const MatrixMarketInfo& infoA,
               const std::string& outPath) {
  qvutil::Stopwatch clock;
  Array<T, 2> A, B;
  qvarray::readMatrixMarket(files[0], A);
  if (files.size() > 1) {
    qvarray::readMatrixMarket(files[1], B);
  } else {
    B.resize(A.sizes[0], 1);
    B.fill(T(1.0));
  }
  const double readSeconds = clock.seconds();
  std::printf("A: %s, %s\n", files[0].c_str(), describe(infoA).c_str());
  if (files.size() > 1)
    std::printf("B: %s, %zu x %zu\n", files[1].c_str(), B.sizes[0], B.sizes[1]);
  else
    std::printf("b: all ones\n");
  if constexpr (std::is_same_v<T, dcomplex>) std::printf("solving in complex arithmetic\n");
  return solveAndReport(A, B, files[0], files[0], files.size() > 1 ? files[1] : "", outPath,
                        readSeconds);
}

// A small, well-conditioned nonsymmetric system whose solution is known.
int solveExample(const std::string& outPath) {
  constexpr int n = 4;
  const double rows[n][n] = {{4, -1, 0, 1}, {2, 5, -1, 0}, {0, 1, 6, -2}, {1, 0, -1, 7}};
  const double exact[n] = {1, -2, 3, -4};
  Array<double, 2> A(n, n), B(n, 1);
  for (int i = 0; i < n; ++i) {
    B(i, 0) = 0;
    for (int j = 0; j < n; ++j) {
      A(i, j) = rows[i][j];
      B(i, 0) += rows[i][j] * exact[j];
    }
  }
  std::printf("built-in example (qvtool solve --help for files): A*x = b with\n");
  for (int i = 0; i < n; ++i) {
    std::printf("  [");
    for (int j = 0; j < n; ++j) std::printf(" %3g", A(i, j));
    std::printf(" ]   [ %4g ]\n", B(i, 0));
  }
  std::printf("exact solution: 1 -2 3 -4\n");
  return solveAndReport(A, B, "built-in example", "", "", outPath, -1.0);
}

int run(int argc, char** argv) {
  std::string outPath;
  std::vector<std::string> files;
  qvtool::Arguments args(argc, argv);
  while (args.next()) {
    if (args.is("-o") || args.is("--output")) {
      outPath = args.value();
    } else {
      std::string file;
      args.positional(file);
      files.push_back(file);
    }
  }
  if (files.size() > 2) throw qvtool::UsageError("too many files ('" + files[2] + "')");
  if (files.empty()) return solveExample(outPath);

  // Shapes are checked from the headers, before any dense storage is taken.
  const MatrixMarketInfo infoA = qvarray::readMatrixMarketInfo(files[0]);
  if (infoA.rows != infoA.cols)
    throw Failure(files[0] + ": the matrix is " + std::to_string(infoA.rows) + " x " +
                  std::to_string(infoA.cols) + "; solve needs a square matrix");
  if (infoA.rows == 0) throw Failure(files[0] + ": the matrix is empty");
  if (infoA.rows > static_cast<size_t>(INT_MAX))
    throw Failure(files[0] + ": the matrix is too large for LAPACK's 32-bit sizes");
  bool complexSystem = infoA.isComplex();
  if (files.size() > 1) {
    const MatrixMarketInfo infoB = qvarray::readMatrixMarketInfo(files[1]);
    if (infoB.rows != infoA.rows)
      throw Failure(files[1] + ": B has " + std::to_string(infoB.rows) + " rows but A has " +
                    std::to_string(infoA.rows));
    complexSystem = complexSystem || infoB.isComplex();
  }
  try {
    return complexSystem ? solveFiles<dcomplex>(files, infoA, outPath)
                         : solveFiles<double>(files, infoA, outPath);
  } catch (const std::bad_alloc&) {
    // A large matrix that fails is most likely its dense storage: say so.
    if (static_cast<double>(infoA.rows) * static_cast<double>(infoA.cols) < 1e8) throw;
    throw Failure(files[0] + ": a " + std::to_string(infoA.rows) + " x " +
                  std::to_string(infoA.cols) + " matrix does not fit in memory as a dense array");
  }
}

}  // namespace

const qvtool::Command qvtool::solveCommand = {
    "solve", run, "solve a dense linear system A*x = b read from MatrixMarket files",
    "qvtool solve [-o X.mtx] [A.mtx [B.mtx]]",
    "Solves A*X = B by LU factorisation with partial pivoting (LAPACK xGESV).\n"
    "  A.mtx     square matrix in MatrixMarket array or coordinate format; real,\n"
    "            integer, pattern or complex; general, symmetric, skew-symmetric\n"
    "            or hermitian\n"
    "  B.mtx     right-hand sides, one per column (default: a vector of ones)\n"
    "  -o X.mtx  also write the solution to X.mtx\n"
    "Without files a built-in 4 x 4 example is solved. Prints the solution, the\n"
    "relative residual ||A*x - b|| / (||A||*||x||) (2-norms, Frobenius norm of A;\n"
    "the largest over the columns of B) and the time taken.\n"};
