// Gram–Schmidt and Givens updates: orthonormality and reconstruction of the
// bases they build, and least-squares residuals of Hessenberg systems.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "densecheck.h"
#include "qvarray/arrayutil.h"

using namespace qvtest;

namespace {

constexpr const char* kNumErr = "Internal_numerical_error";

template <class T>
class Orthogonalize : public ::testing::Test {};
TYPED_TEST_SUITE(Orthogonalize, ScalarTypes);

// Orthonormalises the columns of V one after another into Q, checking on the
// way that each column is reproduced by Q·h. Returns ‖QᴴQ − I‖ / (n·ε).
template <class T>
double buildBasis(const Array<T, 2>& V, Array<T, 2>& Q) {
  const size_t n = V.sizes[0], K = V.sizes[1];
  Q.resize(n, K);
  Array<T, 1> h(K + 1);
  for (size_t k = 0; k < K; ++k) {
    Array<T, 1> v = column(V, k);
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
  return orthonormalityError(Q);
}

}  // namespace

TYPED_TEST(Orthogonalize, GramSchmidtBuildsOrthonormalBases) {
  using T = TypeParam;
  Rng rng;
  Array<T, 2> Q;
  // ‖QᴴQ − I‖ below 1.5·n·ε ≈ 1e-14
  EXPECT_LT(buildBasis(randomMatrix<T>(30, 10, rng), Q), 1.5);
  // nearly dependent columns: one pass would lose orthogonality entirely
  auto V = randomMatrix<T>(30, 8, rng);
  for (size_t j = 1; j < 8; ++j)
    for (size_t i = 0; i < 30; ++i) V(i, j) = V(i, 0) + 1e-9 * V(i, j);
  EXPECT_LT(buildBasis(V, Q), 1.5);
}

TYPED_TEST(Orthogonalize, GramSchmidtOfAZeroVectorAndChecks) {
  using T = TypeParam;
  Rng rng;
  Array<T, 2> Q;
  buildBasis(randomMatrix<T>(5, 2, rng), Q);
  Array<T, 1> v(5), h(3), v4(4), h2(2);
  v.fill(T(0.0));
  h.fill(T(9.0));
  EXPECT_EQ(qvarray::gramSchmidt(Q, 2, v, h), 0.0);
  EXPECT_EQ(normF(h) + normF(v), 0.0);
  const char* s = "gramSchmidt: Size of Q, v or h does not match k.";
  expectThrowsAll(kNumErr, {{[&] { qvarray::gramSchmidt(Q, 3, v, h); }, s},
                            {[&] { qvarray::gramSchmidt(Q, -1, v, h); }, s},
                            {[&] { qvarray::gramSchmidt(Q, 1, v4, h); }, s},
                            {[&] { qvarray::gramSchmidt(Q, 2, v, h2); }, s}});
}

// After each update k the rotated system R·y = g (R the updated columns) gives
// the least-squares solution of H(0:k+1, 0:k)·y ≈ β·e1: its residual is
// orthogonal to H's columns and has the norm that givensRot reports.
TYPED_TEST(Orthogonalize, GivensResidualIsTheLeastSquaresResidual) {
  using T = TypeParam;
  using W = Wide<T>;
  Rng rng;
  const size_t K = 6;
  const double beta = 1.3;
  Array<T, 2> H = zeros<T>(K + 1, K), R = zeros<T>(K, K);
  for (size_t j = 0; j < K; ++j)
    for (size_t i = 0; i <= j + 1; ++i) H(i, j) = rng.value<T>();
  Array<double, 1> c(K);
  Array<T, 1> s(K), g(K + 1);
  g.fill(T(0.0));
  g[0] = beta;
  double previous = beta;
  for (size_t k = 0; k < K; ++k) {
    Array<T, 1> h(k + 2);  // exactly the elements the update needs
    for (size_t i = 0; i < k + 2; ++i) h[i] = H(i, k);
    const double res = qvarray::givensRot(h, int(k), c, s, g);
    EXPECT_EQ(h[k + 1], T(0.0));
    EXPECT_NEAR(c[k] * c[k] + std::norm(s[k]), 1.0, 1e-15);
    EXPECT_LE(res, previous * (1 + 1e-15));
    previous = res;
    for (size_t i = 0; i <= k; ++i) R(i, k) = h[i];
    std::vector<W> y(k + 1), r(k + 2);
    for (size_t p = k + 1; p-- > 0;) {
      y[p] = wide(g[p]);
      for (size_t b = p + 1; b <= k; ++b) y[p] -= wide(R(p, b)) * y[b];
      y[p] /= wide(R(p, p));
    }
    long double rr = 0, orth = 0;
    for (size_t i = 0; i < k + 2; ++i) {
      r[i] = i == 0 ? W(beta) : W(0);
      for (size_t b = 0; b <= k; ++b) r[i] -= wide(H(i, b)) * y[b];
      rr += std::norm(r[i]);
    }
    for (size_t b = 0; b <= k; ++b) {
      W hr = 0;
      for (size_t i = 0; i < k + 2; ++i) hr += conjOf(wide(H(i, b))) * r[i];
      orth = std::max(orth, std::abs(hr));
    }
    EXPECT_EQ(res, std::abs(g[k + 1]));
    EXPECT_LT(std::abs(res - std::sqrt(rr)), 1e-13) << k;
    EXPECT_LT(orth, 1e-13) << k;
  }
}

TYPED_TEST(Orthogonalize, GivensConventionsAndChecks) {
  using T = TypeParam;
  Array<double, 1> c(1), c2(2);
  Array<T, 1> s(1), s2(2), h3(3), g3(3);
  // f = 0: c = 0, r = |g|
  T below = T(-2.0);
  if constexpr (isComplex<T>) below = T(0.0, 2.0);
  Array<T, 1> h = vec<T>({T(0.0), below});
  Array<T, 1> g = vec<T>({T(1.0), T(0.0)});
  EXPECT_EQ(qvarray::givensRot(h, 0, c, s, g), 1.0);
  EXPECT_TRUE(c[0] == 0.0 && h[0] == T(2.0) && g[0] == T(0.0));
  // g = 0: identity rotation
  h = vec<T>({T(-3.0), T(0.0)});
  g = vec<T>({T(1.0), T(0.0)});
  EXPECT_EQ(qvarray::givensRot(h, 0, c, s, g), 0.0);
  EXPECT_TRUE(c[0] == 1.0 && s[0] == T(0.0) && h[0] == T(-3.0));

  const char* msg = "givensRot: Size of h, c, s or g less than required by k.";
  expectThrowsAll(kNumErr, {{[&] { qvarray::givensRot(h, 1, c2, s2, g3); }, msg},
                            {[&] { qvarray::givensRot(h3, 1, c2, s2, g); }, msg},
                            {[&] { qvarray::givensRot(h3, 1, c, s2, g3); }, msg},
                            {[&] { qvarray::givensRot(h3, 1, c2, s, g3); }, msg},
                            {[&] { qvarray::givensRot(h3, -1, c2, s2, g3); }, msg}});
}
