#pragma once

#include <vector>

#include <GL/gl.h>

#include <nbx/math/vector3base.h>
#include <zmt/core/terrain/geometry/griddata.h>
#include <zmt/core/terrain/geometry/gridpatch.h>

namespace ZMT::CORE {

/// One row of vertices of a patch, with their normals.
struct GridPatchRow {
    using Point = NBX::Vector3Base<double>;

    /// `row` counts from the patch's own first row.
    void fill(const GridPatch & patch, unsigned row) {
        const GridData & grid = *patch.grid();
        const NBX::Area & domain = patch.domain();
        const unsigned y = unsigned(domain.getY()) + row, x0 = unsigned(domain.getX());
        vertices.clear();
        normals.clear();
        for (unsigned x = x0; x <= x0 + domain.getWidth(); ++x) {
            vertices.push_back(grid.vertex(x, y));
            normals.push_back(grid.normal(x, y));
        }
    }

    std::vector<Point> vertices, normals;
};

/// Draws the surface of a patch as one triangle strip a row of cells, in immediate mode, clockwise as seen
/// from above. `emit(row, i)` issues vertex `i` of a row with what belongs to it.
template <class Emit> void drawGridPatchStripsGL(const GridPatch & patch, const Emit & emit) {
    const unsigned w = patch.domain().getWidth(), h = patch.domain().getHeight();
    GridPatchRow current, next;
    current.fill(patch, 0);
    for (unsigned j = 0; j < h; ++j) {
        next.fill(patch, j + 1);
        glBegin(GL_TRIANGLE_STRIP);
        for (unsigned i = 0; i <= w; ++i) {
            emit(current, i);
            emit(next, i);
        }
        glEnd();
        std::swap(current, next);
    }
}

} // namespace ZMT::CORE
