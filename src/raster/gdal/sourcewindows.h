#pragma once

#include <cstddef>
#include <vector>

#include <zmt/raster/geoextent.h>

class OGRCoordinateTransformation;

namespace ZMT::RASTER {

/// What is straight in one system is not in another: edges are no longer than the diagonal of a window over
/// this number.
inline constexpr double edgesAcrossWindow = 100.0;

/// Whether coordinates may be cut at this rectangle.
bool isBounded(const GeoExtent & extent);

/// The rectangles of the source system of a transformation that hold all that comes to lie in `extent` of its
/// target system, with some room around. What is cut at one of them is transformed without a jump: they end
/// where the target system is cut open, and there are several where longitudes may count whole turns more or
/// less. One without bounds where nothing can be told.
std::vector<GeoExtent> sourceWindows(OGRCoordinateTransformation & transformation, const GeoExtent & extent);
/// The same with the inverse of the transformation, which may be null; `samples` points a side are looked at.
std::vector<GeoExtent> sourceWindows(OGRCoordinateTransformation & transformation,
                                     OGRCoordinateTransformation * back, const GeoExtent & extent,
                                     std::size_t samples = 33);

} // namespace ZMT::RASTER
