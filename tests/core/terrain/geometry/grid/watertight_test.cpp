// No hole shows in a streaming terrain, whatever has arrived of it. Heights are another noise at every level
// of detail, so that borders of different levels are far apart and every crack is wide open.

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>

#include "support/glfixture.h"
#include "support/imagecompare.h"
#include "support/memorygridterrain.h"

#include <nbx/gl/effect/texturingeffectgl.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/perspective.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/grid/gridterrainpaintergl.h>
#include <zmt/core/terrain/texture/terraintexturingeffect.h>

using ZMT::CORE::TerrainPainterGLSettings;
using ZMT::CORE::GRID::GridTerrainPainterGL;
using ZMT::CORE::GRID::GridTerrainTile;
using Point = NBX::Vector3Base<double>;

namespace {

constexpr unsigned s_side = 128; ///< of pictures, in pixels
constexpr double s_lowest = 10.0, s_highest = 90.0;

/// A number at random that is always the same for the same numbers.
unsigned hash(unsigned a, unsigned b, unsigned c) {
    unsigned h = a * 0x9E3779B1U ^ b * 0x85EBCA77U ^ c * 0xC2B2AE3DU;
    h ^= h >> 15U;
    h *= 0x2C1B3C6DU;
    h ^= h >> 12U;
    h *= 0x297A2D39U;
    return h ^ (h >> 15U);
}

/// A root of 16 by 16 tiles of 32 cells. Differences of levels go up to 4, for which tiles of 32 cells have
/// rows; where a part stands for the heights of a tile, there are no finer ones below it.
MemoryGrid noisyGrid() {
    MemoryGrid grid;
    grid.level = 5;
    grid.depth = 4;
    grid.sample = [](unsigned depth, unsigned x, unsigned y) {
        const double hill = 50.0 + 25.0 * std::sin(x / 61.0) * std::cos(y / 47.0);
        return static_cast<std::uint16_t>(hill + hash(depth, x, y) % 1000 / 1000.0 * 30.0 - 15.0);
    };
    grid.kind = [](const MemoryGrid::Key & key) {
        return hash(key.depth + 100, key.x, key.y) % 5 == 0 ? 1U : 2U;
    };
    return grid;
}

/// Wants tiles split here and there, by the place of their centre.
class SplittingEffect : public ZMT::CORE::TerrainTexturingEffect {
    NBX_TEMPLATE_CLASS(SplittingEffect, ZMT::CORE::TerrainTexturingEffect)
public:
    bool refine(const ZMT::CORE::GeometryPatch * patch, const NBX::ViewInfo *, unsigned, unsigned,
                const Point &, double, bool) const override {
        const NBX::Bounds box = patch->boundingBox();
        const Point size = box.diagonal(), centre = box.center();
        return std::max(size.x, size.z) > smallest &&
               hash(seed, unsigned(centre.x * 4.0), unsigned(centre.z * 4.0)) % 3 < splitShare;
    }
    bool ignorePreviousEffects(const ZMT::CORE::GeometryPatch *, const NBX::ViewInfo *, unsigned, unsigned,
                               const Point &, double, bool) const override {
        return false;
    }
    NBX::SO<NBX::TexturingEffectGL> request(const ZMT::CORE::GeometryPatch *, NBX::EngineGL *,
                                            const NBX::ViewInfo *, unsigned, unsigned, double, const Point &,
                                            double, bool, bool, bool &) const override {
        return nullptr;
    }
    unsigned seed = 0;
    double smallest = 8.0;   ///< tiles of this side are not split
    unsigned splitShare = 1; ///< in thirds
};

class WatertightTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        ASSERT_TRUE(canvas->setSize(s_side, s_side));
        canvas->setRenderingMode(1);
        canvas->setBackgroundColor(NBX::Color(1.0, 0.0, 1.0, 1.0));
    }
    void TearDown() override {
        TerrainPainterGLSettings::setGeometryError(3.0);
        TerrainPainterGLSettings::enableOcclusionQueries(true);
        GLFixture::TearDown();
    }

    double number(double low, double high) { return std::uniform_real_distribution<>(low, high)(random); }
    unsigned index(std::size_t size) {
        return unsigned(std::uniform_int_distribution<std::size_t>(0, size - 1)(random));
    }

    /// Everything is forgotten but the root.
    void newTerrain() {
        terrain = new MemoryGridTerrain(noisyGrid());
        cells = noisyGrid().cells();
    }
    void show() {
        root->clear();
        root->append(camera.get());
        root->append(effect.get());
        root->append(terrain.get());
    }
    /// From where views look.
    struct Views {
        double nearest, farthest; ///< distance of the eye from what it looks at
        double narrowest, widest; ///< in degrees
        double height;            ///< of the eye above all peaks, at least
    };
    void look(const Views & views) {
        const double elevation = number(5.0, 85.0) * M_PI / 180.0, azimuth = number(0.0, 2.0 * M_PI);
        const double distance = std::exp(number(std::log(views.nearest), std::log(views.farthest)));
        const Point target(number(0.2, 0.8) * cells, number(s_lowest, s_highest), number(0.2, 0.8) * cells);
        const Point back(std::cos(elevation) * std::sin(azimuth), std::sin(elevation),
                         std::cos(elevation) * std::cos(azimuth));
        Point eye = target + back * distance;
        eye.y = std::max(eye.y, s_highest + views.height);
        camera = new NBX::Camera(new NBX::LookAt(eye, target),
                                 new NBX::Perspective(number(views.narrowest, views.widest), 1.0, 4000.0));
        findCovered();
    }
    void findCovered() {
        covered.clear();
        for (int y = 0; y < int(s_side); ++y)
            for (int x = 0; x < int(s_side); ++x)
                if (mustBeCovered(x, y)) covered.push_back({x, y});
    }

    bool isInside(const Point & p) const {
        constexpr double margin = 1.0;
        return p.x > margin && p.z > margin && p.x < cells - margin && p.z < cells - margin;
    }
    /// Whether the ray through a pixel comes to the height of the highest peak and to that of the deepest
    /// valley above the terrain: between them it meets any surface without holes.
    bool mustBeCovered(int x, int y) const {
        const NBX::Ray ray = camera->rayThrough(x + 0.5, y + 0.5, s_side, s_side);
        const Point from = ray.getOrigin(), direction = ray.getDirection();
        if (direction.y >= 0.0) return false;
        return isInside(from + direction * ((s_highest - from.y) / direction.y)) &&
               isInside(from + direction * ((s_lowest - from.y) / direction.y));
    }
    unsigned countHoles() const {
        const NBX::SO<NBX::Image> picture = canvas->snapshot();
        unsigned holes = 0;
        for (const auto & [x, y] : covered) {
            const auto * color = picture->pixelComponentsU8(x, y);
            holes += color[0] == 255 && color[1] == 0 && color[2] == 255;
        }
        return holes;
    }
    /// For looking at, in a folder that the environment names.
    void keepPicture(const std::string & name) const {
        if (const char * folder = std::getenv("ZMT_KEEP_PICTURES"))
            writePng(*canvas->snapshot(), std::string(folder) + "/" + name + ".png");
    }
    /// Lets one block arrive.
    void deliverOne() {
        auto & waiting = terrain->state().waiting;
        if (waiting.empty()) return;
        const auto chosen = std::next(waiting.begin(), index(waiting.size()));
        terrain->state().arrived.insert(chosen->first);
        waiting.erase(chosen);
    }

    /// Draws views at random, each again and again while tiles arrive, the more the later.
    void fly(const Views & from, unsigned views, unsigned frames) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        for (unsigned view = 0; view < views; ++view) {
            if (view % 20 == 0) newTerrain();
            effect->seed = unsigned(random());
            look(from);
            show();
            TerrainPainterGLSettings::setGeometryError(number(1.0, 12.0));
            TerrainPainterGLSettings::enableOcclusionQueries(view % 2 == 0);
            for (unsigned frame = 0; frame < frames; ++frame) {
                GridTerrainPainterGL::resetStatistics();
                canvas->redisplay();
                const unsigned holes = countHoles();
                if (holes > 0) keepPicture("hole" + std::to_string(view) + "_" + std::to_string(frame));
                ASSERT_EQ(holes, 0U) << "view " << view << ", frame " << frame;
                pixels += covered.size();
                finest = std::min(finest, GridTerrainPainterGL::statistics().minLevel);
                coarsest = std::max(coarsest, GridTerrainPainterGL::statistics().maxLevel);
                for (unsigned i = 0; i < (frame < 5 ? 1U : 30U); ++i)
                    deliverOne();
            }
        }
    }

    const unsigned seed = std::getenv("ZMT_TEST_SEED") ? unsigned(std::atoi(std::getenv("ZMT_TEST_SEED")))
                                                       : std::random_device()();
    std::mt19937 random{seed};
    NBX::SO<SplittingEffect> effect{new SplittingEffect};
    NBX::SO<NBX::Camera> camera;
    NBX::SO<MemoryGridTerrain> terrain;
    double cells = 0.0;
    std::vector<std::pair<int, int>> covered; ///< the pixels of this view that show no background
    // What has been seen.
    std::uint64_t pixels = 0;
    int finest = 256, coarsest = -256;
};

TEST_F(WatertightTest, NoHoleShowsWhileTilesArriveOneByOne) {
    fly({30.0, 900.0, 20.0, 70.0, 5.0}, 200, 8);
    // The views have seen what they are about.
    EXPECT_GT(pixels, 1000000U);
    EXPECT_LT(finest, 0);
    EXPECT_EQ(coarsest, 4);
}

/// Where tiles are split to a few cells and views are narrow, borders of all kinds lie at the picture's edge.
TEST_F(WatertightTest, NoHoleShowsAtTheEdgeOfAPicture) {
    effect->smallest = 1.5;
    effect->splitShare = 2;
    fly({15.0, 200.0, 4.0, 40.0, 1.0}, 100, 3);
    EXPECT_GT(pixels, 1000000U);
    EXPECT_LT(finest, -2);
}

/// Heights of three levels, 80, 50 and 20, meet amid the terrain: on the vertical line there what closes one
/// border ends amid the edge of what closes another one.
TEST_F(WatertightTest, NoHoleShowsWhereThreeLevelsMeet) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    MemoryGrid grid;
    grid.level = 3;
    grid.depth = 2;
    grid.sample = [](unsigned depth, unsigned, unsigned) { return std::uint16_t(80 - 30 * depth); };
    grid.kind = [](const MemoryGrid::Key & key) {
        const bool isCoarse = key.depth == 1 && key.x == 0 && key.y == 0;
        const bool isMiddle = key.depth == 0 && key.x == 16 && key.y == 8;
        return isCoarse || isMiddle ? 1U : 2U;
    };
    cells = grid.cells();
    terrain = new MemoryGridTerrain(grid);
    terrain->loadAll();
    TerrainPainterGLSettings::setGeometryError(0.0);
    effect->smallest = 2.0 * cells;
    const double middle = cells / 2.0;
    for (unsigned view = 0; view < 400; ++view) {
        const double azimuth = number(1.0, 1.5) * M_PI, distance = number(5.0, 14.0);
        const Point target(middle, number(25.0, 75.0), middle);
        const Point eye(middle + distance * std::sin(azimuth), number(91.0, 110.0),
                        middle + distance * std::cos(azimuth));
        camera = new NBX::Camera(new NBX::LookAt(eye, target), new NBX::Perspective(60.0, 1.0, 4000.0));
        findCovered();
        show();
        canvas->redisplay();
        const unsigned holes = countHoles();
        if (holes > 0) keepPicture("meeting" + std::to_string(view));
        ASSERT_EQ(holes, 0U) << "view " << view;
        pixels += covered.size();
    }
    EXPECT_GT(pixels, 100000U);
}

/// A fine tile beside a coarse one, which lies far higher: between them there is nothing but what closes the
/// border. Both lie out of view, below and above it.
TEST_F(WatertightTest, BordersAreInViewThoughTheirTilesAreNot) {
    MemoryGrid grid;
    grid.level = 3;
    grid.depth = 1;
    grid.sample = [](unsigned depth, unsigned, unsigned) { return std::uint16_t(depth == 0 ? 10 : 1000); };
    grid.kind = [](const MemoryGrid::Key & key) { return key.x == 0 ? 2U : 1U; };
    terrain = new MemoryGridTerrain(grid);
    terrain->loadAll();
    TerrainPainterGLSettings::setGeometryError(1.0);
    const auto isCovered = [&](double z, double height, double halfSize) {
        camera = new NBX::Camera(new NBX::LookAt({-50, height, z}, {8, height, z}),
                                 new NBX::Ortho(-halfSize, halfSize, -halfSize, halfSize, 1, 200));
        show();
        canvas->redisplay();
        return pixel(canvas->snapshot(), s_side / 2, s_side / 2) != std::array<int, 4>{255, 0, 255, 255};
    };
    effect->smallest = 100.0;
    EXPECT_TRUE(isCovered(4.5, 500.0, 3.0));
    EXPECT_FALSE(isCovered(4.5, 1500.0, 3.0));
    EXPECT_FALSE(isCovered(-4.5, 500.0, 3.0));
    // Split into single cells: what closes the border of one reaches beyond it.
    effect->smallest = 1.0;
    effect->splitShare = 3;
    for (const double z : {0.5, 1.5, 2.5, 3.5, 4.5, 5.5, 6.5, 7.5})
        for (const double height : {50.0, 300.0, 700.0, 950.0})
            EXPECT_TRUE(isCovered(z, height, 0.2)) << z << ", " << height;
    EXPECT_FALSE(isCovered(4.5, 5.0, 0.2));
}

/// Tiles of 4 cells have rows for a difference of one level. Beside a tile three levels coarser they close
/// the border up to the heights one level above them; from there to the heights of the coarse tile it is
/// open.
TEST_F(WatertightTest, BordersBeyondTheLastRowAreClosedUpToItsHeights) {
    MemoryGrid grid;
    grid.level = 2;
    grid.depth = 3;
    grid.sample = [](unsigned depth, unsigned, unsigned) { return std::uint16_t(10 + 330 * depth); };
    grid.kind = [](const MemoryGrid::Key & key) { return key.x << key.depth < 16U ? 2U : 1U; };
    terrain = new MemoryGridTerrain(grid);
    terrain->loadAll();
    TerrainPainterGLSettings::setGeometryError(0.0);
    effect->smallest = 100.0;
    camera = new NBX::Camera(new NBX::LookAt({-50, 500, 9}, {16, 500, 9}),
                             new NBX::Ortho(-1, 1, -600, 600, 1, 200));
    show();
    canvas->redisplay();
    const NBX::SO<NBX::Image> picture = canvas->snapshot();
    const auto isCovered = [&](double height) {
        const int line = int((height + 100.0) / 1200.0 * s_side);
        return pixel(picture, s_side / 2, line) != std::array<int, 4>{255, 0, 255, 255};
    };
    for (const double height : {20.0, 200.0, 330.0})
        EXPECT_TRUE(isCovered(height)) << height;
    for (const double height : {-50.0, 350.0, 600.0, 990.0})
        EXPECT_FALSE(isCovered(height)) << height;
}

/// A strip one cell wide across the fine tile beside the coarse one: the cells in it, and at either end what
/// closes the border from beside it, in parts as large as they come. What lies between them beside the strip
/// is not drawn.
TEST_F(WatertightTest, OnlyPartsAtABorderAreDrawnForItsSake) {
    MemoryGrid grid;
    grid.level = 3;
    grid.depth = 1;
    grid.sample = [](unsigned depth, unsigned, unsigned) { return std::uint16_t(depth == 0 ? 10 : 1000); };
    grid.kind = [](const MemoryGrid::Key & key) { return key.x == 0 ? 2U : 1U; };
    terrain = new MemoryGridTerrain(grid);
    terrain->loadAll();
    TerrainPainterGLSettings::setGeometryError(0.0);
    effect->smallest = 1.0;
    effect->splitShare = 3;
    camera = new NBX::Camera(new NBX::LookAt({-50, 500, 1.5}, {8, 500, 1.5}),
                             new NBX::Ortho(-0.2, 0.2, -600, 600, 1, 200));
    show();
    GridTerrainPainterGL::resetStatistics();
    canvas->redisplay();
    constexpr unsigned cellsInStrip = 8, partsAtBothEnds = 2 * 3, coarseCells = 4;
    EXPECT_EQ(GridTerrainPainterGL::statistics().tilesCounted, cellsInStrip + partsAtBothEnds + coarseCells);
}

} // namespace
