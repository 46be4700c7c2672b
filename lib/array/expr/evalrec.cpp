// Recursion guards: the per-thread recursion states and the guard that
// enters a named quantity, compares it with the enclosing one and puts the
// enclosing one back when it is dropped.
#include "qvarray/expr/evalrec.h"

#include <omp.h>

#include "qvutil/errors.h"
#include "qvutil/parallel.h"

namespace qvarray {

RecCount::~RecCount() = default;

// A copy serves another evaluation: a fresh state of the same kind.
std::shared_ptr<RecCount> SerialRecCount::clone() const { return std::make_shared<SerialRecCount>(); }

ParaRecCount::ParaRecCount() { allocate(MAXAVAILABLETHREADS); }

std::shared_ptr<RecCount> ParaRecCount::clone() const {
  auto p = std::make_shared<ParaRecCount>();
  p->allocate(size());
  return p;
}

void ParaRecCount::allocate(int n) {
  if (n > size()) states_.resize(static_cast<size_t>(n));
}

// Every thread outside a parallel region is thread 0.
RecState& ParaRecCount::getImpl() {
  const int t = omp_get_thread_num();
  QV_ASSERT(t >= 0 && t < size(), evaltree);
  return states_[static_cast<size_t>(t)].state;
}

void RecLimCheck::init(RecCount& counter, const std::string& name, const RecVarData& data) {
  QV_ASSERT(state_ == nullptr, evaltree);
  RecState& s = counter.getImpl();
  state_ = &s;
  depth_ = ++s.depth;
  const bool exempt = !name.empty() && (name.front() == '{' || name.back() == '}');
  same_ = !exempt && s.checkDepth > 0 && s.checkName == name && s.checkId == data;
  s.lastSame = same_;
  // Make this quantity current; the enclosing one comes back in the destructor.
  prevName_ = name;
  prevName_.swap(s.checkName);
  prevId_ = s.checkId;
  s.checkId = data;
  prevCheckDepth_ = s.checkDepth;
  s.checkDepth = depth_;
  s.names.push_back(name);
  if (isLimitExceeded() || same_)
    errors_ = std::make_unique<qvbase::ErrInfo>(
        "evaltree", qvbase::DetailPairs{{"message", label_},
                                        {"Name", name},
                                        {"Depth", std::to_string(depth_)}});
}

RecLimCheck::~RecLimCheck() {
  if (!state_) return;
  RecState& s = *state_;
  --s.depth;
  s.checkName.swap(prevName_);
  s.checkId = prevId_;
  s.checkDepth = prevCheckDepth_;
  s.names.pop_back();
}

const qvbase::ErrInfo& RecLimCheck::getErrors() const {
  static const qvbase::ErrInfo none;
  return errors_ ? *errors_ : none;
}

std::vector<std::string> RecLimCheck::chain() const {
  if (!state_) return {};
  const std::vector<std::string>& n = state_->names;
  const size_t last = n.size() - 1;
  for (size_t j = last; j-- > 0;)
    if (n[j] == n[last]) return {n.begin() + static_cast<std::ptrdiff_t>(j), n.end()};
  const size_t keep = std::min<size_t>(n.size(), 8);
  return {n.end() - static_cast<std::ptrdiff_t>(keep), n.end()};
}

void RecLimCheck::throwError(const std::vector<std::string>& chain) const {
  QV_ASSERT(isError(), evaltree);
  qvbase::DetailPairs pairs = errors_->pairs();
  if (!chain.empty()) {
    std::string text;
    for (const std::string& name : chain) text += (text.empty() ? "" : " -> ") + name;
    pairs.emplace_back("Chain", std::move(text));
  }
  QV_RAISE(evaltree, Recursion_limit_exceeded, std::move(pairs));
}

}  // namespace qvarray
