// The header is checked before the tables are read, and these against the size of the file before memory is
// asked for. A request gathers the tiles that it touches, which the cache keeps decoded; one unreadable tile
// fails it, so that a coarser level is shown instead of a hole. Older versions of the form place pixels and
// sizes otherwise.

#include <zmt/util/compressedtexture/texturepyramidtiledgeoimage.h>

#include <algorithm>
#include <optional>

#include <nbx/data/zlibfilter.h>
#include <nbx/image/image.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/serializationmanager.h>
#include <nbx/object/stringutils.h>
#include <zmt/raster/pixelblocks.h>

#include "texturepyramidformat.h"
#include "tilepixels.h"

namespace ZMT::UTIL {

NBX_CLASS_IMPL(TexturePyramidTiledGeoImage, RASTER::TiledGeoImage)

namespace {

using namespace TexturePyramidFormat;

/// Deflate makes no more than this of one byte.
constexpr std::uint64_t maxInflation = 1040;

bool readAt(NBX::File & file, std::uint64_t position, void * data, std::uint64_t bytes) {
    if (position > INT64_MAX) return false;
    file.seek(static_cast<std::int64_t>(position));
    return file.read(data, bytes) == bytes;
}

/// Pixels of version 1 and 2 lie between the ends of the extent, later ones fill it.
double pixelSize(double extent, std::uint32_t pixels, std::uint32_t version) {
    return extent / (version >= 3 || pixels == 1 ? pixels : pixels - 1);
}

} // namespace

NBX::SO<TexturePyramidTiledGeoImage> TexturePyramidTiledGeoImage::read(NBX::SO<NBX::File> file,
                                                                       std::uint64_t position,
                                                                       const RASTER::GeoExtent & extent,
                                                                       NBX::SO<RASTER::TileCache> cache,
                                                                       std::uint64_t firstTile) {
    LevelHeader h;
    if (!readAt(*file, position, &h, sizeof h)) return nullptr;
    scramble(h, CompressedTexture::getEncryptionKey());
    if (!h.faults().empty()) return nullptr;
    const Header header = {h.version, h.pixelsX, h.pixelsY,     h.tileWidth,   h.tileHeight,
                           h.tilesX,  h.tilesY,  h.pixelFormat, h.rawTileSize, h.compression};
    NBX::SO<TexturePyramidTiledGeoImage> level(
        new TexturePyramidTiledGeoImage(file, header, extent, cache, firstTile));
    return level->readTables(position + headerSize) ? level : nullptr;
}

TexturePyramidTiledGeoImage::TexturePyramidTiledGeoImage(NBX::SO<NBX::File> file, const Header & header,
                                                         const RASTER::GeoExtent & extent,
                                                         NBX::SO<RASTER::TileCache> cache,
                                                         std::uint64_t firstTile)
    : file_(file), header_(header), minX_(extent.minX), minY_(extent.minY),
      pixelSizeX_(pixelSize(extent.maxX - extent.minX, header.pixelsX, header.version)),
      pixelSizeY_(pixelSize(extent.maxY - extent.minY, header.pixelsY, header.version)), cache_(cache),
      firstTile_(firstTile) {
    if (header.version >= 3) return;
    if (header.pixelsX > 1) minX_ -= 0.5 * pixelSizeX_;
    if (header.pixelsY > 1) minY_ -= 0.5 * pixelSizeY_;
}

bool TexturePyramidTiledGeoImage::readTables(std::uint64_t position) {
    const std::uint64_t tiles = static_cast<std::uint64_t>(header_.tilesX) * header_.tilesY;
    const std::uint64_t size = file_->size();
    if (position > size || tiles > (size - position) / (header_.version >= 2 ? 12 : 8)) return false;
    positions_.resize(tiles);
    sizes_.assign(tiles, header_.rawTileSize);
    return readAt(*file_, position, positions_.data(), 8 * tiles) &&
           (header_.version < 2 || readAt(*file_, position + 8 * tiles, sizes_.data(), 4 * tiles));
}

std::uint64_t TexturePyramidTiledGeoImage::tableBytes() const {
    return headerSize + positions_.size() * (header_.version >= 2 ? 12 : 8);
}

std::uint64_t TexturePyramidTiledGeoImage::storedTiles() const {
    return positions_.size() -
           static_cast<std::uint64_t>(std::count(positions_.begin(), positions_.end(), 0));
}

std::uint64_t TexturePyramidTiledGeoImage::storedBytes() const {
    std::uint64_t bytes = 0;
    for (std::size_t i = 0; i < positions_.size(); ++i)
        if (positions_[i] != 0) bytes += sizes_[i];
    return bytes;
}

unsigned TexturePyramidTiledGeoImage::bands() const {
    return static_cast<unsigned>(NBX::Image::numberOfLayers(CompressedTexture::layerSequence(pixelFormat())));
}

NBX::SO<NBX::Image> TexturePyramidTiledGeoImage::createEmptyImage(unsigned width, unsigned height) const {
    return TilePixels::emptyImage(pixelFormat(), width, height);
}

/// The bytes of a tile as the file has them.
bool TexturePyramidTiledGeoImage::readTile(std::uint64_t tile, std::vector<std::uint8_t> & stored) const {
    std::uint64_t position = positions_[tile];
    std::uint32_t size = sizes_[tile];
    if (header_.version == 1 && header_.compression == CompressedTexture::C_Deflate) {
        if (!readAt(*file_, position, &size, sizeof size)) return false;
        position += sizeof size;
    }
    const std::uint64_t end = file_->size();
    if (position > end || size > end - position || size > 2ULL * maxTileBytes ||
        size * maxInflation < header_.rawTileSize)
        return false;
    stored.resize(size);
    return readAt(*file_, position, stored.data(), size);
}

NBX::SO<NBX::Image> TexturePyramidTiledGeoImage::decodeTile(std::uint64_t tile) const {
    std::vector<std::uint8_t> stored;
    bool isRead = false;
    try {
        isRead = readTile(tile, stored);
    } catch (const NBX::IOException &) {
        isRead = false; // reported like a tile that is cut off
    }
    if (!isRead) {
        if (!failed_)
            NBX_FAILURE(L"a tile cannot be read; get the file anew: "
                        << NBX::StringUtils::Utf8String2WString(file_->fullName()));
        failed_ = true;
        return nullptr;
    }
    if (header_.compression > CompressedTexture::C_Deflate) {
        NBX_REPORT(0, L"false", L"unsupported compression format");
        failed_ = true;
        return nullptr;
    }
    if (stored.size() == header_.rawTileSize)
        return TilePixels::decode(pixelFormat(), stored.data(), header_.tileWidth, header_.tileHeight);
    std::vector<std::uint8_t> raw(header_.rawTileSize);
    const bool success = NBX::ZLibFilter::uncompress(stored.data(), static_cast<unsigned>(stored.size()),
                                                     raw.data(), header_.rawTileSize);
    NBX_CHECK(success, L"decompression of tile failed");
    if (!success) failed_ = true;
    return success ? TilePixels::decode(pixelFormat(), raw.data(), header_.tileWidth, header_.tileHeight)
                   : nullptr;
}

/// Of a tile that is not empty; null when it cannot be read. The image may not be changed.
NBX::SO<NBX::Image> TexturePyramidTiledGeoImage::tileImage(std::uint64_t tile) const {
    if (const std::optional<NBX::SO<NBX::Image>> known = cache_->find(firstTile_ + tile)) return *known;
    const NBX::SO<NBX::Image> image = decodeTile(tile);
    if (image) cache_->keep(firstTile_ + tile, image);
    return image;
}

NBX::SO<NBX::Image> TexturePyramidTiledGeoImage::getImage(int x, int y, unsigned width,
                                                          unsigned height) const {
    const auto readTile = [&](std::int64_t column, std::int64_t row, NBX::SO<NBX::Image> & pixels) {
        const std::uint64_t tile =
            static_cast<std::uint64_t>(row) * header_.tilesX + static_cast<std::uint64_t>(column);
        if (positions_[tile] == 0) return true;
        pixels = tileImage(tile);
        return bool(pixels); // a hole would hide what a coarser level has there
    };
    // Tiles at the border are larger than what the level has there.
    return RASTER::PixelBlocks::readInside(*this, x, y, width, height, [&](const RASTER::PixelRect & rect) {
        return RASTER::PixelBlocks::readTiles(*this, int(rect.x), int(rect.y), rect.width, rect.height,
                                              header_.tileWidth, header_.tileHeight, readTile);
    });
}

void TexturePyramidTiledGeoImage::serialize(NBX::SerializationManager &) {
    NBX_REPORT(
        0, L"false",
        L"TexturePyramidTiledGeoImage cannot be serialized; serialize the parent TexturePyramid instead!");
}

} // namespace ZMT::UTIL
