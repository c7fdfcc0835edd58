#include "geometrytilebaghackgl.h"

#include <GL/gl.h>

#include <nbx/engine/shapepainter.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/state/colorbuffergl.h>
#include <nbx/object/errorhandler.h>
#include <zmt/core/terrain/geometry/grid/model/gridterrain.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintilevertexbuffer.h>

namespace ZMT::CORE::GRID {

NBX_CLASS_IMPL(GeometryTileBagHACK, NBX::Shape)

namespace {

const NBX::SO<NBX::ColorBufferGL> passAlphaTest(NBX::ColorBufferGL::newAlphaTest(true, GL_ALWAYS, 1.0));

class GeometryTileBagPainterHACK : public NBX::ShapePainter {
    NBX_TEMPLATE_CLASS(GeometryTileBagPainterHACK, NBX::ShapePainter)
public:
    NBX::ID target() const override { return GeometryTileBagHACK::ClassNameNBX(); }

    bool render(NBX::Engine * engine, const NBX::Shape * shape) override {
        auto * engineGL = dynamic_cast<NBX::EngineGL *>(engine);
        const auto * bag = dynamic_cast<const GeometryTileBagHACK *>(shape);
        if (!engineGL || !bag) return false;
        NBX::ColorBufferGL * alphaTest = bag->alphaTest() ? bag->alphaTest().get() : passAlphaTest.get();
        for (const auto & tile : bag->tiles()) {
            if (!tile->vertexBuffer()) {
                NBX_FAILURE(L"tile vertex data not loaded");
                continue;
            }
            const NBX::AttributeScope test(engine, tile->hasUndefValues() ? alphaTest : nullptr);
            bag->addTriangles(tile->renderGeometry(engineGL, false));
        }
        return true;
    }
};

} // namespace

GeometryTileBagHACK::GeometryTileBagHACK(NBX::SO<GridTerrain> terrain, NBX::SO<NBX::ColorBufferGL> alphaTest,
                                         std::uint64_t & triangles)
    : NBX::Shape(true), terrain_(terrain), alphaTest_(alphaTest), triangles_(triangles) {}

GeometryTileBagHACK::~GeometryTileBagHACK() = default;

NBX::Bounds GeometryTileBagHACK::boundingBox() const {
    NBX::Bounds box;
    for (const auto & tile : tiles_)
        box += tile->gridBoundingBox();
    return box;
}

NBX_REGISTER_HANDLER_GL(GeometryTileBagPainterHACK)

} // namespace ZMT::CORE::GRID
