// Best first: the nearest box is opened until it is smaller than it is far, or has nothing within that is in
// memory: a picture does not wait for files. At any time no part of the terrain lies nearer than the nearest
// box.

#include "nearestground.h"

#include <cmath>
#include <queue>
#include <vector>

namespace ZMT::CORE {

namespace {

struct Candidate {
    NBX::SO<const GeometryPatch> patch;
    double distance2;
    bool operator<(const Candidate & other) const { return distance2 > other.distance2; }
};

bool isFine(const Candidate & candidate) {
    return candidate.patch->children() == 0 || !candidate.patch->childrenAreInMemory() ||
           candidate.patch->boundingBox().diagonal().length2() <= candidate.distance2;
}

} // namespace

double NearestGround::distance(const NBX::SO<const GeometryPatch> & top, const NBX::ViewInfo & view) {
    std::priority_queue<Candidate> nearest;
    const auto append = [&](const NBX::SO<const GeometryPatch> & patch) {
        if (!patch) return;
        const NBX::Bounds box = patch->boundingBox();
        if (view.cull(box) != -1) nearest.push({patch, view.distance2(box)});
    };
    append(top);
    for (unsigned opened = 0; !nearest.empty(); ++opened) {
        const Candidate first = nearest.top();
        if (opened >= mostOpened || isFine(first)) return std::sqrt(first.distance2);
        nearest.pop();
        for (unsigned i = 0; i < first.patch->children(); ++i)
            append(first.patch->child(i));
    }
    return 0.0;
}

} // namespace ZMT::CORE
