#include "core/terrain/geometry/hybrid/microindextable.h"

#include <gtest/gtest.h>

#include <random>

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

/// Cells far apart, crowded together, and at either end.
TEST(MicroIndexTableTest, KnowsTheListsOfManyCells) {
    std::mt19937 random(4);
    for (const unsigned distance : {1U, 2U, 7U, 1000U}) {
        SCOPED_TRACE(distance);
        constexpr unsigned sizeX = 311, sizeY = 97;
        Numbers cells, ends, indices;
        for (unsigned cell = distance - 1; cell < sizeX * sizeY; cell += 1 + random() % distance) {
            if (cell > 3000 && cell < 9000) continue;
            cells.push_back(cell);
            for (unsigned i = 0; i < 3 + 3 * (cell % 2); ++i)
                indices.push_back(cell + i);
            ends.push_back(unsigned(indices.size()));
        }
        const SO<MicroIndexTable> t(new MicroIndexTable(sizeX, sizeY, cells, ends, indices));
        auto next = cells.begin();
        for (unsigned cell = 0; cell < sizeX * sizeY; ++cell) {
            const bool hasList = next != cells.end() && *next == cell;
            const Numbers list = t->get(cell);
            ASSERT_EQ(list.size(), hasList ? 3 + 3 * (cell % 2) : 0) << cell;
            if (!hasList) continue;
            ASSERT_EQ(list.front(), cell);
            ++next;
        }
    }
}

/// A stream of a few bytes may say so.
TEST(MicroIndexTableTest, BillionsOfRowsTakeNoMemory) {
    constexpr unsigned rows = 4294967295U;
    const SO<MicroIndexTable> t(new MicroIndexTable(1, rows, {7, rows - 1}, {3, 6}, {0, 1, 2, 3, 4, 5}));
    const auto read = roundTrip(t);
    for (const auto & lists : {t, read}) {
        EXPECT_EQ(lists->get(0, 7), (Numbers{0, 1, 2}));
        EXPECT_EQ(lists->get(0, rows - 1), (Numbers{3, 4, 5}));
        EXPECT_TRUE(lists->get(0, 8).empty());
        EXPECT_TRUE(lists->get(0, rows - 2).empty());
    }
    const SO<MicroIndexTable> last(new MicroIndexTable(rows, 1, {rows - 1}, {3}, {0, 1, 2}));
    EXPECT_EQ(last->get(rows - 1, 0), (Numbers{0, 1, 2}));
    EXPECT_TRUE(last->get(0, 0).empty());
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
            EXPECT_TRUE(!t || t->size() < 12 || t->get(11).empty()) << size;
        } catch (const NBX::Exception &) {
        }
    }
}

} // namespace
