#include <nbx/engine/engine.h>
#include <nbx/engine/rayintersector.h>
#include <nbx/engine/raytracingtechnique.h>
#include <nbx/object/errorhandler.h>
#include <zmt/core/terrain/geometry/grid/model/gridterrain.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>

namespace ZMT::CORE::GRID {

namespace {

/// Tells where the ray of a pick meets a streaming terrain; what it needs is read.
class GridTerrainRayIntersector : public NBX::RayIntersector {
    NBX_TEMPLATE_CLASS(GridTerrainRayIntersector, NBX::RayIntersector)
public:
    NBX::ID target() const override { return GridTerrain::ClassNameNBX(); }

    bool intersect(NBX::Engine * engine, const NBX::Matrix4x4Base<double> & model,
                   const NBX::Matrix4x4Base<double> & inverseModel, const NBX::Shape * shape,
                   const NBX::Ray & ray, NBX::RayTracingTechnique * technique) override;
};

/// The normal is that of level ground: that of a triangle says little where heights are quantised.
bool GridTerrainRayIntersector::intersect(NBX::Engine * engine, const NBX::Matrix4x4Base<double> &,
                                          const NBX::Matrix4x4Base<double> &, const NBX::Shape * shape,
                                          const NBX::Ray & ray, NBX::RayTracingTechnique * technique) {
    const auto * terrain = dynamic_cast<const GridTerrain *>(shape);
    if (!terrain) return false;
    const NBX::SO<GridTerrainTile> root = terrain->rootTile();
    const NBX::Ray gridRay = terrain->vis2gridTf() * ray;
    if (!root || !NBX::RayTracingTechnique::checkBounds(gridRay, terrain->gridBoundingBox())) return true;
    NBX::Vector3Base<double> point;
    if (root->rayIntersection(gridRay, point, false))
        technique->report(engine, terrain->grid2visTf() * point, {0.0, 1.0, 0.0}, shape);
    return true;
}

} // namespace

NBX_REGISTER_HANDLER(GridTerrainRayIntersector)

} // namespace ZMT::CORE::GRID
