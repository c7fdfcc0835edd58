#pragma once

#include <nbx/container/sequence/iterator.h>
#include <nbx/object/so.h>

namespace NBX {
class ImageTexture2DGL;
class PolygonSet;
} // namespace NBX

namespace ZMT::UTIL {

/// Gives every triangle of a set of meshes a texture area of its own, so that what holds for one triangle,
/// such as light, can be kept in textures.
///
/// (1) No two triangles share a texel, and between two of them lie at least 4 texels.
/// (2) Every triangle has at least 16 by 16 texels, and with its margin lies on one atlas, whole.
class UniqueTextureMapping {
public:
    template <class T> using Sequence = NBX::Iterator<T>;

    /// All null when there are no triangles.
    struct TexturedMeshComposite {
        /// One for each atlas, without an image yet.
        NBX::SO<Sequence<NBX::SO<NBX::ImageTexture2DGL>>> textures;
        /// One for each atlas: the triangles placed on it, in their order, without an index sequence. Texture
        /// unit 0 has their places, from 0 to 1; what the units of the given meshes had is one unit higher.
        NBX::SO<Sequence<NBX::SO<NBX::PolygonSet>>> meshes;
        /// For each given mesh, the number of triangles up to and including it.
        NBX::SO<Sequence<unsigned>> ranges;
    };

    /// Lays out all triangles of `meshes`, members of which may be null, on atlases of at most `maxAtlasSize`
    /// texels in both directions. A triangle that would be larger than an atlas gets fewer texels. A mesh
    /// whose polygons are not simply lists of triangles is reported at level 2, as the ranges do not fit
    /// then.
    static TexturedMeshComposite create(NBX::SO<Sequence<NBX::SO<NBX::PolygonSet>>> meshes,
                                        double texelsPerUnit, int maxAtlasSize);
};

} // namespace ZMT::UTIL
