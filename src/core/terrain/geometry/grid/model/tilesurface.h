#pragma once

#include <limits>

#include <nbx/math/ray.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>

namespace ZMT::CORE::GRID {

/// Where nothing is defined.
inline constexpr double noHeight = -std::numeric_limits<double>::infinity();

/// A ray through grid space whose direction has the largest component 1, so that its parameter is a length of
/// the magnitude of the coordinates, however long or short the direction was.
class GridRay {
public:
    using Point = NBX::Vector3Base<double>;

    explicit GridRay(const NBX::Ray & ray);

    /// False for a ray without direction, and for coordinates that are no numbers.
    bool isValid() const { return isValid_; }
    Point point(double t) const { return ray_.point(t); }
    const Point & origin() const { return ray_.getOrigin(); }
    const Point & direction() const { return ray_.getDirection(); }

private:
    NBX::Ray ray_;
    bool isValid_ = false;
};

/// A part of a ray by its parameter.
struct RaySpan {
    double begin = 0.0, end = std::numeric_limits<double>::infinity();

    bool isEmpty() const { return !(begin <= end); }
    /// Cuts off where `from + t * along` does not lie between `low` and `high`.
    void clip(double from, double along, double low, double high);
};

/// A rectangle of the plane in grid space.
struct GridRectangle {
    double minX, minY, maxX, maxY;
};

/// Finds where a ray first meets the triangles of a tile inside of `part`, and before the parameter `t`,
/// which becomes that of the hit.
bool findFirstHit(const GridTerrainTileData & data, const GridRectangle & part, const GridRay & ray,
                  double & t);

} // namespace ZMT::CORE::GRID
