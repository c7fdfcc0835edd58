#include <zmt/core/terrain/geometry/grid/gridterraincreation.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <random>

#include <gdal.h>
#include <gtest/gtest.h>

#include <nbx/data/file.h>
#include <nbx/object/progress.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/terrain/geometry/grid/asyncgridterrain.h>
#include <zmt/core/terrain/texture/terraintexture.h>
#include <zmt/raster/gdal/rasterfile.h>

#include <support/cancelingdisplay.h>
#include <support/recordedreports.h>
#include <support/temporaryfolder.h>

#include "functionband.h"
#include "plainterrainfile.h"

namespace {

using namespace ZMT::CORE::GRID;
using NBX::SO;
using Resampling = GridTerrainCreation::Resampling;
using ZMT::RASTER::RasterGrid;

/// The heights of a level by its definition: point by point, from all points of the level below.
class PlainLevels {
public:
    PlainLevels(unsigned cellsX, unsigned cellsY, const FunctionBand::Cell & cell, Resampling resampling)
        : resampling_(resampling) {
        Level & finest = levels_.emplace_back();
        for (unsigned y = 0; y < cellsY; ++y)
            for (unsigned x = 0; x < cellsX; ++x) {
                const float height = static_cast<float>(cell(x, y));
                if (std::isnan(height)) continue;
                finest[{x, y}] = height;
                low = std::min<double>(low, height);
                high = std::max<double>(high, height);
            }
    }

    std::optional<float> at(unsigned depth, long x, long y) {
        while (levels_.size() <= depth)
            addLevel();
        const auto found = levels_[depth].find({x, y});
        return found == levels_[depth].end() ? std::nullopt : std::optional<float>(found->second);
    }

    double low = 1e300, high = -1e300;

private:
    using Level = std::map<std::pair<long, long>, float>;

    void addLevel() {
        const Level & below = levels_.back();
        Level level;
        for (const auto & [place, height] : below)
            for (long y = place.second / 2; y <= (place.second + 1) / 2; ++y)
                for (long x = place.first / 2; x <= (place.first + 1) / 2; ++x)
                    level[{x, y}] = point(below, 2 * x, 2 * y);
        levels_.push_back(level);
    }
    float point(const Level & below, long x, long y) const {
        double sum = 0.0, weights = 0.0;
        for (const auto & [dx, dy] : std::vector<std::pair<long, long>>{
                 {0, 0}, {-1, 0}, {1, 0}, {0, -1}, {0, 1}, {-1, -1}, {1, -1}, {-1, 1}, {1, 1}}) {
            const auto found = below.find({x + dx, y + dy});
            if (found == below.end()) continue;
            if (resampling_ == Resampling::Nearest) return found->second;
            const double weight = (dx == 0 ? 2 : 1) * (dy == 0 ? 2 : 1);
            sum += found->second * weight;
            weights += weight;
        }
        return static_cast<float>(sum / weights);
    }

    Resampling resampling_;
    std::vector<Level> levels_;
};

class GridTerrainCreationTest : public testing::Test {
protected:
    std::wstring path(const std::string & name = "a.ztt") const {
        return NBX::StringUtils::Utf8String2WString(std::string(std::getenv("TMPDIR")) + "/" + name);
    }
    std::vector<std::uint8_t> bytes(const std::string & name = "a.ztt") const {
        return NBX::File::contents(NBX::StringUtils::WString2Utf8String(path(name)));
    }
    std::vector<std::uint8_t> write(const SO<ZMT::RASTER::RasterBand> & band, unsigned level = 2) {
        creation.level = level;
        EXPECT_TRUE(creation.run(path(), band));
        return bytes();
    }

    /// Every tile that there should be is there, with every sample, border and box, and no other.
    void compare(const PlainTerrainFile & file, unsigned cellsX, unsigned cellsY,
                 const FunctionBand::Cell & cell);

    const TemporaryFolder folder;
    RecordedReports reports;
    GridTerrainCreation creation;
};

/// A tile as the definition has it.
struct Expected {
    std::vector<std::uint16_t> values;
    std::array<std::uint32_t, 3> min{UINT32_MAX, UINT32_MAX, UINT32_MAX}, max{0, 0, 0};
    bool isDefined = false;
};

void GridTerrainCreationTest::compare(const PlainTerrainFile & file, unsigned cellsX, unsigned cellsY,
                                      const FunctionBand::Cell & cell) {
    PlainLevels levels(cellsX, cellsY, cell, creation.resampling);
    EXPECT_EQ(levels.low, file.minHeight);
    EXPECT_EQ(levels.high > levels.low ? (levels.high - levels.low) / 65534 : 1.0, file.heightScale);
    const auto value = [&](unsigned d, unsigned x, unsigned y) -> unsigned {
        const std::optional<float> height = levels.at(d, x, y);
        return height ? static_cast<unsigned>((*height - file.minHeight) / file.heightScale + 1.5) : 0;
    };
    const unsigned n = 1U << file.level;
    std::map<PlainTerrainFile::Place, Expected> all;
    for (unsigned d = 0; d <= file.depth; ++d)
        for (unsigned ty = 0; ty * n << d < cellsY; ++ty)
            for (unsigned tx = 0; tx * n << d < cellsX; ++tx) {
                if ((tx | ty) >> (file.depth - d) != 0) continue;
                Expected tile;
                for (unsigned y = 0; y <= n; ++y)
                    for (unsigned x = 0; x <= n; ++x) {
                        const unsigned v = value(d, tx * n + x, ty * n + y);
                        if (v == 0) continue;
                        tile.isDefined = true;
                        const unsigned low[3] = {(tx * n + (x > 0 ? x - 1 : 0)) << d,
                                                 (ty * n + (y > 0 ? y - 1 : 0)) << d, v};
                        const unsigned high[3] = {(tx * n + std::min(x + 1, n)) << d,
                                                  (ty * n + std::min(y + 1, n)) << d, v};
                        for (unsigned i = 0; i < 3; ++i) {
                            tile.min[i] = std::min(tile.min[i], low[i]);
                            tile.max[i] = std::max(tile.max[i], high[i]);
                        }
                    }
                bool hasChild = d == 0;
                for (unsigned i = 0; d > 0 && i < 4; ++i) {
                    const Expected & child = all[{d - 1, (2 * tx + i % 2) * n, (2 * ty + i / 2) * n}];
                    if (!child.isDefined) continue;
                    hasChild = true;
                    for (unsigned j = 0; j < 3; ++j) {
                        tile.min[j] = std::min(tile.min[j], child.min[j]);
                        tile.max[j] = std::max(tile.max[j], child.max[j]);
                    }
                }
                tile.isDefined &= hasChild;
                all[{d, tx * n, ty * n}] = tile;
            }

    std::size_t defined = 0;
    for (const auto & [place, tile] : all) {
        const auto [d, x, y] = place;
        defined += tile.isDefined;
        SCOPED_TRACE(testing::Message() << "depth " << d << " at " << x << " " << y);
        const PlainTerrainFile::Tile * const found = file.tile(d, x, y);
        ASSERT_EQ(tile.isDefined, found != nullptr);
        if (!found) continue;
        EXPECT_EQ(tile.min, found->min);
        EXPECT_EQ(tile.max, found->max);
        for (unsigned j = 0; j <= n; ++j)
            for (unsigned i = 0; i <= n; ++i)
                ASSERT_EQ(value(d, x + i, y + j), file.sample(*found, i, j)) << i << " " << j;
        for (unsigned k = 0; k < file.level; ++k)
            for (unsigned i = 0; i <= n >> k; ++i) {
                const auto above = [&](unsigned column, unsigned row) {
                    return d + k > file.depth ? 0 : value(d + k, column >> k, row >> k);
                };
                ASSERT_EQ(above(x, y + (i << k)), file.border(*found, 0, k, i)) << k << " " << i;
                ASSERT_EQ(above(x + (i << k), y), file.border(*found, 1, k, i)) << k << " " << i;
                ASSERT_EQ(above(x + n, y + (i << k)), file.border(*found, 2, k, i)) << k << " " << i;
                ASSERT_EQ(above(x + (i << k), y + n), file.border(*found, 3, k, i)) << k << " " << i;
            }
    }
    EXPECT_EQ(defined, file.tiles.size());
    EXPECT_TRUE(file.isCompact);
    const PlainTerrainFile::Tile * const root = file.tile(file.depth, 0, 0);
    EXPECT_EQ(root->max[0] + 1, file.sizeX);
    EXPECT_EQ(root->max[1] + 1, file.sizeY);
    // The root stands last.
    EXPECT_EQ(file.dataSize, (file.root.offset + file.root.storedSize + 15) / 16 * 16);
}

TEST_F(GridTerrainCreationTest, HeaderSaysHowTheTreeLies) {
    const PlainTerrainFile file(
        write(new FunctionBand({20, 11, 1000.5, -200.0, 2.0, 3.0},
                               [](unsigned x, unsigned y) { return 50.0 + x + 100.0 * (y == 10); })));
    EXPECT_EQ(2U, file.level);
    EXPECT_EQ(3U, file.depth) << "17 points are too few";
    EXPECT_EQ(1000.5, file.originX);
    EXPECT_EQ(-200.0, file.originY);
    EXPECT_EQ(2.0, file.cellSizeX);
    EXPECT_EQ(3.0, file.cellSizeY);
    EXPECT_EQ(50.0, file.minHeight);
    EXPECT_EQ(119.0 / 65534, file.heightScale);
    EXPECT_EQ(file.dataSize, file.bytes.size());
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(GridTerrainCreationTest, TreesAreAsDeepAsTheLargerSideAsks) {
    const struct {
        unsigned cellsX, cellsY, wanted, level, depth;
    } cases[] = {{5, 5, 7, 2, 0},     {5, 6, 7, 2, 1},     {4, 5, 7, 1, 1},   {3, 3, 7, 1, 0},
                 {2, 2, 7, 0, 0},     {2, 9, 7, 0, 3},     {9, 3, 7, 1, 2},   {129, 129, 7, 7, 0},
                 {130, 129, 7, 7, 1}, {128, 400, 7, 6, 3}, {65, 65, 3, 3, 3}, {66, 65, 3, 3, 4},
                 {300, 300, 9, 7, 2}};
    for (const auto & c : cases) {
        const PlainTerrainFile file(
            write(new FunctionBand(c.cellsX, c.cellsY, FunctionBand::hills), c.wanted));
        EXPECT_EQ(c.level, file.level) << c.cellsX << " " << c.cellsY;
        EXPECT_EQ(c.depth, file.depth) << c.cellsX << " " << c.cellsY;
    }
}

TEST_F(GridTerrainCreationTest, EverySampleBorderAndBoxIsThatOfTheRaster) {
    const struct {
        unsigned cellsX, cellsY, level;
    } sizes[] = {{5, 5, 2},   {9, 9, 2}, {10, 10, 2}, {33, 17, 2}, {50, 41, 3},
                 {64, 70, 1}, {2, 7, 7}, {3, 5, 1},   {40, 40, 4}, {133, 140, 5}};
    for (const Resampling resampling : {Resampling::Nearest, Resampling::Average})
        for (const auto & size : sizes)
            for (const bool hasHoles : {false, true}) {
                SCOPED_TRACE(testing::Message() << size.cellsX << " " << size.cellsY << " " << hasHoles);
                const FunctionBand::Cell cell = hasHoles ? FunctionBand::hillsWithHoles : FunctionBand::hills;
                creation.resampling = resampling;
                const PlainTerrainFile file(
                    write(new FunctionBand(size.cellsX, size.cellsY, cell), size.level));
                compare(file, size.cellsX, size.cellsY, cell);
            }
}

TEST_F(GridTerrainCreationTest, SparseHeightsAtRandomAreAllThere) {
    std::mt19937 random(4);
    for (int round = 0; round < 30; ++round) {
        const unsigned cellsX = 2 + random() % 60, cellsY = 2 + random() % 60, parts = 2 + random() % 200;
        const unsigned seed = random();
        const auto cell = [seed, parts](unsigned x, unsigned y) -> double {
            std::minstd_rand mixed(seed + x * 7919 + y * 104729);
            mixed.discard(3);
            return mixed() % parts == 0 ? double(mixed() % 1000) : FunctionBand::none;
        };
        SCOPED_TRACE(testing::Message() << "round " << round);
        const SO<FunctionBand> band(new FunctionBand(cellsX, cellsY, cell));
        if (std::isnan(band->minValue())) continue;
        compare(PlainTerrainFile(write(band, 1 + random() % 4)), cellsX, cellsY, cell);
    }
}

TEST_F(GridTerrainCreationTest, RowsOfMoreTilesThanFitAtOnceAreWhole) {
    const auto cell = [](unsigned x, unsigned y) {
        return x % 7 == 3 && y == 2 ? double(FunctionBand::none) : FunctionBand::hills(x, y);
    };
    // The second one has a tile left over at depth 1.
    for (const unsigned width : {1100U, 1027U})
        compare(PlainTerrainFile(write(new FunctionBand(width, 5, cell), 1)), width, 5, cell);
}

/// The heights of a raster as GDAL reads them, the southern row first, without those that it says are none.
class PlainRaster {
public:
    explicit PlainRaster(const std::string & path) {
        GDALAllRegister();
        const GDALDatasetH file = GDALOpen(path.c_str(), GA_ReadOnly);
        EXPECT_TRUE(file) << path;
        width = static_cast<unsigned>(GDALGetRasterXSize(file));
        height = static_cast<unsigned>(GDALGetRasterYSize(file));
        double place[6];
        EXPECT_EQ(CE_None, GDALGetGeoTransform(file, place));
        cellX = place[1], cellY = -place[5];
        minX = place[0] + 0.5 * cellX, minY = place[3] - (height - 0.5) * cellY;
        const GDALRasterBandH band = GDALGetRasterBand(file, 1);
        noData = GDALGetRasterNoDataValue(band, nullptr);
        std::vector<float> rows(std::size_t(width) * height);
        const int w = int(width), h = int(height);
        EXPECT_EQ(CE_None, GDALRasterIO(band, GF_Read, 0, 0, w, h, rows.data(), w, h, GDT_Float32, 0, 0));
        cells_ = rows;
        GDALClose(file);
    }
    double at(unsigned x, unsigned y) const {
        const float cell = cells_[x + std::size_t(height - 1 - y) * width];
        return cell == noData ? double(FunctionBand::none) : cell;
    }

    unsigned width, height;
    double minX, minY, cellX, cellY, noData; ///< of the middle of the south-western cell

private:
    std::vector<float> cells_;
};

TEST_F(GridTerrainCreationTest, EverySampleAndBorderOfARasterWithVoidsIsThatOfAnotherReader) {
    const std::string raster = std::string(std::getenv("ZMT_TEST_DATA")) + "/everest_30m_heights.tif";
    const PlainRaster plain(raster);
    unsigned voids = 0;
    for (unsigned y = 0; y < plain.height; ++y)
        for (unsigned x = 0; x < plain.width; ++x)
            voids += std::isnan(plain.at(x, y));
    ASSERT_LT(10U, voids);
    ASSERT_GT(plain.width * plain.height / 2, voids);
    for (const Resampling resampling : {Resampling::Nearest, Resampling::Average}) {
        creation.resampling = resampling;
        const PlainTerrainFile file(write(ZMT::RASTER::RasterFile(raster).band(), 4));
        EXPECT_EQ(4U, file.level);
        EXPECT_EQ(plain.cellX, file.cellSizeX);
        EXPECT_EQ(plain.cellY, file.cellSizeY);
        EXPECT_EQ(plain.minX, file.originX);
        EXPECT_EQ(plain.minY, file.originY);
        compare(file, plain.width, plain.height, [&](unsigned x, unsigned y) { return plain.at(x, y); });
    }
}

TEST_F(GridTerrainCreationTest, WhatAFileSaysOfItsRangeIsNotTrusted) {
    const std::string source = std::string(std::getenv("ZMT_TEST_DATA")) + "/everest_30m_heights.tif";
    const std::vector<std::uint8_t> right = write(ZMT::RASTER::RasterFile(source).band(), 4);
    GDALAllRegister();
    // In the file, and in one that stands beside it.
    for (const GDALAccess access : {GA_Update, GA_ReadOnly}) {
        const std::string raster =
            std::string(std::getenv("TMPDIR")) + (access == GA_Update ? "/inside.tif" : "/beside.tif");
        std::filesystem::copy_file(source, raster);
        const GDALDatasetH file = GDALOpen(raster.c_str(), access);
        ASSERT_EQ(CE_None, GDALSetRasterStatistics(GDALGetRasterBand(file, 1), 6000.0, 6001.0, 6000.5, 0.1));
        GDALClose(file);
        ASSERT_EQ(access == GA_ReadOnly, std::filesystem::exists(raster + ".aux.xml"));
        const auto band = ZMT::RASTER::RasterFile(raster).band();
        EXPECT_TRUE(right == write(band, 4));
        EXPECT_NE(6000.0, band->minValue());
    }
}

TEST_F(GridTerrainCreationTest, FlatGroundHasStepsOfOne) {
    const PlainTerrainFile file(write(new FunctionBand(9, 9, [](unsigned, unsigned) { return 7.25; })));
    EXPECT_EQ(7.25, file.minHeight);
    EXPECT_EQ(1.0, file.heightScale);
    for (const auto & [place, tile] : file.tiles)
        EXPECT_TRUE(
            std::all_of(tile.values.begin(), tile.values.begin() + 25, [](auto v) { return v == 1; }));
}

TEST_F(GridTerrainCreationTest, HeightsReachFromTheFirstUnitToTheLast) {
    const auto cell = [](unsigned x, unsigned y) { return -1e30 + 2e30 * ((x + y) % 2); };
    const PlainTerrainFile file(write(new FunctionBand(5, 5, cell)));
    const PlainTerrainFile::Tile & root = *file.tile(0, 0, 0);
    for (unsigned y = 0; y < 5; ++y)
        for (unsigned x = 0; x < 5; ++x)
            EXPECT_EQ((x + y) % 2 ? 65535U : 1U, file.sample(root, x, y));
    EXPECT_EQ((std::array<std::uint32_t, 3>{0, 0, 1}), root.min);
    EXPECT_EQ((std::array<std::uint32_t, 3>{4, 4, 65535}), root.max);
}

TEST_F(GridTerrainCreationTest, InfiniteHeightsAreNone) {
    const auto cell = [](unsigned x, unsigned y) {
        return x == y ? HUGE_VAL : x + 1 == y ? -HUGE_VAL : 5.0 + x;
    };
    const PlainTerrainFile file(write(new FunctionBand(9, 9, cell)));
    EXPECT_EQ(5.0, file.minHeight);
    EXPECT_EQ(0U, file.sample(*file.tile(0, 0, 0), 2, 2));
    EXPECT_EQ(0U, file.sample(*file.tile(0, 4, 4), 1, 2));
}

TEST_F(GridTerrainCreationTest, AnUndefinedQuarterHasNoReference) {
    const auto cell = [](unsigned x, unsigned y) {
        return x >= 8 && y >= 8 ? double(FunctionBand::none) : FunctionBand::hills(x, y);
    };
    const PlainTerrainFile file(write(new FunctionBand(17, 17, cell)));
    const PlainTerrainFile::Tile & root = *file.tile(2, 0, 0);
    EXPECT_EQ(0U, root.children[3].rawSize);
    EXPECT_EQ(0U, root.children[3].offset);
    EXPECT_EQ(0U, root.children[3].storedSize);
    for (unsigned i = 0; i < 3; ++i)
        EXPECT_LT(1U, root.children[i].rawSize) << i;
    EXPECT_EQ(1U + 3U + 12U, file.tiles.size());
}

TEST_F(GridTerrainCreationTest, IslandsOfOneCellFarApartAreAllThere) {
    constexpr unsigned apart = 5000;
    const auto cell = [](unsigned x, unsigned y) {
        return x % apart == 3 && y % apart == 4997 ? 100.0 + x + y : double(FunctionBand::none);
    };
    const PlainTerrainFile file(write(new FunctionBand(10010, 5003, cell), 7));
    for (const unsigned x : {3U, 5003U, 10003U}) {
        const PlainTerrainFile::Tile * const tile = file.tile(0, x / 128 * 128, 4997 / 128 * 128);
        ASSERT_TRUE(tile) << x;
        EXPECT_NE(0U, file.sample(*tile, x % 128, 4997 % 128));
        // And at every level above.
        for (unsigned d = 1; d <= file.depth; ++d) {
            const unsigned column = (x >> d) / 128 * 128, row = (4997 >> d) / 128 * 128;
            ASSERT_TRUE(file.tile(d, column, row)) << d;
            EXPECT_NE(0U, file.sample(*file.tile(d, column, row), (x >> d) - column, (4997 >> d) - row)) << d;
        }
    }
}

TEST_F(GridTerrainCreationTest, BytesDoNotDependOnTheNumberOfThreads) {
    const SO<FunctionBand> band(new FunctionBand(200, 150, FunctionBand::hillsWithHoles));
    creation.threads = 1;
    const std::vector<std::uint8_t> expected = write(band, 3);
    for (const unsigned threads : {2U, 3U, 8U, 0U}) {
        creation.threads = threads;
        EXPECT_TRUE(expected == write(band, 3)) << threads;
    }
}

TEST_F(GridTerrainCreationTest, TheRasterIsReadTwice) {
    const SO<FunctionBand> band(new FunctionBand(1500, 1300, FunctionBand::hills));
    write(band, 7);
    EXPECT_GT(1500U * 1300 * 2 * 1.01, band->cellsRead) << "rows between tiles are read once more";
}

TEST_F(GridTerrainCreationTest, WhatDoesNotDeflateWellIsStoredPlain) {
    std::mt19937 random(9);
    std::vector<double> noise(129 * 129);
    for (double & value : noise)
        value = random() % 65535;
    const auto cell = [&noise](unsigned x, unsigned y) { return x <= 64 ? noise[x + 129 * y] : 0.0; };
    const PlainTerrainFile file(write(new FunctionBand(129, 129, cell), 6));
    const PlainTerrainFile::Ref noisy = file.tile(0, 0, 0)->ref, calm = file.tile(0, 64, 64)->ref;
    EXPECT_EQ(noisy.rawSize, noisy.storedSize);
    EXPECT_GT(calm.rawSize, 2 * calm.storedSize);
}

TEST_F(GridTerrainCreationTest, ProgressCountsAllTilesThatThereMayBe) {
    struct Display : NBX::ProgressDisplay {
        void begin(const NBX::Progress & progress) override {
            titles.push_back(progress.title());
            last = 0.0;
        }
        bool update(const NBX::Progress & progress) override {
            isGrowing &= progress.currentValue() >= last;
            last = progress.currentValue();
            return true;
        }
        void end(const NBX::Progress & progress) override {
            totals.push_back(progress.totalValue());
            EXPECT_EQ(progress.totalValue(), progress.currentValue());
        }
        std::vector<std::string> titles;
        std::vector<double> totals;
        double last = 0.0;
        bool isGrowing = true;
    } display;
    NBX::Progress::setDisplay(&display);
    write(new FunctionBand(17, 17, FunctionBand::hills));
    NBX::Progress::setDisplay(nullptr);
    ASSERT_EQ(2U, display.titles.size());
    EXPECT_EQ("creating terrain LOD", display.titles[1]);
    EXPECT_EQ(21.0, display.totals[1]);
    EXPECT_TRUE(display.isGrowing);
}

TEST_F(GridTerrainCreationTest, ACancelledTerrainLeavesNothing) {
    const CancelingDisplay display;
    std::wstring problem;
    EXPECT_FALSE(creation.run(path(), new FunctionBand(300, 300, FunctionBand::hills), &problem));
    EXPECT_TRUE(folder.isEmpty());
    EXPECT_TRUE(problem.empty());
    EXPECT_FALSE(creation.run(path(), new FunctionBand(300, 300, FunctionBand::hills)));
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(GridTerrainCreationTest, AnUnreadableRasterLeavesTheFileThatWasThere) {
    write(new FunctionBand(40, 40, FunctionBand::hills));
    const std::vector<std::uint8_t> before = bytes();
    const SO<FunctionBand> band(new FunctionBand(300, 300, FunctionBand::hillsWithHoles));
    for (const std::uint64_t cells : {0U, 50000U, 90000U, 90001U, 140000U}) {
        band->cellsRead = 0;
        band->failsAfter = cells;
        std::wstring problem;
        EXPECT_FALSE(creation.run(path(), band, &problem));
        EXPECT_NE(std::wstring::npos, problem.find(L"on fire"));
        EXPECT_TRUE(before == bytes());
    }
    EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(std::getenv("TMPDIR")),
                               std::filesystem::directory_iterator()));
    EXPECT_TRUE(reports.empty()) << reports;
    // Without a place for the text it is reported.
    EXPECT_FALSE(creation.run(path(), band));
    ASSERT_EQ(2U, reports.size());
    EXPECT_NE(std::wstring::npos, reports[0].message.find(L"on fire"));
    EXPECT_EQ(1U, reports.count(2, L"false", L"The terrain extent is too large."));
}

std::vector<std::wstring> s_shown;

void show(const std::wstring & caption, const std::wstring & text) {
    s_shown = {caption, text};
}

TEST_F(GridTerrainCreationTest, ApplicationsShowWhyThereIsNoTerrain) {
    s_shown.clear();
    EXPECT_EQ(nullptr, GridTerrainCreation::setMessageBox(show));
    const auto nothing = [](unsigned, unsigned) { return double(FunctionBand::none); };
    EXPECT_FALSE(creation.run(path(), new FunctionBand(9, 9, nothing)));
    EXPECT_EQ((std::vector<std::wstring>{L"Failed to Create Terrain", L"The terrain extent is too large."}),
              s_shown);
    EXPECT_EQ(0U, reports.count(L"The terrain extent is too large."));
    s_shown.clear();
    EXPECT_FALSE(creation.run(path(), new FunctionBand(0x80000002, 9, nothing)));
    EXPECT_EQ(2U, s_shown.size());
    s_shown.clear();
    EXPECT_FALSE(AsyncGridTerrain::create(path(), nullptr, new FunctionBand(1, 9, nothing), 7, false, false,
                                          0.0, {0, 1, 0}));
    ASSERT_EQ(2U, s_shown.size());
    EXPECT_NE(std::wstring::npos, s_shown[1].find(L"one cell wide"));
    EXPECT_EQ(show, GridTerrainCreation::setMessageBox(nullptr));
    EXPECT_FALSE(creation.run(path(), new FunctionBand(9, 0x80000002, nothing)));
    EXPECT_EQ(1U, reports.count(2, L"false", L"The terrain extent is too large."));
    EXPECT_TRUE(folder.isEmpty());
}

TEST_F(GridTerrainCreationTest, NoBandIsReported) {
    EXPECT_FALSE(creation.run(path(), nullptr));
    EXPECT_EQ(1U, reports.count(0, L"band", L"no band"));
}

TEST_F(GridTerrainCreationTest, TheCoordinateSystemStandsBeside) {
    const std::string wkt = "LOCAL_CS[\"here\",UNIT[\"metre\",1]]";
    creation.wkt = wkt;
    write(new FunctionBand(9, 9, FunctionBand::hills));
    const std::vector<std::uint8_t> stored = bytes("a.prj");
    EXPECT_EQ(wkt + "\n", std::string(stored.begin(), stored.end()));
    creation.wkt.reset();
    write(new FunctionBand(9, 9, FunctionBand::hills));
    EXPECT_FALSE(bytes("a.prj").empty());
    creation.wkt = "";
    write(new FunctionBand(9, 9, FunctionBand::hills));
    EXPECT_FALSE(NBX::File::exists(NBX::StringUtils::WString2Utf8String(path("a.prj"))));
}

TEST_F(GridTerrainCreationTest, TheLightMapStandsBehindTheTiles) {
    creation.createShading = true;
    creation.lightDirection = {0.6, 0.8, 0.0};
    const SO<FunctionBand> band(new FunctionBand(40, 40, FunctionBand::hills));
    const std::vector<std::uint8_t> lit = write(band, 3);
    const PlainTerrainFile file(lit);
    ASSERT_LT(file.dataSize + 256, lit.size());
    EXPECT_EQ("ZMT-AQTT", std::string(lit.begin() + std::ptrdiff_t(file.dataSize),
                                      lit.begin() + std::ptrdiff_t(file.dataSize) + 8));
    EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(std::getenv("TMPDIR")),
                               std::filesystem::directory_iterator()));
    const SO<AsyncGridTerrain> terrain = AsyncGridTerrain::load(path());
    EXPECT_TRUE(terrain->createStaticLightMap(0.0, {0, 1, 0}));
    EXPECT_TRUE(terrain->createDynamicLightMap());

    // The tiles are the same as without one.
    creation.createShading = false;
    const std::vector<std::uint8_t> plain = write(band, 3);
    EXPECT_EQ(file.dataSize, plain.size());
    EXPECT_TRUE(std::equal(plain.begin(), plain.end(), lit.begin()));
    EXPECT_FALSE(AsyncGridTerrain::load(path())->createStaticLightMap(0.0, {0, 1, 0}));
    EXPECT_FALSE(AsyncGridTerrain::load(path())->createDynamicLightMap());

    creation.createShading = creation.storesNormals = true;
    creation.threads = 1;
    const std::vector<std::uint8_t> normals = write(band, 3);
    EXPECT_NE(lit, normals);
    creation.threads = 3;
    EXPECT_TRUE(normals == write(band, 3));
    EXPECT_TRUE(reports.empty()) << reports;
}

/// Damages every file without a name in a folder as soon as a light map is being made.
class DamagingDisplay : public NBX::ProgressDisplay {
public:
    explicit DamagingDisplay(std::string folder) : folder_(std::move(folder)) {
        NBX::Progress::setDisplay(this);
    }
    ~DamagingDisplay() override { NBX::Progress::setDisplay(nullptr); }
    DamagingDisplay(const DamagingDisplay &) = delete;
    DamagingDisplay & operator=(const DamagingDisplay &) = delete;

    void begin(const NBX::Progress &) override {
        if (++begun_ < 3) return;
        for (const auto & open : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code error;
            const std::string goal = std::filesystem::read_symlink(open, error).string();
            if (error || !goal.starts_with(folder_) || std::filesystem::file_size(open, error) < 1000)
                continue;
            std::filesystem::resize_file(open, 300, error);
            ++damaged;
        }
    }
    bool update(const NBX::Progress &) override { return true; }
    void end(const NBX::Progress &) override {}

    int damaged = 0;

private:
    std::string folder_;
    int begun_ = 0;
};

TEST_F(GridTerrainCreationTest, ALightMapThatFailsSaysWhy) {
    DamagingDisplay display(std::getenv("TMPDIR"));
    creation.createShading = true;
    std::wstring problem;
    EXPECT_FALSE(creation.run(path(), new FunctionBand(600, 600, FunctionBand::hills), &problem));
    EXPECT_EQ(1, display.damaged);
    EXPECT_NE(std::wstring::npos, problem.find(L"the light map is not complete"));
    EXPECT_TRUE(folder.isEmpty());
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(GridTerrainCreationTest, ALightMapThatIsCancelledLeavesNothing) {
    struct Display : NBX::ProgressDisplay {
        void begin(const NBX::Progress &) override { ++begun; }
        bool update(const NBX::Progress &) override { return begun < 3; }
        void end(const NBX::Progress &) override {}
        int begun = 0;
    } display;
    creation.createShading = true;
    NBX::Progress::setDisplay(&display);
    EXPECT_FALSE(creation.run(path(), new FunctionBand(40, 40, FunctionBand::hills)));
    NBX::Progress::setDisplay(nullptr);
    EXPECT_EQ(3, display.begun);
    EXPECT_TRUE(folder.isEmpty());
    EXPECT_TRUE(reports.empty()) << reports;
}

} // namespace
