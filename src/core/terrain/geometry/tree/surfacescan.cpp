#include "surfacescan.h"

#include <algorithm>
#include <cmath>

namespace ZMT::CORE {

/// The surface over a face, relative to its first corner.
struct SurfaceScan::Plane {
    using Point = MyTinPointAccessor::Point;

    Plane(const Point & p, const Point & q, const Point & r)
        : origin(p), x1(q.x - p.x), y1(q.y - p.y), rise1(q.z - p.z), x2(r.x - p.x), y2(r.y - p.y),
          rise2(r.z - p.z), area(x1 * y2 - y1 * x2) {}

    double height(double x, double y) const {
        return origin.z + (y2 * x - x2 * y) / area * rise1 + (x1 * y - y1 * x) / area * rise2;
    }

    Point origin;
    double x1, y1, rise1, x2, y2, rise2, area;
};

void SurfaceScan::scan(const Mesh & tin, const NBX::Area & domain) {
    domain_ = domain;
    maximum_ = 0.0;
    heights_.resize((std::size_t(domain.getWidth()) + 1) * (std::size_t(domain.getHeight()) + 1));
    corners_.clear();
    for (unsigned n = 0; n < tin.nodes(); ++n) {
        const unsigned number = tin.number(tin.node(n));
        corners_.push_back({number % grid_.sizeX(), number / grid_.sizeX()});
    }
    for (unsigned f = 0; f < tin.faces(); ++f)
        scanFace(tin, tin.face(f));
}

void SurfaceScan::scanFace(const Mesh & tin, TinFace f) {
    const TinNode nodes[3] = {tin.corner(f, 0), tin.corner(f, 1), tin.corner(f, 2)};
    const Corner a = corners_[nodes[0].index()], b = corners_[nodes[1].index()],
                 c = corners_[nodes[2].index()];
    const Plane plane(tin.position(nodes[0]), tin.position(nodes[1]), tin.position(nodes[2]));
    // Half a cell, as most faces are at full resolution: there are no vertices but the corners.
    if ((b.column - a.column) * (c.row - a.row) - (b.row - a.row) * (c.column - a.column) == 1) {
        for (unsigned k = 0; k < 3; ++k) {
            const auto & p = tin.position(nodes[k]);
            set(corners_[nodes[k].index()], plane.height(p.x - plane.origin.x, p.y - plane.origin.y), p.z);
        }
        return;
    }
    LatticeTriangle{{a, b, c}}.forEachRow([&](std::int64_t row, std::int64_t first, std::int64_t last) {
        scanRow(plane, static_cast<unsigned>(row), first, last);
    });
}

void SurfaceScan::scanRow(const Plane & plane, unsigned row, std::int64_t first, std::int64_t last) {
    if (first > last) return;
    const double y = scale_.z * row - plane.origin.y;
    float * target = heights_.data() + place(static_cast<unsigned>(first), row);
    double maximum = maximum_;
    for (std::int64_t column = first; column <= last; ++column) {
        const auto vertex = grid_.vertex(static_cast<unsigned>(column), row);
        const double height = plane.height(vertex.x - plane.origin.x, y);
        maximum = std::max(maximum, std::abs(height - vertex.y));
        *target++ = static_cast<float>(height);
    }
    maximum_ = maximum;
}

void SurfaceScan::set(const Corner & at, double height, double ground) {
    maximum_ = std::max(maximum_, std::abs(height - ground));
    heights_[place(static_cast<unsigned>(at.column), static_cast<unsigned>(at.row))] =
        static_cast<float>(height);
}

} // namespace ZMT::CORE
