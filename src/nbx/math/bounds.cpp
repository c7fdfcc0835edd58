#include <nbx/math/bounds.h>

#include <algorithm>

#include <nbx/object/serializationmanager.h>

namespace NBX {

namespace {

Vector3Base<double> minimum(const Vector3Base<double> & a, const Vector3Base<double> & b) {
    return {std::min(a.x, b.x), std::min(a.y, b.y), std::min(a.z, b.z)};
}

Vector3Base<double> maximum(const Vector3Base<double> & a, const Vector3Base<double> & b) {
    return {std::max(a.x, b.x), std::max(a.y, b.y), std::max(a.z, b.z)};
}

} // namespace

Bounds::Bounds(const Vector3Base<double> & a, const Vector3Base<double> & b)
    : llf_(minimum(a, b)), urb_(maximum(a, b)) {}

Vector3Base<double> Bounds::point(double u, double v, double w) const {
    const Vector3Base<double> d = diagonal();
    return {llf_.x + u * d.x, llf_.y + v * d.y, llf_.z + w * d.z};
}

Bounds Bounds::expand(double margin) const {
    if (!isDefined()) return *this;
    const Vector3Base<double> m(margin, margin, margin);
    return {llf_ - m, urb_ + m};
}

Bounds Bounds::intersection(const Bounds & other) const {
    if (!intersects(other)) return {};
    return {maximum(llf_, other.llf_), minimum(urb_, other.urb_)};
}

bool Bounds::intersects(const Bounds & other) const {
    return isDefined() && other.isDefined() && llf_.x <= other.urb_.x && other.llf_.x <= urb_.x &&
           llf_.y <= other.urb_.y && other.llf_.y <= urb_.y && llf_.z <= other.urb_.z &&
           other.llf_.z <= urb_.z;
}

bool Bounds::containsPoint(const Vector3Base<double> & p) const {
    return containsPointInPlane(p, 0, 1) && llf_.z <= p.z && p.z <= urb_.z;
}

bool Bounds::containsPointInPlane(const Vector3Base<double> & p, unsigned a, unsigned b) const {
    return isDefined() && llf_[a] <= p[a] && p[a] <= urb_[a] && llf_[b] <= p[b] && p[b] <= urb_[b];
}

Vector3Base<double> Bounds::nearestPoint(const Vector3Base<double> & p) const {
    return minimum(maximum(p, llf_), urb_);
}

Bounds Bounds::transform(const Matrix4x4Base<double> & m) const {
    Bounds result;
    if (!isDefined()) return result;
    for (unsigned corner = 0; corner < 8; ++corner)
        result += m * Vector3Base<double>(corner & 1 ? urb_.x : llf_.x, corner & 2 ? urb_.y : llf_.y,
                                          corner & 4 ? urb_.z : llf_.z);
    return result;
}

Bounds & Bounds::operator+=(const Vector3Base<double> & p) {
    llf_ = minimum(llf_, p);
    urb_ = maximum(urb_, p);
    return *this;
}

Bounds & Bounds::operator+=(const Bounds & other) {
    if (!other.isDefined()) return *this;
    *this += other.llf_;
    return *this += other.urb_;
}

bool Bounds::operator==(const Bounds & other) const {
    return llf_ == other.llf_ && urb_ == other.urb_;
}

void Bounds::serialize(SerializationManager & m) {
    bool defined = isDefined();
    m.attribute("defined", defined);
    m.attribute("llf", llf_);
    m.attribute("urb", urb_);
    if (m.isReading()) *this = defined ? Bounds(llf_, urb_) : Bounds();
}

} // namespace NBX
