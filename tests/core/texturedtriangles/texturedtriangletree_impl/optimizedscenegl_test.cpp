#include "core/texturedtriangles/texturedtriangletree_impl/optimizedscenegl.h"

#include <GL/glew.h>

#include <gtest/gtest.h>

#include <nbx/gl/state/colorbuffergl.h>
#include <nbx/gl/state/depthbuffergl.h>
#include <nbx/gl/state/lightmodelgl.h>
#include <nbx/scene/attribute/facestyle.h>
#include <nbx/scene/node/scenething.h>

namespace {

using namespace ZMT::CORE;
using NBX::ColorBufferGL;
using NBX::FaceStyle;
using NBX::SceneThing;
using NBX::SO;

template <class T> const T & at(const SceneThing & node, unsigned i) {
    return dynamic_cast<const T &>(*node.object(i));
}

TEST(OptimizedScene, DrawsTheTransparentTreeTwice) {
    const SO<TexturedTriangleTree> opaque(new TexturedTriangleTree()),
        transparent(new TexturedTriangleTree());
    const SO<SceneThing> scene = newOptimizedScene(opaque, transparent);
    ASSERT_EQ(3U, scene->objects());
    EXPECT_EQ(2, at<NBX::LightModelGL>(*scene, 0).getMode());
    EXPECT_EQ(NBX::Color::black, at<NBX::LightModelGL>(*scene, 0).getAmbient());

    const auto & solid = at<SceneThing>(*scene, 1);
    ASSERT_EQ(5U, solid.objects());
    EXPECT_EQ(FaceStyle::S_Culled, at<FaceStyle>(solid, 0).getBack());
    EXPECT_EQ(FaceStyle::S_Filled, at<FaceStyle>(solid, 0).getFront());
    EXPECT_EQ(FaceStyle::O_Unchanged, at<FaceStyle>(solid, 0).getOrder());
    EXPECT_EQ(opaque.get(), solid.object(1));
    const auto & test = at<ColorBufferGL>(solid, 2).alphaTest();
    EXPECT_TRUE(test.enabled);
    EXPECT_EQ(unsigned(GL_GREATER), test.function);
    EXPECT_EQ(0.8, test.reference);
    EXPECT_EQ(FaceStyle::S_Filled, at<FaceStyle>(solid, 3).getBack());
    EXPECT_EQ(transparent.get(), solid.object(4));

    const auto & seenThrough = at<SceneThing>(*scene, 2);
    ASSERT_EQ(5U, seenThrough.objects());
    const auto & rest = at<ColorBufferGL>(seenThrough, 0).alphaTest();
    EXPECT_TRUE(rest.enabled);
    EXPECT_EQ(unsigned(GL_LEQUAL), rest.function);
    EXPECT_EQ(0.8, rest.reference);
    const auto & blending = at<ColorBufferGL>(seenThrough, 1).blending();
    EXPECT_TRUE(blending.enabled);
    EXPECT_EQ(unsigned(GL_SRC_ALPHA), blending.source);
    EXPECT_EQ(unsigned(GL_ONE_MINUS_SRC_ALPHA), blending.target);
    const auto & depth = at<NBX::DepthBufferGL>(seenThrough, 2);
    EXPECT_EQ(unsigned(NBX::DepthBufferGL::O_Write), depth.operations());
    EXPECT_FALSE(depth.writes());
    EXPECT_EQ(unsigned(GL_LESS), depth.function());
    EXPECT_EQ(FaceStyle::S_Filled, at<FaceStyle>(seenThrough, 3).getBack());
    EXPECT_EQ(transparent.get(), seenThrough.object(4));
}

TEST(OptimizedScene, AttributesAreShared) {
    const SO<TexturedTriangleTree> tree(new TexturedTriangleTree());
    const SO<SceneThing> a = newOptimizedScene(tree, tree), b = newOptimizedScene(tree, tree);
    EXPECT_NE(a, b);
    EXPECT_EQ(a->object(0), b->object(0));
    for (unsigned node = 1; node < 3; ++node)
        for (unsigned i = 0; i < 5; ++i)
            EXPECT_EQ(at<SceneThing>(*a, node).object(i), at<SceneThing>(*b, node).object(i)) << node << i;
}

} // namespace
