#pragma once

#include <array>

#include <nbx/gl/mesh/basevertexattributebufferobjectgl.h>
#include <nbx/math/vector3base.h>

namespace NBX {

/// How OpenGL names the component type of a vertex attribute, and how many components it has.
template <class T> struct VertexAttributeTraitsGL;

template <> struct VertexAttributeTraitsGL<float> {
    static constexpr unsigned componentType = 0x1406; // GL_FLOAT
    static constexpr unsigned components = 1;
};
template <> struct VertexAttributeTraitsGL<double> {
    static constexpr unsigned componentType = 0x140A; // GL_DOUBLE
    static constexpr unsigned components = 1;
};
template <> struct VertexAttributeTraitsGL<unsigned char> {
    static constexpr unsigned componentType = 0x1401; // GL_UNSIGNED_BYTE
    static constexpr unsigned components = 1;
};
template <> struct VertexAttributeTraitsGL<unsigned short> {
    static constexpr unsigned componentType = 0x1403; // GL_UNSIGNED_SHORT
    static constexpr unsigned components = 1;
};
template <> struct VertexAttributeTraitsGL<unsigned> {
    static constexpr unsigned componentType = 0x1405; // GL_UNSIGNED_INT
    static constexpr unsigned components = 1;
};
template <class T> struct VertexAttributeTraitsGL<Vector3Base<T>> {
    static_assert(sizeof(Vector3Base<T>) == 3 * sizeof(T));
    static constexpr unsigned componentType = VertexAttributeTraitsGL<T>::componentType;
    static constexpr unsigned components = 3;
};
template <class T, std::size_t N> struct VertexAttributeTraitsGL<std::array<T, N>> {
    static_assert(N >= 1 && N <= 4);
    static constexpr unsigned componentType = VertexAttributeTraitsGL<T>::componentType;
    static constexpr unsigned components = N;
};

/// A buffer of one `T` for each vertex: a number, a `Vector3Base` or a `std::array` of up to 4 numbers.
template <class T> class VertexAttributeBufferObjectGL : public BaseVertexAttributeBufferObjectGL {
    NBX_TEMPLATE_CLASS(VertexAttributeBufferObjectGL, BaseVertexAttributeBufferObjectGL)
public:
    /// `data` holds `count` values, or is null.
    VertexAttributeBufferObjectGL(EngineGL * engine, unsigned count, const T * data,
                                  UsagePattern usage = UP_Static)
        : BaseVertexAttributeBufferObjectGL(engine, count, data, VertexAttributeTraitsGL<T>::componentType,
                                            VertexAttributeTraitsGL<T>::components, usage) {}
};

} // namespace NBX
