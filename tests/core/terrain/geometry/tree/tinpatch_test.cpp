#include <gtest/gtest.h>

#include <support/readingstream.h>
#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>

#include <nbx/scene/shape/box.h>
#include <zmt/core/terrain/geometry/tree/tinpatch.h>

#include "support/testterrain.h"

using TestTerrain::array;
using TestTerrain::values;
using ZMT::CORE::TinPatch;
using Local = std::vector<unsigned short>;
using Names = std::vector<std::string>;
using Numbers = std::vector<unsigned>;
using Point = NBX::Vector3Base<double>;

namespace {

const NBX::Bounds s_box(Point(0, 1, 0), Point(2, 50, 2));

/// The lists of a patch; those of the square over all of a grid of 3 by 3 at first.
struct Lists {
    Numbers vertices{0, 2, 6, 8};
    Local strips{0, 1, 2, 3};
    Numbers ranges{4};
    std::vector<Local> borders{{0, 2}, {2, 3}, {3, 1}, {1, 0}};
    std::vector<bool> outer{true, false, true, false};
};

/// Gives its elements one by one only.
template <class T> class Scattered : public NBX::Array<T> {
public:
    using NBX::Array<T>::Array;
    const T * pointer() const override { return nullptr; }
};

class TinPatchTest : public testing::Test {
protected:
    NBX::SO<TinPatch> patch(const Lists & lists = {}) const {
        return new TinPatch(grid_, array(lists.vertices), array(lists.strips), array(lists.ranges),
                            array(lists.borders[0]), lists.outer[0], array(lists.borders[1]), lists.outer[1],
                            array(lists.borders[2]), lists.outer[2], array(lists.borders[3]), lists.outer[3],
                            s_box, 1.5, -7.0, nullptr);
    }

    static void expectLists(const TinPatch & patch, const Lists & lists) {
        EXPECT_EQ(values<unsigned>(patch.vertexIndices().get()), lists.vertices);
        EXPECT_EQ(values<unsigned short>(patch.stripIndices().get()), lists.strips);
        EXPECT_EQ(values<unsigned>(patch.stripRanges().get()), lists.ranges);
        for (unsigned i = 0; i < TinPatch::s_borders; ++i) {
            const auto border = static_cast<TinPatch::Border>(i);
            EXPECT_EQ(values<unsigned short>(patch.borderIndices(border).get()), lists.borders[i]);
            EXPECT_EQ(patch.isOuterBorder(border), lists.outer[i]);
        }
    }

    RecordedReports reports_;
    NBX::SO<ZMT::CORE::GridData> grid_ = TestTerrain::grid({3, 3, 0.0, 0.0, 1.0, 1.0}, TestTerrain::bumpy);
};

TEST_F(TinPatchTest, KeepsItsLists) {
    const auto square = patch();
    expectLists(*square, {});
    EXPECT_EQ(square->data(), grid_);
    EXPECT_EQ(square->approximationError(), 1.5);
    EXPECT_EQ(square->wall(), -7.0);
    EXPECT_FALSE(square->parentHeights());
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(TinPatchTest, ListsLieInOnePiece) {
    const auto square = patch();
    square->setParentHeights(array<float>({1, 2, 3, 4}));
    EXPECT_TRUE(square->vertexIndices()->pointer());
    EXPECT_TRUE(square->stripIndices()->pointer());
    EXPECT_TRUE(square->stripRanges()->pointer());
    EXPECT_TRUE(square->borderIndices(TinPatch::B_LowY)->pointer());
    EXPECT_TRUE(square->parentHeights()->pointer());
}

TEST_F(TinPatchTest, AListOutlivesThePatch) {
    auto square = patch();
    const auto strips = square->stripIndices();
    square = nullptr;
    EXPECT_EQ(values<unsigned short>(strips.get()), Lists().strips);
}

TEST_F(TinPatchTest, ListsHandedOutStayWhatTheyAre) {
    const auto square = patch();
    square->setParentHeights(array<float>({1.5F, 2.5F, 3.5F, 4.5F}));
    const auto before = square->parentHeights();
    square->setParentHeights(array<float>({5, 6, 7, 8}));
    EXPECT_EQ(values<float>(before.get()), (std::vector<float>{1.5F, 2.5F, 3.5F, 4.5F}));
    square->setParentHeights(nullptr);
    EXPECT_EQ(values<float>(before.get()), (std::vector<float>{1.5F, 2.5F, 3.5F, 4.5F}));
    EXPECT_EQ(before->container(), square.get());
}

TEST_F(TinPatchTest, CellsLieBetweenTheFirstAndTheLastCorner) {
    EXPECT_EQ(patch()->description().cells, NBX::Area(0, 0, 2, 2));
    Lists corner;
    corner.vertices = {4, 5, 7, 8};
    EXPECT_EQ(patch(corner)->description().cells, NBX::Area(1, 1, 1, 1));
}

TEST_F(TinPatchTest, CornersInTheWrongOrderHaveNoCells) {
    Lists turned;
    turned.borders = {{3, 2}, {2, 3}, {0, 1}, {1, 0}};
    EXPECT_EQ(patch(turned)->description().cells, NBX::Area());
    // The last corner above the first one, but to its west, and beside it, but below.
    turned.borders = {{1, 2}, {2, 3}, {2, 1}, {1, 0}};
    EXPECT_EQ(patch(turned)->description().cells, NBX::Area());
    turned.borders = {{2, 2}, {2, 3}, {1, 1}, {1, 0}};
    EXPECT_EQ(patch(turned)->description().cells, NBX::Area());
}

TEST_F(TinPatchTest, ParentHeightsCanBeSetAndTakenAway) {
    const auto square = patch();
    square->setParentHeights(array<float>({1.5F, 2.5F, 3.5F, 4.5F}));
    EXPECT_EQ(values<float>(square->parentHeights().get()), (std::vector<float>{1.5F, 2.5F, 3.5F, 4.5F}));
    square->setParentHeights(square->parentHeights());
    EXPECT_EQ(values<float>(square->parentHeights().get()), (std::vector<float>{1.5F, 2.5F, 3.5F, 4.5F}));
    square->setParentHeights(nullptr);
    EXPECT_FALSE(square->parentHeights());
}

TEST_F(TinPatchTest, NoDataIsReported) {
    const NBX::SO<TinPatch> none(new TinPatch(nullptr, nullptr, nullptr, nullptr, nullptr, false, nullptr,
                                              false, nullptr, false, nullptr, false, s_box, 0.0, 0.0,
                                              nullptr));
    EXPECT_EQ(reports_.size(), 1U) << reports_;
    EXPECT_EQ(reports_.count(0, L"data", L"no data"), 1U) << reports_;
    EXPECT_FALSE(none->vertexIndices());
    EXPECT_FALSE(none->borderIndices(TinPatch::B_LowX));
}

/// The list of a patch that is given element by element only, or `none` of them.
enum ScatteredList {
    SL_Vertices,
    SL_Strips,
    SL_Ranges,
    SL_ParentHeights,
    SL_Borders,
    SL_None = SL_Borders + 4
};

template <class T> NBX::SO<const NBX::Iterator<T>> listOf(const std::vector<T> & elements, bool isScattered) {
    if (isScattered) return new Scattered<T>(elements);
    return array(elements);
}

const std::vector<float> s_heights{1.5F, 2.5F, 3.5F, 4.5F};

NBX::SO<TinPatch> patchWith(const NBX::SO<ZMT::CORE::GridData> & grid, unsigned scattered) {
    const Lists lists;
    const auto border = [&](unsigned i) { return listOf(lists.borders[i], scattered == SL_Borders + i); };
    const NBX::SO<TinPatch> patch(new TinPatch(
        grid, listOf(lists.vertices, scattered == SL_Vertices), listOf(lists.strips, scattered == SL_Strips),
        listOf(lists.ranges, scattered == SL_Ranges), border(0), true, border(1), false, border(2), true,
        border(3), false, s_box, 1.5, -7.0, nullptr));
    patch->setParentHeights(listOf(s_heights, scattered == SL_ParentHeights));
    return patch;
}

TEST_F(TinPatchTest, AListThatIsNoArrayIsReportedByWriting) {
    for (unsigned scattered = SL_Vertices; scattered <= SL_None; ++scattered) {
        SCOPED_TRACE(testing::Message() << "list " << scattered);
        const auto square = patchWith(grid_, scattered);
        EXPECT_TRUE(reports_.empty()) << reports_;
        const auto read = roundTrip(square);
        EXPECT_EQ(reports_.size(), scattered == SL_None ? 0U : 1U) << reports_;
        EXPECT_EQ(reports_.count(0, L"pointer", L"not an array"), reports_.size()) << reports_;
        reports_.clear();
        ASSERT_TRUE(read);
        expectLists(*read, {});
        EXPECT_EQ(values<float>(read->parentHeights().get()), s_heights);
        roundTrip(read);
        EXPECT_TRUE(reports_.empty()) << "what was read is an array: " << reports_;
    }
}

TEST_F(TinPatchTest, HeightsThatAreAnArrayReplaceScatteredOnes) {
    const auto square = patchWith(grid_, SL_ParentHeights);
    square->setParentHeights(array(s_heights));
    roundTrip(square);
    EXPECT_TRUE(reports_.empty()) << reports_;
    square->setParentHeights(new Scattered<float>(s_heights));
    roundTrip(square);
    EXPECT_EQ(reports_.count(0, L"pointer", L"not an array"), 1U) << reports_;
}

TEST_F(TinPatchTest, StoresCountedSequencesInOrder) {
    Lists lists;
    lists.strips = {0, 1, 2};
    lists.ranges = {3};
    lists.borders = {{0, 2}, {}, {1}, {}};
    const auto written = patch(lists);
    written->setParentHeights(array<float>({1, 2, 3, 4}));
    const Names names = RecordedAttributes::of(*written);
    Names expected{"data"};
    const auto sequence = [&expected](unsigned size) {
        expected.emplace_back("size");
        expected.insert(expected.end(), size, "pointer");
    };
    for (const unsigned size : {4U, 3U, 1U, 4U})
        sequence(size);
    const unsigned borderSizes[] = {2, 0, 1, 0};
    for (unsigned i = 0; i < 4; ++i) {
        expected.push_back("isOuterBorder" + std::to_string(i));
        sequence(borderSizes[i]);
    }
    EXPECT_EQ(names, expected);
}

TEST_F(TinPatchTest, ReadsWhatItWrote) {
    const auto written = patch();
    written->setParentHeights(array<float>({1.5F, 2.5F, 3.5F, 4.5F}));
    const auto read = roundTrip(written);
    ASSERT_TRUE(read);
    expectLists(*read, {});
    EXPECT_EQ(values<float>(read->parentHeights().get()), (std::vector<float>{1.5F, 2.5F, 3.5F, 4.5F}));
    EXPECT_EQ(read->approximationError(), 1.5);
    EXPECT_EQ(read->data()->vertices(), 9U);
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(TinPatchTest, EmptySequencesAreReadAsNull) {
    Lists lists;
    lists.borders = {{}, {}, {}, {}};
    const auto read = roundTrip(patch(lists));
    ASSERT_TRUE(read);
    EXPECT_FALSE(read->parentHeights());
    EXPECT_FALSE(read->borderIndices(TinPatch::B_HighY));
    EXPECT_TRUE(read->vertexIndices());
}

TEST_F(TinPatchTest, ShapesOfThePainterAreNotStored) {
    const auto written = patch();
    written->patchShape() = new NBX::Box;
    written->wallShape() = new NBX::Box;
    const auto read = roundTrip(written);
    ASSERT_TRUE(read);
    EXPECT_FALSE(read->patchShape());
    EXPECT_FALSE(read->wallShape());
}

TEST_F(TinPatchTest, ReadingIntoAPatchAgainDropsBothShapes) {
    const auto again = patch();
    again->patchShape() = new NBX::Box;
    again->wallShape() = new NBX::Box;
    ReadingStream stream;
    again->serialize(stream);
    EXPECT_FALSE(again->patchShape());
    EXPECT_FALSE(again->wallShape());
    EXPECT_FALSE(again->stripIndices()) << "it has been read";
}

/// A stream in which all lists have one element, 0.
class ShortListsStream : public ReadingStream {
public:
    using ReadingStream::attribute;
    bool attribute(const char * name, unsigned & value) override {
        value = std::string(name) == "size" ? 1 : 0;
        return true;
    }
    bool attribute(const char *, unsigned short & value) override {
        value = 0;
        return true;
    }
    bool attribute(const char *, float & value) override {
        value = 0.0F;
        return true;
    }
};

TEST_F(TinPatchTest, ReadingIntoAPatchWithScatteredListsMakesThemArrays) {
    for (unsigned scattered = SL_Vertices; scattered < SL_None; ++scattered) {
        SCOPED_TRACE(testing::Message() << "list " << scattered);
        const auto again = patchWith(grid_, scattered);
        ShortListsStream stream;
        again->serialize(stream);
        EXPECT_EQ(values<unsigned>(again->vertexIndices().get()), Numbers{0});
        EXPECT_EQ(values<float>(again->parentHeights().get()), std::vector<float>{0.0F});
        roundTrip(again);
        EXPECT_TRUE(reports_.empty()) << reports_;
        reports_.clear();
    }
}

TEST_F(TinPatchTest, StoredNumbersBesideTheDataAreRefused) {
    struct Row {
        const char * name;
        std::function<void(Lists &)> spoil;
    };
    const std::vector<Row> rows{
        {"vertex beyond the grid", [](Lists & l) { l.vertices[3] = 9; }},
        {"strip beyond the vertices", [](Lists & l) { l.strips[2] = 4; }},
        {"range beyond the strips", [](Lists & l) { l.ranges[0] = 5; }},
        {"descending ranges",
         [](Lists & l) {
             l.ranges = {4, 3};
         }},
        {"border beyond the vertices", [](Lists & l) { l.borders[2][1] = 65535; }},
    };
    for (const Row & row : rows) {
        SCOPED_TRACE(row.name);
        Lists lists;
        row.spoil(lists);
        EXPECT_THROW(roundTrip(patch(lists)), NBX::IOError);
    }
    const auto heights = patch();
    heights->setParentHeights(array<float>({1, 2, 3}));
    EXPECT_THROW(roundTrip(heights), NBX::IOError);
}

} // namespace
