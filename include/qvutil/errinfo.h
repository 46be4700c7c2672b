#pragma once
// ErrInfo: an error record, a module name and ordered name/value pairs.
// Expression evaluation carries these on NaN values; an Exception can be
// built from one.
#include <string>
#include <utility>
#include <vector>

#include "qvutil/export.h"

namespace qvbase {

using DetailPairs = std::vector<std::pair<std::string, std::string>>;

class QVUTIL_API ErrInfo {
 public:
  ErrInfo() = default;
  explicit ErrInfo(std::string module) : module_(std::move(module)) {}
  ErrInfo(std::string module, DetailPairs pairs)
      : module_(std::move(module)), pairs_(std::move(pairs)) {}

  const std::string& module() const { return module_; }
  const DetailPairs& pairs() const { return pairs_; }
  bool empty() const { return module_.empty() && pairs_.empty(); }

  /// Appends a pair; the order of addition is kept.
  void add(std::string name, std::string value) {
    pairs_.emplace_back(std::move(name), std::move(value));
  }
  /// Value of the first pair called `name`, or null.
  const std::string* find(const std::string& name) const;

  bool operator==(const ErrInfo&) const = default;

 private:
  std::string module_;
  DetailPairs pairs_;
};

}  // namespace qvbase
