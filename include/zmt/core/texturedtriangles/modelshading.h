#pragma once

#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>
#include <nbx/scene/node/scenething.h>

namespace ZMT::CORE {

/// Light that is baked into the colours of a scene's vertices, for scenes that are drawn without lamps, where
/// what has no texture would be a flat silhouette.
struct ModelShading {
    /// To the sun, of length 1, in scene coordinates.
    NBX::Vector3Base<double> toSun{0.0, 1.0, 0.0};
    /// What the whole sky gives to a level roof; the rest is the sun's.
    double skyShare = 0.45;
    /// What of the sky's light reaches a wall. What faces down has none of the sun, and this much less again.
    double wallShare = 0.7;
    /// Textures are photographs most often, which have their light already.
    bool isOnTextures = false;

    /// What comes back of white with this normal, of length 1: at most 1.
    double lightOn(const NBX::Vector3Base<double> & normal) const;

    /// Makes the scene flat, gives the light to its polygon sets, by the normals of their vertices and where
    /// there are none by those of their triangles, and takes materials out, which show under lamps alone.
    void bake(const NBX::SO<NBX::SceneThing> & scene) const;
};

} // namespace ZMT::CORE
