#include "qvutil/exception.h"

namespace qvbase {

Exception::Exception(std::string module, int line, std::string key)
    : module_(std::move(module)), line_(line), key_(std::move(key)) {
  render();
}

Exception::Exception(std::string module, int line, std::string key, std::string detail)
    : module_(std::move(module)), line_(line), key_(std::move(key)) {
  details_.emplace_back(std::string(), std::move(detail));
  render();
}

Exception::Exception(std::string module, int line, std::string key, std::string detail1,
                     std::string detail2)
    : module_(std::move(module)), line_(line), key_(std::move(key)) {
  details_.emplace_back(std::string(), std::move(detail1));
  details_.emplace_back(std::string(), std::move(detail2));
  render();
}

Exception::Exception(std::string module, int line, std::string key, std::string name,
                     std::int64_t value)
    : module_(std::move(module)), line_(line), key_(std::move(key)) {
  details_.emplace_back(std::move(name), std::to_string(value));
  render();
}

Exception::Exception(std::string module, int line, std::string key, DetailPairs pairs)
    : module_(std::move(module)), line_(line), key_(std::move(key)), details_(std::move(pairs)) {
  render();
}

Exception::Exception(const ErrInfo& info, int line, std::string key)
    : module_(info.module()), line_(line), key_(std::move(key)), details_(info.pairs()) {
  render();
}

Exception& Exception::add(std::string detail) {
  details_.emplace_back(std::string(), std::move(detail));
  render();
  return *this;
}

Exception& Exception::add(std::string name, std::string value) {
  details_.emplace_back(std::move(name), std::move(value));
  render();
  return *this;
}

Exception& Exception::add(std::string name, std::int64_t value) {
  return add(std::move(name), std::to_string(value));
}

Exception& Exception::add(const DetailPairs& pairs) {
  details_.insert(details_.end(), pairs.begin(), pairs.end());
  render();
  return *this;
}

std::optional<std::string> Exception::detail(const std::string& name) const {
  for (const auto& [n, v] : details_)
    if (n == name) return v;
  return std::nullopt;
}

std::string Exception::detailText(std::size_t i) const {
  return i < details_.size() ? details_[i].second : std::string();
}

const char* Exception::what() const noexcept { return what_.c_str(); }

void Exception::render() {
  what_ = key_ + " (" + module_ + ":" + std::to_string(line_) + ")";
  const char* sep = ": ";
  for (const auto& [name, value] : details_) {
    what_ += sep;
    if (!name.empty()) what_ += name + " = ";
    what_ += value;
    sep = "; ";
  }
}

CancelException::CancelException(std::string module, int line)
    : Exception(std::move(module), line, "Operation_cancelled") {}

ParallelException::ParallelException(std::string module, int line, std::string message)
    : Exception(std::move(module), line, "Error_in_parallel_region", std::move(message)) {}

}  // namespace qvbase
