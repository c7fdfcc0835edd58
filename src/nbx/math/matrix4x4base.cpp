#include <nbx/math/matrix4x4base.h>

#include <limits>

#include <Eigen/LU>

namespace NBX {

template <class T> Matrix4x4Base<T> Matrix4x4Base<T>::rotation(const Vector3Base<T> & axis, T radians) {
    const Vector3Base<T> a = axis.normalized();
    const T c = std::cos(radians), s = std::sin(radians), t = T(1) - c;
    return Matrix4x4Base({t * a.x * a.x + c, t * a.x * a.y - s * a.z, t * a.x * a.z + s * a.y, 0,
                          t * a.x * a.y + s * a.z, t * a.y * a.y + c, t * a.y * a.z - s * a.x, 0,
                          t * a.x * a.z - s * a.y, t * a.y * a.z + s * a.x, t * a.z * a.z + c, 0, 0, 0, 0,
                          1});
}

template <class T> Matrix4x4Base<T> Matrix4x4Base<T>::inverse() const {
    using Rows = Eigen::Matrix<T, 4, 4, Eigen::RowMajor>;
    Matrix4x4Base result;
    Eigen::Map<Rows> inverted(result.m_.data());
    inverted = Eigen::Map<const Rows>(m_.data()).inverse();
    // A determinant of 0 leaves infinities behind.
    if (!inverted.allFinite()) inverted.setConstant(std::numeric_limits<T>::quiet_NaN());
    return result;
}

template class Matrix4x4Base<double>;

} // namespace NBX
