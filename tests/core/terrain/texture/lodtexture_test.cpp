#include <zmt/core/terrain/texture/lodtexture.h>

#include <cstdlib>
#include <limits>

#include <gtest/gtest.h>

#include <support/glfixture.h>
#include <support/recordedattributes.h>
#include <support/roundtrip.h>

#include "core/terrain/texture/emptytexture.h"
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/nbxtime.h>
#include <zmt/core/misc/thread.h>

#include "fakepyramid.h"

using NBX::Bounds;
using NBX::SO;
using NBX::TextureGL;
using ZMT::CORE::EmptyTexture;
using ZMT::CORE::GeometryPatch;
using ZMT::CORE::LODTexture;
using ZMT::CORE::TerrainPainterFrameManager;
using ZMT::CORE::Thread;
using Point = NBX::Vector3Base<double>;

namespace {

const std::wstring s_deprecated = L"deserialized deprecated class LODTexture";

/// 1024 by 512 pixels: the columns count up in red, the lines in green.
SO<NBX::MemoryImage> ramps() {
    SO<NBX::MemoryImage> image(new NBX::MemoryImage(1024, 512, NBX::LS_RGB));
    for (int y = 0; y < 512; ++y) {
        unsigned char * line = image->lineComponentsU8(y);
        for (int x = 0; x < 1024; ++x, line += 3) {
            line[0] = static_cast<unsigned char>(x / 4);
            line[1] = static_cast<unsigned char>(y / 2);
            line[2] = 0;
        }
    }
    return image;
}

/// The ramps over 2048 by 3072 units from (100, 200), and a quadtree over the same box.
class LODTextureTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        LODTexture::beginFrame({nullptr, false});
    }
    void TearDown() override {
        LODTexture::killManager();
        LODTexture::setMaxTextureMemory(134217728);
        LODTexture::beginFrame({nullptr, false});
        GLFixture::TearDown();
    }

    SO<TextureGL> request(const LODTexture & asked, const GeometryPatch * patch) {
        incomplete = false;
        return asked.request(patch, engine.get(), view.get(), 1000, 1000, 1.0, eye, 0.0, false, asynchronous,
                             incomplete);
    }
    SO<TextureGL> request(const GeometryPatch & patch) { return request(*texture, &patch); }
    bool refine(const GeometryPatch & patch, double textureError) const {
        return texture->refine(&patch, view.get(), 1000, 1000, eye, textureError, false);
    }
    /// What the texture shows at a point of the scene, before filtering.
    static NBX::Color colorAt(const TextureGL & shown, double x, double z) {
        const auto & image = dynamic_cast<const NBX::ImageTexture2DGL &>(shown).getImage();
        const Point p = shown.getMatrix() * Point(x, z, 0.0);
        return image->getColor(static_cast<int>(p.x * image->width()),
                               static_cast<int>(p.y * image->height()));
    }

    const Bounds box{Point(100.0, 0.0, 200.0), Point(2148.0, 10.0, 3272.0)};
    SO<LODTexture> texture{new LODTexture(ramps().get(), box)};
    const SO<FakePatch> tree = FakePatch::oblong(100.0, 200.0, 2048.0, 3072.0, 3);
    const SO<GeometryPatch> child = tree->child(3), grandchild = child->child(0);
    SO<NBX::ViewInfo> view = viewFromAbove(1.0);
    const Point eye{110.0, 0.0, 210.0};
    bool asynchronous = false;
    bool incomplete = false;
};

TEST_F(LODTextureTest, CoversItsBox) {
    EXPECT_EQ(texture->boundingBox(), Bounds(Point(100.0, -1e42, 200.0), Point(2148.0, 1e42, 3272.0)));
    EXPECT_EQ(texture->width(), 1024U);
    EXPECT_EQ(texture->height(), 512U);
    EXPECT_EQ(texture->minFilter(), TextureGL::FM_Linear);
}

TEST_F(LODTextureTest, SplitsAPatchWhoseTexelsAreTooLarge) {
    // Texels of level 0 are 2 by 6 units. The root takes level 2, as its 512 columns of level 1 and two more
    // do not fit; the child takes level 1.
    EXPECT_TRUE(refine(*tree, 23.9));
    EXPECT_FALSE(refine(*tree, 24.0));
    EXPECT_TRUE(refine(*child, 11.9));
    EXPECT_FALSE(refine(*child, 12.0));
    EXPECT_FALSE(refine(*grandchild, 0.0));
    EXPECT_FALSE(refine(*FakePatch::oblong(5000.0, 0.0, 100.0, 50.0, 0), 0.0));
    EXPECT_FALSE(texture->refine(nullptr, view.get(), 1000, 1000, eye, 1.0, false));
    EXPECT_EQ(reports.count(0, L"patch", L"no geometry patch"), 1U) << reports;
    reports.clear();
}

TEST_F(LODTextureTest, ShowsThePartThatLiesUnderThePatch) {
    for (const auto & patch : {SO<GeometryPatch>(tree.get()), child, grandchild}) {
        const SO<TextureGL> shown = request(*patch);
        EXPECT_FALSE(incomplete);
        const Point center = patch->boundingBox().center();
        const NBX::Color color = colorAt(*shown, center.x, center.z);
        EXPECT_NEAR(color[0], (center.x - 100.0) / 2048.0, 0.01);
        EXPECT_NEAR(color[1], (center.z - 200.0) / 3072.0, 0.01);
        EXPECT_EQ(shown->getWrapS(), engine->hasExtension("GL_ARB_texture_border_clamp")
                                         ? TextureGL::WM_ClampToBorder
                                         : TextureGL::WM_ClampToEdge);
    }
    EXPECT_EQ(LODTexture::usedTextureMemory(), (256U * 128 + 512 * 256 + 512 * 512) * 4);
}

/// Whoever prepares without an engine cannot ask what the driver knows.
TEST_F(LODTextureTest, WithoutBordersTexturesAreClampedToTheirEdge) {
    const SO<ZMT::CORE::LODTexture_Image> image(new ZMT::CORE::LODTexture_Image(ramps().get(), 1024, 512));
    const SO<LODTexture::Patch> piece(new LODTexture::Patch(image.get(), box, 0, box, nullptr));
    EXPECT_FALSE(piece->hasBorder);
    LODTexture::Preparer preparer;
    const SO<TextureGL> shown = preparer.call(piece);
    EXPECT_EQ(shown->getWrapS(), TextureGL::WM_ClampToEdge);
    EXPECT_EQ(shown->getWrapT(), TextureGL::WM_ClampToEdge);
    EXPECT_EQ(reports.count(0, L"patch->engine", L""), 1U) << reports;
    EXPECT_EQ(reports.size(), 1U);
    reports.clear();
}

TEST_F(LODTextureTest, APatchThatGotAParentAfterwardsIsServed) {
    const SO<FakePatch> first = FakePatch::oblong(100.0, 200.0, 1024.0, 1536.0, 0);
    const SO<TextureGL> shown = request(*first);
    const std::vector<SO<GeometryPatch>> children{SO<GeometryPatch>(first.get())};
    const SO<FakePatch> above(
        new FakePatch(box, new NBX::Array<SO<GeometryPatch>>(std::vector<SO<GeometryPatch>>(children))));
    EXPECT_EQ(request(*first), shown);

    LODTexture::killManager();
    LODTexture::beginFrame({nullptr, false});
    asynchronous = true;
    EXPECT_FALSE(request(*first)) << "nothing is there yet, and the parent is unknown";
    EXPECT_TRUE(incomplete);
    EXPECT_EQ(reports.count(0, L"mapper_->find(patch, texPatch)", L""), 1U) << reports;
    EXPECT_EQ(reports.count(0, L"false", L"internal error"), 1U) << "it was the root";
    EXPECT_EQ(reports.size(), 2U);
    reports.clear();
}

TEST_F(LODTextureTest, ShowsTheParentUntilTheTextureIsThere) {
    asynchronous = true;
    const SO<TextureGL> ofRoot = request(*tree);
    EXPECT_FALSE(incomplete);
    SO<TextureGL> shown = request(*child);
    EXPECT_EQ(shown, ofRoot);
    EXPECT_TRUE(incomplete);
    for (int i = 0; i < 5000 && incomplete; ++i) {
        LODTexture::endFrame({nullptr, false});
        LODTexture::beginFrame({nullptr, false});
        shown = request(*child);
        Thread::sleep(0.001);
    }
    EXPECT_NE(shown, ofRoot);
}

TEST_F(LODTextureTest, OutsideItShowsNothing) {
    EXPECT_EQ(request(*FakePatch::oblong(5000.0, 0.0, 100.0, 50.0, 0)), EmptyTexture::texture());
    EXPECT_EQ(LODTexture::usedTextureMemory(), 0U);
}

TEST_F(LODTextureTest, MovesToAnotherBox) {
    const std::uint64_t before = texture->lastTransactionNo();
    texture->setBoundingBox(texture->boundingBox());
    EXPECT_EQ(texture->lastTransactionNo(), before);
    request(*tree);
    texture->setBoundingBox(Bounds(Point(0.0, 0.0, 0.0), Point(512.0, 0.0, 128.0)));
    EXPECT_GT(texture->lastTransactionNo(), before);
    EXPECT_EQ(texture->boundingBox(), Bounds(Point(0.0, -1e42, 0.0), Point(512.0, 1e42, 128.0)));
    const SO<TextureGL> shown = request(*FakePatch::oblong(0.0, 0.0, 512.0, 128.0, 0));
    const NBX::Color color = colorAt(*shown, 128.0, 96.0);
    EXPECT_NEAR(color[0], 0.25, 0.01);
    EXPECT_NEAR(color[1], 0.75, 0.01);
    EXPECT_EQ(request(*FakePatch::oblong(1000.0, 1000.0, 512.0, 512.0, 0)), EmptyTexture::texture());
    // Texels of level 0 are 0.5 by 0.25 units; the box takes those of level 2.
    EXPECT_TRUE(refine(*FakePatch::oblong(0.0, 0.0, 512.0, 128.0, 0), 1.9));
    EXPECT_FALSE(refine(*FakePatch::oblong(0.0, 0.0, 512.0, 128.0, 0), 2.01));

    texture->setBoundingBox(Bounds());
    EXPECT_EQ(reports.count(0, L"bbox.isDefined()", L"undefined bbox"), 1U) << reports;
    EXPECT_TRUE(texture->boundingBox().isDefined());
    reports.clear();
}

TEST_F(LODTextureTest, WhatIsMissingIsReported) {
    EXPECT_EQ(request(*texture, nullptr), EmptyTexture::texture());
    EXPECT_EQ(reports.count(0, L"patch", L"no geometry patch"), 1U) << reports;
    texture->request(tree.get(), nullptr, view.get(), 1000, 1000, 1.0, eye, 0.0, false, false, incomplete);
    EXPECT_EQ(reports.count(0, L"engine", L"no engine"), 1U) << reports;
    EXPECT_EQ(reports.count(0, L"patch->engine", L""), 1U) << reports;
    LODTexture::killManager();
    EXPECT_EQ(request(*tree), EmptyTexture::texture());
    EXPECT_EQ(reports.count(0, L"MANAGER", L"manager not started"), 1U) << reports;
    EXPECT_EQ(reports.size(), 4U) << reports;
    reports.clear();
    LODTexture::beginFrame({nullptr, false});

    const SO<LODTexture::Preparer> preparer(new LODTexture::Preparer);
    EXPECT_EQ(preparer->call(nullptr), EmptyTexture::texture());
    EXPECT_EQ(reports.count(0, L"patch", L"no patch"), 1U) << reports;
    EXPECT_EQ(preparer->call(new LODTexture::Patch(nullptr, box, 0, box, engine.get())),
              EmptyTexture::texture());
    EXPECT_EQ(reports.count(0, L"patch->image", L"no image"), 1U) << reports;
    reports.clear();

    const SO<LODTexture> none(new LODTexture(nullptr, Bounds()));
    EXPECT_EQ(reports.count(0, L"image", L"no image"), 1U) << reports;
    EXPECT_EQ(reports.count(0, L"bbox.isDefined()", L"undefined bbox"), 1U) << reports;
    EXPECT_EQ(request(*none, tree.get()), EmptyTexture::texture());
    EXPECT_FALSE(none->refine(tree.get(), view.get(), 1000, 1000, eye, 0.0, false));
    EXPECT_EQ(reports.size(), 2U) << reports;
    reports.clear();
}

TEST_F(LODTextureTest, FramesOfTerrainsStartAndTidyItsManager) {
    LODTexture::killManager();
    TerrainPainterFrameManager::CallBeginFrameCallbacks({engine.get(), false});
    EXPECT_NE(request(*tree), EmptyTexture::texture());
    EXPECT_GT(LODTexture::usedTextureMemory(), 0U);
    texture = nullptr;
    TerrainPainterFrameManager::CallEndFrameCallbacks({engine.get(), false});
    EXPECT_EQ(LODTexture::usedTextureMemory(), 0U);
    EXPECT_EQ(reports.count(L"manager not started"), 0U) << reports;
    reports.clear();
}

TEST_F(LODTextureTest, AnAncestorThatLiesElsewhereIsReported) {
    const SO<FakePatch> inside = FakePatch::oblong(100.0, 200.0, 100.0, 50.0, 0);
    const SO<NBX::Array<SO<GeometryPatch>>> children(new NBX::Array<SO<GeometryPatch>>);
    children->append(inside.get());
    const SO<FakePatch> elsewhere(
        new FakePatch(Bounds(Point(5000.0, 0.0, 0.0), Point(6000.0, 10.0, 1000.0)), children));
    EXPECT_NE(request(*inside), EmptyTexture::texture());
    EXPECT_EQ(reports.count(0, L"curIntersection.isDefined()", L""), 1U) << reports;
    EXPECT_EQ(reports.size(), 1U) << reports;
    reports.clear();
}

TEST_F(LODTextureTest, ABoxTooSmallForItsPixelsShowsNothing) {
    const SO<ZMT::CORE::LODTexture_Image> image(new ZMT::CORE::LODTexture_Image(ramps().get(), 1024, 512));
    const double smallest = std::numeric_limits<double>::denorm_min();
    const Bounds tiny(Point(0.0, 0.0, 0.0), Point(smallest, 0.0, smallest));
    const SO<LODTexture::Preparer> preparer(new LODTexture::Preparer);
    EXPECT_EQ(preparer->call(new LODTexture::Patch(image.get(), tiny, 0, box, engine.get())),
              EmptyTexture::texture());
    EXPECT_EQ(preparer->call(new LODTexture::Patch(image.get(), box, 0, Bounds(), engine.get())),
              EmptyTexture::texture());
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(LODTextureDeathTest, The128MebibytesAreTheBudgetThatNobodySet) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(std::_Exit(static_cast<int>(LODTexture::getMaxTextureMemory() >> 20)),
                testing::ExitedWithCode(128), "");
}

TEST_F(LODTextureTest, AnIdleWorkerEndsAtOnce) {
    asynchronous = true;
    request(*tree);
    request(*child);
    for (int i = 0; i < 5000 && incomplete; ++i) {
        LODTexture::endFrame({nullptr, false});
        LODTexture::beginFrame({nullptr, false});
        request(*child);
        Thread::sleep(0.001);
    }
    ASSERT_FALSE(incomplete);
    const double before = NBX::NBXTime::now();
    LODTexture::killManager();
    EXPECT_LT(NBX::NBXTime::now() - before, 0.5);
}

TEST_F(LODTextureTest, HasABudgetOfItsOwn) {
    EXPECT_EQ(LODTexture::getMaxTextureMemory(), 134217728U);
    LODTexture::setMaxTextureMemory(0x1000000);
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_EQ(LODTexture::getMaxTextureMemory(), 0x1000000U);
    LODTexture::setMaxTextureMemory(0xffffff);
    EXPECT_EQ(reports.count(0, L"newMaxTextureMemory >= 16 * 1024 * 1024",
                            L"newMaxTextureMemory must be >= 16*1024*1024: 16777215"),
              1U)
        << reports;
    reports.clear();
    LODTexture::killManager();
    EXPECT_EQ(LODTexture::usedTextureMemory(), 0U);
}

TEST_F(LODTextureTest, IsReadFromOldScenesWithAWarning) {
    EXPECT_EQ(RecordedAttributes::of(*texture),
              (std::vector<std::string>{"srcSizeX", "srcSizeY", "bbox", "images", "bboxes", "texelSizeX",
                                        "texelSizeY"}));
    texture->setBoundingBox(Bounds(Point(0.0, 0.0, 0.0), Point(512.0, 0.0, 512.0)));
    const SO<LODTexture> read = roundTrip(texture);
    ASSERT_TRUE(read);
    EXPECT_EQ(reports.count(2, L"false", s_deprecated), 1U) << reports;
    EXPECT_EQ(reports.size(), 1U) << reports;
    reports.clear();
    EXPECT_EQ(read->boundingBox(), texture->boundingBox());
    EXPECT_EQ(read->width(), 1024U);
    EXPECT_EQ(read->height(), 512U);
    const SO<FakePatch> patch = FakePatch::oblong(0.0, 0.0, 512.0, 512.0, 0);
    const SO<TextureGL> a = request(*texture, patch.get()), b = request(*read, patch.get());
    EXPECT_EQ(colorAt(*a, 100.0, 300.0), colorAt(*b, 100.0, 300.0));
    EXPECT_EQ(a->getMatrix(), b->getMatrix());
}

TEST_F(LODTextureTest, SurvivesDamagedStreams) {
    const SO<NBX::MemoryImage> small(new NBX::MemoryImage(3, 2, NBX::LS_RGB));
    const SO<LODTexture> stored(new LODTexture(small.get(), box));
    const std::vector<std::uint8_t> bytes = NBX::ObjectStreamWriter::write(*stored, false);
    // Each attempt makes files, so only some bytes are tried.
    for (std::size_t i = 0; i < bytes.size(); i += 11) {
        std::vector<std::uint8_t> damaged = bytes;
        damaged[i] = static_cast<std::uint8_t>(damaged[i] ^ 255);
        try {
            const auto read =
                NBX::soCast<LODTexture>(NBX::ObjectStreamReader(damaged.data(), damaged.size()).read());
            if (read) {
                EXPECT_TRUE(request(*read, tree.get()));
            }
        } catch (const std::exception &) {
        }
    }
    reports.clear();
}

} // namespace
