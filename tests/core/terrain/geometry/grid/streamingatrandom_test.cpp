// Terrains and textures that come and go while they are read, as in a program whose user is impatient: the
// reads go on in threads of their own, or in the kernel.

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <random>

#include <gtest/gtest.h>

#include <nbx/data/atomicfilewriter.h>
#include <nbx/data/file.h>
#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>
#include <nbx/gl/texture/texturegl.h>
#include <nbx/object/so.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>
#include <zmt/core/terrain/geometry/grid/asyncgridterrain.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>

#include "core/file/readengine.h"
#include "core/terrain/geometry/grid/asyncgridterrainrequests.h"
#include "core/terrain/texture/streaming/asyncquadtreeterraintexture_impl.h"
#include "core/terrain/texture/streaming/oblongsource.h"
#include "writtenterrain.h"
#include <support/recordedreports.h>
#include <support/temporaryfolder.h>
#include <support/webtest.h>

namespace {

using namespace ZMT::CORE;
using namespace ZMT::CORE::GRID;
using IMPL::ReadEngine;
using NBX::SO;

std::wstring pathOf(const std::string & name) {
    return NBX::StringUtils::Utf8String2WString(std::string(std::getenv("TMPDIR")) + "/" + name);
}

void writeFiles() {
    const std::vector<std::uint8_t> terrain =
        writtenTerrain(new FunctionBand(257, 257, FunctionBand::hills), 4);
    std::ofstream(std::string(std::getenv("TMPDIR")) + "/a.ztt", std::ios::binary)
        .write(reinterpret_cast<const char *>(terrain.data()), std::streamsize(terrain.size()));
    ASSERT_TRUE(AsyncQuadtreeTerrainTexture::create(pathOf("a.zts"), OblongSource::patches(2),
                                                    OblongSource::pyramid(), 32, 0));
}

/// What is open at a time, and what is still held of what was closed.
class ImpatientUser {
public:
    using Place = std::function<std::wstring(const std::string & name)>;

    explicit ImpatientUser(unsigned seed, Place place = pathOf) : random_(seed), place_(std::move(place)) {}

    void act() {
        switch (random_() % 10) {
        case 0:
            if (terrains_.size() < 5) terrains_.push_back(AsyncGridTerrain::load(place_("a.ztt")));
            break;
        case 1:
            if (textures_.size() < 5) addTexture();
            break;
        case 2:
            close(terrains_);
            break;
        case 3:
            close(textures_);
            break;
        case 4:
            // A part outlives the whole.
            if (!terrains_.empty() && held_.size() < 8)
                held_.push_back(any(terrains_)->rootTile()->child(random_() % 4, true));
            break;
        case 5:
            if (!held_.empty()) held_.erase(held_.begin() + std::ptrdiff_t(random_() % held_.size()));
            break;
        case 6:
            // All that nobody uses is dropped.
            NBX::MainMemoryManager::instance()->clear();
            NBX::GraphicsMemoryManager::instance()->clear();
            break;
        default:
            TerrainPainterFrameManager::CallBeginFrameCallbacks({nullptr, false});
            look();
        }
    }

    unsigned seen = 0;

private:
    template <class T> SO<T> any(const std::vector<SO<T>> & all) { return all[random_() % all.size()]; }
    template <class T> void close(std::vector<SO<T>> & all) {
        if (!all.empty()) all.erase(all.begin() + std::ptrdiff_t(random_() % all.size()));
    }
    void addTexture() {
        const auto texture = NBX::soCast<AsyncQuadtreeTerrainTexture_Impl>(
            AsyncQuadtreeTerrainTexture::load(place_("a.zts"), 0));
        ASSERT_TRUE(texture);
        textures_.push_back(texture);
    }
    /// Asks for parts of all that is open.
    void look() {
        for (const SO<AsyncGridTerrain> & terrain : terrains_) {
            SO<GridTerrainTile> tile = terrain->rootTile();
            while (tile && tile->level() >= 0) {
                if (tile->requestTileData(random_() % 100, random_() % 50 == 0, nullptr)) ++seen;
                tile = tile->child(random_() % 4, false);
            }
        }
        for (const SO<GridTerrainTile> & tile : held_)
            if (tile) tile->requestTileData(1.0, false, nullptr);
        for (const SO<AsyncQuadtreeTerrainTexture_Impl> & texture : textures_) {
            SO<TexturePatchRequest> node = texture->root();
            while (node) {
                if (node->get(random_() % 100, random_() % 50 == 0)) ++seen;
                node = node->children()[random_() % 4];
            }
        }
    }

    std::mt19937 random_;
    Place place_;
    std::vector<SO<AsyncGridTerrain>> terrains_;
    std::vector<SO<AsyncQuadtreeTerrainTexture_Impl>> textures_;
    std::vector<SO<GridTerrainTile>> held_;
};

class StreamingAtRandomTest : public testing::TestWithParam<ReadEngine::Kind> {
protected:
    void SetUp() override {
        if (!ReadEngine::use(GetParam())) GTEST_SKIP() << "this system forbids the kernel's ring";
        writeFiles();
    }
    void TearDown() override {
        EXPECT_TRUE(ReadEngine::use(ReadEngine::RE_Automatic));
        NBX::MainMemoryManager::instance()->clear();
        NBX::GraphicsMemoryManager::instance()->clear();
    }

    const TemporaryFolder folder_;
};

std::string nameOfEngine(const testing::TestParamInfo<ReadEngine::Kind> & info) {
    return info.param == ReadEngine::RE_Ring ? "Ring" : "Threads";
}

TEST_P(StreamingAtRandomTest, WhatIsAddedAndClosedWhileItLoadsDoesNoHarm) {
    RecordedReports reports;
    for (unsigned seed = 1; seed <= 2; ++seed) {
        ImpatientUser user(seed);
        for (unsigned step = 0; step < 800; ++step)
            user.act();
        EXPECT_LT(100U, user.seen);
    }
    EXPECT_EQ(0U, AsyncGridTerrainRequests::instance().count()) << "nobody is left who wants";
    EXPECT_TRUE(AsyncGridTerrain::readFailures().empty());
    EXPECT_TRUE(AsyncQuadtreeTerrainTexture::readFailures().empty());
    EXPECT_TRUE(reports.empty()) << reports;
}

class StreamingUrlsAtRandomTest : public WebTest {
protected:
    void SetUp() override {
        WebTest::SetUp();
        IMPL::httpTimes() = {}; // the machine may be busy
        writeFiles();
        for (const std::string name : {"a.ztt", "a.zts"}) {
            const auto bytes = NBX::File::contents(NBX::StringUtils::WString2Utf8String(pathOf(name)));
            server_.setFile("/" + name, std::string(bytes.begin(), bytes.end()));
        }
    }
    void TearDown() override {
        NBX::MainMemoryManager::instance()->clear();
        NBX::GraphicsMemoryManager::instance()->clear();
        WebTest::TearDown();
    }

    const TemporaryFolder folder_;
};

TEST_F(StreamingUrlsAtRandomTest, WhatIsAddedAndClosedWhileItLoadsDoesNoHarm) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "how the threads of the network class take turns is not seen";
#endif
    RecordedReports reports;
    {
        ImpatientUser user(3, [this](const std::string & name) { return server_.url("/" + name); });
        for (unsigned step = 0; step < 800; ++step) {
            user.act();
            AsyncFile::wait(1.0);
        }
        EXPECT_LT(100U, user.seen);
    }
    EXPECT_TRUE(runUntil([] { return AsyncFile::pendingRequests() == 0; }));
    EXPECT_EQ(0U, AsyncGridTerrainRequests::instance().count()) << "nobody is left who wants";
    EXPECT_TRUE(AsyncGridTerrain::readFailures().empty());
    EXPECT_TRUE(AsyncQuadtreeTerrainTexture::readFailures().empty());
    EXPECT_TRUE(reports.empty()) << reports;
    // The server may still answer as many that were given up.
    EXPECT_LE(server_.mostAtOnce(), 10U);
}

double now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// Leaves the moment of the end in the file that the environment names.
constexpr const char * s_note = "ZMT_TEST_END_NOTE";

[[noreturn]] void exitAmidLoading(ReadEngine::Kind kind) {
    if (!ReadEngine::use(kind)) std::_Exit(1);
    writeFiles();
    // Never destroyed by itself: all of it is open when the process ends.
    ImpatientUser & user = *new ImpatientUser(7);
    while (user.seen < 200)
        user.act();
    static ImpatientUser other(8); // and this one goes at the end
    while (other.seen < 200)
        other.act();
    std::ofstream(std::getenv(s_note)) << std::fixed << now();
    std::exit(7);
}

using StreamingAtRandomDeathTest = StreamingAtRandomTest;

TEST_P(StreamingAtRandomDeathTest, TheProcessEndsWithinASecondInTheMiddleOfIt) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // The process that ends comes by here as well, in a folder of its own, and keeps what it was given.
    const std::string note = std::string(std::getenv("TMPDIR")) + "/end";
    ::setenv(s_note, note.c_str(), 0);
    EXPECT_EXIT(exitAmidLoading(GetParam()), testing::ExitedWithCode(7), "");
    ::unsetenv(s_note);
    double begin = 0.0;
    std::ifstream(note) >> begin;
    EXPECT_LT(0.0, begin);
    // Within a second, but for what sanitizers look for at the end.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    EXPECT_LT(now() - begin, 10.0);
#else
    EXPECT_LT(now() - begin, 1.0);
#endif
}

INSTANTIATE_TEST_SUITE_P(Engines, StreamingAtRandomTest,
                         testing::Values(ReadEngine::RE_Ring, ReadEngine::RE_Threads), nameOfEngine);
INSTANTIATE_TEST_SUITE_P(Engines, StreamingAtRandomDeathTest,
                         testing::Values(ReadEngine::RE_Ring, ReadEngine::RE_Threads), nameOfEngine);

} // namespace
