#pragma once

#include <nbx/container/sequence/iterator.h>
#include <nbx/object/so.h>

namespace NBX {

class PolygonSet;

/// Operations on polygon sets. The sets given stay as they are; results share their sequences where these do
/// not change.
class PolygonSetTool {
public:
    /// The same polygons with their corners in the opposite order, and with the normals turned round. The
    /// kind of polygons stays, and so does the number of corners, but for a strip with an even number, which
    /// begins with its first corner twice. Null for null.
    static SO<PolygonSet> invertOrientation(const PolygonSet * set);

    /// One set of the polygons of all sets, which may be null, in their order: quads if there is nothing but
    /// quads, else triangles. Polygons with a corner beyond the vertices are reported and left out. Null when
    /// there are none at all, and when the vertices are too many to be numbered, which is reported.
    ///
    /// A vertex attribute is there when one of the sets has it. The vertices of others are white, have the
    /// mean normal of their polygons, weighted by area, and the texture coordinates of unit 0, or else zero.
    static SO<PolygonSet> mergePolygonSets(const Iterator<SO<PolygonSet>> * sets);
};

} // namespace NBX
