#pragma once

#include <vector>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/mesh/mappedvertexattributeshapegl.h>
#include <nbx/scene/shape/polygonset.h>

/// From (x, 0, 0) one to the east and one up.
inline NBX::SO<NBX::MappedVertexAttributeShapeGL> oneTriangle(double x) {
    using Point = NBX::Vector3Base<double>;
    const NBX::SO<NBX::PolygonSet> set(
        new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles,
                            new NBX::Array<Point>(std::vector<Point>{{x, 0, 0}, {x + 1, 0, 0}, {x, 1, 0}})));
    return new NBX::MappedVertexAttributeShapeGL(set.get(), NBX::BufferObjectGL::UP_Static);
}
