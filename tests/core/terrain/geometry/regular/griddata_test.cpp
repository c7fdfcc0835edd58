#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>
#include <support/slotorder.h>

#include <nbx/object/progress.h>

#include "support/testterrain.h"

using NBX::Area;
using NBX::Bounds;
using TestTerrain::bumpy;
using TestTerrain::s_undefined;
using TestTerrain::taken;
using TestTerrain::values;
using ZMT::CORE::GridData;
using ZMT::RASTER::RasterData;
using ZMT::RASTER::RasterGrid;
using ZMT::RASTER::SimpleRasterData;
using Numbers = std::vector<unsigned>;
using Point = NBX::Vector3Base<double>;

namespace {

/// 4 columns, 3 rows; the first cell lies at (100, 200) of the map.
const RasterGrid s_layout{4, 3, 100.0, 200.0, 10.0, 20.0};

class GridDataTest : public testing::Test {
protected:
    RecordedReports reports_;
    NBX::SO<GridData> grid_ = TestTerrain::grid(s_layout, bumpy);
};

double withHole(unsigned x, unsigned y) {
    return x == 1 && y == 1 ? s_undefined : bumpy(x, y);
}

TEST_F(GridDataTest, TakesItsLayoutFromTheRaster) {
    EXPECT_EQ(grid_->sizeX(), 4U);
    EXPECT_EQ(grid_->sizeY(), 3U);
    EXPECT_EQ(grid_->vertices(), 12U);
    EXPECT_EQ(grid_->scale(), Point(10.0, 1.0, 20.0));
    EXPECT_EQ(grid_->origin(), Point(100.0, 0.0, 200.0));
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(GridDataTest, NullRasterIsReported) {
    const NBX::SO<GridData> none(new GridData(nullptr));
    EXPECT_EQ(reports_.size(), 1U) << reports_;
    EXPECT_EQ(reports_.count(0, L"raster", L"no raster"), 1U) << reports_;
    EXPECT_EQ(none->vertices(), 0U);
}

TEST_F(GridDataTest, ADefinedRasterIsKept) {
    const auto raster = TestTerrain::raster(s_layout, bumpy);
    const NBX::SO<GridData> grid(new GridData(raster.get()));
    EXPECT_EQ(grid->rasterData(), raster);
}

TEST_F(GridDataTest, AnUndefinedCellIsFilledInAPrivateCopy) {
    const auto raster = TestTerrain::raster(s_layout, withHole);
    raster->setUseLinearInterpolation(false);
    const NBX::SO<GridData> grid(new GridData(raster.get()));

    EXPECT_NE(grid->rasterData(), raster);
    EXPECT_TRUE(NBX::SO<const SimpleRasterData<float>>(
        dynamic_cast<const SimpleRasterData<float> *>(grid->rasterData().get())));
    EXPECT_EQ(raster->value(1U, 1U), s_undefined) << "the caller's raster was changed";
    EXPECT_FALSE(grid->rasterData()->useLinearInterpolation());
    EXPECT_EQ(grid->rasterData()->grid().minX, 100.0);
    EXPECT_EQ(grid->rasterData()->grid().cellSizeY, 20.0);

    const double low = bumpy(0, 0), high = bumpy(3, 2);
    const double fill = static_cast<float>(low - (high - low) * 0.1);
    EXPECT_EQ(grid->vertex(1U, 1U), Point(10.0, fill, 20.0));
    EXPECT_TRUE(grid->isUndefinedHeightValue(fill));
    EXPECT_FALSE(grid->isUndefinedHeightValue(s_undefined));
    EXPECT_EQ(grid->vertex(2U, 1U).y, bumpy(2, 1));
    EXPECT_TRUE(grid->boundingBox() == Bounds(Point(0.0, low, 0.0), Point(30.0, high, 40.0)));
}

TEST_F(GridDataTest, InAFlatRasterAHoleMakesAllHeightsUndefined) {
    const auto grid = TestTerrain::grid(
        s_layout, [](unsigned x, unsigned y) { return x == 1 && y == 1 ? s_undefined : 5.0; });
    EXPECT_EQ(grid->vertex(1U, 1U).y, 5.0) << "there is no range to go below by a tenth";
    EXPECT_TRUE(grid->isUndefinedHeightValue(5.0));
    EXPECT_EQ(grid->boundingBox().getLLF().y, 5.0);
    EXPECT_EQ(grid->boundingBox().getURB().y, 5.0);
}

TEST_F(GridDataTest, NotANumberCountsAsUndefined) {
    const auto grid = TestTerrain::grid(
        s_layout, [](unsigned x, unsigned y) { return x + y == 0 ? std::nan("") : bumpy(x, y); });
    EXPECT_EQ(grid->boundingBox().getLLF().y, bumpy(1, 0));
    EXPECT_LT(grid->vertex(0U, 0U).y, bumpy(1, 0));
}

TEST_F(GridDataTest, ARasterWithoutHeightsKeepsInfiniteBounds) {
    const auto grid = TestTerrain::grid(s_layout, [](unsigned, unsigned) { return s_undefined; });
    EXPECT_TRUE(std::isinf(grid->boundingBox().getLLF().y));
    EXPECT_TRUE(std::isinf(grid->boundingBox().getURB().y));
    EXPECT_EQ(grid->vertices(), 12U);
}

TEST_F(GridDataTest, BoxIsLocal) {
    EXPECT_TRUE(grid_->boundingBox() == Bounds(Point(0.0, bumpy(0, 0), 0.0), Point(30.0, bumpy(3, 2), 40.0)));
}

TEST_F(GridDataTest, VerticesAreNumberedRowByRow) {
    EXPECT_EQ(grid_->index(0, 0), 0U);
    EXPECT_EQ(grid_->index(3, 0), 3U);
    EXPECT_EQ(grid_->index(1, 2), 9U);
    for (unsigned y = 0; y < 3; ++y)
        for (unsigned x = 0; x < 4; ++x) {
            EXPECT_EQ(grid_->vertex(grid_->index(x, y)), grid_->vertex(x, y));
            EXPECT_EQ(grid_->normal(grid_->index(x, y)), grid_->normal(x, y));
        }
}

TEST_F(GridDataTest, ColumnIsXRowIsZAndHeightIsY) {
    EXPECT_EQ(grid_->vertex(2U, 1U), Point(20.0, bumpy(2, 1), 20.0));
}

TEST_F(GridDataTest, RastersOfOtherTypesGiveTheSameVertices) {
    const auto raster = TestTerrain::raster<double>(s_layout, bumpy);
    const NBX::SO<GridData> grid(new GridData(raster.get()));
    ASSERT_EQ(raster->floatCells(), nullptr) << "meant for the way without float cells";
    for (unsigned v = 0; v < 12; ++v) {
        EXPECT_EQ(grid->vertex(v), grid_->vertex(v));
        EXPECT_EQ(grid->normal(v), grid_->normal(v));
    }
}

TEST_F(GridDataTest, NumbersOutOfRangeAreReported) {
    struct Row {
        const char * name;
        std::function<void(const GridData &)> call;
        std::wstring condition, message;
    };
    const std::vector<Row> rows{
        {"index x", [](const GridData & g) { g.index(4, 0); }, L"x < sizeX()", L"x out of range"},
        {"index y", [](const GridData & g) { g.index(0, 3); }, L"y < sizeY()", L"y out of range"},
        {"normal x", [](const GridData & g) { g.normal(4000000000U, 0); }, L"x < sizeX()", L"x out of range"},
        {"normal y", [](const GridData & g) { g.normal(0, 4000000000U); }, L"y < sizeY()", L"y out of range"},
        {"vertex v", [](const GridData & g) { g.vertex(12); }, L"v < vertices()", L"v out of range"},
        {"normal v", [](const GridData & g) { g.normal(12); }, L"v < vertices()", L"v out of range"},
    };
    for (const Row & row : rows) {
        SCOPED_TRACE(row.name);
        reports_.clear();
        row.call(*grid_);
        EXPECT_EQ(reports_.size(), 1U) << reports_;
        EXPECT_EQ(reports_.count(0, row.condition, row.message), 1U) << reports_;
    }
}

TEST_F(GridDataTest, NormalsAreCentralDifferences) {
    const double dx = bumpy(2, 1) - bumpy(0, 1), dz = bumpy(1, 2) - bumpy(1, 0);
    EXPECT_EQ(grid_->normal(1U, 1U), Point(dx * -2.0 * 20.0, 10.0 * 4.0 * 20.0, dz * -2.0 * 10.0));
}

TEST_F(GridDataTest, NormalsStandUprightOnAPlane) {
    const auto plane = TestTerrain::grid(s_layout, [](unsigned x, unsigned y) { return 3.0 * x - 5.0 * y; });
    const Point normal = plane->normal(1U, 1U);
    const Point alongX = plane->vertex(2U, 1U) - plane->vertex(0U, 1U);
    const Point alongZ = plane->vertex(1U, 2U) - plane->vertex(1U, 0U);
    EXPECT_NEAR(normal.x * alongX.x + normal.y * alongX.y + normal.z * alongX.z, 0.0, 1e-9);
    EXPECT_NEAR(normal.x * alongZ.x + normal.y * alongZ.y + normal.z * alongZ.z, 0.0, 1e-9);
    EXPECT_GT(normal.y, 0.0);
}

TEST_F(GridDataTest, NormalsAtTheBorderAreHalfAsSteep) {
    const auto plane = TestTerrain::grid(s_layout, [](unsigned x, unsigned) { return 3.0 * x; });
    EXPECT_EQ(plane->normal(0U, 1U).x * 2.0, plane->normal(1U, 1U).x);
    EXPECT_EQ(plane->normal(3U, 1U).x * 2.0, plane->normal(1U, 1U).x);
    EXPECT_EQ(plane->normal(0U, 1U).y, plane->normal(1U, 1U).y);
}

TEST_F(GridDataTest, NormalsOfOneColumnDoNotLeanInX) {
    const auto column = TestTerrain::grid({1, 3, 0.0, 0.0, 1.0, 1.0}, bumpy);
    EXPECT_EQ(column->normal(0U, 1U), Point(0.0, 4.0, (bumpy(0, 2) - bumpy(0, 0)) * -2.0));
    const auto cell = TestTerrain::grid({1, 1, 0.0, 0.0, 1.0, 1.0}, bumpy);
    EXPECT_EQ(cell->normal(0U), Point(0.0, 4.0, 0.0));
}

TEST_F(GridDataTest, HeightsAreAskedInGeoCoordinates) {
    EXPECT_EQ(grid_->calculateHeight(Point(120.0, 1e9, 220.0)), bumpy(2, 1));
    EXPECT_EQ(grid_->calculateHeight(Point(115.0, 0.0, 200.0)), (bumpy(1, 0) + bumpy(2, 0)) / 2.0);
    EXPECT_FALSE(grid_->hasUndefinedHeight(Point(130.0, 0.0, 240.0)));
    EXPECT_TRUE(grid_->hasUndefinedHeight(Point(20.0, 0.0, 20.0))) << "local coordinates";

    const auto holed = TestTerrain::grid(s_layout, withHole);
    EXPECT_TRUE(holed->hasUndefinedHeight(Point(111.0, 0.0, 221.0)));
    EXPECT_FALSE(holed->hasUndefinedHeight(Point(120.0, 0.0, 220.0)));
}

TEST_F(GridDataTest, CellSizeIsThatOfTheRaster) {
    EXPECT_EQ(grid_->getCellSize(), std::make_pair(10.0, 20.0));
}

class ChangingRaster : public SimpleRasterData<float> {
public:
    ChangingRaster() : SimpleRasterData<float>(4, 3, 100.0, 200.0, 10.0, 20.0, false, 0.0F) {}
    void setCellSize(double x, double y) {
        grid_.cellSizeX = x;
        grid_.cellSizeY = y;
    }
};

TEST_F(GridDataTest, CellSizeFollowsTheRasterAndScaleDoesNot) {
    const NBX::SO<ChangingRaster> raster(new ChangingRaster);
    const NBX::SO<GridData> grid(new GridData(raster.get()));
    raster->setCellSize(7.0, 5.0);
    EXPECT_EQ(grid->getCellSize(), std::make_pair(7.0, 5.0));
    EXPECT_EQ(grid->scale(), Point(10.0, 1.0, 20.0));
}

TEST_F(GridDataTest, ResamplingGoesToTheRaster) {
    const NBX::SO<SimpleRasterData<float>> target(
        new SimpleRasterData<float>(2, 1, 105.0, 200.0, 10.0, 1.0, true, -1.0F));
    EXPECT_TRUE(grid_->resampleRasterData(target.get()));
    EXPECT_EQ(target->value(0U, 0U), (bumpy(0, 0) + bumpy(1, 0)) / 2.0);
    EXPECT_EQ(target->value(1U, 0U), (bumpy(1, 0) + bumpy(2, 0)) / 2.0);

    const NBX::SO<SimpleRasterData<float>> beside(
        new SimpleRasterData<float>(2, 1, 0.0, 0.0, 1.0, 1.0, true, -1.0F));
    EXPECT_FALSE(grid_->resampleRasterData(beside.get()));
}

TEST_F(GridDataTest, AreaGivesItsLastColumnAndRowToo) {
    EXPECT_EQ(taken(grid_->newIndexIterator(Area(1, 0, 2, 1))), (Numbers{1, 2, 3, 5, 6, 7}));
    EXPECT_EQ(taken(grid_->newIndexIterator(Area(0, 0, 3, 2))).size(), 12U);
    EXPECT_EQ(taken(grid_->newVertexIterator(Area(3, 2, 0, 0))), (std::vector<Point>{grid_->vertex(3U, 2U)}));
    EXPECT_EQ(taken(grid_->newNormalIterator(Area(3, 2, 0, 0))), (std::vector<Point>{grid_->normal(3U, 2U)}));
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(GridDataTest, AreaOfWidthZeroIsOneColumn) {
    EXPECT_EQ(taken(grid_->newIndexIterator(Area(2, 0, 0, 2))), (Numbers{2, 6, 10}));
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(GridDataTest, AreaBesideTheGridIsReported) {
    struct Row {
        const char * name;
        Area area;
        std::wstring condition, message;
    };
    const std::vector<Row> rows{
        {"x", Area(4, 0, 0, 0), L"domain.getX() < sizeX()", L"domain.getX() out of range"},
        {"negative x", Area(-1, 0, 0, 0), L"domain.getX() < sizeX()", L"domain.getX() out of range"},
        {"y", Area(0, 3, 0, 0), L"domain.getY() < sizeY()", L"domain.getY() out of range"},
        {"width", Area(1, 0, 3, 0), L"domain.getWidth() < sizeX() - domain.getX()",
         L"domain.getWidth() out of range"},
        {"largest width", Area(1, 0, UINT32_MAX, UINT32_MAX), L"domain.getWidth() < sizeX() - domain.getX()",
         L"domain.getWidth() out of range"},
        {"height", Area(0, 1, 0, 2), L"domain.getHeight() < sizeY() - domain.getY()",
         L"domain.getHeight() out of range"},
    };
    for (const Row & row : rows) {
        SCOPED_TRACE(row.name);
        reports_.clear();
        EXPECT_TRUE(taken(grid_->newIndexIterator(row.area)).empty());
        EXPECT_EQ(reports_.count(0, row.condition, row.message), 1U) << reports_;
    }
}

TEST_F(GridDataTest, UndefinedBoxIsReportedAndSelectsNothing) {
    EXPECT_TRUE(taken(grid_->newIndexIterator(Bounds())).empty());
    EXPECT_EQ(reports_.count(0, L"bbox.isDefined()", L"bounding-box not defined"), 1U) << reports_;
}

TEST_F(GridDataTest, BoxCutsByHeightToo) {
    EXPECT_EQ(taken(grid_->newIndexIterator(Bounds(Point(-1e9, 0.0, -1e9), Point(1e9, 5.0, 1e9)))),
              (Numbers{0, 1, 2}));
    EXPECT_TRUE(
        taken(grid_->newIndexIterator(Bounds(Point(0.0, 900.0, 0.0), Point(30.0, 901.0, 40.0)))).empty());
}

TEST_F(GridDataTest, BoxSelectsAsTheSlowFormDoes) {
    constexpr unsigned seed = 11;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> x(-4, 12), y(0, 60), z(-8, 18);
    const auto grid = TestTerrain::grid({9, 6, 7.0, 8.0, 1.0, 2.0}, bumpy);
    const auto corner = [&] {
        const double px = x(random) / 2.0 * 2.0, py = y(random) * 8.0, pz = z(random);
        return Point(px, py, pz);
    };
    for (int round = 0; round < 500; ++round) {
        const Bounds box(corner(), corner());
        ASSERT_EQ(taken(grid->newIndexIterator(box)), taken(grid->GeometryData::newIndexIterator(box)));
    }
}

TEST_F(GridDataTest, StoresRasterAndBox) {
    EXPECT_EQ(RecordedAttributes::of(*grid_), (std::vector<std::string>{"raster", "bbox"}));
    for (const auto & height : {TestTerrain::Height(bumpy), TestTerrain::Height(withHole)}) {
        const auto written = TestTerrain::grid(s_layout, height);
        const auto read = roundTrip(written);
        ASSERT_TRUE(read);
        EXPECT_EQ(read->sizeX(), 4U);
        EXPECT_EQ(read->sizeY(), 3U);
        EXPECT_EQ(read->origin(), written->origin());
        EXPECT_EQ(read->scale(), written->scale());
        EXPECT_TRUE(read->boundingBox() == written->boundingBox());
        for (unsigned v = 0; v < 12; ++v)
            EXPECT_EQ(read->vertex(v), written->vertex(v));
        EXPECT_EQ(read->rasterData()->undefValue(), written->rasterData()->undefValue());
    }
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(GridDataTest, TheFilledCopyIsStoredUnderItsOwnNames) {
    const auto grid = TestTerrain::grid(s_layout, withHole);
    const std::vector<std::string> expected{"cellsX", "cellsY",        "cellSizeX",  "cellSizeY", "minX",
                                            "minY",   "hasUndefValue", "undefValue", "minValue",  "maxValue"};
    auto names = RecordedAttributes::of(const_cast<RasterData &>(*grid->rasterData()));
    ASSERT_GE(names.size(), expected.size() + 1);
    EXPECT_TRUE(names[10].starts_with("values")) << names[10];
    names.resize(expected.size());
    EXPECT_EQ(names, expected);
}

TEST_F(GridDataTest, AStoredGridWithoutRasterIsRefused) {
    const NBX::SO<GridData> none(new GridData(nullptr));
    EXPECT_THROW(roundTrip(none), NBX::IOError);
}

// The mesh, cut out in the simplest way: as lists of lines, then of points, then of cells.

struct Line {
    double coordinate;
    int cell; ///< -1 for one of the clip lines
};

std::vector<Line> linesBetween(double low, double high, double origin, double cellSize, unsigned cells) {
    std::vector<Line> lines;
    for (unsigned i = 0; i < cells; ++i) {
        const double position = origin + i * cellSize;
        if (low <= position && position <= high) lines.push_back({position, static_cast<int>(i)});
    }
    if (lines.empty() || low < lines.front().coordinate) lines.insert(lines.begin(), {low, -1});
    if (lines.back().coordinate < high) lines.push_back({high, -1});
    return lines;
}

struct Mesh {
    std::vector<Point> vertices;
    Numbers indices;
};

Mesh referenceMesh(const RasterData & raster, const Bounds & box) {
    Mesh mesh;
    const double xa = std::max(box.getLLF().x, raster.minX()), xb = std::min(box.getURB().x, raster.maxX());
    const double ya = std::max(box.getLLF().z, raster.minY()), yb = std::min(box.getURB().z, raster.maxY());
    if (xa >= xb || ya >= yb) return mesh;
    const auto columns = linesBetween(xa, xb, raster.minX(), raster.cellSizeX(), raster.cellsX());
    const auto rows = linesBetween(ya, yb, raster.minY(), raster.cellSizeY(), raster.cellsY());
    std::vector<std::vector<int>> numbers(rows.size(), std::vector<int>(columns.size(), -1));
    for (unsigned r = 0; r < rows.size(); ++r)
        for (unsigned c = 0; c < columns.size(); ++c) {
            const bool isCell = columns[c].cell >= 0 && rows[r].cell >= 0;
            const double height = isCell ? raster.value(unsigned(columns[c].cell), unsigned(rows[r].cell))
                                         : raster.value(columns[c].coordinate, rows[r].coordinate);
            if (raster.isUndefValue(height)) continue;
            numbers[r][c] = static_cast<int>(mesh.vertices.size());
            mesh.vertices.push_back({columns[c].coordinate, height, rows[r].coordinate});
        }
    const auto emit = [&mesh](int p, int q, int s) {
        for (const int number : {p, q, s})
            mesh.indices.push_back(static_cast<unsigned>(number));
    };
    for (unsigned r = 0; r + 1 < rows.size(); ++r)
        for (unsigned c = 0; c + 1 < columns.size(); ++c) {
            const int a = numbers[r][c], b = numbers[r][c + 1];
            const int low = numbers[r + 1][c], d = numbers[r + 1][c + 1];
            if (b >= 0 && low >= 0 && a >= 0) emit(a, b, low);
            if (b >= 0 && low >= 0 && d >= 0) emit(low, b, d);
        }
    return mesh;
}

class ExtractMeshTest : public testing::Test {
protected:
    static Mesh extract(const GridData & grid, const Bounds & box) {
        const auto set = grid.extractMesh(box, nullptr);
        if (!set) return {};
        EXPECT_EQ(set->getPrimitiveType(), NBX::PolygonSet::PT_Triangles);
        return {values<Point>(set->newVertexIterator().get()),
                values<unsigned>(set->newIndexIterator().get())};
    }
    /// A box over the plan from (x0, z0) to (x1, z1).
    static Bounds plan(double x0, double z0, double x1, double z1) {
        return Bounds(Point(x0, 0.0, z0), Point(x1, 1.0, z1));
    }

    NBX::SO<GridData> grid_ = TestTerrain::grid(s_layout, bumpy);
};

TEST_F(ExtractMeshTest, NullBesideTheRaster) {
    EXPECT_FALSE(grid_->extractMesh(plan(131, 200, 150, 240), nullptr));
    EXPECT_FALSE(grid_->extractMesh(plan(100, 100, 130, 199), nullptr));
    EXPECT_FALSE(grid_->extractMesh(Bounds(), nullptr));
}

TEST_F(ExtractMeshTest, NullForABoxThatOnlyTouches) {
    EXPECT_FALSE(grid_->extractMesh(plan(130, 200, 150, 240), nullptr));
    EXPECT_FALSE(grid_->extractMesh(plan(110, 210, 110, 230), nullptr));
}

TEST_F(ExtractMeshTest, NullForNotANumber) {
    const double nan = std::nan("");
    EXPECT_FALSE(grid_->extractMesh(plan(nan, nan, nan, nan), nullptr));
}

TEST_F(ExtractMeshTest, LeavesTheProgressToItsCaller) {
    NBX::Progress progress("cutting", 10.0);
    progress.update(4.0, "text", "detail");
    const auto set = grid_->extractMesh(plan(110, 200, 120, 220), &progress);
    ASSERT_TRUE(set);
    EXPECT_EQ(values<Point>(set->newVertexIterator().get()).size(), 4U);
    EXPECT_EQ(progress.currentValue(), 4.0);
    EXPECT_EQ(progress.text(), "text");
    EXPECT_EQ(progress.detail(), "detail");
    EXPECT_FALSE(progress.isFinished());
}

TEST_F(ExtractMeshTest, CornersOnGridLinesGiveNoExtraLine) {
    const Mesh mesh = extract(*grid_, plan(110, 200, 120, 220));
    EXPECT_EQ(mesh.vertices, (std::vector<Point>{{110, bumpy(1, 0), 200},
                                                 {120, bumpy(2, 0), 200},
                                                 {110, bumpy(1, 1), 220},
                                                 {120, bumpy(2, 1), 220}}));
    EXPECT_EQ(mesh.indices, (Numbers{0, 1, 2, 2, 1, 3}));
}

TEST_F(ExtractMeshTest, ABoxAroundTheRasterGivesItWhole) {
    const Mesh mesh = extract(*grid_, plan(-1e9, -1e9, 1e9, 1e9));
    EXPECT_EQ(mesh.vertices.size(), 12U);
    EXPECT_EQ(mesh.indices.size(), 3U * 2U * 2U * 3U);
}

TEST_F(ExtractMeshTest, ABoxInsideOneCellIsCutFromIt) {
    const Mesh mesh = extract(*grid_, plan(102, 205, 104, 210));
    ASSERT_EQ(mesh.vertices.size(), 4U);
    EXPECT_EQ(mesh.vertices[0].x, 102.0);
    EXPECT_EQ(mesh.vertices[3].z, 210.0);
    EXPECT_EQ(mesh.vertices[1].y, grid_->calculateHeight(Point(104, 0, 205)));
    EXPECT_EQ(mesh.indices, (Numbers{0, 1, 2, 2, 1, 3}));
}

TEST_F(ExtractMeshTest, ClipLinesStandBesideTheGridLines) {
    const Mesh mesh = extract(*grid_, plan(105, 200, 120, 230));
    ASSERT_EQ(mesh.vertices.size(), 9U);
    EXPECT_EQ(mesh.vertices[0].x, 105.0);
    EXPECT_EQ(mesh.vertices[1].x, 110.0);
    EXPECT_EQ(mesh.vertices[8], Point(120.0, grid_->calculateHeight(Point(120, 0, 230)), 230.0));
}

TEST_F(ExtractMeshTest, OneUndefinedCornerKeepsOneTriangleOrNone) {
    struct Row {
        const char * name;
        unsigned x, y;
        Numbers indices;
    };
    const std::vector<Row> rows{
        {"a", 0, 0, {1, 0, 2}}, {"b", 1, 0, {}}, {"c", 0, 1, {}}, {"d", 1, 1, {0, 1, 2}}};
    for (const Row & row : rows) {
        SCOPED_TRACE(row.name);
        const auto grid = TestTerrain::grid({2, 2, 0.0, 0.0, 1.0, 1.0}, [&row](unsigned x, unsigned y) {
            return x == row.x && y == row.y ? s_undefined : bumpy(x, y);
        });
        const Mesh mesh = extract(*grid, plan(0, 0, 1, 1));
        EXPECT_EQ(mesh.vertices.size(), 3U);
        EXPECT_EQ(mesh.indices, row.indices);
    }
}

TEST_F(ExtractMeshTest, NullWhereNothingIsDefined) {
    const auto grid = TestTerrain::grid(
        s_layout, [](unsigned x, unsigned y) { return x == 0 ? bumpy(x, y) : s_undefined; });
    EXPECT_FALSE(grid->extractMesh(plan(110, 200, 130, 240), nullptr));
    EXPECT_TRUE(grid->extractMesh(plan(100, 200, 130, 240), nullptr));
}

TEST_F(ExtractMeshTest, EqualsTheMeshOfTheSimplestWay) {
    constexpr unsigned seed = 4711;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> size(1, 7), eighth(-8, 48), height(0, 99);
    int meshes = 0;
    for (int round = 0; round < 4000; ++round) {
        const RasterGrid layout{unsigned(size(random)), unsigned(size(random)), 16.0, 32.0, 1.0, 0.5};
        const int undefinedBelow = round % 3 * 10;
        const auto grid = TestTerrain::grid(layout, [&](unsigned, unsigned) {
            const int h = height(random);
            return h < undefinedBelow ? s_undefined : h;
        });
        const double xa = 16.0 + eighth(random) / 8.0, xb = xa + eighth(random) / 8.0;
        const double za = 32.0 + eighth(random) / 16.0, zb = za + eighth(random) / 16.0;
        const Bounds box = plan(xa, za, xb, zb);
        const Mesh mesh = extract(*grid, box), expected = referenceMesh(*grid->rasterData(), box);
        ASSERT_EQ(mesh.vertices, expected.vertices) << "round " << round;
        ASSERT_EQ(mesh.indices, expected.indices) << "round " << round;
        meshes += !mesh.indices.empty();
    }
    EXPECT_GT(meshes, 500);
}

/// Twice the area in plan of a triangle, positive when it turns as (x, z) axes do.
double planArea(const Point & a, const Point & b, const Point & c) {
    return (b.x - a.x) * (c.z - a.z) - (b.z - a.z) * (c.x - a.x);
}

TEST_F(ExtractMeshTest, LiesInTheBoxOnTheSurfaceAndCoversIt) {
    constexpr unsigned seed = 99;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> x(3.4e6, 3.4e6 + 90.0), z(5.8e6, 5.8e6 + 70.0);
    const auto grid = TestTerrain::grid({31, 21, 3.4e6, 5.8e6, 3.3, 3.7}, bumpy);
    for (int round = 0; round < 300; ++round) {
        const double xa = x(random), xb = x(random), za = z(random), zb = z(random);
        const Bounds box = plan(xa, za, xb, zb);
        const Mesh mesh = extract(*grid, box);
        ASSERT_FALSE(mesh.vertices.empty());
        for (const Point & p : mesh.vertices) {
            ASSERT_TRUE(box.containsPointInPlane(p, 0, 2));
            ASSERT_NEAR(p.y, grid->calculateHeight(p), 1e-4);
        }
        double area = 0.0;
        for (unsigned i = 0; i < mesh.indices.size(); i += 3) {
            const double part = planArea(mesh.vertices[mesh.indices[i]], mesh.vertices[mesh.indices[i + 1]],
                                         mesh.vertices[mesh.indices[i + 2]]);
            ASSERT_GE(part, 0.0);
            area += part / 2.0;
        }
        ASSERT_NEAR(area, std::abs(xb - xa) * std::abs(zb - za), 1e-4);
    }
}

TEST_F(GridDataTest, OperationsKeepTheirOrder) {
    using Indices = GridData::Indices;
    EXPECT_TRUE(
        inSlotOrder(static_cast<Indices * (GridData::*)(const Bounds &) const>(
                        &ZMT::CORE::GeometryData::newIndexIterator),
                    &GridData::scale,
                    static_cast<Indices * (GridData::*)(const Area &) const>(&GridData::newIndexIterator)));
}

} // namespace
