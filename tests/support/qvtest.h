#pragma once
// Helpers shared by the tests: expectations on library exceptions,
// deterministic random data and central differences.
#include <gtest/gtest.h>

#include <complex>
#include <functional>
#include <initializer_list>
#include <random>
#include <string>

#include "qvarray/array.h"
#include "qvutil/exception.h"

namespace qvtest {

/// Runs f, expects a qvbase::Exception with `key` and, when given, whose
/// first detail text is `detail`. Returns the exception for further checks.
inline qvbase::Exception expectThrowKey(const std::function<void()>& f, const std::string& key,
                                        const std::string& detail = std::string()) {
  try {
    f();
  } catch (const qvbase::Exception& e) {
    EXPECT_EQ(e.key(), key) << e.what();
    if (!detail.empty()) {
      EXPECT_EQ(e.detailText(0), detail) << e.what();
    }
    return e;
  }
  ADD_FAILURE() << "expected qvbase::Exception with key " << key << " and detail " << detail;
  return qvbase::Exception("none", 0, "none");
}

/// One row of an error table: a call and the first detail it must raise.
struct Throws {
  std::function<void()> call;
  std::string detail;
};

/// Every call of the table raises `key` with its detail.
inline void expectThrowsAll(const std::string& key, std::initializer_list<Throws> table) {
  int row = 0;
  for (const Throws& t : table) {
    SCOPED_TRACE("error table row " + std::to_string(row++));
    expectThrowKey(t.call, key, t.detail);
  }
}

/// The central difference (f(x + h) - f(x - h)) / 2h.
template <class F>
double centralDiff(F&& f, double x, double h) {
  return (f(x + h) - f(x - h)) / (2 * h);
}

/// Fixed-seed random numbers in [-1, 1].
class Rng {
 public:
  explicit Rng(unsigned seed = 12345) : gen_(seed) {}
  double real() { return dist_(gen_); }
  std::complex<double> complex() { return {dist_(gen_), dist_(gen_)}; }
  template <class T>
  T value() {
    if constexpr (std::is_same_v<T, double>) {
      return real();
    } else {
      return complex();
    }
  }
  template <class T, int N>
  void fill(qvarray::Array<T, N>& a) {
    for (auto& v : a) v = value<T>();
  }

 private:
  std::mt19937_64 gen_;
  std::uniform_real_distribution<double> dist_{-1.0, 1.0};
};

}  // namespace qvtest
