#include <nbx/gl/state/framebuffergl.h>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/state/depthbuffergl.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/shape/polygonset.h>

#include "support/glfixture.h"

using namespace NBX;
using V = Vector3Base<double>;

class FrameBufferGLTest : public GLFixture {
protected:
    static SO<SceneThing> wall(double z, const Color & color) {
        const SO<SceneThing> node(new SceneThing());
        node->append(new ColorAttribute(color));
        node->append(
            new PolygonSet(PolygonSet::PT_Quads,
                           new Array<V>(std::vector<V>{{-1, -1, z}, {1, -1, z}, {1, 1, z}, {-1, 1, z}})));
        return node;
    }
    std::array<int, 4> middle() { return pixel(draw(), 32, 32); }
};

TEST_F(FrameBufferGLTest, ClearsDepthWhereItIsReached) {
    root->append(wall(-0.5, Color::red).get());
    root->append(wall(0.5, Color::blue).get());
    const auto nearer = middle();
    for (int times = 1; times <= 2; ++times) {
        // The farther wall covers the nearer one, and the nearer one again what was drawn behind the
        // clearing.
        root->append(new FrameBufferGL(2));
        root->append(wall(0.5, Color::blue).get());
        root->append(wall(-0.5, Color::red).get());
        EXPECT_EQ(nearer, middle());
    }
    root->append(new FrameBufferGL(2));
    root->append(wall(0.5, Color::green).get());
    root->append(wall(0.6, Color::blue).get());
    EXPECT_NE(nearer, middle());
}

TEST_F(FrameBufferGLTest, ClearsColoursAndKeepsDepth) {
    root->append(wall(0.0, Color::red).get());
    EXPECT_EQ(255, middle()[0]);
    root->append(new FrameBufferGL(FrameBufferGL::M_Color));
    EXPECT_EQ(0, middle()[0]);
    root->append(wall(0.1, Color::blue).get());
    root->append(wall(-0.1, Color::green).get());
    const auto behind = middle();
    EXPECT_TRUE((behind[1] == 255) != (behind[2] == 255)) << "one of the two lies in front of the wall";
}

TEST_F(FrameBufferGLTest, DoesNothingInOperationNoneAndWhenItIsLeft) {
    const SO<FrameBufferGL> none(new FrameBufferGL(FrameBufferGL::M_Color, FrameBufferGL::O_None));
    root->append(wall(0.0, Color::red).get());
    root->append(none.get());
    EXPECT_EQ(255, middle()[0]);
    none->setOperation(FrameBufferGL::O_Clear);
    EXPECT_EQ(0, middle()[0]);
    root->clear();
    root->append(none.get());
    root->append(wall(0.0, Color::red).get());
    EXPECT_EQ(255, middle()[0]);
}

TEST_F(FrameBufferGLTest, ClearsDespiteMasksAndLeavesThem) {
    const SO<DepthBufferGL> unwritten(new DepthBufferGL(false, true));
    const SO<FrameBufferGL> clear(new FrameBufferGL(FrameBufferGL::M_Depth | FrameBufferGL::M_Stencil));
    glClearDepth(0.25);
    glClear(GL_DEPTH_BUFFER_BIT);
    glClearDepth(1.0);
    engine->push(unwritten.get());
    const std::vector<int> before = stateOfGL();
    engine->push(clear.get());
    EXPECT_EQ(before, stateOfGL());
    float depth = 0.0F;
    glReadPixels(32, 32, 1, 1, GL_DEPTH_COMPONENT, GL_FLOAT, &depth);
    EXPECT_EQ(1.0F, depth);
    engine->pop(clear.get());
    engine->pop(unwritten.get());
}

TEST_F(FrameBufferGLTest, ReportsUnknownBuffers) {
    EXPECT_EQ(2U, SO<FrameBufferGL>(new FrameBufferGL(2 | 64))->mask());
    EXPECT_EQ(1U, reports.count(L"no buffer has the mask 66"));
    reports.clear();
}
