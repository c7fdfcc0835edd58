#include <zmt/core/terrain/geometry/regular/gridpatchrayintersector.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>

#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/box.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/view/scaling.h>
#include <nbx/scene/view/translation.h>
#include <support/recordedreports.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainscaling.h>
#include <zmt/core/terrain/geometry/hybrid/createhybriddata.h>
#include <zmt/core/terrain/geometry/view/terrain.h>

#include "plaindescent.h"
#include "support/smallhybrid.h"

using NBX::Area;
using NBX::Bounds;
using NBX::Ray;
using NBX::RayTracingTechnique;
using ZMT::CORE::GridData;
using ZMT::CORE::GridPatch;
using ZMT::CORE::GridPatchRayIntersector;
using Matrix = NBX::Matrix4x4Base<double>;
using Point = NBX::Vector3Base<double>;

namespace {

NBX::SO<GridPatch> patchOf(const NBX::SO<GridData> & grid, const Area & domain, const Bounds & box) {
    return new GridPatch(grid, domain, box, 0.0, 0.0, nullptr);
}

NBX::SO<GridPatch> wholePatch(const NBX::SO<GridData> & grid) {
    return patchOf(grid, Area(0, 0, grid->sizeX() - 1, grid->sizeY() - 1), grid->boundingBox());
}

NBX::SO<RayTracingTechnique> traced(const Ray & ray, const std::vector<NBX::RenderObj *> & objects) {
    const NBX::SO<NBX::Engine> engine(new NBX::Engine);
    const NBX::SO<NBX::SceneThing> scene(new NBX::SceneThing);
    for (NBX::RenderObj * object : objects)
        scene->append(object);
    const NBX::SO<RayTracingTechnique> technique(new RayTracingTechnique(ray));
    technique->trace(engine.get(), scene.get());
    return technique;
}

NBX::SO<RayTracingTechnique> traced(const Ray & ray, const NBX::SO<GridPatch> & patch) {
    return traced(ray, std::vector<NBX::RenderObj *>{patch.get()});
}

/// Hills of several sizes on cells of 10 by 15 units, with flat, stepped and sloping places.
double hills(unsigned x, unsigned y) {
    if (x % 40 < 12 && y % 30 < 10) return 8.0;
    if (x % 50 > 40) return (x / 4) * 2.0 + (y % 2) * 0.5;
    return 20.0 * std::sin(x * 0.11) * std::cos(y * 0.07) + 4.0 * std::sin(x * 0.9 + y) +
           ((x * 7 + y * 13) % 5);
}

constexpr double s_cellX = 10.0, s_cellY = 15.0;

NBX::SO<GridData> hillGrid(unsigned sizeX = 150, unsigned sizeY = 131) {
    return TestTerrain::grid({sizeX, sizeY, 1000.0, 2000.0, s_cellX, s_cellY}, hills);
}

/// Rays of many kinds at a grid, in its frame.
class Rays {
public:
    explicit Rays(const Bounds & box) : box_(box) {}

    Ray next() {
        switch (kind_++ % 9) {
        case 0:
            return Ray(inside() + up(100), (inside() - inside()) + Point(0, -60, 0));
        case 1:
            return Ray(inside() + up(60), Point(0, -1, 0));
        case 2:
            return Ray(onLattice() + up(90), Point(0, -0.25, 0));
        case 3:
            return through(onLattice(), onLattice());
        case 4:
            return through(inside(), inside());
        case 5:
            return Ray(onLattice(), Point(0, 0, unit() < 0.5 ? 3 : -3));
        case 6:
            return through(inside() - up(200), inside());
        case 7:
            return through(inside() * 1e4, onLattice());
        default:
            return Ray(onLattice() + up(unit()), Point(s_cellX, 0.01 * (unit() - 0.5), s_cellY));
        }
    }

    /// Along borders and lines of the lattice, nearly along them, from far away, and grazing.
    Ray nextOnALine() {
        const double sign = unit() < 0.5 ? 1.0 : -1.0;
        const Point low = box_.getLLF(), high = box_.getURB();
        switch (kind_++ % 10) {
        case 0:
            return Ray(onLattice(), Point(sign, 0, 0));
        case 1:
            return Ray(onLattice(), Point(s_cellX, 0, sign * s_cellY));
        case 2:
            return Ray(onLattice(), Point(-s_cellX, -0.01, sign * s_cellY));
        case 3:
            return Ray(onLattice() + up(50), Point(sign * 1e-200, -1, 1e-310));
        case 4:
            return Ray(onLattice() + up(50), Point(-1e-17, -1, sign * 1e-14));
        case 5:
            return through(Point(unit() < 0.5 ? low.x : high.x, high.y, low.z), Point(low.x, low.y, high.z));
        case 6:
            return Ray(Point(unit() < 0.5 ? low.x : high.x, low.y + 0.5 * unit(), high.z),
                       Point(0, 1e-3, -1));
        case 7:
            return through(Point(sign * 1e9, 1e8 * unit(), 1e9 * unit()), inside());
        case 8:
            return through(onLattice(), onLattice() + Point(1e-9, 0, -1e-9));
        default:
            return Ray(inside() * 1.5, Point(sign, 1e-7 * (unit() - 0.5), 1e-3));
        }
    }

private:
    double unit() { return std::uniform_real_distribution<double>()(random_); }
    Point inside() { return box_.point(unit(), unit(), unit()); }
    static Point up(double height) { return {0, height, 0}; }
    /// Over or under a vertex, at a height that vertices have.
    Point onLattice() {
        const Point p = inside();
        return {std::round(p.x / s_cellX) * s_cellX, std::round(p.y), std::round(p.z / s_cellY) * s_cellY};
    }
    static Ray through(const Point & a, const Point & b) { return Ray(a, b - a); }

    Bounds box_;
    std::mt19937 random_{17};
    unsigned kind_ = 0;
};

/// The box over the domain of a patch, from the lowest to the highest vertex of its grid.
Bounds placeOf(const GridPatch & patch) {
    const Area & d = patch.domain();
    const Bounds box = patch.grid()->boundingBox();
    const Point low = patch.grid()->vertex(unsigned(d.getX()), unsigned(d.getY()));
    const Point high =
        patch.grid()->vertex(unsigned(d.getX()) + d.getWidth(), unsigned(d.getY()) + d.getHeight());
    return Bounds({low.x, box.getLLF().y, low.z}, {high.x, box.getURB().y, high.z});
}

/// The nearest hits, in front of what `objects` there are and in their frame, are those of the plain descent.
/// Gives how many rays hit the patch.
unsigned expectHitsOfPlainDescent(const NBX::SO<GridPatch> & patch, unsigned rays,
                                  const std::vector<NBX::RenderObj *> & objects = {},
                                  Ray (Rays::*next)() = &Rays::next) {
    const NBX::SO<PlainPatch> plain(new PlainPatch(patch));
    std::vector<NBX::RenderObj *> search = objects, reference = objects;
    search.push_back(patch.get());
    reference.push_back(plain.get());
    Rays source(placeOf(*patch));
    unsigned hits = 0;
    for (unsigned i = 0; i < rays; ++i) {
        const Ray ray = (source.*next)();
        const auto a = traced(ray, search), b = traced(ray, reference);
        EXPECT_EQ(a->hasHit(), b->hasHit()) << "ray " << i;
        if (!a->hasHit() || !b->hasHit()) continue;
        const auto &x = a->nearestHit(), &y = b->nearestHit();
        const bool isSame = x.distance == y.distance && x.point == y.point && x.normal == y.normal &&
                            x.shape->classInfoNBX() == y.shape->classInfoNBX();
        EXPECT_TRUE(isSame) << "ray " << i << ": " << x.distance << " and " << y.distance;
        hits += x.shape->classInfoNBX() != NBX::Box::ClassInfoNBX();
    }
    return hits;
}

TEST(GridPatchRayIntersector, IsTheRayIntersectorOfGridPatches) {
    const NBX::SO<NBX::Engine> engine(new NBX::Engine);
    EXPECT_EQ(GridPatchRayIntersector().target(), GridPatch::ClassNameNBX());
    EXPECT_TRUE(dynamic_cast<GridPatchRayIntersector *>(
        engine->findHandler(NBX::RayIntersector::ClassNameNBX(), GridPatch::ClassInfoNBX())));
    const NBX::SO<NBX::Box> other(new NBX::Box);
    EXPECT_FALSE(
        GridPatchRayIntersector().intersect(engine.get(), Matrix(), Matrix(), other.get(), Ray(), nullptr));
}

TEST(GridPatchRayIntersector, FindsTheHitsOfThePlainDescent) {
    EXPECT_GT(expectHitsOfPlainDescent(wholePatch(hillGrid()), 4500), 2000U);
}

TEST(GridPatchRayIntersector, FindsThemAlongLinesAndBorders) {
    EXPECT_GT(expectHitsOfPlainDescent(wholePatch(hillGrid()), 4000, {}, &Rays::nextOnALine), 1000U);
    const auto part = patchOf(hillGrid(60, 50), Area(13, 5, 33, 42), hillGrid(60, 50)->boundingBox());
    EXPECT_GT(expectHitsOfPlainDescent(part, 2000, {}, &Rays::nextOnALine), 300U);
    const auto hybrid =
        SmallHybrid::hybrid({60, 50, 0, 0, s_cellX, s_cellY}, hills, {{8, 8, 45}, {30, 16, -9}});
    EXPECT_GT(expectHitsOfPlainDescent(wholePatch(hybrid), 2000, {}, &Rays::nextOnALine), 300U);
}

TEST(GridPatchRayIntersector, FindsThemOnAnyPartOfAGrid) {
    const auto grid = hillGrid(60, 50);
    for (const Area & domain : {Area(0, 0, 1, 1), Area(58, 48, 1, 1), Area(7, 0, 2, 49), Area(0, 9, 59, 1),
                                Area(13, 5, 8, 8), Area(13, 5, 9, 8), Area(31, 17, 20, 32)}) {
        SCOPED_TRACE(std::to_string(domain.getX()) + ", " + std::to_string(domain.getY()));
        EXPECT_GT(expectHitsOfPlainDescent(patchOf(grid, domain, grid->boundingBox()), 900), 100U);
    }
}

/// The height limits decide which cells are tested, not where their triangles may be hit.
TEST(GridPatchRayIntersector, FindsThemBetweenAnyHeightLimits) {
    const auto grid = hillGrid(60, 50);
    for (const auto & [low, high] : {std::pair(-5.0, 5.0), {8.0, 8.0}, {-1e6, 1e6}, {100.0, 200.0}}) {
        SCOPED_TRACE(low);
        const Bounds box({0, low, 0}, {1, high, 1});
        EXPECT_GT(expectHitsOfPlainDescent(patchOf(grid, Area(0, 0, 59, 49), box), 1800), 50U);
    }
}

TEST(GridPatchRayIntersector, FindsThemInAnyFrame) {
    const auto patch = wholePatch(hillGrid(60, 50));
    const NBX::SO<NBX::Translation> translation(new NBX::Translation({-50, 3, 20}));
    const NBX::SO<ZMT::CORE::TerrainScaling> scaling(new ZMT::CORE::TerrainScaling({0.9, 7, 1.1}));
    const NBX::SO<NBX::Tf> turn(new NBX::Tf(Matrix::rotation({1, 2, 3}, 0.4))),
        mirror(new NBX::Scaling({1, -1, 1}));
    EXPECT_GT(expectHitsOfPlainDescent(patch, 900, {translation.get(), scaling.get()}), 300U);
    EXPECT_GT(expectHitsOfPlainDescent(patch, 900, {turn.get()}), 100U);
    EXPECT_GT(expectHitsOfPlainDescent(patch, 900, {mirror.get()}), 100U);
}

TEST(GridPatchRayIntersector, FindsThemInFrontOfOtherShapes) {
    const auto grid = hillGrid(60, 50);
    const NBX::SO<NBX::Box> low(new NBX::Box(Point(-1e5, -200, -1e5), Point(1e5, -60, 1e5))),
        middle(new NBX::Box(Point(100, -50, 100), Point(400, 50, 600)));
    EXPECT_GT(expectHitsOfPlainDescent(wholePatch(grid), 1800, {low.get(), middle.get()}), 300U);
}

TEST(GridPatchRayIntersector, FindsThemAtMicroStructures) {
    std::vector<SmallHybrid::Peak> peaks;
    for (unsigned i = 0; i < 200; ++i)
        peaks.push_back({(i * 7) % 59, (i * 11) % 49, i % 3 ? 45.0 : -30.0});
    const auto hybrid = SmallHybrid::hybrid({60, 50, 0, 0, s_cellX, s_cellY}, hills, peaks);
    EXPECT_GT(expectHitsOfPlainDescent(wholePatch(hybrid), 1800), 300U);
}

/// On a map far from its origin, with corners of triangles on the borders of their cells.
TEST(GridPatchRayIntersector, FindsThemAtStampedFeatures) {
    const ZMT::RASTER::RasterGrid layout{60, 50, 500000.0, 5.2e6, s_cellX, s_cellY};
    std::mt19937 random(23);
    std::uniform_real_distribution<double> unit(0.0, 0.999);
    std::vector<ZMT::CORE::CreateHybridData::Feature> features;
    for (unsigned i = 0; i < 60; ++i) {
        auto & feature = features.emplace_back();
        const double x = 55.0 * unit(random), y = 45.0 * unit(random);
        for (unsigned k = 0; k <= i % 3; ++k)
            feature.push_back({layout.minX + s_cellX * (x + 4.0 * unit(random)), 60.0 * unit(random) - 30.0,
                               layout.minY + s_cellY * (y + 4.0 * unit(random))});
    }
    const auto hybrid = ZMT::CORE::CreateHybridData::create(TestTerrain::grid(layout, hills), features);
    EXPECT_GT(expectHitsOfPlainDescent(wholePatch(hybrid), 1800), 300U);
}

/// Two rays that the equally near triangles of a saddle and of a vertex share.
TEST(GridPatchRayIntersector, OfEquallyNearHitsTheFirstInOrderOfDivisionCounts) {
    const auto grid =
        TestTerrain::grid({33, 33, 0, 0, 1, 1}, [](unsigned x, unsigned y) { return double(x % 2 + y % 2); });
    const auto hit = traced(Ray({16, 9, 16}, {0, -1, 0}), wholePatch(grid))->nearestHit();
    EXPECT_EQ(hit.point, Point(16, 0, 16));
    // The quarter of low x and low y comes first; in its last cell the first triangle (15, 15), (15, 16),
    // (16, 16).
    const Point a = grid->vertex(15, 15), b = grid->vertex(15, 16), c = grid->vertex(16, 16);
    EXPECT_EQ(hit.normal, (b - a).cross(c - a).normalized());
}

TEST(GridPatchRayIntersector, OneCellTestsItsTwoTriangles) {
    // The heights are those of no plane: 1 at (1, 0), 0 elsewhere.
    const auto grid = TestTerrain::grid({3, 3, 0, 0, 1, 1},
                                        [](unsigned x, unsigned y) { return x == 1 && y == 0 ? 1.0 : 0.0; });
    const auto patch = patchOf(grid, Area(0, 0, 1, 1), grid->boundingBox());
    const auto heightAt = [&](double x, double z) {
        const auto technique = traced(Ray({x, 5, z}, {0, -1, 0}), patch);
        return technique->hasHit() ? technique->nearestHit().point.y : -1.0;
    };
    EXPECT_DOUBLE_EQ(heightAt(0.25, 0.75), 0.0);
    EXPECT_DOUBLE_EQ(heightAt(0.75, 0.25), 0.5);
    EXPECT_DOUBLE_EQ(heightAt(0.5, 0.5), 0.0);
    EXPECT_DOUBLE_EQ(heightAt(1.5, 0.5), -1.0) << "the next cell";
    const auto technique = traced(Ray({0.75, 5, 0.25}, {0, -1, 0}), patch);
    EXPECT_EQ(technique->nearestHit().shape.get(), patch.get());
    EXPECT_LT((technique->nearestHit().normal - Point(-1, 1, 1).normalized()).length(), 1e-12);
    EXPECT_LT(
        (traced(Ray({0.75, -5, 0.25}, {0, 1, 0}), patch)->nearestHit().normal - Point(1, -1, -1).normalized())
            .length(),
        1e-12)
        << "it looks at the origin of the ray";
}

TEST(GridPatchRayIntersector, QueriesDifferByAQuarterOfTheBendAtMost) {
    const auto grid =
        TestTerrain::grid({2, 2, 0, 0, 1, 1}, [](unsigned x, unsigned y) { return x + y == 1 ? 4.0 : 0.0; });
    constexpr double bend = 8.0;
    double largest = 0.0;
    for (double x = 1.0 / 16; x < 1.0; x += 1.0 / 16)
        for (double z = 1.0 / 16; z < 1.0; z += 1.0 / 16) {
            const auto hit = traced(Ray({x, 9, z}, {0, -1, 0}), wholePatch(grid))->nearestHit();
            largest = std::max(largest, std::abs(hit.point.y - grid->calculateHeight({x, 0, z})));
        }
    EXPECT_DOUBLE_EQ(largest, bend / 4.0) << "in the middle";
}

TEST(GridPatchRayIntersector, OneCellIsItsMicroStructure) {
    const auto hybrid =
        SmallHybrid::hybrid({3, 3, 0, 0, 2, 2}, [](unsigned, unsigned) { return 0.0; }, {{0, 0, 9.0}});
    const auto technique =
        traced(Ray({1, 50, 1}, {0, -1, 0}), patchOf(hybrid, Area(0, 0, 1, 1), hybrid->boundingBox()));
    ASSERT_TRUE(technique->hasHit());
    EXPECT_DOUBLE_EQ(technique->nearestHit().point.y, 9.0);
    EXPECT_TRUE(dynamic_cast<const NBX::PolygonSet *>(technique->nearestHit().shape.get()));
}

/// Counts how often its cells are read.
class CountedRaster : public ZMT::RASTER::RasterData {
    NBX_TEMPLATE_CLASS(CountedRaster, ZMT::RASTER::RasterData)
public:
    explicit CountedRaster(unsigned size) : RasterData({size, size, 0, 0, s_cellX, s_cellY}, false, 0.0) {}
    using RasterData::value;
    double value(unsigned col, unsigned row) const override {
        ++reads;
        return hills(col, row);
    }
    mutable unsigned reads = 0;
};

TEST(GridPatchRayIntersector, ARayThatMissesTheBoxCostsOneTest) {
    const NBX::SO<CountedRaster> raster(new CountedRaster(257));
    const NBX::SO<GridData> grid(new GridData(raster.get()));
    const auto patch = wholePatch(grid);
    for (const Ray & ray :
         {Ray({0, 500, 0}, {1, 0, 1}), Ray({-1, 0, 0}, {-1, 0, 0}), Ray({500, 500, 500}, {0, 1, 0})}) {
        raster->reads = 0;
        EXPECT_FALSE(traced(ray, patch)->hasHit());
        EXPECT_EQ(raster->reads, 2U) << "the corners of the box";
    }
}

TEST(GridPatchRayIntersector, ARayReadsAFewCells) {
    const NBX::SO<CountedRaster> raster(new CountedRaster(257));
    const NBX::SO<GridData> grid(new GridData(raster.get()));
    const auto patch = wholePatch(grid);
    const Ray down({1283, 500, 1931}, {0, -1, 0});
    raster->reads = 0;
    traced(down, patch);
    EXPECT_GT(raster->reads, 257U * 257U) << "the first ray reads all for the bounds";
    raster->reads = 0;
    EXPECT_TRUE(traced(down, patch)->hasHit());
    EXPECT_LT(raster->reads, 60U);

    const auto cell =
        patchOf(NBX::SO<GridData>(new GridData(raster.get())), Area(3, 3, 1, 1), grid->boundingBox());
    raster->reads = 0;
    traced(Ray({33, 500, 50}, {0, -1, 0}), cell);
    EXPECT_LT(raster->reads, 30U) << "bounds would not pay for a small patch";
}

TEST(GridPatchRayIntersector, RaysThatAreNoneHitNothing) {
    const auto patch = wholePatch(hillGrid(40, 40));
    constexpr double nan = std::numeric_limits<double>::quiet_NaN(),
                     infinity = std::numeric_limits<double>::infinity();
    const Point middle(200, 100, 300);
    for (const Ray & ray : {Ray(middle, {0, 0, 0}), Ray(middle, {nan, 1, 0}), Ray({nan, 0, 0}, {0, -1, 0}),
                            Ray(middle, {0, -infinity, 0}), Ray({0, infinity, 0}, {0, -1, 0}),
                            Ray(middle, {0, -1e-200, 0}), Ray(middle, {0, -1e200, 0})})
        EXPECT_FALSE(traced(ray, patch)->hasHit());
    EXPECT_TRUE(traced(Ray(middle, {0, -1e-150, 0}), patch)->hasHit());
    EXPECT_TRUE(traced(Ray(middle, {0, -1e150, 0}), patch)->hasHit());
    EXPECT_TRUE(traced(Ray({200, 1e12, 300}, {0, -1, 0}), patch)->hasHit());
    traced(Ray({200, 1e300, 300}, {0, -1, 0}), patch);
}

TEST(GridPatchRayIntersector, InfiniteHeightsAreNotHit) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const auto grid = TestTerrain::grid(
        {20, 20, 0, 0, 1, 1}, [](unsigned x, unsigned y) { return x == 10 && y == 10 ? infinity : 1.0; });
    const auto patch = patchOf(grid, Area(0, 0, 19, 19), Bounds({0, 0, 0}, {19, 5, 19}));
    EXPECT_FALSE(traced(Ray({9.5, 9, 9.3}, {0, -1, 0}), patch)->hasHit());
    EXPECT_TRUE(traced(Ray({5.5, 9, 9.3}, {0, -1, 0}), patch)->hasHit());
}

class CheckGridTest : public testing::Test {
protected:
    void check(NBX::Engine * with, const GridData * on, const Area & domain, double minY, double maxY) {
        reports.clear();
        GridPatchRayIntersector::checkGrid(with, technique->ray(), on, domain, minY, maxY, Matrix(), nullptr,
                                           technique.get());
        EXPECT_FALSE(technique->hasHit());
    }

    const NBX::SO<NBX::Engine> engine{new NBX::Engine};
    const NBX::SO<GridData> grid = hillGrid(5, 4);
    const NBX::SO<RayTracingTechnique> technique{new RayTracingTechnique(Ray({12, 50, 12}, {0, -1, 0}))};
    RecordedReports reports;
};

TEST_F(CheckGridTest, ReportsAMissingEngine) {
    check(nullptr, grid.get(), {0, 0, 4, 3}, -50, 50);
    EXPECT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports.count(0, L"engine", L"no engine"), 1U) << reports;
}

TEST_F(CheckGridTest, ReportsAMissingGrid) {
    check(engine.get(), nullptr, {0, 0, 4, 3}, -50, 50);
    EXPECT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports.count(0, L"grid", L"no grid"), 1U) << reports;
}

TEST_F(CheckGridTest, ReportsTurnedHeights) {
    check(engine.get(), grid.get(), {0, 0, 4, 3}, 50, -50);
    EXPECT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports.count(0, L"minY <= maxY", L"internal error"), 1U) << reports;
    check(engine.get(), grid.get(), {4, 0, 1, 1}, 50, -50);
    ASSERT_GE(reports.size(), 2U);
    EXPECT_EQ(reports.last().condition, L"minY <= maxY") << "behind the domain";
}

TEST_F(CheckGridTest, ReportsADomainBesideTheGrid) {
    const struct {
        Area domain;
        const wchar_t *condition, *message;
    } cases[] = {
        {{-1, 0, 1, 1},
         L"((0) <= (domain.getX())) && ((domain.getX()) < (grid->sizeX() - 1))",
         L"range error: [0, 4), -1"},
        {{4, 0, 1, 1},
         L"((0) <= (domain.getX())) && ((domain.getX()) < (grid->sizeX() - 1))",
         L"range error: [0, 4), 4"},
        {{0, 3, 1, 1},
         L"((0) <= (domain.getY())) && ((domain.getY()) < (grid->sizeY() - 1))",
         L"range error: [0, 3), 3"},
        {{1, 0, 4, 1},
         L"((1) <= (domain.getWidth())) && ((domain.getWidth()) < (grid->sizeX() - domain.getX()))",
         L"range error: [1, 4), 4"},
        {{0, 1, 1, 0},
         L"((1) <= (domain.getHeight())) && ((domain.getHeight()) < (grid->sizeY() - domain.getY()))",
         L"range error: [1, 3), 0"},
    };
    for (const auto & c : cases) {
        check(engine.get(), grid.get(), c.domain, -50, 50);
        EXPECT_EQ(reports.count(0, c.condition, c.message), 1U) << reports;
    }
}

/// How far the two triangles of the cell at `p` are at most from the height between its four corners, which
/// queries give.
double bendingAt(const GridData & grid, const Point & p) {
    const auto x = unsigned(p.x / s_cellX), y = unsigned(p.z / s_cellY);
    const double bending =
        grid.vertex(x, y).y + grid.vertex(x + 1, y + 1).y - grid.vertex(x + 1, y).y - grid.vertex(x, y + 1).y;
    return std::abs(bending) / 4.0;
}

/// The whole way: a terrain is simplified to its data, these to a patch, and that is intersected.
TEST(GridPatchRayIntersector, TerrainsAreHitAtFullResolutionInSceneCoordinates) {
    const auto grid = hillGrid(100, 90);
    const NBX::SO<ZMT::CORE::Terrain> terrain(new ZMT::CORE::Terrain(grid.get(), nullptr));
    ZMT::CORE::GeoTransformation::setNBXOrigin({900, 10, 1800});
    std::mt19937 random(5);
    std::uniform_real_distribution<double> unit(0.01, 0.99);
    for (unsigned i = 0; i < 300; ++i) {
        const Point from = terrain->boundingBox().point(unit(random), 1.0, unit(random)) + Point(0, 10, 0);
        const auto technique = traced(Ray(from, {0, -2, 0}), {terrain.get()});
        ASSERT_TRUE(technique->hasHit());
        const Point geo = ZMT::CORE::GeoTransformation::nbx2geoTf(technique->nearestHit().point);
        EXPECT_NEAR(geo.y, terrain->calculateHeight(geo, false),
                    bendingAt(*grid, geo - grid->origin()) + 1e-9);
        EXPECT_NEAR(geo.x, from.x + 900, 1e-9);
        EXPECT_NEAR(geo.z, from.z + 1800, 1e-9);
    }
    const Point vertex = grid->vertex(40, 30) + grid->origin();
    const auto technique = traced(
        Ray(ZMT::CORE::GeoTransformation::geo2nbxTf(vertex) + Point(0, 99, 0), {0, -1, 0}), {terrain.get()});
    EXPECT_NEAR(ZMT::CORE::GeoTransformation::nbx2geoTf(technique->nearestHit().point).y, vertex.y, 1e-9);
    ZMT::CORE::GeoTransformation::setNBXOrigin({});
}

} // namespace
