// The light of terrains, against rays on the processor and against itself.

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include <nbx/container/sequence/array.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/raster/gdal/rasterfile.h>

#include "comparedlight.h"
#include "core/terrain/geometry/chunked/chunkedfixture.h"
#include "raylight.h"
#include "support/cancelingdisplay.h"
#include "support/glfixture.h"
#include "support/testterrain.h"
#include "util/occlusion/aoimpl.h"

namespace {

using NBX::PolygonSet;
using NBX::SO;
using ZMT::UTIL::AmbientOcclusion;
using ZMT::UTIL::AOImpl;
using ZMT::UTIL::LightList;
using namespace ZMT::CORE;
using V = NBX::Vector3Base<double>;
using Configuration = AmbientOcclusion::LightingConfiguration;

class TerrainLightTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        origin = GeoTransformation::nbx2geoOffset();
        std::srand(5);
    }
    void TearDown() override {
        GeoTransformation::setNBXOrigin(origin);
        AmbientOcclusion::setFBOEnabled(true);
        GLFixture::TearDown();
    }

    void build(SO<GridData> data) {
        grid = data;
        testing::internal::CaptureStderr();
        terrain = new Terrain(grid.get(), CreateGeometryTree::create(grid.get(), 1100).get());
        testing::internal::GetCapturedStderr();
        GeoTransformation::setNBXOrigin(terrain->origin());
    }
    void build(unsigned cells, double cellSize, const TestTerrain::Height & height) {
        build(TestTerrain::grid(ZMT::RASTER::RasterGrid{cells, cells, 5000.0, 7000.0, cellSize, cellSize},
                                height));
    }
    static LightList sky(int directions) {
        Configuration c;
        c.numSkyDirections = directions;
        return LightList::combined(c);
    }

    /// All of the terrain, and of all its light the green part.
    SO<NBX::Image> render(const LightList & lights, unsigned size, SO<PolygonSet> casters = nullptr) {
        const SO<AOImpl> impl = ZMT::UTIL::newAOImpl(canvas);
        return impl->render(AOImpl::TerrainStep{terrain, casters, terrain->boundingBox(), size}, lights,
                            nullptr);
    }
    static double green(const SO<NBX::Image> & image, int x, int y) {
        return double(*static_cast<const float *>(std::as_const(*image).pixelComponents(x, y, 1)));
    }
    /// Where the middle of a texel lies on the ground, in local coordinates, and the normal there.
    V place(int x, int y, unsigned size, V & normal) const {
        const double u = (x + 0.5) / size * (grid->sizeX() - 1), v = (y + 0.5) / size * (grid->sizeY() - 1);
        const unsigned i = unsigned(u), j = unsigned(v);
        const double s = u - i, t = v - j;
        const auto mixed = [&](const auto & at) {
            const V p00 = at(i, j), p10 = at(i + 1, j), p01 = at(i, j + 1), p11 = at(i + 1, j + 1);
            return s + t <= 1.0 ? p00 + (p10 - p00) * s + (p01 - p00) * t
                                : p11 + (p01 - p11) * (1.0 - s) + (p10 - p11) * (1.0 - t);
        };
        normal = mixed([&](unsigned a, unsigned b) { return grid->normal(a, b).normalized(); });
        return mixed([&](unsigned a, unsigned b) { return grid->vertex(a, b); });
    }
    ComparedLight compare(const SO<NBX::Image> & image, const LightList & lights, SO<PolygonSet> casters,
                          double lift) const {
        RayLight rays;
        rays.add(*grid);
        if (casters) rays.add(*casters);
        rays.commit();
        const double open = lights.onOpenPlane().y;
        ComparedLight compared;
        for (int y = 0; y < image->height(); ++y)
            for (int x = 0; x < image->width(); ++x) {
                V normal;
                const V p = place(x, y, unsigned(image->width()), normal);
                compared.add(green(image, x, y) / open, rays.light(p, normal, lights, lift) / open);
            }
        return compared;
    }

    SO<GridData> grid;
    SO<Terrain> terrain;
    V origin;
};

/// A box with its lower side at height 0, in scene coordinates.
SO<PolygonSet> box(const V & low, const V & high) {
    std::vector<V> vertices;
    for (unsigned i = 0; i < 8; ++i)
        vertices.emplace_back(i & 1 ? high.x : low.x, i & 2 ? high.y : low.y, i & 4 ? high.z : low.z);
    const unsigned quads[6][4] = {{0, 1, 3, 2}, {5, 4, 6, 7}, {4, 0, 2, 6},
                                  {1, 5, 7, 3}, {2, 3, 7, 6}, {4, 5, 1, 0}};
    std::vector<unsigned> indices;
    for (const auto & q : quads)
        indices.insert(indices.end(), {q[0], q[1], q[2], q[0], q[2], q[3]});
    return new PolygonSet(PolygonSet::PT_Triangles, new NBX::Array<V>(std::move(vertices)),
                          new NBX::Array<unsigned>(std::move(indices)));
}

double hill(unsigned x, unsigned y) {
    const double dx = x - 10.0, dy = y - 18.0;
    return 90.0 * std::exp(-(dx * dx + dy * dy) / 25.0) + 20.0 * std::sin(x * 0.6) * std::sin(y * 0.4);
}

void expectClose(const ComparedLight & compared) {
    EXPECT_GE(compared.correlation(), 0.98);
    EXPECT_LE(compared.meanDifference(), 0.02);
}

TEST_F(TerrainLightTest, AHillIsLitAsByRays) {
    build(33, 10.0, hill);
    const LightList lights = sky(300);
    expectClose(compare(render(lights, 64), lights, nullptr, 0.1));
}

TEST_F(TerrainLightTest, ABoxInAYardIsLitAsByRays) {
    // Walls around, 40 high.
    build(33, 10.0, [](unsigned x, unsigned y) { return x < 4 || y < 4 || x > 28 || y > 28 ? 40.0 : 0.0; });
    const LightList lights = sky(300);
    const auto house = box({100, 0, 130}, {150, 60, 170});
    const SO<NBX::Image> image = render(lights, 64, house);
    RayLight rays;
    rays.add(*grid);
    rays.add(*house);
    rays.commit();
    const double open = lights.onOpenPlane().y;
    ComparedLight compared;
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) {
            V normal;
            const V p = place(x, y, 64, normal);
            const bool isInside = p.x > 97 && p.x < 153 && p.z > 127 && p.z < 173;
            if (!isInside) compared.add(green(image, x, y) / open, rays.light(p, normal, lights, 0.1) / open);
        }
    expectClose(compared);
}

TEST_F(TerrainLightTest, AValleyIsLitAsByRays) {
    const auto raster =
        ZMT::RASTER::RasterFile(ZMT_DATA_DIR "/../tests/data/exploradores_heights.tif").read().raster;
    const double step = raster->cellSizeX();
    ASSERT_GE(std::min(raster->cellsX(), raster->cellsY()), 41u);
    build(TestTerrain::grid(ZMT::RASTER::RasterGrid{41, 41, 0.0, 0.0, step, step},
                            [&](unsigned x, unsigned y) { return raster->value(x, y); }));
    const LightList lights = sky(300);
    expectClose(compare(render(lights, 64), lights, nullptr, step / 100.0));
}

TEST_F(TerrainLightTest, APlaneGetsTheSameEverywhereAndAllOfTheLight) {
    build(9, 10.0, [](unsigned, unsigned) { return 100.0; });
    for (const int directions : {16, 200, 300, 3000}) {
        const LightList lights = sky(directions);
        const SO<NBX::Image> image = render(lights, 8);
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x)
                EXPECT_NEAR(1.0, green(image, x, y) / lights.onOpenPlane().y, 0.004) << directions;
    }
}

/// A slope of 3 in 4.
TEST_F(TerrainLightTest, WithoutNormalsTheFacesCount) {
    terrain = TestChunked::terrain({33, 33, 5000.0, 7000.0, 10.0, 10.0},
                                   [](unsigned, unsigned y) { return 7.5 * y; });
    GeoTransformation::setNBXOrigin(terrain->origin());
    LightList fromAbove;
    fromAbove.directions = {V(0, 1, 0)};
    fromAbove.colors = {V(1, 1, 1)};
    const SO<NBX::Image> image = render(fromAbove, 16);
    for (int i = 1; i < 15; ++i)
        EXPECT_NEAR(0.8, green(image, i, i), 0.01) << i;
}

TEST_F(TerrainLightTest, MirrorImagesOfAWallDarkenAlike) {
    // A ridge from side to side, lit by a sky that is its own mirror image.
    const auto mean = [&](const TestTerrain::Height & height, const auto & counts) {
        build(33, 10.0, height);
        std::srand(6);
        std::vector<V> directions;
        const auto quarter = AmbientOcclusion::createLightDirections(25);
        for (const V & d : *quarter)
            for (const double sx : {-1.0, 1.0})
                for (const double sy : {-1.0, 1.0}) {
                    directions.emplace_back(sx * d.x, sy * d.y, d.z);
                    directions.emplace_back(sx * d.y, sy * d.x, d.z);
                }
        const SO<NBX::Image> image = render(LightList::fromDirections(NBX::Array<V>(directions)), 32);
        double sum = 0.0;
        unsigned n = 0;
        for (int y = 0; y < 32; ++y)
            for (int x = 0; x < 32; ++x)
                if (counts(x, y)) {
                    sum += green(image, x, y);
                    ++n;
                }
        return sum / n;
    };
    const double north = mean([](unsigned, unsigned y) { return y > 25 ? 60.0 : 0.0; },
                              [](int, int y) { return y >= 16 && y < 24; });
    const double south = mean([](unsigned, unsigned y) { return y < 7 ? 60.0 : 0.0; },
                              [](int, int y) { return y >= 8 && y < 16; });
    const double east = mean([](unsigned x, unsigned) { return x > 25 ? 60.0 : 0.0; },
                             [](int x, int) { return x >= 16 && x < 24; });
    const double west = mean([](unsigned x, unsigned) { return x < 7 ? 60.0 : 0.0; },
                             [](int x, int) { return x >= 8 && x < 16; });
    const double open = mean([](unsigned, unsigned) { return 0.0; }, [](int, int) { return true; });
    EXPECT_LT(north, 0.9 * open);
    EXPECT_NEAR(north, south, 0.005 * open);
    EXPECT_NEAR(north, east, 0.005 * open);
    EXPECT_NEAR(north, west, 0.005 * open);
}

TEST_F(TerrainLightTest, TheSunShinesFromWhereItIsSaidToStand) {
    // A tower in the middle; the sun in the north-east, so its shadow lies in the south-west.
    build(33, 10.0,
          [](unsigned x, unsigned y) { return x > 14 && x < 19 && y > 14 && y < 19 ? 100.0 : 0.0; });
    Configuration c;
    c.numSkyDirections = 0;
    c.numSunDirections = 1;
    c.sunDirection = V(1, 1, 1);
    c.sunSpread = 0.0;
    const SO<NBX::Image> image = render(LightList::combined(c), 32);
    EXPECT_NEAR(0.0, green(image, 12, 12), 1e-3);
    EXPECT_GT(green(image, 20, 20), 0.5);
    EXPECT_GT(green(image, 20, 12), 0.5);
    EXPECT_GT(green(image, 12, 20), 0.5);
}

TEST_F(TerrainLightTest, NoiseFallsWithTheRootOfTheNumberOfDirections) {
    build(21, 10.0, [](unsigned x, unsigned y) { return 3.0 * hill(x, y); });
    const auto picture = [&](int directions, unsigned seed) {
        std::srand(seed);
        const LightList lights = sky(directions);
        const SO<NBX::Image> image = render(lights, 24);
        std::vector<double> values;
        for (int y = 0; y < 24; ++y)
            for (int x = 0; x < 24; ++x)
                values.push_back(green(image, x, y) / lights.onOpenPlane().y);
        return values;
    };
    const auto noise = [&](int directions) {
        double sum = 0.0;
        const auto a = picture(directions, 1), b = picture(directions, 2);
        for (std::size_t i = 0; i < a.size(); ++i)
            sum += std::pow(a[i] - b[i], 2);
        return std::sqrt(sum / (2.0 * double(a.size())));
    };
    const double at75 = noise(75), at150 = noise(150), at300 = noise(300), at600 = noise(600);
    RecordProperty("noise", testing::PrintToString(std::vector<double>{at75, at150, at300, at600}));
    EXPECT_LT(at300, 0.75 * at75);
    EXPECT_LT(at600, 0.75 * at150);
    EXPECT_LT(at600, 0.5 * at75);
    EXPECT_LT(at75, 0.1);
}

TEST_F(TerrainLightTest, BothRenderersGiveTheSame) {
    build(25, 10.0, hill);
    const auto casters = box({40, 0, 130}, {60, 120, 150});
    for (const int directions : {9, 40}) {
        const LightList lights = sky(directions);
        AmbientOcclusion::setFBOEnabled(true);
        EXPECT_EQ(L"AOImpl: FBO", ZMT::UTIL::newAOImpl(canvas)->getObjectName());
        const SO<NBX::Image> fbo = render(lights, 32, casters);
        AmbientOcclusion::setFBOEnabled(false);
        EXPECT_EQ(L"AOImpl: PBuffer", ZMT::UTIL::newAOImpl(canvas)->getObjectName());
        const SO<NBX::Image> pbuffer = render(lights, 32, casters);
        for (int y = 0; y < 32; ++y)
            for (int x = 0; x < 32; ++x)
                EXPECT_EQ(green(fbo, x, y), green(pbuffer, x, y)) << x << " " << y;
    }
}

/// A root below which nothing is known before it is drawn.
class UnreadRoot : public GridPatch {
public:
    UnreadRoot(const SO<GridData> & grid, const GeometryPatch & whole,
               const std::vector<SO<GeometryPatch>> & children)
        : GridPatch(grid, NBX::Area(0, 0, 1, 1), whole.boundingBox(), 1e6, whole.wall(),
                    new NBX::NonPersistentArray<SO<GeometryPatch>>(children)) {}
    bool childrenAreInMemory() const override { return false; }
};

TEST_F(TerrainLightTest, PatchesPutTogetherAreLitAsByTheTerrainsOwnPainterAndNearerToRays) {
    build(140, 10.0, [](unsigned x, unsigned y) { return 60.0 * std::sin(0.1 * x) * std::cos(0.13 * y); });
    const LightList lights = sky(12);
    const auto difference = [&] {
        const ComparedLight compared = compare(render(lights, 128), lights, nullptr, 2.0);
        EXPECT_GT(compared.correlation(), 0.97);
        return compared.meanDifference();
    };
    const double together = difference();
    terrain = new Terrain(grid.get(), new UnreadRoot(grid, *terrain->root(), {terrain->root()}));
    const double painted = difference();
    EXPECT_LT(together, 0.0105);
    EXPECT_LT(painted, 0.02);
    EXPECT_LT(together, painted);
}

TEST_F(TerrainLightTest, ATextureShowsThePartAskedFor) {
    build(33, 10.0,
          [](unsigned x, unsigned y) { return x > 20 && y > 20 ? 0.0 : double(30 * ((x + y) % 2)); });
    AmbientOcclusion::setIdBufferSize(16);
    Configuration c;
    c.numSkyDirections = 20;
    const auto texture = [&](const NBX::Bounds & part) {
        std::srand(8);
        return AmbientOcclusion::createTerrainTexture(terrain, nullptr, canvas, part, c);
    };
    const SO<NBX::Image> all = texture(NBX::Bounds());
    const SO<NBX::Image> flat = texture(NBX::Bounds({240, 0, 240}, {310, 0, 310}));
    const SO<NBX::Image> beyond = texture(NBX::Bounds({1000, 0, 1000}, {1100, 0, 1100}));
    AmbientOcclusion::setIdBufferSize(1024);
    ASSERT_TRUE(all && flat && beyond);
    EXPECT_EQ(16, all->width());
    EXPECT_EQ(NBX::Image::UInt8, all->dataType());
    EXPECT_GT(pixel(all, 14, 14)[0], pixel(all, 4, 4)[0] + 20);
    EXPECT_NEAR(pixel(flat, 8, 8)[0], pixel(all, 14, 14)[0], 25);
    EXPECT_EQ(255, pixel(all, 4, 4)[3]);
    EXPECT_EQ((std::array<int, 4>{0, 0, 0, 0}), pixel(beyond, 8, 8));
}

TEST_F(TerrainLightTest, FurtherCastersShadeATextureAndStayAsTheyAre) {
    build(9, 10.0, [](unsigned, unsigned) { return 0.0; });
    AmbientOcclusion::setIdBufferSize(16);
    const auto roof = box({0, 500, 0}, {40, 510, 80});
    const SO<PolygonSet::Colors> colors(
        new NBX::Array<NBX::Color>(std::vector<NBX::Color>(8, NBX::Color::red)));
    roof->setColorIterator(colors);
    Configuration c;
    c.numSkyDirections = 0;
    c.extraDirections = new NBX::Array<V>(std::vector<V>{{0, 1, 0}});
    c.extraColors = new NBX::Array<V>(std::vector<V>{{1, 1, 1}});
    const CancelingDisplay display(1);
    const auto image = AmbientOcclusion::createTerrainTexture(terrain, roof, canvas,
                                                              NBX::Bounds({0, 900, 0}, {80, 990, 80}), c);
    AmbientOcclusion::setIdBufferSize(1024);
    ASSERT_TRUE(image);
    EXPECT_EQ(0, pixel(image, 4, 8)[0]);
    EXPECT_EQ(255, pixel(image, 12, 8)[0]);
    EXPECT_EQ(colors.get(), roof->newColorIterator().get());
    EXPECT_EQ(std::vector<std::string>{"Calculating terrain lighting"}, display.titles);
}

TEST_F(TerrainLightTest, WithoutDirectionsTheTextureIsBlack) {
    build(9, 10.0, [](unsigned, unsigned) { return 1.0; });
    AmbientOcclusion::setIdBufferSize(8);
    Configuration c;
    c.numSkyDirections = 0;
    const SO<NBX::Image> image =
        AmbientOcclusion::createTerrainTexture(terrain, nullptr, canvas, NBX::Bounds(), c);
    AmbientOcclusion::setIdBufferSize(1024);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
            EXPECT_EQ((std::array<int, 4>{0, 0, 0, 0}), pixel(image, x, y));
}

} // namespace
