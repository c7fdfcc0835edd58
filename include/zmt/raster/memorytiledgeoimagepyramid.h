#pragma once

#include <vector>

#include <nbx/image/image.h>
#include <nbx/math/bounds.h>
#include <nbx/math/color.h>
#include <zmt/raster/tiledgeoimagepyramid.h>

namespace ZMT::RASTER {

/// An image in memory, of which each coarser level is half the size (rounded up) of the one before, down to
/// one pixel. Several threads may read.
/// Stored attributes: "image", "box", "masked", "maskRed", "maskGreen", "maskBlue", "maskAlpha". What does
/// not fit together when read leaves a pyramid without levels.
class MemoryTiledGeoImagePyramid : public TiledGeoImagePyramid {
    NBX_STORED_CLASS(MemoryTiledGeoImagePyramid, TiledGeoImagePyramid)
public:
    /// `box` goes to the outer edges of the image: its x and y are map coordinates, z is not looked at.
    /// With `masked`, pixels of the colour `maskColor`, whatever their alpha, become transparent; the image
    /// is then copied to RGBA. Otherwise it is shared, and may not change while the pyramid lives. No
    /// image, or a box without area, is reported, and there are no levels.
    MemoryTiledGeoImagePyramid(NBX::Image * image, const NBX::Bounds & box, bool masked = false,
                               const NBX::Color & maskColor = NBX::Color::black);
    ~MemoryTiledGeoImagePyramid() override;

    double minX() const override { return box_.isDefined() ? box_.getLLF().x : 0.0; }
    double minY() const override { return box_.isDefined() ? box_.getLLF().y : 0.0; }
    double maxX() const override { return box_.isDefined() ? box_.getURB().x : 0.0; }
    double maxY() const override { return box_.isDefined() ? box_.getURB().y : 0.0; }
    unsigned overviews() const override { return static_cast<unsigned>(levels_.size()); }
    NBX::SO<TiledGeoImage> overview(unsigned index) const override;
    void serialize(NBX::SerializationManager & m) override;

protected:
    MemoryTiledGeoImagePyramid();

private:
    void buildLevels();

    NBX::SO<NBX::Image> image_;
    NBX::Bounds box_;
    bool masked_ = false;
    NBX::Color maskColor_;
    std::vector<NBX::SO<TiledGeoImage>> levels_;
};

} // namespace ZMT::RASTER
