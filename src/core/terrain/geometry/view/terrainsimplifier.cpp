#include <zmt/core/terrain/geometry/view/terrainsimplifier.h>

#include <nbx/engine/modelmatrixscope.h>
#include <nbx/scene/node/scenenode.h>
#include <zmt/core/terrain/frame/localframe.h>
#include <zmt/core/terrain/geometry/base/geometrydata.h>
#include <zmt/core/terrain/geometry/draped/terraintexturedtriangles.h>
#include <zmt/core/terrain/geometry/view/terrain.h>

namespace ZMT::CORE {

namespace {

void paintData(NBX::Engine * engine, const Terrain & terrain) {
    const NBX::SO<GeometryData> data = terrain.data();
    if (!data) return;
    const NBX::ModelMatrixScope place(
        engine, NBX::Matrix4x4Base<double>::translation(LocalFrame(terrain.origin()).originInScene()));
    engine->paint(data.get());
}

/// Enabled and disabled ones. The triangles stand in scene coordinates.
void paintTexturedTriangles(NBX::Engine * engine) {
    const NBX::ID & name = TerrainTexturedGeometry::ClassNameNBX();
    for (unsigned i = 0; i < engine->polyAttributeCount(name, NBX::Engine::PS_All); ++i) {
        const auto * triangles =
            dynamic_cast<TerrainTexturedTriangles *>(engine->polyAttribute(name, i, NBX::Engine::PS_All));
        if (!triangles) continue;
        const NBX::SO<NBX::SceneNode> shape = triangles->geometry(triangles->boundingBox());
        if (shape) shape->evaluate(engine);
    }
}

} // namespace

NBX_CLASS_IMPL(TerrainSimplifier, NBX::ShapeSimplifier)

NBX::ID TerrainSimplifier::target() const {
    return Terrain::ClassNameNBX();
}

bool TerrainSimplifier::simplify(NBX::Engine * E, const NBX::Shape * shape) {
    NBX_CHECK(E, L"no engine");
    const auto * terrain = dynamic_cast<const Terrain *>(shape);
    if (!E || !terrain) return false;
    paintData(E, *terrain);
    paintTexturedTriangles(E);
    return true;
}

NBX_REGISTER_HANDLER(TerrainSimplifier)

} // namespace ZMT::CORE
