#pragma once

#include <nbx/math/area.h>
#include <nbx/math/vector3base.h>
#include <zmt/core/terrain/geometry/base/stripmesh.h>

namespace ZMT::CORE {

class GeometryPatch;

/// The surface of a patch, as its painter draws it, as plain triangles: no skirts, no walls. Empty for
/// patches that have none to show.
class PatchMesh {
public:
    explicit PatchMesh(const GeometryPatch & patch);

    /// The rectangle of the grid that the patch covers, in cells.
    const NBX::Area & domain() const { return domain_; }
    unsigned vertices() const { return static_cast<unsigned>(mesh_.vertices.size()); }
    unsigned triangles() const { return static_cast<unsigned>(mesh_.triangles()); }
    /// Vertex `v` in geo coordinates; the height is the second component.
    const NBX::Vector3Base<double> & geoPosition(unsigned v) const { return mesh_.vertices[v]; }
    /// Calls `visit` with the vertices of each triangle, clockwise as seen from above.
    void forEachTriangle(const StripMesh::Visit & visit) const { mesh_.forEachTriangle(visit); }

private:
    NBX::Area domain_;
    StripMesh mesh_;
};

} // namespace ZMT::CORE
