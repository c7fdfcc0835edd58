#include <zmt/core/terrain/geometry/grid/model/gridterraintileindexbuffer.h>

#include <GL/glew.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/mesh/bufferobjectgl.h>
#include <nbx/object/errorhandler.h>

namespace ZMT::CORE::GRID {

static_assert(IndexRange::triangles == GL_TRIANGLES && IndexRange::triangleStrip == GL_TRIANGLE_STRIP &&
              IndexRange::triangleFan == GL_TRIANGLE_FAN);

void GridTerrainTileIndexBuffer::bind(NBX::EngineGL * engine) const {
    NBX_CHECK(engine, L"no engine");
    if (!engine) return;
    if (!buffer_)
        buffer_ =
            new NBX::BufferObjectGL(engine, indices_.size() * sizeof indices_[0], indices_.data(),
                                    NBX::BufferObjectGL::DT_VertexIndices, NBX::BufferObjectGL::UP_Static);
    buffer_->bind(engine);
}

void GridTerrainTileIndexBuffer::unbind(NBX::EngineGL * engine) const {
    NBX_CHECK(engine, L"no engine");
    if (engine && buffer_) buffer_->unbind(engine);
}

unsigned GridTerrainTileIndexBuffer::drawElements(const IndexRange & range) const {
    const bool isList = range.mode == GL_TRIANGLES;
    const bool isStrip = range.mode == GL_TRIANGLE_STRIP || range.mode == GL_TRIANGLE_FAN;
    if (range.count == 0) return 0;
    if (!isList && !isStrip) {
        NBX_REPORT(0, L"false", L"not implemented yet");
        return 0;
    }
    const bool isInside = range.start <= indices_.size() && range.count <= indices_.size() - range.start;
    NBX_CHECK(isInside, L"the range lies beyond the indices");
    if (!isInside || !buffer_) return 0;
    glDrawElements(range.mode, static_cast<GLsizei>(range.count), GL_UNSIGNED_SHORT,
                   buffer_->boundAddress(range.start * sizeof indices_[0]));
    if (isList) return range.count / 3;
    return range.count > 2 ? range.count - 2 : 0;
}

unsigned GridTerrainTileIndexBuffer::drawBorder(unsigned border, unsigned k, unsigned first,
                                                unsigned cells) const {
    drawElements(borderCorner(border, k, first));
    drawElements(borderCorner(border, k, first + cells));
    return drawElements(borderStretch(border, k, first, cells));
}

} // namespace ZMT::CORE::GRID
