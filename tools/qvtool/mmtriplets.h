#pragma once
// Reading a MatrixMarket "coordinate" file as a list of entries, for the
// subcommands that work on sparse systems (band, gmres). Symmetric,
// skew-symmetric and hermitian storage is expanded to both triangles;
// "pattern" entries read as 1; repeated positions are kept (users sum them).
#include <complex>
#include <cstddef>
#include <string>
#include <vector>

namespace qvtool {

struct Triplets {
  size_t rows = 0, cols = 0;
  bool complex = false;
  std::vector<int> row, col;  // 0-based
  std::vector<std::complex<double>> value;
};

/// Reads the file at `path`; raises std::runtime_error with a message naming
/// the file (and line) when it cannot be read or breaks the format.
Triplets readTriplets(const std::string& path);

}  // namespace qvtool
