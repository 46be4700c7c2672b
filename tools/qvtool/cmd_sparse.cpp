// qvtool sparse: reads a MatrixMarket file, reports the matrix and the time
// its triplet assembly took.
//
//   qvtool sparse FILE.mtx [--print] [--symmetric]
//
// Prints the header of the library's text output (size, Nnz, symmetry) and
// the read and assembly times; --print prints every entry in the library's
// text format instead of the header alone; --symmetric keeps a symmetric or
// Hermitian file in symmetric storage.
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

#include "commands.h"
#include "qvarray/matrixmarket.h"
#include "qvarray/sparse/sparse.h"
#include "qvutil/exception.h"
#include "qvutil/stopwatch.h"

namespace {

int usage() {
  std::fprintf(stderr, "usage: qvtool sparse FILE.mtx [--print] [--symmetric]\n");
  return 2;
}

}  // namespace

int cmdSparse(int argc, char** argv) {
  std::string path;
  bool print = false, symmetric = false;
  for (int k = 1; k < argc; ++k) {
    if (std::strcmp(argv[k], "--print") == 0)
      print = true;
    else if (std::strcmp(argv[k], "--symmetric") == 0)
      symmetric = true;
    else if (argv[k][0] == '-' || !path.empty())
      return usage();
    else
      path = argv[k];
  }
  if (path.empty()) return usage();

  try {
    qvutil::Stopwatch readTime;
    const qvarray::MatrixMarketTriplets triplets = qvarray::readMatrixMarketTriplets(path, symmetric);
    readTime.stop();
    qvutil::Stopwatch assemblyTime;
    qvarray::Sparse A;
    triplets.assemble(A);
    assemblyTime.stop();

    if (print)
      std::cout << A;
    else
      qvarray::outputSparseHeader(std::cout, A);
    std::cout << "Read time: " << readTime.seconds() << " s\n"
              << "Assembly time: " << assemblyTime.seconds() << " s\n";
    std::cout.flush();
    return 0;
  } catch (const std::exception& e) {
    std::cout.flush();
    std::fprintf(stderr, "qvtool sparse: %s\n", e.what());
    return 1;
  }
}
