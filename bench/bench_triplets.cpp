// Triplet assembly: Sparse::triplet2sparse against CXSparse's cs_dl_compress
// followed by cs_dl_dupl (64-bit indices) and Eigen's setFromTriplets (64- and
// 32-bit indices), on finite-element-like and random inputs.
//
// Inputs: 2-D bilinear quad meshes (16 triplets per element, every interior
// entry repeated up to four times) with ~1e6 and ~1e7 triplets, and uniformly
// random triplets with ~10 % repeats. Each benchmark reports ns per triplet.
//
// Before anything is timed on an input, the three results are compared once:
// CXSparse keeps the rows of a column in order of first appearance and sums
// duplicates in input order, as we do, so its arrays must equal ours bit for
// bit; Eigen sorts the rows of each column and sums in input order, so its
// arrays must equal ours with each column sorted by row.
//
// Eigen is compiled here with -O3 -march=native (flags of this target);
// CXSparse is Debian's build of the library.
//
//   bench/triplet_ratios.py     (medians and ratios), or by hand:
//   build/release/bench/bench_triplets --benchmark_repetitions=5
//       --benchmark_report_aggregates_only=true   (one command line)
#include <benchmark/benchmark.h>
#include <suitesparse/cs.h>

#include <Eigen/SparseCore>
#include <algorithm>
#include <bit>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
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

// CXSparse's triplet form of the input; it reads the arrays in place (size_t
// and its signed counterpart may alias).
cs_dl tripletForm(const Input& in) {
  cs_dl T{};
  T.nzmax = T.nz = static_cast<cs_long_t>(in.size());
  T.m = static_cast<cs_long_t>(in.m);
  T.n = static_cast<cs_long_t>(in.n);
  T.p = reinterpret_cast<cs_long_t*>(in.cols.data);
  T.i = reinterpret_cast<cs_long_t*>(in.rows.data);
  T.x = in.values.data;
  return T;
}

template <class Index>
std::vector<Eigen::Triplet<double, Index>> eigenTriplets(const Input& in) {
  std::vector<Eigen::Triplet<double, Index>> triplets;
  triplets.reserve(in.size());
  for (size_t k = 0; k < in.size(); ++k)
    triplets.emplace_back(static_cast<Index>(in.rows[k]), static_cast<Index>(in.cols[k]),
                          in.values[k]);
  return triplets;
}

// Empty when our result, CXSparse's and Eigen's agree on the input (see the
// top of the file), else what differs.
std::string compareWithPeers(const Input& in) {
  qvarray::Sparse A;
  A.triplet2sparse(in.rows, in.cols, qvarray::Vector(in.values), in.m, in.n);
  const size_t n = in.n, nnz = A.getNnz();
  const size_t* cp = A.getColPtr();
  const size_t* row = A.getRow();
  const double* val = A.getDoubleVal();

  const cs_dl T = tripletForm(in);
  cs_dl* C = cs_dl_compress(&T);
  if (!C || !cs_dl_dupl(C)) return "CXSparse failed";
  bool same = C->p[n] == static_cast<cs_long_t>(nnz);
  for (size_t j = 0; same && j <= n; ++j) same = C->p[j] == static_cast<cs_long_t>(cp[j]);
  for (size_t p = 0; same && p < nnz; ++p)
    same = C->i[p] == static_cast<cs_long_t>(row[p]) &&
           std::bit_cast<std::uint64_t>(C->x[p]) == std::bit_cast<std::uint64_t>(val[p]);
  cs_dl_spfree(C);
  if (!same) return "differs from CXSparse";

  const auto triplets = eigenTriplets<std::int64_t>(in);
  Eigen::SparseMatrix<double, Eigen::ColMajor, std::int64_t> E(in.m, in.n);
  E.setFromTriplets(triplets.begin(), triplets.end());
  if (static_cast<size_t>(E.nonZeros()) != nnz) return "nnz differs from Eigen";
  std::vector<std::pair<size_t, double>> column;
  for (size_t j = 0; j < n; ++j) {
    column.clear();
    for (size_t p = cp[j]; p < cp[j + 1]; ++p) column.emplace_back(row[p], val[p]);
    std::sort(column.begin(), column.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    size_t q = 0;
    for (Eigen::SparseMatrix<double, Eigen::ColMajor, std::int64_t>::InnerIterator it(E, j); it;
         ++it, ++q)
      if (q >= column.size() || static_cast<size_t>(it.row()) != column[q].first ||
          std::bit_cast<std::uint64_t>(it.value()) != std::bit_cast<std::uint64_t>(column[q].second))
        return "differs from Eigen in column " + std::to_string(j);
  }
  return {};
}

// Whether the results agree on the input, checked on first use.
bool agrees(benchmark::State& state, const Input& in) {
  static std::map<std::string, std::string> verdicts;
  auto it = verdicts.find(in.name);
  if (it == verdicts.end()) it = verdicts.emplace(in.name, compareWithPeers(in)).first;
  if (!it->second.empty()) state.SkipWithError(it->second.c_str());
  return it->second.empty();
}

void perTriplet(benchmark::State& state, const Input& in) {
  state.counters["ns_per_triplet"] = benchmark::Counter(
      static_cast<double>(in.size()) * 1e-9,
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.SetLabel(in.name);
}

void BM_Sparse(benchmark::State& state) {
  const Input& in = input(static_cast<int>(state.range(0)));
  if (!agrees(state, in)) return;
  const qvarray::Vector values(in.values);
  for (auto _ : state) {
    qvarray::Sparse A;
    A.triplet2sparse(in.rows, in.cols, values, in.m, in.n);
    benchmark::DoNotOptimize(A.getNnz());
  }
  perTriplet(state, in);
}

void BM_CXSparse(benchmark::State& state) {
  const Input& in = input(static_cast<int>(state.range(0)));
  if (!agrees(state, in)) return;
  const cs_dl T = tripletForm(in);
  for (auto _ : state) {
    cs_dl* C = cs_dl_compress(&T);
    cs_dl_dupl(C);
    benchmark::DoNotOptimize(C->p[in.n]);
    cs_dl_spfree(C);
  }
  perTriplet(state, in);
}

template <class Index>
void BM_Eigen(benchmark::State& state) {
  const Input& in = input(static_cast<int>(state.range(0)));
  if (!agrees(state, in)) return;
  const auto triplets = eigenTriplets<Index>(in);
  for (auto _ : state) {
    Eigen::SparseMatrix<double, Eigen::ColMajor, Index> A(static_cast<Index>(in.m),
                                                          static_cast<Index>(in.n));
    A.setFromTriplets(triplets.begin(), triplets.end());
    benchmark::DoNotOptimize(A.nonZeros());
  }
  perTriplet(state, in);
}

// Printed in the header of the output (and stored in its JSON context).
const bool kPeerBuilds = [] {
  benchmark::AddCustomContext("peers", "Eigen -O3 -march=native; CXSparse: Debian's libcxsparse");
  return true;
}();

void inputs(benchmark::internal::Benchmark* b) {
  for (int k = 0; k < 4; ++k) b->Arg(k);
  b->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK(BM_Sparse)->Apply(inputs);
BENCHMARK(BM_CXSparse)->Apply(inputs);
BENCHMARK_TEMPLATE(BM_Eigen, std::int64_t)->Apply(inputs);
BENCHMARK_TEMPLATE(BM_Eigen, int)->Apply(inputs);

}  // namespace
