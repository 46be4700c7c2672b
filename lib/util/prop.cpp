#include "qvutil/prop.h"

#include "qvutil/errors.h"

namespace qvbase {

namespace {}

void Prop::define(const std::string& name, std::shared_ptr<const Check> check, std::any initial) {
  if (!check) QV_RAISE(prop, QUBRIX_assertion_failure);
  if (!check->parse(initial)) {
    std::string descr;
    check->typeDescr(descr);
    QV_RAISE(prop, Invalid_property_value, name, descr);
  }
  props_[name] = Entry{std::move(check), std::move(initial)};
}

void Prop::set(const std::string& name, std::any value) {
  auto it = props_.find(name);
  if (it == props_.end()) QV_RAISE(prop, Unknown_property, name);
  if (!it->second.check->parse(value)) {
    std::string descr;
    it->second.check->typeDescr(descr);
    QV_RAISE(prop, Invalid_property_value, name, descr);
  }
  it->second.value = std::move(value);
}

const std::any& Prop::get(const std::string& name) const {
  auto it = props_.find(name);
  if (it == props_.end()) QV_RAISE(prop, Unknown_property, name);
  return it->second.value;
}

}  // namespace qvbase
