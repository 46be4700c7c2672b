#pragma once
// ValRepCache: the values of named variables already evaluated in the current
// evaluation, so that each is computed once.
//
// An entry's key is the name with the request's flag bits 0x200, 0x400 and
// 0x2000 (kKeyFlags); other flag bits do not distinguish entries. A cache may
// fall back on a parent cache for the names of a list (setParentCache): a
// name missing here is looked up in the parent with the flag word given
// there, and counts only when the parent's value is not NaN.
//
// A second, separate set of names (setBVar) records names without values for
// the engine's own use; bvarsBegin/bvarsEnd walk it (hash order).
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "qvarray/export.h"
#include "qvarray/expr/evalflags.h"
#include "qvarray/expr/valrep.h"

namespace qvarray {

class QVARRAY_API ValRepCache {
 public:
  /// Flag bits that distinguish entries of one name.
  static constexpr unsigned kKeyFlags = kEvalCacheKeyBits;
  using NameSet = std::unordered_set<std::string>;

  explicit ValRepCache(ValRep::AllocPtr alloc = nullptr);
  virtual ~ValRepCache();

  virtual bool hasVar(const std::string& name, unsigned flags);
  /// Stores or replaces the value of (name, flags).
  virtual void setVar(const std::string& name, unsigned flags, ValRep::Ptr value);
  /// Records `name` in the set of names (no value).
  virtual void setBVar(const std::string& name);
  /// (found, value); the value is empty when not found.
  virtual std::pair<bool, ValRep::Ptr> getVar(const std::string& name, unsigned flags);
  /// A new empty value drawing from the cache's allocator (default-constructed
  /// when the cache has none).
  virtual ValRep::Ptr getEmpty();
  /// Forgets every value and name (the parent link stays).
  virtual void reset();
  /// Names in `names` missing here are looked up in `parent` with flag word `flags`.
  virtual void setParentCache(std::shared_ptr<ValRepCache> parent, std::vector<std::string> names,
                              unsigned flags);
  /// A blank line, the heading and its rule, then the stored names in
  /// increasing order, one per line.
  virtual void report(std::ostream& out) const;

  NameSet::const_iterator bvarsBegin() const { return bvars_.begin(); }
  NameSet::const_iterator bvarsEnd() const { return bvars_.end(); }
  const ValRep::AllocPtr& getAllocator() const { return alloc_; }

 private:
  using Key = std::pair<std::string, unsigned>;
  /// The parent's value of `name` when the parent may supply it and it is not NaN.
  ValRep::Ptr fromParent(const std::string& name);

  ValRep::AllocPtr alloc_;
  std::map<Key, ValRep::Ptr> values_;
  NameSet bvars_;
  std::shared_ptr<ValRepCache> parent_;
  std::unordered_set<std::string> parentNames_;
  unsigned parentFlags_ = 0;
};

}  // namespace qvarray
