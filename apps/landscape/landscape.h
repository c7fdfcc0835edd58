#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nbx/object/so.h>
#include <nbx/scene/attribute/distantlight.h>
#include <nbx/scene/node/scenething.h>
#include <zmt/core/terrain/frame/terrainscaling.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/tin/polygontriangulation.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/perpixelterrainlightingeffect.h>
#include <zmt/raster/geoextent.h>
#include <zmt/raster/georeference.h>

#include "citylayer.h"
#include "dynamiclayer.h"
#include "flood.h"
#include "groundlayers.h"
#include "landscapeoptions.h"
#include "overlays.h"
#include "terraininput.h"
#include "viewpoint.h"

/// A terrain with all that lies on it, read and built.
class Landscape {
public:
    using Tints = std::vector<ZMT::CORE::ReliefImage::Tint>;

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

    /// A city for it, read from what `CityLayer` takes; nothing is changed. Throws as that, and where it is
    /// in another system.
    CityLayer readCity(const std::string & locator, const CityOptions & options,
                       const StreamedFiles & streamed = {}) const;
    /// Adds what `readCity` gave. There is a terrain.
    void addCity(const CityLayer & city);

    /// Vectors for its ground, as `Overlays::read`; nothing is changed.
    std::vector<NBX::SO<Overlays::Overlay>> readOverlay(const OverlayOptions & option,
                                                        const StreamedFiles & streamed = {}) const;
    /// Lays what `readOverlay` gave on all other overlays. There is a terrain.
    void addOverlays(const std::vector<NBX::SO<Overlays::Overlay>> & more);

    /// Contour lines of its heights, as `Overlays::readContours`; of the coarse ones where it streams.
    /// Nothing is changed.
    NBX::SO<Overlays::Overlay> readContours(double interval) const;
    /// Lays what `readContours` gave for an interval below all overlays, in the place of those before; null
    /// for none. There is a terrain.
    void setContours(const std::optional<double> & interval, const NBX::SO<Overlays::Overlay> & lines);
    /// The interval of those that it has.
    const std::optional<double> & contours() const { return contourInterval_; }

    /// Tracks for its ground, as `Tracks`; nothing is changed.
    Tracks readTracks(const TrackOptions & options) const { return {options, reference_}; }
    /// Puts what `readTracks` gave in the place of all tracks. The time stays, where there were any. There is
    /// a terrain.
    void setTracks(Tracks tracks);

    /// Path or URL of the terrain; empty for cities alone.
    const std::string & file() const { return file_; }
    /// How its map coordinates are to be understood.
    const ZMT::RASTER::GeoReference & reference() const { return reference_; }
    /// The heights; coarse ones of a terrain that streams.
    const ZMT::CORE::GridData & grid() const { return *grid_; }
    /// Whether its tiles are read while it is looked at.
    bool isStreamed() const { return isStreamed_; }
    /// What is read while it is looked at: of the terrain, then of its layers. On the thread that opened
    /// them.
    std::vector<NBX::SO<ZMT::CORE::AsyncFile>> streamedFiles() const;
    /// The names, without folders, of those and of cities in the place of which others lie now. On that
    /// thread.
    std::vector<std::string> changedFiles() const;
    const NBX::SO<ZMT::CORE::Terrain> & terrain() const { return terrain_; }
    /// The root of the terrain's tree; null where it is chunked.
    NBX::SO<ZMT::CORE::GeometryPatch> tree() const { return isChunked_ ? nullptr : root_; }
    /// The content of the scene, without a camera; another node after the first city or overlay was added.
    const NBX::SO<NBX::SceneThing> & node() const {
        return cities_.empty() && !hasOverlays_ ? node_ : scene_;
    }
    /// How long the terrain took to build.
    double buildMilliseconds() const { return buildMilliseconds_; }

    /// What lies on the terrain, lowest first.
    const std::vector<GroundLayer> & layers() const { return layers_; }
    // Of the layer with a number in that list.
    void setLayerOn(std::size_t number, bool isOn);
    /// From 0 to 1; nothing for what is no image.
    void setLayerOpacity(std::size_t number, double opacity);
    /// Makes those with these numbers, in this order, the lowest first. All of them are there. Images and
    /// light change their places; colours by height stay below them, and what is draped above.
    void setLayerOrder(const std::vector<std::size_t> & order);
    /// Hides what has colours, whether it is on or not.
    void hideColors(bool isHiding);

    /// What `TerrainPainterGLSettings` is given so that no error of the geometry larger than `pixels` shows:
    /// less where patches lie farther from the heights than they state, and 0 where only the finest level has
    /// what its light needs.
    double geometryErrorFor(double pixels) const { return pixels * geometryErrorFactor_; }

    double exaggeration() const;
    void setExaggeration(double exaggeration);

    /// Colours its heights by a table, sorted by height, in map coordinates; an empty one for the usual
    /// colours. Nothing on a plain ground.
    void setTints(const Tints & tints);
    const Tints & tints() const { return tints_; }

    /// Whether its light may be that of the sun; not where it is baked into the file, or nothing is lit.
    bool canSetSun() const { return hasTerrain() && !isLightBaked_; }
    /// Lights it by the sun of a moment, for each pixel where that light is no lamp, or with none as it was
    /// read. Nothing where that cannot be. Throws as `makeShading`, and then changes nothing.
    void setSun(const std::optional<SunMoment> & moment);
    const std::optional<SunMoment> & sun() const { return sun_; }

    /// The box of the scene, with the heights exaggerated.
    NBX::Bounds box() const;
    /// Where the last of the images lies; undefined without one.
    const NBX::Bounds & interest() const { return interest_; }
    /// For `findViewpoint`: a close-up is to show the last of the images.
    ViewedGround viewedGround() const {
        return {*grid_,
                *terrain_,
                reference_,
                exaggeration(),
                interest_,
                cityBox(),
                hasTerrain() ? "" : cities_.front().name()};
    }
    /// Textured models, which are read while they are looked at.
    const std::vector<CityLayer> & cities() const { return cities_; }
    std::vector<CityLayer> & cities() { return cities_; }
    /// Vector files on the ground.
    const Overlays & overlays() const { return overlays_; }
    Overlays & overlays() { return overlays_; }
    const Tracks & tracks() const { return tracks_; }
    Tracks & tracks() { return tracks_; }
    const Flood & flood() const { return flood_; }
    Flood & flood() { return flood_; }
    /// Makes a feature of an overlay stand out, that at a place in map coordinates; null for none. False
    /// where that changes nothing.
    bool highlight(const Overlays::Feature * feature, const NBX::Vector3Base<double> & place = {});

    /// Shows a line with its corners on the ground, in map coordinates, above all else; none of no corners.
    void showLine(const std::vector<NBX::Vector3Base<double>> & corners);

    /// Finds what moves in a picture of this height before it is drawn.
    void prepareMoving(const NBX::Camera & camera, unsigned height);
    /// The same, and what stands upright; see `Overlays::prepare`.
    bool prepare(const NBX::Camera & camera, unsigned width, unsigned height, bool atOnce) {
        prepareMoving(camera, height);
        return overlays_.prepare(camera, width, height, atOnce);
    }
    /// False for cities alone, below which lies level ground that is not drawn.
    bool hasTerrain() const { return bool(node_); }
    /// Whether anything of it is read while it is looked at.
    bool isReadWhileShown() const { return !cities_.empty() || !streamedFiles().empty(); }

private:
    /// Sorts `options.vectors` into break lines and what is draped.
    LandscapeOptions withVectors(LandscapeOptions options, const TerrainInput & input) const;
    NBX::SO<ZMT::CORE::Terrain> makeTerrain(const LandscapeOptions & options, const TerrainInput & input);
    /// On all that lies there, or below the last `above` layers.
    void layOn(const GroundLayer & layer, unsigned above = 0);
    void layImage(const GroundLayer & image);
    void switchLayer(const GroundLayer & layer) const;
    unsigned layersNamed(const std::string & name) const;
    void drape(const std::string & path, const std::vector<ZMT::CORE::PolygonTriangulation::Ring> & areas,
               double lift);
    void layOverlays();
    /// Above all layers, the light included, and below the last `above` of such effects.
    void layOnTop(const NBX::SO<NBX::Attribute> & effect, unsigned above = 0);
    void lightVertices(const Sunlight & sun);
    /// The first layer of this kind; null without one.
    GroundLayer * layer(LayerKind kind);
    /// Another effect in the place of that of a layer.
    void replaceEffect(LayerKind kind, const NBX::SO<NBX::Attribute> & effect);
    void readCities(const CityOptions & options, const StreamedFiles & streamed);
    /// Stands in the place of a terrain.
    void layGroundBelowCities();
    /// To the scene, once the ground is known.
    void addCities();
    NBX::Bounds cityBox() const;
    /// In front of the ground and the last `above` objects before it.
    void putBefore(NBX::RenderObj * object, unsigned above = 0);

    std::string file_;
    ZMT::RASTER::GeoReference reference_;
    ZMT::RASTER::GeoExtent extent_; ///< in the coordinates of `reference_`
    NBX::SO<ZMT::CORE::GridData> grid_;
    NBX::SO<ZMT::CORE::Terrain> terrain_;
    NBX::SO<ZMT::CORE::GeometryPatch> root_; ///< a terrain may merely watch it
    NBX::SO<ZMT::CORE::TerrainScaling> scaling_;
    NBX::SO<NBX::SceneThing> scene_; ///< `node_`, cities, and the names of overlays
    NBX::SO<NBX::SceneThing> node_;
    NBX::SO<NBX::SceneThing> ground_; ///< the last in `node_`: the scaling, what is draped, the terrain
    std::vector<GroundLayer> layers_;
    std::vector<CityLayer> cities_;
    Overlays overlays_;
    Tracks tracks_;
    Flood flood_;
    std::optional<DynamicLayer> dynamic_; ///< none on a plain ground, and below cities alone
    const Overlays::Overlay * highlighted_ = nullptr;
    std::int64_t highlightedId_ = 0;
    unsigned draped_ = 0; ///< the last layers, which stand in `ground_`
    NBX::Bounds interest_;
    NBX::SO<Overlays::Overlay> contours_; ///< null for none
    std::optional<double> contourInterval_;
    Sunlight light_{};                                           ///< that it was read with
    double lightExaggeration_ = 1.0;                             ///< of the surface that is lit
    NBX::SO<NBX::DistantLight> lamp_;                            ///< null unless vertices are lit
    NBX::SO<NBX::Attribute> shadingAsRead_;                      ///< null before the sun shone
    NBX::SO<ZMT::CORE::PerPixelTerrainLightingEffect> sunshine_; ///< null before that
    std::optional<SunMoment> sun_;
    Tints tints_; ///< empty for the usual ones
    bool isLightBaked_ = false;
    double buildMilliseconds_ = 0.0;
    double geometryErrorFactor_ = 1.0;
    bool isStreamed_ = false;
    bool hasOverlays_ = false, hasDynamic_ = false; ///< effects in the scene
    unsigned onTop_ = 0; ///< effects of overlays and of what moves, the last ones in front of the ground
    bool isShadingOnTop_ = false; ///< images come below the shading
    bool areColorsHidden_ = false;
    bool isChunked_ = false;
};
