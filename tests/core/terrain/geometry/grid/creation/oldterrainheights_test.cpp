// Terrains that are merged over older ones.

#include "core/terrain/geometry/grid/creation/oldterrainheights.h"

#include <cmath>
#include <filesystem>
#include <functional>

#include <gtest/gtest.h>

#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>

#include "../plainterrainfile.h"
#include "../scriptedfile.h"
#include "../writtenterrain.h"
#include <support/recordedreports.h>
#include <support/temporaryfolder.h>

namespace {

using namespace ZMT::CORE;
using namespace ZMT::CORE::GRID;
using NBX::SO;
using Bytes = std::vector<std::uint8_t>;

/// The old terrain: 33 by 33 points, 10 apart, from (1000, 2000) on, in tiles of 4 by 4 cells.
class OldTerrainHeightsTest : public testing::Test {
protected:
    static double oldCell(unsigned x, unsigned y) {
        return x > 28 && y > 28 ? double(FunctionBand::none) : FunctionBand::hills(x, y);
    }

    OldTerrainHeightsTest()
        : oldBytes(writtenTerrain(new FunctionBand({33, 33, 1000.0, 2000.0, 10.0, 10.0}, oldCell), 2)),
          oldTerrain(memoryTerrain(oldBytes)), oldPlain(oldBytes) {}

    Bytes merged(const SO<FunctionBand> & band, unsigned threads = 2) {
        GridTerrainCreation creation;
        creation.oldTerrain = oldTerrain;
        creation.threads = threads;
        return writtenTerrain(band, 7, creation);
    }
    static double height(const PlainTerrainFile & file, unsigned value) {
        return file.minHeight + (value - 1.0) * file.heightScale;
    }

    const TemporaryFolder folder;
    RecordedReports reports;
    const Bytes oldBytes;
    const SO<AsyncGridTerrain> oldTerrain;
    const PlainTerrainFile oldPlain;
};

TEST_F(OldTerrainHeightsTest, TheSquareAndTheLevelStayThoseOfTheOldOne) {
    const SO<FunctionBand> band(
        new FunctionBand({9, 9, 1080.0, 2080.0, 10.0, 10.0}, [](unsigned, unsigned) { return 20.0; }));
    const PlainTerrainFile file(merged(band));
    EXPECT_EQ(2U, file.level);
    EXPECT_EQ(3U, file.depth);
    EXPECT_EQ(10.0, file.cellSizeX);
    EXPECT_EQ(1000.0, file.originX);
    EXPECT_EQ(2000.0, file.originY);
    EXPECT_EQ(33U, file.sizeX);
    EXPECT_EQ(20.0, file.minHeight) << "wider than that of the old one";
    EXPECT_EQ((oldTerrain->geoBoundingBox().getURB().y - 20.0) / 65534, file.heightScale);
}

TEST_F(OldTerrainHeightsTest, AtTheSameResolutionTheNewOneWinsWhereItIsDefined) {
    // Points 8 to 16, with a hole in the middle.
    const auto cell = [](unsigned x, unsigned y) {
        return x >= 3 && x <= 5 && y == 4 ? double(FunctionBand::none) : 500.0 + x + 10.0 * y;
    };
    const SO<FunctionBand> band(new FunctionBand({9, 9, 1080.0, 2080.0, 10.0, 10.0}, cell));
    const Bytes bytes = merged(band);
    const PlainTerrainFile file(bytes);
    EXPECT_EQ(oldPlain.tiles.size(), file.tiles.size());
    for (const auto & [place, tile] : file.tiles) {
        const auto [d, x, y] = place;
        SCOPED_TRACE(testing::Message() << "depth " << d << " at " << x << " " << y);
        const PlainTerrainFile::Tile * const old = oldPlain.tile(d, x, y);
        ASSERT_TRUE(old);
        for (unsigned j = 0; j < 5; ++j)
            for (unsigned i = 0; i < 5; ++i) {
                const long px = (long(x) + i) << d, py = (long(y) + j) << d;
                const bool isInside = px >= 8 && px <= 16 && py >= 8 && py <= 16;
                const double own = isInside ? cell(unsigned(px - 8), unsigned(py - 8)) : NAN;
                const unsigned before = oldPlain.sample(*old, i, j);
                const unsigned value = file.sample(tile, i, j);
                const auto unit = [&file](double h) {
                    return unsigned((h - file.minHeight) / file.heightScale + 1.5);
                };
                if (!std::isnan(own)) {
                    EXPECT_EQ(unit(own), value) << i << j;
                } else if (before != 0) {
                    // Also where heights of the new one lie around.
                    EXPECT_EQ(unit(height(oldPlain, before)), value) << i << j;
                } else if (d == 0) {
                    EXPECT_EQ(0U, value) << i << j;
                }
            }
    }
    EXPECT_TRUE(bytes == merged(band, 1));
    EXPECT_TRUE(bytes == merged(band, 5));
    EXPECT_TRUE(reports.empty()) << reports;
}

/// Where the new band has a height, and elsewhere the old terrain, to a unit of both.
void expectHeights(const AsyncGridTerrain & terrain, const AsyncGridTerrain & old, const FunctionBand & band,
                   double step) {
    const double unit = terrain.grid2geoTf()(1, 2) + old.grid2geoTf()(1, 2);
    for (double y = 2000.0; y <= 2320.0; y += step)
        for (double x = 1000.0; x <= 1320.0; x += step) {
            const double column = (x - band.minX()) / band.cellSizeX(),
                         row = (y - band.minY()) / band.cellSizeY();
            float own = FunctionBand::none;
            if (column >= 0 && row >= 0 && column < band.cellsX() && row < band.cellsY() &&
                column == std::floor(column) && row == std::floor(row))
                band.read(unsigned(column), unsigned(row), 1, 1, &own);
            const bool isBetween = column > -1 && row > -1 && column < band.cellsX() && row < band.cellsY();
            const double height = terrain.calculateHeight({x, 0.0, y}, false);
            const double before = isBetween ? NAN : old.calculateHeight({x, 0.0, y}, false);
            if (own == own) {
                EXPECT_NEAR(own, height, unit) << x << " " << y;
            } else if (std::isfinite(before)) {
                EXPECT_NEAR(before, height, unit) << x << " " << y;
            }
        }
}

TEST_F(OldTerrainHeightsTest, FinerHeightsDivideTheTree) {
    const SO<FunctionBand> band(new FunctionBand(
        {41, 33, 1085.0, 2100.0, 2.5, 2.5}, [](unsigned x, unsigned y) { return 300.0 + x * 2.0 + y % 5; }));
    const Bytes bytes = merged(band);
    const PlainTerrainFile file(bytes);
    EXPECT_EQ(5U, file.depth);
    EXPECT_EQ(2.5, file.cellSizeX);
    EXPECT_EQ(33U * 4 - 3, file.sizeX);
    const SO<AsyncGridTerrain> terrain = memoryTerrain(bytes);
    ASSERT_TRUE(terrain);
    expectHeights(*terrain, *oldTerrain, *band, 2.5);
    // Far from the band there is nothing finer than the old heights.
    EXPECT_TRUE(file.tile(2, 0, 0));
    EXPECT_FALSE(file.tile(1, 0, 0));
    EXPECT_TRUE(file.tile(0, 36, 44)) << "in the band";
    const PlainTerrainFile::Tile * const far = file.tile(2, 0, 0);
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_EQ(1U, far->children[i].rawSize);
    EXPECT_TRUE(bytes == merged(band, 1));
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(OldTerrainHeightsTest, CoarserHeightsHideTheFinerOnesBelow) {
    const SO<FunctionBand> band(new FunctionBand(
        {6, 6, 1080.0, 2080.0, 40.0, 40.0}, [](unsigned x, unsigned y) { return 700.0 + 30 * x + y % 3; }));
    const Bytes bytes = merged(band);
    const PlainTerrainFile file(bytes);
    EXPECT_EQ(3U, file.depth);
    EXPECT_EQ(10.0, file.cellSizeX);
    // Cells 8 to 28 are the band's. At depth 2 it has heights of its own, below it has none.
    const PlainTerrainFile::Tile * const quarter = file.tile(2, 4, 4);
    ASSERT_TRUE(quarter);
    const PlainTerrainFile::Tile * const inside = file.tile(2, 0, 0);
    ASSERT_TRUE(inside);
    EXPECT_EQ(1U, inside->children[3].rawSize) << "wholly inside of the band";
    EXPECT_FALSE(file.tile(1, 4, 4));
    EXPECT_TRUE(file.isCompact) << "and nothing is written that nobody refers to";
    EXPECT_LT(1U, inside->children[0].rawSize) << "the old one's";
    EXPECT_TRUE(file.tile(0, 0, 0));
    const SO<AsyncGridTerrain> terrain = memoryTerrain(bytes);
    expectHeights(*terrain, *oldTerrain, *band, 10.0);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(OldTerrainHeightsTest, AFinerHeightAloneIsNotLost) {
    // At an odd point, so that the old heights are what the coarser levels have there.
    const SO<FunctionBand> band(
        new FunctionBand({41, 33, 1080.0, 2100.0, 2.5, 2.5}, [](unsigned x, unsigned y) {
            return x == 13 && y == 11 ? 900.0 : double(FunctionBand::none);
        }));
    const Bytes bytes = merged(band);
    EXPECT_TRUE(PlainTerrainFile(bytes).isCompact);
    const SO<AsyncGridTerrain> terrain = memoryTerrain(bytes);
    ASSERT_TRUE(terrain);
    EXPECT_NEAR(900.0, terrain->calculateHeight({1112.5, 0.0, 2127.5}, false), 0.1);
    expectHeights(*terrain, *oldTerrain, *band, 2.5);
}

TEST_F(OldTerrainHeightsTest, AnOldHeightInAHoleOfCoarserOnesIsNotLost) {
    // The hole has one point of the finest level, and none of the coarser ones.
    const auto cell = [](unsigned x, unsigned y) {
        return x == 2 && y == 2 ? double(FunctionBand::none) : 700.0 + 30 * x + y % 3;
    };
    const SO<FunctionBand> band(new FunctionBand({6, 6, 1090.0, 2090.0, 40.0, 40.0}, cell));
    const Bytes bytes = merged(band);
    EXPECT_TRUE(PlainTerrainFile(bytes).isCompact);
    const SO<AsyncGridTerrain> terrain = memoryTerrain(bytes);
    ASSERT_TRUE(terrain);
    EXPECT_NEAR(FunctionBand::hills(17, 17), terrain->calculateHeight({1170.0, 0.0, 2170.0}, false), 0.1);
}

TEST_F(OldTerrainHeightsTest, TilesOfSingleCellsAreAllThere) {
    GridTerrainCreation creation;
    creation.oldTerrain = memoryTerrain(
        writtenTerrain(new FunctionBand({17, 2, 1000.0, 2000.0, 10.0, 10.0}, FunctionBand::hills), 7));
    const SO<FunctionBand> band(
        new FunctionBand({9, 3, 1040.0, 2000.0, 2.5, 2.5}, [](unsigned, unsigned) { return 300.0; }));
    const PlainTerrainFile file(writtenTerrain(band, 7, creation));
    EXPECT_EQ(0U, file.level);
    for (const auto & [place, tile] : file.tiles)
        for (const PlainTerrainFile::Ref & child : tile.children)
            EXPECT_NE(1U, child.rawSize) << "could not be drawn";
}

TEST_F(OldTerrainHeightsTest, ATerrainThatIsMergedWithItselfStaysTheSame) {
    const SO<FunctionBand> band(new FunctionBand({33, 33, 1000.0, 2000.0, 10.0, 10.0}, oldCell));
    const PlainTerrainFile file(merged(band));
    ASSERT_EQ(oldPlain.tiles.size(), file.tiles.size());
    for (const auto & [place, tile] : oldPlain.tiles)
        EXPECT_EQ(tile.values, file.tiles.at(place).values);
}

TEST_F(OldTerrainHeightsTest, HolesOfTheOldOneStayHoles) {
    // A tile of the hole has nothing, though the samples of the one above reach to its border.
    const auto cell = [](unsigned x, unsigned y) {
        return x >= 16 && y >= 16 ? double(FunctionBand::none) : FunctionBand::hills(x, y);
    };
    GridTerrainCreation creation;
    creation.oldTerrain =
        memoryTerrain(writtenTerrain(new FunctionBand({33, 33, 1000.0, 2000.0, 10.0, 10.0}, cell), 2));
    const SO<FunctionBand> band(
        new FunctionBand({9, 9, 1020.0, 2020.0, 2.5, 2.5}, [](unsigned, unsigned) { return 300.0; }));
    const SO<AsyncGridTerrain> terrain = memoryTerrain(writtenTerrain(band, 7, creation));
    for (double at = 1162.5; at <= 1320.0; at += 2.5)
        EXPECT_TRUE(terrain->hasUndefinedHeight({at, 0.0, at + 1000.0}, false)) << at;
    EXPECT_FALSE(terrain->hasUndefinedHeight({1150.0, 0.0, 2150.0}, false));
}

TEST_F(OldTerrainHeightsTest, APointBetweenTwoTilesIsInBoth) {
    const auto cell = [](unsigned x, unsigned y) {
        return x < 24 || y < 24 ? double(FunctionBand::none) : FunctionBand::hills(x, y);
    };
    GridTerrainCreation creation;
    creation.oldTerrain =
        memoryTerrain(writtenTerrain(new FunctionBand({33, 33, 1000.0, 2000.0, 10.0, 10.0}, cell), 2));
    const SO<FunctionBand> band(new FunctionBand({5, 5, 1080.0, 2120.0, 10.0, 10.0}, FunctionBand::hills));
    const PlainTerrainFile file(writtenTerrain(band, 7, creation));
    for (const auto & [x, y] : {std::pair(4U, 12U), {8U, 8U}, {4U, 8U}, {8U, 12U}, {12U, 16U}})
        EXPECT_TRUE(file.tile(0, x, y)) << x << " " << y;
}

TEST_F(OldTerrainHeightsTest, RastersOutsideAreRefused) {
    GridTerrainCreation creation;
    creation.oldTerrain = oldTerrain;
    const std::wstring path =
        NBX::StringUtils::Utf8String2WString(std::string(std::getenv("TMPDIR")) + "/a.ztt");
    std::wstring problem;
    const SO<FunctionBand> beside(new FunctionBand({9, 9, 1330.0, 2000.0, 10.0, 10.0}, FunctionBand::hills));
    EXPECT_FALSE(creation.run(path, beside, &problem));
    EXPECT_NE(std::wstring::npos, problem.find(L"outside"));
    EXPECT_TRUE(folder.isEmpty());
    EXPECT_EQ(1.0, GridTerrainCreation::shareOutside(beside->grid(), *oldTerrain));
    const auto share = [&](double minX, double minY) {
        return GridTerrainCreation::shareOutside({10, 10, minX, minY, 10.0, 10.0}, *oldTerrain);
    };
    EXPECT_EQ(0.0, share(1000.0, 2000.0));
    EXPECT_EQ(0.0, share(1230.0, 2230.0));
    EXPECT_NEAR(0.5, share(950.0, 2000.0), 1e-12);
    EXPECT_NEAR(0.75, share(1280.0, 1950.0), 1e-12);
}

TEST_F(OldTerrainHeightsTest, RastersPartlyOutsideAreCut) {
    const SO<FunctionBand> band(new FunctionBand(
        {20, 20, 950.0, 1900.0, 10.0, 10.0}, [](unsigned x, unsigned y) { return 200.0 + x + 20.0 * y; }));
    const SO<AsyncGridTerrain> terrain = memoryTerrain(merged(band));
    ASSERT_TRUE(terrain);
    expectHeights(*terrain, *oldTerrain, *band, 10.0);
}

TEST_F(OldTerrainHeightsTest, AnOldTerrainThatCannotBeReadEndsIt) {
    Bytes damaged = oldBytes;
    damaged[oldPlain.tile(0, 16, 16)->ref.offset + 5] ^= 0x40;
    GridTerrainCreation creation;
    creation.oldTerrain = memoryTerrain(damaged);
    const std::wstring path =
        NBX::StringUtils::Utf8String2WString(std::string(std::getenv("TMPDIR")) + "/a.ztt");
    std::wstring problem;
    const SO<FunctionBand> band(new FunctionBand({9, 9, 1080.0, 2080.0, 10.0, 10.0}, FunctionBand::hills));
    EXPECT_FALSE(creation.run(path, band, &problem));
    EXPECT_NE(std::wstring::npos, problem.find(L"old terrain"));
    EXPECT_TRUE(folder.isEmpty());
}

TEST_F(OldTerrainHeightsTest, TilesThatWerePassedAreLetGo) {
    const OldTerrainHeights old(oldTerrain, 0);
    const auto lookAt = [&old](std::uint32_t x, std::uint32_t y) { return old.tileAt({2, 0, x, y}).data; };
    const SO<GridTerrainTileData> data = lookAt(4, 8);
    ASSERT_TRUE(data);
    const NBX::WO<GridTerrainTile> tile = oldTerrain->rootTile()->child(0, true);
    for (unsigned i = 1; i < OldTerrainHeights::s_tilesKept; ++i)
        lookAt(16, 16);
    EXPECT_TRUE(tile);
    lookAt(16, 16);
    EXPECT_FALSE(tile);
    const SO<GridTerrainTileData> again = lookAt(4, 8);
    ASSERT_TRUE(again);
    EXPECT_EQ(data->value(1, 2), again->value(1, 2));
}

TEST_F(OldTerrainHeightsTest, TooManyHalvingsAreTooMuch) {
    GridTerrainCreation creation;
    creation.oldTerrain = oldTerrain;
    const std::wstring path =
        NBX::StringUtils::Utf8String2WString(std::string(std::getenv("TMPDIR")) + "/a.ztt");
    const SO<FunctionBand> band(new FunctionBand({9, 9, 1080.0, 2080.0, 1e-8, 1e-8}, FunctionBand::hills));
    EXPECT_FALSE(creation.run(path, band));
    EXPECT_EQ(1U, reports.count(2, L"false", L"The terrain extent is too large."));
}

} // namespace
