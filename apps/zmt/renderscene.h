#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include <nbx/object/so.h>
#include <nbx/scene/scenething.h>
#include <zmt/core/terrain/geometry/geometrypatch.h>
#include <zmt/core/terrain/geometry/griddata.h>
#include <zmt/raster/geoimagedata.h>
#include <zmt/raster/georaster.h>

/// What is to be seen.
struct SceneOptions {
    std::string terrain;
    std::vector<std::string> images;
    std::string view = "overview";
    double exaggeration = 1.0;
    bool wireframe = false;
};

/// A view by name, or eye and aim in map coordinates: x, y, height of each.
struct View {
    std::string name;
    std::optional<std::array<double, 6>> coordinates;
};

/// Throws `UsageError`.
View parseView(const std::string & text);

/// The images, each warped to the system of the terrain. Throws when one lies elsewhere.
std::vector<ZMT::RASTER::GeoImageData> readImages(const SceneOptions & options,
                                                  const ZMT::RASTER::GeoRaster & terrain);

/// The terrain under its textures, seen by a camera. With `plain`, no colours by height are laid on.
NBX::SO<NBX::SceneThing> makeScene(const SceneOptions & options, const NBX::SO<ZMT::CORE::GridData> & grid,
                                   const NBX::SO<ZMT::CORE::GeometryPatch> & root,
                                   const std::vector<ZMT::RASTER::GeoImageData> & images, bool plain);
