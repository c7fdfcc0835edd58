// From an image over a file to the screen: what is drawn is what the image has there.

#include <gtest/gtest.h>

#include <support/glfixture.h>
#include <support/temporaryfolder.h>

#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/ortho.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>
#include <zmt/core/terrain/texture/terraintexture.h>
#include <zmt/core/terrain/texture/tiledlodtexture.h>

#include <support/testterrain.h>

#include "heldfile.h"

#include "oblongsource.h"
#include "streamingtexturefile.h"

using namespace ZMT::CORE;
using NBX::SO;
using NBX::TextureGL;
using StreamingTextureFile::Bytes;

namespace {

class StreamingTextureGLTest : public GLFixture {
protected:
    void TearDown() override {
        NBX::MainMemoryManager::instance()->clear();
        NBX::GraphicsMemoryManager::instance()->clear();
        GeoTransformation::setNBXOrigin({});
        GLFixture::TearDown();
    }

    /// In tiles of 72 pixels, for two levels of patches below the root.
    SO<TerrainTexture> texture(StreamingTextureOptions::Pixels pixels, std::uint64_t key) {
        const SO<NBX::File> file(new NBX::File(NBX::File::temporaryFileName("gl-"), NBX::WM_Create));
        EXPECT_TRUE(AsyncQuadtreeTerrainTexture::create(file, OblongSource::patches(2),
                                                        OblongSource::pyramid(), 72, key, {pixels, 1}));
        return AsyncQuadtreeTerrainTexture::load(
            StreamingTextureFile::inMemory(NBX::File::contents(file->fullName())), 0, key);
    }

    /// What OpenGL samples at a place of the map with the texture of a patch.
    std::array<int, 4> sampled(TextureGL & of, double mapX, double mapY) {
        // Drivers may blur with it, even where a texel is larger than a pixel.
        of.setAnisotropy(1.0);
        const auto p = of.getMatrix() * NBX::Vector3Base<double>(mapX - originX, mapY - originY, 0.0);
        glPushAttrib(GL_ALL_ATTRIB_BITS);
        for (const GLenum mode : {GL_PROJECTION, GL_TEXTURE, GL_MODELVIEW}) {
            glMatrixMode(mode);
            glPushMatrix();
            glLoadIdentity();
        }
        glViewport(0, 0, 1, 1);
        glDisable(GL_DEPTH_TEST);
        glDisable(GL_BLEND);
        glDisable(GL_CULL_FACE);
        glEnable(GL_TEXTURE_2D);
        of.bind(engine.get());
        glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
        glBegin(GL_QUADS);
        glTexCoord2d(p.x, p.y);
        for (const auto & [x, y] : {std::pair(-1, -1), std::pair(1, -1), std::pair(1, 1), std::pair(-1, 1)})
            glVertex2i(x, y);
        glEnd();
        std::array<unsigned char, 4> read{};
        glReadPixels(0, 0, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, read.data());
        for (const GLenum mode : {GL_PROJECTION, GL_TEXTURE, GL_MODELVIEW}) {
            glMatrixMode(mode);
            glPopMatrix();
        }
        glPopAttrib();
        return {read[0], read[1], read[2], read[3]};
    }

    /// At the centres of pixels of the finest level, within the patch.
    void expectPicture(TextureGL & of, const NBX::Bounds & patch, int step, int tolerance) {
        for (int y = 1; y < OblongSource::rows; y += step)
            for (int x = 1; x < OblongSource::columns; x += step) {
                const double mapX = OblongSource::minX + (x + 0.5) * OblongSource::pixelX;
                const double mapY = OblongSource::minY + (y + 0.5) * OblongSource::pixelY;
                if (!patch.containsPointInPlane({mapX, 0.0, mapY}, 0, 2)) continue;
                const std::array<int, 4> seen = sampled(of, mapX, mapY);
                const NBX::Color expected = OblongSource::colour(x, y);
                for (unsigned c = 0; c < 2; ++c)
                    ASSERT_NEAR(seen[c], expected[c] * 255.0F, tolerance) << x << " " << y << " " << c;
                ASSERT_EQ(seen[3], 255) << x << " " << y;
            }
    }

    SO<TextureGL> request(const TerrainTexture & of, const GeometryPatch & patch) {
        SO<TextureGL> result;
        bool incomplete = true;
        for (int frame = 0; incomplete && frame < 5; ++frame) {
            incomplete = false;
            TerrainPainterFrameManager::CallBeginFrameCallbacks({nullptr, false});
            result = of.request(&patch, engine.get(), view.get(), 1000, 1000, 1.0, {}, 0.0, false, false,
                                incomplete);
        }
        EXPECT_FALSE(incomplete);
        return result;
    }

    const TemporaryFolder folder;
    const SO<NBX::ViewInfo> view = viewFromAbove(1.0);
    double originX = 0.0, originY = 0.0;
};

TEST_F(StreamingTextureGLTest, TheScreenShowsTheImageWhereItLies) {
    for (const std::uint64_t key : {std::uint64_t(0), std::uint64_t(0x55aa55aa12345678ULL)}) {
        const SO<TerrainTexture> whole = texture(StreamingTextureOptions::P_AsDelivered, key);
        ASSERT_TRUE(whole);
        const auto root = OblongSource::patches(2);
        for (unsigned i = 0; i < 4; ++i)
            for (unsigned k = 0; k < 4; ++k) {
                const SO<GeometryPatch> patch = root->child(i)->child(k);
                expectPicture(*request(*whole, *patch), patch->boundingBox(), 7, 1);
            }
    }
}

TEST_F(StreamingTextureGLTest, ItDoesSoInSceneCoordinates) {
    originX = 990.0;
    originY = 1980.0;
    const SO<TerrainTexture> whole = texture(StreamingTextureOptions::P_AsDelivered, 0);
    GeoTransformation::setNBXOrigin({originX, 3.0, originY});
    const auto patch = FakePatch::oblong(10.0, 20.0, 128.0, 16.0, 0);
    expectPicture(*request(*whole, *patch), NBX::Bounds({1000.0, 0.0, 2000.0}, {1128.0, 0.0, 2016.0}), 5, 1);
}

TEST_F(StreamingTextureGLTest, CompressedTilesLookAlmostTheSame) {
    for (const auto pixels : {StreamingTextureOptions::P_DXT1, StreamingTextureOptions::P_DXT3}) {
        const SO<TerrainTexture> whole = texture(pixels, 0);
        const auto root = OblongSource::patches(2);
        const SO<GeometryPatch> patch = root->child(2)->child(1);
        expectPicture(*request(*whole, *patch), patch->boundingBox(), 5, 12);
    }
}

TEST_F(StreamingTextureGLTest, BeyondTheImageIsNothingThoughItIsGrey) {
    for (const auto pixels : {StreamingTextureOptions::P_AsDelivered, StreamingTextureOptions::P_Luminance,
                              StreamingTextureOptions::P_DXT1}) {
        const SO<TerrainTexture> whole = texture(pixels, 0);
        const auto root = OblongSource::patches(0);
        const SO<TextureGL> shown = request(*whole, *root);
        EXPECT_EQ(sampled(*shown, 1256.0, 2032.0)[3], 255);
        for (const auto & [x, y] : {std::pair(980.0, 2032.0), std::pair(1532.0, 2032.0),
                                    std::pair(1256.0, 1995.0), std::pair(1256.0, 2069.0)})
            EXPECT_EQ(sampled(*shown, x, y)[3], 0) << x << " " << y;
    }
}

// On a terrain, from above: one unit of its 64 a pixel.

class StreamingTextureOnTerrainTest : public StreamingTextureGLTest {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        const auto grid = TestTerrain::grid({65, 65, -0.5, -0.5, 1.0, 1.0},
                                            [](unsigned x, unsigned y) { return (x * 7 + y * 3) % 5; });
        testing::internal::CaptureStderr();
        const auto tree = CreateGeometryTree::create(grid.get(), 200);
        testing::internal::GetCapturedStderr();
        terrain = new Terrain(grid.get(), tree.get());
        const SO<NBX::File> target(new NBX::File(NBX::File::temporaryFileName("gl-"), NBX::WM_Create));
        ASSERT_TRUE(AsyncQuadtreeTerrainTexture::create(target, terrain->root(), picture(), 48, 0));
        file = new HeldFile(NBX::File::contents(target->fullName()));
    }
    void TearDown() override {
        terrain = nullptr;
        file = nullptr;
        StreamingTextureGLTest::TearDown();
    }

    /// Not quite as large as the terrain; its levels go down to one pixel.
    static SO<ZMT::RASTER::TiledGeoImagePyramid> picture() {
        return new ZMT::RASTER::MemoryTiledGeoImagePyramid(OblongSource::image(NBX::LS_RGBA, 240, 120).get(),
                                                           NBX::Bounds({4.0, 8.0, 0.0}, {60.0, 56.0, 0.0}));
    }
    SO<NBX::Image> drawWith(TerrainTexture * texture) {
        root->clear();
        root->append(new NBX::Camera(new NBX::LookAt({32, 30, 32}, {32, 0, 32}, {0, 0, 1}),
                                     new NBX::Ortho(-32, 32, -32, 32, 1, 60)));
        const SO<NBX::Array<SO<TerrainTexture>>> textures(new NBX::Array<SO<TerrainTexture>>);
        textures->append(texture);
        root->append(new DecalTerrainTexturingEffect(textures.get()));
        root->append(terrain.get());
        return draw();
    }
    SO<NBX::Image> drawUntilItRests(SO<NBX::Image> picture) {
        for (int frames = 0; canvas->redisplayPending(); ++frames) {
            EXPECT_LT(frames, 10) << "one for each level of patches";
            if (frames == 10) break;
            picture = draw();
        }
        return picture;
    }
    SO<TerrainTexture> open() { return AsyncQuadtreeTerrainTexture::load(file, 0, 0); }

    SO<Terrain> terrain;
    SO<HeldFile> file;
};

TEST_F(StreamingTextureOnTerrainTest, SnapshotsShowThePictureWithoutWaiting) {
    const SO<NBX::Image> expected = drawWith(SO<TerrainTexture>(new TiledLODTexture(picture().get())).get());
    const SO<TerrainTexture> texture = open();
    const SO<NBX::Image> seen = drawUntilItRests(drawWith(texture.get()));
    // Red follows the columns and green the rows; blue changes from texel to texel.
    for (int y = 10; y < 54; ++y)
        for (int x = 6; x < 58; ++x)
            for (unsigned c = 0; c < 2; ++c)
                ASSERT_NEAR(pixel(expected, x, y)[c], pixel(seen, x, y)[c], 8) << x << " " << y << " " << c;
    for (const auto & [x, y] : {std::pair(1, 32), std::pair(62, 32), std::pair(32, 4), std::pair(32, 60)})
        EXPECT_EQ(pixel(seen, x, y), (std::array<int, 4>{255, 255, 255, 255})) << "the ground beyond";
    EXPECT_EQ(texture->refine(terrain->root().get(), viewFromAbove(1.0).get(), 64, 64, {}, 2.0, false), true);
}

TEST_F(StreamingTextureOnTerrainTest, APictureThatComesLaterIsTheSnapshotAndThenRests) {
    const SO<TerrainTexture> first = open();
    const SO<NBX::Image> expected = drawUntilItRests(drawWith(first.get()));
    NBX::MainMemoryManager::instance()->clear();
    NBX::GraphicsMemoryManager::instance()->clear();

    canvas->setRenderingMode(1);
    const unsigned before = file->asked;
    const SO<TerrainTexture> texture = open();
    SO<NBX::Image> seen = drawWith(texture.get());
    EXPECT_TRUE(canvas->redisplayPending());
    EXPECT_EQ(pixel(seen, 32, 32), (std::array<int, 4>{255, 255, 255, 255})) << "nothing to show yet";
    int frames = 0;
    for (; frames < 200 && canvas->redisplayPending(); ++frames) {
        file->setStates(AsyncFile::RS_Ready);
        seen = draw();
        ASSERT_NE(pixel(seen, 32, 32), (std::array<int, 4>{255, 255, 255, 255})) << "no hole";
    }
    EXPECT_LT(frames, 200);
    EXPECT_GT(frames, 2);
    EXPECT_LE(largestDifference(expected, seen), 1);
    const unsigned asked = file->asked;
    draw();
    EXPECT_EQ(file->asked, asked) << "it rests";
    EXPECT_GT(asked, before);
}

} // namespace
