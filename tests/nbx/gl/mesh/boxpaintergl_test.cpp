#include "nbx/gl/mesh/boxpaintergl.h"

#include <nbx/scene/shape/box.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/ortho.h>

#include "support/glfixture.h"

namespace {

using namespace NBX;

class BoxPainterGLTest : public GLFixture {};

TEST_F(BoxPainterGLTest, AllSidesFaceOutwards) {
    const SO<Box> box(new Box({1.0, 2.0, 3.0}, {3.0, 6.0, 9.0}));
    const Vector3Base<double> center(2.0, 4.0, 6.0);
    glEnable(GL_CULL_FACE);
    for (unsigned axis = 0; axis < 3; ++axis)
        for (const double side : {-20.0, 20.0}) {
            Vector3Base<double> from = center;
            from[axis] += side;
            root->clear();
            root->append(new Camera(
                new LookAt(from, center,
                           axis == 1 ? Vector3Base<double>(0, 0, 1) : Vector3Base<double>(0, 1, 0)),
                new Ortho(-0.5, 0.5, -0.5, 0.5, 1.0, 40.0)));
            root->append(box.get());
            glCullFace(GL_BACK);
            EXPECT_EQ(255, pixel(draw(), 32, 32)[0]) << "axis " << axis << " from " << side;
            // With the front faces left out, the far side is seen from behind.
            glDepthFunc(GL_ALWAYS);
            glCullFace(GL_FRONT_AND_BACK);
            EXPECT_EQ(0, pixel(draw(), 32, 32)[0]);
            glDepthFunc(GL_LESS);
        }
    glCullFace(GL_BACK);
    glDisable(GL_CULL_FACE);
}

TEST_F(BoxPainterGLTest, TheNormalsShowOutwards) {
    const float black[4] = {0, 0, 0, 1};
    glLightModelfv(GL_LIGHT_MODEL_AMBIENT, black);
    glEnable(GL_LIGHTING);
    glEnable(GL_LIGHT0); // from the viewer
    glEnable(GL_CULL_FACE);
    root->append(new Box({-1.0, -1.0, -0.5}, {1.0, 1.0, 0.5}));
    EXPECT_GT(pixel(draw(), 32, 32)[0], 100);
    glDisable(GL_CULL_FACE);
    glDisable(GL_LIGHT0);
    glDisable(GL_LIGHTING);
}

TEST_F(BoxPainterGLTest, LeavesTheStateOfGLAsItIsFound) {
    const SO<Box> box(new Box);
    const std::vector<int> before = stateOfGL();
    engine->paint(box.get());
    EXPECT_EQ(before, stateOfGL());
}

TEST_F(BoxPainterGLTest, DrawsNothingOfAnUndefinedBox) {
    root->append(new Box(Bounds()));
    EXPECT_EQ(0, pixel(draw(), 32, 32)[3]);
}

} // namespace
