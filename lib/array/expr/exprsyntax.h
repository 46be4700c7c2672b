#pragma once
// Lexical pieces shared by the prefix scanner, the prefix writer and the
// built-in host's infix parser: character classes, the operator tokens and
// the one form of a syntax error.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qvarray {

inline bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}
inline bool isDigit(char c) { return c >= '0' && c <= '9'; }
inline bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
/// A character that may follow the first letter of a name.
inline bool isNameChar(char c) { return isLetter(c) || isDigit(c) || c == '_' || c == '.'; }
inline bool isUtf8Continuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

/// A letter followed by name characters, each byte tested on its low 7 bits
/// as ExprImpl::scan tests bare names (so that every name it makes scans).
bool isNameText(std::string_view text);

/// The characters of `text` (UTF-8 sequences: bytes other than continuation
/// bytes), the length a string literal's prefix token states.
size_t utf8Length(std::string_view text);

/// The operator code of a prefix operator token ("U-", "+", "&&"), else 0.
int32_t prefixOperator(std::string_view token);

/// Raises "Syntax_error_in_expression" (module "exprimpl") with the details
/// `why`, ("Position", position) and ("Expression", text).
[[noreturn]] void syntaxError(const char* why, size_t position, const std::string& text);

}  // namespace qvarray
