#include <gtest/gtest.h>

#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>

#include <zmt/core/terrain/geometry/regular/gridpatch.h>

#include "support/testterrain.h"

using NBX::Area;
using ZMT::CORE::GridPatch;
using Names = std::vector<std::string>;
using Point = NBX::Vector3Base<double>;

namespace {

const NBX::Bounds s_box(Point(1, 2, 3), Point(4, 5, 6));

class GridPatchTest : public testing::Test {
protected:
    NBX::SO<GridPatch> patch(const Area & domain) const {
        return new GridPatch(grid_, domain, s_box, 0.0, -7.0, nullptr);
    }

    RecordedReports reports_;
    /// 6 columns, 5 rows.
    NBX::SO<ZMT::CORE::GridData> grid_ =
        TestTerrain::grid({6, 5, 100.0, 200.0, 10.0, 20.0}, TestTerrain::bumpy);
};

TEST_F(GridPatchTest, KeepsGridAndDomain) {
    const auto whole = patch(Area(0, 0, 5, 4));
    EXPECT_EQ(whole->grid(), grid_);
    EXPECT_EQ(whole->data(), grid_);
    EXPECT_EQ(whole->domain(), Area(0, 0, 5, 4));
    EXPECT_EQ(whole->wall(), -7.0);
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(GridPatchTest, OneCellIsLegal) {
    patch(Area(0, 0, 1, 1));
    patch(Area(4, 3, 1, 1));
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(GridPatchTest, NoGridIsReported) {
    const NBX::SO<GridPatch> none(new GridPatch(nullptr, Area(0, 0, 1, 1), s_box, 0.0, 0.0, nullptr));
    EXPECT_EQ(reports_.size(), 1U) << reports_;
    EXPECT_EQ(reports_.count(0, L"grid", L"no grid"), 1U) << reports_;
}

TEST_F(GridPatchTest, DomainsBesideTheGridAreReported) {
    const std::wstring x = L"((0) <= (domain.getX())) && ((domain.getX()) < (grid->sizeX() - 1))";
    const std::wstring y = L"((0) <= (domain.getY())) && ((domain.getY()) < (grid->sizeY() - 1))";
    const std::wstring width =
        L"((1) <= (domain.getWidth())) && ((domain.getWidth()) < (grid->sizeX() - domain.getX()))";
    const std::wstring height =
        L"((1) <= (domain.getHeight())) && ((domain.getHeight()) < (grid->sizeY() - domain.getY()))";
    struct Row {
        const char * name;
        Area domain;
        std::wstring condition, message;
    };
    const std::vector<Row> rows{
        {"last column", Area(5, 0, 1, 1), x, L"range error: [0, 5), 5"},
        {"negative x", Area(-1, 0, 1, 1), x, L"range error: [0, 5), -1"},
        {"last row", Area(0, 4, 1, 1), y, L"range error: [0, 4), 4"},
        {"negative y", Area(0, -2, 1, 1), y, L"range error: [0, 4), -2"},
        {"width 0", Area(0, 0, 0, 1), width, L"range error: [1, 6), 0"},
        {"too wide", Area(2, 0, 4, 1), width, L"range error: [1, 4), 4"},
        {"height 0", Area(0, 0, 1, 0), height, L"range error: [1, 5), 0"},
        {"too high", Area(0, 1, 1, 4), height, L"range error: [1, 4), 4"},
    };
    for (const Row & row : rows) {
        SCOPED_TRACE(row.name);
        reports_.clear();
        patch(row.domain);
        EXPECT_EQ(reports_.count(0, row.condition, row.message), 1U) << reports_;
    }
}

TEST_F(GridPatchTest, StoresGridAndDomain) {
    const auto written = patch(Area(1, 2, 3, 2));
    const Names names = RecordedAttributes::of(*written);
    ASSERT_FALSE(names.empty());
    EXPECT_EQ(names.front(), "grid");
    for (unsigned i = 1; i < names.size(); ++i)
        EXPECT_TRUE(names[i].starts_with("domain")) << names[i];

    const auto read = roundTrip(written);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->domain(), Area(1, 2, 3, 2));
    ASSERT_TRUE(read->grid());
    EXPECT_EQ(read->grid()->vertices(), 30U);
    EXPECT_EQ(read->data(), read->grid());
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(GridPatchTest, PatchesOfOneGridShareItAfterReading) {
    const auto child = patch(Area(0, 0, 1, 1));
    const NBX::SO<GridPatch> parent(
        new GridPatch(grid_, Area(0, 0, 5, 4), s_box, 0.0, 0.0,
                      TestTerrain::array<NBX::SO<ZMT::CORE::GeometryPatch>>({child})));
    const auto read = roundTrip(parent);
    ASSERT_TRUE(read);
    ASSERT_EQ(read->children(), 1U);
    EXPECT_EQ(read->child(0)->data(), read->grid());
    EXPECT_EQ(read->child(0)->parent(), read);
}

TEST_F(GridPatchTest, StoredDomainsBesideTheGridAreRefused) {
    for (const Area & domain : {Area(5, 0, 1, 1), Area(-1, 0, 1, 1), Area(0, 0, 0, 1), Area(0, 0, 6, 1),
                                Area(0, 1, 1, UINT32_MAX), Area(0, 0, 1, 0)})
        EXPECT_THROW(roundTrip(patch(domain)), NBX::IOError);
    const NBX::SO<GridPatch> none(new GridPatch(nullptr, Area(0, 0, 1, 1), s_box, 0.0, 0.0, nullptr));
    EXPECT_THROW(roundTrip(none), NBX::IOError);
}

} // namespace
