// qvtool sparse: reads a MatrixMarket file, reports the matrix and the time
// its triplet assembly took.
#include <iostream>
#include <new>
#include <string>

#include "commands.h"
#include "qvarray/io/sparsemm.h"
#include "qvarray/sparse/sparse.h"
#include "qvutil/stopwatch.h"
#include "toolutil.h"

namespace {

int run(int argc, char** argv) {
  std::string path;
  bool print = false, symmetric = false;
  qvtool::Arguments args(argc, argv);
  while (args.next()) {
    if (args.is("--print")) print = true;
    else if (args.is("--symmetric")) symmetric = true;
    else args.positional(path);
  }
  qvtool::Arguments::require(path, "matrix file");

  qvutil::Stopwatch readTime, assemblyTime;
  qvarray::Sparse A;
  try {
    const qvarray::MatrixMarketTriplets triplets =
        qvarray::readMatrixMarketTriplets(path, symmetric);
    readTime.stop();
    assemblyTime.reset();
    triplets.assemble(A);
    assemblyTime.stop();
  } catch (const std::bad_alloc&) {
    qvtool::failReading(path);
  }
  qvtool::requireFiniteEntries(A, path);

  if (print) std::cout << A;
  else qvarray::outputSparseHeader(std::cout, A);
  std::cout << "Read time: " << readTime.seconds() << " s\n"
            << "Assembly time: " << assemblyTime.seconds() << " s\n";
  std::cout.flush();
  return 0;
}

}  // namespace

const qvtool::Command qvtool::sparseCommand = {
    "sparse", run, "read a sparse MatrixMarket file: size, Nnz, symmetry and assembly time",
    "qvtool sparse FILE.mtx [--print] [--symmetric]",
    "Reads the matrix of a MatrixMarket coordinate file through triplet assembly\n"
    "and prints the header of the library's text output (size, Nnz, symmetry)\n"
    "with the read and assembly times.\n"
    "  --print      print every entry in the library's text format\n"
    "  --symmetric  keep a symmetric or Hermitian file in symmetric storage\n"};
