// Which triangles may share a patch: parallel by buckets of directions, coplanar by their distances, and
// apart in texture space.

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <span>
#include <utility>
#include <vector>

#include <nbx/container/sequence/array.h>
#include <nbx/container/space/boundingboxtree.h>
#include <nbx/math/algorithmimpl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/shape/polygonsettool.h>
#include <nbx/scene/view/groundplatenavigation.h>

#include "textureatlasgenerator.h"
#include "trianglecorners.h"

namespace ZMT::CORE {

namespace {

using Vector = TextureAtlasGenerator::Vector;
using Corners = std::array<Vector, 3>;
using Groups = TextureAtlasGenerator::Groups;
using GroupList = NBX::NonPersistentArray<NBX::SO<NBX::Iterator<int>>>;

constexpr double s_leastCosine = 0.9;
/// In world units.
constexpr double s_planeThickness = 1.0;
/// Squared area that two triangles of one patch may share in texture space.
constexpr double s_sharedArea2 = 0.001953125;
constexpr int s_poleElevation = 87;

using Direction = std::pair<int, int>;
using Buckets = std::map<Direction, std::vector<int>>;

Vector normalOf(const Corners & corners) {
    return NBX::PolygonSetTool::getTriangleNormal(corners[0], corners[1], corners[2]);
}

/// In whole degrees. Near the zenith the azimuth says nothing.
Direction directionOf(const Vector & normal) {
    const auto polar = NBX::GroundPlateNavigation::cartesian2Polar(normal);
    int azimuth = static_cast<int>(polar.azimuth);
    const int elevation = static_cast<int>(polar.elevation);
    if (azimuth == -180) azimuth = 180;
    if (elevation > s_poleElevation) azimuth = 0;
    return {azimuth, elevation};
}

/// Moves what shows the same way as `reference` from a neighbouring bucket to the group.
void moveParallel(Buckets & buckets, const Direction & direction, const TriangleCorners & corners,
                  const Vector & reference, std::vector<int> & group) {
    const auto bucket = buckets.find(direction);
    if (bucket == buckets.end()) return;
    std::erase_if(bucket->second, [&](int triangle) {
        const bool isParallel = normalOf(corners[triangle]).dot(reference) > s_leastCosine;
        if (isParallel) group.push_back(triangle);
        return isParallel;
    });
    if (bucket->second.empty()) buckets.erase(bucket);
}

/// Triangles by their distance from a plane.
struct Distance {
    double distance;
    int triangle;

    bool operator<(const Distance & o) const {
        return distance != o.distance ? distance < o.distance : triangle < o.triangle;
    }
};

/// From the plane of the first triangle; what has no distance comes last. Numbers of no triangle are reported
/// and left out.
std::vector<Distance> sortedDistances(const TriangleCorners & corners, const NBX::Iterator<int> & triangles) {
    std::vector<Distance> distances;
    distances.reserve(triangles.size());
    Vector normal, origin;
    for (const int triangle : triangles) {
        if (!corners.contains(triangle)) {
            NBX_REPORT(0, L"t1<m_distances->size() && t2<m_distances->size()", L"invalid triangle number");
            continue;
        }
        const Corners at = corners[triangle];
        if (distances.empty()) {
            normal = normalOf(at);
            origin = at[0];
        }
        const Vector centre = at[0] + ((at[1] - at[0]) + (at[2] - at[0])) / 3.0;
        const double distance = NBX::AlgorithmImpl::signedDistance(origin, normal, centre);
        distances.push_back(
            {std::isnan(distance) ? std::numeric_limits<double>::infinity() : distance, triangle});
    }
    std::sort(distances.begin(), distances.end());
    return distances;
}

/// A triangle of texture space in the plane of x and z, counter-clockwise.
Corners inTexturePlane(const Corners & texCoords) {
    Corners loop;
    std::transform(texCoords.begin(), texCoords.end(), loop.begin(),
                   [](const Vector & st) { return Vector(st.x, 0.0, st.y); });
    NBX::AlgorithmImpl::orientLoop(loop);
    return loop;
}

NBX::Bounds boundsOf(const Corners & corners) {
    NBX::Bounds box;
    for (const Vector & corner : corners)
        box += corner;
    return box;
}

bool coverEachOther(const Corners & a, const Corners & b) {
    if (!NBX::AlgorithmImpl::intersectionTest(a, b)) return false;
    const double area = NBX::AlgorithmImpl::signedArea(NBX::AlgorithmImpl::clipConvexPolygons(a, b));
    return area * area >= s_sharedArea2;
}

} // namespace

NBX::SO<Groups> TextureAtlasGenerator::groupParallelTriangles(const Vectors * vertices) {
    if (!vertices || vertices->isEmpty()) return nullptr;
    const TriangleCorners corners(*vertices);
    Buckets buckets;
    for (int triangle = 0; triangle < corners.size(); ++triangle)
        if (const Vector normal = normalOf(corners[triangle]); normal.length2() >= leastNormal2)
            buckets[directionOf(normal)].push_back(triangle);

    const NBX::SO<GroupList> groups(new GroupList);
    while (!buckets.empty()) {
        const auto [azimuth, elevation] = buckets.begin()->first;
        std::vector<int> group = std::move(buckets.begin()->second);
        buckets.erase(buckets.begin());
        const Vector reference = normalOf(corners[group.front()]);
        for (int a = -1; a <= 1; ++a)
            for (int e = -1; e <= 1; ++e)
                if (a != 0 || e != 0)
                    moveParallel(buckets, {azimuth + a, elevation + e}, corners, reference, group);
        groups->append(new NBX::Array<int>(std::move(group)));
    }
    return groups;
}

NBX::SO<Groups> TextureAtlasGenerator::groupCoplanarTriangles(const Vectors * vertices,
                                                              const Triangles * triangles) {
    if (!vertices || vertices->isEmpty() || !triangles || triangles->isEmpty()) return nullptr;
    const NBX::SO<GroupList> groups(new GroupList);
    NBX::SO<NBX::Array<int>> group;
    double first = 0.0;
    for (const Distance & next : sortedDistances(TriangleCorners(*vertices), *triangles)) {
        if (!group || next.distance - first > s_planeThickness) {
            group = new NBX::Array<int>;
            groups->append(group);
            first = next.distance;
        }
        group->append(next.triangle);
    }
    return groups;
}

NBX::SO<Groups> TextureAtlasGenerator::splitPatch(const Vectors * texCoords, const Triangles * triNums) {
    NBX_CHECK(texCoords, L"no iterator");
    NBX_CHECK(triNums, L"no triangle numbers");
    if (!texCoords || !triNums) return nullptr;
    const TriangleCorners corners(*texCoords);
    std::vector<int> numbers;
    std::vector<Corners> loops;
    NBX::Bounds space;
    for (const int triangle : *triNums)
        if (corners.contains(triangle)) {
            numbers.push_back(triangle);
            loops.push_back(inTexturePlane(corners[triangle]));
            space += boundsOf(loops.back());
        }
    const NBX::SO<NBX::BoundingBoxTree> tree(new NBX::BoundingBoxTree(space, 5, 50));
    for (std::size_t i = 0; i < loops.size(); ++i)
        if (const NBX::Bounds box = boundsOf(loops[i]); box.isDefined())
            tree->insert(box, static_cast<int>(i));

    const NBX::SO<GroupList> groups(new GroupList);
    std::vector<bool> isTaken(loops.size());
    for (std::size_t first = 0; first < loops.size(); ++first) {
        if (isTaken[first]) continue;
        const NBX::SO<NBX::Array<int>> group(new NBX::Array<int>);
        std::vector<bool> isBlocked(loops.size());
        for (std::size_t i = first; i < loops.size(); ++i) {
            if (isTaken[i] || isBlocked[i]) continue;
            isTaken[i] = true;
            group->append(numbers[i]);
            for (const int other : tree->findOverlappingBoxes(boundsOf(loops[i])))
                if (const auto k = static_cast<std::size_t>(other); k > i && !isTaken[k] && !isBlocked[k])
                    isBlocked[k] = coverEachOther(loops[i], loops[k]);
        }
        groups->append(group);
    }
    return groups;
}

} // namespace ZMT::CORE
