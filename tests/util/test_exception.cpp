#include <gtest/gtest.h>

#include "qvutil/errinfo.h"
#include "qvutil/exception.h"

using qvbase::Exception;

TEST(Exception, EveryConstructorFormKeepsItsFields) {
  Exception a("arrayutil", 12, "Singular_matrix");
  EXPECT_EQ(a.module(), "arrayutil");
  EXPECT_EQ(a.line(), 12);
  EXPECT_EQ(a.key(), "Singular_matrix");
  EXPECT_TRUE(a.details().empty());

  Exception b("m", 1, "K", "detail");
  ASSERT_EQ(b.details().size(), 1u);
  EXPECT_EQ(b.detailText(0), "detail");
  EXPECT_EQ(b.details()[0].first, "");

  Exception c("m", 1, "K", "one", "two");
  ASSERT_EQ(c.details().size(), 2u);
  EXPECT_EQ(c.detailText(1), "two");

  Exception d("m", 1, "K", "Iteration", std::int64_t{7});
  EXPECT_EQ(d.detail("Iteration").value(), "7");

  Exception e("m", 1, "K", qvbase::DetailPairs{{"Expression", "x+"}, {"Name", "x"}});
  EXPECT_EQ(e.detail("Name").value(), "x");
  EXPECT_EQ(e.details()[0].first, "Expression");
  EXPECT_FALSE(e.detail("Missing").has_value());
}

TEST(Exception, AddAppendsInOrderAndWhatRendersEverything) {
  Exception e("sparse", 40, "Internal_error_sparse");
  e.add("Reallocation is needed.").add("Column", std::int64_t{3}).add("Name", "A");
  ASSERT_EQ(e.details().size(), 3u);
  EXPECT_STREQ(e.what(),
               "Internal_error_sparse (sparse:40): Reallocation is needed.; Column = 3; Name = A");
}

TEST(Exception, BuiltFromErrInfoTakesModuleAndPairs) {
  qvbase::ErrInfo info("evaltree");
  info.add("message", "expreval");
  info.add("exprs", "sin(x)");
  ASSERT_NE(info.find("exprs"), nullptr);
  EXPECT_EQ(*info.find("exprs"), "sin(x)");
  Exception e(info, 99, "Division_by_zero");
  EXPECT_EQ(e.module(), "evaltree");
  EXPECT_EQ(e.details(), info.pairs());
}

TEST(Exception, CancelAndParallelAreLibraryExceptions) {
  try {
    throw qvbase::CancelException("gmres", 5);
  } catch (const Exception& e) {
    EXPECT_EQ(e.key(), "Operation_cancelled");
  }
  try {
    throw qvbase::ParallelException("sparse", 6, "worker failed");
  } catch (const Exception& e) {
    EXPECT_EQ(e.detailText(0), "worker failed");
  }
}
