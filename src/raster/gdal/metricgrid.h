#pragma once

#include <string>

#include <zmt/raster/georeference.h>
#include <zmt/raster/rasterdata.h>

namespace ZMT::RASTER {

/// A grid in a system in metres, for a raster in degrees.
struct MetricGrid {
    std::string system; ///< as GDAL takes it: a name such as "EPSG:32645", or a definition
    RasterGrid grid;
};

/// `grid`, in degrees times `unit`, without the rows behind the poles, of which bad registrations have some.
/// Throws `NBX::InputException` for coordinates that are no positions on the globe.
RasterGrid gridOnGlobe(const RasterGrid & grid, double unit);

/// The system and the grid in which a raster of that grid, in the degrees of `reference`, is laid: the UTM
/// zone of its centre where it is less than 12 degrees wide, a polar stereographic system near the poles, and
/// an equidistant cylindrical one, true to scale in its middle, where it is larger. Throws
/// `NBX::InputException` where the systems cannot be converted.
MetricGrid metricGridFor(const RasterGrid & degrees, const GeoReference & reference);

/// The grid in which a raster of the grid `raster`, in the system `wkt`, is laid in `system`, without the
/// wedges along its border. Throws as above.
RasterGrid gridIn(const std::string & system, const RasterGrid & raster, const std::string & wkt);

/// What is to be said of coordinates in a system that `metricGridFor` chose.
GeoReference metricReference(const std::string & system);

/// The same projection with coordinates in metres, as WKT.
std::string systemInMetres(const std::string & wkt);

} // namespace ZMT::RASTER
