// ValRepCache: keys, the parent cache, the set of names, the report.
#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "qvarray/expr/valrepcache.h"

using namespace qvarray;

TEST(ValRepCache, KeyIsNameWithThreeFlagBits) {
  ValRepCache cache;
  const auto x = std::make_shared<ValRep>(1.0);
  cache.setVar("x", 0x200 | 0x1 | 0x800, x);
  struct Row {
    unsigned flags;
    bool found;
  };
  for (const Row& row : {Row{0x200, true}, Row{0x200 | 0x4 | 0x100, true}, Row{0, false},
                         Row{0x400 | 0x200, false}, Row{0x2000 | 0x200, false}}) {
    EXPECT_EQ(cache.hasVar("x", row.flags), row.found) << row.flags;
    EXPECT_EQ(cache.getVar("x", row.flags).second == x, row.found) << row.flags;
  }
  const auto y = std::make_shared<ValRep>(2.0);
  cache.setVar("x", 0x200, y);  // replaces
  EXPECT_EQ(cache.getVar("x", 0x200).second, y);
  cache.reset();
  EXPECT_FALSE(cache.hasVar("x", 0x200));
}

TEST(ValRepCache, ParentSuppliesListedNamesThatAreNotNaN) {
  auto parent = std::make_shared<ValRepCache>();
  parent->setVar("a", 0x400, std::make_shared<ValRep>(3.0));
  parent->setVar("n", 0x400, ValRep::makeNaN());
  parent->setVar("u", 0x400, std::make_shared<ValRep>(4.0));
  ValRepCache child;
  child.setParentCache(parent, {"a", "n", "missing"}, 0x400);
  EXPECT_TRUE(child.hasVar("a", 0));
  EXPECT_EQ(child.getVar("a", 0).second->getDouble(), 3.0);
  EXPECT_FALSE(child.hasVar("n", 0));
  EXPECT_FALSE(child.hasVar("u", 0));  // not listed
  EXPECT_FALSE(child.hasVar("missing", 0));
  child.setVar("a", 0, std::make_shared<ValRep>(5.0));  // own entries first
  EXPECT_EQ(child.getVar("a", 0).second->getDouble(), 5.0);
}

TEST(ValRepCache, ReportAndNames) {
  auto alloc = std::make_shared<SerialArrayAllocator>(4, 100);
  ValRepCache cache(alloc);
  cache.setVar("zeta", 0, ValRep::makeZero());
  cache.setVar("alpha", 0x200, ValRep::makeZero());
  cache.setVar("alpha", 0x400, ValRep::makeZero());
  cache.setBVar("b1");
  cache.setBVar("b2");
  cache.setBVar("b1");
  std::ostringstream out;
  cache.report(out);
  EXPECT_EQ(out.str(),
            "\nThe following variable names are stored in cache:\n"
            "=================================================\n"
            "alpha\nzeta\n");
  EXPECT_EQ(std::set<std::string>(cache.bvarsBegin(), cache.bvarsEnd()),
            (std::set<std::string>{"b1", "b2"}));
  EXPECT_EQ(cache.getEmpty()->getAllocatorBlockSize(), 4);
  EXPECT_EQ(ValRepCache().getEmpty()->getAllocator(), nullptr);
}
