#include "core/terrain/geometry/grid/asyncgridterraintile.h"

#include <cstring>

#include <gtest/gtest.h>

#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintilevertexbuffer.h>
#include <zmt/core/terrain/geometry/grid/model/subgridterraintile.h>

#include "core/terrain/geometry/grid/asyncgridterrainrequests.h"
#include "plainterrainfile.h"
#include "scriptedfile.h"
#include "writtenterrain.h"
#include <support/recordedreports.h>
#include <support/temporaryfolder.h>

namespace {

using namespace ZMT::CORE;
using namespace ZMT::CORE::GRID;
using NBX::SO;
using NBX::WO;
using GridTile = GridTerrainTile;

double s_time = 0.0;

/// 17 by 17 points in tiles of 4 by 4 cells: three levels.
class AsyncGridTerrainTileTest : public testing::Test {
protected:
    static constexpr unsigned level = 2;

    explicit AsyncGridTerrainTileTest(FunctionBand::Cell cell = FunctionBand::hills)
        : bytes(writtenTerrain(new FunctionBand(17, 17, std::move(cell)), level)), plain(bytes) {
        s_time = 1000.0;
        AsyncGridTerrainRequests::setClock([] { return s_time; });
        open();
    }
    ~AsyncGridTerrainTileTest() override {
        AsyncGridTerrainRequests::setClock(nullptr);
        NBX::MainMemoryManager::instance()->setBudget(NBX::MainMemoryManager::defaultBudget);
        terrain = nullptr;
        EXPECT_EQ(0U, AsyncGridTerrainRequests::instance().count());
        EXPECT_TRUE(AsyncGridTerrainRequests::instance().failed().empty());
        EXPECT_TRUE(reports.empty()) << reports;
    }

    void open() {
        file = new ScriptedFile(bytes);
        terrain = AsyncGridTerrain::load(file);
        ASSERT_TRUE(terrain);
        root = terrain->rootTile();
        file->asked = file->waits = 0;
    }
    void frame(double seconds = 0.02) {
        s_time += seconds;
        AsyncGridTerrain::beginFrame({nullptr, false});
    }
    SO<GridTile> child(unsigned i) const { return root->child(i, false); }
    /// Damages the block of a tile, which lies plain or deflated.
    void damage(const PlainTerrainFile::Tile & tile) {
        for (unsigned i = 0; i < tile.ref.storedSize; ++i)
            file->bytes[tile.ref.offset + i] ^= 0x5A;
    }

    /// The terrain with another root, whose references to its children were changed.
    SO<AsyncGridTerrain> withRoot(const std::function<void(std::uint8_t *)> & change,
                                  std::size_t shift = 0) const {
        const PlainTerrainFile::Ref ref = plain.root;
        std::vector<std::uint8_t> changed = bytes;
        changed.resize(bytes.size() + shift + ref.rawSize);
        std::uint8_t * const block = changed.data() + bytes.size() + shift;
        if (ref.rawSize == ref.storedSize)
            std::memcpy(block, &bytes[ref.offset], ref.rawSize);
        else
            NBX::ZLibFilter::uncompress(&bytes[ref.offset], ref.storedSize, block, ref.rawSize);
        change(block + 64);
        const std::uint64_t size = changed.size(), offset = bytes.size() + shift;
        std::memcpy(&changed[8], &size, 8);
        std::memcpy(&changed[88], &offset, 8);
        std::memcpy(&changed[100], &ref.rawSize, 4);
        return memoryTerrain(changed);
    }

    const TemporaryFolder folder;
    RecordedReports reports;
    const std::vector<std::uint8_t> bytes;
    const PlainTerrainFile plain;
    SO<ScriptedFile> file;
    SO<AsyncGridTerrain> terrain;
    SO<GridTile> root;
};

TEST_F(AsyncGridTerrainTileTest, RootIsThereAtOnce) {
    ASSERT_TRUE(root->tileData());
    EXPECT_EQ(0U, file->asked);
    EXPECT_EQ(2, root->level());
    EXPECT_EQ(2, root->detailLevel());
    EXPECT_EQ(level, root->gridLevel());
    EXPECT_FALSE(root->parent());
    EXPECT_TRUE(root->hasChildren(true));
    EXPECT_TRUE(root->hasChildren(false));
    EXPECT_EQ((NBX::Vector3Base<double>(0, 0, plain.tile(2, 0, 0)->min[2])),
              root->gridBoundingBox().getLLF());
    EXPECT_EQ((NBX::Vector3Base<double>(16, 16, plain.tile(2, 0, 0)->max[2])),
              root->gridBoundingBox().getURB());
}

TEST_F(AsyncGridTerrainTileTest, HeightsAreThoseOfTheFile) {
    const std::function<void(GridTile &, unsigned, unsigned)> check = [&](GridTile & tile, unsigned x,
                                                                          unsigned y) {
        const SO<GridTerrainTileData> data = tile.requestTileData(1.0, true, nullptr);
        ASSERT_TRUE(data);
        const PlainTerrainFile::Tile & expected = *plain.tile(unsigned(tile.level()), x, y);
        EXPECT_EQ(x, data->tileX());
        EXPECT_EQ(y, data->tileY());
        EXPECT_EQ(1U << tile.level(), data->step());
        EXPECT_EQ(level, data->tileLevel());
        EXPECT_EQ(level, data->borderLODs());
        for (unsigned j = 0; j < data->cells(); ++j)
            for (unsigned i = 0; i < data->cells(); ++i)
                EXPECT_EQ(plain.sample(expected, i, j), data->value(i, j));
        for (unsigned b = 0; b < 4; ++b)
            for (unsigned k = 0; k < data->borderLODs(); ++k)
                for (unsigned i = 0; i < data->borderLODValues(k); ++i)
                    EXPECT_EQ(plain.border(expected, b, k, i), data->borderValue(b, k, i));
        EXPECT_EQ(0, std::memcmp(expected.values.data(), data->samples(), 2 * expected.values.size()));
        for (unsigned i = 0; tile.level() > 0 && i < 4; ++i) {
            const SO<GridTile> below = tile.child(i, true);
            ASSERT_TRUE(below);
            EXPECT_EQ(&tile, below->parent().get());
            EXPECT_EQ(i, unsigned(tile.childIndex(below)));
            check(*below, 2 * x + ((i & 1U) << level), 2 * y + ((i >> 1U) << level));
        }
    };
    check(*root, 0, 0);
    EXPECT_EQ(20U, file->waits);
}

TEST_F(AsyncGridTerrainTileTest, AFourthBlockWaitsForTheNextFrame) {
    frame();
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_FALSE(child(i)->requestTileData(i, false, nullptr));
    EXPECT_EQ(4U, file->asked);
    file->setAll(AsyncFile::RS_Ready);
    frame();
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_EQ(i < 3, bool(child(i)->requestTileData(1.0, false, nullptr))) << i;
    EXPECT_FALSE(child(3)->tileData());
    EXPECT_EQ(1U, file->known.size());
    frame();
    EXPECT_TRUE(child(3)->tileData());
    EXPECT_EQ(4U, file->asked);
    EXPECT_TRUE(file->known.empty());
}

TEST_F(AsyncGridTerrainTileTest, WhoWaitsTakesMoreThanThreeBlocksAFrame) {
    frame();
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_TRUE(child(i)->requestTileData(1.0, true, nullptr)) << i;
    // They count.
    const SO<GridTile> below = child(0)->child(0, false);
    below->requestTileData(1.0, false, nullptr);
    file->setAll(AsyncFile::RS_Ready);
    EXPECT_FALSE(below->tileData());
    frame();
    EXPECT_TRUE(below->tileData());
}

TEST_F(AsyncGridTerrainTileTest, AQueuedRequestThatIsWantedMoreRises) {
    frame();
    child(0)->requestTileData(5.0, false, nullptr);
    child(0)->requestTileData(9.0, false, nullptr);
    EXPECT_EQ(9.0, file->at(0).priority());
    child(0)->requestTileData(2.0, false, nullptr);
    EXPECT_EQ(9.0, file->at(0).priority());
    EXPECT_EQ(1U, file->asked);
    child(1)->requestTileData(5.0, true, nullptr);
    EXPECT_EQ(2U, file->asked);
}

TEST_F(AsyncGridTerrainTileTest, BlockingReadsGoInFrontOfAll) {
    file->failsAll = true;
    child(0)->requestTileData(5.0, false, nullptr);
    EXPECT_EQ(5.0, file->at(0).priority());
    struct Watched : ScriptedFile {
        using ScriptedFile::ScriptedFile;
        SO<Request> request(std::uint64_t offset, std::uint64_t size, double priority) override {
            last = priority;
            return ScriptedFile::request(offset, size, priority);
        }
        double last = 0.0;
    };
    const SO<Watched> watched(new Watched(bytes));
    const SO<AsyncGridTerrain> other = AsyncGridTerrain::load(watched);
    watched->last = 0.0;
    other->rootTile()->child(0, true)->requestTileData(5.0, true, nullptr);
    EXPECT_EQ(1e+42, watched->last);
}

TEST_F(AsyncGridTerrainTileTest, WhatWasGivenUpDoesNotStandInTheWay) {
    file->givesUp = true;
    const double top = AsyncFile::topPriority;
    child(0)->requestTileData(7.0, false, nullptr);
    EXPECT_FALSE(child(0)->requestTileData(top, true, nullptr));
    EXPECT_EQ(7.0, file->at(0).priority()) << "as before";
    EXPECT_FALSE(child(1)->requestTileData(5.0, true, nullptr));
    EXPECT_EQ(5.0, file->at(1).priority()) << "as it was wanted";
    EXPECT_FALSE(child(2)->requestTileData(top, true, nullptr));
    EXPECT_EQ(0.0, file->at(2).priority()) << "nobody wants it but who waited";
    EXPECT_EQ(3U, file->asked);
    EXPECT_EQ(3U, file->waits);
}

TEST_F(AsyncGridTerrainTileTest, WhatIsNotWantedAnyMoreLeavesTheQueueAfterAQuarterOfASecond) {
    frame();
    child(0)->requestTileData(1.0, false, nullptr);
    const WO<AsyncFile::Request> first = file->known[0];
    frame(0.25);
    EXPECT_EQ(1U, file->known.size());
    child(0)->requestTileData(1.0, false, nullptr);
    frame(0.25);
    EXPECT_EQ(1U, file->known.size()) << "it was wanted again";
    frame(0.01);
    EXPECT_TRUE(file->known.empty());
    EXPECT_FALSE(first);
    EXPECT_EQ(0U, AsyncGridTerrainRequests::instance().count());
    bool failed = false;
    EXPECT_FALSE(child(0)->requestTileData(1.0, false, &failed));
    EXPECT_FALSE(failed);
    EXPECT_EQ(2U, file->asked);
}

TEST_F(AsyncGridTerrainTileTest, WhatIsUnderWayOrReadyIsKeptForFiveSeconds) {
    for (const AsyncFile::RequestState state : {AsyncFile::RS_Processing, AsyncFile::RS_Ready}) {
        open();
        frame();
        child(0)->requestTileData(1.0, false, nullptr);
        file->setAll(state);
        frame(2.5);
        if (state == AsyncFile::RS_Processing) {
            child(0)->requestTileData(1.0, false, nullptr);
        }
        frame(2.5);
        EXPECT_EQ(1U, file->known.size());
        frame(0.01);
        EXPECT_TRUE(file->known.empty()) << "its time is that of its last moment in the queue";
        EXPECT_FALSE(child(0)->tileData());
        EXPECT_EQ(1U, file->asked);
        child(0)->requestTileData(1.0, false, nullptr);
        EXPECT_EQ(2U, file->asked);
    }
}

TEST_F(AsyncGridTerrainTileTest, OverASlowLineABlockArrivesWhileItIsWanted) {
    frame();
    child(0)->requestTileData(1.0, false, nullptr);
    file->setAll(AsyncFile::RS_Processing);
    for (unsigned second = 0; second < 20; ++second) {
        file->at(0).transferred = 100 * second;
        EXPECT_FALSE(child(0)->requestTileData(1.0, false, nullptr));
        frame(1.0);
        ASSERT_EQ(1U, file->known.size()) << second;
    }
    // Nothing comes any more.
    for (unsigned second = 0; second < 4; ++second) {
        child(0)->requestTileData(1.0, false, nullptr);
        frame(1.0);
    }
    EXPECT_EQ(1U, file->known.size());
    frame(0.01);
    EXPECT_TRUE(file->known.empty());
    // Or it does, but nobody wants it.
    child(0)->requestTileData(1.0, false, nullptr);
    file->setAll(AsyncFile::RS_Processing);
    for (unsigned second = 0; second < 6; ++second) {
        if (!file->known.empty()) file->at(0).transferred = 100 * second;
        frame(1.0);
    }
    EXPECT_TRUE(file->known.empty());
    EXPECT_EQ(2U, file->asked);
}

TEST_F(AsyncGridTerrainTileTest, AFailedReadIsTriedAgainAfterATimeThatDoubles) {
    const SO<GridTile> tile = child(2);
    double wait = 1.0;
    for (unsigned round = 0; round < 9; ++round) {
        bool failed = false;
        EXPECT_FALSE(tile->requestTileData(1.0, false, &failed));
        EXPECT_EQ(round > 0, failed) << "as the last read";
        ASSERT_EQ(round + 1, file->asked);
        file->setAll(AsyncFile::RS_Failed);
        EXPECT_FALSE(tile->requestTileData(1.0, false, &failed));
        EXPECT_TRUE(failed);
        EXPECT_TRUE(file->known.empty());
        // Frame by frame, and for those who wait.
        const double until = s_time + wait;
        for (; s_time < until - 0.3; frame(0.25)) {
            EXPECT_FALSE(tile->requestTileData(1.0, false, nullptr));
            EXPECT_FALSE(tile->requestTileData(1.0, true, nullptr));
        }
        s_time = until - 0.01;
        EXPECT_FALSE(tile->requestTileData(1.0, false, nullptr));
        EXPECT_EQ(round + 1, file->asked);
        s_time = until;
        wait = std::min(4.0, 2 * wait);
    }
    // Once it comes, all is forgotten.
    EXPECT_TRUE(tile->requestTileData(1.0, true, nullptr));
    EXPECT_TRUE(AsyncGridTerrain::readFailures().empty());
    tile->unloadData();
    file->failsAll = true;
    EXPECT_FALSE(tile->requestTileData(1.0, true, nullptr));
    s_time += 1.0;
    EXPECT_FALSE(tile->requestTileData(1.0, true, nullptr));
    EXPECT_EQ(12U, file->asked);
}

TEST_F(AsyncGridTerrainTileTest, AFailureThatNobodySeesBringsNoStorm) {
    const SO<GridTile> tile = child(2);
    // Frames that take longer than a request stays in the queue.
    for (unsigned i = 0; i < 20; ++i) {
        tile->requestTileData(1.0, false, nullptr);
        file->setAll(AsyncFile::RS_Failed);
        frame(0.3);
    }
    EXPECT_GE(4U, file->asked) << "at 0, 1.3, 3.6 s";
}

TEST_F(AsyncGridTerrainTileTest, HoweverLongReadsFailedTheNextTryIsNear) {
    const SO<GridTile> tile = child(2);
    for (unsigned round = 1; round <= 9; ++round) {
        tile->requestTileData(1.0, false, nullptr);
        ASSERT_EQ(round, file->asked);
        file->setAll(AsyncFile::RS_Failed);
        frame(0.3); // which nobody sees but the queue
        s_time += 4.0;
    }
}

TEST_F(AsyncGridTerrainTileTest, FailuresAreKnownToWhoLooks) {
    const SO<GridTile> tile = child(1);
    EXPECT_TRUE(AsyncGridTerrain::readFailures().empty());
    tile->requestTileData(1.0, false, nullptr);
    file->setAll(AsyncFile::RS_Failed);
    tile->requestTileData(1.0, false, nullptr);
    s_time += 0.25;
    const auto failures = AsyncGridTerrain::readFailures();
    ASSERT_EQ(1U, failures.size());
    const PlainTerrainFile::Ref ref = plain.tile(1, 4, 0)->ref;
    EXPECT_EQ(L"scripted", failures[0].url);
    EXPECT_EQ(ref.offset, failures[0].offset);
    EXPECT_EQ(ref.storedSize, failures[0].size);
    EXPECT_EQ(L"the cable was cut", failures[0].reason);
    EXPECT_NEAR(0.75, failures[0].secondsToRetry, 1e-9);
    s_time += 10.0;
    ASSERT_EQ(1U, AsyncGridTerrain::readFailures().size());
    EXPECT_EQ(0.0, AsyncGridTerrain::readFailures()[0].secondsToRetry);
    s_time += 1.0;
    EXPECT_TRUE(AsyncGridTerrain::readFailures().empty()) << "it is wanted no more";
    tile->requestTileData(1.0, false, nullptr);
    EXPECT_EQ(1U, AsyncGridTerrain::readFailures().size()) << "it is wanted again";
}

TEST_F(AsyncGridTerrainTileTest, ADamagedBlockIsAskedForAgainLater) {
    damage(*plain.tile(1, 4, 4));
    bool failed = false;
    EXPECT_FALSE(child(3)->requestTileData(1.0, true, &failed));
    EXPECT_TRUE(failed);
    EXPECT_EQ(1U, file->asked);
    EXPECT_FALSE(child(3)->requestTileData(1.0, true, nullptr));
    EXPECT_EQ(1U, file->asked);
    ASSERT_EQ(1U, AsyncGridTerrain::readFailures().size());
    EXPECT_NE(std::wstring::npos, AsyncGridTerrain::readFailures()[0].reason.find(L"damaged"));
    file->bytes = bytes;
    s_time += 1.0;
    failed = false;
    EXPECT_TRUE(child(3)->requestTileData(1.0, true, &failed));
    EXPECT_FALSE(failed);
}

TEST_F(AsyncGridTerrainTileTest, ABlockThatStaysDamagedIsReadLessAndLess) {
    damage(*plain.tile(1, 4, 4));
    double wait = 1.0;
    for (unsigned round = 1; round <= 9; ++round) {
        EXPECT_FALSE(child(3)->requestTileData(1.0, true, nullptr));
        EXPECT_EQ(round, file->asked);
        s_time += wait - 0.01;
        EXPECT_FALSE(child(3)->requestTileData(1.0, true, nullptr));
        EXPECT_EQ(round, file->asked) << wait;
        s_time += 0.02;
        wait = std::min(60.0, 2 * wait);
    }
    EXPECT_EQ(60.0, wait);
}

TEST_F(AsyncGridTerrainTileTest, AfterALongOutageADamagedBlockIsTriedSoon) {
    file->failsAll = true;
    for (unsigned round = 1; round <= 9; ++round) {
        EXPECT_FALSE(child(3)->requestTileData(1.0, true, nullptr));
        s_time += 4.0;
    }
    file->failsAll = false;
    damage(*plain.tile(1, 4, 4));
    EXPECT_FALSE(child(3)->requestTileData(1.0, true, nullptr));
    EXPECT_EQ(10U, file->asked);
    file->bytes = bytes;
    s_time += 1.0;
    EXPECT_TRUE(child(3)->requestTileData(1.0, true, nullptr));
}

TEST_F(AsyncGridTerrainTileTest, ABlockThatCameBackShortFails) {
    child(3)->requestTileData(1.0, false, nullptr);
    file->setAll(AsyncFile::RS_Ready);
    file->at(0).cut = 1;
    frame();
    bool failed = false;
    EXPECT_FALSE(child(3)->requestTileData(1.0, false, &failed));
    EXPECT_TRUE(failed);
}

TEST_F(AsyncGridTerrainTileTest, AFileThatWasClosedFails) {
    file->isOpenNow = false;
    struct Closed : ScriptedFile {
        using ScriptedFile::ScriptedFile;
        SO<Request> request(std::uint64_t offset, std::uint64_t size, double priority) override {
            return isOpenNow ? ScriptedFile::request(offset, size, priority) : SO<Request>();
        }
    };
    const SO<Closed> closed(new Closed(bytes));
    const SO<AsyncGridTerrain> other = AsyncGridTerrain::load(closed);
    closed->isOpenNow = false;
    bool failed = false;
    EXPECT_FALSE(other->rootTile()->child(0, true)->requestTileData(1.0, true, &failed));
    EXPECT_TRUE(failed);
}

TEST_F(AsyncGridTerrainTileTest, BlocksThatChangePlacesAreRefused) {
    const SO<AsyncGridTerrain> other =
        withRoot([](std::uint8_t * children) { std::swap_ranges(children, children + 16, children + 16); });
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_EQ(i >= 2, bool(other->rootTile()->child(i, true)->requestTileData(1.0, true, nullptr))) << i;
}

TEST_F(AsyncGridTerrainTileTest, BlocksInMemoryMayBeginAnywhere) {
    const PlainTerrainFile::Tile & top = *plain.tile(2, 0, 0);
    for (unsigned shift = 0; shift < 2; ++shift) {
        const SO<AsyncGridTerrain> other = withRoot([](std::uint8_t *) {}, shift);
        const SO<GridTerrainTileData> data = other->rootTile()->tileData();
        EXPECT_EQ(0U, reinterpret_cast<std::uintptr_t>(data->samples()) % 2);
        EXPECT_EQ(top.values[7], data->samples()[7]);
    }
}

TEST_F(AsyncGridTerrainTileTest, ReferencesBeyondTheFileAreNeverAskedFor) {
    const SO<AsyncGridTerrain> other = withRoot([](std::uint8_t * children) {
        std::fill_n(children, 8, 0xFF);        // the offset
        children[16 + 8] ^= 1;                 // a size that the level does not give
        std::fill_n(children + 32 + 12, 4, 0); // nothing is stored
    });
    const auto known = [&] { return other->file()->requests().size(); };
    for (unsigned i = 0; i < 4; ++i) {
        bool failed = false;
        EXPECT_EQ(i == 3, bool(other->rootTile()->child(i, true)->requestTileData(1.0, true, &failed))) << i;
        EXPECT_EQ(i < 3, failed);
        EXPECT_EQ(0U, known());
    }
    EXPECT_EQ(3U, AsyncGridTerrain::readFailures().size());
}

TEST_F(AsyncGridTerrainTileTest, EvictedHeightsAreAskedForAgain) {
    const SO<GridTile> tile = child(0);
    const WO<GridTerrainTileData> data = tile->requestTileData(1.0, true, nullptr);
    EXPECT_TRUE(data);
    EXPECT_EQ(1U, file->asked);
    NBX::MainMemoryManager::instance()->setBudget(0);
    EXPECT_FALSE(data);
    EXPECT_FALSE(tile->tileData());
    NBX::MainMemoryManager::instance()->setBudget(NBX::MainMemoryManager::defaultBudget);
    EXPECT_TRUE(tile->child(0, true)) << "what it learnt stays";
    EXPECT_FALSE(tile->requestTileData(1.0, false, nullptr));
    EXPECT_EQ(2U, file->asked);
}

TEST_F(AsyncGridTerrainTileTest, TheRootIsNeverEvicted) {
    NBX::MainMemoryManager::instance()->setBudget(0);
    frame();
    EXPECT_TRUE(root->tileData());
    EXPECT_EQ(0U, file->asked);
    root->unloadData();
    EXPECT_FALSE(root->tileData());
    EXPECT_TRUE(root->requestTileData(1.0, true, nullptr));
}

TEST_F(AsyncGridTerrainTileTest, NothingThatIsUsedInTheFrameIsEvicted) {
    NBX::MainMemoryManager & manager = *NBX::MainMemoryManager::instance();
    frame();
    manager.beginFrame();
    for (unsigned i = 0; i < 4; ++i)
        child(i)->requestTileData(1.0, true, nullptr);
    manager.setBudget(1);
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_TRUE(child(i)->tileData()) << i;
    manager.endFrame();
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_FALSE(child(i)->tileData()) << i;
}

TEST_F(AsyncGridTerrainTileTest, VertexBuffersComeWithTheHeightsAlone) {
    NBX::GraphicsMemoryManager & manager = *NBX::GraphicsMemoryManager::instance();
    const SO<GridTile> tile = child(0);
    EXPECT_FALSE(tile->vertexBuffer());
    EXPECT_EQ(0U, file->asked);
    tile->requestTileData(1.0, true, nullptr);
    const SO<GridTerrainTileVertexBuffer> buffer = tile->vertexBuffer();
    ASSERT_TRUE(buffer);
    EXPECT_EQ(buffer, tile->vertexBuffer());
    EXPECT_TRUE(manager.contains(buffer.get()));
    tile->unloadData();
    EXPECT_FALSE(manager.contains(buffer.get()));
    EXPECT_FALSE(tile->vertexBuffer());
    EXPECT_EQ(terrain->rootTile()->indexBuffer(), tile->indexBuffer());
}

TEST_F(AsyncGridTerrainTileTest, UnloadingDropsAllBelow) {
    const SO<GridTile> tile = child(0);
    const WO<GridTerrainTileData> data = tile->requestTileData(1.0, true, nullptr);
    const WO<GridTerrainTileData> below = tile->child(3, true)->requestTileData(1.0, true, nullptr);
    tile->child(2, true)->requestTileData(1.0, false, nullptr);
    EXPECT_EQ(1U, file->known.size());
    root->unloadData();
    EXPECT_FALSE(data);
    EXPECT_FALSE(below);
    EXPECT_TRUE(file->known.empty());
    EXPECT_EQ(0U, AsyncGridTerrainRequests::instance().count());
    EXPECT_EQ(tile, child(0)) << "the tiles stay";
    root->unloadChild(0);
    EXPECT_NE(tile, child(0));
    root->unloadChildren();
}

TEST_F(AsyncGridTerrainTileTest, FinestTilesAndPlainAreasArePartsOfTheirHeights) {
    const SO<GridTile> tile = child(0);
    tile->requestTileData(1.0, true, nullptr);
    const SO<GridTile> finest = tile->child(1, true);
    finest->requestTileData(1.0, true, nullptr);
    EXPECT_FALSE(finest->hasChildren(true));
    EXPECT_TRUE(finest->hasChildren(false));
    EXPECT_FALSE(finest->child(0, true));
    const SO<GridTile> part = finest->child(3, false);
    ASSERT_TRUE(NBX::soCast<SubGridTerrainTile>(part));
    EXPECT_EQ(part, finest->child(3, false));
    EXPECT_EQ(-1, part->level());
    EXPECT_EQ(0, part->detailLevel());
    EXPECT_EQ(finest->tileData(), part->tileData());
    // The quarter of the cells.
    EXPECT_EQ(6.0, part->gridBoundingBox().getLLF().x);
    EXPECT_EQ(2.0, part->gridBoundingBox().getLLF().y);
    EXPECT_EQ(8.0, part->gridBoundingBox().getURB().x);
    EXPECT_EQ(4.0, part->gridBoundingBox().getURB().y);
}

TEST_F(AsyncGridTerrainTileTest, ReferencesOfKindOneAreParts) {
    const SO<AsyncGridTerrain> other = withRoot([](std::uint8_t * children) {
        std::fill_n(children + 16, 32, 0);
        children[16 + 8] = 1;
    });
    const SO<GridTile> top2 = other->rootTile();
    EXPECT_FALSE(top2->child(1, true));
    ASSERT_TRUE(NBX::soCast<SubGridTerrainTile>(top2->child(1, false)));
    EXPECT_EQ(1, top2->child(1, false)->level());
    EXPECT_EQ(2, top2->child(1, false)->detailLevel());
    EXPECT_FALSE(top2->child(2, false));
    EXPECT_FALSE(top2->child(2, true));
    EXPECT_TRUE(NBX::soCast<AsyncGridTerrainTile>(top2->child(3, true)));
}

TEST_F(AsyncGridTerrainTileTest, TreesThatNobodyWalksOverAreDropped) {
    frame();
    const WO<GridTile> walked = child(0), left = child(1);
    const WO<GridTerrainTileData> data = child(1)->requestTileData(1.0, true, nullptr);
    WO<GridTile> below = child(0)->child(0, false);
    child(0)->requestTileData(1.0, true, nullptr);
    below = child(0)->child(0, false);
    for (unsigned i = 0; i < 20; ++i) {
        child(0);
        frame(0.5);
        EXPECT_TRUE(left) << i;
    }
    for (unsigned i = 0; i < 3; ++i) {
        child(0);
        frame(0.5);
    }
    EXPECT_TRUE(walked);
    EXPECT_FALSE(left);
    EXPECT_FALSE(data) << "its heights could not be found any more";
    EXPECT_FALSE(below) << "deeper down as well";
    EXPECT_TRUE(child(1)) << "it comes back";
}

TEST_F(AsyncGridTerrainTileTest, PartsThatNobodyWalksOverAreDropped) {
    const auto finest = [this] { return child(0)->child(0, false); };
    child(0)->requestTileData(1.0, true, nullptr);
    finest()->requestTileData(1.0, true, nullptr);
    // Painted is a refined tile, whose parts are drawn as they are.
    const WO<GridTile> part = finest()->child(3, false), below = finest()->child(3, false)->child(0, false);
    for (unsigned i = 0; i < 20; ++i) {
        EXPECT_TRUE(below) << i;
        finest()->child(3, false);
        frame(0.5);
    }
    for (unsigned i = 0; i < 5; ++i) {
        finest()->child(3, false);
        frame(0.5);
    }
    EXPECT_TRUE(part);
    EXPECT_FALSE(below);
    EXPECT_TRUE(part.lock()->child(0, false)) << "it comes back";
}

TEST_F(AsyncGridTerrainTileTest, PausesDropNothing) {
    frame();
    const WO<GridTile> left = child(1);
    child(0);
    frame(1000.0);
    EXPECT_TRUE(left) << "nothing was painted meanwhile";
    // Frames of other terrains.
    for (unsigned i = 0; i < 100; ++i)
        frame(0.5);
    EXPECT_TRUE(left);
}

class AsyncGridTerrainTileHolesTest : public AsyncGridTerrainTileTest {
protected:
    AsyncGridTerrainTileHolesTest()
        : AsyncGridTerrainTileTest([](unsigned x, unsigned y) {
              return x < 3 && y < 3 ? double(FunctionBand::none) : FunctionBand::hills(x, y);
          }) {}
};

TEST_F(AsyncGridTerrainTileHolesTest, TilesKnowWhetherHeightsAreMissing) {
    const SO<GridTile> first = child(0);
    EXPECT_TRUE(first->hasUndefValues()) << "as long as nobody knows";
    first->requestTileData(1.0, true, nullptr);
    child(3)->requestTileData(1.0, true, nullptr);
    EXPECT_TRUE(first->hasUndefValues());
    EXPECT_FALSE(child(3)->hasUndefValues());
    first->unloadData();
    EXPECT_TRUE(first->hasUndefValues());
    child(3)->unloadData();
    EXPECT_FALSE(child(3)->hasUndefValues()) << "what it learnt stays";
}

} // namespace
