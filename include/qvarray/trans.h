#pragma once
// Transposition selector of the matrix kernels. Values are fixed: they are
// passed between separately built modules. On real data ConjTrans acts as Trans.

namespace qvarray {

enum Trans_t : int {
  NoTrans = 0,    ///< use A as it is ("N")
  Trans = 1,      ///< use the transpose of A ("T")
  ConjTrans = 2,  ///< use the conjugate transpose of A ("C")
};

/// The BLAS/LAPACK character of a selector; an illegal selector maps to '?',
/// which BLAS rejects as an illegal argument.
constexpr char transChar(Trans_t t) {
  return t == NoTrans ? 'N' : t == Trans ? 'T' : t == ConjTrans ? 'C' : '?';
}

}  // namespace qvarray

using qvarray::Trans_t;
