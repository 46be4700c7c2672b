// libFuzzer target of the expression reader: each input is read both as an
// infix text (by the built-in host) and as a prefix text (by the scanner).
// A finding is a crash or sanitizer report, an exception other than the
// readers' errors and the allocation failure, or a broken oracle:
// - the prefix form of a tree scans back to the same tree;
// - a printed tree reads back; within a few rounds of printing and reading
//   (which settle the printer's ambiguous forms, exprtree.h, and a scanned
//   tree's leaf tokens, which may print as any text) printing and reading
//   agree exactly;
// - simplification is a fixed point after one step.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include "qvarray/expr/exprtree.h"
#include "qvutil/exception.h"

namespace {

using qvarray::ExprImpl;

[[noreturn]] void finding(const char* what, const std::string& text) {
  std::fprintf(stderr, "finding: %s\n%s\n", what, text.c_str());
  std::abort();
}

// The errors a malformed input may raise; anything else is a finding.
void expected(const qvbase::Exception& e) {
  const std::string& k = e.key();
  if (k != "Syntax_error_in_expression" && k != "Empty_expression" &&
      k != "Unknown_variable_name" && k != "Unimplemented_operator") {
    std::fprintf(stderr, "%s\n", e.what());
    finding("unexpected error key", k);
  }
}

std::string prefixOf(const std::string& infix) {
  ExprImpl t;
  t.scanprefix(ExprImpl::parseExprToPrefix(infix));
  return t.toPrefix();
}

// Oracles over a tree that was read; `strict` when it was read from infix
// text of plain ASCII, whose printed form must read back.
void check(const ExprImpl& t, bool strict) {
  const std::string prefix = t.toPrefix();
  ExprImpl again;
  again.scanprefix(prefix);
  if (again.toPrefix() != prefix) finding("prefix round trip", prefix);

  // The set algebra walks any tree; errors are expected ones.
  std::vector<qvarray::Array<int, 2>> values(2, qvarray::Array<int, 2>(2, 2));
  for (auto& v : values)
    for (size_t k = 0; k < v.count; ++k) v[k] = static_cast<int>(k & 1);
  qvarray::Array<int, 2> result;
  try {
    t.boolEval({"A", "B"}, values, result);
  } catch (const qvbase::Exception& e) {
    expected(e);
  }

  const std::string printed = t.toString();
  if (printed.empty()) return;  // an empty list or a fast-path leaf of odd bytes
  // Each round of printing and reading may resolve one of the printer's
  // ambiguous forms (a list inside a call loses its boundary, the call may
  // then read as a derivative, which prints as one name); a few rounds must
  // reach a text that prints and reads back to itself.
  std::string settled = printed;
  ExprImpl s;
  bool stable = false;
  for (int round = 0; round < 4 && !stable; ++round) {
    std::string next;
    try {
      next = prefixOf(settled);
    } catch (const qvbase::Exception& e) {
      // Number tokens of a scanned text need not be numbers, nor names
      // taken by the fast path plain ASCII; a text the printer wrote from
      // an infix text must read.
      if (strict || round > 0 || e.key() != "Syntax_error_in_expression") {
        std::fprintf(stderr, "%s\n", e.what());
        finding("a printed tree does not read back", settled);
      }
      return;
    }
    s.scanprefix(next);
    stable = s.toString() == settled;
    settled = s.toString();
  }
  if (!stable) finding("print and read do not settle", settled);
  s.simp();
  const std::string once = s.toPrefix();
  s.simp();
  if (s.toPrefix() != once) finding("simplification not idempotent", once);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  bool ascii = true;
  for (char c : text) ascii &= static_cast<unsigned char>(c) < 0x80;
  for (bool prefix : {false, true}) {
    ExprImpl t;
    try {
      if (prefix) t.scanprefix(text);
      else t.constructor(text);
    } catch (const qvbase::Exception& e) {
      expected(e);
      continue;
    } catch (const std::bad_alloc&) {
      continue;
    }
    try {
      check(t, ascii && !prefix);
    } catch (const std::bad_alloc&) {
    } catch (const qvbase::Exception& e) {
      std::fprintf(stderr, "%s\n", e.what());
      finding("error from a tree that was read", text);
    }
  }
  return 0;
}
