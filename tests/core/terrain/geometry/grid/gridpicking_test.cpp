// What is picked on a streaming terrain is what is seen there and what queries say: rays through the pixels
// of a picture in full detail hit the triangles that the picture shows.

#include <algorithm>
#include <cmath>
#include <limits>

#include "support/glfixture.h"
#include "support/memorygridterrain.h"

#include <nbx/engine/raytracingtechnique.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/perspective.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/frame/terrainscaling.h>
#include <zmt/core/terrain/geometry/grid/gridterrainpaintergl.h>

using ZMT::CORE::GeoTransformation;
using ZMT::CORE::TerrainPainterGLSettings;
using ZMT::CORE::GRID::GridTerrain;
using ZMT::CORE::GRID::GridTerrainPainterGL;
using Point = NBX::Vector3Base<double>;

namespace {

constexpr unsigned s_width = 200, s_height = 120;
/// Metres a quantised unit.
constexpr double s_unit = 0.1;
constexpr double s_exaggeration = 1.5;

/// 128 by 96 metres of hills with a pond of nothing, far from the map's origin.
MemoryGrid hills() {
    MemoryGrid grid;
    grid.level = 4;
    grid.depth = 2;
    grid.sample = [](unsigned, unsigned x, unsigned y) {
        if (std::hypot(x - 20.0, y - 40.0) < 6.0) return std::uint16_t(0);
        return static_cast<std::uint16_t>(500.0 + 150.0 * std::sin(x / 7.0) + 100.0 * std::cos(y / 5.0) +
                                          (x * 7 + y * 13) % 11);
    };
    grid.grid2geo = MemoryGrid::toGeo(2.0, 1.5, s_unit, 600000.0, 5200000.0, 1000.0);
    return grid;
}

class GridPickingTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        terrain = new MemoryGridTerrain(hills());
        GeoTransformation::setNBXOrigin(terrain->origin());
        const NBX::Bounds box = terrain->geoBoundingBox().transform(
            NBX::Matrix4x4Base<double>::translation(GeoTransformation::geo2nbxOffset()));
        const Point low = box.getLLF(), size = box.diagonal();
        const double ground = (1000.0 + 500.0 * s_unit) * s_exaggeration;
        camera = new NBX::Camera(new NBX::LookAt({low.x + size.x * 0.4, ground + 60.0, low.z - 10.0},
                                                 {low.x + size.x * 0.5, ground, low.z + size.z * 0.45}),
                                 new NBX::Perspective(35.0, 5.0, 400.0));
        scene = new NBX::SceneThing;
        scene->append(new ZMT::CORE::TerrainScaling({1, s_exaggeration, 1}));
        scene->append(terrain.get());
        ASSERT_TRUE(canvas->setSize(s_width, s_height));
        root->append(camera.get());
        root->append(scene.get());
    }
    void TearDown() override {
        GeoTransformation::setNBXOrigin({});
        GLFixture::TearDown();
    }

    std::vector<float> drawnDepths() {
        canvas->redisplay();
        std::vector<float> depths(std::size_t(s_width) * s_height);
        canvas->prepareRedisplay();
        glReadPixels(0, 0, s_width, s_height, GL_DEPTH_COMPONENT, GL_FLOAT, depths.data());
        canvas->finishRedisplay();
        return depths;
    }
    Point drawnAt(double x, double y, double depth) const {
        const Point place(2.0 * x / s_width - 1.0, 2.0 * y / s_height - 1.0, 2.0 * depth - 1.0);
        return camera->viewMatrix().inverse() *
               (camera->projectionMatrix(s_width, s_height).inverse() * place);
    }
    /// Whether the ground beside a pixel, or what is seen behind it, lies farther away by more than so many
    /// pixels: the ray meets the ground at an angle of less than 6 degrees, or passes it.
    bool isGrazing(const std::vector<float> & depths, unsigned column, unsigned row) const {
        constexpr double most = 10.0;
        const auto distanceAt = [&](unsigned x, unsigned y) {
            const float depth = depths[x + std::size_t(y) * s_width];
            return (drawnAt(x + 0.5, y + 0.5, depth) - camera->getLookAt()->getFrom()).length();
        };
        const double distance = distanceAt(column, row);
        const double pixel = distance * 2.0 * std::tan(35.0 * M_PI / 360.0) / s_height;
        for (const auto & [dx, dy] : {std::pair(-1, 0), {1, 0}, {0, -1}, {0, 1}}) {
            const unsigned x = std::clamp(int(column) + dx, 0, int(s_width) - 1);
            const unsigned y = std::clamp(int(row) + dy, 0, int(s_height) - 1);
            if (std::abs(distanceAt(x, y) - distance) > most * pixel) return true;
        }
        return false;
    }
    NBX::SO<NBX::RayTracingTechnique> pick(const NBX::Ray & ray) const {
        const NBX::SO<NBX::RayTracingTechnique> technique(new NBX::RayTracingTechnique(ray));
        technique->trace(NBX::SO<NBX::Engine>(new NBX::Engine).get(), scene.get());
        return technique;
    }
    static Point toGeo(const Point & p) {
        return GeoTransformation::nbx2geoTf(Point(p.x, p.y / s_exaggeration, p.z));
    }
    /// Length of a pixel at a point of the scene.
    double pixelAt(const Point & p) const {
        const double distance = (p - camera->getLookAt()->getFrom()).length();
        return distance * 2.0 * std::tan(35.0 * M_PI / 360.0) / s_height;
    }

    NBX::SO<MemoryGridTerrain> terrain;
    NBX::SO<NBX::Camera> camera;
    NBX::SO<NBX::SceneThing> scene;
};

TEST_F(GridPickingTest, HitsQueriesAndTheDepthBufferAgree) {
    GridTerrainPainterGL::resetStatistics();
    const auto depths = drawnDepths();
    EXPECT_EQ(GridTerrainPainterGL::statistics().maxLevel, 0) << "all of it is drawn in full detail";
    unsigned hits = 0, misses = 0, grazing = 0;
    for (unsigned row = 0; row < s_height; ++row)
        for (unsigned column = 0; column < s_width; ++column) {
            const double x = column + 0.5, y = row + 0.5;
            const auto technique = pick(camera->rayThrough(x, y, s_width, s_height));
            const float depth = depths[column + std::size_t(row) * s_width];
            // What grazes the ground, or passes a skyline, moves far when a pixel is rounded.
            if (isGrazing(depths, column, row)) {
                ++grazing;
                continue;
            }
            EXPECT_EQ(technique->hasHit(), depth < 1.0F) << column << ", " << row;
            if (!technique->hasHit() || depth == 1.0F) {
                ++misses;
                continue;
            }
            ++hits;
            const auto & hit = technique->nearestHit();
            EXPECT_EQ(hit.normal, Point(0, 1, 0));
            EXPECT_EQ(hit.shape.get(), terrain.get());
            const Point geo = toGeo(hit.point);
            EXPECT_NEAR(geo.y, terrain->calculateHeight(geo, false), 1e-6);
            EXPECT_LE((hit.point - drawnAt(x, y, depth)).length(), pixelAt(hit.point))
                << column << ", " << row;
        }
    EXPECT_GT(hits, 12000U);
    EXPECT_GT(misses, 100U) << "the pond, and beside the terrain";
    EXPECT_LE(grazing, (hits + misses) / 10);
}

TEST_F(GridPickingTest, ARayFromAboveHitsTheQueriedHeight) {
    unsigned hits = 0;
    for (double x = 0.3; x < 128.0; x += 1.7)
        for (double y = 0.2; y < 96.0; y += 1.3) {
            const Point geo(600000.0 + x, 0.0, 5200000.0 + y);
            const Point above = GeoTransformation::geo2nbxTf(geo) + Point(0, 5000, 0);
            const auto technique = pick(NBX::Ray(above, {0, -1, 0}));
            const double height = terrain->calculateHeight(geo, false);
            ASSERT_EQ(technique->hasHit(), std::isfinite(height)) << x << ", " << y;
            if (!technique->hasHit()) continue;
            ++hits;
            ASSERT_NEAR(toGeo(technique->nearestHit().point).y, height, s_unit / 100.0);
        }
    EXPECT_GT(hits, 5000U);
}

TEST_F(GridPickingTest, WhatMissesTheTerrainHitsNothing) {
    EXPECT_FALSE(pick(NBX::Ray({-10, 5000, 10}, {0, -1, 0}))->hasHit()) << "beside it";
    EXPECT_FALSE(pick(NBX::Ray({50, 5000, 50}, {0, 1, 0}))->hasHit()) << "away from it";
    EXPECT_FALSE(pick(NBX::Ray({40, 5000, 60}, {0, -1, 0}))->hasHit()) << "the pond";
    EXPECT_TRUE(pick(NBX::Ray({50, 5000, 50}, {0, -1, 0}))->hasHit());
    EXPECT_TRUE(pick(NBX::Ray({50, 5000, 50}, {0, -1000, 0}))->hasHit());
}

TEST_F(GridPickingTest, APickReadsWhatItNeeds) {
    ASSERT_EQ(terrain->state().totalLoads(), 1U);
    pick(NBX::Ray({-10, 5000, 10}, {0, -1, 0}));
    EXPECT_EQ(terrain->state().totalLoads(), 1U);
    pick(NBX::Ray({50, 5000, 50}, {0, -1, 0}));
    EXPECT_GT(terrain->state().totalLoads(), 2U);
    EXPECT_LT(terrain->state().totalLoads(), 21U) << "not all tiles";
}

} // namespace
