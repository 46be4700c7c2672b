// qvNull, orthonormal method: one block's rows restricted to its unknowns,
// B_b = U·Σ·Vᴴ by the dense SVD. With r the number of singular values above
// rankTol·σ_max:
//   N-part       = V(:, r:)      (orthonormal null columns)
//   range of Bᴴ  = V(:, :r)      (also the complement holding u₀)
//   range of B   = U(:, :r),  null of Bᴴ = U(:, r:)
//   P-part       = V(:, :r)·Σ⁻¹·U(:, :r)ᴴ   (u₀ = P·r, the minimum-norm solution)
#include "qvarray/arrayutil.h"
#include "qvutil/errors.h"
#include "sparse/qvnullimpl.h"

namespace qvarray::nulldetail {

template <class T>
void svdBlock(const Constraints<T>& B, const Blocks& blocks, size_t b, const NullOptions& o,
              Collect<T>& out) {
  const size_t mb = blocks.rowCount(b), cb = blocks.colCount(b);
  const size_t* rows = blocks.rows.data() + blocks.rowStart[b];
  const size_t* cols = blocks.cols.data() + blocks.colStart[b];

  Array<T, 2> A(mb, cb), U, VT;
  A.fill(T(0));
  for (size_t li = 0; li < mb; ++li)
    for (size_t p = B.rowptr[rows[li]]; p < B.rowptr[rows[li] + 1]; ++p)
      A(li, blocks.local[B.col[p]]) = B.rval[p];
  Array<double, 1> S;
  const int info = svd('A', 'A', A, U, S, VT, RaiseOnIllegal);
  if (info > 0)
    QV_RAISE(qvnull, Constraint_elimination_failed_in_SVD,
             DetailPairs{{"Block", std::to_string(b)},
                         {"Rows", std::to_string(mb)},
                         {"Unknowns", std::to_string(cb)}});

  size_t r = 0;
  while (r < S.count && S[r] > o.rankTol * S[0]) ++r;
  out.rank += r;

  // V's column k is the conjugate of row k of Vᴴ.
  for (size_t k = r; k < cb; ++k) {
    out.N.open(cols[0]);
    for (size_t t = 0; t < cb; ++t) out.N.add(cols[t], conjugate(VT(k, t)));
    out.N.close();
  }
  for (size_t k = 0; k < r; ++k) {
    const size_t c1 = out.complement.newColumn(), c2 = out.rangeBt.newColumn();
    for (size_t t = 0; t < cb; ++t) {
      out.complement.add(cols[t], c1, conjugate(VT(k, t)));
      out.rangeBt.add(cols[t], c2, conjugate(VT(k, t)));
    }
    const size_t c3 = out.rangeB.newColumn();
    for (size_t li = 0; li < mb; ++li) out.rangeB.add(rows[li], c3, U(li, k));
  }
  for (size_t k = r; k < mb; ++k) {
    const size_t c = out.leftNull.newColumn();
    for (size_t li = 0; li < mb; ++li) out.leftNull.add(rows[li], c, U(li, k));
  }
  // P-part = V₁·W with W = Σ⁻¹·U₁ᴴ (r × mb); its column li is constraint rows[li].
  if (r == 0) return;
  Array<T, 2> V1(cb, r), W(r, mb), Pb;
  for (size_t k = 0; k < r; ++k) {
    for (size_t t = 0; t < cb; ++t) V1(t, k) = conjugate(VT(k, t));
    for (size_t li = 0; li < mb; ++li) W(k, li) = conjugate(U(li, k)) / S[k];
  }
  matmatAMulB(V1, W, T(1), T(0), Pb);
  for (size_t li = 0; li < mb; ++li)
    for (size_t t = 0; t < cb; ++t) out.P.add(cols[t], rows[li], Pb(t, li));
}

template void svdBlock<double>(const Constraints<double>&, const Blocks&, size_t,
                               const NullOptions&, Collect<double>&);
template void svdBlock<dcomplex>(const Constraints<dcomplex>&, const Blocks&, size_t,
                                 const NullOptions&, Collect<dcomplex>&);

}  // namespace qvarray::nulldetail
