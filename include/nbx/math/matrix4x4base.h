#pragma once

#include <array>

#include <nbx/math/ray.h>
#include <nbx/math/vector3base.h>

namespace NBX {

/// 4 by 4 matrix that works on column vectors: `m * p` transforms the point `p`, and `a * b` does `b` first.
template <class T> class Matrix4x4Base {
public:
    /// The identity.
    constexpr Matrix4x4Base() : m_{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1} {}
    /// Row by row.
    constexpr explicit Matrix4x4Base(const std::array<T, 16> & rows) : m_(rows) {}

    static constexpr Matrix4x4Base translation(const Vector3Base<T> & t) {
        return Matrix4x4Base({1, 0, 0, t.x, 0, 1, 0, t.y, 0, 0, 1, t.z, 0, 0, 0, 1});
    }
    static constexpr Matrix4x4Base scaling(const Vector3Base<T> & s) {
        return Matrix4x4Base({s.x, 0, 0, 0, 0, s.y, 0, 0, 0, 0, s.z, 0, 0, 0, 0, 1});
    }
    /// Right-handed turn by `radians` about `axis`, which need not have length 1.
    static Matrix4x4Base rotation(const Vector3Base<T> & axis, T radians);

    constexpr T & operator()(unsigned row, unsigned column) { return m_[row * 4 + column]; }
    constexpr T operator()(unsigned row, unsigned column) const { return m_[row * 4 + column]; }
    /// The 16 entries, row by row.
    constexpr const std::array<T, 16> & rows() const { return m_; }
    /// The 16 entries, column by column, as OpenGL takes them.
    constexpr std::array<T, 16> columns() const { return transposed().m_; }

    constexpr Matrix4x4Base transposed() const {
        Matrix4x4Base result;
        for (unsigned r = 0; r < 4; ++r)
            for (unsigned c = 0; c < 4; ++c)
                result(r, c) = (*this)(c, r);
        return result;
    }
    /// The inverse; not-a-number throughout for a singular matrix.
    Matrix4x4Base inverse() const;

    constexpr Matrix4x4Base operator*(const Matrix4x4Base & b) const {
        Matrix4x4Base result;
        for (unsigned r = 0; r < 4; ++r)
            for (unsigned c = 0; c < 4; ++c) {
                T sum{};
                for (unsigned k = 0; k < 4; ++k)
                    sum += (*this)(r, k) * b(k, c);
                result(r, c) = sum;
            }
        return result;
    }
    /// The transformed point, divided by its fourth component.
    constexpr Vector3Base<T> operator*(const Vector3Base<T> & p) const {
        const T w = m_[12] * p.x + m_[13] * p.y + m_[14] * p.z + m_[15];
        const Vector3Base<T> q(m_[0] * p.x + m_[1] * p.y + m_[2] * p.z + m_[3],
                               m_[4] * p.x + m_[5] * p.y + m_[6] * p.z + m_[7],
                               m_[8] * p.x + m_[9] * p.y + m_[10] * p.z + m_[11]);
        return w == T(1) ? q : q / w;
    }
    /// The direction under the upper left 3 by 3 part alone.
    constexpr Vector3Base<T> transformDirection(const Vector3Base<T> & d) const {
        return {m_[0] * d.x + m_[1] * d.y + m_[2] * d.z, m_[4] * d.x + m_[5] * d.y + m_[6] * d.z,
                m_[8] * d.x + m_[9] * d.y + m_[10] * d.z};
    }
    Ray operator*(const Ray & ray) const {
        return Ray(*this * ray.getOrigin(), transformDirection(ray.getDirection()));
    }

    constexpr bool operator==(const Matrix4x4Base &) const = default;

private:
    std::array<T, 16> m_;
};

extern template class Matrix4x4Base<double>;

} // namespace NBX
