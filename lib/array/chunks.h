#pragma once
// Array counts are size_t while the pointer kernels and BLAS count in int:
// the Array kernels hand longer runs over in chunks that fit in an int.
#include <algorithm>
#include <cstddef>

namespace qvarray::detail {

/// Largest run handed to one pointer kernel call (2^30 elements).
inline constexpr size_t kMaxChunk = size_t(1) << 30;

/// Calls f(offset, n) for consecutive runs [offset, offset + n) covering
/// [0, count), each at most `chunk` long. Nothing is called for count 0.
template <class F>
[[gnu::always_inline]] inline void forChunks(size_t count, F&& f, size_t chunk = kMaxChunk) {
  if (count <= chunk) {  // the usual case: one call, no loop
    if (count) f(size_t(0), static_cast<int>(count));
    return;
  }
  for (size_t off = 0; off < count; off += chunk)
    f(off, static_cast<int>(std::min(chunk, count - off)));
}

}  // namespace qvarray::detail
