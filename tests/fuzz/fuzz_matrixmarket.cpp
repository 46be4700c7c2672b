// libFuzzer target of the MatrixMarket reader. Each input is read by the
// sparse reader (expanded and in symmetric storage) and by the dense reader.
// A finding is a crash or sanitizer report, an exception other than the
// reader's format errors and the allocation failure, or a broken oracle:
// - the assembled storage is consistent;
// - what the one writer writes reads back to the same matrix, bit for bit;
// - the dense and the sparse reader make the same matrix of the input.
//
// Allocation failures must be handled: run with
// ASAN_OPTIONS=allocator_may_return_null=1:max_allocation_size_mb=N, and the
// operator new below turns a refused allocation into std::bad_alloc, as a
// real allocator does (the sanitizer's own operator new would end the run).
// Every form of new takes malloc's memory, and every delete frees it.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sstream>
#include <string>
#include <string_view>

#include "io/mmwriter.h"
#include "qvarray/io/densemm.h"
#include "qvarray/io/sparsemm.h"
#include "qvarray/sparse/llsparse.h"
#include "qvutil/errors.h"

void* operator new(size_t n) {
  if (void* p = std::malloc(n ? n : 1)) return p;
  throw std::bad_alloc();
}
void* operator new[](size_t n) { return operator new(n); }
void* operator new(size_t n, std::align_val_t a) {
  void* p = nullptr;
  if (posix_memalign(&p, static_cast<size_t>(a), n ? n : 1) == 0) return p;
  throw std::bad_alloc();
}
void* operator new[](size_t n, std::align_val_t a) { return operator new(n, a); }
void* operator new(size_t n, const std::nothrow_t&) noexcept { return std::malloc(n ? n : 1); }
void* operator new[](size_t n, const std::nothrow_t&) noexcept { return std::malloc(n ? n : 1); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t, std::align_val_t) noexcept { std::free(p); }

namespace {

using dcomplex = std::complex<double>;

[[noreturn]] void finding(const char* what) {
  std::fprintf(stderr, "finding: %s\n", what);
  std::abort();
}

// The errors a malformed input may raise; anything else is a finding.
void expected(const qvbase::Exception& e) {
  if (e.key() != "Invalid_MatrixMarket_file" &&
      e.key() != "Complex_MatrixMarket_file_for_real_array") {
    std::fprintf(stderr, "%s\n", e.what());
    finding("unexpected error key");
  }
}

bool same(double a, double b) {
  return a == b ? std::signbit(a) == std::signbit(b) : (a != a && b != b);
}
bool same(const dcomplex& a, const dcomplex& b) {
  return same(a.real(), b.real()) && same(a.imag(), b.imag());
}
// Equal values: -0 equals +0 (the readers may sum in a zero first).
bool equal(const dcomplex& a, const dcomplex& b) {
  auto eq = [](double x, double y) { return x == y || (x != x && y != y); };
  return eq(a.real(), b.real()) && eq(a.imag(), b.imag());
}

template <class T>
struct Assembled {
  llsparse<T> S;
  bool ok = false;
};

// Triplet assembly as Sparse::vectorTripletToSparse does it, at the storage
// level: the size check, then the assembly.
template <class T>
void assemble(const qvarray::MatrixMarketTriplets& t, const std::vector<T>& values,
              Assembled<T>& out) {
  const bool oneValue = values.size() == 1 && t.rows.size() != 1;
  try {
    qvarray::checkSparseSizes(t.m, t.n);
    out.S.assembleTriplets(t.rows.data(), t.cols.data(), values.data(), t.rows.size(), t.m, t.n,
                           oneValue);
  } catch (const std::bad_alloc&) {
    return;
  } catch (const qvbase::Exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    finding("the reader let through triplets the assembly refuses");
  }
  if (!out.S.isConsistent()) finding("inconsistent storage");
  out.ok = true;
}

template <class T>
std::string write(const llsparse<T>& S) {
  std::ostringstream os;
  qvarray::mmio::Writer w(os, "fuzz");
  w.header(qvarray::MatrixMarketInfo::Format::Coordinate, std::is_same_v<T, dcomplex>,
           qvarray::MatrixMarketInfo::Symmetry::General);
  w.sizes(S.m, S.n, S.nnz);
  for (size_t j = 0; j < S.n; ++j)
    for (size_t p = S.colptr[j]; p < S.colptr[j + 1]; ++p) w.entry(S.row[p], j, S.value[p]);
  w.finish();
  return os.str();
}

template <class T>
void roundTrip(const llsparse<T>& S) {
  qvarray::MatrixMarketTriplets t;
  try {
    t = qvarray::parseMatrixMarket(write(S), "written");
  } catch (const std::bad_alloc&) {
    return;
  }
  Assembled<T> B;
  if constexpr (std::is_same_v<T, double>) assemble(t, t.realValues, B);
  else assemble(t, t.complexValues, B);
  if (!B.ok) return;
  if (B.S.m != S.m || B.S.n != S.n || B.S.nnz != S.nnz) finding("round trip: sizes");
  for (size_t j = 0; j <= S.n; ++j)
    if (B.S.colptr[j] != S.colptr[j]) finding("round trip: column pointers");
  for (size_t p = 0; p < S.nnz; ++p)
    if (B.S.row[p] != S.row[p] || !same(B.S.value[p], S.value[p])) finding("round trip: entries");
}

// The expanded matrix of S as a dense column-major array.
template <class T>
std::vector<dcomplex> dense(const llsparse<T>& S) {
  std::vector<dcomplex> A(S.m * S.n);
  for (size_t j = 0; j < S.n; ++j)
    for (size_t p = S.colptr[j]; p < S.colptr[j + 1]; ++p) A[S.row[p] + j * S.m] += S.value[p];
  return A;
}

// Reads the input with the sparse reader, assembles, checks the storage and
// the round trip; the expanded matrix is compared with the dense reader's.
template <class T>
void checkSparse(const qvarray::MatrixMarketTriplets& t, bool keep, const Array<dcomplex, 2>* D) {
  Assembled<T> A;
  if constexpr (std::is_same_v<T, double>) assemble(t, t.realValues, A);
  else assemble(t, t.complexValues, A);
  if (!A.ok) return;
  roundTrip(A.S);
  if (keep || !D) return;
  if (D->sizes[0] != A.S.m || D->sizes[1] != A.S.n) finding("readers disagree on the size");
  if (D->count > (1u << 16)) return;
  const std::vector<dcomplex> S = dense(A.S);
  for (size_t k = 0; k < D->count; ++k)
    if (!equal(S[k], (*D)[k])) finding("readers disagree on a value");
}

// The dense reader's matrix of the input, or null when it refuses.
bool readDense(std::string_view text, Array<dcomplex, 2>& D) {
  try {
    std::istringstream in{std::string(text)};
    qvarray::readMatrixMarket(in, "fuzz.mtx", D);
  } catch (const qvbase::Exception& e) {
    expected(e);
    return false;
  } catch (const std::bad_alloc&) {
    return false;
  }
  if (D.count > (1u << 16)) return true;
  // The real form reads a real file to the same values.
  Array<double, 2> R;
  try {
    std::istringstream in{std::string(text)};
    qvarray::readMatrixMarket(in, "fuzz.mtx", R);
    for (size_t k = 0; k < D.count; ++k)
      if (!same(R[k], D[k].real()) || D[k].imag() != 0.0)
        finding("real and complex dense reads disagree");
  } catch (const qvbase::Exception& e) {
    expected(e);
  } catch (const std::bad_alloc&) {
  }
  // The dense writer's text reads back to the same array.
  std::ostringstream os;
  qvarray::writeMatrixMarket(os, D);
  std::istringstream in(os.str());
  Array<dcomplex, 2> back;
  qvarray::readMatrixMarket(in, "written", back);
  if (back.sizes[0] != D.sizes[0] || back.sizes[1] != D.sizes[1]) finding("dense round trip");
  for (size_t k = 0; k < D.count; ++k)
    if (!same(back[k], D[k])) finding("dense round trip: values");
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  Array<dcomplex, 2> D;
  const bool dense = readDense(text, D);
  for (bool keep : {false, true}) {
    qvarray::MatrixMarketTriplets t;
    try {
      t = qvarray::parseMatrixMarket(text, "fuzz.mtx", keep);
    } catch (const qvbase::Exception& e) {
      expected(e);
      continue;
    } catch (const std::bad_alloc&) {
      continue;
    }
    if (t.isComplex) checkSparse<dcomplex>(t, keep, dense ? &D : nullptr);
    else checkSparse<double>(t, keep, dense ? &D : nullptr);
  }
  return 0;
}
