// Vector textures over a terrain that streams, in flights of many pictures.

#include <cmath>
#include <set>
#include <tuple>

#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/perspective.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>

#include "../terrain/geometry/grid/writtenterrain.h"
#include "../terrain/texture/vector/vectortexturetest.h"

using NBX::SO;

namespace {

/// 256 by 256 cells, in tiles of 16 by 16.
class OverlayFlightTest : public VectorTextureFixture {
protected:
    using Settings = ZMT::CORE::TerrainPainterGLSettings;
    static constexpr double s_side = 256.0;
    static constexpr unsigned s_round = 100;

    void SetUp() override {
        VectorTextureFixture::SetUp();
        errorBefore_ = Settings::getTextureError();
        Settings::setTextureError(4.0);
        const auto slope = [](unsigned x, unsigned y) {
            return 10.0 * std::sin(0.1 * x) * std::cos(0.07 * y);
        };
        terrain = memoryTerrain(writtenTerrain(new FunctionBand(257, 257, slope), 4));
        ASSERT_TRUE(terrain);
        texture->setBoundingBox(Bounds(Point(), Point(s_side, 0.0, s_side)));
        add(line(Point(0.0, 0.0, 0.0), Point(s_side, 0.0, s_side)).get(), NBX::Color::red);
    }
    void TearDown() override {
        root->clear();
        terrain = nullptr;
        NBX::MainMemoryManager::instance()->clear();
        NBX::GraphicsMemoryManager::instance()->clear();
        Settings::setTextureError(errorBefore_);
        VectorTextureFixture::TearDown();
    }
    /// Round after round above the ground, each picture a step farther; `look` sees each.
    template <class Look> void fly(unsigned pictures, const Look & look) {
        for (unsigned i = 0; i < pictures; ++i) {
            const double way = 6.283185307179586 * (i % s_round) / s_round, ahead = way + 0.4;
            const auto at = [](double angle, double height) {
                const double half = 0.5 * s_side;
                return Point(half + 0.6 * half * std::cos(angle), height,
                             half + 0.6 * half * std::sin(angle));
            };
            root->clear();
            root->append(new NBX::Camera(new NBX::LookAt(at(way, 40.0), at(ahead, 0.0)),
                                         new NBX::Perspective(45.0, 1.0, 1000.0)));
            root->append(new ZMT::CORE::DecalTerrainTexturingEffect(
                new NBX::Array<SO<ZMT::CORE::TerrainTexture>>(std::vector<SO<ZMT::CORE::TerrainTexture>>{
                    SO<ZMT::CORE::TerrainTexture>(texture.get())})));
            root->append(terrain.get());
            draw();
            look(i);
        }
    }
    /// Of all textures drawn so far, by their boxes in the plan.
    std::size_t differentTextures() const {
        std::set<std::tuple<double, double, double, double>> boxes;
        for (const Bounds & box : texture->boxes)
            boxes.emplace(box.getLLF().x, box.getLLF().z, box.getURB().x, box.getURB().z);
        return boxes.size();
    }

    SO<ZMT::CORE::GRID::AsyncGridTerrain> terrain;

private:
    double errorBefore_ = 0.0;
};

TEST_F(OverlayFlightTest, WhatIsKeptIsDrawnOnce) {
    VectorTexture::setMaxTexturePatches(1000);
    std::size_t afterTheFirstRounds = 0;
    fly(3 * s_round, [&](unsigned i) {
        if (i + 1 == 2 * s_round) afterTheFirstRounds = texture->boxes.size();
    });
    EXPECT_GT(texture->boxes.size(), 30U);
    EXPECT_EQ(texture->boxes.size(), differentTextures());
    EXPECT_EQ(texture->boxes.size(), afterTheFirstRounds) << "later rounds show the same";
    EXPECT_EQ(Tables::instance().textureCount(), texture->boxes.size());
}

TEST_F(OverlayFlightTest, LittleRoomIsKept) {
    constexpr unsigned room = 8;
    VectorTexture::setMaxTexturePatches(room);
    fly(s_round / 2, [&](unsigned i) {
        const Tables & tables = Tables::instance();
        EXPECT_LE(tables.textureCount() + tables.poolSize(), room + 9) << i;
        EXPECT_EQ(tables.queueLength(), 0U) << i;
        EXPECT_LE(tables.renderOrder().size(), 9U) << i;
    });
    EXPECT_GT(differentTextures(), room) << "all have no room";
}

} // namespace
