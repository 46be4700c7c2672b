// qvNull: options, the loop over the constraint blocks, and the particular
// solution u₀ = P·r with its consistency check.
#include "qvarray/sparse/qvnull.h"

#include <algorithm>
#include <any>
#include <cctype>
#include <cstdio>
#include <memory>
#include <numeric>

#include "qvarray/blasruntime.h"
#include "qvutil/errors.h"
#include "qvutil/prop.h"
#include "sparse/qvnullimpl.h"

namespace qvarray {

using namespace nulldetail;

// ---- options ------------------------------------------------------------------

namespace {

constexpr const char* kNullFunValues = "\"auto\", \"orth\" or \"sparse\"";

bool lookupNullFun(std::string text, NullFun& f) {
  for (char& ch : text) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
  for (NullFun g : {NullFun::Auto, NullFun::Orth, NullFun::Sparse})
    if (text == nullFunName(g)) {
      f = g;
      return true;
    }
  return false;
}

// "nullfun": a method name, normalised to lower case.
class NullFunCheck : public qvbase::Check {
 public:
  bool parse(std::any& value) const override {
    std::string text;
    if (const auto* s = std::any_cast<std::string>(&value))
      text = *s;
    else if (const auto* c = std::any_cast<const char*>(&value); c && *c)
      text = *c;
    else
      return false;
    NullFun f;
    if (!lookupNullFun(text, f)) return false;
    value = std::string(nullFunName(f));
    return true;
  }
  void typeDescr(std::string& descr) const override { descr = kNullFunValues; }
};

// A tolerance: a number in [lo, hi] (lo excluded when openLow), stored as double.
class ToleranceCheck : public qvbase::Check {
 public:
  ToleranceCheck(double lo, double hi, bool openLow) : lo_(lo), hi_(hi), openLow_(openLow) {}
  bool parse(std::any& value) const override {
    double v;
    if (const auto* d = std::any_cast<double>(&value))
      v = *d;
    else if (const auto* i = std::any_cast<int>(&value))
      v = *i;
    else
      return false;
    if (!(openLow_ ? v > lo_ : v >= lo_) || !(v <= hi_)) return false;
    value = v;
    return true;
  }
  void typeDescr(std::string& descr) const override {
    char buf[96];
    std::snprintf(buf, sizeof buf, "A number in %c%g, %g]", openLow_ ? '(' : '[', lo_, hi_);
    descr = buf;
  }

 private:
  double lo_, hi_;
  bool openLow_;
};

constexpr double kHuge = 1e300;

void checkOptions(const NullOptions& o) {
  auto bad = [](const char* name, const char* descr) {
    QV_RAISE(qvnull, Invalid_property_value, name, descr);
  };
  if (o.nullfun != NullFun::Auto && o.nullfun != NullFun::Orth && o.nullfun != NullFun::Sparse)
    bad("nullfun", kNullFunValues);
  if (!(o.rankTol >= 0 && o.rankTol <= kHuge)) bad("nullranktol", "A number in [0, 1e+300]");
  if (!(o.consistencyTol >= 0 && o.consistencyTol <= kHuge))
    bad("nullconsistencytol", "A number in [0, 1e+300]");
  if (!(o.pivotTol > 0 && o.pivotTol <= 1)) bad("nullpivottol", "A number in (0, 1]");
}

}  // namespace

const char* nullFunName(NullFun f) {
  switch (f) {
    case NullFun::Orth: return "orth";
    case NullFun::Sparse: return "sparse";
    default: return "auto";
  }
}

NullFun parseNullFun(const std::string& text) {
  NullFun f;
  if (!lookupNullFun(text, f)) QV_RAISE(qvnull, Invalid_property_value, "nullfun", kNullFunValues);
  return f;
}

void defineNullProps(qvbase::Prop& props) {
  const NullOptions d;
  props.define("nullfun", std::make_shared<NullFunCheck>(), std::string(nullFunName(d.nullfun)));
  props.define("nullranktol", std::make_shared<ToleranceCheck>(0, kHuge, false), d.rankTol);
  props.define("nullconsistencytol", std::make_shared<ToleranceCheck>(0, kHuge, false),
               d.consistencyTol);
  props.define("nullpivottol", std::make_shared<ToleranceCheck>(0, 1, true), d.pivotTol);
}

NullOptions nullOptions(const qvbase::Prop& props) {
  NullOptions o;
  o.nullfun = parseNullFun(props.getAs<std::string>("nullfun"));
  o.rankTol = props.getAs<double>("nullranktol");
  o.consistencyTol = props.getAs<double>("nullconsistencytol");
  o.pivotTol = props.getAs<double>("nullpivottol");
  return o;
}

// ---- the bases ------------------------------------------------------------------

namespace {

template <class T>
NullSpace compute(const Sparse& B, const NullOptions& o) {
  const Constraints<T> c = readConstraints<T>(B);
  const Blocks bl = findBlocks(c.m, c.n, c.colptr, c.row);
  Collect<T> out;
  EliminationWork<T> work;
  NullSpace ns;
  ns.m = c.m;
  ns.n = c.n;
  ns.consistencyTol = o.consistencyTol;

  // The blocks are small: their SVDs and products run faster on one BLAS thread.
  const SerialBlasScope serialBlas;
  for (size_t b = 0; b < bl.count; ++b) {
    const size_t cb = bl.colCount(b);
    if (cb == 0) {  // a zero row: redundant by itself
      eliminateBlock(c, bl, b, o, false, work, out);
      continue;
    }
    ++ns.blocks;
    bool bySvd = o.nullfun == NullFun::Orth;
    if (o.nullfun == NullFun::Sparse) {
      eliminateBlock(c, bl, b, o, false, work, out);
    } else if (o.nullfun == NullFun::Auto) {
      const bool denseOk = bl.rowCount(b) * cb <= kNullAutoDenseLimit;
      bySvd = !eliminateBlock(c, bl, b, o, denseOk, work, out);
    }
    if (bySvd) {
      svdBlock(c, bl, b, o, out);
      ++ns.svdBlocks;
    }
  }
  ns.rank = out.rank;

  // N: walking the unknowns, a unit column for each unconstrained one and the
  // block columns anchored there (in the order the blocks made them).
  const Columns<T>& nc = out.N;
  std::vector<size_t> order(nc.count());
  std::iota(order.begin(), order.end(), size_t(0));
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t x, size_t y) { return nc.anchor[x] < nc.anchor[y]; });
  const size_t constrained = bl.cols.size(), free = c.n - constrained;
  ns.N = buildSparse<T>(c.n, free + nc.count(), free + nc.row.size(),
                        [&](size_t* colptr, size_t* row, T* val) {
                          size_t k = 0, q = 0, next = 0;
                          for (size_t j = 0; j < c.n; ++j) {
                            if (bl.local[j] == npos) {
                              row[q] = j;
                              val[q++] = T(1);
                              colptr[++k] = q;
                              continue;
                            }
                            for (; next < order.size() && nc.anchor[order[next]] == j; ++next) {
                              const size_t col = order[next];
                              for (size_t p = nc.start[col]; p < nc.start[col + 1]; ++p)
                                row[q] = nc.row[p], val[q++] = nc.val[p];
                              colptr[++k] = q;
                            }
                          }
                        });
  ns.complement = toSparse(out.complement, c.n, ns.rank);
  ns.rangeBt = toSparse(out.rangeBt, c.n, ns.rank);
  ns.rangeB = toSparse(out.rangeB, c.m, ns.rank);
  ns.leftNull = toSparse(out.leftNull, c.m, out.leftNull.cols);
  ns.P = toSparse(out.P, c.n, c.m);
  return ns;
}

template <class T>
const T* valuesOf(const Sparse& A) {
  if constexpr (std::is_same_v<T, double>)
    return A.getDoubleVal();
  else
    return A.getDcmplxVal();
}

template <class T>
const T* dataOf(const Vector& v) {
  if constexpr (std::is_same_v<T, double>)
    return v.getdArr().data;
  else
    return v.getzArr().data;
}

template <class T>
T* mutableData(Vector& v) {
  if constexpr (std::is_same_v<T, double>)
    return v.getdArr().data;
  else
    return v.getzArr().data;
}

// Raises "Inconsistent_constraints" unless every redundant combination z
// cancels on r: |zᴴ·r| ≤ tol·Σ|z_i|·|r_i|. Then returns P·r.
template <class TM, class TV>
Vector particularT(const NullSpace& ns, const Vector& r) {
  using TR = std::conditional_t<std::is_same_v<TM, double> && std::is_same_v<TV, double>, double,
                                dcomplex>;
  const TV* rv = dataOf<TV>(r);
  const Sparse& Z = ns.leftNull;
  const size_t* zp = Z.getColPtr();
  const size_t* zr = Z.getRow();
  const TM* zv = valuesOf<TM>(Z);
  for (size_t k = 0; k < Z.getN(); ++k) {
    TR s = TR(0);
    double scale = 0.0, zmax = -1.0;
    size_t worst = 0;
    for (size_t p = zp[k]; p < zp[k + 1]; ++p) {
      s += conjugate(zv[p]) * rv[zr[p]];
      scale += std::abs(zv[p]) * std::abs(rv[zr[p]]);
      if (std::abs(zv[p]) > zmax) zmax = std::abs(zv[p]), worst = zr[p];
    }
    if (std::abs(s) > ns.consistencyTol * scale) {
      char text[32];
      std::snprintf(text, sizeof text, "%.3e", std::abs(s) / scale);
      QV_RAISE(qvnull, Inconsistent_constraints,
               DetailPairs{{"Row", std::to_string(worst)}, {"Relative_residual", text}});
    }
  }
  Vector u;
  u.resize(ns.n, std::is_same_v<TR, double>);
  TR* uv = mutableData<TR>(u);
  const size_t* pp = ns.P.getColPtr();
  const size_t* pr = ns.P.getRow();
  const TM* pv = valuesOf<TM>(ns.P);
  for (size_t i = 0; i < ns.m; ++i) {
    const TV ri = rv[i];
    if (ri == TV(0)) continue;
    for (size_t p = pp[i]; p < pp[i + 1]; ++p) uv[pr[p]] += pv[p] * ri;
  }
  return u;
}

}  // namespace

NullSpace qvNull(const Sparse& B, const NullOptions& options) {
  checkOptions(options);
  return B.isReal() ? compute<double>(B, options) : compute<dcomplex>(B, options);
}

Vector NullSpace::particular(const Vector& r) const {
  if (r.size() != m)
    QV_RAISE(qvnull, Size_vector_sparse_matrix_disagree,
             DetailPairs{{"Rows", std::to_string(m)}, {"Length", std::to_string(r.size())}});
  const bool realB = P.isReal();
  if (realB)
    return r.isReal() ? particularT<double, double>(*this, r) : particularT<double, dcomplex>(*this, r);
  return r.isReal() ? particularT<dcomplex, double>(*this, r)
                    : particularT<dcomplex, dcomplex>(*this, r);
}

}  // namespace qvarray
