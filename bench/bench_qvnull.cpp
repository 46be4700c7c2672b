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
// nnz(N)/n, rank, blocks and SVD blocks. reduce/... times Nᴴ·K·N for the
// 5-point operator K of a 1000 × 1000 grid, by the library and by Eigen's
// sparse products on the same N and K.
//
// Names: qvnull/<set>/<method>/<impl> (impl qvarray, or eigen for the
// orthonormal method), reduce/<set>/<method>/<impl>.
//
// Checks (once per set and method, before timing): every null-space basis
// has the dimension of Eigen's, and spans the same space: for a random w and
// v = N·w, the orthogonal projection onto Eigen's orthonormal basis moves v
// by at most 1e-10·‖v‖. The reduced matrices of the library and Eigen agree
// on a random vector within 1e-12 of the largest entry of the product.
//
//   build/release/bench/bench_qvnull --benchmark_min_time=0.5
#include <benchmark/benchmark.h>

#include <Eigen/Dense>
#include <Eigen/SparseCore>
#include <memory>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "benchcheck.h"
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

// The orthonormal method with Eigen: blocks by union find over the rows of
// each column, BDCSVD per block, null columns gathered as triplets.
size_t root(std::vector<size_t>& parent, size_t i) {
  while (parent[i] != i) i = parent[i] = parent[parent[i]];
  return i;
}

using SpMat = Eigen::SparseMatrix<double, Eigen::ColMajor, std::int64_t>;

SpMat eigenConstraints(const ConstraintSet& c) {
  SpMat B(kConstraints, kUnknowns);
  std::vector<Eigen::Triplet<double, std::int64_t>> t;
  for (size_t k = 0; k < c.rows.size(); ++k) t.emplace_back(c.rows[k], c.cols[k], c.values[k]);
  B.setFromTriplets(t.begin(), t.end());
  return B;
}

SpMat eigenOrthNull(const SpMat& B) {
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
  SpMat N(kUnknowns, col);
  N.setFromTriplets(t.begin(), t.end());
  return N;
}

// A real Sparse as an Eigen matrix (a copy).
SpMat toEigen(const Sparse& A) {
  SpMat E(static_cast<Eigen::Index>(A.getM()), static_cast<Eigen::Index>(A.getN()));
  E.resizeNonZeros(static_cast<Eigen::Index>(A.getNnz()));
  for (size_t j = 0; j <= A.getN(); ++j)
    E.outerIndexPtr()[j] = static_cast<std::int64_t>(A.getColPtr()[j]);
  for (size_t q = 0; q < A.getNnz(); ++q) {
    E.innerIndexPtr()[q] = static_cast<std::int64_t>(A.getRow()[q]);
    E.valuePtr()[q] = A.getDoubleVal()[q];
  }
  return E;
}

Eigen::VectorXd randomVector(Eigen::Index n) {
  std::mt19937_64 g(7);
  std::uniform_real_distribution<double> d(-1.0, 1.0);
  Eigen::VectorXd w(n);
  for (Eigen::Index i = 0; i < n; ++i) w[i] = d(g);
  return w;
}

// How far span(N) is from span(E), E orthonormal of the same dimension:
// ‖E·Eᵀ·v − v‖ / ‖v‖ for v = N·w.
double spanDiff(const SpMat& N, const SpMat& E) {
  if (N.rows() != E.rows() || N.cols() != E.cols()) return std::numeric_limits<double>::infinity();
  const Eigen::VectorXd v = N * randomVector(N.cols());
  const Eigen::VectorXd Ev = E.transpose() * v;
  const Eigen::VectorXd p = E * Ev;
  return (p - v).norm() / v.norm();
}

const std::string kSetName[] = {"mixed", "coupled"};

bool checkedNull(benchmark::State& state, int set, NullFun f, const std::string& impl) {
  const std::string config = kSetName[set] + "/" + qvarray::nullFunName(f);
  const auto& agreements = qvbench::checked(config, [&] {
    const ConstraintSet& c = constraintSet(set);
    qvarray::NullOptions o;
    o.nullfun = f;
    const SpMat E = eigenOrthNull(eigenConstraints(c));
    const double diff = spanDiff(toEigen(qvarray::qvNull(c.B, o).N), E);
    return qvbench::Agreements{{"qvarray", {diff, 1e-10}}, {"eigen", {diff, 1e-10}}};
  });
  return qvbench::agrees(state, agreements, impl);
}

void BM_QvNull(benchmark::State& state, int set, NullFun f) {
  if (!checkedNull(state, set, f, "qvarray")) return;
  const ConstraintSet& c = constraintSet(set);
  qvarray::NullOptions o;
  o.nullfun = f;
  qvarray::NullSpace ns;
  for (auto _ : state) {
    ns = qvarray::qvNull(c.B, o);
    benchmark::DoNotOptimize(ns.N.getNnz());
  }
  state.counters["fill"] = static_cast<double>(ns.N.getNnz()) / static_cast<double>(kUnknowns);
  state.counters["rank"] = static_cast<double>(ns.rank);
  state.counters["blocks"] = static_cast<double>(ns.blocks);
  state.counters["svdBlocks"] = static_cast<double>(ns.svdBlocks);
}

void BM_EigenOrthNull(benchmark::State& state, int set) {
  if (!checkedNull(state, set, NullFun::Orth, "eigen")) return;
  const SpMat B = eigenConstraints(constraintSet(set));
  SpMat N;
  for (auto _ : state) {
    N = eigenOrthNull(B);
    benchmark::DoNotOptimize(N.nonZeros());
  }
  state.counters["fill"] = static_cast<double>(N.nonZeros()) / static_cast<double>(kUnknowns);
}

// The 5-point operator of a 1000 × 1000 grid.
const Sparse& gridOperator() {
  static const Sparse K = [] {
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
    Sparse A;
    A.vectorTripletToSparse(ri, ci, v, kUnknowns, kUnknowns);
    return A;
  }();
  return K;
}

// Nᴴ·K·N by Eigen's sparse products (real N: Nᵀ·K·N).
SpMat eigenReduce(const SpMat& N, const SpMat& K) {
  const SpMat KN = K * N;
  return SpMat(N.transpose() * KN);
}

// Nᴴ·K·N for the grid operator, by the library and by Eigen on the same N and K.
void BM_Reduce(benchmark::State& state, int set, NullFun f, const std::string& impl) {
  qvarray::NullOptions o;
  o.nullfun = f;
  const qvarray::NullSpace ns = qvarray::qvNull(constraintSet(set).B, o);
  const Sparse& K = gridOperator();
  const std::string config = "reduce/" + kSetName[set] + "/" + qvarray::nullFunName(f);
  const auto& agreements = qvbench::checked(config, [&] {
    const SpMat ours = toEigen(qvarray::reduceMatrix(ns, K));
    const SpMat theirs = eigenReduce(toEigen(ns.N), toEigen(K));
    double diff = std::numeric_limits<double>::infinity();
    if (ours.rows() == theirs.rows() && ours.cols() == theirs.cols()) {
      const Eigen::VectorXd w = randomVector(ours.cols());
      const Eigen::VectorXd a = ours * w, b = theirs * w;
      diff = qvbench::relDiff(a.data(), b.data(), static_cast<size_t>(a.size()));
    }
    return qvbench::Agreements{{"qvarray", {0.0, 0.0}}, {"eigen", {diff, 1e-12}}};
  });
  if (!qvbench::agrees(state, agreements, impl)) return;
  size_t nnz = 0;
  if (impl == "qvarray") {
    Sparse A;
    for (auto _ : state) {
      A = qvarray::reduceMatrix(ns, K);
      benchmark::DoNotOptimize(A.getNnz());
    }
    nnz = A.getNnz();
  } else {
    const SpMat N = toEigen(ns.N), EK = toEigen(K);
    SpMat A;
    for (auto _ : state) {
      A = eigenReduce(N, EK);
      benchmark::DoNotOptimize(A.nonZeros());
    }
    nnz = static_cast<size_t>(A.nonZeros());
  }
  state.counters["nnzK"] = static_cast<double>(K.getNnz());
  state.counters["nnzReduced"] = static_cast<double>(nnz);
}

const bool kRegistered = [] {
  const NullFun methods[] = {NullFun::Orth, NullFun::Sparse, NullFun::Auto};
  for (int set : {0, 1}) {
    for (NullFun f : methods) {
      const std::string k = "qvnull/" + kSetName[set] + "/" + qvarray::nullFunName(f) + "/";
      benchmark::RegisterBenchmark((k + "qvarray").c_str(), BM_QvNull, set, f)
          ->Unit(benchmark::kMillisecond)
          ->UseRealTime();
      if (f == NullFun::Orth)
        benchmark::RegisterBenchmark((k + "eigen").c_str(), BM_EigenOrthNull, set)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
    }
    for (NullFun f : {NullFun::Orth, NullFun::Sparse})
      for (const char* impl : {"qvarray", "eigen"}) {
        const std::string name =
            "reduce/" + kSetName[set] + "/" + qvarray::nullFunName(f) + "/" + impl;
        benchmark::RegisterBenchmark(name.c_str(), BM_Reduce, set, f, std::string(impl))
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
      }
  }
  return true;
}();

}  // namespace
