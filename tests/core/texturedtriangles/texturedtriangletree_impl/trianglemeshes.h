#pragma once

#include <array>
#include <random>
#include <vector>

#include <nbx/container/sequence/array.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/so.h>
#include <nbx/scene/shape/polygonset.h>

#include "core/texturedtriangles/texturedtriangletree_impl/trianglecontainer.h"

/// Small textured meshes for the tests of their processing.
namespace TriangleMeshes {

using V = NBX::Vector3Base<double>;
using Vectors = std::vector<V>;
using Mesh = ZMT::CORE::TriangleCollector::TexturedMesh;
using Meshes = NBX::SO<NBX::Iterator<Mesh>>;

inline NBX::SO<NBX::PolygonSet::Vertices> sequence(Vectors values) {
    return new NBX::Array<V>(std::move(values));
}

inline NBX::SO<NBX::PolygonSet> setOf(Vectors vertices, Vectors texCoords = {}) {
    const NBX::SO<NBX::PolygonSet> set(
        new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles, sequence(std::move(vertices))));
    if (!texCoords.empty()) set->setTextureIterator(sequence(std::move(texCoords)));
    return set;
}

inline NBX::SO<ZMT::CORE::TextureWrapper> wrapper(int width = 4, int height = 4) {
    return new ZMT::CORE::TextureWrapper(NBX::SO<NBX::ImageTexture2DGL>(
        new NBX::ImageTexture2DGL(new NBX::MemoryImage(width, height, NBX::LS_RGB))));
}

inline Meshes meshesOf(const std::vector<Mesh> & meshes) {
    return new NBX::NonPersistentArray<Mesh>(meshes);
}

inline Vectors valuesOf(const NBX::SO<NBX::PolygonSet::Vertices> & values) {
    Vectors result;
    for (unsigned i = 0; values && i < values->size(); ++i)
        result.push_back(values->get(i));
    return result;
}

inline double areaOf(const NBX::PolygonSet & set) {
    const Vectors p = valuesOf(set.newVertexIterator());
    double area = 0.0;
    for (std::size_t i = 0; i + 2 < p.size(); i += 3)
        area += (p[i + 1] - p[i]).cross(p[i + 2] - p[i]).length() / 2.0;
    return area;
}

/// `triangles` of sizes over orders of magnitude in a box of 100, some without area, some without texture
/// area.
inline Mesh randomMesh(std::mt19937 & random, unsigned triangles) {
    std::uniform_real_distribution<double> place(0.0, 100.0), unit(-1.0, 1.0), exponent(-3.0, 1.0);
    Vectors vertices, texCoords;
    for (unsigned i = 0; i < triangles; ++i) {
        const V at(place(random), place(random), place(random));
        const double size = std::pow(10.0, exponent(random)), repeat = std::pow(10.0, exponent(random));
        for (unsigned k = 0; k < 3; ++k) {
            const bool isFlat = i % 7 == 0 && k == 2;
            vertices.push_back(isFlat ? vertices.back()
                                      : at + V(unit(random), unit(random), unit(random)) * size);
            const bool isSame = i % 5 == 0 && k > 0;
            texCoords.push_back(isSame ? texCoords.back() : V(unit(random), unit(random), 0.0) * repeat);
        }
    }
    return {wrapper(), setOf(vertices, texCoords)};
}

} // namespace TriangleMeshes
