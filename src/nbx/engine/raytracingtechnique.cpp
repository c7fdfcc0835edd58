#include <nbx/engine/raytracingtechnique.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>

#include <nbx/engine/engine.h>
#include <nbx/engine/rayintersector.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/shape/shape.h>

namespace NBX {

NBX_CLASS_IMPL(RayTracingTechnique, Technique)

namespace {

/// The inverse of a model matrix, which is that of the ray before most often: each thread keeps its last one.
Matrix4x4Base<double> inverseOf(const Matrix4x4Base<double> & model) {
    struct Last {
        Matrix4x4Base<double> model, inverse;
        bool isThere = false;
    };
    static constinit thread_local Last last;
    // Compared by its bits, so that the inverse is what it would be, to the bit.
    using Bits = std::array<std::uint64_t, 16>;
    if (!last.isThere || std::bit_cast<Bits>(model) != std::bit_cast<Bits>(last.model))
        last = {model, model.inverse(), true};
    return last.inverse;
}

} // namespace

RayTracingTechnique::RayTracingTechnique(const Ray & ray) : ray_(ray) {}

bool RayTracingTechnique::trace(Engine * engine, SceneNode * node) {
    NBX_CHECK(engine, L"no engine");
    if (!engine) return false;
    engine->evaluate(node, this);
    return hasHit_;
}

void RayTracingTechnique::start(Engine * engine) {
    hasHit_ = false;
    hit_ = Hit();
    Technique::start(engine);
}

ID RayTracingTechnique::service() const {
    return RayIntersector::ClassNameNBX();
}

Ray RayTracingTechnique::localRay(const Engine * engine) const {
    return inverseOf(engine->modelMatrix()) * ray_;
}

bool RayTracingTechnique::process(Engine * engine, Handler * handler, const Shape * shape) {
    auto * intersector = dynamic_cast<RayIntersector *>(handler);
    if (!intersector) return false;
    const Matrix4x4Base<double> model = engine->modelMatrix();
    const Matrix4x4Base<double> inverse = inverseOf(model);
    return intersector->intersect(engine, model, inverse, shape, inverse * ray_, this);
}

bool RayTracingTechnique::nextPass(Engine *) {
    activatePass(-1);
    return false;
}

bool RayTracingTechnique::apply(Engine *, Handler *, const MonoAttribute *, bool) {
    return false;
}

void RayTracingTechnique::report(const Engine * engine, const Vector3Base<double> & point,
                                 const Vector3Base<double> & normal, const Shape * shape) {
    const Matrix4x4Base<double> & model = engine->modelMatrix();
    const Vector3Base<double> inScene = model * point;
    const double distance = (inScene - ray_.getOrigin()).length();
    if (!(distance < std::numeric_limits<double>::infinity())) return;
    if (hasHit_ && !(distance < hit_.distance)) return;
    // Normals go with the inverse transpose, so that they stay at right angles to the surface.
    const Vector3Base<double> normalInScene =
        inverseOf(model).transposed().transformDirection(normal).normalized();
    hit_ = Hit{distance, inScene, normalInScene, SO<const Shape>(shape)};
    hasHit_ = true;
}

void RayTracingTechnique::reportTriangle(const Engine * engine, const Ray & ray, double distance,
                                         const std::array<Vector3Base<double>, 3> & corners,
                                         const Shape * shape) {
    const auto & [a, b, c] = corners;
    const Vector3Base<double> normal = (b - a).cross(c - a);
    const bool looksAway = normal.dot(ray.getDirection()) > 0.0;
    report(engine, ray.point(distance), looksAway ? -normal : normal, shape);
}

bool RayTracingTechnique::checkBounds(const Ray & ray, const Bounds & box) {
    return enterBounds(ray, box) < std::numeric_limits<double>::infinity();
}

double RayTracingTechnique::enterBounds(const Ray & ray, const Bounds & box) {
    constexpr double slack = 4.0 * std::numeric_limits<double>::epsilon();
    constexpr double never = std::numeric_limits<double>::infinity();
    if (!box.isDefined()) return never;
    double enter = 0.0, leave = std::numeric_limits<double>::max();
    for (unsigned axis = 0; axis < 3; ++axis) {
        const double from = ray.getOrigin()[axis], along = ray.getDirection()[axis];
        const double low = box.getLLF()[axis], high = box.getURB()[axis];
        if (along == 0.0) {
            if (!(from >= low && from <= high)) return never;
            continue;
        }
        const double t1 = (low - from) / along, t2 = (high - from) / along;
        enter = std::max(enter, std::min(t1, t2) * (1.0 - slack));
        leave = std::min(leave, std::max(t1, t2) * (1.0 + slack));
    }
    return enter <= leave ? enter : never;
}

double RayTracingTechnique::limit() const {
    constexpr double slack = 1e-9;
    if (!hasHit_) return std::numeric_limits<double>::infinity();
    return hit_.distance / ray_.getDirection().length() * (1.0 + slack);
}

} // namespace NBX
