#include "chunkedlodterrainpatch.h"

#include "chunkedlodterrainimpl.h"
#include <zmt/core/terrain/geometry/regular/griddata.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(ChunkedLodTerrain::Patch, GeometryPatch)

namespace {

/// A patch this small has no vertex between its corners and its centre to be split at.
constexpr unsigned s_smallestSplit = 4;

} // namespace

ChunkedLodTerrain::Patch::Patch(const NBX::SO<ChunkedLodTerrain> & terrain, unsigned x, unsigned y,
                                unsigned size, unsigned short threshold, double wall)
    : GeometryPatch(terrain->calculateBoundingBox(x, y, size, threshold, wall),
                    static_cast<double>(terrain->heightScale()) * threshold, wall, nullptr),
      terrain_(terrain), x_(x), y_(y), size_(size), threshold_(threshold) {}

ChunkedLodTerrain::Patch::~Patch() = default;

NBX::SO<GeometryData> ChunkedLodTerrain::Patch::data() const {
    return terrain_->data();
}

bool ChunkedLodTerrain::Patch::isInsideX() const {
    return x_ + size_ / 2 < terrain_->impl()->sizeX();
}

bool ChunkedLodTerrain::Patch::isInsideY() const {
    return y_ + size_ / 2 < terrain_->impl()->sizeY();
}

unsigned ChunkedLodTerrain::Patch::children() const {
    if (size_ < s_smallestSplit) return 0;
    return (isInsideX() ? 2U : 1U) * (isInsideY() ? 2U : 1U);
}

NBX::SO<GeometryPatch> ChunkedLodTerrain::Patch::child(unsigned i) const {
    if (i < children() && GeometryPatch::children() < children()) {
        auto * self = const_cast<Patch *>(this);
        const unsigned half = size_ / 2;
        self->addChildAt(x_, y_);
        if (isInsideY()) self->addChildAt(x_, y_ + half);
        if (isInsideX() && isInsideY()) self->addChildAt(x_ + half, y_ + half);
        if (isInsideX()) self->addChildAt(x_ + half, y_);
    }
    return GeometryPatch::child(i);
}

void ChunkedLodTerrain::Patch::addChildAt(unsigned x, unsigned y) {
    addChild(new Patch(terrain_, x, y, size_ / 2 + 1, threshold_ / 2, wall()));
}

} // namespace ZMT::CORE
