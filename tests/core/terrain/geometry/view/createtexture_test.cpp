#include <zmt/core/terrain/geometry/view/createtexture.h>

#include <cmath>
#include <functional>
#include <numbers>
#include <numeric>
#include <stdexcept>

#include <support/glfixture.h>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/context/glcanvas.h>
#include <nbx/gl/state/lightmodelgl.h>
#include <nbx/gl/state/shapematerialgl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/scene/attribute/distantlight.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/viewport.h>
#include <zmt/core/misc/usedisplaylistgl.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/frame/terrainwatcher.h>
#include <zmt/core/terrain/geometry/hybrid/createhybriddata.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/geometry/tree/tinpatch.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/modulateterraintexturingeffect.h>
#include <zmt/core/terrain/texture/perpixelterrainlightingeffect.h>
#include <zmt/core/terrain/texture/terraintexture.h>
#include <zmt/raster/gdal/rasterfile.h>

#include "support/fakegeometrydata.h"
#include "support/testterrain.h"

using NBX::Bounds;
using NBX::Color;
using NBX::DistantLight;
using NBX::MemoryImage;
using ZMT::CORE::CreateTexture;
using ZMT::CORE::GeoTransformation;
using ZMT::CORE::GridData;
using ZMT::CORE::GridPatch;
using ZMT::CORE::Terrain;
using ZMT::CORE::TerrainPainterFrameManager;
using ZMT::CORE::TerrainPainterGLSettings;
using ZMT::RASTER::RasterGrid;
using Point = NBX::Vector3Base<double>;
using Rgb = std::array<double, 3>;

namespace {

/// Alike in no direction: a ridge across, steeper to the south-west, with a hill in the north-east.
double landscape(double u, double v) {
    const double ridge = std::exp(-std::pow((u + 0.4 * v - 0.6) * 5.0, 2.0));
    const double hill = std::exp(-(std::pow(u - 0.8, 2.0) + std::pow(v - 0.75, 2.0)) * 60.0);
    return 3.0 * ridge + 2.0 * hill + 1.5 * u * u;
}

NBX::SO<GridData> landscapeGrid(const RasterGrid & layout, double height = 1.0) {
    return TestTerrain::grid(layout, [&](unsigned x, unsigned y) {
        return height * layout.cellsX / 8.0 * landscape(x / (layout.cellsX - 1.0), y / (layout.cellsY - 1.0));
    });
}

NBX::SO<GridPatch> wholePatch(const NBX::SO<GridData> & grid) {
    return new GridPatch(grid, NBX::Area(0, 0, grid->sizeX() - 1, grid->sizeY() - 1), grid->boundingBox(),
                         0.0, grid->boundingBox().getLLF().y, nullptr);
}

NBX::SO<Terrain> wholeTerrain(const NBX::SO<GridData> & grid) {
    return new Terrain(grid.get(), wholePatch(grid).get());
}

NBX::SO<MemoryImage> image(int width, int height, NBX::LayerSequence layers = NBX::LS_RGB) {
    return new MemoryImage(width, height, layers);
}

/// A function at the vertices of a grid, interpolated over the triangles that are drawn, at the middle of a
/// pixel of a picture of the grid.
Rgb valueAtPixel(const GridData & grid, const NBX::Image & picture, int x, int y,
                 const std::function<Rgb(unsigned, unsigned)> & f) {
    const double u = (x + 0.5) / picture.width() * (grid.sizeX() - 1);
    const double v = (y + 0.5) / picture.height() * (grid.sizeY() - 1);
    const auto i = std::min(unsigned(u), grid.sizeX() - 2), j = std::min(unsigned(v), grid.sizeY() - 2);
    const bool isUpper = u - i + v - j > 1.0;
    const double a = isUpper ? 1.0 - (u - i) : u - i, b = isUpper ? 1.0 - (v - j) : v - j;
    const Rgb corner = isUpper ? f(i + 1, j + 1) : f(i, j);
    const Rgb alongX = isUpper ? f(i, j + 1) : f(i + 1, j), alongY = isUpper ? f(i + 1, j) : f(i, j + 1);
    Rgb result;
    for (unsigned c = 0; c < 3; ++c)
        result[c] = (1.0 - a - b) * corner[c] + a * alongX[c] + b * alongY[c];
    return result;
}

/// The largest difference from the formula, from 0 to 255.
double worstDifference(const GridData & grid, const NBX::Image & picture,
                       const std::function<Rgb(unsigned, unsigned)> & f) {
    double worst = 0.0;
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x) {
            const Rgb expected = valueAtPixel(grid, picture, x, y, f);
            for (int c = 0; c < picture.numberOfLayers(); ++c)
                worst = std::max(
                    worst, std::abs(expected[unsigned(c)] * 255.0 - *picture.pixelComponentsU8(x, y, c)));
        }
    return worst;
}

Rgb encoded(const Point & normal, const Point & scale = {1, 1, 1}) {
    const Point n = Point(normal.x * scale.x, normal.y * scale.y, normal.z * scale.z).normalized();
    return {n.x * 0.5 + 0.5, n.y * 0.5 + 0.5, n.z * 0.5 + 0.5};
}

/// What ground of such a colour shows under a light, with OpenGL's own 0.2 from everywhere.
double lit(const Point & normal, const Point & direction, double ambient, double color) {
    const double facing = std::max(0.0, normal.normalized().dot(direction.normalized()));
    return std::min(1.0, color * (0.2 + ambient + (1.0 - ambient) * facing));
}

/// Notes the sizes of canvas and picture of each frame, and the box of what it drew.
class FrameSizes : public NBX::Callback1<const TerrainPainterFrameManager::Info &> {
    using Base = NBX::Callback1<const TerrainPainterFrameManager::Info &>;
    NBX_TEMPLATE_CLASS(FrameSizes, Base)
public:
    using Size = std::array<unsigned, 2>;
    void call(const TerrainPainterFrameManager::Info & info) override {
        const NBX::Canvas & canvas = *info.engine->getCanvas();
        canvases.push_back({canvas.getWidth(), canvas.getHeight()});
        const NBX::Area area = info.engine->viewport()->getArea();
        pictures.push_back({area.getWidth(), area.getHeight()});
        errors.push_back(TerrainPainterGLSettings::getGeometryError());
        errors.push_back(TerrainPainterGLSettings::getTextureError());
        boxes.push_back(TerrainPainterFrameManager::bboxOfLastRenderedGeometryPatches());
    }
    std::vector<Size> canvases, pictures;
    std::vector<double> errors;
    std::vector<Bounds> boxes;
};

/// Ends the drawing of a terrain by an exception.
class Thrower : public NBX::Callback1<const TerrainPainterFrameManager::Info &> {
    using Base = NBX::Callback1<const TerrainPainterFrameManager::Info &>;
    NBX_TEMPLATE_CLASS(Thrower, Base)
public:
    void call(const TerrainPainterFrameManager::Info &) override { throw std::runtime_error("no more"); }
};

class CreateTextureTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        TerrainPainterFrameManager::RegisterEndFrameCallback(frames);
        before = stateOfGL();
    }
    void TearDown() override {
        EXPECT_EQ(before, stateOfGL());
        TerrainPainterFrameManager::UnregisterEndFrameCallback(frames);
        GeoTransformation::setNBXOrigin({});
        GLFixture::TearDown();
    }

    NBX::SO<FrameSizes> frames = new FrameSizes;
    std::vector<int> before;
};

TEST_F(CreateTextureTest, NormalsAreColors) {
    const auto grid = landscapeGrid({50, 40, 0.0, 0.0, 2.0, 3.0});
    const auto terrain = wholeTerrain(grid);
    for (const Point & scale : {Point(1, 1, 1), Point(2, 1, 0.5)}) {
        const auto target = image(300, 200);
        ASSERT_TRUE(CreateTexture::createNormal(terrain, target, scale));
        EXPECT_LE(worstDifference(*grid, *target,
                                  [&](unsigned x, unsigned y) { return encoded(grid->normal(x, y), scale); }),
                  4.0);
    }
    EXPECT_EQ(frames->canvases, (std::vector<FrameSizes::Size>{{300, 200}, {300, 200}}));
}

/// What is in force while the terrain is painted from above.
class AttributesInForce : public NBX::Callback1<const TerrainPainterFrameManager::Info &> {
    using Base = NBX::Callback1<const TerrainPainterFrameManager::Info &>;
    NBX_TEMPLATE_CLASS(AttributesInForce, Base)
public:
    AttributesInForce() { TerrainPainterFrameManager::RegisterEndFrameCallback(this); }
    void stop() { TerrainPainterFrameManager::UnregisterEndFrameCallback(this); }

    void call(const TerrainPainterFrameManager::Info & info) override {
        lists = attribute<ZMT::CORE::UseDisplayListGL>(info);
        watcher = attribute<ZMT::CORE::TerrainWatcher>(info);
        material = attribute<NBX::ShapeMaterialGL>(info);
        light = attribute<NBX::LightModelGL>(info);
    }
    NBX::SO<ZMT::CORE::UseDisplayListGL> lists;
    NBX::SO<ZMT::CORE::TerrainWatcher> watcher;
    NBX::SO<NBX::ShapeMaterialGL> material;
    NBX::SO<NBX::LightModelGL> light;

private:
    template <class T> static NBX::SO<T> attribute(const TerrainPainterFrameManager::Info & info) {
        return dynamic_cast<T *>(info.engine->getAttribute(T::ClassNameNBX()));
    }
};

TEST_F(CreateTextureTest, TheTerrainIsDrawnWithoutListsAndWatched) {
    const auto terrain = wholeTerrain(landscapeGrid({9, 9, 0.0, 0.0, 1.0, 1.0}));
    const NBX::SO<AttributesInForce> seen(new AttributesInForce);
    ASSERT_TRUE(CreateTexture::createNormal(terrain, image(20, 10), {1, 1, 1}));
    ASSERT_TRUE(seen->lists && seen->watcher && seen->light);
    EXPECT_FALSE(seen->lists->getActive());
    EXPECT_TRUE(seen->watcher->viewinfo());
    EXPECT_EQ(seen->light->getMode(), 0);

    const NBX::SO<DistantLight> light(new DistantLight({-1, 1, 1}, Color::white, 1.0, 0.2));
    ASSERT_TRUE(CreateTexture::createShading(terrain, light, image(20, 10), Color(0.75), {1, 1, 1}));
    seen->stop();
    ASSERT_TRUE(seen->lists && seen->watcher && seen->material);
    EXPECT_FALSE(seen->lists->getActive());
    EXPECT_EQ(seen->material->getColor(), Color(0.75));
    EXPECT_EQ(seen->material->getSpecular(), Color::black);
    EXPECT_EQ(seen->material->getShininess(), 115.0);
    EXPECT_EQ(seen->material->getComponent(), NBX::ShapeMaterialGL::C_AmbientAndDiffuse);
    EXPECT_EQ(seen->material->getAmbient(), Color(0.2));
    EXPECT_EQ(seen->material->getDiffuse(), Color(0.5));
    EXPECT_EQ(seen->material->getEmission(), Color(0.0));
    EXPECT_FALSE(seen->material->isTwoSided());
    EXPECT_TRUE(seen->material->isEnabled());
}

TEST_F(CreateTextureTest, ThePictureBeginsInTheSouthWest) {
    // A slope that rises to the east, level ground in the north.
    const auto grid = TestTerrain::grid({9, 9, 0.0, 0.0, 1.0, 1.0},
                                        [](unsigned x, unsigned y) { return y < 5 ? 1.0 * x : 0.0; });
    const auto target = image(90, 90);
    ASSERT_TRUE(CreateTexture::createNormal(wholeTerrain(grid), target, {1, 1, 1}));
    EXPECT_NEAR(*target->pixelComponentsU8(45, 10, 0), 255 - 218, 1) << "looks to the west";
    EXPECT_NEAR(*target->pixelComponentsU8(45, 10, 2), 128, 1);
    EXPECT_NEAR(*target->pixelComponentsU8(45, 80, 0), 128, 1) << "level";
    EXPECT_NEAR(*target->pixelComponentsU8(80, 45, 2), 255, 12) << "falls to the north";
}

/// A pyramid stands in the middle cell of flat ground.
TEST_F(CreateTextureTest, CellsWithTrianglesOfTheirOwnShowTheirNormals) {
    using ZMT::CORE::CreateHybridData;
    const auto hybrid =
        CreateHybridData::create(TestTerrain::grid({6, 6}, [](unsigned, unsigned) { return 0.0; }),
                                 std::vector<CreateHybridData::Feature>{{{2.2, 0, 2.2}, {2.2, 0, 2.8}},
                                                                        {{2.2, 0, 2.8}, {2.8, 0, 2.8}},
                                                                        {{2.8, 0, 2.8}, {2.8, 0, 2.2}},
                                                                        {{2.8, 0, 2.2}, {2.2, 0, 2.2}},
                                                                        {{2.5, 0.3, 2.5}}});
    const auto target = image(100, 100);
    ASSERT_TRUE(CreateTexture::createNormal(wholeTerrain(hybrid), target, {1, 1, 1}));
    const int half = int(std::lround(127.5 * (1.0 + std::sqrt(0.5))));
    const auto colorAt = [&](double x, double z) {
        const auto * pixel = target->pixelComponentsU8(int(x * 20.0), int(z * 20.0));
        return std::array<int, 3>{pixel[0], pixel[1], pixel[2]};
    };
    const auto expectNear = [](const std::array<int, 3> & a, const std::array<int, 3> & b) {
        for (unsigned c = 0; c < 3; ++c)
            EXPECT_NEAR(a[c], b[c], 3) << c;
    };
    expectNear(colorAt(2.3, 2.5), {255 - half, half, 128}); // to the west
    expectNear(colorAt(2.7, 2.5), {half, half, 128});
    expectNear(colorAt(2.5, 2.3), {128, half, 255 - half});
    expectNear(colorAt(2.5, 2.7), {128, half, half});
    expectNear(colorAt(0.5, 0.5), {128, 255, 128});
}

TEST_F(CreateTextureTest, PicturesLargerThanACanvasHaveNoSeams) {
    const auto grid = landscapeGrid({70, 60, 0.0, 0.0, 2.0, 2.0});
    const auto target = image(1400, 1100);
    ASSERT_TRUE(CreateTexture::createNormal(wholeTerrain(grid), target, {1, 1, 1}));
    EXPECT_EQ(frames->canvases, std::vector<FrameSizes::Size>(4, {1024, 1024}));
    EXPECT_EQ(frames->pictures,
              (std::vector<FrameSizes::Size>{{1024, 1024}, {376, 1024}, {1024, 76}, {376, 76}}));
    EXPECT_LE(
        worstDifference(*grid, *target, [&](unsigned x, unsigned y) { return encoded(grid->normal(x, y)); }),
        4.0);
    // Next to the seams the picture goes on as everywhere else.
    int atSeams = 0;
    for (int i = 0; i < 1024; ++i)
        for (int c = 0; c < 3; ++c) {
            const auto step = [&](int x0, int y0, int x1, int y1) {
                return std::abs(*target->pixelComponentsU8(x0, y0, c) -
                                *target->pixelComponentsU8(x1, y1, c));
            };
            atSeams = std::max({atSeams, step(1023, i, 1024, i), step(i, 1023, i, 1024)});
        }
    EXPECT_LE(atSeams, 5);
}

TEST_F(CreateTextureTest, ALargeTargetUsesTheLargestCanvas) {
    const auto grid = landscapeGrid({9, 9, 0.0, 0.0, 1.0, 1.0});
    ASSERT_TRUE(CreateTexture::createNormal(wholeTerrain(grid), image(4096, 4096), {1, 1, 1}));
    EXPECT_EQ(frames->canvases, std::vector<FrameSizes::Size>(16, {1024, 1024}));
}

TEST_F(CreateTextureTest, EachPieceDrawsItsOwnPartOfTheGround) {
    const auto grid = landscapeGrid({65, 65, 0.0, 0.0, 1.0, 1.0});
    const auto root = ZMT::CORE::CreateGeometryTree::create(grid.get(), 100);
    const NBX::SO<Terrain> tree(new Terrain(grid.get(), root.get()));
    ASSERT_TRUE(CreateTexture::createNormal(tree, image(2048, 2048), {1, 1, 1}));
    ASSERT_EQ(frames->boxes.size(), 4U);
    for (unsigned piece = 0; piece < 4; ++piece) {
        const Bounds & box = frames->boxes[piece];
        const double x = piece % 2 * 32.0, z = piece / 2 * 32.0, patch = 10.0;
        EXPECT_TRUE(box.getLLF().x <= x && box.getLLF().x > x - patch) << piece;
        EXPECT_TRUE(box.getLLF().z <= z && box.getLLF().z > z - patch) << piece;
        EXPECT_TRUE(box.getURB().x >= x + 32.0 && box.getURB().x < x + 32.0 + patch) << piece;
        EXPECT_TRUE(box.getURB().z >= z + 32.0 && box.getURB().z < z + 32.0 + patch) << piece;
    }
}

TEST_F(CreateTextureTest, ShadingIsThatOfTheLight) {
    const auto grid = landscapeGrid({60, 60, 0.0, 0.0, 3.0, 3.0});
    const auto terrain = wholeTerrain(grid);
    struct Row {
        Point direction;
        double ambient, color;
    };
    for (const Row & row : {Row{{-1, 1, 1}, 0.0, 0.8}, Row{{1, 0.5, 0}, 0.3, 0.5}, Row{{0, 4, -3}, 0.5, 0.9},
                            Row{{0, 1, 0}, 0.5, 1.0}}) {
        const auto target = image(240, 240, NBX::LS_Luminance);
        const NBX::SO<DistantLight> light(new DistantLight(row.direction, Color::white, 1.0, row.ambient));
        ASSERT_TRUE(CreateTexture::createShading(terrain, light, target, Color(row.color), {1, 1, 1}));
        const auto shade = [&](unsigned x, unsigned y) {
            return Rgb{lit(grid->normal(x, y), row.direction, row.ambient, row.color)};
        };
        EXPECT_LE(worstDifference(*grid, *target, shade), 4.0) << row.direction.x;
    }
}

TEST_F(CreateTextureTest, ShadingOfAScaledTerrainIsThatOfAHigherOne) {
    const RasterGrid layout{40, 40, 0.0, 0.0, 3.0, 3.0};
    const NBX::SO<DistantLight> light(new DistantLight({-1, 1, 1}, Color::white, 1.0, 0.2));
    const auto scaled = image(80, 80), higher = image(80, 80), plain = image(80, 80);
    const auto low = wholeTerrain(landscapeGrid(layout, 0.5)), high = wholeTerrain(landscapeGrid(layout));
    ASSERT_TRUE(CreateTexture::createShading(low, light, scaled, Color(0.8), {1, 2, 1}));
    ASSERT_TRUE(CreateTexture::createShading(high, light, higher, Color(0.8), {1, 1, 1}));
    ASSERT_TRUE(CreateTexture::createShading(low, light, plain, Color(0.8), {1, 1, 1}));
    EXPECT_LE(largestDifference(scaled, higher), 2);
    EXPECT_GT(largestDifference(scaled, plain), 20);
}

TEST_F(CreateTextureTest, ShadingOfALongTerrainIsThatOfTheSameStretchedToASquare) {
    const auto height = [](unsigned x, unsigned y) { return 4.0 * landscape(x / 39.0, y / 39.0); };
    const auto narrow = TestTerrain::grid({40, 40, 0.0, 0.0, 3.0, 1.5}, height);
    const auto square = TestTerrain::grid({40, 40, 0.0, 0.0, 3.0, 3.0}, height);
    const NBX::SO<DistantLight> light(new DistantLight({1, 1, 1}, Color::white, 1.0, 0.2));
    const NBX::SO<DistantLight> stretched(new DistantLight({1, 1, 2}, Color::white, 1.0, 0.2));
    const auto a = image(80, 80), b = image(80, 80);
    ASSERT_TRUE(CreateTexture::createShading(wholeTerrain(narrow), light, a, Color(0.8), {1, 1, 1}));
    ASSERT_TRUE(CreateTexture::createShading(wholeTerrain(square), stretched, b, Color(0.8), {1, 1, 1}));
    EXPECT_LE(largestDifference(a, b), 2);
}

TEST_F(CreateTextureTest, OnlyTheFinestLevelShows) {
    const auto grid = landscapeGrid({65, 65, 0.0, 0.0, 2.0, 2.0});
    const auto root = ZMT::CORE::CreateGeometryTree::create(grid.get(), 100);
    ASSERT_TRUE(root);
    ASSERT_TRUE(dynamic_cast<const ZMT::CORE::TinPatch *>(root.get())) << "a level without normals";
    const NBX::SO<Terrain> tree(new Terrain(grid.get(), root.get()));
    const auto whole = wholeTerrain(grid);

    const auto normals = image(130, 130), reference = image(130, 130);
    ASSERT_TRUE(CreateTexture::createNormal(tree, normals, {1, 1, 1}));
    ASSERT_TRUE(CreateTexture::createNormal(whole, reference, {1, 1, 1}));
    EXPECT_LE(largestDifference(normals, reference), 1);

    const NBX::SO<DistantLight> light(new DistantLight({-1, 1, 1}, Color::white, 1.0, 0.3));
    ASSERT_TRUE(CreateTexture::createShading(tree, light, normals, Color(0.8), {1, 1, 1}));
    ASSERT_TRUE(CreateTexture::createShading(whole, light, reference, Color(0.8), {1, 1, 1}));
    EXPECT_LE(largestDifference(normals, reference), 1);
}

TEST_F(CreateTextureTest, TheErrorsAreAsBefore) {
    const double geometry = TerrainPainterGLSettings::getGeometryError();
    const double texture = TerrainPainterGLSettings::getTextureError();
    TerrainPainterGLSettings::setGeometryError(7.5);
    TerrainPainterGLSettings::setTextureError(4.25);
    const auto terrain = wholeTerrain(landscapeGrid({9, 9, 0.0, 0.0, 1.0, 1.0}));
    ASSERT_TRUE(CreateTexture::createNormal(terrain, image(20, 20), {1, 1, 1}));
    ASSERT_TRUE(
        CreateTexture::createShading(terrain, new DistantLight, image(20, 20), Color(1.0), {1, 1, 1}));
    EXPECT_EQ(frames->errors, std::vector<double>(4, 0.0));
    EXPECT_EQ(TerrainPainterGLSettings::getGeometryError(), 7.5);
    EXPECT_EQ(TerrainPainterGLSettings::getTextureError(), 4.25);
    TerrainPainterGLSettings::setGeometryError(geometry);
    TerrainPainterGLSettings::setTextureError(texture);
}

TEST_F(CreateTextureTest, MissingArgumentsAreReported) {
    const auto terrain = wholeTerrain(landscapeGrid({9, 9, 0.0, 0.0, 1.0, 1.0}));
    EXPECT_FALSE(CreateTexture::createNormal(nullptr, image(8, 8), {1, 1, 1}));
    EXPECT_EQ(reports.count(0, L"terrain", L"no terrain"), 1U) << reports;
    EXPECT_FALSE(CreateTexture::createNormal(terrain, nullptr, {1, 1, 1}));
    EXPECT_EQ(reports.count(0, L"target", L"no target image"), 1U) << reports;
    EXPECT_EQ(reports.size(), 2U);
    reports.clear();
    EXPECT_FALSE(CreateTexture::createShading(nullptr, nullptr, nullptr, Color(1.0), {1, 1, 1}));
    ASSERT_EQ(reports.size(), 3U) << reports;
    EXPECT_EQ(reports[0].message, L"no terrain");
    EXPECT_EQ(reports[1].message, L"no target image");
    EXPECT_EQ(reports[2].condition, L"light");
    EXPECT_EQ(reports[2].message, L"no light");
    EXPECT_TRUE(frames->canvases.empty());
    reports.clear();
}

TEST_F(CreateTextureTest, ATargetThatCannotTakeThePictureGivesNone) {
    const auto terrain = wholeTerrain(landscapeGrid({9, 9, 0.0, 0.0, 1.0, 1.0}));
    EXPECT_FALSE(CreateTexture::createNormal(terrain, image(8, 8, NBX::LS_LuminanceAlpha), {1, 1, 1}));
    EXPECT_EQ(reports.count(2, L"false", L"the terrain could not be drawn from above"), 1U) << reports;
    EXPECT_EQ(TerrainPainterGLSettings::getGeometryError(), 3.0);
    reports.clear();
}

TEST_F(CreateTextureTest, AnExceptionLeavesEverythingAsBefore) {
    const auto terrain = wholeTerrain(landscapeGrid({9, 9, 700.0, 900.0, 1.0, 1.0}));
    GeoTransformation::setNBXOrigin({3.0, 4.0, 5.0});
    const NBX::SO<Thrower> thrower(new Thrower);
    TerrainPainterFrameManager::RegisterEndFrameCallback(thrower);
    EXPECT_THROW(terrain->createDynamicLightMap(), std::runtime_error);
    EXPECT_THROW(terrain->createStaticLightMap(0.3, {-1.0, 2.5, 1.0}), std::runtime_error);
    TerrainPainterFrameManager::UnregisterEndFrameCallback(thrower);
    EXPECT_EQ(TerrainPainterGLSettings::getGeometryError(), 3.0);
    EXPECT_EQ(TerrainPainterGLSettings::getTextureError(), 2.0);
    EXPECT_EQ(GeoTransformation::nbx2geoOffset(), Point(3.0, 4.0, 5.0));
    EXPECT_TRUE(terrain->createDynamicLightMap()) << "the next one is drawn";
}

TEST_F(CreateTextureTest, LightMapsHaveAPixelForEachVertex) {
    const RasterGrid layout{50, 30, 700.0, 900.0, 2.0, 2.0};
    const auto terrain = wholeTerrain(landscapeGrid(layout));
    const auto lights = {terrain->createStaticLightMap(0.3, {-1.0, 2.5, 1.0}),
                         terrain->createDynamicLightMap()};
    EXPECT_EQ(frames->pictures, std::vector<FrameSizes::Size>(2, {50, 30}));
    for (const auto & light : lights) {
        ASSERT_TRUE(light);
        const Bounds box = light->boundingBox();
        ASSERT_TRUE(box.isDefined());
        EXPECT_NEAR(box.getLLF().x, 700.0, 1e-9);
        EXPECT_NEAR(box.getLLF().z, 900.0, 1e-9);
        EXPECT_NEAR(box.getURB().x, 798.0, 1e-9);
        EXPECT_NEAR(box.getURB().z, 958.0, 1e-9);
    }
    EXPECT_EQ(GeoTransformation::nbx2geoOffset(), Point());
}

TEST_F(CreateTextureTest, LightMapsOfWhatIsNoGridHaveAFixedSize) {
    const auto grid = landscapeGrid({5, 5, 0.0, 0.0, 1.0, 1.0});
    const NBX::SO<FakeGeometryData> data(
        new FakeGeometryData(std::vector<Point>{{0, 0, 0}, {4, 1, 4}}, Point(0, 0, 0)));
    const NBX::SO<Terrain> terrain(new Terrain(data.get(), wholePatch(grid).get()));
    ASSERT_TRUE(terrain->createStaticLightMap(0.3, {-1.0, 2.5, 1.0}));
    ASSERT_TRUE(terrain->createDynamicLightMap());
    std::vector<FrameSizes::Size> parts;
    for (int map = 0; map < 2; ++map)
        for (const unsigned height : {1024U, 1024U, 52U})
            for (const unsigned width : {1024U, 1024U, 52U})
                parts.push_back({width, height});
    EXPECT_EQ(frames->pictures, parts) << "2100 by 2100 pixels each";
}

/// Real heights, as a square with cells of 90 metres.
NBX::SO<GridData> realGround() {
    const auto file =
        ZMT::RASTER::RasterFile(ZMT_DATA_DIR "/../tests/data/jacksboro_heights.tif").read().raster;
    return TestTerrain::grid({100, 100, 0.0, 0.0, 90.0, 90.0}, [&](unsigned x, unsigned y) {
        return static_cast<const ZMT::RASTER::RasterData &>(*file).value(x, y);
    });
}

/// Relief shading after B. K. P. Horn, "Hill shading and the reflectance map", Proceedings of the IEEE 69
/// (1981): the cosine between the light and the normal, with gradients from the eight neighbours.
double hornShade(const GridData & grid, unsigned x, unsigned y, const Point & towardsLight) {
    const auto h = [&](int dx, int dy) {
        return grid.vertex(unsigned(int(x) + dx), unsigned(int(y) + dy)).y;
    };
    const double east = (h(1, 1) + 2 * h(1, 0) + h(1, -1) - h(-1, 1) - 2 * h(-1, 0) - h(-1, -1)) / 8.0;
    const double north = (h(-1, 1) + 2 * h(0, 1) + h(1, 1) - h(-1, -1) - 2 * h(0, -1) - h(1, -1)) / 8.0;
    const Point normal(-east / grid.getCellSize().first, 1.0, -north / grid.getCellSize().second);
    return std::max(0.0, normal.normalized().dot(towardsLight.normalized()));
}

double correlation(const std::vector<double> & a, const std::vector<double> & b) {
    const double n = double(a.size());
    const double meanA = std::accumulate(a.begin(), a.end(), 0.0) / n;
    const double meanB = std::accumulate(b.begin(), b.end(), 0.0) / n;
    double ab = 0.0, aa = 0.0, bb = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        ab += (a[i] - meanA) * (b[i] - meanB);
        aa += (a[i] - meanA) * (a[i] - meanA);
        bb += (b[i] - meanB) * (b[i] - meanB);
    }
    return ab / std::sqrt(aa * bb);
}

/// A static light map as `Terrain` makes it, whose picture can be looked at.
NBX::SO<MemoryImage> staticLightMap(const NBX::SO<Terrain> & terrain, int size, double shade,
                                    const Point & direction) {
    const auto target = image(size, size, NBX::LS_Luminance);
    const NBX::SO<DistantLight> light(
        new DistantLight(Point(direction.x, direction.y / 2.5, direction.z), Color::white, 1.0, 0.5));
    CreateTexture::createShading(terrain, light, target, Color(1.0 - shade), {1, 1, 1});
    return target;
}

TEST_F(CreateTextureTest, ShadingOfRealGroundIsThatOfReliefShading) {
    const auto grid = realGround();
    const auto terrain = wholeTerrain(grid);
    // From azimuths all around; the light map lets the sun stand lower.
    for (const double azimuth : {315.0, 45.0, 160.0, 250.0}) {
        const double a = azimuth * std::numbers::pi / 180.0;
        const Point direction(std::sin(a), 2.5, std::cos(a));
        const auto map = staticLightMap(terrain, 100, 0.25, direction);
        const Point flattened(direction.x, direction.y / 2.5, direction.z);
        std::vector<double> shown, expected;
        for (unsigned y = 2; y < 97; ++y)
            for (unsigned x = 2; x < 97; ++x) {
                shown.push_back(*map->pixelComponentsU8(int(x), int(y)));
                expected.push_back(valueAtPixel(*grid, *map, int(x), int(y), [&](unsigned i, unsigned j) {
                    return Rgb{hornShade(*grid, i, j, flattened)};
                })[0]);
            }
        const auto shade = [&](unsigned x, unsigned y) {
            return Rgb{lit(grid->normal(x, y), flattened, 0.5, 0.75)};
        };
        EXPECT_LE(worstDifference(*grid, *map, shade), 1.0) << azimuth;
        EXPECT_GT(correlation(shown, expected), 0.99) << azimuth;
    }
}

/// Draws light maps over the ground that they are made of.
class LightMapViewTest : public CreateTextureTest {
protected:
    static constexpr int s_border = 8;

    void SetUp() override {
        CreateTextureTest::SetUp();
        canvas->setSize(200, 160);
        before = stateOfGL();
    }
    /// From straight above, north up, one pixel for a quarter of a cell.
    NBX::SO<NBX::Image> seenFromAbove(const NBX::SO<Terrain> & terrain, NBX::Attribute * effect) {
        GeoTransformation::setNBXOrigin(terrain->origin());
        const Bounds box = terrain->boundingBox();
        const Point half = box.diagonal() * 0.5;
        root->clear();
        root->append(
            new NBX::Camera(new NBX::LookAt(box.center() + Point(0, 1000, 0), box.center(), {0, 0, 1}),
                            new NBX::Ortho(-half.x, half.x, -half.z, half.z, 1.0, 2000.0)));
        root->append(effect);
        root->append(terrain.get());
        return draw();
    }
    /// The mean difference of the picture from a formula, from 0 to 255, but for the border, which the
    /// texture leaves half transparent.
    static double meanDifference(const GridData & grid, const NBX::Image & picture,
                                 const std::function<double(unsigned, unsigned)> & f) {
        double sum = 0.0;
        int count = 0;
        for (int y = s_border; y < picture.height() - s_border; ++y)
            for (int x = s_border; x < picture.width() - s_border; ++x, ++count) {
                const Rgb expected =
                    valueAtPixel(grid, picture, x, y, [&](unsigned i, unsigned j) { return Rgb{f(i, j)}; });
                sum += std::abs(picture.getColor(x, y)[0] - expected[0]) * 255.0;
            }
        return sum / count;
    }

    const NBX::SO<GridData> grid = landscapeGrid({51, 41, 3000.0, 5000.0, 2.0, 2.0});
    const NBX::SO<Terrain> terrain = wholeTerrain(grid);
    const Point towardsLight{-1, 1.2, 0.4};
};

TEST_F(LightMapViewTest, ADynamicLightMapIsLitForEachPixel) {
    const auto map = terrain->createDynamicLightMap();
    ASSERT_TRUE(map);
    const NBX::SO<ZMT::CORE::PerPixelTerrainLightingEffect> effect(
        new ZMT::CORE::PerPixelTerrainLightingEffect(map.get(), towardsLight, 0.3));
    const auto lambert = [&](const Point & direction) {
        return [this, direction](unsigned x, unsigned y) {
            const double facing = grid->normal(x, y).normalized().dot(direction.normalized());
            return 0.3 + 0.7 * std::max(0.0, facing);
        };
    };
    const auto picture = seenFromAbove(terrain, effect.get());
    EXPECT_LE(meanDifference(*grid, *picture, lambert(towardsLight)), 3.0);
    // The measure tells a turned light.
    EXPECT_GT(meanDifference(*grid, *picture, lambert({0.4, 1.2, -1})), 12.0);
    effect->setLightDirection({0.4, 1.2, -1});
    EXPECT_LE(meanDifference(*grid, *seenFromAbove(terrain, effect.get()), lambert({0.4, 1.2, -1})), 3.0);
}

TEST_F(LightMapViewTest, AStaticLightMapIsModulated) {
    const auto square = landscapeGrid({41, 41, 3000.0, 5000.0, 2.0, 2.0});
    const auto ground = wholeTerrain(square);
    const Point direction(-1, 2.5, 0.4), flattened(-1, 1, 0.4);
    const auto map = ground->createStaticLightMap(0.25, direction);
    ASSERT_TRUE(map);
    const NBX::SO<NBX::Array<NBX::SO<ZMT::CORE::TerrainTexture>>> maps(
        new NBX::Array<NBX::SO<ZMT::CORE::TerrainTexture>>);
    maps->append(map);
    const NBX::SO<NBX::Attribute> effect(new ZMT::CORE::ModulateTerrainTexturingEffect(maps.get()));
    const auto picture = seenFromAbove(ground, effect.get());
    EXPECT_LE(meanDifference(
                  *square, *picture,
                  [&](unsigned x, unsigned y) { return lit(square->normal(x, y), flattened, 0.5, 0.75); }),
              3.0);
    EXPECT_GT(meanDifference(*square, *picture,
                             [&](unsigned x, unsigned y) {
                                 return lit(square->normal(x, y), {0.4, 1, -1}, 0.5, 0.75);
                             }),
              8.0);
}

} // namespace
