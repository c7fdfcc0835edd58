#include "texturepyramidwriter.h"

#include <cstring>

#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>

#include "texturepyramidformat.h"
#include "tileencoder.h"

namespace ZMT::UTIL {

using namespace TexturePyramidFormat;

TexturePyramidWriter::TexturePyramidWriter(const std::string & path, const RASTER::GeoExtent & extent,
                                           unsigned levels, CompressedTexture::PixelFormat format,
                                           unsigned compression, const std::string & wkt)
    : file_(path), projection_(path, wkt), extent_(extent), format_(format), compression_(compression),
      key_(CompressedTexture::getEncryptionKey()), levels_(levels) {
    file_.file().resize(headerSize + 8ULL * levels);
    file_.file().seek(0, NBX::SM_End);
}

void TexturePyramidWriter::padTo8() {
    const char zeros[8] = {};
    const std::uint64_t over = file_.file().position() % 8;
    if (over) file_.write(zeros, 8 - over);
}

void TexturePyramidWriter::writeTile(const std::vector<std::uint8_t> & bytes) {
    const std::uint64_t before = file_.file().position();
    try {
        file_.write(bytes.data(), bytes.size());
    } catch (const NBX::IOException &) {
        const std::uint64_t bytesWritten = 0;
        NBX_CHECK(bytesWritten > 0, L"writing of tile failed");
        throw;
    }
    const std::uint64_t bytesWritten = file_.file().position() - before;
    NBX_CHECK(bytesWritten > 0, L"writing of tile failed");
}

bool TexturePyramidWriter::writeLevel(const LevelSize & size, const TileSource & source) {
    NBX::File & file = file_.file();
    padTo8();
    const std::uint64_t start = file.position();
    std::vector<std::uint64_t> positions(size.tiles());
    std::vector<std::uint32_t> sizes(size.tiles());
    file.resize(start + headerSize + 12 * size.tiles());
    file.seek(0, NBX::SM_End);

    TileEncoder encoder(format_, compression_ == CompressedTexture::C_Deflate, [&](const EncodedTile & tile) {
        if (tile.bytes.empty()) return;
        positions[tile.index] = file.position();
        sizes[tile.index] = static_cast<std::uint32_t>(tile.bytes.size());
        writeTile(tile.bytes);
    });
    for (unsigned row = 0; row < size.tilesY(); ++row)
        for (unsigned column = 0; column < size.tilesX(); ++column) {
            NBX::SO<NBX::Image> tile;
            if (!source(column, row, tile)) return false;
            if (tile) encoder.add(static_cast<std::uint64_t>(row) * size.tilesX() + column, tile);
        }
    encoder.finish();

    LevelHeader header = {};
    std::memcpy(header.magic, levelMagic, sizeof header.magic);
    header.version = levelVersion;
    header.pixelsX = size.pixelsX;
    header.pixelsY = size.pixelsY;
    header.tileWidth = header.tileHeight = size.tileSize;
    header.tilesX = size.tilesX();
    header.tilesY = size.tilesY();
    header.pixelFormat = static_cast<std::uint32_t>(format_);
    header.rawTileSize =
        static_cast<std::uint32_t>(CompressedTexture::tileBytes(format_, size.tileSize, size.tileSize));
    header.compression = compression_;
    scramble(header, key_);
    file.seek(static_cast<std::int64_t>(start));
    file.write(&header, sizeof header);
    file.write(positions.data(), 8 * positions.size());
    file.write(sizes.data(), 4 * sizes.size());
    file.seek(0, NBX::SM_End);
    positions_.push_back(start);
    return true;
}

void TexturePyramidWriter::writeHeader() {
    PyramidHeader header = {};
    std::memcpy(header.magic, pyramidMagic, sizeof header.magic);
    header.version = pyramidVersion;
    header.levels = levels_;
    header.minX = extent_.minX;
    header.minY = extent_.minY;
    header.maxX = extent_.maxX;
    header.maxY = extent_.maxY;
    scramble(header, key_);
    file_.file().seek(0);
    file_.write(&header, sizeof header);
    file_.write(positions_.data(), 8 * positions_.size());
}

void TexturePyramidWriter::commit() {
    NBX_CHECK(positions_.size() == levels_, L"not all levels were written");
    if (positions_.size() != levels_) return;
    writeHeader();
    projection_.commitWith([this] { file_.commit(); });
}

} // namespace ZMT::UTIL
