#include "vertexarraysgl.h"

#include <GL/glew.h>

#include <nbx/object/errorhandler.h>

namespace NBX {

namespace {

std::vector<float> floatsOf(const VertexArraysGL::Vectors & vectors) {
    std::vector<float> result;
    result.reserve(std::size_t(vectors.size()) * 3);
    for (unsigned i = 0; i < vectors.size(); ++i) {
        const Vector3Base<double> v = vectors.get(i);
        result.insert(result.end(), {float(v.x), float(v.y), float(v.z)});
    }
    return result;
}

std::vector<float> floatsOf(const Iterator<Color> & colors) {
    std::vector<float> result;
    result.reserve(std::size_t(colors.size()) * 4);
    for (unsigned i = 0; i < colors.size(); ++i) {
        const Color color = colors.get(i);
        result.insert(result.end(), color.data(), color.data() + 4);
    }
    return result;
}

} // namespace

VertexArraysGL::VertexArraysGL(const Vectors & positions, unsigned sets)
    : count_(positions.size()), sets_(sets), positions_(floatsOf(positions)), texCoords_(sets) {
    glPushClientAttrib(GL_CLIENT_VERTEX_ARRAY_BIT);
    glPushAttrib(GL_CURRENT_BIT);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    glVertexPointer(3, GL_FLOAT, 0, positions_.data());
    glEnableClientState(GL_VERTEX_ARRAY);
}

VertexArraysGL::~VertexArraysGL() {
    glPopAttrib();
    glPopClientAttrib();
}

bool VertexArraysGL::isLongEnough(unsigned size) const {
    NBX_CHECK(size >= count_, L"fewer vertex attributes than vertices");
    return size >= count_;
}

void VertexArraysGL::setNormals(const Vectors * normals) {
    if (!normals || !isLongEnough(normals->size())) return;
    normals_ = floatsOf(*normals);
    glNormalPointer(GL_FLOAT, 0, normals_.data());
    glEnableClientState(GL_NORMAL_ARRAY);
}

void VertexArraysGL::setColors(const Iterator<Color> * colors) {
    if (!colors || !isLongEnough(colors->size())) return;
    colors_ = floatsOf(*colors);
    glColorPointer(4, GL_FLOAT, 0, colors_.data());
    glEnableClientState(GL_COLOR_ARRAY);
}

void VertexArraysGL::enableTexCoords(unsigned set, const float * coordinates) {
    glClientActiveTexture(GL_TEXTURE0 + set);
    glTexCoordPointer(3, GL_FLOAT, 0, coordinates);
    glEnableClientState(GL_TEXTURE_COORD_ARRAY);
}

void VertexArraysGL::setTexCoords(unsigned set, const Vectors * coordinates) {
    if (!coordinates || set >= sets_ || !isLongEnough(coordinates->size())) return;
    texCoords_[set] = floatsOf(*coordinates);
    enableTexCoords(set, texCoords_[set].data());
    if (set != 0) return;
    for (unsigned other = 1; other < sets_; ++other)
        if (texCoords_[other].empty()) enableTexCoords(other, texCoords_[0].data());
}

} // namespace NBX
