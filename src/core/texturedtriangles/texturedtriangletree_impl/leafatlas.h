#pragma once

#include <deque>
#include <functional>
#include <vector>

#include <nbx/container/sequence/nonpersistentarray.h>
#include <nbx/image/image.h>
#include <nbx/math/area.h>
#include <nbx/object/so.h>

#include "atlastreegenerator.h"
#include "sourcetextures.h"
#include "texturesizecalculator.h"
#include "trianglecontainer.h"

namespace ZMT::CORE {

/// From how far away, and how, a tree is looked at where its atlases are sharp.
struct AtlasResolution {
    double distance = 0.0;    ///< in world units
    double fieldOfView = 0.0; ///< in degrees
    int screenSize = 0;       ///< in pixels
    double quality = 1.0;
    int atlasSize = 0; ///< edge of an atlas in texels
};

/// Draws the atlas of a leaf: the used part of each source texture, whole, with its border; where
/// `TexturedTriangleTree::uniqueTextureParameterizationEnforced()`, triangles in patches of their own, on
/// `canvas`, which only this takes. Coordinates of set 0 of `triangles`, which are sorted, become those in
/// the atlas, 0 to 1. The image has 8 bits of RGBA, or of RGB where patches have no alpha, and where nothing
/// lies what is around it, by `fillUnusedTexels`; a texture that cannot be had is light grey. Null where the
/// triangles find no room, and then nothing changes. `usedTexels` gets how many of them the parts take with
/// their borders, or, where triangles have their own, the triangles.
NBX::SO<NBX::Image> drawLeafAtlas(const NBX::SO<AtlasTreeGenerator::Triangles> & triangles,
                                  const NBX::SO<TriangleContainer> & container, SourceTextures & textures,
                                  const AtlasResolution & resolution, NBX::GLCanvas * canvas,
                                  double * usedTexels = nullptr);

/// The atlases of leaves one after the other, as `drawLeafAtlas` draws them. Those of leaves that follow each
/// other are drawn together, as many as take `mostBytes`, one texture on all of them and then the next one,
/// so that each is decoded once for them. Textures are decoded on the calling thread, and drawn on another
/// one.
class LeafAtlases {
public:
    using Triangles = AtlasTreeGenerator::Triangles;
    static constexpr std::size_t s_mostBytes = std::size_t(256) << 20U;

    /// `goOn` is asked between the textures; where it is false, the atlases stay incomplete. Borrows
    /// `textures` and `canvas`.
    LeafAtlases(std::vector<NBX::SO<Triangles>> leaves, const NBX::SO<TriangleContainer> & container,
                SourceTextures & textures, const AtlasResolution & resolution, NBX::GLCanvas * canvas,
                std::function<bool()> goOn, std::size_t mostBytes = s_mostBytes);
    ~LeafAtlases();
    LeafAtlases(const LeafAtlases &) = delete;
    LeafAtlases & operator=(const LeafAtlases &) = delete;

    /// Of the next leaf; its triangles have their new coordinates now, and not before. `usedTexels` as above.
    NBX::SO<NBX::Image> next(double * usedTexels = nullptr);

private:
    /// A leaf whose textures have places.
    struct Plan {
        NBX::SO<NBX::Iterator<TextureSizeCalculator::TextureInfo>> infos;
        NBX::SO<NBX::Iterator<NBX::Area>> areas; ///< null where they find no room
        NBX::SO<NBX::Image> atlas;
    };
    /// The part of a texture on an atlas.
    struct Part;

    Plan planOf(const NBX::SO<Triangles> & triangles) const;
    void drawGroup();
    void draw(std::vector<Part> parts);

    const std::vector<NBX::SO<Triangles>> leaves_;
    const NBX::SO<TriangleContainer> container_;
    SourceTextures & textures_;
    const AtlasResolution resolution_;
    NBX::GLCanvas * const canvas_;
    const std::function<bool()> goOn_;
    const std::size_t mostAtOnce_; ///< leaves
    std::size_t next_ = 0;
    std::deque<Plan> drawn_; ///< from the next leaf on
};

} // namespace ZMT::CORE
