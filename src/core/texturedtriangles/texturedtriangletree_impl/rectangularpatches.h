#pragma once

#include <array>
#include <map>
#include <set>
#include <span>
#include <vector>

#include <nbx/math/vector3base.h>
#include <nbx/object/classpattern.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace ZMT::CORE {

/// Triangles that share a rectangle of the atlas. Numbers count patches in the order of their making, so that
/// whatever is ordered by them is the same in every run.
class TriPatch : public NBX::SharedObj {
    NBX_CLASS(TriPatch, SharedObj)
public:
    using Vector = NBX::Vector3Base<double>;
    struct Neighbour {
        NBX::SO<TriPatch> patch;
        double gain; ///< by which the area grows when both are merged
    };

    explicit TriPatch(unsigned number) : number(number) {}

    const unsigned number;
    std::set<int> triangles;
    double area = 0.0;                        ///< cost of the rectangle
    std::array<Vector, 4> rectangle;          ///< counter-clockwise from x to z, without the border
    std::vector<Vector> hull;                 ///< convex, around all triangles
    std::map<unsigned, Neighbour> neighbours; ///< by number; mutual
};

/// Merging two patches.
struct MergeOp {
    NBX::SO<TriPatch> m_a, m_b;
    double gain;

    bool operator<(const MergeOp & o) const;
};

/// The patches of one plane, that of x and z, and what could be merged.
///
/// (1) Every triangle lies in exactly one patch.
/// (2) Each merging makes the sum of all areas less.
/// (3) No merging makes a rectangle that is, with its border, longer than the largest size.
class TriPatchManager : public NBX::SharedObj {
    NBX_CLASS(TriPatchManager, SharedObj)
public:
    using Vector = TriPatch::Vector;
    struct Triangle {
        int number;
        std::array<Vector, 3> corners; ///< turned into the plane
    };
    struct ByNumber {
        bool operator()(const NBX::SO<TriPatch> & a, const NBX::SO<TriPatch> & b) const {
            return a->number < b->number;
        }
    };
    using Patches = std::set<NBX::SO<TriPatch>, ByNumber>;

    /// One patch for each triangle, each next to those whose rectangles meet when all are grown by `border`.
    TriPatchManager(std::vector<Triangle> vertices, double border, double maxSize);
    ~TriPatchManager() override;

    const Patches & patches() const { return patches_; }
    /// What is worth merging or not, by gain; none that would become too large.
    const std::set<MergeOp> & mergeOps() const { return queue_; }

    /// Merges while there is something to gain.
    void mergeAll();
    /// Puts one patch in the place of two, a new one unless one of both holds the other. Null, and reported,
    /// when one is no patch of these, or both are the same.
    NBX::SO<TriPatch> merge(const MergeOp & op);

private:
    double costOf(std::span<const Vector> points) const;
    NBX::SO<TriPatch> newPatch(std::span<const Vector> points);
    void findNeighbours();
    bool areNeighbours(std::size_t a, std::size_t b) const;
    NBX::SO<TriPatch> united(const NBX::SO<TriPatch> & a, const NBX::SO<TriPatch> & b);
    void link(NBX::SO<TriPatch> a, NBX::SO<TriPatch> b);
    void unlink(TriPatch & patch);
    bool holds(const MergeOp & op) const;

    std::vector<Triangle> vertices_;
    double border_;
    double maxSize_;
    Patches patches_;
    std::set<MergeOp> queue_;
    unsigned made_ = 0;
};

} // namespace ZMT::CORE
