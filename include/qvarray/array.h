#pragma once
// Array<T,N>: the library's dense, column-major, N-dimensional array (N = 1..3).
//
// The field layout is a binding contract between separately built modules:
//   size_t sizes[N]; size_t strides[N]; T* data; size_t count;
// with strides always column-major (1, size0, size0*size1). Element
// (i0,i1,i2) is data[i0*strides[0] + i1*strides[1] + i2*strides[2]], so a 2-D
// array goes to BLAS/LAPACK as is, with leading dimension size0.
//
// Value semantics: the array owns its storage and copies deeply. Storage is
// kept whenever a resize or assignment keeps the element count. Complex
// elements are zeroed when storage is obtained; other element types are left
// uninitialised. A failed allocation (or an element count whose byte size
// would overflow) leaves the array empty and throws std::bad_alloc.
// No bounds checks on element access.
#include <algorithm>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace qvarray {

/// The largest extent a matrix dimension may have anywhere in the library:
/// extent + 1 index pointers (the column pointers of compressed columns, or of
/// their transpose) must fit the largest allocation, PTRDIFF_MAX bytes.
inline constexpr size_t kMaxDimension = static_cast<size_t>(PTRDIFF_MAX) / sizeof(size_t) - 1;

template <class T, int N>
class Array {
  static_assert(N >= 1 && N <= 3, "Array supports 1 to 3 dimensions");

 public:
  using value_type = T;
  static constexpr int rank = N;

  size_t sizes[N];
  size_t strides[N];
  T* data;
  size_t count;

  /// Empty: sizes 0, strides 1, no storage.
  Array() noexcept : data(nullptr), count(0) { setEmptyShape(); }

  explicit Array(size_t s0) requires(N == 1) : Array() { resize(s0); }
  Array(size_t s0, size_t s1) requires(N == 2) : Array() { resize(s0, s1); }
  Array(size_t s0, size_t s1, size_t s2) requires(N == 3) : Array() { resize(s0, s1, s2); }

  Array(const Array& other) : Array() { *this = other; }
  Array(Array&& other) noexcept : Array() { swap(other); }
  ~Array() { release(); }

  /// Deep copy; reallocates only when the element counts differ.
  Array& operator=(const Array& other) {
    if (this == &other) return *this;
    if (count != other.count) {
      release();
      setEmptyShape();
      allocate(other.count);
    }
    std::copy(other.sizes, other.sizes + N, sizes);
    std::copy(other.strides, other.strides + N, strides);
    if (count) std::memcpy(static_cast<void*>(data), other.data, count * sizeof(T));
    return *this;
  }

  Array& operator=(Array&& other) noexcept {
    if (this != &other) {
      Array tmp(std::move(other));
      swap(tmp);
    }
    return *this;
  }

  void swap(Array& other) noexcept {
    for (int d = 0; d < N; ++d) {
      std::swap(sizes[d], other.sizes[d]);
      std::swap(strides[d], other.strides[d]);
    }
    std::swap(data, other.data);
    std::swap(count, other.count);
  }

  /// Sets the sizes (column-major strides). Contents are lost unless the
  /// element count is unchanged, in which case storage and contents are kept.
  void resize(size_t s0) requires(N == 1) { reshape({s0}); }
  void resize(size_t s0, size_t s1) requires(N == 2) { reshape({s0, s1}); }
  void resize(size_t s0, size_t s1, size_t s2) requires(N == 3) { reshape({s0, s1, s2}); }

  /// Sets every element to v.
  void fill(const T& v) { std::fill(data, data + count, v); }

  T& operator()(size_t i0) { return data[i0 * strides[0]]; }
  const T& operator()(size_t i0) const { return data[i0 * strides[0]]; }
  T& operator()(size_t i0, size_t i1) requires(N >= 2) { return data[i0 + i1 * strides[1]]; }
  const T& operator()(size_t i0, size_t i1) const requires(N >= 2) {
    return data[i0 + i1 * strides[1]];
  }
  T& operator()(size_t i0, size_t i1, size_t i2) requires(N == 3) {
    return data[i0 + i1 * strides[1] + i2 * strides[2]];
  }
  const T& operator()(size_t i0, size_t i1, size_t i2) const requires(N == 3) {
    return data[i0 + i1 * strides[1] + i2 * strides[2]];
  }
  T& operator[](size_t k) { return data[k]; }
  const T& operator[](size_t k) const { return data[k]; }

  size_t size(int d) const { return sizes[d]; }
  size_t size() const { return count; }
  size_t getCount() const { return count; }
  T* getData() { return data; }
  const T* getData() const { return data; }
  T* begin() { return data; }
  T* end() { return data + count; }
  const T* begin() const { return data; }
  const T* end() const { return data + count; }
  bool empty() const { return count == 0; }

 private:
  struct Shape {
    size_t s[N];
  };

  void setEmptyShape() noexcept {
    for (int d = 0; d < N; ++d) {
      sizes[d] = 0;
      strides[d] = 1;
    }
  }

  void release() noexcept {
    if (data) ::operator delete(static_cast<void*>(data), std::align_val_t(kAlign));
    data = nullptr;
    count = 0;
  }

  void reshape(const Shape& shape) {
    size_t n = 1;
    for (int d = 0; d < N; ++d) {
      if (__builtin_mul_overflow(n, shape.s[d], &n)) {
        release();
        setEmptyShape();
        throw std::bad_alloc();
      }
    }
    if (n != count) {
      release();
      setEmptyShape();
      allocate(n);
    }
    size_t stride = 1;
    for (int d = 0; d < N; ++d) {
      sizes[d] = shape.s[d];
      strides[d] = stride;
      stride *= shape.s[d];
    }
  }

  // Obtains storage for n elements of an empty array; on failure the array
  // stays empty and std::bad_alloc propagates.
  void allocate(size_t n) {
    if (n == 0) return;
    // Byte sizes beyond the largest object (PTRDIFF_MAX) are refused here:
    // they cannot be allocated, and the aligned allocator's rounding would
    // wrap for sizes near 2^64.
    if (n > static_cast<size_t>(PTRDIFF_MAX) / sizeof(T)) throw std::bad_alloc();
    data = static_cast<T*>(::operator new(n * sizeof(T), std::align_val_t(kAlign)));
    count = n;
    if constexpr (!std::is_trivially_default_constructible_v<T>)
      std::uninitialized_value_construct_n(data, n);  // complex elements start at zero
  }

  static constexpr size_t kAlign = 64;
};

template <class T>
inline constexpr bool is_complex_v = false;
template <class T>
inline constexpr bool is_complex_v<std::complex<T>> = true;

}  // namespace qvarray

using qvarray::Array;
