#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nbx/object/so.h>
#include <nbx/scene/attribute/attribute.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/camera.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/vector/featurepicking.h>
#include <zmt/core/vector/screenlabels.h>
#include <zmt/core/vector/vectoroverlaytexture.h>
#include <zmt/raster/geoextent.h>
#include <zmt/raster/georeference.h>
#include <zmt/raster/rasterdata.h>

#include "dynamiclayer.h"
#include "overlayoptions.h"
#include "streamedfiles.h"

/// Vector files on the ground of a landscape: what is drawn on it in one texture, and the names that stand
/// upright in front of it. On the thread that draws, but for being read.
class Overlays {
public:
    using Overlay = ZMT::CORE::VectorOverlay;

    /// None.
    Overlays() = default;
    /// Those of `options`, the lowest first, as `read`.
    Overlays(const std::vector<OverlayOptions> & options, const ZMT::RASTER::GeoReference & reference,
             const ZMT::RASTER::GeoExtent & ground, const StreamedFiles & streamed);

    /// Opens a file for ground of this extent in this system; without a layer, all that have features. Throws
    /// `DataError`, `NBX::InputException` and what styles throw. On any thread.
    static std::vector<NBX::SO<Overlay>> read(const OverlayOptions & option,
                                              const ZMT::RASTER::GeoReference & reference,
                                              const ZMT::RASTER::GeoExtent & ground,
                                              const StreamedFiles & streamed);

    /// Contour lines of heights at the multiples of `interval`, with the heights of index lines as names.
    /// Throws as `ZMT::RASTER::ContourLines`, and `DataError` after a cancel. On any thread.
    static NBX::SO<Overlay> readContours(const ZMT::RASTER::RasterData & heights, double interval);

    /// MiB that the textures of all overlays of the process may take, of which at least one is kept.
    static void setTextureMemory(unsigned mebibytes);
    static unsigned textureMemory();
    /// Keeps more, until the memory is set again, where the view that was drawn last needs more textures.
    /// False where it does not: it is as sharp as it becomes.
    static bool makeRoom();

    bool empty() const { return overlays_.empty(); }
    /// The lowest first. Their looks may be changed at any time.
    const std::vector<NBX::SO<Overlay>> & list() const { return overlays_; }

    /// Lays more on top, the lowest first; on none as well.
    void add(const std::vector<NBX::SO<Overlay>> & more);
    /// Puts `other` in the place of one of them, or below all where `one` is null; with a null one takes it
    /// away.
    void replace(const Overlay * one, const NBX::SO<Overlay> & other);
    /// How one of them looks.
    struct Look {
        std::string name;
        bool isShown = true;
        double opacity = 1.0;
        /// The text of the style that was set for it; none where it has the one that it was read with.
        std::optional<std::string> style = {};
        bool operator==(const Look &) const = default;
    };
    /// From the lowest on.
    std::vector<Look> looks() const;
    /// Those that are called so look so, and lie in this order; others come on top. A style that a file has
    /// no fields for is left alone.
    void setLooks(const std::vector<Look> & looks);

    /// Puts them on a terrain that stands in the scene, with its heights stretched by `exaggeration`: the
    /// effect that draws them belongs on top of all others of that terrain. None of it is used before.
    /// `isStreamed` ground hides names by what is in memory.
    NBX::SO<NBX::Attribute> layOn(const NBX::SO<ZMT::CORE::Terrain> & terrain, double exaggeration,
                                  bool isStreamed);
    /// After that.
    void setExaggeration(double exaggeration);
    /// Draws their textures so many times as fine as is usual, or as the error allows that is in force, with
    /// lines as wide as before, in more memory than `setTextureMemory` says, by the square; 1 at the start.
    void setFineness(unsigned times);
    /// Makes those with these numbers, in this order, the lowest first. All of them are there.
    void setOrder(const std::vector<std::size_t> & order);
    /// Another style. Throws as `VectorOverlay::setStyleSheet`. `overlay` is one of these.
    void setStyle(Overlay & overlay, const ZMT::CORE::VectorStyleSheet & sheet);
    /// The names, for the end of the scene.
    NBX::SO<NBX::SceneThing> names() const { return labels_->node(); }
    /// Finds the names of a picture before it is drawn; all at once, or as much as a picture in motion may
    /// wait for. False where another call would find more; true also before they lie on anything.
    bool prepare(const NBX::Camera & camera, unsigned width, unsigned height, bool atOnce);

    /// What lies at a place in map coordinates, of the top overlay first, the nearest first.
    struct Feature {
        const Overlay * overlay;
        ZMT::CORE::PickedFeature picked;
    };
    std::vector<Feature> featuresAt(const ZMT::CORE::FeatureDistance & place, double tolerance) const;
    /// What makes one of them, that was found at `place`, stand out.
    static DynamicLayer::Groups highlightOf(const Feature & feature, const NBX::Vector3Base<double> & place);
    /// A place in a picture, in pixels from its lower left corner.
    struct Pixel {
        double x, y;
        unsigned width, height; ///< of the picture
    };
    /// The same of ground at `geo`, in map coordinates, which a pixel shows with its heights stretched by
    /// `exaggeration`. None where the ground is seen edge on.
    std::vector<Feature> featuresAt(const NBX::Camera & camera, const Pixel & pixel,
                                    const NBX::Vector3Base<double> & geo, double exaggeration,
                                    double tolerance) const;

private:
    void setGround() const;
    void listLabels();
    void setLargestTexel() const;
    /// That of one becomes that of another.
    void takeLook(const Overlay & one, Overlay & other);
    void resetStyle(Overlay & overlay, const std::optional<std::string> & style);

    std::vector<NBX::SO<Overlay>> overlays_;
    /// The styles of those that have another one by now, by `setStyle`.
    std::map<const Overlay *, ZMT::CORE::VectorStyleSheet> ownStyles_;
    NBX::SO<ZMT::CORE::VectorOverlayTexture> texture_;
    std::shared_ptr<ZMT::CORE::ScreenLabels> labels_;
    NBX::SO<ZMT::CORE::Terrain> terrain_;
    double exaggeration_ = 1.0;
    unsigned fineness_ = 1;
    bool isStreamed_ = false;
    std::uint64_t bytesRead_ = 0; ///< in all, when names were found last
};
