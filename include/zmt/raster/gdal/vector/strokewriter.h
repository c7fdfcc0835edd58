#pragma once

#include <string>
#include <vector>

#include <zmt/raster/geoextent.h>
#include <zmt/raster/georeference.h>
#include <zmt/raster/vector/strokeline.h>

namespace NBX {
class Progress;
}

namespace ZMT::RASTER {

/// Writes the lines of a drawing as vectors. A line whose width changes becomes several, each with one width.
class StrokeWriter {
public:
    enum Format {
        F_None,       ///< no name of a vector file
        F_GeoPackage, ///< gpkg: a layer "strokes", with the field "width" in map units
        F_GeoJson,    ///< geojson, json: the same in longitude and latitude of WGS 84
        F_Svg,        ///< svg: black lines in pixels of `Place`
    };
    /// The paper of the drawing.
    struct Place {
        GeoExtent extent;       ///< of the centres of its corner pixels
        unsigned width, height; ///< in pixels, at least 2
        GeoReference reference;
    };

    static Format formatOf(const std::string & path);

    /// Writes the file of that name, which appears when it is complete. Lines of a single place are points of
    /// ink in SVG, and left out of the others. False when `progress`, which may be null, was cancelled.
    /// Throws `NBX::IOException`.
    static bool write(const std::string & path, const std::vector<StrokeLine> & lines, const Place & place,
                      NBX::Progress * progress = nullptr);
};

} // namespace ZMT::RASTER
