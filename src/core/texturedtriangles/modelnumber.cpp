#include "modelnumber.h"

#include <nbx/gl/mesh/vertexattributebufferobjectgl.h>
#include <nbx/object/serializationmanager.h>

namespace ZMT::CORE {

NBX_STORED_CLASS_IMPL(ModelNumber, NBX::MonoAttribute)

void ModelNumber::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<NBX::MonoAttribute>(m, this);
    m.attribute("number", number_);
}

const NBX::ID & ModelNumber::bufferName() {
    static const NBX::ID name("model");
    return name;
}

NBX::SO<NBX::MappedVertexAttributeShapeGL> ModelNumber::newMesh(NBX::PolygonSet & set) {
    using Mesh = NBX::MappedVertexAttributeShapeGL;
    const NBX::SO<NBX::PolygonSet::Vertices> numbers = set.newTextureIterator(unit);
    set.setTextureIterator(nullptr, unit);
    NBX::SO<Mesh> mesh(new Mesh(&set, NBX::BufferObjectGL::UP_Static));
    set.setTextureIterator(numbers, unit);
    if (!numbers) return mesh;
    const NBX::SO<Mesh::Buffer> buffer(
        new Mesh::Buffer(NBX::VertexAttributeTraitsGL<float>::componentType, 1, numbers->size()));
    auto * target = static_cast<float *>(buffer->mapPointer());
    for (unsigned i = 0; i < numbers->size(); ++i)
        *target++ = float(numbers->get(i).x);
    mesh->data()->setBuffer(bufferName(), buffer);
    return mesh;
}

} // namespace ZMT::CORE
