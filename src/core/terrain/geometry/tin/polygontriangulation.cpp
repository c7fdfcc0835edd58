// The rings are cleaned, inserted into a constrained Delaunay triangulation of a rectangle around them, and
// the faces are kept whose centres lie inside an odd number of rings (M. Shimrat, Algorithm 112: Position of
// Point Relative to Polygon, 1962). A fine triangulation splits the edges of the rings first, and adds rows
// of points between where they cross.

#include <zmt/core/terrain/geometry/tin/polygontriangulation.h>

#include <algorithm>
#include <array>
#include <cmath>

#include <nbx/container/sequence/array.h>
#include <nbx/math/bounds.h>
#include <nbx/math/isfinite.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/geometry/tin/tin.h>

namespace ZMT::CORE {

namespace {

using Point = PolygonTriangulation::Point;
using Ring = PolygonTriangulation::Ring;
using Rings = std::vector<Ring>;

/// The corners of the rectangle that a triangulation begins with.
struct CornerAccessor {
    std::array<Point, 4> corners;
    Point point(unsigned number) const { return corners[number % 4]; }
};

using PlaneTin = Tin<CornerAccessor>;

/// The plane of a triangulation is that of its first two components.
Point toPlane(const Point & p) {
    return {p.x, p.z, p.y};
}

bool isSameInPlan(const Point & a, const Point & b) {
    return a.x == b.x && a.z == b.z;
}

/// Finite points, without repetitions, none at the end of the first; rings of less than three are left out.
Rings cleaned(const Rings & rings) {
    Rings result;
    for (const Ring & ring : rings) {
        Ring clean;
        for (const Point & p : ring)
            if (isFinite(p) && (clean.empty() || !isSameInPlan(clean.back(), p))) clean.push_back(p);
        while (clean.size() > 1 && isSameInPlan(clean.front(), clean.back()))
            clean.pop_back();
        if (clean.size() > 2) result.push_back(std::move(clean));
    }
    return result;
}

NBX::Bounds boxOf(const Rings & rings) {
    NBX::Bounds box;
    for (const Ring & ring : rings)
        for (const Point & p : ring)
            box += p;
    return box;
}

/// Whether points are inside an odd number of rings. The edges are sorted into strips across z.
class EvenOddTest {
public:
    explicit EvenOddTest(const Rings & rings) {
        const NBX::Bounds box = boxOf(rings);
        std::size_t edges = 0;
        for (const Ring & ring : rings)
            edges += ring.size();
        strips_.resize(std::max<std::size_t>(1, edges / 4));
        first_ = box.getLLF().z;
        const double depth = box.diagonal().z;
        scale_ = depth > 0.0 ? static_cast<double>(strips_.size()) / depth : 0.0;
        for (const Ring & ring : rings)
            for (std::size_t i = 0; i < ring.size(); ++i)
                add({ring[i], ring[(i + 1) % ring.size()]});
    }

    bool contains(const Point & p) const {
        bool inside = false;
        forEachCrossing(p.z, [&](double x) {
            if (p.x < x) inside = !inside;
        });
        return inside;
    }

    /// Where the line at `z` goes in and out, in turn.
    std::vector<double> crossings(double z) const {
        std::vector<double> result;
        forEachCrossing(z, [&](double x) { result.push_back(x); });
        std::sort(result.begin(), result.end());
        return result;
    }

private:
    struct Edge {
        Point a, b;
    };

    template <class Work> void forEachCrossing(double z, const Work & work) const {
        for (const auto & [a, b] : strips_[stripAt(z)])
            if ((a.z > z) != (b.z > z)) work(a.x + (z - a.z) / (b.z - a.z) * (b.x - a.x));
    }
    std::size_t stripAt(double z) const {
        const double strip = (z - first_) * scale_;
        return static_cast<std::size_t>(std::clamp(strip, 0.0, static_cast<double>(strips_.size() - 1)));
    }
    void add(const Edge & edge) {
        const std::size_t last = stripAt(std::max(edge.a.z, edge.b.z));
        for (std::size_t i = stripAt(std::min(edge.a.z, edge.b.z)); i <= last; ++i)
            strips_[i].push_back(edge);
    }

    std::vector<std::vector<Edge>> strips_;
    double first_, scale_;
};

/// A rectangle with some room around the box, counter-clockwise.
CornerAccessor cornersAround(const NBX::Bounds & box) {
    const double margin = std::max(box.diagonal().x, box.diagonal().z) * 0.25;
    const Point a = toPlane(box.getLLF()) - Point(margin, margin, 0);
    const Point c = toPlane(box.getURB()) + Point(margin, margin, 0);
    return {{a, {c.x, a.y, a.z}, c, {a.x, c.y, a.z}}};
}

class Triangulation {
public:
    explicit Triangulation(const Rings & rings) : inside_(rings), tin_(cornersAround(boxOf(rings))) {
        tin_.init(0, 1, 2, 3);
        for (const Ring & ring : rings)
            addRing(ring);
    }

    const EvenOddTest & inside() const { return inside_; }
    TinNode add(const Point & p) {
        const TinNode node = tin_.insert(TinPoint{toPlane(p), 0}, last_);
        if (node) last_ = tin_.face(tin_.edge(node));
        return node;
    }

    /// The faces inside, over the nodes that `place` gives a position; `place` is called once for each node
    /// and returns false for one that must not be used.
    template <class Place> NBX::SO<NBX::PolygonSet> filled(Place place) const {
        std::vector<Point> vertices;
        std::vector<bool> isPlaced;
        for (unsigned i = 0; i < tin_.nodes(); ++i) {
            vertices.push_back(toPlane(tin_.position(tin_.node(i))));
            isPlaced.push_back(place(vertices.back()));
        }
        std::vector<unsigned> corners;
        for (unsigned i = 0; i < tin_.faces(); ++i) {
            std::array<unsigned, 3> face;
            for (unsigned k = 0; k < 3; ++k)
                face[k] = tin_.corner(tin_.face(i), k).index();
            const Point center = (vertices[face[0]] + vertices[face[1]] + vertices[face[2]]) / 3.0;
            if (inside_.contains(center) && isPlaced[face[0]] && isPlaced[face[1]] && isPlaced[face[2]])
                corners.insert(corners.end(), face.begin(), face.end());
        }
        return corners.empty() ? nullptr : newSet(vertices, std::move(corners));
    }

private:
    void addRing(const Ring & ring) {
        const TinNode first = add(ring.front());
        TinNode before = first;
        for (std::size_t i = 1; i <= ring.size(); ++i) {
            const TinNode node = i < ring.size() ? add(ring[i]) : first;
            if (node && before && node != before) tin_.constrain(before, node);
            before = node;
        }
    }

    /// Keeps the vertices that are used.
    static NBX::SO<NBX::PolygonSet> newSet(const std::vector<Point> & vertices,
                                           std::vector<unsigned> corners) {
        constexpr unsigned unused = 0xffffffff;
        std::vector<unsigned> numbers(vertices.size(), unused);
        std::vector<Point> used;
        for (unsigned & corner : corners) {
            unsigned & number = numbers[corner];
            if (number == unused) {
                number = static_cast<unsigned>(used.size());
                used.push_back(vertices[corner]);
            }
            corner = number;
        }
        return new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles, new NBX::Array<Point>(std::move(used)),
                                   new NBX::Array<unsigned>(std::move(corners)));
    }

    EvenOddTest inside_;
    PlaneTin tin_;
    TinFace last_{0};
};

/// False for rings without area, around which there is no rectangle.
bool haveArea(const Rings & rings) {
    if (rings.empty()) return false;
    const Point size = boxOf(rings).diagonal();
    return size.x > 0.0 && size.z > 0.0 && isFinite(size * 2.0);
}

double lengthInPlan(const Point & a, const Point & b) {
    return std::hypot(b.x - a.x, b.z - a.z);
}

double areaOf(const Ring & ring) {
    double sum = 0.0;
    for (std::size_t i = 2; i < ring.size(); ++i) {
        const Point a = ring[i - 1] - ring[0], b = ring[i] - ring[0];
        sum += a.x * b.z - b.x * a.z;
    }
    return std::abs(sum) / 2.0;
}

/// Number of points that `refined` and `addInnerPoints` may make, and of rows: those of the outlines, and a
/// grid over their box or, where that is less, over the sum of their areas, along whose outlines it may have
/// more.
double countPoints(const Rings & rings, double spacing) {
    const Point size = boxOf(rings).diagonal();
    double outlines = 0.0, areas = 0.0;
    for (const Ring & ring : rings) {
        areas += areaOf(ring) / spacing / spacing;
        for (std::size_t i = 0; i < ring.size(); ++i)
            outlines += lengthInPlan(ring[i], ring[(i + 1) % ring.size()]) / spacing + 1.0;
    }
    const double box = (size.x / spacing + 1.0) * (size.z / spacing + 1.0);
    return outlines + std::min(box, areas + outlines + size.z / spacing + 1.0);
}

Rings refined(const Rings & rings, double spacing) {
    Rings result;
    for (const Ring & ring : rings) {
        Ring & fine = result.emplace_back();
        for (std::size_t i = 0; i < ring.size(); ++i) {
            const Point a = ring[i], b = ring[(i + 1) % ring.size()];
            const double parts = std::max(1.0, std::ceil(lengthInPlan(a, b) / spacing));
            for (double k = 0.0; k < parts; ++k)
                fine.push_back(a + (b - a) * (k / parts));
        }
    }
    return result;
}

void addInnerPoints(Triangulation & triangulation, const NBX::Bounds & box, double spacing) {
    const Point first = box.getLLF() + Point(spacing, 0.0, spacing) / 2.0;
    for (double row = 0.0; first.z + row * spacing < box.getURB().z; ++row) {
        const double z = first.z + row * spacing;
        const std::vector<double> crossings = triangulation.inside().crossings(z);
        for (std::size_t i = 1; i < crossings.size(); i += 2) {
            double column = std::ceil((crossings[i - 1] - first.x) / spacing);
            for (double x; (x = first.x + column * spacing) < crossings[i]; ++column)
                triangulation.add({x, 0.0, z});
        }
    }
}

} // namespace

NBX::SO<NBX::PolygonSet> PolygonTriangulation::triangulate(const std::vector<Ring> & rings) {
    const Rings clean = cleaned(rings);
    if (!haveArea(clean)) return nullptr;
    return Triangulation(clean).filled([](const Point &) { return true; });
}

double PolygonTriangulation::pointsFor(const std::vector<Ring> & rings, double spacing) {
    const Rings clean = cleaned(rings);
    return spacing > 0.0 && haveArea(clean) ? countPoints(clean, spacing) : 0.0;
}

NBX::SO<NBX::PolygonSet> PolygonTriangulation::triangulateFinely(const std::vector<Ring> & rings,
                                                                 double spacing, const Place & place) {
    const Rings clean = cleaned(rings);
    NBX_CHECK(spacing > 0.0, L"invalid spacing: " << spacing);
    if (!(spacing > 0.0) || !haveArea(clean)) return nullptr;
    const double points = countPoints(clean, spacing);
    NBX_CHECK(points <= maxPoints, L"too many points: " << points << L", at most " << maxPoints);
    if (!(points <= maxPoints)) return nullptr;

    const Rings fine = refined(clean, spacing);
    Triangulation triangulation(fine);
    addInnerPoints(triangulation, boxOf(fine), spacing);
    return triangulation.filled(place);
}

} // namespace ZMT::CORE
