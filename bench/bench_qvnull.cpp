// qvNull on 10⁶ unknowns with 1 % of them constrained (10⁴ constraints): time
// and fill nnz(N)/n of the orthonormal and the sparse method, and of "auto".
//
// Constraint sets:
// - "mixed": 40 % fixed values u_s = g, 40 % ties u_s = u_b, 20 % multi-point
//   constraints u_s = Σ_{k<4} a_k·u_{b_k}; masters drawn at random, so the
//   blocks are mostly single constraints.
// - "coupled": 100 blocks of 100 constraints u_s = Σ_{k<3} a_k·u_{m_k} whose
//   masters come from a pool of 20 unknowns per block (blocks of 100 rows and
//   120 unknowns, null dimension 20 per block).
//
// Peer: the orthonormal method written with Eigen (the same blocks by union
// find, each block's dense matrix by Eigen's BDCSVD with the full V, N
// assembled by setFromTriplets), measured in the same run. Counters: fill =
// nnz(N)/n, rank, blocks and SVD blocks. BM_ReduceMatrix times Nᴴ·K·N for the
// 5-point operator of a 1000 × 1000 grid.
//
//   build/release/bench/bench_qvnull --benchmark_min_time=0.5
#include <benchmark/benchmark.h>

#include <Eigen/Dense>
#include <Eigen/SparseCore>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "qvarray/sparse/qvnull.h"
#include "qvarray/sparse/qvnullreduce.h"
#include "qvarray/sparse/sparse.h"

namespace {

using qvarray::NullFun;
using qvarray::Sparse;

constexpr size_t kUnknowns = 1000000;
constexpr size_t kConstraints = kUnknowns / 100;

struct ConstraintSet {
  std::vector<size_t> rows, cols;
  std::vector<double> values;
  Sparse B;
};

// Distinct random unknowns: the first `count` of a random permutation.
std::vector<size_t> distinctUnknowns(size_t count, std::mt19937_64& g) {
  std::vector<size_t> p(kUnknowns);
  std::iota(p.begin(), p.end(), size_t(0));
  for (size_t k = 0; k < count; ++k) std::swap(p[k], p[k + g() % (kUnknowns - k)]);
  p.resize(count);
  return p;
}

std::unique_ptr<ConstraintSet> mixedSet() {
  auto c = std::make_unique<ConstraintSet>();
  std::mt19937_64 g(1);
  std::uniform_real_distribution<double> a(0.1, 1.0);
  const std::vector<size_t> slave = distinctUnknowns(kConstraints, g);
  auto add = [&](size_t i, size_t j, double v) {
    c->rows.push_back(i), c->cols.push_back(j), c->values.push_back(v);
  };
  for (size_t i = 0; i < kConstraints; ++i) {
    add(i, slave[i], 1.0);
    const size_t masters = i < 4 * kConstraints / 10 ? 0 : i < 8 * kConstraints / 10 ? 1 : 4;
    for (size_t k = 0; k < masters; ++k) {
      size_t b;
      do b = g() % kUnknowns;
      while (b == slave[i]);
      add(i, b, masters == 1 ? -1.0 : -a(g));
    }
  }
  c->B.vectorTripletToSparse(c->rows, c->cols, c->values, kConstraints, kUnknowns);
  return c;
}

std::unique_ptr<ConstraintSet> coupledSet() {
  auto c = std::make_unique<ConstraintSet>();
  std::mt19937_64 g(2);
  std::uniform_real_distribution<double> a(0.1, 1.0);
  const size_t blocks = 100, perBlock = kConstraints / blocks, pool = 20;
  const std::vector<size_t> u = distinctUnknowns(blocks * (perBlock + pool), g);
  for (size_t b = 0; b < blocks; ++b) {
    const size_t* slaves = &u[b * (perBlock + pool)];
    const size_t* masters = slaves + perBlock;
    for (size_t s = 0; s < perBlock; ++s) {
      const size_t i = b * perBlock + s;
      c->rows.push_back(i), c->cols.push_back(slaves[s]), c->values.push_back(1.0);
      const size_t first = g() % pool;
      for (size_t k = 0; k < 3; ++k) {
        c->rows.push_back(i);
        c->cols.push_back(masters[(first + k * 7) % pool]);
        c->values.push_back(-a(g));
      }
    }
  }
  c->B.vectorTripletToSparse(c->rows, c->cols, c->values, kConstraints, kUnknowns);
  return c;
}

const ConstraintSet& constraintSet(int which) {
  static std::unique_ptr<ConstraintSet> sets[2];
  if (!sets[which]) sets[which] = which == 0 ? mixedSet() : coupledSet();
  return *sets[which];
}

void BM_QvNull(benchmark::State& state) {
  const ConstraintSet& c = constraintSet(static_cast<int>(state.range(0)));
  qvarray::NullOptions o;
  o.nullfun = static_cast<NullFun>(state.range(1));
  qvarray::NullSpace ns;
  for (auto _ : state) {
    ns = qvarray::qvNull(c.B, o);
    benchmark::DoNotOptimize(ns.N.getNnz());
  }
  state.counters["fill"] = static_cast<double>(ns.N.getNnz()) / static_cast<double>(kUnknowns);
  state.counters["rank"] = static_cast<double>(ns.rank);
  state.counters["blocks"] = static_cast<double>(ns.blocks);
  state.counters["svdBlocks"] = static_cast<double>(ns.svdBlocks);
  state.SetLabel(std::string(state.range(0) == 0 ? "mixed " : "coupled ") +
                 qvarray::nullFunName(o.nullfun));
}

// The orthonormal method with Eigen: blocks by union find over the rows of
// each column, BDCSVD per block, null columns gathered as triplets.
size_t root(std::vector<size_t>& parent, size_t i) {
  while (parent[i] != i) i = parent[i] = parent[parent[i]];
  return i;
}

void BM_EigenOrthNull(benchmark::State& state) {
  const ConstraintSet& c = constraintSet(static_cast<int>(state.range(0)));
  using SpMat = Eigen::SparseMatrix<double, Eigen::ColMajor, std::int64_t>;
  SpMat B(kConstraints, kUnknowns);
  {
    std::vector<Eigen::Triplet<double, std::int64_t>> t;
    for (size_t k = 0; k < c.rows.size(); ++k) t.emplace_back(c.rows[k], c.cols[k], c.values[k]);
    B.setFromTriplets(t.begin(), t.end());
  }
  SpMat N;
  for (auto _ : state) {
    std::vector<size_t> parent(kConstraints);
    std::iota(parent.begin(), parent.end(), size_t(0));
    for (Eigen::Index j = 0; j < B.outerSize(); ++j) {
      SpMat::InnerIterator it(B, j);
      if (!it) continue;
      const size_t r0 = root(parent, it.row());
      for (++it; it; ++it) parent[root(parent, it.row())] = r0;
    }
    // Rows and unknowns of every block.
    std::vector<std::vector<size_t>> rowsOf(kConstraints), colsOf(kConstraints);
    for (size_t i = 0; i < kConstraints; ++i) rowsOf[root(parent, i)].push_back(i);
    std::vector<size_t> blockOfCol(kUnknowns, SIZE_MAX), local(kUnknowns, 0);
    for (Eigen::Index j = 0; j < B.outerSize(); ++j) {
      SpMat::InnerIterator it(B, j);
      if (!it) continue;
      const size_t b = root(parent, it.row());
      blockOfCol[j] = b;
      local[j] = colsOf[b].size();
      colsOf[b].push_back(j);
    }
    const SpMat Bt = B.transpose();  // rows of B as columns
    std::vector<Eigen::Triplet<double, std::int64_t>> t;
    t.reserve(kUnknowns + 10 * kConstraints);
    std::int64_t col = 0;
    for (size_t j = 0; j < kUnknowns; ++j)
      if (blockOfCol[j] == SIZE_MAX) t.emplace_back(j, col++, 1.0);
    for (size_t b = 0; b < kConstraints; ++b) {
      if (colsOf[b].empty()) continue;
      Eigen::MatrixXd A = Eigen::MatrixXd::Zero(rowsOf[b].size(), colsOf[b].size());
      for (size_t li = 0; li < rowsOf[b].size(); ++li)
        for (SpMat::InnerIterator it(Bt, rowsOf[b][li]); it; ++it)
          A(li, local[it.row()]) = it.value();
      Eigen::BDCSVD<Eigen::MatrixXd> svd(A, Eigen::ComputeFullV);
      const auto& s = svd.singularValues();
      Eigen::Index r = 0;
      while (r < s.size() && s[r] > 1e-10 * s[0]) ++r;
      const Eigen::MatrixXd& V = svd.matrixV();
      for (Eigen::Index k = r; k < V.cols(); ++k, ++col)
        for (Eigen::Index q = 0; q < V.rows(); ++q)
          if (V(q, k) != 0) t.emplace_back(colsOf[b][q], col, V(q, k));
    }
    N.resize(kUnknowns, col);
    N.setFromTriplets(t.begin(), t.end());
    benchmark::DoNotOptimize(N.nonZeros());
  }
  state.counters["fill"] = static_cast<double>(N.nonZeros()) / static_cast<double>(kUnknowns);
  state.SetLabel(state.range(0) == 0 ? "mixed Eigen orth" : "coupled Eigen orth");
}

// Nᴴ·K·N for the 5-point operator of a 1000 × 1000 grid.
void BM_ReduceMatrix(benchmark::State& state) {
  const ConstraintSet& c = constraintSet(static_cast<int>(state.range(0)));
  qvarray::NullOptions o;
  o.nullfun = static_cast<NullFun>(state.range(1));
  const qvarray::NullSpace ns = qvarray::qvNull(c.B, o);
  const size_t side = 1000;
  std::vector<size_t> ri, ci;
  std::vector<double> v;
  for (size_t y = 0; y < side; ++y)
    for (size_t x = 0; x < side; ++x) {
      const size_t i = x + side * y;
      ri.push_back(i), ci.push_back(i), v.push_back(4.0);
      if (x > 0) ri.push_back(i), ci.push_back(i - 1), v.push_back(-1.0);
      if (x + 1 < side) ri.push_back(i), ci.push_back(i + 1), v.push_back(-1.0);
      if (y > 0) ri.push_back(i), ci.push_back(i - side), v.push_back(-1.0);
      if (y + 1 < side) ri.push_back(i), ci.push_back(i + side), v.push_back(-1.0);
    }
  Sparse K;
  K.vectorTripletToSparse(ri, ci, v, kUnknowns, kUnknowns);
  Sparse A;
  for (auto _ : state) {
    A = qvarray::reduceMatrix(ns, K);
    benchmark::DoNotOptimize(A.getNnz());
  }
  state.counters["nnzK"] = static_cast<double>(K.getNnz());
  state.counters["nnzReduced"] = static_cast<double>(A.getNnz());
  state.SetLabel(std::string(state.range(0) == 0 ? "mixed " : "coupled ") +
                 qvarray::nullFunName(o.nullfun));
}

constexpr int kOrth = static_cast<int>(NullFun::Orth);
constexpr int kSparse = static_cast<int>(NullFun::Sparse);
constexpr int kAuto = static_cast<int>(NullFun::Auto);

}  // namespace

BENCHMARK(BM_QvNull)
    ->ArgsProduct({{0, 1}, {kOrth, kSparse, kAuto}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_EigenOrthNull)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ReduceMatrix)
    ->ArgsProduct({{0, 1}, {kOrth, kSparse}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
