#include "core/terrain/texture/streaming/texturetransfers.h"

#include <gtest/gtest.h>

#include <support/steppedclock.h>

#include <nbx/engine/manager.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>

#include "heldfile.h"

using namespace ZMT::CORE;
using NBX::SO;

namespace {

class TextureTransfersTest : public testing::Test {
protected:
    void SetUp() override { TextureTransfers::setClock(clock); }
    void TearDown() override {
        for (const SO<AsyncFile::Request> & request : AsyncFile::Requests(file->known))
            TextureTransfers::end(request);
        beginFrame();
        TextureTransfers::setClock(nullptr);
    }

    static void beginFrame() { TerrainPainterFrameManager::CallBeginFrameCallbacks({nullptr, false}); }
    SO<AsyncFile::Request> newRequest(AsyncFile::RequestState state) {
        const SO<AsyncFile::Request> request = file->request(0, 16, 1.0);
        static_cast<HeldFile::HeldRequest &>(*request).now = state;
        TextureTransfers::want(request);
        return request;
    }
    /// Whether it still runs.
    bool runs(const SO<AsyncFile::Request> & request) const {
        const bool isKnown = std::find(file->known.begin(), file->known.end(), request) != file->known.end();
        EXPECT_EQ(isKnown, TextureTransfers::contains(request)) << "both know it or neither";
        return isKnown;
    }

    SO<SteppedClock> clock{new SteppedClock};
    SO<HeldFile> file{new HeldFile(std::vector<std::uint8_t>(64))};
};

TEST_F(TextureTransfersTest, WhatDoesNotBeginWithinAQuarterOfASecondGivesWay) {
    const auto request = newRequest(AsyncFile::RS_Queued);
    clock->time += 0.24;
    beginFrame();
    EXPECT_TRUE(runs(request));
    // Though it is wanted: whoever wants it asks anew.
    TextureTransfers::want(request);
    clock->time += 0.01;
    beginFrame();
    EXPECT_FALSE(runs(request));
}

TEST_F(TextureTransfersTest, WhatHasBegunEndsFiveSecondsAfterItWasWanted) {
    for (const auto state : {AsyncFile::RS_Processing, AsyncFile::RS_Ready}) {
        const auto request = newRequest(state);
        clock->time += 4.9;
        beginFrame();
        EXPECT_TRUE(runs(request)) << state;
        TextureTransfers::want(request);
        clock->time += 4.9;
        beginFrame();
        EXPECT_TRUE(runs(request)) << "a slow line is no reason to begin again";
        clock->time += 0.125;
        beginFrame();
        EXPECT_FALSE(runs(request)) << state;
    }
}

TEST_F(TextureTransfersTest, WhatHasFailedStaysForWhoWantsToKnow) {
    const auto request = newRequest(AsyncFile::RS_Failed);
    clock->time += 1.0;
    beginFrame();
    EXPECT_TRUE(runs(request));
    clock->time += 4.0;
    beginFrame();
    EXPECT_FALSE(runs(request));
}

TEST_F(TextureTransfersTest, TwoUploadsAFrame) {
    beginFrame();
    EXPECT_TRUE(TextureTransfers::mayUpload(false));
    TextureTransfers::countUpload();
    EXPECT_TRUE(TextureTransfers::mayUpload(false));
    TextureTransfers::countUpload();
    EXPECT_FALSE(TextureTransfers::mayUpload(false));
    EXPECT_TRUE(TextureTransfers::mayUpload(true));
    beginFrame();
    EXPECT_TRUE(TextureTransfers::mayUpload(false));
}

TEST_F(TextureTransfersTest, WhatIsEndedIsForgottenByItsFile) {
    const auto request = newRequest(AsyncFile::RS_Processing);
    TextureTransfers::end(request);
    EXPECT_FALSE(runs(request));
    TextureTransfers::end(request);
}

} // namespace
