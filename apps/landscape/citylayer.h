#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <nbx/data/dataresource.h>
#include <nbx/math/ray.h>
#include <nbx/object/so.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/translation.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/texturedtriangles/citymodels.h>
#include <zmt/raster/georeference.h>

#include "outputfiles.h"

/// How a city is drawn.
struct CityLook {
    double quality = 1.0;           ///< factor of the distances at which textures become finer
    std::optional<double> distance; ///< nothing is drawn beyond it, in metres
};

/// Cities of a landscape.
struct CityOptions {
    std::vector<std::string> files; ///< or URLs
    CityLook look;                  ///< of all of them
};

/// Throws `UsageError` for numbers that cannot be.
void checkCityOptions(const CityOptions & options);

/// A city in a scene. Its scene and its trees are shared with copies.
class CityLayer {
public:
    using Point = NBX::Vector3Base<double>;

    /// Reads what `zmt build city` wrote: the file at `locator`, or, where given, the bytes that lie there.
    /// Without those a URL belongs to the thread of the event loop. Throws `DataError`, and what
    /// `CityModels` throws.
    CityLayer(const std::string & locator, const CityOptions & options,
              const NBX::SO<NBX::DataResource> & bytes = nullptr);

    const std::string & name() const { return name_; }
    const ZMT::CORE::CityModels & city() const { return *city_; }
    const NBX::SO<NBX::SceneThing> & node() const { return node_; }
    /// What is read while it is looked at, for `checkOutputs`.
    std::vector<NamedFile> pagingFiles() const;
    /// Opens them, which waits for their servers: before the first picture, on the thread that draws, which
    /// is that of the event loop. One that cannot be opened is reported, and its textures are missing.
    void openPagingFiles() const;
    /// Whether another file lies at the path that it was read from; false on web servers, which nobody asks.
    bool hasChanged() const;
    /// In geo coordinates.
    NBX::Bounds geoBox() const;
    /// In scene coordinates, as it stands.
    NBX::Bounds box() const;

    /// Throws `DataError` where the city is known to stand in another system than `reference`, which is that
    /// of a terrain, or of `other`.
    void checkSystem(const ZMT::RASTER::GeoReference & reference, const CityLayer * other = nullptr) const;
    /// Height of the ground, in geo coordinates; not finite where there is none.
    using Ground = std::function<double(const NBX::Vector3Base<double> &)>;
    /// Puts it into scene coordinates, on ground whose heights are stretched by `exaggeration` from the
    /// scene's origin on: each model stands as far above the ground as before, and is not stretched itself.
    /// Without ground below it a model is raised with its own origin. `ground` is asked once for a place,
    /// and not while nothing is stretched.
    void place(double exaggeration, const Ground & ground);

    /// Whether it is drawn.
    bool isShown() const { return node_->isEnabled(); }
    void setShown(bool isShown) const { node_->setEnableState(isShown); }
    CityLook look() const { return look_; }
    void setLook(const CityLook & look);

    /// Where a ray in scene coordinates first meets a model that is drawn. Borrows from the layer.
    struct Hit {
        double distance; ///< from the origin of the ray, in scene units
        Point place;     ///< in geo coordinates, with the height of the model, wherever it was lifted to
        const CityLayer * layer;
        /// The one of its table; null where none lies there.
        const ZMT::CORE::CityModels::Model * model;
    };
    std::optional<Hit> hit(const NBX::Ray & ray) const;

private:
    void findGround(const Ground & ground);

    /// A file as it was.
    struct FileState {
        std::uint64_t device = 0, number = 0;
        std::int64_t bytes = -1, seconds = 0, nanoseconds = 0; ///< bytes -1 where there is none
        bool operator==(const FileState & other) const = default;
    };
    static FileState stateOf(const std::string & path);

    std::string name_;
    std::string path_; ///< empty for what lies on a web server
    FileState state_;  ///< before it was read
    NBX::SO<ZMT::CORE::CityModels> city_;
    NBX::SO<NBX::SceneThing> node_;
    NBX::SO<NBX::Translation> place_;
    std::vector<double> ground_; ///< below the models, then below the middle; empty before it is asked
    CityLook look_;
};

/// The nearest of the hits of all cities.
std::optional<CityLayer::Hit> nearestHit(const std::vector<CityLayer> & cities, const NBX::Ray & ray);

/// What to say of a city no part of which lies on the ground, by its plan; empty for others.
std::string outsideReport(const CityLayer & city, const ZMT::CORE::GridData & ground);
/// That as a warning on the standard error stream.
void tellOutside(const CityLayer & city, const ZMT::CORE::GridData & ground);

/// Puts cities into the scene of a terrain whose heights are exaggerated.
void placeCities(std::vector<CityLayer> & cities, const ZMT::CORE::Terrain & terrain, double exaggeration);

/// Level ground for cities that no terrain was given for, as low as the lowest of them; not to be drawn.
NBX::SO<ZMT::CORE::GridData> makeGroundBelow(const std::vector<CityLayer> & cities);
