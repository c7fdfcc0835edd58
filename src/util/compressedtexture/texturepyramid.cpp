#include <zmt/util/compressedtexture/texturepyramid.h>

#include <algorithm>

#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/serializationmanager.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/misc/externallinksolver.h>
#include <zmt/raster/tilecache.h>
#include <zmt/util/compressedtexture/compressedtexture.h>
#include <zmt/util/compressedtexture/texturepyramidtiledgeoimage.h>

#include "texturepyramidformat.h"

namespace ZMT::UTIL {

NBX_STORED_CLASS_IMPL(TexturePyramid, RASTER::TiledGeoImagePyramid)

namespace {

using namespace TexturePyramidFormat;

std::wstring wide(const std::string & text) {
    return NBX::StringUtils::Utf8String2WString(text);
}

/// The file that a stored name means now; empty when there is none.
std::wstring found(const std::wstring & name) {
    if (name.empty()) return name;
    const std::string folder = NBX::File::currentWorkingDir(-1);
    const std::string path = NBX::StringUtils::WString2Utf8String(name);
    if (NBX::File::exists(path)) return wide(NBX::File::absolutePath(path, folder));
    // The name may hold characters that match others.
    const std::string wanted = NBX::File::fileName(path);
    const std::vector<std::string> entries = NBX::File::matchingEntries(folder, wanted);
    if (std::find(entries.begin(), entries.end(), wanted) != entries.end())
        return wide(NBX::File::absolutePath(wanted, folder));
    std::wstring picked = name;
    return ExternalLinkSolver::pickFileCallback(0, picked) ? picked : std::wstring();
}

} // namespace

TexturePyramid::TexturePyramid() = default;
TexturePyramid::~TexturePyramid() = default;

TexturePyramid::TexturePyramid(const std::wstring & fileName) : fileName_(fileName) {
    open();
}

void TexturePyramid::open() {
    header_ = Header();
    levels_.clear();
    file_ = nullptr;
    if (fileName_.empty()) return;
    file_ = new NBX::File(NBX::StringUtils::WString2Utf8String(fileName_));
    if (readLevels()) return;
    header_ = Header();
    levels_.clear();
    file_ = nullptr;
    throw NBX::IOError(L"wrong format", fileName_);
}

bool TexturePyramid::readLevels() {
    PyramidHeader header;
    const std::uint64_t size = file_->size();
    if (file_->read(&header, sizeof header) != sizeof header) return false;
    scramble(header, CompressedTexture::getEncryptionKey());
    if (!header.faults().empty() || header.levels > (size - headerSize) / (8 + headerSize)) return false;
    header_ = {header.minX, header.minY, header.maxX, header.maxY};
    std::vector<std::uint64_t> positions(header.levels);
    if (file_->read(positions.data(), 8 * positions.size()) != 8 * positions.size()) return false;
    // Tables that overlap could ask for far more memory than the file has bytes.
    std::uint64_t tables = 0, tiles = 0;
    const NBX::SO<RASTER::TileCache> cache(new RASTER::TileCache(maxCacheBytes));
    for (const std::uint64_t position : positions) {
        const NBX::SO<TexturePyramidTiledGeoImage> level = TexturePyramidTiledGeoImage::read(
            file_, position, {header.minX, header.minY, header.maxX, header.maxY}, cache, tiles);
        if (!level) return false;
        tiles += level->tiles();
        tables += level->tableBytes();
        if (tables > size) return false;
        levels_.push_back(level);
    }
    return true;
}

NBX::SO<TexturePyramidTiledGeoImage> TexturePyramid::level(unsigned index) const {
    NBX_CHECK(index < levels_.size(), L"no such level: " << index);
    return index < levels_.size() ? levels_[index] : nullptr;
}

NBX::SO<RASTER::TiledGeoImage> TexturePyramid::overview(unsigned index) const {
    return level(index);
}

void TexturePyramid::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<RASTER::TiledGeoImagePyramid>(m, this);
    attributeWithDefault(m, "filename", fileName_, std::wstring());
    if (!m.isReading()) return;
    fileName_ = found(fileName_);
    open();
}

} // namespace ZMT::UTIL
