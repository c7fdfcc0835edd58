#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include <nbx/container/sequence/iterator.h>
#include <nbx/math/area.h>
#include <nbx/object/so.h>
#include <nbx/object/wo.h>
#include <nbx/scene/shape/shape.h>

namespace ZMT::CORE {

class GeometryData;
struct StripMesh;

/// A node of the level-of-detail tree of a terrain: one approximation of one part of the surface, and
/// children that together cover the same part more exactly. Owns numbers only, coordinates stay in `data()`.
///
/// Laws: (1) no vertex of the full data in the patch's area lies farther, vertically, from the patch's
/// surface than `approximationError()`, or, for patches of chunked terrains, which state what leaving out one
/// vertex changes, than this times `ChunkedLodTerrain::worstErrorRatio()` and half a step of their 16-bit
/// heights; (2) a patch at full resolution has error 0.
///
/// The tree is owned from the root downwards; a patch only watches its parent.
class GeometryPatch : public NBX::Shape {
    NBX_CLASS(GeometryPatch, NBX::Shape)
public:
    using Children = NBX::Iterator<NBX::SO<GeometryPatch>>;

    /// What a patch is and covers. Its surface is what is drawn, without skirts and walls.
    struct Description {
        std::string_view kind;       ///< "grid", "tin", "chunked" or "tile"; empty for kinds of others
        NBX::Area cells;             ///< of the finest grid
        std::uint64_t vertices = 0;  ///< of the surface
        std::uint64_t triangles = 0; ///< of the surface
    };

    /// `bbox` is in local coordinates; an undefined one is replaced by the origin alone. `approxError` and
    /// `wall` are in local height units. `children` may be null; their parent becomes this patch.
    GeometryPatch(const NBX::Bounds & bbox, double approxError, double wall,
                  const NBX::SO<Children> & children);

    /// In local coordinates.
    NBX::Bounds boundingBox() const override { return bbox_; }

    virtual NBX::SO<GeometryData> data() const = 0;
    virtual double approximationError() const { return approxError_; }
    /// The height down to which skirts and outer walls extend.
    virtual double wall() const { return wall_; }
    /// Null at the root, and once the parent has gone.
    virtual NBX::SO<GeometryPatch> parent() const { return parent_.lock(); }
    virtual unsigned children() const { return childCount_; }
    virtual NBX::SO<GeometryPatch> child(unsigned i) const;
    /// Lets a patch that loads its children on demand release them.
    virtual void unloadChildren() {}

    /// Nothing at all for kinds of others that do not say. Of a streaming terrain's tile that is not in
    /// memory, without numbers.
    virtual Description description() const { return {}; }
    /// The surface as it is drawn, in geo coordinates less `zero`, made anew; empty where `description` has
    /// no numbers.
    virtual StripMesh surface(const NBX::Vector3Base<double> & zero) const;
    /// Whether `child` gives all of them at once, without reading, as whoever asks within a picture needs it.
    virtual bool childrenAreInMemory() const { return true; }

    void acceptChildren(std::vector<NBX::Visitable *> & children) const override;
    void serialize(NBX::SerializationManager & m) override;

protected:
    /// For reading.
    GeometryPatch();

    void addChild(const NBX::SO<GeometryPatch> & child);
    void setParent(const NBX::WO<GeometryPatch> & parent);

private:
    /// Throws `IOError` for a child that would make the tree something else.
    void addStoredChild(const NBX::SO<GeometryPatch> & child);

    NBX::WO<GeometryPatch> parent_;
    NBX::Bounds bbox_;
    double approxError_ = 0.0;
    double wall_ = 0.0;
    unsigned childCount_ = 0;
    /// While reading: levels below this one, which are bounded, since trees are walked by recursion.
    std::uint16_t storedLevels_ = 0;
    std::unique_ptr<NBX::SO<GeometryPatch>[]> children_;
};

} // namespace ZMT::CORE
