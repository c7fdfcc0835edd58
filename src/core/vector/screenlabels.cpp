// Labels are placed one after the other, the most important one first, wherever none stands yet: that is the
// greedy way of J. Christensen, J. Marks, S. Shieber, "An Empirical Study of Algorithms for Point-Feature
// Label Placement", 1995, with one place for each label, so that labels never jump beside their place. What
// showed in the last picture counts as larger than it is, so that labels do not take turns while the view
// moves; the order in which it does so keeps all of them once they are placed, so that a view at rest stays
// as it is.
//
// What costs most comes last: a label is laid out when the point above its place is free, and looked for
// behind ridges when its rectangle is. Ridges are found by rays of the ground, not by the depth of the
// picture, since that would cut labels in the middle. While the view moves, some of the rays of former
// pictures are sent anew in each, in turns.

#include <zmt/core/vector/screenlabels.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <utility>

#include "labelplacement.h"
#include "labelwindows.h"
#include <nbx/engine/engine.h>
#include <nbx/engine/raytracingtechnique.h>
#include <nbx/gl/state/depthbuffergl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/viewinfo.h>
#include <nbx/text/textshape.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/vector/vectoroverlay.h>

namespace ZMT::CORE {

namespace {

using NBX::TextLayout;
using NBX::TextShape;
using Matrix = NBX::Matrix4x4Base<double>;
using Point = ScreenLabels::Point;
using Rectangle = ScreenLabels::Rectangle;
using Candidate = LabelWindows::Candidate;

/// How far above the ground labels stand, in pixels, so that the ground itself does not hide them.
constexpr double s_lift = 3.0;
/// The same for the rays to what shows, so that it does not flicker behind the edge of a ridge.
constexpr double s_keptLift = 6.0;
/// Pixels that stay free between labels.
constexpr double s_distance = 2.0;
/// What shows may be seen from so many times as far away as its smallest scale says.
constexpr double s_keptScale = 1.05;
constexpr double s_noHeight = std::numeric_limits<double>::quiet_NaN();

/// A picture of the scene.
struct View {
    View(const NBX::Camera & camera, unsigned width, unsigned height)
        : camera(&camera), width(width), height(height), toView(camera.viewMatrix()),
          toClip(camera.projectionMatrix(width, height) * toView),
          info(new NBX::ViewInfo(toView, camera.projectionMatrix(width, height),
                                 NBX::Area(0, 0, width, height))),
          isParallel(camera.projectionMatrix(width, height)(3, 3) == 1.0),
          unitPixels(std::abs(camera.projectionMatrix(width, height)(1, 1)) * height * 0.5) {}

    /// Of the scene in one pixel, where the fourth component of the clip coordinates is `w`.
    double metresPerPixel(double w) const { return w / unitPixels; }
    /// Where the ray to a place begins.
    Point eyeFor(double x, double y) const {
        return isParallel ? camera->rayThrough(x, y, width, height).getOrigin() : info->position();
    }

    const NBX::Camera * camera;
    unsigned width, height;
    Matrix toView, toClip;
    NBX::SO<const NBX::ViewInfo> info;
    bool isParallel;
    double unitPixels; ///< of a metre at the distance 1
};

/// A place in the picture.
struct Projected {
    LabelCandidate * candidate;
    double x, y; ///< in pixels
    double metresPerPixel;
};

std::optional<Projected> project(const View & view, LabelCandidate & candidate, const Point & place) {
    const auto row = [&, &m = view.toClip](unsigned r) {
        return m(r, 0) * place.x + m(r, 1) * place.y + m(r, 2) * place.z + m(r, 3);
    };
    const double w = row(3), x = row(0), y = row(1), z = row(2);
    const bool isInside = w > 0.0 && std::abs(x) <= w && std::abs(y) <= w && std::abs(z) <= w;
    if (!isInside) return {};
    return Projected{&candidate, (x / w + 1.0) * 0.5 * view.width, (y / w + 1.0) * 0.5 * view.height,
                     view.metresPerPixel(w)};
}

Point lifted(const Projected & at, double pixels) {
    const Point & place = at.candidate->place;
    return {place.x, place.y + at.metresPerPixel * pixels, place.z};
}

bool isLargeEnough(const Projected & at) {
    const double scale = at.candidate->style.smallestScale;
    if (!(scale > 0.0)) return true;
    return at.metresPerPixel <= scale * ScreenLabels::pixelSize * (at.candidate->isShown ? s_keptScale : 1.0);
}

NBX::Color faded(NBX::Color color, double opacity) {
    color[3] = float(color[3] * opacity);
    return color;
}

Rectangle outlineOf(const TextShape & shape) {
    NBX::Bounds box = shape.layout().inkBox();
    if (!box.isDefined()) return {};
    box += shape.layout().box();
    const double size = shape.getSize(), halo = std::min(shape.getHaloWidth(), TextShape::largestHalo * size);
    return {box.getLLF().x * size - halo, box.getLLF().y * size - halo, box.getURB().x * size + halo,
            box.getURB().y * size + halo};
}

bool isEmpty(const Rectangle & outline) {
    return !(outline.left < outline.right);
}

Rectangle outlineAt(const Projected & at, double margin) {
    const Rectangle & o = at.candidate->outline;
    return {at.x + o.left - margin, at.y + o.bottom - margin, at.x + o.right + margin, at.y + o.top + margin};
}

void takeOne(unsigned & budget) {
    if (budget != ~0U) --budget;
}

} // namespace

ScreenLabels::Effort ScreenLabels::Effort::unlimited() {
    return {~0U, ~0U, ~0U, ~0U};
}

ScreenLabels::Layer ScreenLabels::Layer::of(const NBX::SO<const VectorOverlay> & overlay) {
    const auto labelOf =
        [sheet = overlay->styleSheet()](const RASTER::VectorFeature & feature) -> std::optional<Label> {
        using Kind = VectorStyleSheet::Kind;
        const Kind kind = !feature.areas.empty()   ? Kind::Area
                          : !feature.lines.empty() ? Kind::Line
                                                   : Kind::Point;
        VectorStyle style = sheet.styleOf(kind, feature.values, feature.style);
        if (!style.label || style.label->isDraped()) return {};
        return Label{sheet.labelOf(style, feature.values), std::move(*style.label)};
    };
    return {overlay->source(), overlay->fields(), labelOf, overlay->isShown(), overlay->opacity()};
}

std::function<bool(const Point &, const Point &)>
ScreenLabels::Ground::hiddenBehind(const NBX::SO<NBX::SceneNode> & node) {
    const NBX::SO<NBX::Engine> engine(new NBX::Engine);
    return [engine, node](const Point & eye, const Point & place) {
        const NBX::SO<NBX::RayTracingTechnique> technique(
            new NBX::RayTracingTechnique(NBX::Ray(eye, place - eye)));
        return technique->trace(engine.get(), node.get()) &&
               technique->nearestHit().distance < (place - eye).length();
    };
}

struct ScreenLabels::Impl {
    std::vector<std::unique_ptr<LabelWindows>> layers;
    Ground ground;
    NBX::SO<NBX::SceneThing> node{new NBX::SceneThing};
    const NBX::SO<NBX::DepthBufferGL> depth{new NBX::DepthBufferGL(false, false)};
    std::vector<Placed> placed;
    std::vector<Candidate> shown; ///< those of `placed`
    Counts counts;

    std::vector<Candidate> candidates; ///< in view or near it, by importance, as if none showed
    std::vector<std::uint64_t> collectedStates;
    std::uint64_t round = 0, groundState = 1, viewState = 1;
    std::uint64_t firstGroundState = 1; ///< of this ground; places of others are not known
    std::size_t nextHeight = 0;         ///< of `candidates`, to be asked first
    std::size_t raysWanted = 0;         ///< in the last picture
    Matrix lastClip;
    unsigned lastWidth = 0, lastHeight = 0;
    bool areGlyphsTold = false;

    /// What one update has to do with.
    struct Work {
        const View & view;
        const Effort most;
        Effort effort = most; ///< what is left
        bool isComplete = true;
        std::vector<Projected> inView{}, placed{};
    };

    void noteView(const View & view);
    double pixelsOf(const View & view, const RASTER::GeoExtent & box) const;
    void collect(Work & work);
    void findHeight(LabelCandidate & candidate) const;
    void findHeights(Work & work);
    void projectAll(Work & work) const;
    bool layOut(LabelCandidate & candidate, Work & work);
    bool isHidden(const Projected & at, Work & work, std::size_t turn);
    void place(Work & work);
    void show(const Work & work);
    void colour(const LabelCandidate & candidate) const;
};

void ScreenLabels::Impl::noteView(const View & view) {
    if (view.toClip == lastClip && view.width == lastWidth && view.height == lastHeight) return;
    lastClip = view.toClip;
    lastWidth = view.width;
    lastHeight = view.height;
    ++viewState;
}

/// The width of a window of the map in the picture; 0 out of view.
double ScreenLabels::Impl::pixelsOf(const View & view, const RASTER::GeoExtent & box) const {
    const Point shift = GeoTransformation::geo2nbxOffset();
    const double low = ground.box.getLLF().y, high = ground.box.getURB().y;
    const NBX::Bounds all(Point(box.minX + shift.x, low, box.minY + shift.z),
                          Point(box.maxX + shift.x, high, box.maxY + shift.z));
    // One that touches the ground's box may be without any width there.
    if (!all.intersects(ground.box)) return 0.0;
    const NBX::Bounds part = all.intersection(ground.box);
    if (view.info->cull(part) < 0) return 0.0;
    const double distance =
        view.isParallel ? 1.0 : std::max(std::sqrt(view.info->distance2(part)), view.info->nearDistance());
    const double width = std::max(box.maxX - box.minX, box.maxY - box.minY);
    return std::max(1.0, width / view.metresPerPixel(distance));
}

void ScreenLabels::Impl::collect(Work & work) {
    std::vector<std::uint64_t> states;
    std::vector<Candidate> found;
    const auto pixels = [&](const RASTER::GeoExtent & box) { return pixelsOf(work.view, box); };
    ++round;
    for (const auto & windows : layers) {
        LabelWindows::Collection collection = windows->collect(pixels, work.effort.windows, round);
        work.isComplete &= collection.isComplete;
        states.push_back(windows->state());
        found.insert(found.end(), std::make_move_iterator(collection.candidates.begin()),
                     std::make_move_iterator(collection.candidates.end()));
    }
    // What shows is compared when it is placed.
    const auto isBefore = [](const Candidate & a, const Candidate & b) {
        if (a->layer != b->layer) return a->layer < b->layer;
        return a->extent != b->extent ? a->extent > b->extent : a->feature < b->feature;
    };
    if (states == collectedStates && found.size() == candidates.size()) {
        // Windows come in the order of the view, but seldom others.
        const bool isSame = std::all_of(candidates.begin(), candidates.end(),
                                        [this](const Candidate & c) { return c->collected == round; });
        if (isSame) return;
    }
    std::sort(found.begin(), found.end(), isBefore);
    candidates = std::move(found);
    collectedStates = std::move(states);
}

void ScreenLabels::Impl::findHeight(LabelCandidate & candidate) const {
    // What a changed ground hides is asked in turns; of another one nothing is known.
    if (candidate.groundSeen < firstGroundState) candidate.viewSeen = 0;
    candidate.place = GeoTransformation::geo2nbxTf(candidate.map);
    candidate.place.y = ground.heightAt ? ground.heightAt(candidate.place.x, candidate.place.z) : s_noHeight;
    candidate.groundSeen = groundState;
}

/// In turns, so that ground that changes all the time leaves none out.
void ScreenLabels::Impl::findHeights(Work & work) {
    const std::size_t count = candidates.size();
    for (std::size_t i = 0; i < count; ++i) {
        LabelCandidate & candidate = *candidates[(nextHeight + i) % count];
        if (candidate.groundSeen == groundState) continue;
        if (work.effort.heights == 0) {
            nextHeight = (nextHeight + i) % count;
            work.isComplete = false;
            return;
        }
        takeOne(work.effort.heights);
        findHeight(candidate);
    }
}

/// What showed before is brought to where it counts as larger.
void ScreenLabels::Impl::projectAll(Work & work) const {
    std::vector<Projected> others, kept;
    for (const Candidate & candidate : candidates) {
        if (candidate->groundSeen < firstGroundState || !std::isfinite(candidate->place.y)) continue;
        const std::optional<Projected> at = project(work.view, *candidate, candidate->place);
        if (at && isLargeEnough(*at)) (candidate->isShown ? kept : others).push_back(*at);
    }
    work.inView.resize(kept.size() + others.size());
    std::merge(kept.begin(), kept.end(), others.begin(), others.end(), work.inView.begin(),
               [](const Projected & a, const Projected & b) {
                   return LabelCandidate::isBefore(*a.candidate, *b.candidate);
               });
}

/// False where there is nothing to show, or no time for it.
bool ScreenLabels::Impl::layOut(LabelCandidate & candidate, Work & work) {
    if (candidate.shape) return !isEmpty(candidate.outline);
    if (work.effort.texts == 0) {
        work.isComplete = false;
        return false;
    }
    takeOne(work.effort.texts);
    const VectorStyle::Label & style = candidate.style;
    candidate.shape = new TextShape(candidate.text, candidate.place, style.size.value);
    // A name stands above a point, and on a line or an area.
    candidate.shape->setAnchor(candidate.extent > 0.0 ? TextLayout::A_Center : TextLayout::A_Lower);
    if (style.haloWidth > 0.0) candidate.shape->setHalo(style.haloWidth, style.haloColor);
    candidate.outline = outlineOf(*candidate.shape);
    counts.missingGlyphs += candidate.shape->layout().missing();
    if (candidate.shape->layout().missing() > 0 && !std::exchange(areGlyphsTold, true))
        NBX_FAILURE(L"the font of labels has not all characters of \"" << candidate.text
                                                                       << L"\"; install one that has them");
    return !isEmpty(candidate.outline);
}

/// `turn` is the number of the label in the picture.
bool ScreenLabels::Impl::isHidden(const Projected & at, Work & work, std::size_t turn) {
    LabelCandidate & candidate = *at.candidate;
    if (!ground.isHidden || candidate.viewSeen == viewState) return ground.isHidden && candidate.isHidden;
    const bool isKnown = candidate.viewSeen != 0;
    const std::size_t turns = raysWanted / std::max(1U, work.most.rays) + 1;
    if (work.effort.rays == 0 || (isKnown && (turn + round) % turns != 0)) {
        work.isComplete = false;
        return !isKnown || candidate.isHidden;
    }
    takeOne(work.effort.rays);
    const Point place = lifted(at, candidate.isShown ? s_keptLift : s_lift);
    candidate.isHidden = ground.isHidden(work.view.eyeFor(at.x, at.y), place);
    candidate.viewSeen = viewState;
    return candidate.isHidden;
}

namespace {

/// Where equal labels stand.
class Repetitions {
public:
    bool isNear(const Projected & at) const {
        if (at.candidate->extent == 0.0) return false;
        const auto place = places_.find({at.candidate->layer, at.candidate->text});
        return place != places_.end() &&
               std::any_of(place->second.begin(), place->second.end(), [&](const Projected & other) {
                   return std::hypot(other.x - at.x, other.y - at.y) < ScreenLabels::repeatDistance;
               });
    }
    void add(const Projected & at) {
        if (at.candidate->extent > 0.0) places_[{at.candidate->layer, at.candidate->text}].push_back(at);
    }

private:
    std::map<std::pair<unsigned, std::wstring>, std::vector<Projected>> places_;
};

} // namespace

void ScreenLabels::Impl::place(Work & work) {
    LabelPlacement placement(work.view.width, work.view.height);
    Repetitions repetitions;
    std::size_t turn = 0;
    for (const Projected & onGround : work.inView) {
        LabelCandidate & candidate = *onGround.candidate;
        const auto at = project(work.view, candidate, lifted(onGround, s_lift));
        if (!at || placement.isTaken(at->x, at->y) || repetitions.isNear(*at)) continue;
        if (!layOut(candidate, work)) continue;
        const Rectangle outline = outlineAt(*at, 0.0);
        if (!placement.isInside(outline) || !placement.isFree(outlineAt(*at, s_distance))) continue;
        if (isHidden(onGround, work, ++turn)) continue;
        placement.take(outline);
        repetitions.add(*at);
        work.placed.push_back(*at);
    }
    raysWanted = turn;
}

/// As the layer is now.
void ScreenLabels::Impl::colour(const LabelCandidate & candidate) const {
    const double opacity = layers[candidate.layer]->layer().opacity;
    TextShape & shape = *candidate.shape;
    const NBX::Color color = faded(candidate.style.color, opacity);
    if (shape.getColor() == color) return;
    shape.setColor(color);
    shape.setHalo(shape.getHaloWidth(), faded(candidate.style.haloColor, opacity));
}

/// Changes the scene as little as may be.
void ScreenLabels::Impl::show(const Work & work) {
    std::vector<Candidate> now;
    now.reserve(work.placed.size());
    for (const Candidate & candidate : shown)
        candidate->isShown = false;
    placed.clear();
    for (const Projected & at : work.placed) {
        LabelCandidate & candidate = *at.candidate;
        candidate.isShown = true;
        const Point position = lifted(at, s_lift);
        if (!(candidate.shape->getPosition() == position)) candidate.shape->setPosition(position);
        colour(candidate);
        placed.push_back({candidate.layer, candidate.feature, candidate.text, outlineAt(at, 0.0), position});
    }
    for (const Candidate & candidate : candidates)
        if (candidate->isShown) now.push_back(candidate);
    if (now == shown) return;
    shown = std::move(now);
    node->clear();
    node->append(depth.get());
    for (const Candidate & candidate : shown)
        node->append(candidate->shape.get());
}

ScreenLabels::ScreenLabels() : impl_(std::make_unique<Impl>()) {
    impl_->node->setNodeState(NBX::SceneNode::NS_Renders);
}

ScreenLabels::~ScreenLabels() = default;

void ScreenLabels::setLayers(std::vector<Layer> layers) {
    impl_->layers.clear();
    for (Layer & layer : layers)
        impl_->layers.push_back(
            std::make_unique<LabelWindows>(unsigned(impl_->layers.size()), std::move(layer)));
    impl_->shown.clear();
    impl_->placed.clear();
    impl_->candidates.clear();
    impl_->collectedStates.clear();
    impl_->node->clear();
    impl_->counts = {};
    impl_->areGlyphsTold = false;
}

void ScreenLabels::setShown(unsigned layer, bool isShown) {
    NBX_CHECK(layer < impl_->layers.size(), L"no such layer of labels: " << layer);
    if (layer < impl_->layers.size()) impl_->layers[layer]->layer().isShown = isShown;
}

void ScreenLabels::setOpacity(unsigned layer, double opacity) {
    NBX_CHECK(layer < impl_->layers.size(), L"no such layer of labels: " << layer);
    if (layer < impl_->layers.size()) impl_->layers[layer]->layer().opacity = opacity;
}

void ScreenLabels::setGround(Ground ground) {
    impl_->ground = std::move(ground);
    groundChanged();
    impl_->firstGroundState = impl_->groundState;
}

void ScreenLabels::groundChanged() {
    ++impl_->groundState;
    ++impl_->viewState;
}

bool ScreenLabels::update(const NBX::Camera & camera, unsigned width, unsigned height,
                          const Effort & effort) {
    if (width == 0 || height == 0) return true;
    const View view(camera, width, height);
    Impl::Work work{view, effort};
    impl_->noteView(view);
    impl_->collect(work);
    impl_->findHeights(work);
    impl_->projectAll(work);
    impl_->place(work);
    impl_->show(work);
    return work.isComplete;
}

const NBX::SO<NBX::SceneThing> & ScreenLabels::node() const {
    return impl_->node;
}

const std::vector<ScreenLabels::Placed> & ScreenLabels::placed() const {
    return impl_->placed;
}

const ScreenLabels::Placed * ScreenLabels::labelAt(double x, double y) const {
    const auto found = std::find_if(impl_->placed.begin(), impl_->placed.end(),
                                    [&](const Placed & label) { return label.box.contains(x, y); });
    return found == impl_->placed.end() ? nullptr : &*found;
}

const ScreenLabels::Counts & ScreenLabels::counts() const {
    impl_->counts.unread = 0;
    for (const auto & windows : impl_->layers)
        impl_->counts.unread += windows->unread();
    return impl_->counts;
}

} // namespace ZMT::CORE
