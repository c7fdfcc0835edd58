#pragma once

#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>

namespace NBX {
class Color;
class DistantLight;
class Image;
} // namespace NBX

namespace ZMT::CORE {

class Terrain;
class TerrainTexture;

/// Makes textures of terrains by drawing them from straight above, at their finest level. The picture fills
/// the whole image: its line 0 is the southern edge of the terrain's box, its column 0 the western one. The
/// textures are `TiledLODTexture`s that keep the image, which may not change any more.
///
/// Render thread only. Patches are drawn where the scene's origin puts them, as in any other picture.
class CreateTexture {
public:
    CreateTexture() = delete;

    /// The terrain under `light`: draws `ambient`, which is the colour of the ground, times the light that
    /// falls on it, into `target`, with the heights multiplied by `scale`. The shading is exact where the
    /// terrain is as wide as it is deep; otherwise it is that of the terrain stretched to a square.
    ///
    /// Null arguments are reported under "terrain" with "no terrain", "target" with "no target image" and
    /// "light" with "no light". Null as well when nothing can be drawn, which is reported.
    static NBX::SO<TerrainTexture> createShading(NBX::SO<Terrain> terrain, NBX::SO<NBX::DistantLight> light,
                                                 NBX::SO<NBX::Image> target, const NBX::Color & ambient,
                                                 const NBX::Vector3Base<double> & scale);
    /// The normals of the ground, multiplied with `scale` and brought to length 1, as colours: each
    /// component, from -1 to 1, as 0 to 1. `target` has three or four layers. Errors are as above.
    static NBX::SO<TerrainTexture> createNormal(NBX::SO<Terrain> terrain, NBX::SO<NBX::Image> target,
                                                const NBX::Vector3Base<double> & scale);
};

} // namespace ZMT::CORE
