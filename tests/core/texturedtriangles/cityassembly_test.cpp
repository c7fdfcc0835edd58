#include <zmt/core/texturedtriangles/cityassembly.h>

#include <array>
#include <cmath>
#include <utility>

#include <gtest/gtest.h>

#include <nbx/analysis/scenegraphanalyzer.h>
#include <nbx/container/sequence/array.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/shape/polygonsettool.h>
#include <support/recordedreports.h>

namespace ZMT::CORE {
namespace {

using NBX::SO;
using Point = CityAssembly::Point;
using Box = NBX::Bounds;

/// A box of 1 m to the east, 2 m up, 3 m to the north.
SO<NBX::SceneThing> model() {
    const SO<NBX::SceneThing> thing(new NBX::SceneThing);
    thing->append(new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles, new NBX::Array<Point>(std::vector<Point>{
                                                                         {0, 0, 0}, {1, 2, 0}, {0, 0, 3}})));
    return thing;
}

void expectNear(const Point & expected, const Point & actual, double tolerance = 1e-9) {
    EXPECT_NEAR(expected.x, actual.x, tolerance);
    EXPECT_NEAR(expected.y, actual.y, tolerance);
    EXPECT_NEAR(expected.z, actual.z, tolerance);
}

TEST(CityAssembly, OrientationTurnsClockwise) {
    const Point east(1, 0, 0), up(0, 1, 0), north(0, 0, 1), one(1, 1, 1);
    const struct {
        const char * name;
        double heading, tilt, roll;
        Point east, up, north; ///< what becomes of these
    } cases[] = {
        {"none", 0, 0, 0, east, up, north},
        {"heading", 90, 0, 0, -north, up, east},
        {"tilt", 0, 90, 0, east, north, -up},
        {"roll", 0, 0, 90, up, -east, north},
        {"roll, then heading", 90, 0, 90, up, north, east},
        {"roll, then tilt", 0, 90, 90, north, -east, -up},
        {"tilt, then heading", 90, 90, 0, -north, east, -up},
    };
    for (const auto & c : cases) {
        SCOPED_TRACE(c.name);
        const auto matrix = CityAssembly::orientation(c.heading, c.tilt, c.roll, one);
        expectNear(c.east, matrix * east);
        expectNear(c.up, matrix * up);
        expectNear(c.north, matrix * north);
    }
}

TEST(CityAssembly, ScaleIsAlongTheAxesOfTheModel) {
    expectNear({3, 20, -1}, CityAssembly::orientation(90, 0, 0, {1, 10, 3}) * Point(1, 2, 1));
}

TEST(CityAssembly, ModelsStandOnTheirPlaces) {
    CityAssembly city;
    city.add(model(), 1, "a", "a.dae", CityAssembly::onMap(1000.0, 5000.0, 40.0));
    city.add(model(), 2, "b", "b.dae", CityAssembly::onMap(1010.0, 5020.0, 50.0));
    EXPECT_EQ(city.size(), 2U);
    EXPECT_EQ(city.triangles(), 3U);
    const Point origin = city.origin();
    expectNear({1006, 46, 5012}, origin);
    EXPECT_FALSE(city.scene(origin)->boundingBox(nullptr) != Box({-6, -6, -12}, {5, 6, 11}));
    const std::vector<CityModels::Model> table = city.table(origin);
    ASSERT_EQ(table.size(), 2U);
    EXPECT_EQ(table[1].name, "b");
    EXPECT_EQ(table[1].source, "b.dae");
    expectNear({1010, 50, 5020}, table[1].place);
    EXPECT_FALSE(table[1].box != Box({4, 4, 8}, {5, 6, 11}));
    EXPECT_EQ(table[1].firstTriangle, 1U);
    EXPECT_EQ(table[1].triangles, 2U);
    EXPECT_TRUE(std::isnan(table[1].ground));
}

/// The map's north is not true north, and its metre not one of the ground.
TEST(CityAssembly, AxesOfThePlaceTurnAndStretch) {
    CityAssembly city;
    CityAssembly::Place place;
    place.axes = {{100, 200}, {0.0, -2.0}, {2.0, 0.0}};
    place.height = 7.0;
    place.orientation = CityAssembly::orientation(90, 0, 0, {1, 1, 1});
    city.add(model(), 1, "a", "a.dae", place);
    // 3 m to the north have become 3 m to the east, and the map's direction for these.
    const Box box = city.scene({100, 7, 200})->boundingBox(nullptr);
    expectNear({-2, 0, -6}, box.getLLF());
    expectNear({0, 2, 0}, box.getURB());
}

TEST(CityAssembly, UnitsOfTheMapNeedNotBeMetres) {
    CityAssembly city;
    city.add(model(), 1, "a", "a.dae", CityAssembly::onMap(0, 0, 0, 0.5));
    EXPECT_FALSE(city.scene({})->boundingBox(nullptr) != Box({0, 0, 0}, {2, 2, 6}));
}

/// As single precision they would lie half a metre apart.
TEST(CityAssembly, FarFromTheOriginOfTheMapNothingMoves) {
    CityAssembly city;
    city.add(model(), 1, "a", "a.dae", CityAssembly::onMap(370000.123, 5800000.456, 40.789));
    const Point origin = city.origin();
    const Point corner = city.scene(origin)->boundingBox(nullptr).getLLF();
    expectNear({370000.123 - origin.x, 40.789 - origin.y, 5800000.456 - origin.z}, corner, 1e-8);
    EXPECT_LT(corner.length(), 4.0);
}

/// What has its front to the west shows it to the east, and so do its normals.
TEST(CityAssembly, ModelsThatAreMirroredKeepTheirFrontsOutside) {
    const auto normalsOf = [](const Point & scale) {
        const SO<NBX::SceneThing> leaning = model();
        auto * set = dynamic_cast<NBX::PolygonSet *>(leaning->object(0));
        set->setNormalIterator(new NBX::Array<Point>(3, Point(-1, 0, 0)));
        CityAssembly city;
        CityAssembly::Place place = CityAssembly::onMap(0, 0, 0);
        place.orientation = CityAssembly::orientation(0, 0, 0, scale);
        city.add(leaning, 1, "a", "a.dae", place);
        const SO<NBX::SceneThing> scene = city.scene({});
        NBX::SceneGraphAnalyzer::flattenScene(scene.get());
        const auto found =
            NBX::SceneGraphAnalyzer::findObjects(NBX::PolygonSet::ClassNameNBX(), scene.get(), false);
        const auto & flat = dynamic_cast<const NBX::PolygonSet &>(*found->get(0)->object());
        std::array<unsigned, 3> corners{};
        EXPECT_TRUE(flat.triangle(0, corners));
        const auto & vertices = *flat.newVertexIterator();
        return std::pair(NBX::PolygonSetTool::getTriangleNormal(
                             vertices.get(corners[0]), vertices.get(corners[1]), vertices.get(corners[2])),
                         flat.newNormalIterator()->get(0));
    };
    const auto [front, normal] = normalsOf({1, 1, 1});
    expectNear(NBX::PolygonSetTool::getTriangleNormal({0, 0, 0}, {1, 2, 0}, {0, 0, 3}), front);
    for (const Point & scale :
         {Point(-1, 1, 1), Point(1, -1, 1), Point(1, 1, -1), Point(-1, -1, -1), Point(-1, -1, 1)}) {
        const auto [mirroredFront, mirroredNormal] = normalsOf(scale);
        expectNear({front.x * scale.x, front.y * scale.y, front.z * scale.z}, mirroredFront);
        expectNear({normal.x * scale.x, normal.y * scale.y, normal.z * scale.z}, mirroredNormal);
    }
}

TEST(CityAssembly, WithoutModelsThereIsAnEmptyScene) {
    const RecordedReports reports;
    CityAssembly city;
    city.add(nullptr, 1, "none", "", {});
    EXPECT_EQ(reports.size(), 1U);
    EXPECT_EQ(city.size(), 0U);
    expectNear({}, city.origin());
    EXPECT_EQ(city.scene({})->objects(), 0U);
    EXPECT_TRUE(city.table({}).empty());
}

} // namespace
} // namespace ZMT::CORE
