#pragma once

#include <nbx/container/sequence/iterator.h>
#include <nbx/math/bounds.h>
#include <nbx/object/so.h>

#include "trianglecontainer.h"

namespace ZMT::CORE {

/// How many texels a source texture needs in an atlas so that it looks sharp from the reference distance,
/// measured from how texture coordinates lie in the world. Distances are in world units, fields of view in
/// degrees, screen sizes in pixels; axis 0 is s, axis 1 is t.
class TextureSizeCalculator {
public:
    using TriangleID = TriangleContainer::TriangleID;
    using Vector = NBX::Vector3Base<double>;

    /// Texels around a packed texture.
    static constexpr int BORDER = 8;

    /// One source texture in an atlas.
    struct TextureInfo {
        int width = 0, height = 0; ///< in texels, the border on both sides included
        NBX::Bounds bounds;        ///< the part of the source texture in use, in texture coordinates
        NBX::SO<NBX::Iterator<TriangleID>> triangles; ///< those that use it, in their order
    };

    /// World extent of the view at `distance`.
    static double viewExtent(double distance, double fieldOfView);
    static double unitsPerTexel(double distance, double fieldOfView, int screenSize, double quality);

    /// World units for one unit of a texture coordinate. False where the coordinate does not change over the
    /// triangle, or is no number; `scale` is then as it was.
    static bool texSpaceToWorldSpaceScaling(const Vector & p0, const Vector & p1, const Vector & p2,
                                            const Vector & t0, const Vector & t1, const Vector & t2, int axis,
                                            double & scale);

    /// Pixels for one unit of a texture coordinate, the largest of all triangles that have one; else 0.
    static double maxTexSpaceToScreenSpaceScaling(NBX::SO<NBX::Iterator<TriangleID>> triangles,
                                                  NBX::SO<TriangleContainer> container, int axis,
                                                  double distance, double fieldOfView, int screenSize);
    /// The same for triangles of three indices each into vertices and their coordinates. Null sequences of
    /// these, sizes that differ, and a number of indices that is no multiple of 3 are reported.
    static double maxTexSpaceToScreenSpaceScaling(NBX::SO<NBX::Iterator<unsigned>> indices,
                                                  NBX::SO<NBX::Iterator<Vector>> vertices,
                                                  NBX::SO<NBX::Iterator<Vector>> texcoords, int axis,
                                                  double distance, double fieldOfView, int screenSize);

    /// An entry for each run of triangles of one mesh; with unique parameterization, one for each triangle.
    /// Widths and heights are at most `atlasSize`.
    static NBX::SO<NBX::Iterator<TextureInfo>>
    computeTextureInformation(NBX::SO<NBX::Iterator<TriangleID>> triangles,
                              NBX::SO<TriangleContainer> container, double distance, double fieldOfView,
                              int screenSize, double quality, int atlasSize);
};

} // namespace ZMT::CORE
