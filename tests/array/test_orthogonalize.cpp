// Gram–Schmidt and Givens updates: orthonormality and reconstruction of the
// bases they build, and least-squares residuals of Hessenberg systems checked
// against the normal equations solved in long double.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "kernel_oracles.h"
#include "qvarray/arrayutil.h"

using namespace kernel_oracles;
using qvarray::Array;
using qvtest::expectThrowKey;

namespace {

constexpr const char* kNumErr = "Internal_numerical_error";

template <class T>
class Orthogonalize : public ::testing::Test {};
using Scalars = ::testing::Types<double, cplx>;
TYPED_TEST_SUITE(Orthogonalize, Scalars);

// Orthonormalises the columns of V one after another into Q, checking on the
// way that each column is reproduced by Q·h. Returns max |QᴴQ − I|.
template <class T>
double buildBasis(const Array<T, 2>& V, Array<T, 2>& Q) {
  const size_t n = V.sizes[0], K = V.sizes[1];
  Q.resize(n, K);
  Array<T, 1> v(n), h(K + 1);
  for (size_t k = 0; k < K; ++k) {
    std::copy(&V(0, k), &V(0, k) + n, v.data);
    const double r = qvarray::gramSchmidt(Q, int(k), v, h);
    EXPECT_EQ(r, std::real(h[k]));
    EXPECT_NEAR(qvarray::norm(v), 1.0, 1e-15);
    for (size_t i = 0; i < n; ++i) {
      Wide<T> sum = wide(h[k]) * wide(v[i]);
      for (size_t j = 0; j < k; ++j) sum += wide(Q(i, j)) * wide(h[j]);
      EXPECT_LT(relErr(V(i, k), sum), 1e-14) << k << " " << i;
    }
    std::copy(v.begin(), v.end(), &Q(0, k));
  }
  double worst = 0.0;
  for (size_t a = 0; a < K; ++a)
    for (size_t b = 0; b < K; ++b) {
      Wide<T> g = 0;
      for (size_t i = 0; i < n; ++i) g += conjw(wide(Q(i, a))) * wide(Q(i, b));
      worst = std::max(worst, double(std::abs(g - Wide<T>(a == b ? 1 : 0))));
    }
  return worst;
}

// ‖β·e1 − H·y‖ for the least-squares y of the (k+2)×(k+1) Hessenberg H, via
// the normal equations in long double.
template <class T>
long double leastSquaresResidual(const Array<T, 2>& H, size_t k, double beta) {
  using W = Wide<T>;
  const size_t rows = k + 2, cols = k + 1;
  std::vector<W> M(cols * cols), y(cols);
  for (size_t a = 0; a < cols; ++a) {
    y[a] = conjw(wide(H(0, a))) * (long double)beta;
    for (size_t b = 0; b < cols; ++b)
      for (size_t i = 0; i < rows; ++i) M[a + b * cols] += conjw(wide(H(i, a))) * wide(H(i, b));
  }
  for (size_t p = 0; p < cols; ++p)  // elimination without pivoting: M is positive definite
    for (size_t r = p + 1; r < cols; ++r) {
      const W f = M[r + p * cols] / M[p + p * cols];
      for (size_t b = p; b < cols; ++b) M[r + b * cols] -= f * M[p + b * cols];
      y[r] -= f * y[p];
    }
  for (size_t p = cols; p-- > 0;) {
    for (size_t b = p + 1; b < cols; ++b) y[p] -= M[p + b * cols] * y[b];
    y[p] /= M[p + p * cols];
  }
  long double res = 0;
  for (size_t i = 0; i < rows; ++i) {
    W e = i == 0 ? W(beta) : W(0);
    for (size_t b = 0; b < cols; ++b) e -= wide(H(i, b)) * y[b];
    res += std::norm(e);
  }
  return std::sqrt(res);
}

}  // namespace

TYPED_TEST(Orthogonalize, GramSchmidtBuildsOrthonormalBases) {
  using T = TypeParam;
  qvtest::Rng rng;
  Array<T, 2> Q;
  EXPECT_LT(buildBasis(randomArray<T, 2>(rng, 30, 10), Q), 1e-14);

  // nearly dependent columns: one pass would lose orthogonality entirely
  auto V = randomArray<T, 2>(rng, 30, 8);
  for (size_t j = 1; j < 8; ++j)
    for (size_t i = 0; i < 30; ++i) V(i, j) = V(i, 0) + 1e-9 * V(i, j);
  EXPECT_LT(buildBasis(V, Q), 1e-14);
}

TYPED_TEST(Orthogonalize, GramSchmidtOfAZeroVector) {
  using T = TypeParam;
  qvtest::Rng rng;
  Array<T, 2> Q;
  buildBasis(randomArray<T, 2>(rng, 5, 2), Q);
  Array<T, 1> v(5), h(3);
  v.fill(T(0.0));
  h.fill(T(9.0));
  EXPECT_EQ(qvarray::gramSchmidt(Q, 2, v, h), 0.0);
  for (const T& e : h) EXPECT_EQ(e, T(0.0));
  for (const T& e : v) EXPECT_EQ(e, T(0.0));

  const char* s = "gramSchmidt: Size of Q, v or h does not match k.";
  Array<T, 1> v4(4), h2(2);
  expectThrowKey([&] { qvarray::gramSchmidt(Q, 3, v, h); }, kNumErr, s);
  expectThrowKey([&] { qvarray::gramSchmidt(Q, -1, v, h); }, kNumErr, s);
  expectThrowKey([&] { qvarray::gramSchmidt(Q, 1, v4, h); }, kNumErr, s);
  expectThrowKey([&] { qvarray::gramSchmidt(Q, 2, v, h2); }, kNumErr, s);
}

TYPED_TEST(Orthogonalize, GivensResidualIsTheLeastSquaresResidual) {
  using T = TypeParam;
  qvtest::Rng rng;
  const size_t K = 6;  // columns of the final Hessenberg matrix
  const double beta = 1.3;
  Array<T, 2> H(K + 1, K);
  H.fill(T(0.0));
  for (size_t j = 0; j < K; ++j)
    for (size_t i = 0; i <= j + 1 && i <= K; ++i) H(i, j) = rng.value<T>();
  Array<T, 2> R(K, K);
  R.fill(T(0.0));
  Array<double, 1> c(K);
  Array<T, 1> s(K), g(K + 1);
  g.fill(T(0.0));
  g[0] = beta;
  double previous = beta;
  for (size_t k = 0; k < K; ++k) {
    Array<T, 1> h(k + 2);  // exactly the elements the update needs
    for (size_t i = 0; i < k + 2; ++i) h[i] = H(i, k);
    const double res = qvarray::givensRot(h, int(k), c, s, g);
    EXPECT_LT(std::abs(res - leastSquaresResidual(H, k, beta)), 1e-13) << k;
    EXPECT_LE(res, previous * (1 + 1e-15));
    previous = res;
    EXPECT_EQ(h[k + 1], T(0.0));
    EXPECT_NEAR(c[k] * c[k] + std::norm(s[k]), 1.0, 1e-15);
    for (size_t i = 0; i <= k; ++i) R(i, k) = h[i];
  }
  // second oracle: y from R·y = g, then the residual of the original system
  std::vector<Wide<T>> y(K);
  for (size_t p = K; p-- > 0;) {
    y[p] = wide(g[p]);
    for (size_t b = p + 1; b < K; ++b) y[p] -= wide(R(p, b)) * y[b];
    y[p] /= wide(R(p, p));
  }
  long double res = 0;
  for (size_t i = 0; i < K + 1; ++i) {
    Wide<T> e = i == 0 ? Wide<T>(beta) : Wide<T>(0);
    for (size_t b = 0; b < K; ++b) e -= wide(H(i, b)) * y[b];
    res += std::norm(e);
  }
  EXPECT_NEAR(double(std::sqrt(res)), std::abs(g[K]), 1e-13);
}

TYPED_TEST(Orthogonalize, GivensConventionsAndChecks) {
  using T = TypeParam;
  // f = 0: c = 0, r = |g|
  Array<T, 1> h(2), s(1), g(2);
  Array<double, 1> c(1);
  h[0] = T(0.0);
  if constexpr (qvarray::is_complex_v<T>) h[1] = T(0.0, 2.0);
  else h[1] = -2.0;
  g[0] = T(1.0);
  g[1] = T(0.0);
  EXPECT_EQ(qvarray::givensRot(h, 0, c, s, g), 1.0);
  EXPECT_EQ(c[0], 0.0);
  EXPECT_EQ(h[0], T(2.0));
  EXPECT_EQ(g[0], T(0.0));
  // g = 0: identity rotation
  h[0] = T(-3.0);
  h[1] = T(0.0);
  g[0] = T(1.0);
  g[1] = T(0.0);
  EXPECT_EQ(qvarray::givensRot(h, 0, c, s, g), 0.0);
  EXPECT_EQ(c[0], 1.0);
  EXPECT_EQ(s[0], T(0.0));
  EXPECT_EQ(h[0], T(-3.0));

  const char* msg = "givensRot: Size of h, c, s or g less than required by k.";
  Array<T, 1> h3(3), g3(3), s2(2);
  Array<double, 1> c2(2);
  expectThrowKey([&] { qvarray::givensRot(h, 1, c2, s2, g3); }, kNumErr, msg);
  expectThrowKey([&] { qvarray::givensRot(h3, 1, c2, s2, g); }, kNumErr, msg);
  expectThrowKey([&] { qvarray::givensRot(h3, 1, c, s2, g3); }, kNumErr, msg);
  expectThrowKey([&] { qvarray::givensRot(h3, 1, c2, s, g3); }, kNumErr, msg);
  expectThrowKey([&] { qvarray::givensRot(h3, -1, c2, s2, g3); }, kNumErr, msg);
}
