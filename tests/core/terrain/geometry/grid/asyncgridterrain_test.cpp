#include <zmt/core/terrain/geometry/grid/asyncgridterrain.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>

#include <gtest/gtest.h>

#include <nbx/data/objectloader.h>
#include <nbx/engine/mainmemorymanager.h>
#include <nbx/object/exception.h>
#include <zmt/core/misc/externallinksolver.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>
#include <zmt/core/terrain/texture/terraintexture.h>

#include "core/terrain/geometry/grid/model/terrainfileformat.h"
#include "plainterrainfile.h"
#include "scriptedfile.h"
#include "writtenterrain.h"
#include <support/damagedfiles.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>
#include <support/temporaryfolder.h>

namespace {

using namespace ZMT::CORE;
using namespace ZMT::CORE::GRID;
using NBX::SO;
using Bytes = std::vector<std::uint8_t>;

class AsyncGridTerrainTest : public testing::Test {
protected:
    AsyncGridTerrainTest() : before_(std::filesystem::current_path()) {}
    ~AsyncGridTerrainTest() override { std::filesystem::current_path(before_); }

    static std::string path(const std::string & name) {
        return std::string(std::getenv("TMPDIR")) + "/" + name;
    }
    static std::wstring wide(const std::string & text) { return NBX::StringUtils::Utf8String2WString(text); }
    static void store(const std::string & name, const Bytes & bytes) {
        std::ofstream(path(name), std::ios::binary)
            .write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size()));
    }
    static Bytes hills(unsigned size = 17, unsigned level = 2) {
        return writtenTerrain(new FunctionBand({size, size, 1000.0, 2000.0, 10.0, 20.0}, FunctionBand::hills),
                              level);
    }

    const TemporaryFolder folder;
    RecordedReports reports;

private:
    std::filesystem::path before_;
};

TEST_F(AsyncGridTerrainTest, OpensWhatWasWritten) {
    store("a.ztt", hills());
    const SO<AsyncGridTerrain> terrain = AsyncGridTerrain::load(wide(path("a.ztt")));
    ASSERT_TRUE(terrain);
    EXPECT_EQ(wide(path("a.ztt")), terrain->fileName());
    EXPECT_TRUE(terrain->file());
    EXPECT_EQ(2U, terrain->gridLevel());
    EXPECT_EQ((std::pair<double, double>(10.0, 20.0)), terrain->getCellSize());
    EXPECT_EQ((NBX::Vector3Base<double>(17.0, 17.0, 65535.0)), terrain->gridBoundingBox().getURB());
    EXPECT_EQ(1000.0, terrain->geoBoundingBox().getLLF().x);
    EXPECT_EQ(2000.0 + 17 * 20.0, terrain->geoBoundingBox().getURB().z);
    EXPECT_EQ(terrain->grid2geoTf(), terrain->rootTile()->grid2geoTf());
    EXPECT_EQ(terrain->geo2gridTf(), terrain->rootTile()->geo2gridTf());
    EXPECT_EQ(terrain->vis2gridTf(), terrain->rootTile()->vis2gridTf());
    EXPECT_EQ(terrain->grid2visTf(), terrain->rootTile()->grid2visTf());
    const double step = terrain->grid2geoTf()(1, 2);
    for (unsigned y = 0; y < 17; ++y)
        for (unsigned x = 0; x < 17; ++x)
            EXPECT_NEAR(FunctionBand::hills(x, y),
                        terrain->calculateHeight({1000.0 + 10 * x, 0.0, 2000.0 + 20 * y}, false),
                        step * 0.501)
                << x << " " << y;
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(AsyncGridTerrainTest, TheFileStaysUnlessItIsTemporary) {
    store("a.ztt", hills());
    AsyncGridTerrain::load(wide(path("a.ztt")));
    EXPECT_TRUE(NBX::File::exists(path("a.ztt")));
    AsyncGridTerrain::load(wide(path("a.ztt")), true);
    EXPECT_FALSE(NBX::File::exists(path("a.ztt")));
}

TEST_F(AsyncGridTerrainTest, WhatCannotBeOpenedSaysWhy) {
    std::wstring problem;
    EXPECT_FALSE(AsyncGridTerrain::load(wide(path("missing.ztt")), false, &problem));
    EXPECT_FALSE(problem.empty());
    EXPECT_EQ(1U, reports.size()) << "by the file";
    reports.clear();
    for (const std::size_t size : {0U, 8U, 255U}) {
        Bytes bytes = hills();
        bytes.resize(size);
        problem.clear();
        EXPECT_FALSE(AsyncGridTerrain::load(memoryFile(bytes), false, &problem)) << size;
        EXPECT_NE(std::wstring::npos, problem.find(L"no streaming terrain"));
    }
    Bytes bytes = hills();
    const PlainTerrainFile plain(bytes);
    bytes[plain.root.offset + 3] ^= 1;
    EXPECT_FALSE(AsyncGridTerrain::load(memoryFile(bytes), false, &problem));
    EXPECT_NE(std::wstring::npos, problem.find(L"first tile"));
    EXPECT_NE(std::wstring::npos, problem.find(L"damaged"));
    EXPECT_FALSE(AsyncGridTerrain::load(memoryFile(bytes)));
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_FALSE(AsyncGridTerrain::load(SO<AsyncFile>()));
    EXPECT_EQ(1U, reports.count(0, L"file", L"no file"));
}

TEST_F(AsyncGridTerrainTest, AServerThatFailsSaysWhy) {
    const SO<ScriptedFile> file(new ScriptedFile(hills()));
    file->failsAll = true;
    std::wstring problem;
    EXPECT_FALSE(AsyncGridTerrain::load(file, false, &problem));
    EXPECT_EQ(L"the cable was cut", problem);
    struct RootFails : ScriptedFile {
        using ScriptedFile::ScriptedFile;
        SO<Request> request(std::uint64_t offset, std::uint64_t size, double priority) override {
            failsAll = offset != 0;
            return ScriptedFile::request(offset, size, priority);
        }
    };
    EXPECT_FALSE(AsyncGridTerrain::load(SO<AsyncFile>(new RootFails(hills())), false, &problem));
    EXPECT_NE(std::wstring::npos, problem.find(L"the cable was cut"));
    EXPECT_TRUE(AsyncGridTerrain::readFailures().empty());
}

TEST_F(AsyncGridTerrainTest, NothingIsLeftWhenItEnds) {
    NBX::MainMemoryManager & manager = *NBX::MainMemoryManager::instance();
    const std::size_t resources = manager.count();
    SO<AsyncGridTerrain> terrain = memoryTerrain(hills());
    NBX::WO<GridTerrainTile> root = terrain->rootTile(), part;
    {
        SO<GridTerrainTile> tile = terrain->rootTile();
        while (tile->level() >= 0) {
            tile->requestTileData(1.0, true, nullptr);
            tile = tile->child(0, false);
        }
        part = tile;
    }
    EXPECT_TRUE(part);
    EXPECT_EQ(resources + 3, manager.count());
    terrain = nullptr;
    EXPECT_FALSE(root);
    EXPECT_FALSE(part);
    EXPECT_EQ(resources, manager.count());
}

TEST_F(AsyncGridTerrainTest, RequestsFailOnceTheFileIsGone) {
    SO<AsyncGridTerrain> terrain = memoryTerrain(hills());
    const SO<GridTerrainTile> tile = terrain->rootTile()->child(0, true);
    terrain = nullptr;
    EXPECT_TRUE(tile->requestTileData(1.0, true, nullptr)) << "a tile keeps the file";
}

TEST_F(AsyncGridTerrainTest, LowestAndHighestPointAreThoseOfTheRoot) {
    const auto cell = [](unsigned x, unsigned y) {
        return x == 8 && y == 12 ? -50.0 : x == 4 && y == 0 ? 90.0 : 7.0;
    };
    const SO<AsyncGridTerrain> terrain =
        memoryTerrain(writtenTerrain(new FunctionBand({17, 17, 100.0, 200.0, 2.0, 3.0}, cell), 2));
    EXPECT_EQ((NBX::Vector3Base<double>(116.0, -50.0, 236.0)), terrain->lowestPoint());
    EXPECT_EQ(108.0, terrain->highestPoint().x);
    EXPECT_NEAR(90.0, terrain->highestPoint().y, 1e-9);
    EXPECT_EQ(200.0, terrain->highestPoint().z);
}

TEST_F(AsyncGridTerrainTest, AnEmptyOneAnswersNothing) {
    const SO<NBX::SharedObj> object(AsyncGridTerrain::newInstance());
    const SO<AsyncGridTerrain> terrain = NBX::soCast<AsyncGridTerrain>(object);
    ASSERT_TRUE(terrain);
    EXPECT_FALSE(terrain->rootTile());
    EXPECT_FALSE(terrain->file());
    EXPECT_TRUE(terrain->fileName().empty());
    EXPECT_FALSE(terrain->serializable());
    EXPECT_FALSE(terrain->geoBoundingBox().isDefined());
    EXPECT_FALSE(terrain->createDynamicLightMap());
    EXPECT_GT(0.0, terrain->lowestPoint().y);
    EXPECT_GT(0.0, terrain->calculateHeight({0, 0, 0}, false));
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_THROW(roundTrip(*terrain), NBX::IOError);
    EXPECT_EQ(1U, reports.count(0, L"m_impl != 0", L"no impl"));
}

TEST_F(AsyncGridTerrainTest, ScenesKeepTheName) {
    store("a.ztt", hills());
    const SO<AsyncGridTerrain> terrain = AsyncGridTerrain::load(wide(path("a.ztt")));
    EXPECT_TRUE(terrain->serializable());
    const SO<AsyncGridTerrain> copy = roundTrip(terrain);
    ASSERT_TRUE(copy && copy->rootTile());
    EXPECT_EQ(terrain->fileName(), copy->fileName());
}

TEST_F(AsyncGridTerrainTest, AFileThatMovedIsFoundInTheWorkingDirectory) {
    std::filesystem::create_directory(path("old"));
    std::filesystem::create_directory(path("new"));
    store("old/a[1].ztt", hills());
    const SO<AsyncGridTerrain> terrain = AsyncGridTerrain::load(wide(path("old/a[1].ztt")));
    const Bytes scene = NBX::ObjectStreamWriter::write(*terrain, true);
    std::filesystem::rename(path("old/a[1].ztt"), path("new/a[1].ztt"));
    std::filesystem::current_path(path("new"));
    const SO<NBX::SharedObj> copy = NBX::ObjectStreamReader(scene.data(), scene.size()).read();
    const SO<AsyncGridTerrain> found = NBX::soCast<AsyncGridTerrain>(copy);
    ASSERT_TRUE(found);
    EXPECT_EQ(wide(std::filesystem::canonical(path("new")).string() + "/a[1].ztt"), found->fileName());
}

std::wstring s_chosen;

bool choose(ZMT::UTIL::LinkType type, std::wstring & name) {
    EXPECT_EQ(0, type);
    name = s_chosen;
    return !s_chosen.empty();
}

TEST_F(AsyncGridTerrainTest, WhereNoFileIsFoundTheUserChooses) {
    store("a.ztt", hills());
    const SO<AsyncGridTerrain> terrain = AsyncGridTerrain::load(wide(path("a.ztt")));
    const Bytes scene = NBX::ObjectStreamWriter::write(*terrain, true);
    std::filesystem::rename(path("a.ztt"), path("b.ztt"));
    const auto read = [&] { return NBX::ObjectStreamReader(scene.data(), scene.size()).read(); };
    try {
        read();
        FAIL();
    } catch (const NBX::FileNotFoundException & e) {
        EXPECT_EQ(L"file not found", e.message());
        EXPECT_EQ(path("a.ztt"), e.path());
    }
    ZMT::UTIL::ExternalLinkSolver::setPickFileCallback(choose);
    s_chosen.clear();
    EXPECT_THROW(read(), NBX::FileNotFoundException);
    s_chosen = wide(path("b.ztt"));
    const SO<AsyncGridTerrain> copy = NBX::soCast<AsyncGridTerrain>(read());
    ASSERT_TRUE(copy);
    EXPECT_EQ(s_chosen, copy->fileName());
    EXPECT_TRUE(ZMT::UTIL::ExternalLinkSolver::modified());
    ZMT::UTIL::ExternalLinkSolver::setPickFileCallback(nullptr);
    ZMT::UTIL::ExternalLinkSolver::resetModified();
}

TEST_F(AsyncGridTerrainTest, AFileThatIsNoTerrainAnyMoreThrows) {
    store("a.ztt", hills());
    const SO<AsyncGridTerrain> terrain = AsyncGridTerrain::load(wide(path("a.ztt")));
    const Bytes scene = NBX::ObjectStreamWriter::write(*terrain, true);
    store("b.ztt", {1, 2, 3});
    std::filesystem::rename(path("b.ztt"), path("a.ztt"));
    try {
        NBX::ObjectStreamReader(scene.data(), scene.size()).read();
        FAIL();
    } catch (const NBX::IOError & e) {
        EXPECT_EQ(L"terrain could not be loaded", e.message());
    }
}

TEST_F(AsyncGridTerrainTest, AUrlIsNoPathToLookFor) {
    struct Remote : ScriptedFile {
        using ScriptedFile::ScriptedFile;
        std::wstring url() const override { return L"http://127.0.0.1:9/a.ztt"; }
    };
    const SO<AsyncGridTerrain> terrain = AsyncGridTerrain::load(SO<AsyncFile>(new Remote(hills())));
    const Bytes scene = NBX::ObjectStreamWriter::write(*terrain, true);
    // A file of that name is another one.
    store("a.ztt", hills());
    std::filesystem::current_path(path(""));
    ZMT::UTIL::ExternalLinkSolver::setPickFileCallback(choose);
    s_chosen = wide(path("a.ztt"));
    try {
        NBX::ObjectStreamReader(scene.data(), scene.size()).read();
        FAIL();
    } catch (const NBX::IOError & e) {
        EXPECT_EQ(L"terrain could not be loaded", e.message());
        EXPECT_NE(std::wstring::npos, e.detail().find(L"http://127.0.0.1:9/a.ztt"));
    }
    ZMT::UTIL::ExternalLinkSolver::setPickFileCallback(nullptr);
}

TEST_F(AsyncGridTerrainTest, TemporaryTerrainsAreEmbedded) {
    const Bytes bytes = hills();
    store("a.ztt", bytes);
    SO<AsyncGridTerrain> terrain = AsyncGridTerrain::load(wide(path("a.ztt")), true);
    EXPECT_TRUE(terrain->serializable());
    SO<AsyncGridTerrain> copy = roundTrip(terrain);
    terrain = nullptr;
    ASSERT_TRUE(copy && copy->rootTile());
    const std::string name = NBX::StringUtils::WString2Utf8String(copy->fileName());
    EXPECT_NE(std::string::npos, name.find("/terrain-"));
    EXPECT_EQ(bytes, NBX::File::contents(name));
    // And so is the copy.
    SO<AsyncGridTerrain> second = roundTrip(copy);
    copy = nullptr;
    EXPECT_FALSE(NBX::File::exists(name));
    ASSERT_TRUE(second);
    EXPECT_NE(wide(name), second->fileName());
    second = nullptr;
    EXPECT_TRUE(folder.isEmpty());
}

TEST_F(AsyncGridTerrainTest, BytesInMemoryAreEmbedded) {
    const SO<AsyncGridTerrain> copy = roundTrip(memoryTerrain(hills()));
    ASSERT_TRUE(copy);
    EXPECT_NE(std::wstring::npos, copy->fileName().find(L"/terrain-"));
}

TEST_F(AsyncGridTerrainTest, OnlySmallTerrainsAreEmbedded) {
    store("a.ztt", hills());
    std::filesystem::resize_file(path("a.ztt"), 0x4000000);
    const SO<AsyncGridTerrain> largest = AsyncGridTerrain::load(wide(path("a.ztt")), true);
    EXPECT_TRUE(largest->serializable());
    EXPECT_TRUE(roundTrip(largest));
    std::filesystem::copy_file(path("a.ztt"), path("b.ztt"));
    std::filesystem::resize_file(path("b.ztt"), 0x4000001);
    const SO<AsyncGridTerrain> larger = AsyncGridTerrain::load(wide(path("b.ztt")), true);
    EXPECT_FALSE(larger->serializable());
    try {
        roundTrip(larger);
        FAIL();
    } catch (const NBX::IOError & e) {
        EXPECT_EQ(L"terrain is too big to embed", e.message());
    }
    const SO<AsyncGridTerrain> named = AsyncGridTerrain::load(wide(path("b.ztt")));
    EXPECT_TRUE(named->serializable());
    EXPECT_TRUE(roundTrip(named));
}

TEST_F(AsyncGridTerrainTest, DamagedScenesThrow) {
    const Bytes scene = NBX::ObjectStreamWriter::write(*memoryTerrain(hills()), true);
    unsigned failures = 0;
    for (std::size_t size = 0; size < scene.size(); size += 13) {
        try {
            const SO<NBX::SharedObj> object = NBX::ObjectStreamReader(scene.data(), size).read();
        } catch (const NBX::Exception &) {
            ++failures;
        }
    }
    EXPECT_LT(0U, failures);
    EXPECT_TRUE(folder.isEmpty());
}

TEST_F(AsyncGridTerrainTest, ExtractCopiesTheWholeFile) {
    Bytes bytes = hills();
    bytes.insert(bytes.end(), {'l', 'i', 'g', 'h', 't'});
    store("a.ztt", bytes);
    store("a.prj", Bytes{'L', 'O', 'C', 'A', 'L', '_', 'C', 'S', '[', '"', 'x', '"', ']'});
    const SO<AsyncGridTerrain> terrain = AsyncGridTerrain::load(wide(path("a.ztt")));
    EXPECT_TRUE(terrain->extract(wide(path("b.ztt"))));
    EXPECT_EQ(bytes, NBX::File::contents(path("b.ztt")));
    EXPECT_TRUE(NBX::File::exists(path("b.prj")));
    EXPECT_TRUE(memoryTerrain(bytes)->extract(wide(path("c.ztt"))));
    EXPECT_EQ(bytes, NBX::File::contents(path("c.ztt")));
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_FALSE(terrain->extract(wide(path("nowhere/b.ztt"))));
    EXPECT_EQ(1U, reports.size());
}

TEST_F(AsyncGridTerrainTest, TemporaryTerrainsAreMadeAndGo) {
    SO<AsyncGridTerrain> terrain = AsyncGridTerrain::createAndLoadTemp(
        nullptr, new FunctionBand(40, 40, FunctionBand::hills), 3, false, false, 0.0, {0, 1, 0});
    ASSERT_TRUE(terrain);
    EXPECT_EQ(3U, terrain->gridLevel());
    EXPECT_NE(std::wstring::npos, terrain->fileName().find(L"/terrain-"));
    terrain = nullptr;
    EXPECT_TRUE(folder.isEmpty());
    EXPECT_FALSE(AsyncGridTerrain::createAndLoadTemp(nullptr, new FunctionBand(1, 40, FunctionBand::hills), 3,
                                                     false, false, 0.0, {0, 1, 0}));
    EXPECT_TRUE(folder.isEmpty());
}

TEST_F(AsyncGridTerrainTest, LoadersKnowTheFormat) {
    store("a.ztt", hills());
    store("b", hills());
    const NBX::ID & name = AsyncGridTerrain::ClassNameNBX();
    EXPECT_TRUE(NBX::ObjectLoader::readFile(path("a.ztt"), name, true));
    EXPECT_TRUE(NBX::ObjectLoader::readFile(path("b"), name, true)) << "without a suffix";
    EXPECT_TRUE(NBX::ObjectLoader::readFile(path("a.ztt"), Terrain::ClassNameNBX(), true));
    EXPECT_TRUE(reports.empty()) << reports;
    store("c.ztt", Bytes(300, 'x'));
    EXPECT_FALSE(NBX::ObjectLoader::readFile(path("c.ztt"), name, true));
    EXPECT_EQ(1U, reports.size()) << reports;
    for (const SO<NBX::ObjectReader> & reader : NBX::ObjectLoader::readers()) {
        if (reader->objectFormatName() != "ZMT streaming terrain") continue;
        EXPECT_TRUE(reader->readsFrom("http"));
        EXPECT_TRUE(reader->readsFrom("https"));
        EXPECT_FALSE(reader->readsFrom("ftp"));
        EXPECT_TRUE(reader->read(new NBX::MemoryDataResource(hills().data(), unsigned(hills().size()))));
        reports.clear();
        EXPECT_FALSE(reader->read(nullptr));
        EXPECT_EQ(1U, reports.count(0, L"resource", L"no resource"));
        return;
    }
    FAIL() << "there is no reader";
}

/// Asks for everything that can be reached, as painters, rays and walks do.
void touchAll(const SO<AsyncGridTerrain> & terrain) {
    const std::function<void(GridTerrainTile &)> visit = [&](GridTerrainTile & tile) {
        const SO<GridTerrainTileData> data = tile.requestTileData(1.0, true, nullptr);
        if (data) {
            unsigned sum = 0;
            for (unsigned y = 0; y < data->cells(); ++y)
                for (unsigned x = 0; x < data->cells(); ++x)
                    sum += data->value(x, y);
            for (unsigned b = 0; b < 4; ++b)
                for (unsigned k = 0; k < data->borderLODs(); ++k)
                    for (unsigned i = 0; i < data->borderLODValues(k); ++i)
                        sum += data->borderValue(b, k, i);
            EXPECT_LE(0U, sum);
        }
        tile.hasUndefValues();
        tile.gridBoundingBox();
        for (unsigned i = 0; tile.level() > -2 && i < 4; ++i)
            if (const SO<GridTerrainTile> child = tile.child(i, false)) visit(*child);
    };
    visit(*terrain->rootTile());
    const NBX::Bounds box = terrain->geoBoundingBox();
    terrain->calculateHeight(box.center(), false);
    terrain->lowestPoint();
}

TEST_F(AsyncGridTerrainTest, NoTruncatedFileDoesHarm) {
    const Bytes bytes = hills(33, 3);
    ASSERT_GE(32768U, bytes.size());
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        const ModestLook look(bytes.size());
        const SO<AsyncGridTerrain> terrain =
            memoryTerrain(Bytes(bytes.begin(), bytes.begin() + std::ptrdiff_t(size)));
        EXPECT_FALSE(terrain) << size;
    }
    // Even where the header says so.
    const PlainTerrainFile plain(bytes);
    for (std::size_t size = 256; size < plain.root.offset + plain.root.storedSize; size += 7) {
        Bytes cut(bytes.begin(), bytes.begin() + std::ptrdiff_t(size));
        std::memcpy(&cut[8], &size, 8);
        EXPECT_FALSE(memoryTerrain(cut)) << "the root stands last";
    }
}

TEST_F(AsyncGridTerrainTest, NoChangeOfAFileDoesHarm) {
    unsigned opened = 0;
    const unsigned rounds = randomChanges() / 2;
    for (const FunctionBand::Cell cell : {FunctionBand::hills, FunctionBand::hillsWithHoles}) {
        const Bytes bytes = writtenTerrain(new FunctionBand(33, 33, cell), 2);
        ASSERT_GE(32768U, bytes.size());
        const PlainTerrainFile plain(bytes);
        std::mt19937 random(11);
        for (unsigned round = 0; round < rounds; ++round) {
            Bytes changed = bytes;
            for (unsigned i = random() % 4; i < 4; ++i) {
                // Headers and references matter more than heights.
                const std::size_t at = random() % 3 == 0   ? random() % 104
                                       : random() % 2 == 0 ? plain.root.offset + random() % 128
                                                           : random() % bytes.size();
                changed[at % bytes.size()] = static_cast<std::uint8_t>(random() % 5 == 0 ? 255 : random());
            }
            const ModestLook look(bytes.size());
            if (const SO<AsyncGridTerrain> terrain = memoryTerrain(changed)) {
                ++opened;
                touchAll(terrain);
            }
            for (const NBX::ErrorReport & report : reports.reports())
                EXPECT_EQ(2, report.level) << reports;
            reports.clear();
        }
    }
    EXPECT_LT(rounds / 10, opened);
}

/// What a tile shows: all of its samples; nothing where it was refused.
Bytes shownBy(const SO<GridTerrainTileData> & data) {
    if (!data) return {};
    const auto * first = reinterpret_cast<const std::uint8_t *>(data->samples());
    return Bytes(first, first + 2 * TerrainFileFormat::sampleCount(data->tileLevel()));
}

TEST_F(AsyncGridTerrainTest, ChangesInsideADeflatedBlockAreNoticed) {
    const Bytes bytes = writtenTerrain(
        new FunctionBand(33, 33, [](unsigned x, unsigned y) { return double(x / 8 + y / 8); }), 4);
    const PlainTerrainFile plain(bytes);
    const PlainTerrainFile::Ref ref = plain.tile(0, 0, 0)->ref;
    ASSERT_NE(ref.rawSize, ref.storedSize);
    const auto shown = [](const Bytes & file) {
        return shownBy(memoryTerrain(file)->rootTile()->child(0, true)->requestTileData(1.0, true, nullptr));
    };
    const Bytes expected = shown(bytes);
    ASSERT_FALSE(expected.empty());
    unsigned refused = 0;
    for (std::uint32_t i = 0; i < ref.storedSize; ++i)
        for (unsigned bit = 0; bit < 8; ++bit) {
            Bytes changed = bytes;
            changed[ref.offset + i] ^= static_cast<std::uint8_t>(1U << bit);
            const Bytes now = shown(changed);
            EXPECT_TRUE(now.empty() || now == expected) << i << " " << bit;
            refused += now.empty() ? 1 : 0;
        }
    // But for bits that mean nothing: lengths of codes that do not occur, and what fills the last byte up.
    EXPECT_LE(0.95 * 8 * ref.storedSize, refused);
}

} // namespace
