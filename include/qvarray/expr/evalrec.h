#pragma once
// Recursion guards of evaluation. Every evaluation of a named quantity (a
// variable with a definition, a user function) makes a RecLimCheck on entry
// (VarEvaluator::initRecLimCheck) and drops it on exit. The guard counts the
// nesting depth in the evaluator's RecCount and catches two faults:
//  - depth 10000 or more (kLimit): a circular definition through several
//    names, or a nesting no thread's stack can hold;
//  - the name and RecVarData equal to those of the quantity being evaluated
//    around it: a quantity that needs itself directly. Names beginning with
//    "{" or ending with "}" are exempt from this comparison (scopes that
//    legitimately nest under one name).
// The guard's error record then holds ("message", label), ("Name", name) and
// ("Depth", depth); throwError raises "Recursion_limit_exceeded" (module
// "evaltree") with those pairs and, when the caller gives it, ("Chain",
// "a -> b -> a").
//
// Stack. Nested definitions recurse on the thread's stack, about 480 bytes
// per level in a release build (VarNode::eval and the nodes of a typical
// definition), so 10000 levels take under 5 MiB: within the 8 MiB that the
// main thread and OpenMP workers get by default, but not within a smaller
// OMP_STACKSIZE or a JVM thread's 1 MiB, where deep nesting overflows first.
//
// Counters. SerialRecCount keeps one state. ParaRecCount keeps one state per
// OpenMP thread number (cache-line apart), so threads evaluating in parallel
// do not see each other's depth; as with ParaArrayAllocator every thread
// outside a parallel region is thread 0, so two host threads must not use one
// ParaRecCount at the same time (an evaluator serves one thread at a time).
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qvarray/export.h"
#include "qvutil/errinfo.h"

namespace qvarray {

/// Extra identity of a named quantity (e.g. a derivative order or a part
/// index); only data made from three ints is valid.
struct QVARRAY_API RecVarData {
  RecVarData() = default;
  RecVarData(int a, int b, int c) : valid(true), i0(a), i1(b), i2(c) {}
  bool operator==(const RecVarData&) const = default;

  bool valid = false;
  int i0 = 0, i1 = 0, i2 = 0;
};

/// The recursion state of one thread.
struct RecState {
  int depth = 0;
  int checkDepth = 0;      // depth of the quantity named below (0: none)
  std::string checkName;   // the quantity being evaluated
  RecVarData checkId;
  bool lastSame = false;   // the outcome of the last comparison
  std::vector<std::string> names;  // the names being evaluated, outermost first
};

/// The abstract recursion counter: the calling thread's state.
class QVARRAY_API RecCount {
 public:
  virtual ~RecCount();
  virtual std::shared_ptr<RecCount> clone() const = 0;
  int getRecDepth() { return getImpl().depth; }
  int getCheckDepth() { return getImpl().checkDepth; }
  const std::string& getCheckName() { return getImpl().checkName; }
  const RecVarData& getCheckId() { return getImpl().checkId; }

 private:
  friend class RecLimCheck;
  virtual RecState& getImpl() = 0;
};

class QVARRAY_API SerialRecCount : public RecCount {
 public:
  std::shared_ptr<RecCount> clone() const override;

 private:
  RecState& getImpl() override { return state_; }
  RecState state_;
};

class QVARRAY_API ParaRecCount : public RecCount {
 public:
  /// Room for MAXAVAILABLETHREADS threads.
  ParaRecCount();
  std::shared_ptr<RecCount> clone() const override;
  /// Room for n threads (states kept for threads already there).
  void allocate(int n);
  int size() const { return static_cast<int>(states_.size()); }

 private:
  struct alignas(64) Slot {
    RecState state;
  };
  RecState& getImpl() override;
  std::vector<Slot> states_;
};

/// The guard of one nested evaluation (see the top of this header).
class QVARRAY_API RecLimCheck {
 public:
  static constexpr int kLimit = 10000;

  RecLimCheck() = default;
  RecLimCheck(const RecLimCheck&) = delete;
  RecLimCheck& operator=(const RecLimCheck&) = delete;
  /// Puts back the depth, name and data that were current before init.
  ~RecLimCheck();

  /// The label of the error record (a literal, e.g. "circvar"); set before init.
  void setLabel(const char* label) { label_ = label; }
  /// Enters `name` with `data`: increments the depth, compares with the
  /// enclosing quantity, records the outcome here and in the state, makes
  /// `name`/`data` current. Once per guard.
  void init(RecCount& counter, const std::string& name, const RecVarData& data = {});

  bool isLimitExceeded() const { return depth_ >= kLimit; }
  /// The name and data equal the enclosing quantity's (and are not exempt).
  bool isSame() const { return same_; }
  int getDepth() const { return depth_; }
  bool isError() const { return errors_ != nullptr; }
  /// The error record (empty without an error).
  const qvbase::ErrInfo& getErrors() const;
  /// The names being evaluated from the innermost earlier occurrence of this
  /// guard's name to this one ("a", "b", "a"); without a repetition the last
  /// few names.
  std::vector<std::string> chain() const;
  /// Raises "Recursion_limit_exceeded" (evaltree) with the record's pairs
  /// and ("Chain", names joined by " -> ") when `chain` is not empty.
  [[noreturn]] void throwError(const std::vector<std::string>& chain = {}) const;

 private:
  RecState* state_ = nullptr;
  const char* label_ = "";
  std::string prevName_;
  RecVarData prevId_;
  int prevCheckDepth_ = 0;
  int depth_ = 0;
  bool same_ = false;
  std::unique_ptr<qvbase::ErrInfo> errors_;  // a pointer: the guard sits in every level's frame
};

}  // namespace qvarray
