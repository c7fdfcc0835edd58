#pragma once

#include <nbx/gl/program/programobject.h>
#include <nbx/math/bounds.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/object/so.h>
#include <nbx/scene/node/scenenode.h>

#include "lightlist.h"

namespace NBX {
class EngineGL;
class Image;
class Progress;
class Texture2DGL;
} // namespace NBX

namespace ZMT::UTIL {

class LightTargetsGL;

/// What is lit, and how it is drawn.
struct LitSceneGL {
    using Matrix = NBX::Matrix4x4Base<double>;

    NBX::SO<NBX::SceneNode> casters;          ///< what throws shadows, in scene coordinates
    NBX::SO<NBX::SceneNode> receiver;         ///< what light falls on
    NBX::SO<NBX::SceneNode> border;           ///< what the closing pass draws; null for the whole picture
    NBX::SO<NBX::GL2::ProgramObject> program; ///< that the receiver is drawn with
    Matrix receiverView, receiverProjection;  ///< the camera of the receiver
    NBX::Bounds lit, casting;                 ///< see `LightCamera`; both defined
};

/// Adds up the light of all directions: for each the casters go into the shadow map, and the receiver is
/// drawn with what it sees. `progress` counts the directions and may be null. False when it was cancelled.
bool accumulateLightGL(LightTargetsGL & targets, const LitSceneGL & scene, const LightList & lights,
                       NBX::Progress * progress);
/// Gives the texels around what was drawn the light of their neighbours, `borderWidth` texels wide.
void closeLightGL(LightTargetsGL & targets, const LitSceneGL & scene, int borderWidth);
/// Empties the colours that are drawn to.
void clearLightGL();
/// Draws a square of the texture coordinates 0 to 1 under `program`, which reads `texture` as unit 0, without
/// depth.
void drawWholeTargetGL(NBX::EngineGL & engine, NBX::GL2::ProgramObject & program,
                       const NBX::Texture2DGL & texture);

} // namespace ZMT::UTIL
