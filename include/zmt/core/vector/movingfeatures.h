#pragma once

#include <vector>

#include <nbx/math/color.h>
#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>
#include <nbx/scene/node/scenething.h>
#include <zmt/core/terrain/frame/localframe.h>
#include <zmt/core/vector/vectorstylesheet.h>
#include <zmt/raster/featuresource.h>

namespace ZMT::CORE {

/// Some features that change while they are looked at, such as the way of a vehicle: a scene for a
/// `DynamicVectorTexture`. What features a file has, and leaves where they are, belongs into a
/// `VectorOverlay`. Render thread.
class MovingFeatures {
public:
    struct Group {
        std::vector<RASTER::VectorFeature>
            features; ///< in geo coordinates, with the values of the sheet's fields
        VectorStyleSheet sheet;
    };

    /// Nothing at first. `frame` is that of the terrain.
    explicit MovingFeatures(const LocalFrame & frame) : frame_(frame) {}

    /// The lowest group first; within one, areas lie below lines, and these below symbols. Symbols, and lines
    /// of more than some pixels, are as large as if a pixel were `metresPerPixel` wide on the ground.
    void set(const std::vector<Group> & groups, double metresPerPixel);
    /// Triangles in their place, three corners each, in geo coordinates. They do not overlap.
    void set(const std::vector<NBX::Vector3Base<double>> & corners, const NBX::Color & color);
    /// The object is the same for ever.
    const NBX::SO<NBX::SceneThing> & node() const { return node_; }

private:
    LocalFrame frame_;
    NBX::SO<NBX::SceneThing> node_{new NBX::SceneThing};
};

} // namespace ZMT::CORE
