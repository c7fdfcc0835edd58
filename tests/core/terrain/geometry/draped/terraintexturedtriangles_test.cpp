#include <zmt/core/terrain/geometry/draped/terraintexturedtriangles.h>

#include <gtest/gtest.h>

#include <nbx/gl/mesh/primitivequadtreegl.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/translation.h>
#include <support/recordedattributes.h>
#include <support/roundtrip.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/view/terrain.h>

#include "support/testterrain.h"

using NBX::Bounds;
using NBX::PolygonSet;
using NBX::PrimitiveQuadTreeGL;
using NBX::SO;
using ZMT::CORE::GeoTransformation;
using ZMT::CORE::Terrain;
using ZMT::CORE::TerrainTexturedGeometry;
using ZMT::CORE::TerrainTexturedTriangles;
using Point = NBX::Vector3Base<double>;

namespace {

SO<PolygonSet> triangles(std::vector<Point> vertices) {
    return new PolygonSet(PolygonSet::PT_Triangles, TestTerrain::array(std::move(vertices)));
}

/// One triangle over 10..20 in x and 30..50 in z.
SO<PrimitiveQuadTreeGL> smallTree() {
    return new PrimitiveQuadTreeGL(0, triangles({{10, 1, 30}, {20, 2, 30}, {10, 3, 50}}), Bounds(), true);
}

SO<TerrainTexturedTriangles> smallTriangles(const Point & offset = {}) {
    return new TerrainTexturedTriangles(smallTree(), offset);
}

SO<NBX::SceneThing> partOf(const SO<TerrainTexturedTriangles> & triangles, const Bounds & box) {
    return NBX::soCast<NBX::SceneThing>(triangles->geometry(box));
}

TEST(TerrainTexturedTriangles, HasTheBoxOfItsTree) {
    EXPECT_EQ(Bounds({10, 1, 30}, {20, 3, 50}), smallTriangles({5, 6, 7})->boundingBox());
    const SO<TerrainTexturedTriangles> none(new TerrainTexturedTriangles(nullptr, {}));
    EXPECT_FALSE(none->boundingBox().isDefined());
    EXPECT_EQ(TerrainTexturedGeometry::ClassNameNBX(), none->category());
    EXPECT_TRUE(none->isEnabled());
}

TEST(TerrainTexturedTriangles, BothFieldsCanBeSet) {
    const SO<TerrainTexturedTriangles> geometry(new TerrainTexturedTriangles(nullptr, {}));
    const SO<PrimitiveQuadTreeGL> tree = smallTree();
    auto before = geometry->lastTransactionNo();
    geometry->setPrimitiveQuadTree(tree);
    EXPECT_GT(geometry->lastTransactionNo(), before);
    before = geometry->lastTransactionNo();
    geometry->setOffset({1, 2, 3});
    EXPECT_GT(geometry->lastTransactionNo(), before);
    EXPECT_EQ(tree, geometry->primitiveQuadTree());
    EXPECT_EQ(Point(1, 2, 3), geometry->getOffset());
}

TEST(TerrainTexturedTriangles, VisitorsReachTheTree) {
    const SO<PrimitiveQuadTreeGL> tree = smallTree();
    const SO<TerrainTexturedTriangles> geometry(new TerrainTexturedTriangles(tree, {}));
    std::vector<NBX::Visitable *> children;
    geometry->acceptChildren(children);
    EXPECT_EQ(children, std::vector<NBX::Visitable *>{tree.get()});
}

TEST(TerrainTexturedTriangles, WithoutATreeThereIsNoPart) {
    const SO<TerrainTexturedTriangles> none(new TerrainTexturedTriangles(nullptr, {}));
    EXPECT_FALSE(none->geometry(Bounds({-100, -100, -100}, {100, 100, 100})));
    const SO<PrimitiveQuadTreeGL> empty(new PrimitiveQuadTreeGL(0, new PolygonSet, Bounds(), true));
    none->setPrimitiveQuadTree(empty);
    EXPECT_FALSE(none->geometry(Bounds({-100, -100, -100}, {100, 100, 100})));
}

TEST(TerrainTexturedTriangles, BoxesMustOverlapInPlan) {
    const struct {
        const char * name;
        Bounds box;
        bool overlaps;
    } rows[] = {{"touches in the west", Bounds({0, 0, 30}, {10, 9, 50}), false},
                {"touches in the east", Bounds({20, 0, 30}, {30, 9, 50}), false},
                {"touches in the south", Bounds({10, 0, 20}, {20, 9, 30}), false},
                {"touches in the north", Bounds({10, 0, 50}, {20, 9, 60}), false},
                {"touches at a corner", Bounds({20, 0, 50}, {30, 9, 60}), false},
                {"apart", Bounds({21, 0, 30}, {30, 9, 50}), false},
                {"undefined", Bounds(), false},
                {"overlaps in the west", Bounds({0, 0, 30}, {10.5, 9, 50}), true},
                {"overlaps in the north", Bounds({10, 0, 49.5}, {20, 9, 60}), true},
                {"inside", Bounds({12, 0, 35}, {13, 9, 36}), true},
                {"around", Bounds({0, 0, 0}, {100, 9, 100}), true},
                {"far above", Bounds({12, 500, 35}, {13, 900, 36}), true}};
    for (const auto & row : rows)
        EXPECT_EQ(row.overlaps, smallTriangles()->geometry(row.box) != nullptr) << row.name;
}

TEST(TerrainTexturedTriangles, APartIsOneShapeWithTheBoxAskedFor) {
    const Bounds box({12, 0, 35}, {13, 9, 36});
    const SO<NBX::SceneThing> part = partOf(smallTriangles(), box);
    ASSERT_TRUE(part);
    ASSERT_EQ(1U, part->objects()) << "a zero offset is no translation";
    const auto * shape = dynamic_cast<NBX::Shape *>(part->object(0));
    ASSERT_TRUE(shape);
    EXPECT_EQ(box, shape->boundingBox());
}

TEST(TerrainTexturedTriangles, AnOffsetIsATranslation) {
    for (const Point & offset : {Point(1, 0, 0), Point(0, -2, 0), Point(0, 0, 3)}) {
        const SO<NBX::SceneThing> part = partOf(smallTriangles(offset), Bounds({12, 0, 35}, {13, 9, 36}));
        ASSERT_TRUE(part);
        ASSERT_EQ(2U, part->objects());
        const auto * translation = dynamic_cast<NBX::Translation *>(part->object(0));
        ASSERT_TRUE(translation);
        EXPECT_EQ(offset, translation->getOffset());
    }
}

TEST(TerrainTexturedTriangles, IsStored) {
    const std::vector<std::string> names{"tree", "offset"};
    EXPECT_EQ(names, RecordedAttributes::of(*smallTriangles({1, 2, 3}), true));
    EXPECT_EQ(names, RecordedAttributes::of(*smallTriangles(), false));
    const SO<TerrainTexturedTriangles> copy = roundTrip(smallTriangles({1, 2, 3}));
    ASSERT_TRUE(copy);
    EXPECT_EQ(Point(1, 2, 3), copy->getOffset());
    EXPECT_EQ(Bounds({10, 1, 30}, {20, 3, 50}), copy->boundingBox());
    const SO<TerrainTexturedTriangles> none =
        roundTrip(SO<TerrainTexturedTriangles>(new TerrainTexturedTriangles(nullptr, {})));
    ASSERT_TRUE(none);
    EXPECT_TRUE(RecordedAttributes::of(*none, true).empty()) << "both are at their defaults";
    EXPECT_FALSE(none->primitiveQuadTree());
    EXPECT_EQ(Point(), none->getOffset());
}

class CreateTerrainTexturedTriangles : public testing::Test {
protected:
    ~CreateTerrainTexturedTriangles() override { GeoTransformation::setNBXOrigin({}); }

    static SO<PrimitiveQuadTreeGL> treeOf(const SO<TerrainTexturedGeometry> & geometry) {
        const auto * triangles = dynamic_cast<const TerrainTexturedTriangles *>(geometry.get());
        EXPECT_TRUE(triangles);
        if (!triangles) return nullptr;
        EXPECT_EQ(Point(), triangles->getOffset());
        return triangles->primitiveQuadTree();
    }
    /// Indexed triangles with so many corners, spread over a square.
    static SO<PolygonSet> corners(unsigned n) {
        std::vector<Point> vertices;
        std::vector<unsigned> indices;
        for (unsigned i = 0; i < 100; ++i)
            vertices.emplace_back(i % 10, 0.0, i / 10);
        for (unsigned i = 0; i < n; ++i)
            indices.push_back(i * 37 % 100);
        return new PolygonSet(PolygonSet::PT_Triangles, TestTerrain::array(std::move(vertices)),
                              TestTerrain::array(std::move(indices)));
    }
    /// The area of all triangles in x and z, positive where they turn counter-clockwise.
    static double turning(const PolygonSet & set) {
        double sum = 0.0;
        for (unsigned i = 0; i < set.triangles(); ++i) {
            std::array<unsigned, 3> t;
            if (!set.triangle(i, t)) continue;
            const Point a = set.newVertexIterator()->get(t[0]);
            const Point b = set.newVertexIterator()->get(t[1]) - a,
                        c = set.newVertexIterator()->get(t[2]) - a;
            sum += (b.x * c.z - c.x * b.z) / 2.0;
        }
        return sum;
    }
    static SO<PolygonSet> counterClockwise() { return triangles({{0, 1, 0}, {2, 1, 0}, {0, 1, 3}}); }

    SO<Terrain> terrain_ = new Terrain(nullptr, nullptr);
};

TEST_F(CreateTerrainTexturedTriangles, NothingGivesNull) {
    EXPECT_FALSE(terrain_->createTerrainTexturedTriangles(SO<PolygonSet>()));
    EXPECT_FALSE(terrain_->createTerrainTexturedTriangles(std::vector<SO<PolygonSet>>()));
    EXPECT_FALSE(terrain_->createTerrainTexturedTriangles(
        std::vector<SO<PolygonSet>>{nullptr, new PolygonSet, nullptr}));
}

TEST_F(CreateTerrainTexturedTriangles, ALevelForEveryFactorOfFourAboveAThousand) {
    for (const auto & [n, levels] : std::vector<std::pair<unsigned, unsigned>>{{3, 0},
                                                                               {1000, 0},
                                                                               {1999, 0},
                                                                               {2000, 1},
                                                                               {3000, 1},
                                                                               {4000, 1},
                                                                               {7900, 1},
                                                                               {8100, 2},
                                                                               {16000, 2}}) {
        EXPECT_EQ(levels, treeOf(terrain_->createTerrainTexturedTriangles(corners(n)))->levels()) << n;
        const SO<PolygonSet> plain = triangles(std::vector<Point>(n, Point(1, 1, 1)));
        EXPECT_EQ(levels, treeOf(terrain_->createTerrainTexturedTriangles(plain))->levels()) << n;
    }
}

TEST_F(CreateTerrainTexturedTriangles, TheTrianglesAreTurnedOnce) {
    EXPECT_EQ(3.0, turning(*counterClockwise()));
    const auto single = treeOf(terrain_->createTerrainTexturedTriangles(counterClockwise()));
    EXPECT_EQ(-3.0, turning(*single->polygonSet()));
    const std::vector<SO<PolygonSet>> sets{counterClockwise(), nullptr, counterClockwise()};
    const auto several = treeOf(terrain_->createTerrainTexturedTriangles(sets));
    EXPECT_EQ(-6.0, turning(*several->polygonSet()));
    EXPECT_EQ(3.0, turning(*sets[0])) << "the sets given stay as they are";
}

TEST_F(CreateTerrainTexturedTriangles, TheAppearanceIsThatOfTheTerrain) {
    const auto newSet = [] {
        const SO<PolygonSet> set = counterClockwise();
        set->setNormalIterator(TestTerrain::array(std::vector<Point>(3, Point(0, 1, 0))));
        set->setColorIterator(TestTerrain::array(std::vector<NBX::Color>(3, NBX::Color::black)));
        for (const unsigned unit : {0U, 1U})
            set->setTextureIterator(TestTerrain::array(std::vector<Point>(3)), unit);
        return set;
    };
    const auto expectCleared = [](const PolygonSet & set) {
        EXPECT_FALSE(set.newNormalIterator());
        EXPECT_FALSE(set.newColorIterator());
        EXPECT_FALSE(set.newTextureIterator(0));
        EXPECT_TRUE(set.newTextureIterator(1));
    };
    const SO<PolygonSet> single = newSet();
    expectCleared(*treeOf(terrain_->createTerrainTexturedTriangles(single))->polygonSet());
    EXPECT_TRUE(single->newNormalIterator()) << "the set given stays as it is";

    const std::vector<SO<PolygonSet>> sets{newSet(), newSet()};
    expectCleared(*treeOf(terrain_->createTerrainTexturedTriangles(sets))->polygonSet());
    expectCleared(*sets[1]);
}

TEST_F(CreateTerrainTexturedTriangles, TheVerticesAreSeenInSceneCoordinates) {
    GeoTransformation::setNBXOrigin({100, 10, 1000});
    const SO<PolygonSet> set = triangles({{110, 11, 1030}, {120, 12, 1030}, {110, 13, 1050}});
    const auto geometry = terrain_->createTerrainTexturedTriangles(set);
    EXPECT_EQ(Bounds({10, 1, 30}, {20, 3, 50}), geometry->boundingBox());
    EXPECT_EQ(Point(110, 11, 1030), set->newVertexIterator()->get(0));
}

/// Knows what it was asked for.
class AskedTerrain : public Terrain {
public:
    AskedTerrain() : Terrain(nullptr, nullptr) {}
    using Terrain::createTerrainTexturedTriangles;
    SO<TerrainTexturedGeometry> createTerrainTexturedTriangles(SO<PolygonSet> set) override {
        asked_.push_back(set);
        return nullptr;
    }
    std::vector<SO<PolygonSet>> asked_;
};

TEST_F(CreateTerrainTexturedTriangles, SeveralSetsGoThroughTheOperationForOne) {
    const SO<AskedTerrain> terrain(new AskedTerrain);
    const std::vector<SO<PolygonSet>> sets{counterClockwise(), counterClockwise()};
    EXPECT_FALSE(terrain->createTerrainTexturedTriangles(sets));
    ASSERT_EQ(1U, terrain->asked_.size());
    EXPECT_EQ(6.0, turning(*terrain->asked_[0])) << "not turned yet";
    EXPECT_FALSE(terrain->createTerrainTexturedTriangles(std::vector<SO<PolygonSet>>{new PolygonSet}));
    EXPECT_EQ(1U, terrain->asked_.size());
}

} // namespace
