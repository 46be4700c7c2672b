#pragma once
// Property bags whose values are checked on assignment: each property holds a
// std::any and the Check that decides which values it accepts.
#include <any>
#include <map>
#include <memory>
#include <string>

#include "qvutil/export.h"

namespace qvbase {

/// Decides whether a value is acceptable for a property.
class QVUTIL_API Check {
 public:
  virtual ~Check() = default;
  /// True when `value` is acceptable. May normalise the value in place.
  /// Must not throw for a value of the wrong type.
  virtual bool parse(std::any& value) const = 0;
  /// Human-readable description of the accepted values.
  virtual void typeDescr(std::string& descr) const = 0;
};

/// A bag of named, checked properties.
class QVUTIL_API Prop {
 public:
  /// Declares a property with its checker and initial value (which must pass).
  void define(const std::string& name, std::shared_ptr<const Check> check, std::any initial);
  /// Sets a declared property. Raises "Unknown_property" for an undeclared name
  /// and "Invalid_property_value" (details: the name and the checker's
  /// description) for a value the checker refuses; the old value is kept then.
  void set(const std::string& name, std::any value);
  const std::any& get(const std::string& name) const;
  bool has(const std::string& name) const { return props_.count(name) != 0; }

  template <class T>
  T getAs(const std::string& name) const { return std::any_cast<T>(get(name)); }

 private:
  struct Entry {
    std::shared_ptr<const Check> check;
    std::any value;
  };
  std::map<std::string, Entry> props_;
};

}  // namespace qvbase
