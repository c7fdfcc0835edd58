#pragma once

#include <nbx/engine/rayintersector.h>

namespace NBX {
class Area;
}

namespace ZMT::CORE {

class GridData;

/// Intersects a grid patch at full resolution with a ray; micro-structures of a hybrid grid are handed to the
/// engine. Both sides of the surface are hit; the normal looks at the ray's origin.
///
/// Plain cells are divided into two triangles from (x, y) to (x + 1, y + 1), pictures from (x + 1, y) to
/// (x, y + 1), and `GridData::calculateHeight` interpolates between all four corners where its raster does.
/// Let the bend of a cell be the sum of the heights at the first two corners less that at the others: heights
/// at one place differ by a quarter of it at most between a hit and a query, as between a query and the
/// picture, and by half of it between a hit and the picture.
///
/// Laws: (1) the nearest hit is the one that comes of testing all triangles of all cells whose column, from
/// the lower to the upper height limit, the ray meets: to the last bit, and of equally near ones the first of
/// a recursive division of the patch into quarters, in the order low x low y, low x high y, high x low y,
/// high x high y; (2) a ray that misses the box of the patch costs one test. A direction whose squared length
/// is not a normal number hits nothing.
///
/// Whole regions are left out by `GridHeightBounds`, which are made at the first ray against a grid, and
/// shared by its patches. So this handler is for one thread.
class GridPatchRayIntersector : public NBX::RayIntersector {
    NBX_CLASS(GridPatchRayIntersector, NBX::RayIntersector)
public:
    GridPatchRayIntersector() = default;

    NBX::ID target() const override;
    bool intersect(NBX::Engine * engine, const NBX::Matrix4x4Base<double> & modelview,
                   const NBX::Matrix4x4Base<double> & inverse, const NBX::Shape * shape, const NBX::Ray & ray,
                   NBX::RayTracingTechnique * technique) override;

    /// Tests the cells of `domain` between the heights `minY` and `maxY`. `shape` is what is told as hit. A
    /// null engine or grid, a domain that does not lie on the grid and turned heights are reported, and
    /// nothing is hit.
    static void checkGrid(NBX::Engine * engine, const NBX::Ray & ray, const GridData * grid,
                          const NBX::Area & domain, double minY, double maxY,
                          const NBX::Matrix4x4Base<double> & inverse, const NBX::Shape * shape,
                          NBX::RayTracingTechnique * technique);

private:
    class Search;
};

} // namespace ZMT::CORE
