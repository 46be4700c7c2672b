#pragma once
// The built-in host's reader of infix text (the grammar is described in
// qvarray/expr/exprhost.h).
#include <string>

#include "qvarray/expr/exprtree.h"

namespace qvarray {

/// The tree of the infix text `text`. Raises "Syntax_error_in_expression"
/// (module "exprimpl") with a description, ("Position", character offset)
/// and ("Expression", text) for a text that does not read, one longer than
/// ExprImpl::kMaxTextLength, or one nested deeper than ExprImpl::kMaxDepth.
ExprImpl::NodePtr parseInfix(const std::string& text);

}  // namespace qvarray
