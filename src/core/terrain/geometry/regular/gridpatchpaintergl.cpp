#include <zmt/core/terrain/geometry/regular/gridpatchpaintergl.h>

#include "griddomain.h"
#include "gridpatchstripsgl.h"

#include <algorithm>
#include <cmath>

#include <nbx/gl/context/enginegl.h>

namespace ZMT::CORE {

namespace {

using Point = NBX::Vector3Base<double>;

/// How far from a side, in cells, a vertex may lie by rounding.
constexpr double s_onSide = 1e-6;

/// One side of a patch, walked so that a curtain below it faces outwards.
struct Side {
    unsigned x, y; ///< first vertex
    int dx, dy;    ///< step
    unsigned cells;
    bool isOuter; ///< on the outer edge of the grid

    unsigned column(unsigned i) const { return unsigned(int(x) + dx * int(i)); }
    unsigned row(unsigned i) const { return unsigned(int(y) + dy * int(i)); }
};

/// What a cell with a shape of its own adds to a side, in the order of the walk: the vertices between `i` and
/// the next that are not on the grid.
std::vector<Point> shapedTops(const GridData & grid, const Side & side, unsigned i) {
    // A patch lies to the right of its sides.
    const unsigned x = std::min(side.column(i), side.column(i + 1)) - unsigned(side.dy < 0);
    const unsigned y = std::min(side.row(i), side.row(i + 1)) - unsigned(side.dx > 0);
    const Point first = grid.vertex(side.column(i), side.row(i)), scale = grid.scale();
    const auto along = [&](const Point & p) {
        return side.dx * (p.x - first.x) / scale.x + side.dy * (p.z - first.z) / scale.z;
    };
    const auto across = [&](const Point & p) {
        return std::abs(side.dy * (p.x - first.x) / scale.x) + std::abs(side.dx * (p.z - first.z) / scale.z);
    };
    std::vector<Point> tops;
    for (const unsigned corner : grid.cellCorners(x, y)) {
        const Point p = grid.vertex(corner);
        if (corner >= grid.sizeX() * grid.sizeY() && across(p) < s_onSide) tops.push_back(p);
    }
    std::sort(tops.begin(), tops.end(),
              [&](const Point & a, const Point & b) { return along(a) < along(b); });
    tops.erase(std::unique(tops.begin(), tops.end()), tops.end());
    return tops;
}

std::vector<Side> sidesOf(const GridPatch & patch) {
    const unsigned x = unsigned(patch.domain().getX()), y = unsigned(patch.domain().getY());
    const unsigned w = patch.domain().getWidth(), h = patch.domain().getHeight();
    const GridData & grid = *patch.grid();
    return {{x, y, 0, 1, h, x == 0},
            {x + w, y, -1, 0, w, y == 0},
            {x + w, y + h, 0, -1, h, x + w == grid.sizeX() - 1},
            {x, y + h, 1, 0, w, y + h == grid.sizeY() - 1}};
}

void drawCurtain(const GridPatch & patch, const Side & side, bool withNormals) {
    const GridData & grid = *patch.grid();
    const auto hang = [&patch](const Point & top) {
        glVertex3d(top.x, top.y, top.z);
        glVertex3d(top.x, patch.wall(), top.z);
    };
    glBegin(GL_TRIANGLE_STRIP);
    for (unsigned i = 0; i <= side.cells; ++i) {
        if (withNormals) {
            const Point normal = grid.normal(side.column(i), side.row(i));
            glNormal3d(normal.x, normal.y, normal.z);
        }
        hang(grid.vertex(side.column(i), side.row(i)));
        if (i == side.cells || !grid.hasCellShapes()) continue;
        for (const Point & top : shapedTops(grid, side, i))
            hang(top);
    }
    glEnd();
}

} // namespace

NBX_CLASS_IMPL(GridPatchPainterGL, GeometryPatchPainterGL)

NBX::ID GridPatchPainterGL::target() const {
    return GridPatch::ClassNameNBX();
}

void GridPatchPainterGL::renderPatch(NBX::EngineGL * engine, const GeometryPatch * patch) {
    NBX_CHECK(engine, L"no engine");
    const auto & gridPatch = static_cast<const GridPatch &>(*patch);
    if (!engine || !liesOnItsGrid(gridPatch)) return;
    // Other patches have no normals, and must not get those of this one.
    glPushAttrib(GL_CURRENT_BIT);
    drawGridPatchSurfaceGL(*engine, gridPatch, [](const GridPatchRow & row, unsigned i) {
        glNormal3dv(&row.normals[i].x);
        glVertex3dv(&row.vertices[i].x);
    });
    for (const Side & side : sidesOf(gridPatch))
        if (!side.isOuter) drawCurtain(gridPatch, side, true);
    glPopAttrib();
}

unsigned GridPatchPainterGL::displayListBytes(const GeometryPatch * patch) const {
    const NBX::Area & domain = static_cast<const GridPatch &>(*patch).domain();
    const unsigned width = domain.getWidth(), height = domain.getHeight();
    // Strips and skirts have two vertices a column, each with a normal.
    constexpr unsigned vertexBytes = 24;
    return 2 * vertexBytes * ((width + 1) * height + 2 * (width + height));
}

void GridPatchPainterGL::renderOuterWall(NBX::EngineGL * engine, const GeometryPatch * patch) {
    NBX_CHECK(engine, L"no engine");
    const auto & gridPatch = static_cast<const GridPatch &>(*patch);
    if (!engine || !liesOnItsGrid(gridPatch)) return;
    for (const Side & side : sidesOf(gridPatch))
        if (side.isOuter) drawCurtain(gridPatch, side, false);
}

NBX_REGISTER_HANDLER_GL(GridPatchPainterGL)

} // namespace ZMT::CORE
