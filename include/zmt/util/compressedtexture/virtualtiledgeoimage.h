#pragma once

#include <nbx/image/image.h>
#include <nbx/math/bounds.h>
#include <nbx/object/classpattern.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace ZMT::UTIL {

/// An image in all resolutions whose tiles are made when they are asked for; a source for
/// `CompressedTexture::create`.
class VirtualTiledGeoImage : public NBX::SharedObj {
    NBX_CLASS(VirtualTiledGeoImage, NBX::SharedObj)
public:
    /// Size in pixels; `extent` goes to the outer edges: its x and y are map coordinates, z is not looked at.
    /// Sizes of 0 and an extent without area are reported.
    VirtualTiledGeoImage(unsigned width, unsigned height, const NBX::Bounds & extent, unsigned tileSize);

    unsigned width() const { return width_; }
    unsigned height() const { return height_; }
    unsigned tileSize() const { return tileSize_; }
    double minX() const { return extent_.getLLF().x; }
    double minY() const { return extent_.getLLF().y; }
    double maxX() const { return extent_.getURB().x; }
    double maxY() const { return extent_.getURB().y; }

    /// Levels until one tile holds all; each is half the size (rounded up) of the one before.
    unsigned levels() const;
    unsigned pixelsX(unsigned level) const;
    unsigned pixelsY(unsigned level) const;

    /// The tile in column `x` and row `y`, counted from the south-western one, of a level; level 0 is the
    /// finest. At most `tileSize()` pixels wide and high: what is missing is blank, what is too much is left
    /// out. Null for an empty tile. Asked for once each, from the thread that writes.
    virtual NBX::SO<NBX::Image> getImage(unsigned level, unsigned x, unsigned y) const = 0;

private:
    unsigned width_, height_, tileSize_;
    NBX::Bounds extent_;
};

} // namespace ZMT::UTIL
