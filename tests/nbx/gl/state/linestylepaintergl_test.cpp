#include <nbx/scene/attribute/linestyle.h>

#include <nbx/container/sequence/array.h>
#include <nbx/scene/shape/lineset.h>

#include "support/glfixture.h"

using namespace NBX;

class LineStylePainterGLTest : public GLFixture {
protected:
    /// A line over the whole picture through the centres of the pixels of row 32, from the left.
    SO<LineSet> newLine() {
        const SO<Array<Vector3Base<double>>> ends(new Array<Vector3Base<double>>);
        ends->append({-1.0, 0.5 / 32.0, 0.0});
        ends->append({1.0, 0.5 / 32.0, 0.0});
        return SO<LineSet>(new LineSet(LineSet::PT_Lines, ends));
    }
    unsigned drawnInColumn(const SO<Image> & image, int x) {
        unsigned count = 0;
        for (int y = 0; y < 64; ++y)
            count += pixel(image, x, y)[0] > 0;
        return count;
    }
};

TEST_F(LineStylePainterGLTest, LinesAreAsWideAsTheAttributeSays) {
    const SO<LineStyle> style(new LineStyle);
    root->append(style.get());
    root->append(newLine().get());
    const std::vector<int> before = stateOfGL();
    for (const unsigned width : {1U, 2U, 5U, 8U}) {
        style->setWidth(width);
        const SO<Image> image = draw();
        EXPECT_EQ(width, drawnInColumn(image, 20));
        EXPECT_EQ(width, drawnInColumn(image, 50));
    }
    EXPECT_EQ(before, stateOfGL());
}

TEST_F(LineStylePainterGLTest, StippledLinesLeaveOutPixels) {
    const SO<LineStyle> style(new LineStyle(3.0, 0x00FF, 2));
    root->append(style.get());
    root->append(newLine().get());
    const SO<Image> image = draw();
    // 16 pixels are drawn, 16 are not.
    for (int x = 0; x < 64; ++x)
        EXPECT_EQ(x / 16 % 2 == 0 ? 3U : 0U, drawnInColumn(image, x)) << x;
    style->setStipple(0);
    EXPECT_EQ(0U, drawnInColumn(draw(), 5));
}

TEST_F(LineStylePainterGLTest, TheOneBeforeHoldsAgainWhereItIsLeft) {
    const auto width = [] {
        GLfloat value = 0.0F;
        glGetFloatv(GL_LINE_WIDTH, &value);
        return value;
    };
    const SO<LineStyle> outer(new LineStyle(4.0)), inner(new LineStyle(2.0, 0xAAAA));
    engine->push(outer.get());
    EXPECT_EQ(4.0F, width());
    EXPECT_FALSE(glIsEnabled(GL_LINE_STIPPLE));
    engine->push(inner.get());
    EXPECT_EQ(2.0F, width());
    EXPECT_TRUE(glIsEnabled(GL_LINE_STIPPLE));
    engine->pop(inner.get());
    EXPECT_EQ(4.0F, width());
    EXPECT_FALSE(glIsEnabled(GL_LINE_STIPPLE));
    engine->pop(outer.get());
    EXPECT_EQ(1.0F, width());
    GLint pattern = 0;
    glGetIntegerv(GL_LINE_STIPPLE_PATTERN, &pattern);
    EXPECT_EQ(0xFFFF, pattern);
}
