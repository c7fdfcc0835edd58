#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include <zmt/core/texturedtriangles/rendernode.h>

#include "nbx/container/space/trianglehierarchy.h"

namespace NBX {
class Engine;
class RayTracingTechnique;
} // namespace NBX

namespace ZMT::CORE {

/// The leaves of a render tree as rays find them: their boxes as they are when it is made, and the triangles
/// of each as they are when the first ray gets there. It knows nothing of later changes.
///
/// May be asked by several threads at once, each with an engine of its own, while the tree stays as it is,
/// and as long as all meshes are of the class `Mesh` itself, have positions of floats and are hit as
/// triangles: others are handed to the engine, whose handlers change what a mesh keeps for them.
class RayLeaves {
public:
    explicit RayLeaves(RenderTree & nodes);
    RayLeaves(const RayLeaves &) = delete;
    RayLeaves & operator=(const RayLeaves &) = delete;

    /// Tells `technique` the hit of `ray`, which is in the frame of the tree, that is the nearest one of all
    /// leaves whose boxes, and those of the nodes above, the ray meets; nothing where the technique has a
    /// nearer one. Of equally near ones that counts whose box is entered first, on the way from the root.
    void intersect(NBX::Engine * engine, const NBX::Ray & ray, NBX::RayTracingTechnique & technique) const;

    /// What it takes by now.
    std::size_t bytes() const;

private:
    using Mesh = NBX::MappedVertexAttributeShapeGL;

    /// A node with a box, and its place in the tree.
    struct Place {
        NBX::Bounds box;
        const Place * parent;     ///< null for the root
        const Place * alsoTested; ///< the next one above whose box the ray may miss though it meets this one
        unsigned depth, child;    ///< number of nodes above, and which child of its parent it is

        bool isMet(const NBX::Ray & ray) const;
    };
    struct Leaf {
        NBX::SO<Mesh> mesh;
        const Place * place;
        bool isOdd; ///< left to the engine, since the mesh is of a class of its own
        mutable std::atomic<bool> isMade{false};
        mutable std::unique_ptr<const NBX::TriangleHierarchy> triangles; ///< once `isMade`
        mutable std::mutex mutex;                                        ///< of those that make them

        Leaf(const NBX::SO<Mesh> & mesh, const Place * place);
        Leaf(const Leaf &) = delete;
        Leaf & operator=(const Leaf &) = delete;
        /// Null for what else is left to the engine: positions that are no floats.
        const NBX::TriangleHierarchy * hierarchy() const;
        /// Asks memory for what a ray begins with.
        void fetchAhead() const;
    };
    struct Hit {
        const Leaf * leaf;
        NBX::TriangleHierarchy::Hit at;
    };
    class Search;

    void addLeaves(RenderTree & nodes);
    static bool isReachedBefore(const Leaf & a, const Leaf & b, const NBX::Ray & ray);

    std::deque<Place> places_;
    std::deque<Leaf> leaves_;
    NBX::BoxHierarchy boxes_;
    std::vector<std::uint32_t> order_; ///< numbers of leaves, as the boxes have them
};

} // namespace ZMT::CORE
