#pragma once

#include "aoimpl.h"
#include "lightaccumulationgl.h"

namespace ZMT::UTIL {

/// The scene of a step. The terrain is drawn by its own painter, from straight above.
LitSceneGL newLitSceneGL(const AOImpl::TerrainStep & step);
LitSceneGL newLitSceneGL(const AOImpl::MeshStep & step);

/// Draws the scene in the light of all directions. Null when it was cancelled or cannot be read.
NBX::SO<NBX::Image> renderLightGL(LightTargetsGL & targets, const LitSceneGL & scene,
                                  const LightList & lights, int borderWidth, NBX::Progress * progress);

} // namespace ZMT::UTIL
