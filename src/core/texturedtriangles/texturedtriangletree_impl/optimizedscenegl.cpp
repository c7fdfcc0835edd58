#include "optimizedscenegl.h"

#include <GL/gl.h>

#include <nbx/gl/state/colorbuffergl.h>
#include <nbx/gl/state/depthbuffergl.h>
#include <nbx/gl/state/lightmodelgl.h>
#include <nbx/math/color.h>
#include <nbx/scene/attribute/facestyle.h>
#include <nbx/scene/node/scenething.h>

namespace ZMT::CORE {

namespace {

using NBX::ColorBufferGL;
using NBX::SO;

/// From this alpha on, a texel is drawn as solid.
constexpr double s_solid = 0.8;

struct SharedAttributes {
    const SO<NBX::LightModelGL> noLight{new NBX::LightModelGL(2, NBX::Color::black)};
    const SO<NBX::FaceStyle> fronts{new NBX::FaceStyle(2, 3, 3)}, bothSides{new NBX::FaceStyle(2, 2, 3)};
    const SO<ColorBufferGL> solid{ColorBufferGL::newAlphaTest(true, GL_GREATER, s_solid)};
    const SO<ColorBufferGL> notSolid{ColorBufferGL::newAlphaTest(true, GL_LEQUAL, s_solid)};
    const SO<ColorBufferGL> blending{ColorBufferGL::newBlending(true, GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA)};
    const SO<NBX::DepthBufferGL> readsDepth{new NBX::DepthBufferGL(2, false, true, GL_LESS, 0.0, 1.0)};
};

const SharedAttributes & sharedAttributes() {
    // Never destroyed: scenes may go while libraries unload.
    static const SharedAttributes & attributes = *new SharedAttributes;
    return attributes;
}

} // namespace

SO<NBX::SceneThing> newOptimizedScene(const SO<TexturedTriangleTree> & opaque,
                                      const SO<TexturedTriangleTree> & transparent) {
    const SharedAttributes & shared = sharedAttributes();
    const SO<NBX::SceneThing> solid(new NBX::SceneThing()), seenThrough(new NBX::SceneThing());
    solid->append(shared.fronts.get());
    solid->append(opaque.get());
    solid->append(shared.solid.get());
    solid->append(shared.bothSides.get());
    solid->append(transparent.get());
    seenThrough->append(shared.notSolid.get());
    seenThrough->append(shared.blending.get());
    seenThrough->append(shared.readsDepth.get());
    seenThrough->append(shared.bothSides.get());
    seenThrough->append(transparent.get());
    SO<NBX::SceneThing> root(new NBX::SceneThing());
    root->append(shared.noLight.get());
    root->append(solid.get());
    root->append(seenThrough.get());
    return root;
}

} // namespace ZMT::CORE
