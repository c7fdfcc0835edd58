#include <zmt/core/terrain/geometry/regular/gridpatchsimplifier.h>

#include "griddomain.h"

#include <limits>

#include <nbx/container/sequence/array.h>
#include <nbx/engine/engine.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>

namespace ZMT::CORE {

namespace {

using Points = NBX::Array<NBX::Vector3Base<double>>;

constexpr unsigned s_verticesPerCell = 6;

bool fitsIntoOneSet(const NBX::Area & domain) {
    return std::uint64_t(domain.getWidth()) * domain.getHeight() <=
           std::numeric_limits<unsigned>::max() / s_verticesPerCell;
}

void appendCell(const GridData & grid, unsigned x, unsigned y, Points & vertices, Points & normals) {
    for (const auto & triangle : cellTriangles)
        for (const CellCorner & corner : triangle) {
            vertices.append(grid.vertex(x + corner.x, y + corner.y));
            normals.append(grid.normal(x + corner.x, y + corner.y));
        }
}

/// Paints the cells that have shapes of their own, and appends the others.
void simplifyCells(NBX::Engine * engine, const GridPatch & patch, Points & vertices, Points & normals) {
    const GridData & grid = *patch.grid();
    const bool hasShapes = grid.hasCellShapes();
    const NBX::Area & domain = patch.domain();
    const auto x0 = unsigned(domain.getX()), y0 = unsigned(domain.getY());
    for (unsigned y = y0; y < y0 + domain.getHeight(); ++y)
        for (unsigned x = x0; x < x0 + domain.getWidth(); ++x) {
            if (const NBX::SO<NBX::Shape> shape = hasShapes ? grid.cellShape(x, y) : nullptr)
                engine->paint(shape.get());
            else
                appendCell(grid, x, y, vertices, normals);
        }
}

} // namespace

NBX_CLASS_IMPL(GridPatchSimplifier, NBX::ShapeSimplifier)

NBX::ID GridPatchSimplifier::target() const {
    return GridPatch::ClassNameNBX();
}

bool GridPatchSimplifier::simplify(NBX::Engine * E, const NBX::Shape * shape) {
    NBX_CHECK(E, L"no engine");
    const auto * patch = dynamic_cast<const GridPatch *>(shape);
    if (!E || !patch || !liesOnItsGrid(*patch)) return false;
    if (!fitsIntoOneSet(patch->domain())) {
        NBX_FAILURE(L"patch has too many cells for one polygon set");
        return false;
    }
    const NBX::SO<Points> vertices(new Points), normals(new Points);
    simplifyCells(E, *patch, *vertices, *normals);
    const NBX::SO<NBX::PolygonSet> set(new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles, vertices));
    set->setNormalIterator(normals);
    E->paint(set.get());
    return true;
}

NBX_REGISTER_HANDLER(GridPatchSimplifier)

} // namespace ZMT::CORE
