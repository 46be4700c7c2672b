#pragma once
// Level-1 kernels for short runs, computed without calling BLAS.
//
// On a short run the call into BLAS (its argument checks, its thread
// decision, the jump through its kernel table) costs more than the
// arithmetic. Two kinds of kernel live here:
// - sumOfSquares and scaleShort compute what the library itself defines for
//   runs of up to kShortRun elements (a plain sum of squares, an elementwise
//   product). They are built for the baseline, AVX2 and AVX-512, picked when
//   the library is loaded; the sum keeps eight partial sums in a fixed order
//   and is never contracted into fused multiply-adds, so every processor gets
//   the same bits.
// - dotShort, axpyShort and scaleShort stand in for ddot, daxpy and dscal
//   (non-zero factor), whose results the library promises bit for bit, on
//   runs of up to kStandInRun elements. dotShort and axpyShort repeat the
//   order of operations of OpenBLAS's kernels for AVX-512 processors. The
//   stand-ins may be used only when blasFaithful() holds: it checks, once per
//   process, that they reproduce the BLAS this process runs on. Otherwise the
//   callers call BLAS.
#include <atomic>

namespace qvarray::detail {

/// Longest run of the library's own loops for scale, norm and copy.
inline constexpr int kShortRun = 50;
/// Longest run handed to a BLAS stand-in: beyond it the call into BLAS costs
/// little against the run, and BLAS may split a run between threads (which
/// changes ddot's order of sums; OpenBLAS does so above 10000 elements).
inline constexpr int kStandInRun = 4096;

/// Σ x[i]², n <= kShortRun.
double sumOfSquares(const double* x, int n);
/// x *= a (any n; each element rounded once, as BLAS does it).
void scaleShort(double* x, double a, int n);

/// Whether the stand-ins agree with BLAS: 0 not yet probed, 1 no, 2 yes.
extern std::atomic<unsigned char> blasAgreement;
/// Compares the stand-ins with this process's BLAS on probe runs and records
/// the answer in blasAgreement. Threads that race here probe alike.
bool probeBlas();
/// True when the stand-ins give this process's BLAS bits (probed on first use).
inline bool blasFaithful() {
  const unsigned char known = blasAgreement.load(std::memory_order_relaxed);
  if (known != 0) [[likely]] return known == 2;
  return probeBlas();
}
/// Σ x·y in ddot's order, n <= kStandInRun; only when blasFaithful().
[[gnu::target("avx512f,fma")]] double dotShort(const double* x, const double* y, int n);
/// y += a·x as daxpy computes it, n <= kStandInRun; only when blasFaithful().
[[gnu::target("avx512f,fma")]] void axpyShort(double* y, double a, const double* x, int n);

}  // namespace qvarray::detail
