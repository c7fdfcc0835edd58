#include <zmt/core/terrain/geometry/grid/model/gridterrain.h>

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/raster/simplerasterdata.h>

#include "support/memorygridterrain.h"
#include "support/recordedreports.h"

using namespace ZMT::CORE::GRID;
using NBX::SO;
using Point = NBX::Vector3Base<double>;
using ZMT::CORE::GeoTransformation;
using ZMT::RASTER::SimpleRasterData;

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

/// Heights 2 x + 3 y + 1000 in units of half a metre above -50, on cells of 10 by 20 metres.
SO<MemoryGridTerrain> terrainOf(unsigned level = 3, unsigned depth = 2) {
    MemoryGrid grid;
    grid.level = level;
    grid.depth = depth;
    grid.sample = [](unsigned, unsigned x, unsigned y) {
        return static_cast<std::uint16_t>(1000 + 2 * x + 3 * y);
    };
    grid.grid2geo = MemoryGrid::toGeo(10.0, 20.0, 0.5, 300000.0, 5000000.0, -50.0);
    return new MemoryGridTerrain(grid);
}

double heightAt(double gridX, double gridY) {
    return (1000 + 2 * gridX + 3 * gridY - 1) * 0.5 - 50.0;
}

class SceneOrigin {
public:
    explicit SceneOrigin(const Point & origin) { GeoTransformation::setNBXOrigin(origin); }
    ~SceneOrigin() { GeoTransformation::setNBXOrigin({}); }
};

} // namespace

TEST(GridTerrain, HasNeitherDataNorPatches) {
    const auto terrain = terrainOf();
    EXPECT_FALSE(terrain->data());
    EXPECT_FALSE(terrain->root());
}

TEST(GridTerrain, FramesLeadFromGridOverGeoToScene) {
    const auto terrain = terrainOf();
    const SceneOrigin origin({300000.0, 0.0, 5000000.0});
    EXPECT_EQ(Point(300050.0, 449.5, 5000040.0), terrain->grid2geoTf() * Point(5, 2, 1000));
    EXPECT_EQ(Point(50.0, 449.5, 40.0), terrain->grid2visTf() * Point(5, 2, 1000));
    EXPECT_LT((terrain->vis2gridTf() * Point(50.0, 449.5, 40.0) - Point(5, 2, 1000)).length(), 1e-6);
    EXPECT_EQ(NBX::Bounds(Point(300000, -50, 5000000), Point(300320, 32717, 5000640)),
              terrain->geoBoundingBox());
    EXPECT_EQ(NBX::Bounds(Point(0, -50, 0), Point(320, 32717, 640)), terrain->visBoundingBox());
    const ZMT::CORE::Terrain & shape = *terrain;
    EXPECT_EQ(terrain->visBoundingBox(), shape.boundingBox());
    EXPECT_EQ(Point(300000, 0, 5000000), terrain->origin());
    EXPECT_EQ(std::pair(10.0, 20.0), terrain->getCellSize());
}

TEST(GridTerrain, HeightIsInGeoCoordinates) {
    const auto terrain = terrainOf();
    EXPECT_DOUBLE_EQ(heightAt(3.25, 7.5), terrain->calculateHeight({300032.5, 1e9, 5000150.0}, false));
    EXPECT_FALSE(terrain->hasUndefinedHeight({300032.5, 0, 5000150.0}, false));
    for (const Point & beside :
         {Point(299999.0, 0, 5000150.0), Point(300032.5, 0, 5000641.0), Point(std::nan(""), 0, 5000150.0),
          Point(300032.5, 0, infinity), Point(1e300, 0, -1e300)}) {
        EXPECT_EQ(-infinity, terrain->calculateHeight(beside, false));
        EXPECT_TRUE(terrain->hasUndefinedHeight(beside, false));
    }
    EXPECT_TRUE(terrain->isUndefinedHeightValue(-infinity));
    EXPECT_TRUE(terrain->isUndefinedHeightValue(std::nan("")));
    EXPECT_FALSE(terrain->isUndefinedHeightValue(-1e300));
    EXPECT_FALSE(terrain->isUndefinedHeightValue(0.0));
}

TEST(GridTerrain, PositionOfASampleMeetsItThoughMapCoordinatesAreRounded) {
    // Cells of a third: positions computed from the map miss the sample by roundings, and beside it is
    // nothing.
    MemoryGrid grid;
    grid.level = 5;
    grid.depth = 0;
    grid.sample = [](unsigned, unsigned x, unsigned y) -> std::uint16_t {
        return x % 2 == 0 && y % 2 == 0 ? 9 : 0;
    };
    const double cell = 1.0 / 3.0, originX = 3456789.1, originY = -5123456.7;
    grid.grid2geo = MemoryGrid::toGeo(cell, cell, 1.0, originX, originY, 1.0);
    const SO<MemoryGridTerrain> terrain(new MemoryGridTerrain(grid));
    for (unsigned y = 0; y <= 32; y += 2)
        for (unsigned x = 0; x <= 32; x += 2)
            EXPECT_EQ(9.0, terrain->calculateHeight({originX + x * cell, 0, originY + y * cell}, false))
                << x << ", " << y;
    SimpleRasterData<float> raster(17, 17, originX, originY, 2 * cell, 2 * cell, true, -1.0F);
    EXPECT_TRUE(terrain->resampleRasterData(&raster));
    EXPECT_EQ(9.0, raster.minValue());
}

TEST(GridTerrain, LoadedOnlyReadsNothing) {
    const auto terrain = terrainOf();
    EXPECT_DOUBLE_EQ(heightAt(3.25, 7.5), terrain->calculateHeight({300032.5, 0, 5000150.0}, true));
    EXPECT_EQ(1U, terrain->state().totalLoads());
}

TEST(GridTerrain, RayIsInSceneCoordinates) {
    const auto terrain = terrainOf();
    const SceneOrigin origin({300000.0, 100.0, 5000000.0});
    Point hit;
    ASSERT_TRUE(terrain->rayIntersection(NBX::Ray({50.0, 9000.0, 40.0}, {0, -2, 0}), hit, false));
    EXPECT_LT((hit - Point(50.0, heightAt(5, 2) - 100.0, 40.0)).length(), 1e-6);
    EXPECT_FALSE(terrain->rayIntersection(NBX::Ray({50.0, 9000.0, 40.0}, {0, 2, 0}), hit, false));
    EXPECT_FALSE(terrain->rayIntersection(NBX::Ray({-50.0, 9000.0, 40.0}, {0, -2, 0}), hit, false));
    EXPECT_FALSE(terrain->rayIntersection(NBX::Ray({std::nan(""), 9000.0, 40.0}, {0, -2, 0}), hit, false));
}

TEST(GridTerrain, ResamplingFillsTheWholeRaster) {
    const auto terrain = terrainOf();
    SimpleRasterData<float> raster(4, 3, 300305.0, 5000000.0, 10.0, 20.0, true, -1.0F);
    raster.setValue(0, 0, 99.0F);
    EXPECT_TRUE(terrain->resampleRasterData(&raster));
    EXPECT_FLOAT_EQ(float(heightAt(30.5, 0)), float(raster.value(0U, 0U))) << "what was there goes";
    EXPECT_FLOAT_EQ(float(heightAt(31.5, 2)), float(raster.value(1U, 2U)));
    EXPECT_EQ(-1.0, raster.value(2U, 0U)) << "beside the terrain";

    SimpleRasterData<float> beside(4, 3, 300321.0, 5000000.0, 10.0, 20.0, false, 0.0F);
    EXPECT_FALSE(terrain->resampleRasterData(&beside));
    EXPECT_TRUE(std::isnan(beside.value(0U, 0U)));
    // Around the terrain, with no cell on it.
    SimpleRasterData<float> around(2, 2, 299000.0, 4999000.0, 5000.0, 5000.0, true, -1.0F);
    EXPECT_FALSE(terrain->resampleRasterData(&around));

    // Ends one cell before it.
    SimpleRasterData<float> before(4, 3, 299960.0, 5000000.0, 10.0, 20.0, true, -1.0F);
    EXPECT_FALSE(terrain->resampleRasterData(&before));

    RecordedReports reports;
    EXPECT_FALSE(terrain->resampleRasterData(nullptr));
    EXPECT_EQ(1U, reports.count(L"no target"));
}

TEST(GridTerrain, MeshIsInGeoCoordinates) {
    const auto terrain = terrainOf();
    const auto mesh =
        terrain->extractMesh(NBX::Bounds(Point(300020, 0, 5000020), Point(300040, 0, 5000080)), nullptr);
    ASSERT_TRUE(mesh);
    EXPECT_EQ(2U * 2 * 3, mesh->triangles());
    const NBX::Bounds box = mesh->boundingBox();
    EXPECT_EQ(Point(300020, heightAt(2, 1), 5000020), box.getLLF());
    EXPECT_EQ(Point(300040, heightAt(4, 4), 5000080), box.getURB());
    EXPECT_FALSE(terrain->extractMesh(NBX::Bounds(), nullptr));
    EXPECT_FALSE(terrain->extractMesh(NBX::Bounds(Point(0, 0, 0), Point(1, 1, 1)), nullptr));
}
