#include "core/terrain/geometry/chunked/chunkedlodterrainpatch.h"

#include <support/recordedreports.h>

#include "chunkedfixture.h"

using TestChunked::Patch;
using ZMT::CORE::ChunkedLodTerrain;

namespace {

class ChunkedLodTerrainPatchTest : public testing::Test {
protected:
    ~ChunkedLodTerrainPatchTest() override { EXPECT_TRUE(reports.empty()) << reports; }

    static NBX::SO<Patch> patch(unsigned sizeX, unsigned sizeY, unsigned x, unsigned y, unsigned size,
                                unsigned short threshold = 100) {
        return new Patch(TestChunked::terrain({sizeX, sizeY}, TestTerrain::bumpy), x, y, size, threshold,
                         -3.0);
    }

    RecordedReports reports;
};

TEST_F(ChunkedLodTerrainPatchTest, QuartersOutsideTheRasterDoNotExist) {
    using Corner = std::pair<unsigned, unsigned>;
    const struct {
        const char * name;
        unsigned sizeX, sizeY;
        std::vector<Corner> corners;
    } cases[] = {{"all", 9, 9, {{0, 0}, {0, 4}, {4, 4}, {4, 0}}},
                 {"one column on the far side", 5, 9, {{0, 0}, {0, 4}, {4, 4}, {4, 0}}},
                 {"low x alone", 4, 9, {{0, 0}, {0, 4}}},
                 {"low y alone", 9, 4, {{0, 0}, {4, 0}}}};
    for (const auto & c : cases) {
        SCOPED_TRACE(c.name);
        const auto parent = patch(c.sizeX, c.sizeY, 0, 0, 9);
        std::vector<Corner> corners;
        ASSERT_EQ(parent->children(), c.corners.size());
        for (unsigned i = 0; i < parent->children(); ++i) {
            const auto child = TestChunked::patch(parent->child(i));
            corners.emplace_back(child->x(), child->y());
            EXPECT_EQ(child->size(), 5U);
            EXPECT_EQ(child->parent(), parent);
            EXPECT_EQ(child->wall(), -3.0);
        }
        EXPECT_EQ(corners, c.corners);
    }
    const auto last = patch(11, 11, 8, 8, 9);
    ASSERT_EQ(last->children(), 1U);
    EXPECT_EQ(TestChunked::patch(last->child(0))->x(), 8U);
}

TEST_F(ChunkedLodTerrainPatchTest, ThresholdsHalveDownToTheFinestPatches) {
    NBX::SO<ZMT::CORE::GeometryPatch> node = patch(33, 33, 0, 0, 33, 5);
    std::vector<unsigned> thresholds, sizes;
    for (; node; node = node->children() ? node->child(2) : nullptr) {
        const auto own = TestChunked::patch(node);
        thresholds.push_back(own->threshold());
        sizes.push_back(own->size());
        EXPECT_DOUBLE_EQ(own->approximationError(), double(own->terrain()->heightScale()) * own->threshold());
    }
    EXPECT_EQ(thresholds, (std::vector<unsigned>{5, 2, 1, 0, 0}));
    EXPECT_EQ(sizes, (std::vector<unsigned>{33, 17, 9, 5, 3}));
}

TEST_F(ChunkedLodTerrainPatchTest, TheFinestPatchHasNoChildren) {
    EXPECT_EQ(patch(9, 9, 0, 0, 3)->children(), 0U);
}

TEST_F(ChunkedLodTerrainPatchTest, ChildrenAreMadeOnceAndOnlyWhenAskedFor) {
    const auto parent = patch(9, 9, 0, 0, 9);
    EXPECT_EQ(parent->children(), 4U);
    EXPECT_EQ(parent->ZMT::CORE::GeometryPatch::children(), 0U);
    const auto second = parent->child(1);
    EXPECT_EQ(parent->ZMT::CORE::GeometryPatch::children(), 4U);
    EXPECT_EQ(parent->child(1), second);
}

TEST_F(ChunkedLodTerrainPatchTest, AChildThatDoesNotExistIsReported) {
    const auto parent = patch(9, 9, 0, 0, 9);
    EXPECT_FALSE(parent->child(4));
    EXPECT_EQ(reports.count(0, L"i < children()", L"i out of range"), 1U) << reports;
    reports.clear();
    EXPECT_TRUE(parent->child(3));
}

TEST_F(ChunkedLodTerrainPatchTest, TheBoxHoldsTheMeshWithoutTheWall) {
    const auto part = patch(9, 9, 4, 4, 5, 0);
    const auto box = part->boundingBox();
    EXPECT_EQ(box, part->terrain()->calculateBoundingBox(4, 4, 5, 0, 0.0));
    EXPECT_NEAR(box.getLLF().y, TestTerrain::bumpy(4, 4), 0.01);
    EXPECT_NEAR(box.getURB().y, TestTerrain::bumpy(8, 8), 0.01);
    // Without the vertices between corners and centre it is the same, as heights rise with x and y.
    EXPECT_EQ(patch(9, 9, 4, 4, 5, 65535)->boundingBox(), box);
}

} // namespace
