// qvtool spmv: repeated sparse matrix–vector products on a MatrixMarket
// matrix, with the time per product and the effective memory bandwidth.
//
// Each product is y += op(A)·x with the library's dispatch (parallel from
// 10000 non-zeros when more than one thread is available). The first product
// is timed apart: it builds the parallel data. The bandwidth counts the bytes
// a product must move at least once: the values and row indices, the column
// pointers, x once and y read and written.
#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

#include "commands.h"
#include "qvarray/sparse/parallelsparse.h"
#include "qvarray/sparse/sparseproducts.h"
#include "qvutil/parallel.h"
#include "qvutil/stopwatch.h"
#include "toolutil.h"

namespace {

int run(int argc, char** argv) {
  std::string path;
  bool trans = false, symmetric = false;
  long threads = 0, reps = 0;
  qvtool::Arguments args(argc, argv);
  while (args.next()) {
    if (args.is("--trans")) trans = true;
    else if (args.is("--symmetric")) symmetric = true;
    else if (args.is("--threads")) threads = args.integer(1, 1L << 20);
    else if (args.is("--reps")) reps = args.integer(1, 1L << 40);
    else args.positional(path);
  }
  qvtool::Arguments::require(path, "matrix file");

  const qvarray::Sparse A = qvtool::readSparse(path, symmetric);
  if (threads > 0) qvbase::Parallel::setAvailableThreads(static_cast<int>(threads));
  const qvarray::Trans_t t = trans ? qvarray::Trans : qvarray::NoTrans;
  // Lengths of x and y for op(A) (the symmetric modes are square).
  const bool transposed = (t != qvarray::NoTrans) != (A.getSymm() == qvarray::SymmTransposed);
  const bool square =
      A.getSymm() == qvarray::SymmSymmetric || A.getSymm() == qvarray::SymmHermitian;
  const size_t xn = square || !transposed ? A.getN() : A.getM();
  const size_t yn = square || transposed ? A.getN() : A.getM();
  qvarray::Vector x(xn, 1.0), y(yn);
  if (!A.isReal()) y.resize(yn, false);

  qvarray::outputSparseHeader(std::cout, A);
  const bool parallel = qvarray::usesParallelProduct(A);
  std::cout << "Product: y += " << (trans ? "A^T*x" : "A*x") << ", "
            << (A.isReal() ? "real" : "complex") << ", " << AVAILABLETHREADS() << " thread"
            << (AVAILABLETHREADS() == 1 ? "" : "s") << ", "
            << (parallel ? "parallel" : "serial") << " kernel\n";

  qvutil::Stopwatch first;
  qvarray::yPlusAMulx(y, A, x, t);
  first.stop();
  std::cout << "First product: " << first.seconds() << " s";
  if (parallel) {
    const auto data = A.getParallelData();
    std::cout << " (parallel data: " << (data ? data->memoryBytes() : 0) << " bytes)";
  }
  std::cout << "\n";

  std::vector<double> times;
  qvutil::Stopwatch total;
  while (reps > 0 ? static_cast<long>(times.size()) < reps
                  : times.size() < 10 || total.seconds() < 1.0) {
    qvutil::Stopwatch one;
    qvarray::yPlusAMulx(y, A, x, t);
    times.push_back(one.seconds());
  }
  std::sort(times.begin(), times.end());
  const double median = times[times.size() / 2];
  const size_t nnz = A.getNnz();
  const double valueBytes = A.isReal() ? 8.0 : 16.0;
  const double bytes = static_cast<double>(nnz) * (8.0 + valueBytes) +
                       8.0 * static_cast<double>(A.getN() + 1) + 8.0 * static_cast<double>(xn) +
                       2.0 * valueBytes * static_cast<double>(yn);
  std::cout << "Products: " << times.size() << "\n"
            << "Time per product: " << median << " s (median; fastest " << times.front()
            << " s)\n"
            << "Time per non-zero: " << (nnz ? median / static_cast<double>(nnz) * 1e9 : 0.0)
            << " ns\n"
            << "Effective bandwidth: " << bytes / median * 1e-9 << " GB/s\n";
  std::cout.flush();
  return 0;
}

}  // namespace

const qvtool::Command qvtool::spmvCommand = {
    "spmv", run, "time repeated sparse matrix-vector products on a MatrixMarket file",
    "qvtool spmv FILE.mtx [--trans] [--threads N] [--reps K] [--symmetric]",
    "Repeats y += A*x (A^T*x with --trans) on the matrix of a MatrixMarket file\n"
    "and prints the time per product and the effective memory bandwidth.\n"
    "  --threads N  threads available to the products (default: all)\n"
    "  --reps K     number of timed products (default: as many as fit in 1 s,\n"
    "               at least 10)\n"
    "  --symmetric  keep a symmetric or Hermitian file in symmetric storage\n"};
