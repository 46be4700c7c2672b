// The dense array: binding layout, storage reuse on resize and assignment,
// deep copies, moves, zeroed complex storage, and overflowing sizes.
#include <gtest/gtest.h>

#include <complex>
#include <cstdint>
#include <new>

#include "qvarray/array.h"
#include "qvarray/trans.h"

using cplx = std::complex<double>;

namespace {
template <class T, int N>
void expectEmpty(const Array<T, N>& a) {
  EXPECT_TRUE(a.count == 0 && a.data == nullptr);
  for (int d = 0; d < N; ++d) EXPECT_TRUE(a.sizes[d] == 0 && a.strides[d] == 1);
}
}  // namespace

TEST(Array, LayoutIsTheBindingContract) {
  using A2 = Array<double, 2>;
  static_assert(sizeof(A2) == 2 * sizeof(size_t) * 2 + sizeof(void*) + sizeof(size_t));
  static_assert(offsetof(A2, sizes) == 0 && offsetof(A2, strides) == 2 * sizeof(size_t));
  static_assert(offsetof(A2, data) == 4 * sizeof(size_t));
  static_assert(offsetof(A2, count) == 4 * sizeof(size_t) + sizeof(void*));
  Array<int, 3> a(2, 3, 4);
  EXPECT_TRUE(a.strides[0] == 1 && a.strides[1] == 2 && a.strides[2] == 6);
  EXPECT_EQ(&a(1, 2, 3), a.data + 1 + 2 * 2 + 3 * 6);
  expectEmpty(Array<double, 3>());
  static_assert(qvarray::NoTrans == 0 && qvarray::Trans == 1 && qvarray::ConjTrans == 2);
  EXPECT_EQ(std::string() + qvarray::transChar(qvarray::NoTrans) +
                qvarray::transChar(qvarray::Trans) + qvarray::transChar(qvarray::ConjTrans) +
                qvarray::transChar(static_cast<Trans_t>(7)),
            "NTC?");
}

TEST(Array, ResizeKeepsStorageWhenTheCountIsUnchanged) {
  Array<double, 2> a(2, 3);
  for (size_t k = 0; k < 6; ++k) a[k] = double(k);
  double* before = a.data;
  a.resize(3, 2);
  EXPECT_TRUE(a.data == before && a.strides[0] == 1 && a.strides[1] == 3 && a(2, 1) == 5.0);
  a.resize(4, 4);
  EXPECT_TRUE(a.count == 16 && a.strides[1] == 4);
  a.resize(0, 4);
  EXPECT_TRUE(a.count == 0 && a.data == nullptr);
  // Complex storage starts at zero, also after a resize.
  Array<cplx, 1> z(100);
  for (const auto& v : z) EXPECT_EQ(v, cplx(0, 0));
  z.fill(cplx(1, 2));
  z.resize(200);
  for (const auto& v : z) EXPECT_EQ(v, cplx(0, 0));
}

TEST(Array, CopiesAreDeepAndReuseStorageOfEqualCountMovesEmptyTheSource) {
  Array<double, 2> a(2, 2), c(1, 4);
  a.fill(3.0);
  Array<double, 2> b(a);
  b(0, 0) = -1;
  EXPECT_TRUE(b.data != a.data && a(0, 0) == 3.0);
  double* cStorage = c.data;
  c = a;  // count 4 both times
  EXPECT_TRUE(c.data == cStorage && c.sizes[0] == 2 && c.strides[1] == 2 && c(1, 1) == 3.0);
  Array<double, 2>& self = c;
  c = self;
  EXPECT_EQ(c.data, cStorage);
  c = Array<double, 2>();  // assigning an empty array empties the target
  expectEmpty(c);
  Array<double, 1> m(5);
  double* p = m.data;
  Array<double, 1> moved(std::move(m));
  EXPECT_EQ(moved.data, p);
  expectEmpty(m);
}

TEST(Array, OverflowingCountsFailBeforeAllocatingAndLeaveTheArrayEmpty) {
  Array<cplx, 1> z(10);
  EXPECT_THROW(z.resize(size_t{1} << 60), std::bad_alloc);  // 2^60 · 16 bytes overflows
  expectEmpty(z);
  Array<int, 1> i(3);
  EXPECT_THROW(i.resize(size_t{1} << 62), std::bad_alloc);
  expectEmpty(i);
  Array<double, 2> d(2, 2);
  EXPECT_THROW(d.resize(size_t{1} << 40, size_t{1} << 40),
               std::bad_alloc);  // size product overflows
  expectEmpty(d);
  // The largest representable count is not rejected by the overflow rule; the
  // allocator refuses it instead, with the same result.
  EXPECT_THROW(z.resize((size_t{1} << 60) - 1), std::bad_alloc);
  expectEmpty(z);
  // A failed assignment leaves the target empty and usable.
  Array<double, 1> huge, target(4);
  huge.sizes[0] = huge.count = size_t{1} << 61;  // a forged source whose count cannot be allocated
  EXPECT_THROW(target = huge, std::bad_alloc);
  expectEmpty(target);
  huge.count = 0;  // nothing to release
  target.resize(3);
  target.fill(1.0);
  EXPECT_EQ(target[2], 1.0);
}
