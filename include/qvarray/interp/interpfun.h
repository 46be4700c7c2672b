#pragma once
// InterpFun: an Interpolator's function made callable in expressions.
//
// A call takes one argument per coordinate (D arguments for D-dimensional
// data) and gives function `fun` of the interpolant, or its derivative along
// coordinate `deriv` (-1: the value). Real arguments only: complex ones give
// code Failure1 ("funeval"). Points outside the data follow the
// Interpolator's extrapolation; when it refuses them ("error") the overloads
// return Failure2, which makeError reports as
// "Point_outside_interpolation_data" from "interpolator".
//
// diffRule: the value's partial derivative along x_i is the InterpFun with
// deriv = i on the same arguments (the interpolant's own derivative). A
// derivative of a derivative is not offered by the Interpolator: diffRule
// returns empty, and the node factory keeps an unexpanded d(...) node.

#include <memory>

#include "qvarray/expr/funobj.h"
#include "qvarray/interp/interpolator.h"

namespace qvarray {

class QVARRAY_API InterpFun : public MultiFunObj {
 public:
  InterpFun(std::string name, std::shared_ptr<const Interpolator> interp, std::size_t fun = 0,
            int deriv = -1);
  using MultiFunObj::operator();
  bool acceptsNArgs(int n) const override;
  int getNArgs() const override;
  FunOpCode operator()(const RS& x) const override;
  FunOpCode operator()(const RA& x, std::size_t n) const override;
  FunOpCode operator()(const RS& x, const RS& y, int which) const override;
  FunOpCode operator()(const RA& x, const RA& y, std::size_t n, int which) const override;
  FunOpCode operator()(const RS& x, const RA& y, std::size_t n, int which) const override;
  FunOpCode operator()(const RA& x, const RS& y, std::size_t n, int which) const override;
  FunOpCode operator()(const std::vector<RS>& args, std::size_t n) const override;
  FunOpCode operator()(const std::vector<CS>& args, std::size_t n) const override;
  FunOpCode operator()(const std::vector<RA>& args, std::size_t n, std::size_t m) const override;
  FunOpCode operator()(const std::vector<CA>& args, std::size_t n, std::size_t m) const override;
  EvalNodePtr diffRule(const NodeList& args, int argument, NodeMaker& maker) const override;
  std::shared_ptr<qvbase::ErrInfo> makeError(unsigned code) const override;

  int derivative() const { return deriv_; }

 private:
  // Evaluates n points whose coordinate d is coords[d][p * step[d]].
  FunOpCode evalPoints(const double* const* coords, const std::size_t* step, std::size_t n,
                       double* out) const;

  // Two coordinates, each an array or a broadcast scalar, into out.
  FunOpCode binary(const double* x, bool xArray, const double* y, bool yArray, std::size_t n,
                   double* out) const;

  std::shared_ptr<const Interpolator> interp_;
  std::size_t fun_;
  int deriv_;
};

}  // namespace qvarray
