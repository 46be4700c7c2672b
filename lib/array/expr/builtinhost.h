#pragma once
// The built-in expression host: the library's own reader of the expression
// language (the grammar is described in qvarray/expr/exprhost.h).
#include <string>

#include "qvarray/expr/exprhost.h"

namespace qvarray {

class BuiltinExprHost final : public ExprHost {
 public:
  /// The prefix form of the tree that parseInfix reads from `text`.
  std::string parseExprToPrefix(const std::string& text) const override;
  /// The prefix form of simplifyTree of that tree.
  std::string simp(const std::string& text) const override;
};

}  // namespace qvarray
