#pragma once

#include <nbx/container/sequence/iterator.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/image/image.h>
#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>

namespace NBX {
class GLCanvas;
}

namespace ZMT::CORE {

/// Gives triangles a texture of their own: groups them to rectangular patches, lays these out on one atlas,
/// and draws the atlas from the source textures.
///
/// Vertices are three to a triangle, in world units. Texture coordinates are three to a triangle as well, in
/// the same order. Coordinates of an atlas hold s and t in x and y, from 0 to 1, and in z the height above
/// the plane of the patch, in world units.
///
/// (1) Every triangle that has a normal lies in exactly one patch; others lie in none, and their coordinates
///     are zero.
/// (2) With a border above 0, all coordinates lie between 0 and 1.
/// (3) Patches lie apart by twice the border.
class TextureAtlasGenerator {
public:
    using Vector = NBX::Vector3Base<double>;
    using Vectors = NBX::Iterator<Vector>;
    using Triangles = NBX::Iterator<int>; ///< numbers of triangles
    using Groups = NBX::Iterator<NBX::SO<Triangles>>;
    using Textures = NBX::Iterator<NBX::SO<NBX::ImageTexture2DGL>>;

    /// Null where the triangles do not fit.
    struct TextureMapping {
        NBX::SO<NBX::Image> image;
        NBX::SO<Vectors> texCoords; ///< coordinates of the atlas
    };

    /// The coordinates of an atlas of `atlasSize` texels, `unitsPerTexel` world units each, with `border`
    /// texels around each patch. Null if the triangles do not fit. A single triangle fits always.
    static NBX::SO<Vectors> create(const Vectors * vertices, double unitsPerTexel, int border, int atlasSize);
    /// The same with the picture. `textureNumbers` names the texture of each triangle, a negative one none.
    /// `canvas`, which has a depth buffer, gets the size of the atlas. What is missing is reported.
    static TextureMapping create(const Vectors * vertices, const Vectors * texCoords,
                                 const Triangles * textureNumbers, const Textures * textures,
                                 double unitsPerTexel, int border, int atlasSize, NBX::GLCanvas * canvas);
    /// The same with patches of the caller, who gives for each of them its texture and its world units to a
    /// texel.
    static TextureMapping create(const Vectors * triangles, const Vectors * texCoords, const Groups * patches,
                                 const Textures * textures, const NBX::Iterator<double> * patchResolutions,
                                 int border, int atlasSize, NBX::GLCanvas * canvas);

    /// Groups the triangles and lays the patches out. With `maxPatchSize` above 0 no patch is larger, in
    /// texels with its borders. Null if they do not fit.
    static NBX::SO<Vectors> createAtlasParameterization(const Vectors * vertices, double unitsPerTexel,
                                                        int border, int atlasSize, int maxPatchSize);
    static NBX::SO<Vectors> createAtlasParameterization(const Vectors * vertices, const Groups * patches,
                                                        double unitsPerTexel, int border, int atlasSize,
                                                        int maxPatchSize);

    /// Groups of triangles whose normals show the same way within some degrees. Triangles without a normal
    /// are left out. Null without vertices, here and below.
    static NBX::SO<Groups> groupParallelTriangles(const Vectors * vertices);
    /// Divides parallel triangles where they lie apart along their normal by more than one unit.
    static NBX::SO<Groups> groupCoplanarTriangles(const Vectors * vertices, const Triangles * triangles);
    /// Merges coplanar triangles to patches as long as that saves area of their rectangles, each grown by
    /// `border`. No merging makes a rectangle with a side above `maxSize`, both in world units.
    static NBX::SO<Groups> groupRectangularPatches(const Vectors * vertices, const Triangles * triangles,
                                                   double border, double maxSize);
    /// Divides a patch so that the triangles of a part do not cover each other in texture space. Missing
    /// sequences are reported and give null.
    static NBX::SO<Groups> splitPatch(const Vectors * texCoords, const Triangles * triNums);

    /// Draws an atlas of the size of `canvas`: each triangle with its texture at its coordinates of the
    /// atlas, and continued around them up to `border` texels. Without alpha where no texture has any. Null,
    /// and reported, where texture coordinates or the canvas are missing.
    static NBX::SO<NBX::Image> renderTextureAtlas(const Vectors * vertices, const Vectors * texCoords,
                                                  const Triangles * textureNumbers, const Textures * textures,
                                                  const Vectors * atlasCoords, int border,
                                                  NBX::GLCanvas * canvas);
    /// The same with the triangles of the patches alone.
    static NBX::SO<NBX::Image> renderTextureAtlas(const Vectors * vertices, const Vectors * texCoords,
                                                  const Triangles * textureNumbers, const Textures * textures,
                                                  const Vectors * atlasCoords, const Groups * patches,
                                                  int border, NBX::GLCanvas * canvas);
};

} // namespace ZMT::CORE
