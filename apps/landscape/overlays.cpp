// Files are opened layer by layer, each as a source of features with its style. All of them are drawn in one
// texture above all others; the names of features stand behind that in the scene.

#include "overlays.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include "errors.h"
#include "groundlayers.h"
#include "memorybudgets.h"
#include "program/stage.h"
#include "step.h"

#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/frame/terrainscaling.h>
#include <zmt/core/vector/vectorstylesheet.h>
#include <zmt/raster/gdal/vector/contourlines.h>
#include <zmt/raster/gdal/vector/featurefile.h>

namespace {

using NBX::SO;
using ZMT::CORE::AsyncFile;
using ZMT::CORE::GeoTransformation;
using ZMT::CORE::ScreenLabels;
using ZMT::CORE::Terrain;
using ZMT::CORE::VectorStyleSheet;
using ZMT::RASTER::FeatureFile;
using Point = NBX::Vector3Base<double>;

constexpr std::size_t s_mostPicked = 20;
constexpr unsigned s_textureSize = 1024;
constexpr unsigned s_textureFormat = 0x8058; ///< RGBA8 of OpenGL
constexpr unsigned s_samples = 4;
/// In pixels of the screen. Lines with larger ones are blurred, or jagged.
constexpr double s_largestTexel = 0.5;
constexpr int s_raySteps = 400;
/// How far the end of a ray stays from the place, in shares of its length: ground does not hide itself.
constexpr double s_rayEnd = 0.995;

/// Features that may be read for the shape of one.
constexpr std::size_t s_mostRead = 20'000;
const char * const s_rimStyle = "color=#202020,width=7,fill=#00000000";
const char * const s_coreStyle = "color=#ffe030,width=4,fill=#00000000";
const char * const s_spotStyle = "color=#ffe030b0,symbol=circle,size=22";

/// Brown, as on maps, and dark enough for shaded ground.
const char * const s_contourStyle =
    "kind = index: color=#4a2408, width=1.8, label=height, label-size=11, label-color=#4a2408, halo=1.5\n"
    "default: color=#5a3010c0, width=1\n";

VectorStyleSheet styleOf(const std::string & style) {
    const std::string text = readStyle(style);
    return isStyleFile(style) ? VectorStyleSheet::parseFile(text, style) : VectorStyleSheet::parse(text);
}

/// The wanted one, or all; of `bytes`, where they are not null.
FeatureFile::Layers layersOf(const OverlayOptions & option, const SO<NBX::DataResource> & bytes,
                             const std::string & wkt, const ZMT::RASTER::GeoExtent & ground) {
    const std::string name = shownName(option.file);
    if (option.layer.empty())
        return bytes ? FeatureFile::layers(bytes, name, wkt, ground)
                     : FeatureFile::layers(option.file, wkt, ground);
    return {bytes ? std::make_shared<const FeatureFile>(bytes, name, option.layer, wkt, ground)
                  : std::make_shared<const FeatureFile>(option.file, option.layer, wkt, ground)};
}

/// In the scene, as it is drawn.
double heightAt(const Terrain & terrain, double exaggeration, double x, double z) {
    const Point geo = GeoTransformation::nbx2geoTf(Point(x, 0.0, z));
    const double height = terrain.calculateHeight(geo, true);
    if (terrain.isUndefinedHeightValue(height)) return NAN;
    return GeoTransformation::geo2nbxTf(Point(geo.x, height, geo.z)).y * exaggeration;
}

/// By the heights that are in memory.
bool isHiddenOnTheWay(const Terrain & terrain, double exaggeration, const Point & eye, const Point & place) {
    for (int i = 1; i < s_raySteps; ++i) {
        const Point p = eye + (place - eye) * (s_rayEnd * i / s_raySteps);
        if (p.y < heightAt(terrain, exaggeration, p.x, p.z)) return true;
    }
    return false;
}

unsigned s_textureMemory = MemoryBudgets().overlay;

} // namespace

void Overlays::setTextureMemory(unsigned mebibytes) {
    using Texture = ZMT::CORE::VectorOverlayTexture;
    s_textureMemory = mebibytes;
    Texture::setMaxTexturePatches(
        Texture::texturesFor(std::uint64_t{mebibytes} << 20U, s_textureSize, s_textureFormat));
}

unsigned Overlays::textureMemory() {
    return s_textureMemory;
}

bool Overlays::makeRoom() {
    using Texture = ZMT::CORE::VectorTexture;
    const bool isNeeded = Texture::needsMoreTexturePatches();
    if (isNeeded) Texture::setMaxTexturePatches(2 * Texture::getMaxTexturePatches());
    return isNeeded;
}

Overlays::Overlays(const std::vector<OverlayOptions> & options, const ZMT::RASTER::GeoReference & reference,
                   const ZMT::RASTER::GeoExtent & ground, const StreamedFiles & streamed) {
    for (const OverlayOptions & option : options)
        add(read(option, reference, ground, streamed));
}

std::vector<SO<Overlays::Overlay>> Overlays::read(const OverlayOptions & option,
                                                  const ZMT::RASTER::GeoReference & reference,
                                                  const ZMT::RASTER::GeoExtent & ground,
                                                  const StreamedFiles & streamed) {
    const Stage stage(L"read");
    Step step("reading " + shownName(option.file));
    const VectorStyleSheet style = option.style.empty() ? VectorStyleSheet() : styleOf(option.style);
    const FeatureFile::Layers layers = layersOf(option, streamed.overlay(option.file), reference.wkt, ground);
    std::vector<SO<Overlay>> overlays;
    overlays.reserve(layers.size());
    for (const auto & layer : layers) {
        overlays.emplace_back(new Overlay(layer, style));
        if (const std::string losses = layer->lossReport(); !losses.empty()) writeError(losses);
        std::string name = fileNameOf(option.file);
        if (layers.size() > 1 || !option.layer.empty()) name.append(", ").append(layer->layerName());
        overlays.back()->setName(name);
    }
    step.finish();
    return overlays;
}

SO<Overlays::Overlay> Overlays::readContours(const ZMT::RASTER::RasterData & heights, double interval) {
    const Stage stage(L"contours");
    NBX::Progress drawing("drawing contour lines");
    const auto lines = ZMT::RASTER::ContourLines::create(heights, interval, &drawing);
    if (!lines) throw DataError("cancelled");
    drawing.finish();
    SO<Overlay> overlay(new Overlay(lines, VectorStyleSheet::parseFile(s_contourStyle)));
    char name[60];
    std::snprintf(name, sizeof name, "contour lines, %.6g m", interval);
    overlay->setName(name);
    return overlay;
}

void Overlays::add(const std::vector<SO<Overlay>> & more) {
    overlays_.insert(overlays_.end(), more.begin(), more.end());
    if (texture_) texture_->setOverlays(overlays_);
    listLabels();
}

void Overlays::replace(const Overlay * one, const SO<Overlay> & other) {
    const auto isOne = [one](const SO<Overlay> & overlay) { return overlay.get() == one; };
    const auto found = one ? std::find_if(overlays_.begin(), overlays_.end(), isOne) : overlays_.begin();
    const bool isThere = one && found != overlays_.end();
    if (isThere && other) takeLook(**found, *other);
    const auto place = isThere ? overlays_.erase(found) : overlays_.begin();
    ownStyles_.erase(one);
    if (other) overlays_.insert(place, other);
    if (texture_) texture_->setOverlays(overlays_);
    listLabels();
}

/// A style of its own has to have its fields there.
void Overlays::takeLook(const Overlay & one, Overlay & other) {
    other.setShown(one.isShown());
    other.setOpacity(one.opacity());
    if (ownStyles_.count(&one) == 0) return;
    try {
        setStyle(other, one.styleSheet());
    } catch (const NBX::Exception &) {
        return;
    }
}

std::vector<Overlays::Look> Overlays::looks() const {
    std::vector<Look> looks;
    looks.reserve(overlays_.size());
    for (const SO<Overlay> & overlay : overlays_) {
        looks.push_back({overlay->name(), overlay->isShown(), overlay->opacity()});
        if (ownStyles_.count(overlay.get()) > 0) looks.back().style = overlay->styleSheet().text();
    }
    return looks;
}

void Overlays::setLooks(const std::vector<Look> & looks) {
    std::vector<std::size_t> order;
    std::vector<bool> isKnown(overlays_.size());
    order.reserve(overlays_.size());
    for (const Look & look : looks)
        for (std::size_t i = 0; i < overlays_.size(); ++i) {
            Overlay & overlay = *overlays_[i];
            if (isKnown[i] || overlay.name() != look.name) continue;
            isKnown[i] = true;
            order.push_back(i);
            overlay.setShown(look.isShown);
            overlay.setOpacity(look.opacity);
            resetStyle(overlay, look.style);
            break;
        }
    for (std::size_t i = 0; i < overlays_.size(); ++i)
        if (!isKnown[i]) order.push_back(i);
    setOrder(order);
}

void Overlays::resetStyle(Overlay & overlay, const std::optional<std::string> & style) {
    const auto own = ownStyles_.find(&overlay);
    const bool isOwn = own != ownStyles_.end();
    if (!style && !isOwn) return;
    if (style && isOwn && *style == overlay.styleSheet().text()) return;
    try {
        if (style)
            return setStyle(overlay, style->empty() ? VectorStyleSheet() : VectorStyleSheet::parse(*style));
        overlay.setStyleSheet(own->second);
        ownStyles_.erase(own);
    } catch (const NBX::Exception &) {
        // A file that has changed may lack its fields.
    }
    listLabels();
}

NBX::SO<NBX::Attribute> Overlays::layOn(const SO<Terrain> & terrain, double exaggeration, bool isStreamed) {
    terrain_ = terrain;
    exaggeration_ = exaggeration;
    isStreamed_ = isStreamed;
    texture_ = new ZMT::CORE::VectorOverlayTexture(
        overlays_, ZMT::CORE::LocalFrame(GeoTransformation::nbx2geoOffset()), terrain->boundingBox());
    texture_->setInternalFormat(s_textureFormat);
    ZMT::CORE::VectorTexture::setSamples(s_samples);
    setFineness(fineness_);
    setTextureMemory(s_textureMemory);
    labels_ = std::make_shared<ScreenLabels>();
    listLabels();
    setGround();
    return makeDecal(texture_);
}

/// Textures become larger by as much, since ground that has no finer patches has no finer texels otherwise.
/// As many of them are kept as before: a view that fits goes on to fit.
void Overlays::setFineness(unsigned times) {
    fineness_ = times;
    if (!texture_) return;
    setLargestTexel();
    const unsigned size = s_textureSize * times;
    if (texture_->getBufferSize() != size) texture_->setBufferSize(size);
}

void Overlays::setLargestTexel() const {
    const double error = ZMT::CORE::TerrainPainterGLSettings::getTextureError();
    const double largest = s_largestTexel / fineness_;
    texture_->setLargestTexel(error > 0.0 ? std::min(error, largest) : largest);
}

void Overlays::setStyle(Overlay & overlay, const VectorStyleSheet & sheet) {
    const VectorStyleSheet before = overlay.styleSheet();
    overlay.setStyleSheet(sheet);
    ownStyles_.emplace(&overlay, before);
    listLabels();
}

/// Names are those of the styles.
void Overlays::listLabels() {
    if (!labels_) return;
    std::vector<ScreenLabels::Layer> layers;
    layers.reserve(overlays_.size());
    // The top one matters most.
    for (auto overlay = overlays_.rbegin(); overlay != overlays_.rend(); ++overlay)
        layers.push_back(ScreenLabels::Layer::of(*overlay));
    labels_->setLayers(std::move(layers));
}

void Overlays::setOrder(const std::vector<std::size_t> & order) {
    std::vector<SO<Overlay>> ordered;
    ordered.reserve(order.size());
    for (const std::size_t number : order)
        ordered.push_back(overlays_.at(number));
    overlays_ = std::move(ordered);
    if (texture_) texture_->setOverlays(overlays_);
    listLabels();
}

void Overlays::setGround() const {
    const Point scale(1.0, exaggeration_, 1.0);
    const NBX::Bounds box = terrain_->boundingBox();
    const auto scaled = [&](const Point & p) { return Point(p.x, p.y * exaggeration_, p.z); };
    ScreenLabels::Ground ground;
    ground.box = NBX::Bounds(scaled(box.getLLF()), scaled(box.getURB()));
    ground.heightAt = [terrain = terrain_, factor = exaggeration_](double x, double z) {
        return heightAt(*terrain, factor, x, z);
    };
    if (isStreamed_) {
        ground.isHidden = [terrain = terrain_, factor = exaggeration_](const Point & eye,
                                                                       const Point & place) {
            return isHiddenOnTheWay(*terrain, factor, eye, place);
        };
    } else {
        const SO<NBX::SceneThing> node(new NBX::SceneThing);
        node->append(new ZMT::CORE::TerrainScaling(scale));
        node->append(terrain_.get());
        ground.isHidden = ScreenLabels::Ground::hiddenBehind(node);
    }
    labels_->setGround(std::move(ground));
}

void Overlays::setExaggeration(double exaggeration) {
    exaggeration_ = exaggeration;
    setGround();
}

bool Overlays::prepare(const NBX::Camera & camera, unsigned width, unsigned height, bool atOnce) {
    if (!labels_) return true;
    setLargestTexel();
    for (std::size_t i = 0; i < overlays_.size(); ++i) {
        const auto layer = unsigned(overlays_.size() - 1 - i);
        labels_->setShown(layer, overlays_[i]->isShown());
        labels_->setOpacity(layer, overlays_[i]->opacity());
    }
    // Finer heights may have come.
    const std::uint64_t read = AsyncFile::TotalLocalBytes() + AsyncFile::TotalTransferedBytes();
    if (isStreamed_ && std::exchange(bytesRead_, read) != read) labels_->groundChanged();
    return labels_->update(camera, width, height,
                           atOnce ? ScreenLabels::Effort::unlimited() : ScreenLabels::Effort());
}

std::vector<Overlays::Feature> Overlays::featuresAt(const ZMT::CORE::FeatureDistance & place,
                                                    double tolerance) const {
    std::vector<Feature> features;
    for (auto overlay = overlays_.rbegin(); overlay != overlays_.rend(); ++overlay) {
        if (!(*overlay)->isShown()) continue;
        for (auto & picked :
             ZMT::CORE::featuresAt(*(*overlay)->source(), place, tolerance, s_mostPicked - features.size()))
            features.push_back({overlay->get(), std::move(picked)});
        if (features.size() >= s_mostPicked) break;
    }
    return features;
}

std::vector<Overlays::Feature> Overlays::featuresAt(const NBX::Camera & camera, const Pixel & pixel,
                                                    const Point & geo, double exaggeration,
                                                    double tolerance) const {
    const auto footprint = ZMT::CORE::PixelFootprint::at(camera, pixel.x, pixel.y, pixel.width, pixel.height,
                                                         GeoTransformation::geo2nbxTf(geo).y * exaggeration);
    return footprint ? featuresAt({geo, *footprint}, tolerance) : std::vector<Feature>();
}

DynamicLayer::Groups Overlays::highlightOf(const Feature & feature, const Point & place) {
    using Group = ZMT::CORE::MovingFeatures::Group;
    ZMT::RASTER::VectorFeature lines =
        ZMT::CORE::wholeFeature(*feature.overlay->source(), feature.picked.feature, place, s_mostRead);
    ZMT::RASTER::VectorFeature points;
    points.points = std::move(lines.points);
    lines.points.clear();
    return {Group{{lines}, VectorStyleSheet::parse(s_rimStyle)},
            Group{{lines}, VectorStyleSheet::parse(s_coreStyle)},
            Group{{points}, VectorStyleSheet::parse(s_spotStyle)}};
}
