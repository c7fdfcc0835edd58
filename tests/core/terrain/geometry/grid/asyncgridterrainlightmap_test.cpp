// Light maps behind the tiles of a streaming terrain, and what is told of those that cannot be read.

#include <zmt/core/terrain/geometry/grid/asyncgridterrain.h>

#include <cstring>

#include <gtest/gtest.h>

#include <zmt/core/terrain/texture/terraintexture.h>

#include "plainterrainfile.h"
#include "scriptedfile.h"
#include "writtenterrain.h"
#include <support/recordedreports.h>
#include <support/temporaryfolder.h>

namespace {

using namespace ZMT::CORE;
using namespace ZMT::CORE::GRID;
using NBX::SO;
using Bytes = std::vector<std::uint8_t>;

class AsyncGridTerrainLightMapTest : public testing::Test {
protected:
    static Bytes lit(bool asNormals) {
        GridTerrainCreation creation;
        creation.createShading = true;
        creation.storesNormals = asNormals;
        creation.lightDirection = {0.0, 1.0, 0.0};
        return writtenTerrain(new FunctionBand(17, 17, FunctionBand::hills), 4, creation);
    }
    void open(const Bytes & bytes) {
        file = new ScriptedFile(bytes);
        terrain = AsyncGridTerrain::load(file);
        ASSERT_TRUE(terrain);
        file->asked = 0;
    }
    void expectTold(const std::wstring & reason) {
        ASSERT_EQ(1U, reports.size()) << reports;
        EXPECT_EQ(2, reports[0].level);
        EXPECT_EQ(L"light map", reports[0].condition);
        for (const std::wstring & part : {std::wstring(L"counts as none"), reason, std::wstring(L"scripted")})
            EXPECT_NE(std::wstring::npos, reports[0].message.find(part)) << reports;
        reports.clear();
    }

    const TemporaryFolder folder;
    RecordedReports reports;
    SO<ScriptedFile> file;
    SO<AsyncGridTerrain> terrain;
};

TEST_F(AsyncGridTerrainLightMapTest, ItsPixelsTellWhatItIs) {
    open(lit(false));
    EXPECT_EQ(AsyncGridTerrain::LM_Light, terrain->lightMapKind());
    EXPECT_TRUE(terrain->createStaticLightMap(0.0, {}));
    open(lit(true));
    EXPECT_EQ(AsyncGridTerrain::LM_Normals, terrain->lightMapKind());
    EXPECT_TRUE(terrain->createDynamicLightMap());
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(AsyncGridTerrainLightMapTest, WithoutOneNothingIsReadNorTold) {
    open(writtenTerrain(new FunctionBand(17, 17, FunctionBand::hills), 4));
    EXPECT_EQ(AsyncGridTerrain::LM_None, terrain->lightMapKind());
    EXPECT_FALSE(terrain->createStaticLightMap(0.0, {}));
    EXPECT_EQ(0U, file->asked);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(AsyncGridTerrainLightMapTest, ItsHeadIsReadOnce) {
    open(lit(false));
    EXPECT_EQ(AsyncGridTerrain::LM_Light, terrain->lightMapKind());
    EXPECT_EQ(2U, file->asked) << "head and root";
    const SO<TerrainTexture> one = terrain->createStaticLightMap(0.0, {});
    EXPECT_NE(one, terrain->createDynamicLightMap());
    EXPECT_EQ(4U, file->asked) << "the roots of two textures";
}

TEST_F(AsyncGridTerrainLightMapTest, OneThatCannotBeReadIsTold) {
    open(lit(false));
    file->failsAll = true;
    EXPECT_EQ(AsyncGridTerrain::LM_None, terrain->lightMapKind());
    expectTold(L"the cable was cut");
    EXPECT_FALSE(terrain->createStaticLightMap(0.0, {}));
    expectTold(L"the cable was cut");
    file->failsAll = false;
    EXPECT_EQ(AsyncGridTerrain::LM_Light, terrain->lightMapKind()) << "it may come back";
    file->failsAll = true;
    EXPECT_EQ(AsyncGridTerrain::LM_None, terrain->lightMapKind()) << "the root";
    expectTold(L"the cable was cut");
}

TEST_F(AsyncGridTerrainLightMapTest, DamagedOnesAreTold) {
    const Bytes sound = lit(false);
    const std::uint64_t start = PlainTerrainFile(sound).dataSize;
    std::uint64_t root = 0;
    std::memcpy(&root, &sound[start + 24], sizeof root);
    Bytes head = sound, tile = sound, cut = sound;
    head[start] ^= 1;
    tile[start + root + 2] ^= 0x55;
    cut.resize(start + 100);
    for (const Bytes & damaged : {head, tile, cut}) {
        open(damaged);
        EXPECT_EQ(AsyncGridTerrain::LM_None, terrain->lightMapKind());
        expectTold(L"get the file anew");
    }
    open(cut);
    EXPECT_FALSE(terrain->createDynamicLightMap());
    expectTold(L"get the file anew");
    std::wstring problem;
    EXPECT_EQ(AsyncGridTerrain::LM_None, terrain->lightMapKind(&problem));
    EXPECT_EQ(L"it is damaged or was cut off; get the file anew", problem);
    EXPECT_TRUE(reports.empty()) << "who asks tells";
    open(sound);
    EXPECT_EQ(AsyncGridTerrain::LM_Light, terrain->lightMapKind(&problem));
    EXPECT_EQ(L"", problem);
}

} // namespace
