#pragma once
// The expression host: the owner of the expression language's infix grammar.
//
// The library never reads infix text itself. ExprImpl hands a text to the
// current host, which answers with the whitespace-separated prefix form that
// ExprImpl::scanprefix reads (exprtree.h lists its tokens). Two hosts exist:
//  - the built-in host (the default), a parser of the language in this
//    library, so that it works stand-alone;
//  - the Java host, in the JNI library (libqvarrayjni), which installs itself
//    with setExprHost when a Java virtual machine loads that library and calls
//    the static methods of the Java class com/qubrix/nativejni/util/ExprTree.
//
// Contract of a host. Both calls may come from any thread, also several at
// once. ExprImpl makes the checks that do not depend on the host: it never
// passes an empty text (it raises "Empty_expression" first), and an empty
// answer raises "Syntax_error_in_expression" with ("Expression", text). A host
// raises qvbase::Exception from module "exprimpl": "Syntax_error_in_expression"
// for a text it cannot read, "Internal_error_callback" when it cannot be
// reached or answers nothing. Any other exception a host lets out
// (std::exception or anything else) becomes "Internal_error_callback" too;
// std::bad_alloc passes unchanged.
//
// The built-in host's grammar, loosest binding first:
//   list         a , b                      (top level, or inside "( )" and "[ ]")
//   ||  &&                                  precedences 40, 50
//   == != < > <= >=                         60
//   unary + - !                             70: looser than arithmetic, so
//                                           -a+b means -(a+b), (-a)+b needs
//                                           its parentheses, and -x^2 is -(x^2)
//   + -                                     80
//   * /                                     90
//   expr[unit]                              100 (unit conversion)
//   ^                                       110
// Every binary operator is left-associative: a-b-c is (a-b)-c, a^b^c is
// (a^b)^c. A unary operator written after a tighter binary operator takes
// only what that operator binds: a*-b+c is (a*(-b))+c.
// Atoms: numbers (12, 1.5, .5, 1., 1e-3), names (a letter, then letters,
// digits, "_" and ".": x, a_1, a.b), string literals in single quotes with
// '' for a quote ('it''s'), calls f(a, b), derivatives d(expr, x), vectors
// [a, b] and parentheses. Blanks (space, tab, newline, carriage return)
// separate tokens and are otherwise ignored.
#include <memory>
#include <string>

#include "qvarray/export.h"

namespace qvarray {

class QVARRAY_API ExprHost {
 public:
  virtual ~ExprHost();

  /// The prefix form of the non-empty infix text `text`.
  virtual std::string parseExprToPrefix(const std::string& text) const = 0;

  /// The prefix form of a simplification of the infix text `text` (as
  /// ExprImpl::toString prints a tree). The simplified expression has the
  /// value of the given one wherever that is defined.
  virtual std::string simp(const std::string& text) const = 0;
};

/// Makes `host` the host of every later call, process-wide; null restores the
/// built-in host. Calls already running finish with the host they started with.
QVARRAY_API void setExprHost(std::shared_ptr<const ExprHost> host);

/// The current host (never null).
QVARRAY_API std::shared_ptr<const ExprHost> exprHost();

/// The built-in host (never null), also while another host is installed.
QVARRAY_API std::shared_ptr<const ExprHost> builtinExprHost();

}  // namespace qvarray
