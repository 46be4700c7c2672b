// The typed LAPACK layer itself: the INFO translation (every key, including
// those no input provokes reliably), the workspace query rule, and empty
// problems.
#include <gtest/gtest.h>

#include <vector>

#include "backend/lapack.h"
#include "densecheck.h"

namespace {

namespace lapack = qvarray::lapack;
using qvtest::expectThrowKey;

TEST(LapackLayer, ZeroAndUnflaggedInfoComeBack) {
  for (const lapack::Failure& f :
       {lapack::kSingular, lapack::kQRFailed, lapack::kQZFailed, lapack::kSvdFailed<double>}) {
    EXPECT_EQ(lapack::checkInfo(0, qvarray::RaiseAll, f), 0);
    EXPECT_EQ(lapack::checkInfo(4, qvarray::RaiseOnIllegal, f), 4);
    EXPECT_EQ(lapack::checkInfo(-3, qvarray::RaiseOnFailure, f), -3);
  }
}

TEST(LapackLayer, NegativeInfoWithBitTwoIsAnIllegalArgument) {
  auto e = expectThrowKey([] { lapack::checkInfo(-2, qvarray::RaiseOnIllegal, lapack::kQRFailed); },
                          "Internal_numerical_error", "Illegal_input_values_in_LAPACK_call");
  EXPECT_EQ(e.module(), "arrayutil");
}

TEST(LapackLayer, PositiveInfoWithBitOneRaisesTheRoutinesKey) {
  expectThrowKey([] { lapack::checkInfo(2, 1, lapack::kSingular); }, "Error_in_LAPACK_call",
                 "Singular_matrix");
  struct Case {
    lapack::Failure failure;
    const char* key;
    const char* name;
  };
  const Case cases[] = {
      {lapack::kQRFailed, "Iteration_in_the_QR_algorithm_failed", "Iteration"},
      {lapack::kQZFailed, "Iteration_in_the_QZ_algorithm_failed", "Iteration"},
      {lapack::kSvdFailed<double>, "DBDSQR_did_not_converge", "Unconverged_superdiagonals"},
      {lapack::kSvdFailed<std::complex<double>>, "ZBDSQR_did_not_converge",
       "Unconverged_superdiagonals"},
  };
  for (const Case& c : cases) {
    auto e = expectThrowKey([&] { lapack::checkInfo(7, qvarray::RaiseAll, c.failure); }, c.key);
    EXPECT_EQ(e.detail(c.name), "7") << c.key;
  }
}

TEST(LapackLayer, CholeskyKeyFollowsAnyFlagAndAnyInfo) {
  EXPECT_EQ(lapack::checkInfo(3, 0, lapack::kNotPositiveDefinite), 3);
  EXPECT_EQ(lapack::checkInfo(-1, 0, lapack::kNotPositiveDefinite), -1);
  EXPECT_EQ(lapack::checkInfo(0, 3, lapack::kNotPositiveDefinite), 0);
  for (int info : {-1, 3})
    for (int flags : {1, 2})
      expectThrowKey([&] { lapack::checkInfo(info, flags, lapack::kNotPositiveDefinite); },
                     "Input_matrix_must_be_positive_definite");
}

/// A stand-in for a LAPACK routine with a work array: answers the query with
/// `optimal` and records the work sizes it is called with.
struct FakeRoutine {
  double optimal;
  std::vector<int> calls;
  void operator()(double* work, int lwork, int& info) {
    calls.push_back(lwork);
    if (lwork == -1) {
      work[0] = optimal;
      return;
    }
    for (int i = 0; i < lwork; ++i) work[i] = 1.0;  // the whole array must be writable
    info = lwork >= static_cast<int>(optimal) ? 0 : -99;
  }
};

TEST(LapackLayer, WorkspaceIsQueriedThenAllocated) {
  FakeRoutine big{250.0, {}};
  EXPECT_EQ(
      lapack::callWithWorkspace<double>([&](double* w, int lw, int& info) { big(w, lw, info); }),
      0);
  EXPECT_EQ(big.calls, (std::vector<int>{-1, 250}));

  FakeRoutine one{1.0, {}};
  lapack::callWithWorkspace<double>([&](double* w, int lw, int& info) { one(w, lw, info); });
  EXPECT_EQ(one.calls, (std::vector<int>{-1, 1}));

  // A query that already reports an illegal argument is not repeated.
  std::vector<int> calls;
  EXPECT_EQ(lapack::callWithWorkspace<double>([&](double*, int lw, int& info) {
              calls.push_back(lw);
              info = -4;
            }),
            -4);
  EXPECT_EQ(calls.size(), 1u);
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
