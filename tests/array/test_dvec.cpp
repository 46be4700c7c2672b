// Fixed 2-D and 3-D vectors: algebraic identities of dot and cross products,
// norms without overflow, and normalisation of the zero vector.
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

TEST(DVec, CrossAndDotIdentities) {
  qvtest::Rng rng(7);
  for (int trial = 0; trial < 50; ++trial) {
    const DVec3 a(rng.real(), rng.real(), rng.real()), b(rng.real(), rng.real(), rng.real());
    const DVec3 c(rng.real(), rng.real(), rng.real()), axb = cross(a, b);
    // a × b is orthogonal to both factors and antisymmetric.
    EXPECT_NEAR(std::abs(dot(axb, a)) + std::abs(dot(axb, b)), 0.0, 1e-15);
    EXPECT_EQ(axb, -cross(b, a));
    // Lagrange: |a × b|² + (a·b)² = |a|²·|b|².
    EXPECT_NEAR(axb.norm2() + dot(a, b) * dot(a, b), a.norm2() * b.norm2(), 1e-14);
    // a × (b × c) = b·(a·c) − c·(a·b); the triple product is invariant under cyclic shifts.
    EXPECT_NEAR((cross(a, cross(b, c)) - (b * dot(a, c) - c * dot(a, b))).norm(), 0.0, 1e-14);
    EXPECT_NEAR(dot(a, cross(b, c)), dot(b, cross(c, a)), 1e-14);
    // In 2-D: the cross product is the z component of the 3-D one and a
    // rotated dot product.
    const DVec2 p(a.x, a.y), q(b.x, b.y);
    EXPECT_DOUBLE_EQ(cross(p, q), qvvec::cross(DVec3(p.x, p.y, 0), DVec3(q.x, q.y, 0)).z);
    EXPECT_DOUBLE_EQ(cross(p, q), dot(perp(p), q));
    EXPECT_NEAR(dot(perp(p), p), 0.0, 1e-16);
    EXPECT_NEAR(cross(p, q) * cross(p, q) + dot(p, q) * dot(p, q), p.norm2() * q.norm2(), 1e-15);
  }
}

TEST(DVec, ArithmeticNormAndNormalize) {
  DVec3 v(3, 4, 12);
  EXPECT_DOUBLE_EQ(v.norm(), 13.0);
  EXPECT_EQ(v + DVec3(1, 1, 1), DVec3(4, 5, 13));
  EXPECT_EQ(2.0 * v / 2.0, v);
  EXPECT_EQ(v[0] + v[1] + v[2], 19.0);
  EXPECT_DOUBLE_EQ(v.normalize(), 13.0);
  EXPECT_NEAR(v.norm(), 1.0, 1e-15);
  EXPECT_DOUBLE_EQ(v.z, 12.0 / 13.0);
  EXPECT_DOUBLE_EQ(DVec3(3e200, 4e200, 0).norm(), 5e200);  // no overflow
  // The zero vector stays zero instead of becoming NaN.
  DVec3 zero;
  EXPECT_EQ(zero.normalize(), 0.0);
  EXPECT_TRUE(zero == DVec3() && qvvec::normalized(DVec3()) == DVec3());
  DVec2 w(-6, 8);
  EXPECT_DOUBLE_EQ(norm(w), 10.0);
  EXPECT_EQ(qvvec::normalized(w), DVec2(-0.6, 0.8));
  w -= DVec2(1, 1);
  w *= 2;
  EXPECT_EQ(w, DVec2(-14, 14));
}
