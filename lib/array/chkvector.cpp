#include "qvarray/chkvector.h"

#include "qvarray/matriximpl.h"

namespace qvarray {

ChkVector::~ChkVector() = default;

bool ChkVector::parse(std::any& value) const {
  const auto* v = std::any_cast<Vector>(&value);
  if (!v) return false;
  return realOnly_ ? v->isReal() : true;
}

void ChkVector::typeDescr(std::string& descr) const {
  // Only the real-only text ends with a full stop; callers match both as is.
  descr = realOnly_ ? "A real vector." : "A vector";
}

}  // namespace qvarray
