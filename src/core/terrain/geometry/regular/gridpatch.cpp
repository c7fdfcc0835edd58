#include <zmt/core/terrain/geometry/regular/gridpatch.h>

#include "griddomain.h"

namespace ZMT::CORE {

GridPatch::GridPatch() = default;

GridPatch::GridPatch(const NBX::SO<GridData> & grid, const NBX::Area & domain, const NBX::Bounds & bbox,
                     double approxError, double wall, const NBX::SO<Children> & children)
    : GeometryPatch(bbox, approxError, wall, children), grid_(grid), domain_(domain) {
    NBX_CHECK(grid, L"no grid");
    if (grid) checkDomain(grid.get(), domain);
}

GridPatch::~GridPatch() = default;

NBX::SO<GeometryData> GridPatch::data() const {
    return grid_;
}

void GridPatch::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<GeometryPatch>(m, this);
    m.attribute("grid", grid_);

    int x = domain_.getX(), y = domain_.getY();
    unsigned width = domain_.getWidth(), height = domain_.getHeight();
    if (m.beginContainer("Area", "domain")) {
        m.attribute("x", x);
        m.attribute("y", y);
        m.attribute("width", width);
        m.attribute("height", height);
        m.endContainer("Area", "domain");
    }
    if (!m.isReading()) return;
    domain_ = NBX::Area(x, y, width, height);
    if (!liesOnItsGrid(*this)) throw NBX::IOError(L"stored grid patch does not lie on its grid");
}

NBX_STORED_CLASS_IMPL(GridPatch, GeometryPatch)

} // namespace ZMT::CORE
