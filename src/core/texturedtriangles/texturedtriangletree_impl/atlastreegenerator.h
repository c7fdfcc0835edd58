#pragma once

#include <array>
#include <string>

#include <nbx/container/sequence/iterator.h>
#include <nbx/container/space/dynamicspacetree.h>
#include <nbx/image/image.h>
#include <nbx/object/so.h>

#include "trianglecontainer.h"

namespace NBX {
class GLCanvas;
}

namespace ZMT::CORE {

/// Divides all triangles into a quadtree whose leaves each fit into one atlas.
///
/// (1) Every triangle stands in exactly one leaf.
/// (2) A leaf has at most one triangle, or fits.
/// (3) The same triangles give the same tree in any process.
class AtlasTreeGenerator {
public:
    using TriangleID = TriangleContainer::TriangleID;
    using Triangles = NBX::Iterator<TriangleID>;

    struct AtlasNode {
        /// Sorted; null in nodes with children, and in those whose triangles went to a sibling.
        NBX::SO<Triangles> triangles;
        /// "done" for a finished leaf, else empty.
        std::wstring imageFile;

        /// Reports at level 3 that there is no stored form.
        void serialize(NBX::SerializationManager & m);
    };
    using AtlasTree = NBX::DynamicSpaceTree<AtlasNode, 2>;

    /// `distance` in world units, `fieldOfView` in degrees, `screenSize` in pixels; `atlasSize` is the edge
    /// of an atlas in texels. A null container is reported under "container", and gives a tree without
    /// triangles. Nothing is drawn: the canvas is not used. Tells the nodes on the standard output where
    /// `TexturedTriangleTree::getVerbose()` is set.
    static NBX::SO<AtlasTree> createAtlasTree(NBX::SO<TriangleContainer> container, double distance,
                                              double fieldOfView, int screenSize, double quality,
                                              int atlasSize, NBX::SO<NBX::GLCanvas> canvas);

    /// Whether triangles, sorted by mesh, find room in one atlas at the wanted resolution. One alone always
    /// does, whatever its area.
    static bool fits(const NBX::SO<Triangles> & triangles, const NBX::SO<TriangleContainer> & container,
                     double distance, double fieldOfView, int screenSize, double quality, int atlasSize);
    /// The part of that which looks at areas alone: false as soon as their sum exceeds that of the atlas.
    static bool areaFits(const Triangles & triangles, const TriangleContainer & container,
                         double unitsPerTexel, int atlasSize);

    /// Four sorted groups of nearly equal area: along `axis0` below and above, and in each of these along
    /// `axis1`. At least two of them hold triangles where there are two.
    static std::array<NBX::SO<Triangles>, 4> quadrisect(const Triangles & triangles,
                                                        const TriangleContainer & container, unsigned axis0,
                                                        unsigned axis1);

    /// The image of an inner node, of `size` by `size` texels: its children's images, filtered to half the
    /// size, the first one at the lower left, the second one to its right. Names are paths of images; an
    /// empty one, and one that cannot be read, which is reported, leaves its quarter blank.
    static NBX::SO<NBX::Image> combineAtlases(const std::wstring & a, const std::wstring & b,
                                              const std::wstring & c, const std::wstring & d, int size);
    /// The same for images, any of which may be null. It has the layers of the images where they agree, else
    /// red, green, blue and alpha.
    static NBX::SO<NBX::Image> combineImages(const std::array<NBX::SO<NBX::Image>, 4> & images, int size);
};

} // namespace ZMT::CORE
