#include <zmt/raster/tiledgeoimagepyramid.h>

#include <zmt/raster/geoimage.h>
#include <zmt/raster/tiledgeoimage.h>

namespace ZMT::RASTER {

NBX_CLASS_IMPL(TiledGeoImagePyramid, NBX::SharedObj)

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
    const NBX::SO<TiledGeoImage> level = index < 0 ? nullptr : overview(static_cast<unsigned>(index));
    return level ? level->getGeoImage(minX, minY, maxX, maxY, width, height) : nullptr;
}

} // namespace ZMT::RASTER
