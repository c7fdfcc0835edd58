// Y.-D. Liang, B. A. Barsky, "A New Concept and Method for Line Clipping", 1984.

#include "planwindow.h"

#include <algorithm>

namespace ZMT::CORE {

namespace {

/// Narrows [from, to] to where `start + share * growth` is at most `limit`.
bool narrow(double start, double growth, double limit, double & from, double & to) {
    const double room = limit - start;
    if (growth == 0.0) return room >= 0.0;
    const double share = room / growth;
    if (growth > 0.0)
        to = std::min(to, share);
    else
        from = std::max(from, share);
    return from <= to;
}

} // namespace

bool PlanWindow::clip(const PlanPoint & a, const PlanPoint & b, double & from, double & to) const {
    from = 0.0;
    to = 1.0;
    if (contains(a) && contains(b)) return true;
    const PlanPoint way = b - a;
    return narrow(a.x, way.x, halfX_, from, to) && narrow(-a.x, -way.x, halfX_, from, to) &&
           narrow(a.z, way.z, halfZ_, from, to) && narrow(-a.z, -way.z, halfZ_, from, to);
}

} // namespace ZMT::CORE
