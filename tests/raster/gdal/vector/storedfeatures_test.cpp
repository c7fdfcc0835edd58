#include "raster/gdal/vector/storedfeatures.h"

#include <random>

#include <gtest/gtest.h>

#include "support/environmentvariable.h"
#include "support/thrownwords.h"

namespace {

using namespace ZMT::RASTER;
using Kind = FeatureShapes::Kind;

FeatureRecord record(std::int64_t id, double x, double y, std::size_t positions = 4, double size = 1.0) {
    FeatureRecord result;
    result.id = id;
    result.style = id % 2 ? "color=#ff0000" : "";
    result.values = {std::monostate(), id, 0.5 * id, "name " + std::to_string(id)};
    for (std::size_t i = 0; i < positions; ++i)
        result.shapes.positions.emplace_back(x + size * (i % 2), id % 3 ? 7.0 * i : 0.0,
                                             y + size * (i / 2 % 2));
    result.shapes.close(id % 5 ? Kind::Outline : Kind::Line);
    return result;
}

void expectSame(const FeatureRecord & a, const FeatureRecord & b) {
    EXPECT_EQ(a.id, b.id);
    EXPECT_EQ(a.style, b.style);
    EXPECT_EQ(a.values, b.values);
    EXPECT_EQ(a.shapes.positions, b.shapes.positions);
    ASSERT_EQ(a.shapes.paths.size(), b.shapes.paths.size());
    for (std::size_t i = 0; i < a.shapes.paths.size(); ++i) {
        EXPECT_EQ(a.shapes.paths[i].end, b.shapes.paths[i].end);
        EXPECT_EQ(a.shapes.paths[i].kind, b.shapes.paths[i].kind);
    }
}

TEST(RecordStore, GivesBackWhatItGotInAnyOrder) {
    for (const std::size_t memory : {std::size_t(0), std::size_t(1000), RecordStore::defaultMemory}) {
        RecordStore store("things", memory);
        std::vector<FeatureRecord> records;
        std::vector<std::uint64_t> offsets;
        std::mt19937 random(5);
        for (unsigned i = 0; i < 2000; ++i) {
            records.push_back(
                record(i, i, 0, i % 500 == 7 ? 50000 : 3 + i % 7)); // some larger than what is read ahead
            offsets.push_back(store.add(records.back()));
        }
        store.finish();
        std::vector<unsigned> order(records.size());
        for (unsigned i = 0; i < order.size(); ++i)
            order[i] = i;
        for (unsigned round = 0; round < 2; ++round) {
            std::vector<std::uint64_t> wanted;
            for (const unsigned i : order)
                wanted.push_back(offsets[i]);
            std::size_t next = 0;
            const std::vector<unsigned> fields{0, 1, 2, 3};
            store.read(wanted, fields, [&](FeatureRecord & found) {
                expectSame(found, records[order[next++]]);
                return next < order.size() - 1;
            });
            EXPECT_EQ(next, order.size() - 1);
            std::shuffle(order.begin(), order.end(), random);
        }
    }
}

TEST(RecordStore, GivesTheFieldsThatAreWanted) {
    RecordStore store("things");
    const std::vector<std::uint64_t> offsets{store.add(record(3, 0, 0))};
    store.finish();
    const std::vector<unsigned> fields{3, 9, 1};
    store.read(offsets, fields, [&](FeatureRecord & found) {
        EXPECT_EQ(found.values, (std::vector<FieldValue>{"name 3", std::monostate(), std::int64_t(3)}));
        return true;
    });
}

TEST(RecordStore, SaysWhereThereIsNoRoom) {
    const EnvironmentVariable folder("TMPDIR", "/dev/null");
    RecordStore store("things", 0);
    expectPart(thrown([&] {
                   store.add(record(1, 0, 0));
                   store.add(record(2, 0, 0));
               }),
               "TMPDIR");
}

TEST(StoredFeatures, AreFoundInTheirOrder) {
    StoredFeatures stored("things", 0);
    std::mt19937 random(6);
    std::uniform_real_distribution<double> place(0.0, 100.0);
    std::vector<FeatureRecord> records;
    for (unsigned i = 0; i < 1000; ++i) {
        records.push_back(record(i, place(random), place(random)));
        stored.add(records.back());
    }
    stored.finish();
    EXPECT_EQ(stored.size(), 1000U);
    const GeoExtent box{20, 30, 50, 40};
    for (const double tolerance : {0.0, 1.5}) {
        std::vector<std::int64_t> expected, found;
        for (const FeatureRecord & one : records)
            if (touches(*one.shapes.box(), box) && (tolerance == 0.0 || !one.isOfAreas()))
                expected.push_back(one.id);
        stored.read(box, tolerance, {}, [&](FeatureRecord & one) {
            found.push_back(one.id);
            return true;
        });
        EXPECT_EQ(found, expected);
    }
}

TEST(StoredFeatures, NothingIsFoundInNothing) {
    StoredFeatures stored("things");
    stored.add(FeatureRecord());
    stored.finish();
    EXPECT_EQ(stored.size(), 0U);
    EXPECT_FALSE(stored.extent());
    stored.read({-1, -1, 1, 1}, 0.0, {}, [](FeatureRecord &) -> bool { throw 1; });
}

} // namespace
