#include <zmt/core/terrain/inspect/patchmesh.h>

#include <utility>

#include <zmt/core/terrain/frame/localframe.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>
#include <zmt/core/terrain/geometry/tree/tinpatch.h>

namespace ZMT::CORE {

namespace {

/// The vertex number, in the data, of the first entry of a border.
unsigned cornerNumber(const TinPatch & tin, TinPatch::Border border) {
    const auto list = tin.borderIndices(border);
    return list ? tin.vertexIndices()->get(list->get(0)) : 0;
}

void visitStrip(const unsigned short * strip, unsigned size,
                const std::function<void(unsigned, unsigned, unsigned)> & visit) {
    // A triangulation turns counter-clockwise.
    for (unsigned i = 0; i + 2 < size; ++i) {
        unsigned b = strip[i + 1], c = strip[i];
        if (i % 2 == 1) std::swap(b, c);
        visit(b, c, strip[i + 2]);
    }
}

} // namespace

PatchMesh::PatchMesh(const GeometryPatch & patch)
    : grid_(dynamic_cast<const GridPatch *>(&patch)), tin_(dynamic_cast<const TinPatch *>(&patch)) {}

NBX::Area PatchMesh::domain() const {
    if (grid_) return grid_->domain();
    const auto data = tin_ ? NBX::soCast<GridData>(tin_->data()) : nullptr;
    if (!data || data->sizeX() == 0) return {};
    const unsigned low = cornerNumber(*tin_, TinPatch::B_LowX), high = cornerNumber(*tin_, TinPatch::B_HighX);
    const unsigned x = low % data->sizeX(), y = low / data->sizeX();
    return {int(x), int(y), high % data->sizeX() - x, high / data->sizeX() - y};
}

unsigned PatchMesh::vertices() const {
    if (grid_) return (grid_->domain().getWidth() + 1) * (grid_->domain().getHeight() + 1);
    return tin_ && tin_->vertexIndices() ? tin_->vertexIndices()->size() : 0;
}

unsigned PatchMesh::triangles() const {
    if (grid_) return 2 * grid_->domain().getWidth() * grid_->domain().getHeight();
    if (!tin_ || !tin_->stripIndices()) return 0;
    return tin_->stripIndices()->size() - 2 * tin_->stripRanges()->size();
}

NBX::Vector3Base<double> PatchMesh::geoPosition(unsigned v) const {
    if (grid_) {
        const GridData & data = *grid_->grid();
        const unsigned columns = grid_->domain().getWidth() + 1;
        return LocalFrame(data.origin())
            .toGeo(data.vertex(unsigned(grid_->domain().getX()) + v % columns,
                               unsigned(grid_->domain().getY()) + v / columns));
    }
    const NBX::SO<GeometryData> data = tin_->data();
    return LocalFrame(data->origin()).toGeo(data->vertex(tin_->vertexIndices()->get(v)));
}

void PatchMesh::forEachTriangle(const std::function<void(unsigned, unsigned, unsigned)> & visit) const {
    if (grid_) {
        const unsigned w = grid_->domain().getWidth(), h = grid_->domain().getHeight();
        for (unsigned j = 0; j < h; ++j)
            for (unsigned i = 0; i < w; ++i) {
                const unsigned a = i + j * (w + 1), c = a + w + 1;
                visit(a, c, a + 1);
                visit(c, c + 1, a + 1);
            }
        return;
    }
    if (!tin_ || !tin_->stripIndices()) return;
    const auto strips = tin_->stripIndices();
    const auto ranges = tin_->stripRanges();
    unsigned begin = 0;
    for (unsigned i = 0; i < ranges->size(); ++i) {
        const unsigned end = ranges->get(i);
        visitStrip(strips->pointer() + begin, end - begin, visit);
        begin = end;
    }
}

} // namespace ZMT::CORE
