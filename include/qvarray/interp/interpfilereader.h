#pragma once
// InterpFileReader: the data files of interpolation functions.
//
// Two text formats. In both, '%' starts a comment that runs to the end of
// the line, blank lines are ignored, numbers are separated by blanks, tabs,
// commas or semicolons and are read in the C locale whatever the process's
// locale (decimal point '.', exponents, "inf" and "nan" are read but refused
// as data).
//
// Spreadsheet (columns): one data point per line, its D coordinates and
// then the values of the F functions (F >= 1), the same number of columns on
// every line. With D = 0 the reader takes every column but the last as a
// coordinate. When the coordinates form a complete grid (every combination
// of the distinct values of each coordinate exactly once, in any order) the
// data are grid data, else scattered points (D = 2, 3). In 1-D the points
// always form a grid; a repeated coordinate is an error.
//
//   % T [K]   k [W/(m K)]
//   300       148
//   400       98.9
//
// Grid: the line "% Grid" (any case) opens the grid: one line per axis (1 to
// 3) with its strictly increasing coordinates. Each line "% Data" opens the
// values of one function: one number per grid node, first axis fastest,
// laid out over lines as one likes (say a line per row of the first axis).
//
//   % Grid
//   0 1 2
//   0 10
//   % Data
//   1 2 3
//   4 5 6
//
// Every format error raises "Invalid_interpolation_file" (module
// "interputil") with a sentence, ("File", name) and ("Line", n), the line at
// fault (or the last line, for what is missing at the end); files that cannot
// be opened or read raise "Cannot_open_file" / "Cannot_read_file". Reading
// takes time linear in the file's size (plus a sort of each coordinate).
#include <string>
#include <string_view>
#include <vector>

#include "qvarray/array.h"
#include "qvarray/export.h"
#include "qvarray/interp/interpolator.h"

namespace qvarray {

/// Interpolation data as a file holds them.
struct QVARRAY_API InterpData {
  int dim = 0;
  bool grid = false;
  /// Grid data: the axes; values then has a row per node, first axis fastest.
  std::vector<std::vector<double>> axes;
  /// Scattered data: a row per point, a column per coordinate.
  Array<double, 2> points;
  /// A column per function.
  Array<double, 2> values;

  /// The interpolator of the data with `method`.
  Interpolator interpolator(InterpMethod method,
                            InterpExtrapolation extrapolation = InterpExtrapolation::Constant) const;
};

class QVARRAY_API InterpFileReader {
 public:
  /// `dim`: the coordinates of a spreadsheet file (1 to 3), or 0 for every
  /// column but the last; a grid file has its own, and a grid of another
  /// dimension than a nonzero `dim` is refused.
  explicit InterpFileReader(int dim = 0);

  /// Reads the file at `path`.
  InterpData read(const std::string& path) const;
  /// Reads text held in memory; `name` stands for the file in errors.
  InterpData parse(std::string_view text, const std::string& name) const;

 private:
  int dim_;
};

}  // namespace qvarray
