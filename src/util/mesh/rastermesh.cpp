// The refinement knows the raster's cells alone. What it comes to is placed on the map, rounded, and measured
// as it is; while that is above the goal, the vertices that are too far away become corners.

#include <zmt/util/mesh/rastermesh.h>

#include <algorithm>
#include <cmath>

#include "meshdeviation.h"
#include "meshsolid.h"
#include "rasterplan.h"

#include <nbx/object/progress.h>
#include <zmt/raster/gdal/coordinatesystem.h>

namespace ZMT::UTIL {

namespace {

/// Corners so close that straight edges follow the map.
void insertSeeds(RasterRefinement & refinement, const RASTER::RasterGrid & grid, unsigned step) {
    for (std::uint64_t row = 0; row < grid.cellsY; row += step)
        for (std::uint64_t column = 0; column < grid.cellsX; column += step)
            refinement.insert(unsigned(column), unsigned(row));
    for (std::uint64_t row = step; row < grid.cellsY; row += step)
        refinement.insert(grid.cellsX - 1, unsigned(row));
    for (std::uint64_t column = step; column < grid.cellsX; column += step)
        refinement.insert(unsigned(column), grid.cellsY - 1);
}

/// Origin and scale of the mesh.
class Placing {
public:
    Placing(const RASTER::GeoRaster & raster, const RasterPlan & plan, const RasterMesh::Options & options)
        : grid_(raster.raster->grid()), plan_(plan), base_(options.base) {
        const auto middle = plan.place((grid_.cellsX - 1) / 2, (grid_.cellsY - 1) / 2);
        mesh_.origin = {middle.x, middle.y, 0.0};
        // Cells of a map lie at whole numbers of cells from the middle one; of others there is no exact
        // place.
        if (raster.reference.isGeographic) mesh_.origin = {std::round(middle.x), std::round(middle.y), 0.0};
        if (options.width) {
            mesh_.scale = *options.width / extentX();
            if (base_) mesh_.origin.z = *base_;
        }
        mesh_.wkt = plan.reference().wkt;
        if (!mesh_.wkt.empty()) mesh_.system = RASTER::CoordinateSystem::code(mesh_.wkt);
    }

    SurfaceMesh place(const RASTER::SimpleRasterData<float> & heights, const RasterSurface & surface) const {
        SurfaceMesh mesh = mesh_;
        mesh.positions.reserve(surface.vertices.size());
        for (const auto & vertex : surface.vertices) {
            const auto at = plan_.place(vertex.column, vertex.row);
            mesh.positions.push_back(
                {float((at.x - mesh.origin.x) * mesh.scale), float((at.y - mesh.origin.y) * mesh.scale),
                 float((heights.value(vertex.column, vertex.row) - mesh.origin.z) * mesh.scale)});
        }
        mesh.triangles = surface.triangles;
        return mesh;
    }

    void close(SurfaceMesh & mesh, const RasterSurface & surface) const {
        if (!base_ || mesh.triangles.empty()) return;
        const unsigned column = (grid_.cellsX - 1) / 2, row = (grid_.cellsY - 1) / 2;
        const auto a = plan_.place(column, row), b = plan_.place(column + 1, row);
        MeshSolid::close(mesh, surface, float((*base_ - mesh.origin.z) * mesh.scale),
                         std::hypot(b.x - a.x, b.y - a.y) * mesh.scale);
    }

private:
    double extentX() const {
        double low = plan_.place(0, 0).x, high = low;
        for (unsigned row = 0; row < grid_.cellsY; ++row)
            for (const unsigned column : {0u, grid_.cellsX - 1}) {
                low = std::min(low, plan_.place(column, row).x);
                high = std::max(high, plan_.place(column, row).x);
            }
        return high - low;
    }

    RASTER::RasterGrid grid_;
    const RasterPlan & plan_;
    std::optional<double> base_;
    SurfaceMesh mesh_; ///< without anything in it
};

} // namespace

std::optional<SurfaceMesh> RasterMesh::create(const RASTER::GeoRaster & raster, const Options & options,
                                              NBX::Progress * progress) {
    constexpr double s_measuring = 0.8; // share of the time that the first refinement takes
    const auto & heights = *raster.raster;
    const RasterPlan plan(raster);
    const Placing placing(raster, plan, options);
    RasterRefinement refinement(heights, plan.cellRatio());
    if (plan.straightSteps() < std::max(heights.cellsX(), heights.cellsY()))
        insertSeeds(refinement, heights.grid(), plan.straightSteps());
    for (double share = s_measuring;; share += 0.25 * (1.0 - share)) {
        if (!refinement.refine(options.goal, progress, share)) return {};
        const RasterSurface surface = refinement.surface();
        SurfaceMesh mesh = placing.place(heights, surface);
        const auto deviation = MeshDeviation(heights, plan, surface, mesh)
                                   .measure(options.goal.error, options.threads, progress);
        if (deviation.isCancelled) return {};
        const std::uint64_t before = refinement.triangles();
        const bool mayGoOn = options.goal.error > 0.0 && before < options.goal.triangles;
        for (std::size_t i = 0; i < deviation.worst.size() && mayGoOn; ++i)
            refinement.insert(deviation.worst[i].column, deviation.worst[i].row);
        if (refinement.triangles() != before) continue;
        mesh.error = std::isinf(refinement.error()) ? refinement.error() : deviation.error;
        placing.close(mesh, surface);
        return mesh;
    }
}

} // namespace ZMT::UTIL
