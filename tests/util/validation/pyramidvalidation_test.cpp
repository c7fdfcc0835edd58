#include <random>

#include <gtest/gtest.h>

#include "../compressedtexture/pyramidfile.h"
#include "raster/memorytiledgeoimage.h"
#include "validatedbytes.h"
#include <nbx/image/memoryimage.h>
#include <zmt/util/compressedtexture/compressedtexture.h>
#include <zmt/util/compressedtexture/virtualtiledgeoimage.h>

namespace {

using namespace Validated;
using NBX::MemoryImage;
using NBX::SO;
using ZMT::UTIL::CompressedTexture;

class PyramidValidation : public testing::Test {
protected:
    ~PyramidValidation() override { CompressedTexture::setEncryptionKey(0); }

    Bytes written(int width, int height, CompressedTexture::PixelFormat format, unsigned compression = 1) {
        const SO<MemoryImage> image(new MemoryImage(width, height, NBX::LS_RGBA));
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                image->setColor(x, y, NBX::Color(float(x % 7) / 7.0F, float(y % 9) / 9.0F, 0.5F));
        const SO<ZMT::RASTER::TiledGeoImage> source(
            new ZMT::RASTER::MemoryTiledGeoImage(image.get(), {0.0, 0.0, double(width), double(height)}));
        EXPECT_TRUE(CompressedTexture::create(source, folder.wide("a.ztp"), format, compression));
        return folder.bytes("a.ztp");
    }

    PyramidFolder folder;
};

/// Two tiles of 20 bytes, with room between.
Bytes small(std::uint32_t version = 3, std::uint32_t compression = 0, bool deflates = false) {
    PyramidFile file;
    file.version = version;
    file.compression = compression;
    file.deflates = deflates;
    Bytes bytes = file.encode();
    return bytes;
}

constexpr std::size_t s_level = PyramidFile::level, s_table = PyramidFile::table;

} // namespace

TEST_F(PyramidValidation, WrittenPyramidsAreSound) {
    for (int format = 0; format < CompressedTexture::pixelFormats; ++format)
        for (const unsigned compression : {0U, 1U}) {
            const Bytes bytes =
                written(300, 130, static_cast<CompressedTexture::PixelFormat>(format), compression);
            const ValidationReport found = report(bytes);
            EXPECT_TRUE(found.isSound()) << format << "\n" << text(found);
            EXPECT_EQ(ValidationReport::F_TexturePyramid, found.format);
            EXPECT_EQ(found.levels, 3U);
            EXPECT_EQ(found.tiles, 4U);
            EXPECT_EQ(found.fileBytes, bytes.size());
        }
}

/// Levels of one pixel have no half.
TEST_F(PyramidValidation, NarrowPyramidsAreSound) {
    for (const auto & [width, height] : {std::pair(1, 600), std::pair(600, 1)}) {
        const ValidationReport found = report(written(width, height, CompressedTexture::PF_RGB8));
        EXPECT_TRUE(found.isSound()) << text(found);
        EXPECT_GT(found.levels, 2U);
    }
}

TEST_F(PyramidValidation, ScrambledHeadersNeedTheirKey) {
    CompressedTexture::setEncryptionKey(0x123456789abcdefULL);
    const Bytes bytes = written(300, 130, CompressedTexture::PF_RGB8);
    CompressedTexture::setEncryptionKey(0);
    EXPECT_EQ(faults(bytes, 0x123456789abcdefULL), "");
    EXPECT_EQ(report(bytes).format, ValidationReport::F_Unknown);
}

TEST_F(PyramidValidation, AllVersionsAndEmptyTilesAreSound) {
    for (const std::uint32_t version : {1U, 2U, 3U})
        for (const bool deflates : {false, true}) {
            // Without a table of sizes and in front of the tiles, a size is that of a whole tile.
            const std::uint32_t compression = deflates ? 1 : 0;
            const ValidationReport found = report(small(version, compression, deflates));
            EXPECT_TRUE(found.isSound()) << version << deflates << "\n" << text(found);
            EXPECT_EQ(found.tiles, 2U);
        }
    PyramidFile file;
    file.tiles[0].clear();
    EXPECT_EQ(report(file.encode()).tiles, 1U);
    EXPECT_EQ(faults(file.encode()), "");
    file.tiles[1].clear();
    EXPECT_EQ(faults(file.encode()), "");
}

TEST_F(PyramidValidation, EveryChangedByteOfPlainTilesIsFound) {
    const Bytes bytes = small();
    expectChangesFound(bytes, [](std::size_t at) {
        if (at >= 40 && at < 72) return Found::Perhaps;   // extent
        if (at >= 36 && at < 40) return Found::Elsewhere; // number of levels
        if (at < s_level) return Found::Here;
        const std::size_t in = at - s_level;
        if (in >= 32 && in < 44) return Found::Perhaps;   // version, and pixels for the same tiles
        if (in >= 44 && in < 52) return Found::Elsewhere; // sizes of tiles
        if ((in >= 60 && in < 64) || (in >= 68 && in < 72)) return Found::Perhaps; // format, compression
        if (in < 256) return Found::Here;
        return at < s_table + 24 ? Found::Elsewhere : Found::Perhaps;
    });
}

TEST_F(PyramidValidation, PlantedFaultsAreNamed) {
    const std::vector<PlantedFault> planted = {
        {"magic", [](Bytes & b) { b[10] = 'x'; }, 0, "the magic is no \"ZMT-TEXTURE-PYRAMID\""},
        {"version", [](Bytes & b) { b[32] = 2; }, 32, "the version is 2, and readers know 1"},
        {"no levels", [](Bytes & b) { b[36] = 0; }, 36, "there are no levels"},
        {"many levels", [](Bytes & b) { b[38] = 1; }, 36, "the file has no room for 65537 levels"},
        {"width", [](Bytes & b) { set(b, 40, 1e9); }, 40, "the extent has no width"},
        {"height", [](Bytes & b) { set(b, 48, 1e9); }, 48, "the extent has no height"},
        {"rest", [](Bytes & b) { b[255] = 1; }, 255, "a byte that has no meaning is not zero"},
        {"far level", [](Bytes & b) { b[262] = 1; }, 256, "level 0 begins at"},
        {"level in the header", [](Bytes & b) { set(b, 256, std::uint64_t(0)); }, 0,
         "level 0, referred to at 256: the magic is no"},
        {"level magic", [](Bytes & b) { b[s_level] = 'x'; }, s_level,
         "level 0, referred to at 256: the magic is no \"ZMT-TEXTURE-PYRAMID-LEVEL\""},
        {"level version", [](Bytes & b) { b[s_level + 32] = 4; }, s_level + 32, "readers know 1 to 3"},
        {"pixels", [](Bytes & b) { set(b, s_level + 36, 0U); }, s_level + 36, "there are no pixels"},
        {"no tile", [](Bytes & b) { set(b, s_level + 48, 0U); }, s_level + 44, "tiles have no pixels"},
        {"columns", [](Bytes & b) { ++b[s_level + 52]; }, s_level + 52,
         "the number of tiles is 3 in place of 2"},
        {"rows", [](Bytes & b) { ++b[s_level + 56]; }, s_level + 56,
         "the number of tiles is 2 in place of 1"},
        {"format", [](Bytes & b) { b[s_level + 60] = 12; }, s_level + 60,
         "no pixel format has the number 12"},
        {"raw size", [](Bytes & b) { ++b[s_level + 64]; }, s_level + 64,
         "a tile has 21 bytes in place of 20"},
        {"compression", [](Bytes & b) { b[s_level + 68] = 2; }, s_level + 68, "readers know 0 and 1"},
        {"level rest", [](Bytes & b) { b[s_level + 80] = 1; }, s_level + 80, "is not zero"},
        {"far tile", [](Bytes & b) { b[s_table + 3] = 1; }, s_table, "level 0, tile 0, 20 bytes at "},
        {"tile in the header", [](Bytes & b) { set(b, s_table + 8, std::uint64_t(100)); }, s_table + 8,
         "begins inside of the header"},
        {"tile in a table", [](Bytes & b) { set(b, s_table, std::uint64_t(s_table)); }, s_table,
         "leads into what is something else"},
        {"twice", [](Bytes & b) { std::memcpy(&b[s_table + 8], &b[s_table], 8); }, s_table + 8,
         "level 0, tile 1, 20 bytes at "},
        {"no size", [](Bytes & b) { set(b, s_table + 16, 0U); }, s_table, "takes no bytes"},
        {"other size", [](Bytes & b) { set(b, s_table + 16, 19U); }, s_table + 24,
         "level 0, tile 0: does not inflate to 20 bytes"},
        {"gap", [](Bytes & b) { b.resize(b.size() + 9); }, s_table + 64, "9 bytes belong to nothing"},
        {"short gap", [](Bytes & b) { b.resize(b.size() + 3); }, s_table + 64, "3 bytes belong to nothing"},
    };
    expectTold(small(), planted);
}

TEST_F(PyramidValidation, LevelsAreHeldAgainstEachOther) {
    const Bytes sound = written(300, 130, CompressedTexture::PF_Luminance8);
    ASSERT_EQ(faults(sound), "");
    // Two levels change places.
    Bytes bytes = sound;
    std::swap_ranges(bytes.begin() + 256, bytes.begin() + 264, bytes.begin() + 264);
    const auto larger = get<std::uint64_t>(bytes, 264);
    EXPECT_EQ(faults(bytes),
              std::to_string(larger + 36) + ": level 1: the level is larger than the one before\n");
    // One is there twice.
    bytes = sound;
    std::copy_n(bytes.begin() + 264, 8, bytes.begin() + 272);
    EXPECT_NE(faults(bytes).find("272: level 2, at "), std::string::npos) << faults(bytes);
}

TEST_F(PyramidValidation, ZerosInFrontOfLevelsAreFew) {
    const Bytes sound = written(300, 130, CompressedTexture::PF_RGB8);
    const auto second = get<std::uint64_t>(sound, 264);
    ASSERT_EQ(sound[second - 1], 0U);
    // The last tile of the first level ends up to seven bytes before.
    Bytes bytes = sound;
    bytes[second - 1] = 1;
    const std::string found = faults(bytes);
    EXPECT_NE(found.find(" bytes belong to nothing"), std::string::npos) << found;
    EXPECT_EQ(report(bytes).faultCount, 1U);
}

TEST_F(PyramidValidation, EightZerosInFrontOfALevelAreTooMany) {
    Bytes bytes = small();
    bytes.insert(bytes.begin() + s_level, 8, std::uint8_t(0));
    for (const std::size_t at : {std::size_t(256), s_table + 8, s_table + 16})
        set(bytes, at, get<std::uint64_t>(bytes, at) + 8);
    EXPECT_EQ(faults(bytes), "264: 8 bytes belong to nothing\n");
}

TEST_F(PyramidValidation, DamagedTilesAreFoundWhereTheyBegin) {
    const Bytes sound = small(3, 1, true);
    const auto first = get<std::uint64_t>(sound, s_table);
    Bytes bytes = sound;
    bytes[first + 5] ^= 4;
    EXPECT_EQ(faults(bytes), std::to_string(first) + ": level 0, tile 0: does not inflate to 20 bytes\n");
    // The size of the first one takes a byte of nothing.
    bytes = sound;
    bytes.push_back(0);
    const auto size = get<std::uint32_t>(bytes, s_table + 20);
    set(bytes, s_table + 20, size + 1);
    EXPECT_EQ(faults(bytes),
              std::to_string(bytes.size() - 1) + ": level 0, tile 1: ends 1 bytes before its stored size\n");
}

TEST_F(PyramidValidation, SizesInFrontOfTilesAreChecked) {
    const Bytes sound = small(1, 1, true);
    const auto first = get<std::uint64_t>(sound, s_table);
    Bytes bytes = sound;
    set(bytes, first, 5000U);
    EXPECT_NE(faults(bytes).find(std::to_string(s_table) + ": level 0, tile 0, 5000 bytes at "),
              std::string::npos)
        << faults(bytes);
    bytes = sound;
    set(bytes, s_table, std::uint64_t(bytes.size() - 2));
    EXPECT_NE(faults(bytes), "");
    set(bytes, s_table, std::uint64_t(UINT64_MAX));
    EXPECT_NE(faults(bytes).find(std::to_string(s_table) + ": a tile begins behind"), std::string::npos)
        << faults(bytes);
}

TEST_F(PyramidValidation, NoCutPyramidIsSound) {
    for (const std::uint32_t version : {1U, 3U})
        expectCutsFound(small(version, 1, true));
}

TEST_F(PyramidValidation, ChangesAtRandomEnd) {
    std::mt19937 random(9);
    const Bytes packed = written(60, 50, CompressedTexture::PF_Luminance8);
    for (int i = 0; i < 3000; ++i) {
        Bytes bytes = i % 2 ? packed : small(1 + i / 2 % 3, 1, true);
        for (unsigned changes = 1 + random() % 4; changes > 0; --changes)
            bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
        report(bytes);
    }
}
