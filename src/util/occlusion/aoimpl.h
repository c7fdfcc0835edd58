#pragma once

#include <nbx/math/bounds.h>
#include <nbx/object/classpattern.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

#include "lightlist.h"

namespace NBX {
class GLCanvas;
class Image;
class PolygonSet;
class Progress;
} // namespace NBX

namespace ZMT::CORE {
class Terrain;
}

namespace ZMT::UTIL {

/// What draws light; see `AmbientOcclusion`. The pictures are square, of RGBA in floats, and null where
/// drawing was cancelled or is not possible.
class AOImpl : public NBX::SharedObj {
    NBX_CLASS(AOImpl, NBX::SharedObj)
public:
    /// Of a terrain, seen from above.
    struct TerrainStep {
        NBX::SO<CORE::Terrain> terrain;
        NBX::SO<NBX::PolygonSet> casters; ///< besides the terrain; may be null
        NBX::Bounds part;                 ///< in scene coordinates, defined
        unsigned size = 0;
    };
    /// Of triangles, each at its texture coordinates of unit 0.
    struct MeshStep {
        NBX::SO<NBX::PolygonSet> receiver; ///< with normals
        NBX::SO<NBX::PolygonSet> casters;  ///< may be null
        unsigned size = 0;
        /// Of the shadow map where it may be another one than that of the picture; 0 for the same.
        unsigned shadowSize = 0;
        bool closes = true; ///< texels around the triangles take the light of their neighbours
    };

    virtual NBX::SO<NBX::Image> render(const TerrainStep & step, const LightList & lights,
                                       NBX::Progress * progress) = 0;
    virtual NBX::SO<NBX::Image> render(const MeshStep & step, const LightList & lights,
                                       NBX::Progress * progress) = 0;
};

/// The renderer for `canvas`, as the settings of `AmbientOcclusion` and the hardware have it; its object name
/// tells which it is. Null, and reported, when there is none, and for a null canvas.
NBX::SO<AOImpl> newAOImpl(NBX::SO<NBX::GLCanvas> canvas);

} // namespace ZMT::UTIL
