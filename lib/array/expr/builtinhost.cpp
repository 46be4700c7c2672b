// The built-in expression host: the library's own infix reader and
// simplification, answering in the prefix form.
#include "expr/builtinhost.h"

#include "expr/exprsimplify.h"
#include "expr/infixparser.h"

namespace qvarray {

std::string BuiltinExprHost::parseExprToPrefix(const std::string& text) const {
  return ExprImpl::toPrefix(*parseInfix(text));
}

std::string BuiltinExprHost::simp(const std::string& text) const {
  return ExprImpl::toPrefix(*simplifyTree(parseInfix(text)));
}

}  // namespace qvarray
