#include <zmt/core/terrain/geometry/hybrid/createhybriddata.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>
#include <random>

#include <support/recordedreports.h>
#include <zmt/core/terrain/geometry/hybrid/microtrianglesdata.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/raster/simplerasterdata.h>

#include "support/testterrain.h"

using NBX::SO;
using ZMT::CORE::CreateHybridData;
using ZMT::CORE::GridData;
using ZMT::CORE::HybridData;
using ZMT::CORE::MicroTrianglesData;
using ZMT::RASTER::RasterGrid;
using Features = std::vector<CreateHybridData::Feature>;
using Point = NBX::Vector3Base<double>;

namespace {

double plain(unsigned, unsigned) {
    return 5.0;
}

class CreateHybridDataTest : public testing::Test {
protected:
    /// 6 by 5 cells of 10 by 20, the first vertex at (100, 200) of the map.
    static SO<GridData> grid() { return TestTerrain::grid({7, 6, 100.0, 200.0, 10.0, 20.0}, plain); }

    SO<HybridData> stamp(const Features & features) { return CreateHybridData::create(grid_, features); }

    static unsigned trianglesOf(const HybridData & data, unsigned x, unsigned y) {
        const SO<MicroTrianglesData> micro = data.microData(x, y);
        return micro ? micro->vertices() / 3 : 0;
    }
    static unsigned stampedCells(const HybridData & data) {
        unsigned count = 0;
        for (unsigned y = 0; y + 1 < data.sizeY(); ++y)
            for (unsigned x = 0; x + 1 < data.sizeX(); ++x)
                count += data.microData(x, y) ? 1 : 0;
        return count;
    }

    RecordedReports reports_;
    SO<GridData> grid_ = grid();
};

double area2(const Point & a, const Point & b, const Point & c) {
    return (b.x - a.x) * (c.z - a.z) - (b.z - a.z) * (c.x - a.x);
}

/// Twice the area of all triangles of a cell, all of them turned alike.
double coveredArea2(const MicroTrianglesData & micro) {
    double sum = 0.0;
    for (unsigned v = 0; v < micro.vertices(); v += 3)
        sum += std::abs(area2(micro.vertex(v), micro.vertex(v + 1), micro.vertex(v + 2)));
    return sum;
}

/// The corners of a cell's triangles that lie on one of its sides: 0 low x, 1 high x, 2 low z, 3 high z.
std::vector<std::pair<double, double>> onSide(const HybridData & data, unsigned x, unsigned y,
                                              unsigned side) {
    const SO<MicroTrianglesData> micro = data.microData(x, y);
    const double line = side < 2 ? data.scale().x * (x + side) : data.scale().z * (y + side - 2);
    const double rounding = 1e-15 * std::abs(side < 2 ? data.origin().x : data.origin().z) + 1e-14;
    std::vector<std::pair<double, double>> found;
    if (!micro) {
        for (const unsigned end : {0U, 1U}) {
            const Point p = side < 2 ? data.vertex(x + side, y + end) : data.vertex(x + end, y + side - 2);
            found.emplace_back(side < 2 ? p.z : p.x, p.y);
        }
    }
    for (unsigned v = 0; micro && v < micro->vertices(); ++v) {
        const Point p = micro->vertex(v);
        if (std::abs((side < 2 ? p.x : p.z) - line) < rounding) found.emplace_back(side < 2 ? p.z : p.x, p.y);
    }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

/// Every cell is covered exactly, and has the same vertices on a side as its neighbour.
void expectNoHoles(const HybridData & data) {
    const double cell2 = 2.0 * data.scale().x * data.scale().z;
    for (unsigned y = 0; y + 1 < data.sizeY(); ++y) {
        for (unsigned x = 0; x + 1 < data.sizeX(); ++x) {
            SCOPED_TRACE("cell " + std::to_string(x) + ", " + std::to_string(y));
            if (const SO<MicroTrianglesData> micro = data.microData(x, y)) {
                EXPECT_NEAR(coveredArea2(*micro), cell2, 1e-6 * cell2);
            }
            if (x + 2 < data.sizeX()) {
                EXPECT_EQ(onSide(data, x, y, 1), onSide(data, x + 1, y, 0));
            }
            if (y + 2 < data.sizeY()) {
                EXPECT_EQ(onSide(data, x, y, 3), onSide(data, x, y + 1, 2));
            }
        }
    }
}

/// How much of the way from `a` to `b`, in geo coordinates, is made of edges of triangles, from 0 to 1.
/// Edges of plain cells do not count.
double shareOfEdges(const HybridData & data, const Point & a, const Point & b) {
    const double length2 = (b.x - a.x) * (b.x - a.x) + (b.z - a.z) * (b.z - a.z);
    const double length = std::sqrt(length2);
    const auto distance = [&](const Point & p) { return std::abs(area2(a, b, p)) / length; };
    const auto place = [&](const Point & p) {
        return ((p.x - a.x) * (b.x - a.x) + (p.z - a.z) * (b.z - a.z)) / length2;
    };
    const double near = 1e-7 * data.scale().x;
    std::map<double, double> parts;
    for (unsigned y = 0; y + 1 < data.sizeY(); ++y) {
        for (unsigned x = 0; x + 1 < data.sizeX(); ++x) {
            const SO<MicroTrianglesData> micro = data.microData(x, y);
            for (unsigned v = 0; micro && v < micro->vertices(); ++v) {
                const Point p = micro->vertex(v) + data.origin();
                const Point q = micro->vertex(v % 3 == 2 ? v - 2 : v + 1) + data.origin();
                if (distance(p) > near || distance(q) > near) continue;
                const double from = std::max(0.0, std::min(place(p), place(q)));
                const double to = std::min(1.0, std::max(place(p), place(q)));
                if (from < to) parts[from] = std::max(parts[from], to);
            }
        }
    }
    double covered = 0.0, end = 0.0;
    for (const auto & [from, to] : parts) {
        covered += std::max(0.0, to - std::max(from, end));
        end = std::max(end, to);
    }
    return covered;
}

TEST_F(CreateHybridDataTest, NothingStampedIsThePlainGrid) {
    const auto data = stamp({});
    ASSERT_TRUE(data);
    EXPECT_EQ(data->vertices(), 42U);
    EXPECT_EQ(stampedCells(*data), 0U);
    EXPECT_EQ(data->boundingBox(), grid_->boundingBox());
    EXPECT_NE(data->rasterData(), grid_->rasterData());
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(CreateHybridDataTest, TheCopyInterpolatesAsTheGridDoes) {
    for (const bool isLinear : {true, false}) {
        const SO<ZMT::RASTER::SimpleRasterData<float>> raster(
            new ZMT::RASTER::SimpleRasterData<float>(7, 6, 100.0, 200.0, 10.0, 20.0, false, 0.0F));
        raster->setUseLinearInterpolation(isLinear);
        grid_ = new GridData(raster.get());
        EXPECT_EQ(stamp({})->rasterData()->useLinearInterpolation(), isLinear);
    }
}

TEST_F(CreateHybridDataTest, NoGridIsReported) {
    EXPECT_FALSE(CreateHybridData::create(SO<GridData>(), Features()));
    EXPECT_EQ(reports_.count(0, L"grid", L"no grid"), 1U) << reports_;
}

TEST_F(CreateHybridDataTest, APointOnAGridVertexChangesItsHeightOnly) {
    const auto data = stamp({{{120.0, 9.5, 240.0}}});
    EXPECT_EQ(data->vertex(2, 2), Point(20.0, 9.5, 40.0));
    EXPECT_EQ(data->vertices(), 42U);
    EXPECT_EQ(stampedCells(*data), 0U);
    EXPECT_EQ(grid_->vertex(2, 2).y, 5.0) << "the source has changed";
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(CreateHybridDataTest, APointInACellHasFourTriangles) {
    const auto data = stamp({{{123.25, 9.5, 247.5}}});
    EXPECT_EQ(stampedCells(*data), 1U);
    EXPECT_EQ(trianglesOf(*data, 2, 2), 4U);
    ASSERT_EQ(data->vertices(), 43U);
    EXPECT_EQ(data->vertex(42), Point(23.25, 9.5, 47.5));
    EXPECT_FALSE(data->isGridVertex(42));
    EXPECT_TRUE(data->isGridVertex(41));
    EXPECT_EQ(data->boundingBox().getURB().y, 9.5);
    expectNoHoles(*data);
}

/// A cell's point on a grid line is one of both cells beside it, and at the border of the grid of one.
TEST_F(CreateHybridDataTest, APointOnAGridLineIsInBothCells) {
    const struct {
        const char * name;
        Point point;
        std::vector<std::pair<unsigned, unsigned>> cells;
    } cases[] = {{"column", {120.0, 9.0, 247.0}, {{1, 2}, {2, 2}}},
                 {"row", {123.0, 9.0, 240.0}, {{2, 1}, {2, 2}}},
                 {"low column", {100.0, 9.0, 247.0}, {{0, 2}}},
                 {"low row", {123.0, 9.0, 200.0}, {{2, 0}}},
                 {"last column", {std::nextafter(160.0, 0.0), 9.0, 247.0}, {{5, 2}}},
                 {"last row", {123.0, 9.0, std::nextafter(300.0, 0.0)}, {{2, 4}}}};
    for (const auto & c : cases) {
        SCOPED_TRACE(c.name);
        const auto data = stamp({{c.point}});
        EXPECT_EQ(stampedCells(*data), c.cells.size());
        for (const auto & [x, y] : c.cells)
            EXPECT_EQ(trianglesOf(*data, x, y), 3U);
        EXPECT_EQ(data->vertices(), 42U + c.cells.size());
        expectNoHoles(*data);
    }
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(CreateHybridDataTest, NumbersOfPointsAreChecked) {
    const Point p(123.0, 9.0, 247.0);
    const auto data = stamp({{}, {p, p, p, p}, {p}});
    const std::wstring condition = L"((1) <= (points.size())) && ((points.size()) < (4))";
    EXPECT_EQ(reports_.count(0, condition, L"range error: [1, 4), 0"), 1U) << reports_;
    EXPECT_EQ(reports_.count(0, condition, L"range error: [1, 4), 4"), 1U) << reports_;
    EXPECT_EQ(reports_.size(), 2U);
    EXPECT_EQ(data->vertices(), 43U);
}

TEST_F(CreateHybridDataTest, PointsOutsideAreRefused) {
    const std::wstring x = L"((bbox_.getLLF()[0]) <= (p[0])) && ((p[0]) < (bbox_.getURB()[0]))";
    const std::wstring z = L"((bbox_.getLLF()[2]) <= (p[2])) && ((p[2]) < (bbox_.getURB()[2]))";
    const double nan = std::nan(""), infinity = HUGE_VAL;
    const struct {
        const char * name;
        Point point;
        std::wstring condition, message;
    } cases[] = {{"low x", {99.0, 0, 210}, x, L"range error: [100, 160), 99"},
                 {"high x", {160.0, 0, 210}, x, L"range error: [100, 160), 160"},
                 {"low z", {110, 0, 199.0}, z, L"range error: [200, 300), 199"},
                 {"high z", {110, 0, 300.0}, z, L"range error: [200, 300), 300"},
                 {"no number", {nan, 0, 210}, x, L"range error: [100, 160), nan"},
                 {"infinite", {110, 0, -infinity}, z, L"range error: [200, 300), -inf"},
                 {"height", {110, nan, 210}, L"std::isfinite(p[1])", L"height is not finite"}};
    for (const auto & c : cases) {
        SCOPED_TRACE(c.name);
        const Point inside(133.0, 7.0, 247.0);
        for (const auto & feature :
             Features{{c.point}, {inside, c.point}, {inside, c.point, {141, 7, 250}}}) {
            reports_.clear();
            const auto data = stamp({feature});
            EXPECT_EQ(reports_.count(0, c.condition, c.message), 1U) << reports_;
            EXPECT_EQ(reports_.size(), 1U);
            EXPECT_EQ(stampedCells(*data), 0U);
            EXPECT_EQ(data->boundingBox(), grid_->boundingBox());
        }
    }
}

/// A stored grid may have vertices anywhere: they do not widen what can be stamped.
TEST_F(CreateHybridDataTest, TheRasterTellsWhatIsInside) {
    grid_ = new HybridData(grid_->rasterData().get(), {{1e17, 5.0, 1e17}, {-1e17, 5.0, 0.0}}, nullptr);
    for (const double far : {170.0, 1e9, 9e16, -9e16}) {
        SCOPED_TRACE(far);
        const Point inside(123.25, 9.5, 247.5), outside(far, 7.0, 247.5);
        reports_.clear();
        const auto data = stamp({{inside}, {outside}, {inside, outside}, {inside, {130, 7, 280}, outside}});
        EXPECT_EQ(reports_.size(), 3U) << reports_;
        for (std::size_t i = 0; i < reports_.size(); ++i)
            EXPECT_EQ(reports_[i].message.substr(0, 12), L"range error:");
        EXPECT_EQ(stampedCells(*data), 1U);
    }
}

TEST_F(CreateHybridDataTest, ASegmentIsCutAtGridLines) {
    const Point a(112.0, 10.0, 210.0), b(132.0, 30.0, 210.0);
    const auto data = stamp({{a, b}});
    EXPECT_EQ(stampedCells(*data), 3U);
    ASSERT_EQ(data->vertices(), 42U + 6U);
    std::vector<Point> points;
    for (unsigned v = 42; v < data->vertices(); ++v)
        points.push_back(data->vertex(v) + data->origin());
    for (const Point & p : {a, Point(120, 18, 210), Point(130, 28, 210), b})
        EXPECT_TRUE(std::any_of(points.begin(), points.end(), [&p](const Point & q) {
            return (p - q).length() < 1e-7;
        })) << p.x;
    EXPECT_EQ(std::count(points.begin(), points.end(), a), 1) << "given points are kept as they are";
    EXPECT_EQ(std::count(points.begin(), points.end(), b), 1);
    expectNoHoles(*data);
    EXPECT_NEAR(shareOfEdges(*data, a, b), 1.0, 1e-9);
}

TEST_F(CreateHybridDataTest, SegmentsInAnyPosition) {
    const struct {
        const char * name;
        Point a, b;
        unsigned cells;
    } cases[] = {{"along a column", {120, 9, 205}, {120, 9, 231}, 4},
                 {"along a row", {103, 9, 220}, {137, 9, 220}, 8},
                 {"one side of a cell", {120, 9, 220}, {120, 9, 240}, 2},
                 {"along the low border", {100, 9, 205}, {100, 9, 225}, 2},
                 {"diagonal through grid vertices", {110, 9, 220}, {140, 9, 280}, 3},
                 {"other diagonal", {110, 9, 280}, {140, 9, 220}, 3},
                 {"through a grid vertex", {103, 9, 226}, {117, 9, 254}, 2},
                 {"ends on a column", {113, 9, 226}, {120, 9, 227}, 2},
                 {"ends on a row", {113, 9, 226}, {114, 9, 240}, 2},
                 {"backwards", {137, 9, 220}, {103, 9, 220}, 8},
                 {"no length", {113, 9, 226}, {113, 9, 226}, 1},
                 {"no length on a vertex", {110, 9, 220}, {110, 9, 220}, 0},
                 {"whole grid", {100, 9, 200}, {159.9999999, 9, 299.999999}, 5 + 5 + 2 * 4}};
    for (const auto & c : cases) {
        SCOPED_TRACE(c.name);
        const auto data = stamp({{c.a, c.b}});
        if (std::string(c.name) != "whole grid") {
            EXPECT_EQ(stampedCells(*data), c.cells);
        }
        expectNoHoles(*data);
        if (c.a != c.b) {
            EXPECT_NEAR(shareOfEdges(*data, c.a, c.b), 1.0, 1e-9);
        }
    }
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(CreateHybridDataTest, GridVerticesOnASegmentTakeItsHeight) {
    const auto data = stamp({{{110.0, 10.0, 220.0}, {130.0, 30.0, 260.0}}});
    for (unsigned i = 1; i < 4; ++i)
        EXPECT_EQ(data->vertex(i, i).y, 10.0 * i);
}

TEST_F(CreateHybridDataTest, CrossingSegmentsMeetInAPoint) {
    const auto data = stamp({{{111, 10, 221}, {119, 10, 239}}, {{111, 20, 239}, {119, 20, 221}}});
    ASSERT_EQ(data->vertices(), 42U + 5U);
    bool isFound = false;
    for (unsigned v = 42; v < data->vertices(); ++v)
        isFound = isFound || (data->vertex(v) + data->origin() - Point(115, 20, 230)).length() < 1e-6;
    EXPECT_TRUE(isFound) << "the later height counts";
    expectNoHoles(*data);
    EXPECT_NEAR(shareOfEdges(*data, {111, 0, 221}, {119, 0, 239}), 1.0, 1e-9);
    EXPECT_NEAR(shareOfEdges(*data, {111, 0, 239}, {119, 0, 221}), 1.0, 1e-9);
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(CreateHybridDataTest, DuplicatesCountOnce) {
    const CreateHybridData::Feature line{{111, 10, 221}, {119, 10, 239}}, back{line[1], line[0]};
    const auto once = stamp({line}), often = stamp({line, back, line, {line[0]}, {{115, 10, 230}}});
    EXPECT_EQ(once->vertices() + 1, often->vertices());
    expectNoHoles(*often);
}

TEST_F(CreateHybridDataTest, TheLastHeightCounts) {
    const Point p(120.0, 1.0, 247.0), q(120.0, 2.0, 247.0);
    for (const auto & [features, height] : {std::pair(Features{{p}, {q}}, 2.0), {Features{{q}, {p}}, 1.0}}) {
        const auto data = stamp(features);
        ASSERT_EQ(data->vertices(), 44U);
        EXPECT_EQ(data->vertex(42).y, height);
        EXPECT_EQ(data->vertex(43).y, height);
    }
}

TEST_F(CreateHybridDataTest, ATriangleLowersTheGridBeneathIt) {
    const Point a(105, 0, 205), b(155, 0, 205), c(105, 50, 295);
    for (const bool isClockwise : {false, true}) {
        SCOPED_TRACE(isClockwise);
        const auto data = isClockwise ? stamp({{a, c, b}}) : stamp({{a, b, c}});
        EXPECT_NEAR(data->vertex(1, 1).y, 50.0 / 6.0, 1e-5);
        EXPECT_NEAR(data->vertex(2, 2).y, 35.0 * 50.0 / 90.0, 1e-5);
        EXPECT_EQ(data->vertex(5, 5).y, 5.0);
        expectNoHoles(*data);
        EXPECT_NEAR(shareOfEdges(*data, a, b), 1.0, 1e-9);
        EXPECT_NEAR(shareOfEdges(*data, b, c), 1.0, 1e-9);
        EXPECT_NEAR(shareOfEdges(*data, c, a), 1.0, 1e-9);
    }
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(CreateHybridDataTest, DegenerateTrianglesAreReported) {
    const Point a(105, 0, 205), b(125, 3, 225), c(145, 50, 245);
    for (const auto & triangle : Features{{a, b, c}, {a, a, c}, {b, b, b}}) {
        reports_.clear();
        const auto data = stamp({triangle});
        EXPECT_EQ(reports_.count(0, L"isLeftTurn(p[0], p[1], p[2])", L"degenerated triangle"), 1U)
            << reports_;
        EXPECT_EQ(stampedCells(*data), 0U);
    }
}

TEST_F(CreateHybridDataTest, UndefinedHeightsStayUndefined) {
    const auto holed = TestTerrain::grid(
        {4, 4, 0, 0, 1, 1}, [](unsigned x, unsigned y) { return x == 1 && y == 1 ? -9999.0 : 5.0 + x; });
    const auto data = CreateHybridData::create(holed, Features{{{0.5, 9, 0.5}}, {{2, 9, 2}}});
    EXPECT_TRUE(data->isUndefinedHeightValue(data->rasterData()->value(1U, 1U)));
    EXPECT_FALSE(data->isUndefinedHeightValue(data->rasterData()->value(2U, 2U)));
    EXPECT_EQ(trianglesOf(*data, 0, 0), 4U);
    EXPECT_EQ(data->boundingBox().getLLF().y, 5.0);
    expectNoHoles(*data);
    // A point in the void fills it.
    const auto filled = CreateHybridData::create(holed, Features{{{1, 7, 1}}});
    EXPECT_EQ(filled->rasterData()->value(1U, 1U), 7.0);
}

TEST_F(CreateHybridDataTest, AGridWithoutCellsTakesNothing) {
    for (const RasterGrid & layout : {RasterGrid{0, 0}, RasterGrid{0, 5}, RasterGrid{5, 0}, RasterGrid{1, 1},
                                      RasterGrid{1, 5}, RasterGrid{5, 1}}) {
        const auto data = CreateHybridData::create(TestTerrain::grid(layout, plain), Features{{{0, 1, 0}}});
        ASSERT_TRUE(data);
        EXPECT_EQ(data->vertices(), layout.cellsX * layout.cellsY);
        EXPECT_FALSE(reports_.empty());
        reports_.clear();
    }
}

TEST_F(CreateHybridDataTest, WhatWasStampedBeforeIsNotTakenOver) {
    grid_ = stamp({{{120.0, 9.5, 240.0}}, {{133.0, 7.0, 247.0}}});
    const auto data = stamp({{{123.0, 6.0, 247.0}}});
    EXPECT_EQ(data->vertex(2, 2).y, 9.5) << "heights are";
    EXPECT_EQ(stampedCells(*data), 1U);
    EXPECT_EQ(data->vertices(), 43U);
}

TEST_F(CreateHybridDataTest, LeavesOfATreeAreOnTheHybridGrid) {
    const auto data = stamp({{{123.25, 9.5, 247.5}}});
    const auto root = ZMT::CORE::CreateGeometryTree::create(data.get(), 16);
    std::vector<SO<ZMT::CORE::GeometryPatch>> pending{root};
    unsigned leaves = 0;
    while (!pending.empty()) {
        const auto patch = pending.back();
        pending.pop_back();
        for (unsigned i = 0; i < patch->children(); ++i)
            pending.push_back(patch->child(i));
        if (patch->children() > 0) continue;
        const auto * leaf = dynamic_cast<const ZMT::CORE::GridPatch *>(patch.get());
        ASSERT_TRUE(leaf);
        EXPECT_EQ(leaf->grid().get(), data.get());
        const NBX::Area & domain = leaf->domain();
        const bool isStamped = domain.getX() <= 2 && 2 < domain.getX() + int(domain.getWidth()) &&
                               domain.getY() <= 2 && 2 < domain.getY() + int(domain.getHeight());
        EXPECT_EQ(leaf->boundingBox().getURB().y, isStamped ? 9.5 : 5.0);
        ++leaves;
    }
    EXPECT_GT(leaves, 1U);
    EXPECT_EQ(root->boundingBox().getURB().y, 9.5);
}

/// Random features on far and near grids; every second end lies on a grid line or vertex.
TEST_F(CreateHybridDataTest, CellsAreCoveredWhateverIsStamped) {
    for (unsigned seed = 0; seed < 150; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        const auto uniform = [&random](double end) {
            return std::uniform_real_distribution(0.0, end)(random);
        };
        const RasterGrid layout = seed % 3 == 0   ? RasterGrid{5, 4, 500000.0, 5.2e6, 30.0, 30.0}
                                  : seed % 3 == 1 ? RasterGrid{4, 5, -72.3, 46.1, 1.0 / 1200, 1.0 / 3600}
                                                  : RasterGrid{4, 4, 0.0, 0.0, 1.0, 1.0};
        const auto land = TestTerrain::grid(layout, TestTerrain::bumpy);
        const auto coordinate = [&](double min, double size, unsigned cells) {
            const double end = (cells - 1.0) * (1.0 - 1e-9);
            const double place = random() % 2 ? uniform(end) : std::min(end, std::floor(uniform(cells)));
            return min + size * place;
        };
        Features features;
        for (unsigned i = 0; i < 1 + seed % 7; ++i) {
            CreateHybridData::Feature & feature = features.emplace_back();
            for (unsigned k = 0; k <= random() % 3; ++k)
                feature.push_back({coordinate(layout.minX, layout.cellSizeX, layout.cellsX), uniform(100.0),
                                   coordinate(layout.minY, layout.cellSizeY, layout.cellsY)});
        }
        const auto data = CreateHybridData::create(land, features);
        expectNoHoles(*data);
        for (const auto & f : features)
            for (unsigned k = 0; f.size() > 1 && k < f.size(); ++k) {
                const Point &a = f[k], &b = f[(k + 1) % f.size()];
                const double area = f.size() == 3 ? std::abs(area2(f[0], f[1], f[2])) : 1.0;
                if ((b.x != a.x || b.z != a.z) && area > 1e-9 * layout.cellSizeX * layout.cellSizeY) {
                    EXPECT_NEAR(shareOfEdges(*data, a, b), 1.0, 1e-6) << k << " of " << f.size();
                }
            }
        if (testing::Test::HasFailure()) return;
    }
}

/// A fan of lines that cross in nearly one point, which is where rounding could make new crossings.
TEST_F(CreateHybridDataTest, ManyCrossingsInACell) {
    Features features;
    for (unsigned i = 0; i < 60; ++i) {
        const double angle = 0.05 * i + 0.01;
        const Point way(4.0 * std::cos(angle), 0.0, 8.0 * std::sin(angle)),
            middle(115.0 + 1e-9 * i, 7.0, 230.0);
        features.push_back({middle - way, middle + way});
    }
    const auto data = stamp(features);
    expectNoHoles(*data);
    for (const auto & f : features)
        EXPECT_NEAR(shareOfEdges(*data, f[0], f[1]), 1.0, 1e-6);
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(CreateHybridDataTest, ThousandsOfSegmentsInACell) {
    std::mt19937 random(7);
    std::uniform_real_distribution unit(0.0, 1.0);
    Features features;
    for (unsigned i = 0; i < 4000; ++i) {
        const Point p(110.0 + 10.0 * unit(random), unit(random), 220.0 + 20.0 * unit(random));
        features.push_back({p, {std::min(p.x + 0.1, 119.9), 1.0, std::min(p.z + 0.1, 239.9)}});
    }
    const auto start = std::chrono::steady_clock::now();
    const auto data = stamp(features);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_GT(trianglesOf(*data, 1, 1), 8000U);
    EXPECT_EQ(stampedCells(*data), 1U);
    expectNoHoles(*data);
}

} // namespace
