// The process-wide expression host: the built-in one until a host (the Java
// host of the JNI library) installs itself.
#include "qvarray/expr/exprhost.h"

#include <mutex>
#include <utility>

#include "expr/builtinhost.h"

namespace qvarray {

ExprHost::~ExprHost() = default;

namespace {

// The installed host; null means the built-in one. A mutex rather than an
// atomic shared pointer: a call takes it once, for the copy of the pointer.
std::mutex gHostMutex;
std::shared_ptr<const ExprHost> gHost;

}  // namespace

std::shared_ptr<const ExprHost> builtinExprHost() {
  static const std::shared_ptr<const ExprHost> builtin = std::make_shared<BuiltinExprHost>();
  return builtin;
}

void setExprHost(std::shared_ptr<const ExprHost> host) {
  std::lock_guard<std::mutex> lock(gHostMutex);
  gHost = std::move(host);
}

std::shared_ptr<const ExprHost> exprHost() {
  {
    std::lock_guard<std::mutex> lock(gHostMutex);
    if (gHost) return gHost;
  }
  return builtinExprHost();
}

}  // namespace qvarray
