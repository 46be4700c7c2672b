// TimeOrderRange's mask rules, version counters, dependency records and the
// setters of EvalMethod.
#include <mutex>

#include "qvarray/expr/evaltypes.h"
#include "qvarray/expr/funobj.h"

namespace qvarray {

namespace {
constexpr uint32_t kAll = 0xFFFFu, kTop = 0x8000u;

// The mask shifted up by s (0..15), bit 15 catching everything passing it.
uint32_t shiftUp(uint32_t m, int s) {
  uint32_t r = m << s;
  return (r & kAll) | (r > kAll ? kTop : 0u);
}
// The mask shifted down by s (0..15), order 15-or-higher spreading downward.
uint32_t shiftDown(uint32_t m, int s) {
  if (m & kTop) m |= 0xFFFF0000u;
  return (m >> s) & kAll;
}
int clip15(int n) { return n < 15 ? n : 15; }

std::mutex& versionLock() {
  static std::mutex lock;
  return lock;
}
}  // namespace

void TimeOrderRange::set(int k) {
  if (k >= 0) mask_ |= 1u << clip15(k);
}

void TimeOrderRange::set(int a, int b) {
  if (a > b) return;
  if (a >= 15) {
    mask_ |= kTop;
    return;
  }
  for (int k = a < 0 ? 0 : a; k <= clip15(b); ++k) mask_ |= 1u << k;
}

void TimeOrderRange::tShift(int n) {
  if (empty() || n == 0) return;
  mask_ = n > 0 ? shiftUp(mask_, clip15(n)) : shiftDown(mask_, clip15(-n));
}

TimeOrderRange& TimeOrderRange::operator+=(const TimeOrderRange& o) {
  if (o.empty()) return clear(), *this;
  if (o.mask_ == 1u || (mask_ & 0x7FFFu) == 0) return *this;
  uint32_t r = 0;
  for (int b = 0; b < 16; ++b)
    if (o.get(b)) r |= shiftUp(mask_, b);
  mask_ = r;
  return *this;
}

TimeOrderRange& TimeOrderRange::operator-=(const TimeOrderRange& o) {
  if (o.empty()) return clear(), *this;
  if (o.mask_ == 1u || empty()) return *this;
  uint32_t r = 0;
  for (int b = 0; b < 16; ++b)
    if (o.get(b)) r |= shiftDown(mask_, b);
  mask_ = r;
  return *this;
}

int VersionMaster::newKey() {
  std::lock_guard<std::mutex> guard(versionLock());
  return ++counter_;
}

VersionKey::VersionKey() : counter_(std::make_shared<VersionMaster>()), version_(counter_->newKey()) {}

void VersionKey::update() { version_ = counter_->newKey(); }

bool DepInfo::isSolDepAll() const {
  if (failed_) return true;
  for (uint32_t m : sol_)
    if (m) return true;
  return false;
}

bool DepInfo::isParDepAll() const {
  if (failed_) return true;
  for (uint32_t m : par_)
    if (m) return true;
  return false;
}

void DepInfo::setBit(std::vector<uint32_t>& m, int i, int k, bool on) {
  if (i < 0 || i >= 32 || k < 0) return;
  if (size_t(k) >= m.size()) m.resize(size_t(k) + 1, 0u);
  if (on)
    m[k] |= 1u << i;
  else
    m[k] &= ~(1u << i);
}

DepInfo& DepInfo::operator|=(const DepInfo& o) {
  auto merge = [](std::vector<uint32_t>& a, const std::vector<uint32_t>& b) {
    if (a.size() < b.size()) a.resize(b.size(), 0u);
    for (size_t k = 0; k < b.size(); ++k) a[k] |= b[k];
  };
  merge(sol_, o.sol_);
  merge(par_, o.par_);
  failed_ |= o.failed_;
  incomplete_ |= o.incomplete_;
  incompleteJac_ |= o.incompleteJac_;
  return *this;
}

void DepInfo::selectJacTOrder(int k) {
  auto select = [k](std::vector<uint32_t>& m) {
    uint32_t keep = k >= 0 && size_t(k) < m.size() ? m[k] : 0u;
    m.assign(1, keep);
  };
  select(sol_);
  select(par_);
}

void DepInfo::setJacDep(const DepInfo& a, const DepInfo& b) {
  const uint32_t rows = a.sol_.empty() ? 0u : a.sol_[0];
  const uint32_t sol = b.sol_.empty() ? 0u : b.sol_[0], par = b.par_.empty() ? 0u : b.par_[0];
  for (int i = 0; i < 32; ++i) {
    if (!((rows >> i) & 1u)) continue;
    if (sol_.size() <= size_t(i)) sol_.resize(size_t(i) + 1, 0u);
    if (par_.size() <= size_t(i)) par_.resize(size_t(i) + 1, 0u);
    sol_[i] |= sol;
    par_[i] |= par;
  }
  for (const DepInfo* d : {&a, &b}) {
    failed_ |= d->failed_;
    incomplete_ |= d->incomplete_;
    incompleteJac_ |= d->incompleteJac_;
  }
}

DepInfo DepInfo::makeDependent() {
  DepInfo d;
  d.sol_.assign(1, ~0u);
  d.par_.assign(1, ~0u);
  return d;
}

DepInfo DepInfo::makeDependent(int sol, int par, int order, int extra) {
  DepInfo d;
  for (int k = order; k <= order + (extra > 0 ? extra : 0); ++k) {
    if (sol >= 0) d.setSolDep(sol, k);
    if (par >= 0) d.setParDep(par, k);
  }
  return d;
}

void EvalMethod::clear() {
  type_ = None;
  fun_.reset();
  re_ = im_ = 0.0;
  complex_ = false;
  args_.clear();
  node_.reset();
  name_.clear();
}

void EvalMethod::setFunction(std::shared_ptr<const FunObj> fun, std::vector<NodePtr> args) {
  clear();
  type_ = Function;
  fun_ = std::move(fun);
  args_ = std::move(args);
}
void EvalMethod::setOperator(std::string name, std::vector<NodePtr> args) {
  clear();
  type_ = Operator;
  name_ = std::move(name);
  args_ = std::move(args);
}
void EvalMethod::setVariable(std::string name) {
  clear();
  type_ = Variable;
  name_ = std::move(name);
}
void EvalMethod::setScalar(std::string name) {
  clear();
  type_ = Scalar;
  name_ = std::move(name);
}
void EvalMethod::setConstant(double v) {
  clear();
  type_ = Constant;
  re_ = v;
}
void EvalMethod::setConstant(std::complex<double> v) {
  clear();
  type_ = Constant;
  re_ = v.real();
  im_ = v.imag();
  complex_ = im_ != 0.0;
}
void EvalMethod::setEigenvalue(std::string name) {
  clear();
  type_ = Eigenvalue;
  name_ = std::move(name);
}
void EvalMethod::setJacExpr(NodePtr node) {
  clear();
  type_ = JacExpr;
  node_ = std::move(node);
}
void EvalMethod::setUnexpandable(NodePtr node) {
  clear();
  type_ = Unexpandable;
  node_ = std::move(node);
}
void EvalMethod::setZero() {
  clear();
  type_ = Zero;
}
void EvalMethod::setUnit() {
  clear();
  type_ = Unit;
}
void EvalMethod::setError(NodePtr node) {
  clear();
  type_ = Error;
  node_ = std::move(node);
}

}  // namespace qvarray
