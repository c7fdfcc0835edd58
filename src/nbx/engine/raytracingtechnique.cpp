#include <nbx/engine/raytracingtechnique.h>

#include <algorithm>
#include <limits>

#include <nbx/engine/engine.h>
#include <nbx/engine/rayintersector.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/shape/shape.h>

namespace NBX {

NBX_CLASS_IMPL(RayTracingTechnique, Technique)

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
    return engine->modelMatrix().inverse() * ray_;
}

bool RayTracingTechnique::process(Engine * engine, Handler * handler, const Shape * shape) {
    auto * intersector = dynamic_cast<RayIntersector *>(handler);
    if (!intersector) return false;
    const Matrix4x4Base<double> model = engine->modelMatrix();
    const Matrix4x4Base<double> inverse = model.inverse();
    return intersector->intersect(engine, model, inverse, shape, inverse * ray_, this);
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
        model.inverse().transposed().transformDirection(normal).normalized();
    hit_ = Hit{distance, inScene, normalInScene, SO<const Shape>(shape)};
    hasHit_ = true;
}

bool RayTracingTechnique::checkBounds(const Ray & ray, const Bounds & box) {
    constexpr double slack = 4.0 * std::numeric_limits<double>::epsilon();
    if (!box.isDefined()) return false;
    double enter = 0.0, leave = std::numeric_limits<double>::infinity();
    for (unsigned axis = 0; axis < 3; ++axis) {
        const double from = ray.getOrigin()[axis], along = ray.getDirection()[axis];
        const double low = box.getLLF()[axis], high = box.getURB()[axis];
        if (along == 0.0) {
            if (!(from >= low && from <= high)) return false;
            continue;
        }
        const double t1 = (low - from) / along, t2 = (high - from) / along;
        enter = std::max(enter, std::min(t1, t2) * (1.0 - slack));
        leave = std::min(leave, std::max(t1, t2) * (1.0 + slack));
    }
    return enter <= leave;
}

} // namespace NBX
