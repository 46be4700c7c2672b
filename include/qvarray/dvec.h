#pragma once
// qvvec::DVec2, qvvec::DVec3: fixed two- and three-component double vectors.
//
// Plain value types (trivially copyable, no allocation, usable in constexpr
// code) for geometry: componentwise arithmetic, scaling, dot and cross
// products, norms and normalisation.
#include <cmath>

namespace qvvec {

struct DVec2 {
  double x = 0.0, y = 0.0;

  constexpr DVec2() = default;
  constexpr DVec2(double x_, double y_) : x(x_), y(y_) {}

  constexpr double& operator[](int i) { return i == 0 ? x : y; }
  constexpr double operator[](int i) const { return i == 0 ? x : y; }

  constexpr DVec2& operator+=(const DVec2& b) { x += b.x; y += b.y; return *this; }
  constexpr DVec2& operator-=(const DVec2& b) { x -= b.x; y -= b.y; return *this; }
  constexpr DVec2& operator*=(double a) { x *= a; y *= a; return *this; }
  constexpr DVec2& operator/=(double a) { x /= a; y /= a; return *this; }

  constexpr double norm2() const { return x * x + y * y; }
  /// Euclidean length, without overflow for large components.
  double norm() const { return std::hypot(x, y); }
  /// Scales to unit length and returns the former length; a zero vector is
  /// left as it is (and 0 returned).
  double normalize() {
    const double n = norm();
    if (n > 0.0) *this /= n;
    return n;
  }

  friend constexpr bool operator==(const DVec2&, const DVec2&) = default;
};

constexpr DVec2 operator+(DVec2 a, const DVec2& b) { return a += b; }
constexpr DVec2 operator-(DVec2 a, const DVec2& b) { return a -= b; }
constexpr DVec2 operator-(const DVec2& a) { return {-a.x, -a.y}; }
constexpr DVec2 operator*(DVec2 a, double s) { return a *= s; }
constexpr DVec2 operator*(double s, DVec2 a) { return a *= s; }
constexpr DVec2 operator/(DVec2 a, double s) { return a /= s; }

constexpr double dot(const DVec2& a, const DVec2& b) { return a.x * b.x + a.y * b.y; }
/// The z component of the cross product of (a, 0) and (b, 0): the signed area
/// of the parallelogram spanned by a and b.
constexpr double cross(const DVec2& a, const DVec2& b) { return a.x * b.y - a.y * b.x; }
/// a turned by +90 degrees.
constexpr DVec2 perp(const DVec2& a) { return {-a.y, a.x}; }
inline double norm(const DVec2& a) { return a.norm(); }
/// a scaled to unit length; a zero vector stays zero.
inline DVec2 normalized(DVec2 a) {
  a.normalize();
  return a;
}

struct DVec3 {
  double x = 0.0, y = 0.0, z = 0.0;

  constexpr DVec3() = default;
  constexpr DVec3(double x_, double y_, double z_) : x(x_), y(y_), z(z_) {}

  constexpr double& operator[](int i) { return i == 0 ? x : i == 1 ? y : z; }
  constexpr double operator[](int i) const { return i == 0 ? x : i == 1 ? y : z; }

  constexpr DVec3& operator+=(const DVec3& b) { x += b.x; y += b.y; z += b.z; return *this; }
  constexpr DVec3& operator-=(const DVec3& b) { x -= b.x; y -= b.y; z -= b.z; return *this; }
  constexpr DVec3& operator*=(double a) { x *= a; y *= a; z *= a; return *this; }
  constexpr DVec3& operator/=(double a) { x /= a; y /= a; z /= a; return *this; }

  constexpr double norm2() const { return x * x + y * y + z * z; }
  /// Euclidean length, without overflow for large components.
  double norm() const { return std::hypot(x, y, z); }
  /// Scales to unit length and returns the former length; a zero vector is
  /// left as it is (and 0 returned).
  double normalize() {
    const double n = norm();
    if (n > 0.0) *this /= n;
    return n;
  }

  friend constexpr bool operator==(const DVec3&, const DVec3&) = default;
};

constexpr DVec3 operator+(DVec3 a, const DVec3& b) { return a += b; }
constexpr DVec3 operator-(DVec3 a, const DVec3& b) { return a -= b; }
constexpr DVec3 operator-(const DVec3& a) { return {-a.x, -a.y, -a.z}; }
constexpr DVec3 operator*(DVec3 a, double s) { return a *= s; }
constexpr DVec3 operator*(double s, DVec3 a) { return a *= s; }
constexpr DVec3 operator/(DVec3 a, double s) { return a /= s; }

constexpr double dot(const DVec3& a, const DVec3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
/// a × b, right-handed.
constexpr DVec3 cross(const DVec3& a, const DVec3& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline double norm(const DVec3& a) { return a.norm(); }
/// a scaled to unit length; a zero vector stays zero.
inline DVec3 normalized(DVec3 a) {
  a.normalize();
  return a;
}

}  // namespace qvvec
