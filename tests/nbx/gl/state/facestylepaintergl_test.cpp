#include <nbx/scene/attribute/facestyle.h>

#include "support/glfixture.h"
#include "support/roundtrip.h"

#include <nbx/gl/state/polygonmodegl.h>
#include <nbx/scene/attribute/colorattribute.h>

using namespace NBX;

class FaceStylePainterGLTest : public GLFixture {
protected:
    static std::vector<int> faces() {
        std::vector<int> state(2);
        glGetIntegerv(GL_POLYGON_MODE, state.data());
        for (const GLenum name : {GL_CULL_FACE, GL_CULL_FACE_MODE, GL_FRONT_FACE}) {
            GLint value = 0;
            glGetIntegerv(name, &value);
            state.push_back(value);
        }
        return state;
    }
    const std::vector<int> defaults{GL_FILL, GL_FILL, 0, GL_BACK, GL_CCW};
};

TEST_F(FaceStylePainterGLTest, DrawsEachSideInItsStyle) {
    EXPECT_EQ(defaults, faces());
    const SO<FaceStyle> culled = new FaceStyle(2, 3, 3), both = new FaceStyle(2, 2, 0),
                        wires = new FaceStyle(1, 0, 1);
    engine->push(culled.get());
    EXPECT_EQ((std::vector<int>{GL_FILL, GL_FILL, 1, GL_BACK, GL_CCW}), faces());
    engine->push(both.get());
    EXPECT_EQ((std::vector<int>{GL_FILL, GL_FILL, 0, GL_BACK, GL_CW}), faces());
    engine->push(wires.get());
    EXPECT_EQ((std::vector<int>{GL_LINE, GL_POINT, 0, GL_BACK, GL_CCW}), faces());
    engine->pop(wires.get());
    EXPECT_EQ((std::vector<int>{GL_FILL, GL_FILL, 0, GL_BACK, GL_CW}), faces());
    engine->pop(both.get());
    EXPECT_EQ((std::vector<int>{GL_FILL, GL_FILL, 1, GL_BACK, GL_CCW}), faces());
    engine->pop(culled.get());
    EXPECT_EQ(defaults, faces());
}

TEST_F(FaceStylePainterGLTest, LeavesTheOrderOfTheCaller) {
    glFrontFace(GL_CW);
    const SO<FaceStyle> style = new FaceStyle(2, 2, 3), turned = new FaceStyle(2, 2, 1);
    engine->push(style.get());
    EXPECT_EQ(GL_CW, faces()[4]);
    engine->push(turned.get());
    EXPECT_EQ(GL_CCW, faces()[4]);
    engine->pop(turned.get());
    EXPECT_EQ(GL_CW, faces()[4]);
    engine->pop(style.get());
    EXPECT_EQ(GL_CW, faces()[4]);
    glFrontFace(GL_CCW);
}

TEST_F(FaceStylePainterGLTest, FilledFacesFollowAWireFrameMode) {
    const SO<PolygonModeGL> wires = new PolygonModeGL(GL_LINE);
    const SO<FaceStyle> style = new FaceStyle(2, 2, 3);
    engine->push(wires.get());
    engine->push(style.get());
    EXPECT_EQ(GL_LINE, faces()[0]);
    engine->pop(style.get());
    EXPECT_EQ(GL_LINE, faces()[0]);
    engine->pop(wires.get());
    EXPECT_EQ(defaults, faces());
}

TEST_F(FaceStylePainterGLTest, BadNumbersAreReported) {
    const SO<FaceStyle> style = new FaceStyle(4, -1, 2);
    EXPECT_EQ(1U, reports.count(L"invalid face style: 4, -1, 2"));
    EXPECT_EQ(FaceStyle::S_Filled, style->getFront());
    EXPECT_EQ(FaceStyle::O_Unchanged, style->getOrder());
    reports.clear();
}

TEST_F(FaceStylePainterGLTest, TheColourHoldsUntilItIsPopped) {
    const SO<ColorAttribute> red = new ColorAttribute(Color::red), blue = new ColorAttribute(Color::blue);
    const auto current = [] {
        std::vector<float> color(4);
        glGetFloatv(GL_CURRENT_COLOR, color.data());
        return color;
    };
    engine->push(red.get());
    engine->push(blue.get());
    EXPECT_EQ((std::vector<float>{0, 0, 1, 1}), current());
    engine->pop(blue.get());
    EXPECT_EQ((std::vector<float>{1, 0, 0, 1}), current());
    engine->pop(red.get());
    EXPECT_EQ((std::vector<float>{1, 1, 1, 1}), current());
}

TEST_F(FaceStylePainterGLTest, BothAreStored) {
    const SO<FaceStyle> style = roundTrip(SO<FaceStyle>(new FaceStyle(1, 3, 0)));
    EXPECT_EQ(FaceStyle::S_Lines, style->getFront());
    EXPECT_EQ(FaceStyle::S_Culled, style->getBack());
    EXPECT_EQ(FaceStyle::O_Clockwise, style->getOrder());
    EXPECT_EQ(Color::gold, roundTrip(SO<ColorAttribute>(new ColorAttribute(Color::gold)))->getColor());
}
