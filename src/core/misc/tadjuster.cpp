#include <zmt/core/misc/tadjuster.h>

#include <algorithm>
#include <limits>

#include <nbx/engine/modelmatrixscope.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>

namespace ZMT::CORE {

namespace {

using Matrix = NBX::Matrix4x4Base<double>;
using Vector = NBX::Vector3Base<double>;

double axisScale(double target, double content) {
    return content > 0.0 ? target / content : std::numeric_limits<double>::max();
}

Vector fittingScale(const Vector & target, const Vector & content, bool keepAspect) {
    Vector scale(axisScale(target.x, content.x), axisScale(target.y, content.y),
                 axisScale(target.z, content.z));
    const double smallest = std::min({scale.x, scale.y, scale.z});
    if (keepAspect) scale.x = scale.z = smallest;
    scale.y = smallest;
    return scale;
}

Matrix fit(const NBX::Bounds & content, const NBX::Bounds & target, bool keepAspect) {
    return Matrix::translation(target.center()) *
           Matrix::scaling(fittingScale(target.diagonal(), content.diagonal(), keepAspect)) *
           Matrix::translation(-content.center());
}

} // namespace

TAdjuster::TAdjuster() = default;

TAdjuster::TAdjuster(NBX::SceneThing * parent, NBX::Box * volume, bool keepAspect, bool dynamic)
    : NBX::SceneThing(parent), volume_(volume), keepAspect_(keepAspect), dynamic_(dynamic) {
    NBX_CHECK(volume_, L"no volume");
}

void TAdjuster::setVolume(NBX::Box * volume) {
    NBX_CHECK(volume, L"no target box");
    if (volume_ == volume) return;
    volume_ = volume;
    modified();
}

void TAdjuster::setKeepAspect(bool keepAspect) {
    if (keepAspect_ == keepAspect) return;
    keepAspect_ = keepAspect;
    modified();
}

void TAdjuster::setDynamics(bool dynamic) {
    if (dynamic_ == dynamic) return;
    dynamic_ = dynamic;
    modified();
}

void TAdjuster::modified() {
    NBX::SceneThing::modified();
    valid_ = false;
}

void TAdjuster::update(NBX::Engine * engine) {
    NBX_CHECK(engine, L"no engine");
    const NBX::Bounds content = NBX::SceneThing::boundingBox(engine);
    matrix_ = Matrix();
    bounds_ = NBX::Bounds();
    // Content may yet come, and nothing tells this node.
    if (!content.isDefined()) return;
    const NBX::Bounds target = volume_ ? volume_->boundingBox() : NBX::Bounds();
    if (target.isDefined()) matrix_ = fit(content, target, keepAspect_);
    bounds_ = content.transform(matrix_);
    valid_ = true;
}

void TAdjuster::evaluate(NBX::Engine * engine) {
    if (!renders()) return;
    if (needsUpdate()) update(engine);
    if (!engine) return;
    const NBX::ModelMatrixScope pushed(engine, matrix_);
    NBX::SceneThing::evaluate(engine);
}

NBX::Bounds TAdjuster::boundingBox(NBX::Engine * engine) {
    if (needsUpdate())
        update(engine);
    else
        NBX_CHECK(engine, L"no engine");
    return bounds_;
}

void TAdjuster::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<NBX::SceneThing>(m, this);
    m.attribute("volume", volume_);
    NBX::attributeWithDefault(m, "keepAspect", keepAspect_, true);
    NBX::attributeWithDefault(m, "dynamic", dynamic_, false);
    if (m.isReading()) valid_ = false;
}

NBX_STORED_CLASS_IMPL(TAdjuster, NBX::SceneThing)

} // namespace ZMT::CORE
