#pragma once

#include <functional>
#include <string>

#include <nbx/data/atomicfilewriter.h>
#include <nbx/gl/context/glcanvas.h>
#include <nbx/image/image.h>
#include <nbx/object/so.h>
#include <nbx/scene/attribute/attribute.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/camera.h>
#include <zmt/core/terrain/inspect/patchinspectorgl.h>

class Landscape;

// What the pictures in files and those in the window have in common.

/// How far a picture may be from the full detail, in pixels.
struct AllowedErrors {
    double geometry = 3.0;
    double texture = 2.0;
    bool isGeometryAsked = false; ///< the first is not the usual one
};

/// Throws `UsageError`.
void checkErrors(const AllowedErrors & errors);

/// Frames of one picture, which is drawn until it is complete, and what was in the last one.
struct Frames {
    unsigned count = 0;
    double lastMilliseconds = 0.0;
    /// Patches, or tiles of streaming terrains.
    ZMT::CORE::PatchInspectorGL::Statistics drawn;
    /// Tiles of streaming terrains and textures that were wanted and not there.
    unsigned missingTiles = 0;

    /// Calls `draw`, which draws one more.
    void add(const std::function<void()> & draw);
};

/// Sky behind the landscape, and pictures that are refined while time goes on.
void prepareCanvas(NBX::GLCanvas & canvas);
/// What follows it in a node is drawn by its edges. Walls are left out.
NBX::SO<NBX::Attribute> makeWireframe();
/// The surface of `node`, without colours: in front of a wireframe of the same it hides what lies behind.
NBX::SO<NBX::SceneThing> makeHidingSurface(const NBX::SO<NBX::SceneThing> & node);
/// Throws `UsageError` for a name that promises another format than PNG or JPEG.
void checkPictureName(const std::string & option, const std::string & path);
/// Throws `UsageError` for other numbers of samples of a pixel than 1, 4, 9 and 16.
void checkSamples(unsigned samples);
/// While it exists, textures are finer, as pictures of so many samples a pixel need: those of the canvas and
/// the landscape, which outlive it.
class FinerTextures {
public:
    FinerTextures(NBX::GLCanvas & canvas, Landscape & landscape, unsigned samples);
    ~FinerTextures();
    FinerTextures(const FinerTextures &) = delete;
    FinerTextures & operator=(const FinerTextures &) = delete;

private:
    NBX::GLCanvas & canvas_;
    Landscape & landscape_;
    double error_; ///< of the textures, before
};
/// What `canvas` shows by `camera`, which its scene has: the average of as many pictures as there are samples
/// of a pixel, each of them seen from a part of a pixel farther. `settle` draws one until it is complete.
/// The camera is as before behind it. Throws `DataError`.
NBX::SO<NBX::Image> sampledPicture(NBX::GLCanvas & canvas, NBX::Camera & camera, unsigned samples,
                                   const std::function<void()> & settle);
/// Writes the file of the name `path`, JPEG where it says so and PNG otherwise, to `out`, which is not
/// committed. False for one that shows the sky alone. Throws `DataError` and `NBX::IOException`.
bool writePicture(const NBX::SO<NBX::Image> & picture, NBX::AtomicFileWriter & out, const std::string & path);
