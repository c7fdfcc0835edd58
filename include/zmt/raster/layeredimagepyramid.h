#pragma once

#include <memory>
#include <vector>

#include <zmt/raster/tiledgeoimagepyramid.h>

namespace ZMT::RASTER {

/// Several images as one, such as the sheets of a map: the later ones lie above, and show what is below them
/// where they are transparent and where they end. They share a coordinate system.
///
/// Its finest level has the pixels of the finest image and covers all of them; the coarser ones are halvings
/// down to a single pixel, each made of those levels of the images that are about as fine. An image whose
/// pixels are those of a level is delivered as it is; finer ones are averaged, coarser ones interpolated.
/// A pixel shows the images that cover its centre. Delivers RGBA of 8 bits, transparent where no image lies;
/// luminance or RGB where the images are such, without alpha, and leave nothing free. Null where nothing lies
/// in a rectangle, and where an image could not be read, which then says that it failed. Threads as those
/// images. It is not stored.
class LayeredImagePyramid : public TiledGeoImagePyramid {
    NBX_CLASS(LayeredImagePyramid, TiledGeoImagePyramid)
public:
    using Layers = std::vector<NBX::SO<TiledGeoImagePyramid>>;

    /// Images without levels are left out; null ones are reported, and left out as well. Without any it has
    /// no levels, and neither with a finest level of 2^31 pixels along a side or more.
    explicit LayeredImagePyramid(const Layers & layers);
    ~LayeredImagePyramid() override;

    double minX() const override;
    double minY() const override;
    double maxX() const override;
    double maxY() const override;
    unsigned overviews() const override;
    NBX::SO<TiledGeoImage> overview(unsigned index) const override;

private:
    class Level;
    struct Impl;
    std::shared_ptr<const Impl> impl_; ///< shared with the levels; never null
};

} // namespace ZMT::RASTER
