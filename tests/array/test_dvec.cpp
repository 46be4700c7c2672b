#include <gtest/gtest.h>

#include <type_traits>

#include "qvarray/dvec.h"
#include "qvtest.h"

using qvvec::DVec2;
using qvvec::DVec3;

static_assert(std::is_trivially_copyable_v<DVec2> && std::is_trivially_copyable_v<DVec3>);
static_assert(sizeof(DVec3) == 3 * sizeof(double));
static_assert(qvvec::cross(DVec3(1, 0, 0), DVec3(0, 1, 0)) == DVec3(0, 0, 1), "right-handed");
static_assert(qvvec::dot(DVec2(1, 2), DVec2(3, 4)) == 11.0);

namespace {

DVec3 randomVec3(qvtest::Rng& rng) { return {rng.real(), rng.real(), rng.real()}; }

}  // namespace

TEST(DVec3, CrossAndDotIdentities) {
  qvtest::Rng rng(7);
  for (int trial = 0; trial < 50; ++trial) {
    const DVec3 a = randomVec3(rng), b = randomVec3(rng), c = randomVec3(rng);
    const DVec3 axb = cross(a, b);
    // a × b is orthogonal to both factors and antisymmetric.
    EXPECT_NEAR(dot(axb, a), 0.0, 1e-15);
    EXPECT_NEAR(dot(axb, b), 0.0, 1e-15);
    EXPECT_EQ(axb, -cross(b, a));
    // Lagrange: |a × b|² + (a·b)² = |a|²·|b|².
    EXPECT_NEAR(axb.norm2() + dot(a, b) * dot(a, b), a.norm2() * b.norm2(), 1e-14);
    // a × (b × c) = b·(a·c) − c·(a·b).
    const DVec3 lhs = cross(a, cross(b, c)), rhs = b * dot(a, c) - c * dot(a, b);
    EXPECT_NEAR((lhs - rhs).norm(), 0.0, 1e-14);
    // Scalar triple product is invariant under cyclic shifts.
    EXPECT_NEAR(dot(a, cross(b, c)), dot(b, cross(c, a)), 1e-14);
  }
}

TEST(DVec3, ArithmeticNormAndNormalize) {
  DVec3 v(3, 4, 12);
  EXPECT_DOUBLE_EQ(v.norm(), 13.0);
  EXPECT_EQ(v + DVec3(1, 1, 1), DVec3(4, 5, 13));
  EXPECT_EQ(2.0 * v / 2.0, v);
  EXPECT_EQ(v[0] + v[1] + v[2], 19.0);
  EXPECT_DOUBLE_EQ(v.normalize(), 13.0);
  EXPECT_NEAR(v.norm(), 1.0, 1e-15);
  EXPECT_DOUBLE_EQ(v.z, 12.0 / 13.0);
  // No overflow on large components.
  EXPECT_DOUBLE_EQ(DVec3(3e200, 4e200, 0).norm(), 5e200);
  // The zero vector stays zero instead of becoming NaN.
  DVec3 zero;
  EXPECT_EQ(zero.normalize(), 0.0);
  EXPECT_EQ(zero, DVec3());
  EXPECT_EQ(qvvec::normalized(DVec3()), DVec3());
}

TEST(DVec2, CrossIsSignedAreaAndPerpRotates) {
  qvtest::Rng rng(3);
  for (int trial = 0; trial < 20; ++trial) {
    const DVec2 a(rng.real(), rng.real()), b(rng.real(), rng.real());
    // The 2-D cross product is the z component of the 3-D one.
    EXPECT_DOUBLE_EQ(cross(a, b), qvvec::cross(DVec3(a.x, a.y, 0), DVec3(b.x, b.y, 0)).z);
    EXPECT_DOUBLE_EQ(cross(a, b), dot(perp(a), b));
    EXPECT_NEAR(dot(perp(a), a), 0.0, 1e-16);
    EXPECT_NEAR(cross(a, b) * cross(a, b) + dot(a, b) * dot(a, b), a.norm2() * b.norm2(), 1e-15);
  }
  DVec2 v(-6, 8);
  EXPECT_DOUBLE_EQ(norm(v), 10.0);
  EXPECT_EQ(qvvec::normalized(v), DVec2(-0.6, 0.8));
  v -= DVec2(1, 1);
  v *= 2;
  EXPECT_EQ(v, DVec2(-14, 14));
}
