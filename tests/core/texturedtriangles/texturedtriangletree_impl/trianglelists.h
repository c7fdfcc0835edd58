#pragma once

#include <algorithm>
#include <random>
#include <vector>

#include <nbx/container/sequence/array.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>

#include "core/texturedtriangles/texturedtriangletree_impl/textureatlasgenerator.h"

/// Vertices of triangles, three by three.
using TriangleList = std::vector<NBX::Vector3Base<double>>;

inline NBX::SO<NBX::Array<NBX::Vector3Base<double>>> newVertices(const TriangleList & list) {
    return new NBX::Array<NBX::Vector3Base<double>>(list);
}

inline NBX::SO<NBX::Array<int>> newNumbers(std::vector<int> numbers) {
    return new NBX::Array<int>(std::move(numbers));
}

inline std::vector<int> allOf(const TriangleList & list) {
    std::vector<int> numbers(list.size() / 3);
    for (std::size_t i = 0; i < numbers.size(); ++i)
        numbers[i] = static_cast<int>(i);
    return numbers;
}

using GroupList = std::vector<std::vector<int>>;

inline GroupList listed(const NBX::SO<ZMT::CORE::TextureAtlasGenerator::Groups> & groups) {
    GroupList result;
    for (unsigned i = 0; groups && i < groups->size(); ++i) {
        const NBX::SO<NBX::Iterator<int>> group = groups->get(i);
        result.emplace_back(group->begin(), group->end());
    }
    return result;
}

inline NBX::SO<ZMT::CORE::TextureAtlasGenerator::Groups> newGroups(const GroupList & groups) {
    using Sequence = NBX::NonPersistentArray<NBX::SO<NBX::Iterator<int>>>;
    const NBX::SO<Sequence> result(new Sequence);
    for (const std::vector<int> & group : groups)
        result->append(newNumbers(group));
    return result;
}

/// The quad of a corner and two sides as two triangles.
inline void appendQuad(TriangleList & list, const NBX::Vector3Base<double> & corner,
                       const NBX::Vector3Base<double> & u, const NBX::Vector3Base<double> & v) {
    for (const auto & p : {corner, corner + u, corner + u + v, corner, corner + u + v, corner + v})
        list.push_back(p);
}

/// Six quads that look outwards, turned about y and moved.
inline void appendHouse(TriangleList & list, std::mt19937 & random, double size) {
    using V = NBX::Vector3Base<double>;
    std::uniform_real_distribution<double> uniform(0.2, 1.0);
    const double w = size * uniform(random), h = size * uniform(random), d = size * uniform(random);
    TriangleList house;
    appendQuad(house, V(0, 0, 0), V(w, 0, 0), V(0, h, 0));
    appendQuad(house, V(0, 0, d), V(0, h, 0), V(w, 0, 0));
    appendQuad(house, V(0, 0, 0), V(0, h, 0), V(0, 0, d));
    appendQuad(house, V(w, 0, 0), V(0, 0, d), V(0, h, 0));
    appendQuad(house, V(0, 0, 0), V(0, 0, d), V(w, 0, 0));
    appendQuad(house, V(0, h, 0), V(w, 0, 0), V(0, 0, d));
    const auto turn = NBX::Matrix4x4Base<double>::rotation(V(0, 1, 0), uniform(random) * 7.0);
    const V place = V(uniform(random), 0.1 * uniform(random), uniform(random)) * (size * 30.0);
    std::transform(house.begin(), house.end(), std::back_inserter(list),
                   [&](const V & p) { return place + turn * p; });
}

/// Houses, loose triangles, and some without area.
inline TriangleList randomTown(unsigned seed, unsigned houses, double size, double far = 0.0) {
    using V = NBX::Vector3Base<double>;
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> uniform(0.0, size);
    TriangleList town;
    for (unsigned i = 0; i < houses; ++i) {
        appendHouse(town, random, size);
        for (int corner = 0; corner < 3; ++corner) {
            const double x = uniform(random), y = uniform(random);
            town.emplace_back(x, y, uniform(random));
        }
        const V a = town.back();
        for (const V & p : {a, a + V(1, 2, 3), i % 2 ? a : a + V(2, 4, 6)})
            town.push_back(p);
    }
    for (V & p : town)
        p += V(far, 0.0, far);
    return town;
}
