#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <zmt/raster/geoextent.h>
#include <zmt/raster/georeference.h>
#include <zmt/raster/vector/vectorline.h>

namespace ZMT::RASTER {

/// The areas of a file within an extent.
struct VectorAreas {
    /// Closed, without heights, in geo coordinates; they touch one another in single points at most. What
    /// lies inside an odd number of them belongs to an area.
    std::vector<VectorLine> outlines;
    std::size_t inside = 0;  ///< features of which a part lies within the extent
    std::size_t outside = 0; ///< features with areas, of which no part does
};

/// A file of lines and areas in any vector format that GDAL reads, with all its layers. One thread at a time
/// uses a file.
class VectorFile {
public:
    /// At most this many points are read unless a caller wishes otherwise (0.5 GB).
    static constexpr std::uint64_t defaultMaxPoints = 20'000'000;

    /// Opens `path`, a file name in the encoding of the file system. Throws `NBX::FileNotFoundException` or
    /// `NBX::InputException`, which say what is wrong and what to do.
    explicit VectorFile(const std::string & path);
    ~VectorFile();
    VectorFile(const VectorFile &) = delete;
    VectorFile & operator=(const VectorFile &) = delete;

    const std::string & path() const;
    /// Short name of the file's format, such as "GeoJSON".
    std::string format() const;
    unsigned layers() const;
    /// That of the first layer.
    const GeoReference & reference() const;

    /// The lines, and the rings of the areas, in the coordinate system `wkt`, cut at `extent`, which is in
    /// that system. Parts of collections are lines of their own; points are left out, and curves become
    /// short lines. A line that leaves the extent, or has points that `wkt` does not know, is given in parts.
    /// With an empty `wkt`, or where a layer does not tell its system, coordinates are taken as they are.
    /// Throws where there are more than `maxPoints` points, and where the file is damaged.
    std::vector<VectorLine> read(const std::string & wkt, const GeoExtent & extent,
                                 std::uint64_t maxPoints = defaultMaxPoints) const;

    /// The areas, and the insides of closed lines, in the coordinate system `wkt`, cut at `extent`, along
    /// which they are closed again. Areas that overlap are joined. Outlines that cross themselves have an
    /// inside where they are crossed an odd number of times. Areas of degrees may lie around
    /// the antimeridian or a pole. With an empty `wkt`, and throws, as above.
    VectorAreas readAreas(const std::string & wkt, const GeoExtent & extent,
                          std::uint64_t maxPoints = defaultMaxPoints) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace ZMT::RASTER
