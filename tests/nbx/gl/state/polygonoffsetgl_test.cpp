#include <nbx/gl/state/polygonoffsetgl.h>

#include "support/glfixture.h"

#include <nbx/gl/state/polygonmodegl.h>

using namespace NBX;

class PolygonOffsetGLTest : public GLFixture {};

TEST_F(PolygonOffsetGLTest, MovesTheKindsOfFacesThatAreNamed) {
    const SO<PolygonOffsetGL> filled = new PolygonOffsetGL(2, 1.0, 1.0);
    const SO<PolygonOffsetGL> others = new PolygonOffsetGL(5, 2.0, 3.0);
    engine->push(filled.get());
    EXPECT_TRUE(glIsEnabled(GL_POLYGON_OFFSET_FILL));
    EXPECT_FALSE(glIsEnabled(GL_POLYGON_OFFSET_LINE));
    engine->push(others.get());
    EXPECT_FALSE(glIsEnabled(GL_POLYGON_OFFSET_FILL));
    EXPECT_TRUE(glIsEnabled(GL_POLYGON_OFFSET_LINE));
    EXPECT_TRUE(glIsEnabled(GL_POLYGON_OFFSET_POINT));
    GLfloat factor = 0.0F;
    glGetFloatv(GL_POLYGON_OFFSET_FACTOR, &factor);
    EXPECT_EQ(2.0F, factor);
    engine->pop(others.get());
    EXPECT_TRUE(glIsEnabled(GL_POLYGON_OFFSET_FILL));
    engine->pop(filled.get());
    EXPECT_FALSE(glIsEnabled(GL_POLYGON_OFFSET_FILL));
    glGetFloatv(GL_POLYGON_OFFSET_FACTOR, &factor);
    EXPECT_EQ(0.0F, factor);
}

TEST_F(PolygonOffsetGLTest, WireFrames) {
    const auto mode = [] {
        GLint modes[2];
        glGetIntegerv(GL_POLYGON_MODE, modes);
        return modes[0];
    };
    const SO<PolygonModeGL> wires = new PolygonModeGL(GL_LINE), points = new PolygonModeGL(GL_POINT);
    engine->push(wires.get());
    engine->push(points.get());
    EXPECT_EQ(GL_POINT, mode());
    engine->pop(points.get());
    EXPECT_EQ(GL_LINE, mode());
    engine->pop(wires.get());
    EXPECT_EQ(GL_FILL, mode());
    EXPECT_TRUE(reports.empty());
    const SO<PolygonModeGL> bad = new PolygonModeGL(1);
    EXPECT_EQ(1U, reports.count(L"no such mode: 1"));
    reports.clear();
}
