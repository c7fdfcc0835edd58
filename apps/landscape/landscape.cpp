// Raster, grid, images, break lines, areas, terrain, and the node with the layers. Files are read before the
// terrain is built, which takes longest. Layers stand in the node in front of the ground, the bottom one
// first; a light that falls on images stays the last.

#include "landscape.h"

#include "errors.h"
#include "program/stage.h"
#include "terraininput.h"
#include "vectorinput.h"

#include <algorithm>
#include <utility>

#include <nbx/gl/state/lightmodelgl.h>
#include <nbx/gl/state/shapematerialgl.h>
#include <nbx/object/stringutils.h>
#include <nbx/scene/attribute/attributecomposite.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>

namespace {

using Point = NBX::Vector3Base<double>;

/// Of lines that are measured.
constexpr const char * s_lineRim = "color=#ffffffc0, width=6, symbol=circle, size=12";
constexpr const char * s_lineCore = "color=#c02060, width=3, symbol=circle, size=8";

} // namespace

Landscape::Landscape(const LandscapeOptions & given, const StreamedFiles & streamed)
    : file_(given.terrain), scene_(new NBX::SceneThing) {
    readCities(given.cities, streamed);
    if (given.terrain.empty() && !cities_.empty()) {
        layGroundBelowCities();
        return;
    }
    const Lighting lighting = given.lighting.value_or(Lighting::Relief);
    light_ = given.light.value_or(defaultSun());
    lightExaggeration_ = given.exaggeration;
    // A window may get a built terrain later, with options that were given for rasters.
    TerrainReading how;
    if (!isBuiltTerrain(given.terrain)) how = {.fillVoids = given.fillVoids, .crs = given.crs};
    const TerrainInput input = readTerrain(given.terrain, how, streamed);
    isStreamed_ = bool(input.streamed);
    reference_ = input.reference;
    grid_ = input.grid;
    const LandscapeOptions options = withVectors(given, input);
    const auto & raster = *grid_->rasterData();
    extent_ = {raster.minX(), raster.minY(), raster.maxX(), raster.maxY()};
    // What cannot be read is noticed before the long work.
    std::vector<GroundLayer> images;
    for (std::size_t i = 0; i < options.images.size(); ++i)
        images.push_back(readImage(options.images[i], options.look.lookOf(i), streamed));
    tracks_ = Tracks(options.tracks, reference_);
    overlays_ = Overlays(options.overlays, reference_, extent_, streamed);
    for (const std::string & path : options.breakLines)
        if (!input.built) grid_ = stampLines(grid_, path, reference_);
    std::vector<std::vector<ZMT::CORE::PolygonTriangulation::Ring>> areas;
    for (const std::string & path : options.draped)
        areas.push_back(readAreas(*grid_, path, reference_));
    terrain_ = makeTerrain(options, input);
    root_ = terrain_->root();
    const auto * chunked = dynamic_cast<const ZMT::CORE::ChunkedLodTerrain *>(terrain_.get());
    if (chunked) geometryErrorFactor_ = 1.0 / chunked->worstErrorRatio();
    isChunked_ = chunked != nullptr;

    node_ = new NBX::SceneThing;
    ground_ = new NBX::SceneThing(node_.get());
    scaling_ = new ZMT::CORE::TerrainScaling(Point(1.0, options.exaggeration, 1.0));
    // Behind all lights, which else would be raised and lowered with the heights.
    ground_->append(scaling_.get());
    if (!options.plain) layOn(makeHeightColors(*grid_));
    if (input.streamed) {
        const StreamedTerrain & opened = *streamed.terrain(options.terrain);
        layOn(makeStreamedShading(options.lighting, options.light, opened, shownName(options.terrain),
                                  options.exaggeration));
        isLightBaked_ = opened.lightMapKind == ZMT::CORE::GRID::AsyncGridTerrain::LM_Light &&
                        options.lighting != Lighting::Relief;
    } else if (lighting == Lighting::Vertex) {
        lightVertices(light_);
    } else {
        layOn(makeShading(lighting, light_, terrain_, *grid_, options.exaggeration));
    }
    isShadingOnTop_ =
        lighting != Lighting::Vertex && options.shadeImages.value_or(lighting == Lighting::Dynamic);
    for (const GroundLayer & image : images) {
        if (!options.plain) layImage(image);
        interest_ = image.box;
    }
    for (std::size_t i = 0; i < areas.size(); ++i)
        drape(options.draped[i], areas[i], options.drapeLift);
    ground_->append(terrain_.get());
    scene_->append(node_.get());
    addCities();
    if (options.plain) return;
    if (options.contours) setContours(options.contours, readContours(*options.contours));
    layOverlays();
    flood_ = Flood(options.flood, *grid_);
    dynamic_.emplace(terrain_, exaggeration());
}

/// The first of them bring their effect, and the names behind all else.
void Landscape::layOverlays() {
    if (hasOverlays_ || overlays_.empty()) return;
    hasOverlays_ = true;
    layOnTop(overlays_.layOn(terrain_, exaggeration(), isStreamed_), onTop_);
    scene_->append(overlays_.names().get());
}

void Landscape::layOnTop(const NBX::SO<NBX::Attribute> & effect, unsigned above) {
    node_->insert(node_->objects() - 1 - above, effect.get());
    ++onTop_;
}

std::vector<NBX::SO<Overlays::Overlay>> Landscape::readOverlay(const OverlayOptions & option,
                                                               const StreamedFiles & streamed) const {
    return Overlays::read(option, reference_, extent_, streamed);
}

NBX::SO<Overlays::Overlay> Landscape::readContours(double interval) const {
    if (isStreamed_)
        writeError(
            "warning: contour lines are those of the coarse heights of the streaming terrain; finer ones "
            "need its raster");
    return Overlays::readContours(*grid_->rasterData(), interval);
}

void Landscape::setContours(const std::optional<double> & interval,
                            const NBX::SO<Overlays::Overlay> & lines) {
    highlight(nullptr);
    overlays_.replace(contours_.get(), lines);
    contours_ = lines;
    contourInterval_ = interval;
    layOverlays();
}

bool Landscape::highlight(const Overlays::Feature * feature, const Point & place) {
    const auto * overlay = feature ? feature->overlay : nullptr;
    const std::int64_t id = feature ? feature->picked.feature.id : 0;
    if (!dynamic_ || (overlay == highlighted_ && id == highlightedId_)) return false;
    highlighted_ = overlay;
    highlightedId_ = id;
    dynamic_->show(DynamicLayer::Part::Highlight,
                   feature ? Overlays::highlightOf(*feature, place) : DynamicLayer::Groups(), place);
    return true;
}

void Landscape::showLine(const std::vector<Point> & corners) {
    if (!dynamic_) return;
    if (corners.empty()) return dynamic_->show(DynamicLayer::Part::Line, DynamicLayer::Groups());
    ZMT::RASTER::VectorFeature line, marks;
    if (corners.size() > 1) line.lines = {corners};
    marks.points = corners;
    DynamicLayer::Groups groups;
    for (const char * style : {s_lineRim, s_lineCore})
        for (const auto & feature : {line, marks})
            groups.push_back({{feature}, ZMT::CORE::VectorStyleSheet::parse(style)});
    dynamic_->show(DynamicLayer::Part::Line, std::move(groups), corners.back());
}

void Landscape::prepareMoving(const NBX::Camera & camera, unsigned height) {
    if (!dynamic_) return;
    flood_.showOn(*dynamic_);
    if (!tracks_.empty()) tracks_.showOn(*dynamic_);
    if (!hasDynamic_ && dynamic_->isEmpty()) return;
    if (!hasDynamic_) layOnTop(dynamic_->effect());
    hasDynamic_ = true;
    dynamic_->prepare(camera, height);
}

void Landscape::addOverlays(const std::vector<NBX::SO<Overlays::Overlay>> & more) {
    overlays_.add(more);
    layOverlays();
}

void Landscape::setTracks(Tracks tracks) {
    if (!tracks_.empty()) tracks.setTime(tracks_.time());
    tracks.setLooks(tracks_.looks());
    tracks_ = std::move(tracks);
}

void Landscape::readCities(const CityOptions & options, const StreamedFiles & streamed) {
    const Stage stage(L"read");
    for (const std::string & file : options.files)
        cities_.emplace_back(file, options, streamed.city(file));
}

CityLayer Landscape::readCity(const std::string & locator, const CityOptions & options,
                              const StreamedFiles & streamed) const {
    CityLayer city(locator, options, streamed.city(locator));
    city.checkSystem(reference_, hasTerrain() ? nullptr : &cities_.front());
    tellOutside(city, *grid_);
    return city;
}

void Landscape::addCity(const CityLayer & city) {
    cities_.push_back(city);
    scene_->insert(scene_->objects() - (hasOverlays_ ? 1 : 0), city.node().get());
    placeCities(cities_, *terrain_, exaggeration());
}

void Landscape::layGroundBelowCities() {
    grid_ = makeGroundBelow(cities_);
    ZMT::CORE::GeoTransformation::setNBXOrigin(grid_->origin());
    reference_ = cities_.front().city().reference();
    const NBX::Area all(0, 0, int(grid_->sizeX()) - 1, int(grid_->sizeY()) - 1);
    root_ = new ZMT::CORE::GridPatch(grid_, all, grid_->boundingBox(), 0.0, 0.0, nullptr);
    terrain_ = new ZMT::CORE::Terrain(grid_.get(), root_.get());
    scaling_ = new ZMT::CORE::TerrainScaling(Point(1.0, 1.0, 1.0));
    addCities();
}

void Landscape::addCities() {
    for (const CityLayer & layer : cities_) {
        layer.checkSystem(reference_, hasTerrain() ? nullptr : &cities_.front());
        if (hasTerrain()) tellOutside(layer, *grid_);
        scene_->append(layer.node().get());
    }
    placeCities(cities_, *terrain_, exaggeration());
}

NBX::Bounds Landscape::cityBox() const {
    NBX::Bounds box;
    for (const CityLayer & layer : cities_)
        box += layer.box();
    return box;
}

LandscapeOptions Landscape::withVectors(LandscapeOptions options, const TerrainInput & input) const {
    const std::size_t before = options.breakLines.size();
    for (const std::string & path : options.vectors) {
        if (input.streamed)
            throw DataError(path + ": areas and lines need a height raster, and " +
                            shownName(options.terrain) + " is a streaming terrain; open the raster");
        if (hasAreas(*grid_, path, reference_)) {
            options.draped.push_back(path);
            continue;
        }
        if (input.built)
            throw DataError(path + ": lines become edges while a terrain is built, and " + options.terrain +
                            " is built; open the heights");
        options.breakLines.push_back(path);
    }
    if (options.breakLines.size() > before) checkLandscape(options);
    return options;
}

NBX::SO<ZMT::CORE::Terrain> Landscape::makeTerrain(const LandscapeOptions & options,
                                                   const TerrainInput & input) {
    if (input.built) return input.built->terrain();
    if (input.streamed) return input.streamed;
    // Only the tree has normals, and triangles of any shape.
    const bool needsTree = options.tree.maxVertices || !options.breakLines.empty() ||
                           options.lighting == Lighting::Vertex || !fitsChunks(*grid_);
    if (options.method == TerrainMethod::Tree || (options.method == TerrainMethod::Auto && needsTree))
        return new ZMT::CORE::Terrain(grid_.get(), buildTree(grid_, options.tree, buildMilliseconds_).get());
    return buildChunks(grid_, buildMilliseconds_);
}

GroundLayer Landscape::readImage(const std::string & path, const ImageLook & look,
                                 const StreamedFiles & streamed) const {
    if (const StreamedTexture * opened = streamed.texture(path))
        return layStreamedImage(path, *opened, look, extent_);
    if (isStreamed_ && reference_.wkt.empty())
        writeError(
            "warning: " + shownName(path) +
            ": is laid by its own coordinates, since the terrain has no coordinate system; put the .prj "
            "that was built with it beside it");
    return openImage(path, look, extent_, reference_.wkt);
}

std::vector<NBX::SO<ZMT::CORE::AsyncFile>> Landscape::streamedFiles() const {
    std::vector<NBX::SO<ZMT::CORE::AsyncFile>> files;
    const auto terrain = NBX::soCast<ZMT::CORE::GRID::AsyncGridTerrain>(terrain_);
    if (terrain) files.push_back(terrain->file());
    for (const GroundLayer & layer : layers_)
        if (layer.file) files.push_back(layer.file);
    return files;
}

std::vector<std::string> Landscape::changedFiles() const {
    std::vector<std::string> names;
    const auto add = [&names](const std::string & name) {
        if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    };
    for (const auto & file : streamedFiles())
        if (file->hasChanged()) add(fileNameOf(NBX::StringUtils::WString2Utf8String(file->url())));
    for (const CityLayer & city : cities_)
        if (city.hasChanged()) add(fileNameOf(city.name()));
    return names;
}

void Landscape::addImage(const GroundLayer & image) {
    layImage(image);
    interest_ = image.box;
}

void Landscape::layImage(const GroundLayer & image) {
    layOn(image, isShadingOnTop_ ? 1 : 0);
}

void Landscape::layOn(const GroundLayer & layer, unsigned above) {
    GroundLayer laid = layer;
    laid.number = layersNamed(layer.name);
    putBefore(layer.effect.get(), above);
    switchLayer(laid);
    layers_.insert(layers_.end() - above - draped_, std::move(laid));
}

unsigned Landscape::layersNamed(const std::string & name) const {
    return unsigned(std::count_if(layers_.begin(), layers_.end(),
                                  [&](const GroundLayer & layer) { return layer.name == name; }));
}

/// Where patches have colours, the relief is still to be seen.
void Landscape::switchLayer(const GroundLayer & layer) const {
    const bool isColor = layer.kind == LayerKind::HeightColors || layer.isImage();
    layer.effect->setEnableState(layer.isOn && !(areColorsHidden_ && isColor));
}

void Landscape::setLayerOn(std::size_t number, bool isOn) {
    layers_.at(number).isOn = isOn;
    switchLayer(layers_[number]);
}

void Landscape::hideColors(bool isHiding) {
    areColorsHidden_ = isHiding;
    for (const GroundLayer & layer : layers_)
        switchLayer(layer);
}

void Landscape::setLayerOpacity(std::size_t number, double opacity) {
    GroundLayer & layer = layers_.at(number);
    const auto decal = NBX::soCast<ZMT::CORE::DecalTerrainTexturingEffect>(layer.effect);
    if (!layer.isImage() || !decal) return;
    layer.opacity = std::clamp(opacity, 0.0, 1.0);
    decal->setOpacity(layer.opacity);
}

void Landscape::setLayerOrder(const std::vector<std::size_t> & order) {
    const auto isMovable = [](const GroundLayer & layer) {
        return layer.isImage() || layer.kind == LayerKind::Shading;
    };
    std::vector<GroundLayer> moved;
    moved.reserve(order.size());
    for (const std::size_t number : order)
        if (isMovable(layers_.at(number))) moved.push_back(layers_[number]);
    for (const GroundLayer & layer : moved)
        node_->remove(layer.effect.get());
    for (const GroundLayer & layer : moved)
        putBefore(layer.effect.get());
    if (moved.size() > 1) isShadingOnTop_ = moved.back().kind == LayerKind::Shading;
    auto next = moved.begin();
    for (GroundLayer & layer : layers_)
        if (isMovable(layer)) layer = *next++;
}

void Landscape::drape(const std::string & path,
                      const std::vector<ZMT::CORE::PolygonTriangulation::Ring> & areas, double lift) {
    // A terrain draws what is draped on it whether it is enabled or not.
    const NBX::SO<NBX::AttributeComposite> draped(new NBX::AttributeComposite);
    draped->append(drapeAreas(terrain_, areas, lift, path).get());
    ground_->append(draped.get());
    layers_.push_back({LayerKind::Draped,
                       fileNameOf(path),
                       draped.get(),
                       {},
                       nullptr,
                       path,
                       layersNamed(fileNameOf(path))});
    ++draped_;
}

void Landscape::lightVertices(const Sunlight & sun) {
    putBefore(new NBX::LightModelGL(NBX::LightModelGL::M_Lighting | NBX::LightModelGL::M_Ambient,
                                    NBX::Color::black));
    putBefore(new NBX::ShapeMaterialGL(NBX::Color::white, NBX::Color::black, 0.0));
    lamp_ = new NBX::DistantLight(sun.direction, NBX::Color::white, 1.0, sun.ambient);
    putBefore(lamp_.get());
    // Coarser levels have no normals at their vertices.
    geometryErrorFactor_ = 0.0;
}

GroundLayer * Landscape::layer(LayerKind kind) {
    const auto found = std::find_if(layers_.begin(), layers_.end(),
                                    [kind](const GroundLayer & layer) { return layer.kind == kind; });
    return found == layers_.end() ? nullptr : &*found;
}

/// Switched on or off as the one before.
void Landscape::replaceEffect(LayerKind kind, const NBX::SO<NBX::Attribute> & effect) {
    GroundLayer & shown = *layer(kind);
    if (shown.effect == effect) return;
    effect->setEnableState(shown.effect->isEnabled());
    node_->replace(shown.effect.get(), effect.get());
    shown.effect = effect;
}

void Landscape::setTints(const Tints & tints) {
    if (tints == tints_ || !layer(LayerKind::HeightColors)) return;
    replaceEffect(LayerKind::HeightColors,
                  (tints.empty() ? makeHeightColors(*grid_) : makeHeightColors(*grid_, tints)).effect);
    tints_ = tints;
}

void Landscape::setSun(const std::optional<SunMoment> & moment) {
    using Sunshine = ZMT::CORE::PerPixelTerrainLightingEffect;
    if (!canSetSun() || moment == sun_) return;
    const Sunlight light = moment ? sunlightAt(*moment, reference_, light_.ambient) : light_;
    if (lamp_) {
        lamp_->setDirection(light.direction);
    } else {
        if (!shadingAsRead_) shadingAsRead_ = layer(LayerKind::Shading)->effect;
        if (!sunshine_) sunshine_ = NBX::soCast<Sunshine>(shadingAsRead_);
        if (!sunshine_)
            sunshine_ = NBX::soCast<Sunshine>(
                makeShading(Lighting::Dynamic, light, terrain_, *grid_, lightExaggeration_).effect);
        sunshine_->setLightDirection(light.direction);
        replaceEffect(LayerKind::Shading, moment ? NBX::SO<NBX::Attribute>(sunshine_) : shadingAsRead_);
    }
    sun_ = moment;
}

void Landscape::putBefore(NBX::RenderObj * object, unsigned above) {
    node_->insert(node_->objects() - 1 - onTop_ - above, object);
}

double Landscape::exaggeration() const {
    return scaling_->getScaling().y;
}

void Landscape::setExaggeration(double exaggeration) {
    scaling_->setScaling(Point(1.0, exaggeration, 1.0));
    placeCities(cities_, *terrain_, exaggeration);
    if (dynamic_) dynamic_->setExaggeration(exaggeration);
    if (hasOverlays_) overlays_.setExaggeration(exaggeration);
}

NBX::Bounds Landscape::box() const {
    const NBX::Bounds box = terrain_->boundingBox();
    const auto scaled = [&](const Point & p) { return Point(p.x, p.y * exaggeration(), p.z); };
    NBX::Bounds all(scaled(box.getLLF()), scaled(box.getURB()));
    all += cityBox();
    return all;
}
