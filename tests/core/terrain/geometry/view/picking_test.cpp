// What is picked is what is seen: rays through the pixels of a picture of a real raster hit the terrain where
// the picture shows it, at the height that queries give.

#include <algorithm>
#include <cmath>

#include <support/glfixture.h>

#include <nbx/engine/raytracingtechnique.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/perspective.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/frame/terrainscaling.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/gdal/rasterwarp.h>

using ZMT::CORE::GeoTransformation;
using ZMT::CORE::GridData;
using ZMT::CORE::Terrain;
using ZMT::CORE::TerrainPainterGLSettings;
using Point = NBX::Vector3Base<double>;

namespace {

constexpr unsigned s_width = 320, s_height = 200;
constexpr double s_exaggeration = 1.5;
/// In units of the heights.
constexpr double s_roundingOfPicture = 2.0;

class PickingTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        using ZMT::RASTER::RasterWarp;
        const auto raster = ZMT::RASTER::RasterFile(ZMT_DATA_DIR "/../tests/data/everest_heights.tif").read();
        grid = new GridData(RasterWarp::toMetric(raster, nullptr).raster.get());
        GeoTransformation::setNBXOrigin(grid->origin());
        testing::internal::CaptureStderr();
        terrain = new Terrain(grid.get(), ZMT::CORE::CreateGeometryTree::create(grid.get(), 4000).get());
        testing::internal::GetCapturedStderr();
        TerrainPainterGLSettings::setGeometryError(0.0);

        const NBX::Bounds box = terrain->boundingBox();
        const Point eye = box.point(0.4, 1.6, -0.15), aim = box.point(0.5, 0.8, 0.5);
        camera = new NBX::Camera(new NBX::LookAt(eye, aim), new NBX::Perspective(45.0, 1000.0, 60000.0));
        scene = new NBX::SceneThing;
        scene->append(new ZMT::CORE::TerrainScaling({1, s_exaggeration, 1}));
        scene->append(terrain.get());
    }
    void TearDown() override {
        TerrainPainterGLSettings::setGeometryError(3.0);
        GeoTransformation::setNBXOrigin({});
        GLFixture::TearDown();
    }

    /// What the depth buffer holds at the middle of each pixel, row by row from below.
    std::vector<float> drawnDepths() {
        const NBX::SO<NBX::OffscreenCanvasGL> picture(new NBX::OffscreenCanvasGL(s_width, s_height));
        const NBX::SO<NBX::SceneThing> top(new NBX::SceneThing);
        top->append(camera.get());
        top->append(scene.get());
        picture->append(top.get());
        picture->redisplay();
        std::vector<float> depths(std::size_t(s_width) * s_height);
        EXPECT_TRUE(picture->makeContextCurrent());
        picture->prepareRedisplay();
        glReadPixels(0, 0, s_width, s_height, GL_DEPTH_COMPONENT, GL_FLOAT, depths.data());
        picture->finishRedisplay();
        picture->releaseContext();
        EXPECT_TRUE(canvas->makeContextCurrent());
        return depths;
    }

    /// The point of the scene whose depth at a place of the picture is known.
    Point drawnAt(double x, double y, double depth) const {
        const Point place(2.0 * x / s_width - 1.0, 2.0 * y / s_height - 1.0, 2.0 * depth - 1.0);
        return camera->viewMatrix().inverse() *
               (camera->projectionMatrix(s_width, s_height).inverse() * place);
    }

    /// The terrain's point at a point of the scene, in geo coordinates.
    static Point toGeo(const Point & p) {
        return GeoTransformation::nbx2geoTf(Point(p.x, p.y / s_exaggeration, p.z));
    }
    bool isUnknown(const Point & inScene) const { return terrain->hasUndefinedHeight(toGeo(inScene), false); }
    double differenceFromQuery(const Point & inScene) const {
        const Point geo = toGeo(inScene);
        return std::abs(geo.y - terrain->calculateHeight(geo, false));
    }

    /// By how much the two pairs of opposite corners of a cell differ in the sum of their heights; the
    /// largest of the cells at a point of the scene, which may lie on the border of several.
    double bendingAt(const Point & inScene) const {
        const auto [cellX, cellY] = grid->getCellSize();
        const Point p = toGeo(inScene) - grid->origin();
        double largest = 0.0;
        for (const double dx : {-0.05, 0.05})
            for (const double dy : {-0.05, 0.05}) {
                const auto x = unsigned(std::clamp(p.x / cellX + dx, 0.0, grid->sizeX() - 2.0));
                const auto y = unsigned(std::clamp(p.z / cellY + dy, 0.0, grid->sizeY() - 2.0));
                const double bending = grid->vertex(x, y).y + grid->vertex(x + 1, y + 1).y -
                                       grid->vertex(x + 1, y).y - grid->vertex(x, y + 1).y;
                largest = std::max(largest, std::abs(bending));
            }
        return largest;
    }

    NBX::SO<NBX::RayTracingTechnique> pick(double x, double y) {
        const NBX::SO<NBX::RayTracingTechnique> technique(
            new NBX::RayTracingTechnique(camera->rayThrough(x, y, s_width, s_height)));
        technique->trace(NBX::SO<NBX::Engine>(new NBX::Engine).get(), scene.get());
        return technique;
    }

    NBX::SO<GridData> grid;
    NBX::SO<Terrain> terrain;
    NBX::SO<NBX::Camera> camera;
    NBX::SO<NBX::SceneThing> scene;
};

/// Heights between the corners of a cell are told in three ways: queries interpolate, the picture and rays
/// divide the cell by one and the other diagonal. Each diagonal bends away from the first by a quarter of
/// `bendingAt` at most. The picture adds what its depths and the places of its pixels are rounded by.
TEST_F(PickingTest, HitsQueriesAndTheDepthBufferAgree) {
    const auto depths = drawnDepths();
    std::vector<double> distances;
    unsigned pixels = 0, onOneSideOfASkyline = 0, drawnElsewhere = 0;
    for (unsigned row = 0; row < s_height; row += 3)
        for (unsigned column = 0; column < s_width; column += 3) {
            const double x = column + 0.5, y = row + 0.5;
            const auto technique = pick(x, y);
            const float depth = depths[column + std::size_t(row) * s_width];
            ++pixels;
            onOneSideOfASkyline += technique->hasHit() != (depth < 1.0F);
            if (!technique->hasHit() || depth == 1.0F) continue;

            const Point hit = technique->nearestHit().point, drawn = drawnAt(x, y, depth);
            if (isUnknown(hit) || isUnknown(drawn)) continue;
            EXPECT_LE(differenceFromQuery(hit), bendingAt(hit) / 4.0 + 1e-6);
            drawnElsewhere += differenceFromQuery(drawn) > bendingAt(drawn) / 4.0 + s_roundingOfPicture;
            distances.push_back((hit - drawn).length());
        }
    ASSERT_GT(distances.size(), 3000U);
    EXPECT_LE(onOneSideOfASkyline, pixels / 500);
    EXPECT_LE(drawnElsewhere, pixels / 500);
    std::sort(distances.begin(), distances.end());
    EXPECT_LT(distances[distances.size() / 2], 2.0);
    EXPECT_LT(distances[distances.size() * 95 / 100], grid->getCellSize().first / 2.0);
}

} // namespace
