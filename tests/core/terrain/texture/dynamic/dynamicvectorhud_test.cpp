#include "core/terrain/texture/dynamic/dynamicvectorhud.h"

#include <cmath>
#include <numbers>

#include <gtest/gtest.h>

#include <nbx/gl/state/shapematerialgl.h>
#include <nbx/scene/attribute/linestyle.h>
#include <nbx/scene/shape/lineset.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/pixelprojection.h>
#include <nbx/text/textshape.h>

using NBX::SO;
using ZMT::CORE::DynamicVectorHud;
using ZMT::CORE::TrapezoidFit;
using Point = TrapezoidFit::Point;

namespace {

/// Near side 2000 wide, far side 6000 wide, 4000 apart; the hull is a triangle in it.
TrapezoidFit::Trapezoid trapezoid() {
    return {{Point(0, 0, 0), Point(4000, 0, -3000), Point(4000, 0, 3000)},
            {Point(0, 0, -1000), Point(0, 0, 1000), Point(4000, 0, 3000), Point(4000, 0, -3000)}};
}

template <class T> std::vector<SO<T>> all(const NBX::SceneThing & scene) {
    std::vector<SO<T>> found;
    for (unsigned i = 0; i < scene.objects(); ++i)
        if (auto * object = dynamic_cast<T *>(scene.object(i))) found.emplace_back(object);
    return found;
}

TEST(DynamicVectorHud, AreaAndAngleAreThoseOfTheTrapezoid) {
    EXPECT_DOUBLE_EQ(DynamicVectorHud::areaOf(trapezoid()), 16e6);
    EXPECT_NEAR(DynamicVectorHud::angleOf(trapezoid()), 2.0 * std::atan(0.5) * 180.0 / std::numbers::pi,
                1e-9);
}

TEST(DynamicVectorHud, TheSceneIsInPixels) {
    const auto cameras = all<NBX::Camera>(*DynamicVectorHud::newScene(trapezoid()));
    ASSERT_EQ(cameras.size(), 1U);
    const auto * pixels = dynamic_cast<const NBX::PixelProjection *>(cameras[0]->getProjection());
    ASSERT_TRUE(pixels);
    EXPECT_EQ(pixels->getNear(), 100.0);
    EXPECT_EQ(pixels->getFar(), -1.0);
    const auto materials = all<NBX::ShapeMaterialGL>(*DynamicVectorHud::newScene(trapezoid()));
    ASSERT_EQ(materials.size(), 1U);
    EXPECT_EQ(materials[0]->getColor(), NBX::Color(0.5, 0.2, 0.5));
    EXPECT_EQ(materials[0]->getShininess(), 115.0);
}

TEST(DynamicVectorHud, ItsLinesAreTheGridTheTrapezoidAndTheHull) {
    const auto scene = DynamicVectorHud::newScene(trapezoid());
    const auto lines = all<NBX::LineSet>(*scene);
    ASSERT_EQ(lines.size(), 3U);
    // At 0 and 2048 along x, at -2048, 0 and 2048 along z: two ends each.
    EXPECT_EQ(lines[0]->newVertexIterator()->size(), 10U);
    ASSERT_EQ(lines[1]->newVertexIterator()->size(), 4U);
    ASSERT_EQ(lines[2]->newVertexIterator()->size(), 3U);
    // 6000 units are 256 pixels, from the corner of the box.
    const double scale = 256.0 / 6000.0;
    EXPECT_NEAR(lines[1]->newVertexIterator()->get(0).y, 2000.0 * scale, 1e-9);
    EXPECT_NEAR(lines[1]->newVertexIterator()->get(2).x, 4000.0 * scale, 1e-9);
    EXPECT_NEAR(lines[1]->newVertexIterator()->get(2).y, 256.0, 1e-9);
    const auto styles = all<NBX::LineStyle>(*scene);
    ASSERT_EQ(styles.size(), 1U);
    EXPECT_EQ(styles[0]->getWidth(), 5.0);
    EXPECT_GT(scene->find(lines[2].get()), scene->find(styles[0].get())) << "the hull is the wide one";
    EXPECT_LT(scene->find(lines[1].get()), scene->find(styles[0].get()));
}

TEST(DynamicVectorHud, ItsTextNamesAreaAndAngle) {
    const auto texts = all<NBX::TextShape>(*DynamicVectorHud::newScene(trapezoid()));
    ASSERT_EQ(texts.size(), 2U);
    EXPECT_EQ(texts[0]->getText(), L"area: 1.6e+07");
    EXPECT_EQ(texts[1]->getText().substr(0, 12), L"angle: 53.13");
}

TEST(DynamicVectorHud, TheLinesOfALargeTrapezoidAreFew) {
    auto large = trapezoid();
    for (Point & corner : large.corners)
        corner = corner * 1e6;
    const auto lines = all<NBX::LineSet>(*DynamicVectorHud::newScene(large));
    EXPECT_LE(lines[0]->newVertexIterator()->size(), 4U * (DynamicVectorHud::mostLines + 1));
    EXPECT_GE(lines[0]->newVertexIterator()->size(), unsigned(DynamicVectorHud::mostLines));
}

} // namespace
