#pragma once

#include <string>

#include <nbx/gl/program/programobject.h>
#include <nbx/object/so.h>

namespace ZMT::UTIL {

/// The programs that light is computed with, each made when it is first asked for and shared by all contexts.
/// Render thread.
///
/// The first two take the uniforms `mvp0` to `mvp3`, the rows of the matrix to the cube of the light's view,
/// and `mvit0` to `mvit2`, those of its inverse transpose for normals, whose z leads away from the light;
/// they compare with the shadow map in `tex0` and give the light `intensityPerLightDir`. `texelDelta` is the
/// size of a texel of the shadow map.
class AmbientOcclusionShaders {
public:
    using Program = NBX::SO<NBX::GL2::ProgramObject>;

    /// Draws at the texture coordinates of unit 0.
    static Program getAtlasCreatorProgram();
    /// Draws where the camera has it. The matrices are from its view coordinates; a vertex with the normal
    /// zero has that of its face.
    static Program getTerrainTextureCreatorProgram();
    /// Draws at the texture coordinates of unit 0 what `tex0`, a texture of `screenSize` texels square, has
    /// at the same place, and where that is nothing, the mean of its neighbours.
    static Program getTriangleBorderProgram();
    /// Draws the colour in `tex1` in the light that `tex0` has, both at the texture coordinates of their
    /// unit.
    static Program getLightingTextureBlendingProgram();

    /// Draws at the texture coordinates of unit 0 what `tex0` has there.
    static Program getCopyProgram();
    /// The program's text for one colour; see `AmbientOcclusion::getIntensityBoostProgram`.
    static std::string intensityBoostText(bool withColorTexture, float minValue, float maxValue);

    /// At start false. True: the texts are read from files in the current folder: "vertexshader.glsl",
    /// "fragmentshader.glsl", "vertexshader_terrain.glsl", "fragmentshader_terrain.glsl",
    /// "atlasfillshader.glsl", "renderfragmentshader.glsl". One that cannot be read is reported, and the
    /// built-in text is used. All programs are made anew.
    static void setReadsFiles(bool reads);
    static bool readsFiles();
};

} // namespace ZMT::UTIL
