// The scale of a texture is the length of the derivative of the position in the world by a texture
// coordinate, which the two edges of a triangle give as a linear system; where the coordinates lie on a line,
// an edge by the change along it stands in. The sharpest triangle decides over the texels of its texture.

#include "texturesizecalculator.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include <nbx/container/sequence/subiterator.h>
#include <nbx/object/errorhandler.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>

namespace ZMT::CORE {

using NBX::Iterator;
using NBX::SO;

namespace {

using Vector = TextureSizeCalculator::Vector;
using TextureInfo = TextureSizeCalculator::TextureInfo;

constexpr double s_radiansPerDegree = 0.01745329252;
constexpr double s_least = 1e-10; ///< of differences of coordinates, and of their determinants

double toScreen(double scale, double distance, double fieldOfView, int screenSize) {
    return scale / TextureSizeCalculator::viewExtent(distance, fieldOfView) * screenSize;
}

/// The largest scale of the triangles that were added, for one axis.
class LargestScale {
public:
    explicit LargestScale(int axis) : axis_(axis) {}
    void add(const std::array<Vector, 3> & p, const std::array<Vector, 3> & t) {
        double scale = 0.0;
        if (TextureSizeCalculator::texSpaceToWorldSpaceScaling(p[0], p[1], p[2], t[0], t[1], t[2], axis_,
                                                               scale))
            largest_ = std::max(largest_, scale);
    }
    double get() const { return largest_; }

private:
    int axis_;
    double largest_ = 0.0;
};

/// `max(1, int(texels + 0.5))`; no more than a number that borders can still be added to.
int rounded(double texels) {
    constexpr double most = 1 << 24;
    return std::max(1, static_cast<int>(std::min(texels + 0.5, most)));
}

NBX::Bounds boundsOfCoordinates(const Iterator<TriangleContainer::TriangleID> & triangles,
                                const TriangleContainer & container) {
    NBX::Bounds bounds;
    for (const TriangleContainer::TriangleID & id : triangles)
        for (const Vector & t : container.triangle(id).texCoords)
            bounds += Vector(t.x, t.y, 0.0);
    return bounds;
}

/// Number of the first triangle behind the entry that begins with triangle `begin`.
unsigned endOfEntry(const Iterator<TriangleContainer::TriangleID> & triangles, unsigned begin) {
    if (TexturedTriangleTree::uniqueTextureParameterizationEnforced()) return begin + 1;
    unsigned end = begin;
    while (end < triangles.size() && triangles.get(end).mesh == triangles.get(begin).mesh)
        ++end;
    return end;
}

} // namespace

double TextureSizeCalculator::viewExtent(double distance, double fieldOfView) {
    return 2 * distance * std::tan(fieldOfView / 2 * s_radiansPerDegree);
}

double TextureSizeCalculator::unitsPerTexel(double distance, double fieldOfView, int screenSize,
                                            double quality) {
    return viewExtent(distance, fieldOfView) / screenSize / quality;
}

bool TextureSizeCalculator::texSpaceToWorldSpaceScaling(const Vector & p0, const Vector & p1,
                                                        const Vector & p2, const Vector & t0,
                                                        const Vector & t1, const Vector & t2, int axis,
                                                        double & scale) {
    const double ds1 = t1.x - t0.x, dt1 = t1.y - t0.y, ds2 = t2.x - t0.x, dt2 = t2.y - t0.y;
    const double det = ds2 * dt1 - dt2 * ds1;
    const double difference =
        axis == 0 ? std::max(std::abs(ds2), std::abs(ds1)) : std::max(std::abs(dt2), std::abs(dt1));
    if (!(difference >= s_least)) return false;
    const Vector edge1 = p1 - p0, edge2 = p2 - p0;
    scale = std::max(edge1.length(), edge2.length()) / difference;
    if (std::abs(det) >= s_least) {
        const Vector derivative = axis == 0 ? edge2 * dt1 - edge1 * dt2 : edge1 * ds2 - edge2 * ds1;
        scale = derivative.length() / std::abs(det);
    }
    return true;
}

double TextureSizeCalculator::maxTexSpaceToScreenSpaceScaling(SO<Iterator<TriangleID>> triangles,
                                                              SO<TriangleContainer> container, int axis,
                                                              double distance, double fieldOfView,
                                                              int screenSize) {
    if (!triangles || triangles->isEmpty() || !container) return 0.0;
    LargestScale largest(axis);
    for (const TriangleID & id : *triangles) {
        const TriangleContainer::Triangle triangle = container->triangle(id);
        largest.add(triangle.vertices, triangle.texCoords);
    }
    return toScreen(largest.get(), distance, fieldOfView, screenSize);
}

double TextureSizeCalculator::maxTexSpaceToScreenSpaceScaling(SO<Iterator<unsigned>> indices,
                                                              SO<Iterator<Vector>> vertices,
                                                              SO<Iterator<Vector>> texcoords, int axis,
                                                              double distance, double fieldOfView,
                                                              int screenSize) {
    NBX_CHECK(vertices, L"must not be NULL");
    NBX_CHECK(texcoords, L"must not be NULL");
    if (!vertices || !texcoords || !indices || indices->isEmpty()) return 0.0;
    NBX_CHECK(indices->size() % 3 == 0, L"invalid index iterator");
    NBX_CHECK(vertices->size() == texcoords->size(), L"vertice iterator do not match texcoords iterator");
    const unsigned known = std::min(vertices->size(), texcoords->size());
    LargestScale largest(axis);
    for (unsigned i = 0; i + 2 < indices->size(); i += 3) {
        const std::array<unsigned, 3> corner = {indices->get(i), indices->get(i + 1), indices->get(i + 2)};
        const bool exists = std::max({corner[0], corner[1], corner[2]}) < known;
        NBX_CHECK(exists, L"index out of range");
        if (exists)
            largest.add({vertices->get(corner[0]), vertices->get(corner[1]), vertices->get(corner[2])},
                        {texcoords->get(corner[0]), texcoords->get(corner[1]), texcoords->get(corner[2])});
    }
    return toScreen(largest.get(), distance, fieldOfView, screenSize);
}

SO<Iterator<TextureInfo>> TextureSizeCalculator::computeTextureInformation(SO<Iterator<TriangleID>> triangles,
                                                                           SO<TriangleContainer> container,
                                                                           double distance,
                                                                           double fieldOfView, int screenSize,
                                                                           double quality, int atlasSize) {
    const SO<NBX::NonPersistentArray<TextureInfo>> result(new NBX::NonPersistentArray<TextureInfo>());
    if (!triangles || !container) return result;
    for (unsigned begin = 0, end = 0; begin < triangles->size(); begin = end) {
        end = endOfEntry(*triangles, begin);
        TextureInfo info;
        info.triangles = new NBX::SubIterator<TriangleID>(triangles.get(), begin, end - begin);
        info.bounds = boundsOfCoordinates(*info.triangles, *container);
        const Vector extent = info.bounds.diagonal();
        const auto texels = [&](int axis) {
            const double scale = maxTexSpaceToScreenSpaceScaling(info.triangles, container, axis, distance,
                                                                 fieldOfView, screenSize);
            return rounded(extent[unsigned(axis)] * (scale * quality));
        };
        info.width = texels(0);
        info.height = texels(1);
        // The border repeats texels of the source.
        const Vector margin(extent.x * BORDER / info.width, extent.y * BORDER / info.height, 0.0);
        info.bounds = NBX::Bounds(info.bounds.getLLF() - margin, info.bounds.getURB() + margin);
        info.width = std::min(info.width + 2 * BORDER, atlasSize);
        info.height = std::min(info.height + 2 * BORDER, atlasSize);
        result->append(info);
    }
    return result;
}

} // namespace ZMT::CORE
