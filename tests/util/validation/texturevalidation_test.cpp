#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "../../core/terrain/texture/streaming/oblongsource.h"
#include "validatedbytes.h"
#include <nbx/data/file.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>

namespace {

using namespace Validated;
using ZMT::CORE::StreamingTextureOptions;

Bytes written(unsigned levels, unsigned tileSize, std::uint64_t key = 0,
              StreamingTextureOptions::Pixels pixels = StreamingTextureOptions::P_AsDelivered) {
    const std::string path = NBX::File::temporaryFileName("written-");
    StreamingTextureOptions options;
    options.pixels = pixels;
    EXPECT_TRUE(ZMT::CORE::AsyncQuadtreeTerrainTexture::create(
        NBX::StringUtils::Utf8String2WString(path), OblongSource::patches(levels), OblongSource::pyramid(),
        tileSize, key, options));
    Bytes bytes = NBX::File::contents(path);
    NBX::File::remove(path);
    return bytes;
}

/// 21 tiles of luminance in three levels, stored plain, so that every byte has its place.
const Rewriting & plainTexture() {
    static const Bytes bytes = written(2, 20, 0, StreamingTextureOptions::P_Luminance);
    static const Rewriting result(texture, bytes, false);
    return result;
}

/// The block at a position, and the position in it.
std::pair<std::size_t, std::size_t> placeOf(std::size_t at) {
    const std::size_t block =
        *std::prev(std::upper_bound(plainTexture().blocks.begin(), plainTexture().blocks.end(), at));
    return {block, at - block};
}

} // namespace

TEST(TextureValidation, WrittenTexturesAreSound) {
    for (const auto pixels : {StreamingTextureOptions::P_AsDelivered, StreamingTextureOptions::P_RGBA,
                              StreamingTextureOptions::P_Luminance, StreamingTextureOptions::P_DXT1,
                              StreamingTextureOptions::P_DXT3})
        for (const unsigned levels : {0U, 1U, 3U})
            for (const std::uint64_t key : {0ULL, 0x8899aabbccddeeffULL}) {
                const Bytes bytes = written(levels, 40, key, pixels);
                const ValidationReport found = report(bytes, key);
                EXPECT_TRUE(found.isSound()) << pixels << " " << levels << "\n" << text(found);
                EXPECT_EQ(ValidationReport::F_StreamingTexture, found.format);
                EXPECT_EQ(levels == 0 ? 1U : levels == 1 ? 5U : 85U, found.tiles);
                EXPECT_EQ(levels + 1, found.levels);
                EXPECT_EQ(bytes.size(), found.fileBytes);
            }
}

TEST(TextureValidation, AnotherKeyIsNoFormat) {
    const Bytes bytes = written(1, 20, 5);
    EXPECT_EQ(report(bytes, 6).format, ValidationReport::F_Unknown);
    EXPECT_NE(faults(bytes).find("0: no streaming terrain, streaming texture, texture pyramid or city"),
              std::string::npos);
    EXPECT_NE(faults(bytes).find("another key"), std::string::npos);
}

TEST(TextureValidation, EveryChangedByteOfPlainTilesIsFound) {
    ASSERT_EQ(plainTexture().blocks.size(), 21U);
    expectChangesFound(plainTexture().bytes, [](std::size_t at) {
        if (at < 256) return at >= 8 && at < 16 ? Found::Elsewhere : Found::Here;
        const auto [block, in] = placeOf(at);
        const std::size_t end = get<std::uint32_t>(plainTexture().bytes, block + 16) *
                                    get<std::uint32_t>(plainTexture().bytes, block + 20) +
                                256;
        return (in >= 32 && in < 96) || (in >= 256 && in < end) ? Found::Perhaps : Found::Here;
    });
}

TEST(TextureValidation, PlantedFaultsAreNamed) {
    const std::vector<std::size_t> & blocks = plainTexture().blocks;
    const std::size_t root = blocks.back(), finest = blocks.front();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<PlantedFault> planted = {
        {"reserved", [](Bytes & b) { b[16] = 1; }, 16, "the reserved number is not 0"},
        {"long", [](Bytes & b) { set(b, 8, std::uint64_t(b.size() + 1)); }, 8, "the stream has"},
        {"short", [](Bytes & b) { b.resize(b.size() + 1); }, 8, "1 bytes lie behind the end of the stream"},
        {"root", [](Bytes & b) { set(b, 32, 0U); }, 24, "the root is no block that can lie in this stream"},
        {"nothing", [](Bytes & b) { std::fill_n(b.begin() + 24, 16, std::uint8_t(0)); }, 24,
         "there is no tile"},
        {"rest", [](Bytes & b) { b[255] = 1; }, 255, "a byte that has no meaning is not zero"},
        {"tile magic", [&](Bytes & b) { b[root] = 'x'; }, root,
         "the root, referred to at 24: the magic is no \"ZMT-AQTP\""},
        {"tile reserved", [&](Bytes & b) { b[root + 8] = 1; }, root + 8, "the reserved number is not 0"},
        {"one pixel", [&](Bytes & b) { set(b, root + 20, 1U); }, root + 20, "an image of "},
        {"many pixels", [&](Bytes & b) { b[root + 18] = 1; }, root + 16, "an image of "},
        {"other size", [&](Bytes & b) { ++b[root + 16]; }, root + 16, " bytes, and there are "},
        {"format", [&](Bytes & b) { b[root + 24] = 5; }, root + 24, "no pixel format has the number 5"},
        {"zero", [&](Bytes & b) { b[root + 29] = 5; }, root + 28, "a number that has no meaning is not zero"},
        {"patch", [&](Bytes & b) { set(b, root + 32, nan); }, root + 32, "the box of the patch has no area"},
        {"image", [&](Bytes & b) { set(b, root + 80, 0.0); }, root + 64, "the box of the image has no area"},
        {"far patch", [&](Bytes & b) { set(b, finest + 48, 1e6); }, finest + 32,
         "tile 0.0: the patch reaches beyond that of the parent"},
        {"far image",
         [&](Bytes & b) {
             set(b, finest + 64, -2e6);
             set(b, finest + 80, -1e6);
         },
         finest + 64, "tile 0.0: the image lies beside its patch"},
        {"zeros", [&](Bytes & b) { b[finest + 200] = 1; }, finest + 200,
         "a byte that has no meaning is not zero"},
        {"child size", [&](Bytes & b) { set(b, root + 104, 256U); }, root + 96, "tile 0 has 256 bytes"},
        {"huge child", [&](Bytes & b) { set(b, root + 104, UINT32_MAX); }, root + 96,
         "tile 0 has 4294967295"},
        {"far child", [&](Bytes & b) { b[root + 101] = 1; }, root + 96, "reaches beyond the end"},
        {"no child", [&](Bytes & b) { set(b, root + 104, 0U); }, root + 96,
         "child 0 is nothing, and has a place or a size"},
        {"child behind", [&](Bytes & b) { set(b, root + 96, std::uint64_t(root - 128)); }, root + 96,
         "does not lie before what refers to it"},
        {"padding", [&](Bytes & b) { b[blocks[1] - 1] = 1; }, blocks[1] - 1,
         "a byte between two blocks is not zero"},
    };
    expectTold(plainTexture().bytes, planted);
}

TEST(TextureValidation, CentresOfFewPixelsMayLieBesideTheirPatch) {
    const std::size_t finest = plainTexture().blocks.front();
    const auto withImage = [&](double pixels) {
        Bytes bytes = plainTexture().bytes;
        const double width = get<std::uint32_t>(bytes, finest + 16) - 1.0, pixel = 0.5;
        const double minX = get<double>(bytes, finest + 48) + pixels * pixel;
        set(bytes, finest + 64, minX);
        set(bytes, finest + 80, minX + width * pixel);
        return faults(bytes);
    };
    EXPECT_EQ(withImage(0.9), "");
    const double patchWidth =
        get<double>(plainTexture().bytes, finest + 48) - get<double>(plainTexture().bytes, finest + 32);
    EXPECT_EQ(withImage(0.9 + 0.02 * patchWidth / 0.5), "");
    EXPECT_NE(withImage(1.1 + 0.02 * patchWidth / 0.5), "");
}

TEST(TextureValidation, PatchesLieInsideOfThoseAboveOnEachSide) {
    const std::size_t finest = plainTexture().blocks.front();
    for (std::size_t side = 0; side < 4; ++side) {
        Bytes bytes = plainTexture().bytes;
        set(bytes, finest + 32 + 8 * side, side < 2 ? -1e6 : 1e6);
        EXPECT_EQ(faults(bytes),
                  std::to_string(finest + 32) + ": tile 0.0: the patch reaches beyond that of the parent\n");
    }
}

TEST(TextureValidation, BlocksOfPixelsAreWhole) {
    const Bytes packed = written(0, 40, 0, StreamingTextureOptions::P_DXT1);
    const Rewriting one(texture, packed, false);
    Bytes bytes = one.bytes;
    // As many bytes, but not of whole blocks.
    set(bytes, 256 + 16, get<std::uint32_t>(bytes, 256 + 16) - 1);
    EXPECT_NE(faults(bytes).find("pixels are no whole blocks"), std::string::npos) << faults(bytes);
}

TEST(TextureValidation, OverlapsAndGapsAreFound) {
    const std::size_t root = plainTexture().blocks.back();
    Bytes bytes = plainTexture().bytes;
    for (std::size_t i = 0; i < 16; ++i)
        bytes[root + 96 + i] = bytes[root + 112 + i];
    EXPECT_NE(faults(bytes).find("leads into another block"), std::string::npos) << faults(bytes);
    bytes = plainTexture().bytes;
    std::fill_n(bytes.begin() + std::ptrdiff_t(root + 96), 16, std::uint8_t(0));
    EXPECT_EQ(faults(bytes).substr(0, 5), "256: ");
    EXPECT_NE(faults(bytes).find(" bytes belong to nothing"), std::string::npos) << faults(bytes);
    EXPECT_EQ(report(bytes).faultCount, 1U);
}

TEST(TextureValidation, BlocksThatEndInTheirZerosAreFound) {
    const Rewriting packed(texture, plainTexture().bytes, true);
    ASSERT_EQ(faults(packed.bytes), "");
    // A child is named by its parent, here a plain one.
    const Rewriting mixed(texture, packed.bytes, false);
    Bytes bytes = packed.bytes;
    const auto offset = get<std::uint64_t>(bytes, 24);
    const auto size = get<std::uint32_t>(bytes, 36);
    bytes.resize(bytes.size() + 16);
    set(bytes, 8, std::uint64_t(bytes.size()));
    set(bytes, 36, size + 1);
    const std::string expected =
        std::to_string(offset + size) + ": the root: the block ends 1 bytes before its stored size\n";
    EXPECT_EQ(faults(bytes).substr(0, expected.size()), expected) << faults(bytes);
}

TEST(TextureValidation, NoCutTextureIsSound) {
    expectCutsFound(written(1, 12, 0, StreamingTextureOptions::P_Luminance));
    expectCutsFound(written(1, 12, 77, StreamingTextureOptions::P_DXT1), 77);
}

TEST(TextureValidation, ChangesAtRandomEnd) {
    std::mt19937 random(5);
    const Bytes packed = written(2, 12, 0, StreamingTextureOptions::P_Luminance);
    for (int i = 0; i < 3000; ++i) {
        Bytes bytes = i % 2 ? packed : plainTexture().bytes;
        for (unsigned changes = 1 + random() % 4; changes > 0; --changes)
            bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
        report(bytes);
    }
}

TEST(TextureValidation, BlocksBetweenMultiplesOf16AreFound) {
    // One tile, eight bytes behind the header.
    const Bytes sound =
        Rewriting(texture, written(0, 20, 0, StreamingTextureOptions::P_Luminance), false).bytes;
    const auto size = get<std::uint32_t>(sound, 36);
    Bytes bytes(sound.begin(), sound.begin() + 256);
    bytes.resize(264);
    bytes.insert(bytes.end(), sound.begin() + 256, sound.begin() + 256 + size);
    bytes.resize((bytes.size() + 15) / 16 * 16);
    set(bytes, 8, std::uint64_t(bytes.size()));
    set(bytes, 24, std::uint64_t(264));
    EXPECT_EQ(faults(bytes), "24: the reference to the root, " + std::to_string(size) +
                                 " bytes at 264, is no multiple of 16\n256: 8 bytes belong to nothing\n");
}

TEST(TextureValidation, TheEndIsAMultipleOf16) {
    Bytes bytes = plainTexture().bytes;
    const std::string end = std::to_string(bytes.size());
    bytes.resize(bytes.size() + 8);
    set(bytes, 8, std::uint64_t(bytes.size()));
    EXPECT_EQ(faults(bytes),
              "8: the blocks do not end at a multiple of 16\n" + end + ": 8 bytes belong to nothing\n");
}

TEST(TextureValidation, TreesDeeperThanReadersGoAreRefused) {
    // Each tile has the one before it as its only child.
    Bytes bytes(256);
    std::memcpy(bytes.data(), "ZMT-AQTT", 8);
    std::uint64_t last = 0;
    for (unsigned level = 0; level < 70; ++level) {
        const std::size_t at = bytes.size();
        bytes.resize(at + 272);
        std::memcpy(&bytes[at], "ZMT-AQTP", 8);
        set(bytes, at + 16, 4U);
        set(bytes, at + 20, 4U);
        set(bytes, at + 24, 7U);
        for (const std::size_t box : {32, 64}) {
            set(bytes, at + box + 16, 1.0);
            set(bytes, at + box + 24, 1.0);
        }
        if (last != 0) {
            set(bytes, at + 96, last);
            set(bytes, at + 104, 272U);
            set(bytes, at + 108, 272U);
        }
        last = at;
    }
    set(bytes, 8, std::uint64_t(bytes.size()));
    set(bytes, 24, last);
    set(bytes, 32, 272U);
    set(bytes, 36, 272U);
    const ValidationReport found = report(bytes);
    EXPECT_EQ(found.tiles, 64U);
    EXPECT_EQ(found.faultCount, 1U) << text(found);
    EXPECT_NE(text(found).find("more than 64 levels"), std::string::npos);
}
