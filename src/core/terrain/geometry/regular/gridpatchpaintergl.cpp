#include <zmt/core/terrain/geometry/regular/gridpatchpaintergl.h>

#include "griddomain.h"
#include "gridpatchstripsgl.h"

#include <nbx/gl/context/enginegl.h>

namespace ZMT::CORE {

namespace {

using Point = NBX::Vector3Base<double>;

/// One side of a patch, walked so that a curtain below it faces outwards.
struct Side {
    unsigned x, y; ///< first vertex
    int dx, dy;    ///< step
    unsigned cells;
    bool isOuter; ///< on the outer edge of the grid
};

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
    glBegin(GL_TRIANGLE_STRIP);
    for (unsigned i = 0; i <= side.cells; ++i) {
        const auto x = static_cast<unsigned>(static_cast<int>(side.x) + side.dx * static_cast<int>(i));
        const auto y = static_cast<unsigned>(static_cast<int>(side.y) + side.dy * static_cast<int>(i));
        const Point top = grid.vertex(x, y);
        if (withNormals) {
            const Point normal = grid.normal(x, y);
            glNormal3d(normal.x, normal.y, normal.z);
        }
        glVertex3d(top.x, top.y, top.z);
        glVertex3d(top.x, patch.wall(), top.z);
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
