#pragma once

#include <array>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <nbx/io/modelfile.h>
#include <nbx/io/modelplacement.h>
#include <zmt/core/texturedtriangles/cityassembly.h>
#include <zmt/raster/gdal/coordinatesystem.h>

#include "landscape/outputfiles.h"

/// Models that stand on a map, and what says where.
struct CityInputs {
    std::vector<std::string> inputs; ///< models, and KML or KMZ files with the places of models
    std::string placements;          ///< KML or KMZ with the places of the models among `inputs`
    /// Where models without a place stand: map coordinates, and the height in metres.
    std::optional<std::array<double, 3>> at;
    std::string system; ///< WKT of the map's system; empty for that of the ground, or UTM
    NBX::ModelOptions reading;
};

/// WKT of a system in metres. Throws `UsageError`.
std::string parseCitySystem(const std::string & text);
/// X,Y or X,Y,Z. Throws `UsageError`.
std::array<double, 3> parseCityPlace(const std::string & text);

/// What of a file is not in the city, as a line.
void tellLeftOut(const std::string & path, const std::string & line);

/// The ground under models.
struct ModelGround {
    /// In metres, at a place of the map; not a number where there is none.
    using HeightAt = std::function<double(const ZMT::RASTER::MapPlace &)>;

    std::string name; ///< of its file; empty for none
    ZMT::RASTER::GeoReference reference;
    HeightAt height;

    bool isThere() const { return !name.empty(); }
    /// Not a number where there is none.
    double knownHeightAt(const ZMT::RASTER::MapPlace & place) const {
        return isThere() ? height(place) : std::numeric_limits<double>::quiet_NaN();
    }
    /// Throws `DataError` where there is no ground.
    double heightAt(const ZMT::RASTER::MapPlace & place, const std::string & model) const;
};

/// Models by their files, each read once. What they lack is told by a line each, that of textures only with
/// `needsTextures`.
class ModelLibrary {
public:
    explicit ModelLibrary(const NBX::ModelOptions & options, bool needsTextures = true)
        : options_(options), needsTextures_(needsTextures) {}

    const NBX::Model & at(const std::string & path);
    /// Different ones that were found.
    std::size_t textures() const { return textures_.size(); }
    /// What was taken for the axis and the unit of models whose files do not say, a line for all alike.
    std::vector<std::string> assumptions() const;
    /// Models and textures that were read, for `checkOutputs`.
    std::vector<NamedFile> files() const;

private:
    void tell(const std::string & path, const NBX::ModelTexture & texture);

    const NBX::ModelOptions options_;
    const bool needsTextures_;
    std::map<std::string, NBX::Model> models_;
    std::set<std::string> textures_;
};

/// Models that stand where a file says, and others, which `--at` places.
struct PlacedModels {
    std::vector<NBX::ModelPlacement> placed;
    std::vector<std::string> others;
    /// Of archives, as long as their models are read.
    std::vector<NBX::SO<NBX::SharedObj>> files;
};

/// Reads the files that place models. Throws `DataError` and `UsageError`.
PlacedModels placedModels(const CityInputs & inputs);
/// Reads the models and puts them on their places on `map`. Shows its progress. Throws `DataError`, and after
/// a cancel.
ZMT::CORE::CityAssembly assembledCity(const PlacedModels & models, const CityInputs & inputs,
                                      const ModelGround & ground, const ZMT::RASTER::GeoReference & map,
                                      ModelLibrary & library);
/// A line where models stand beside the ground. Their middles count: a house at the edge of a terrain stands
/// on it.
void tellOutside(const ZMT::CORE::CityAssembly & city, const ModelGround & ground);
