#pragma once

#include <vector>

#include <nbx/container/sequence/iterator.h>
#include <nbx/math/color.h>
#include <nbx/math/vector3base.h>

namespace NBX {

/// Vertex attributes in main memory, in the form in which OpenGL takes them. While an object lives its arrays
/// are enabled; at its end the vertex arrays and the current attributes are as they were before.
///
/// Sets of texture coordinates that are not given take those of set 0.
class VertexArraysGL {
public:
    using Vectors = Iterator<Vector3Base<double>>;

    /// The positions, which are not null; `sets` counts the texture coordinates of a vertex.
    VertexArraysGL(const Vectors & positions, unsigned sets);
    ~VertexArraysGL();
    VertexArraysGL(const VertexArraysGL &) = delete;
    VertexArraysGL & operator=(const VertexArraysGL &) = delete;

    /// Null is nothing. A sequence with fewer elements than there are positions is reported, and not used.
    void setNormals(const Vectors * normals);
    void setColors(const Iterator<Color> * colors);
    void setTexCoords(unsigned set, const Vectors * coordinates);

private:
    bool isLongEnough(unsigned size) const;
    void enableTexCoords(unsigned set, const float * coordinates);

    unsigned count_;
    unsigned sets_;
    std::vector<float> positions_, normals_, colors_;
    std::vector<std::vector<float>> texCoords_; ///< by set
};

} // namespace NBX
