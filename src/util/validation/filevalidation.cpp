#include <zmt/util/validation/filevalidation.h>

#include <cstring>
#include <utility>

#include "checkedfile.h"
#include "core/terrain/geometry/grid/model/terrainfileformat.h"
#include "core/terrain/texture/streaming/streamingtextureformat.h"
#include "pyramidvalidation.h"
#include "terrainvalidation.h"
#include "texturevalidation.h"
#include "util/compressedtexture/texturepyramidformat.h"

namespace ZMT::UTIL {

namespace {

/// The first bytes of a file, of which the formats have their magics.
struct Start {
    char bytes[8];

    bool isOf(const char * magic, std::uint64_t key) const {
        Start plain = *this;
        CORE::StreamingTextureFormat::scramble(plain.bytes, sizeof plain.bytes, key);
        return std::memcmp(plain.bytes, magic, sizeof plain.bytes) == 0;
    }
};

ValidationReport::Format formatOf(const Start & start, std::uint64_t key) {
    if (start.isOf(CORE::GRID::TerrainFileFormat::fileMagic, 0)) return ValidationReport::F_StreamingTerrain;
    if (start.isOf(CORE::StreamingTextureFormat::streamMagic, key))
        return ValidationReport::F_StreamingTexture;
    if (start.isOf(TexturePyramidFormat::pyramidMagic, key)) return ValidationReport::F_TexturePyramid;
    return ValidationReport::F_Unknown;
}

} // namespace

const char * ValidationReport::formatName(Format format) {
    switch (format) {
    case F_StreamingTerrain:
        return "streaming terrain";
    case F_StreamingTexture:
        return "streaming texture";
    case F_TexturePyramid:
        return "texture pyramid";
    case F_City:
        return "city";
    default:
        return "unknown";
    }
}

void ValidationReport::add(std::uint64_t offset, std::string what, const std::string & file) {
    ++faultCount;
    if (faults.size() < mostFaults) faults.push_back({offset, std::move(what), file});
}

ValidationReport FileValidation::run(CORE::AsyncFile & file, std::uint64_t key) {
    ValidationReport report;
    report.fileBytes = file.size();
    CheckedFile checked(file, report);
    Start start;
    if (!checked.readRecord(0, start, "its magic")) return report;
    report.format = formatOf(start, key);
    switch (report.format) {
    case ValidationReport::F_StreamingTerrain:
        checkTerrain(checked, report);
        break;
    case ValidationReport::F_StreamingTexture: {
        const CheckedTexture found = checkTexture(checked, 0, key);
        report.tiles = found.tiles;
        report.levels = found.levels;
        break;
    }
    case ValidationReport::F_TexturePyramid:
        checkPyramid(checked, report, key);
        break;
    default:
        report.add(0,
                   "no streaming terrain, streaming texture, texture pyramid or city begins like this, but "
                   "a texture or a pyramid that was written with another key");
    }
    checked.finish();
    return report;
}

} // namespace ZMT::UTIL
