#include <zmt/core/terrain/geometry/regular/gridpatchsimplifier.h>

#include <nbx/engine/simplifier.h>
#include <nbx/scene/node/scenething.h>
#include <support/recordedreports.h>
#include <zmt/core/terrain/geometry/hybrid/microtrianglesdata.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>

#include "support/collectedshapes.h"
#include "support/smallhybrid.h"

using CollectedShapes::Point;
using ZMT::CORE::GridData;
using ZMT::CORE::GridPatch;
using ZMT::CORE::GridPatchSimplifier;

namespace {

class GridPatchSimplifierTest : public testing::Test {
protected:
    void collect(const NBX::SO<GridData> & data, const NBX::Area & domain) {
        scene->clear();
        scene->append(new GridPatch(data, domain, data->boundingBox(), 0.0, 0.0, nullptr));
        technique->entries.clear();
        engine->evaluate(scene.get(), technique.get());
    }

    const NBX::SO<NBX::Engine> engine{new NBX::Engine};
    const NBX::SO<NBX::SceneThing> scene{new NBX::SceneThing};
    const NBX::SO<CollectedShapes::Technique> technique{new CollectedShapes::Technique};
    const NBX::SO<GridData> grid = TestTerrain::grid({5, 4, 100.0, 200.0, 10.0, 20.0}, TestTerrain::bumpy);
};

TEST_F(GridPatchSimplifierTest, IsTheSimplifierOfGridPatches) {
    EXPECT_EQ(GridPatchSimplifier().target(), GridPatch::ClassNameNBX());
    EXPECT_TRUE(dynamic_cast<GridPatchSimplifier *>(
        engine->findHandler(NBX::Simplifier::ClassNameNBX(), GridPatch::ClassInfoNBX())));
    EXPECT_FALSE(GridPatchSimplifier().simplify(engine.get(), grid.get()));
}

TEST_F(GridPatchSimplifierTest, ReportsAMissingEngine) {
    const NBX::SO<GridPatch> patch(new GridPatch(grid, {0, 0, 1, 1}, {}, 0.0, 0.0, nullptr));
    const RecordedReports reports;
    EXPECT_FALSE(GridPatchSimplifier().simplify(nullptr, patch.get()));
    EXPECT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports.count(0, L"E", L"no engine"), 1U) << reports;
}

TEST_F(GridPatchSimplifierTest, APatchBesideItsGridGivesNothing) {
    const RecordedReports reports;
    const NBX::SO<GridPatch> beside(new GridPatch(grid, {3, 0, 2, 1}, {}, 0.0, 0.0, nullptr)),
        without(new GridPatch(nullptr, {0, 0, 1, 1}, {}, 0.0, 0.0, nullptr));
    EXPECT_EQ(reports.size(), 2U) << "by the patches themselves";
    EXPECT_FALSE(GridPatchSimplifier().simplify(engine.get(), beside.get()));
    EXPECT_FALSE(GridPatchSimplifier().simplify(engine.get(), without.get()));
    EXPECT_EQ(reports.size(), 2U);
}

/// Rows outer, columns inner; in local coordinates.
TEST_F(GridPatchSimplifierTest, GivesTwoTrianglesACell) {
    collect(grid, {1, 1, 2, 2});
    const auto sets = technique->all<NBX::PolygonSet>();
    ASSERT_EQ(sets.size(), 1U);
    EXPECT_EQ(sets[0]->getPrimitiveType(), NBX::PolygonSet::PT_Triangles);
    EXPECT_FALSE(sets[0]->newIndexIterator());
    std::vector<Point> vertices, normals;
    for (const auto & [x, y] : {std::pair(1u, 1u), {2, 1}, {1, 2}, {2, 2}})
        for (const auto & [dx, dy] : {std::pair(0u, 0u), {0, 1}, {1, 1}, {0, 0}, {1, 1}, {1, 0}}) {
            vertices.push_back(grid->vertex(x + dx, y + dy));
            normals.push_back(grid->normal(x + dx, y + dy));
        }
    EXPECT_EQ(CollectedShapes::points(sets[0]->newVertexIterator()), vertices);
    EXPECT_EQ(CollectedShapes::points(sets[0]->newNormalIterator()), normals);
}

TEST_F(GridPatchSimplifierTest, MicroStructuresStandInPlaceOfTheirCells) {
    const auto hybrid = SmallHybrid::hybrid({5, 4, 100.0, 200.0, 10.0, 20.0}, TestTerrain::bumpy,
                                            {{1, 1, 500.0}, {3, 2, 700.0}});
    collect(hybrid, {0, 1, 3, 2});
    const auto micros = technique->all<ZMT::CORE::MicroTrianglesData>();
    ASSERT_EQ(micros.size(), 1U) << "the other one lies outside";
    EXPECT_EQ(micros[0]->boundingBox().getURB().y, 500.0);
    const auto sets = technique->all<NBX::PolygonSet>();
    ASSERT_EQ(sets.size(), 2U);
    EXPECT_EQ(sets[0]->triangles(), 4U) << "the micro-structure is painted when its cell comes";
    EXPECT_EQ(sets[1]->triangles(), 2U * 5);
}

TEST_F(GridPatchSimplifierTest, APatchOfMicroStructuresAloneGivesAnEmptySet) {
    const auto hybrid =
        SmallHybrid::hybrid({5, 4, 100.0, 200.0, 10.0, 20.0}, TestTerrain::bumpy, {{1, 1, 500.0}});
    collect(hybrid, {1, 1, 1, 1});
    const auto sets = technique->all<NBX::PolygonSet>();
    ASSERT_EQ(sets.size(), 2U);
    EXPECT_EQ(sets[1]->triangles(), 0U);
}

} // namespace
