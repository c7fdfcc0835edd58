#pragma once

#include <functional>
#include <string>
#include <vector>

#include <nbx/gl/context/glcanvas.h>
#include <nbx/image/memoryimage.h>
#include <nbx/math/color.h>

#include "core/texturedtriangles/texturedtriangletree_impl/atlastreegenerator.h"
#include "trianglemeshes.h"

/// Squares on the ground, in rows of `columns`, 8 units wide and 10 units apart. Each shows its texture once,
/// upright: s along x, t along z. At `distance` a texel of an atlas is a quarter of a unit, so that a square
/// takes 32 texels.
namespace CitySquares {

using V = NBX::Vector3Base<double>;

constexpr double distance = 100.0, fieldOfView = 90.0, quality = 1.0;
constexpr int screenSize = 800;
constexpr int atlasSize = 64;
constexpr int textureSize = 32;

/// Red grows with s, green with t, blue is the texture's own.
inline NBX::SO<NBX::Image> ramp(unsigned number, NBX::LayerSequence layers = NBX::LS_RGB) {
    const NBX::SO<NBX::Image> image(new NBX::MemoryImage(textureSize, textureSize, layers));
    for (int y = 0; y < textureSize; ++y)
        for (int x = 0; x < textureSize; ++x)
            image->setColor(x, y,
                            NBX::Color((float(x) + 0.5F) / textureSize, (float(y) + 0.5F) / textureSize,
                                       float(number) * 0.1F, 1.0F));
    return image;
}

inline NBX::SO<ZMT::CORE::TextureWrapper> textureOf(const NBX::SO<NBX::Image> & image) {
    return new ZMT::CORE::TextureWrapper(NBX::SO<NBX::ImageTexture2DGL>(new NBX::ImageTexture2DGL(image)));
}

/// `textures[i]` is the number of square i's texture.
inline NBX::SO<ZMT::CORE::TriangleContainer> container(
    const std::vector<unsigned> & textures, unsigned columns,
    const std::function<NBX::SO<NBX::Image>(unsigned)> & imageOf = [](unsigned number) {
        return ramp(number);
    }) {
    unsigned count = 0;
    for (const unsigned number : textures)
        count = std::max(count, number + 1);
    std::vector<TriangleMeshes::Mesh> meshes;
    for (unsigned number = 0; number < count; ++number) {
        TriangleMeshes::Vectors vertices, texCoords;
        for (unsigned i = 0; i < textures.size(); ++i) {
            if (textures[i] != number) continue;
            const V corner(10.0 * (i % columns), 0.0, 10.0 * (i / columns));
            for (const auto & [s, t] : {std::pair(0, 0), {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}}) {
                vertices.push_back(corner + V(8.0 * s, 0.0, 8.0 * t));
                texCoords.push_back(V(s, t, 0.0));
            }
        }
        meshes.push_back({textureOf(imageOf(number)), TriangleMeshes::setOf(vertices, texCoords)});
    }
    return new ZMT::CORE::TriangleContainer(TriangleMeshes::meshesOf(meshes));
}

inline NBX::SO<ZMT::CORE::AtlasTreeGenerator::AtlasTree>
atlasTree(const NBX::SO<ZMT::CORE::TriangleContainer> & triangles) {
    return ZMT::CORE::AtlasTreeGenerator::createAtlasTree(triangles, distance, fieldOfView, screenSize,
                                                          quality, atlasSize, nullptr);
}

} // namespace CitySquares
