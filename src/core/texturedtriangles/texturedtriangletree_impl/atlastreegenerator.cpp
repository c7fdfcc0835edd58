// A node whose triangles do not fit into an atlas gives them to four children; one whose triangles do takes
// in those of its finished siblings as long as all fit together. The work lies on a stack, first child on
// top.
//
// Triangles are divided at half of their area: those sorted by their centre along the first axis, then both
// halves along the second one. Where that leaves all in one group, as for one large triangle among small ones
// and for centres at one place, they are divided by number, so that every division comes to an end.

#include "atlastreegenerator.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iostream>
#include <iterator>
#include <utility>
#include <vector>

#include <nbx/data/objectloader.h>
#include <nbx/gl/context/glcanvas.h>
#include <nbx/image/atlas/textureatlascreator.h>
#include <nbx/image/memoryimage.h>
#include <nbx/image/subimage.h>
#include <nbx/math/area.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/progress.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>

#include "textureatlasgenerator.h"
#include "texturesizecalculator.h"

namespace ZMT::CORE {

using NBX::Image;
using NBX::SO;

namespace {

using TriangleID = AtlasTreeGenerator::TriangleID;
using TriangleIDs = AtlasTreeGenerator::Triangles;
using AtlasTree = AtlasTreeGenerator::AtlasTree;
using IDs = std::vector<TriangleID>;
using Vector = NBX::Vector3Base<double>;

SO<TriangleIDs> trianglesOf(IDs ids) {
    return new NBX::NonPersistentArray<TriangleID>(std::move(ids));
}

IDs allTriangles(const TriangleContainer & container) {
    IDs ids;
    for (unsigned mesh = 0; mesh < container.numberOfMeshes(); ++mesh)
        for (unsigned i = 0; i < container.numberOfTriangles(mesh); ++i)
            ids.push_back({int(mesh), int(i)});
    return ids;
}

/// The tree's cell: x, and the larger of the extents in y and z.
SO<AtlasTree> emptyTree(const TriangleContainer & container) {
    NBX::Bounds bounds;
    for (unsigned mesh = 0; mesh < container.numberOfMeshes(); ++mesh)
        if (const SO<NBX::PolygonSet> geometry = container.mesh(mesh).geometry)
            bounds += geometry->boundingBox();
    if (!bounds.isDefined()) bounds = NBX::Bounds(Vector());
    const Vector extent = bounds.diagonal();
    const std::array<unsigned, 2> axes = {0, extent.y >= extent.z ? 1U : 2U};
    std::array<double, 2> minimum, maximum;
    for (unsigned d = 0; d < 2; ++d) {
        minimum[d] = bounds.getLLF()[axes[d]];
        maximum[d] = bounds.getURB()[axes[d]];
        if (!(maximum[d] > minimum[d] + 1e-10)) maximum[d] += 0.01;
    }
    return new AtlasTree(minimum, maximum, axes);
}

struct Measured {
    TriangleID id;
    double area;
    std::array<double, 2> center;
};
using MeasuredIterator = std::vector<Measured>::iterator;

std::vector<Measured> measured(const TriangleIDs & triangles, const TriangleContainer & container,
                               unsigned axis0, unsigned axis1) {
    std::vector<Measured> result;
    result.reserve(triangles.size());
    for (const TriangleID & id : triangles) {
        const std::array<Vector, 3> p = container.triangle(id).vertices;
        const Vector center = (p[0] + p[1] + p[2]) / 3.0;
        result.push_back({id, container.area(id), {center[axis0], center[axis1]}});
    }
    return result;
}

/// Sorts along an axis, and gives how many of the first triangles make up half of the area.
std::ptrdiff_t sortAndHalve(MeasuredIterator begin, MeasuredIterator end, unsigned axis) {
    std::stable_sort(begin, end, [axis](const Measured & a, const Measured & b) {
        return a.center[axis] < b.center[axis];
    });
    double total = 0.0, sum = 0.0;
    for (auto i = begin; i != end; ++i)
        total += i->area;
    for (auto i = begin; i != end; ++i) {
        const double last = i->area;
        sum += last;
        if (!(sum >= total / 2.0)) continue;
        const bool stepsBack = !((total - last) - sum > sum - last);
        return i - begin + (stepsBack ? 0 : 1);
    }
    return end - begin;
}

SO<TriangleIDs> sortedGroup(MeasuredIterator begin, MeasuredIterator end) {
    IDs ids;
    ids.reserve(std::size_t(end - begin));
    std::transform(begin, end, std::back_inserter(ids), [](const Measured & m) { return m.id; });
    std::sort(ids.begin(), ids.end());
    return trianglesOf(std::move(ids));
}

SO<TriangleIDs> merged(const TriangleIDs & a, const TriangleIDs & b) {
    IDs ids;
    ids.reserve(std::size_t(a.size()) + b.size());
    std::merge(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(ids));
    return trianglesOf(std::move(ids));
}

/// Three for each triangle.
SO<NBX::Iterator<Vector>> cornersOf(const TriangleIDs & triangles, const TriangleContainer & container) {
    std::vector<Vector> corners;
    corners.reserve(std::size_t(triangles.size()) * 3);
    for (const TriangleID & id : triangles) {
        const std::array<Vector, 3> vertices = container.triangle(id).vertices;
        corners.insert(corners.end(), vertices.begin(), vertices.end());
    }
    return new NBX::Array<Vector>(std::move(corners));
}

/// One run over a tree that is growing.
class TreeGrowth {
public:
    using Node = AtlasTree::NodePointer;
    using Fits = std::function<bool(const SO<TriangleIDs> &)>;

    TreeGrowth(const SO<AtlasTree> & tree, const SO<TriangleContainer> & container, Fits fits)
        : tree_(tree), container_(container), fits_(std::move(fits)) {}

    /// False after a cancel.
    bool run(std::uint64_t triangles) {
        NBX::Progress progress("dividing triangles", double(triangles));
        std::uint64_t done = 0;
        waiting_.push_back(tree_->root());
        while (!waiting_.empty()) {
            if (!progress.update(double(done))) return false;
            const Node node = waiting_.back();
            waiting_.pop_back();
            tell(node);
            if (!node->content.triangles || node->content.triangles->isEmpty()) continue;
            if (fits_(node->content.triangles)) {
                done += node->content.triangles->size();
                finish(node);
            } else {
                divide(node);
            }
        }
        progress.finish();
        if (TexturedTriangleTree::getVerbose()) std::cout << "\n" << std::flush;
        return true;
    }

private:
    void tell(const Node & node) {
        if (!TexturedTriangleTree::getVerbose()) return;
        std::cout << "\r\t\tNode: ";
        for (const unsigned digit : tree_->path(node))
            std::cout << digit;
        std::cout << "                   " << std::flush;
    }

    void divide(const Node & node) {
        const SO<TriangleIDs> triangles = node->content.triangles;
        node->content.triangles = nullptr;
        tree_->createChildren(node);
        const std::array<SO<TriangleIDs>, 4> groups =
            AtlasTreeGenerator::quadrisect(*triangles, *container_, tree_->axis(0), tree_->axis(1));
        for (unsigned i = 4; i-- > 0;) {
            waiting_.push_back(tree_->child(node, i));
            waiting_.back()->content.triangles = groups[i];
        }
    }

    /// Takes in the finished siblings that find room.
    void finish(const Node & node) {
        const Node parent = tree_->parent(node);
        for (unsigned i = 0; parent && i < 4; ++i) {
            const Node sibling = tree_->child(parent, i);
            if (sibling->content.imageFile.empty()) continue;
            const SO<TriangleIDs> both = merged(*sibling->content.triangles, *node->content.triangles);
            if (!fits_(both)) continue;
            node->content.triangles = both;
            sibling->content = AtlasTreeGenerator::AtlasNode();
        }
        node->content.imageFile = L"done";
    }

    SO<AtlasTree> tree_;
    SO<TriangleContainer> container_;
    Fits fits_;
    std::vector<Node> waiting_;
};

SO<Image> readAtlas(const std::wstring & name) {
    if (name.empty()) return nullptr;
    return NBX::soCast<Image>(
        NBX::ObjectLoader::readFile(NBX::StringUtils::WString2Utf8String(name), Image::ClassNameNBX(), true));
}

} // namespace

void AtlasTreeGenerator::AtlasNode::serialize(NBX::SerializationManager &) {
    NBX_NOT_IMPLEMENTED(L"Atlasnodes need not to be serialized");
}

SO<AtlasTree> AtlasTreeGenerator::createAtlasTree(SO<TriangleContainer> container, double distance,
                                                  double fieldOfView, int screenSize, double quality,
                                                  int atlasSize, SO<NBX::GLCanvas>) {
    NBX_CHECK(container, L"no triangles");
    if (!container)
        container = new TriangleContainer(new NBX::NonPersistentArray<TriangleContainer::TexturedMesh>());
    if (TexturedTriangleTree::getVerbose()) std::cout << "\tComputing tree...\n";
    const SO<AtlasTree> tree = emptyTree(*container);
    tree->root()->content.triangles = trianglesOf(allTriangles(*container));
    TreeGrowth growth(tree, container, [&](const SO<TriangleIDs> & triangles) {
        return fits(triangles, container, distance, fieldOfView, screenSize, quality, atlasSize);
    });
    return growth.run(tree->root()->content.triangles->size()) ? tree : nullptr;
}

bool AtlasTreeGenerator::areaFits(const TriangleIDs & triangles, const TriangleContainer & container,
                                  double unitsPerTexel, int atlasSize) {
    const double limit = double(atlasSize) * atlasSize * unitsPerTexel * unitsPerTexel;
    double sum = 0.0;
    for (const TriangleID & id : triangles) {
        sum += container.area(id);
        if (sum > limit) return false;
    }
    return true;
}

bool AtlasTreeGenerator::fits(const SO<TriangleIDs> & triangles, const SO<TriangleContainer> & container,
                              double distance, double fieldOfView, int screenSize, double quality,
                              int atlasSize) {
    if (!triangles || triangles->size() <= 1) return true;
    const double unitsPerTexel =
        TextureSizeCalculator::unitsPerTexel(distance, fieldOfView, screenSize, quality);
    if (!areaFits(*triangles, *container, unitsPerTexel, atlasSize)) return false;
    if (TexturedTriangleTree::uniqueTextureParameterizationEnforced())
        return bool(TextureAtlasGenerator::create(cornersOf(*triangles, *container).get(), unitsPerTexel,
                                                  TextureSizeCalculator::BORDER, atlasSize));
    const SO<NBX::Iterator<TextureSizeCalculator::TextureInfo>> textures =
        TextureSizeCalculator::computeTextureInformation(triangles, container, distance, fieldOfView,
                                                         screenSize, quality, atlasSize);
    using Sizes = NBX::NonPersistentArray<std::pair<unsigned, unsigned>>;
    const SO<Sizes> sizes(new Sizes());
    for (const TextureSizeCalculator::TextureInfo & info : *textures)
        sizes->append({unsigned(info.width), unsigned(info.height)});
    return bool(NBX::TextureAtlasCreator::createSubImagePlacement(sizes.get(), unsigned(atlasSize),
                                                                  unsigned(atlasSize)));
}

std::array<SO<TriangleIDs>, 4> AtlasTreeGenerator::quadrisect(const TriangleIDs & triangles,
                                                              const TriangleContainer & container,
                                                              unsigned axis0, unsigned axis1) {
    std::vector<Measured> all = measured(triangles, container, axis0, axis1);
    const auto begin = all.begin();
    const auto n = std::ptrdiff_t(all.size());
    std::ptrdiff_t middle = sortAndHalve(begin, all.end(), 0);
    std::ptrdiff_t first = sortAndHalve(begin, begin + middle, 1);
    std::ptrdiff_t third = middle + sortAndHalve(begin + middle, all.end(), 1);
    const int groups = int(first > 0) + int(middle > first) + int(third > middle) + int(n > third);
    if (groups < 2) {
        first = n / 4;
        middle = n / 2;
        third = 3 * n / 4;
    }
    return {sortedGroup(begin, begin + first), sortedGroup(begin + first, begin + middle),
            sortedGroup(begin + middle, begin + third), sortedGroup(begin + third, all.end())};
}

SO<Image> AtlasTreeGenerator::combineAtlases(const std::wstring & a, const std::wstring & b,
                                             const std::wstring & c, const std::wstring & d, int size) {
    return combineImages({readAtlas(a), readAtlas(b), readAtlas(c), readAtlas(d)}, size);
}

SO<Image> AtlasTreeGenerator::combineImages(const std::array<SO<Image>, 4> & images, int size) {
    const auto isThere = [](const SO<Image> & image) { return bool(image); };
    const auto first = std::find_if(images.begin(), images.end(), isThere);
    const bool agree =
        first != images.end() && std::all_of(first, images.end(), [&](const SO<Image> & image) {
            return !image || image->layerSequence() == (*first)->layerSequence();
        });
    const SO<Image> result(
        new NBX::MemoryImage(size, size, agree ? (*first)->layerSequence() : NBX::LS_RGBA));
    const int half = size / 2;
    for (int i = 0; i < 4; ++i) {
        if (!images[std::size_t(i)]) continue;
        const NBX::Area quarter(i % 2 * half, i / 2 * half, unsigned(half), unsigned(half));
        SO<Image>(new NBX::SubImage(result.get(), quarter))->copy(images[std::size_t(i)].get());
    }
    return result;
}

} // namespace ZMT::CORE
