// Interpolation data files: both formats read back what was written (grid
// detection of column files in any row order, comments and separators), and
// every malformed file is refused at the right line.
#include <gtest/gtest.h>

#include <string>

#include "qvarray/interp/interpfilereader.h"
#include "qvtest.h"

namespace {

using qvarray::InterpData;
using qvarray::InterpFileReader;
using qvarray::InterpMethod;

TEST(InterpFile, ColumnsForAGridInAnyOrder) {
  // f = x + 10y and g = xy on {0, 1, 3} x {-1, 2}, rows shuffled.
  const InterpData d = InterpFileReader(2).parse(
      "% x y f g\n"
      "3 2 23 6\n"
      "0 -1, -10, 0   % comma separated\n"
      "\n"
      "1;2;21;2\r\n"
      "1 -1 -9 -1\n"
      "0 2 20 0\n"
      "3 -1 -7 -3\n",
      "t");
  ASSERT_TRUE(d.grid);
  EXPECT_EQ(d.axes, (std::vector<std::vector<double>>{{0, 1, 3}, {-1, 2}}));
  for (size_t i = 0; i < 3; ++i)
    for (size_t j = 0; j < 2; ++j) {
      const double x = d.axes[0][i], y = d.axes[1][j];
      EXPECT_EQ(d.values(i + 3 * j, 0), x + 10 * y);
      EXPECT_EQ(d.values(i + 3 * j, 1), x * y);
    }
}

TEST(InterpFile, GridFileAndOneDimensionalColumns) {
  const InterpData g = InterpFileReader().parse(
      "% a grid of 3 x 2 nodes\n% GRID \n0 1 2\n0 10\n% Data\n1 2 3\n4 5 6\n%data\n6 5 4 3 2 1\n", "t");
  ASSERT_TRUE(g.grid);
  EXPECT_EQ(g.dim, 2);
  EXPECT_EQ(g.values(4, 0), 5.0);
  EXPECT_EQ(g.values(4, 1), 2.0);
  // 1-D columns, D from the columns: a cubic through 5 points is exact.
  const InterpData c = InterpFileReader().parse("0 0\n1 1\n2 8\n3 27\n4 64\n", "t");
  ASSERT_TRUE(c.grid);
  double x = 2.5, v = 0;
  const double* coords[] = {&x};
  c.interpolator(InterpMethod::CubicSpline).evaluate(coords, 1, &v);
  EXPECT_NEAR(v, 15.625, 1e-12);
}

TEST(InterpFile, MalformedFilesNameTheLine) {
  struct Case {
    const char* text;
    int dim;
    const char* line;
    const char* sentence;
  };
  const Case cases[] = {
      {"1 2\n3 x\n", 0, "2", "'x' is not a number."},
      {"1 2\n3 1e999\n", 0, "2", "The number '1e999' is out of range."},
      {"1 2\n3 nan\n", 0, "2", "The number 'nan' is not finite."},
      {"% nothing\n\n", 0, "2", "The file holds no data."},
      {"1 2\n3 4 5\n", 0, "2", "Expected 2 numbers on the line, as on line 1; found 3."},
      {"1 2\n", 2, "1", "A data line holds 2 coordinates and at least one value; found 2 numbers."},
      {"1 2 3 4 5\n", 0, "1", "A data line holds 1 to 3 coordinates; found 5 numbers (give the number of coordinates)."},
      {"0 1\n1 2\n0 3\n", 1, "3", "The point repeats the point of line 1."},
      {"%grid\n0 1\n% data\n1 2\n%grid\n", 0, "5", "A second '% Grid' line."},
      {"%grid\n% data\n1 2\n", 0, "2", "'% Data' before any grid line."},
      {"%grid\n0 1\n0 1\n0 1\n0 1\n", 0, "5", "A grid has at most 3 axes."},
      {"%grid\n0\n", 0, "2", "A grid axis needs at least 2 coordinates."},
      {"%grid\n0 2 1\n", 0, "2", "Grid coordinates must be strictly increasing (coordinate 3)."},
      {"%grid\n0 1\n0 1\n% data\n1 2\n3 4\n5\n", 0, "7", "More values than the 4 grid nodes."},
      {"%grid\n0 1\n", 0, "2", "The file has no '% Data' section."},
      {"%grid\n0 1\n% data\n1\n", 0, "4", "Function 1 has 1 of the 2 values of the grid."},
      {"%grid\n0 1\n0 1\n% data\n1 2 3 4\n", 1, "1", "The grid has 2 axes; expected 1."},
  };
  int row = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE("case " + std::to_string(row++));
    const qvbase::Exception e = qvtest::expectThrowKey([&] { InterpFileReader(c.dim).parse(c.text, "f.txt"); },
                                                       "Invalid_interpolation_file", c.sentence);
    EXPECT_EQ(e.detail("Line").value_or(""), c.line);
    EXPECT_EQ(e.detail("File").value_or(""), "f.txt");
  }
  qvtest::expectThrowKey([] { InterpFileReader().read("/nonexistent/interp.txt"); }, "Cannot_open_file");
  qvtest::expectThrowKey([] { InterpFileReader(4); }, "Invalid_interpolation_argument", "4");
}

}  // namespace
