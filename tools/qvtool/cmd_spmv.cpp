// qvtool spmv: repeated sparse matrix–vector products on a MatrixMarket
// matrix, with the time per product and the effective memory bandwidth.
//
//   qvtool spmv FILE.mtx [--trans] [--threads N] [--reps K] [--symmetric]
//
// Each product is y += op(A)·x with the library's dispatch (parallel from
// 10000 non-zeros when more than one thread is available). The first product
// is timed apart: it builds the parallel data. The bandwidth counts the bytes
// a product must move at least once: the values and row indices, the column
// pointers, x once and y read and written.
#include <algorithm>
#include <cerrno>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "commands.h"
#include "qvarray/matrixmarket.h"
#include "qvarray/sparse/parallelsparse.h"
#include "qvarray/sparse/sparseproducts.h"
#include "qvutil/parallel.h"
#include "qvutil/stopwatch.h"

namespace {

void usage(std::FILE* out) {
  std::fprintf(out,
               "usage: qvtool spmv FILE.mtx [--trans] [--threads N] [--reps K] [--symmetric]\n"
               "  Repeats y += A*x (A^T*x with --trans) on the matrix of a MatrixMarket file\n"
               "  and prints the time per product and the effective memory bandwidth.\n"
               "  --threads N  threads available to the products (default: all)\n"
               "  --reps K     number of timed products (default: as many as fit in 1 s,\n"
               "               at least 10)\n"
               "  --symmetric  keep a symmetric or Hermitian file in symmetric storage\n");
}

bool parseCount(const char* text, long& v) {
  char* end = nullptr;
  errno = 0;
  v = std::strtol(text, &end, 10);
  return errno == 0 && end != text && *end == '\0' && v > 0;
}

}  // namespace

int cmdSpmv(int argc, char** argv) {
  std::string path;
  bool trans = false, symmetric = false;
  long threads = 0, reps = 0;
  for (int k = 1; k < argc; ++k) {
    const char* a = argv[k];
    if (!std::strcmp(a, "--help") || !std::strcmp(a, "-h")) {
      usage(stdout);
      return 0;
    } else if (!std::strcmp(a, "--trans")) {
      trans = true;
    } else if (!std::strcmp(a, "--symmetric")) {
      symmetric = true;
    } else if (!std::strcmp(a, "--threads") && k + 1 < argc && parseCount(argv[k + 1], threads)) {
      ++k;
    } else if (!std::strcmp(a, "--reps") && k + 1 < argc && parseCount(argv[k + 1], reps)) {
      ++k;
    } else if (a[0] == '-' || !path.empty()) {
      std::fprintf(stderr, "qvtool spmv: bad argument '%s'\n", a);
      usage(stderr);
      return 2;
    } else {
      path = a;
    }
  }
  if (path.empty()) {
    usage(stderr);
    return 2;
  }

  try {
    const qvarray::Sparse A = qvarray::readMatrixMarket(path, symmetric);
    if (threads > 0)
      qvbase::Parallel::setAvailableThreads(static_cast<int>(std::min(threads, 1L << 20)));
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
  } catch (const std::exception& e) {
    std::cout.flush();
    std::fprintf(stderr, "qvtool spmv: %s\n", e.what());
    return 1;
  }
}
