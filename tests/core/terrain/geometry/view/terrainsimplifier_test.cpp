#include <zmt/core/terrain/geometry/view/terrainsimplifier.h>

#include <nbx/engine/shapesimplifier.h>
#include <nbx/gl/mesh/primitivequadtreegl.h>
#include <nbx/object/exception.h>
#include <nbx/scene/node/scenething.h>
#include <support/recordedreports.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/draped/terraintexturedtriangles.h>
#include <zmt/core/terrain/geometry/view/terrain.h>

#include "support/collectedshapes.h"
#include "support/fakegeometrydata.h"
#include "support/testterrain.h"

using CollectedShapes::Matrix;
using CollectedShapes::Point;
using ZMT::CORE::GeoTransformation;
using ZMT::CORE::Terrain;
using ZMT::CORE::TerrainSimplifier;
using ZMT::CORE::TerrainTexturedTriangles;

namespace {

class TerrainSimplifierTest : public testing::Test {
protected:
    void TearDown() override { GeoTransformation::setNBXOrigin({}); }

    void collect(const std::vector<NBX::Attribute *> & attributes, Terrain * terrain) {
        scene->clear();
        for (NBX::Attribute * attribute : attributes)
            scene->append(attribute);
        scene->append(terrain);
        technique->entries.clear();
        engine->evaluate(scene.get(), technique.get());
    }

    const NBX::SO<NBX::Engine> engine{new NBX::Engine};
    const NBX::SO<NBX::SceneThing> scene{new NBX::SceneThing};
    const NBX::SO<CollectedShapes::Technique> technique{new CollectedShapes::Technique};
    const NBX::SO<ZMT::CORE::GridData> grid =
        TestTerrain::grid({4, 3, 100.0, 200.0, 10.0, 20.0}, TestTerrain::bumpy);
};

TEST_F(TerrainSimplifierTest, IsTheSimplifierOfTerrains) {
    EXPECT_EQ(TerrainSimplifier().target(), Terrain::ClassNameNBX());
    EXPECT_TRUE(dynamic_cast<TerrainSimplifier *>(
        engine->findHandler(NBX::Simplifier::ClassNameNBX(), Terrain::ClassInfoNBX())));
    EXPECT_FALSE(TerrainSimplifier().simplify(engine.get(), grid.get()));
}

TEST_F(TerrainSimplifierTest, ReportsAMissingEngine) {
    const RecordedReports reports;
    const NBX::SO<Terrain> terrain(new Terrain(grid.get(), nullptr));
    EXPECT_FALSE(TerrainSimplifier().simplify(nullptr, terrain.get()));
    EXPECT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports.count(0, L"E", L"no engine"), 1U) << reports;
}

TEST_F(TerrainSimplifierTest, GivesTheDataInSceneCoordinates) {
    GeoTransformation::setNBXOrigin({90, 7, 150});
    const NBX::SO<Terrain> terrain(new Terrain(grid.get(), nullptr));
    collect({}, terrain.get());
    ASSERT_EQ(technique->all<NBX::PolygonSet>().size(), 1U);
    const auto & last = technique->entries.back();
    EXPECT_EQ(last.model, Matrix::translation({10, -7, 50}));
    EXPECT_EQ(technique->all<NBX::PolygonSet>()[0]->triangles(), 2U * 3 * 2) << "without a tree";
    EXPECT_EQ(last.shape->boundingBox().transform(last.model), terrain->boundingBox());
    EXPECT_EQ(engine->modelMatrix(), Matrix());
}

TEST_F(TerrainSimplifierTest, WorksInTheFrameOfItsNode) {
    const NBX::SO<Terrain> terrain(new Terrain(grid.get(), nullptr));
    engine->pushModelMatrix(Matrix::scaling({1, 3, 1}));
    collect({}, terrain.get());
    EXPECT_EQ(technique->entries.back().model,
              Matrix::scaling({1, 3, 1}) * Matrix::translation({100, 0, 200}));
    engine->popModelMatrix();
}

class ThrowingData : public FakeGeometryData {
    NBX_TEMPLATE_CLASS(ThrowingData, FakeGeometryData)
public:
    using FakeGeometryData::FakeGeometryData;
};

class ThrowingSimplifier : public NBX::ShapeSimplifier {
    NBX_TEMPLATE_CLASS(ThrowingSimplifier, NBX::ShapeSimplifier)
public:
    NBX::ID target() const override { return ThrowingData::ClassNameNBX(); }
    bool simplify(NBX::Engine *, const NBX::Shape *) override { throw NBX::IOException(L"data"); }
};

const bool throwingRegistered = (NBX::Engine::registerHandler(new ThrowingSimplifier), true);

TEST_F(TerrainSimplifierTest, AThrowLeavesTheModelMatrixAsItWas) {
    const NBX::SO<ThrowingData> data(new ThrowingData({{0, 0, 0}}, {10, 0, 20}));
    const NBX::SO<Terrain> terrain(new Terrain(data.get(), nullptr));
    EXPECT_THROW(TerrainSimplifier().simplify(engine.get(), terrain.get()), NBX::IOException);
    EXPECT_EQ(engine->modelMatrix(), Matrix());
}

TEST_F(TerrainSimplifierTest, ATerrainWithoutDataGivesNothing) {
    const NBX::SO<Terrain> terrain(new Terrain(nullptr, nullptr));
    EXPECT_TRUE(TerrainSimplifier().simplify(engine.get(), terrain.get()));
    collect({}, terrain.get());
    EXPECT_EQ(technique->entries.size(), 1U) << "the terrain itself";
}

/// Another kind, which simplifiers do not know.
class OtherGeometry : public ZMT::CORE::TerrainTexturedGeometry {
    NBX_TEMPLATE_CLASS(OtherGeometry, ZMT::CORE::TerrainTexturedGeometry)
public:
    NBX::SO<NBX::SceneNode> geometry(const NBX::Bounds &) const override {
        ADD_FAILURE() << "asked";
        return nullptr;
    }
    NBX::Bounds boundingBox() const override { return NBX::Bounds(Point()); }
};

TEST_F(TerrainSimplifierTest, DrapedTrianglesFollowInSceneCoordinates) {
    const auto corners = TestTerrain::array<Point>({{0, 1, 0}, {0, 1, 5}, {5, 1, 5}});
    const NBX::SO<NBX::PolygonSet> set(new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles, corners));
    const NBX::SO<NBX::PrimitiveQuadTreeGL> tree(new NBX::PrimitiveQuadTreeGL(0, set, NBX::Bounds(), true));
    const NBX::SO<TerrainTexturedTriangles> empty(new TerrainTexturedTriangles(nullptr, {})),
        still(new TerrainTexturedTriangles(tree, {})), moved(new TerrainTexturedTriangles(tree, {0, 8, 0}));
    const NBX::SO<OtherGeometry> other(new OtherGeometry);
    const NBX::SO<Terrain> terrain(new Terrain(grid.get(), nullptr));

    for (const bool isEnabled : {true, false}) {
        moved->setEnableState(isEnabled); // which plays no part
        collect({empty.get(), other.get(), still.get(), moved.get()}, terrain.get());
        std::vector<Matrix> places;
        bool behindTheTerrain = false;
        for (const auto & entry : technique->entries) {
            if (dynamic_cast<const NBX::PolygonSet *>(entry.shape.get())) behindTheTerrain = true;
            if (entry.shape->boundingBox() != tree->boundingBox()) continue;
            EXPECT_TRUE(behindTheTerrain);
            places.push_back(entry.model);
        }
        EXPECT_EQ(places, (std::vector<Matrix>{Matrix(), Matrix::translation({0, 8, 0})})) << isEnabled;
    }
}

} // namespace
