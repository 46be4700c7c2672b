#pragma once
// Property checker for properties that must hold a dense Vector.
#include <any>
#include <string>

#include "qvarray/export.h"
#include "qvutil/prop.h"

namespace qvarray {

class QVARRAY_API ChkVector : public qvbase::Check {
 public:
  /// realOnly: accept real vectors only.
  explicit ChkVector(bool realOnly) : realOnly_(realOnly) {}
  ChkVector(const ChkVector&) = default;
  ChkVector& operator=(const ChkVector&) = default;
  ~ChkVector() override;

  /// False unless `value` holds a Vector; then true, or isReal() when realOnly.
  bool parse(std::any& value) const override;
  /// "A vector", or "A real vector." when realOnly.
  void typeDescr(std::string& descr) const override;

 private:
  bool realOnly_;
};

}  // namespace qvarray

using qvarray::ChkVector;
