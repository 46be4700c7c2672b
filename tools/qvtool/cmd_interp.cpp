// qvtool interp: reads an interpolation data file and prints the interpolated
// values (or a derivative) at the points given on the command line.
#include <cmath>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "commands.h"
#include "qvarray/interp/interpfilereader.h"
#include "qvutil/numeric.h"
#include "toolutil.h"

namespace {

constexpr const char* kNames[] = {"x", "y", "z"};

// "x=1.5,y=2" or "1.5,2": the coordinates of one point, in order.
std::vector<double> parsePoint(std::string_view text) {
  std::vector<double> point;
  while (true) {
    const size_t comma = text.find(',');
    std::string_view part = text.substr(0, comma);
    const size_t eq = part.find('=');
    if (eq != std::string_view::npos) {
      const std::string_view name = part.substr(0, eq);
      if (point.size() >= 3 || name != kNames[point.size()])
        throw qvtool::UsageError("--at: coordinate '" + std::string(name) + "' out of order (x, y, z)");
      part.remove_prefix(eq + 1);
    }
    double v = 0;
    if (qvutil::scanDouble(part, v) != qvutil::NumberScan::Ok || !std::isfinite(v))
      throw qvtool::UsageError("--at: '" + std::string(part) + "' is not a finite number");
    point.push_back(v);
    if (comma == std::string_view::npos) return point;
    text.remove_prefix(comma + 1);
  }
}

int run(int argc, char** argv) {
  std::string path, method = "linear", extrapolation = "const", deriv;
  std::vector<std::vector<double>> at;
  long dim = 0;
  qvtool::Arguments args(argc, argv);
  while (args.next()) {
    if (args.is("--method")) method = args.value();
    else if (args.is("--extrapolation")) extrapolation = args.value();
    else if (args.is("--dim")) dim = args.integer(1, 3);
    else if (args.is("--deriv")) deriv = args.value();
    else if (args.is("--at")) at.push_back(parsePoint(args.value()));
    else args.positional(path);
  }
  qvtool::Arguments::require(path, "data file");
  if (at.empty()) throw qvtool::UsageError("no point given (--at x=...)");
  for (const auto& p : at)
    if (p.size() != at.front().size() || p.size() > 3)
      throw qvtool::UsageError("--at: every point needs the same 1 to 3 coordinates");
  const size_t D = dim ? static_cast<size_t>(dim) : at.front().size();
  if (at.front().size() != D)
    throw qvtool::UsageError("--at: the points have " + std::to_string(at.front().size()) +
                             " coordinates, --dim says " + std::to_string(D));
  int derivAxis = -1;
  for (int d = 0; d < static_cast<int>(D); ++d)
    if (deriv == kNames[d]) derivAxis = d;
  if (!deriv.empty() && derivAxis < 0)
    throw qvtool::UsageError("--deriv: '" + deriv + "' is not a coordinate of the points");

  const qvarray::InterpMethod m = qvarray::interpMethodByName(method);
  const qvarray::InterpExtrapolation e = qvarray::interpExtrapolationByName(extrapolation);
  const qvarray::InterpData data = qvarray::InterpFileReader(static_cast<int>(D)).read(path);
  const qvarray::Interpolator f = data.interpolator(m, e);

  Array<double, 2> points(at.size(), D);
  for (size_t p = 0; p < at.size(); ++p)
    for (size_t d = 0; d < D; ++d) points(p, d) = at[p][d];
  const Array<double, 2> values = f.evaluate(points, derivAxis);
  std::cout << (data.grid ? "Grid" : "Scattered") << " data, " << D << "-D, "
            << f.functionCount() << (f.functionCount() == 1 ? " function" : " functions")
            << ", method " << method << ", extrapolation " << extrapolation;
  if (derivAxis >= 0) std::cout << ", derivative along " << deriv;
  std::cout << "\n";
  for (size_t p = 0; p < at.size(); ++p) {
    for (size_t d = 0; d < D; ++d)
      std::cout << (d ? ", " : "") << kNames[d] << " =" << qvtool::formatValue(points(p, d));
    std::cout << ":";
    for (size_t k = 0; k < values.size(1); ++k) std::cout << " " << qvtool::formatValue(values(p, k));
    std::cout << "\n";
  }
  std::cout.flush();
  return 0;
}

}  // namespace

const qvtool::Command qvtool::interpCommand = {
    "interp", run, "interpolate the data of a file at given points",
    "qvtool interp FILE --at x=X[,y=Y[,z=Z]] [--at ...] [--method M] [--extrapolation E]\n"
    "                    [--dim D] [--deriv x|y|z]",
    "Reads interpolation data (columns: coordinates then values, or a '% Grid'\n"
    "file) and prints each function's interpolated value at every point.\n"
    "  --at x=1,y=2      a point (names optional: --at 1,2); repeat for more\n"
    "  --method M        linear (default), neighbor, cubicspline, piecewisecubic\n"
    "  --extrapolation E const (default), linear, nan, error\n"
    "  --dim D           coordinates in a column file (default: those of --at)\n"
    "  --deriv x         print the derivative along x (y, z) instead\n"};
