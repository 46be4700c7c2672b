// The property check for vector values: accepted kinds and descriptions.
#include <gtest/gtest.h>

#include <any>

#include "qvarray/chkvector.h"
#include "qvarray/matriximpl.h"

TEST(ChkVector, ParseAcceptsVectorsByRealnessAndDescribesThem) {
  std::any complexVec = Vector(Array<std::complex<double>, 1>(3)), realVec = Vector(3);
  std::any notAVector = 3.0, nothing;
  const ChkVector realOnly(true), any(false), copy = realOnly;
  EXPECT_TRUE(any.parse(complexVec) && realOnly.parse(realVec));
  EXPECT_FALSE(realOnly.parse(complexVec) || copy.parse(complexVec));
  EXPECT_FALSE(any.parse(notAVector) || any.parse(nothing));
  std::string real, general;
  realOnly.typeDescr(real);
  any.typeDescr(general);
  EXPECT_EQ(real, "A real vector.");
  EXPECT_EQ(general, "A vector");  // the asymmetry is intended
}
