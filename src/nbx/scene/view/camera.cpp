#include <nbx/scene/view/camera.h>

#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/perspective.h>
#include <nbx/scene/view/pixelprojection.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(Camera, MonoAttribute)

Camera::Camera() : MonoAttribute(true), eye_(new LookAt()), projection_(new Perspective()) {}

Camera::Camera(LookAt * eye, Projection * projection, Scope scope, SizePolicy policy)
    : MonoAttribute(true), scope_(scope), policy_(policy) {
    setLookAt(eye);
    setProjection(projection);
}

namespace {

/// Looks along z from the origin, with x to the right and y upwards: what it sees lies at its z.
SO<LookAt> newEyeAtOrigin() {
    return new LookAt({}, {0.0, 0.0, 1.0});
}

} // namespace

SO<Camera> Camera::newPixelCoordsCamera(double near, double far) {
    const SO<LookAt> eye = newEyeAtOrigin();
    const SO<Projection> projection(new PixelProjection(near, far));
    return new Camera(eye.get(), projection.get());
}

SO<Camera> Camera::newNormalizedDeviceCoordsCamera(double left, double right, double bottom, double top,
                                                   double near, double far) {
    const SO<LookAt> eye = newEyeAtOrigin();
    const SO<Projection> projection(new Ortho(left, right, bottom, top, near, far));
    return new Camera(eye.get(), projection.get());
}

void Camera::setLookAt(LookAt * eye) {
    NBX_CHECK(eye, L"no eye");
    eye_ = eye ? eye : new LookAt();
    modified();
}

void Camera::setProjection(Projection * projection) {
    NBX_CHECK(projection, L"no projection");
    projection_ = projection ? projection : new Perspective();
    modified();
}

Matrix4x4Base<double> Camera::projectionMatrix(unsigned width, unsigned height) const {
    const bool fills = policy_ == SP_Fill && width > 0 && height > 0;
    return fills ? projection_->matrixInViewport(width, height) : projection_->matrix(1.0);
}

Ray Camera::rayThrough(double x, double y, unsigned width, unsigned height) const {
    // One after the other, as the product would lose digits in scenes far from the origin.
    const Matrix4x4Base<double> toView = projectionMatrix(width, height).inverse();
    const Matrix4x4Base<double> toScene = viewMatrix().inverse();
    const auto inScene = [&](double depth) {
        return toScene * (toView * Vector3Base<double>(2.0 * x / width - 1.0, 2.0 * y / height - 1.0, depth));
    };
    const Vector3Base<double> near = inScene(-1.0);
    return Ray(near, inScene(1.0) - near);
}

void Camera::acceptChildren(std::vector<Visitable *> & children) const {
    MonoAttribute::acceptChildren(children);
    children.insert(children.end(), {eye_.get(), projection_.get()});
}

void Camera::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<MonoAttribute>(m, this);
    int scope = scope_, policy = policy_;
    m.attribute("lookAt", eye_);
    m.attribute("projection", projection_);
    attributeWithDefault(m, "scope", scope, static_cast<int>(S_Local));
    attributeWithDefault(m, "sizePolicy", policy, static_cast<int>(SP_Fill));
    if (!m.isReading()) return;
    if (!eye_) eye_ = new LookAt();
    if (!projection_) projection_ = new Perspective();
    scope_ = scope == S_Global ? S_Global : S_Local;
    policy_ = policy == SP_KeepAspect ? SP_KeepAspect : SP_Fill;
}

} // namespace NBX
