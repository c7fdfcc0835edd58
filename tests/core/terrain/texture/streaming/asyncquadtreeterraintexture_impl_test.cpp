#include "core/terrain/texture/streaming/asyncquadtreeterraintexture_impl.h"

#include <gtest/gtest.h>

#include <support/recordedreports.h>
#include <support/steppedclock.h>
#include <support/temporaryfolder.h>

#include "core/terrain/texture/streaming/emptystreamingtexturegl.h"
#include "core/terrain/texture/streaming/texturetransfers.h"
#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>
#include <nbx/engine/manager.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>

#include "heldfile.h"
#include "oblongsource.h"
#include "streamingtexturefile.h"

using namespace ZMT::CORE;
using NBX::SO;
using NBX::TextureGL;
using StreamingTextureFile::Bytes;
using StreamingTextureFile::Tile;

namespace {

/// 256 by 128 pixels in tiles of 64: the root has pixels of 8 by 2 units, its children of 4, their children
/// of
/// 2. (With its margin, a quarter takes 65 to 68 pixels of the finest level, so that these are at level 1.)
class AsyncQuadtreeTerrainTextureImplTest : public testing::Test {
protected:
    static constexpr unsigned s_tileSize = 72;

    void SetUp() override {
        clearManagers();
        TextureTransfers::setClock(clock);
        const SO<NBX::File> file(new NBX::File(NBX::File::temporaryFileName("impl-"), NBX::WM_Create));
        ASSERT_TRUE(
            AsyncQuadtreeTerrainTexture::create(file, patches, OblongSource::pyramid(), s_tileSize, 0));
        const Bytes bytes = NBX::File::contents(file->fullName());
        tree = StreamingTextureFile::Decoder(bytes).root();
        held = new HeldFile(bytes);
        beginFrame();
    }
    void TearDown() override {
        texture = nullptr;
        held = nullptr;
        beginFrame();
        TextureTransfers::setClock(nullptr);
        clearManagers();
        GeoTransformation::setNBXOrigin({});
        EXPECT_TRUE(reports.empty()) << reports;
    }

    static void clearManagers() {
        NBX::MainMemoryManager::instance()->clear();
        NBX::GraphicsMemoryManager::instance()->clear();
    }
    static void beginFrame() { TerrainPainterFrameManager::CallBeginFrameCallbacks({nullptr, false}); }
    void nextFrame(double seconds = 0.01) {
        clock->time += seconds;
        beginFrame();
    }
    void open() {
        const StreamingTextureFile::Decoder decoder(held->bytes);
        const auto root = decoder.rootRef();
        texture = new AsyncQuadtreeTerrainTexture_Impl({held, 0, held->bytes.size(), 0},
                                                       {root.offset, root.rawSize, root.storedSize});
    }
    void openWithRoot() {
        open();
        held->setStates(AsyncFile::RS_Ready);
        ASSERT_TRUE(texture->boundingBox().isDefined());
    }
    SO<TextureGL> request(const GeometryPatch & patch, double textureError, double priority = 1.0) {
        incomplete = false;
        return texture->request(&patch, nullptr, view.get(), 1000, 1000, priority, eye, textureError, false,
                                asynchronous, incomplete);
    }
    bool refine(const GeometryPatch & patch, double textureError) {
        return texture->refine(&patch, view.get(), 1000, 1000, eye, textureError, false);
    }
    /// Frame by frame, with all that is asked for arriving.
    SO<TextureGL> requestUntilComplete(const GeometryPatch & patch, double textureError) {
        for (int frame = 0; frame < 50; ++frame) {
            nextFrame();
            held->setStates(AsyncFile::RS_Ready);
            SO<TextureGL> result = request(patch, textureError);
            if (!incomplete) return result;
        }
        ADD_FAILURE() << "the texture never came";
        return nullptr;
    }
    static int width(const SO<TextureGL> & texture) {
        const SO<NBX::Image> image = NBX::soCast<NBX::ImageTexture2DGL>(texture)->getImage();
        return image ? image->width() : -1;
    }
    SO<TexturePatchRequest> childNode(unsigned i) const { return texture->root()->children()[i]; }

    const TemporaryFolder folder;
    RecordedReports reports;
    SO<SteppedClock> clock{new SteppedClock};
    SO<FakePatch> patches = OblongSource::patches(3);
    const SO<GeometryPatch> child = patches->child(1), grandchild = child->child(2);
    Tile tree;
    SO<HeldFile> held;
    SO<AsyncQuadtreeTerrainTexture_Impl> texture;
    SO<NBX::ViewInfo> view = viewFromAbove(1.0);
    const NBX::Vector3Base<double> eye{10.0, 0.0, 10.0};
    bool asynchronous = true, incomplete = false;
};

TEST_F(AsyncQuadtreeTerrainTextureImplTest, TheTreeOfThisTest) {
    ASSERT_EQ(tree.count(), 21U);
    EXPECT_EQ((tree.image[2] - tree.image[0]) / (tree.width - 1), 8.0);
    EXPECT_EQ((tree.child(1).image[2] - tree.child(1).image[0]) / (tree.child(1).width - 1), 4.0);
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, AsksForItsRootAtOnceAndFirst) {
    open();
    ASSERT_EQ(held->known.size(), 1U);
    EXPECT_EQ(held->known[0]->offset(), tree.ref.offset);
    EXPECT_EQ(held->known[0]->priority(), 1e42);
    EXPECT_EQ(held->waits, 0U);
    EXPECT_EQ(texture->minFilter(), TextureGL::FM_Linear);
    EXPECT_EQ(texture->magFilter(), TextureGL::FM_Linear);
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, BeforeItsRootItShowsNothingAndWaitsForNothing) {
    open();
    EXPECT_EQ(request(*patches, 0.0), EmptyStreamingTextureGL::texture());
    EXPECT_TRUE(incomplete) << "or nobody would paint the picture that has it";
    EXPECT_FALSE(refine(*patches, 0.0));
    EXPECT_EQ(held->waits, 0U);
    EXPECT_EQ(held->asked, 1U);
    held->setStates(AsyncFile::RS_Ready);
    EXPECT_NE(request(*patches, 100.0), EmptyStreamingTextureGL::texture());
    EXPECT_FALSE(incomplete);
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, TheBoundingBoxWaitsAndIsInMapCoordinates) {
    GeoTransformation::setNBXOrigin({500.0, 0.0, 500.0});
    open();
    EXPECT_EQ(texture->boundingBox(), NBX::Bounds({1000.0, -1e42, 2000.0}, {1512.0, 1e42, 2064.0}));
    EXPECT_EQ(held->waits, 1U);
    held->failsWaits = true;
    open();
    EXPECT_FALSE(texture->boundingBox().isDefined());
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, TheRootComesAgainAfterAFailure) {
    open();
    held->setStates(AsyncFile::RS_Failed);
    EXPECT_EQ(request(*patches, 0.0), EmptyStreamingTextureGL::texture());
    EXPECT_EQ(held->asked, 1U);
    nextFrame(1.01);
    request(*patches, 0.0);
    EXPECT_EQ(held->asked, 2U);
    EXPECT_NE(requestUntilComplete(*patches, 100.0), EmptyStreamingTextureGL::texture());
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, SplitsThePatchOfATileWhoseTexelsAreTooLarge) {
    openWithRoot();
    EXPECT_TRUE(refine(*patches, 7.9));
    EXPECT_FALSE(refine(*patches, 8.0)) << "exactly the allowed size";
    view = viewFromAbove(0.5);
    EXPECT_FALSE(refine(*patches, 4.0));
    view = viewFromAbove(1.0);
    EXPECT_FALSE(refine(*child, 0.0)) << "of the child nothing is known yet";
    requestUntilComplete(*child, 4.0);
    EXPECT_TRUE(refine(*child, 3.9));
    EXPECT_FALSE(refine(*child, 4.0));
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, SplitsNoOtherPatch) {
    openWithRoot();
    requestUntilComplete(*grandchild, 0.0);
    EXPECT_FALSE(refine(*grandchild, 0.0)) << "no children";
    EXPECT_FALSE(refine(*grandchild->child(0), 0.0));
    const auto at = [](double x, double z, double width, double depth) {
        return FakePatch::oblong(x, z, width, depth, 0);
    };
    EXPECT_FALSE(refine(*at(3000.0, 2000.0, 10.0, 10.0), 0.0));
    EXPECT_FALSE(refine(*at(900.0, 1900.0, 1000.0, 1000.0), 0.0)) << "around the texture";
    EXPECT_FALSE(refine(*at(1200.0, 2010.0, 100.0, 20.0), 0.0)) << "in no child alone";
    EXPECT_TRUE(refine(*at(1000.0 + 1e-7, 2000.0 - 1e-7, 512.0, 64.0), 0.0)) << "but for rounding";
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, WithoutItsImageATileIsNotSplitAndReadsItAgain) {
    openWithRoot();
    EXPECT_TRUE(refine(*patches, 1.0));
    const SO<TextureGL> shown = request(*patches, 100.0);
    static_cast<NBX::ImageTexture2DGL &>(*shown).setImage(nullptr);
    NBX::MainMemoryManager::instance()->clear();
    EXPECT_FALSE(refine(*patches, 1.0));
    nextFrame(1.1);
    const unsigned asked = held->asked;
    EXPECT_EQ(request(*patches, 100.0), shown);
    EXPECT_TRUE(incomplete) << "the picture is not the one that is wanted";
    EXPECT_EQ(held->asked, asked + 1);
    held->setStates(AsyncFile::RS_Ready);
    request(*patches, 100.0);
    EXPECT_FALSE(incomplete);
    EXPECT_TRUE(refine(*patches, 1.0));
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, ShowsTheTileThatIsFineEnough) {
    openWithRoot();
    const SO<TextureGL> ofRoot = requestUntilComplete(*grandchild, 8.0);
    EXPECT_EQ(held->asked, 1U) << "the root is fine enough";
    const SO<TextureGL> ofChild = requestUntilComplete(*grandchild, 4.0);
    EXPECT_NE(ofChild, ofRoot);
    EXPECT_EQ(held->asked, 5U) << "where children lie they tell when they are read";
    const SO<TextureGL> ofGrandchild = requestUntilComplete(*grandchild, 2.0);
    EXPECT_NE(ofGrandchild, ofChild);
    EXPECT_EQ(held->asked, 9U);
    EXPECT_EQ(requestUntilComplete(*grandchild->child(3), 0.0), ofGrandchild) << "the finest there is";
    EXPECT_EQ(held->asked, 9U);
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, UntilItIsThereTheNearestAncestorShows) {
    openWithRoot();
    const SO<TextureGL> ofRoot = request(*grandchild, 0.0);
    EXPECT_EQ(ofRoot, request(*patches, 100.0));
    EXPECT_TRUE(request(*grandchild, 0.0));
    EXPECT_TRUE(incomplete);
    EXPECT_EQ(held->known.size(), 4U);
    held->setState(tree.child(1).ref.offset, AsyncFile::RS_Ready);
    const SO<TextureGL> ofChild = request(*grandchild, 0.0);
    EXPECT_NE(ofChild, ofRoot);
    EXPECT_TRUE(incomplete) << "what has come need not be the finest";
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, TilesAreWantedByTheSquareOfTheirTexels) {
    openWithRoot();
    request(*grandchild, 0.0, 3.0);
    // 8 pixels a texel of the root, squared; a quarter of it; three visible fragments.
    ASSERT_EQ(held->known.size(), 4U);
    EXPECT_NEAR(held->known[1]->priority(), 3.0 * 64.0 / 4.0, 1e-9);
    view = viewFromAbove(2.0);
    request(*grandchild, 0.0, 3.0);
    EXPECT_NEAR(held->known[1]->priority(), 3.0 * 256.0 / 4.0, 1e-9) << "with the square of the nearness";
    requestUntilComplete(*grandchild, 8.0);
    request(*grandchild, 0.0, 3.0);
    HeldFile::HeldRequest * const request = held->find(tree.child(1).child(2).ref.offset);
    ASSERT_TRUE(request);
    EXPECT_NEAR(request->priority(), 3.0 * 64.0 / 4.0, 1e-9);
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, EvictedTilesAreWantedLikeThoseThatStay) {
    openWithRoot();
    requestUntilComplete(*grandchild, 4.0);
    clearManagers();
    nextFrame();
    request(*grandchild, 0.0, 3.0);
    HeldFile::HeldRequest * const request = held->find(tree.child(1).ref.offset);
    ASSERT_TRUE(request);
    EXPECT_NEAR(request->priority(), 3.0 * 16.0, 1e-9) << "the heights would go first for ever";
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, APatchThatWillBeSplitHasItsChildrenReadBefore) {
    openWithRoot();
    EXPECT_TRUE(request(*patches, 0.0, 2.0));
    EXPECT_TRUE(incomplete);
    ASSERT_EQ(held->known.size(), 4U);
    for (unsigned i = 0; i < 4; ++i) {
        EXPECT_EQ(held->known[i]->offset(), tree.child(i).ref.offset);
        EXPECT_NEAR(held->known[i]->priority(), 2.0 * 64.0 / 4.0, 1e-9);
    }
    const SO<TextureGL> texture = requestUntilComplete(*patches, 0.0);
    EXPECT_EQ(texture, request(*patches, 100.0)) << "the picture is complete though the patch stays whole";
    EXPECT_EQ(held->asked, 5U);
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, AtOnceEverythingComesInTheFrame) {
    open();
    asynchronous = false;
    const SO<TextureGL> texture = request(*grandchild, 0.0);
    EXPECT_FALSE(incomplete);
    EXPECT_EQ(held->asked, 9U) << "the root and two times four";
    EXPECT_EQ(held->waits, 9U);
    EXPECT_EQ(texture, request(*grandchild, 2.0));
    EXPECT_NE(texture, request(*grandchild, 4.0));
    EXPECT_FALSE(refine(*grandchild, 0.0));
    EXPECT_TRUE(refine(*child, 3.9)) << "the tile that is shown is the finest";
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, ATileThatComesAfterItsPatchWasAskedToSplitWantsAnotherPicture) {
    openWithRoot();
    asynchronous = false;
    EXPECT_FALSE(refine(*child, 1.0));
    request(*child, 1.0);
    EXPECT_TRUE(incomplete);
    nextFrame();
    EXPECT_TRUE(refine(*child, 1.0));
    request(*child, 1.0);
    EXPECT_FALSE(incomplete) << "a patch that has no children is not drawn for ever";
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, AtOnceWhatCannotBeReadIsReplacedAndSaid) {
    openWithRoot();
    const SO<TextureGL> ofRoot = request(*patches, 100.0);
    asynchronous = false;
    held->failsWaits = true;
    EXPECT_EQ(request(*grandchild, 0.0), ofRoot);
    EXPECT_TRUE(incomplete);
    EXPECT_EQ(request(*grandchild, 0.0), ofRoot);
    EXPECT_EQ(held->waits, 5U) << "the root, and one try each";
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, AFailureOnTheWayShowsWhatIsThereAndHealsByItself) {
    openWithRoot();
    const SO<TextureGL> ofRoot = request(*grandchild, 0.0);
    held->setStates(AsyncFile::RS_Failed);
    for (int frame = 0; frame < 90; ++frame) {
        EXPECT_EQ(request(*grandchild, 0.0), ofRoot);
        EXPECT_TRUE(incomplete) << frame;
        nextFrame();
    }
    EXPECT_EQ(held->asked, 5U) << "no storm";
    nextFrame(0.2);
    EXPECT_NE(requestUntilComplete(*grandchild, 0.0), ofRoot);
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, AFlightOverAllTilesIsPacedByTwoATextureAFrame) {
    openWithRoot();
    unsigned frames = 0;
    for (bool isComplete = false; !isComplete && frames < 100; ++frames) {
        nextFrame();
        held->setStates(AsyncFile::RS_Ready);
        const std::uint64_t before = NBX::GraphicsMemoryManager::instance()->count();
        isComplete = true;
        for (unsigned i = 0; i < 4; ++i)
            for (unsigned k = 0; k < 4; ++k) {
                EXPECT_NE(request(*patches->child(i)->child(k), 0.0), EmptyStreamingTextureGL::texture());
                isComplete = isComplete && !incomplete;
            }
        EXPECT_LE(NBX::GraphicsMemoryManager::instance()->count(), before + 2);
    }
    EXPECT_GE(frames, 10U);
    EXPECT_LT(frames, 40U);
    EXPECT_EQ(held->asked, 21U) << "every block once";
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, EvictedTilesComeBackWithoutAHole) {
    openWithRoot();
    requestUntilComplete(*grandchild, 0.0);
    clearManagers();
    const SO<TextureGL> shown = request(*grandchild, 0.0);
    EXPECT_NE(shown, EmptyStreamingTextureGL::texture()) << "the root stays";
    EXPECT_TRUE(incomplete);
    clock->time += 1.0;
    requestUntilComplete(*grandchild, 0.0);
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, TheFifthPatchShowsItsParent) {
    openWithRoot();
    const auto between = FakePatch::oblong(1200.0, 2010.0, 100.0, 20.0, 0);
    EXPECT_EQ(requestUntilComplete(*between, 0.0), request(*patches, 100.0));
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, ANullPatchIsReported) {
    openWithRoot();
    EXPECT_FALSE(refine(static_cast<const GeometryPatch &>(*patches), 100.0));
    incomplete = false;
    EXPECT_FALSE(texture->refine(nullptr, view.get(), 1000, 1000, eye, 1.0, false));
    EXPECT_EQ(
        texture->request(nullptr, nullptr, view.get(), 1000, 1000, 1.0, eye, 1.0, false, true, incomplete),
        EmptyStreamingTextureGL::texture());
    EXPECT_EQ(reports.count(0, L"patch", L"no geometry patch"), 2U) << reports;
    reports.clear();
}

TEST_F(AsyncQuadtreeTerrainTextureImplTest, TheEmptyTextureIsOneTransparentTexelThatTheDriverMayCompress) {
    const auto empty = NBX::soCast<NBX::ImageTexture2DGL>(EmptyStreamingTextureGL::texture());
    EXPECT_EQ(empty->getInternalFormat(), 34030U);
    EXPECT_EQ(empty->getWrapS(), TextureGL::WM_Repeat);
    EXPECT_EQ(empty->getBorderColor(), NBX::Color(1.0F, 1.0F, 1.0F, 0.0F));
    EXPECT_TRUE(empty->unrefsImageAfterBinding());
    const SO<NBX::Image> image = empty->getImage();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width() * image->height(), 1);
    EXPECT_EQ(image->getColor(0, 0), NBX::Color(1.0F, 1.0F, 1.0F, 0.0F));
}

} // namespace
