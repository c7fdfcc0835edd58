// Pictures of real heights in a file: they become complete by themselves, and show what the same heights show
// as a terrain in memory.

#include <cmath>
#include <cstdlib>

#include "probe.h"
#include "support/glfixture.h"
#include "support/imagecompare.h"
#include "support/temporaryfolder.h"
#include "writtenterrain.h"

#include <nbx/container/sequence/array.h>
#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/perspective.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/frame/terrainscaling.h>
#include <zmt/core/terrain/frame/terrainwatcher.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/draped/terraintexturedgeometry.h>
#include <zmt/core/terrain/geometry/grid/gridterrainpaintergl.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>
#include <zmt/core/terrain/texture/interpolatedterraintexturingeffect.h>
#include <zmt/core/terrain/texture/lenstexture.h>
#include <zmt/core/terrain/texture/simpleterraintexture.h>
#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/gdal/rasterwarp.h>

using namespace ZMT::CORE;
using namespace ZMT::CORE::GRID;
using NBX::SO;
using Point = NBX::Vector3Base<double>;

namespace {

constexpr unsigned s_pictureWidth = 320, s_pictureHeight = 200;
constexpr double s_pictureExaggeration = 2.5;

class StreamedPictureTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        const auto file = ZMT::RASTER::RasterFile(ZMT_DATA_DIR "/../tests/data/jacksboro_heights.tif").read();
        grid = new GridData(ZMT::RASTER::RasterWarp::toMetric(file, nullptr).raster.get());
        GeoTransformation::setNBXOrigin(grid->origin());
        const auto [cellX, cellY] = grid->getCellSize();
        const Point origin = grid->origin();
        const SO<FunctionBand> band(new FunctionBand(
            {grid->sizeX(), grid->sizeY(), origin.x, origin.z, cellX, cellY}, [this](unsigned x, unsigned y) {
                const double height = grid->vertex(x, y).y + grid->origin().y;
                return grid->isUndefinedHeightValue(height) ? NAN : float(height);
            }));
        streamed = memoryTerrain(writtenTerrain(band, 4));
        ASSERT_TRUE(streamed);

        const NBX::Bounds box = streamed->geoBoundingBox().transform(
            NBX::Matrix4x4Base<double>::translation(GeoTransformation::geo2nbxOffset()));
        low = box.getLLF();
        size = box.diagonal();
        image = bands();
        lookFrom(0.4, 1.6, -0.15);
        ASSERT_TRUE(canvas->setSize(s_pictureWidth, s_pictureHeight));
        canvas->setBackgroundColor(NBX::Color(0.4, 0.6, 0.9, 1.0));
    }
    void TearDown() override {
        ProbePainter::s_observe = nullptr;
        GeoTransformation::setNBXOrigin({});
        TerrainPainterGLSettings::setGeometryError(3.0);
        GLFixture::TearDown();
    }

    Point at(double u, double height, double w) const {
        return {low.x + u * size.x, height * s_pictureExaggeration, low.z + w * size.z};
    }
    void lookFrom(double u, double v, double w) {
        camera = new NBX::Camera(new NBX::LookAt(at(u, 700.0 + 2000.0 * v, w), at(0.5, 600.0, 0.5)),
                                 new NBX::Perspective(45.0, 100.0, 40000.0));
    }
    /// Shaded by the slope towards the west, with a grid of lines.
    SO<DecalTerrainTexturingEffect> bands() const {
        const SO<NBX::MemoryImage> picture(
            new NBX::MemoryImage(int(grid->sizeX()), int(grid->sizeY()), NBX::LS_RGBA));
        for (unsigned y = 0; y < grid->sizeY(); ++y)
            for (unsigned x = 0; x < grid->sizeX(); ++x) {
                const unsigned beside = x + 1 < grid->sizeX() ? x + 1 : x;
                const double slope = grid->vertex(beside, y).y - grid->vertex(x, y).y;
                const double light = std::clamp(0.5 + slope / 60.0, 0.0, 1.0);
                const bool isLine = x % 16 == 0 || y % 16 == 0;
                picture->setColor(int(x), int(y),
                                  NBX::Color(light, isLine ? 0.0 : light, isLine ? 0.0 : light, 1.0));
            }
        const SO<NBX::TextureGL> texture(
            new NBX::ImageTexture2DGL(picture, NBX::TextureGL::WM_ClampToEdge, NBX::TextureGL::WM_ClampToEdge,
                                      NBX::TextureGL::FM_LinearMipmapLinear, NBX::TextureGL::FM_Linear));
        const SO<TerrainTexture> onGround(
            new SimpleTerrainTexture(texture, NBX::Bounds(low, low + size), NBX::Matrix4x4Base<double>()));
        using Textures = NBX::Array<SO<TerrainTexture>>;
        return new DecalTerrainTexturingEffect(new Textures(std::vector<SO<TerrainTexture>>{onGround}));
    }

    static SO<NBX::TextureGL> colored(const NBX::Color & color) {
        const SO<NBX::MemoryImage> picture(new NBX::MemoryImage(1, 1, NBX::LS_RGBA));
        picture->setColor(0, 0, color);
        return new NBX::ImageTexture2DGL(picture, NBX::TextureGL::WM_Repeat, NBX::TextureGL::WM_Repeat,
                                         NBX::TextureGL::FM_Nearest, NBX::TextureGL::FM_Nearest);
    }

    void show(const std::vector<NBX::RenderObj *> & objects) {
        root->clear();
        root->append(camera.get());
        root->append(new TerrainScaling({1, s_pictureExaggeration, 1}));
        for (NBX::RenderObj * object : objects)
            root->append(object);
    }
    SO<NBX::Image> complete(const std::vector<NBX::RenderObj *> & objects) {
        canvas->setRenderingMode(0);
        show(objects);
        canvas->redisplay();
        return canvas->snapshot();
    }
    void keep(const SO<NBX::Image> & picture, const std::string & name) const {
        if (const char * folder = std::getenv("ZMT_KEEP_PICTURES"))
            writePng(*picture, std::string(folder) + "/" + name + ".png");
    }

    const TemporaryFolder folder;
    SO<GridData> grid;
    SO<AsyncGridTerrain> streamed;
    SO<NBX::Camera> camera;
    SO<DecalTerrainTexturingEffect> image;
    Point low, size;
};

TEST_F(StreamedPictureTest, ShowsWhatTheHeightsShowInMemory) {
    testing::internal::CaptureStderr();
    const SO<Terrain> tree(new Terrain(grid.get(), CreateGeometryTree::create(grid.get(), 4000).get()));
    testing::internal::GetCapturedStderr();
    TerrainPainterGLSettings::setGeometryError(0.0);
    for (const auto & [u, v, w] : {Point(0.4, 1.6, -0.15), Point(0.9, 0.4, 0.8), Point(0.5, 3.0, 0.4)}) {
        lookFrom(u, v, w);
        const auto actual = complete({image.get(), streamed.get()});
        const auto expected = complete({image.get(), tree.get()});
        keep(actual, "streamed" + std::to_string(int(10 * u)));
        keep(expected, "tree" + std::to_string(int(10 * u)));
        const ImageDifference difference = compareImages(*actual, *expected, 8.0);
        // Patches divide their cells by the other diagonal, and have outer walls.
        EXPECT_LT(difference.share, 0.01) << u;
    }
}

/// A lens in which the picture shows without its image, a roof over the ground, and what watches the view.
TEST_F(StreamedPictureTest, LensesDrapedTrianglesAndWatchersWorkAsInMemory) {
    testing::internal::CaptureStderr();
    const SO<Terrain> tree(new Terrain(grid.get(), CreateGeometryTree::create(grid.get(), 4000).get()));
    testing::internal::GetCapturedStderr();
    TerrainPainterGLSettings::setGeometryError(0.0);
    lookFrom(0.4, 1.6, -0.15);
    const SO<LensTexture> lens(new LensTexture(1.0, 0.0, 0.1, LensTexture::TT_Luminance, low + size * 0.5,
                                               Point(size.x * 0.2, 0.0, size.z * 0.2)));
    const SO<TerrainTexture> plain(
        new SimpleTerrainTexture(colored({0.0, 0.6, 0.2, 1.0}), NBX::Bounds(), NBX::Matrix4x4Base<double>()));
    const SO<InterpolatedTerrainTexturingEffect> seen(new InterpolatedTerrainTexturingEffect(
        lens.get(), image->getTextures()->get(0).get(), plain.get(), 0.0));
    const auto corner = [&](double u, double w) {
        return GeoTransformation::nbx2geoTf(Point(low.x + u * size.x, 900.0, low.z + w * size.z));
    };
    const SO<NBX::PolygonSet> roof(new NBX::PolygonSet(
        NBX::PolygonSet::PT_Triangles,
        new NBX::Array<Point>(std::vector<Point>{corner(0.3, 0.2), corner(0.45, 0.5), corner(0.7, 0.2)})));
    const SO<TerrainTexturedGeometry> draped = streamed->createTerrainTexturedTriangles(roof);
    ASSERT_TRUE(draped);
    const SO<TerrainWatcher> watcher(new TerrainWatcher);

    const auto actual = complete({seen.get(), draped.get(), watcher.get(), streamed.get()});
    EXPECT_TRUE(watcher->viewinfo());
    const auto expected = complete({seen.get(), draped.get(), watcher.get(), tree.get()});
    const auto bare = complete({image.get(), streamed.get()});
    keep(actual, "streamedlens");
    keep(expected, "treelens");
    EXPECT_LT(compareImages(*actual, *expected, 8.0).share, 0.01);
    EXPECT_GT(compareImages(*actual, *bare, 8.0).share, 0.05);
}

TEST_F(StreamedPictureTest, LeavesTheStateOfOpenGLAsItWas) {
    const SO<Probe> probe(new Probe);
    std::vector<std::vector<int>> states;
    ProbePainter::s_observe = [&](NBX::Engine *) {
        if (states.empty()) glColor4d(0.25, 0.5, 0.75, 1.0);
        states.push_back(stateOfGL());
    };
    complete({probe.get(), image.get(), streamed.get(), probe.get()});
    ASSERT_EQ(states.size(), 2U);
    EXPECT_EQ(states[0], states[1]);
}

/// At most three blocks are taken in a picture, so that it takes some.
TEST_F(StreamedPictureTest, BecomesCompleteByItself) {
    const auto expected = complete({image.get(), streamed.get()});
    streamed->rootTile()->unloadData();
    NBX::MainMemoryManager::instance()->clear();
    NBX::GraphicsMemoryManager::instance()->clear();
    canvas->setRenderingMode(1);
    TerrainPainterGLSettings::setGeometryError(1.0);
    TerrainPainterGLSettings::setTextureError(1.0);
    unsigned pictures = 0;
    do {
        GridTerrainPainterGL::resetStatistics();
        canvas->redisplay();
        EXPECT_EQ(canvas->redisplayPending(), GridTerrainPainterGL::statistics().isIncomplete);
        EXPECT_GT(GridTerrainPainterGL::statistics().tilesDrawn, 0U);
        ++pictures;
    } while (canvas->redisplayPending() && pictures < 200);
    TerrainPainterGLSettings::setTextureError(2.0);
    EXPECT_GT(pictures, 10U);
    EXPECT_LT(pictures, 200U);
    EXPECT_EQ(GridTerrainPainterGL::statistics().missingTiles, 0U);
    EXPECT_EQ(largestDifference(canvas->snapshot(), expected), 0);
}

/// What a picture needs is kept to its end, and read again for the next one.
TEST_F(StreamedPictureTest, IsWholeWithinABudgetThatHoldsHardlyATile) {
    const auto expected = complete({image.get(), streamed.get()});
    auto & memory = *NBX::MainMemoryManager::instance();
    auto & graphics = *NBX::GraphicsMemoryManager::instance();
    const unsigned memoryBudget = memory.getBudget(), graphicsBudget = graphics.getBudget();
    memory.setBudget(4000);
    graphics.setBudget(8000);
    for (unsigned i = 0; i < 3; ++i) {
        EXPECT_EQ(largestDifference(complete({image.get(), streamed.get()}), expected), 0) << i;
        EXPECT_LE(memory.total(), 4000U);
    }
    reports.clear(); // the budget is too small for a picture, which is told once
    memory.setBudget(memoryBudget);
    graphics.setBudget(graphicsBudget);
}

} // namespace
