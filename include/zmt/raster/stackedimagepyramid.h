#pragma once

#include <vector>

#include <zmt/raster/tiledgeoimagepyramid.h>

namespace ZMT::RASTER {

/// The finest levels of one pyramid with those of another one, of the same extent, below them. Threads as
/// those pyramids. It is not stored.
class StackedImagePyramid : public TiledGeoImagePyramid {
    NBX_CLASS(StackedImagePyramid, TiledGeoImagePyramid)
public:
    /// The first `count` levels of `fine`, or all if there are fewer, and then all of `coarse` that are
    /// smaller than these. Null pyramids are reported, and have no levels.
    StackedImagePyramid(TiledGeoImagePyramid * fine, unsigned count, TiledGeoImagePyramid * coarse);
    ~StackedImagePyramid() override;

    double minX() const override;
    double minY() const override;
    double maxX() const override;
    double maxY() const override;
    unsigned overviews() const override { return static_cast<unsigned>(levels_.size()); }
    NBX::SO<TiledGeoImage> overview(unsigned index) const override;

private:
    NBX::SO<TiledGeoImagePyramid> fine_, coarse_;
    std::vector<NBX::SO<TiledGeoImage>> levels_;
};

} // namespace ZMT::RASTER
