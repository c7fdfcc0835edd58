#pragma once

#include <cmath>

namespace NBX {

/// Three components of a position or a direction. World coordinates are `double`; what goes to the
/// graphics card is `float`, relative to a local origin. In world space `y` is the height.
template <class T> class Vector3Base {
public:
    using value_type = T;

    constexpr Vector3Base() = default;
    constexpr Vector3Base(T x, T y, T z) : x(x), y(y), z(z) {}
    template <class U>
    constexpr explicit Vector3Base(const Vector3Base<U> & other)
        : x(static_cast<T>(other.x)), y(static_cast<T>(other.y)), z(static_cast<T>(other.z)) {}

    constexpr T & operator[](unsigned axis) { return axis == 0 ? x : axis == 1 ? y : z; }
    constexpr const T & operator[](unsigned axis) const { return axis == 0 ? x : axis == 1 ? y : z; }

    constexpr Vector3Base operator-() const { return {-x, -y, -z}; }
    constexpr Vector3Base operator+(const Vector3Base & v) const { return {x + v.x, y + v.y, z + v.z}; }
    constexpr Vector3Base operator-(const Vector3Base & v) const { return {x - v.x, y - v.y, z - v.z}; }
    constexpr Vector3Base operator*(T s) const { return {x * s, y * s, z * s}; }
    constexpr Vector3Base operator/(T s) const { return {x / s, y / s, z / s}; }
    constexpr Vector3Base & operator+=(const Vector3Base & v) { return *this = *this + v; }
    constexpr Vector3Base & operator-=(const Vector3Base & v) { return *this = *this - v; }
    constexpr Vector3Base & operator*=(T s) { return *this = *this * s; }
    constexpr bool operator==(const Vector3Base &) const = default;

    constexpr T dot(const Vector3Base & v) const { return x * v.x + y * v.y + z * v.z; }
    constexpr Vector3Base cross(const Vector3Base & v) const {
        return {y * v.z - z * v.y, z * v.x - x * v.z, x * v.y - y * v.x};
    }
    constexpr T length2() const { return dot(*this); }
    T length() const { return std::sqrt(length2()); }

    /// This vector at length 1; a zero vector stays zero.
    Vector3Base normalized() const {
        const T l = length();
        return l > T(0) ? *this / l : *this;
    }

    T x{}, y{}, z{};
};

template <class T> constexpr Vector3Base<T> operator*(T s, const Vector3Base<T> & v) {
    return v * s;
}

} // namespace NBX
