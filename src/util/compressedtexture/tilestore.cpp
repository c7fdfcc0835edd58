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
    return RASTER::PixelBlocks::readTiles(
        *this, x, y, width, height, tileSize_, tileSize_,
        [&](std::int64_t column, std::int64_t row, NBX::SO<NBX::Image> & pixels) {
            pixels = tile(static_cast<std::size_t>(row * tilesX_ + column));
            return true;
        });
}

} // namespace ZMT::UTIL
