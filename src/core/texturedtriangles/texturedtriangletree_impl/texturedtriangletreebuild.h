#pragma once

#include <string>

#include <zmt/core/texturedtriangles/texturedtriangletree.h>

namespace ZMT::CORE {

/// What `TexturedTriangleTree` is built with, see its constructor.
struct TexturedTriangleTreeSettings {
    double distance = 100.0; ///< in world units
    bool createAlphaTextures = false;
    std::wstring pagingFile;
    double quality = 1.0;
    int screenSize = 800;      ///< in pixels
    double fieldOfView = 90.0; ///< in degrees
    int atlasSize = 0;         ///< in texels
};

/// Fills `tree`, which is a new one, with the triangles of `scene`, whose shapes become polygon sets.
/// `canvas` becomes one where it is null, and takes the size of an atlas. False, with an empty tree and no
/// file, when the user cancels, and, reported, without a scene and for numbers that are no such view or
/// atlas.
bool buildTexturedTriangleTree(TexturedTriangleTree & tree, const NBX::SO<NBX::SceneThing> & scene,
                               const TexturedTriangleTreeSettings & settings,
                               NBX::SO<NBX::GLCanvas> & canvas);

/// A tree for the view from 100 world units, with a field of view of 90 degrees on 800 pixels, and atlases as
/// large as `canvas` is wide. Null after a cancel and, reported, without a canvas.
NBX::SO<TexturedTriangleTree> newTexturedTriangleTree(const NBX::SO<NBX::SceneThing> & scene,
                                                      bool createAlphaTextures,
                                                      const std::wstring & pagingFile,
                                                      NBX::SO<NBX::GLCanvas> canvas);

} // namespace ZMT::CORE
