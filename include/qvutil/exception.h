#pragma once
// The library-wide exception: a source module, a line, an error key and
// optional details. Keys are fixed identifiers ("Singular_matrix") that the
// product translates; details are ordered entries, each either a plain text
// (empty name) or a name/value pair.
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "qvutil/errinfo.h"
#include "qvutil/export.h"

namespace qvbase {

class QVUTIL_API Exception : public std::exception {
 public:
  Exception(std::string module, int line, std::string key);
  Exception(std::string module, int line, std::string key, std::string detail);
  Exception(std::string module, int line, std::string key, std::string detail1,
            std::string detail2);
  /// A named integer detail, e.g. ("Iteration", info).
  Exception(std::string module, int line, std::string key, std::string name, std::int64_t value);
  Exception(std::string module, int line, std::string key, DetailPairs pairs);
  /// The record's module names the source; its pairs become the details.
  Exception(const ErrInfo& info, int line, std::string key);

  /// Appends details; returns *this so calls chain.
  Exception& add(std::string detail);
  Exception& add(std::string name, std::string value);
  Exception& add(std::string name, std::int64_t value);
  Exception& add(const DetailPairs& pairs);

  const std::string& module() const { return module_; }
  int line() const { return line_; }
  const std::string& key() const { return key_; }
  /// All details in order; plain texts have an empty name.
  const DetailPairs& details() const { return details_; }
  /// Value of the first detail named `name`.
  std::optional<std::string> detail(const std::string& name) const;
  /// Text of the i-th detail (its value), or empty past the end.
  std::string detailText(std::size_t i) const;

  /// "key (module:line): detail; name = value".
  const char* what() const noexcept override;

 private:
  void render();

  std::string module_;
  int line_ = 0;
  std::string key_;
  DetailPairs details_;
  std::string what_;
};

/// Raised when a long operation sees that its run was cancelled.
class QVUTIL_API CancelException : public Exception {
 public:
  CancelException(std::string module, int line);
};

/// Raised after an OpenMP region in which a worker threw something that was not
/// a qvbase::Exception; carries that exception's message.
class QVUTIL_API ParallelException : public Exception {
 public:
  ParallelException(std::string module, int line, std::string message);
};

}  // namespace qvbase
