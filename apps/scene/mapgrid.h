#pragma once

#include <memory>
#include <string>

#include <zmt/raster/featuresource.h>
#include <zmt/raster/geoextent.h>
#include <zmt/raster/georeference.h>

class Landscape;

/// Lines at round coordinates over the ground of a landscape, with their numbers: an overlay among others.
class MapGrid {
public:
    enum class Kind {
        None,
        Map,     ///< eastings and northings of the map
        Degrees, ///< longitudes and latitudes of WGS 84
    };

    /// Lays one of this kind on top of all overlays, in the place of the one that is there. None without a
    /// terrain, and none of degrees where nobody knows the system.
    static void show(Landscape & landscape, Kind kind);
    /// Which one a landscape has.
    static Kind of(const Landscape & landscape);

    /// The lines in an area of the map, about eight along its longer side; null for none. Each has a "name".
    /// `step` becomes what lies between two of them, in metres or degrees.
    static std::shared_ptr<const ZMT::RASTER::FeatureSource>
    lines(const ZMT::RASTER::GeoExtent & area, const ZMT::RASTER::GeoReference & reference, Kind kind,
          double & step);
};
