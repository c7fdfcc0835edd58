#include <zmt/raster/tiledgeoimagepyramid.h>

#include <zmt/raster/geoimage.h>
#include <zmt/raster/tiledgeoimage.h>

namespace ZMT::RASTER {

NBX_CLASS_IMPL(TiledGeoImagePyramid, NBX::SharedObj)

namespace {

/// Whether the pixels of one axis, with one more on each side where the image goes on, are at most `wanted`.
bool fitsWithMargin(std::int64_t first, std::uint64_t count, std::uint64_t pixels, unsigned wanted) {
    return count + (first > 0) + (static_cast<std::uint64_t>(first) + count < pixels) <= wanted;
}

} // namespace

int TiledGeoImagePyramid::getOverviewIndex(double minX, double minY, double maxX, double maxY, unsigned width,
                                           unsigned height) const {
    int result = -1;
    for (unsigned i = 0; i < overviews(); ++i) {
        const NBX::SO<TiledGeoImage> level = overview(i);
        if (!level) break;
        const PixelRect rect = level->pixelRect(minX, minY, maxX, maxY);
        if (rect.isEmpty()) return -1;
        result = static_cast<int>(i);
        if (rect.width <= width && rect.height <= height) break;
    }
    return result;
}

NBX::SO<GeoImage> TiledGeoImagePyramid::getGeoImage(double minX, double minY, double maxX, double maxY,
                                                    unsigned width, unsigned height) const {
    const auto wanted = [](unsigned size) { return size > 0 ? size : UINT32_MAX; };
    const int index = getOverviewIndex(minX, minY, maxX, maxY, wanted(width), wanted(height));
    NBX::SO<TiledGeoImage> level = index < 0 ? nullptr : overview(static_cast<unsigned>(index));
    if (level && static_cast<unsigned>(index) + 1 < overviews()) {
        const PixelRect rect = level->pixelRect(minX, minY, maxX, maxY);
        if (!fitsWithMargin(rect.x, rect.width, level->pixelsX(), wanted(width)) ||
            !fitsWithMargin(rect.y, rect.height, level->pixelsY(), wanted(height)))
            level = overview(static_cast<unsigned>(index) + 1);
    }
    return level ? level->getGeoImage(minX, minY, maxX, maxY, width, height) : nullptr;
}

} // namespace ZMT::RASTER
