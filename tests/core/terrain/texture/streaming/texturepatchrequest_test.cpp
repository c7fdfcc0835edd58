#include "core/terrain/texture/streaming/texturepatchrequest.h"

#include <gtest/gtest.h>

#include <support/recordedreports.h>
#include <support/steppedclock.h>

#include "core/terrain/texture/streaming/texturetransfers.h"
#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>
#include <nbx/engine/manager.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>
#include <zmt/core/terrain/inspect/patchinspectorgl.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>

#include "../fakepyramid.h"
#include "heldfile.h"
#include "streamingtexturefile.h"

using namespace ZMT::CORE;
using NBX::SO;
using NBX::TextureGL;
using StreamingTextureFile::Bytes;
using StreamingTextureFile::Ref;

namespace {

constexpr std::uint64_t s_requestKey = 0x0102030405060708ULL;

NBX::MainMemoryManager & mainMemory() {
    return *NBX::MainMemoryManager::instance();
}
NBX::GraphicsMemoryManager & graphicsMemory() {
    return *NBX::GraphicsMemoryManager::instance();
}
void clearManagers() {
    mainMemory().clear();
    graphicsMemory().clear();
}

/// A root of 4 by 2 pixels with a child of 2 by 2 in its second quarter. Pixels of the root are 10 by 5
/// units.
class TexturePatchRequestTest : public testing::Test {
protected:
    void SetUp() override {
        clearManagers();
        TextureTransfers::setClock(clock);
        open(file());
    }
    void TearDown() override {
        node = nullptr;
        held = nullptr;
        beginFrame();
        TextureTransfers::setClock(nullptr);
        clearManagers();
        EXPECT_TRUE(reports.empty()) << reports;
    }

    static Bytes pixels(unsigned count, std::uint8_t first) {
        Bytes result(count);
        for (unsigned i = 0; i < count; ++i)
            result[i] = std::uint8_t(first + i);
        return result;
    }
    Bytes file() {
        StreamingTextureFile::Encoder encoder;
        child = encoder.add(StreamingTextureFile::tileBytes(
            2, 2, 0, {1020.0, 500.0, 1040.0, 505.0}, {1021.0, 501.0, 1035.0, 503.0}, {}, pixels(16, 50)));
        root = encoder.addDeflated(StreamingTextureFile::tileBytes(
            4, 2, 0, {1000.0, 500.0, 1040.0, 510.0}, {1005.0, 502.5, 1035.0, 507.5},
            {Ref(), child, Ref(), Ref()}, pixels(32, 1)));
        return encoder.finish();
    }
    void open(const Bytes & bytes, std::uint64_t key = 0) {
        node = nullptr;
        held = new HeldFile(bytes);
        const TextureStream stream{held, 0, bytes.size(), key};
        node = new TexturePatchRequest(stream, {root.offset, root.rawSize, root.storedSize}, 0);
    }
    static void beginFrame() { TerrainPainterFrameManager::CallBeginFrameCallbacks({nullptr, false}); }
    void nextFrame(double seconds = 0.01) {
        clock->time += seconds;
        beginFrame();
    }
    SO<TextureGL> get(double priority = 1.0) { return node->get(priority, false); }
    /// Asks, and lets everything that is asked for arrive.
    SO<TextureGL> getLoaded() {
        get();
        held->setStates(AsyncFile::RS_Ready);
        return get();
    }

    RecordedReports reports;
    Ref root, child;
    SO<SteppedClock> clock{new SteppedClock};
    SO<HeldFile> held;
    SO<TexturePatchRequest> node;
};

TEST_F(TexturePatchRequestTest, AsksForItsBlockOnceAndPollsIt) {
    EXPECT_FALSE(get(3.0));
    ASSERT_EQ(held->known.size(), 1U);
    EXPECT_EQ(held->known[0]->offset(), root.offset);
    EXPECT_EQ(held->known[0]->data()->size(), root.storedSize);
    EXPECT_EQ(held->known[0]->priority(), 3.0);
    nextFrame();
    EXPECT_FALSE(get(7.0));
    EXPECT_EQ(held->known[0]->priority(), 7.0) << "as it is wanted now";
    held->setStates(AsyncFile::RS_Processing);
    EXPECT_FALSE(get());
    EXPECT_EQ(held->asked, 1U);
    EXPECT_EQ(held->waits, 0U);
    held->setStates(AsyncFile::RS_Ready);
    const SO<TextureGL> texture = get();
    ASSERT_TRUE(texture);
    EXPECT_TRUE(held->known.empty()) << "the file forgets the request";
    EXPECT_EQ(get(), texture);
    EXPECT_EQ(held->asked, 1U);
}

TEST_F(TexturePatchRequestTest, WhatLiesInMemoryIsThereAtTheSecondLook) {
    const Bytes bytes = file();
    const TextureStream stream{StreamingTextureFile::inMemory(bytes), 0, bytes.size(), 0};
    node = new TexturePatchRequest(stream, {root.offset, root.rawSize, root.storedSize}, 0);
    EXPECT_FALSE(get());
    EXPECT_TRUE(get());
}

TEST_F(TexturePatchRequestTest, TheTextureIsThatOfTheBlock) {
    const auto texture = NBX::soCast<NBX::ImageTexture2DGL>(getLoaded());
    ASSERT_TRUE(texture);
    const SO<NBX::Image> image = texture->getImage();
    EXPECT_EQ(image->width(), 4);
    EXPECT_EQ(image->height(), 2);
    EXPECT_EQ(image->layerSequence(), NBX::LS_RGBA);
    EXPECT_EQ(std::memcmp(image->lineComponents(0), pixels(32, 1).data(), 32), 0);
    EXPECT_EQ(texture->getWrapS(), TextureGL::WM_ClampToBorder);
    EXPECT_EQ(texture->getWrapT(), TextureGL::WM_ClampToBorder);
    EXPECT_EQ(texture->getMinFilter(), TextureGL::FM_Linear);
    EXPECT_EQ(texture->getMagFilter(), TextureGL::FM_Linear);
    EXPECT_EQ(texture->getAnisotropy(), 16.0);
    EXPECT_EQ(texture->getBorderColor(), NBX::Color(1.0F, 1.0F, 1.0F, 0.0F));
    EXPECT_EQ(texture->getInternalFormat(), 0U);
    EXPECT_TRUE(texture->unrefsImageAfterBinding());
}

TEST_F(TexturePatchRequestTest, TheMatrixGoesToTheEdgesOfThePixelsInTheScene) {
    GeoTransformation::setNBXOrigin({990.0, 5.0, 480.0});
    const SO<TextureGL> texture = getLoaded();
    GeoTransformation::setNBXOrigin({});
    ASSERT_TRUE(texture);
    const auto low = texture->getMatrix() * TexturePatchRequest::Point(10.0, 20.0, 0.0);
    const auto high = texture->getMatrix() * TexturePatchRequest::Point(50.0, 30.0, 0.0);
    EXPECT_NEAR(low.x, 0.0, 1e-12);
    EXPECT_NEAR(low.y, 0.0, 1e-12);
    EXPECT_NEAR(high.x, 1.0, 1e-12);
    EXPECT_NEAR(high.y, 1.0, 1e-12);
}

TEST_F(TexturePatchRequestTest, TheManagersKeepImageAndTexture) {
    getLoaded();
    EXPECT_EQ(mainMemory().total(), 32U);
    EXPECT_EQ(graphicsMemory().total(), 32U);
    EXPECT_TRUE(node->hasImage());
    EXPECT_TRUE(node->hasTexture());
    mainMemory().clear();
    // The texture has its image until it is bound.
    graphicsMemory().clear();
    EXPECT_FALSE(node->hasImage());
    EXPECT_FALSE(node->hasTexture());
    EXPECT_TRUE(node->children()[1]) << "children stay";
    const auto kept = node->children()[1];
    EXPECT_TRUE(getLoaded()) << "loaded again at once";
    EXPECT_EQ(held->asked, 2U);
    EXPECT_EQ(node->children()[1], kept);
}

TEST_F(TexturePatchRequestTest, UseKeepsThemAmongTheLastThatGo) {
    getLoaded();
    const SO<NBX::SharedObj> image(new NBX::ImageTexture2DGL(nullptr)),
        texture(new NBX::ImageTexture2DGL(nullptr));
    mainMemory().add(image.get(), 10);
    graphicsMemory().add(texture.get(), 10);
    get();
    mainMemory().setBudget(35);
    graphicsMemory().setBudget(35);
    EXPECT_TRUE(node->hasImage());
    EXPECT_TRUE(node->hasTexture());
    EXPECT_FALSE(mainMemory().contains(image.get()));
    EXPECT_FALSE(graphicsMemory().contains(texture.get()));
    mainMemory().setBudget(NBX::MainMemoryManager::defaultBudget);
    graphicsMemory().setBudget(NBX::GraphicsMemoryManager::defaultBudget);
}

TEST_F(TexturePatchRequestTest, ATextureThatWentIsMadeOfTheImageThatStayed) {
    getLoaded();
    graphicsMemory().clear();
    EXPECT_FALSE(node->hasTexture());
    beginFrame();
    EXPECT_TRUE(get());
    EXPECT_EQ(held->asked, 1U);
}

TEST_F(TexturePatchRequestTest, AnImageThatWentIsReadAgainWhileTheTextureShows) {
    const SO<TextureGL> texture = getLoaded();
    static_cast<NBX::ImageTexture2DGL &>(*texture).setImage(nullptr);
    mainMemory().clear();
    ASSERT_FALSE(node->hasImage());
    EXPECT_EQ(get(), texture);
    EXPECT_EQ(held->asked, 1U) << "not at once: the budget may be too small";
    nextFrame(1.0);
    EXPECT_EQ(get(), texture);
    EXPECT_EQ(held->asked, 2U);
    held->setStates(AsyncFile::RS_Ready);
    EXPECT_EQ(get(), texture);
    EXPECT_TRUE(node->hasImage());
    // A leaf is never split.
    const SO<TexturePatchRequest> leaf = node->children()[1];
    leaf->get(1.0, true);
    ASSERT_TRUE(leaf->hasTexture());
    const SO<TextureGL> ofLeaf = leaf->get(1.0, true);
    static_cast<NBX::ImageTexture2DGL &>(*ofLeaf).setImage(nullptr);
    mainMemory().clear();
    nextFrame(2.0);
    EXPECT_EQ(leaf->get(1.0, false), ofLeaf);
    EXPECT_EQ(held->asked, 3U);
}

TEST_F(TexturePatchRequestTest, AtMostTwoTexturesAFrame) {
    beginFrame();
    TextureTransfers::countUpload();
    TextureTransfers::countUpload();
    EXPECT_FALSE(getLoaded());
    EXPECT_EQ(held->known.size(), 1U) << "what is ready waits";
    EXPECT_FALSE(node->hasImage());
    nextFrame();
    EXPECT_TRUE(get());
    EXPECT_EQ(held->asked, 1U);
}

TEST_F(TexturePatchRequestTest, ByForceItComesInAnyCase) {
    beginFrame();
    TextureTransfers::countUpload();
    TextureTransfers::countUpload();
    EXPECT_TRUE(node->get(1.0, true));
    EXPECT_EQ(held->asked, 1U);
    EXPECT_EQ(held->waits, 1U);
    EXPECT_TRUE(held->known.empty());
}

TEST_F(TexturePatchRequestTest, ByForceARequestUnderWayIsWaitedFor) {
    get();
    EXPECT_TRUE(node->get(1.0, true));
    EXPECT_EQ(held->asked, 1U) << "no byte is read twice";
}

TEST_F(TexturePatchRequestTest, WantedUnwantedAndWantedAgainItArrives) {
    get();
    nextFrame(0.3);
    EXPECT_TRUE(held->known.empty()) << "it gave way";
    EXPECT_FALSE(get());
    EXPECT_EQ(held->asked, 2U) << "asked for anew";
    held->setStates(AsyncFile::RS_Ready);
    EXPECT_TRUE(get());
}

TEST_F(TexturePatchRequestTest, WhatIsInFlightArrivesHoweverSlowTheLine) {
    get();
    held->setStates(AsyncFile::RS_Processing);
    for (int frame = 0; frame < 100; ++frame) {
        nextFrame(0.2);
        EXPECT_FALSE(get());
    }
    EXPECT_EQ(held->asked, 1U) << "after 20 seconds";
    held->setStates(AsyncFile::RS_Ready);
    EXPECT_TRUE(get());
}

TEST_F(TexturePatchRequestTest, AFailureIsRepeatedAfterOneSecondAndThenTwiceAsMuch) {
    double pause = 1.0;
    for (unsigned failure = 1; failure <= 9; ++failure) {
        EXPECT_FALSE(get());
        EXPECT_EQ(held->asked, failure);
        held->setStates(AsyncFile::RS_Failed);
        EXPECT_FALSE(get());
        EXPECT_TRUE(held->known.empty());
        nextFrame(pause - 0.01);
        EXPECT_FALSE(get());
        EXPECT_FALSE(node->get(1.0, true)) << "not even by force";
        EXPECT_EQ(held->asked, failure) << pause;
        nextFrame(0.02);
        pause = std::min(4.0, pause * 2.0);
    }
    EXPECT_TRUE(getLoaded());
    clearManagers();
    get();
    held->setStates(AsyncFile::RS_Failed);
    get();
    nextFrame(1.01);
    EXPECT_TRUE(getLoaded()) << "a success ends the row";
}

TEST_F(TexturePatchRequestTest, FailuresAreKnownUntilTheyHeal) {
    using Texture = AsyncQuadtreeTerrainTexture;
    EXPECT_TRUE(Texture::readFailures().empty());
    get();
    held->setStates(AsyncFile::RS_Failed);
    get();
    nextFrame(0.25);
    ASSERT_EQ(Texture::readFailures().size(), 1U);
    EXPECT_EQ(Texture::readFailures()[0].offset, root.offset);
    EXPECT_EQ(Texture::readFailures()[0].size, root.storedSize);
    EXPECT_EQ(Texture::readFailures()[0].reason, L"held");
    EXPECT_EQ(Texture::readFailures()[0].secondsToRetry, 0.75);
    nextFrame(5.0);
    EXPECT_EQ(Texture::readFailures()[0].secondsToRetry, 0.0);
    held->bytes[root.offset + 40] ^= 0xff;
    getLoaded();
    ASSERT_EQ(Texture::readFailures().size(), 1U);
    EXPECT_EQ(Texture::readFailures()[0].reason, L"the block is damaged; get the file anew");
    held->bytes[root.offset + 40] ^= 0xff;
    nextFrame(5.0);
    EXPECT_TRUE(getLoaded());
    EXPECT_TRUE(Texture::readFailures().empty());
    clearManagers();
    get();
    held->setStates(AsyncFile::RS_Failed);
    get();
    EXPECT_EQ(Texture::readFailures().size(), 1U);
    nextFrame(12.0);
    EXPECT_TRUE(Texture::readFailures().empty()) << "it is wanted no more";
    get();
    EXPECT_EQ(Texture::readFailures().size(), 1U) << "it is wanted again";
    node = nullptr;
    EXPECT_TRUE(Texture::readFailures().empty()) << "with the texture they go";
}

TEST_F(TexturePatchRequestTest, WhatWasWantedAndDidNotComeIsMissing) {
    using Texture = AsyncQuadtreeTerrainTexture;
    Texture::resetStatistics();
    EXPECT_EQ(Texture::missingTiles(), 0U);
    const unsigned ofTerrains = PatchInspectorGL::statistics().missingTiles;
    get();
    get();
    EXPECT_EQ(Texture::missingTiles(), 1U) << "however often it was asked for";
    const SO<TexturePatchRequest> other(
        new TexturePatchRequest(node->stream(), {child.offset, child.rawSize, child.storedSize}, 1));
    other->get(1.0, false);
    EXPECT_EQ(Texture::missingTiles(), 2U);
    EXPECT_EQ(PatchInspectorGL::statistics().missingTiles, ofTerrains + 2U) << "with those of terrains";
    held->setStates(AsyncFile::RS_Ready);
    EXPECT_TRUE(get());
    EXPECT_EQ(Texture::missingTiles(), 1U) << "what has come is not missing";
    Texture::resetStatistics();
    EXPECT_EQ(Texture::missingTiles(), 0U);
    node = nullptr;
    open(file());
    get();
    PatchInspectorGL::reset();
    EXPECT_EQ(Texture::missingTiles(), 0U) << "another picture";
    get();
    EXPECT_EQ(Texture::missingTiles(), 1U);
    node = nullptr;
    EXPECT_EQ(Texture::missingTiles(), 0U) << "with the texture they go";
}

TEST_F(TexturePatchRequestTest, AFailureThatIsSeenLateCountsAsOne) {
    get();
    held->setStates(AsyncFile::RS_Failed);
    nextFrame(0.5);
    EXPECT_FALSE(get());
    EXPECT_FALSE(get());
    EXPECT_EQ(held->asked, 1U);
}

TEST_F(TexturePatchRequestTest, BlocksThatDoNotValidateAreAskedForAgainAfterASecond) {
    held->bytes[root.offset + 40] ^= 0xff;
    EXPECT_FALSE(getLoaded());
    EXPECT_FALSE(get());
    EXPECT_EQ(held->asked, 1U);
    EXPECT_FALSE(node->hasImage());
    nextFrame(1.0);
    held->bytes[root.offset + 40] ^= 0xff;
    EXPECT_TRUE(getLoaded());
    EXPECT_EQ(held->asked, 2U);
}

TEST_F(TexturePatchRequestTest, ABlockThatStaysDamagedIsReadLessAndLess) {
    held->bytes[root.offset + 40] ^= 0xff;
    double pause = 1.0;
    for (unsigned failure = 1; failure <= 9; ++failure) {
        EXPECT_FALSE(getLoaded());
        EXPECT_EQ(held->asked, failure);
        nextFrame(pause - 0.01);
        EXPECT_FALSE(node->get(1.0, true));
        EXPECT_EQ(held->asked, failure) << pause;
        nextFrame(0.02);
        pause = std::min(60.0, pause * 2.0);
    }
    EXPECT_EQ(pause, 60.0);
}

TEST_F(TexturePatchRequestTest, AfterALongOutageADamagedBlockIsTriedSoon) {
    for (unsigned failure = 1; failure <= 9; ++failure) {
        get();
        held->setStates(AsyncFile::RS_Failed);
        get();
        nextFrame(4.01);
    }
    held->bytes[root.offset + 40] ^= 0xff;
    EXPECT_FALSE(getLoaded());
    EXPECT_EQ(held->asked, 10U);
    held->bytes[root.offset + 40] ^= 0xff;
    nextFrame(1.01);
    EXPECT_TRUE(getLoaded());
}

TEST_F(TexturePatchRequestTest, WhatWasGivenUpDoesNotStandInTheWay) {
    held->givesUp = true;
    EXPECT_FALSE(node->get(5.0, true));
    ASSERT_EQ(held->known.size(), 1U);
    EXPECT_EQ(held->known[0]->priority(), 5.0) << "as it is wanted";
    EXPECT_FALSE(node->get(AsyncFile::topPriority, false));
    EXPECT_EQ(held->known[0]->priority(), AsyncFile::topPriority);
    EXPECT_FALSE(node->get(AsyncFile::topPriority, true));
    EXPECT_EQ(held->known[0]->priority(), 0.0) << "as a root, nobody wants it but who waited";
    EXPECT_TRUE(getLoaded()) << "it goes on";
    EXPECT_EQ(held->asked, 1U);
}

TEST_F(TexturePatchRequestTest, AFailedWaitIsAFailure) {
    held->failsWaits = true;
    EXPECT_FALSE(node->get(1.0, true));
    EXPECT_FALSE(node->get(1.0, true));
    EXPECT_EQ(held->waits, 1U);
}

TEST_F(TexturePatchRequestTest, ShortDataFail) {
    held->bytes.resize(root.offset + root.storedSize - 1);
    EXPECT_FALSE(getLoaded());
    EXPECT_FALSE(node->hasImage());
}

TEST_F(TexturePatchRequestTest, ScrambledBytesInMemoryStayAsTheyAre) {
    const Bytes plain = file();
    Bytes scrambled = plain;
    for (const Ref & ref : {child, root}) {
        const auto first = scrambled.begin() + std::ptrdiff_t(ref.offset);
        const Bytes part =
            StreamingTextureFile::scrambled(Bytes(first, first + ref.storedSize), s_requestKey);
        std::copy(part.begin(), part.end(), first);
    }
    const SO<NBX::DataResource> shared = StreamingTextureFile::resource(scrambled);
    for (int round = 0; round < 2; ++round) {
        const TextureStream stream{AsyncFile::create(shared), 0, scrambled.size(), s_requestKey};
        const SO<TexturePatchRequest> again(
            new TexturePatchRequest(stream, {root.offset, root.rawSize, root.storedSize}, 0));
        EXPECT_TRUE(again->get(1.0, true)) << round;
        EXPECT_TRUE(again->children()[1]->get(1.0, true)) << round;
    }
    EXPECT_EQ(std::memcmp(shared->pointer(), scrambled.data(), scrambled.size()), 0);
}

TEST_F(TexturePatchRequestTest, TheErrorIsTheLargerSquareAndZeroWithoutTheImage) {
    const auto view = viewFromAbove(2.0);
    const TexturePatchRequest::Point eye(0.0, 0.0, 0.0);
    EXPECT_EQ(node->error(*view, eye), 0.0);
    EXPECT_EQ(node->lastError(*view, eye), 0.0);
    const SO<TextureGL> texture = getLoaded();
    EXPECT_NEAR(node->error(*view, eye), 400.0, 1e-6) << "10 units of two pixels each";
    static_cast<NBX::ImageTexture2DGL &>(*texture).setImage(nullptr);
    mainMemory().clear();
    EXPECT_EQ(node->error(*view, eye), 0.0);
    EXPECT_NEAR(node->lastError(*view, eye), 400.0, 1e-6);
    const SO<TexturePatchRequest> leaf = node->children()[1];
    leaf->get(1.0, true);
    EXPECT_NEAR(leaf->error(*view, eye), 28.0 * 28.0, 1e-6) << "14 by 2 units";
}

TEST_F(TexturePatchRequestTest, BoxesAreComparedInThePlanButForRounding) {
    getLoaded();
    const auto box = [](double minX, double minZ, double maxX, double maxZ) {
        return NBX::Bounds({minX, -9.0, minZ}, {maxX, 1e9, maxZ});
    };
    const NBX::Bounds whole = box(1000.0, 500.0, 1040.0, 510.0);
    EXPECT_TRUE(node->contains(whole));
    EXPECT_TRUE(node->isFilledBy(whole));
    EXPECT_TRUE(node->isFilledBy(box(1000.0 - 1e-9, 500.0 + 1e-9, 1040.0, 510.0 + 1e-9)));
    EXPECT_FALSE(node->isFilledBy(box(1000.0, 500.0, 1040.0, 509.0)));
    EXPECT_FALSE(node->isFilledBy(box(1000.0, 500.0, 1039.0, 510.0)));
    EXPECT_FALSE(node->isFilledBy(box(1001.0, 500.0, 1040.0, 510.0)));
    EXPECT_FALSE(node->isFilledBy(box(1000.0, 501.0, 1040.0, 510.0)));
    EXPECT_TRUE(node->contains(box(1001.0, 501.0, 1002.0, 502.0)));
    EXPECT_FALSE(node->contains(box(999.0, 501.0, 1002.0, 502.0)));
    EXPECT_FALSE(node->contains(box(1001.0, 499.0, 1002.0, 502.0)));
    EXPECT_FALSE(node->contains(box(1001.0, 501.0, 1041.0, 502.0)));
    EXPECT_FALSE(node->contains(box(1001.0, 501.0, 1002.0, 511.0)));
    EXPECT_FALSE(node->contains(NBX::Bounds()));
    EXPECT_EQ(node->bounds(), NBX::Bounds({1000.0, -1e42, 500.0}, {1040.0, 1e42, 510.0}));
}

TEST_F(TexturePatchRequestTest, ALevelThatNoTreeHasGetsNoChildren) {
    const Bytes bytes = file();
    const TextureStream stream{StreamingTextureFile::inMemory(bytes), 0, bytes.size(), 0};
    for (const auto & [level, hasChildren] : {std::pair(62U, true), std::pair(63U, false)}) {
        node = new TexturePatchRequest(stream, {root.offset, root.rawSize, root.storedSize}, level);
        EXPECT_TRUE(node->get(1.0, true));
        EXPECT_EQ(node->hasChildren(), hasChildren) << level;
    }
}

// Files that were made to do harm.

TEST_F(TexturePatchRequestTest, ATreeThatComesBackToItselfFails) {
    StreamingTextureFile::Encoder encoder;
    const Ref itself{256, 256 + 16, 256 + 16};
    root = encoder.add(StreamingTextureFile::tileBytes(2, 2, 0, {0.0, 0.0, 1.0, 1.0}, {0.0, 0.0, 1.0, 1.0},
                                                       {itself, itself, itself, itself}, pixels(16, 1)));
    ASSERT_EQ(root.offset, itself.offset);
    ASSERT_EQ(root.rawSize, itself.rawSize);
    open(encoder.finish());
    EXPECT_FALSE(node->get(1.0, true));
    EXPECT_FALSE(node->hasChildren());
}

TEST_F(TexturePatchRequestTest, SizesThatTheBlockDoesNotHaveFail) {
    for (const auto & [width, height] :
         {std::pair(3U, 2U), std::pair(2U, 1U), std::pair(16384U, 16384U), std::pair(65536U, 65536U),
          std::pair(0x80000001U, 2U), std::pair(0U, 0U)}) {
        StreamingTextureFile::Encoder encoder;
        root = encoder.add(StreamingTextureFile::tileBytes(width, height, 0, {0.0, 0.0, 1.0, 1.0},
                                                           {0.0, 0.0, 1.0, 1.0}, {}, pixels(16, 1)));
        open(encoder.finish());
        EXPECT_FALSE(node->get(1.0, true)) << width << " " << height;
    }
}

TEST_F(TexturePatchRequestTest, FormatsWithoutImagesFailWithTheirReport) {
    for (const unsigned format : {3U, 99U}) {
        StreamingTextureFile::Encoder encoder;
        root = encoder.add(StreamingTextureFile::tileBytes(2, 2, format, {0.0, 0.0, 1.0, 1.0},
                                                           {0.0, 0.0, 1.0, 1.0}, {}, pixels(4, 1)));
        open(encoder.finish());
        EXPECT_FALSE(node->get(1.0, true)) << format;
        EXPECT_EQ(reports.size(), 1U) << reports;
        reports.clear();
    }
}

TEST_F(TexturePatchRequestTest, ANodeThatGoesEndsItsRead) {
    get();
    node = nullptr;
    EXPECT_TRUE(held->known.empty());
}

TEST_F(TexturePatchRequestTest, AFileThatGoesFailsTheRead) {
    get();
    const Bytes bytes = held->bytes;
    // The node keeps the file; a read that outlives it is one that was ended.
    held->failsWaits = true;
    EXPECT_FALSE(node->get(1.0, true));
}

TEST_F(TexturePatchRequestTest, GreyTexturesCountWhatTheyTakeOnTheCard) {
    StreamingTextureFile::Encoder encoder;
    root = encoder.add(StreamingTextureFile::tileBytes(4, 4, 7, {0.0, 0.0, 1.0, 1.0}, {0.0, 0.0, 1.0, 1.0},
                                                       {}, pixels(16, 1)));
    open(encoder.finish());
    ASSERT_TRUE(node->get(1.0, true));
    EXPECT_EQ(mainMemory().total(), 16U);
    EXPECT_EQ(graphicsMemory().total(), 32U) << "with the alpha that its border needs";
}

} // namespace
