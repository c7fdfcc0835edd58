#include <zmt/core/terrain/texture/vector/vectortexture.h>

#include <cmath>

#include <support/readingstream.h>
#include <support/recordedattributes.h>
#include <support/roundtrip.h>
#include <support/slotorder.h>

#include "core/terrain/texture/vector/vectortexturerenderer.h"
#include <nbx/scene/attribute/contextdata.h>

#include "vectortexturetest.h"

using NBX::Bounds;
using NBX::SO;
using NBX::TextureGL;
using ZMT::CORE::GeometryPatch;
using ZMT::CORE::TerrainPainterFrameManager;
using ZMT::CORE::VectorTexture;
using ZMT::CORE::VectorTextureTables;
using Point = NBX::Vector3Base<double>;

namespace {

class VectorTextureTest : public VectorTextureFixture {
protected:
    static VectorTextureTables & tables() { return VectorTextureTables::instance(); }
    static Bounds & seen() { return TerrainPainterFrameManager::bboxOfLastRenderedGeometryPatches(); }

    bool refine(const GeometryPatch & patch, double error) const {
        return texture->refine(&patch, view.get(), 1000, 1000, eye, error, false);
    }
    /// The widths of the patches that wait, with their priorities, in the order in which they came.
    std::vector<std::pair<double, double>> waiting() const {
        std::vector<std::pair<double, double>> result;
        const auto & queue = tables().queue();
        for (unsigned i = 0; i < queue.size(); ++i)
            result.emplace_back(queue.key(i)->boundingBox().diagonal().x,
                                std::round(queue.value(i) * 1e6) / 1e6);
        return result;
    }
    /// The widths, without margins, of what was drawn.
    std::vector<double> widths() const {
        std::vector<double> result;
        for (const Bounds & box : texture->boxes)
            result.push_back(std::round(box.diagonal().x * 65.0 / 97.0));
        return result;
    }
    /// One frame, at rest, that asks for a patch.
    SO<TextureGL> frame(const GeometryPatch & patch) {
        begin(engine.get());
        const SO<TextureGL> shown = request(patch);
        end(engine.get());
        return shown;
    }

    using Widths = std::vector<double>;
    using Waiting = std::vector<std::pair<double, double>>;
};

TEST_F(VectorTextureTest, StartsWithTheValuesOfItsClass) {
    VectorTexture::releaseSharedObjects();
    EXPECT_EQ(texture->minFilter(), TextureGL::FM_LinearMipmapLinear);
    EXPECT_EQ(texture->magFilter(), TextureGL::FM_Linear);
    EXPECT_EQ(texture->getInternalFormat(), s_rgba4);
    EXPECT_EQ(VectorTexture::getMaxTexturePatches(), 35U);
    EXPECT_EQ(texture->getGraph(), scene.get());
    EXPECT_TRUE(texture->getCaching());
    EXPECT_FALSE(texture->getCulling());
    EXPECT_EQ(texture->getMaxDepth(), 10U);
    EXPECT_EQ(texture->boundingBox(), Bounds(Point(0.0, -1e42, 0.0), Point(1024.0, 1e42, 1024.0)))
        << "heights do not count";
}

TEST_F(VectorTextureTest, ASceneAndAnAreaAreNeeded) {
    const SO<VectorTexture> none(new VectorTexture(nullptr, Bounds(), false, false, true, true, 3, 0));
    EXPECT_EQ(reports.count(0, L"graph_", L"no scene graph"), 1U) << reports;
    EXPECT_EQ(reports.count(0, L"bbox.isDefined()", L"undefined bounding box"), 1U) << reports;
    none->setBoundingBox(Bounds());
    EXPECT_EQ(reports.count(0, L"bbox.isDefined()", L"bbox not defined"), 1U) << reports;
    EXPECT_EQ(reports.size(), 3U) << reports;
    reports.clear();
    EXPECT_TRUE(request(*none, tree.get()));
    EXPECT_EQ(drawn(), 0U);
}

TEST_F(VectorTextureTest, ARequestWithoutPatchOrEngineIsReported) {
    const SO<TextureGL> empty = request(*texture, nullptr);
    EXPECT_EQ(reports.count(0, L"patch", L"no geometry-patch"), 1U) << reports;
    EXPECT_EQ(
        texture->request(tree.get(), nullptr, view.get(), 10, 10, 1.0, eye, 1.0, false, false, incomplete),
        empty);
    EXPECT_EQ(reports.count(0, L"engine", L"no engine"), 1U) << reports;
    EXPECT_FALSE(texture->refine(nullptr, view.get(), 10, 10, eye, 1.0, false));
    EXPECT_EQ(reports.size(), 3U) << reports;
    reports.clear();
}

TEST_F(VectorTextureTest, APatchOutsideTheAreaShowsNothingAndCostsNothing) {
    const SO<TextureGL> empty = request(*FakePatch::oblong(5000.0, 0.0, 100.0, 100.0, 0));
    ASSERT_TRUE(empty);
    EXPECT_EQ(empty->getBorderColor(), NBX::Color(1.0F, 1.0F, 1.0F, 0.0F));
    EXPECT_EQ(request(*FakePatch::oblong(0.0, -200.0, 100.0, 100.0, 0)), empty);
    EXPECT_EQ(request(*FakePatch::oblong(10.0, 10.0, 0.0, 100.0, 0)), empty) << "it has no area";
    EXPECT_EQ(drawn(), 0U);
    EXPECT_FALSE(refine(*FakePatch::oblong(5000.0, 0.0, 100.0, 100.0, 0), 0.0));
    // Each object has one of its own.
    const SO<RecordingVectorTexture> other = newTexture();
    EXPECT_NE(request(*other, FakePatch::oblong(5000.0, 0.0, 100.0, 100.0, 0).get()), empty);
}

TEST_F(VectorTextureTest, AreasAndPatchesOfDifferentHeightMeet) {
    texture->setBoundingBox(Bounds(Point(0.0, -50.0, 0.0), Point(1024.0, -50.0, 1024.0)));
    request(*tree);
    EXPECT_EQ(drawn(), 1U);
}

TEST_F(VectorTextureTest, SplitsAPatchWhoseTexelsAreLargeOnTheScreen) {
    EXPECT_TRUE(refine(*tree, 16.0)) << "as large as is allowed";
    EXPECT_FALSE(refine(*tree, 16.01));
    EXPECT_TRUE(refine(*below(5), 0.5)) << "at any depth";
    EXPECT_TRUE(refine(*FakePatch::oblong(0.0, 0.0, 64.0, 128.0, 0), 1.999)) << "the longer side counts";
    EXPECT_FALSE(refine(*FakePatch::oblong(0.0, 0.0, 64.0, 128.0, 0), 2.01));
    EXPECT_TRUE(refine(*FakePatch::oblong(0.0, 0.0, 128.0, 64.0, 0), 1.999));
}

TEST_F(VectorTextureTest, WithDepth0AllPatchesShareTheTextureOfTheTop) {
    texture->setMaxDepth(0);
    const SO<TextureGL> top = request(*tree);
    EXPECT_EQ(request(*below(1)), top);
    EXPECT_EQ(request(*below(5)), top);
    EXPECT_EQ(widths(), Widths{1024.0});
}

TEST_F(VectorTextureTest, BelowItsDepthPatchesShareTheTextureOfTheirAncestor) {
    texture->setMaxDepth(2);
    const SO<TextureGL> shared = request(*below(2));
    EXPECT_EQ(request(*below(4)), shared);
    EXPECT_NE(request(*below(1)), shared);
    EXPECT_EQ(widths(), (Widths{256.0, 512.0}));
}

TEST_F(VectorTextureTest, AncestorsWaitWithHalvedPrioritiesAndTheFourthIsDrawnInTheFrame) {
    asynchronous = true;
    priority = 8.0;
    const SO<TextureGL> shown = request(*below(5));
    EXPECT_TRUE(incomplete);
    // A texel of the patch of 32 units is half a pixel.
    EXPECT_EQ(waiting(), (Waiting{{32.0, 4.0}, {64.0, 4.0}, {128.0, 4.0}}));
    EXPECT_EQ(widths(), Widths{256.0});
    ASSERT_TRUE(shown);
    // Asked for again, it counts twice, and its ancestor has its texture.
    EXPECT_EQ(request(*below(5)), shown);
    EXPECT_EQ(waiting(), (Waiting{{32.0, 8.0}, {64.0, 8.0}, {128.0, 8.0}}));
    EXPECT_EQ(drawn(), 1U);
}

TEST_F(VectorTextureTest, WhatWaitsIsDrawnAtRestTheMostWantedFirst) {
    asynchronous = true;
    begin(engine.get());
    request(*below(3));
    request(*below(3)->child(3));
    end(engine.get(), true);
    EXPECT_EQ(widths(), (Widths{1024.0, 512.0})) << "nothing that waits, in motion";
    // 2 + 0.5 * 2, 0.5 * 4 + 0.25 * 4, 1; that of 512 units waits no more.
    EXPECT_EQ(waiting(), (Waiting{{128.0, 3.0}, {256.0, 3.0}, {64.0, 1.0}}));
    tables().enqueue(tables().queue().key(2), 2.5);
    tables().enqueue(tables().queue().key(0), 0.1);
    end(engine.get());
    EXPECT_EQ(widths(), (Widths{1024.0, 512.0, 64.0, 128.0, 256.0}));
    EXPECT_EQ(tables().queueLength(), 0U);
    request(*below(3));
    EXPECT_FALSE(incomplete);
    EXPECT_EQ(drawn(), 5U);
}

TEST_F(VectorTextureTest, WhereNothingMayComeLaterTheFirstRequestDraws) {
    request(*below(4));
    EXPECT_FALSE(incomplete);
    EXPECT_EQ(widths(), Widths{64.0});
    EXPECT_EQ(tables().queueLength(), 0U);
}

TEST_F(VectorTextureTest, AnErrorOf0DrawsEveryRequestedPatchAtOnce) {
    asynchronous = true;
    textureError = 0.0;
    request(*below(5));
    request(*below(3));
    EXPECT_FALSE(incomplete);
    EXPECT_EQ(widths(), (Widths{32.0, 128.0}));
}

TEST_F(VectorTextureTest, AnAncestorThatIsFineEnoughServes) {
    textureError = 4.0;
    request(*below(5));
    EXPECT_EQ(widths(), Widths{256.0}) << "its texels are of 4 pixels";
    textureError = 3.99;
    request(*below(5));
    EXPECT_EQ(widths(), (Widths{256.0, 128.0}));
}

TEST_F(VectorTextureTest, ATextureIsDrawnOnceWhileItIsKept) {
    for (int i = 0; i < 5; ++i)
        for (unsigned depth = 0; depth <= 5; ++depth)
            frame(*below(depth));
    EXPECT_EQ(drawn(), 6U);
}

TEST_F(VectorTextureTest, AnotherSizeDropsTheTexturesAndTheCanvas) {
    asynchronous = true;
    request(*below(5));
    EXPECT_EQ(tables().textureCount(), 1U);
    EXPECT_EQ(tables().queueLength(), 3U);
    newTexture()->setBufferSize(33);
    EXPECT_EQ(texture->getBufferSize(), 33U) << "of the whole class";
    EXPECT_EQ(tables().textureCount(), 0U);
    EXPECT_EQ(tables().queueLength(), 0U);
    textureError = 0.0;
    const auto shown = NBX::soCast<NBX::Texture2DGL>(request(*tree));
    ASSERT_TRUE(shown);
    EXPECT_EQ(shown->getWidth(), 33U);
    texture->setBufferSize(1);
    EXPECT_EQ(reports.count(0, L"size >= s_leastSize", L"a texture of 1 texels cannot be drawn"), 1U)
        << reports;
    reports.clear();
    EXPECT_EQ(texture->getBufferSize(), 33U);
}

TEST_F(VectorTextureTest, ClearingTheCacheDrawsAnew) {
    request(*tree);
    const std::uint64_t before = texture->lastTransactionNo();
    texture->clearCache();
    EXPECT_GT(texture->lastTransactionNo(), before);
    EXPECT_EQ(tables().textureCount(), 0U);
    request(*tree);
    EXPECT_EQ(drawn(), 2U);
}

TEST_F(VectorTextureTest, SettersTellThatSomethingChanged) {
    const auto tells = [&](auto change) {
        const std::uint64_t before = texture->lastTransactionNo();
        change();
        return texture->lastTransactionNo() > before;
    };
    const SO<NBX::SceneThing> other(new NBX::SceneThing);
    EXPECT_TRUE(tells([&] { texture->setCaching(false); }));
    EXPECT_TRUE(tells([&] { texture->setCulling(true); }));
    EXPECT_TRUE(tells([&] { texture->setMaxDepth(1); }));
    EXPECT_TRUE(tells([&] { texture->setGraph(other.get()); }));
    EXPECT_TRUE(tells([&] { texture->setInternalFormat(s_rgba8); }));
    EXPECT_TRUE(tells([&] { texture->setBoundingBox(square); }));
    EXPECT_FALSE(tells([&] { texture->setInternalFormat(s_rgba8); })) << "it is so already";
    EXPECT_FALSE(texture->getCaching());
    EXPECT_TRUE(texture->getCulling());
    EXPECT_EQ(texture->getGraph(), other.get());
    EXPECT_EQ(newTexture()->getInternalFormat(), s_rgba8) << "of the whole class";
    texture->setInternalFormat(1234);
    EXPECT_EQ(texture->getInternalFormat(), s_rgba8);
    EXPECT_EQ(reports.count(0, L"isFormat", L"textures cannot have the internal format 1234"), 1U) << reports;
    reports.clear();
}

TEST_F(VectorTextureTest, AnotherSceneOrDepthForgetsThePatches) {
    request(*below(2));
    texture->setGraph(new NBX::SceneThing);
    EXPECT_EQ(tables().textureCount(), 0U);
    request(*below(2));
    EXPECT_EQ(drawn(), 2U);
    texture->setMaxDepth(1);
    request(*below(2));
    EXPECT_EQ(widths(), (Widths{256.0, 256.0, 512.0}));
}

TEST_F(VectorTextureTest, WhatATextureLeavesBehindItTakesWithIt) {
    asynchronous = true;
    request(*below(5));
    EXPECT_EQ(tables().textureCount(), 1U);
    EXPECT_EQ(tables().queueLength(), 3U);
    const VectorTexture * const place = texture.get();
    const SO<VectorTexture::Mapper> mapper(new VectorTexture::Mapper);
    tables().enter(texture.get(), mapper.get());
    EXPECT_TRUE(tables().activate(place));
    texture = nullptr;
    EXPECT_EQ(mapper->references(), 1);
    EXPECT_TRUE(tables().activate(place)) << "the next object may have its place";
    tables().leave(const_cast<VectorTexture *>(place));
    EXPECT_EQ(tables().textureCount(), 0U);
    EXPECT_EQ(tables().queueLength(), 0U) << "it was removed while it waited";
    end(engine.get());
    EXPECT_EQ(drawn(), 1U);
}

TEST_F(VectorTextureTest, TheOnesNotUsedForLongestGiveWay) {
    VectorTexture::setMaxTexturePatches(3);
    textureError = 0.0;
    for (unsigned depth = 0; depth < 3; ++depth)
        frame(*below(depth));
    begin(engine.get());
    begin(engine.get());
    frame(*below(0)); // used again
    end(engine.get());
    frame(*below(3));
    EXPECT_EQ(tables().textureCount(), 3U);
    EXPECT_EQ(drawn(), 4U);
    frame(*below(0));
    frame(*below(2));
    EXPECT_EQ(drawn(), 4U) << "they are still there";
    frame(*below(1));
    EXPECT_EQ(drawn(), 5U);
}

TEST_F(VectorTextureTest, APictureDoesNotDropWhatItHasDrawn) {
    VectorTexture::setMaxTexturePatches(2);
    textureError = 0.0;
    frame(*below(0));
    begin(engine.get());
    for (unsigned depth = 1; depth <= 5; ++depth)
        request(*below(depth));
    for (unsigned depth = 1; depth <= 5; ++depth)
        request(*below(depth));
    end(engine.get());
    EXPECT_EQ(drawn(), 6U);
    EXPECT_EQ(tables().textureCount(), 6U);
    for (unsigned i = 0; i < 3; ++i)
        frame(*below(0));
    EXPECT_EQ(tables().textureCount(), 2U) << "what no picture uses goes";
}

TEST_F(VectorTextureTest, ALongFlightInMotionTakesNoMoreThanItsShare) {
    VectorTexture::setMaxTexturePatches(4);
    asynchronous = true;
    inMotion = true;
    textureError = 0.0;
    const SO<FakePatch> wide = FakePatch::oblong(0.0, 0.0, 1024.0, 1024.0, 3);
    for (unsigned i = 0; i < 64; ++i) {
        begin(engine.get(), true);
        request(*wide->child(i / 16)->child(i / 4 % 4)->child(i % 4));
        end(engine.get(), true);
        EXPECT_LE(tables().textureCount() + tables().poolSize(), 5U);
    }
    EXPECT_EQ(drawn(), 64U);
}

TEST_F(VectorTextureTest, OneTextureIsKeptAtLeast) {
    VectorTexture::setMaxTexturePatches(0);
    EXPECT_EQ(VectorTexture::getMaxTexturePatches(), 1U);
}

TEST_F(VectorTextureTest, AViewThatDoesNotFitComesToRest) {
    VectorTexture::setMaxTexturePatches(2);
    asynchronous = true;
    bool wasIncomplete = true;
    unsigned long drawnAtLast = 0;
    for (unsigned i = 0; i < 12; ++i) {
        begin(engine.get());
        wasIncomplete = false;
        for (unsigned child = 0; child < 4; ++child) {
            request(*below(1)->child(child));
            wasIncomplete = wasIncomplete || incomplete;
        }
        end(engine.get());
        if (i == 8) drawnAtLast = drawn();
    }
    EXPECT_FALSE(wasIncomplete) << "nothing more comes";
    EXPECT_TRUE(VectorTexture::needsMoreTexturePatches());
    EXPECT_EQ(drawn(), drawnAtLast);
    EXPECT_LE(tables().textureCount(), 3U);
    // What there is room for now comes, and is announced.
    VectorTexture::setMaxTexturePatches(35);
    canvas->redisplay();
    begin(engine.get());
    for (unsigned child = 0; child < 4; ++child)
        request(*below(1)->child(child));
    EXPECT_FALSE(canvas->redisplayPending());
    end(engine.get());
    EXPECT_GT(drawn(), drawnAtLast);
    EXPECT_TRUE(canvas->redisplayPending());
    EXPECT_FALSE(VectorTexture::needsMoreTexturePatches());
}

TEST_F(VectorTextureTest, WhatAnEarlierMovingViewWantedIsForgotten) {
    asynchronous = true;
    begin(engine.get(), true);
    request(*below(3)->child(3));
    end(engine.get(), true);
    begin(engine.get(), true);
    request(*below(3)->child(0));
    end(engine.get(), true);
    begin(engine.get());
    end(engine.get());
    EXPECT_EQ(std::count(texture->boxes.begin(), texture->boxes.end(),
                         ZMT::CORE::VectorTextureRenderer::widened(below(3)->child(3)->boundingBox())),
              0);
    EXPECT_EQ(std::count(texture->boxes.begin(), texture->boxes.end(),
                         ZMT::CORE::VectorTextureRenderer::widened(below(4)->boundingBox())),
              1);
}

TEST_F(VectorTextureTest, WithoutCachingAViewInMotionHasOneTextureForEachPicture) {
    texture = newTexture(false);
    inMotion = true;
    const Bounds box(Point(100.0, 0.0, 200.0), Point(300.0, 50.0, 280.0));
    SO<TextureGL> shown;
    for (int i = 0; i < 3; ++i) {
        // As painters do: the box of what the last picture drew is empty when the next one begins.
        seen() = Bounds();
        begin(engine.get(), true);
        const SO<TextureGL> first = request(*below(2));
        EXPECT_EQ(request(*below(2)->child(3)), first);
        EXPECT_EQ(request(*below(1)), first);
        EXPECT_EQ(request(*tree->child(3)) == first, i == 0) << "it was not seen";
        seen() = box;
        end(engine.get(), true);
        shown = first;
    }
    EXPECT_EQ(drawn(), 3U);
    EXPECT_EQ(tables().poolSize(), 1U) << "the one of the last picture but one is drawn into again";
    EXPECT_NEAR(texture->boxes[0].diagonal().x, 1024.0 * 97.0 / 65.0, 1e-9) << "no picture came before";
    const Bounds widened = ZMT::CORE::VectorTextureRenderer::widened(box);
    EXPECT_EQ(texture->boxes[2].getLLF().x, widened.getLLF().x);
    EXPECT_EQ(texture->boxes[2].getLLF().z, widened.getLLF().z);
    EXPECT_EQ(texture->boxes[2].diagonal().x, widened.diagonal().x);
    EXPECT_EQ(texture->boxes[2].diagonal().z, widened.diagonal().z);
    EXPECT_EQ(tables().textureCount(), 0U) << "it stays out of the table";
    const Point corner = shown->getMatrix() * Point(100.0, 200.0, 0.0);
    EXPECT_NEAR(corner.x, 16.0 / 97.0, 1e-12);
    EXPECT_NEAR(corner.y, 16.0 / 97.0, 1e-12);
}

TEST_F(VectorTextureTest, TerrainsOfOneMovingPictureShareTheTexture) {
    texture = newTexture(false);
    inMotion = true;
    const SO<NBX::Attribute> picture(
        new NBX::ContextData<NBX::Canvas *>(NBX::Canvas::ClassNameNBX(), nullptr));
    const NBX::AttributeScope scope(engine.get(), picture.get());
    for (int terrain = 0; terrain < 2; ++terrain) {
        begin(engine.get(), true);
        request(*tree);
        end(engine.get(), true);
    }
    EXPECT_EQ(drawn(), 1U);
}

TEST_F(VectorTextureTest, TheBoxThatIsKnownWhenAMovingFrameBeginsCounts) {
    texture = newTexture(false);
    inMotion = true;
    seen() = Bounds(Point(0.0, 0.0, 0.0), Point(64.0, 0.0, 64.0));
    begin(engine.get(), true);
    request(*tree);
    EXPECT_EQ(widths(), Widths{64.0});
}

TEST_F(VectorTextureTest, OverlaysBesideEachOtherMoveWithBoxesOfTheirOwn) {
    const SO<RecordingVectorTexture> first = newTexture(false), second = newTexture(false);
    second->setBoundingBox(Bounds(Point(512.0, 0.0, 0.0), Point(1024.0, 0.0, 512.0)));
    inMotion = true;
    begin(engine.get(), true);
    request(*first, tree.get());
    request(*second, tree.get());
    EXPECT_EQ(second->boxes.at(0), ZMT::CORE::VectorTextureRenderer::widened(second->boundingBox()));
}

TEST_F(VectorTextureTest, WithoutCachingPatchesHaveTheirTexturesAtRest) {
    texture = newTexture(false);
    const std::uint64_t before = texture->lastTransactionNo();
    frame(*below(2));
    EXPECT_GT(texture->lastTransactionNo(), before);
    EXPECT_EQ(widths(), Widths{256.0});
    const std::uint64_t again = texture->lastTransactionNo();
    frame(*below(2));
    EXPECT_EQ(texture->lastTransactionNo(), again) << "it is in the set until a moving frame empties that";
    EXPECT_EQ(drawn(), 1U);
}

TEST_F(VectorTextureTest, PatchesThatTheSceneDoesNotTouchCostNothing) {
    add(line(Point(700.0, 9000.0, 700.0), Point(900.0, 9000.0, 900.0)).get(), NBX::Color::red);
    texture = newTexture(true, true);
    const SO<TextureGL> empty = request(*below(1));
    EXPECT_EQ(drawn(), 0U);
    EXPECT_EQ(request(*below(3)), empty) << "nor do those below";
    EXPECT_EQ(texture->timesAsked, 1U) << "which is known without a look at the scene";
    EXPECT_NE(request(*tree->child(3)), empty) << "at whatever height";
    EXPECT_NE(request(*tree->child(3)), empty);
    EXPECT_EQ(texture->timesAsked, 2U) << "a patch that has a texture is not asked for again";
    EXPECT_EQ(drawn(), 1U);
    add(line(Point(0.0, 0.0, 0.0), Point(10.0, 0.0, 10.0)).get(), NBX::Color::red);
    EXPECT_EQ(request(*below(1)), empty) << "nobody said that the scene changed";
    texture->clearCache();
    EXPECT_NE(request(*below(1)), empty);
}

TEST_F(VectorTextureTest, WhatReachesIntoTheMarginIsDrawn) {
    add(line(Point(520.0, 0.0, 100.0), Point(520.0, 0.0, 200.0)).get(), NBX::Color::red);
    texture = newTexture(true, true);
    request(*below(1));
    EXPECT_EQ(drawn(), 1U) << "8 units beside the patch, where a texel is 8 units";
    EXPECT_EQ(request(*tree->child(2)), request(*tree->child(2)->child(0)));
    EXPECT_EQ(drawn(), 1U) << "from 512 northwards there is nothing";
}

/// Lines have their width in texels, and those of the texture above are larger.
TEST_F(VectorTextureTest, WhatTheTextureThatServesShowsIsNotCutAtPatchesBesideIt) {
    add(line(Point(100.0, 0.0, 0.0), Point(100.0, 0.0, 1024.0)).get(), NBX::Color::red);
    const SO<GeometryPatch> beside = below(2)->child(1)->child(0)->child(0); // from 128 to 160
    texture = newTexture(true, true);
    textureError = 16.0;
    const SO<TextureGL> top = request(*tree);
    EXPECT_EQ(request(*beside), top);
    EXPECT_EQ(drawn(), 1U);
    textureError = 0.001;
    EXPECT_NE(request(*beside), top) << "its own texels do not reach so far";
    EXPECT_EQ(drawn(), 1U) << "nor do they cost anything";
    textureError = 16.0;
    EXPECT_EQ(request(*beside), top) << "whatever was found nearby";
    texture = newTexture(true, true, 0);
    textureError = 0.001;
    EXPECT_EQ(request(*beside), request(*tree)) << "as deep as textures go";
}

TEST_F(VectorTextureTest, PatchesThatNobodyElseHoldsAreLetGo) {
    add(line(Point(700.0, 0.0, 700.0), Point(900.0, 0.0, 900.0)).get(), NBX::Color::red);
    texture = newTexture(true, true);
    textureError = 0.0;
    NBX::WO<GeometryPatch> root, leaf;
    {
        const SO<FakePatch> gone = FakePatch::oblong(0.0, 0.0, 1024.0, 1024.0, 3);
        root = NBX::WO<GeometryPatch>(gone.get());
        leaf = NBX::WO<GeometryPatch>(gone->child(3)->child(3)->child(0));
        request(*leaf.lock());
        request(*gone->child(0));
        begin(engine.get());
        end(engine.get());
        EXPECT_EQ(tables().textureCount(), 1U) << "somebody holds them";
    }
    EXPECT_TRUE(leaf);
    request(*tree->child(3));
    end(engine.get());
    EXPECT_FALSE(root);
    EXPECT_FALSE(leaf);
    EXPECT_EQ(tables().textureCount(), 1U) << "that of the terrain that is there";
}

TEST_F(VectorTextureTest, ASceneThatShowsItselfEnds) {
    SO<TextureGL> inner;
    const SO<NBX::SceneNode> asking(new LookingNode([&](NBX::Engine &) { inner = request(*below(1)); }));
    scene->append(asking.get());
    const SO<TextureGL> outer = request(*tree);
    EXPECT_EQ(drawn(), 1U);
    ASSERT_TRUE(inner);
    EXPECT_NE(inner, outer);
    scene->clear();
}

TEST_F(VectorTextureTest, OperationsStandInTheirSlots) {
    EXPECT_TRUE(inSlotOrder(
        static_cast<Bounds (ZMT::CORE::TerrainTexture::*)() const>(&VectorTexture::boundingBox),
        &VectorTexture::setBoundingBox, &VectorTexture::getGraph, &VectorTexture::setGraph,
        &VectorTexture::clearCache, &VectorTexture::setCaching, &VectorTexture::getCaching,
        &VectorTexture::setCulling, &VectorTexture::getCulling, &VectorTexture::setMaxDepth,
        &VectorTexture::getMaxDepth, &VectorTexture::setInternalFormat, &VectorTexture::getInternalFormat,
        &VectorTexture::setBufferSize, &VectorTexture::getBufferSize, &VectorTexture::render));
}

TEST_F(VectorTextureTest, IsStoredWithTheValuesOfItsClass) {
    EXPECT_TRUE(NBX::SerializationManager::isRegistered(VectorTexture::ClassNameNBX()));
    EXPECT_EQ(RecordedAttributes::of(*texture),
              (std::vector<std::string>{"graph", "bbox", "caching", "culling", "maxDepth",
                                        "pBufferTextureFormat", "pBufferCanvasSize", "maxTexturePatches"}));
    const SO<VectorTexture> stored(
        new VectorTexture(scene.get(), square, false, false, false, true, 7, s_rgba8));
    VectorTexture::setMaxTexturePatches(12);
    const std::vector<std::uint8_t> bytes = NBX::ObjectStreamWriter::write(*stored, false);
    VectorTexture::setMaxTexturePatches(35);
    stored->setInternalFormat(s_rgba4);
    stored->setBufferSize(33);
    const auto read = NBX::soCast<VectorTexture>(NBX::ObjectStreamReader(bytes.data(), bytes.size()).read());
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->getGraph());
    EXPECT_EQ(read->boundingBox(), stored->boundingBox());
    EXPECT_FALSE(read->getCaching());
    EXPECT_TRUE(read->getCulling());
    EXPECT_EQ(read->getMaxDepth(), 7U);
    EXPECT_EQ(stored->getInternalFormat(), s_rgba8);
    EXPECT_EQ(stored->getBufferSize(), 65U);
    EXPECT_EQ(VectorTexture::getMaxTexturePatches(), 12U);
}

TEST_F(VectorTextureTest, VisitorsComeToItsScene) {
    std::vector<NBX::Visitable *> children;
    texture->acceptChildren(children);
    EXPECT_EQ(std::count(children.begin(), children.end(), scene.get()), 1);
}

TEST_F(VectorTextureTest, ReadIntoAgainItForgetsWhatItHasDrawn) {
    request(*tree);
    ReadingStream stream;
    stream.boxes["bbox"] = Bounds(Point(0.0, 50.0, 0.0), Point(64.0, 60.0, 64.0));
    texture->serialize(stream);
    EXPECT_EQ(tables().textureCount(), 0U);
    EXPECT_EQ(texture->boundingBox(), Bounds(Point(0.0, -1e42, 0.0), Point(64.0, 1e42, 64.0)));
}

/// Has the numbers that it is given, and nothing else.
class NumbersStream : public ReadingStream {
public:
    using ReadingStream::attribute;
    bool attribute(const char * name, unsigned & value) override {
        const auto found = numbers.find(name);
        if (found == numbers.end()) return false;
        value = found->second;
        return true;
    }
    std::map<std::string, unsigned> numbers;
};

TEST_F(VectorTextureTest, TheSameValuesOfTheClassLeaveTheTexturesOfOthers) {
    request(*tree);
    NumbersStream stream;
    stream.numbers = {
        {"pBufferTextureFormat", s_rgba4}, {"pBufferCanvasSize", 65}, {"maxTexturePatches", 35}};
    newTexture()->serialize(stream);
    EXPECT_EQ(tables().textureCount(), 1U);
}

TEST_F(VectorTextureTest, ValuesOfTheClassThatNobodyCanMeanAreNotTaken) {
    for (const unsigned size : {0U, 1U, 4097U, ~0U}) {
        NumbersStream stream;
        stream.numbers = {{"pBufferTextureFormat", 6407},
                          {"pBufferCanvasSize", size},
                          {"maxTexturePatches", size == 1 ? 0 : size}};
        texture->serialize(stream);
        EXPECT_EQ(texture->getBufferSize(), 65U) << size;
        EXPECT_EQ(VectorTexture::getMaxTexturePatches(), 35U) << size;
        EXPECT_EQ(texture->getInternalFormat(), s_rgba4);
    }
}

} // namespace
