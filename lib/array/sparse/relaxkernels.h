#pragma once
// Building blocks of the relaxation steps (qvarray/sparserelax.h): the view of
// a prepared storage object, the per-column steps, and the column loops that
// the serial and the block-parallel drivers share.
//
// Storage invariant the steps rely on: rows ascend within each column and
// diag[i] is the position of column i's diagonal entry (stored row
// i + first column). Column i splits into B = [colptr[i], diag[i]) (stored
// rows above the diagonal) and F = (diag[i], colptr[i+1]) (rows below).
//
// Index spaces: x[i] is addressed by column; a row-space vector v (r, y, the
// updater's vector) by stored row k as v[k − firstRow], so column i owns
// v[i + shift] with shift = firstColumn − firstRow.
//
// Kinds of storage, by the side of the diagonal each step reads and writes:
//            sweep forward            residual after a forward sweep
//   General  scatter F                scatter B        (mode 0, S = A)
//   Rows     gather B                 gather F         (mode 3, S = Aᵀ)
//   Sym      gather B, scatter F      gather F, scatter B   (modes 1, 2)
// Backward exchanges B and F. Gathered entries act mirrored in the symmetric
// modes (conjugated for Hermitian storage), scattered ones as stored.
#include <complex>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <vector>

#include "qvarray/sparse/llsparse.h"
#include "qvarray/sparse/sparsemodes.h"

namespace qvarray::relax {

using dcomplex = std::complex<double>;

template <class TA>
struct View {
  const size_t* colptr = nullptr;
  const size_t* row = nullptr;
  const TA* val = nullptr;
  const size_t* diag = nullptr;
  size_t m = 0, n = 0;
  size_t firstRow = 0;
  size_t shift = 0;  ///< firstColumn − firstRow
  Symm_t symm = SymmNone;
};

template <class TA>
View<TA> viewOf(const llsparse<TA>& s) {
  View<TA> v;
  v.colptr = s.colptr.data;
  v.row = s.row;
  v.val = s.value;
  v.diag = s.diag.data;
  v.m = s.m;
  v.n = s.n;
  v.firstRow = s.firstRow;
  v.shift = s.firstColumn - s.firstRow;
  v.symm = s.symm;
  return v;
}

/// The factors of one call: ω (ω' in the symmetric modes) and c = (ω − 1)/ω
/// (c' = 2c in the symmetric modes).
struct Factors {
  double omega;
  double c;
};

inline Factors factorsFor(Symm_t symm, double omega) {
  const bool sym = symm == SymmSymmetric || symm == SymmHermitian;
  const double c = (omega - 1.0) / omega;
  return sym ? Factors{omega * 0.5, 2.0 * c} : Factors{omega, c};
}

// ---- scalar helpers -----------------------------------------------------------

template <class T>
inline constexpr bool isComplex = std::is_same_v<T, dcomplex>;

/// The entry in its mirrored role: conjugated for Hermitian complex storage.
template <bool Herm, class TA>
inline TA mirror(const TA& a) {
  if constexpr (Herm && isComplex<TA>)
    return std::conj(a);
  else
    return a;
}

/// The diagonal divisor: the real part for Hermitian storage.
template <bool Herm, class TA>
inline auto divisor(const TA& d) {
  if constexpr (Herm && isComplex<TA>)
    return d.real();
  else
    return d;
}

/// s + Σ_{p∈[b,e)} mirror(a_p)·v[row_p − fr], unrolled by four.
template <bool Herm, class TA, class TV>
inline TV gather(const TA* val, const size_t* row, const TV* v, size_t fr, size_t b, size_t e,
                 TV s) {
  size_t p = b;
  for (; p + 4 <= e; p += 4) {
    const TV t0 = mirror<Herm>(val[p]) * v[row[p] - fr];
    const TV t1 = mirror<Herm>(val[p + 1]) * v[row[p + 1] - fr];
    const TV t2 = mirror<Herm>(val[p + 2]) * v[row[p + 2] - fr];
    const TV t3 = mirror<Herm>(val[p + 3]) * v[row[p + 3] - fr];
    s += (t0 + t1) + (t2 + t3);
  }
  for (; p < e; ++p) s += mirror<Herm>(val[p]) * v[row[p] - fr];
  return s;
}

/// v[row_p − fr] += δ·a_p for p ∈ [b, e) (rows within a column are distinct).
template <class TA, class TV>
inline void scatter(const TA* val, const size_t* row, TV* v, size_t fr, size_t b, size_t e,
                    TV delta) {
  for (size_t p = b; p < e; ++p) v[row[p] - fr] += delta * val[p];
}

// ---- the parts of a column --------------------------------------------------------

/// Column i: B = [cs, dp), the diagonal at dp, F = (dp, ce).
struct ColumnSides {
  size_t cs, dp, ce;
};

inline ColumnSides sidesOf(const size_t* colptr, const size_t* diag, size_t i) {
  return {colptr[i], diag[i], colptr[i + 1]};
}

// ---- column loops --------------------------------------------------------------

/// One SOR step at column i on its part `c`: gather over the side already
/// visited, compute δ_i, r_i ← δ_i, x_i += δ_i, scatter over the side still
/// to come. Gather/Scatter select the kind (see the table above).
template <bool Gather, bool Scatter, bool Herm, bool Backward, class TA, class TX, class TR>
inline void sweepColumn(const View<TA>& A, TX* x, TR* r, double omega, size_t i, const ColumnSides& c) {
  const size_t fr = A.firstRow;
  const size_t gb = Backward ? c.dp + 1 : c.cs, ge = Backward ? c.ce : c.dp;
  const size_t sb = Backward ? c.cs : c.dp + 1, se = Backward ? c.dp : c.ce;
  TR& ri = r[i + A.shift];
  TR s = ri;
  if constexpr (Gather) s = gather<Herm>(A.val, A.row, r, fr, gb, ge, s);
  const TR delta = -(s / divisor<Herm>(A.val[c.dp])) * omega;
  ri = delta;
  x[i] += delta;
  if constexpr (Scatter) scatter(A.val, A.row, r, fr, sb, se, delta);
}

/// One SOR sweep over columns [c0, c1).
template <bool Gather, bool Scatter, bool Herm, bool Backward, class TA, class TX, class TR>
void sweepColumns(const View<TA>& A, TX* x, TR* r, double omega, size_t c0, size_t c1) {
  const size_t cnt = c1 - c0;
  for (size_t k = 0; k < cnt; ++k) {
    const size_t i = Backward ? c1 - 1 - k : c0 + k;
    sweepColumn<Gather, Scatter, Herm, Backward>(A, x, r, omega, i,
                                                 sidesOf(A.colptr, A.diag, i));
  }
}

/// c·d_i·u_i + Σ over the gathered side of column i (F when FlagF, else B)
/// of mirror(a)·u: column i's row of c·D + U (or of c·D + L) times u.
template <bool Herm, bool FlagF, class TA, class TV>
inline TV updatedValue(const View<TA>& A, const TV* u, double c, size_t i, const ColumnSides& cl) {
  const size_t gb = FlagF ? cl.dp + 1 : cl.cs, ge = FlagF ? cl.ce : cl.dp;
  const TV w = c * divisor<Herm>(A.val[cl.dp]) * u[i + A.shift];
  return gather<Herm>(A.val, A.row, u, A.firstRow, gb, ge, w);
}

/// One step of the in-place pass at column i: v_i ← c·d_i·v_i + Σ_gather
/// mirror(a)·v, and, with Scatter, v_k += a·v_i_old over the other side. The
/// gathered side is F when FlagF, else B.
template <bool Gather, bool Scatter, bool Herm, bool FlagF, class TA, class TV>
inline void passColumn(const View<TA>& A, TV* v, double c, size_t i, const ColumnSides& cl) {
  TV& vi = v[i + A.shift];
  const TV old = vi;
  TV w;
  if constexpr (Gather)
    w = updatedValue<Herm, FlagF>(A, v, c, i, cl);
  else
    w = c * divisor<Herm>(A.val[cl.dp]) * old;
  if constexpr (Scatter) {
    const size_t sb = FlagF ? cl.cs : cl.dp + 1, se = FlagF ? cl.dp : cl.ce;
    scatter(A.val, A.row, v, A.firstRow, sb, se, old);
  }
  vi = w;
}

/// The in-place pass over columns [c0, c1), increasing when the gathered side
/// is F (FlagF), decreasing otherwise, so that every gathered value is still
/// the old one. Without scatter this is SORUpdater; with the sides of a
/// General/Rows/Sym residual it turns a correction δ held in v into the
/// residual that follows the sweep.
template <bool Gather, bool Scatter, bool Herm, bool FlagF, class TA, class TV>
void passColumns(const View<TA>& A, TV* v, double c, size_t c0, size_t c1) {
  const size_t cnt = c1 - c0;
  for (size_t k = 0; k < cnt; ++k) {
    const size_t i = FlagF ? c0 + k : c1 - 1 - k;
    passColumn<Gather, Scatter, Herm, FlagF>(A, v, c, i, sidesOf(A.colptr, A.diag, i));
  }
}

/// Mode 0 sweep and residual at column i: δ_i from y_i, x_i += δ_i,
/// y_i ← (1 − ω)·y_i (its residual after the step), y_k += a_ki·δ_i for the
/// other rows of the column. Any visiting order gives r + A·δ in the end.
template <class TA, class TX, class TR>
inline void sweepResidualColumn(const View<TA>& A, TX* x, TR* y, double omega, size_t i) {
  const size_t fr = A.firstRow;
  const size_t cs = A.colptr[i], ce = A.colptr[i + 1], dp = A.diag[i];
  TR& yi = y[i + A.shift];
  const TR delta = -(yi / A.val[dp]) * omega;
  x[i] += delta;
  yi *= 1.0 - omega;
  scatter(A.val, A.row, y, fr, cs, dp, delta);
  scatter(A.val, A.row, y, fr, dp + 1, ce, delta);
}

template <bool Backward, class TA, class TX, class TR>
void sweepResidualGeneral(const View<TA>& A, TX* x, TR* y, double omega, size_t c0, size_t c1) {
  const size_t cnt = c1 - c0;
  for (size_t k = 0; k < cnt; ++k)
    sweepResidualColumn(A, x, y, omega, Backward ? c1 - 1 - k : c0 + k);
}

// ---- compile-time dispatch ---------------------------------------------------------

/// f(std::true_type) or f(std::false_type).
template <class F>
decltype(auto) withBool(bool b, F&& f) {
  return b ? f(std::true_type{}) : f(std::false_type{});
}

/// f(gather, scatter, herm) as std::bool_constant values for the kind of the
/// storage mode (General for mode 0).
template <class TA, class F>
void withKind(Symm_t symm, F&& f) {
  using T = std::true_type;
  using N = std::false_type;
  switch (symm) {
    case SymmTransposed: f(T{}, N{}, N{}); break;
    case SymmSymmetric: f(T{}, T{}, N{}); break;
    case SymmHermitian: f(T{}, T{}, std::bool_constant<isComplex<TA>>{}); break;
    default: f(N{}, T{}, N{}); break;
  }
}

// ---- typed entry points (explicitly instantiated in the kernel sources) ---------

// Serial kernels (sorserial.cpp, jacobi.cpp): the whole matrix.
template <class TA, class TX, class TR>
void serialJacobi(const View<TA>& A, TX* x, const TR* r, double omega, size_t begin, size_t end);
template <class TA, class TX, class TR>
void serialSweep(const View<TA>& A, TX* x, TR* r, double omega, bool backward);
template <class TA, class TV>
void serialUpdate(const View<TA>& A, TV* x, double omega, bool flag);
template <class TA, class TX, class TR>
void serialSweepUpdate(const View<TA>& A, TX* x, TR* y, double omega, bool backward);

/// The parallel ordering of a pattern for a number of blocks (sorparallel.cpp
/// explains it): the column blocks, the rows each owns, and which columns are
/// interior to their block.
struct Ordering {
  enum : unsigned char { kBoundary = 0, kNear = 1, kDeep = 2 };
  size_t blocks = 0;
  std::vector<size_t> col;  ///< blocks + 1 column boundaries
  std::vector<size_t> lo;   ///< per block the first stored row it owns
  /// Per column: kBoundary; kNear, interior with an entry in a boundary row;
  /// kDeep, interior with all entries in interior rows.
  std::vector<unsigned char> kind;
  /// Per row-space entry: 1 when it is the diagonal row of an interior column.
  std::vector<unsigned char> rowInterior;
  std::vector<size_t> boundary;  ///< the boundary columns, increasing

  /// The end of the stored rows block t owns.
  size_t hi(size_t t) const { return t + 1 < blocks ? lo[t + 1] : static_cast<size_t>(-1); }
};

/// Builds the ordering of A's pattern for `blocks` ≥ 2 (one pass over it).
template <class TA>
std::shared_ptr<const Ordering> makeOrdering(const View<TA>& A, int blocks);

// Block-parallel kernels (sorparallel.cpp, jacobi.cpp): return the number of
// blocks.
template <class TA, class TX, class TR>
int parallelJacobi(const View<TA>& A, TX* x, const TR* r, double omega, int blocks);
template <class TA, class TX, class TR>
int parallelSweep(const View<TA>& A, const Ordering& P, TX* x, TR* r, double omega,
                  bool backward);
template <class TA, class TV>
int parallelUpdate(const View<TA>& A, TV* x, double omega, bool flag, int blocks);
template <class TA, class TX, class TR>
int parallelSweepUpdate(const View<TA>& A, const Ordering& P, TX* x, TR* y, double omega,
                        bool backward);

/// Listed columns J (strictly increasing) and how they address the vectors:
/// column cols[t] owns x[i2(t)] and r[i3(t)] (for the updater: reads at i2,
/// writes at i3). Without explicit lists i2(t) = cols[t] + shift2 and
/// i3(t) = cols[t] + shift3.
struct ColumnList {
  const size_t* cols = nullptr;
  size_t count = 0;
  const size_t* idx2 = nullptr;
  const size_t* idx3 = nullptr;
  size_t shift2 = 0, shift3 = 0;
  size_t firstColumn = 0;
  bool contiguous = false;  ///< cols = cols[0], cols[0] + 1, …

  size_t i2(size_t t) const { return idx2 ? idx2[t] : cols[t] + shift2; }
  size_t i3(size_t t) const { return idx3 ? idx3[t] : cols[t] + shift3; }
  /// The ordinal t of stored row k's column in the list, or npos.
  size_t ordinalOfRow(size_t k) const;
};

// Restricted kernels (sorrestricted.cpp): serial, on A(J, J).
template <class TA, class TX, class TR>
void listSweep(const View<TA>& A, const ColumnList& J, TX* x, TR* r, double omega,
               bool backward);
template <class TA, class TV>
void listUpdate(const View<TA>& A, const ColumnList& J, TV* x, double omega, bool flag);
template <class TA, class TX, class TR>
void listSweepUpdate(const View<TA>& A, const ColumnList& J, TX* x, TR* y, double omega,
                     bool backward);

}  // namespace qvarray::relax
