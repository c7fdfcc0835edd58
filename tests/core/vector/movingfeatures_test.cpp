#include <zmt/core/vector/movingfeatures.h>

#include <cmath>

#include <gtest/gtest.h>

#include <nbx/engine/engine.h>

#include "support/recordedreports.h"

namespace {

using ZMT::CORE::LocalFrame;
using ZMT::CORE::MovingFeatures;
using ZMT::CORE::VectorStyleSheet;
using Point = NBX::Vector3Base<double>;

const Point s_origin(500'000.0, 100.0, 3'100'000.0);

MovingFeatures::Group group(const char * style, const ZMT::RASTER::VectorFeature & feature) {
    return {{feature}, VectorStyleSheet::parse(style)};
}

ZMT::RASTER::VectorFeature line(const Point & a, const Point & b) {
    ZMT::RASTER::VectorFeature feature;
    feature.lines = {{a + s_origin, b + s_origin}};
    return feature;
}

NBX::Bounds boxOf(const MovingFeatures & moving) {
    const NBX::SO<NBX::Engine> engine(new NBX::Engine);
    return moving.node()->boundingBox(engine.get());
}

TEST(MovingFeatures, StandInTheFrameOfTheTerrainOnLevelGround) {
    MovingFeatures moving{LocalFrame(s_origin)};
    EXPECT_FALSE(boxOf(moving).isDefined());
    const NBX::SO<NBX::SceneThing> node = moving.node();
    moving.set({group("width=1", line({10.0, 50.0, 20.0}, {310.0, 70.0, 420.0}))}, 2.0);
    const NBX::Bounds box = boxOf(moving);
    EXPECT_NEAR(box.getLLF().x, 10.0, 1e-3);
    EXPECT_NEAR(box.getLLF().z, 20.0, 1e-3);
    EXPECT_NEAR(box.getURB().x, 310.0, 1e-3);
    EXPECT_NEAR(box.getURB().z, 420.0, 1e-3);
    EXPECT_EQ(box.getLLF().y, 0.0);
    EXPECT_EQ(box.getURB().y, 0.0);
    EXPECT_EQ(moving.node().get(), node.get());
    moving.set({}, 2.0);
    EXPECT_FALSE(boxOf(moving).isDefined());
}

TEST(MovingFeatures, SymbolsAreAsLargeAsThePixelsSay) {
    MovingFeatures moving{LocalFrame(s_origin)};
    ZMT::RASTER::VectorFeature feature;
    feature.points = {Point(100.0, 0.0, 200.0) + s_origin};
    for (const double metresPerPixel : {0.5, 3.0}) {
        moving.set({group("symbol=square,size=10", feature)}, metresPerPixel);
        const NBX::Bounds box = boxOf(moving);
        EXPECT_NEAR(box.diagonal().x, 10.0 * metresPerPixel, 1e-3);
        EXPECT_NEAR(box.center().x, 100.0, 1e-3);
        EXPECT_NEAR(box.center().z, 200.0, 1e-3);
    }
}

TEST(MovingFeatures, LaterGroupsComeLater) {
    MovingFeatures moving{LocalFrame(s_origin)};
    const auto short_ = line({0.0, 0.0, 0.0}, {1.0, 0.0, 0.0}),
               long_ = line({0.0, 0.0, 0.0}, {9.0, 0.0, 0.0});
    moving.set({group("width=1", short_), group("width=1", long_)}, 1.0);
    const auto * scene = dynamic_cast<const NBX::SceneThing *>(moving.node()->object(0));
    ASSERT_TRUE(scene);
    const NBX::SO<NBX::Engine> engine(new NBX::Engine);
    std::vector<double> widths;
    for (unsigned i = 0; i < scene->objects(); ++i)
        if (auto * part = dynamic_cast<NBX::SceneThing *>(scene->object(i)))
            widths.push_back(part->boundingBox(engine.get()).diagonal().x);
    ASSERT_EQ(widths.size(), 2U);
    EXPECT_NEAR(widths[0], 1.0, 1e-3);
    EXPECT_NEAR(widths[1], 9.0, 1e-3);
}

TEST(MovingFeatures, WithoutASizeOfPixelsThereIsNothing) {
    MovingFeatures moving{LocalFrame(s_origin)};
    const RecordedReports reports;
    for (const double metresPerPixel : {0.0, -1.0, std::nan("")}) {
        moving.set({group("width=1", line({}, {9.0, 0.0, 0.0}))}, metresPerPixel);
        EXPECT_FALSE(boxOf(moving).isDefined());
    }
    EXPECT_EQ(reports.size(), 3U);
}

TEST(MovingFeatures, TrianglesTakeThePlaceOfFeatures) {
    MovingFeatures moving{LocalFrame(s_origin)};
    moving.set({group("width=1", line({0.0, 0.0, 0.0}, {5000.0, 0.0, 5000.0}))}, 2.0);
    moving.set({s_origin + Point(10.0, 40.0, 20.0), s_origin + Point(110.0, 50.0, 20.0),
                s_origin + Point(10.0, 60.0, 320.0)},
               NBX::Color(0.0F, 0.0F, 1.0F, 0.5F));
    const NBX::Bounds box = boxOf(moving);
    EXPECT_DOUBLE_EQ(box.getLLF().x, 10.0);
    EXPECT_DOUBLE_EQ(box.getURB().x, 110.0);
    EXPECT_DOUBLE_EQ(box.getLLF().z, 20.0);
    EXPECT_DOUBLE_EQ(box.getURB().z, 320.0);
    EXPECT_DOUBLE_EQ(box.getLLF().y, 0.0) << "level";
    EXPECT_DOUBLE_EQ(box.getURB().y, 0.0);
    moving.set({}, NBX::Color(0.0F, 0.0F, 1.0F, 0.5F));
    EXPECT_FALSE(boxOf(moving).isDefined());
}

} // namespace
