#pragma once

#include <nbx/gl/mesh/mappedvertexattributeshapegl.h>
#include <nbx/scene/attribute/monoattribute.h>
#include <nbx/scene/shape/polygonset.h>

namespace ZMT::CORE {

/// The number of the model to which the shapes behind it belong. Nothing is drawn otherwise for it; trees
/// keep it with every vertex, so that each model can be moved by itself.
class ModelNumber : public NBX::MonoAttribute {
    NBX_STORED_CLASS(ModelNumber, NBX::MonoAttribute)
public:
    explicit ModelNumber(unsigned number = 0) : MonoAttribute(true), number_(number) {}

    unsigned number() const { return number_; }

    /// Attribute "number".
    void serialize(NBX::SerializationManager & m) override;

    /// Of vertices without a model.
    static constexpr double none = -1.0;
    /// The texture unit that has the numbers of the vertices as s while a tree is built.
    static constexpr unsigned unit = NBX::PolygonSet::maxTextureUnits - 1;
    /// The name of the buffer of a mesh that has them: one float for each vertex.
    static const NBX::ID & bufferName();
    /// The triangles of a set as a mesh, with what stands in `unit` as such a buffer.
    static NBX::SO<NBX::MappedVertexAttributeShapeGL> newMesh(NBX::PolygonSet & set);

private:
    unsigned number_;
};

} // namespace ZMT::CORE
