// The typed LAPACK layer itself: the INFO translation (every key, including
// those no input provokes reliably), the workspace query rule, and empty
// problems.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "backend/lapack.h"
#include "densecheck.h"

namespace {

namespace lapack = qvarray::lapack;
using qvtest::expectThrowKey;

TEST(LapackLayer, InfoTranslation) {
  struct Case {
    lapack::Failure failure;
    const char* key;
    const char* name;  // the detail naming INFO, or the fixed detail sentence
  };
  const Case cases[] = {
      {lapack::kSingular, "Error_in_LAPACK_call", nullptr},
      {lapack::kQRFailed, "Iteration_in_the_QR_algorithm_failed", "Iteration"},
      {lapack::kQZFailed, "Iteration_in_the_QZ_algorithm_failed", "Iteration"},
      {lapack::kSvdFailed<double>, "DBDSQR_did_not_converge", "Unconverged_superdiagonals"},
      {lapack::kSvdFailed<std::complex<double>>, "ZBDSQR_did_not_converge",
       "Unconverged_superdiagonals"},
  };
  for (const Case& c : cases) {
    // Zero, and INFO whose sign the flags do not ask for, come back.
    EXPECT_EQ(lapack::checkInfo(0, qvarray::RaiseAll, c.failure), 0);
    EXPECT_EQ(lapack::checkInfo(4, qvarray::RaiseOnIllegal, c.failure), 4);
    EXPECT_EQ(lapack::checkInfo(-3, qvarray::RaiseOnFailure, c.failure), -3);
    // Positive INFO with bit 1: the routine's key; negative with bit 2: illegal argument.
    auto e = expectThrowKey([&] { lapack::checkInfo(7, 1, c.failure); }, c.key,
                            c.name ? "" : "Singular_matrix");
    if (c.name) {
      EXPECT_EQ(e.detail(c.name), "7") << c.key;
    }
    e = expectThrowKey([&] { lapack::checkInfo(-2, qvarray::RaiseOnIllegal, c.failure); },
                       "Internal_numerical_error", "Illegal_input_values_in_LAPACK_call");
    EXPECT_EQ(e.module(), "arrayutil");
  }
  // The Cholesky key follows any flag and any non-zero INFO.
  EXPECT_EQ(lapack::checkInfo(3, 0, lapack::kNotPositiveDefinite), 3);
  EXPECT_EQ(lapack::checkInfo(-1, 0, lapack::kNotPositiveDefinite), -1);
  EXPECT_EQ(lapack::checkInfo(0, 3, lapack::kNotPositiveDefinite), 0);
  for (int info : {-1, 3})
    for (int flags : {1, 2})
      expectThrowKey([&] { lapack::checkInfo(info, flags, lapack::kNotPositiveDefinite); },
                     "Input_matrix_must_be_positive_definite");
}

TEST(LapackLayer, WorkspaceIsQueriedThenAllocated) {
  // A stand-in routine: answers the query with `optimal`, records the work
  // sizes it is called with, and writes the whole work array.
  for (double optimal : {250.0, 1.0}) {
    std::vector<int> calls;
    auto routine = [&](double* work, int lwork, int& info) {
      calls.push_back(lwork);
      if (lwork == -1) {
        work[0] = optimal;
        return;
      }
      std::fill(work, work + lwork, 1.0);
      info = lwork >= static_cast<int>(optimal) ? 0 : -99;
    };
    EXPECT_EQ(lapack::callWithWorkspace<double>(routine), 0);
    EXPECT_EQ(calls, (std::vector<int>{-1, static_cast<int>(optimal)}));
  }
  // A query that already reports an illegal argument is not repeated.
  int calls = 0;
  EXPECT_EQ(
      lapack::callWithWorkspace<double>([&](double*, int, int& info) { info = -4 - calls++; }), -4);
  EXPECT_EQ(calls, 1);
}

// Empty matrices reach LAPACK with null storage; every wrapper must treat
// them as the trivial problem they are.
template <class T>
class LapackEmpty : public ::testing::Test {};
TYPED_TEST_SUITE(LapackEmpty, qvtest::ScalarTypes);

TYPED_TEST(LapackEmpty, ZeroByZeroProblemsSucceed) {
  using T = TypeParam;
  using qvarray::Array;
  const int all = qvarray::RaiseAll;
  Array<T, 2> A, B, U, VT, Q, Z;
  Array<T, 1> b, tau;
  Array<int, 1> ipiv, select;
  Array<double, 1> s;
  EXPECT_EQ(qvarray::lu(A, ipiv, all), 0);
  EXPECT_EQ(qvarray::linsolv(A, b, all), 0);
  EXPECT_EQ(qvarray::linsolvsolve(A, ipiv, b, all), 0);
  EXPECT_EQ(qvarray::chol(A, all), 0);
  EXPECT_EQ(qvarray::qr(A, tau, all), 0);
  EXPECT_EQ(qvarray::q(A, tau, all), 0);
  EXPECT_EQ(qvarray::leastSquaresQRResize(A, B, all), 0);
  EXPECT_EQ(qvarray::leastSquares(A, B, Z, -1.0, all), 0);
  EXPECT_EQ(qvarray::svd('A', 'A', A, U, s, VT, all), 0);
  EXPECT_EQ(qvarray::rank(A, -1.0), 0);
  EXPECT_EQ(qvarray::hess(A, Q, true), 0);
  EXPECT_EQ(qvarray::generalizedHess(A, B, Q, Z), 0);
  EXPECT_EQ(qvarray::schur(A, Q, true), 0);
  EXPECT_EQ(qvarray::ordschur(A, Q, select), 0);
  EXPECT_EQ(qvarray::luBand(0, 0, 0, A, ipiv, all), 0);
  qvarray::backSubstBand(0, 0, 0, A, ipiv, b);
  EXPECT_EQ(s.count + U.count + VT.count + Q.count + Z.count, 0u);
}

}  // namespace
