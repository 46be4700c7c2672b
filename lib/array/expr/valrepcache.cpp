// ValRepCache: values of named variables by (name, key flags), a parent
// cache for listed names, a set of names, the report.
#include "qvarray/expr/valrepcache.h"

namespace qvarray {

ValRepCache::ValRepCache(ValRep::AllocPtr alloc) : alloc_(std::move(alloc)) {}

ValRepCache::~ValRepCache() = default;

ValRep::Ptr ValRepCache::fromParent(const std::string& name) {
  if (!parent_ || !parentNames_.count(name)) return nullptr;
  if (!parent_->hasVar(name, parentFlags_)) return nullptr;
  ValRep::Ptr v = parent_->getVar(name, parentFlags_).second;
  return v && !v->isNaN() ? v : nullptr;
}

bool ValRepCache::hasVar(const std::string& name, unsigned flags) {
  if (values_.count({name, flags & kKeyFlags})) return true;
  return fromParent(name) != nullptr;
}

void ValRepCache::setVar(const std::string& name, unsigned flags, ValRep::Ptr value) {
  values_[{name, flags & kKeyFlags}] = std::move(value);
}

void ValRepCache::setBVar(const std::string& name) { bvars_.insert(name); }

std::pair<bool, ValRep::Ptr> ValRepCache::getVar(const std::string& name, unsigned flags) {
  auto it = values_.find({name, flags & kKeyFlags});
  if (it != values_.end()) return {true, it->second};
  ValRep::Ptr v = fromParent(name);
  return {v != nullptr, v};
}

ValRep::Ptr ValRepCache::getEmpty() {
  return alloc_ ? std::make_shared<ValRep>(alloc_) : std::make_shared<ValRep>();
}

void ValRepCache::reset() {
  values_.clear();
  bvars_.clear();
}

void ValRepCache::setParentCache(std::shared_ptr<ValRepCache> parent,
                                 std::vector<std::string> names, unsigned flags) {
  parent_ = std::move(parent);
  parentNames_ = std::unordered_set<std::string>(names.begin(), names.end());
  parentFlags_ = flags;
}

void ValRepCache::report(std::ostream& out) const {
  out << "\n"
      << "The following variable names are stored in cache:\n"
      << "=================================================\n";
  const std::string* last = nullptr;
  for (const auto& [key, value] : values_) {
    if (last && *last == key.first) continue;  // one line per name
    out << key.first << "\n";
    last = &key.first;
  }
}

}  // namespace qvarray
