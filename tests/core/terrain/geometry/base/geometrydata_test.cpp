#include <gtest/gtest.h>

#include <random>

#include "support/fakegeometrydata.h"
#include "support/testterrain.h"
#include <support/recordedreports.h>
#include <support/slotorder.h>

using Point = NBX::Vector3Base<double>;
using Numbers = std::vector<unsigned>;
using TestTerrain::taken;

namespace {

class GeometryDataTest : public testing::Test {
protected:
    RecordedReports reports_;
    NBX::SO<FakeGeometryData> data_ =
        new FakeGeometryData(std::vector<Point>{{0, 0, 0}, {1, 5, 2}, {-3, 2, 7}, {4, 4, 4}});
    NBX::SO<FakeGeometryData> empty_ = new FakeGeometryData(std::vector<Point>{});
};

TEST_F(GeometryDataTest, BoxIsThatOfAllVertices) {
    EXPECT_TRUE(data_->boundingBox() == NBX::Bounds(Point(-3, 0, 0), Point(4, 5, 7)));
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(GeometryDataTest, BoxOfNoVerticesIsReported) {
    EXPECT_FALSE(empty_->boundingBox().isDefined());
    EXPECT_EQ(reports_.size(), 1U) << reports_;
    EXPECT_EQ(reports_.count(0, L"vertices() > 0", L"no vertices"), 1U) << reports_;
}

TEST_F(GeometryDataTest, OriginIsZeroUnlessASubclassHasOne) {
    EXPECT_EQ(data_->GeometryData::origin(), Point());
}

TEST_F(GeometryDataTest, AllNumbersPositionsAndNormals) {
    EXPECT_EQ(taken(data_->newIndexIterator()), (Numbers{0, 1, 2, 3}));
    EXPECT_EQ(taken(data_->newVertexIterator()),
              (std::vector<Point>{{0, 0, 0}, {1, 5, 2}, {-3, 2, 7}, {4, 4, 4}}));
    EXPECT_EQ(taken(data_->newNormalIterator()),
              (std::vector<Point>{{0, 1, 0}, {1, 1, 0}, {2, 1, 0}, {3, 1, 0}}));
    EXPECT_TRUE(taken(empty_->newVertexIterator()).empty());
}

TEST_F(GeometryDataTest, BoxSelectsByAllThreeAxes) {
    EXPECT_EQ(taken(data_->newIndexIterator(NBX::Bounds(Point(0, 0, 0), Point(4, 4, 4)))), (Numbers{0, 3}));
    EXPECT_EQ(taken(data_->newVertexIterator(NBX::Bounds(Point(-5, 1, 5), Point(0, 3, 8)))),
              (std::vector<Point>{{-3, 2, 7}}));
    EXPECT_EQ(taken(data_->newNormalIterator(NBX::Bounds(Point(-5, 1, 5), Point(0, 3, 8)))),
              (std::vector<Point>{{2, 1, 0}}));
}

TEST_F(GeometryDataTest, BoxBesideTheDataSelectsNothing) {
    EXPECT_TRUE(taken(data_->newIndexIterator(NBX::Bounds(Point(5, 0, 0), Point(9, 9, 9)))).empty());
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(GeometryDataTest, UndefinedBoxIsReportedAndSelectsNothing) {
    EXPECT_TRUE(taken(data_->newIndexIterator(NBX::Bounds())).empty());
    EXPECT_EQ(reports_.size(), 1U) << reports_;
    EXPECT_EQ(reports_.count(0, L"bbox.isDefined()", L"bounding-box not defined"), 1U) << reports_;
}

TEST_F(GeometryDataTest, MappingWithoutIndicesIsReported) {
    EXPECT_TRUE(taken(data_->verticesOf(nullptr)).empty());
    EXPECT_EQ(reports_.count(0, L"indices", L"no indices"), 1U) << reports_;
    EXPECT_TRUE(taken(data_->normalsOf(nullptr)).empty());
    EXPECT_EQ(reports_.count(0, L"indices", L"no indices"), 2U) << reports_;
}

TEST_F(GeometryDataTest, BoxSelectsExactlyTheVerticesInside) {
    constexpr unsigned seed = 7;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> coordinate(0, 8);
    const auto point = [&] {
        const double x = coordinate(random), y = coordinate(random), z = coordinate(random);
        return Point(x, y, z);
    };
    for (int round = 0; round < 300; ++round) {
        std::vector<Point> points(30);
        for (Point & p : points)
            p = point();
        const NBX::SO<FakeGeometryData> data(new FakeGeometryData(points));
        const Point a = point(), b = point();
        Numbers expected;
        for (unsigned v = 0; v < points.size(); ++v) {
            bool inside = true;
            for (unsigned axis = 0; axis < 3; ++axis)
                inside = inside && points[v][axis] >= std::min(a[axis], b[axis]) &&
                         points[v][axis] <= std::max(a[axis], b[axis]);
            if (inside) expected.push_back(v);
        }
        ASSERT_EQ(taken(data->newIndexIterator(NBX::Bounds(a, b))), expected);
    }
}

TEST_F(GeometryDataTest, OperationsKeepTheirOrder) {
    using ZMT::CORE::GeometryData;
    EXPECT_TRUE(inSlotOrder(&NBX::Shape::boundingBox, &GeometryData::vertices, &GeometryData::vertex,
                            &GeometryData::normal, &GeometryData::calculateHeight,
                            &GeometryData::hasUndefinedHeight, &GeometryData::isUndefinedHeightValue,
                            &GeometryData::getCellSize, &GeometryData::resampleRasterData,
                            &GeometryData::extractMesh, &GeometryData::origin,
                            static_cast<GeometryData::Indices * (GeometryData::*)(const NBX::Bounds &) const>(
                                &GeometryData::newIndexIterator)));
}

} // namespace
