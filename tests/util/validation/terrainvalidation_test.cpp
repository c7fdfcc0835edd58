#include <limits>
#include <optional>
#include <random>

#include <gtest/gtest.h>

#include "../../core/terrain/geometry/grid/functionband.h"
#include "../../core/terrain/geometry/grid/plainterrainfile.h"
#include "../../core/terrain/geometry/grid/writtenterrain.h"
#include "validatedbytes.h"

namespace {

using namespace Validated;
using NBX::SO;
using ZMT::CORE::GRID::GridTerrainCreation;
using ZMT::RASTER::RasterGrid;

SO<FunctionBand> band(unsigned width, unsigned height, FunctionBand::Cell cell = FunctionBand::hills) {
    return new FunctionBand(width, height, std::move(cell));
}

enum class Light { None, Static, Normals };

Bytes written(const SO<FunctionBand> & source, unsigned level, Light light = Light::None,
              const SO<ZMT::CORE::GRID::GridTerrain> & old = nullptr) {
    GridTerrainCreation creation;
    creation.oldTerrain = old;
    creation.createShading = light != Light::None;
    creation.storesNormals = light == Light::Normals;
    return writtenTerrain(source, level, creation);
}

/// Islands of single cells, far apart.
double islands(unsigned x, unsigned y) {
    return x % 37 == 11 && y % 29 == 5 ? 10.0 + x : double(FunctionBand::none);
}

/// Tiles of 9 by 9 samples in three levels, with holes.
const Bytes & holed() {
    static const Bytes bytes = written(band(30, 21, FunctionBand::hillsWithHoles), 3);
    return bytes;
}

/// The same with blocks that are stored plain, so that every byte has its place.
const Rewriting & plain() {
    static const Rewriting result(terrain, holed(), false);
    return result;
}

/// The number of references of a kind.
unsigned countKind(const Bytes & bytes, std::uint32_t kind) {
    unsigned count = 0;
    for (const auto & [place, tile] : PlainTerrainFile(bytes).tiles)
        for (const PlainTerrainFile::Ref & child : tile.children)
            count += std::get<0>(place) > 0 && child.rawSize == kind ? 1 : 0;
    return count;
}

void expectSound(const Bytes & bytes, bool hasLight = false) {
    const ValidationReport found = report(bytes);
    EXPECT_TRUE(found.isSound()) << text(found);
    EXPECT_EQ(ValidationReport::F_StreamingTerrain, found.format);
    const PlainTerrainFile file(bytes);
    EXPECT_EQ(file.tiles.size(), found.tiles);
    EXPECT_EQ(file.depth + 1, found.levels);
    EXPECT_EQ(bytes.size(), found.fileBytes);
    EXPECT_EQ(hasLight ? found.tiles : 0U, found.lightTiles);
}

} // namespace

TEST(TerrainValidation, WrittenTerrainsAreSound) {
    for (unsigned level = 0; level <= 7; ++level) {
        SCOPED_TRACE(level);
        expectSound(written(band(level > 5 ? 300 : 45, level > 5 ? 200 : 38), level));
        expectSound(written(band(45, 38, FunctionBand::hillsWithHoles), level));
    }
    expectSound(written(band(200, 3), 5));
    expectSound(written(band(2, 2), 1));
    expectSound(written(band(50, 50, [](unsigned, unsigned) { return 7.0; }), 3));
    const Bytes scattered = written(band(300, 200, islands), 4);
    EXPECT_GT(countKind(scattered, 0), 10U);
    expectSound(scattered);
}

/// All children of the root are one block, which is a tile of another place, so that nobody takes it.
TEST(TerrainValidation, BytesThatAreReferredToAgainAndAgainEndTheCheck) {
    const Bytes sound = written(band(33, 33), 4);
    const Rewriting plainTiles(terrain, sound, false);
    ASSERT_EQ(5U, plainTiles.blocks.size());
    const auto block = [&](unsigned i) {
        return plainTiles.bytes.begin() + std::ptrdiff_t(plainTiles.blocks[i]);
    };
    const std::ptrdiff_t size = block(1) - block(0);
    Bytes bytes(plainTiles.bytes.begin(), plainTiles.bytes.begin() + 256);
    bytes.insert(bytes.end(), block(0), block(0) + size);
    bytes.insert(bytes.end(), block(4), block(4) + size);
    const std::size_t root = 256 + std::size_t(size);
    for (unsigned i = 0; i < 4; ++i)
        set(bytes, root + 64 + 16 * i, std::uint64_t(256));
    set(bytes, 8, std::uint64_t(bytes.size()));
    set(bytes, 88, std::uint64_t(root));
    set(bytes, 256 + 28, 99U);
    const ValidationReport found = report(bytes);
    EXPECT_EQ(4U, found.faultCount) << text(found);
    EXPECT_EQ("more is referred to than the file has; the rest is not checked", found.faults.back().what);
}

TEST(TerrainValidation, WrittenLightMapsAreSound) {
    expectSound(written(band(40, 31, FunctionBand::hillsWithHoles), 3, Light::Static), true);
    expectSound(written(band(40, 31), 3, Light::Normals), true);
}

TEST(TerrainValidation, MergedTerrainsAreSound) {
    const auto part = [](double x, double y, double cell, unsigned cells, bool hasHoles) {
        return SO<FunctionBand>(new FunctionBand(
            RasterGrid{cells, cells, x, y, cell, cell}, [hasHoles](unsigned column, unsigned row) {
                return hasHoles ? FunctionBand::hillsWithHoles(column, row)
                                : FunctionBand::hills(column, row);
            }));
    };
    unsigned parts = 0;
    for (const unsigned level : {2U, 4U})
        for (const bool hasHoles : {false, true}) {
            SCOPED_TRACE(level);
            const auto old = memoryTerrain(written(part(0, 0, 1, 50, hasHoles), level));
            const std::pair<double, unsigned> sources[] = {
                {1.0, 20}, {0.25, 60}, {0.3, 40}, {4.0, 9}, {2.5, 8}};
            for (const auto & [cell, cells] : sources) {
                const Bytes both = written(part(10, 15, cell, cells, hasHoles), level, Light::None, old);
                parts += countKind(both, 1);
                expectSound(both);
            }
        }
    EXPECT_GT(parts, 100U);
}

TEST(TerrainValidation, MergedTerrainsWithLightAreSound) {
    const auto old = memoryTerrain(written(band(50, 50), 3));
    const SO<FunctionBand> finer(
        new FunctionBand(RasterGrid{60, 60, 10, 10, 0.25, 0.25}, FunctionBand::hills));
    const Bytes both = written(finer, 3, Light::Static, old);
    EXPECT_GT(countKind(both, 1), 0U);
    expectSound(both, true);
}

TEST(TerrainValidation, EveryChangedByteOfPlainTilesIsFound) {
    const Bytes & bytes = plain().bytes;
    EXPECT_EQ(plain().blocks.size(), PlainTerrainFile(bytes).tiles.size());
    EXPECT_GT(plain().blocks.size(), 10U);
    expectChangesFound(bytes, [](std::size_t at) {
        if (at < 256 && at >= 40 && at < 88) return Found::Perhaps; // place and scale
        if (at < 256)                                               // sizes of all blocks and of the tree
            return at < 16 || (at >= 36 && at < 40) ? Found::Elsewhere : Found::Here;
        const std::size_t in =
            at - *std::prev(std::upper_bound(plain().blocks.begin(), plain().blocks.end(), at));
        if (in >= 128 && in < 128 + 2 * 81) return Found::Perhaps; // heights
        return Found::Here;
    });
}

TEST(TerrainValidation, HeightsAreFoundWhereOtherTilesHaveThem) {
    // A height on the border of a tile stands in its own table; one inside may stand in those of the tiles
    // below, and be the lowest or the highest.
    const PlainTerrainFile file(plain().bytes);
    const auto change = [&](std::size_t offset, std::uint16_t value) {
        Bytes changed = plain().bytes;
        set(changed, offset, value);
        return faults(changed);
    };
    const PlainTerrainFile::Tile & finest = *file.tile(0, 8, 8);
    const std::size_t at = finest.ref.offset + 128;
    EXPECT_NE(change(at + 2 * 4, 60000)
                  .find(std::to_string(at + 2 * (81 + 17 + 4)) + ": the tile of depth 0 at 8, "
                                                                 "8: row 0 of border 1 has "),
              std::string::npos)
        << change(at + 2 * 4, 60000);
    const std::string highest = change(at + 2 * (4 + 4 * 9), 65535);
    EXPECT_NE(highest.find(std::to_string(at - 128 + 32 + 20) + ": the tile of depth 0 at 8, 8: the box is "),
              std::string::npos)
        << highest;
}

TEST(TerrainValidation, PlantedFaultsAreNamed) {
    const std::vector<std::size_t> & blocks = plain().blocks;
    const std::size_t root = blocks.back(), finest = blocks.front();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<PlantedFault> planted = {
        {"magic", [](Bytes & b) { b[3] = 'x'; }, 0, "no streaming terrain, streaming texture, texture"},
        {"size", [](Bytes & b) { set(b, 8, std::uint64_t(b.size() + 16)); }, 8, "the blocks end at"},
        {"reserved", [](Bytes & b) { b[20] = 1; }, 16, "the reserved number is not 0"},
        {"extent", [](Bytes & b) { ++b[24]; }, 24, "the size is 34, and the tree has room for 33"},
        {"larger extent", [](Bytes & b) { ++b[28]; }, 28,
         "the size is 26, and the box of the root ends at 24"},
        {"smaller extent", [](Bytes & b) { --b[28]; }, 28,
         "the size is 24, and the box of the root ends at 24"},
        {"no extent", [](Bytes & b) { set(b, 28, 0U); }, 28, "the size is 0, and the tree has room for 33"},
        {"level", [](Bytes & b) { b[32] = 8; }, 32, "the level of tiles is 8, and may be 7 at most"},
        {"depth", [](Bytes & b) { b[36] = 29; }, 36, "the depth is 29, and may be 28 at most"},
        {"origin", [&](Bytes & b) { set(b, 40, nan); }, 40, "the origin is no number"},
        {"cell", [](Bytes & b) { set(b, 72, -1.0); }, 72, "the cell size is no size"},
        {"scale", [](Bytes & b) { set(b, 80, 0.0); }, 80, "the height scale is no size"},
        {"root", [](Bytes & b) { set(b, 96, 1U); }, 88, "the root is no block that can lie in this file"},
        {"rest", [](Bytes & b) { b[200] = 1; }, 200, "a byte that has no meaning is not zero"},
        {"tile magic", [&](Bytes & b) { b[root] = 'x'; }, root, "the magic is no \"ZMT-AQGP\""},
        {"tile level", [&](Bytes & b) { b[root + 16] = 2; }, root + 16, "the tile is of level 2, depth 2"},
        {"tile depth", [&](Bytes & b) { b[root + 20] = 1; }, root + 16,
         "the tile is of level 3, depth 1, at 0, 0, and stands for level 3, depth 2, at 0, 0"},
        {"place", [&](Bytes & b) { b[finest + 24] = 8; }, finest + 16, "the tile is of level 3, depth 0"},
        {"samples", [&](Bytes & b) { ++b[finest + 56]; }, finest + 56, "the number of samples is"},
        {"box", [&](Bytes & b) { ++b[finest + 32]; }, finest + 32, "what is defined takes"},
        {"far box", [&](Bytes & b) { b[finest + 46] = 1; }, finest + 32, "is no part of"},
        {"heights of a box", [&](Bytes & b) { --b[root + 53]; }, root + 52, "the box is"},
        {"child", [&](Bytes & b) { b[finest + 64] = 16; }, finest + 64, "a tile of depth 0 has a child"},
        {"child size", [&](Bytes & b) { ++b[root + 72]; }, root + 64, "in place of"},
        {"far child", [&](Bytes & b) { b[root + 68] = 1; }, root + 64, "reaches beyond the end"},
        {"child at the end", [&](Bytes & b) { set(b, root + 64, std::uint64_t(root)); }, root + 64,
         "does not lie before what refers to it"},
        {"child in the header", [&](Bytes & b) { set(b, root + 64, std::uint64_t(16)); }, root + 64,
         "begins inside of the header"},
        {"unaligned child", [&](Bytes & b) { ++b[root + 64]; }, root + 64, "is no multiple of 16"},
        {"no child", [&](Bytes & b) { set(b, root + 72, 0U); }, root + 64,
         "child 0 is no block, and has a place or a size"},
        {"border", [&](Bytes & b) { ++b[finest + 128 + 2 * 81]; }, finest + 128 + 2 * 81,
         "row 0 of border 0 has"},
        {"padding", [&](Bytes & b) { b[blocks[1] - 1] = 1; }, blocks[1] - 1,
         "a byte between two blocks is not zero"},
    };
    expectTold(plain().bytes, planted);
}

TEST(TerrainValidation, AWrongBoxIsToldOnce) {
    for (const std::size_t block : plain().blocks)
        for (const auto & [offset, value] : {std::pair{40U, 1U}, {52U, 65535U}}) {
            Bytes bytes = plain().bytes;
            if (get<std::uint32_t>(bytes, block + offset) == value) continue;
            set(bytes, block + offset, value);
            EXPECT_EQ(report(bytes).faultCount, 1U) << faults(bytes);
            EXPECT_EQ(report(bytes).faults.at(0).offset, block + offset);
        }
}

TEST(TerrainValidation, OverlapsGapsAndHolesAreFound) {
    const std::size_t root = plain().blocks.back();
    const std::size_t other = get<std::uint64_t>(plain().bytes, root + 80);
    // Two children in one place.
    Bytes bytes = plain().bytes;
    for (std::size_t i = 0; i < 16; ++i)
        bytes[root + 64 + i] = bytes[root + 80 + i];
    EXPECT_NE(faults(bytes).find("leads into another block"), std::string::npos) << faults(bytes);
    // A child that is forgotten.
    bytes = plain().bytes;
    std::fill_n(bytes.begin() + std::ptrdiff_t(root + 80), 16, std::uint8_t(0));
    const std::string forgotten = faults(bytes);
    EXPECT_NE(forgotten.find(" bytes belong to nothing"), std::string::npos) << forgotten;
    EXPECT_NE(forgotten.find("child 1 has nothing where the tile has heights"), std::string::npos)
        << forgotten;
    // One that becomes a part of its parent hides what it has.
    set(bytes, root + 88, 1U);
    const std::string hidden = faults(bytes);
    EXPECT_NE(hidden.find(" bytes belong to nothing"), std::string::npos) << hidden;
    EXPECT_EQ(report(bytes).faultCount, 1U) << hidden;
    // A block that nobody wants.
    bytes = plain().bytes;
    bytes.resize(bytes.size() + 48);
    set(bytes, 8, std::uint64_t(bytes.size()));
    EXPECT_EQ(faults(bytes), std::to_string(plain().bytes.size()) + ": 48 bytes belong to nothing\n");
    EXPECT_GT(other, 256U);
}

namespace {

/// Whether one of the four inner cells of a quarter of a tile of 9 by 9 samples has heights at all corners.
bool hasInnerCell(const Bytes & bytes, std::size_t block, unsigned quarter) {
    const unsigned x0 = quarter % 2 * 4, y0 = quarter / 2 * 4;
    const auto isDefined = [&](unsigned x, unsigned y) {
        return get<std::uint16_t>(bytes, block + 128 + 2 * std::size_t(x + 9 * y)) != 0;
    };
    for (unsigned y = y0 + 1; y < y0 + 3; ++y)
        for (unsigned x = x0 + 1; x < x0 + 3; ++x)
            if (isDefined(x, y) && isDefined(x + 1, y) && isDefined(x, y + 1) && isDefined(x + 1, y + 1))
                return true;
    return false;
}

} // namespace

TEST(TerrainValidation, NothingBelowATileWithHeightsIsFound) {
    const auto old = memoryTerrain(written(band(50, 50), 3));
    const SO<FunctionBand> finer(
        new FunctionBand(RasterGrid{60, 60, 10, 10, 0.25, 0.25}, FunctionBand::hills));
    const Rewriting merged(terrain, written(finer, 3, Light::None, old), false);
    unsigned changes = 0;
    for (const std::size_t block : merged.blocks)
        for (unsigned i = 0; i < 4; ++i) {
            if (get<std::uint32_t>(merged.bytes, block + 20) == 0) continue;
            if (get<std::uint32_t>(merged.bytes, block + 64 + 16 * i + 8) != 1) continue;
            Bytes bytes = merged.bytes;
            set(bytes, block + 64 + 16 * i + 8, 0U);
            const bool isFound =
                faults(bytes).find(std::to_string(block + 64 + 16 * i) + ": ") != std::string::npos;
            EXPECT_EQ(isFound, hasInnerCell(bytes, block, i)) << block << " " << i << "\n" << faults(bytes);
            changes += isFound ? 1 : 0;
        }
    EXPECT_GT(changes, 5U);
}

TEST(TerrainValidation, TheLastBlockHasItsZeros) {
    Bytes bytes = plain().bytes;
    bytes.resize(plain().blocks.back() + get<std::uint32_t>(bytes, 88 + 8));
    ASSERT_NE(bytes.size() % 16, 0U);
    set(bytes, 8, std::uint64_t(bytes.size()));
    EXPECT_EQ(faults(bytes), "8: the blocks do not end at a multiple of 16\n");
}

TEST(TerrainValidation, NothingBelowASingleCellIsFound) {
    const std::size_t root = plain().blocks.back();
    Bytes bytes = plain().bytes;
    std::fill_n(bytes.begin() + std::ptrdiff_t(root + 64), 16, std::uint8_t(0));
    const auto isTold = [&](unsigned x, unsigned y) {
        Bytes one = bytes;
        for (unsigned i = 0; i < 25; ++i)
            set(one, root + 128 + 2 * std::size_t(i % 5 + 9 * (i / 5)), std::uint16_t(0));
        for (const unsigned at : {x + 9 * y, x + 1 + 9 * y, x + 9 * y + 9, x + 10 + 9 * y})
            set(one, root + 128 + 2 * std::size_t(at), std::uint16_t(7));
        return faults(one).find("child 0 has nothing where the tile has heights") != std::string::npos;
    };
    // What touches the border of the quarter may stem from beyond.
    for (unsigned y = 0; y < 4; ++y)
        for (unsigned x = 0; x < 4; ++x)
            EXPECT_EQ(isTold(x, y), x > 0 && x < 3 && y > 0 && y < 3) << x << " " << y;
}

TEST(TerrainValidation, HeightsOutsideOfTheBoxAreFound) {
    // The boxes end in the middle of the square.
    const double none = FunctionBand::none;
    const struct {
        SO<FunctionBand> source;
        unsigned child;
    } cases[] = {
        {band(33, 13), 2},
        {band(13, 33), 1},
        {band(33, 33, [=](unsigned x, unsigned y) { return y < 20 ? none : FunctionBand::hills(x, y); }), 0},
        {band(33, 33, [=](unsigned x, unsigned y) { return x < 20 ? none : FunctionBand::hills(x, y); }), 2},
    };
    for (const auto & c : cases) {
        const Rewriting half(terrain, written(c.source, 3), false);
        Bytes bytes = half.bytes;
        const std::size_t ref = half.blocks.back() + 64 + 16 * std::size_t(c.child);
        ASSERT_EQ(get<std::uint32_t>(bytes, ref + 8), 0U);
        set(bytes, ref + 8, 1U);
        EXPECT_EQ(faults(bytes), std::to_string(ref) + ": the tile of depth 2 at 0, 0: child " +
                                     std::to_string(c.child) +
                                     " has heights outside of the box of the tile\n");
    }
}

TEST(TerrainValidation, DamagedBlocksAreFoundWhereTheyBegin) {
    const Rewriting packed(terrain, holed(), true);
    ASSERT_EQ(faults(packed.bytes), "");
    for (std::size_t i = 0; i < packed.blocks.size(); ++i) {
        Bytes bytes = packed.bytes;
        bytes[packed.blocks[i] + 40] ^= 0x10;
        const std::string expected = std::to_string(packed.blocks[i]) + ": the tile of depth ";
        EXPECT_EQ(faults(bytes).substr(0, expected.size()), expected) << faults(bytes);
        EXPECT_NE(faults(bytes).find("does not inflate to"), std::string::npos) << faults(bytes);
        // What lies below is not seen, and says nothing of the tiles above.
        EXPECT_EQ(report(bytes).faultCount, 1U) << faults(bytes);
    }
    // Sound streams of wrong contents.
    for (unsigned number = 0; number < packed.blocks.size(); ++number) {
        const Rewriting wrong(terrain, holed(), true,
                              [number](Bytes & block, unsigned i) { block[60] = i == number; });
        EXPECT_EQ(report(wrong.bytes).faultCount, 1U) << faults(wrong.bytes);
        EXPECT_EQ(report(wrong.bytes).faults.at(0).offset, wrong.blocks[number]);
    }
}

TEST(TerrainValidation, StoredSizesBehindTheEndOfABlockAreFound) {
    const Rewriting packed(terrain, holed(), true);
    Bytes bytes = packed.bytes;
    // One byte of the zeros behind it becomes a part of the block.
    std::size_t at = 88;
    set(bytes, 8, std::uint64_t(bytes.size() + 16));
    bytes.resize(bytes.size() + 16);
    const auto offset = get<std::uint64_t>(bytes, at);
    const auto size = get<std::uint32_t>(bytes, at + 12);
    set(bytes, at + 12, std::uint32_t(size + 1));
    const std::string expected =
        std::to_string(offset + size) +
        ": the tile of depth 2 at 0, 0: the block ends 1 bytes before its stored size\n";
    EXPECT_EQ(faults(bytes).substr(0, expected.size()), expected) << faults(bytes);
}

TEST(TerrainValidation, LightMapsAreHeldAgainstTheTerrain) {
    const Bytes lit = written(band(30, 21), 3, Light::Static);
    const auto base = get<std::uint64_t>(lit, 8);
    const Bytes light(lit.begin() + std::ptrdiff_t(base), lit.end());
    const auto withLight = [&](const Bytes & stream) {
        Bytes bytes(lit.begin(), lit.begin() + std::ptrdiff_t(base));
        bytes.insert(bytes.end(), stream.begin(), stream.end());
        return faults(bytes);
    };
    ASSERT_EQ(withLight(light), "");
    const std::string at = std::to_string(base) + ": ";
    // Of a larger terrain, and of one in another place.
    Bytes other = written(band(60, 40), 3, Light::Static);
    other.erase(other.begin(), other.begin() + std::ptrdiff_t(get<std::uint64_t>(other, 8)));
    EXPECT_NE(withLight(other).find(at + "the light map is not in the place of the terrain"),
              std::string::npos);
    EXPECT_NE(withLight(other).find(at + "the light map has "), std::string::npos) << withLight(other);
    // Each side of its root.
    const Rewriting open(texture, light, false);
    for (std::size_t side = 0; side < 4; ++side) {
        Bytes moved = open.bytes;
        const std::size_t number = open.blocks.back() + 64 + 8 * side;
        set(moved, number, get<double>(moved, number) + 0.01);
        EXPECT_EQ(withLight(moved), at + "the light map is not in the place of the terrain\n") << side;
    }
    // Pixels of another kind.
    const Rewriting alpha(texture, light, false, [](Bytes & block, unsigned) {
        set(block, 24, 4U);
        set(block, 16, get<std::uint32_t>(block, 16) / 2);
    });
    EXPECT_NE(withLight(alpha.bytes).find(at + "the light map has neither light nor normals"),
              std::string::npos);
    // What is no texture at all, and what is cut.
    EXPECT_EQ(withLight(Bytes(64)),
              std::to_string(base) + ": the file ends inside of the header of a streaming texture\n");
    EXPECT_EQ(withLight(Bytes(256)), at + "the magic is no \"ZMT-AQTT\"\n");
    Bytes changed = light;
    changed[9] ^= 1;
    EXPECT_NE(withLight(changed), "");
}

TEST(TerrainValidation, NoCutTerrainIsSound) {
    const Bytes lit = written(band(12, 9, FunctionBand::hillsWithHoles), 2, Light::Static);
    const auto base = get<std::uint64_t>(lit, 8);
    for (std::size_t size = 0; size < lit.size(); ++size) {
        const ValidationReport found = report(Bytes(lit.begin(), lit.begin() + std::ptrdiff_t(size)));
        // Without its light map it is whole as well.
        EXPECT_EQ(size == base, found.isSound()) << size << "\n" << text(found);
    }
    expectCutsFound(plain().bytes);
}

TEST(TerrainValidation, ChangesAtRandomEnd) {
    std::mt19937 random(3);
    const Bytes lit = written(band(20, 15, FunctionBand::hillsWithHoles), 2, Light::Static);
    for (int i = 0; i < 1000; ++i) {
        Bytes bytes = i % 2 ? lit : plain().bytes;
        for (unsigned changes = 1 + random() % 4; changes > 0; --changes)
            bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
        report(bytes);
    }
}

TEST(TerrainValidation, ReferencesInACircleEnd) {
    Bytes bytes = plain().bytes;
    // All children of all tiles are the root.
    for (const std::size_t block : plain().blocks)
        for (unsigned i = 0; i < 4; ++i)
            std::copy_n(bytes.begin() + 88, 16, bytes.begin() + std::ptrdiff_t(block + 64 + 16 * i));
    EXPECT_EQ(report(bytes).tiles, 1U);
    // All children are the first tile.
    bytes = plain().bytes;
    const std::size_t root = plain().blocks.back();
    for (const std::size_t block : plain().blocks)
        for (unsigned i = 0; i < 4 && block != root; ++i) {
            std::copy_n(bytes.begin() + 88, 16, bytes.begin() + std::ptrdiff_t(block + 64 + 16 * i));
            set(bytes, block + 64 + 16 * i, std::uint64_t(256));
        }
    EXPECT_LE(report(bytes).tiles, 6U);
}

TEST(TerrainValidation, ManyFaultsAreCounted) {
    const Bytes big = written(band(90, 90), 3);
    const Rewriting wrong(terrain, big, false, [](Bytes & block, unsigned) { block[60] = 1; });
    const ValidationReport found = report(wrong.bytes);
    EXPECT_EQ(found.faultCount, wrong.blocks.size());
    EXPECT_GT(found.faultCount, ValidationReport::mostFaults);
    EXPECT_EQ(found.faults.size(), ValidationReport::mostFaults);
    EXPECT_FALSE(found.isSound());
}
