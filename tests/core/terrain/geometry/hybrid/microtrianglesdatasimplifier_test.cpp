#include <zmt/core/terrain/geometry/hybrid/microtrianglesdatasimplifier.h>

#include <nbx/engine/simplifier.h>
#include <nbx/scene/node/scenething.h>
#include <support/recordedreports.h>
#include <zmt/core/terrain/geometry/hybrid/microtrianglesdata.h>

#include "support/collectedshapes.h"
#include "support/smallhybrid.h"

using CollectedShapes::Point;
using ZMT::CORE::MicroTrianglesData;
using ZMT::CORE::MicroTrianglesDataSimplifier;

namespace {

class MicroTrianglesDataSimplifierTest : public testing::Test {
protected:
    const NBX::SO<NBX::Engine> engine{new NBX::Engine};
    const NBX::SO<ZMT::CORE::HybridData> hybrid =
        SmallHybrid::hybrid({3, 3, 0.0, 0.0, 1.0, 1.0}, TestTerrain::bumpy, {{1, 1, 99.0}});
    const NBX::SO<MicroTrianglesData> micro = hybrid->microData(1, 1);
};

TEST_F(MicroTrianglesDataSimplifierTest, IsTheSimplifierOfMicroStructures) {
    EXPECT_EQ(MicroTrianglesDataSimplifier().target(), MicroTrianglesData::ClassNameNBX());
    EXPECT_TRUE(dynamic_cast<MicroTrianglesDataSimplifier *>(
        engine->findHandler(NBX::Simplifier::ClassNameNBX(), MicroTrianglesData::ClassInfoNBX())));
    EXPECT_TRUE(MicroTrianglesDataSimplifier().isSimple());
}

TEST_F(MicroTrianglesDataSimplifierTest, ReportsWhatIsMissing) {
    const RecordedReports reports;
    EXPECT_FALSE(MicroTrianglesDataSimplifier().simplify(engine.get(), nullptr));
    EXPECT_EQ(reports.count(0, L"micro", L"no micro-structure"), 1U) << reports;
    EXPECT_FALSE(MicroTrianglesDataSimplifier().simplify(nullptr, micro.get()));
    EXPECT_EQ(reports.last().message, L"no engine");
    EXPECT_EQ(reports.size(), 2U);
}

TEST_F(MicroTrianglesDataSimplifierTest, GivesItsTriangles) {
    const NBX::SO<CollectedShapes::Technique> technique(new CollectedShapes::Technique);
    const NBX::SO<NBX::SceneThing> scene(new NBX::SceneThing);
    scene->append(micro.get());
    engine->evaluate(scene.get(), technique.get());
    const auto sets = technique->all<NBX::PolygonSet>();
    ASSERT_EQ(sets.size(), 1U);
    EXPECT_EQ(sets[0]->getPrimitiveType(), NBX::PolygonSet::PT_Triangles);
    EXPECT_EQ(sets[0]->triangles(), 4U);
    std::vector<Point> vertices, normals;
    for (unsigned v = 0; v < micro->vertices(); ++v) {
        vertices.push_back(micro->vertex(v));
        normals.push_back(micro->normal(v));
    }
    EXPECT_EQ(CollectedShapes::points(sets[0]->newVertexIterator()), vertices);
    EXPECT_EQ(CollectedShapes::points(sets[0]->newNormalIterator()), normals);
    EXPECT_EQ(vertices[2], Point(1.5, 99.0, 1.5));
    EXPECT_EQ(normals[2], Point(0, 1, 0));
}

} // namespace
