#include <zmt/core/terrain/geometry/regular/griddatasimplifier.h>

#include <nbx/engine/simplifier.h>
#include <nbx/scene/node/scenething.h>
#include <support/recordedreports.h>
#include <zmt/core/misc/usedisplaylistgl.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>

#include "support/collectedshapes.h"
#include "support/testterrain.h"

using ZMT::CORE::GridData;
using ZMT::CORE::GridDataSimplifier;
using ZMT::CORE::GridPatch;
using ZMT::CORE::UseDisplayListGL;

namespace {

const NBX::SO<GridData> grid = TestTerrain::grid({4, 3, 100.0, 200.0, 10.0, 20.0}, TestTerrain::bumpy);

TEST(GridDataSimplifier, IsTheSimplifierOfGrids) {
    const NBX::SO<NBX::Engine> engine(new NBX::Engine);
    EXPECT_EQ(GridDataSimplifier().target(), GridData::ClassNameNBX());
    EXPECT_TRUE(dynamic_cast<GridDataSimplifier *>(
        engine->findHandler(NBX::Simplifier::ClassNameNBX(), GridData::ClassInfoNBX())));
    EXPECT_FALSE(
        GridDataSimplifier().simplify(engine.get(), NBX::SO<NBX::PolygonSet>(new NBX::PolygonSet).get()));
}

TEST(GridDataSimplifier, ReportsAMissingEngine) {
    const RecordedReports reports;
    EXPECT_FALSE(GridDataSimplifier().simplify(nullptr, grid.get()));
    EXPECT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports.count(0, L"E", L"no engine"), 1U) << reports;
}

TEST(GridDataSimplifier, MakesOnePatchWithoutDisplayLists) {
    const NBX::SO<NBX::Engine> engine(new NBX::Engine);
    const NBX::SO<CollectedShapes::Technique> technique(new CollectedShapes::Technique);
    unsigned patches = 0;
    technique->observe = [&](NBX::Engine * e, const NBX::Shape * shape) {
        const auto * patch = dynamic_cast<const GridPatch *>(shape);
        if (!patch) return;
        ++patches;
        EXPECT_EQ(patch->grid(), grid);
        EXPECT_EQ(patch->domain(), NBX::Area(0, 0, 3, 2));
        EXPECT_EQ(patch->boundingBox(), grid->boundingBox());
        EXPECT_EQ(patch->approximationError(), 0.0);
        EXPECT_EQ(patch->wall(), grid->boundingBox().getLLF().y);
        EXPECT_EQ(patch->children(), 0U);
        const auto * lists =
            dynamic_cast<UseDisplayListGL *>(e->getAttribute(UseDisplayListGL::ClassNameNBX()));
        ASSERT_TRUE(lists);
        EXPECT_FALSE(lists->getActive());
    };
    const NBX::SO<NBX::SceneThing> scene(new NBX::SceneThing);
    scene->append(grid.get());
    engine->evaluate(scene.get(), technique.get());
    EXPECT_EQ(patches, 1U);
    EXPECT_FALSE(engine->getAttribute(UseDisplayListGL::ClassNameNBX()));
}

} // namespace
