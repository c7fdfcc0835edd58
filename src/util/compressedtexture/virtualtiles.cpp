#include "virtualtiles.h"

#include <tuple>

#include <nbx/object/progress.h>

#include "tilepixels.h"

namespace ZMT::UTIL {

VirtualTiles::VirtualTiles(const VirtualTiledGeoImage & source) : source_(source) {
    if (source.width() == 0 || source.height() == 0) return;
    for (unsigned level = 0; level < source.levels(); ++level)
        levels_.push_back({source.pixelsX(level), source.pixelsY(level), source.tileSize()});
}

bool VirtualTiles::findFirst() {
    for (level_ = 0; level_ < levels_.size(); ++level_)
        for (row_ = 0; row_ < levels_[level_].tilesY(); ++row_)
            for (column_ = 0; column_ < levels_[level_].tilesX(); ++column_) {
                first_ = source_.getImage(level_, column_, row_);
                if (first_) return true;
            }
    return false;
}
NBX::SO<NBX::Image> VirtualTiles::tile(unsigned level, unsigned column, unsigned row) const {
    const auto place = std::tuple(level, row, column), first = std::tuple(level_, row_, column_);
    if (place < first) return nullptr;
    return place == first ? first_ : source_.getImage(level, column, row);
}

bool VirtualTiles::write(const std::string & path, CompressedTexture::PixelFormat format) {
    const RASTER::GeoExtent extent = {source_.minX(), source_.minY(), source_.maxX(), source_.maxY()};
    TexturePyramidWriter writer(path, extent, static_cast<unsigned>(levels_.size()), format,
                                CompressedTexture::C_Deflate, "");
    NBX::Progress progress("compressing texture data", 1.0);
    double all = 0.0, done = 0.0;
    for (const LevelSize & size : levels_)
        all += static_cast<double>(size.tiles());
    for (unsigned level = 0; level < levels_.size(); ++level) {
        const auto make = [&](unsigned column, unsigned row, NBX::SO<NBX::Image> & tile) {
            if (!progress.update(TexturePyramidWriter::levelsShare * done++ / all)) return false;
            const NBX::SO<NBX::Image> image = this->tile(level, column, row);
            if (image) tile = TilePixels::wholeTile(format, image, source_.tileSize());
            return true;
        };
        if (!writer.writeLevel(levels_[level], make)) return false;
    }
    if (!progress.update(TexturePyramidWriter::levelsShare)) return false;
    writer.commit();
    progress.finish();
    return true;
}

} // namespace ZMT::UTIL
