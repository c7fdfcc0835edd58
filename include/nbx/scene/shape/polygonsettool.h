#pragma once

#include <nbx/container/sequence/iterator.h>
#include <nbx/math/vector3base.h>
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

    /// The same triangles as `PT_Triangles`, in their order and winding: quads are cut in two, strips and
    /// fans taken apart. Left out are the triangles of strips that have a vertex number twice, which only
    /// join what lies before and behind them, and, with one report, those with a corner beyond the vertices.
    /// `nonIndexed`: every triangle has three vertices of its own; else the vertices of the set stay, and an
    /// index sequence says which make the triangles wherever they do not follow each other. Null for null.
    static SO<PolygonSet> extractTriangleMesh(const PolygonSet * set, bool nonIndexed);

    /// The same polygons without an index sequence: vertices and their attributes stand as often as they are
    /// used. The kind of polygons stays, unless a corner lies beyond the vertices: then this is reported, and
    /// the result has the triangles that are whole. An attribute with another number of elements than there
    /// are vertices is reported and left out. A set without an index sequence is copied as it is. Null for
    /// null. With `ownCopy` the result shares no sequence with the set.
    static SO<PolygonSet> convertToNonIndexedForm(const PolygonSet * set, bool ownCopy = false);

    /// The triangles of all sets, which may be null, as one set of `PT_Triangles`, in their order and
    /// winding, with the attributes that `mergePolygonSets` gives. `indexed`: the vertices stay, and an index
    /// sequence says which make the triangles wherever they do not follow each other; else every triangle has
    /// three vertices of its own. What cannot be taken is left out, and reported, as by `extractTriangleMesh`
    /// and `mergePolygonSets`. Null when there are no triangles at all.
    static SO<PolygonSet> forceTriangleMerge(const Iterator<SO<PolygonSet>> * sets, bool indexed);

    /// The triangles of a set, each with three vertices of its own and with its own normal at all of them, of
    /// length 1 on the side from which it shows; zero for a triangle without area. Null for null.
    static SO<PolygonSet> computeFaceNormals(const PolygonSet * set);

    /// The same polygons, with sequences of their own. Null for null.
    static SO<PolygonSet> copy(const PolygonSet * set);

    /// Length 1, on the side from which the corners are seen counter-clockwise in right-handed coordinates.
    /// Zero for a triangle without area, whose corners lie on one line within the rounding of their
    /// differences, and for one that is not finite.
    static Vector3Base<double> getTriangleNormal(const Vector3Base<double> & a, const Vector3Base<double> & b,
                                                 const Vector3Base<double> & c);
};

} // namespace NBX
