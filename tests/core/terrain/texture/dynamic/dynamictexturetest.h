#pragma once

#include <functional>
#include <vector>

#include "support/glfixture.h"
#include "support/testterrain.h"

#include "../vector/vectortexturetest.h"
#include <nbx/scene/attribute/contextdata.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/perspective.h>
#include <nbx/scene/view/viewport.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/frame/terrainscaling.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>
#include <zmt/core/terrain/texture/dynamic/dynamicvectortexture.h>

/// A terrain of 1024 by 1024 units under a scene, and a picture of 128 by 128 pixels.
class DynamicTextureFixture : public VectorTextureFixture {
protected:
    using DynamicVectorTexture = ZMT::CORE::DynamicVectorTexture;
    using Matrix = NBX::Matrix4x4Base<double>;

    void SetUp() override {
        VectorTextureFixture::SetUp();
        // The first frame of the process makes managers, one of which tells so.
        ZMT::CORE::TerrainPainterFrameManager::CallBeginFrameCallbacks({nullptr, false});
        ZMT::CORE::TerrainPainterFrameManager::CallEndFrameCallbacks({nullptr, false});
        reports.clear();
        ASSERT_TRUE(canvas->setSize(s_pixels, s_pixels));
        dynamic = newDynamic();
        setGround([](unsigned, unsigned) { return 0.0; });
    }
    void TearDown() override {
        canvas->remove(root.get());
        root->clear();
        DynamicVectorTexture::setRasterTexture(nullptr);
        dynamic = nullptr;
        VectorTextureFixture::TearDown();
    }

    SO<DynamicVectorTexture> newDynamic(unsigned size = 512) {
        SO<DynamicVectorTexture> made(new DynamicVectorTexture(SO<NBX::SceneNode>(scene.get())));
        made->setTextureSize(size);
        return made;
    }
    void setGround(const TestTerrain::Height & height) {
        const auto grid = TestTerrain::grid({65, 65, 0.0, 0.0, 16.0, 16.0}, height);
        terrain =
            new ZMT::CORE::Terrain(grid.get(), ZMT::CORE::CreateGeometryTree::create(grid.get(), 64).get());
    }
    /// White ground, the scene by a texture, and the terrain.
    void lay(const Point & from, const Point & to, const Point & up = {0.0, 1.0, 0.0}) {
        lay(from, to, up, dynamic.get());
    }
    void lay(const Point & from, const Point & to, const Point & up, ZMT::CORE::TerrainTexture * overlay) {
        root->clear();
        look(from, to, up);
        root->append(scaling.get());
        root->append(effect(overlay).get());
        root->append(terrain.get());
    }
    void look(const Point & from, const Point & to, const Point & up = {0.0, 1.0, 0.0}) {
        eyePoint = from;
        lookAt = new NBX::LookAt(from, to, up);
        projection = new NBX::Perspective(50.0, 1.0, 5000.0);
        root->append(new NBX::Camera(lookAt.get(), projection.get(), NBX::Camera::S_Global));
    }
    static SO<ZMT::CORE::DecalTerrainTexturingEffect> effect(ZMT::CORE::TerrainTexture * overlay) {
        using Texture = SO<ZMT::CORE::TerrainTexture>;
        return new ZMT::CORE::DecalTerrainTexturingEffect(
            new NBX::Array<Texture>(std::vector<Texture>{Texture(overlay)}));
    }
    /// Where the middle of a pixel meets a plane; y is far above where it does not.
    Point onPlane(double x, double y, double height = 0.0) const {
        const Matrix toScene = (projection->matrix(1.0) * lookAt->matrix()).inverse();
        const Point clip(2.0 * (x + 0.5) / s_pixels - 1.0, 2.0 * (y + 0.5) / s_pixels - 1.0, 0.0);
        const Point near = toScene * Point(clip.x, clip.y, -1.0), far = toScene * Point(clip.x, clip.y, 1.0);
        const double t = (height - near.y) / (far.y - near.y);
        return t > 0.0 && t < 1.0 ? near + (far - near) * t : Point(0.0, 1e9, 0.0);
    }
    static bool isRed(const std::array<int, 4> & p) { return p[0] > 200 && p[1] < 80; }
    static bool isWhite(const std::array<int, 4> & p) { return p[0] > 200 && p[1] > 180; }

    /// Every pixel whose surroundings lie within the area, or outside of it, is red, or not.
    void expectAreas(const SO<NBX::Image> & picture, const std::function<bool(const Point &)> & isArea,
                     double margin = 2.5) {
        unsigned reds = 0, whites = 0;
        for (int y = 0; y < s_pixels; ++y)
            for (int x = 0; x < s_pixels; ++x) {
                unsigned within = 0, without = 0;
                for (int i = 0; i < 9; ++i) {
                    const Point p = onPlane(x + margin * (i % 3 - 1), y + margin * (i / 3 - 1));
                    const bool onTerrain =
                        p.x > 0.0 && p.x < 1024.0 && p.z > 0.0 && p.z < 1024.0 && p.y < 1e8;
                    within += onTerrain && isArea(p);
                    without += onTerrain && !isArea(p);
                }
                if (within == 9) {
                    ++reds;
                    ASSERT_TRUE(isRed(pixel(picture, x, y)))
                        << x << ", " << y << " at " << onPlane(x, y).x << ", " << onPlane(x, y).z;
                }
                if (without == 9) {
                    ++whites;
                    ASSERT_TRUE(isWhite(pixel(picture, x, y)))
                        << x << ", " << y << " at " << onPlane(x, y).x << ", " << onPlane(x, y).z;
                }
            }
        EXPECT_GT(reds, 20U);
        EXPECT_GT(whites, 20U);
    }
    /// Red squares, like those of a board.
    void addBoard(double side) {
        for (double z = 0.0; z < 1024.0; z += side)
            for (double x = 0.0; x < 1024.0; x += side)
                if (isOnBoard({x + side / 2.0, 0.0, z + side / 2.0}, side))
                    add(area(Bounds(Point(x, 0.0, z), Point(x + side, 0.0, z + side))).get(),
                        NBX::Color(1.0, 0.0, 0.0));
    }
    static bool isOnBoard(const Point & p, double side) {
        return (int(std::floor(p.x / side)) + int(std::floor(p.z / side))) % 2 == 0;
    }

    static constexpr int s_pixels = 128;
    const SO<ZMT::CORE::TerrainScaling> scaling{new ZMT::CORE::TerrainScaling({1.0, 1.0, 1.0})};
    SO<DynamicVectorTexture> dynamic;
    SO<ZMT::CORE::Terrain> terrain;
    SO<NBX::LookAt> lookAt;
    SO<NBX::Projection> projection;
    Point eyePoint;
};
