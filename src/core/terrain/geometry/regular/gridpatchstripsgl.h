#pragma once

#include <vector>

#include <GL/gl.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/math/vector3base.h>
#include <nbx/scene/shape/shape.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>

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

/// Draws one row of cells as a triangle strip.
template <class Emit>
void drawGridPatchRowGL(const GridPatchRow & current, const GridPatchRow & next, const Emit & emit) {
    glBegin(GL_TRIANGLE_STRIP);
    for (unsigned i = 0; i < current.vertices.size(); ++i) {
        emit(current, i);
        emit(next, i);
    }
    glEnd();
}

/// The same for a row of a grid with cells of their own shapes that begins at cell `x0`, `y`: the strip is
/// open across plain cells only, and `engine` paints the others.
template <class Emit>
void drawShapedPatchRowGL(NBX::EngineGL & engine, const GridData & grid, unsigned x0, unsigned y,
                          const GridPatchRow & current, const GridPatchRow & next, const Emit & emit) {
    bool isOpen = false;
    const auto pair = [&](unsigned i) {
        emit(current, i);
        emit(next, i);
    };
    const auto close = [&isOpen] {
        if (isOpen) glEnd();
        isOpen = false;
    };
    for (unsigned i = 0; i + 1 < current.vertices.size(); ++i) {
        if (const NBX::SO<NBX::Shape> shape = grid.cellShape(x0 + i, y)) {
            close();
            engine.paint(shape.get());
            continue;
        }
        if (!isOpen) {
            glBegin(GL_TRIANGLE_STRIP);
            pair(i);
            isOpen = true;
        }
        pair(i + 1);
    }
    close();
}

/// Calls `drawRow(j, current, next)` for each row of cells of a patch.
template <class DrawRow> void forEachGridPatchRow(const GridPatch & patch, const DrawRow & drawRow) {
    GridPatchRow current, next;
    current.fill(patch, 0);
    for (unsigned j = 0; j < patch.domain().getHeight(); ++j) {
        next.fill(patch, j + 1);
        drawRow(j, current, next);
        std::swap(current, next);
    }
}

/// Draws the grid of a patch in immediate mode, clockwise as seen from above: a triangle strip a row of
/// cells. `emit(row, i)` issues vertex `i` of a row with what belongs to it.
template <class Emit> void drawGridPatchStripsGL(const GridPatch & patch, const Emit & emit) {
    forEachGridPatchRow(patch, [&](unsigned, const GridPatchRow & current, const GridPatchRow & next) {
        drawGridPatchRowGL(current, next, emit);
    });
}

/// The same with the cells that have shapes of their own, which `engine` paints.
template <class Emit>
void drawGridPatchSurfaceGL(NBX::EngineGL & engine, const GridPatch & patch, const Emit & emit) {
    const GridData & grid = *patch.grid();
    if (!grid.hasCellShapes()) return drawGridPatchStripsGL(patch, emit);
    const unsigned x0 = unsigned(patch.domain().getX()), y0 = unsigned(patch.domain().getY());
    forEachGridPatchRow(patch, [&](unsigned j, const GridPatchRow & current, const GridPatchRow & next) {
        drawShapedPatchRowGL(engine, grid, x0, y0 + j, current, next, emit);
    });
}

} // namespace ZMT::CORE
