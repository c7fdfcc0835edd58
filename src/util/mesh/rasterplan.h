#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include <zmt/raster/georaster.h>

namespace ZMT::UTIL {

/// Where the vertices of a raster lie on a map in metres. Of a raster in degrees a part is projected, and
/// what lies between is interpolated, so closely that nobody can tell. Several threads may ask at once.
class RasterPlan {
public:
    struct Place {
        double x, y;
    };

    /// Throws `NBX::InputException` where a raster in degrees cannot be projected.
    explicit RasterPlan(const RASTER::GeoRaster & raster);

    Place place(unsigned column, unsigned row) const;
    /// The system of the places.
    const RASTER::GeoReference & reference() const { return reference_; }
    /// The height of a cell in the middle over its width.
    double cellRatio() const;
    /// The greatest power of two so that straight lines between vertices which are so many columns, or rows,
    /// apart, follow the map within half a cell. Not below the size of the raster where any do.
    unsigned straightSteps() const { return straightSteps_; }

private:
    RASTER::RasterGrid grid_;
    RASTER::GeoReference reference_;
    unsigned straightSteps_ = 1u << 31;
    unsigned step_ = 0; ///< columns and rows from one projected place to the next; 0 where none is
    std::size_t nodesX_ = 0;
    std::vector<Place> nodes_; ///< row by row
};

} // namespace ZMT::UTIL
