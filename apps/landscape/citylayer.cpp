// A city as a layer: read from a file or from bytes that a server sent, put into the scene on its ground,
// looked at and hit. What stands on exaggerated ground is lifted model by model, and a hit tells its height
// before that.

#include "citylayer.h"

#include <cmath>
#include <cstdio>

#include <sys/stat.h>

#include <nbx/engine/engine.h>
#include <nbx/engine/raytracingtechnique.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/localframe.h>
#include <zmt/core/texturedtriangles/tttmemorycontroller.h>
#include <zmt/raster/gdal/coordinatesystem.h>
#include <zmt/raster/simplerasterdata.h>

#include "errors.h"
#include "streamedfiles.h"

namespace {

using Point = NBX::Vector3Base<double>;
using ZMT::CORE::CityModels;
using ZMT::CORE::GeoTransformation;

/// How far a hit, which is computed in the single precision of vertices, may lie from the box of its model.
constexpr double s_tolerance = 0.01;

} // namespace

void checkCityOptions(const CityOptions & options) {
    if (!(options.look.quality > 0.0) || options.look.quality > 100.0)
        throw UsageError("--city-quality must be above 0 and at most 100");
    if (options.look.distance && !(*options.look.distance > 0.0 && std::isfinite(*options.look.distance)))
        throw UsageError("--city-distance must be above 0 metres");
}

CityLayer::CityLayer(const std::string & locator, const CityOptions & options,
                     const NBX::SO<NBX::DataResource> & bytes)
    : name_(shownName(locator)), path_(isUrl(locator) ? "" : locator), state_(stateOf(path_)),
      city_(bytes ? CityModels::read(bytes, locator) : CityModels::load(locator)), node_(new NBX::SceneThing),
      place_(new NBX::Translation) {
    setLook(options.look);
    node_->append(place_.get());
    node_->append(city_->scene().get());
}

void CityLayer::setLook(const CityLook & look) {
    look_ = look;
    for (const NBX::SO<ZMT::CORE::TexturedTriangleTree> & tree : city_->trees()) {
        tree->setQualityFactor(look.quality);
        look.distance ? tree->enableMaxDistance(*look.distance) : tree->disableMaxDistance();
    }
}

std::vector<NamedFile> CityLayer::pagingFiles() const {
    std::vector<NamedFile> files;
    for (const std::string & path : city_->pagingFiles())
        files.push_back({"a part of --city", path});
    return files;
}

void CityLayer::openPagingFiles() const {
    for (const NBX::SO<ZMT::CORE::TexturedTriangleTree> & tree : city_->trees())
        ZMT::CORE::TTTMemoryController::getInstance()->registerTree(tree);
}

CityLayer::FileState CityLayer::stateOf(const std::string & path) {
    struct stat status {};
    if (path.empty() || ::stat(path.c_str(), &status) != 0) return {};
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

bool CityLayer::hasChanged() const {
    const FileState now = stateOf(path_);
    return now.bytes >= 0 && !(now == state_);
}

NBX::Bounds CityLayer::geoBox() const {
    const NBX::Bounds box = city_->boundingBox();
    if (!box.isDefined()) return box;
    return {box.getLLF() + city_->origin(), box.getURB() + city_->origin()};
}

NBX::Bounds CityLayer::box() const {
    const NBX::Bounds box = city_->boundingBox();
    if (!box.isDefined()) return box;
    return {box.getLLF() + place_->getOffset(), box.getURB() + place_->getOffset()};
}

void CityLayer::checkSystem(const ZMT::RASTER::GeoReference & reference, const CityLayer * other) const {
    using ZMT::RASTER::CoordinateSystem;
    if (CoordinateSystem::areSame(city_->reference(), reference)) return;
    if (other)
        throw DataError(name_ + ": is in " + CoordinateSystem::describe(city_->reference()) + ", and " +
                        other->name() + " in " + CoordinateSystem::describe(reference) +
                        "; build one of them with the --system of the other");
    throw DataError(name_ + ": is in " + CoordinateSystem::describe(city_->reference()) +
                    ", and what lies around it in " + CoordinateSystem::describe(reference) +
                    "; build the city with --terrain, or lay the terrain by --crs");
}

void CityLayer::findGround(const Ground & ground) {
    const auto heightAt = [&](const Point & place) {
        const double height = ground(place);
        return std::isfinite(height) ? height : place.y;
    };
    ground_.reserve(city_->models().size() + 1);
    for (const CityModels::Model & model : city_->models())
        ground_.push_back(std::isfinite(model.ground) ? model.ground : heightAt(model.place));
    ground_.push_back(heightAt(city_->origin()));
}

/// The city goes up with its own origin, so that what is left to lift single models is small.
void CityLayer::place(double exaggeration, const Ground & ground) {
    const Point inScene = GeoTransformation::geo2nbxTf(city_->origin());
    const Point offset(inScene.x, exaggeration * inScene.y, inScene.z);
    place_->setMatrix(NBX::Matrix4x4Base<double>::translation(offset));
    if (exaggeration != 1.0 && ground_.empty()) findGround(ground);
    std::vector<double> lifts;
    lifts.reserve(ground_.size());
    for (const double height : ground_)
        lifts.push_back((exaggeration - 1.0) * (height - city_->origin().y));
    const double rest = lifts.empty() ? 0.0 : lifts.back();
    if (!lifts.empty()) lifts.pop_back();
    city_->lift(std::move(lifts), rest);
}

std::optional<CityLayer::Hit> CityLayer::hit(const NBX::Ray & ray) const {
    if (!isShown()) return std::nullopt;
    const NBX::SO<NBX::Engine> engine(new NBX::Engine);
    const NBX::SO<NBX::RayTracingTechnique> technique(new NBX::RayTracingTechnique(ray));
    if (!technique->trace(engine.get(), node_.get())) return std::nullopt;
    const NBX::RayTracingTechnique::Hit & nearest = technique->nearestHit();
    const Point inCity = nearest.point - place_->getOffset();
    const NBX::Ray rayInCity(ray.getOrigin() - place_->getOffset(), ray.getDirection());
    const CityModels::Hit hit = city_->modelHit(*nearest.shape, rayInCity, inCity, s_tolerance);
    // What was lifted comes down again.
    const Point place = inCity + city_->origin() - Point(0.0, hit.lift, 0.0);
    return Hit{nearest.distance, place, this, hit.model};
}

std::optional<CityLayer::Hit> nearestHit(const std::vector<CityLayer> & cities, const NBX::Ray & ray) {
    std::optional<CityLayer::Hit> nearest;
    for (const CityLayer & layer : cities) {
        const auto hit = layer.hit(ray);
        if (hit && (!nearest || hit->distance < nearest->distance)) nearest = hit;
    }
    return nearest;
}

std::string outsideReport(const CityLayer & city, const ZMT::CORE::GridData & ground) {
    const NBX::Bounds models = city.geoBox();
    const NBX::Bounds terrain = ZMT::CORE::LocalFrame(ground.origin()).toGeo(ground.boundingBox());
    if (!models.isDefined() || !terrain.isDefined()) return {};
    const Point low = models.getLLF(), high = models.getURB();
    const Point least = terrain.getLLF(), most = terrain.getURB();
    if (low.x <= most.x && high.x >= least.x && low.z <= most.z && high.z >= least.z) return {};
    char place[200];
    std::snprintf(place, sizeof place, "from %.10g,%.10g to %.10g,%.10g", low.x, low.z, high.x, high.z);
    return city.name() + ": lies outside of the terrain, " + place +
           "; check the --at, the --system or the placements that it was built with";
}

void tellOutside(const CityLayer & city, const ZMT::CORE::GridData & ground) {
    const std::string report = outsideReport(city, ground);
    if (!report.empty()) writeError("warning: " + report);
}

void placeCities(std::vector<CityLayer> & cities, const ZMT::CORE::Terrain & terrain, double exaggeration) {
    const auto ground = [&](const Point & place) {
        const double height = terrain.calculateHeight(place, false);
        return terrain.isUndefinedHeightValue(height) ? std::nan("") : height;
    };
    for (CityLayer & layer : cities)
        layer.place(exaggeration, ground);
}

NBX::SO<ZMT::CORE::GridData> makeGroundBelow(const std::vector<CityLayer> & cities) {
    NBX::Bounds box;
    for (const CityLayer & layer : cities)
        box += layer.geoBox();
    if (!box.isDefined()) throw DataError(cities.front().name() + ": has no models");
    const Point low = box.getLLF(), size = box.diagonal();
    // Cells need a size.
    const double sizeX = std::max(size.x, 1.0), sizeZ = std::max(size.z, 1.0);
    const NBX::SO<ZMT::RASTER::SimpleRasterData<float>> level(
        new ZMT::RASTER::SimpleRasterData<float>(2, 2, low.x, low.z, sizeX, sizeZ, false, float(low.y)));
    return new ZMT::CORE::GridData(level.get());
}
