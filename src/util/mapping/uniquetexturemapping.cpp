// All meshes become one list of triangles. Each triangle is laid out on a rectangle of its own, the engine
// packs the rectangles on atlases, and the triangles are gathered by atlas.

#include <zmt/util/mapping/uniquetexturemapping.h>

#include <array>
#include <utility>
#include <vector>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/image/atlas/textureatlascreator.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/shape/polygonsettool.h>

#include "dummyimage.h"
#include "trianglelayout.h"

namespace ZMT::UTIL {

namespace {

using NBX::PolygonSet;
using NBX::SO;
using Vector = NBX::Vector3Base<double>;
using Meshes = NBX::Iterator<SO<PolygonSet>>;

SO<Meshes> nonIndexed(const Meshes & meshes) {
    std::vector<SO<PolygonSet>> result;
    result.reserve(meshes.size());
    for (const SO<PolygonSet> & mesh : meshes)
        result.push_back(NBX::PolygonSetTool::convertToNonIndexedForm(mesh.get(), false));
    return new NBX::NonPersistentArray<SO<PolygonSet>>(std::move(result));
}

/// Running totals of triangles.
std::vector<unsigned> rangesOf(const Meshes & meshes) {
    std::vector<unsigned> ranges;
    ranges.reserve(meshes.size());
    unsigned rangeEnd = 0;
    for (const SO<PolygonSet> & mesh : meshes) {
        if (mesh && mesh->newVertexIterator()) {
            const SO<PolygonSet::Indices> indices = mesh->newIndexIterator();
            rangeEnd += (indices ? indices->size() : mesh->newVertexIterator()->size()) / 3;
        }
        ranges.push_back(rangeEnd);
    }
    return ranges;
}

struct Layout {
    SO<NBX::Iterator<SO<NBX::Image>>> rectangles;
    std::vector<std::array<Vector, 3>> coordinates; ///< by triangle, in its rectangle
};

Layout layOut(const PolygonSet::Vertices & vertices, double texelsPerUnit, int maxAtlasSize) {
    const unsigned triangles = vertices.size() / 3;
    Layout layout;
    std::vector<SO<NBX::Image>> rectangles;
    rectangles.reserve(triangles);
    layout.coordinates.reserve(triangles);
    for (unsigned i = 0; i < triangles; ++i) {
        const TriangleLayout triangle({vertices.get(3 * i), vertices.get(3 * i + 1), vertices.get(3 * i + 2)},
                                      texelsPerUnit, maxAtlasSize);
        rectangles.emplace_back(new DummyImage(triangle.width, triangle.height));
        layout.coordinates.push_back(triangle.coordinates);
    }
    layout.rectangles = new NBX::NonPersistentArray<SO<NBX::Image>>(std::move(rectangles));
    return layout;
}

/// Without an image; what draws into it gives it one.
SO<NBX::ImageTexture2DGL> newTexture() {
    using Texture = NBX::ImageTexture2DGL;
    return new Texture(nullptr, Texture::WM_Repeat, Texture::WM_Repeat, Texture::FM_LinearMipmapLinear,
                       Texture::FM_Linear, 1.0, NBX::Matrix4x4Base<double>(),
                       NBX::Color(0.0F, 0.0F, 0.0F, 0.0F));
}

/// What the corners of `triangles` have; null where the vertices have nothing.
template <class T>
SO<NBX::Iterator<T>> gathered(const SO<NBX::Iterator<T>> & values,
                              const NBX::Iterator<unsigned> & triangles) {
    if (!values) return nullptr;
    std::vector<T> result;
    result.reserve(std::size_t(triangles.size()) * 3);
    for (const unsigned triangle : triangles)
        for (unsigned corner = 0; corner < 3; ++corner)
            result.push_back(values->get(3 * triangle + corner));
    return new NBX::Array<T>(std::move(result));
}

SO<PolygonSet> newMesh(const PolygonSet & merged, const NBX::Iterator<unsigned> & triangles,
                       std::vector<Vector> places) {
    SO<PolygonSet> mesh(
        new PolygonSet(PolygonSet::PT_Triangles, gathered(merged.newVertexIterator(), triangles)));
    mesh->setNormalIterator(gathered(merged.newNormalIterator(), triangles));
    mesh->setColorIterator(gathered(merged.newColorIterator(), triangles));
    mesh->setTextureIterator(new NBX::Array<Vector>(std::move(places)), 0);
    for (unsigned unit = 1; unit < PolygonSet::maxTextureUnits; ++unit)
        mesh->setTextureIterator(gathered(merged.newTextureIterator(unit - 1), triangles), unit);
    return mesh;
}

} // namespace

UniqueTextureMapping::TexturedMeshComposite
UniqueTextureMapping::create(SO<Meshes> meshes, double texelsPerUnit, int maxAtlasSize) {
    const SO<PolygonSet> merged = NBX::PolygonSetTool::forceTriangleMerge(meshes.get(), false);
    if (!merged) return {};
    std::vector<unsigned> ranges = rangesOf(*nonIndexed(*meshes));
    const unsigned rangeEnd = ranges.back(), numTris = merged->newVertexIterator()->size() / 3;
    if (numTris != rangeEnd) NBX_REPORT(2, L"numTris==rangeEnd", L"invalid polygonset");

    const Layout layout = layOut(*merged->newVertexIterator(), texelsPerUnit, maxAtlasSize);
    const auto atlasSize = static_cast<unsigned>(std::max(maxAtlasSize, 0));
    const NBX::TextureAtlasCreator creator(layout.rectangles.get(), atlasSize, atlasSize);
    std::vector<SO<NBX::ImageTexture2DGL>> textures;
    std::vector<SO<PolygonSet>> atlasMeshes;
    for (unsigned atlas = 0; atlas < creator.atlases(); ++atlas) {
        const SO<NBX::Iterator<unsigned>> triangles = creator.imagesOnAtlas(atlas);
        std::vector<Vector> places;
        places.reserve(std::size_t(triangles->size()) * 3);
        for (const unsigned triangle : *triangles)
            for (const Vector & corner : layout.coordinates[triangle])
                places.push_back(creator.placement(triangle) * corner);
        textures.push_back(newTexture());
        atlasMeshes.push_back(newMesh(*merged, *triangles, std::move(places)));
    }
    return {new NBX::NonPersistentArray<SO<NBX::ImageTexture2DGL>>(std::move(textures)),
            new NBX::NonPersistentArray<SO<PolygonSet>>(std::move(atlasMeshes)),
            new NBX::Array<unsigned>(std::move(ranges))};
}

} // namespace ZMT::UTIL
