#include "landscape/viewpoint.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "landscape/errors.h"

#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/localframe.h>
#include <zmt/raster/simplerasterdata.h>

namespace {

TEST(ParseView, KnowsThreeNames) {
    EXPECT_EQ(View::Name::Overview, parseView("overview").name);
    EXPECT_EQ(View::Name::CloseUp, parseView("closeup").name);
    EXPECT_EQ(View::Name::North, parseView("north").name);
    for (const char * name : {"overview", "closeup", "north"})
        EXPECT_FALSE(parseView(name).coordinates) << name;
}

TEST(ParseView, SixNumbersAreEyeAndAim) {
    const View view = parseView("1.5,-2,3e2,4,5,6");
    ASSERT_TRUE(view.coordinates);
    EXPECT_EQ((std::array<double, 6>{1.5, -2.0, 300.0, 4.0, 5.0, 6.0}), *view.coordinates);
}

TEST(ParseView, HeightsWithASignCountFromTheGround) {
    for (const auto & [text, eye, aim] : std::vector<std::tuple<const char *, bool, bool>>{
             {"1,2,+3,4,5,6", true, false}, {"+1,2,3,+4,5,+6", false, true}, {"1,2,3,4,5,6", false, false}}) {
        EXPECT_EQ(eye, parseView(text).isEyeAboveGround) << text;
        EXPECT_EQ(aim, parseView(text).isAimAboveGround) << text;
    }
    EXPECT_NO_THROW(parseView("1,2,+3,1,2,3"));
    EXPECT_THROW(parseView("1,2,+3,1,2,+3"), UsageError);
}

TEST(ParseView, APlaceMayBeLookedAtFromADirection) {
    const View view = parseView("at:1,2,225,30,500");
    ASSERT_TRUE(view.coordinates && view.direction);
    EXPECT_EQ(1.0, (*view.coordinates)[3]);
    EXPECT_EQ(2.0, (*view.coordinates)[4]);
    EXPECT_TRUE(view.isAimAboveGround);
    EXPECT_EQ(225.0, view.direction->azimuth);
    EXPECT_EQ(30.0, view.direction->pitch);
    EXPECT_EQ(500.0, view.direction->distance);
    for (const char * text :
         {"at:", "at:1,2,3,4", "at:1,2,3,4,0", "at:1,2,3,4,-5", "at:1,2,3,91,5", "at:1,2,3,4,5,",
          "at:1,2,3,4,5,6", "at:1,2,3,4,1e300", "at:1,2,3,nan,5", "at:1e300,2,3,4,5"})
        EXPECT_THROW(parseView(text), UsageError) << text;
}

TEST(ParseView, EverythingElseIsRefused) {
    for (const char * text : {"1e300,2,3,4,5,6", "1,2,3,4,5,-1e300", "", "North", "1,2,3", "1,2,3,4,5,6,",
                              "1,2,3,4,5,x", "1,2,3,4,5,inf", "nan,2,3,4,5,6", "1 2 3 4 5 6", "1,2,3,1,2,3"})
        EXPECT_THROW(parseView(text), UsageError) << text;
}

/// A slope in scene coordinates that are map coordinates, 100 m lower for each cell to the north.
class FindViewpoint : public ::testing::Test {
protected:
    FindViewpoint() { ZMT::CORE::GeoTransformation::setNBXOrigin(grid->origin()); }
    ~FindViewpoint() override { ZMT::CORE::GeoTransformation::setNBXOrigin({}); }

    Viewpoint find(const std::string & view) const { return findViewpoint(parseView(view), ground(), 1.5); }
    ViewedGround ground() const { return {*grid, *terrain, reference, exaggeration, {}}; }
    /// In map coordinates.
    static void expectAt(double x, double y, double height, const NBX::Vector3Base<double> & inScene) {
        const auto geo = ZMT::CORE::GeoTransformation::nbx2geoTf(inScene);
        EXPECT_NEAR(x, geo.x, 0.01);
        EXPECT_NEAR(height, geo.y, 0.01);
        EXPECT_NEAR(y, geo.z, 0.01);
    }

    static NBX::SO<ZMT::RASTER::SimpleRasterData<float>> slope() {
        NBX::SO<ZMT::RASTER::SimpleRasterData<float>> heights(
            new ZMT::RASTER::SimpleRasterData<float>(9, 9, 5000.0, 7000.0, 100.0, 100.0, true, -9999.0F));
        for (unsigned row = 0; row < 9; ++row)
            for (unsigned column = 0; column < 9; ++column)
                heights->setValue(column, row, float(1000.0 - 100.0 * row));
        return heights;
    }

    NBX::SO<ZMT::CORE::GridData> grid{new ZMT::CORE::GridData(slope().get())};
    NBX::SO<ZMT::CORE::Terrain> terrain{new ZMT::CORE::Terrain(grid.get(), nullptr)};
    ZMT::RASTER::GeoReference reference;
    double exaggeration = 1.0;
};

TEST_F(FindViewpoint, HeightsMayCountFromTheGround) {
    const Viewpoint viewpoint = find("5400,7200,+50,5400,7600,+0");
    expectAt(5400.0, 7200.0, 850.0, viewpoint.eye);
    expectAt(5400.0, 7600.0, 400.0, viewpoint.aim);
}

/// All heights are exaggerated alike, so that what is over the ground stays over it.
TEST_F(FindViewpoint, HeightsFromTheGroundAreExaggeratedToo) {
    exaggeration = 3.0;
    const double origin = ZMT::CORE::GeoTransformation::geo2nbxTf(NBX::Vector3Base<double>()).y;
    EXPECT_NEAR(3.0 * (850.0 + origin), find("5400,7200,+50,5400,7600,0").eye.y, 0.01);
    EXPECT_NEAR(3.0 * (850.0 + origin), find("5400,7200,850,5400,7600,0").eye.y, 0.01);
}

TEST_F(FindViewpoint, APlaceIsLookedAtFromItsDirection) {
    const double level = 500.0 * std::cos(M_PI / 6.0);
    expectAt(5400.0 - level, 7600.0, 650.0, find("at:5400,7600,90,30,500").eye);
    expectAt(5400.0, 7600.0 - level, 650.0, find("at:5400,7600,0,30,500").eye);
    expectAt(5400.0, 7600.0 + level, 150.0, find("at:5400,7600,180,-30,500").eye);
    expectAt(5400.0, 7600.0, 400.0, find("at:5400,7600,180,-30,500").aim);
    const Viewpoint down = find("at:5400,7600,90,90,500");
    expectAt(5400.0, 7600.0, 900.0, down.eye);
    EXPECT_LT(down.eye.x, down.aim.x) << "east is up in the picture";
}

TEST_F(FindViewpoint, WithoutGroundNothingCountsFromIt) {
    for (const char * view :
         {"at:100,7600,90,30,500", "100,7200,+50,5400,7600,0", "5400,7200,0,5400,9000,+7"})
        EXPECT_THROW(find(view), UsageError) << view;
    EXPECT_NO_THROW(find("100,7200,50,5400,9000,0"));
}

/// On a map of the world an image may be smaller than a cell.
TEST_F(FindViewpoint, ACloseUpShowsAnImageOfAnySize) {
    using ZMT::CORE::GeoTransformation;
    ViewedGround viewed = ground();
    const auto closeUp = [&](double west, double east) {
        const NBX::Bounds image({west, 0.0, 7140.0}, {east, 0.0, 7160.0});
        viewed.interest = GeoTransformation::geo2nbxTf(image);
        return findViewpoint(parseView("closeup"), viewed, 1.5);
    };
    const Viewpoint small = closeUp(5640.0, 5660.0);
    expectAt(5650.0, 7150.0, 850.0 - 2.0, small.aim);
    expectAt(5650.0 - 8.0, 7150.0 - 20.0, 850.0 + 7.0, small.eye);
    const Viewpoint wide = closeUp(5605.0, 5695.0);
    expectAt(5650.0, 7150.0, 850.0 - 8.0, wide.aim);
    // Where the terrain has no ground there is nothing to see.
    expectAt(5400.0, 7400.0, 600.0 - 2.0, closeUp(9000.0, 9020.0).aim);
}

TEST_F(FindViewpoint, AnEyeUnderTheGroundIsTold) {
    const auto told = [&](const char * view) {
        testing::internal::CaptureStderr();
        tellBuriedEye(find(view), ground());
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_NE(std::string::npos, told("5400,7200,750,5400,7600,0").find("the eye is 50 m under the ground"));
    exaggeration = 4.0;
    EXPECT_NE(std::string::npos, told("5400,7200,750,5400,7600,0").find("the eye is 50 m under the ground"));
    for (const char * view :
         {"5400,7200,801,5400,7600,0", "100,7200,-500,5400,7600,0", "overview", "closeup"})
        EXPECT_EQ("", told(view)) << view;
}

TEST(TellUnseenErrors, FromStraightAboveOnly) {
    const auto told = [](const char * view, double error, bool isAsked = true) {
        AllowedErrors errors;
        errors.geometry = error;
        errors.isGeometryAsked = isAsked;
        testing::internal::CaptureStderr();
        tellUnseenErrors(parseView(view), errors);
        return testing::internal::GetCapturedStderr();
    };
    for (const char * view : {"north", "1,2,30,1,2,3", "at:1,2,0,90,500"}) {
        EXPECT_NE(std::string::npos, told(view, 1.0).find("straight above")) << view;
        EXPECT_EQ("", told(view, 0.0)) << view;
        EXPECT_EQ("", told(view, 3.0, false)) << view;
    }
    for (const char * view : {"overview", "closeup", "1,2,30,1,5,3", "1,2,30,5,2,3", "at:1,2,0,89,500"})
        EXPECT_EQ("", told(view, 1.0)) << view;
}

/// How far from the middle of a picture a point lies, as shares of half its width and half its height.
std::array<double, 2> placeInPicture(const NBX::Camera & camera, const NBX::Vector3Base<double> & p,
                                     const NBX::Vector3Base<double> & eye, double aspect) {
    // Square pixels, so many of them that their centres are everywhere.
    const unsigned height = 1000, width = unsigned(std::lround(aspect * height));
    const auto direction = [&](double x, double y) {
        return camera.rayThrough(x, y, width, height).getDirection().normalized();
    };
    const auto forward = direction(width / 2.0, height / 2.0);
    const auto right = (direction(width, height / 2.0) - direction(0.0, height / 2.0)).normalized();
    const auto up = (direction(width / 2.0, height) - direction(width / 2.0, 0.0)).normalized();
    const auto way = p - eye;
    const double half = std::tan(s_fieldOfView / 2.0 * M_PI / 180.0) * way.dot(forward);
    EXPECT_GT(half, 0.0) << "behind the eye";
    return {way.dot(right) / (half * width / height), way.dot(up) / half};
}

/// A terrain whose box is `width` east, `height` up and `depth` north.
NBX::SO<ZMT::CORE::GridData> slab(double width, double height, double depth) {
    NBX::SO<ZMT::RASTER::SimpleRasterData<float>> heights(
        new ZMT::RASTER::SimpleRasterData<float>(3, 3, 5e5, 4e6, width / 2.0, depth / 2.0, true, -9999.0F));
    for (unsigned i = 0; i < 9; ++i)
        heights->setValue(i % 3, i / 3, i == 4 ? float(100.0 + height) : 100.0F);
    return NBX::SO<ZMT::CORE::GridData>(new ZMT::CORE::GridData(heights.get()));
}

/// From the south, and as large as the picture allows: every corner of the box is in it, two opposite sides
/// of the picture come as near as the margin.
TEST(FindViewpointOfAll, AnOverviewFillsThePicture) {
    std::mt19937 random(7);
    const ZMT::RASTER::GeoReference reference;
    const auto anyOf = [&](double low, double high) {
        return low * std::pow(high / low, std::uniform_real_distribution<>(0.0, 1.0)(random));
    };
    for (int i = 0; i < 300; ++i) {
        const double width = anyOf(10.0, 1e6), depth = width * anyOf(0.02, 50.0);
        const double height = i % 5 == 0 ? 0.0 : width * anyOf(1e-3, 2.0), aspect = anyOf(0.2, 5.0);
        SCOPED_TRACE(testing::Message() << width << " " << height << " " << depth << " at " << aspect);
        const auto grid = slab(width, height, depth);
        ZMT::CORE::GeoTransformation::setNBXOrigin(grid->origin());
        const NBX::SO<ZMT::CORE::Terrain> terrain(new ZMT::CORE::Terrain(grid.get(), nullptr));
        const ViewedGround ground{*grid, *terrain, reference, anyOf(0.5, 4.0), {}};
        const Viewpoint viewpoint = findViewpoint(parseView("overview"), ground, aspect);
        NBX::Bounds box = ZMT::CORE::GeoTransformation::geo2nbxTf(
            ZMT::CORE::LocalFrame(grid->origin()).toGeo(grid->boundingBox()));
        const auto scaled = [&](NBX::Vector3Base<double> p) {
            p.y *= ground.exaggeration;
            return p;
        };
        box = NBX::Bounds(scaled(box.getLLF()), scaled(box.getURB()));
        const auto camera = makeCamera(viewpoint, box);
        EXPECT_NEAR(box.center().x, viewpoint.eye.x, 1e-9 * width);
        EXPECT_EQ(viewpoint.eye.x, viewpoint.aim.x);
        EXPECT_LT(viewpoint.eye.z, viewpoint.aim.z);
        double aside = 0.0, top = -1.0, bottom = 1.0;
        for (unsigned corner = 0; corner < 8; ++corner) {
            const auto low = box.getLLF(), high = box.getURB();
            const auto [x, y] = placeInPicture(
                *camera,
                {corner & 1 ? high.x : low.x, corner & 2 ? high.y : low.y, corner & 4 ? high.z : low.z},
                viewpoint.eye, aspect);
            aside = std::max(aside, std::abs(x));
            top = std::max(top, y);
            bottom = std::min(bottom, y);
        }
        EXPECT_NEAR(0.97, std::max({aside, top, -bottom}), 0.005);
        EXPECT_LT(std::max({aside, top, -bottom}), 0.975);
        if (aside < 0.96) {
            EXPECT_NEAR(top, -bottom, 0.005);
        }
    }
    ZMT::CORE::GeoTransformation::setNBXOrigin({});
}

} // namespace
