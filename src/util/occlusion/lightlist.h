#pragma once

#include <vector>

#include <zmt/util/occlusion/ambientocclusion.h>

namespace ZMT::UTIL {

/// The light that is added up: directions to it in scene coordinates, and what comes from each.
struct LightList {
    using Vector = NBX::Vector3Base<double>;

    std::vector<Vector> directions;
    std::vector<Vector> colors; ///< red, green and blue, as many as there are directions

    /// Light of equal weight from `lightDirections`, whose pole in z is turned upwards: together 1 in each
    /// channel, or `colors`, which may be null. Colours and directions of unequal number are reported, and
    /// what has no partner is left out.
    static LightList fromDirections(const NBX::Iterator<Vector> & lightDirections,
                                    const NBX::Iterator<Vector> * colors = nullptr);
    /// The sun, then the sky, then what is given besides, all of it scaled so that the lengths of the colours
    /// add up to the intensity.
    static LightList combined(const AmbientOcclusion::LightingConfiguration & configuration);

    /// A direction with its pole in z, with the pole in y.
    static Vector turnedUp(const Vector & direction) { return {direction.x, direction.z, -direction.y}; }
    /// The vertical component that a level plane has of all light, each weighted by its colour: what it would
    /// get without anything in the way.
    Vector onOpenPlane() const;
};

} // namespace ZMT::UTIL
