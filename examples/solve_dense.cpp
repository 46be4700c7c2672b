// Solve a dense linear system A·x = b and check the answer by its residual.
//
//   example_solve_dense           solves a 3 x 3 system built in code
//   example_solve_dense A.mtx     solves A·x = (1, ..., 1) for a square
//                                 matrix read from a MatrixMarket file
#include <cstdio>

#include "qvarray/arrayutil.h"
#include "qvarray/blasruntime.h"
#include "qvarray/io/densemm.h"
#include "qvarray/init.h"
#include "qvutil/exception.h"

int main(int argc, char** argv) {
  qvarray::relaunchWithFastBlas(argc, argv);  // OpenBLAS on this processor's fast kernels
  qvarray::initializeArray();

  Array<double, 2> A;
  try {
    if (argc > 1) {
      qvarray::readMatrixMarket(argv[1], A);
    } else {
      A.resize(3, 3);
      const double rows[3][3] = {{3, 1, -1}, {1, 4, 1}, {2, -1, 5}};
      for (size_t i = 0; i < 3; ++i)
        for (size_t j = 0; j < 3; ++j) A(i, j) = rows[i][j];  // A(row, column)
    }
  } catch (const qvbase::Exception& e) {  // a bad file: key, file, line and what is wrong
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
  }
  const size_t n = A.sizes[0];
  if (A.sizes[1] != n) {
    std::fprintf(stderr, "A is %zu x %zu, not square\n", n, A.sizes[1]);
    return 1;
  }
  Array<double, 1> b(n);
  b.fill(1.0);

  // linsolv overwrites A with its LU factors and its right-hand side with the
  // solution, so solve on copies and keep A and b for the check.
  Array<double, 2> LU = A;
  Array<double, 1> x = b;
  const int info = qvarray::linsolv(LU, x, qvarray::RaiseOnIllegal);
  if (info > 0) {
    std::fprintf(stderr, "A is singular: U(%d,%d) is zero\n", info, info);
    return 1;
  }

  // r = A·x − b
  Array<double, 1> r = b;
  qvarray::scale(r, -1.0);
  qvarray::yPlusAMulx(r, A, x, qvarray::NoTrans);
  const double relResidual = qvarray::norm(r) / qvarray::norm(b);

  for (size_t i = 0; i < n && i < 10; ++i) std::printf("x[%zu] = %.15g\n", i, x[i]);
  if (n > 10) std::printf("... (%zu values)\n", n);
  std::printf("||A*x - b|| / ||b|| = %.2e\n", relResidual);
  return relResidual < 1e-10 ? 0 : 1;
}
