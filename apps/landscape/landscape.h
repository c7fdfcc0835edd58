#pragma once

#include <string>
#include <vector>

#include <nbx/object/so.h>
#include <nbx/scene/node/scenething.h>
#include <zmt/core/terrain/frame/terrainscaling.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/tin/polygontriangulation.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/raster/geoextent.h>
#include <zmt/raster/georeference.h>

#include "groundlayers.h"
#include "landscapeoptions.h"
#include "terraininput.h"
#include "viewpoint.h"

/// A terrain with all that lies on it, read and built.
class Landscape {
public:
    /// Reads and builds what `checkLandscape` has passed: by the tree where that was built, where the options
    /// need it and where chunks cannot cover the raster, otherwise chunked. Throws `DataError` and what the
    /// raster layer throws for data that cannot be used and after a cancel.
    /// Streaming files were opened before; they are released, as the landscape, on the thread of that.
    explicit Landscape(const LandscapeOptions & options, const StreamedFiles & streamed = {});

    /// An image for this terrain; nothing is changed. Throws as above.
    GroundLayer readImage(const std::string & path, const ImageLook & look = {},
                          const StreamedFiles & streamed = {}) const;
    /// Lays what `readImage` gave on all other images, below what is draped and a shading that images have.
    void addImage(const GroundLayer & image);

    /// How its map coordinates are to be understood.
    const ZMT::RASTER::GeoReference & reference() const { return reference_; }
    /// The heights; coarse ones of a terrain that streams.
    const ZMT::CORE::GridData & grid() const { return *grid_; }
    /// Whether its tiles are read while it is looked at.
    bool isStreamed() const { return isStreamed_; }
    /// What is read while it is looked at: of the terrain, then of its layers. On the thread that opened
    /// them.
    std::vector<NBX::SO<ZMT::CORE::AsyncFile>> streamedFiles() const;
    const NBX::SO<ZMT::CORE::Terrain> & terrain() const { return terrain_; }
    /// The root of the terrain's tree; null where it is chunked.
    NBX::SO<ZMT::CORE::GeometryPatch> tree() const { return isChunked_ ? nullptr : root_; }
    /// The content of the scene, without a camera.
    const NBX::SO<NBX::SceneThing> & node() const { return node_; }
    /// How long the terrain took to build.
    double buildMilliseconds() const { return buildMilliseconds_; }

    /// What lies on the terrain, lowest first; each effect may be switched off.
    const std::vector<GroundLayer> & layers() const { return layers_; }

    /// What `TerrainPainterGLSettings` is given so that no error of the geometry larger than `pixels` shows:
    /// less where patches lie farther from the heights than they state, and 0 where only the finest level has
    /// what its light needs.
    double geometryErrorFor(double pixels) const { return pixels * geometryErrorFactor_; }

    double exaggeration() const;
    void setExaggeration(double exaggeration);

    /// The box of the scene, with the heights exaggerated.
    NBX::Bounds box() const;
    /// Where the last of the images lies; undefined without one.
    const NBX::Bounds & interest() const { return interest_; }
    /// For `findViewpoint`: a close-up is to show the last of the images.
    ViewedGround viewedGround() const { return {*grid_, *terrain_, reference_, exaggeration(), interest_}; }

private:
    /// Sorts `options.vectors` into break lines and what is draped.
    LandscapeOptions withVectors(LandscapeOptions options, const TerrainInput & input) const;
    NBX::SO<ZMT::CORE::Terrain> makeTerrain(const LandscapeOptions & options, const TerrainInput & input);
    /// On all that lies there, or below the last `above` layers.
    void layOn(const GroundLayer & layer, unsigned above = 0);
    void layImage(const GroundLayer & image);
    void drape(const std::string & path, const std::vector<ZMT::CORE::PolygonTriangulation::Ring> & areas,
               double lift);
    void lightVertices(const Sunlight & sun);
    /// In front of the ground and the last `above` objects before it.
    void putBefore(NBX::RenderObj * object, unsigned above = 0);

    ZMT::RASTER::GeoReference reference_;
    ZMT::RASTER::GeoExtent extent_; ///< in the coordinates of `reference_`
    NBX::SO<ZMT::CORE::GridData> grid_;
    NBX::SO<ZMT::CORE::Terrain> terrain_;
    NBX::SO<ZMT::CORE::GeometryPatch> root_; ///< a terrain may merely watch it
    NBX::SO<ZMT::CORE::TerrainScaling> scaling_;
    NBX::SO<NBX::SceneThing> node_;
    NBX::SO<NBX::SceneThing> ground_; ///< the last in `node_`: the scaling, what is draped, the terrain
    std::vector<GroundLayer> layers_;
    unsigned draped_ = 0; ///< the last layers, which stand in `ground_`
    NBX::Bounds interest_;
    double buildMilliseconds_ = 0.0;
    double geometryErrorFactor_ = 1.0;
    bool isStreamed_ = false;
    bool isShadingOnTop_ = false; ///< the last layer is the shading
    bool isChunked_ = false;
};
