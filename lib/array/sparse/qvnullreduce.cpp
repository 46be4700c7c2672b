// Constraint elimination on K·u = f with the sparse products: Nᴴ·K·N,
// Nᴴ·(f − K·u₀) and u = N·v + u₀.
#include "qvarray/sparse/qvnullreduce.h"

#include <string>

#include "qvarray/sparse/sparseproducts.h"
#include "qvutil/errors.h"
#include "sparse/qvnullimpl.h"

namespace qvarray {

using namespace nulldetail;

namespace {

void checkOperator(const NullSpace& ns, const Sparse& K) {
  if (K.getM() != ns.n || K.getN() != ns.n)
    QV_RAISE(qvnull, Size_sparse_matrices_disagree,
             DetailPairs{{"Unknowns", std::to_string(ns.n)},
                         {"Rows", std::to_string(K.getM())},
                         {"Columns", std::to_string(K.getN())}});
}

void checkLength(const Vector& v, size_t n, const char* name) {
  if (v.size() != n)
    QV_RAISE(qvnull, Size_vector_sparse_matrix_disagree,
             DetailPairs{{"Vector", name},
                         {"Expected", std::to_string(n)},
                         {"Length", std::to_string(v.size())}});
}

}  // namespace

Sparse reduceMatrix(const NullSpace& ns, const Sparse& K) {
  checkOperator(ns, K);
  Sparse A = K;  // shares K's storage until the product replaces it
  A.mulRight(ns.N, NoTrans, true);
  A.multLeft(ns.N, ConjTrans, true);
  return A;
}

Vector reduceVector(const NullSpace& ns, const Sparse& K, const Vector& f, const Vector& u0) {
  checkOperator(ns, K);
  checkLength(f, ns.n, "f");
  checkLength(u0, ns.n, "u0");
  Vector g = f;
  yMinusAMulx(g, K, u0, NoTrans);
  return AMulx(ns.N, g, ConjTrans);
}

Vector expandSolution(const NullSpace& ns, const Vector& v, const Vector& u0) {
  checkLength(v, ns.N.getN(), "v");
  checkLength(u0, ns.n, "u0");
  Vector u = u0;
  yPlusAMulx(u, ns.N, v, NoTrans);
  return u;
}

}  // namespace qvarray
