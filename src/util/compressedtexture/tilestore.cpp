#include "tilestore.h"

#include <algorithm>

#include <nbx/image/image.h>
#include <nbx/object/exception.h>
#include <zmt/raster/pixelblocks.h>

#include "tilepixels.h"

namespace ZMT::UTIL {

NBX_CLASS_IMPL(TileStore, RASTER::TiledGeoImage)

TileStore::TileStore(NBX::SO<NBX::File> file, CompressedTexture::PixelFormat format, unsigned pixelsX,
                     unsigned pixelsY, unsigned tileSize, std::uint64_t maxMemory)
    : file_(file), format_(format), pixelsX_(pixelsX), pixelsY_(pixelsY), tileSize_(tileSize),
      tilesX_((pixelsX + tileSize - 1) / tileSize), maxMemory_(maxMemory),
      slots_(static_cast<std::size_t>(tilesX_) * ((pixelsY + tileSize - 1) / tileSize)) {
    file_->resize(0);
}

NBX::SO<NBX::File> TileStore::createFile(const std::string & path) {
    if (NBX::SO<NBX::File> file = NBX::File::createUnnamed(path)) return file;
    NBX::SO<NBX::File> file(new NBX::File(path, NBX::WM_Create));
    NBX::File::remove(path);
    return file;
}

unsigned TileStore::bands() const {
    return static_cast<unsigned>(NBX::Image::numberOfLayers(CompressedTexture::layerSequence(format_)));
}

NBX::SO<NBX::Image> TileStore::createEmptyImage(unsigned width, unsigned height) const {
    return TilePixels::emptyImage(format_, width, height);
}

std::size_t TileStore::tileBytes() const {
    const auto size = static_cast<int>(tileSize_);
    return static_cast<std::size_t>(size) *
           NBX::Image::bytesPerLine(size, CompressedTexture::layerSequence(format_),
                                    CompressedTexture::dataType(format_), 1);
}

void TileStore::put(unsigned column, unsigned row, const NBX::SO<NBX::Image> & tile) {
    std::uint32_t & slot = slots_[static_cast<std::size_t>(row) * tilesX_ + column];
    if ((inMemory_.size() + 1) * tileBytes() <= maxMemory_) {
        inMemory_.push_back(tile);
        slot = static_cast<std::uint32_t>(inMemory_.size());
        return;
    }
    file_->seek(static_cast<std::int64_t>(inFile_ * tileBytes()));
    file_->write(static_cast<const NBX::Image &>(*tile).lineComponents(0), tileBytes());
    slot = static_cast<std::uint32_t>(inMemory_.size()) + ++inFile_;
}

NBX::SO<NBX::Image> TileStore::tile(std::size_t index) const {
    const std::uint32_t slot = slots_[index];
    if (slot == 0) return nullptr;
    if (slot <= inMemory_.size()) return inMemory_[slot - 1];
    const NBX::SO<NBX::Image> image = createEmptyImage(tileSize_, tileSize_);
    if (!image) throw NBX::IOException(L"out of memory for a tile");
    file_->seek(static_cast<std::int64_t>((slot - 1 - inMemory_.size()) * tileBytes()));
    if (file_->read(image->lineComponents(0), tileBytes()) != tileBytes())
        throw NBX::IOException(L"a file aside was cut off", file_->fullName());
    return image;
}

NBX::SO<NBX::Image> TileStore::getImage(int x, int y, unsigned width, unsigned height) const {
    const std::int64_t x0 = std::max(x, 0), y0 = std::max(y, 0);
    const std::int64_t x1 = std::min<std::int64_t>(x + static_cast<std::int64_t>(width), pixelsX_);
    const std::int64_t y1 = std::min<std::int64_t>(y + static_cast<std::int64_t>(height), pixelsY_);
    NBX::SO<NBX::Image> result;
    const std::int64_t size = tileSize_;
    for (std::int64_t row = y0 / size; row * size < y1; ++row) {
        for (std::int64_t column = x0 / size; column * size < x1; ++column) {
            const NBX::SO<NBX::Image> pixels = tile(static_cast<std::size_t>(row * tilesX_ + column));
            if (!pixels) continue;
            if (!result) result = createEmptyImage(width, height);
            if (!result) return nullptr;
            RASTER::PixelBlocks::paste(*pixels, column * size - x, row * size - y, *result);
        }
    }
    return result;
}

} // namespace ZMT::UTIL
