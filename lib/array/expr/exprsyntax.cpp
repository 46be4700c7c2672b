#include "expr/exprsyntax.h"

#include "qvarray/expr/exprtree.h"
#include "qvutil/errors.h"

namespace qvarray {

bool isNameText(std::string_view text) {
  auto low = [](char c) { return static_cast<char>(c & 0x7f); };
  if (text.empty() || !isLetter(low(text[0]))) return false;
  for (char c : text)
    if (!isNameChar(low(c))) return false;
  return true;
}

size_t utf8Length(std::string_view text) {
  size_t n = 0;
  for (size_t k = 0; k < text.size(); ++k) n += k == 0 || !isUtf8Continuation(text[k]);
  return n;
}

int32_t prefixOperator(std::string_view t) {
  using E = ExprImpl;
  if (t.empty() || t.size() > 2) return 0;
  static constexpr struct {
    const char* token;
    int32_t code;
  } kTokens[] = {{"U+", E::OpUPlus}, {"U-", E::OpUMinus}, {"!", E::OpNot},  {"+", E::OpPlus},
                 {"-", E::OpMinus},  {"*", E::OpTimes},   {"/", E::OpDivide}, {"^", E::OpPower},
                 {"==", E::OpEq},    {"!=", E::OpNe},     {"<=", E::OpLe},   {">=", E::OpGe},
                 {"<", E::OpLt},     {">", E::OpGt},      {"&&", E::OpAnd},  {"||", E::OpOr}};
  for (const auto& k : kTokens)
    if (t == k.token) return k.code;
  return 0;
}

void syntaxError(const char* why, size_t position, const std::string& text) {
  QV_RAISE(exprimpl, Syntax_error_in_expression,
           qvbase::DetailPairs{{"", why}, {"Position", std::to_string(position)}, {"Expression", text}});
}

}  // namespace qvarray
