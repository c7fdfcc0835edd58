#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>

#include <gtest/gtest.h>

#include <support/recordedreports.h>

#include <nbx/data/objectstreamwriter.h>
#include <zmt/core/terrain/geometry/hybrid/createhybriddata.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>
#include <zmt/core/terrain/geometry/tin/tinalgorithmpointstotin.h>
#include <zmt/core/terrain/geometry/tree/mytinpointaccessor.h>
#include <zmt/core/terrain/geometry/tree/tinpatch.h>
#include <zmt/core/terrain/inspect/patchmesh.h>

#include "core/terrain/geometry/treetest.h"
#include "support/testterrain.h"

using NBX::Area;
using TreeTest::build;
using TreeTest::flatGrid;
using TreeTest::StoppingDisplay;
using ZMT::CORE::CreateGeometryTree;
using ZMT::CORE::GeometryPatch;
using ZMT::CORE::GridData;
using ZMT::CORE::GridPatch;
using ZMT::CORE::PatchMesh;
using ZMT::CORE::TinPatch;

namespace {

using Point = NBX::Vector3Base<double>;
using Tin = ZMT::CORE::Tin<ZMT::CORE::MyTinPointAccessor>;

bool areBetween(std::int64_t low, std::int64_t a, std::int64_t b, std::int64_t c, std::int64_t high) {
    return std::min({a, b, c}) >= low && std::max({a, b, c}) <= high;
}

/// The surface of a patch, in columns and rows of the grid, to be asked by trying all triangles.
class Surface {
public:
    explicit Surface(const GeometryPatch & patch) {
        const auto & grid = static_cast<const GridData &>(*patch.data());
        const PatchMesh mesh(patch);
        mesh.forEachTriangle([&](unsigned a, unsigned b, unsigned c) {
            Triangle triangle;
            for (unsigned k = 0; k < 3; ++k) {
                const Point p = mesh.geoPosition(k == 0 ? a : k == 1 ? b : c) - grid.origin();
                triangle.x[k] = std::llround(p.x / grid.scale().x);
                triangle.y[k] = std::llround(p.z / grid.scale().z);
                triangle.height[k] = p.y;
            }
            triangles_.push_back(triangle);
        });
    }

    struct Triangle {
        std::int64_t x[3], y[3];
        double height[3];

        /// Twice the area of the triangle with (`px`, `py`) in the place of corner `k`; clockwise is
        /// positive.
        std::int64_t area(unsigned k, std::int64_t px, std::int64_t py) const {
            const unsigned i = (k + 1) % 3, j = (k + 2) % 3;
            return (x[j] - px) * (y[i] - py) - (x[i] - px) * (y[j] - py);
        }
        std::int64_t area() const { return area(0, x[0], y[0]); }
    };

    const std::vector<Triangle> & triangles() const { return triangles_; }

    /// Not-a-number where no triangle lies.
    double height(unsigned column, unsigned row) const {
        for (const Triangle & t : triangles_) {
            const std::int64_t w[3] = {t.area(0, column, row), t.area(1, column, row),
                                       t.area(2, column, row)};
            if (w[0] < 0 || w[1] < 0 || w[2] < 0) continue;
            double sum = 0.0;
            for (unsigned k = 0; k < 3; ++k)
                sum += static_cast<double>(w[k]) * t.height[k];
            return sum / static_cast<double>(t.area());
        }
        return std::nan("");
    }

private:
    std::vector<Triangle> triangles_;
};

/// Compares a tree with its laws, node by node.
class TreeCheck {
public:
    TreeCheck(const GridData & grid, unsigned maxVertices)
        : grid_(grid), maxVertices_(maxVertices),
          wall_(grid.boundingBox().getLLF().y - grid.boundingBox().diagonal().y * 0.2) {}

    void check(const GeometryPatch & root) {
        check(root, Area(0, 0, grid_.sizeX() - 1, grid_.sizeY() - 1), 0);
    }

    unsigned leaves = 0, tins = 0, deepest = 0;

private:
    struct Box {
        unsigned x, y, w, h;
        explicit Box(const Area & a)
            : x(unsigned(a.getX())), y(unsigned(a.getY())), w(a.getWidth()), h(a.getHeight()) {}
    };

    void check(const GeometryPatch & patch, const Area & domain, unsigned level) {
        const Box d(domain);
        SCOPED_TRACE(testing::Message() << "x " << d.x << ", y " << d.y << ", w " << d.w << ", h " << d.h
                                        << ", level " << level);
        deepest = std::max(deepest, level);
        EXPECT_EQ(PatchMesh(patch).domain(), domain);
        EXPECT_EQ(patch.wall(), wall_);
        expectBox(patch, d);
        const bool isSmall = d.w * d.h <= maxVertices_ && (d.w + 1) * (d.h + 1) <= maxVertices_;
        if (isSmall && (level > 9 || d.w < 3 || d.h < 3)) {
            ++leaves;
            EXPECT_TRUE(dynamic_cast<const GridPatch *>(&patch));
            EXPECT_EQ(patch.approximationError(), 0.0);
            EXPECT_EQ(patch.children(), 0U);
            return;
        }
        ++tins;
        const auto * tin = dynamic_cast<const TinPatch *>(&patch);
        ASSERT_TRUE(tin);
        checkTin(*tin, d);
        const std::vector<Area> parts = partsOf(d);
        ASSERT_EQ(patch.children(), parts.size());
        for (unsigned i = 0; i < parts.size() && !testing::Test::HasFailure(); ++i) {
            EXPECT_EQ(patch.child(i)->parent().get(), &patch);
            check(*patch.child(i), parts[i], level + 1);
        }
    }

    static std::vector<Area> partsOf(const Box & d) {
        const int x0 = int(d.x), y0 = int(d.y), x1 = int(d.x + d.w / 2), y1 = int(d.y + d.h / 2);
        const unsigned wLow = d.w / 2, wHigh = d.w - wLow, hLow = d.h / 2, hHigh = d.h - hLow;
        if (2 * d.w > 3 * d.h) return {Area(x0, y0, wLow, d.h), Area(x1, y0, wHigh, d.h)};
        if (2 * d.h > 3 * d.w) return {Area(x0, y0, d.w, hLow), Area(x0, y1, d.w, hHigh)};
        return {Area(x0, y0, wLow, hLow), Area(x0, y1, wLow, hHigh), Area(x1, y1, wHigh, hHigh),
                Area(x1, y0, wHigh, hLow)};
    }

    void expectBox(const GeometryPatch & patch, const Box & d) {
        NBX::Bounds box;
        for (unsigned y = d.y; y <= d.y + d.h; ++y)
            for (unsigned x = d.x; x <= d.x + d.w; ++x)
                box += grid_.vertex(x, y);
        EXPECT_EQ(patch.boundingBox(), box);
    }

    void checkTin(const TinPatch & patch, const Box & d) {
        const Surface surface(patch);
        expectCovers(surface, d);
        expectError(patch, surface, d);
        expectLocalNumbers(patch);
        expectBorder(patch, TinPatch::B_LowX, {d.x, d.y}, {d.x, d.y + d.h}, d.x == 0);
        expectBorder(patch, TinPatch::B_HighY, {d.x, d.y + d.h}, {d.x + d.w, d.y + d.h},
                     d.y + d.h == grid_.sizeY() - 1);
        expectBorder(patch, TinPatch::B_HighX, {d.x + d.w, d.y + d.h}, {d.x + d.w, d.y},
                     d.x + d.w == grid_.sizeX() - 1);
        expectBorder(patch, TinPatch::B_LowY, {d.x + d.w, d.y}, {d.x, d.y}, d.y == 0);
        for (unsigned i = 0; i < patch.children(); ++i)
            expectParentHeights(*patch.child(i), surface);
    }

    /// All triangles turn clockwise, none has no area, and their areas add up to that of the domain.
    void expectCovers(const Surface & surface, const Box & d) {
        std::int64_t area = 0;
        for (const Surface::Triangle & t : surface.triangles()) {
            EXPECT_GT(t.area(), 0);
            EXPECT_TRUE(areBetween(d.x, t.x[0], t.x[1], t.x[2], d.x + d.w));
            EXPECT_TRUE(areBetween(d.y, t.y[0], t.y[1], t.y[2], d.y + d.h));
            area += t.area();
        }
        EXPECT_EQ(area, 2 * std::int64_t(d.w) * d.h);
    }

    void expectError(const TinPatch & patch, const Surface & surface, const Box & d) {
        double error = 0.0;
        for (unsigned y = d.y; y <= d.y + d.h; ++y)
            for (unsigned x = d.x; x <= d.x + d.w; ++x) {
                const double distance = std::abs(surface.height(x, y) - grid_.vertex(x, y).y);
                ASSERT_FALSE(std::isnan(distance)) << "hole at " << x << ", " << y;
                error = std::max(error, distance);
            }
        EXPECT_NEAR(patch.approximationError(), std::max(error, 1e-6), 1e-9);
        EXPECT_GE(patch.approximationError(), 1e-6);
    }

    /// Vertex numbers ascend, and every vertex is part of a strip.
    static void expectLocalNumbers(const TinPatch & patch) {
        const auto numbers = TestTerrain::values<unsigned>(patch.vertexIndices().get());
        EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end(), std::less_equal<unsigned>()));
        std::vector<bool> used(numbers.size(), false);
        for (const unsigned short v : TestTerrain::values<unsigned short>(patch.stripIndices().get())) {
            ASSERT_LT(v, used.size());
            used[v] = true;
        }
        EXPECT_EQ(std::count(used.begin(), used.end(), false), 0);
        const auto ranges = TestTerrain::values<unsigned>(patch.stripRanges().get());
        EXPECT_TRUE(std::is_sorted(ranges.begin(), ranges.end()));
        EXPECT_EQ(ranges.back(), patch.stripIndices()->size());
    }

    struct Vertex {
        unsigned x, y;
        bool operator==(const Vertex &) const = default;
    };

    /// All vertices of the patch on the side, corners included, in the order of the walk.
    void expectBorder(const TinPatch & patch, TinPatch::Border border, Vertex from, Vertex to, bool isOuter) {
        SCOPED_TRACE(border);
        EXPECT_EQ(patch.isOuterBorder(border), isOuter);
        const auto numbers = TestTerrain::values<unsigned>(patch.vertexIndices().get());
        std::vector<unsigned short> expected;
        for (unsigned v = 0; v < numbers.size(); ++v) {
            const unsigned x = numbers[v] % grid_.sizeX(), y = numbers[v] / grid_.sizeX();
            if (from.x == to.x ? x == from.x : y == from.y)
                expected.push_back(static_cast<unsigned short>(v));
        }
        if (to.x < from.x || to.y < from.y) std::reverse(expected.begin(), expected.end());
        ASSERT_FALSE(expected.empty());
        EXPECT_EQ(numbers[expected.front()], grid_.index(from.x, from.y));
        EXPECT_EQ(numbers[expected.back()], grid_.index(to.x, to.y));
        EXPECT_EQ(TestTerrain::values<unsigned short>(patch.borderIndices(border).get()), expected);
    }

    void expectParentHeights(const GeometryPatch & child, const Surface & surface) {
        const auto * tin = dynamic_cast<const TinPatch *>(&child);
        if (!tin) return;
        ASSERT_TRUE(tin->parentHeights());
        const auto numbers = TestTerrain::values<unsigned>(tin->vertexIndices().get());
        const auto heights = TestTerrain::values<float>(tin->parentHeights().get());
        ASSERT_EQ(heights.size(), numbers.size());
        for (unsigned i = 0; i < numbers.size(); ++i) {
            const double expected = surface.height(numbers[i] % grid_.sizeX(), numbers[i] / grid_.sizeX());
            ASSERT_NEAR(heights[i], expected, 1e-5 * (1.0 + std::abs(expected)));
        }
    }

    const GridData & grid_;
    unsigned maxVertices_;
    double wall_;
};

TEST(CreateGeometryTree, ReportsABudgetBelow50) {
    const auto grid = flatGrid(20, 20);
    RecordedReports reports;
    EXPECT_TRUE(build(grid, 50));
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_TRUE(build(grid, 49));
    EXPECT_EQ(reports.count(0, L"maxVertices >= 50", L"maxVertices must be >= 50: 49"), 1U) << reports;
    EXPECT_EQ(reports.size(), 1U) << reports;
    EXPECT_TRUE(build(grid, 0)) << "ends";
}

TEST(CreateGeometryTree, ReportsMissingData) {
    RecordedReports reports;
    EXPECT_FALSE(build(nullptr, 50));
    EXPECT_EQ(reports.count(0, L"grid", L"no grid"), 1U) << reports;
}

TEST(CreateGeometryTree, OneCellIsALeaf) {
    const RecordedReports reports;
    const auto grid = TestTerrain::grid({2, 2}, TestTerrain::bumpy);
    const auto root = build(grid, 50);
    const auto * patch = dynamic_cast<const GridPatch *>(root.get());
    ASSERT_TRUE(patch);
    EXPECT_EQ(patch->domain(), Area(0, 0, 1, 1));
    EXPECT_EQ(patch->approximationError(), 0.0);
    EXPECT_EQ(patch->children(), 0U);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(CreateGeometryTree, GridsWithoutACellAreReported) {
    for (const auto & [columns, rows] : {std::pair(0U, 0U), {0U, 5U}, {1U, 1U}, {1U, 200U}, {200U, 1U}}) {
        SCOPED_TRACE(testing::Message() << columns << " x " << rows);
        const auto grid = TestTerrain::grid({columns, rows}, TestTerrain::bumpy);
        const RecordedReports reports;
        build(grid, 50);
        EXPECT_FALSE(reports.empty());
    }
    RecordedReports reports;
    const NBX::SO<GridData> withoutRaster(new GridData(nullptr));
    EXPECT_EQ(reports.size(), 1U) << reports;
    reports.clear();
    EXPECT_FALSE(build(withoutRaster, 50));
    EXPECT_FALSE(reports.empty());
}

TEST(CreateGeometryTree, GroundWithoutAnyHeightEnds) {
    const auto grid =
        TestTerrain::grid({20, 20}, [](unsigned, unsigned) { return TestTerrain::s_undefined; });
    EXPECT_EQ(build(grid, 50)->children(), 4U);
}

TEST(CreateGeometryTree, LongGridsAreCutAlongTheLongSide) {
    const auto grid = flatGrid(1000, 100);
    const auto root = build(grid, 2000);
    const GeometryPatch * patch = root.get();
    for (const unsigned w : {1000U, 500U, 250U}) {
        EXPECT_EQ(PatchMesh(*patch).domain(), Area(0, 0, w, 100));
        ASSERT_EQ(patch->children(), 2U);
        EXPECT_EQ(PatchMesh(*patch->child(1)).domain(), Area(int(w / 2), 0, w / 2, 100));
        patch = patch->child(0).get();
    }
    EXPECT_EQ(PatchMesh(*patch).domain(), Area(0, 0, 125, 100));
    EXPECT_EQ(patch->children(), 4U);
}

TEST(CreateGeometryTree, OneAndAHalfTimesAsLongIsNotLongYet) {
    const struct {
        unsigned cellsX, cellsY, children;
    } cases[] = {{12, 8, 4}, {13, 8, 2}, {8, 12, 4}, {8, 13, 2}, {15, 10, 4}, {10, 15, 4}};
    for (const auto & c : cases)
        EXPECT_EQ(build(flatGrid(c.cellsX, c.cellsY), 50)->children(), c.children)
            << c.cellsX << " by " << c.cellsY;
}

TEST(CreateGeometryTree, TheDataStayWithTheAccessor) {
    using ZMT::CORE::MyTinPointAccessor;
    MyTinPointAccessor::currentData = nullptr;
    const auto grid = flatGrid(12, 8);
    build(grid, 50);
    EXPECT_EQ(MyTinPointAccessor::currentData, grid);
    build(flatGrid(1, 1), 50);
    EXPECT_EQ(MyTinPointAccessor::currentData, grid) << "a leaf takes none";
    MyTinPointAccessor::currentData = nullptr;
}

TEST(CreateGeometryTree, FlatGroundTakesTwoTriangles) {
    const auto grid = flatGrid(40, 30);
    const auto root = build(grid, 50);
    TreeCheck(*grid, 50).check(*root);
    const auto visit = [](const auto & self, const GeometryPatch & patch) -> void {
        if (patch.children() == 0) return;
        EXPECT_EQ(patch.approximationError(), 1e-6);
        EXPECT_EQ(PatchMesh(patch).triangles(), 2U);
        for (unsigned i = 0; i < patch.children(); ++i)
            self(self, *patch.child(i));
    };
    visit(visit, *root);
}

TEST(CreateGeometryTree, HalvesOfAnOddWidthShareAColumn) {
    const auto root = build(flatGrid(41, 10), 50);
    ASSERT_EQ(root->children(), 2U);
    EXPECT_EQ(PatchMesh(*root->child(0)).domain(), Area(0, 0, 20, 10));
    EXPECT_EQ(PatchMesh(*root->child(1)).domain(), Area(20, 0, 21, 10));
}

/// A budget for the whole grid does not make a leaf of the root: above level 9 all that can be cut is cut.
TEST(CreateGeometryTree, SmallRectanglesAreCutUpToLevelNine) {
    const auto root = build(flatGrid(6, 6), 100);
    EXPECT_EQ(root->children(), 4U);
    EXPECT_TRUE(dynamic_cast<const TinPatch *>(root->child(0).get())) << "3 by 3 cells";
    EXPECT_EQ(root->child(0)->children(), 4U);
    EXPECT_TRUE(dynamic_cast<const GridPatch *>(root->child(0)->child(0).get())) << "1 by 1 cells";
    EXPECT_TRUE(dynamic_cast<const GridPatch *>(build(flatGrid(2, 6), 100).get())) << "narrow";

    // Ten halvings down, 4 by 3 cells are a leaf.
    const auto grid = flatGrid(4096, 3);
    const auto longRoot = build(grid, 50);
    const GeometryPatch * patch = longRoot.get();
    for (unsigned level = 0; level < 10; ++level) {
        ASSERT_TRUE(dynamic_cast<const TinPatch *>(patch)) << level;
        patch = patch->child(0).get();
    }
    ASSERT_TRUE(dynamic_cast<const GridPatch *>(patch));
    EXPECT_EQ(PatchMesh(*patch).domain(), Area(0, 0, 4, 3));
}

/// The vertex count of a leaf is tested as well as its cells: 25 by 2 cells have 78 vertices.
TEST(CreateGeometryTree, LeavesStayWithinTheBudget) {
    EXPECT_TRUE(dynamic_cast<const TinPatch *>(build(flatGrid(25, 2), 50).get()));
    EXPECT_TRUE(dynamic_cast<const TinPatch *>(build(flatGrid(25, 2), 77).get()));
    EXPECT_TRUE(dynamic_cast<const GridPatch *>(build(flatGrid(25, 2), 78).get()));
}

TEST(CreateGeometryTree, KeepsItsLawsOnAllKindsOfGround) {
    const RecordedReports reports;
    struct Kind {
        const char * name;
        TestTerrain::Height height;
    };
    for (const unsigned seed : {1U, 2U, 3U}) {
        std::mt19937 random(seed);
        std::vector<double> noise(130 * 130);
        for (double & n : noise)
            n = std::uniform_real_distribution<double>(-100.0, 900.0)(random);
        const auto value = [&](unsigned x, unsigned y) { return noise[x + 130 * y]; };
        const Kind kinds[] = {
            {"noise", value},
            {"ties", [&](unsigned x, unsigned y) { return std::floor(value(x, y) / 250.0); }},
            {"steps", [&](unsigned x, unsigned y) { return 10.0 * ((x / 9 + y / 7 + seed) % 3); }},
            {"waves",
             [&](unsigned x, unsigned y) { return 50.0 * std::sin(0.1 * x + seed) * std::cos(0.07 * y); }},
            {"peak", [&](unsigned x, unsigned y) { return x == 5 * seed && y == 7 ? 1000.0 : 0.0; }},
            {"holes", [&](unsigned x, unsigned y) {
                 return value(x / 8, y / 8) > 700.0 ? TestTerrain::s_undefined : 0.3 * x + 0.01 * y * y;
             }}};
        const ZMT::RASTER::RasterGrid layouts[] = {
            {33, 33, 100.0, 200.0, 2.0, 3.0}, {65, 42, -7.0, 0.0, 1.0, 1.0}, {129, 65, 0.0, 0.0, 0.25, 0.5}};
        for (const Kind & kind : kinds) {
            const auto & layout = layouts[(seed + kind.name[0]) % 3];
            const unsigned maxVertices = 50 * seed + kind.name[1] % 50;
            SCOPED_TRACE(testing::Message() << kind.name << ", seed " << seed << ", " << layout.cellsX
                                            << " x " << layout.cellsY << ", budget " << maxVertices);
            const auto grid = TestTerrain::grid(layout, kind.height);
            TreeCheck check(*grid, maxVertices);
            check.check(*build(grid, maxVertices));
            EXPECT_GT(check.tins, 10U);
            EXPECT_GT(check.leaves, check.tins);
            if (HasFailure()) return;
        }
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

/// A node by the plain rules: the vertices that its children kept and its border are refined, and the error
/// is measured by locating each vertex of the grid.
class PlainNodes {
public:
    PlainNodes(const NBX::SO<GridData> & grid, unsigned maxVertices)
        : grid_(grid), maxVertices_(maxVertices) {
        ZMT::CORE::MyTinPointAccessor::currentData = grid;
    }

    /// The vertices of the node, ascending.
    std::vector<unsigned> check(const GeometryPatch & patch, std::vector<unsigned> & kept) const {
        const Area d = PatchMesh(patch).domain();
        const unsigned x0 = unsigned(d.getX()), y0 = unsigned(d.getY());
        const unsigned x1 = x0 + d.getWidth(), y1 = y0 + d.getHeight();
        if (patch.children() == 0) {
            for (unsigned y = y0; y <= y1; ++y)
                for (unsigned x = x0; x <= x1; ++x)
                    kept.push_back(grid_->index(x, y));
            return {};
        }
        std::vector<unsigned> candidates;
        for (unsigned i = 0; i < patch.children(); ++i)
            check(*patch.child(i), candidates);
        for (unsigned x = x0; x <= x1; ++x)
            for (const unsigned y : {y0, y1})
                candidates.push_back(grid_->index(x, y));
        for (unsigned y = y0; y <= y1; ++y)
            for (const unsigned x : {x0, x1})
                candidates.push_back(grid_->index(x, y));

        Tin tin;
        tin.init(grid_->index(x0, y0), grid_->index(x1, y0), grid_->index(x1, y1), grid_->index(x0, y1));
        ZMT::CORE::TinAlgorithmPointsToTin<ZMT::CORE::MyTinPointAccessor> refinement;
        refinement.run(tin, candidates, 1e-6, maxVertices_);
        double error = 1e-6;
        for (unsigned y = y0; y <= y1; ++y)
            for (unsigned x = x0; x <= x1; ++x)
                error = std::max(error, std::abs(tin.height(grid_->index(x, y)) - grid_->vertex(x, y).y));
        EXPECT_NEAR(patch.approximationError(), error, 1e-9);

        std::vector<unsigned> numbers;
        for (unsigned n = 0; n < tin.nodes(); ++n)
            numbers.push_back(tin.number(tin.node(n)));
        kept.insert(kept.end(), numbers.begin(), numbers.end());
        std::sort(numbers.begin(), numbers.end());
        const auto & tinPatch = dynamic_cast<const TinPatch &>(patch);
        EXPECT_EQ(TestTerrain::values<unsigned>(tinPatch.vertexIndices().get()), numbers);
        EXPECT_EQ(PatchMesh(patch).triangles(), tin.faces());
        return numbers;
    }

private:
    NBX::SO<GridData> grid_;
    unsigned maxVertices_;
};

/// Flat ground would never be refined otherwise, and what stands on it never shown.
TEST(CreateGeometryTree, ErrorsIncludeMicroStructures) {
    const RecordedReports reports;
    // The second one is on the border of patches, so that both sides have it.
    const std::vector<Point> towers{{10.5, 75.0, 10.5}, {16.0, 30.0, 8.5}, {25.25, 2.0, 3.75}};
    const std::vector<std::vector<Point>> features{{towers[0]}, {towers[1]}, {towers[2]}};
    const NBX::SO<GridData> hybrid = ZMT::CORE::CreateHybridData::create(flatGrid(32, 32), features).get();
    unsigned nodes = 0, nodesWithTowers = 0;
    const std::function<void(const GeometryPatch &)> check = [&](const GeometryPatch & patch) {
        if (patch.children() == 0) {
            EXPECT_EQ(patch.approximationError(), 0.0);
            return;
        }
        const Area domain = PatchMesh(patch).domain();
        double error = 1e-6;
        for (const Point & tower : towers)
            if (tower.x >= domain.getX() && tower.x <= domain.getX() + double(domain.getWidth()) &&
                tower.z >= domain.getY() && tower.z <= domain.getY() + double(domain.getHeight()))
                error = std::max(error, std::abs(tower.y - 5.0));
        EXPECT_NEAR(patch.approximationError(), error, 1e-9) << domain.getX() << " " << domain.getY();
        ++nodes;
        nodesWithTowers += error > 1.0;
        for (unsigned i = 0; i < patch.children(); ++i)
            check(*patch.child(i));
    };
    check(*build(hybrid, 50));
    EXPECT_GT(nodesWithTowers, 8U);
    EXPECT_GT(nodes, 2 * nodesWithTowers);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(CreateGeometryTree, NodesAreRefinedOverWhatTheirChildrenKept) {
    for (const unsigned seed : {1U, 2U, 3U, 4U}) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        // The higher towards the edges, so that the vertices of the border matter.
        const auto grid = TestTerrain::grid({65, 49, 3.0, 4.0, 10.0, 10.0}, [&](unsigned x, unsigned y) {
            return 0.01 * (x * x + y * y) * double(random() % 40);
        });
        const auto root = build(grid, 50 + 10 * seed);
        std::vector<unsigned> kept;
        PlainNodes(grid, 50 + 10 * seed).check(*root, kept);
    }
}

TEST(CreateGeometryTree, EqualSeedsGiveEqualTrees) {
    const auto grid = TestTerrain::grid({50, 60}, TestTerrain::bumpy);
    const auto first = NBX::ObjectStreamWriter::write(*build(grid, 50));
    EXPECT_EQ(first, NBX::ObjectStreamWriter::write(*build(grid, 50)));
}

/// A number for all that a tree holds besides its strips, whose cut is left to chance.
class TreeHash {
public:
    explicit TreeHash(const GeometryPatch & root) { addPatch(root); }
    std::uint64_t value() const { return value_; }

private:
    template <class T> void add(const T & value) {
        unsigned char bytes[sizeof(T)];
        std::memcpy(bytes, &value, sizeof(T));
        for (const unsigned char byte : bytes)
            value_ = (value_ ^ byte) * 0x100000001B3;
    }
    template <class T> void addAll(const NBX::Iterator<T> * sequence) {
        add(sequence ? sequence->size() : 0U);
        for (unsigned i = 0; sequence && i < sequence->size(); ++i)
            add(sequence->get(i));
    }
    void addPatch(const GeometryPatch & patch) {
        add(patch.children());
        add(patch.approximationError());
        add(patch.wall());
        for (const Point & corner : {patch.boundingBox().getLLF(), patch.boundingBox().getURB()})
            for (const double coordinate : {corner.x, corner.y, corner.z})
                add(coordinate);
        // A grid's are those of its plain cells, whatever stands in them.
        const auto * grid = dynamic_cast<const GridPatch *>(&patch);
        add(grid ? 2 * grid->domain().getWidth() * grid->domain().getHeight()
                 : unsigned(patch.description().triangles));
        if (const auto * tin = dynamic_cast<const TinPatch *>(&patch)) {
            addAll(tin->vertexIndices().get());
            addAll(tin->parentHeights().get());
            for (const auto border :
                 {TinPatch::B_LowX, TinPatch::B_HighY, TinPatch::B_HighX, TinPatch::B_LowY}) {
                addAll(tin->borderIndices(border).get());
                add(tin->isOuterBorder(border));
            }
        }
        for (unsigned i = 0; i < patch.children(); ++i)
            addPatch(*patch.child(i));
    }

    std::uint64_t value_ = 0xCBF29CE484222325;
};

struct KnownTree {
    const char * name;
    NBX::SO<GridData> grid;
    unsigned maxVertices;
    std::uint64_t hash;
};

std::vector<KnownTree> knownTrees() {
    std::mt19937 random(7);
    std::vector<unsigned> noise(200 * 200);
    for (unsigned & n : noise)
        n = static_cast<unsigned>(random() % 1000);
    const auto rough = [noise](unsigned x, unsigned y) {
        double height = 0.0;
        for (const unsigned step : {1U, 4U, 16U, 64U})
            height += step * noise[x / step + 200 * (y / step)];
        return 0.01 * height;
    };
    const auto ties = [noise](unsigned x, unsigned y) { return double(noise[x + 200 * y] / 250); };
    const std::vector<std::vector<Point>> towers{{{10.5, 75.0, 10.5}},
                                                 {{16.0, 30.0, 8.5}},
                                                 {{25.25, 2.0, 3.75}},
                                                 {{3.5, 8.0, 3.5}, {29.0, 9.0, 30.5}}};
    return {{"bumpy", TestTerrain::grid({50, 60}, TestTerrain::bumpy), 50, 0x484B9392995B09D5},
            {"rough", TestTerrain::grid({193, 200, 3.0, 4.0, 10.0, 12.5}, rough), 300, 0x8A87D057FF2872BE},
            {"ties", TestTerrain::grid({100, 41, -7.0, 0.5, 0.3, 0.7}, ties), 120, 0x4361C9361CFDB2E8},
            {"long", TestTerrain::grid({190, 9}, rough), 60, 0xD7F12DB8D994F4B5},
            {"hybrid", ZMT::CORE::CreateHybridData::create(flatGrid(32, 32), towers).get(), 50,
             0xB6F8C0776F160984}};
}

TEST(CreateGeometryTree, GivesKnownTrees) {
    for (const KnownTree & known : knownTrees())
        for (const unsigned threads : {1U, 2U})
            EXPECT_EQ(TreeHash(*build(known.grid, known.maxVertices, threads)).value(), known.hash)
                << known.name << ", " << threads;
}

/// The strips of a node follow from one number, so that nothing that runs meanwhile turns them.
TEST(CreateGeometryTree, EachNodeWithChildrenDrawsOnce) {
    const auto grid = flatGrid(8, 4);
    build(grid, 50);
    const int next = std::rand();
    std::srand(1);
    // The whole and its two halves; their quarters are leaves.
    for (unsigned node = 0; node < 3; ++node)
        std::rand();
    EXPECT_EQ(std::rand(), next);
}

TEST(CreateGeometryTree, WritesTheStatisticsOfTheRaster) {
    const auto grid = TestTerrain::grid({3, 2, 10.5, 20.0, 0.1, 2.0}, [](unsigned x, unsigned y) {
        return x == 1 && y == 1 ? TestTerrain::s_undefined : 1.5 * x + 1.0;
    });
    testing::internal::CaptureStderr();
    CreateGeometryTree::create(grid.get(), 50);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "creating terrain for:\n"
                                                      "\tgrid:\t3x2 vertices\n"
                                                      "\n"
                                                      "\tmin X:  \t10.5\n"
                                                      "\tmax X:  \t10.7\n"
                                                      "\tdelta X:\t0.199999999999999\n"
                                                      "\n"
                                                      "\tmin Y:  \t20\n"
                                                      "\tmax Y:  \t22\n"
                                                      "\tdelta Y:\t2\n"
                                                      "\n"
                                                      "\tnumber of defined height values:  \t5\n"
                                                      "\tnumber of undefined height values:\t1\n"
                                                      "\tnumber of different height values:\t3\n"
                                                      "\n"
                                                      "\tminimum height value:\t1\n"
                                                      "\tmaximum height value:\t4\n"
                                                      "\tdelta height value:  \t3\n"
                                                      "\taverage height value:\t2.5\n"
                                                      "\n");
}

TEST(CreateGeometryTree, ACancelledConstructionGivesNull) {
    for (const unsigned updates : {0U, 1U, 3U}) {
        StoppingDisplay display(updates);
        EXPECT_FALSE(build(flatGrid(30, 30), 50)) << updates;
        EXPECT_EQ(display.values_.size(), updates + 1) << "nothing follows";
        EXPECT_EQ(display.ends_, 1U);
        EXPECT_FALSE(display.isFinished_);
    }
    EXPECT_TRUE(build(flatGrid(30, 30), 50)) << "not from the run before";
}

TEST(CreateGeometryTree, ShowsItsProgress) {
    StoppingDisplay display(1000);
    EXPECT_TRUE(build(flatGrid(8, 4), 50));
    EXPECT_EQ(display.title_, "generating terrain LOD model");
    EXPECT_EQ(display.total_, 1.0);
    EXPECT_TRUE(display.isFinished_);
    // Two children of 4 by 4 cells, with 4 each.
    EXPECT_EQ(display.values_,
              (std::vector<double>{0.0, 0.0, 0.0, 0.125, 0.25, 0.375, 0.5, 0.5, 0.625, 0.75, 0.875, 1.0}));
}

} // namespace
