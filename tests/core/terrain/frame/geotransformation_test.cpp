#include <gtest/gtest.h>

#include <random>

#include <nbx/container/sequence/array.h>
#include <zmt/core/terrain/frame/geotransformation.h>

#include <support/recordedreports.h>

using ZMT::CORE::GeoTransformation;
using Point = GeoTransformation::Point;

namespace {

class GeoTransformationTest : public testing::Test {
protected:
    ~GeoTransformationTest() override { GeoTransformation::setNBXOrigin({}); }
};

TEST_F(GeoTransformationTest, StartsWithoutAShift) {
    EXPECT_EQ(GeoTransformation::nbx2geoOffset(), Point());
    EXPECT_EQ(GeoTransformation::geo2nbxTf(Point(1, 2, 3)), Point(1, 2, 3));
}

TEST_F(GeoTransformationTest, OffsetsAreTheOriginAndItsNegation) {
    GeoTransformation::setNBXOrigin({3.4e6, 100.0, 5.8e6});
    EXPECT_EQ(GeoTransformation::nbx2geoOffset(), Point(3.4e6, 100.0, 5.8e6));
    EXPECT_EQ(GeoTransformation::geo2nbxOffset(), Point(-3.4e6, -100.0, -5.8e6));
}

TEST_F(GeoTransformationTest, PointsGoFromGeoToSceneBySubtraction) {
    GeoTransformation::setNBXOrigin({10, 20, 30});
    EXPECT_EQ(GeoTransformation::geo2nbxTf(Point(11, 22, 33)), Point(1, 2, 3));
    EXPECT_EQ(GeoTransformation::nbx2geoTf(Point(1, 2, 3)), Point(11, 22, 33));
}

TEST_F(GeoTransformationTest, BoxesAreShiftedByBothCorners) {
    GeoTransformation::setNBXOrigin({10, 20, 30});
    const NBX::Bounds geo(Point(11, 22, 33), Point(14, 25, 36));
    const NBX::Bounds scene(Point(1, 2, 3), Point(4, 5, 6));
    EXPECT_TRUE(GeoTransformation::geo2nbxTf(geo) == scene);
    EXPECT_TRUE(GeoTransformation::nbx2geoTf(scene) == geo);
}

TEST_F(GeoTransformationTest, AnUndefinedBoxStaysUndefined) {
    GeoTransformation::setNBXOrigin({10, 20, 30});
    EXPECT_FALSE(GeoTransformation::geo2nbxTf(NBX::Bounds()).isDefined());
    EXPECT_FALSE(GeoTransformation::nbx2geoTf(NBX::Bounds()).isDefined());
}

TEST_F(GeoTransformationTest, SequencesAreShiftedBothWays) {
    GeoTransformation::setNBXOrigin({10, 20, 30});
    const NBX::SO<GeoTransformation::Points> points(new NBX::Array<Point>({{11, 22, 33}, {0, 0, 0}}));
    const auto scene = GeoTransformation::geo2nbxTf(points);
    ASSERT_EQ(scene->size(), 2U);
    EXPECT_EQ(scene->get(0), Point(1, 2, 3));
    EXPECT_EQ(scene->get(1), Point(-10, -20, -30));
    const auto geo = GeoTransformation::nbx2geoTf(scene);
    EXPECT_EQ(geo->get(0), Point(11, 22, 33));
    EXPECT_EQ(geo->get(1), Point());
}

TEST_F(GeoTransformationTest, ThereAndBackIsWithinARounding) {
    constexpr unsigned seed = 20230;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> map(-1e7, 1e7), near(-1e4, 1e4);
    for (int i = 0; i < 2000; ++i) {
        const Point origin(map(random), near(random), map(random));
        const Point geo = origin + Point(near(random), near(random), near(random));
        GeoTransformation::setNBXOrigin(origin);
        const Point back = GeoTransformation::nbx2geoTf(GeoTransformation::geo2nbxTf(geo));
        for (unsigned axis = 0; axis < 3; ++axis)
            ASSERT_NEAR(back[axis], geo[axis], 4e-9) << "axis " << axis;
    }
}

} // namespace
