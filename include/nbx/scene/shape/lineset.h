#pragma once

#include <nbx/container/sequence/iterator.h>
#include <nbx/math/color.h>
#include <nbx/object/so.h>
#include <nbx/scene/shape/shape.h>

namespace NBX {

/// Lines over a sequence of vertices. The sequences are kept, not copied; who changes the elements of one
/// calls `modified()` on the set.
class LineSet : public Shape {
    NBX_STORED_CLASS(LineSet, Shape)
public:
    enum PrimitiveType {
        PT_Lines = 0,     ///< a segment for every two vertices
        PT_LineStrip = 1, ///< one open line
        PT_LineLoop = 2,  ///< one closed line
    };
    using Vertices = Iterator<Vector3Base<double>>;
    using Colors = Iterator<Color>;

    LineSet();
    explicit LineSet(PrimitiveType type, SO<Vertices> vertices = nullptr);

    PrimitiveType getPrimitiveType() const { return type_; }
    void setPrimitiveType(PrimitiveType type);
    void setVertexIterator(SO<Vertices> vertices);
    /// One colour a vertex; may be null.
    void setColorIterator(SO<Colors> colors);
    const SO<Vertices> & newVertexIterator() const { return vertices_; }
    const SO<Colors> & newColorIterator() const { return colors_; }

    /// The box of all vertices, kept until the set is modified.
    Bounds boundingBox() const override;
    void modified() override;
    void acceptChildren(std::vector<Visitable *> & children) const override;
    /// Attributes "primitiveType", "vertices", "colors".
    void serialize(SerializationManager & m) override;

private:
    PrimitiveType type_ = PT_Lines;
    SO<Vertices> vertices_;
    SO<Colors> colors_;
    mutable Bounds box_;
    mutable bool boxValid_ = false;
};

} // namespace NBX
