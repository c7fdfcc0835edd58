#include "core/terrain/texture/streaming/lightmapwriter.h"

#include <cmath>

#include <gtest/gtest.h>

#include <support/cancelingdisplay.h>
#include <support/memorygridterrain.h>
#include <support/recordedreports.h>
#include <support/temporaryfolder.h>

#include "core/terrain/texture/streaming/asyncquadtreeterraintexture_impl.h"
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>

#include "../fakepyramid.h"
#include "streamingtexturefile.h"

using namespace ZMT::CORE;
using NBX::SO;
using StreamingTextureFile::Bytes;
using StreamingTextureFile::Decoder;
using StreamingTextureFile::Tile;
using Vector = NBX::Vector3Base<double>;

namespace {

constexpr double s_cellX = 10.0, s_cellY = 4.0, s_heightScale = 0.5;

/// No two slopes are the same, and x and y can be told apart.
std::uint16_t bumpy(unsigned, unsigned x, unsigned y) {
    return std::uint16_t(100 + 3 * x + 7 * y + (x * 5 + y * 11) % 13);
}

class LightMapWriterTest : public testing::Test {
protected:
    void TearDown() override {
        EXPECT_TRUE(reports.empty()) << reports;
        GeoTransformation::setNBXOrigin({});
    }

    static SO<MemoryGridTerrain> terrain(MemoryGrid::Sample sample, unsigned level = 3, unsigned depth = 2) {
        MemoryGrid grid;
        grid.level = level;
        grid.depth = depth;
        grid.sample = std::move(sample);
        grid.grid2geo = MemoryGrid::toGeo(s_cellX, s_cellY, s_heightScale, 1000.0, 2000.0, 300.0);
        return new MemoryGridTerrain(std::move(grid));
    }
    /// The whole file.
    Bytes write(MemoryGridTerrain * terrain, bool asNormalMap, unsigned textureSize = 16,
                std::uint64_t key = 0, unsigned threads = 2) {
        const SO<MemoryGridTerrain> held(terrain);
        const SO<NBX::File> file(new NBX::File(NBX::File::temporaryFileName("light-"), NBX::WM_Create));
        EXPECT_TRUE(AsyncQuadtreeTerrainTexture::createGridTerrainLightMap(
            file, held, s_heightScale, asNormalMap, ambient, sun, textureSize, key, threads));
        return NBX::File::contents(file->fullName());
    }
    /// By the definition, from nine heights; `sample` gives them at positions of the lattice.
    std::array<int, 4> pixel(const std::function<double(int, int)> & sample, double spacingX, double spacingY,
                             bool asNormalMap) const {
        double dx = 0.0, dz = 0.0;
        for (int i = -1; i <= 1; ++i) {
            const double weight = i == 0 ? 2.0 : 1.0;
            dx += weight * (sample(-1, i) - sample(1, i));
            dz += weight * (sample(i, -1) - sample(i, 1));
        }
        Vector n(dx * s_heightScale / spacingX, 8.0, dz * s_heightScale / spacingY);
        n = n / n.length();
        if (!asNormalMap)
            return {int(255.0 * (ambient + (1.0 - ambient) * std::max(0.0, n.dot(sun)))), 0, 0, 0};
        return {int(128.0 + 127.0 * n.x), int(128.0 + 127.0 * n.y), int(128.0 + 127.0 * n.z),
                sample(0, 0) == 0.0 ? 0 : 255};
    }

    const TemporaryFolder folder;
    RecordedReports reports;
    double ambient = 0.25;
    Vector sun = Vector(0.6, 0.64, 0.48);
};

TEST_F(LightMapWriterTest, ASlopeHasOneNormal) {
    // Rises to the east by 4 units a sample, to the north by 2.
    std::vector<float> heights(25);
    for (unsigned y = 0; y < 5; ++y)
        for (unsigned x = 0; x < 5; ++x)
            heights[y * 5 + x] = 100.0F + 4.0F * float(x) + 2.0F * float(y);
    const LightMapLight light{0.5, true, 0.0, sun};
    const auto pixels = LightMapPixels::compute(heights, 3, 10.0, 4.0, light);
    ASSERT_EQ(pixels.size(), 36U);
    // 0.2 and 0.25 map units a unit: the normal is (-0.2, 1, -0.25), made one long.
    const Vector n = Vector(-0.2, 1.0, -0.25) / Vector(-0.2, 1.0, -0.25).length();
    for (std::size_t i = 0; i < 36; i += 4) {
        EXPECT_EQ(pixels[i], int(128.0 + 127.0 * n.x));
        EXPECT_EQ(pixels[i + 1], int(128.0 + 127.0 * n.y));
        EXPECT_EQ(pixels[i + 2], int(128.0 + 127.0 * n.z));
        EXPECT_EQ(pixels[i + 3], 255);
    }
    const auto lit = LightMapPixels::compute(heights, 3, 10.0, 4.0, {0.5, false, 0.25, sun});
    ASSERT_EQ(lit.size(), 9U);
    EXPECT_EQ(lit[4], int(255.0 * (0.25 + 0.75 * n.dot(sun))));
}

TEST_F(LightMapWriterTest, WhatTurnsAwayFromTheSunHasTheAmbientLight) {
    std::vector<float> heights(9);
    for (unsigned i = 0; i < 9; ++i)
        heights[i] = 1000.0F * float(i % 3);
    const auto lit = LightMapPixels::compute(heights, 1, 1.0, 1.0, {1.0, false, 0.2, Vector(1.0, 0.0, 0.0)});
    EXPECT_EQ(lit[0], int(255.0 * 0.2));
    const auto bright =
        LightMapPixels::compute(heights, 1, 1.0, 1.0, {1.0, false, 0.5, Vector(-40.0, 0.0, 0.0)});
    EXPECT_EQ(bright[0], 255) << "a vector that is no unit";
}

TEST_F(LightMapWriterTest, VoidsAreTransparentNormals) {
    std::vector<float> heights(25, 7.0F);
    heights[12] = 0.0F;
    const auto pixels = LightMapPixels::compute(heights, 3, 1.0, 1.0, {1.0, true, 0.0, sun});
    for (unsigned i = 0; i < 9; ++i)
        EXPECT_EQ(pixels[4 * i + 3], i == 4 ? 0 : 255) << i;
    EXPECT_EQ(pixels[16], 128) << "around it all is the same";
}

TEST_F(LightMapWriterTest, EveryTileHasTheLightOfItsHeights) {
    for (const bool asNormalMap : {false, true}) {
        const Tile root = Decoder(write(terrain(bumpy).get(), asNormalMap)).root();
        EXPECT_EQ(root.count(), 21U);
        const std::function<void(const Tile &, unsigned, unsigned, unsigned)> check =
            [&](const Tile & tile, unsigned depth, unsigned cellX, unsigned cellY) {
                const unsigned step = 1U << depth;
                ASSERT_EQ(tile.width, 9U);
                ASSERT_EQ(tile.height, 9U);
                EXPECT_EQ(tile.format, asNormalMap ? 0U : 7U);
                const double minX = 1000.0 + cellX * s_cellX, minY = 2000.0 + cellY * s_cellY;
                const double maxX = minX + 8 * step * s_cellX, maxY = minY + 8 * step * s_cellY;
                EXPECT_EQ(tile.image, (std::array<double, 4>{minX, minY, maxX, maxY}));
                EXPECT_EQ(tile.patch, tile.image) << "wholly defined";
                for (int y = 0; y < 9; ++y)
                    for (int x = 0; x < 9; ++x) {
                        const auto sample = [&](int i, int k) -> double {
                            const int sx = int(cellX) + (x + i) * int(step);
                            const int sy = int(cellY) + (y + k) * int(step);
                            if (sx < 0 || sy < 0 || sx > 32 || sy > 32) return 0.0;
                            return bumpy(depth, unsigned(sx), unsigned(sy));
                        };
                        const auto expected = pixel(sample, step * s_cellX, step * s_cellY, asNormalMap);
                        const std::size_t at = std::size_t(y) * 9 + std::size_t(x);
                        for (unsigned c = 0; c < (asNormalMap ? 4U : 1U); ++c)
                            EXPECT_EQ(tile.pixels[at * (asNormalMap ? 4 : 1) + c], expected[c])
                                << depth << ": " << x << " " << y << " " << c;
                    }
                for (unsigned i = 0; i < 4 && depth > 0; ++i) {
                    ASSERT_TRUE(tile.hasChild(i));
                    check(tile.child(i), depth - 1, cellX + (i & 1U) * 4 * step,
                          cellY + (i >> 1U) * 4 * step);
                }
            };
        check(root, 2, 0, 0);
    }
}

TEST_F(LightMapWriterTest, TilesAreAtLeastHalfTheTextureSizeWide) {
    const auto width = [&](unsigned level, unsigned textureSize) {
        return Decoder(write(terrain(bumpy, level, 1).get(), false, textureSize)).root().width;
    };
    EXPECT_EQ(width(3, 16), 9U);
    EXPECT_EQ(width(3, 17), 17U);
    EXPECT_EQ(width(3, 32), 17U);
    EXPECT_EQ(width(3, 33), 33U);
    EXPECT_EQ(width(2, 64), 33U);
    EXPECT_EQ(width(3, 4), 9U) << "not below the tile";
}

TEST_F(LightMapWriterTest, LargerTilesTakeTheHeightsOfFinerTiles) {
    // With two pixels a sample, the root at depth 1 shows what its children have.
    const Tile root = Decoder(write(terrain(bumpy, 3, 1).get(), true, 32)).root();
    ASSERT_EQ(root.width, 17U);
    const auto sample = [&](int i, int k) { return double(bumpy(0, unsigned(7 + i), unsigned(4 + k))); };
    const auto expected = pixel(sample, s_cellX, s_cellY, true);
    for (unsigned c = 0; c < 4; ++c)
        EXPECT_EQ(root.pixels[(4U * 17U + 7U) * 4U + c], expected[c]) << c;
}

TEST_F(LightMapWriterTest, NeighboursMeetWithoutASeam) {
    const Tile root = Decoder(write(terrain(bumpy).get(), false)).root();
    for (unsigned y = 0; y < 9; ++y) {
        EXPECT_EQ(root.child(0).pixels[y * 9 + 8], root.child(1).pixels[y * 9]) << y;
        EXPECT_EQ(root.child(0).pixels[8 * 9 + y], root.child(2).pixels[y]) << y;
    }
}

TEST_F(LightMapWriterTest, OnlyTilesWithHeightsOfTheirOwnHaveLight) {
    MemoryGrid grid;
    grid.sample = bumpy;
    grid.kind = [](const MemoryGrid::Key & key) {
        if (key.depth == 1 && key.x == 0 && key.y == 0) return 0U;
        return key.depth == 1 && key.y == 0 ? 1U : 2U;
    };
    const Tile root = Decoder(write(SO<MemoryGridTerrain>(new MemoryGridTerrain(grid)).get(), false)).root();
    EXPECT_FALSE(root.hasChild(0));
    EXPECT_FALSE(root.hasChild(1));
    EXPECT_TRUE(root.hasChild(2));
    EXPECT_TRUE(root.hasChild(3));
}

TEST_F(LightMapWriterTest, AnyNumberOfThreadsWritesTheSameBytes) {
    const Bytes one = write(terrain(bumpy, 3, 3).get(), false, 16, 5, 1);
    for (const unsigned threads : {2U, 4U, 0U})
        EXPECT_TRUE(write(terrain(bumpy, 3, 3).get(), false, 16, 5, threads) == one) << threads;
    EXPECT_EQ(Decoder(one, 0, 5).root().count(), 85U);
}

TEST_F(LightMapWriterTest, ATileThatCannotBeReadIsReported) {
    const SO<MemoryGridTerrain> holed = terrain(bumpy);
    holed->state().failing.insert({1, 8, 0});
    const SO<NBX::File> file(new NBX::File(NBX::File::temporaryFileName("light-"), NBX::WM_Create));
    EXPECT_FALSE(
        AsyncQuadtreeTerrainTexture::createGridTerrainLightMap(file, holed, 1.0, false, 0.0, sun, 16, 0));
    EXPECT_EQ(
        reports.count(2, L"false", L"a tile of the terrain could not be read; the light map is not complete"),
        1U)
        << reports;
    reports.clear();
}

TEST_F(LightMapWriterTest, MayBeCancelled) {
    const CancelingDisplay canceling;
    const SO<NBX::File> file(new NBX::File(NBX::File::temporaryFileName("light-"), NBX::WM_Create));
    EXPECT_FALSE(AsyncQuadtreeTerrainTexture::createGridTerrainLightMap(file, terrain(bumpy), 1.0, false, 0.0,
                                                                        sun, 16, 0));
}

TEST_F(LightMapWriterTest, NoTerrainIsReported) {
    const SO<NBX::File> file(new NBX::File(NBX::File::temporaryFileName("light-"), NBX::WM_Create));
    EXPECT_FALSE(
        AsyncQuadtreeTerrainTexture::createGridTerrainLightMap(file, nullptr, 1.0, false, 0.0, sun, 16, 0));
    EXPECT_EQ(reports.count(0, L"terrain", L"no terrain"), 1U) << reports;
    reports.clear();
}

TEST_F(LightMapWriterTest, TilesOfTheTerrainFindTheirTilesOfLight) {
    const SO<MemoryGridTerrain> ground = terrain(bumpy);
    const auto texture = NBX::soCast<AsyncQuadtreeTerrainTexture_Impl>(
        AsyncQuadtreeTerrainTexture::load(StreamingTextureFile::inMemory(write(ground.get(), false)), 0, 0));
    ASSERT_TRUE(texture);
    ground->loadAll();
    // An origin at which coordinates are rounded.
    GeoTransformation::setNBXOrigin({1234567.1, 0.3, 7654321.7});
    const auto view = viewFromAbove(1.0);
    const auto patch = [&](const MemoryGrid::Key & key) {
        return ground->tile(key)->geometryPatchHACK(ground);
    };
    bool incomplete = false;
    const auto request = [&](const SO<GeometryPatch> & of) {
        return texture->request(of.get(), nullptr, view.get(), 100, 100, 1.0, {}, 0.0, false, false,
                                incomplete);
    };
    const SO<NBX::TextureGL> ofRoot = request(patch({2, 0, 0}));
    const SO<NBX::TextureGL> ofChild = request(patch({1, 8, 0})), ofLeaf = request(patch({0, 24, 8}));
    incomplete = false;
    TerrainPainterFrameManager::CallBeginFrameCallbacks({nullptr, false});
    EXPECT_EQ(request(patch({2, 0, 0})), ofRoot);
    EXPECT_EQ(request(patch({1, 8, 0})), ofChild);
    EXPECT_FALSE(incomplete);
    EXPECT_NE(ofRoot, ofChild);
    EXPECT_NE(ofChild, ofLeaf);
    EXPECT_TRUE(texture->refine(patch({1, 8, 0}).get(), view.get(), 100, 100, {}, 1.0, false));
    EXPECT_FALSE(texture->refine(patch({0, 24, 8}).get(), view.get(), 100, 100, {}, 1.0, false));
    EXPECT_EQ(request(ground->tile({0, 24, 8})->child(1, false)->geometryPatchHACK(ground)), ofLeaf)
        << "a part of a tile shows its light";
}

} // namespace
