#pragma once

#include <string>
#include <vector>

#include <nbx/object/so.h>
#include <nbx/scene/scenething.h>
#include <zmt/core/terrain/geometry/geometrypatch.h>
#include <zmt/core/terrain/geometry/griddata.h>
#include <zmt/core/terrain/geometry/terrain.h>
#include <zmt/core/terrain/geometry/terrainscaling.h>

#include "groundlayers.h"

namespace CLI {
class App;
}

/// What a landscape is made of.
struct LandscapeOptions {
    std::string terrain;
    std::vector<std::string> images;
    std::vector<std::string> breakLines; ///< vector files
    std::vector<std::string> draped;     ///< vector files
    double drapeLift = 0.0;              ///< in units of the heights
    std::string light;                   ///< empty for a light from the north-west
    std::string lighting = "relief";
    std::string method = "tree";
    unsigned maxVertices = 4000;
    double exaggeration = 1.0;
    bool plain = false; ///< shading alone, neither colours by height nor images
};

/// Adds the options that make a landscape to `command`; all but the terrain itself.
void addLandscapeOptions(CLI::App & command, LandscapeOptions & options);

/// A terrain with all that lies on it, read and built.
class Landscape {
public:
    /// Reads and builds. Throws `UsageError` for options that cannot be, `DataError` and what the raster
    /// layer throws for data that cannot be used and after a cancel.
    explicit Landscape(const LandscapeOptions & options);

    const ZMT::CORE::GridData & grid() const { return *grid_; }
    const NBX::SO<ZMT::CORE::Terrain> & terrain() const { return terrain_; }
    /// The content of the scene, without a camera.
    const NBX::SO<NBX::SceneThing> & node() const { return node_; }
    /// How long the terrain took to build.
    double buildMilliseconds() const { return buildMilliseconds_; }

    /// What lies on the terrain, lowest first; each effect may be switched off.
    const std::vector<GroundLayer> & layers() const { return layers_; }

    double exaggeration() const;
    void setExaggeration(double exaggeration);

    /// The box of the scene, with the heights exaggerated.
    NBX::Bounds box() const;
    /// Where the last of the images lies; undefined without one.
    const NBX::Bounds & interest() const { return interest_; }

private:
    void layOn(const GroundLayer & layer);
    void lightVertices(const Sunlight & sun);

    NBX::SO<ZMT::CORE::GridData> grid_;
    NBX::SO<ZMT::CORE::Terrain> terrain_;
    NBX::SO<ZMT::CORE::GeometryPatch> root_; ///< a terrain may merely watch it
    NBX::SO<ZMT::CORE::TerrainScaling> scaling_;
    NBX::SO<NBX::SceneThing> node_;
    std::vector<GroundLayer> layers_;
    NBX::Bounds interest_;
    double buildMilliseconds_ = 0.0;
};
