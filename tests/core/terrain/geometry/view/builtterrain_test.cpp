#include <zmt/core/terrain/geometry/view/builtterrain.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <random>

#include <gtest/gtest.h>

#include <nbx/data/file.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>
#include <support/temporaryfolder.h>
#include <support/thrownwords.h>
#include <zmt/core/terrain/geometry/hybrid/createhybriddata.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>
#include <zmt/raster/gdal/geofile.h>
#include <zmt/raster/tiledgeoimagepyramid.h>

#include "core/terrain/geometry/treetest.h"

using NBX::ObjectStreamReader;
using NBX::ObjectStreamWriter;
using TreeTest::build;
using ZMT::CORE::BuiltTerrain;
using ZMT::CORE::GeometryPatch;
using ZMT::CORE::GridData;
using ZMT::CORE::GridPatch;
using ZMT::CORE::Terrain;

namespace {

using Bytes = std::vector<std::uint8_t>;

ZMT::RASTER::GeoReference reference() {
    ZMT::RASTER::GeoReference result;
    result.isGeoreferenced = true;
    result.wkt = "LOCAL_CS[\"caf\u00e9\"]";
    result.name = "a system";
    result.unit = 0.5;
    result.unitName = "half";
    return result;
}

NBX::SO<BuiltTerrain> builtOver(const NBX::SO<GridData> & grid, const NBX::SO<GeometryPatch> & root) {
    return new BuiltTerrain(new Terrain(grid.get(), root.get()), reference(), 7, 60);
}

NBX::SO<BuiltTerrain> small() {
    const auto grid = TestTerrain::grid({13, 11, 100.0, 200.0, 2.0, 3.0}, TestTerrain::bumpy);
    return builtOver(grid, build(grid, 60));
}

NBX::SO<NBX::SharedObj> readBytes(const Bytes & bytes) {
    return ObjectStreamReader(bytes.data(), bytes.size()).read();
}

TEST(BuiltTerrain, IsReadAsItWasWritten) {
    const auto built = small();
    const auto back = roundTrip(built);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->seed(), 7U);
    EXPECT_EQ(back->maxVertices(), 60U);
    EXPECT_TRUE(back->reference().isGeoreferenced);
    EXPECT_EQ(back->reference().wkt, reference().wkt);
    EXPECT_EQ(back->reference().name, "a system");
    EXPECT_EQ(back->reference().unit, 0.5);
    EXPECT_EQ(back->reference().unitName, "half");
    EXPECT_EQ(back->grid()->sizeX(), 13U);
    EXPECT_EQ(back->grid()->origin(), built->grid()->origin());
    EXPECT_EQ(ObjectStreamWriter::write(*back), ObjectStreamWriter::write(*built));
}

TEST(BuiltTerrain, KeepsMicroStructures) {
    const NBX::SO<GridData> grid =
        ZMT::CORE::CreateHybridData::create(TreeTest::flatGrid(16, 16),
                                            std::vector<std::vector<TestTerrain::Point>>{{{3.5, 75.0, 3.25}}})
            .get();
    const auto built = builtOver(grid, build(grid, 60));
    const auto back = roundTrip(built);
    ASSERT_TRUE(back);
    EXPECT_EQ(ObjectStreamWriter::write(*back), ObjectStreamWriter::write(*built));
}

TEST(BuiltTerrain, WithoutHeightsOrTreeIsRefused) {
    const auto grid = TestTerrain::grid({13, 11}, TestTerrain::bumpy);
    const auto other = TestTerrain::grid({13, 11}, TestTerrain::bumpy);
    EXPECT_THROW(roundTrip(builtOver(nullptr, nullptr)), NBX::IOError);
    EXPECT_THROW(roundTrip(builtOver(grid, nullptr)), NBX::IOError);
    EXPECT_THROW(roundTrip(builtOver(other, build(grid, 60))), NBX::IOError);
    EXPECT_NO_THROW(roundTrip(builtOver(grid, build(grid, 60))));
}

/// Trees are walked by recursion.
TEST(BuiltTerrain, EndlesslyDeepTreesAreRefused) {
    const auto grid = TestTerrain::grid({3, 3}, TestTerrain::bumpy);
    const auto chain = [&](unsigned levels) {
        NBX::SO<GeometryPatch> root;
        for (unsigned level = 0; level <= levels; ++level) {
            NBX::SO<GeometryPatch::Children> children;
            if (root)
                children = new NBX::Array<NBX::SO<GeometryPatch>>(std::vector<NBX::SO<GeometryPatch>>{root});
            root = new GridPatch(grid, NBX::Area(0, 0, 2, 2), grid->boundingBox(), 0.0, 0.0, children);
        }
        return builtOver(grid, root);
    };
    EXPECT_NO_THROW(roundTrip(chain(100)));
    EXPECT_THROW(roundTrip(chain(1000)), NBX::IOError);
}

TEST(BuiltTerrain, TreesOfTheFirstVersionAreRead) {
    const Bytes first =
        NBX::File::contents(std::getenv("ZMT_TEST_DATA") + std::string("/objectstream/tree_version1.nbx"));
    const NBX::SO<NBX::SharedObj> root = readBytes(first);
    ASSERT_TRUE(root);
    const Bytes again = ObjectStreamWriter::write(*root);
    EXPECT_LT(again.size(), first.size() * 4 / 5);
    EXPECT_EQ(ObjectStreamWriter::write(*readBytes(again)), again);
}

TEST(BuiltTerrain, TheDoorForFilesKnowsWhatAStoredOneIs) {
    using ZMT::RASTER::GeoFile;
    const std::string stored = std::getenv("ZMT_TEST_DATA") + std::string("/objectstream/tree_version1.nbx");
    EXPECT_TRUE(BuiltTerrain::isFile(stored));
    EXPECT_EQ(GeoFile::kindOf(stored), ZMT::RASTER::GeoFileKind::Heights);
    ASSERT_TRUE(GeoFile::formatOf(stored));
    EXPECT_EQ(GeoFile::formatOf(stored)->name(), "a built terrain");
    EXPECT_FALSE(GeoFile::formatOf(stored)->isStreamed());
    expectPart(thrown([&] { GeoFile::openImage(stored); }), "is a built terrain, which has no image");
    expectPart(thrown([&] { GeoFile::openVectors(stored); }),
               "is a built terrain, which has no lines or areas");

    const TemporaryFolder folder;
    const std::string other = std::filesystem::temp_directory_path() / "other";
    for (const char * bytes : {"", "NBX", "GIF89a, and more"}) {
        std::ofstream(other) << bytes;
        EXPECT_FALSE(BuiltTerrain::isFile(other)) << bytes;
        EXPECT_EQ(GeoFile::formatOf(other), nullptr) << bytes;
    }
    EXPECT_FALSE(BuiltTerrain::isFile("nowhere.nbx"));
    EXPECT_FALSE(BuiltTerrain::isFile("."));
}

TEST(BuiltTerrain, EveryCutIsRefused) {
    const Bytes good = ObjectStreamWriter::write(*small());
    for (std::size_t size = 0; size < good.size(); size += size < 200 || size + 2000 > good.size() ? 1 : 37)
        EXPECT_THROW(readBytes(Bytes(good.begin(), good.begin() + std::ptrdiff_t(size))), NBX::IOError)
            << size;
}

TEST(BuiltTerrain, RandomChangesAreSurvived) {
    const RecordedReports reports;
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const Bytes good = ObjectStreamWriter::write(*small());
    for (int i = 0; i < 3000; ++i) {
        Bytes bent = good;
        for (unsigned changes = 1 + random() % 4; changes > 0; --changes)
            bent[random() % bent.size()] = static_cast<std::uint8_t>(random());
        try {
            readBytes(bent);
        } catch (const NBX::Exception &) {
        }
    }
}

/// What is told before the building must not be too little, and should not be far too much.
TEST(BuiltTerrain, TheExpectedSizeIsAboutTheRealOne) {
    std::mt19937 random(7);
    const auto noise = [&](unsigned, unsigned) { return double(random() % 1000); };
    for (const unsigned maxVertices : {50U, 300U, 4000U})
        for (const auto & [x, y] : {std::pair(2U, 2U), {65U, 65U}, {129U, 40U}, {250U, 200U}}) {
            SCOPED_TRACE(testing::Message() << x << " x " << y << ", " << maxVertices);
            const auto grid = TestTerrain::grid({x, y}, noise);
            const double real =
                double(ObjectStreamWriter::write(*builtOver(grid, build(grid, maxVertices))).size());
            const double expected = double(BuiltTerrain::expectedBytes(x, y, maxVertices));
            EXPECT_LT(real, expected * 1.1 + 2000.0);
            EXPECT_GT(real, expected * 0.6);
        }
    EXPECT_GT(BuiltTerrain::expectedBytes(40000, 40000, 4000), 4ULL << 30);
    EXPECT_LT(BuiltTerrain::expectedBytes(2049, 2049, 4000), 1ULL << 30);
}

TEST(BuiltTerrain, TheExpectedSizeCountsVerticesBesideTheGrid) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> place(1.0, 99.0);
    const auto point = [&] { return NBX::Vector3Base<double>(place(random), 50.0, place(random)); };
    const auto grid = TestTerrain::grid({100, 100}, TestTerrain::bumpy);
    const double plain = double(ObjectStreamWriter::write(*builtOver(grid, build(grid, 300))).size());
    for (const unsigned points : {1U, 2U}) {
        SCOPED_TRACE(points == 1 ? "points" : "edges");
        std::vector<std::vector<NBX::Vector3Base<double>>> features(points == 1 ? 2000 : 50);
        for (auto & feature : features)
            std::generate_n(std::back_inserter(feature), points, point);
        const NBX::SO<GridData> stamped = ZMT::CORE::CreateHybridData::create(grid, features).get();
        const double added =
            double(ObjectStreamWriter::write(*builtOver(stamped, build(stamped, 300))).size()) - plain;
        const double expected =
            double(BuiltTerrain::expectedBytes(100, 100, 300, stamped->vertices() - 100 * 100)) -
            double(BuiltTerrain::expectedBytes(100, 100, 300));
        EXPECT_LT(added, expected * 1.2);
        EXPECT_GT(added, expected * 0.6);
    }
}

} // namespace
