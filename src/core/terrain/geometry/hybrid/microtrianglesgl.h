#pragma once

#include <utility>

#include <GL/gl.h>

#include <nbx/math/vector3base.h>
#include <zmt/core/terrain/geometry/hybrid/microtrianglesdata.h>

namespace ZMT::CORE {

/// Draws the triangles of a cell one by one, in immediate mode, clockwise as seen from above.
/// `emitNormal(normal)` issues what belongs to the vertices behind it: once for a triangle without corners
/// on the grid, else for each corner.
template <class EmitNormal>
void drawMicroTrianglesGL(const MicroTrianglesData & micro, const EmitNormal & emitNormal) {
    using Point = NBX::Vector3Base<double>;
    for (unsigned first = 0; first + 2 < micro.vertices(); first += 3) {
        unsigned corners[3] = {first, first + 1, first + 2};
        const Point a = micro.vertex(corners[0]);
        Point normal = (micro.vertex(corners[1]) - a).cross(micro.vertex(corners[2]) - a);
        if (normal.y < 0.0) {
            normal = -normal;
            std::swap(corners[0], corners[2]);
        }
        normal = normal.normalized();

        const bool isOnGrid =
            micro.isGridVertex(first) || micro.isGridVertex(first + 1) || micro.isGridVertex(first + 2);
        glBegin(GL_TRIANGLE_STRIP);
        if (!isOnGrid) emitNormal(normal);
        for (const unsigned corner : corners) {
            if (isOnGrid) emitNormal(micro.isGridVertex(corner) ? micro.normal(corner) : normal);
            const Point position = micro.vertex(corner);
            glVertex3dv(&position.x);
        }
        glEnd();
    }
}

} // namespace ZMT::CORE
