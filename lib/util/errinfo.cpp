#include "qvutil/errinfo.h"

namespace qvbase {

const std::string* ErrInfo::find(const std::string& name) const {
  for (const auto& [n, v] : pairs_)
    if (n == name) return &v;
  return nullptr;
}

}  // namespace qvbase
