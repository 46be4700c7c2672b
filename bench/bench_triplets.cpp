// Triplet assembly: Sparse::triplet2sparse against Eigen's setFromTriplets
// (64- and 32-bit indices) and a straightforward transcription of the hashed
// algorithm, on finite-element-like and random inputs.
//
// Inputs: 2-D bilinear quad meshes (16 triplets per element, every interior
// entry repeated up to four times) with ~1e6 and ~1e7 triplets, and uniformly
// random triplets with ~10 % repeats. Each benchmark reports ns per triplet;
// the Sparse benchmarks also report the mean and largest number of hash slots
// a triplet's probe examines.
//
//   build/release/bench/bench_triplets --benchmark_repetitions=5
//       --benchmark_report_aggregates_only=true   (one command line)
#include <benchmark/benchmark.h>

#include <Eigen/SparseCore>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "qvarray/sparse/sparse.h"

namespace {

struct Input {
  std::string name;
  size_t m = 0, n = 0;
  Array<size_t, 1> rows, cols;
  Array<double, 1> values;
  size_t size() const { return rows.count; }
};

// nx × ny bilinear quads on a lexicographically numbered grid, elements in
// row order; element matrices of the Laplacian scaled per element.
std::unique_ptr<Input> meshInput(size_t nx, size_t ny, const char* name) {
  auto in = std::make_unique<Input>();
  in->name = name;
  in->m = in->n = (nx + 1) * (ny + 1);
  const size_t count = nx * ny * 16;
  in->rows.resize(count);
  in->cols.resize(count);
  in->values.resize(count);
  const double K[4][4] = {{4, -1, -2, -1}, {-1, 4, -1, -2}, {-2, -1, 4, -1}, {-1, -2, -1, 4}};
  std::mt19937_64 g(1);
  std::uniform_real_distribution<double> u(0.5, 2.0);
  size_t k = 0;
  for (size_t ey = 0; ey < ny; ++ey)
    for (size_t ex = 0; ex < nx; ++ex) {
      const size_t n0 = ey * (nx + 1) + ex;
      const size_t node[4] = {n0, n0 + 1, n0 + nx + 2, n0 + nx + 1};
      const double s = u(g) / 6.0;
      for (int a = 0; a < 4; ++a)
        for (int b = 0; b < 4; ++b, ++k) {
          in->rows[k] = node[b];
          in->cols[k] = node[a];
          in->values[k] = s * K[b][a];
        }
    }
  return in;
}

// count triplets in an n×n matrix (n = count / 10): each is, with
// probability 0.1, a repeat of an earlier triplet's position, else uniform.
std::unique_ptr<Input> randomInput(size_t count, const char* name) {
  auto in = std::make_unique<Input>();
  in->name = name;
  in->m = in->n = count / 10;
  in->rows.resize(count);
  in->cols.resize(count);
  in->values.resize(count);
  std::mt19937_64 g(2);
  std::uniform_real_distribution<double> u(-1, 1);
  for (size_t k = 0; k < count; ++k) {
    if (k > 0 && g() % 10 == 0) {
      const size_t e = g() % k;
      in->rows[k] = in->rows[e];
      in->cols[k] = in->cols[e];
    } else {
      in->rows[k] = g() % in->m;
      in->cols[k] = g() % in->n;
    }
    in->values[k] = u(g);
  }
  return in;
}

const Input& input(int which) {
  static std::map<int, std::unique_ptr<Input>> cache;
  auto& slot = cache[which];
  if (!slot) {
    switch (which) {
      case 0: slot = meshInput(250, 250, "fe_1e6"); break;
      case 1: slot = meshInput(790, 791, "fe_1e7"); break;
      case 2: slot = randomInput(1000000, "random_1e6"); break;
      default: slot = randomInput(10000000, "random_1e7"); break;
    }
  }
  return *slot;
}

void perTriplet(benchmark::State& state, const Input& in) {
  state.counters["ns_per_triplet"] = benchmark::Counter(
      static_cast<double>(in.size()) * 1e-9,
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.SetLabel(in.name);
}

// Number of slots each triplet's probe sequence examines, by the documented
// rule (hash size, first slot key mod H, step H2 − key mod H2).
void probeStatistics(const Input& in, double& mean, size_t& largest) {
  const std::uint64_t H = qvarray::llsp_hashsize(in.size());
  const std::uint64_t H2 = H < 285349622 ? H - 2 : 285349621;
  std::vector<std::uint64_t> table(H, UINT64_MAX);  // holds keys (unique: m·n < 2^64 here)
  size_t total = 0;
  largest = 0;
  for (size_t k = 0; k < in.size(); ++k) {
    const std::uint64_t key = std::uint64_t(in.cols[k]) * in.m + in.rows[k];
    std::uint64_t s = key % H;
    size_t probes = 1;
    while (table[s] != UINT64_MAX && table[s] != key) {
      s = (s + H2 - key % H2) % H;
      ++probes;
    }
    table[s] = key;
    total += probes;
    largest = std::max(largest, probes);
  }
  mean = static_cast<double>(total) / static_cast<double>(in.size());
}

void BM_Sparse(benchmark::State& state) {
  const Input& in = input(static_cast<int>(state.range(0)));
  const qvarray::Vector values(in.values);
  for (auto _ : state) {
    qvarray::Sparse A;
    A.triplet2sparse(in.rows, in.cols, values, in.m, in.n);
    benchmark::DoNotOptimize(A.getNnz());
  }
  perTriplet(state, in);
  double mean;
  size_t largest;
  probeStatistics(in, mean, largest);
  state.counters["probes_mean"] = mean;
  state.counters["probes_max"] = static_cast<double>(largest);
  qvarray::Sparse A;
  A.triplet2sparse(in.rows, in.cols, values, in.m, in.n);
  state.counters["nnz"] = static_cast<double>(A.getNnz());
}

template <class Index>
void BM_Eigen(benchmark::State& state) {
  const Input& in = input(static_cast<int>(state.range(0)));
  std::vector<Eigen::Triplet<double, Index>> triplets;
  triplets.reserve(in.size());
  for (size_t k = 0; k < in.size(); ++k)
    triplets.emplace_back(static_cast<Index>(in.rows[k]), static_cast<Index>(in.cols[k]),
                          in.values[k]);
  for (auto _ : state) {
    Eigen::SparseMatrix<double, Eigen::ColMajor, Index> A(static_cast<Index>(in.m),
                                                          static_cast<Index>(in.n));
    A.setFromTriplets(triplets.begin(), triplets.end());
    benchmark::DoNotOptimize(A.nonZeros());
  }
  perTriplet(state, in);
}

// The hashed algorithm transcribed step by step: hardware division, a table
// of triplet indices compared through the input arrays, an ordinal array and
// the unfilled-row marker m.
void BM_Straightforward(benchmark::State& state) {
  const Input& in = input(static_cast<int>(state.range(0)));
  const size_t N = in.size(), m = in.m, n = in.n;
  for (auto _ : state) {
    const std::uint64_t H = qvarray::llsp_hashsize(N);
    const std::uint64_t H2 = H < 285349622 ? H - 2 : 285349621;
    std::vector<size_t> colptr(n + 1, 0), table(H, N), ordinal(N);
    for (size_t k = 0; k < N; ++k) {
      const std::uint64_t key = std::uint64_t(in.cols[k]) * m + in.rows[k];
      std::uint64_t s = key % H;
      while (table[s] < N && (in.rows[table[s]] != in.rows[k] || in.cols[table[s]] != in.cols[k]))
        s = (s + H2 - key % H2) % H;
      if (table[s] < N) {
        ordinal[k] = ordinal[table[s]];
      } else {
        table[s] = k;
        ordinal[k] = colptr[in.cols[k] + 1]++;
      }
    }
    for (size_t j = 0; j < n; ++j) colptr[j + 1] += colptr[j];
    std::vector<size_t> row(colptr[n], m);
    std::vector<double> value(colptr[n]);
    for (size_t k = 0; k < N; ++k) {
      const size_t p = colptr[in.cols[k]] + ordinal[k];
      if (row[p] == m) {
        row[p] = in.rows[k];
        value[p] = in.values[k];
      } else {
        value[p] += in.values[k];
      }
    }
    benchmark::DoNotOptimize(value.data());
  }
  perTriplet(state, in);
}

void inputs(benchmark::internal::Benchmark* b) {
  for (int k = 0; k < 4; ++k) b->Arg(k);
  b->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK(BM_Sparse)->Apply(inputs);
BENCHMARK_TEMPLATE(BM_Eigen, std::int64_t)->Apply(inputs);
BENCHMARK_TEMPLATE(BM_Eigen, int)->Apply(inputs);
BENCHMARK(BM_Straightforward)->Apply(inputs);

}  // namespace
