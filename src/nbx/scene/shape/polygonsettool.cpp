// Turning orders the corners anew, in a way of its own for each kind of primitives, and negates the normals.
// Merging brings all sets to one kind, then joins corners and attributes; a set without an attribute that
// others have gets a stand-in: mean normals, white, the texture coordinates of unit 0. Taking apart makes a
// list of corners, three for each triangle, and gathers what the vertices have in its order.

#include <nbx/scene/shape/polygonsettool.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include <nbx/container/sequence/array.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/shape/polygonset.h>

namespace NBX {

namespace {

using Vector = Vector3Base<double>;
using Vectors = Iterator<Vector>;

/// Positions in the sequence of `n` corners, with every polygon turned round.
std::vector<unsigned> turnedPositions(PolygonSet::PrimitiveType type, unsigned n) {
    std::vector<unsigned> positions;
    positions.reserve(std::size_t(n) + 1);
    switch (type) {
    case PolygonSet::PT_TriangleStrip:
        // From the other end every triangle of an even strip would wind as before; one more turns them.
        if (n > 0 && n % 2 == 0) positions.push_back(0);
        for (unsigned i = 0; i < n; ++i)
            positions.push_back(n % 2 == 0 ? i : n - 1 - i);
        break;
    case PolygonSet::PT_TriangleFan:
        if (n > 0) positions.push_back(0);
        for (unsigned i = n; i-- > 1;)
            positions.push_back(i);
        break;
    case PolygonSet::PT_Triangles:
    case PolygonSet::PT_Quads: {
        const unsigned corners = type == PolygonSet::PT_Quads ? 4 : 3;
        for (unsigned first = 0; first + corners <= n; first += corners)
            for (unsigned i = corners; i-- > 0;)
                positions.push_back(first + i);
        for (unsigned i = n - n % corners; i < n; ++i)
            positions.push_back(i);
        break;
    }
    }
    return positions;
}

SO<Vectors> negated(const Vectors & vectors) {
    std::vector<Vector> result;
    result.reserve(vectors.size());
    for (const Vector & v : vectors)
        result.push_back(-v);
    return new Array<Vector>(std::move(result));
}

SO<PolygonSet> newCopy(const PolygonSet & set) {
    SO<PolygonSet> copy(
        new PolygonSet(set.getPrimitiveType(), set.newVertexIterator(), set.newIndexIterator()));
    copy->setNormalIterator(set.newNormalIterator());
    copy->setColorIterator(set.newColorIterator());
    for (unsigned unit = 0; unit < PolygonSet::maxTextureUnits; ++unit)
        copy->setTextureIterator(set.newTextureIterator(unit), unit);
    return copy;
}

template <class T> SO<Iterator<T>> copied(const SO<Iterator<T>> & values) {
    return values ? SO<Iterator<T>>(new Array<T>(std::vector<T>(values->begin(), values->end()))) : nullptr;
}

/// Weighted by area; zero where there are only polygons without one.
std::vector<Vector> meanNormals(const PolygonSet & set) {
    const Vectors & vertices = *set.newVertexIterator();
    std::vector<Vector> normals(vertices.size());
    for (unsigned i = 0; i < set.triangles(); ++i) {
        std::array<unsigned, 3> t;
        if (!set.triangle(i, t)) continue;
        const Vector a = vertices.get(t[0]);
        const Vector normal = (vertices.get(t[1]) - a).cross(vertices.get(t[2]) - a);
        for (const unsigned corner : t)
            normals[corner] += normal;
    }
    for (Vector & normal : normals)
        normal = normal.normalized();
    return normals;
}

/// One attribute of the vertices of all sets: what the sets give, and where they give nothing, or not enough,
/// the value that stands in for it.
template <class T> class MergedAttribute {
public:
    void append(const Iterator<T> * values, unsigned count, const T & standIn) {
        for (unsigned i = 0; i < count; ++i)
            values_.push_back(values && i < values->size() ? values->get(i) : standIn);
    }
    void append(const std::vector<T> & values) {
        values_.insert(values_.end(), values.begin(), values.end());
    }
    SO<Iterator<T>> take() { return new Array<T>(std::move(values_)); }

private:
    std::vector<T> values_;
};

using Sets = std::vector<SO<PolygonSet>>;

/// The corners of all polygons, in the form of the result.
class MergedCorners {
public:
    explicit MergedCorners(PolygonSet::PrimitiveType type) : type_(type) {}

    /// False when a polygon had to be left out.
    bool append(const PolygonSet & set, unsigned firstVertex) {
        return type_ == PolygonSet::PT_Quads ? appendQuads(set, firstVertex)
                                             : appendTriangles(set, firstVertex);
    }
    bool isEmpty() const { return corners_.empty(); }
    SO<PolygonSet::Indices> take() { return new Array<unsigned>(std::move(corners_)); }

private:
    bool appendTriangles(const PolygonSet & set, unsigned firstVertex) {
        bool complete = true;
        for (unsigned i = 0; i < set.triangles(); ++i) {
            std::array<unsigned, 3> t;
            if (set.triangle(i, t))
                corners_.insert(corners_.end(), {firstVertex + t[0], firstVertex + t[1], firstVertex + t[2]});
            else
                complete = false;
        }
        return complete;
    }

    bool appendQuads(const PolygonSet & set, unsigned firstVertex) {
        bool complete = true;
        for (unsigned i = 0; i + 1 < set.triangles(); i += 2) {
            std::array<unsigned, 3> a, b;
            if (set.triangle(i, a) && set.triangle(i + 1, b))
                corners_.insert(corners_.end(), {firstVertex + a[0], firstVertex + a[1], firstVertex + a[2],
                                                 firstVertex + b[2]});
            else
                complete = false;
        }
        return complete;
    }

    PolygonSet::PrimitiveType type_;
    std::vector<unsigned> corners_;
};

/// The sets that have polygons.
Sets setsWithPolygons(const Iterator<SO<PolygonSet>> * sets) {
    Sets result;
    for (unsigned i = 0; sets && i < sets->size(); ++i)
        if (SO<PolygonSet> set = sets->get(i); set && set->triangles() > 0) result.push_back(set);
    return result;
}

template <class Test> bool anyOf(const Sets & sets, Test test) {
    for (const SO<PolygonSet> & set : sets)
        if (test(*set)) return true;
    return false;
}

PolygonSet::PrimitiveType commonType(const Sets & sets) {
    return anyOf(sets, [](const PolygonSet & s) { return s.getPrimitiveType() != PolygonSet::PT_Quads; })
               ? PolygonSet::PT_Triangles
               : PolygonSet::PT_Quads;
}

bool canBeNumbered(const Sets & sets) {
    std::uint64_t vertices = 0, corners = 0;
    for (const SO<PolygonSet> & set : sets) {
        vertices += set->newVertexIterator()->size();
        corners += std::uint64_t(set->triangles()) * 3;
    }
    return std::max(vertices, corners) <= std::numeric_limits<unsigned>::max();
}

SO<Vectors> mergedVertices(const Sets & sets) {
    MergedAttribute<Vector> merged;
    for (const SO<PolygonSet> & set : sets)
        merged.append(set->newVertexIterator().get(), set->newVertexIterator()->size(), Vector());
    return merged.take();
}

SO<Vectors> mergedNormals(const Sets & sets) {
    if (!anyOf(sets, [](const PolygonSet & set) { return set.newNormalIterator() != nullptr; }))
        return nullptr;
    MergedAttribute<Vector> merged;
    for (const SO<PolygonSet> & set : sets)
        if (const SO<Vectors> normals = set->newNormalIterator())
            merged.append(normals.get(), set->newVertexIterator()->size(), Vector());
        else
            merged.append(meanNormals(*set));
    return merged.take();
}

SO<PolygonSet::Colors> mergedColors(const Sets & sets) {
    if (!anyOf(sets, [](const PolygonSet & set) { return set.newColorIterator() != nullptr; }))
        return nullptr;
    MergedAttribute<Color> merged;
    for (const SO<PolygonSet> & set : sets)
        merged.append(set->newColorIterator().get(), set->newVertexIterator()->size(), Color::white);
    return merged.take();
}

SO<Vectors> mergedTexture(const Sets & sets, unsigned unit) {
    if (!anyOf(sets, [&](const PolygonSet & set) { return set.newTextureIterator(unit) != nullptr; }))
        return nullptr;
    MergedAttribute<Vector> merged;
    for (const SO<PolygonSet> & set : sets) {
        SO<Vectors> coordinates = set->newTextureIterator(unit);
        if (!coordinates) coordinates = set->newTextureIterator(0);
        merged.append(coordinates.get(), set->newVertexIterator()->size(), Vector());
    }
    return merged.take();
}

/// The vertex numbers of all whole triangles. `complete` becomes false when one had to be left out.
std::vector<unsigned> triangleCorners(const PolygonSet & set, bool & complete) {
    const bool isStrip = set.getPrimitiveType() == PolygonSet::PT_TriangleStrip;
    std::vector<unsigned> corners;
    corners.reserve(std::size_t(set.triangles()) * 3);
    for (unsigned i = 0; i < set.triangles(); ++i) {
        std::array<unsigned, 3> t;
        if (!set.triangle(i, t))
            complete = false;
        else if (!isStrip || (t[0] != t[1] && t[1] != t[2] && t[2] != t[0]))
            corners.insert(corners.end(), t.begin(), t.end());
    }
    return corners;
}

/// True where the vertices make the triangles in their order, and none is left over.
bool isPlainOrder(const std::vector<unsigned> & corners, unsigned vertices) {
    if (corners.size() != vertices) return false;
    for (unsigned i = 0; i < corners.size(); ++i)
        if (corners[i] != i) return false;
    return true;
}

/// The values of the vertices `corners`; null where the vertices have none, or another number of them.
template <class T>
SO<Iterator<T>> gathered(const SO<Iterator<T>> & values, unsigned vertices,
                         const std::vector<unsigned> & corners) {
    const bool matches = !values || values->size() == vertices;
    NBX_CHECK(matches, L"an attribute has another number of elements than there are vertices");
    if (!values || !matches) return nullptr;
    std::vector<T> result;
    result.reserve(corners.size());
    for (const unsigned corner : corners)
        result.push_back(values->get(corner));
    return new Array<T>(std::move(result));
}

SO<PolygonSet> gatheredSet(const PolygonSet & set, PolygonSet::PrimitiveType type,
                           const std::vector<unsigned> & corners) {
    const unsigned vertices = set.newVertexIterator() ? set.newVertexIterator()->size() : 0;
    SO<PolygonSet> result(new PolygonSet(type, gathered(set.newVertexIterator(), vertices, corners)));
    result->setNormalIterator(gathered(set.newNormalIterator(), vertices, corners));
    result->setColorIterator(gathered(set.newColorIterator(), vertices, corners));
    for (unsigned unit = 0; unit < PolygonSet::maxTextureUnits; ++unit)
        result->setTextureIterator(gathered(set.newTextureIterator(unit), vertices, corners), unit);
    return result;
}

} // namespace

SO<PolygonSet> PolygonSetTool::invertOrientation(const PolygonSet * set) {
    if (!set) return nullptr;
    const SO<PolygonSet> result = newCopy(*set);
    const SO<PolygonSet::Indices> indices = set->newIndexIterator();
    const unsigned vertices = set->newVertexIterator() ? set->newVertexIterator()->size() : 0;
    std::vector<unsigned> corners =
        turnedPositions(set->getPrimitiveType(), indices ? indices->size() : vertices);
    if (indices)
        for (unsigned & corner : corners)
            corner = indices->get(corner);
    result->setIndexIterator(new Array<unsigned>(std::move(corners)));
    if (const SO<Vectors> normals = set->newNormalIterator()) result->setNormalIterator(negated(*normals));
    return result;
}

SO<PolygonSet> PolygonSetTool::mergePolygonSets(const Iterator<SO<PolygonSet>> * sets) {
    const Sets used = setsWithPolygons(sets);
    const bool numbered = canBeNumbered(used);
    NBX_CHECK(numbered, L"too many vertices for one polygon set");
    if (used.empty() || !numbered) return nullptr;

    const PolygonSet::PrimitiveType type = commonType(used);
    MergedCorners corners(type);
    unsigned firstVertex = 0;
    bool complete = true;
    for (const SO<PolygonSet> & set : used) {
        complete = corners.append(*set, firstVertex) && complete;
        firstVertex += set->newVertexIterator()->size();
    }
    NBX_CHECK(complete, L"a polygon has a corner beyond the vertices");
    if (corners.isEmpty()) return nullptr;

    SO<PolygonSet> result(new PolygonSet(type, mergedVertices(used), corners.take()));
    result->setNormalIterator(mergedNormals(used));
    result->setColorIterator(mergedColors(used));
    for (unsigned unit = 0; unit < PolygonSet::maxTextureUnits; ++unit)
        result->setTextureIterator(mergedTexture(used, unit), unit);
    return result;
}

SO<PolygonSet> PolygonSetTool::extractTriangleMesh(const PolygonSet * set, bool nonIndexed) {
    if (!set) return nullptr;
    bool complete = true;
    std::vector<unsigned> corners = triangleCorners(*set, complete);
    NBX_CHECK(complete, L"a polygon has a corner beyond the vertices");
    const bool isPlain =
        isPlainOrder(corners, set->newVertexIterator() ? set->newVertexIterator()->size() : 0);
    if (nonIndexed && !isPlain) return gatheredSet(*set, PolygonSet::PT_Triangles, corners);
    const SO<PolygonSet> result = newCopy(*set);
    result->setPrimitiveType(PolygonSet::PT_Triangles);
    result->setIndexIterator(isPlain ? nullptr : new Array<unsigned>(std::move(corners)));
    return result;
}

SO<PolygonSet> PolygonSetTool::convertToNonIndexedForm(const PolygonSet * set, bool ownCopy) {
    if (!set) return nullptr;
    const SO<PolygonSet::Indices> indices = set->newIndexIterator();
    if (!indices) return ownCopy ? copy(set) : newCopy(*set);
    const unsigned vertices = set->newVertexIterator() ? set->newVertexIterator()->size() : 0;
    const std::vector<unsigned> corners(indices->begin(), indices->end());
    if (std::all_of(corners.begin(), corners.end(), [&](unsigned corner) { return corner < vertices; }))
        return gatheredSet(*set, set->getPrimitiveType(), corners);
    return extractTriangleMesh(set, true);
}

SO<PolygonSet> PolygonSetTool::forceTriangleMerge(const Iterator<SO<PolygonSet>> * sets, bool indexed) {
    std::vector<SO<PolygonSet>> triangles;
    for (unsigned i = 0; sets && i < sets->size(); ++i)
        triangles.push_back(extractTriangleMesh(sets->get(i).get(), false));
    const Array<SO<PolygonSet>> whole(std::move(triangles));
    const SO<PolygonSet> merged = mergePolygonSets(&whole);
    return extractTriangleMesh(merged.get(), !indexed);
}

SO<PolygonSet> PolygonSetTool::computeFaceNormals(const PolygonSet * set) {
    const SO<PolygonSet> result = extractTriangleMesh(set, true);
    const SO<Vectors> vertices = result ? result->newVertexIterator() : nullptr;
    if (!vertices) return result;
    std::vector<Vector> normals(vertices->size());
    for (unsigned i = 0; i + 2 < vertices->size(); i += 3)
        // The world is left-handed, so that front faces are seen from the other side of this normal.
        normals[i] = normals[i + 1] = normals[i + 2] =
            -getTriangleNormal(vertices->get(i), vertices->get(i + 1), vertices->get(i + 2));
    result->setNormalIterator(new Array<Vector>(std::move(normals)));
    return result;
}

SO<PolygonSet> PolygonSetTool::copy(const PolygonSet * set) {
    if (!set) return nullptr;
    SO<PolygonSet> result(new PolygonSet(set->getPrimitiveType(), copied(set->newVertexIterator()),
                                         copied(set->newIndexIterator())));
    result->setNormalIterator(copied(set->newNormalIterator()));
    result->setColorIterator(copied(set->newColorIterator()));
    for (unsigned unit = 0; unit < PolygonSet::maxTextureUnits; ++unit)
        result->setTextureIterator(copied(set->newTextureIterator(unit)), unit);
    return result;
}

Vector3Base<double> PolygonSetTool::getTriangleNormal(const Vector3Base<double> & a,
                                                      const Vector3Base<double> & b,
                                                      const Vector3Base<double> & c) {
    constexpr double rounding = 4.0 * std::numeric_limits<double>::epsilon();
    // At a size of about 1 no product overflows or vanishes.
    const auto largest = [](const Vector & v) {
        return std::max({std::abs(v.x), std::abs(v.y), std::abs(v.z)});
    };
    Vector u = b - a, v = c - a;
    const double sizeU = largest(u), sizeV = largest(v);
    if (!(sizeU > 0.0 && sizeV > 0.0 && std::isfinite(sizeU) && std::isfinite(sizeV))) return Vector();
    u = u / sizeU;
    v = v / sizeV;
    const Vector normal = u.cross(v);
    const double length = normal.length();
    return length > rounding * u.length() * v.length() ? normal / length : Vector();
}

} // namespace NBX
