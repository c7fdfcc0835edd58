#include <zmt/util/occlusion/ambientocclusion.h>

#include <cstdlib>

#include <nbx/analysis/scenegraphanalyzer.h>
#include <nbx/container/sequence/array.h>
#include <nbx/gl/program/programobject.h>
#include <nbx/gl/state/colorbuffergl.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/gl/texture/textureunitsettinggl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/progress.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/attribute/distantlight.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/translation.h>

#include <zmt/core/terrain/geometry/view/terrain.h>

#include "support/cancelingdisplay.h"
#include "support/glfixture.h"
#include "support/slotorder.h"
#include "util/occlusion/ambientocclusionshaders.h"
#include "util/occlusion/aoimpl.h"

namespace {

using NBX::PolygonSet;
using NBX::SO;
using ZMT::UTIL::AmbientOcclusion;
using ZMT::UTIL::AOImpl;
using ZMT::UTIL::LightList;
using V = NBX::Vector3Base<double>;
using Configuration = AmbientOcclusion::LightingConfiguration;
using Sets = std::vector<SO<PolygonSet>>;

/// A level square that is seen from above, with the corner `low` and the side `side`, its plan as texture
/// coordinates.
SO<PolygonSet> square(const V & low, double side) {
    const V corners[] = {low, low + V(side, 0, 0), low + V(side, 0, side), low + V(0, 0, side)};
    const V places[] = {V(0, 0, 0), V(1, 0, 0), V(1, 1, 0), V(0, 1, 0)};
    std::vector<V> vertices, coordinates;
    for (const unsigned i : {0, 1, 2, 0, 2, 3}) {
        vertices.push_back(corners[i]);
        coordinates.push_back(places[i]);
    }
    SO<PolygonSet> set(new PolygonSet(PolygonSet::PT_Triangles, new NBX::Array<V>(std::move(vertices))));
    set->setTextureIterator(new NBX::Array<V>(std::move(coordinates)));
    return set;
}

/// A square of 64 units on the texels 16 to 47 of 64.
SO<PolygonSet> middlePart() {
    const SO<PolygonSet> part = square({0, 0, 0}, 64);
    std::vector<V> places;
    for (const V & p : *part->newTextureIterator(0).get())
        places.push_back(p * 0.5 + V(0.25, 0.25, 0.0));
    part->setTextureIterator(new NBX::Array<V>(std::move(places)));
    return part;
}

SO<AmbientOcclusion::Meshes> sequence(Sets sets) {
    return new NBX::NonPersistentArray<SO<PolygonSet>>(std::move(sets));
}

class AmbientOcclusionTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        AmbientOcclusion::setIdBufferSize(64);
        AmbientOcclusion::setMaxAtlasSize(64);
        std::srand(2);
    }
    void TearDown() override {
        AmbientOcclusion::setIdBufferSize(1024);
        AmbientOcclusion::setMaxAtlasSize(1024);
        AmbientOcclusion::setTextureBorderWidth(2);
        AmbientOcclusion::setFBOEnabled(true);
        GLFixture::TearDown();
    }
    static Configuration sky(int directions) {
        Configuration c;
        c.numSkyDirections = directions;
        return c;
    }
    /// All light from straight above, such that what lies level has `light`.
    static Configuration zenith(double light) {
        Configuration c;
        c.numSkyDirections = 0;
        c.extraDirections = new NBX::Array<V>(std::vector<V>{{0, 1, 0}});
        c.extraColors = new NBX::Array<V>(std::vector<V>{{1, 1, 1}});
        c.intensity = light * std::sqrt(3.0);
        return c;
    }
    SO<NBX::Image> fromAbove(const SO<PolygonSet> & receiver, const SO<PolygonSet> & caster) {
        return AmbientOcclusion::createLightingTexture(receiver, caster, canvas,
                                                       new NBX::Array<V>(std::vector<V>{{0, 0, 1}}));
    }
    /// The scene from straight above: a pixel for each unit from 0, 0.
    std::array<int, 4> seen(const SO<NBX::SceneThing> & scene, int x, int z) {
        root->clear();
        const SO<NBX::LookAt> eye(new NBX::LookAt({32, 100, 32}, {32, 0, 32}, {0, 0, 1}));
        root->append(
            new NBX::Camera(eye.get(), new NBX::Ortho(-32, 32, -32, 32, 1, 200), NBX::Camera::S_Global));
        root->append(scene.get());
        return pixel(draw(), x, z);
    }
};

TEST_F(AmbientOcclusionTest, Settings) {
    AmbientOcclusion::setIdBufferSize(1024);
    AmbientOcclusion::setMaxAtlasSize(1024);
    EXPECT_TRUE(AmbientOcclusion::getFBOEnabled());
    EXPECT_EQ(1024, AmbientOcclusion::getIdBufferSize());
    EXPECT_EQ(1024, AmbientOcclusion::getMaxAtlasSize());
    EXPECT_EQ(2, AmbientOcclusion::getTextureBorderWidth());
}

TEST_F(AmbientOcclusionTest, RenderersTakeTerrainsThenMeshes) {
    using Progress = NBX::Progress;
    EXPECT_TRUE(inSlotOrder(
        &NBX::SharedObj::isRegisteredForSerialization,
        static_cast<SO<NBX::Image> (AOImpl::*)(const AOImpl::TerrainStep &, const LightList &, Progress *)>(
            &AOImpl::render),
        static_cast<SO<NBX::Image> (AOImpl::*)(const AOImpl::MeshStep &, const LightList &, Progress *)>(
            &AOImpl::render)));
}

TEST_F(AmbientOcclusionTest, ARoofShadesWhatLiesBelowIt) {
    const SO<NBX::Image> image = fromAbove(square({0, 0, 0}, 64), square({16, 10, 32}, 16));
    ASSERT_TRUE(image);
    EXPECT_EQ(64, image->width());
    EXPECT_EQ((std::array<int, 4>{0, 0, 0, 255}), pixel(image, 24, 40));
    EXPECT_EQ((std::array<int, 4>{255, 255, 255, 255}), pixel(image, 40, 40));
    EXPECT_EQ((std::array<int, 4>{255, 255, 255, 255}), pixel(image, 24, 24));
    EXPECT_EQ((std::array<int, 4>{0, 0, 0, 255}), pixel(image, 17, 33));
    EXPECT_EQ((std::array<int, 4>{0, 0, 0, 255}), pixel(image, 30, 46));
    EXPECT_EQ(255, pixel(image, 33, 40)[0]);
    // What lies below the ground throws no shadow on it.
    EXPECT_EQ(255, pixel(fromAbove(square({0, 0, 0}, 64), square({16, -10, 32}, 16)), 24, 40)[0]);
    EXPECT_EQ(255, pixel(fromAbove(square({0, 0, 0}, 64), nullptr), 24, 40)[0]);
    // Far above it throws the same.
    EXPECT_EQ(0, pixel(fromAbove(square({0, 0, 0}, 64), square({16, 900, 32}, 16)), 24, 40)[0]);
}

TEST_F(AmbientOcclusionTest, ADirectionWithoutLengthBringsNoLight) {
    const auto image = AmbientOcclusion::createLightingTexture(
        square({0, 0, 0}, 64), nullptr, canvas, new NBX::Array<V>(std::vector<V>{{0, 0, 1}, {0, 0, 0}}));
    EXPECT_NEAR(127.5, pixel(image, 20, 20)[0], 1.0);
}

TEST_F(AmbientOcclusionTest, OnlyTheSideFromWhichATriangleIsSeenIsLit) {
    const SO<PolygonSet> set = square({0, 0, 0}, 64);
    const auto vertices = set->newVertexIterator();
    set->setVertexIterator(
        new NBX::Array<V>(std::vector<V>{vertices->get(0), vertices->get(2), vertices->get(1),
                                         vertices->get(3), vertices->get(5), vertices->get(4)}));
    EXPECT_EQ((std::array<int, 4>{0, 0, 0, 255}), pixel(fromAbove(set, nullptr), 20, 20));
    // Light from below takes nothing from that from above.
    const auto image = AmbientOcclusion::createLightingTexture(
        set, nullptr, canvas, new NBX::Array<V>(std::vector<V>{{0, 0, 1}, {0, 0, -1}}));
    EXPECT_NEAR(127.5, pixel(image, 20, 20)[0], 1.0);
}

TEST_F(AmbientOcclusionTest, NormalsOfTheReceiverCount) {
    const SO<PolygonSet> set = square({0, 0, 0}, 64);
    set->setNormalIterator(new NBX::Array<V>(std::vector<V>(6, V(0.0, 0.6, 0.8) * 7.0)));
    EXPECT_NEAR(0.6 * 255, pixel(fromAbove(set, nullptr), 20, 20)[1], 1.0);
}

TEST_F(AmbientOcclusionTest, BothRenderersGiveTheSameImage) {
    const auto directions = AmbientOcclusion::createLightDirections(20);
    const SO<PolygonSet> receiver = square({0, 0, 0}, 64), caster = square({16, 10, 32}, 16);
    // Only a part of the picture is drawn on, so that it gets a border.
    const SO<PolygonSet> part = square({0, 0, 0}, 64);
    std::vector<V> places;
    for (const V & p : *receiver->newTextureIterator(0).get())
        places.push_back(p * 0.5 + V(0.2, 0.3, 0.0));
    part->setTextureIterator(new NBX::Array<V>(std::move(places)));
    const auto fbo = AmbientOcclusion::createLightingTexture(part, caster, canvas, directions);
    AmbientOcclusion::setFBOEnabled(false);
    const auto pbuffer = AmbientOcclusion::createLightingTexture(part, caster, canvas, directions);
    ASSERT_TRUE(fbo && pbuffer);
    EXPECT_LE(largestDifference(fbo, pbuffer), 1);
    EXPECT_GT(pixel(pbuffer, 30, 30)[0], 100);
    EXPECT_TRUE(canvas->isContextCurrent());
    for (const bool enabled : {true, false}) {
        AmbientOcclusion::setFBOEnabled(enabled);
        canvas->releaseContext();
        EXPECT_TRUE(AmbientOcclusion::createLightingTexture(part, caster, canvas, directions));
        EXPECT_FALSE(canvas->isContextCurrent());
        ASSERT_TRUE(canvas->makeContextCurrent());
    }
}

TEST_F(AmbientOcclusionTest, TheBorderTakesTheLightOfItsNeighbours) {
    const SO<PolygonSet> part = middlePart();
    const std::array<int, 4> lit = {255, 255, 255, 255}, none = {0, 0, 0, 0};
    for (const int width : {0, 1, 2, 4}) {
        AmbientOcclusion::setTextureBorderWidth(width);
        const SO<NBX::Image> image = fromAbove(part, nullptr);
        EXPECT_EQ(lit, pixel(image, 16, 30));
        EXPECT_EQ(lit, pixel(image, 47, 30));
        for (int i = 1; i <= 6; ++i) {
            const std::array<int, 4> & expected = i <= width ? lit : none;
            EXPECT_EQ(expected, pixel(image, 16 - i, 30)) << width << " " << i;
            EXPECT_EQ(expected, pixel(image, 47 + i, 30)) << width << " " << i;
            EXPECT_EQ(expected, pixel(image, 30, 16 - i)) << width << " " << i;
            EXPECT_EQ(expected, pixel(image, 30, 47 + i)) << width << " " << i;
        }
    }
    // A corner takes the mean of two, whatever the number of lights.
    part->setNormalIterator(new NBX::Array<V>(std::vector<V>(6, V(0.0, 0.6, 0.8))));
    const auto image = AmbientOcclusion::createLightingTexture(
        part, nullptr, canvas, new NBX::Array<V>(std::vector<V>{{0, 0, 1}, {0, 0, 1}}));
    EXPECT_NEAR(0.6 * 255, pixel(image, 14, 14)[0], 1.0);
    EXPECT_NEAR(0.6 * 255, pixel(image, 30, 14)[0], 1.0);
}

TEST_F(AmbientOcclusionTest, AStepMayLeaveOutTheBorderAndChooseItsShadowMap) {
    const SO<PolygonSet> part = middlePart();
    part->setNormalIterator(new NBX::Array<V>(std::vector<V>(6, V(0, 1, 0))));
    LightList fromZenith;
    fromZenith.directions = {V(0, 1, 0)};
    fromZenith.colors = {V(1, 1, 1)};
    const auto render = [&](unsigned shadowSize, bool closes) {
        const AOImpl::MeshStep step{part, square({24, 10, 24}, 16), 64, shadowSize, closes};
        return ZMT::UTIL::newAOImpl(canvas)->render(step, fromZenith, nullptr);
    };
    for (const bool enabled : {true, false}) {
        AmbientOcclusion::setFBOEnabled(enabled);
        EXPECT_EQ(255, pixel(render(0, true), 15, 30)[3]) << enabled;
        EXPECT_EQ(0, pixel(render(0, false), 15, 30)[3]) << enabled;
        EXPECT_EQ(255, pixel(render(0, false), 20, 20)[0]) << enabled;
    }
    AmbientOcclusion::setFBOEnabled(true);
    EXPECT_EQ(0, pixel(render(1, false), 20, 20)[0]) << "one texel, in the middle of which a roof stands";
}

TEST_F(AmbientOcclusionTest, WithoutHardwareOrCanvasThereIsNoResult) {
    EXPECT_FALSE(AmbientOcclusion::createLightingTexture(square({0, 0, 0}, 1), nullptr, nullptr,
                                                         AmbientOcclusion::createLightDirections(1)));
    EXPECT_EQ(1u, reports.count(0, L"canvas", L"no canvas"));
    EXPECT_FALSE(AmbientOcclusion::createLightingTexture(nullptr, nullptr, canvas, nullptr));
    EXPECT_EQ(1u, reports.count(0, L"receiver", L"no receiver"));
    EXPECT_EQ(1u, reports.count(0, L"lightDirections", L"no light directions"));
    EXPECT_FALSE(AmbientOcclusion::createTerrainTexture(nullptr, nullptr, canvas, NBX::Bounds(), sky(1)));
    EXPECT_EQ(1u, reports.count(0, L"terrain", L"no terrain"));
    EXPECT_FALSE(AmbientOcclusion::applyAmbientOcclusion(nullptr, sky(1), 1.0));
    EXPECT_EQ(1u, reports.count(0, L"scene", L"no scene"));
    reports.clear();
}

TEST_F(AmbientOcclusionTest, CancellingGivesNull) {
    const CancelingDisplay display;
    EXPECT_FALSE(fromAbove(square({0, 0, 0}, 64), nullptr));
    EXPECT_FALSE(AmbientOcclusion::createLightingTextures(
                     sequence({square({0, 0, 0}, 40), square({0, 9, 0}, 40)}), 1.0, canvas, sky(3))
                     .meshes);
    EXPECT_EQ((std::vector<std::string>{"Calculate lighting", "Preparing lighting", "Calculate lighting"}),
              display.titles);
    EXPECT_EQ(6.0, display.totals.back()) << "directions for two atlases";
}

TEST_F(AmbientOcclusionTest, TexturesOfMeshesHaveTheLightOfTheirTriangles) {
    const SO<PolygonSet> ground = square({0, 0, 0}, 20), roof = square({0, 5, 0}, 20),
                         apart = square({90, 0, 0}, 20);
    const auto lit =
        AmbientOcclusion::createLightingTextures(sequence({ground, roof, apart}), 1.0, canvas, zenith(1.0));
    ASSERT_TRUE(lit.meshes);
    EXPECT_EQ((std::vector<unsigned>{2, 4, 6}),
              std::vector<unsigned>(lit.ranges->begin(), lit.ranges->end()));
    unsigned triangles = 0;
    for (unsigned atlas = 0; atlas < lit.meshes->size(); ++atlas) {
        const SO<NBX::Image> image = lit.textures->get(atlas)->getImage();
        ASSERT_TRUE(image);
        const SO<PolygonSet> mesh = lit.meshes->get(atlas);
        for (unsigned i = 0; i + 2 < mesh->newVertexIterator()->size(); i += 3, ++triangles) {
            V p, place;
            for (unsigned k = i; k < i + 3; ++k) {
                p += mesh->newVertexIterator()->get(k) / 3.0;
                place += mesh->newTextureIterator(0)->get(k) / 3.0;
            }
            const bool isUnderRoof = p.x < 50 && p.y < 1;
            EXPECT_EQ(isUnderRoof ? 0 : 255, pixel(image, int(place.x * 64), int(place.y * 64))[0])
                << p.x << " " << p.y;
        }
    }
    EXPECT_EQ(6u, triangles);
}

TEST_F(AmbientOcclusionTest, FurtherCastersShadeMeshes) {
    const auto light = [&](const SO<PolygonSet> & caster) {
        const auto lit = AmbientOcclusion::createLightingTextures(sequence({square({0, 0, 0}, 20)}), 1.0,
                                                                  canvas, zenith(1.0), caster);
        const V a = lit.meshes->get(0)->newTextureIterator(0)->get(0);
        const V b = lit.meshes->get(0)->newTextureIterator(0)->get(1);
        const V c = lit.meshes->get(0)->newTextureIterator(0)->get(2);
        const V middle = (a + b + c) / 3.0;
        return pixel(lit.textures->get(0)->getImage(), int(middle.x * 64), int(middle.y * 64))[0];
    };
    EXPECT_EQ(255, light(nullptr));
    EXPECT_EQ(0, light(square({-5, 9, -5}, 40)));
}

TEST_F(AmbientOcclusionTest, NoMeshesGiveNothing) {
    EXPECT_FALSE(AmbientOcclusion::createLightingTextures(nullptr, 1.0, canvas, sky(1)).textures);
    EXPECT_FALSE(AmbientOcclusion::createLightingTextures(sequence({}), 1.0, canvas, sky(1)).meshes);
}

TEST_F(AmbientOcclusionTest, TheBoostProgramStretchesTheLight) {
    const SO<NBX::MemoryImage> grey(new NBX::MemoryImage(1, 1, NBX::LS_RGB)),
        red(new NBX::MemoryImage(1, 1, NBX::LS_RGB));
    grey->setColor(0, 0, NBX::Color(0.4F, 0.4F, 0.4F, 1.0F));
    red->setColor(0, 0, NBX::Color(1.0F, 0.5F, 0.0F, 1.0F));
    const SO<NBX::SceneThing> scene(new NBX::SceneThing);
    scene->append(new NBX::ColorAttribute(NBX::Color(0.2F, 0.6F, 1.0F, 1.0F)));
    scene->append(new NBX::TextureUnitSettingGL(0, new NBX::ImageTexture2DGL(grey)));
    scene->append(new NBX::TextureUnitSettingGL(1, new NBX::ImageTexture2DGL(red)));
    scene->append(AmbientOcclusion::getIntensityBoostProgram(false, 0.0F, 1.5F).get());
    scene->append(square({0, 0, 0}, 32).get());
    const SO<NBX::SceneThing> textured(new NBX::SceneThing);
    textured->append(AmbientOcclusion::getIntensityBoostProgram(true, 0.5F, 1.0F).get());
    textured->append(square({32, 0, 0}, 32).get());
    scene->append(textured.get());
    const auto plain = seen(scene, 10, 10), colored = seen(scene, 50, 10);
    const double plainFactor = 0.6, texturedFactor = 0.7;
    EXPECT_NEAR(0.2 * 255 * plainFactor, plain[0], 1.5);
    EXPECT_NEAR(0.6 * 255 * plainFactor, plain[1], 1.5);
    EXPECT_NEAR(1.0 * 255 * plainFactor, plain[2], 1.5);
    EXPECT_NEAR(255 * texturedFactor, colored[0], 1.5);
    EXPECT_NEAR(127 * texturedFactor, colored[1], 1.5);
    EXPECT_EQ(0, colored[2]);
}

TEST_F(AmbientOcclusionTest, TheBlendingProgramStretchesTheLightByHalf) {
    const auto texture = [](float r, float g, float b) {
        const SO<NBX::MemoryImage> image(new NBX::MemoryImage(1, 1, NBX::LS_RGB));
        image->setColor(0, 0, NBX::Color(r, g, b, 1.0F));
        return new NBX::ImageTexture2DGL(image);
    };
    const SO<NBX::SceneThing> scene(new NBX::SceneThing);
    scene->append(new NBX::TextureUnitSettingGL(0, texture(0.4F, 0.6F, 1.0F)));
    scene->append(new NBX::TextureUnitSettingGL(1, texture(1.0F, 0.5F, 0.2F)));
    scene->append(ZMT::UTIL::AmbientOcclusionShaders::getLightingTextureBlendingProgram().get());
    scene->append(square({0, 0, 0}, 64).get());
    const auto found = seen(scene, 10, 10);
    EXPECT_NEAR(255 * 0.6, found[0], 1.5);
    EXPECT_NEAR(255 * 0.45, found[1], 1.5);
    EXPECT_NEAR(255 * 0.3, found[2], 1.5);
}

TEST_F(AmbientOcclusionTest, ASceneIsShownInItsLight) {
    const SO<NBX::SceneThing> scene(new NBX::SceneThing), moved(new NBX::SceneThing);
    scene->append(new NBX::ColorAttribute(NBX::Color(0.8F, 0.4F, 0.0F, 1.0F)));
    scene->append(square({0, 0, 0}, 64).get());
    moved->append(new NBX::Translation({0, 0, 40}));
    moved->append(new NBX::ColorAttribute(NBX::Color(0.0F, 0.0F, 0.4F, 1.0F)));
    moved->append(square({0, 5, 0}, 20).get());
    scene->append(moved.get());
    const auto lit = AmbientOcclusion::applyAmbientOcclusion(scene, zenith(0.5), 1.0);
    ASSERT_TRUE(lit);
    // Half of the light, stretched by 1.5.
    EXPECT_NEAR(0.8 * 0.75 * 255, seen(lit, 50, 10)[0], 2.0);
    EXPECT_NEAR(0.4 * 0.75 * 255, seen(lit, 50, 10)[1], 2.0);
    EXPECT_NEAR(0.4 * 0.75 * 255, seen(lit, 10, 50)[2], 2.0);
    EXPECT_EQ(0, seen(lit, 10, 50)[0]);
    EXPECT_EQ(2u, scene->objects() - 1u) << "the scene stays";
}

TEST_F(AmbientOcclusionTest, TexturesAndWhatIsTranslucentKeepTheirLook) {
    const SO<NBX::MemoryImage> picture(new NBX::MemoryImage(1, 1, NBX::LS_RGB));
    picture->setColor(0, 0, NBX::Color(0.0F, 0.8F, 0.0F, 1.0F));
    const SO<NBX::SceneThing> scene(new NBX::SceneThing), glass(new NBX::SceneThing);
    glass->append(new NBX::ColorAttribute(NBX::Color(0.8F, 0.0F, 0.0F, 0.5F)));
    glass->append(square({0, 5, 0}, 20).get());
    scene->append(glass.get());
    const SO<NBX::SceneThing> ground(new NBX::SceneThing);
    ground->append(new NBX::ImageTexture2DGL(picture));
    ground->append(square({0, 0, 0}, 64).get());
    scene->append(ground.get());
    const auto lit = AmbientOcclusion::applyAmbientOcclusion(scene, zenith(0.5), 1.0);
    ASSERT_TRUE(lit);
    EXPECT_NEAR(0.8 * 0.75 * 255, seen(lit, 50, 10)[1], 2.0);
    // Below the glass it is dark, the glass itself is lit, and blended half and half.
    EXPECT_NEAR(0.5 * 0.8 * 0.75 * 255, seen(lit, 10, 10)[0], 2.0);
    EXPECT_NEAR(0.0, seen(lit, 10, 10)[1], 2.0);
}

/// First what can nearly not be seen, with blending, then the rest.
TEST_F(AmbientOcclusionTest, WhatIsTranslucentIsDrawnTwice) {
    const SO<NBX::SceneThing> scene(new NBX::SceneThing);
    scene->append(new NBX::ColorAttribute(NBX::Color(0.8F, 0.0F, 0.0F, 0.9F)));
    scene->append(square({0, 0, 0}, 64).get());
    const auto lit = AmbientOcclusion::applyAmbientOcclusion(scene, zenith(0.5), 1.0);
    EXPECT_NEAR(0.8 * 0.75 * 255, seen(lit, 50, 10)[0], 2.0) << "not blended with what lies behind";
    const auto found =
        NBX::SceneGraphAnalyzer::findObjects(NBX::ColorBufferGL::ClassNameNBX(), lit.get(), false);
    ASSERT_EQ(3u, found->size());
    const auto state = [&](unsigned i) { return NBX::soCast<NBX::ColorBufferGL>(found->get(i)->object()); };
    EXPECT_TRUE(state(0)->blending().enabled);
    EXPECT_EQ(unsigned(GL_SRC_ALPHA), state(0)->blending().source);
    EXPECT_EQ(unsigned(GL_ONE_MINUS_SRC_ALPHA), state(0)->blending().target);
    for (const auto & [i, function] : {std::pair{1u, GL_LEQUAL}, {2u, GL_GREATER}}) {
        EXPECT_TRUE(state(i)->alphaTest().enabled);
        EXPECT_EQ(unsigned(function), state(i)->alphaTest().function);
        EXPECT_EQ(0.8, state(i)->alphaTest().reference);
    }
}

TEST_F(AmbientOcclusionTest, ColoursOfVerticesStayAndLampsAddNothing) {
    const SO<PolygonSet> ground = square({0, 0, 0}, 64);
    ground->setColorIterator(
        new NBX::Array<NBX::Color>(std::vector<NBX::Color>(6, NBX::Color(0.8F, 0.4F, 0.0F, 1.0F))));
    ground->setNormalIterator(new NBX::Array<V>(std::vector<V>(6, V(0, 1, 0))));
    const SO<NBX::SceneThing> scene(new NBX::SceneThing), inLamplight(new NBX::SceneThing);
    scene->append(ground.get());
    inLamplight->append(new NBX::DistantLight(V(0, 1, 0), NBX::Color::white, 0.25));
    inLamplight->append(AmbientOcclusion::applyAmbientOcclusion(scene, zenith(0.5), 1.0).get());
    EXPECT_NEAR(0.8 * 0.75 * 255, seen(inLamplight, 50, 10)[0], 2.0);
    EXPECT_NEAR(0.4 * 0.75 * 255, seen(inLamplight, 50, 10)[1], 2.0);
    const auto found =
        NBX::SceneGraphAnalyzer::findObjects(PolygonSet::ClassNameNBX(), inLamplight.get(), false);
    EXPECT_TRUE(NBX::soCast<PolygonSet>(found->get(0)->object())->newNormalIterator());
}

TEST_F(AmbientOcclusionTest, WithoutACanvasATemporaryOneIsMade) {
    const SO<NBX::SceneThing> scene(new NBX::SceneThing);
    scene->append(square({0, 0, 0}, 9).get());
    canvas->releaseContext();
    root = nullptr;
    engine = nullptr;
    canvas->destroy();
    canvas = nullptr;
    EXPECT_TRUE(AmbientOcclusion::applyAmbientOcclusion(scene, zenith(0.5), 1.0));
    EXPECT_EQ(1u,
              reports.count(0, L"canvasToUse!=0", L"No appropriate canvas found. Using temporary canvas."));
    reports.clear();
}

TEST_F(AmbientOcclusionTest, NothingIsLeftBehind) {
    fromAbove(square({0, 0, 0}, 64), square({0, 9, 0}, 9));
    engine->freeUnusedDisplayLists();
    const Names names = countNames(2000);
    const std::vector<int> state = stateOfGL();
    fromAbove(square({0, 0, 0}, 64), square({0, 9, 0}, 9));
    engine->freeUnusedDisplayLists();
    EXPECT_EQ(state, stateOfGL());
    EXPECT_EQ(names, countNames(2000));
}

} // namespace
