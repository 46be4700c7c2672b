// Scratch-array pools: reuse, the odd-size lists, the budget, per-thread pools.
#include <gtest/gtest.h>
#include <omp.h>

#include <thread>

#include "qvarray/expr/arrayallocator.h"
#include "qvarray/expr/arrayallocimpl.h"

using namespace qvarray;
using DPtr = std::shared_ptr<Array<double, 1>>;
using CPtr = std::shared_ptr<Array<std::complex<double>, 1>>;
using Kind = ArrayAllocImpl::OddKind;

TEST(ArrayPool, StandardBlocksComeBackLastInFirstOut) {
  SerialArrayAllocator pool(8, 1000);
  DPtr a, b, c;
  pool.dCheckout(a);
  pool.dCheckout(8, b);  // n equal to the block size: a standard block
  ASSERT_EQ(a->count, 8u);
  ASSERT_EQ(b->count, 8u);
  const double* pa = a->data;
  const double* pb = b->data;
  pool.release(a);
  pool.release(b);
  EXPECT_FALSE(a);
  EXPECT_EQ(pool.pool().freeBlocks(false), 2u);
  pool.dCheckout(c);
  EXPECT_EQ(c->data, pb);
  pool.dCheckout(c);  // the earlier c is dropped outside the pool
  EXPECT_EQ(c->data, pa);
  EXPECT_EQ(pool.pool().extraSize(), 0u);
}

TEST(ArrayPool, OddSizesFoundByExactCount) {
  SerialArrayAllocator pool(8, 1000);
  CPtr a, b;
  pool.cCheckout(5, a);
  const auto* data = a->data;
  pool.release(a);
  EXPECT_EQ(pool.pool().extraSize(), 40u);  // 8 per element, complex too
  pool.cCheckout(6, b);
  EXPECT_NE(b->data, data);
  pool.cCheckout(5, b);
  EXPECT_EQ(b->data, data);
  EXPECT_EQ(pool.pool().extraSize(), 0u);
  std::shared_ptr<Array<double, 2>> m;
  pool.dvCheckout(2, 3, m);
  const double* md = m->data;
  pool.release(m);
  pool.dvCheckout(3, 2, m);  // same count, reshaped
  EXPECT_EQ(m->data, md);
  EXPECT_EQ(m->size(0), 3u);
}

TEST(ArrayPool, FiftyFirstOddArrayPushesOutTheOldest) {
  SerialArrayAllocator pool(0, 1u << 30);
  for (int n = 1; n <= 51; ++n) {
    DPtr a;
    pool.dCheckout(n, a);
    pool.release(a);
  }
  const auto sizes = pool.pool().oddSizes(ArrayAllocImpl::OddReal);
  ASSERT_EQ(sizes.size(), 50u);
  EXPECT_EQ(sizes.front(), 2u);
  EXPECT_EQ(sizes.back(), 51u);
  EXPECT_EQ(pool.pool().extraSize(), 8u * (51 * 52 / 2 - 1));
}

// Each row releases arrays in order and expects the lists that remain.
TEST(ArrayPool, BudgetDropsFrontsRoundRobin) {
  struct Release {
    Kind kind;
    int n;
  };
  struct Row {
    size_t budget;
    std::vector<Release> releases;
    std::vector<size_t> real, complex, real2d;
  };
  const Row rows[] = {
      {100, {{Kind::OddReal, 5}, {Kind::OddComplex, 5}}, {5}, {5}, {}},
      {50, {{Kind::OddReal, 4}, {Kind::OddComplex, 4}}, {}, {4}, {}},
      {40, {{Kind::OddReal, 3}, {Kind::OddReal, 2}, {Kind::OddComplex, 3}}, {2}, {3}, {}},
      {48,
       {{Kind::OddReal, 2}, {Kind::OddComplex, 2}, {Kind::OddReal2D, 4}, {Kind::OddReal2D, 2}},
       {},
       {},
       {4, 2}},
      {10, {{Kind::OddReal, 2}, {Kind::OddComplex, 2}}, {}, {}, {}},
  };
  for (const Row& row : rows) {
    SerialArrayAllocator pool(1, row.budget);
    for (const Release& r : row.releases) {
      if (r.kind == Kind::OddReal) {
        DPtr a;
        pool.dCheckout(r.n, a);
        pool.release(a);
      } else if (r.kind == Kind::OddComplex) {
        CPtr a;
        pool.cCheckout(r.n, a);
        pool.release(a);
      } else {
        std::shared_ptr<Array<double, 2>> a;
        pool.dvCheckout(r.n, 1, a);
        pool.release(a);
      }
    }
    EXPECT_EQ(pool.pool().oddSizes(Kind::OddReal), row.real) << row.budget;
    EXPECT_EQ(pool.pool().oddSizes(Kind::OddComplex), row.complex) << row.budget;
    EXPECT_EQ(pool.pool().oddSizes(Kind::OddReal2D), row.real2d) << row.budget;
    EXPECT_LE(pool.pool().extraSize(), row.budget);
  }
}

TEST(ArrayPool, SharedArraysStayWithTheirOtherOwners) {
  SerialArrayAllocator pool(4, 1000);
  DPtr a;
  pool.dCheckout(a);
  DPtr other = a;
  pool.release(a);
  EXPECT_FALSE(a);
  EXPECT_EQ(pool.pool().freeBlocks(false), 0u);
  // Complex 2-D: never kept; a shared holder is left as it is.
  std::shared_ptr<Array<std::complex<double>, 2>> m, m2;
  pool.cvCheckout(2, 2, m);
  m2 = m;
  pool.release(m);
  EXPECT_TRUE(m);
  m2.reset();
  pool.release(m);
  EXPECT_FALSE(m);
  EXPECT_EQ(pool.pool().extraSize(), 0u);
}

TEST(ArrayPool, ReplicateAndClone) {
  SerialArrayAllocator pool(3, 1000);
  const std::complex<double> z(1.5, -2.0);
  CPtr c;
  DPtr d, e;
  pool.cReplicate(z, 5, c);
  pool.dReplicate(z, d);
  ASSERT_EQ(c->count, 5u);
  ASSERT_EQ(d->count, 3u);
  for (auto v : *c) EXPECT_EQ(v, z);
  for (double v : *d) EXPECT_EQ(v, 1.5);
  (*c)[2] = {7.0, 8.0};
  pool.dClone(*c, e);
  EXPECT_EQ(e->count, 5u);
  EXPECT_EQ((*e)[2], 7.0);
  EXPECT_EQ(pool.getBlockSize(), 3);
  EXPECT_EQ(pool.getMaxExtraSize(), 1000u);
}

// Under ThreadSanitizer (tsan preset): each thread of a region churns its own
// pool; copies share the pools.
TEST(ValuesParallel, OnePoolPerThreadInARegion) {
  ParaArrayAllocator alloc(16, 100000);
  ParaArrayAllocator copy(alloc);
  const int threads = std::min(4, alloc.poolCount());
#pragma omp parallel num_threads(threads)
  {
    for (int i = 0; i < 200; ++i) {
      DPtr a, b;
      copy.dCheckout(a);
      alloc.dCheckout(1 + i % 7, b);
      (*a)[0] = i;
      alloc.release(a);
      copy.release(b);
    }
  }
  for (int t = 0; t < threads; ++t) {
    EXPECT_EQ(&alloc.pool(t), &copy.pool(t));
    EXPECT_LE(alloc.pool(t).freeBlocks(false), 1u);
  }
  EXPECT_EQ(alloc.pool(0).freeBlocks(false), 1u);
  EXPECT_EQ(alloc.getCreatorThread(), 0);
}

// Host threads outside a parallel region are all OpenMP thread 0: each has
// its own allocator, and may start regions of its own.
TEST(ValuesParallel, OneAllocatorPerHostThread) {
  auto work = [] {
    auto alloc = std::make_shared<ParaArrayAllocator>(8, 10000);
    for (int round = 0; round < 20; ++round) {
      DPtr a;
      alloc->dCheckout(a);
      alloc->release(a);
#pragma omp parallel num_threads(2)
      {
        CPtr c;
        alloc->cCheckout(5, c);
        alloc->release(c);
      }
    }
    EXPECT_EQ(alloc->pool(0).freeBlocks(false), 1u);
  };
  std::thread t1(work), t2(work);
  t1.join();
  t2.join();
}
