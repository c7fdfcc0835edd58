#include "featurescenegl.h"

#include <GL/glew.h>

#include <nbx/gl/mesh/mappedvertexattributeshapegl.h>
#include <nbx/gl/state/stencilbuffergl.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/attribute/linestyle.h>
#include <nbx/scene/node/scenenode.h>
#include <nbx/scene/view/translation.h>

namespace ZMT::CORE {

namespace {

using Data = NBX::MappedVertexAttributeDataGL;
using Mesh = NBX::MappedVertexAttributeShapeGL;

/// With 8 bits in the stencil buffer.
constexpr int s_mostMarks = 255;

NBX::SO<Mesh> newMesh(const FeatureShapes::Group & group) {
    const NBX::SO<Data> data(new Data(NBX::BufferObjectGL::UP_Stream));
    const auto count = static_cast<unsigned>(group.vertices.size() / 3);
    data->setBuffer(Data::VERTEX_ID, new Data::Buffer(GL_FLOAT, 3, count, group.vertices.data()));
    return new Mesh(group.lineWidth > 0.0 ? Mesh::PrimitiveType::PT_Lines : Mesh::PrimitiveType::PT_Triangles,
                    data);
}

/// Lets each pixel be drawn once.
NBX::SO<NBX::StencilBufferGL> newMarking(int mark) {
    return new NBX::StencilBufferGL(NBX::StencilBufferGL::O_Test, GL_NOTEQUAL, mark, ~0U, GL_KEEP, GL_KEEP,
                                    GL_REPLACE);
}

/// Clears the stencil buffer where it stands in a scene.
class ClearedMarksGL : public NBX::SceneNode {
    NBX_TEMPLATE_CLASS(ClearedMarksGL, NBX::SceneNode)
public:
    void evaluate(NBX::Engine *) override {
        glClearStencil(0);
        glClear(GL_STENCIL_BUFFER_BIT);
    }
    NBX::Bounds boundingBox(NBX::Engine *) override { return {}; }
};

} // namespace

FeatureSceneGL::FeatureSceneGL() : scene_(new NBX::SceneThing) {}

void FeatureSceneGL::clearMarks() {
    scene_->append(new ClearedMarksGL);
    mark_ = 0;
}

int FeatureSceneGL::nextMark() {
    if (mark_ == s_mostMarks) clearMarks();
    return ++mark_;
}

void FeatureSceneGL::append(const FeatureShapes & shapes, const NBX::Vector3Base<double> & position) {
    for (const FeatureShapes::Group * group : shapes.groups())
        append(*group, position);
}

void FeatureSceneGL::append(const FeatureShapes::Group & group, const NBX::Vector3Base<double> & position) {
    const NBX::SO<NBX::SceneThing> look(new NBX::SceneThing);
    if (group.color[3] < 1.0F) look->append(newMarking(nextMark()).get());
    if (group.lineWidth > 0.0) look->append(new NBX::LineStyle(group.lineWidth));
    look->append(new NBX::ColorAttribute(group.color));
    look->append(new NBX::Translation(position));
    look->append(newMesh(group).get());
    scene_->append(look.get());
}

} // namespace ZMT::CORE
