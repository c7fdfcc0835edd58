#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nbx/gl/mesh/basevertexattributebufferobjectgl.h>
#include <nbx/gl/mesh/vertexattributeshapegl.h>
#include <nbx/math/bounds.h>
#include <nbx/scene/shape/shape.h>

namespace NBX::GL2 {

/// A mesh for programs that name the attributes of their vertices themselves, each in a buffer of the
/// graphics card. It is drawn under the program in force; `VertexAttributeShapeGL` has what the fixed
/// functions know. It belongs to the thread of the canvases that paint it.
class AttributedShape : public Shape {
    NBX_CLASS(AttributedShape, Shape)
public:
    using PrimitiveType = VertexAttributeShapeGL::PrimitiveType;

    /// `box`, which may be undefined, is in the frame in which the shape is placed.
    explicit AttributedShape(PrimitiveType type, const Bounds & box = Bounds());

    /// What the program's vertex attribute `name` reads; null for nothing, which is as without the call.
    /// What the program has no use for may be there.
    void setAttribute(const std::string & name, SO<BaseVertexAttributeBufferObjectGL> buffer);
    /// Null when there is none of this name.
    SO<BaseVertexAttributeBufferObjectGL> attribute(const std::string & name) const;
    /// The order in which the vertices are taken; without indices, or with none, that of the buffers. A null
    /// engine is reported.
    void setIndices(EngineGL * engine, const std::vector<std::uint32_t> & indices);

    PrimitiveType primitiveType() const { return type_; }
    /// Number of vertices for which all attributes have a value; 0 without attributes.
    unsigned vertexCount() const;
    Bounds boundingBox() const override { return box_; }
    void setBoundingBox(const Bounds & box);

    /// Draws it with the program in use. Reported once in the life of the shape, and nothing drawn: without a
    /// program, with an index beyond the vertices, and with a buffer that is something other than vertex
    /// attributes at present. The state of OpenGL stays as it is found.
    void draw(EngineGL * engine) const;

private:
    struct Attribute {
        std::string name;
        SO<BaseVertexAttributeBufferObjectGL> buffer;
    };

    const wchar_t * fault(unsigned program) const;
    void bindAttributes(EngineGL * engine, unsigned program) const;

    PrimitiveType type_;
    std::vector<Attribute> attributes_;
    SO<BufferObjectGL> indices_;
    unsigned indexCount_ = 0, largestIndex_ = 0;
    Bounds box_;
    mutable bool faultTold_ = false;
};

} // namespace NBX::GL2
