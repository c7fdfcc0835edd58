#include <zmt/core/terrain/geometry/microindextable.h>

#include <gtest/gtest.h>

#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>

using NBX::SO;
using ZMT::CORE::MicroIndexTable;
using Numbers = std::vector<unsigned>;

namespace {

SO<MicroIndexTable> table() {
    return new MicroIndexTable(4, 3, {1, 2, 11}, {3, 9, 12}, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11});
}

void expectLists(const MicroIndexTable & t) {
    for (unsigned y = 0; y < 3; ++y) {
        for (unsigned x = 0; x < 4; ++x) {
            const unsigned cell = x + 4 * y;
            const Numbers expected = cell == 1    ? Numbers{0, 1, 2}
                                     : cell == 2  ? Numbers{3, 4, 5, 6, 7, 8}
                                     : cell == 11 ? Numbers{9, 10, 11}
                                                  : Numbers{};
            EXPECT_EQ(t.get(x, y), expected) << x << " " << y;
            EXPECT_EQ(t.get(cell), expected);
        }
    }
}

TEST(MicroIndexTableTest, KnowsTheListOfEachCell) {
    EXPECT_EQ(table()->size(), 12U);
    expectLists(*table());
}

TEST(MicroIndexTableTest, MayBeEmpty) {
    const SO<MicroIndexTable> empty(new MicroIndexTable(4, 3, {}, {}, {}));
    EXPECT_TRUE(empty->get(3, 2).empty());
    const auto read = roundTrip(empty);
    EXPECT_EQ(read->sizeX(), 4U);
    EXPECT_TRUE(read->get(3, 2).empty());
}

TEST(MicroIndexTableTest, PlacesOutsideAreReported) {
    const RecordedReports reports;
    EXPECT_TRUE(table()->get(4, 0).empty());
    EXPECT_TRUE(table()->get(0, 3).empty());
    EXPECT_EQ(reports.size(), 2U) << reports;
}

TEST(MicroIndexTableTest, RefusesListsThatDoNotFit) {
    const struct {
        const char * name;
        Numbers cells, ends, indices;
    } cases[] = {{"cell outside", {12}, {3}, {0, 1, 2}},
                 {"cells not ascending", {2, 1}, {3, 6}, {0, 1, 2, 3, 4, 5}},
                 {"cell twice", {1, 1}, {3, 6}, {0, 1, 2, 3, 4, 5}},
                 {"no whole triangle", {1}, {2}, {0, 1}},
                 {"empty list", {1}, {0}, {}},
                 {"ends descend", {1, 2}, {6, 3}, {0, 1, 2}},
                 {"end missing", {1, 2}, {3}, {0, 1, 2}},
                 {"too many numbers", {1}, {3}, {0, 1, 2, 3}},
                 {"too few numbers", {1}, {6}, {0, 1, 2}}};
    for (const auto & c : cases)
        EXPECT_THROW(SO<MicroIndexTable>(new MicroIndexTable(4, 3, c.cells, c.ends, c.indices)), NBX::IOError)
            << c.name;
    EXPECT_THROW(SO<MicroIndexTable>(new MicroIndexTable(65536, 65537, {}, {}, {})), NBX::IOError);
}

TEST(MicroIndexTableTest, IsStored) {
    const auto read = roundTrip(table());
    ASSERT_TRUE(read);
    expectLists(*read);
}

/// No cut file crashes, and none is taken for the whole.
TEST(MicroIndexTableTest, CutStreamsAreRefused) {
    const auto bytes = NBX::ObjectStreamWriter::write(*table(), true);
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        const std::vector<std::uint8_t> cut(bytes.begin(), bytes.begin() + long(size));
        try {
            const auto read = NBX::ObjectStreamReader(cut.data(), cut.size()).read();
            const auto * t = dynamic_cast<const MicroIndexTable *>(read.get());
            EXPECT_TRUE(!t || t->indices().size() < 12) << size;
        } catch (const NBX::Exception &) {
        }
    }
}

} // namespace
