// FFTPlan over FFTW3 (fftplan.h). Part of the core library: it needs FFTW,
// not the JVM, so C++ callers use it without a Java bridge.
//
// FFTW counts dimensions row-major (its last dimension varies fastest); the
// library's arrays are column-major, so the sizes go to FFTW reversed and
// FFTW's halved last dimension of a real transform is our first.
#include "qvarray/jni/fftplan.h"

#include <fftw3.h>

#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <mutex>

#include "qvutil/errors.h"

namespace qvarray {

namespace {

// Every call into FFTW's planner, process-wide.
std::mutex& plannerLock() {
  static std::mutex lock;
  return lock;
}

// Variants of one plan: bit 0 in place, bit 1 arrays not SIMD-aligned.
constexpr int kInPlace = 1, kUnaligned = 2, kVariants = 4;

struct FftwBuffer {
  void* p;
  explicit FftwBuffer(size_t bytes) : p(fftw_malloc(bytes ? bytes : 1)) {
    if (!p) throw std::bad_alloc();
  }
  ~FftwBuffer() { fftw_free(p); }
};

}  // namespace

struct FFTPlan::Impl {
  Kind kind;
  Direction direction;
  std::vector<size_t> sizes;
  unsigned rigor;
  size_t inCount = 1, outCount = 1;
  int rank = 0;
  int dims[3] = {0, 0, 0};  // FFTW's order: reversed
  std::uintptr_t alignMask = simdAlignment() - 1;
  mutable std::atomic<fftw_plan> plans[kVariants] = {};

  // The plan of a variant, made on first use under the planner lock.
  fftw_plan plan(int variant) const {
    fftw_plan p = plans[variant].load(std::memory_order_acquire);
    if (p) return p;
    std::lock_guard<std::mutex> guard(plannerLock());
    p = plans[variant].load(std::memory_order_relaxed);
    if (p) return p;
    p = make(variant);
    QV_ASSERT(p, fftplan);
    plans[variant].store(p, std::memory_order_release);
    return p;
  }

  // Plans on scratch arrays of the variant's placement and alignment (a
  // measuring planner overwrites them); the plan then runs on any arrays of
  // that placement and alignment.
  fftw_plan make(int variant) const {
    const bool inPlace = variant & kInPlace;
    const unsigned flags = rigor | (variant & kUnaligned ? FFTW_UNALIGNED : 0u);
    const size_t inBytes = inCount * (kind == Kind::RealToComplex ? sizeof(double) : sizeof(dcomplex));
    const size_t outBytes = outCount * (kind == Kind::ComplexToReal ? sizeof(double) : sizeof(dcomplex));
    FftwBuffer in(inBytes), out(inPlace ? 0 : outBytes);
    void* o = inPlace ? in.p : out.p;
    switch (kind) {
      case Kind::Complex:
        return fftw_plan_dft(rank, dims, static_cast<fftw_complex*>(in.p),
                             static_cast<fftw_complex*>(o),
                             direction == Direction::Forward ? FFTW_FORWARD : FFTW_BACKWARD, flags);
      case Kind::RealToComplex:
        return fftw_plan_dft_r2c(rank, dims, static_cast<double*>(in.p),
                                 static_cast<fftw_complex*>(o), flags);
      case Kind::ComplexToReal:
        return fftw_plan_dft_c2r(rank, dims, static_cast<fftw_complex*>(in.p),
                                 static_cast<double*>(o), flags);
    }
    return nullptr;
  }

  int variantFor(const void* in, const void* out) const {
    const auto bits = reinterpret_cast<std::uintptr_t>(in) | reinterpret_cast<std::uintptr_t>(out);
    return (in == out ? kInPlace : 0) | (bits & alignMask ? kUnaligned : 0);
  }

  // The alignment FFTW's SIMD plans assume, found once from FFTW itself
  // (fftw_alignment_of), so that each execute tests it inline.
  static std::uintptr_t simdAlignment() {
    static const std::uintptr_t alignment = [] {
      std::uintptr_t a = 1;
      while (a < 256 && fftw_alignment_of(reinterpret_cast<double*>(a)) != 0) a *= 2;
      return a;
    }();
    return alignment;
  }
};

FFTPlan::FFTPlan(Kind kind, Direction direction, std::vector<size_t> sizes, Rigor rigor) {
  // Checks first: sizes FFTW can take, the kind's direction.
  QV_CHECK(!sizes.empty() && sizes.size() <= 3, fftplan, Invalid_FFT_size, "Rank",
           static_cast<std::int64_t>(sizes.size()));
  size_t count = 1;
  for (size_t s : sizes) {
    QV_CHECK(s >= 1 && s <= static_cast<size_t>(INT_MAX), fftplan, Invalid_FFT_size, "Size",
             static_cast<std::int64_t>(s));
    QV_CHECK(!__builtin_mul_overflow(count, s, &count) && count <= static_cast<size_t>(INT_MAX),
             fftplan, Invalid_FFT_size, "Too many elements.");
  }
  if (kind == Kind::RealToComplex) direction = Direction::Forward;
  if (kind == Kind::ComplexToReal) direction = Direction::Backward;

  impl_ = std::make_unique<Impl>();
  Impl& p = *impl_;
  p.kind = kind;
  p.direction = direction;
  p.sizes = std::move(sizes);
  p.rigor = rigor == Rigor::Measure ? FFTW_MEASURE : FFTW_ESTIMATE;
  p.rank = static_cast<int>(p.sizes.size());
  for (int d = 0; d < p.rank; ++d) p.dims[d] = static_cast<int>(p.sizes[p.rank - 1 - d]);
  const size_t half = count / p.sizes[0] * (p.sizes[0] / 2 + 1);
  p.inCount = kind == Kind::ComplexToReal ? half : count;
  p.outCount = kind == Kind::RealToComplex ? half : count;
  p.plan(0);
}

FFTPlan::~FFTPlan() {
  if (!impl_) return;
  std::lock_guard<std::mutex> guard(plannerLock());
  for (auto& p : impl_->plans)
    if (fftw_plan q = p.load(std::memory_order_acquire)) fftw_destroy_plan(q);
}

FFTPlan::FFTPlan(FFTPlan&&) noexcept = default;
FFTPlan& FFTPlan::operator=(FFTPlan&& other) noexcept {
  FFTPlan gone(std::move(*this));
  impl_ = std::move(other.impl_);
  return *this;
}

FFTPlan::Kind FFTPlan::kind() const { return impl_->kind; }
FFTPlan::Direction FFTPlan::direction() const { return impl_->direction; }
const std::vector<size_t>& FFTPlan::sizes() const { return impl_->sizes; }
size_t FFTPlan::inputCount() const { return impl_->inCount; }
size_t FFTPlan::outputCount() const { return impl_->outCount; }

void FFTPlan::execute(const dcomplex* in, dcomplex* out) const {
  QV_CHECK(impl_->kind == Kind::Complex, fftplan, FFT_size_mismatch, "Complex input and output.");
  auto* i = reinterpret_cast<fftw_complex*>(const_cast<dcomplex*>(in));
  fftw_execute_dft(impl_->plan(impl_->variantFor(in, out)), i,
                   reinterpret_cast<fftw_complex*>(out));
}

void FFTPlan::execute(const double* in, dcomplex* out) const {
  QV_CHECK(impl_->kind == Kind::RealToComplex, fftplan, FFT_size_mismatch,
           "Real input, complex output.");
  QV_CHECK(static_cast<const void*>(in) != out, fftplan, FFT_size_mismatch,
           "Real transforms do not run in place.");
  fftw_execute_dft_r2c(impl_->plan(impl_->variantFor(in, out)), const_cast<double*>(in),
                       reinterpret_cast<fftw_complex*>(out));
}

void FFTPlan::execute(dcomplex* in, double* out) const {
  QV_CHECK(impl_->kind == Kind::ComplexToReal, fftplan, FFT_size_mismatch,
           "Complex input, real output.");
  QV_CHECK(static_cast<const void*>(in) != out, fftplan, FFT_size_mismatch,
           "Real transforms do not run in place.");
  fftw_execute_dft_c2r(impl_->plan(impl_->variantFor(in, out)),
                       reinterpret_cast<fftw_complex*>(in), out);
}

// The input must have the plan's input sizes; the output gets its output
// sizes (storage kept when the count is unchanged).
template <int N, class In, class Out>
void FFTPlan::checkArrays(const Array<In, N>& in, Array<Out, N>& out) const {
  const Impl& p = *impl_;
  QV_CHECK(N == p.rank, fftplan, FFT_size_mismatch, "Rank", static_cast<std::int64_t>(N));
  size_t inSizes[3], outSizes[3];
  for (int d = 0; d < N; ++d) inSizes[d] = outSizes[d] = p.sizes[d];
  if (p.kind == Kind::ComplexToReal) inSizes[0] = p.sizes[0] / 2 + 1;
  if (p.kind == Kind::RealToComplex) outSizes[0] = p.sizes[0] / 2 + 1;
  for (int d = 0; d < N; ++d)
    QV_CHECK(in.sizes[d] == inSizes[d], fftplan, FFT_size_mismatch, "Dimension",
             static_cast<std::int64_t>(d));
  if constexpr (N == 1) out.resize(outSizes[0]);
  if constexpr (N == 2) out.resize(outSizes[0], outSizes[1]);
  if constexpr (N == 3) out.resize(outSizes[0], outSizes[1], outSizes[2]);
}

template <int N>
void FFTPlan::execute(const Array<dcomplex, N>& in, Array<dcomplex, N>& out) const {
  checkArrays(in, out);
  execute(in.data, out.data);
}

template <int N>
void FFTPlan::execute(const Array<double, N>& in, Array<dcomplex, N>& out) const {
  checkArrays(in, out);
  execute(in.data, out.data);
}

template <int N>
void FFTPlan::execute(Array<dcomplex, N>& in, Array<double, N>& out) const {
  checkArrays(in, out);
  execute(in.data, out.data);
}

#define QV_FFT_ARRAYS(N)                                                                   \
  template QVARRAY_API void FFTPlan::execute<N>(const Array<dcomplex, N>&,                 \
                                                Array<dcomplex, N>&) const;                \
  template QVARRAY_API void FFTPlan::execute<N>(const Array<double, N>&, Array<dcomplex, N>&) \
      const;                                                                               \
  template QVARRAY_API void FFTPlan::execute<N>(Array<dcomplex, N>&, Array<double, N>&) const;
QV_FFT_ARRAYS(1)
QV_FFT_ARRAYS(2)
QV_FFT_ARRAYS(3)
#undef QV_FFT_ARRAYS

std::string FFTPlan::exportWisdom() {
  std::lock_guard<std::mutex> guard(plannerLock());
  char* text = fftw_export_wisdom_to_string();
  if (!text) throw std::bad_alloc();
  std::string out(text);
  std::free(text);
  return out;
}

bool FFTPlan::importWisdom(const std::string& text) {
  std::lock_guard<std::mutex> guard(plannerLock());
  return fftw_import_wisdom_from_string(text.c_str()) == 1;
}

void FFTPlan::forgetWisdom() {
  std::lock_guard<std::mutex> guard(plannerLock());
  fftw_forget_wisdom();
}

}  // namespace qvarray
