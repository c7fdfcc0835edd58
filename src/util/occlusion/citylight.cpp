// Leaf by leaf, in the coordinates of its atlas, so that the light has the texels of the textures. It is
// drawn twice, with everything that casts shadows and with nothing, and divided: what is left is the share of
// the sky that is seen. Only what can stand before the sky as seen from a leaf is drawn with it.

#include <zmt/util/occlusion/citylight.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/context/glcanvas.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/progress.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/shape/polygonsettool.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/texturedtriangles/citymodels.h>
#include <zmt/util/occlusion/lightcasters.h>

#include "aoimpl.h"
#include "cityground.h"
#include "core/texturedtriangles/texturedtriangletree_impl/atlasfill.h"
#include "core/texturedtriangles/texturedtriangletree_impl/rendertreelayer.h"
#include "lightlist.h"

namespace ZMT::UTIL {

namespace {

using CORE::RenderTree;
using CORE::TexturedTriangleTree;
using NBX::PolygonSet;
using NBX::SO;
using Point = NBX::Vector3Base<double>;

/// What stands so many times its height away hides 3 degrees of the sky, and counts no longer.
constexpr double s_farness = 20.0;
/// Of the light of an open plane: faces that are turned to less of the sky count as turned to so much.
constexpr double s_leastOpen = 0.1;
/// A shadow map has to be finer than the texels, but not larger than every card has them.
constexpr unsigned s_largestShadowMap = 4096;

SO<PolygonSet> newTriangles(std::vector<Point> corners) {
    return new PolygonSet(PolygonSet::PT_Triangles, new NBX::Array<Point>(std::move(corners)));
}

/// All that casts shadows, three corners a triangle, in the frame of the city.
std::vector<Point> castersOf(const CORE::CityModels & city, const CityLight::Settings & settings) {
    std::vector<Point> corners;
    if (settings.groundAt) corners = groundOfCity(city.boundingBox(), city.origin(), settings.groundAt);
    for (const LightCasters::Body & body : LightCasters::bodiesOf(city))
        for (const Point & corner : body.corners)
            corners.push_back(corner - city.origin());
    return corners;
}

/// By how much `value` lies outside of a range.
double beyond(double low, double high, double least, double most) {
    return std::max({low - most, least - high, 0.0});
}

/// Those that may hide the sky from something in `lit`.
SO<PolygonSet> castersAround(const NBX::Bounds & lit, const std::vector<Point> & corners) {
    const Point low = lit.getLLF(), high = lit.getURB();
    std::vector<Point> near;
    for (std::size_t i = 0; i + 2 < corners.size(); i += 3) {
        const Point &a = corners[i], &b = corners[i + 1], &c = corners[i + 2];
        const double above = std::max({a.y, b.y, c.y}) - low.y;
        if (above <= 0.0) continue;
        const double x = beyond(low.x, high.x, std::min({a.x, b.x, c.x}), std::max({a.x, b.x, c.x}));
        const double z = beyond(low.z, high.z, std::min({a.z, b.z, c.z}), std::max({a.z, b.z, c.z}));
        if (std::hypot(x, z) <= s_farness * above) near.insert(near.end(), {a, b, c});
    }
    return newTriangles(std::move(near));
}

/// The triangles of a leaf with their normals; coordinates of unit 0 are those in its atlas, from 0 to 1.
SO<PolygonSet> receiverOf(const CORE::RenderNode & leaf) {
    const SO<PolygonSet> set = leaf.triangles->newPolygonSet();
    const SO<PolygonSet::Vertices> inTree = set ? set->newTextureIterator(0) : nullptr;
    if (!inTree || inTree->size() == 0) return nullptr;
    // Atlases of the whole tree lie side by side, whole atlases from each other.
    Point sum;
    for (const Point & place : *inTree)
        sum += place;
    const Point middle = sum * (leaf.textureScaleFactor / inTree->size());
    const Point corner(std::floor(middle.x), std::floor(middle.y), 0.0);
    std::vector<Point> places;
    places.reserve(inTree->size());
    for (const Point & place : *inTree)
        places.push_back(place * leaf.textureScaleFactor - corner);
    set->setTextureIterator(new NBX::Array<Point>(std::move(places)), 0);
    return NBX::PolygonSetTool::computeFaceNormals(set.get());
}

const float * texelIn(const NBX::Image & picture, int x, int y) {
    return static_cast<const float *>(picture.lineComponents(y)) + std::size_t(x) * 4;
}

/// The share of the sky that is seen, in grey, and around the triangles what is beside it.
SO<NBX::Image> newShade(const NBX::Image & lit, const NBX::Image & open, double openPlane) {
    const int size = lit.width();
    const SO<NBX::Image> shade(new NBX::MemoryImage(size, size, NBX::LS_RGB)),
        mask(new NBX::MemoryImage(size, size, NBX::LS_Luminance));
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
            const float *seen = texelIn(lit, x, y), *all = texelIn(open, x, y);
            if (!(seen[3] > 0.5F)) continue;
            const double share =
                std::clamp(double(seen[1]) / std::max(double(all[1]), s_leastOpen * openPlane), 0.0, 1.0);
            const double value = CityLight::s_leastLight + (1.0 - CityLight::s_leastLight) * share;
            std::fill_n(shade->pixelComponentsU8(x, y), 3, static_cast<unsigned char>(value * 255.0 + 0.5));
            *mask->pixelComponentsU8(x, y) = 255;
        }
    CORE::fillUnusedTexels(CORE::UsedTexels(*mask), *shade);
    return shade;
}

/// Leaves with triangles.
unsigned leavesIn(const TexturedTriangleTree & tree) {
    unsigned leaves = 0;
    RenderTree & nodes = *tree.getRenderTree();
    std::vector<RenderTree::NodePointer> waiting{nodes.root()};
    while (!waiting.empty()) {
        const auto node = waiting.back();
        waiting.pop_back();
        leaves += node->content.triangles ? 1 : 0;
        for (unsigned i = 0; nodes.hasChildren(node) && i < RenderTree::s_childrenOfNode; ++i)
            waiting.push_back(nodes.child(node, i));
    }
    return leaves;
}

/// The light of one sky on leaves of any tree.
class LeafLight {
public:
    LeafLight(const SO<AOImpl> & impl, const LightList & lights, const std::vector<Point> & casters,
              NBX::Progress & progress)
        : impl_(impl), lights_(lights), casters_(casters), progress_(progress) {}

    /// Null after a cancel.
    SO<NBX::Image> draw(const CORE::RenderNode & leaf, unsigned size) const {
        const SO<PolygonSet> receiver = receiverOf(leaf);
        if (!receiver) return new NBX::MemoryImage(int(size), int(size), NBX::LS_RGB);
        AOImpl::MeshStep step{receiver, castersAround(receiver->boundingBox(), casters_), size};
        step.shadowSize = std::max(size, std::min(2 * size, s_largestShadowMap));
        const SO<NBX::Image> lit = impl_->render(step, lights_, &progress_);
        step.casters = nullptr;
        const SO<NBX::Image> open = lit ? impl_->render(step, lights_, &progress_) : nullptr;
        return open ? newShade(*lit, *open, lights_.onOpenPlane().y) : nullptr;
    }

private:
    SO<AOImpl> impl_;
    const LightList & lights_;
    const std::vector<Point> & casters_;
    NBX::Progress & progress_;
};

} // namespace

bool CityLight::bake(const CORE::CityModels & city, const Settings & settings, SO<NBX::GLCanvas> canvas,
                     const NameOf & nameOf) {
    const SO<AOImpl> impl = newAOImpl(canvas);
    if (!impl) return false;
    std::srand(settings.seed);
    AmbientOcclusion::LightingConfiguration sky;
    sky.numSkyDirections = settings.directions;
    const LightList lights = LightList::combined(sky);
    const std::vector<Point> casters = castersOf(city, settings);
    std::vector<SO<TexturedTriangleTree>> trees = city.trees();
    std::erase_if(trees, [](const SO<TexturedTriangleTree> & tree) {
        return !tree->getRenderTree() || tree->getNumberOfLayers() != 1;
    });
    double leaves = 0.0;
    for (const SO<TexturedTriangleTree> & tree : trees)
        leaves += leavesIn(*tree);
    NBX::Progress progress("calculating light", 2.0 * leaves * static_cast<double>(lights.directions.size()));
    const LeafLight light(impl, lights, casters, progress);
    for (const SO<TexturedTriangleTree> & tree : trees) {
        const auto draw = [&](const CORE::RenderNode & leaf) {
            return light.draw(leaf, static_cast<unsigned>(tree->getAtlasSize()));
        };
        if (!CORE::RenderTreeLayer::add(*tree, TexturedTriangleTree::TextureFormatLuminance8, 1,
                                        nameOf(tree->getPagingFile(0)), draw))
            return false;
    }
    progress.finish();
    return true;
}

} // namespace ZMT::UTIL
