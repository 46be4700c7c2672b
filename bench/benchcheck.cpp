#include "benchcheck.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

namespace qvbench {

const Agreements& checked(const std::string& config, const std::function<Agreements()>& check) {
  static std::map<std::string, Agreements> done;
  auto it = done.find(config);
  if (it == done.end()) {
    it = done.emplace(config, check()).first;
    for (const auto& [impl, a] : it->second)
      if (!(a.diff <= a.tol))
        std::fprintf(stderr, "check failed: %s/%s differs from qvarray by %.3g (tolerance %.3g)\n",
                     config.c_str(), impl.c_str(), a.diff, a.tol);
  }
  return it->second;
}

bool agrees(benchmark::State& state, const Agreements& agreements, const std::string& impl) {
  const auto it = agreements.find(impl);
  if (it == agreements.end()) {
    state.SkipWithError(("no result check for " + impl).c_str());
    return false;
  }
  state.counters["diff"] = it->second.diff;
  state.counters["tol"] = it->second.tol;
  if (it->second.diff <= it->second.tol) return true;
  state.SkipWithError("result differs from qvarray's beyond the stated tolerance");
  return false;
}

double relDiff(const double* a, const double* b, size_t n, double scale) {
  double d = 0.0, m = 0.0;
  for (size_t i = 0; i < n; ++i) {
    if (std::isnan(a[i]) != std::isnan(b[i])) return std::numeric_limits<double>::infinity();
    if (std::isnan(a[i])) continue;
    if (a[i] != b[i]) d = std::max(d, std::abs(a[i] - b[i]));
    m = std::max(m, std::abs(b[i]));
  }
  if (d == 0.0) return 0.0;
  const double s = scale > 0.0 ? scale : m;
  return s > 0.0 ? d / s : std::numeric_limits<double>::infinity();
}

double bitDiff(const double* a, const double* b, size_t n) {
  if (std::memcmp(a, b, n * sizeof(double)) == 0) return 0.0;
  return std::max(relDiff(a, b, n), std::numeric_limits<double>::denorm_min());
}

}  // namespace qvbench
