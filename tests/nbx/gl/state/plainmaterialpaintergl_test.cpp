#include <nbx/gl/state/lightmodelgl.h>
#include <nbx/scene/attribute/shapematerial.h>
#include <nbx/scene/shape/box.h>

#include "support/glfixture.h"

namespace {

using namespace NBX;

class PlainMaterialPainterGLTest : public GLFixture {
protected:
    const SO<Box> box{new Box({-1.0, -1.0, -0.5}, {1.0, 1.0, 0.5})};
    void append(const Color & color, const Color & emission = Color::black) {
        root->append(new ShapeMaterial(color, Color::black, 0.0, emission));
    }
};

TEST_F(PlainMaterialPainterGLTest, IsThePlainColorOfUnlitSurfaces) {
    append(Color(0.2, 0.4, 0.6, 0.8));
    root->append(box.get());
    EXPECT_EQ((std::array<int, 4>{51, 102, 153, 204}), pixel(draw(), 32, 32));
}

TEST_F(PlainMaterialPainterGLTest, AnswersToAmbientLightAndEmits) {
    root->append(new LightModelGL(3, Color(0.5, 0.5, 0.5, 1.0)));
    append(Color(0.4, 0.0, 0.0, 1.0), Color(0.0, 0.6, 0.0, 1.0));
    root->append(box.get());
    const auto color = pixel(draw(), 32, 32);
    EXPECT_NEAR(51, color[0], 1);
    EXPECT_NEAR(153, color[1], 1);
}

TEST_F(PlainMaterialPainterGLTest, TheInnerOneHoldsAndTheOuterOneComesBack) {
    const SO<SceneThing> inner(new SceneThing);
    inner->append(new ShapeMaterial(Color::red));
    append(Color::blue);
    root->append(inner.get());
    root->append(box.get());
    EXPECT_EQ((std::array<int, 4>{0, 0, 255, 255}), pixel(draw(), 32, 32));
    inner->append(box.get());
    root->remove(box.get());
    EXPECT_EQ((std::array<int, 4>{255, 0, 0, 255}), pixel(draw(), 32, 32));
}

TEST_F(PlainMaterialPainterGLTest, LeavesTheStateOfGLAsItIsFound) {
    const std::vector<int> before = stateOfGL();
    append(Color::red);
    root->append(box.get());
    draw();
    EXPECT_EQ(before, stateOfGL());
}

} // namespace
