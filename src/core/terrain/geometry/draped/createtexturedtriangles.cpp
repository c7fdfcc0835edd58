#include "createtexturedtriangles.h"

#include <algorithm>
#include <cmath>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/mesh/primitivequadtreegl.h>
#include <nbx/scene/shape/polygonsettool.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/draped/terraintexturedtriangles.h>

namespace ZMT::CORE {

namespace {

/// What the terrain's textures take the place of.
void clearAppearance(NBX::PolygonSet & set) {
    set.setNormalIterator(nullptr);
    set.setTextureIterator(nullptr, 0);
    set.setColorIterator(nullptr);
}

/// One level for every factor of four above a thousand corners.
unsigned levelsFor(const NBX::PolygonSet & set) {
    unsigned n = set.newVertexIterator() ? set.newVertexIterator()->size() : 0;
    if (set.newIndexIterator()) n = set.newIndexIterator()->size();
    return static_cast<unsigned>(std::max(std::log(n / 1000.0), 0.0) / std::log(4.0) + 0.5);
}

} // namespace

NBX::SO<NBX::PolygonSet> CreateTexturedTriangles::merged(const std::vector<NBX::SO<NBX::PolygonSet>> & sets) {
    for (const NBX::SO<NBX::PolygonSet> & set : sets)
        if (set) clearAppearance(*set);
    const NBX::SO<NBX::Array<NBX::SO<NBX::PolygonSet>>> list(
        new NBX::Array<NBX::SO<NBX::PolygonSet>>(std::vector<NBX::SO<NBX::PolygonSet>>(sets)));
    return NBX::PolygonSetTool::mergePolygonSets(list.get());
}

NBX::SO<TerrainTexturedGeometry> CreateTexturedTriangles::create(NBX::SO<NBX::PolygonSet> set) {
    if (!set) return nullptr;
    // Terrains are painted with front faces that wind clockwise.
    set = NBX::PolygonSetTool::invertOrientation(set.get());
    clearAppearance(*set);
    if (const auto vertices = set->newVertexIterator())
        set->setVertexIterator(GeoTransformation::geo2nbxTf(vertices));
    const NBX::SO<NBX::PrimitiveQuadTreeGL> tree(
        new NBX::PrimitiveQuadTreeGL(levelsFor(*set), set, NBX::Bounds(), true));
    return new TerrainTexturedTriangles(tree, NBX::Vector3Base<double>());
}

} // namespace ZMT::CORE
