#include <zmt/core/terrain/geometry/hybrid/hybriddata.h>

#include <gtest/gtest.h>

#include "core/terrain/geometry/hybrid/microindextable.h"
#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>
#include <zmt/core/terrain/geometry/hybrid/microtrianglesdata.h>

#include <nbx/container/sequence/array2d.h>
#include <nbx/engine/raytracingtechnique.h>
#include <nbx/scene/node/scenething.h>

#include "support/collectedshapes.h"
#include "support/testterrain.h"

using NBX::SO;
using ZMT::CORE::HybridData;
using ZMT::CORE::MicroIndexTable;
using ZMT::RASTER::RasterGrid;
using Point = NBX::Vector3Base<double>;

namespace {

const RasterGrid s_layout{4, 3, 100.0, 200.0, 10.0, 20.0};
constexpr unsigned s_gridVertices = 12;

/// Cell (1, 0) has a point in its middle, 70 high.
SO<HybridData> hybrid() {
    const SO<MicroIndexTable> table(
        new MicroIndexTable(4, 3, {1}, {12}, {1, 2, 12, 2, 6, 12, 6, 5, 12, 5, 1, 12}));
    return new HybridData(TestTerrain::raster(s_layout, TestTerrain::bumpy).get(), {{115.0, 70.0, 210.0}},
                          table.get());
}

void expectHybrid(const HybridData & data) {
    EXPECT_EQ(data.vertices(), s_gridVertices + 1);
    EXPECT_EQ(data.vertex(s_gridVertices), Point(15.0, 70.0, 10.0)) << "in local coordinates";
    EXPECT_EQ(data.normal(s_gridVertices), Point(0.0, 1.0, 0.0));
    const SO<ZMT::CORE::GridData> grid = TestTerrain::grid(s_layout, TestTerrain::bumpy);
    for (unsigned v = 0; v < s_gridVertices; ++v) {
        EXPECT_TRUE(data.isGridVertex(v));
        EXPECT_EQ(data.vertex(v), grid->vertex(v));
        EXPECT_EQ(data.normal(v), grid->normal(v));
    }
    EXPECT_FALSE(data.isGridVertex(s_gridVertices));
    NBX::Bounds box = grid->boundingBox();
    box += Point(15.0, 70.0, 10.0);
    EXPECT_EQ(data.boundingBox(), box);
    for (unsigned y = 0; y < 3; ++y)
        for (unsigned x = 0; x < 4; ++x)
            EXPECT_EQ(bool(data.microData(x, y)), x == 1 && y == 0) << x << " " << y;
    EXPECT_TRUE(data.hasCellShapes());
    EXPECT_EQ(data.cellCorners(1, 0), (std::vector<unsigned>{1, 2, 12, 2, 6, 12, 6, 5, 12, 5, 1, 12}));
    EXPECT_TRUE(data.cellCorners(0, 1).empty()) << "a plain cell";
    const auto micro = data.microData(1, 0);
    EXPECT_EQ(micro->vertices(), 12U);
    EXPECT_EQ(micro->container(), &data);
    EXPECT_NE(micro, data.microData(1, 0)) << "each call makes one";
}

TEST(HybridDataTest, HasVerticesBehindThoseOfTheGrid) {
    const RecordedReports reports;
    expectHybrid(*hybrid());
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(HybridDataTest, NumbersOutOfRangeAreReported) {
    const RecordedReports reports;
    const auto data = hybrid();
    EXPECT_EQ(data->vertex(s_gridVertices + 1), Point());
    data->normal(s_gridVertices + 1);
    EXPECT_EQ(reports.count(0, L"v < vertices()", L"v out of range"), 2U) << reports;
}

TEST(HybridDataTest, WithoutMicroStructuresIsAGrid) {
    const SO<HybridData> data(
        new HybridData(TestTerrain::raster(s_layout, TestTerrain::bumpy).get(), {}, nullptr));
    EXPECT_EQ(data->vertices(), s_gridVertices);
    EXPECT_FALSE(data->microData(1, 0));
    EXPECT_TRUE(data->cellCorners(1, 0).empty());
    EXPECT_EQ(data->boundingBox(), TestTerrain::grid(s_layout, TestTerrain::bumpy)->boundingBox());
    EXPECT_EQ(TestTerrain::taken(data->newIndexIterator(data->boundingBox())).size(), s_gridVertices);
}

TEST(HybridDataTest, AnyRectangleOfListsWillDo) {
    const SO<NBX::Array2D<std::vector<unsigned>>> lists(new NBX::Array2D<std::vector<unsigned>>(4, 3));
    lists->set(2, 1, {6, 7, 11});
    const SO<HybridData> data(
        new HybridData(TestTerrain::raster(s_layout, TestTerrain::bumpy).get(), {}, lists.get()));
    EXPECT_EQ(data->microData(2, 1)->vertices(), 3U);
    EXPECT_EQ(roundTrip(data)->microData(2, 1)->vertices(), 3U);
}

TEST(HybridDataTest, IsStored) {
    const auto data = hybrid();
    const std::vector<std::string> names = RecordedAttributes::of(*data);
    ASSERT_GE(names.size(), 3U);
    EXPECT_EQ(names.front().substr(0, 16), "nonGridVertices.");
    EXPECT_EQ(names[names.size() - 2], "microIndices");
    EXPECT_EQ(names.back(), "bbox");
    const auto read = roundTrip(data);
    ASSERT_TRUE(read);
    expectHybrid(*read);
}

/// Whatever bytes are changed: an exception, or data of which everything can be asked.
TEST(HybridDataTest, BadStreamsDoNoHarm) {
    const RecordedReports reports;
    const auto bytes = NBX::ObjectStreamWriter::write(*hybrid(), true);
    const auto readAll = [](const std::vector<std::uint8_t> & stream) {
        try {
            const auto read = NBX::ObjectStreamReader(stream.data(), stream.size()).read();
            const auto * data = dynamic_cast<const HybridData *>(read.get());
            for (unsigned v = 0; data && v < data->vertices(); ++v)
                data->vertex(v);
            for (unsigned y = 0; data && y < data->sizeY(); ++y)
                for (unsigned x = 0; x < data->sizeX(); ++x)
                    if (const auto micro = data->microData(x, y)) micro->boundingBox();
        } catch (const NBX::Exception &) {
        }
    };
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        readAll({bytes.begin(), bytes.begin() + long(i)});
        for (const int change : {1, 128, 255}) {
            auto changed = bytes;
            changed[i] = std::uint8_t(changed[i] + change);
            readAll(changed);
        }
    }
}

TEST(HybridDataTest, StoredPartsMustFit) {
    const auto write = [](const std::vector<unsigned> & indices, unsigned sizeX) {
        const SO<MicroIndexTable> table(
            new MicroIndexTable(sizeX, 3, {1}, {unsigned(indices.size())}, indices));
        const SO<HybridData> data(
            new HybridData(TestTerrain::raster(s_layout, TestTerrain::bumpy).get(), {}, table.get()));
        return NBX::ObjectStreamWriter::write(*data, true);
    };
    const auto read = [](const std::vector<std::uint8_t> & bytes) {
        return NBX::ObjectStreamReader(bytes.data(), bytes.size()).read();
    };
    EXPECT_TRUE(read(write({1, 2, 5}, 4)));
    EXPECT_THROW(read(write({1, 2, s_gridVertices}, 4)), NBX::Exception);
    EXPECT_THROW(read(write({1, 2, 5}, 5)), NBX::Exception);

    const auto writeList = [](const std::vector<unsigned> & list) {
        const SO<NBX::Array2D<std::vector<unsigned>>> lists(new NBX::Array2D<std::vector<unsigned>>(4, 3));
        lists->set(2, 1, list);
        const SO<HybridData> data(
            new HybridData(TestTerrain::raster(s_layout, TestTerrain::bumpy).get(), {}, lists.get()));
        return NBX::ObjectStreamWriter::write(*data, true);
    };
    EXPECT_TRUE(read(writeList({6, 7, 11})));
    EXPECT_THROW(read(writeList({6, 7})), NBX::Exception);
    EXPECT_THROW(read(writeList({6, 7, 11, 10})), NBX::Exception);
    EXPECT_THROW(read(writeList({6, 7, 4000000000U})), NBX::Exception);
}

/// In data that was not read, too: neither rays nor simplifiers are harmed.
TEST(HybridDataTest, CellsThatDoNotFitDoNoHarm) {
    const RecordedReports reports;
    const auto raster = TestTerrain::raster(s_layout, TestTerrain::bumpy);
    for (const unsigned size : {2U, 40U}) {
        const SO<NBX::Array2D<std::vector<unsigned>>> lists(
            new NBX::Array2D<std::vector<unsigned>>(size, size));
        lists->set(0, 0, {0, 1});
        lists->set(1, 0, {0, 1, 4000000000U, 9, 1});
        lists->set(1, 1, {4000000000U, 4000000000U, 4000000000U});
        const SO<HybridData> data(new HybridData(raster.get(), {}, lists.get()));
        const SO<NBX::Engine> engine(new NBX::Engine);
        const SO<NBX::SceneThing> scene(new NBX::SceneThing);
        scene->append(data.get());
        const SO<CollectedShapes::Technique> technique(new CollectedShapes::Technique);
        engine->evaluate(scene.get(), technique.get());
        EXPECT_EQ(technique->all<NBX::PolygonSet>().size(), 4U) << "three cells and the rest";

        unsigned hits = 0;
        for (double x = 0.5; x < 30.0; x += 1.0)
            for (double z = 0.5; z < 40.0; z += 1.0) {
                const SO<NBX::RayTracingTechnique> ray(
                    new NBX::RayTracingTechnique(NBX::Ray({x, 900, z}, {0, -1, 0})));
                ray->trace(engine.get(), scene.get());
                hits += ray->hasHit();
            }
        EXPECT_GE(hits, 30U * 40 / 2) << "the plain cells";
    }
}

} // namespace
