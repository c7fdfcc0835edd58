#include "polygonsetpaintergl.h"

#include <array>
#include <vector>

#include <GL/glew.h>

#include "vertexarraysgl.h"
#include <nbx/gl/context/enginegl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/shape/polygonset.h>

namespace NBX {

NBX_CLASS_IMPL(PolygonSetPainterGL, ShapePainter)

namespace {

/// About what a driver keeps of a triangle in a display list: position, normal, colour and texture
/// coordinates of its corners.
constexpr unsigned s_triangleBytes = 3 * 48;

/// The corners of all triangles whose vertices exist.
std::vector<unsigned> trianglesOf(const PolygonSet & set) {
    std::vector<unsigned> corners;
    corners.reserve(std::size_t(set.triangles()) * 3);
    bool complete = true;
    for (unsigned i = 0; i < set.triangles(); ++i) {
        std::array<unsigned, 3> triangle;
        if (set.triangle(i, triangle))
            corners.insert(corners.end(), triangle.begin(), triangle.end());
        else
            complete = false;
    }
    NBX_CHECK(complete, L"a polygon has a corner beyond the vertices");
    return corners;
}

void draw(const PolygonSet & set, unsigned textureCoordinateSets) {
    const SO<PolygonSet::Vertices> vertices = set.newVertexIterator();
    if (!vertices) return;
    const std::vector<unsigned> corners = trianglesOf(set);
    if (corners.empty()) return;
    VertexArraysGL arrays(*vertices, textureCoordinateSets);
    arrays.setNormals(set.newNormalIterator().get());
    arrays.setColors(set.newColorIterator().get());
    // Set 0 last, as it serves for those that are not given.
    for (unsigned unit = PolygonSet::maxTextureUnits; unit-- > 0;)
        arrays.setTexCoords(unit, set.newTextureIterator(unit).get());
    glDrawElements(GL_TRIANGLES, GLsizei(corners.size()), GL_UNSIGNED_INT, corners.data());
}

bool isRecording() {
    GLint list = 0;
    glGetIntegerv(GL_LIST_INDEX, &list);
    return list != 0;
}

} // namespace

ID PolygonSetPainterGL::target() const {
    return PolygonSet::ClassNameNBX();
}

bool PolygonSetPainterGL::render(Engine * engine, const Shape * shape) {
    auto * gl = dynamic_cast<EngineGL *>(engine);
    const auto * set = dynamic_cast<const PolygonSet *>(shape);
    NBX_CHECK(gl, L"no engine");
    if (!gl || !set) return false;
    if (isRecording()) {
        draw(*set, gl->textureCoordinateSets());
        return true;
    }
    auto * key = const_cast<PolygonSet *>(set);
    unsigned list = gl->getDisplayList(key);
    if (!list) {
        list = gl->newDisplayList(key, set->triangles() * s_triangleBytes);
        if (list) glNewList(list, GL_COMPILE);
        draw(*set, gl->textureCoordinateSets());
        if (list) glEndList();
    }
    if (list) glCallList(list);
    return true;
}

NBX_REGISTER_HANDLER_GL(PolygonSetPainterGL)

} // namespace NBX
