#pragma once

#include <array>

#include <nbx/container/sequence/iterator.h>
#include <nbx/math/vector3base.h>

namespace ZMT::CORE {

/// Of the squared length of a normal that was normalized: below it a triangle has none.
inline constexpr double leastNormal2 = 0.99;

/// A sequence with three elements to a triangle, read by triangle. Borrows the sequence.
class TriangleCorners {
public:
    using Vector = NBX::Vector3Base<double>;

    explicit TriangleCorners(const NBX::Iterator<Vector> & vertices)
        : vertices_(vertices), pointer_(vertices.pointer()), size_(static_cast<int>(vertices.size() / 3)) {}

    /// Number of triangles.
    int size() const { return size_; }
    bool contains(int triangle) const { return triangle >= 0 && triangle < size_; }
    std::array<Vector, 3> operator[](int triangle) const {
        const auto first = static_cast<unsigned>(triangle) * 3;
        if (pointer_) return {pointer_[first], pointer_[first + 1], pointer_[first + 2]};
        return {vertices_.get(first), vertices_.get(first + 1), vertices_.get(first + 2)};
    }

private:
    const NBX::Iterator<Vector> & vertices_;
    const Vector * pointer_;
    int size_;
};

} // namespace ZMT::CORE
