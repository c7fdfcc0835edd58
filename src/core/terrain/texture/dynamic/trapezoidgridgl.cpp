#include "trapezoidgridgl.h"

#include <array>
#include <cstdint>
#include <vector>

#include <GL/glew.h>

#include <nbx/gl/texture/imageopengltool.h>
#include <nbx/image/memoryimage.h>

namespace ZMT::CORE {

namespace {

using Point = NBX::Vector3Base<double>;
using XY = std::array<float, 2>;
using XYZW = std::array<float, 4>;

/// Row by row.
std::vector<XY> placesOf(unsigned n) {
    std::vector<XY> places;
    places.reserve(std::size_t(n) * n);
    const auto last = static_cast<float>(n - 1);
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i < n; ++i)
            places.push_back({static_cast<float>(i) / last, static_cast<float>(j) / last});
    return places;
}

/// Two triangles a cell.
std::vector<std::uint32_t> indicesOf(unsigned n) {
    std::vector<std::uint32_t> indices;
    indices.reserve(std::size_t(6) * (n - 1) * (n - 1));
    for (std::uint32_t j = 0; j + 1 < n; ++j)
        for (std::uint32_t i = 0; i + 1 < n; ++i) {
            const std::uint32_t a = j * n + i, b = a + 1, c = a + n, d = c + 1;
            indices.insert(indices.end(), {a, b, d, a, d, c});
        }
    return indices;
}

} // namespace

TrapezoidGridGL::TrapezoidGridGL(NBX::EngineGL * engine, unsigned size)
    : size_(size), target_(engine, size),
      shape_(new NBX::GL2::AttributedShape(NBX::VertexAttributeShapeGL::PT_Triangles,
                                           NBX::Bounds(Point(0.0, 0.0, 0.0), Point(1.0, 1.0, 0.0)))) {
    if (!isUsable()) return;
    const std::vector<XY> places = placesOf(size);
    shape_->setAttribute("gridXY", new NBX::VertexAttributeBufferObjectGL<XY>(
                                       engine, static_cast<unsigned>(places.size()), places.data()));
    gridZ_ = new NBX::VertexAttributeBufferObjectGL<XYZW>(engine, static_cast<unsigned>(places.size()),
                                                          nullptr, NBX::BufferObjectGL::UP_Stream);
    shape_->setAttribute("gridZ", gridZ_);
    shape_->setIndices(engine, indicesOf(size));
}

void TrapezoidGridGL::fill(NBX::EngineGL * engine, const std::function<void()> & draw) {
    target_.drawInto(engine, [&] {
        draw();
        readBack(engine);
    });
}

/// From the target to the vertices, which the card does by itself.
void TrapezoidGridGL::readBack(NBX::EngineGL * engine) {
    const NBX::SO<NBX::MemoryImage> line(
        new NBX::MemoryImage(static_cast<int>(size_), 1, NBX::LS_RGBA, NBX::Image::Float));
    glPushClientAttrib(GL_CLIENT_PIXEL_STORE_BIT);
    gridZ_->changeType(NBX::BufferObjectGL::DT_PixelPack);
    gridZ_->bind(engine);
    NBX::ImageOpenGLTool::setPixelStoreModes(line.get(), true);
    glReadBuffer(GL_COLOR_ATTACHMENT0_EXT);
    glReadPixels(0, 0, static_cast<GLsizei>(size_), static_cast<GLsizei>(size_), GL_RGBA, GL_FLOAT,
                 const_cast<void *>(gridZ_->boundAddress(0)));
    gridZ_->unbind(engine);
    gridZ_->changeType(NBX::BufferObjectGL::DT_VertexAttributes);
    glPopClientAttrib();
}

TrapezoidGridGL::Matrix TrapezoidGridGL::toPixelMiddles() const {
    const double share = (size_ - 1.0) / size_;
    return Matrix::scaling({share, share, 1.0});
}

} // namespace ZMT::CORE
