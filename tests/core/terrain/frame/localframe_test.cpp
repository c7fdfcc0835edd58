#include <zmt/core/terrain/frame/localframe.h>

#include <gtest/gtest.h>

#include <zmt/core/terrain/frame/geotransformation.h>

namespace {

using ZMT::CORE::GeoTransformation;
using ZMT::CORE::LocalFrame;
using Point = LocalFrame::Point;

class LocalFrameTest : public testing::Test {
protected:
    LocalFrameTest() { GeoTransformation::setNBXOrigin({400.0, 7.0, 3000.0}); }
    ~LocalFrameTest() override { GeoTransformation::setNBXOrigin(Point()); }

    const LocalFrame frame{Point(500.0, 10.0, 4000.0)};
    const Point local{1.5, 2.5, -3.5};
};

TEST_F(LocalFrameTest, PointsGoFromLocalToGeoToScene) {
    EXPECT_EQ(frame.toGeo(local), Point(501.5, 12.5, 3996.5));
    EXPECT_EQ(frame.fromGeo(frame.toGeo(local)), local);
    EXPECT_EQ(frame.toScene(local), Point(101.5, 5.5, 996.5));
    EXPECT_EQ(frame.toScene(local), GeoTransformation::geo2nbxTf(frame.toGeo(local)));
    EXPECT_EQ(frame.originInScene(), frame.toScene(Point()));
}

TEST_F(LocalFrameTest, BoxesGoTheSameWay) {
    const NBX::Bounds box(local, local + Point(1.0, 2.0, 3.0));
    EXPECT_EQ(frame.toGeo(box).getLLF(), frame.toGeo(box.getLLF()));
    EXPECT_EQ(frame.toGeo(box).getURB(), frame.toGeo(box.getURB()));
    EXPECT_EQ(frame.toScene(box).getLLF(), frame.toScene(box.getLLF()));
    EXPECT_EQ(frame.toScene(box).getURB(), frame.toScene(box.getURB()));
}

TEST_F(LocalFrameTest, UndefinedBoxesStayUndefined) {
    EXPECT_FALSE(frame.toGeo(NBX::Bounds()).isDefined());
    EXPECT_FALSE(frame.toScene(NBX::Bounds()).isDefined());
}

TEST_F(LocalFrameTest, FollowsTheOriginOfTheScene) {
    GeoTransformation::setNBXOrigin(frame.origin());
    EXPECT_EQ(frame.toScene(local), local) << "patches are drawn in local coordinates";
}

} // namespace
