#pragma once

#include <memory>
#include <string>

#include <zmt/raster/georeference.h>
#include <zmt/raster/tiledgeoimagepyramid.h>

namespace ZMT::RASTER {

/// An image in any raster format that GDAL reads as a pyramid. Levels are the file's pixels, its overviews
/// and, where these do not go down to one tile, halvings:
/// down to `memoryPixels` they are averaged from the next finer stored level when they are asked for; all
/// coarser ones are made together when one of them is first read, in one walk over the coarsest stored
/// level, and stay in memory (at most 4/3 * `memoryPixels` pixels).
/// Images deliver 8 bits a component: luminance, RGB, or, where the file has alpha, a mask, a palette or a
/// no-data value, or is warped, luminance with alpha or RGBA; as `ImageFile` finds them. One band of floating
/// point or signed numbers is a raster of values: 32-bit float luminance, 0 where there is no value.
/// A file that cannot be read any more delivers null; the first time is reported. Extents and sizes may be
/// asked for from any thread; one thread at a time reads pixels.
/// Stored attributes: "fileName" (absolute), "wkt".
class ImageFilePyramid : public TiledGeoImagePyramid {
    NBX_STORED_CLASS(ImageFilePyramid, TiledGeoImagePyramid)
public:
    static constexpr unsigned memoryPixels = 2048 * 2048;

    /// Opens `path`, a file name in the encoding of the file system. With `wkt`, images of another
    /// coordinate system are warped to that one while they are read; where one of the two systems is not
    /// known, they count as the same. Throws `NBX::FileNotFoundException` or `NBX::InputException`.
    explicit ImageFilePyramid(const std::string & path, const std::string & wkt = "");
    ~ImageFilePyramid() override;

    const std::string & path() const;
    /// The system of the pyramid's coordinates.
    const GeoReference & reference() const;

    double minX() const override;
    double minY() const override;
    double maxX() const override;
    double maxY() const override;
    unsigned overviews() const override;
    NBX::SO<TiledGeoImage> overview(unsigned index) const override;
    /// A file that is missing when read is searched for in the working directory. What cannot be opened is
    /// reported and leaves a pyramid without levels that keeps the name.
    void serialize(NBX::SerializationManager & m) override;

protected:
    ImageFilePyramid();

private:
    class Level;
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace ZMT::RASTER
