#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nbx/gl/context/enginegl.h>
#include <nbx/math/area.h>
#include <nbx/object/so.h>
#include <nbx/scene/node/scenething.h>

#include "trapezoidfit.h"

namespace ZMT::CORE {

/// A view for checking, drawn over the picture: which area of the ground was last drawn for it. Render
/// thread.
class DynamicVectorHud {
public:
    /// Side of the map, in pixels.
    static constexpr double mapSize = 256.0;
    /// Of the lines in the map, in units of the terrain, and how many of them there are at most each way.
    static constexpr double spacing = 2048.0;
    static constexpr int mostLines = 24;

    /// What the engine's picture shows of a terrain; nothing where that is no area.
    static void note(const NBX::EngineGL * engine, const std::optional<TrapezoidFit::Trapezoid> & trapezoid);
    /// Appends the view to the canvas of the engine, or takes it off. A null engine, or one without a canvas,
    /// is reported.
    static void enable(NBX::EngineGL * engine, bool enabled);

    /// The view, in pixels.
    static NBX::SO<NBX::SceneThing> newScene(const TrapezoidFit::Trapezoid & trapezoid);
    /// In square units, and in degrees between the legs.
    static double areaOf(const TrapezoidFit::Trapezoid & trapezoid);
    static double angleOf(const TrapezoidFit::Trapezoid & trapezoid);
};

} // namespace ZMT::CORE
