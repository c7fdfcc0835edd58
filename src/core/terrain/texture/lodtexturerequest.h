#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <vector>

#include "emptytexture.h"
#include <nbx/gl/texture/texturegl.h>
#include <nbx/math/bounds.h>
#include <nbx/math/vector3base.h>
#include <zmt/core/cache/resourcemanager.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>

namespace NBX {
class ViewInfo;
}

namespace ZMT::CORE {

/// Of the boxes of textures that lie on any height.
inline constexpr double unboundedHeight = 1e42;

/// One resolution of an image.
struct LODTextureLevel {
    double pixelSizeX, pixelSizeY; ///< in map units
    std::uint64_t pixelsX, pixelsY;
    unsigned granularityX, granularityY; ///< pixels that are read at once
};

/// What the textures that cut one piece per geometry patch from an image in several resolutions have in
/// common: the choice of the level, and the search for the best piece that is ready.
class LODTextureRequest {
public:
    using Levels = std::vector<LODTextureLevel>;
    using Point = NBX::Vector3Base<double>;

    static constexpr unsigned s_maxTextureSize = 512;

    /// What both boxes share in the plan; undefined when that has no area. The height is that of `patch`.
    static NBX::Bounds overlap(const NBX::Bounds & texture, const NBX::Bounds & patch);

    /// The finest level of which a texture takes the pixels that `box` needs when it lies on tile borders in
    /// the worst way; the last level when none does, and for an undefined box. `levels` is not empty.
    static unsigned chooseLevel(const Levels & levels, const NBX::Bounds & box);

    /// Side length in pixels of a texel of `level` on the screen at `eye`, in scene coordinates.
    static double screenTexelSize(const LODTextureLevel & level, const NBX::ViewInfo & viewInfo,
                                  const Point & eye);

    /// Whether a patch that shares `box` with the texture looks too coarse.
    static bool refine(const Levels & levels, const NBX::Bounds & box, const NBX::ViewInfo & viewInfo,
                       const Point & eye, double textureError);

    /// The smallest power of two that takes `pixels`, within the limit.
    static unsigned textureSize(std::uint64_t pixels);

    LODTextureRequest(const Levels & levels, const NBX::ViewInfo & viewInfo, const Point & eye,
                      double textureError, bool asynchronous)
        : levels_(levels), viewInfo_(viewInfo), eye_(eye), textureError_(textureError),
          asynchronous_(asynchronous) {}

    /// Maps `patch` and its ancestors to pieces, the coarsest first: below the finest level children share
    /// the piece of their parent. `newPiece(geometry patch)` makes a piece.
    template <class Mapper, class NewPiece>
    static void map(Mapper & mapper, const NBX::SO<const GeometryPatch> & patch, const NewPiece & newPiece);

    /// The texture of `patch`, which is mapped, or of its nearest ancestor that has one; the missing ones on
    /// the way are queued, the finer with the higher priority, and those that could not be prepared are
    /// passed over. So are patches that are not mapped, which is reported: one that got its parent after it
    /// was mapped. The empty texture where the one found has nothing to show, or the root failed. Null only
    /// when there is no root, or it is not mapped.
    template <class Piece, class Mapper>
    NBX::SO<NBX::TextureGL>
    find(ResourceManager<Piece, NBX::TextureGL> & manager, const Mapper & mapper,
         const NBX::SO<const GeometryPatch> & patch,
         const NBX::SO<typename ResourceManager<Piece, NBX::TextureGL>::Preparer> & preparer, double priority,
         bool & incomplete) const;

private:
    template <class Piece> double texelSize(const Piece & piece) const {
        const auto last = static_cast<unsigned>(levels_.size() - 1);
        return screenTexelSize(levels_[std::min(piece.level, last)], viewInfo_, eye_);
    }

    const Levels & levels_;
    const NBX::ViewInfo & viewInfo_;
    const Point & eye_;
    const double textureError_;
    const bool asynchronous_;
};

template <class Mapper, class NewPiece>
void LODTextureRequest::map(Mapper & mapper, const NBX::SO<const GeometryPatch> & patch,
                            const NewPiece & newPiece) {
    std::vector<NBX::SO<const GeometryPatch>> unknown;
    NBX::SO<const GeometryPatch> known = patch;
    while (known && !mapper.contains(known)) {
        unknown.push_back(known);
        known = known->parent();
    }
    auto piece = known ? mapper.get(known) : nullptr;
    for (; !unknown.empty(); unknown.pop_back()) {
        if (!piece || piece->level > 0) piece = newPiece(*unknown.back());
        mapper.insert(unknown.back(), piece);
    }
}

template <class Piece, class Mapper>
NBX::SO<NBX::TextureGL>
LODTextureRequest::find(ResourceManager<Piece, NBX::TextureGL> & manager, const Mapper & mapper,
                        const NBX::SO<const GeometryPatch> & patch,
                        const NBX::SO<typename ResourceManager<Piece, NBX::TextureGL>::Preparer> & preparer,
                        double priority, bool & incomplete) const {
    using Manager = ResourceManager<Piece, NBX::TextureGL>;
    using Outcome = typename Manager::Outcome;
    NBX::SO<const GeometryPatch> current = patch, parent;
    for (; current; current = parent) {
        parent = current->parent();
        const auto * parentPiece = parent ? mapper.find(parent) : nullptr;
        if (parentPiece && texelSize(**parentPiece) <= textureError_) continue;

        const auto * known = mapper.find(current);
        if (!known) {
            NBX_REPORT(0, L"mapper_->find(patch, texPatch)", L"");
            continue;
        }
        const NBX::SO<Piece> piece = *known;
        // Asked first, as the worker may be done at any time.
        Outcome outcome = manager.outcome(piece);
        NBX::SO<NBX::TextureGL> texture = manager.request(piece, nullptr, Manager::s_lookOnly);
        if (!texture && outcome == Outcome::None) {
            const bool atOnce = !parent || !asynchronous_;
            const double wanted = atOnce ? Manager::s_immediately : priority * texelSize(*piece);
            texture = manager.request(piece, preparer, wanted);
            if (atOnce) outcome = manager.outcome(piece);
        }
        if (texture) return texture;
        if (outcome == Outcome::Done || !parent) return EmptyTexture::texture();
        if (outcome == Outcome::Failed) continue;
        priority *= 0.5;
        incomplete = true;
    }
    NBX_REPORT(0, L"false", L"internal error");
    return nullptr;
}

} // namespace ZMT::CORE
