// Step by step: the scale of each triangle along one axis of its texture; the triangles sorted by it; groups
// within which the scale at most doubles; a mesh for each group. First along s, then each mesh along t.

#include "meshvalidation.h"

#include <algorithm>
#include <numeric>
#include <vector>

#include <nbx/container/sequence/array.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/progress.h>

#include "core/texturedtriangles/modelnumber.h"
#include "texturesizecalculator.h"

namespace ZMT::CORE {

using NBX::Array;
using NBX::Iterator;
using NBX::PolygonSet;
using NBX::SO;

namespace {

using TexturedMesh = TriangleCollector::TexturedMesh;
using Vector = NBX::Vector3Base<double>;
using Numbers = std::vector<unsigned>;

constexpr double s_withoutScale = -1.0;

std::vector<double> scalesOf(const PolygonSet & set, int axis) {
    const SO<PolygonSet::Vertices> p = set.newVertexIterator(), t = set.newTextureIterator(0);
    std::vector<double> scales(set.triangles(), s_withoutScale);
    for (unsigned i = 0; t && i < scales.size() && 3 * i + 2 < t->size(); ++i)
        if (double scale = 0.0; TextureSizeCalculator::texSpaceToWorldSpaceScaling(
                p->get(3 * i), p->get(3 * i + 1), p->get(3 * i + 2), t->get(3 * i), t->get(3 * i + 1),
                t->get(3 * i + 2), axis, scale))
            scales[i] = scale;
    return scales;
}

/// Whether a triangle of scale `next` stands in the group that begins with scale `first`.
bool belongsTo(double first, double next) {
    if (first < 0.0) return next < 0.0;
    return first * 2.0 >= next;
}

template <class T> SO<Iterator<T>> picked(const SO<Iterator<T>> & values, const Numbers & triangles) {
    if (!values) return nullptr;
    std::vector<T> result;
    result.reserve(triangles.size() * 3);
    for (const unsigned triangle : triangles)
        for (unsigned k = 0; k < 3; ++k)
            result.push_back(values->get(3 * triangle + k));
    return new Array<T>(std::move(result));
}

TexturedMesh meshOf(const TexturedMesh & source, const Numbers & triangles) {
    const PolygonSet & from = *source.geometry;
    const SO<PolygonSet> set(
        new PolygonSet(PolygonSet::PT_Triangles, picked(from.newVertexIterator(), triangles)));
    set->setColorIterator(picked(from.newColorIterator(), triangles));
    set->setTextureIterator(picked(from.newTextureIterator(0), triangles));
    set->setTextureIterator(picked(from.newTextureIterator(ModelNumber::unit), triangles), ModelNumber::unit);
    return {source.texture, set};
}

void appendSplit(const TexturedMesh & mesh, int axis, std::vector<TexturedMesh> & result) {
    const std::vector<double> scales = scalesOf(*mesh.geometry, axis);
    Numbers sorted(scales.size());
    std::iota(sorted.begin(), sorted.end(), 0U);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [&](unsigned a, unsigned b) { return scales[a] < scales[b]; });
    for (auto begin = sorted.begin(); begin != sorted.end();) {
        const auto end = std::find_if(begin + 1, sorted.end(), [&](unsigned triangle) {
            return !belongsTo(scales[*begin], scales[triangle]);
        });
        result.push_back(meshOf(mesh, Numbers(begin, end)));
        begin = end;
    }
}

} // namespace

SO<Iterator<TexturedMesh>> MeshValidation::validate(const SO<Iterator<TexturedMesh>> & meshes) {
    const SO<NBX::NonPersistentArray<TexturedMesh>> result(new NBX::NonPersistentArray<TexturedMesh>());
    NBX_CHECK(meshes, L"no meshes");
    if (!meshes) return result;
    NBX::Progress progress("sorting triangles", meshes->size());
    double done = 0.0;
    for (const TexturedMesh & mesh : *meshes) {
        if (!progress.update(done++)) return nullptr;
        if (!mesh.geometry) continue;
        std::vector<TexturedMesh> alongS;
        appendSplit(mesh, 0, alongS);
        for (const TexturedMesh & part : alongS)
            appendSplit(part, 1, result->stl());
    }
    progress.finish();
    return result;
}

} // namespace ZMT::CORE
