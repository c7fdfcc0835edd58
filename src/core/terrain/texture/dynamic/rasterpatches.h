#pragma once

#include <array>
#include <functional>
#include <vector>

#include <nbx/math/bounds.h>
#include <nbx/object/so.h>
#include <nbx/scene/view/viewinfo.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>

namespace ZMT::CORE {

/// A node of a quadtree of boxes, without data: that for which a texture is asked. Its children are made when
/// they are asked for, and live as long as it does, but for `dropUnused`.
class RenderRasterTexture_GeometryPatch : public GeometryPatch {
    NBX_CLASS(RenderRasterTexture_GeometryPatch, GeometryPatch)
public:
    /// No patch lies deeper.
    static constexpr unsigned maxDepth = 24;

    explicit RenderRasterTexture_GeometryPatch(const NBX::Bounds & box, unsigned depth = 0);

    NBX::SO<GeometryData> data() const override;
    unsigned children() const override { return depth_ < maxDepth ? 4 : 0; }
    NBX::SO<GeometryPatch> child(unsigned i) const override;

    /// The number of the last walk that came here.
    void noteWalk(unsigned long walk) const { lastWalk_ = walk; }
    unsigned long lastWalk() const { return lastWalk_; }
    /// Drops what lies below and no walk from the one with the number `oldest` on has come to.
    void dropUnused(unsigned long oldest) const;

private:
    unsigned depth_;
    mutable unsigned long lastWalk_ = 0;
    mutable std::array<NBX::SO<RenderRasterTexture_GeometryPatch>, 4> children_;
};

/// The patches for which textures are asked that are drawn in plan. They stay the same as long as pictures
/// come to them, since caches of textures know patches by identity, also where boxes take turns.
class RasterPatches {
public:
    using Patch = RenderRasterTexture_GeometryPatch;
    using Point = NBX::Vector3Base<double>;
    /// `eye` is the point of the patch nearest to the viewer.
    using Refine = std::function<bool(const GeometryPatch & patch, const Point & eye)>;
    using Take = std::function<void(const GeometryPatch & patch, const Point & eye)>;

    /// What no walk has come to for so many walks is let go.
    static constexpr unsigned long keptWalks = 100;

    /// Calls `take` for the patches in `box` that `view` sees, or nearly sees, since texels are mixed with
    /// their neighbours, and that `refine` does not want to be finer.
    void walk(const NBX::Bounds & box, const NBX::ViewInfo & view, const Refine & refine, const Take & take);

private:
    const Patch & rootOver(const NBX::Bounds & box);
    void dropUnused();

    std::vector<NBX::SO<const Patch>> roots_;
    unsigned long walk_ = 0; ///< number of the last one
};

} // namespace ZMT::CORE
