// Culling by the planes of the view volume: U. Assarsson, T. Möller, "Optimized View Frustum Culling
// Algorithms for Bounding Boxes", 2000, with the planes read off the matrix as in G. Gribb, K. Hartmann,
// "Fast Extraction of Viewing Frustum Planes from the World-View-Projection Matrix", 2001. We add the test of
// the volume's own box, which drops the large boxes that lie outside although no single plane shows it.

#include <nbx/scene/view/viewinfo.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace NBX {

namespace {

/// Share of the summed terms that rounding may add to a plane's distance.
constexpr double roundingShare = 16.0 * std::numeric_limits<double>::epsilon();
/// Far over near distance up to which the corners of the view volume are known well enough to test with.
constexpr double largestDepthRatio = 1e9;

struct Reach {
    bool beyond; ///< some point may lie on the inner side of the plane
    bool within; ///< all points surely do
};

Reach reachOver(const Vector3Base<double> & normal, double offset, const Vector3Base<double> & llf,
                const Vector3Base<double> & urb) {
    double farthest = offset, nearest = offset;
    double farTerms = std::abs(offset), nearTerms = std::abs(offset);
    for (unsigned axis = 0; axis < 3; ++axis) {
        const double low = normal[axis] * llf[axis], high = normal[axis] * urb[axis];
        const bool ascends = normal[axis] >= 0.0;
        farthest += ascends ? high : low;
        nearest += ascends ? low : high;
        farTerms += std::abs(ascends ? high : low);
        nearTerms += std::abs(ascends ? low : high);
    }
    // Written so that a not-a-number, from infinite boxes, counts as touching.
    return {!(farthest < -roundingShare * farTerms), nearest > roundingShare * nearTerms};
}

} // namespace

NBX_CLASS_IMPL(ViewInfo, SharedObj)

ViewInfo::ViewInfo(const Matrix4x4Base<double> & modelView, const Matrix4x4Base<double> & projection,
                   const Area & viewport)
    : modelView_(modelView), projection_(projection), inverseModelView_(modelView.inverse()),
      inverseProjection_(projection.inverse()), viewport_(viewport) {
    findEye();
    findPlanes();
    findVolumeBox();
}

void ViewInfo::findEye() {
    const Vector3Base<double> forward = inverseModelView_.transformDirection({0.0, 0.0, -1.0});
    position_ = inverseModelView_ * Vector3Base<double>();
    direction_ = forward.normalized();
    nearView_ = -(inverseProjection_ * Vector3Base<double>(0.0, 0.0, -1.0)).z;
    near_ = nearView_ * forward.length();
}

void ViewInfo::findPlanes() {
    const Matrix4x4Base<double> m = projection_ * modelView_;
    for (unsigned i = 0; i < 6; ++i) {
        const unsigned row = i / 2;
        const double sign = i % 2 == 0 ? 1.0 : -1.0;
        planes_[i].normal = {m(3, 0) + sign * m(row, 0), m(3, 1) + sign * m(row, 1),
                             m(3, 2) + sign * m(row, 2)};
        planes_[i].offset = m(3, 3) + sign * m(row, 3);
    }
}

void ViewInfo::findVolumeBox() {
    Bounds box;
    double least = std::numeric_limits<double>::infinity(), most = 0.0;
    for (unsigned i = 0; i < 8; ++i) {
        const Vector3Base<double> corner(i & 1 ? 1.0 : -1.0, i & 2 ? 1.0 : -1.0, i & 4 ? 1.0 : -1.0);
        const Matrix4x4Base<double> & p = inverseProjection_;
        const double w = p(3, 0) * corner.x + p(3, 1) * corner.y + p(3, 2) * corner.z + p(3, 3);
        if (!(w > 0.0)) return;
        least = std::min(least, w);
        most = std::max(most, w);
        box += inverseModelView_ * (p * corner);
    }
    const double ratio = most / least;
    const double size = box.diagonal().length() + box.center().length();
    if (!(ratio < largestDepthRatio) || !std::isfinite(size)) return;
    volumeBox_ = box.expand(size * ratio * roundingShare);
}

double ViewInfo::screenDistance2(const Vector3Base<double> & a, const Vector3Base<double> & b) const {
    const auto project = [this](const Vector3Base<double> & point) {
        Vector3Base<double> p = modelView_ * point;
        p.z = std::min(p.z, -nearView_);
        return projection_ * p;
    };
    const Vector3Base<double> d = project(a) - project(b);
    const double x = d.x * 0.5 * viewport_.getWidth(), y = d.y * 0.5 * viewport_.getHeight();
    return x * x + y * y;
}

double ViewInfo::distance2(const Bounds & box) const {
    return (box.nearestPoint(position_) - position_).length2();
}

bool ViewInfo::missesVolumeBox(const Bounds & box) const {
    return volumeBox_.isDefined() && !volumeBox_.intersects(box);
}

int ViewInfo::cull(const Bounds & box) const {
    if (!box.isDefined()) return -1;
    bool inside = true;
    for (const Plane & plane : planes_) {
        const Reach reach = reachOver(plane.normal, plane.offset, box.getLLF(), box.getURB());
        if (!reach.beyond) return -1;
        inside = inside && reach.within;
    }
    if (inside) return 1;
    return missesVolumeBox(box) ? -1 : 0;
}

} // namespace NBX
