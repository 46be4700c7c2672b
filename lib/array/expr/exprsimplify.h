#pragma once
// The built-in host's simplification of syntax trees.
#include "qvarray/expr/exprtree.h"

namespace qvarray {

/// A simplified tree of the same value. Bottom-up, one pass, so the result
/// is its own simplification:
///  - constant folding: a + b, a - b, a * b, a / b of two number literals
///    (finite, divisor not zero, finite result) become the literal of the
///    result, written with the fewest digits that read back to the same
///    double (a negative result as unary minus of its magnitude); the
///    arithmetic is the evaluator's, one IEEE double operation;
///  - neutral elements: x+0, 0+x, x-0, x*1, 1*x, x/1 and +x become x (exact,
///    except that a sum -0+0 is +0 and the simplification keeps -0);
///  - everything else is kept, units (the part in brackets) untouched.
/// Unchanged subtrees are shared with the input.
ExprImpl::NodePtr simplifyTree(const ExprImpl::NodePtr& node);

}  // namespace qvarray
