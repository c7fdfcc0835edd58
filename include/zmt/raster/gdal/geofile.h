#pragma once

#include <memory>
#include <string>

#include <nbx/object/so.h>
#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/gdal/vectorfile.h>
#include <zmt/raster/geofileformat.h>

namespace ZMT::RASTER {

struct ImageColors;
class TiledGeoImagePyramid;

/// The one door for files: tells what a file is by its content, whatever its name, and opens it. It knows all
/// that GDAL reads, and the formats that libraries above installed. Paths are file names in the encoding of
/// the file system. Several threads may ask at once.
class GeoFile {
public:
    /// A raster of one band is `Heights`, unless it has a palette; any other raster is an `Image`. What
    /// cannot be read, or does not exist, is `Unknown`.
    static GeoFileKind kindOf(const std::string & path);
    /// The installed format of a file; null for one that GDAL reads, and for none.
    static const GeoFileFormat * formatOf(const std::string & path);

    /// These throw `NBX::FileNotFoundException` or `NBX::InputException`, which say what is wrong and what to
    /// do. A raster of whatever kind opens as heights and as an image: who asks for them knows.
    static std::unique_ptr<RasterFile> openHeights(const std::string & path);
    /// In the system `wkt`; in its own where one of the two is not known.
    static NBX::SO<TiledGeoImagePyramid> openImage(const std::string & path, const std::string & wkt = "");
    /// The same with all that a file holds as colours. Files of installed formats have their own: throws
    /// `NBX::InputException` where others are asked for.
    static NBX::SO<TiledGeoImagePyramid> openImage(const std::string & path, const std::string & wkt,
                                                   const ImageColors & colors);
    static std::unique_ptr<VectorFile> openVectors(const std::string & path);

    /// Installed formats come before those of GDAL, earlier ones before later ones. They stay until the
    /// process ends. Null is reported.
    static void install(std::unique_ptr<const GeoFileFormat> format);
};

} // namespace ZMT::RASTER
