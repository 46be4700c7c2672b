// Sparse matrix–vector products y += A·x and y += Aᵀ·x: the library's
// products against Eigen's (64- and 32-bit indices) and a plain loop over
// the same compressed columns, on 1 and 2 threads, beside a stream-triad
// measurement of the memory bandwidth.
//
// Matrices: the 2-D five-point Laplacian and the 3-D seven-point stencil
// with about 1e6 and 1e7 non-zeros, rows ascending within each column (the
// same matrix for every peer). Counters: ns per non-zero, and the effective
// bandwidth GB/s = the bytes a product must move at least once (values and
// row indices, column pointers, x once, y read and written) per second.
// The triad a[i] = b[i] + s·c[i] counts 24 bytes per element.
//
// bench/spmv_ratios.py runs this with repetitions and prints the medians
// with the fraction of the triad bandwidth and the ratio to Eigen.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <Eigen/SparseCore>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "qvarray/sparse/parallelsparse.h"
#include "qvarray/sparse/sparseproducts.h"
#include "qvutil/parallel.h"

namespace {

struct Problem {
  qvarray::Sparse A;
  Eigen::SparseMatrix<double, Eigen::ColMajor, std::int64_t> e64;
  Eigen::SparseMatrix<double, Eigen::ColMajor, int> e32;
  size_t n = 0, nnz = 0;
};

// The stencil matrix on a k^dim grid, assembled column by column with rows
// ascending, so triplet assembly keeps them sorted.
std::unique_ptr<Problem> stencil(int dim, size_t k) {
  const size_t n = dim == 2 ? k * k : k * k * k;
  const size_t stride[3] = {1, k, k * k};
  std::vector<size_t> rows, cols;
  std::vector<double> values;
  rows.reserve(n * (2 * dim + 1));
  cols.reserve(n * (2 * dim + 1));
  values.reserve(n * (2 * dim + 1));
  for (size_t j = 0; j < n; ++j) {
    size_t coord[3] = {j % k, (j / k) % k, j / (k * k)};
    for (int d = dim - 1; d >= 0; --d)  // neighbours below j, farthest first
      if (coord[d] > 0) rows.push_back(j - stride[d]), cols.push_back(j), values.push_back(-1.0);
    rows.push_back(j), cols.push_back(j), values.push_back(2.0 * dim + 0.01);
    for (int d = 0; d < dim; ++d)
      if (coord[d] + 1 < k) rows.push_back(j + stride[d]), cols.push_back(j), values.push_back(-1.0);
  }
  auto p = std::make_unique<Problem>();
  p->A.vectorTripletToSparse(rows, cols, values, n, n);
  p->n = n;
  p->nnz = p->A.getNnz();
  const size_t* cp = p->A.getColPtr();
  const size_t* row = p->A.getRow();
  const double* v = p->A.getDoubleVal();
  auto copy = [&](auto& E) {
    E.resize(static_cast<Eigen::Index>(n), static_cast<Eigen::Index>(n));
    E.resizeNonZeros(static_cast<Eigen::Index>(p->nnz));
    using I = std::remove_reference_t<decltype(*E.outerIndexPtr())>;
    for (size_t j = 0; j <= n; ++j) E.outerIndexPtr()[j] = static_cast<I>(cp[j]);
    for (size_t q = 0; q < p->nnz; ++q) {
      E.innerIndexPtr()[q] = static_cast<I>(row[q]);
      E.valuePtr()[q] = v[q];
    }
  };
  copy(p->e64);
  copy(p->e32);
  return p;
}

// Problems are built on first use and kept for the run.
const Problem& problem(const std::string& name) {
  static std::map<std::string, std::unique_ptr<Problem>> cache;
  auto& slot = cache[name];
  if (!slot) {
    if (name == "lap2d_1e6") slot = stencil(2, 447);
    if (name == "lap2d_1e7") slot = stencil(2, 1414);
    if (name == "sten3d_1e6") slot = stencil(3, 52);
    if (name == "sten3d_1e7") slot = stencil(3, 113);
  }
  return *slot;
}

enum class Impl { Qvarray, Eigen64, Eigen32, Loop };

// y += A·x (scatter over columns) and y += Aᵀ·x (dot per column), written
// plainly over the library's arrays: what a straightforward implementation
// gets on one thread.
void loopAx(const qvarray::Sparse& A, const double* x, double* y) {
  const size_t* cp = A.getColPtr();
  const size_t* row = A.getRow();
  const double* v = A.getDoubleVal();
  for (size_t j = 0; j < A.getN(); ++j)
    for (size_t p = cp[j]; p < cp[j + 1]; ++p) y[row[p]] += v[p] * x[j];
}
void loopATx(const qvarray::Sparse& A, const double* x, double* y) {
  const size_t* cp = A.getColPtr();
  const size_t* row = A.getRow();
  const double* v = A.getDoubleVal();
  for (size_t j = 0; j < A.getN(); ++j) {
    double s = 0;
    for (size_t p = cp[j]; p < cp[j + 1]; ++p) s += v[p] * x[row[p]];
    y[j] += s;
  }
}

void BM_spmv(benchmark::State& state, const std::string& name, bool trans, Impl impl,
             int threads) {
  const Problem& p = problem(name);
  qvbase::Parallel::setAvailableThreads(threads);
  Eigen::setNbThreads(threads);
  if (AVAILABLETHREADS() != threads) {
    state.SkipWithError("not enough threads");
    return;
  }
  const qvarray::Trans_t t = trans ? qvarray::Trans : qvarray::NoTrans;
  qvarray::Vector x(p.n, 1.0), y(p.n);
  for (size_t i = 0; i < p.n; ++i) x.d(i) = 1.0 + 1e-3 * static_cast<double>(i % 97);
  Eigen::Map<const Eigen::VectorXd> ex(x.getdArr().data, static_cast<Eigen::Index>(p.n));
  Eigen::Map<Eigen::VectorXd> ey(y.getdArr().data, static_cast<Eigen::Index>(p.n));
  auto once = [&] {
    switch (impl) {
      case Impl::Qvarray:
        qvarray::yPlusAMulx(y, p.A, x, t);
        break;
      case Impl::Eigen64:
        if (trans)
          ey.noalias() += p.e64.transpose() * ex;
        else
          ey.noalias() += p.e64 * ex;
        break;
      case Impl::Eigen32:
        if (trans)
          ey.noalias() += p.e32.transpose() * ex;
        else
          ey.noalias() += p.e32 * ex;
        break;
      case Impl::Loop:
        if (trans)
          loopATx(p.A, x.getdArr().data, y.getdArr().data);
        else
          loopAx(p.A, x.getdArr().data, y.getdArr().data);
        break;
    }
  };
  once();  // builds the parallel data; warms the caches and pages
  for (auto _ : state) {
    once();
    benchmark::DoNotOptimize(y.getdArr().data);
    benchmark::ClobberMemory();
  }
  const double index = impl == Impl::Eigen32 ? 4.0 : 8.0;
  const double bytes = static_cast<double>(p.nnz) * (8.0 + index) +
                       index * static_cast<double>(p.n + 1) + 3.0 * 8.0 * static_cast<double>(p.n);
  state.counters["nnz"] = static_cast<double>(p.nnz);
  state.counters["ns_per_nnz"] = benchmark::Counter(
      static_cast<double>(p.nnz) * 1e-9, benchmark::Counter::kIsIterationInvariantRate |
                                             benchmark::Counter::kInvert);
  state.counters["GB/s"] = benchmark::Counter(bytes * 1e-9, benchmark::Counter::kIsIterationInvariantRate);
  if (impl == Impl::Qvarray && threads > 1) {
    const auto data = p.A.getParallelData();
    state.counters["aux_MB"] = data ? static_cast<double>(data->memoryBytes()) * 1e-6 : 0.0;
  }
}

// a[i] = b[i] + s·c[i] over arrays far larger than the caches.
void BM_triad(benchmark::State& state, int threads) {
  const size_t n = size_t{1} << 24;  // 128 MiB per array
  std::vector<double> a(n), b(n, 1.0), c(n, 2.0);
  const double s = 3.0;
  auto once = [&] {
#pragma omp parallel for num_threads(threads) schedule(static)
    for (size_t i = 0; i < n; ++i) a[i] = b[i] + s * c[i];
  };
  once();
  for (auto _ : state) {
    once();
    benchmark::DoNotOptimize(a.data());
    benchmark::ClobberMemory();
  }
  state.counters["GB/s"] =
      benchmark::Counter(24.0 * static_cast<double>(n) * 1e-9, benchmark::Counter::kIsIterationInvariantRate);
}

const int kRegistered = [] {
  const char* impls[] = {"qvarray", "eigen64", "eigen32", "loop"};
  for (int threads : {1, 2}) {
    benchmark::RegisterBenchmark(("triad/threads:" + std::to_string(threads)).c_str(), BM_triad,
                                 threads)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
    for (const char* name : {"lap2d_1e6", "lap2d_1e7", "sten3d_1e6", "sten3d_1e7"})
      for (bool trans : {false, true})
        for (int i = 0; i < 4; ++i) {
          if (i == 3 && threads > 1) continue;  // the plain loop is serial
          const std::string id = std::string("spmv/") + name + (trans ? "/ATx/" : "/Ax/") +
                                 impls[i] + "/threads:" + std::to_string(threads);
          benchmark::RegisterBenchmark(id.c_str(), BM_spmv, std::string(name), trans,
                                       static_cast<Impl>(i), threads)
              ->UseRealTime()
              ->Unit(benchmark::kMillisecond);
        }
  }
  return 0;
}();

}  // namespace
