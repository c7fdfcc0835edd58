#pragma once

#include <array>
#include <optional>
#include <vector>

#include <nbx/math/color.h>
#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>
#include <nbx/scene/attribute/attribute.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/camera.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/dynamic/dynamicvectortexture.h>
#include <zmt/core/vector/movingfeatures.h>

/// What changes on the ground while it is looked at, all of it in one texture for each picture. On the thread
/// that draws.
class DynamicLayer {
public:
    /// The lowest first.
    enum class Part { Flood, Tracks, Highlight, Line };
    using Groups = std::vector<ZMT::CORE::MovingFeatures::Group>;
    using Point = NBX::Vector3Base<double>;

    /// Nothing at first, on a terrain that stands in the scene with its heights stretched by `exaggeration`.
    DynamicLayer(NBX::SO<ZMT::CORE::Terrain> terrain, double exaggeration);
    void setExaggeration(double exaggeration) { exaggeration_ = exaggeration; }

    /// What draws it, which belongs on top of all others of the terrain. It is off while there is nothing.
    const NBX::SO<NBX::Attribute> & effect() const { return effect_; }
    bool isEmpty() const;

    /// Features in the place of those that the part had; no groups for none. What they have in pixels is as
    /// large as at `at`, in map coordinates, or else in the middle of the terrain.
    void show(Part part, Groups groups, const std::optional<Point> & at = {});

    /// The same of triangles, three corners each, in map coordinates, which do not overlap.
    void show(Part part, const std::vector<Point> & corners, const NBX::Color & color);

    /// As it is seen by the camera in a picture of this height; before each picture.
    void prepare(const NBX::Camera & camera, unsigned height);

private:
    struct Shown {
        explicit Shown(const ZMT::CORE::LocalFrame & frame) : features(frame) {}
        ZMT::CORE::MovingFeatures features;
        Groups groups; ///< none of triangles
        bool isEmpty = true;
        std::optional<Point> at;
        double drawnSize = 0.0; ///< of a pixel in metres; 0 before
    };
    Shown & partOf(Part part) { return parts_[std::size_t(part)]; }
    double metresPerPixel(const std::optional<Point> & at, const NBX::Camera & camera, unsigned height) const;

    NBX::SO<ZMT::CORE::Terrain> terrain_;
    double exaggeration_;
    std::array<Shown, 4> parts_;
    NBX::SO<NBX::SceneThing> scene_;
    NBX::SO<ZMT::CORE::DynamicVectorTexture> texture_;
    NBX::SO<NBX::Attribute> effect_;
};
