// The library's exception: every constructor form and appended details as
// they render, lookups by name and position, and the derived kinds.
#include <gtest/gtest.h>

#include "qvutil/errinfo.h"
#include "qvutil/errors.h"
#include "qvutil/exception.h"

using qvbase::Exception;

TEST(Exception, EveryFormRendersKeyPlaceAndDetails) {
  const std::pair<Exception, const char*> forms[] = {
      {Exception("arrayutil", 12, "Singular_matrix"), "Singular_matrix (arrayutil:12)"},
      {Exception("m", 1, "K", "detail"), "K (m:1): detail"},
      {Exception("m", 1, "K", "one", "two"), "K (m:1): one; two"},
      {Exception("m", 1, "K", "Iteration", std::int64_t{7}), "K (m:1): Iteration = 7"},
      {Exception("m", 1, "K", qvbase::DetailPairs{{"Expression", "x+"}, {"Name", "x"}}),
       "K (m:1): Expression = x+; Name = x"},
  };
  for (const auto& [e, text] : forms) EXPECT_STREQ(e.what(), text);
  const Exception& a = forms[0].first;
  EXPECT_TRUE(a.module() == "arrayutil" && a.line() == 12 && a.key() == "Singular_matrix");
  const Exception& p = forms[4].first;
  EXPECT_TRUE(p.detail("Name") == "x" && !p.detail("Missing") && p.detailText(1) == "x");
  EXPECT_TRUE(p.detailText(2).empty() && forms[2].first.details()[1].first.empty());

  Exception e("sparse", 40, "Internal_error_sparse");
  e.add("Reallocation is needed.").add("Column", std::int64_t{3}).add("Name", "A");
  EXPECT_STREQ(e.what(),
               "Internal_error_sparse (sparse:40): Reallocation is needed.; Column = 3; Name = A");
}

TEST(Exception, BuiltFromErrInfoAndDerivedKinds) {
  qvbase::ErrInfo info("evaltree");
  info.add("message", "expreval");
  info.add("exprs", "sin(x)");
  ASSERT_TRUE(info.find("exprs") && *info.find("exprs") == "sin(x)");
  Exception e(info, 99, "Division_by_zero");
  EXPECT_TRUE(e.module() == "evaltree" && e.details() == info.pairs());
  const Exception cancel = qvbase::CancelException("gmres", 5);
  const Exception parallel = qvbase::ParallelException("sparse", 6, "worker failed");
  EXPECT_EQ(cancel.key(), "Operation_cancelled");
  EXPECT_EQ(parallel.detailText(0), "worker failed");
}

TEST(Exception, ComposedMessageKeysMapBackToTheirRegisteredKey) {
  using qvbase::ErrKey;
  try {
    QV_RAISE_TEXT(exprcomp, Output_lacks_definition, "2 lacks definition.", "Name", std::int64_t{2});
  } catch (const Exception& e) {
    EXPECT_TRUE(e.key() == "Output #2 lacks definition." && e.module() == "exprcomp");
  }
  const std::pair<const char*, int> lookups[] = {
      {"Duplicate input: x", static_cast<int>(ErrKey::Duplicate_input)},
      {"Compilation failed: Too many different constants.", static_cast<int>(ErrKey::Too_many_constants)},
      {"Sqrt_of_negative", static_cast<int>(ErrKey::Sqrt_of_negative)},
      {"Sqrt_of_negative_x", -1},  // identifier keys match whole texts only
      {"Duplicate input", -1},
  };
  for (const auto& [text, want] : lookups) {
    ErrKey key{};
    const bool found = qvbase::findErrorKey(text, key);
    EXPECT_EQ(found ? static_cast<int>(key) : -1, want) << text;
  }
  EXPECT_TRUE(qvbase::isMessageKey(ErrKey::Cyclic_dependency) && !qvbase::isMessageKey(ErrKey::Log_of_negative));
}
