#pragma once

#include <nbx/container/sequence/iterator.h>
#include <nbx/math/bounds.h>
#include <nbx/math/color.h>
#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>
#include <zmt/util/mapping/uniquetexturemapping.h>

namespace NBX {
class GLCanvas;
class Image;
class SceneThing;
namespace GL2 {
class ProgramObject;
}
} // namespace NBX

namespace ZMT::CORE {
class Terrain;
}

namespace ZMT::UTIL {

/// Diffuse light of the sky and of the sun, computed on the graphics card into textures. For each of some
/// hundred directions the casters are drawn into a shadow map, and the light that comes from there is added
/// up wherever it is seen from the receiver.
///
/// Directions lead to the light. Those of `createLightDirections` have their pole in z and are turned so that
/// it shows upwards, which is y here; all others are in scene coordinates. Everything works on the calling
/// thread, shows its progress, and gives null when that is cancelled.
///
/// (1) What is seen from all directions at right angles has, over all channels together, the light
/// `intensity`. (2) A texel that nothing was drawn on has alpha 0, at least as many texels from others as
///     `getTextureBorderWidth`; those between them have the mean of their neighbours.
class AmbientOcclusion {
public:
    using Vector = NBX::Vector3Base<double>;
    using Vectors = NBX::Iterator<Vector>;
    using Meshes = NBX::Iterator<NBX::SO<NBX::PolygonSet>>;

    struct LightingConfiguration {
        int numSkyDirections = 300; ///< at random over the hemisphere
        NBX::Color skyColor = NBX::Color::white;
        int numSunDirections = 0; ///< around the sun
        Vector sunDirection{1.0, 1.0, 1.0};
        double sunSpread = 3.0; ///< range of angles of the sun's disc, in degrees
        double sunPower = 10.0; ///< weight of the sun against the sky
        NBX::Color sunColor = NBX::Color::white;
        double intensity = 3.0;           ///< of all light together
        NBX::SO<Vectors> extraDirections; ///< may be null, as their colours
        NBX::SO<Vectors> extraColors;     ///< at least as many

        enum Preset {
            P_LowSun = 0,  ///< a strong red sun in the west
            P_HighSun = 1, ///< a small white sun under a blue sky
        };
        /// Another number is reported and gives the defaults.
        static LightingConfiguration create(Preset preset);
    };

    /// Directions over the hemisphere of z, none of them preferred, from the numbers of the process's `rand`,
    /// which is not seeded. Length 1.
    static NBX::SO<Vectors> createLightDirections(int count);

    /// The light that falls on `receiver`, whose texture coordinates of unit 0 say where in the picture, from
    /// 0 to 1. Without normals it is lit as a body of faces. `lightDirections` are of the kind that
    /// `createLightDirections` makes and of equal weight; what is seen from all of them has 1. `caster` may
    /// be null, for light without shadows.
    static NBX::SO<NBX::Image> createLightingTexture(NBX::SO<NBX::PolygonSet> receiver,
                                                     NBX::SO<NBX::PolygonSet> caster,
                                                     NBX::SO<NBX::GLCanvas> canvas,
                                                     NBX::SO<Vectors> lightDirections);
    /// Gives every triangle of `meshes` texels of its own and computes the light that falls on it past all of
    /// them and past `casters`, which may be null. The textures of the result have images. All null without
    /// triangles, and without hardware that can do it, which is reported.
    static UniqueTextureMapping::TexturedMeshComposite
    createLightingTextures(NBX::SO<Meshes> meshes, double texelsPerUnit, NBX::SO<NBX::GLCanvas> canvas,
                           const LightingConfiguration & configuration,
                           NBX::SO<NBX::PolygonSet> casters = nullptr);
    /// The light on the part of the terrain in `bounds`, in scene coordinates; all of it for an undefined
    /// box. The picture has north up, and its borders are those of the part. All of the terrain casts
    /// shadows, at its finest level, and so does `casters`, which may be null. Null where nothing can be
    /// drawn, which is reported.
    static NBX::SO<NBX::Image> createTerrainTexture(NBX::SO<CORE::Terrain> terrain,
                                                    NBX::SO<NBX::PolygonSet> casters,
                                                    NBX::SO<NBX::GLCanvas> canvas, const NBX::Bounds & bounds,
                                                    const LightingConfiguration & configuration);
    /// The polygons of a scene in the light that falls on them, as a new scene that is drawn without lamps.
    /// `scene` stays. What is translucent is drawn behind everything else. Null where the light cannot be
    /// computed.
    static NBX::SO<NBX::SceneThing> applyAmbientOcclusion(const NBX::SO<NBX::SceneThing> & scene,
                                                          const LightingConfiguration & configuration,
                                                          double texelsPerUnit);
    /// A new program that multiplies the colour, with `withColorTexture` that of the sampler "ColorTex" at
    /// the coordinates of unit 1, by what the sampler "AOTex" has at those of unit 0, stretched from
    /// `minValue` for 0 to `maxValue` for 1. Alpha stays.
    static NBX::SO<NBX::GL2::ProgramObject> getIntensityBoostProgram(bool withColorTexture, float minValue,
                                                                     float maxValue);

    // Values of the process, without locks.

    /// At start true. False: frame buffer objects are not used, also where they exist.
    static bool getFBOEnabled() { return s_fboEnabled; }
    static void setFBOEnabled(bool enabled) { s_fboEnabled = enabled; }
    /// Edge of the shadow maps and of the textures that are made, in texels; at start 1024.
    static int getIdBufferSize() { return s_idBufferSize; }
    static void setIdBufferSize(int texels) { s_idBufferSize = texels; }
    /// Edge of the largest atlas of triangles, in texels; at start 1024.
    static int getMaxAtlasSize() { return s_maxAtlasSize; }
    static void setMaxAtlasSize(int texels) { s_maxAtlasSize = texels; }
    /// Texels around what was drawn that take the light of their neighbours; at start 2.
    static int getTextureBorderWidth() { return s_textureBorderWidth; }
    static void setTextureBorderWidth(int texels) { s_textureBorderWidth = texels; }

private:
    static bool s_fboEnabled;
    static int s_idBufferSize, s_maxAtlasSize, s_textureBorderWidth;
};

} // namespace ZMT::UTIL
