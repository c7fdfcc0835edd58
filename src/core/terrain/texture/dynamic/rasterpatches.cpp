#include "rasterpatches.h"

#include <algorithm>

#include <nbx/object/errorhandler.h>
#include <zmt/core/terrain/geometry/base/geometrydata.h>

#include "core/terrain/geometry/view/terrainpaintinggl.h"

namespace ZMT::CORE {

NBX_CLASS_IMPL(RenderRasterTexture_GeometryPatch, GeometryPatch)

namespace {

/// Texels are mixed with their neighbours, which lie beyond the border of the picture there.
constexpr double s_margin = 1.04;

/// Sees a little more on all sides.
NBX::SO<const NBX::ViewInfo> widened(const NBX::ViewInfo & view) {
    const auto narrower = NBX::Matrix4x4Base<double>::scaling({1.0 / s_margin, 1.0 / s_margin, 1.0});
    return new NBX::ViewInfo(view.modelView(), narrower * view.projection(), view.viewport());
}

/// One walk over a tree.
struct Walk {
    const NBX::ViewInfo & view;
    const RasterPatches::Point nearPoint;
    const RasterPatches::Refine & refine;
    const RasterPatches::Take & take;
    const unsigned long number;

    void visit(const RasterPatches::Patch & patch) const {
        patch.noteWalk(number);
        const NBX::Bounds box = patch.boundingBox();
        if (view.cull(box) == -1) return;
        const RasterPatches::Point eye = box.nearestPoint(nearPoint);
        if (patch.children() == 0 || !refine(patch, eye)) {
            take(patch, eye);
            return;
        }
        for (unsigned i = 0; i < patch.children(); ++i)
            visit(static_cast<const RasterPatches::Patch &>(*patch.child(i)));
    }
};

} // namespace

RenderRasterTexture_GeometryPatch::RenderRasterTexture_GeometryPatch(const NBX::Bounds & box, unsigned depth)
    : GeometryPatch(box, 0.0, box.getLLF().y, nullptr), depth_(depth) {}

NBX::SO<GeometryData> RenderRasterTexture_GeometryPatch::data() const {
    return nullptr;
}

NBX::SO<GeometryPatch> RenderRasterTexture_GeometryPatch::child(unsigned i) const {
    NBX_CHECK(i < children(), L"range error: [0, " << children() << L"), " << i);
    if (i >= children()) return nullptr;
    if (!children_[i]) {
        const NBX::Bounds box = boundingBox();
        const double x = i & 1U ? 0.5 : 0.0, z = i & 2U ? 0.5 : 0.0;
        NBX::SO<RenderRasterTexture_GeometryPatch> child(new RenderRasterTexture_GeometryPatch(
            {box.point(x, 0.0, z), box.point(x + 0.5, 1.0, z + 0.5)}, depth_ + 1));
        child->setParent(NBX::WO<GeometryPatch>(const_cast<RenderRasterTexture_GeometryPatch *>(this)));
        children_[i] = child;
    }
    return children_[i];
}

void RenderRasterTexture_GeometryPatch::dropUnused(unsigned long oldest) const {
    for (auto & child : children_)
        if (child && child->lastWalk_ < oldest)
            child = nullptr;
        else if (child)
            child->dropUnused(oldest);
}

void RasterPatches::walk(const NBX::Bounds & box, const NBX::ViewInfo & view, const Refine & refine,
                         const Take & take) {
    if (!box.isDefined()) return;
    ++walk_;
    const NBX::SO<const Patch> root(&rootOver(box));
    Walk{*widened(view), TerrainPaintingGL::nearPoint(view), refine, take, walk_}.visit(*root);
    dropUnused();
}

const RasterPatches::Patch & RasterPatches::rootOver(const NBX::Bounds & box) {
    const auto known = std::find_if(roots_.begin(), roots_.end(),
                                    [&](const auto & root) { return root->boundingBox() == box; });
    if (known != roots_.end()) return **known;
    roots_.emplace_back(new Patch(box));
    return *roots_.back();
}

void RasterPatches::dropUnused() {
    if (walk_ < keptWalks) return;
    const unsigned long oldest = walk_ - keptWalks;
    std::erase_if(roots_, [oldest](const auto & root) { return root->lastWalk() < oldest; });
    for (const auto & root : roots_)
        root->dropUnused(oldest);
}

} // namespace ZMT::CORE
