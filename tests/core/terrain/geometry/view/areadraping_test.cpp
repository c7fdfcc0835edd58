#include <zmt/core/terrain/geometry/view/areadraping.h>

#include <limits>
#include <random>

#include <support/recordedreports.h>
#include <zmt/core/terrain/geometry/view/terrain.h>

#include "support/testterrain.h"
#include "support/trianglerings.h"

using ZMT::CORE::AreaDraping;
using ZMT::CORE::PolygonTriangulation;
using ZMT::CORE::Terrain;

namespace {

using namespace trianglerings;

class AreaDrapingTest : public testing::Test {
protected:
    static double heightAt(double x, double z) { return 0.5 * x + 0.25 * z + 3.0; }

    RecordedReports reports_;
    /// A slope over 0..40 by 0..40, with a hole in it at 30, 30.
    NBX::SO<ZMT::CORE::GridData> grid_ =
        TestTerrain::grid({41, 41, 0.0, 0.0, 1.0, 1.0}, [](unsigned x, unsigned y) {
            return x == 30 && y == 30 ? TestTerrain::s_undefined : heightAt(x, y);
        });
    NBX::SO<Terrain> terrain_ = new Terrain(grid_.get(), nullptr);
    Point origin_ = terrain_->origin();
};

TEST_F(AreaDrapingTest, LiesOnTheGround) {
    const auto set =
        AreaDraping::drape(*terrain_, {rectangle(5, 5, 25, 20), turned(rectangle(10, 10, 15, 15))}, 2.0, 0.5);
    ASSERT_TRUE(set);
    EXPECT_NEAR(300.0 - 25.0, filledArea(set), 1e-9);
    EXPECT_GT(set->triangles(), 100U);
    for (const Point & p : *set->newVertexIterator())
        EXPECT_NEAR(terrain_->calculateHeight(p, false) + 0.5, p.y, 1e-9);
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(AreaDrapingTest, NoEdgeIsMuchLongerThanTheSpacing) {
    const auto set = AreaDraping::drape(*terrain_, {rectangle(5, 5, 25, 20)}, 2.0, 0.0);
    for (const Ring & triangle : trianglesOf(set))
        for (unsigned k = 0; k < 3; ++k) {
            const Point side = triangle[k] - triangle[(k + 1) % 3];
            EXPECT_LT(std::hypot(side.x, side.z), 2.0 * 2.0);
        }
}

TEST_F(AreaDrapingTest, UndefinedGroundIsLeftOut) {
    const auto set = AreaDraping::drape(*terrain_, {rectangle(20, 20, 38, 38)}, 1.0, 0.0);
    ASSERT_TRUE(set);
    EXPECT_LT(filledArea(set), 18.0 * 18.0);
    EXPECT_GT(filledArea(set), 18.0 * 18.0 - 30.0);
    const auto beyond = AreaDraping::drape(*terrain_, {rectangle(100, 100, 110, 110)}, 1.0, 0.0);
    EXPECT_FALSE(beyond);
}

TEST_F(AreaDrapingTest, SmallAreasFarFromOneAnotherAreFewPoints) {
    const Rings rings = {rectangle(5, 5, 10, 10), rectangle(5e8, 5e4, 5e8 + 5, 5e4 + 5)};
    EXPECT_LT(PolygonTriangulation::pointsFor(rings, 1.0), 1e5);
    EXPECT_TRUE(AreaDraping::drape(*terrain_, rings, 1.0, 0.0));
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(AreaDrapingTest, NotManyMorePointsAreMadeThanForetold) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (const double scale : {0.5, 2.0, 9.0})
        for (unsigned points = 3; points < 60; points += 3)
            for (const double spacing : {0.2, 1.0, 50.0}) {
                const Rings rings = {star(random, {15, 0, 15}, points, scale)};
                const auto set = AreaDraping::drape(*terrain_, rings, spacing, 0.0);
                ASSERT_TRUE(set);
                EXPECT_LE(set->newVertexIterator()->size(),
                          1.5 * PolygonTriangulation::pointsFor(rings, spacing));
            }
    EXPECT_EQ(0.0, PolygonTriangulation::pointsFor({}, 1.0));
    EXPECT_EQ(0.0, PolygonTriangulation::pointsFor({rectangle(5, 5, 10, 10)}, 0.0));
}

TEST_F(AreaDrapingTest, ASpacingThatCannotBeIsReported) {
    for (const double spacing : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN(), 1e-6}) {
        reports_.clear();
        EXPECT_FALSE(AreaDraping::drape(*terrain_, {rectangle(5, 5, 25, 20)}, spacing, 0.0)) << spacing;
        EXPECT_EQ(1U, reports_.size()) << spacing;
    }
    reports_.clear();
    EXPECT_TRUE(AreaDraping::drape(*terrain_, {rectangle(5, 5, 25, 20)},
                                   std::numeric_limits<double>::infinity(), 0.0));
}

} // namespace
