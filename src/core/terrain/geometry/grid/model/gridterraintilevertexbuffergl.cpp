#include <zmt/core/terrain/geometry/grid/model/gridterraintilevertexbuffer.h>

#include <cstddef>

#include <GL/glew.h>

#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/mesh/bufferobjectgl.h>
#include <nbx/object/errorhandler.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>

namespace ZMT::CORE::GRID {

namespace {

constexpr GLint s_colorComponents = 4, s_positionComponents = 3;

void setColorArray(const void * address) {
    glColorPointer(s_colorComponents, GL_UNSIGNED_BYTE, sizeof(GridTerrainTileVertexBuffer::Vertex), address);
}

void setPositionArray(const void * address) {
    glVertexPointer(s_positionComponents, GL_FLOAT, sizeof(GridTerrainTileVertexBuffer::Vertex), address);
}

} // namespace

void GridTerrainTileVertexBuffer::enable(bool colors) {
    if (colors) {
        setColorArray(nullptr);
        glEnableClientState(GL_COLOR_ARRAY);
    }
    setPositionArray(nullptr);
    glEnableClientState(GL_VERTEX_ARRAY);
}

void GridTerrainTileVertexBuffer::disable(bool colors) {
    glDisableClientState(GL_VERTEX_ARRAY);
    if (colors) glDisableClientState(GL_COLOR_ARRAY);
}

void GridTerrainTileVertexBuffer::bind(NBX::EngineGL * engine, bool colors) const {
    NBX_CHECK(engine, L"no engine");
    if (!engine || !data_) return;
    if (!buffer_) upload(engine);
    NBX::GraphicsMemoryManager::instance()->touch(this);
    buffer_->bind(engine);
    if (colors) setColorArray(buffer_->boundAddress(offsetof(Vertex, color)));
    setPositionArray(buffer_->boundAddress(0));
    buffer_->unbind(engine);
}

} // namespace ZMT::CORE::GRID
