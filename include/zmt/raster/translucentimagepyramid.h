#pragma once

#include <zmt/raster/tiledgeoimagepyramid.h>

namespace ZMT::RASTER {

/// Another pyramid of which all is less opaque: delivers RGBA of 8 bits, with the alpha times a factor.
/// Threads as that pyramid. Stored attributes: "source", "opacity".
class TranslucentImagePyramid : public TiledGeoImagePyramid {
    NBX_STORED_CLASS(TranslucentImagePyramid, TiledGeoImagePyramid)
public:
    /// `opacity` is from 0 to 1; another one, and a null pyramid, is reported, and taken as the nearest of
    /// these, and as one without levels.
    TranslucentImagePyramid(TiledGeoImagePyramid * source, double opacity);
    ~TranslucentImagePyramid() override;

    double opacity() const { return opacity_; }

    double minX() const override;
    double minY() const override;
    double maxX() const override;
    double maxY() const override;
    unsigned overviews() const override;
    NBX::SO<TiledGeoImage> overview(unsigned index) const override;
    void serialize(NBX::SerializationManager & m) override;

protected:
    TranslucentImagePyramid();

private:
    class Level;

    NBX::SO<TiledGeoImagePyramid> source_;
    double opacity_ = 1.0;
};

} // namespace ZMT::RASTER
