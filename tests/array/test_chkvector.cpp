#include <gtest/gtest.h>

#include <any>

#include "qvarray/chkvector.h"
#include "qvarray/matriximpl.h"

TEST(ChkVector, DescriptionsKeepTheirAsymmetry) {
  std::string s;
  ChkVector(true).typeDescr(s);
  EXPECT_EQ(s, "A real vector.");
  ChkVector(false).typeDescr(s);
  EXPECT_EQ(s, "A vector");
}

TEST(ChkVector, ParseAcceptsVectorsByRealness) {
  Array<std::complex<double>, 1> z(3);
  std::any complexVec = Vector(z);
  std::any realVec = Vector(3);
  std::any notAVector = 3.0;
  std::any nothing;
  const ChkVector realOnly(true), any(false);
  EXPECT_FALSE(realOnly.parse(complexVec));
  EXPECT_TRUE(any.parse(complexVec));
  EXPECT_TRUE(realOnly.parse(realVec));
  EXPECT_FALSE(any.parse(notAVector));
  EXPECT_FALSE(any.parse(nothing));
  ChkVector copy = realOnly;
  EXPECT_FALSE(copy.parse(complexVec));
}
