#pragma once
// random(...) and randomnormal(...): pseudo-random numbers that are functions
// of their arguments. Equal arguments give equal values (so an evaluation is
// reproducible and a tree may fold or share such calls); any number of
// arguments, real or complex, -0 equal to 0, a complex argument with zero
// imaginary part equal to the real one. The value at an evaluation point
// mixes the 64-bit patterns of its arguments (and their count) through the
// splitmix64 finaliser:
//   random        uniform on [0, 1), 53 random bits;
//   randomnormal  standard normal, by the Box-Muller transform of two such
//                 numbers.
// The result is always real.
#include <cstdint>

#include "qvarray/expr/funobj.h"

namespace qvarray {

class QVARRAY_API RandomFun : public MultiFunObj {
 public:
  RandomFun() : MultiFunObj("random", true, true) {}
  using MultiFunObj::operator();
  FunOpCode operator()(const std::vector<RS>& args, std::size_t n) const override;
  FunOpCode operator()(const std::vector<CS>& args, std::size_t n) const override;
  FunOpCode operator()(const std::vector<RA>& args, std::size_t n, std::size_t m) const override;
  FunOpCode operator()(const std::vector<CA>& args, std::size_t n, std::size_t m) const override;

 protected:
  explicit RandomFun(std::string name) : MultiFunObj(std::move(name), true, true) {}
  /// The value of one point from the hash of its arguments.
  virtual double fromHash(std::uint64_t h) const;
};

class QVARRAY_API RandomNormalFun : public RandomFun {
 public:
  RandomNormalFun() : RandomFun("randomnormal") {}

 protected:
  double fromHash(std::uint64_t h) const override;
};

}  // namespace qvarray
