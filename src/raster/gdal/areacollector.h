#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <ogr_geometry.h>

#include <zmt/raster/gdal/vectorfile.h>

class OGRCoordinateTransformation;

namespace ZMT::RASTER {

/// Collects the areas of a file within an extent: made valid, brought into another system, cut, and joined
/// where they overlap.
class AreaCollector {
public:
    /// The areas of `path` in `extent`, which may be without bounds.
    AreaCollector(const std::string & path, const GeoExtent & extent, std::uint64_t maxPoints);

    /// For what is added from now on; null for coordinates that are taken as they are. It must live on.
    void setTransformation(OGRCoordinateTransformation * transformation);
    /// The areas of one feature. Throws `NBX::InputException` where they cannot be made valid.
    void add(const OGRGeometry & geometry);
    /// Throws as above, and where there are too many points.
    VectorAreas take();

private:
    void collect(const OGRGeometry & geometry, unsigned depth);
    bool addTransformed(const OGRGeometry & area);
    bool addCut(const OGRGeometry & area);

    const std::string & path_;
    GeoExtent extent_;
    std::uint64_t maxPoints_;
    OGRCoordinateTransformation * transformation_ = nullptr;
    std::vector<GeoExtent> windows_; ///< in the system of the file
    OGRMultiPolygon feature_;        ///< in the system of the file
    OGRMultiPolygon areas_;          ///< within the extent
    VectorAreas result_;
};

} // namespace ZMT::RASTER
