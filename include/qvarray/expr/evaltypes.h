#pragma once
// Small value types that every evaluation passes along:
//   TimeOrderRange  which time-derivative orders a quantity involves
//   VersionMaster,  version numbers telling caches and shadows when they are
//   VersionKey      stale (one process-wide lock guards every counter)
//   DepInfo         how an expression depends on solution components and
//                   parameters, per time-derivative order
//   EvalMethod      how the expression compiler is to evaluate a node
#include <complex>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qvarray/export.h"

namespace qvarray {

class EvalNode;
class EvalTree;
class ExprComp;
class FunObj;

/// A set of time-derivative orders as a 16-bit mask: bit k is order k for
/// k < 15, bit 15 is "order 15 or higher".
class QVARRAY_API TimeOrderRange {
 public:
  TimeOrderRange() = default;
  explicit TimeOrderRange(bool all) : mask_(all ? 0xFFFFu : 0u) {}
  /// Orders a..b: nothing when a > b; only bit 15 when a >= 15.
  TimeOrderRange(int a, int b) { set(a, b); }

  /// Ignored for k < 0; sets bit min(k, 15).
  void set(int k);
  void set(int a, int b);
  void setAll() { mask_ = 0xFFFFu; }
  void clear() { mask_ = 0; }
  bool get(int k) const { return k >= 0 && ((mask_ >> (k < 15 ? k : 15)) & 1u); }
  bool empty() const { return mask_ == 0; }
  bool intersects(const TimeOrderRange& o) const { return (mask_ & o.mask_) != 0; }
  bool operator==(const TimeOrderRange& o) const { return mask_ == o.mask_; }
  bool operator!=(const TimeOrderRange& o) const { return mask_ != o.mask_; }
  uint16_t mask() const { return static_cast<uint16_t>(mask_); }

  /// Orders shifted by n; order 15-or-higher saturates upward and spreads
  /// downward when shifting down.
  void tShift(int n);
  /// The set of sums {a + b} over this set and `o`.
  TimeOrderRange& operator+=(const TimeOrderRange& o);
  /// The set of differences {a - b}.
  TimeOrderRange& operator-=(const TimeOrderRange& o);

 private:
  uint32_t mask_ = 0;
};

/// A process-wide counter of version numbers.
class QVARRAY_API VersionMaster {
 public:
  /// Increments the counter under the version lock and returns it.
  int newKey();

 private:
  int counter_ = 0;
};

/// A version number drawn from a counter shared by copies of the key.
/// Equality compares the numbers only.
class QVARRAY_API VersionKey {
 public:
  /// A fresh counter at 0; the key takes its first number.
  VersionKey();
  VersionKey(const VersionKey& other) = default;
  VersionKey& operator=(const VersionKey& other) = default;
  /// Takes the next number of the shared counter.
  void update();
  int getVersion() const { return version_; }
  bool operator==(const VersionKey& o) const { return version_ == o.version_; }
  bool operator!=(const VersionKey& o) const { return version_ != o.version_; }

 private:
  std::shared_ptr<VersionMaster> counter_;
  int version_;
};

/// Dependency record: bit i of the mask at order k is set when the
/// expression depends on the k-th time derivative of component i.
class QVARRAY_API DepInfo {
 public:
  bool getSolDep(int i, int k) const { return failed_ || bit(sol_, i, k); }
  bool getParDep(int i, int k) const { return failed_ || bit(par_, i, k); }
  /// Any bit at order k.
  bool isSolDep(int k) const { return failed_ || (k >= 0 && size_t(k) < sol_.size() && sol_[k]); }
  bool isParDep(int k) const { return failed_ || (k >= 0 && size_t(k) < par_.size() && par_[k]); }
  bool isSolDepAll() const;
  bool isParDepAll() const;
  void setSolDep(int i, int k) { setBit(sol_, i, k, true); }
  void setNotSolDep(int i, int k) { setBit(sol_, i, k, false); }
  void setParDep(int i, int k) { setBit(par_, i, k, true); }
  void setFailed() { failed_ = true; }
  bool isFailed() const { return failed_; }
  void setIncomplete() { incomplete_ = true; }
  void setIncompleteJac() { incompleteJac_ = true; }
  bool isIncomplete() const { return incomplete_; }
  bool isIncompleteJac() const { return incompleteJac_; }
  /// Union of masks and flags.
  DepInfo& operator|=(const DepInfo& o);
  static DepInfo makeFailed() {
    DepInfo d;
    d.failed_ = true;
    return d;
  }

  // Jacobian records. A Jacobian dependency record reads its lists by
  // component instead of by order: entry i of the solution (parameter) list
  // holds the solution (parameter) components on which the derivative with
  // respect to solution component i depends.

  /// Keeps only the masks of order k, moved to order 0 (none for an order
  /// beyond the lists or a negative one); the flags stay.
  void selectJacTOrder(int k);
  /// For every solution bit i of a's order-0 mask, ORs b's order-0 solution
  /// and parameter masks into entry i of this record's solution and
  /// parameter lists (growing them to i); ORs the flags of a and b into this
  /// record's. a's parameter bits select nothing.
  void setJacDep(const DepInfo& a, const DepInfo& b);
  /// Depends on every solution component and every parameter, at order 0.
  static DepInfo makeDependent();
  /// Depends on solution component `sol` and parameter `par` (either
  /// skipped when negative) at the orders order .. order + extra (extra < 0:
  /// order alone).
  static DepInfo makeDependent(int sol, int par, int order, int extra);

 private:
  static bool bit(const std::vector<uint32_t>& m, int i, int k) {
    return i >= 0 && i < 32 && k >= 0 && size_t(k) < m.size() && ((m[k] >> i) & 1u);
  }
  static void setBit(std::vector<uint32_t>& m, int i, int k, bool on);

  std::vector<uint32_t> sol_, par_;
  bool failed_ = false, incomplete_ = false, incompleteJac_ = false;
};

/// How the expression compiler evaluates a node. Every setter first clears
/// the method, then sets the type and its data.
class QVARRAY_API EvalMethod {
 public:
  using NodePtr = std::shared_ptr<EvalNode>;
  enum EvalType : int { Value = 0 };
  enum EvalMethodType : int {
    Function = 0, Operator = 1, Variable = 2, Scalar = 3, Constant = 4, Eigenvalue = 5,
    JacExpr = 6, Unexpandable = 7, Zero = 8, Unit = 9, Error = 10, None = 11
  };

  explicit EvalMethod(EvalType evalType = Value) : evalType_(evalType) {}

  void setFunction(std::shared_ptr<const FunObj> fun, std::vector<NodePtr> args);
  void setOperator(std::string name, std::vector<NodePtr> args);
  void setVariable(std::string name);
  void setScalar(std::string name);
  void setConstant(double v);
  /// The complex flag is set exactly when the imaginary part is nonzero.
  void setConstant(std::complex<double> v);
  void setEigenvalue(std::string name);
  void setJacExpr(NodePtr node);
  void setUnexpandable(NodePtr node);
  void setZero();
  void setUnit();
  void setError(NodePtr node);
  void setJacType(unsigned t) { jacType_ = t; }

  EvalType getEvalType() const { return evalType_; }
  EvalMethodType getType() const { return type_; }
  const std::string& getOpName() const { return name_; }
  const std::vector<NodePtr>& getOpArgs() const { return args_; }
  const std::shared_ptr<const FunObj>& getFunction() const { return fun_; }
  const NodePtr& getNode() const { return node_; }
  double getRealValue() const { return re_; }
  double getImagValue() const { return im_; }
  bool isComplexConstant() const { return complex_; }
  unsigned getJacType() const { return jacType_; }
  const TimeOrderRange& getTimeOrders() const { return orders_; }

  void setTimeOrder(int k) { orders_.clear(); orders_.set(k); }
  void setTimeOrder(int a, int b) { orders_.clear(); orders_.set(a, b); }
  void addTimeOrder(int k) { orders_.set(k); }
  void addTimeOrder(int a, int b) { orders_.set(a, b); }
  void setTimeOrderAll() { orders_.setAll(); }

 private:
  void clear();

  EvalType evalType_;
  EvalMethodType type_ = None;
  std::shared_ptr<const FunObj> fun_;
  double re_ = 0.0, im_ = 0.0;
  bool complex_ = false;
  std::vector<NodePtr> args_;
  NodePtr node_;
  std::string name_;
  unsigned jacType_ = 0;
  TimeOrderRange orders_{true};
};

}  // namespace qvarray
