#include <zmt/core/terrain/geometry/regular/gridpatch.h>

#include <algorithm>
#include <utility>

#include "griddomain.h"
#include <zmt/core/terrain/geometry/base/stripmesh.h>

namespace ZMT::CORE {

namespace {

/// Calls `visit(corners)` with the vertex numbers of each cell of a domain that has a shape of its own.
template <class Visit>
void forEachShape(const GridData & grid, const NBX::Area & domain, const Visit & visit) {
    if (!grid.hasCellShapes()) return;
    const auto x0 = static_cast<unsigned>(domain.getX()), y0 = static_cast<unsigned>(domain.getY());
    for (unsigned y = y0; y < y0 + domain.getHeight(); ++y)
        for (unsigned x = x0; x < x0 + domain.getWidth(); ++x)
            if (const std::vector<unsigned> corners = grid.cellCorners(x, y); !corners.empty())
                visit(corners);
}

/// The vertices of the shapes in a domain that are none of the grid, ascending.
std::vector<unsigned> shapeVertices(const GridData & grid, const NBX::Area & domain) {
    std::vector<unsigned> numbers;
    forEachShape(grid, domain, [&](const std::vector<unsigned> & corners) {
        std::copy_if(corners.begin(), corners.end(), std::back_inserter(numbers),
                     [end = grid.sizeX() * grid.sizeY()](unsigned number) { return number >= end; });
    });
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    return numbers;
}

} // namespace

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

GridPatch::Description GridPatch::description() const {
    const std::uint64_t width = domain_.getWidth(), height = domain_.getHeight();
    Description result{"grid", domain_, (width + 1) * (height + 1), 2 * width * height};
    if (!liesOnItsGrid(*this) || !grid_->hasCellShapes()) return result;
    result.vertices += shapeVertices(*grid_, domain_).size();
    forEachShape(*grid_, domain_, [&result](const std::vector<unsigned> & corners) {
        result.triangles += corners.size() / 3 - 2;
    });
    return result;
}

StripMesh GridPatch::surface(const NBX::Vector3Base<double> & zero) const {
    StripMesh mesh;
    if (!liesOnItsGrid(*this)) return mesh;
    const auto x0 = static_cast<unsigned>(domain_.getX()), y0 = static_cast<unsigned>(domain_.getY());
    const unsigned width = domain_.getWidth(), height = domain_.getHeight();
    const auto shift = grid_->origin() - zero;
    mesh.vertices.reserve(std::size_t(width + 1) * (height + 1));
    for (unsigned y = y0; y <= y0 + height; ++y)
        for (unsigned x = x0; x <= x0 + width; ++x)
            mesh.vertices.push_back(grid_->vertex(x, y) + shift);
    if (!grid_->hasCellShapes()) {
        mesh.appendLattice(width, height);
        return mesh;
    }
    mesh.appendLattice(width, height, [&](unsigned column, unsigned row, unsigned) {
        return grid_->cellCorners(x0 + column, y0 + row).empty();
    });
    appendShapes(mesh, shift);
    return mesh;
}

/// A strip for each triangle, which turn counter-clockwise.
void GridPatch::appendShapes(StripMesh & mesh, const NBX::Vector3Base<double> & shift) const {
    const std::vector<unsigned> others = shapeVertices(*grid_, domain_);
    const auto firstOther = static_cast<unsigned>(mesh.vertices.size());
    for (const unsigned number : others)
        mesh.vertices.push_back(grid_->vertex(number) + shift);
    const auto local = [&](unsigned number) {
        const unsigned sizeX = grid_->sizeX();
        if (number >= sizeX * grid_->sizeY())
            return firstOther + static_cast<unsigned>(std::lower_bound(others.begin(), others.end(), number) -
                                                      others.begin());
        const unsigned column = number % sizeX - static_cast<unsigned>(domain_.getX());
        const unsigned row = number / sizeX - static_cast<unsigned>(domain_.getY());
        return column + row * (domain_.getWidth() + 1);
    };
    forEachShape(*grid_, domain_, [&](const std::vector<unsigned> & corners) {
        for (std::size_t i = 0; i + 2 < corners.size(); i += 3) {
            for (const std::size_t k : {i + 1, i, i + 2})
                mesh.strips.indices.push_back(local(corners[k]));
            mesh.strips.endStrip();
        }
    });
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
