#pragma once

#include <memory>
#include <string>

#include <nbx/object/so.h>
#include <zmt/raster/tiledgeoimagepyramid.h>

namespace ZMT::RASTER {

/// An image pyramid seen in another coordinate system: pixels are resampled bilinearly while they are read,
/// from the level of about their own size. `ImageFilePyramid` does this by itself; this is for others.
/// Delivers RGBA of 8 bits, transparent where the pyramid has nothing. What cannot be resampled is reported
/// once, and delivers null. Extents and sizes may be asked for from any thread; one thread at a time reads
/// pixels. Stored attributes: "source", "from", "to".
class WarpedImagePyramid : public TiledGeoImagePyramid {
    NBX_STORED_CLASS(WarpedImagePyramid, TiledGeoImagePyramid)
public:
    /// `pyramid`, whose coordinates are of the system `from`, in the system `to`, both as WKT. Gives
    /// `pyramid` itself where both are the same, and where one of them is not known, which counts as the
    /// same. Throws `NBX::InputException`, naming `path`, where it does not lie in the system `to`.
    static NBX::SO<TiledGeoImagePyramid> create(const NBX::SO<TiledGeoImagePyramid> & pyramid,
                                                const std::string & from, const std::string & to,
                                                const std::string & path);
    ~WarpedImagePyramid() override;

    double minX() const override;
    double minY() const override;
    double maxX() const override;
    double maxY() const override;
    unsigned overviews() const override;
    NBX::SO<TiledGeoImage> overview(unsigned index) const override;
    /// What cannot be warped when read is reported, and leaves a pyramid without levels.
    void serialize(NBX::SerializationManager & m) override;

protected:
    WarpedImagePyramid();

private:
    class Level;
    struct Impl;
    std::shared_ptr<Impl> impl_; ///< shared with the levels; never null
};

} // namespace ZMT::RASTER
