#pragma once

#include <functional>
#include <string>

#include <nbx/data/atomicfilewriter.h>
#include <nbx/gl/context/glcanvas.h>
#include <nbx/object/so.h>
#include <nbx/scene/attribute/attribute.h>
#include <nbx/scene/node/scenething.h>
#include <zmt/core/terrain/inspect/patchinspectorgl.h>

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
/// Draws the canvas and writes the file of the name `path`, JPEG where it says so and PNG otherwise, to
/// `out`, which is not committed. False for one that shows the sky alone. Throws `DataError` and
/// `NBX::IOException`.
bool writePicture(NBX::GLCanvas & canvas, NBX::AtomicFileWriter & out, const std::string & path);
