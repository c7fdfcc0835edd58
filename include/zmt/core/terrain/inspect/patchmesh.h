#pragma once

#include <functional>

#include <nbx/math/area.h>
#include <nbx/math/vector3base.h>

namespace ZMT::CORE {

class GeometryPatch;
class GridPatch;
class TinPatch;

/// The surface of a `GridPatch` or `TinPatch`, as its painter draws it, as plain triangles: no skirts, no
/// walls. Borrows the patch. Any other patch is empty.
class PatchMesh {
public:
    explicit PatchMesh(const GeometryPatch & patch);

    /// The rectangle of the grid that the patch covers, in cells.
    NBX::Area domain() const;
    unsigned vertices() const;
    unsigned triangles() const;
    /// Vertex `v` in geo coordinates; the height is the second component.
    NBX::Vector3Base<double> geoPosition(unsigned v) const;
    /// Calls `visit` with the vertices of each triangle, clockwise as seen from above.
    void forEachTriangle(const std::function<void(unsigned, unsigned, unsigned)> & visit) const;

private:
    const GridPatch * grid_;
    const TinPatch * tin_;
};

} // namespace ZMT::CORE
