// A node that stands last among the root nodes makes its scene anew for each picture, of what was noted when
// the terrain was drawn: few lines, in pixels.

#include "dynamicvectorhud.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <sstream>

#include <nbx/container/sequence/array.h>
#include <nbx/engine/canvas.h>
#include <nbx/gl/state/depthbuffergl.h>
#include <nbx/gl/state/lightmodelgl.h>
#include <nbx/gl/state/shapematerialgl.h>
#include <nbx/math/algorithmimpl.h>
#include <nbx/math/bounds.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/wo.h>
#include <nbx/scene/attribute/linestyle.h>
#include <nbx/scene/shape/lineset.h>
#include <nbx/scene/view/camera.h>
#include <nbx/text/textshape.h>

namespace ZMT::CORE {

namespace {

using Point = TrapezoidFit::Point;
using Trapezoid = TrapezoidFit::Trapezoid;

constexpr double s_hullWidth = 5.0, s_textSize = 14.0, s_halo = 2.0;

/// Of one engine.
struct Noted {
    NBX::WO<const NBX::EngineGL> engine;
    std::optional<Trapezoid> trapezoid;
    NBX::SO<NBX::SceneNode> node; ///< null while it is not shown
};

/// Never destroyed itself: pictures may be drawn while libraries unload.
std::vector<Noted> & allNoted() {
    static auto & all = *new std::vector<Noted>;
    return all;
}

Noted & notedOf(const NBX::EngineGL * engine) {
    auto & all = allNoted();
    std::erase_if(all, [](const Noted & noted) { return !noted.engine; });
    const auto found = std::find_if(all.begin(), all.end(),
                                    [engine](const Noted & noted) { return noted.engine.lock() == engine; });
    if (found != all.end()) return *found;
    all.push_back({NBX::WO<const NBX::EngineGL>(engine), std::nullopt, nullptr});
    return all.back();
}

class HudNode : public NBX::SceneNode {
    NBX_TEMPLATE_CLASS(HudNode, NBX::SceneNode)
public:
    void evaluate(NBX::Engine * engine) override {
        const auto * gl = dynamic_cast<const NBX::EngineGL *>(engine);
        if (!gl || !renders()) return;
        if (const auto & trapezoid = notedOf(gl).trapezoid)
            DynamicVectorHud::newScene(*trapezoid)->evaluate(engine);
    }
    NBX::Bounds boundingBox(NBX::Engine *) override { return {}; }
};

/// From the plan to the map.
class MapFrame {
public:
    explicit MapFrame(const Trapezoid & trapezoid) {
        for (const Point & corner : trapezoid.corners)
            box_ += Point(corner.x, 0.0, corner.z);
        scale_ = DynamicVectorHud::mapSize / std::max(box_.diagonal().x, box_.diagonal().z);
    }
    const NBX::Bounds & box() const { return box_; }
    Point onMap(const Point & p) const {
        return {(p.x - box_.getLLF().x) * scale_, (p.z - box_.getLLF().z) * scale_, 0.0};
    }

private:
    NBX::Bounds box_;
    double scale_;
};

void appendLines(NBX::SceneThing & scene, NBX::LineSet::PrimitiveType type, std::vector<Point> points) {
    scene.append(new NBX::LineSet(type, new NBX::Array<Point>(std::move(points))));
}

template <class Points>
void appendLoop(NBX::SceneThing & scene, const MapFrame & frame, const Points & loop) {
    std::vector<Point> points;
    points.reserve(loop.size());
    for (const Point & p : loop)
        points.push_back(frame.onMap(p));
    appendLines(scene, NBX::LineSet::PT_LineLoop, std::move(points));
}

/// Where lines stand between two coordinates.
std::vector<double> placesOfLines(double low, double high) {
    double step = DynamicVectorHud::spacing;
    while ((high - low) / step > DynamicVectorHud::mostLines)
        step *= 2.0;
    std::vector<double> places;
    for (double at = std::ceil(low / step) * step; at <= high; at += step)
        places.push_back(at);
    return places;
}

void appendGrid(NBX::SceneThing & scene, const MapFrame & frame) {
    const Point &low = frame.box().getLLF(), &high = frame.box().getURB();
    std::vector<Point> points;
    for (const double x : placesOfLines(low.x, high.x)) {
        points.push_back(frame.onMap({x, 0.0, low.z}));
        points.push_back(frame.onMap({x, 0.0, high.z}));
    }
    for (const double z : placesOfLines(low.z, high.z)) {
        points.push_back(frame.onMap({low.x, 0.0, z}));
        points.push_back(frame.onMap({high.x, 0.0, z}));
    }
    if (!points.empty()) appendLines(scene, NBX::LineSet::PT_Lines, std::move(points));
}

void appendText(NBX::SceneThing & scene, double line, const wchar_t * name, double value) {
    std::wostringstream text;
    text << name << value;
    NBX::SO<NBX::TextShape> shape(new NBX::TextShape(
        text.str(), Point(s_textSize, DynamicVectorHud::mapSize - line * s_textSize, 0.0), s_textSize));
    shape->setHalo(s_halo, NBX::Color::white);
    scene.append(shape.get());
}

} // namespace

void DynamicVectorHud::note(const NBX::EngineGL * engine, const std::optional<Trapezoid> & trapezoid) {
    notedOf(engine).trapezoid = trapezoid;
}

void DynamicVectorHud::enable(NBX::EngineGL * engine, bool enabled) {
    NBX_CHECK(engine && engine->getCanvas(), L"no engine with a canvas");
    if (!engine || !engine->getCanvas()) return;
    Noted & noted = notedOf(engine);
    if (enabled == bool(noted.node)) return;
    if (enabled) {
        noted.node = new HudNode;
        engine->getCanvas()->append(noted.node.get());
    } else {
        engine->getCanvas()->remove(noted.node.get());
        noted.node = nullptr;
    }
}

double DynamicVectorHud::areaOf(const Trapezoid & trapezoid) {
    return std::abs(NBX::AlgorithmImpl::signedArea(trapezoid.corners));
}

double DynamicVectorHud::angleOf(const Trapezoid & trapezoid) {
    const auto & c = trapezoid.corners;
    const auto inPlan = [](const Point & p) { return Point(p.x, 0.0, p.z).normalized(); };
    const double cosine = inPlan(c[3] - c[0]).dot(inPlan(c[2] - c[1]));
    return std::acos(std::clamp(cosine, -1.0, 1.0)) * 180.0 / std::numbers::pi;
}

NBX::SO<NBX::SceneThing> DynamicVectorHud::newScene(const Trapezoid & trapezoid) {
    const NBX::Color color(0.5, 0.2, 0.5);
    const MapFrame frame(trapezoid);
    NBX::SO<NBX::SceneThing> scene(new NBX::SceneThing);
    scene->append(NBX::Camera::newPixelCoordsCamera(100.0, -1.0).get());
    scene->append(new NBX::DepthBufferGL(false, false));
    scene->append(new NBX::LightModelGL(0));
    scene->append(new NBX::ShapeMaterialGL(color, color, 115.0));
    appendGrid(*scene, frame);
    appendLoop(*scene, frame, trapezoid.corners);
    appendText(*scene, 2.0, L"area: ", areaOf(trapezoid));
    appendText(*scene, 3.5, L"angle: ", angleOf(trapezoid));
    scene->append(new NBX::LineStyle(s_hullWidth));
    appendLoop(*scene, frame, trapezoid.hull);
    return scene;
}

} // namespace ZMT::CORE
