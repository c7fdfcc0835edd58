#pragma once

#include <nbx/object/classpattern.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace ZMT::RASTER {

class GeoImage;
class TiledGeoImage;

/// An image in map coordinates in several resolutions, the finest first, all of the same extent. Extents and
/// sizes may be asked for from any thread; one thread at a time reads pixels.
class TiledGeoImagePyramid : public NBX::SharedObj {
    NBX_CLASS(TiledGeoImagePyramid, NBX::SharedObj)
public:
    /// The outer edges of the border pixels.
    virtual double minX() const = 0;
    virtual double minY() const = 0;
    virtual double maxX() const = 0;
    virtual double maxY() const = 0;
    virtual unsigned overviews() const = 0;
    /// Level `index`; 0 is the finest. Null, and reported, where there is none.
    virtual NBX::SO<TiledGeoImage> overview(unsigned index) const = 0;

    /// The finest level in which the box, clipped to the image, touches at most `width` by `height` pixels;
    /// the last level where there are more in all of them. Negative where the box misses the image or is no
    /// box, and where there are no levels.
    virtual int getOverviewIndex(double minX, double minY, double maxX, double maxY, unsigned width,
                                 unsigned height) const;
    /// `TiledGeoImage::getGeoImage` of that level, or of the next one where that leaves no room for the one
    /// pixel more on each side that joins neighbouring pieces: at most `width` by `height` pixels; null where
    /// nothing lies in the box. The size 0 stands for the finest level's pixels as they are.
    virtual NBX::SO<GeoImage> getGeoImage(double minX, double minY, double maxX, double maxY, unsigned width,
                                          unsigned height) const;
};

} // namespace ZMT::RASTER
