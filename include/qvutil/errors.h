#pragma once
// The one way the library raises an error, and the registry of every source
// module and error key it raises.
//
// Every error is a qvbase::Exception built from a module, a line, a key and
// optional details. Library code raises through QV_RAISE (or QV_CHECK /
// QV_ASSERT, which are QV_RAISE behind a condition); the module and the key are
// enumerators of the lists below, so an unregistered key does not compile and a
// host (the Java bridge, a message catalogue) can map every key the library can
// raise from `allErrorKeys()`.
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "qvutil/exception.h"
#include "qvutil/export.h"

/// Source modules, by the topic names of their files.
#define QV_ERROR_MODULES(X) \
  X(numeric)                \
  X(prop)                   \
  X(arrayutil)              \
  X(bandmatrix)             \
  X(linearoperator)         \
  X(matriximpl)             \
  X(matrixutil)             \
  X(gmres)                  \
  X(matrixmarket)           \
  X(densemm)                \
  X(sparse)                 \
  X(sparsebase)             \
  X(parallelsparse)         \
  X(poissongrid)            \
  X(qvnull)                 \
  X(exprimpl)               \
  X(exprhost)               \
  X(evalfun)                \
  X(evalfun_basic)          \
  X(evalfun_binary)         \
  X(evalrep)                \
  X(evalnodes)              \
  X(nodemaker)              \
  X(evaltree)               \
  X(varevaluator)           \
  X(evalconst)              \
  X(exprcomp)               \
  X(interpolator)           \
  X(interputil)             \
  X(qvjarray)               \
  X(callback)               \
  X(fftplan)                \
  X(jniaccess)              \
  X(petscbridge)

/// Error keys: fixed identifiers that the product's message catalogue translates.
#define QV_ERROR_KEYS(X)                            \
  /* generic */                                     \
  X(Internal_numerical_error)                       \
  X(QUBRIX_assertion_failure)                       \
  X(Operation_cancelled)                            \
  X(Invalid_number)                                 \
  X(Number_out_of_range)                            \
  X(Unknown_property)                               \
  X(Invalid_property_value)                         \
  /* dense kernels, LAPACK and iterative solvers */ \
  X(Error_in_LAPACK_call)                           \
  X(Input_matrix_must_be_positive_definite)         \
  X(DBDSQR_did_not_converge)                        \
  X(ZBDSQR_did_not_converge)                        \
  X(Iteration_in_the_QR_algorithm_failed)           \
  X(Iteration_in_the_QZ_algorithm_failed)           \
  X(Rank_deficient_system)                          \
  X(GMRES_did_not_converge)                         \
  X(GMRES_breakdown)                                \
  /* files */                                       \
  X(Cannot_open_file)                               \
  X(Cannot_read_file)                               \
  X(Cannot_write_file)                              \
  X(Invalid_MatrixMarket_file)                      \
  X(Complex_MatrixMarket_file_for_real_array)       \
  /* sparse matrices */                             \
  X(Internal_error_sparse)                          \
  X(Internal_error_sparse_base)                     \
  X(Length_triplet_vectors_disagree)                \
  X(Size_input_vector_too_large)                    \
  X(Size_vector_sparse_matrix_disagree)             \
  X(Size_sparse_matrices_disagree)                  \
  X(Symmetry_sparse_matrices_disagree)              \
  X(Matrix_not_square)                              \
  X(Matrix_has_zero_on_diagonal)                    \
  X(Sign_of_complex_Sparse_not_implemented)         \
  /* constraint null spaces */                      \
  X(Inconsistent_constraints)                       \
  X(Constraint_elimination_failed_in_SVD)           \
  X(Non_finite_constraint_coefficients)             \
  /* interpolation */                               \
  X(Unknown_interpolation_method)                   \
  X(Unknown_extrapolation_method)                   \
  X(Invalid_interpolation_grid)                     \
  X(Invalid_interpolation_data)                     \
  X(Interpolation_method_needs_grid)                \
  X(Invalid_interpolation_argument)                 \
  X(Point_outside_interpolation_data)               \
  X(Triangulation_failed)                           \
  X(Invalid_interpolation_file)                     \
  /* expression syntax */                           \
  X(Empty_expression)                               \
  X(Syntax_error_in_expression)                     \
  X(Internal_error_callback)                        \
  X(Internal_error_symbolic_processing)             \
  X(Unknown_variable_name)                          \
  X(Unimplemented_operator)                         \
  /* Java bridge and FFT plans */                   \
  X(JNI_error)                                      \
  X(Null_Java_array)                                \
  X(Java_array_sizes_disagree)                      \
  X(Java_exception_in_callback)                     \
  X(Invalid_FFT_size)                               \
  X(FFT_size_mismatch)                              \
  /* function objects (evaluation failures) */      \
  X(funeval)                                        \
  X(div)                                            \
  X(pow)                                            \
  X(pow_zero)                                       \
  X(sqrt)                                           \
  X(log)                                            \
  X(nan)                                            \
  X(erf)                                            \
  X(impl)                                           \
  /* values of the expression engine */             \
  X(Unexpected_NaN)                                 \
  X(Complex_number_in_real_expression)              \
  /* evaluation nodes and node construction */      \
  X(Evaluation_internal_error)                      \
  X(Can_only_diff_wrt_variables)                    \
  X(Can_only_test_dependency_wrt_variables)       \
  /* expression compiler */                       \
  X(Log_of_negative)                              \
  X(Sqrt_of_negative)                             \
  X(Real_argument_out_of_range)                   \
  X(Power_of_negative)                            \
  X(Cannot_create_native_file)                    \
  /* evaluation trees */                          \
  X(Recursion_limit_exceeded)                     \
  /* variable evaluators */                         \
  X(Unknown_function_or_operator)                   \
  X(Wrong_number_of_function_arguments)             \
  X(Wrong_number_of_operator_arguments)             \
  X(Tangential_differentiation_not_allowed_in_this_context) \
  X(Internal_evaluator_error)                       \
  X(Unknown_function_name)                          \
  X(Name_value_pair_mismatch)                       \
  /* the ready variable evaluator */                \
  X(Invalid_variable_binding)                       \
  /* PETSc bridge */                                \
  X(PETSc_error)                                    \
  X(Complex_Sparse_not_supported_by_PETSc)          \
  X(Invalid_row_partition)                          \
  X(Failed_on_another_rank)

/// Message keys: keys whose text is an English sentence rather than an
/// identifier. Raised with QV_RAISE_TEXT, which may append a run-time part to
/// the registered text ("Duplicate input: " + name); the exception's key is the
/// whole text, and `findErrorKey` maps it back by the registered prefix.
#define QV_ERROR_MESSAGES(X)                                                   \
  /* expression compiler */                                                    \
  X(Duplicate_input, "Duplicate input: ")                                      \
  X(Duplicate_definition, "Duplicate definition of ")                          \
  X(Undefined_inputs, "Undefined inputs: ")                                    \
  X(Output_lacks_definition, "Output #")                                       \
  X(Cyclic_dependency, "Cyclic dependency for definition #")                   \
  X(Too_many_constants, "Compilation failed: Too many different constants.")    \
  X(Too_many_live_values, "Compilation failed: Too many values live at once.")  \
  /* compiled definitions from evaluation nodes and function objects */         \
  X(Complex_definition_set, "Definition set may not contain complex variables.") \
  X(No_definitions_from, "Cannot create definitions from ")

namespace qvbase {

#define QV_ENUMERATOR(name) name,
enum class ErrModule { QV_ERROR_MODULES(QV_ENUMERATOR) };
#define QV_MESSAGE_ENUMERATOR(name, text) name,
enum class ErrKey { QV_ERROR_KEYS(QV_ENUMERATOR) QV_ERROR_MESSAGES(QV_MESSAGE_ENUMERATOR) };
#undef QV_MESSAGE_ENUMERATOR
#undef QV_ENUMERATOR

/// The module's name as it appears in an exception ("sparse").
QVUTIL_API const char* errorName(ErrModule module) noexcept;
/// The key's text ("Singular_matrix" style; for a message key its registered
/// text, the prefix of every composed key).
QVUTIL_API const char* errorName(ErrKey key) noexcept;
/// True for the keys of QV_ERROR_MESSAGES.
QVUTIL_API bool isMessageKey(ErrKey key) noexcept;
/// Every registered module and key (identifier keys, then message keys), in
/// list order.
QVUTIL_API std::span<const ErrModule> allErrorModules() noexcept;
QVUTIL_API std::span<const ErrKey> allErrorKeys() noexcept;
/// The key whose text is `text`, or the message key whose registered text
/// begins `text` (a composed key); false when neither is registered.
QVUTIL_API bool findErrorKey(std::string_view text, ErrKey& key) noexcept;

/// A host may watch every error the library raises (for a log, or to check
/// which keys a test suite provokes). Called on the raising thread just before
/// the throw; must not throw. Null (the default) watches nothing.
using ErrorListener = void (*)(const Exception&) noexcept;
QVUTIL_API void setErrorListener(ErrorListener listener) noexcept;
QVUTIL_API void notifyErrorListener(const Exception& e) noexcept;

/// Throws Exception(module, line, key, details...); details are any of the
/// Exception constructor's detail forms.
template <class... Details>
[[noreturn]] void raise(ErrModule module, int line, ErrKey key, Details&&... details) {
  Exception e(errorName(module), line, errorName(key), std::forward<Details>(details)...);
  notifyErrorListener(e);
  throw e;
}

/// Throws Exception(module, line, text of `key` + part, details...): a message
/// key with its run-time part appended.
template <class... Details>
[[noreturn]] void raiseText(ErrModule module, int line, ErrKey key, std::string_view part,
                            Details&&... details) {
  std::string text = errorName(key);
  text += part;
  Exception e(errorName(module), line, std::move(text), std::forward<Details>(details)...);
  notifyErrorListener(e);
  throw e;
}

/// Throws CancelException(module, line) ("Operation_cancelled").
[[noreturn]] inline void raiseCancel(ErrModule module, int line) {
  CancelException e(errorName(module), line);
  notifyErrorListener(e);
  throw e;
}

}  // namespace qvbase

/// Raises key `key` from module `module` at this line, e.g.
/// QV_RAISE(sparse, Internal_error_sparse, "Index out of range.").
#define QV_RAISE(module, key, ...)                       \
  ::qvbase::raise(::qvbase::ErrModule::module, __LINE__, \
                  ::qvbase::ErrKey::key __VA_OPT__(, ) __VA_ARGS__)

/// Raises message key `key` with `part` appended to its registered text, e.g.
/// QV_RAISE_TEXT(exprcomp, Duplicate_input, name).
#define QV_RAISE_TEXT(module, key, part, ...)                                    \
  ::qvbase::raiseText(::qvbase::ErrModule::module, __LINE__, ::qvbase::ErrKey::key, \
                      part __VA_OPT__(, ) __VA_ARGS__)

/// QV_RAISE unless `cond` holds; an argument check, made before anything changes.
#define QV_CHECK(cond, module, key, ...)                           \
  do {                                                             \
    if (!(cond)) QV_RAISE(module, key __VA_OPT__(, ) __VA_ARGS__); \
  } while (0)

/// A condition only a programming error can violate ("QUBRIX_assertion_failure").
#define QV_ASSERT(cond, module) QV_CHECK(cond, module, QUBRIX_assertion_failure)

/// An invariant that is costly to check (storage consistency): asserted in debug
/// builds only, where the sanitizer builds run it.
#ifdef NDEBUG
#define QV_DEBUG_ASSERT(cond, module) \
  do {                                \
  } while (0)
#else
#define QV_DEBUG_ASSERT(cond, module) QV_ASSERT(cond, module)
#endif
