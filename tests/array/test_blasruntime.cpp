#include <gtest/gtest.h>
#include <omp.h>

#include "qvarray/blasruntime.h"

TEST(BlasRuntime, TestsRunOnTheFastestKernelsTheProcessorSupports) {
  const auto rt = qvarray::blasRuntime();
  EXPECT_FALSE(rt.coreName.empty());
  EXPECT_NE(rt.config.find("USE_OPENMP"), std::string::npos) << rt.config;
  EXPECT_FALSE(rt.slowKernels) << "OpenBLAS runs " << rt.coreName << ", processor supports "
                               << rt.preferredCore;
}

TEST(BlasRuntime, SerialScopeIsPerThreadAndRestores) {
  const int before = omp_get_max_threads();
  {
    qvarray::SerialBlasScope scope;
    EXPECT_EQ(omp_get_max_threads(), 1);
  }
  EXPECT_EQ(omp_get_max_threads(), before);
}
