// Labels over terrains: what ridges hide, and what the picture shows.

#include <algorithm>
#include <cmath>
#include <numbers>

#include "support/glfixture.h"

#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/perspective.h>
#include <nbx/text/fontface.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/frame/terrainscaling.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/vector/screenlabels.h>

#include "memoryfeatures.h"
#include "support/testterrain.h"

namespace {

using namespace ZMT::CORE;
using NBX::SO;
using Point = ScreenLabels::Point;

constexpr unsigned s_width = 400, s_height = 300;

/// Level ground of 2 km by 2 km with a wall from west to east in its middle, 200 m high and 40 m thick, far
/// from the origin of the map.
class LabelPicturesTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        ASSERT_TRUE(NBX::FontFace::named()) << "fonts-dejavu-core is not installed";
        const auto heightOf = [](unsigned, unsigned y) { return y == 50 || y == 51 ? 300.0 : 100.0; };
        grid = TestTerrain::grid({101, 101, s_x, s_z, 20.0, 20.0}, heightOf);
        GeoTransformation::setNBXOrigin(grid->origin());
        testing::internal::CaptureStderr();
        terrain = new Terrain(grid.get(), CreateGeometryTree::create(grid.get(), 4000).get());
        testing::internal::GetCapturedStderr();
        for (const double z : {500.0, 900.0, 1100.0, 1900.0})
            source->addPoint({s_x + (z == 1100.0 ? 1900.0 : 1000.0), 0.0, s_z + z}, {std::to_string(int(z))});
        labels.setLayers({{source, {0}, [this](const MemoryFeatures::Feature & feature) {
                               return ScreenLabels::Label{std::get<std::string>(feature.values.at(0)), style};
                           }}});
        setExaggeration(1.0);
    }
    void TearDown() override {
        GeoTransformation::setNBXOrigin({});
        GLFixture::TearDown();
    }

    void setExaggeration(double factor) {
        node->clear();
        node->append(new TerrainScaling({1, factor, 1}));
        node->append(terrain.get());
        const NBX::Bounds box = terrain->boundingBox();
        const auto scaled = [factor](const Point & p) { return Point(p.x, p.y * factor, p.z); };
        ScreenLabels::Ground ground;
        ground.box = NBX::Bounds(scaled(box.getLLF()), scaled(box.getURB()));
        ground.heightAt = [this, factor](double x, double z) {
            const double height =
                terrain->calculateHeight(GeoTransformation::nbx2geoTf(Point(x, 0, z)), true);
            if (terrain->isUndefinedHeightValue(height)) return -HUGE_VAL;
            return factor * GeoTransformation::geo2nbxTf(Point(0, height, 0)).y;
        };
        ground.isHidden = ScreenLabels::Ground::hiddenBehind(node);
        labels.setGround(ground);
    }
    /// From the south of the wall.
    SO<NBX::Camera> cameraAt(double height) const {
        const Point shift = GeoTransformation::geo2nbxOffset();
        const Point eye = Point(s_x + 1000.0, height, s_z - 800.0) + shift,
                    aim = Point(s_x + 1000.0, 100.0, s_z + 1000.0) + shift;
        return new NBX::Camera(new NBX::LookAt(eye, aim), new NBX::Perspective(45.0, 10.0, 12'000.0));
    }
    std::vector<std::string> namesFrom(double height) {
        EXPECT_TRUE(labels.update(*cameraAt(height), s_width, s_height));
        std::vector<std::string> names;
        for (const auto & label : labels.placed())
            names.emplace_back(label.text.begin(), label.text.end());
        return names;
    }

    /// The wall hides the place behind it, three pixels above the ground, up to where the line from there
    /// over its edge meets the eye.
    static constexpr double s_lift = 3.0 * 2700.0 * 0.8284 / s_height;
    static constexpr double limit = 100.0 + s_lift + (200.0 - s_lift) * (1900.0 + 800.0) / (1900.0 - 1020.0);
    static constexpr double s_x = 480'000.0, s_z = 3'100'000.0;
    SO<GridData> grid;
    SO<Terrain> terrain;
    const SO<NBX::SceneThing> node{new NBX::SceneThing};
    const std::shared_ptr<MemoryFeatures> source = std::make_shared<MemoryFeatures>(
        std::vector<ZMT::RASTER::VectorField>{{"name", ZMT::RASTER::VectorField::Type::Text}});
    VectorStyle::Label style;
    ScreenLabels labels;
};

using Texts = std::vector<std::string>;

TEST_F(LabelPicturesTest, RidgesHideWhatLiesBehindThem) {
    EXPECT_EQ((Texts{"500", "900"}), namesFrom(limit - 20.0));
    EXPECT_EQ((Texts{"500", "900", "1900"}), namesFrom(limit + 20.0));
    EXPECT_EQ((Texts{"500", "900", "1900"}), namesFrom(limit - 20.0)) << "no flicker at the edge";
    EXPECT_EQ((Texts{"500", "900", "1900", "1100"}), namesFrom(6000.0));
}

TEST_F(LabelPicturesTest, ExaggeratedRidgesHideMore) {
    EXPECT_EQ(3U, namesFrom(limit + 20.0).size());
    setExaggeration(2.0);
    EXPECT_EQ((Texts{"500", "900"}), namesFrom(limit + 20.0));
    EXPECT_EQ((Texts{"500", "900", "1900"}), namesFrom(2.0 * limit + 60.0));
    EXPECT_NEAR(200.0 - grid->origin().y * 2.0, labels.placed().front().position.y, 20.0);
}

TEST_F(LabelPicturesTest, ThePictureHasTheLabelsInTheirRectanglesAndNothingElse) {
    style.color = NBX::Color::red;
    style.haloWidth = 1.5;
    style.haloColor = NBX::Color::white;
    style.size.value = 13.0;
    labels.setGround({});
    setExaggeration(1.0);
    labels.setLayers({{source, {0}, [this](const MemoryFeatures::Feature & feature) {
                           return ScreenLabels::Label{std::get<std::string>(feature.values.at(0)), style};
                       }}});
    ASSERT_EQ(4U, namesFrom(6000.0).size());
    canvas->setSize(s_width, s_height);
    root->append(cameraAt(6000.0).get());
    TerrainPainterGLSettings::setGeometryError(1.0);
    root->append(node.get());
    const SO<NBX::Image> without = draw();
    root->append(labels.node().get());
    const SO<NBX::Image> with = draw();
    TerrainPainterGLSettings::setGeometryError(3.0);
    std::vector<int> red(labels.placed().size());
    for (int y = 0; y < int(s_height); ++y)
        for (int x = 0; x < int(s_width); ++x) {
            if (pixel(with, x, y) == pixel(without, x, y)) continue;
            const ScreenLabels::Placed * label = labels.labelAt(x + 0.5, y + 0.5);
            // Pixels at the border are covered in part.
            for (const double step : {-1.0, 1.0})
                if (!label) label = labels.labelAt(x + 0.5 + step, y + 0.5);
            for (const double step : {-1.0, 1.0})
                if (!label) label = labels.labelAt(x + 0.5, y + 0.5 + step);
            ASSERT_TRUE(label) << x << " " << y;
            const auto color = pixel(with, x, y);
            if (color[0] > 200 && color[1] < 60) ++red[std::size_t(label - labels.placed().data())];
        }
    for (const int count : red)
        EXPECT_GT(count, 30) << "whole, in front of the ground";
}

} // namespace
