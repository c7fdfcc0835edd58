#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nbx/object/so.h>
#include <zmt/util/cameraposition.h>

#include "landscape/landscapeoptions.h"
#include "landscape/picture.h"
#include "landscapelook.h"

/// A view that a user wants to come back to.
struct Bookmark {
    /// Never null. Places in map coordinates: x, height without exaggeration, y.
    NBX::SO<ZMT::UTIL::CameraPosition> position;
    std::vector<std::uint8_t> picture; ///< a small one, JPEG; empty without one
};

/// All that a window shows: of which files, how they look, and from where.
struct Scene {
    /// Its files as absolute paths and URLs. What a look says more lately holds.
    LandscapeOptions landscape;
    LandscapeLook look;
    std::array<double, 6> view{}; ///< eye and aim, as `View::coordinates`
    AllowedErrors errors;
    bool wireframe = false, patches = false;
    std::optional<double> trackTime; ///< seconds since 1970
    std::vector<Bookmark> bookmarks;
};

/// The suffix of scenes in files, "zmt".
extern const std::string s_sceneSuffix;

/// Whether a file holds a scene, by its suffix or by the object that it begins with; false for URLs.
bool isSceneFile(const std::string & path);

/// Stores a scene in the object stream (docs/object-stream.md), in one step. Files that are there are stored
/// with their absolute paths and found again from the folder of the scene; logins of URLs, and the key of
/// streaming textures, are not stored. Throws `NBX::IOException`.
void writeScene(const Scene & scene, const std::string & path);

/// What was read, and what of it is missing.
struct ReadScene {
    Scene scene;
    std::vector<std::string> missing; ///< files that are left out, as they were called
};
/// Undoes `writeScene`, with the files where `findLinks` finds them. Throws `DataError` for a file that is no
/// scene, was written by a later version, holds numbers that cannot be, or whose terrain is missing.
ReadScene readScene(const std::string & path);
