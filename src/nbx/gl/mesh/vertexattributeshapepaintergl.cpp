#include "vertexattributeshapepaintergl.h"

#include <algorithm>

#include <GL/glew.h>

#include "vertexstateguardgl.h"
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/mesh/vertexattributeshapegl.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(VertexAttributeShapePainterGL, ShapePainter)

namespace {

void bindAttributes(EngineGL * engine, const VertexAttributeShapeGL & shape) {
    if (const auto & normals = shape.normals()) {
        normals->bind(engine);
        glNormalPointer(normals->componentType(), 0, normals->boundAddress(0));
        glEnableClientState(GL_NORMAL_ARRAY);
    }
    if (const auto & colors = shape.colors()) {
        colors->bind(engine);
        glColorPointer(GLint(colors->components()), colors->componentType(), 0, colors->boundAddress(0));
        glEnableClientState(GL_COLOR_ARRAY);
    }
    const unsigned units = std::min(VertexAttributeShapeGL::maxTextureUnits, engine->textureCoordinateSets());
    for (unsigned unit = 0; unit < units; ++unit)
        if (const auto texCoords = shape.texCoords(unit) ? shape.texCoords(unit) : shape.texCoords(0)) {
            texCoords->bind(engine);
            glClientActiveTexture(GL_TEXTURE0 + unit);
            glTexCoordPointer(GLint(texCoords->components()), texCoords->componentType(), 0,
                              texCoords->boundAddress(0));
            glEnableClientState(GL_TEXTURE_COORD_ARRAY);
        }
    const auto & vertices = shape.vertices();
    vertices->bind(engine);
    glVertexPointer(GLint(vertices->components()), vertices->componentType(), 0, vertices->boundAddress(0));
    glEnableClientState(GL_VERTEX_ARRAY);
}

/// An attribute with fewer entries than there are vertices would be read beyond its end.
bool coverAllVertices(const VertexAttributeShapeGL & shape) {
    const unsigned count = shape.vertices()->count();
    bool result = !shape.normals() || shape.normals()->count() >= count;
    result = result && (!shape.colors() || shape.colors()->count() >= count);
    for (unsigned unit = 0; unit < VertexAttributeShapeGL::maxTextureUnits; ++unit)
        result = result && (!shape.texCoords(unit) || shape.texCoords(unit)->count() >= count);
    return result;
}

} // namespace

ID VertexAttributeShapePainterGL::target() const {
    return VertexAttributeShapeGL::ClassNameNBX();
}

bool VertexAttributeShapePainterGL::render(Engine * engine, const Shape * shape) {
    auto * gl = dynamic_cast<EngineGL *>(engine);
    const auto * mesh = dynamic_cast<const VertexAttributeShapeGL *>(shape);
    NBX_CHECK(gl, L"no engine");
    if (!gl || !mesh || !mesh->vertices()) return false;
    const VertexAttributeShapeGL::Primitives & primitives = mesh->primitives();
    if (primitives.counts.empty()) return true;
    const bool attributesFit = coverAllVertices(*mesh);
    NBX_CHECK(attributesFit, L"fewer vertex attributes than vertices");
    if (!attributesFit) return true;

    const VertexStateGuard guard;
    bindAttributes(gl, *mesh);
    const auto count = GLsizei(primitives.counts.size());
    if (mesh->indices()) {
        mesh->indices()->bind(gl);
        glMultiDrawElements(GLenum(mesh->primitiveType()), primitives.counts.data(), GL_UNSIGNED_SHORT,
                            const_cast<const void **>(primitives.offsets.data()), count);
    } else {
        glMultiDrawArrays(GLenum(mesh->primitiveType()), primitives.firsts.data(), primitives.counts.data(),
                          count);
    }
    return true;
}

NBX_REGISTER_HANDLER_GL(VertexAttributeShapePainterGL)

} // namespace NBX
