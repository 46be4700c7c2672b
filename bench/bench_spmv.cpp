// Sparse matrix–vector products y += A·x and y += Aᵀ·x: the library's
// products against Eigen's and a plain loop over the same compressed
// columns, on 1 and 2 threads, beside a stream triad of the same memory
// footprint.
//
// Matrices: the 2-D five-point Laplacian and the 3-D seven-point stencil
// with about 1e6 and 1e7 non-zeros, and a 2-D Laplacian of 8e7 non-zeros
// (1.7 GB to stream per product, several times the last-level cache), rows
// ascending within each column; the same matrix for every implementation.
//
// Names: spmv/<matrix>/<op>/threads:<t>/<impl>, impl one of
//   qvarray  the library's product (2 threads: A·x gathers over the rows of
//            the row-compressed copy that the library builds on first use)
//   eigen64  Eigen, compressed columns with 64-bit indices (the library's
//            layout); Eigen runs Aᵀ·x on several threads, A·x on one
//   eigen32  the same with 32-bit indices (less to stream; not on the
//            largest matrix)
//   eigen_rm (A·x on 2 threads) Eigen with a row-major copy of A, which it
//            runs on its OpenMP threads: equal work to the library's
//            2-thread A·x, copy built beforehand like the library's
//   loop     (1 thread) a plain loop over the library's arrays
//   triad    a[i] = b[i] + s·c[i] over three arrays as large together as the
//            bytes the product streams (values, indices, column starts, x
//            once, y read and written): time of the same traffic at the
//            memory's stream bandwidth
// and rowcopy/<matrix>/<impl>: the build of the row-compressed copy, by the
// library on 2 threads (its parallel data) and by Eigen (conversion to a
// row-major matrix), with its size as counter MB.
//
// Checks (once per matrix, product and thread count, before timing): every
// y = op(A)·x agrees with the library's within 1e-14 of max_i (|A|·|x|)_i; the
// row copies are the same arrays bit for bit.
//
// Counters: ns per non-zero, and GB/s = the bytes the product streams per
// second (the same count the triad's size is made of).
#include <benchmark/benchmark.h>
#include <omp.h>

#include <Eigen/SparseCore>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "benchcheck.h"
#include "qvarray/sparse/llsparse.h"
#include "qvarray/sparse/parallelsparse.h"
#include "qvarray/sparse/sparseproducts.h"
#include "qvutil/parallel.h"

namespace {

using qvbench::Agreements;
using Eigen64 = Eigen::SparseMatrix<double, Eigen::ColMajor, std::int64_t>;
using Eigen32 = Eigen::SparseMatrix<double, Eigen::ColMajor, int>;
using EigenRows = Eigen::SparseMatrix<double, Eigen::RowMajor, std::int64_t>;

struct MatrixCase {
  const char* name;
  int dim;
  size_t k;    // grid points per direction
  bool large;  // no 32-bit Eigen copy: memory stays within reason
};
const MatrixCase kMatrices[] = {{"lap2d_1e6", 2, 447, false},  {"lap2d_1e7", 2, 1414, false},
                                {"sten3d_1e6", 3, 52, false},  {"sten3d_1e7", 3, 113, false},
                                {"lap2d_8e7", 2, 4000, true}};

// The matrix and its peers' copies, each made on first use and kept.
struct Problem {
  qvarray::Sparse A;
  size_t n = 0, nnz = 0;
  std::unique_ptr<Eigen64> e64;
  std::unique_ptr<Eigen32> e32;
  std::unique_ptr<EigenRows> rows;
  double absScale = 0.0;  // max_i (|A|·|x|)_i for the x below

  template <class E>
  std::unique_ptr<E> eigenCopy() const {
    auto E_ = std::make_unique<E>(static_cast<Eigen::Index>(n), static_cast<Eigen::Index>(n));
    E_->resizeNonZeros(static_cast<Eigen::Index>(nnz));
    using I = typename E::StorageIndex;
    const size_t* cp = A.getColPtr();
    const size_t* row = A.getRow();
    const double* v = A.getDoubleVal();
    for (size_t j = 0; j <= n; ++j) E_->outerIndexPtr()[j] = static_cast<I>(cp[j]);
    for (size_t q = 0; q < nnz; ++q) {
      E_->innerIndexPtr()[q] = static_cast<I>(row[q]);
      E_->valuePtr()[q] = v[q];
    }
    return E_;
  }
  const Eigen64& eigen64() {
    if (!e64) e64 = eigenCopy<Eigen64>();
    return *e64;
  }
  const Eigen32& eigen32() {
    if (!e32) e32 = eigenCopy<Eigen32>();
    return *e32;
  }
  const EigenRows& eigenRows() {
    if (!rows) rows = std::make_unique<EigenRows>(eigen64());
    return *rows;
  }
};

double xValue(size_t i) { return 1.0 + 1e-3 * static_cast<double>(i % 97); }

// The stencil matrix on a k^dim grid, written straight into compressed
// columns with rows ascending: diagonal 2·dim + 0.01, neighbours −1.
std::unique_ptr<Problem> stencil(int dim, size_t k) {
  const size_t n = dim == 2 ? k * k : k * k * k;
  const size_t stride[3] = {1, k, k * k};
  auto store = std::make_shared<llsparse<double>>();
  store->setZeros(n, n, n * (2 * dim + 1));
  size_t q = 0;
  for (size_t j = 0; j < n; ++j) {
    store->colptr[j] = q;
    const size_t coord[3] = {j % k, (j / k) % k, j / (k * k)};
    auto add = [&](size_t i, double v) { store->row[q] = i, store->value[q++] = v; };
    for (int d = dim - 1; d >= 0; --d)  // neighbours below j, farthest first
      if (coord[d] > 0) add(j - stride[d], -1.0);
    add(j, 2.0 * dim + 0.01);
    for (int d = 0; d < dim; ++d)
      if (coord[d] + 1 < k) add(j + stride[d], -1.0);
  }
  store->colptr[n] = q;
  store->nnz = q;
  store->newVersion();
  if (!store->isConsistent()) std::abort();
  auto p = std::make_unique<Problem>();
  p->A = qvarray::Sparse(std::move(store));
  p->n = n;
  p->nnz = q;
  p->absScale = (4.0 * dim + 0.01) * xValue(96);
  return p;
}

Problem& problem(const MatrixCase& mcase) {
  static std::map<std::string, std::unique_ptr<Problem>> cache;
  auto& slot = cache[mcase.name];
  if (!slot) slot = stencil(mcase.dim, mcase.k);
  return *slot;
}

// Bytes a product streams at least once: values and row indices, column
// starts, x once, y read and written.
double productBytes(const Problem& p, double indexBytes) {
  return static_cast<double>(p.nnz) * (8.0 + indexBytes) +
         indexBytes * static_cast<double>(p.n + 1) + 3.0 * 8.0 * static_cast<double>(p.n);
}

void setThreads(int threads) {
  qvbase::Parallel::setAvailableThreads(threads);
  Eigen::setNbThreads(threads);
}

// y += op(A)·x by one implementation.
void product(Problem& p, const std::string& impl, bool trans, const qvarray::Vector& x,
             qvarray::Vector& y) {
  const Eigen::Index n = static_cast<Eigen::Index>(p.n);
  Eigen::Map<const Eigen::VectorXd> ex(x.getdArr().data, n);
  Eigen::Map<Eigen::VectorXd> ey(y.getdArr().data, n);
  if (impl == "qvarray") {
    qvarray::yPlusAMulx(y, p.A, x, trans ? qvarray::Trans : qvarray::NoTrans);
  } else if (impl == "eigen64") {
    if (trans) ey.noalias() += p.eigen64().transpose() * ex;
    else ey.noalias() += p.eigen64() * ex;
  } else if (impl == "eigen32") {
    if (trans) ey.noalias() += p.eigen32().transpose() * ex;
    else ey.noalias() += p.eigen32() * ex;
  } else if (impl == "eigen_rm") {
    ey.noalias() += p.eigenRows() * ex;
  } else if (impl == "loop") {
    const size_t* cp = p.A.getColPtr();
    const size_t* row = p.A.getRow();
    const double* v = p.A.getDoubleVal();
    const double* xd = x.getdArr().data;
    double* yd = y.getdArr().data;
    for (size_t j = 0; j < p.n; ++j) {
      if (trans) {
        double s = 0;
        for (size_t q = cp[j]; q < cp[j + 1]; ++q) s += v[q] * xd[row[q]];
        yd[j] += s;
      } else {
        for (size_t q = cp[j]; q < cp[j + 1]; ++q) yd[row[q]] += v[q] * xd[j];
      }
    }
  }
}

qvarray::Vector xVector(size_t n) {
  qvarray::Vector x(n, 1.0);
  for (size_t i = 0; i < n; ++i) x.d(i) = xValue(i);
  return x;
}

// The implementations measured on a matrix, product and thread count.
std::vector<std::string> productImpls(const MatrixCase& mcase, bool trans, int threads) {
  std::vector<std::string> impls = {"qvarray", "eigen64"};
  if (!mcase.large) impls.push_back("eigen32");
  if (threads > 1 && !trans) impls.push_back("eigen_rm");
  if (threads == 1) impls.push_back("loop");
  return impls;
}

void BM_spmv(benchmark::State& state, const MatrixCase* mcase, bool trans,
             const std::string& impl, int threads) {
  Problem& p = problem(*mcase);
  setThreads(threads);
  if (AVAILABLETHREADS() != threads) {
    state.SkipWithError("not enough threads");
    return;
  }
  const std::string config = std::string(mcase->name) + (trans ? "/ATx/" : "/Ax/") +
                             std::to_string(threads);
  const auto& agreements = qvbench::checked(config, [&] {
    const qvarray::Vector x = xVector(p.n);
    qvarray::Vector ours(p.n);
    product(p, "qvarray", trans, x, ours);
    Agreements a;
    for (const std::string& other : productImpls(*mcase, trans, threads)) {
      qvarray::Vector y(p.n);
      product(p, other, trans, x, y);
      a[other] = {qvbench::relDiff(ours.getdArr().data, y.getdArr().data, p.n, p.absScale),
                  1e-14};
    }
    return a;
  });
  if (!qvbench::agrees(state, agreements, impl)) return;
  const qvarray::Vector x = xVector(p.n);
  qvarray::Vector y(p.n);
  product(p, impl, trans, x, y);  // builds the parallel data; warms caches and pages
  for (auto _ : state) {
    product(p, impl, trans, x, y);
    benchmark::DoNotOptimize(y.getdArr().data);
    benchmark::ClobberMemory();
  }
  const double bytes = productBytes(p, impl == "eigen32" ? 4.0 : 8.0);
  state.counters["ns_per_nnz"] = benchmark::Counter(
      static_cast<double>(p.nnz) * 1e-9,
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["GB/s"] =
      benchmark::Counter(bytes * 1e-9, benchmark::Counter::kIsIterationInvariantRate);
}

// a[i] = b[i] + s·c[i] over three arrays of `bytes` together; the arrays of
// each size are made once (first touch on the threads that use them).
void BM_triad(benchmark::State& state, const MatrixCase* mcase, int threads) {
  const Problem& p = problem(*mcase);
  const size_t n = static_cast<size_t>(productBytes(p, 8.0) / 24.0);
  static std::map<size_t, std::unique_ptr<double[]>> arrays;
  auto& slot = arrays[n];
  if (!slot) {
    slot.reset(new double[3 * n]);
    double* d = slot.get();
#pragma omp parallel for num_threads(threads) schedule(static)
    for (size_t i = 0; i < n; ++i) d[i] = 0.0, d[n + i] = 1.0, d[2 * n + i] = 2.0;
  }
  double* a = slot.get();
  const double* b = a + n;
  const double* c = b + n;
  const double s = 1e-3;
  auto once = [&] {
#pragma omp parallel for num_threads(threads) schedule(static)
    for (size_t i = 0; i < n; ++i) a[i] = b[i] + s * c[i];
  };
  once();
  for (auto _ : state) {
    once();
    benchmark::DoNotOptimize(a);
    benchmark::ClobberMemory();
  }
  state.counters["GB/s"] = benchmark::Counter(24.0 * static_cast<double>(n) * 1e-9,
                                              benchmark::Counter::kIsIterationInvariantRate);
}

// The row-compressed copy: the library's parallel data (built by the team of
// 2 threads) and Eigen's conversion to row-major storage.
void BM_rowcopy(benchmark::State& state, const MatrixCase* mcase, const std::string& impl) {
  Problem& p = problem(*mcase);
  setThreads(2);
  const auto& agreements = qvbench::checked(std::string(mcase->name) + "/rowcopy", [&] {
    const qvarray::ParallelSparse ours(p.A);
    const auto& r = ours.rowCompressed(p.A);
    const EigenRows& e = p.eigenRows();
    std::vector<double> ptr(p.n + 1), eptr(p.n + 1), col(p.nnz), ecol(p.nnz);
    for (size_t i = 0; i <= p.n; ++i) ptr[i] = static_cast<double>(r.rowptr[i]),
                                      eptr[i] = static_cast<double>(e.outerIndexPtr()[i]);
    for (size_t q = 0; q < p.nnz; ++q) col[q] = static_cast<double>(r.col[q]),
                                       ecol[q] = static_cast<double>(e.innerIndexPtr()[q]);
    const double diff = std::max({qvbench::bitDiff(ptr.data(), eptr.data(), p.n + 1),
                                  qvbench::bitDiff(col.data(), ecol.data(), p.nnz),
                                  qvbench::bitDiff(r.dvalue.data, e.valuePtr(), p.nnz)});
    return Agreements{{"qvarray", {0.0, 0.0}}, {"eigen_rm", {diff, 0.0}}};
  });
  if (!qvbench::agrees(state, agreements, impl)) return;
  size_t bytes = 0;
  for (auto _ : state) {
    if (impl == "qvarray") {
      const qvarray::ParallelSparse data(p.A);
      benchmark::DoNotOptimize(data.rowCompressed(p.A).col.data);
      bytes = data.memoryBytes();
    } else {
      const EigenRows rows(p.eigen64());
      benchmark::DoNotOptimize(rows.valuePtr());
      bytes = static_cast<size_t>(rows.nonZeros()) * 16 + (p.n + 1) * 8;
    }
  }
  state.counters["MB"] = static_cast<double>(bytes) * 1e-6;
}

const int kRegistered = [] {
  for (const MatrixCase& mcase : kMatrices) {
    for (int threads : {1, 2})
      for (bool trans : {false, true}) {
        const std::string kase = std::string("spmv/") + mcase.name + (trans ? "/ATx" : "/Ax") +
                                 "/threads:" + std::to_string(threads) + "/";
        for (const std::string& impl : productImpls(mcase, trans, threads)) {
          benchmark::RegisterBenchmark((kase + impl).c_str(), BM_spmv, &mcase, trans, impl,
                                       threads)
              ->UseRealTime()
              ->Unit(benchmark::kMillisecond);
        }
        benchmark::RegisterBenchmark((kase + "triad").c_str(), BM_triad, &mcase, threads)
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
      }
    for (const char* impl : {"qvarray", "eigen_rm"})
      benchmark::RegisterBenchmark((std::string("rowcopy/") + mcase.name + "/" + impl).c_str(),
                                   BM_rowcopy, &mcase, std::string(impl))
          ->UseRealTime()
          ->Unit(benchmark::kMillisecond);
  }
  return 0;
}();

}  // namespace
