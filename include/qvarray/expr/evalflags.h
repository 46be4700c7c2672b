#pragma once
// The flag word of an evaluation request (EvalTree::eval, EvalNode::eval,
// VarEvaluator::eval), all its bits in one place.
//
// Bits up to 0x8000 belong to the engine's callers: the engine gives 1 and 4
// their meaning and keys cached values by 0x200, 0x400 and 0x2000 without
// interpreting them. Bits from 0x10000 up are this library's own.

namespace qvarray {

/// Evaluate, and record the names of general operators met in the cache's
/// set of names (ValRepCache::setBVar).
inline constexpr unsigned kEvalNames = 0x1u;
/// Evaluate, memoise general-operator calls in the cache, and annotate a NaN
/// result of a tree with "message" = "expreval" and "exprs" = its text.
inline constexpr unsigned kEvalAnnotate = 0x4u;
/// A tree evaluates only when one of these is set; otherwise its value is NaN.
inline constexpr unsigned kEvalRequested = kEvalNames | kEvalAnnotate;

/// Request variants chosen by the caller: a cached value answers only a
/// request with the same setting of each of these three bits.
inline constexpr unsigned kEvalVariantA = 0x200u;
inline constexpr unsigned kEvalVariantB = 0x400u;
inline constexpr unsigned kEvalVariantC = 0x2000u;
/// The bits that key ValRepCache entries.
inline constexpr unsigned kEvalCacheKeyBits = kEvalVariantA | kEvalVariantB | kEvalVariantC;

/// Complex evaluation: variables may take complex values and results are
/// complex wherever the functions make them so. Without it an evaluator may
/// refuse complex values ("Complex_number_in_real_expression").
inline constexpr unsigned kEvalComplex = 0x10000u;

}  // namespace qvarray
