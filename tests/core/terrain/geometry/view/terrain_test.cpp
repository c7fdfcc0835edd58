#include <gtest/gtest.h>

#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>
#include <support/slotorder.h>

#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>
#include <zmt/core/terrain/geometry/view/terrain.h>

#include "support/fakegeometrydata.h"
#include "support/testterrain.h"

using NBX::Bounds;
using ZMT::CORE::GeometryData;
using ZMT::CORE::GeoTransformation;
using ZMT::CORE::GridPatch;
using ZMT::CORE::Terrain;
using Calls = std::vector<std::string>;
using Point = NBX::Vector3Base<double>;

namespace {

/// Has no data of its own, but gives some.
class BorrowingTerrain : public Terrain {
public:
    explicit BorrowingTerrain(GeometryData * data) : borrowed_(data) {}
    NBX::SO<GeometryData> data() const override { return borrowed_; }

private:
    NBX::SO<GeometryData> borrowed_;
};

class TerrainTest : public testing::Test {
protected:
    ~TerrainTest() override { GeoTransformation::setNBXOrigin({}); }

    RecordedReports reports_;
    NBX::SO<FakeGeometryData> data_ =
        new FakeGeometryData(std::vector<Point>{{0, 1, 2}, {3, 4, 5}}, Point(100, 10, 200));
    NBX::SO<Terrain> terrain_ = new Terrain(data_.get(), nullptr);
};

TEST_F(TerrainTest, KeepsDataAndRoot) {
    const auto grid = TestTerrain::grid({3, 3, 0.0, 0.0, 1.0, 1.0}, TestTerrain::bumpy);
    const NBX::SO<GridPatch> root(
        new GridPatch(grid, NBX::Area(0, 0, 2, 2), grid->boundingBox(), 0.0, 0.0, nullptr));
    const NBX::SO<Terrain> terrain(new Terrain(grid.get(), root.get()));
    EXPECT_EQ(terrain->data(), grid);
    EXPECT_EQ(terrain->root(), root);
    EXPECT_TRUE(terrain->isEnabled());
}

TEST_F(TerrainTest, NothingIsCheckedAtConstruction) {
    const NBX::SO<Terrain> none(new Terrain(nullptr, nullptr));
    EXPECT_FALSE(none->data());
    EXPECT_FALSE(none->root());
    EXPECT_FALSE(none->boundingBox().isDefined());
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(TerrainTest, CellSizeIsFirstXThenY) {
    const auto grid = TestTerrain::grid({3, 3, 0.0, 0.0, 10.0, 20.0}, TestTerrain::bumpy);
    const NBX::SO<Terrain> terrain(new Terrain(grid.get(), nullptr));
    EXPECT_EQ(terrain->getCellSize(), std::make_pair(10.0, 20.0));
}

/// Asks every forwarding operation once.
void expectForwarding(const Terrain & terrain, FakeGeometryData & data) {
    data.calls_.clear();
    EXPECT_EQ(terrain.origin(), Point(100, 10, 200));
    for (const bool loadedOnly : {false, true}) {
        EXPECT_EQ(terrain.calculateHeight(Point(1, 7, 3), loadedOnly), 4.0);
        EXPECT_TRUE(terrain.hasUndefinedHeight(Point(-1, 0, 0), loadedOnly));
    }
    EXPECT_TRUE(terrain.isUndefinedHeightValue(-1.0));
    EXPECT_FALSE(terrain.isUndefinedHeightValue(1.0));
    EXPECT_EQ(terrain.getCellSize(), std::make_pair(3.0, 4.0));

    const NBX::SO<ZMT::RASTER::SimpleRasterData<float>> target(
        new ZMT::RASTER::SimpleRasterData<float>(1, 1, 0.0, 0.0, 1.0, 1.0, false, 0.0F));
    EXPECT_TRUE(terrain.resampleRasterData(target.get()));
    EXPECT_EQ(data.target_, target.get());

    const Bounds box(Point(1, 2, 3), Point(4, 5, 6));
    data.mesh_ = new NBX::PolygonSet;
    EXPECT_EQ(terrain.extractMesh(box, nullptr), data.mesh_);
    EXPECT_TRUE(data.box_ == box);
    EXPECT_EQ(data.progress_, nullptr);
    EXPECT_EQ(data.calls_, (Calls{"calculateHeight", "hasUndefinedHeight", "calculateHeight",
                                  "hasUndefinedHeight", "isUndefinedHeightValue", "isUndefinedHeightValue",
                                  "getCellSize", "resampleRasterData", "extractMesh"}));
}

TEST_F(TerrainTest, ForwardsToItsData) {
    expectForwarding(*terrain_, *data_);
}

TEST_F(TerrainTest, ForwardsToTheDataOfASubclass) {
    const NBX::SO<BorrowingTerrain> terrain(new BorrowingTerrain(data_.get()));
    expectForwarding(*terrain, *data_);
    EXPECT_TRUE(terrain->boundingBox() == terrain_->boundingBox());
}

TEST_F(TerrainTest, BoxIsInSceneCoordinates) {
    EXPECT_TRUE(terrain_->boundingBox() == Bounds(Point(100, 11, 202), Point(103, 14, 205)));
}

TEST_F(TerrainTest, BoxFollowsTheSceneOrigin) {
    terrain_->boundingBox();
    GeoTransformation::setNBXOrigin({90, 1, 180});
    EXPECT_TRUE(terrain_->boundingBox() == Bounds(Point(10, 10, 22), Point(13, 13, 25)));
    GeoTransformation::setNBXOrigin({});
    EXPECT_TRUE(terrain_->boundingBox() == Bounds(Point(100, 11, 202), Point(103, 14, 205)));
}

TEST_F(TerrainTest, BoxWithoutVerticesStaysUndefined) {
    const NBX::SO<FakeGeometryData> empty(new FakeGeometryData(std::vector<Point>{}, Point(1, 1, 1)));
    const NBX::SO<Terrain> terrain(new Terrain(empty.get(), nullptr));
    EXPECT_FALSE(terrain->boundingBox().isDefined());
}

TEST_F(TerrainTest, DataAndRootAreVisited) {
    const auto grid = TestTerrain::grid({3, 3, 0.0, 0.0, 1.0, 1.0}, TestTerrain::bumpy);
    const NBX::SO<GridPatch> root(
        new GridPatch(grid, NBX::Area(0, 0, 2, 2), grid->boundingBox(), 0.0, 0.0, nullptr));
    const NBX::SO<Terrain> terrain(new Terrain(grid.get(), root.get())), empty(new Terrain(nullptr, nullptr));
    struct Meeting : NBX::Visitor<GeometryData>, NBX::Visitor<ZMT::CORE::GeometryPatch> {
        NBX::VisitMode visit(GeometryData * data, bool pre) override { return note(data, pre); }
        NBX::VisitMode visit(ZMT::CORE::GeometryPatch * patch, bool pre) override { return note(patch, pre); }
        NBX::VisitMode note(NBX::Visitable * object, bool pre) {
            if (pre) met.push_back(object);
            return NBX::VM_Continue;
        }
        std::vector<NBX::Visitable *> met;
    } whole, nothing;
    terrain->accept(whole);
    EXPECT_EQ(whole.met, (std::vector<NBX::Visitable *>{grid.get(), root.get()}));
    empty->accept(nothing);
    EXPECT_TRUE(nothing.met.empty());
}

TEST_F(TerrainTest, ADisabledOneIsReadAsSuch) {
    const auto grid = TestTerrain::grid({3, 3}, TestTerrain::bumpy);
    const NBX::SO<Terrain> terrain(new Terrain(grid.get(), nullptr));
    terrain->setEnableState(false);
    const auto read = roundTrip(terrain);
    ASSERT_TRUE(read);
    EXPECT_FALSE(read->isEnabled());
}

TEST_F(TerrainTest, StoresDataAndRoot) {
    EXPECT_EQ(RecordedAttributes::of(*terrain_), (Calls{"data", "root"}));

    const auto grid = TestTerrain::grid({3, 3, 5.0, 6.0, 1.0, 1.0}, TestTerrain::bumpy);
    const NBX::SO<GridPatch> root(
        new GridPatch(grid, NBX::Area(0, 0, 2, 2), grid->boundingBox(), 0.0, 0.0, nullptr));
    const auto read = roundTrip(NBX::SO<Terrain>(new Terrain(grid.get(), root.get())));
    ASSERT_TRUE(read);
    ASSERT_TRUE(read->root());
    EXPECT_EQ(read->root()->data(), read->data());
    EXPECT_EQ(read->calculateHeight(Point(6, 0, 7), false), TestTerrain::bumpy(1, 1));
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(TerrainTest, IsRegisteredAndEmptyAtFirst) {
    EXPECT_TRUE(terrain_->isRegisteredForSerialization());
    EXPECT_TRUE(NBX::SerializationManager::isRegistered(Terrain::ClassNameNBX()));
    const NBX::SO<Terrain> made(static_cast<Terrain *>(Terrain::newInstance()));
    EXPECT_FALSE(made->data());
    EXPECT_FALSE(made->root());
}

TEST_F(TerrainTest, OperationsKeepTheirOrder) {
    using Result = NBX::SO<ZMT::CORE::TerrainTexturedGeometry>;
    using Set = NBX::SO<NBX::PolygonSet>;
    EXPECT_TRUE(inSlotOrder(
        &NBX::Shape::boundingBox, &Terrain::data, &Terrain::root, &Terrain::origin, &Terrain::calculateHeight,
        &Terrain::hasUndefinedHeight, &Terrain::isUndefinedHeightValue, &Terrain::getCellSize,
        &Terrain::resampleRasterData, &Terrain::extractMesh, &Terrain::createStaticLightMap,
        &Terrain::createDynamicLightMap,
        static_cast<Result (Terrain::*)(const std::vector<Set> &)>(&Terrain::createTerrainTexturedTriangles),
        static_cast<Result (Terrain::*)(Set)>(&Terrain::createTerrainTexturedTriangles)));
}

} // namespace
