// Leaf by leaf, in the coordinates of its atlas, so that the light has the texels of the textures. It is
// drawn twice, with everything that casts shadows and with nothing, and divided: what is left is the share of
// the sky that is seen. Only what can stand before the sky as seen from a leaf is drawn with it.

#include <zmt/util/occlusion/citylight.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>

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
/// Edge of the pictures that leaves are drawn in, unless one is larger, and most leaves along it.
constexpr unsigned s_pictureSize = 2048, s_mostAlong = 4;

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

/// The triangles of leaves, with coordinates of unit 0 in a picture of `along` atlases along its edge.
class Receivers {
public:
    explicit Receivers(unsigned along) : along_(along) {}

    void add(const CORE::RenderNode & leaf, unsigned number) {
        const SO<PolygonSet> set = leaf.triangles->newPolygonSet();
        const SO<PolygonSet::Vertices> inTree = set ? set->newTextureIterator(0) : nullptr;
        if (!inTree || inTree->size() == 0) return;
        // Atlases of the whole tree lie side by side, whole atlases from each other.
        Point sum;
        for (const Point & place : *inTree)
            sum += place;
        const Point middle = sum * (leaf.textureScaleFactor / inTree->size());
        const unsigned column = number % along_, row = number / along_;
        const Point corner(std::floor(middle.x) - column, std::floor(middle.y) - row, 0.0);
        const SO<PolygonSet> faces = NBX::PolygonSetTool::computeFaceNormals(set.get());
        for (unsigned i = 0; i < faces->newVertexIterator()->size(); ++i) {
            vertices_.push_back(faces->newVertexIterator()->get(i));
            normals_.push_back(faces->newNormalIterator()->get(i));
            places_.push_back((faces->newTextureIterator(0)->get(i) * leaf.textureScaleFactor - corner) *
                              (1.0 / along_));
        }
    }
    SO<PolygonSet> set() {
        SO<PolygonSet> set = newTriangles(std::move(vertices_));
        set->setNormalIterator(new NBX::Array<Point>(std::move(normals_)));
        set->setTextureIterator(new NBX::Array<Point>(std::move(places_)));
        return set;
    }

private:
    const unsigned along_;
    std::vector<Point> vertices_, normals_, places_;
};

const float * texelIn(const NBX::Image & picture, int x, int y) {
    return static_cast<const float *>(picture.lineComponents(y)) + std::size_t(x) * 4;
}

/// Pictures of all light and of that without shadows.
struct LitAndOpen {
    SO<NBX::Image> lit, open;
};

/// The share of the sky that is seen, in grey, and around the triangles what is beside it, in the square of
/// `size` texels from `x`, `y` on.
SO<NBX::Image> newShade(const LitAndOpen & pictures, int x, int y, int size, double openPlane) {
    const SO<NBX::Image> shade(new NBX::MemoryImage(size, size, NBX::LS_RGB)),
        mask(new NBX::MemoryImage(size, size, NBX::LS_Luminance));
    for (int row = 0; row < size; ++row)
        for (int column = 0; column < size; ++column) {
            const float * seen = texelIn(*pictures.lit, x + column, y + row);
            const float * all = texelIn(*pictures.open, x + column, y + row);
            if (!(seen[3] > 0.5F)) continue;
            const double share =
                std::clamp(double(seen[1]) / std::max(double(all[1]), s_leastOpen * openPlane), 0.0, 1.0);
            const double value = CityLight::s_leastLight + (1.0 - CityLight::s_leastLight) * share;
            std::fill_n(shade->pixelComponentsU8(column, row), 3,
                        static_cast<unsigned char>(value * 255.0 + 0.5));
            *mask->pixelComponentsU8(column, row) = 255;
        }
    CORE::fillUnusedTexels(CORE::UsedTexels(*mask), *shade);
    return shade;
}

/// Appends the leaves with triangles, children before what lies behind their parent.
void appendLeaves(RenderTree & nodes, std::vector<const CORE::RenderNode *> & leaves) {
    std::vector<RenderTree::NodePointer> waiting{nodes.root()};
    while (!waiting.empty()) {
        const auto node = waiting.back();
        waiting.pop_back();
        if (node->content.triangles) leaves.push_back(&node->content);
        for (unsigned i = RenderTree::s_childrenOfNode; nodes.hasChildren(node) && i-- > 0;)
            waiting.push_back(nodes.child(node, i));
    }
}

/// What the light is drawn with; the light of trees borrows it.
struct Studio {
    SO<AOImpl> impl;
    const LightList & lights;
    const std::vector<Point> & casters;
    NBX::Progress * progress;
};

/// The leaves of one tree in one sky.
class TreeLight {
public:
    TreeLight(const Studio & studio, const TexturedTriangleTree & tree)
        : studio_(studio), size_(static_cast<unsigned>(tree.getAtlasSize())) {
        appendLeaves(*tree.getRenderTree(), leaves_);
    }

    /// Pictures that `draw` makes of all leaves.
    std::size_t groups() const { return (leaves_.size() + perGroup() - 1) / perGroup(); }
    /// Null after a cancel.
    SO<NBX::Image> draw(const CORE::RenderNode & leaf) {
        const auto found = std::size_t(std::find(leaves_.begin(), leaves_.end(), &leaf) - leaves_.begin());
        const std::size_t group = found / perGroup();
        if (group != drawn_) {
            pictures_ = drawGroup(group * perGroup());
            drawn_ = group;
        }
        if (!pictures_.open) return nullptr;
        const auto number = static_cast<unsigned>(found % perGroup());
        return newShade(pictures_, int(number % along() * size_), int(number / along() * size_), int(size_),
                        studio_.lights.onOpenPlane().y);
    }

private:
    unsigned along() const {
        const auto most = static_cast<unsigned>(std::ceil(std::sqrt(double(leaves_.size()))));
        return std::clamp(std::min(s_pictureSize / size_, most), 1U, s_mostAlong);
    }
    unsigned perGroup() const { return along() * along(); }

    LitAndOpen drawGroup(std::size_t first) const {
        Receivers receivers(along());
        for (unsigned i = 0; i < perGroup() && first + i < leaves_.size(); ++i)
            receivers.add(*leaves_[first + i], i);
        const SO<PolygonSet> receiver = receivers.set();
        const unsigned edge = size_ * along();
        AOImpl::MeshStep step{receiver, castersAround(receiver->boundingBox(), studio_.casters), edge};
        step.shadowSize = std::max(edge, std::min(2 * edge, s_pictureSize));
        LitAndOpen pictures;
        pictures.lit = studio_.impl->render(step, studio_.lights, studio_.progress);
        step.casters = nullptr;
        if (pictures.lit) pictures.open = studio_.impl->render(step, studio_.lights, studio_.progress);
        return pictures;
    }

    const Studio & studio_;
    const unsigned size_;
    std::vector<const CORE::RenderNode *> leaves_;
    std::size_t drawn_ = std::numeric_limits<std::size_t>::max(); ///< the group that `pictures_` are of
    LitAndOpen pictures_;
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
    Studio studio{impl, lights, casters, nullptr};
    std::vector<TreeLight> treeLights;
    treeLights.reserve(trees.size());
    double groups = 0.0;
    for (const SO<TexturedTriangleTree> & tree : trees) {
        treeLights.emplace_back(studio, *tree);
        groups += double(treeLights.back().groups());
    }
    NBX::Progress progress("calculating light", 2.0 * groups * double(lights.directions.size()));
    studio.progress = &progress;
    for (std::size_t i = 0; i < trees.size(); ++i) {
        TexturedTriangleTree & tree = *trees[i];
        const auto draw = [&](const CORE::RenderNode & leaf) { return treeLights[i].draw(leaf); };
        if (!CORE::RenderTreeLayer::add(tree, TexturedTriangleTree::TextureFormatLuminance8, 1,
                                        nameOf(tree.getPagingFile(0)), draw))
            return false;
    }
    progress.finish();
    return true;
}

} // namespace ZMT::UTIL
