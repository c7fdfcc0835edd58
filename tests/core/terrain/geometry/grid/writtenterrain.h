#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <nbx/data/file.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/geometry/grid/asyncgridterrain.h>
#include <zmt/core/terrain/geometry/grid/gridterraincreation.h>

#include "functionband.h"

/// The bytes of a terrain that is written from `band`.
inline std::vector<std::uint8_t> writtenTerrain(const NBX::SO<ZMT::RASTER::RasterBand> & band, unsigned level,
                                                ZMT::CORE::GRID::GridTerrainCreation creation = {}) {
    creation.level = level;
    const std::string path = NBX::File::temporaryFileName("written-");
    EXPECT_TRUE(creation.run(NBX::StringUtils::Utf8String2WString(path), band));
    std::vector<std::uint8_t> bytes = NBX::File::contents(path);
    NBX::File::remove(path);
    return bytes;
}

inline NBX::SO<ZMT::CORE::AsyncFile> memoryFile(const std::vector<std::uint8_t> & bytes) {
    return ZMT::CORE::AsyncFile::create(NBX::SO<NBX::DataResource>(
        new NBX::MemoryDataResource(bytes.data(), static_cast<unsigned>(bytes.size()))));
}

inline NBX::SO<ZMT::CORE::GRID::AsyncGridTerrain> memoryTerrain(const std::vector<std::uint8_t> & bytes) {
    return ZMT::CORE::GRID::AsyncGridTerrain::load(memoryFile(bytes));
}
