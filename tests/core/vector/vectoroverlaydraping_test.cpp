// Overlays on terrains, in whole pictures.

#include <cmath>
#include <functional>
#include <memory>

#include <nbx/scene/attribute/contextdata.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/ortho.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/frame/terrainscaling.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>
#include <zmt/core/vector/vectoroverlaytexture.h>

#include "support/testterrain.h"

#include "../terrain/texture/vector/vectortexturetest.h"
#include "memoryfeatures.h"

using NBX::SO;
using ZMT::CORE::LocalFrame;
using ZMT::CORE::Terrain;
using ZMT::CORE::TerrainPainterGLSettings;
using ZMT::CORE::VectorOverlay;
using ZMT::CORE::VectorOverlayTexture;
using ZMT::CORE::VectorStyleSheet;

namespace {

/// 1024 units of ground, seen from straight above: a pixel is 16 units.
class VectorOverlayDrapingTest : public VectorTextureFixture {
protected:
    static constexpr double s_east = 300000.0, s_north = 5000000.0;
    using Height = std::function<double(unsigned x, unsigned z)>;

    void SetUp() override {
        VectorTextureFixture::SetUp();
        ZMT::CORE::TerrainPainterFrameManager::CallBeginFrameCallbacks({nullptr, false});
        ZMT::CORE::TerrainPainterFrameManager::CallEndFrameCallbacks({nullptr, false});
        reports.clear();
        texture->setBufferSize(64);
        texture->setInternalFormat(s_rgba8);
        errorBefore_ = TerrainPainterGLSettings::getTextureError();
        TerrainPainterGLSettings::setTextureError(0.5);
    }
    void TearDown() override {
        forget();
        TerrainPainterGLSettings::setTextureError(errorBefore_);
        ZMT::CORE::GeoTransformation::setNBXOrigin(originBefore_);
        VectorTextureFixture::TearDown();
    }
    void forget() {
        root->clear();
        overlaid = nullptr;
        terrain = nullptr;
    }

    /// Of ground of the given heights, exaggerated, with the features on it.
    SO<NBX::Image> picture(const std::string & style, const Height & height, double exaggeration) {
        forget();
        const auto grid = TestTerrain::grid({65, 65, s_east, s_north, 16.0, 16.0}, height);
        ZMT::CORE::GeoTransformation::setNBXOrigin(grid->origin());
        terrain = new Terrain(grid.get(), ZMT::CORE::CreateGeometryTree::create(grid.get(), 64).get());
        overlaid = new VectorOverlayTexture(
            {SO<VectorOverlay>(new VectorOverlay(features, VectorStyleSheet::parse(style)))},
            LocalFrame(grid->origin()), terrain->boundingBox());
        const Point middle = grid->boundingBox().center();
        root->append(new NBX::Camera(new NBX::LookAt(Point(middle.x, 500000.0, middle.z),
                                                     Point(middle.x, 0.0, middle.z), Point(0.0, 0.0, 1.0)),
                                     new NBX::Ortho(-512.0, 512.0, -512.0, 512.0, 1.0, 1000000.0),
                                     NBX::Camera::S_Global));
        root->append(new ZMT::CORE::DecalTerrainTexturingEffect(new NBX::Array<SO<ZMT::CORE::TerrainTexture>>(
            std::vector<SO<ZMT::CORE::TerrainTexture>>{SO<ZMT::CORE::TerrainTexture>(overlaid.get())})));
        root->append(new ZMT::CORE::TerrainScaling({1.0, exaggeration, 1.0}));
        root->append(terrain.get());
        return draw();
    }

    static Point at(double x, double z) { return {s_east + x, 0.0, s_north + z}; }

    const std::shared_ptr<MemoryFeatures> features = std::make_shared<MemoryFeatures>();
    SO<Terrain> terrain;
    SO<VectorOverlayTexture> overlaid;

private:
    const Point originBefore_ = ZMT::CORE::GeoTransformation::nbx2geoOffset();
    double errorBefore_ = 0.0;
};

TEST_F(VectorOverlayDrapingTest, FeaturesLieInTheirPlaceOnTheTerrain) {
    features->addArea(
        {MemoryFeatures::rectangle(s_east + 256.0, s_north + 512.0, s_east + 768.0, s_north + 896.0)});
    const auto image = picture(
        "fill=#000000, width=0", [](unsigned, unsigned) { return 10.0; }, 1.0);
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) {
            const double east = (x + 0.5) * 16.0, north = (y + 0.5) * 16.0;
            const double away = std::max({256.0 - east, east - 768.0, 512.0 - north, north - 896.0});
            if (std::abs(away) < 24.0) continue;
            EXPECT_NEAR(pixel(image, x, y)[1], away < 0.0 ? 0 : 255, 8) << east << ", " << north;
        }
}

TEST_F(VectorOverlayDrapingTest, ExaggeratedSummitsAndDeepSeasKeepTheirFeatures) {
    features->addLine({at(0.0, 100.0), at(600.0, 500.0), at(1024.0, 900.0)});
    features->addArea(
        {MemoryFeatures::rectangle(s_east + 600.0, s_north + 100.0, s_east + 900.0, s_north + 400.0)});
    const std::string style = "color=#c00000, width=40m, fill=#00408080";
    const auto plain = picture(
        style, [](unsigned, unsigned) { return 0.0; }, 1.0);
    unsigned shown = 0;
    for (int i = 0; i < 64; ++i)
        shown += pixel(plain, i, 10)[1] < 250 ? 1 : 0;
    EXPECT_GT(shown, 10U);
    // One slope from -11000 to 8848.
    const auto high = picture(
        style, [](unsigned x, unsigned) { return -11000.0 + 19848.0 * x / 64.0; }, 20.0);
    EXPECT_LE(largestDifference(plain, high), 8);
}

} // namespace
