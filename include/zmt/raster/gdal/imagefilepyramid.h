#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <zmt/raster/georeference.h>
#include <zmt/raster/imagecolors.h>
#include <zmt/raster/tiledgeoimagepyramid.h>

namespace ZMT::RASTER {

/// An image in any raster format that GDAL reads as a pyramid. Its levels are the file's pixels, the file's
/// overviews and, where these do not go down to one pixel, halvings of the coarsest stored level. Halvings of
/// more than `memoryPixels` pixels are averaged from it each time. All others are made together when one of
/// them is first read, in one walk over the coarsest stored level, and stay in memory: at most
/// 4/3 * `memoryPixels` pixels. So a large file without overviews takes its time once; `gdaladdo` adds them.
/// Images deliver 8 bits a component: luminance or RGB, and with alpha where an alpha band, a mask, a
/// palette, a no-data value or warping leaves pixels out. `ImageColors` says how numbers become colours.
/// Unless colours are asked for, one band of signed or floating point numbers is a raster of values: 32-bit
/// float luminance, 0 where there is no value. A file that cannot be read any more delivers null; the first
/// time is reported. Extents and sizes may be asked for from any thread; one thread at a time reads pixels.
/// Stored attributes: "fileName" (absolute), "wkt", "colors" (as `ImageColors::text`, "values" where they are
/// not asked for).
class ImageFilePyramid : public TiledGeoImagePyramid {
    NBX_STORED_CLASS(ImageFilePyramid, TiledGeoImagePyramid)
public:
    static constexpr std::uint64_t memoryPixels = std::uint64_t(2048) * 2048;
    /// A file whose coarsest stored level has more pixels is not opened: reading it takes too long.
    static constexpr std::uint64_t maxPixels = 40'000'000'000;

    /// Opens `path`, a file name in the encoding of the file system. With `wkt`, images of another
    /// coordinate system are warped to that one while they are read; where one of the two systems is not
    /// known, they count as the same. Throws `NBX::FileNotFoundException` or `NBX::InputException`.
    explicit ImageFilePyramid(const std::string & path, const std::string & wkt = "");
    /// The same in these colours, whatever the bands hold. Throws also where the file has no such bands.
    ImageFilePyramid(const std::string & path, const std::string & wkt, const ImageColors & colors);
    ~ImageFilePyramid() override;

    const std::string & path() const;
    /// `ImageColors::text` of the colours that were asked for, or "values".
    std::string colors() const;
    /// The system of the pyramid's coordinates.
    const GeoReference & reference() const;

    double minX() const override;
    double minY() const override;
    double maxX() const override;
    double maxY() const override;
    unsigned overviews() const override;
    /// How many of them the file stores; the others are made of its coarsest one.
    unsigned storedOverviews() const;
    NBX::SO<TiledGeoImage> overview(unsigned index) const override;
    /// A file that is missing when read is searched for under its name in the working directory. What
    /// cannot be opened is reported, and leaves a pyramid without levels that keeps the name.
    void serialize(NBX::SerializationManager & m) override;

protected:
    ImageFilePyramid();

private:
    class Level;
    struct Impl;
    std::shared_ptr<Impl> impl_; ///< shared with the levels; never null
};

} // namespace ZMT::RASTER
