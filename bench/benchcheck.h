#pragma once
// Result checks shared by the benchmark programs.
//
// Every configuration of a benchmark (a kernel and a length, a matrix and a
// product, ...) is checked once, before anything of it is timed: a check
// function runs each implementation once on the configuration's data and
// returns, per implementation, its difference to the library's output and the
// tolerance stated for it (0: bit for bit). The first benchmark of the
// configuration to run calls it; every benchmark then reports its difference
// as counter "diff" beside the stated "tol", and a benchmark whose difference
// exceeds the tolerance is skipped with an error instead of being timed.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <functional>
#include <map>
#include <string>

namespace qvbench {

struct Agreement {
  double diff = 0.0;  ///< difference to the library's output
  double tol = 0.0;   ///< stated tolerance; 0 asks for the same bits
};
/// Agreements of one configuration, by implementation name.
using Agreements = std::map<std::string, Agreement>;

/// The agreements of `config`: `check` runs on the first call, later calls
/// return its result.
const Agreements& checked(const std::string& config, const std::function<Agreements()>& check);

/// Reports impl's agreement as counters diff and tol. Returns false, having
/// skipped the benchmark with an error, when impl disagrees with the library
/// (or was not checked).
bool agrees(benchmark::State& state, const Agreements& agreements, const std::string& impl);

/// max_i |a_i − b_i| / max_i |b_i| (or / scale when given): 0 when equal,
/// infinity for a NaN on one side only.
double relDiff(const double* a, const double* b, size_t n, double scale = 0.0);
/// As relDiff, but 0 only for the same bits; a difference in bits alone
/// (−0 and +0, NaN payloads) counts as the smallest positive double.
double bitDiff(const double* a, const double* b, size_t n);

}  // namespace qvbench
