#include "trianglehierarchy.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include <nbx/math/triangletest.h>

namespace NBX {

namespace {

using Doubles = double __attribute__((vector_size(2 * sizeof(double))));
constexpr unsigned s_lanes = 2;

Doubles wide(const float * floats) {
    float __attribute__((vector_size(s_lanes * sizeof(float)))) narrow;
    std::memcpy(&narrow, floats, sizeof narrow);
    return __builtin_convertvector(narrow, Doubles);
}

Vector3Base<Doubles> everywhere(const Vector3Base<double> & v) {
    return {Doubles{} + v.x, Doubles{} + v.y, Doubles{} + v.z};
}

bool isFinite(const TriangleHierarchy::Corners & corners) {
    return std::all_of(corners.begin(), corners.end(), [](const Vector3Base<float> & v) {
        return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
    });
}

std::vector<BoxHierarchy::Box> boxesOf(const std::vector<TriangleHierarchy::Corners> & triangles) {
    std::vector<BoxHierarchy::Box> boxes;
    boxes.reserve(triangles.size());
    for (std::size_t i = 0; i < triangles.size(); ++i) {
        const auto & [a, b, c] = triangles[i];
        if (!isFinite(triangles[i])) continue;
        BoxHierarchy::Box box{{}, {}, std::uint32_t(i)};
        for (unsigned axis = 0; axis < 3; ++axis) {
            box.low[axis] = std::min({a[axis], b[axis], c[axis]});
            box.high[axis] = std::max({a[axis], b[axis], c[axis]});
        }
        boxes.push_back(box);
    }
    return boxes;
}

} // namespace

/// The nearest hit of a ray so far, over one block after the other.
class TriangleHierarchy::Search {
public:
    Search(const Ray & ray, double limit)
        : origin_(everywhere(ray.getOrigin())), direction_(everywhere(ray.getDirection())), limit_(limit) {}

    void test(const Block & block) {
        for (unsigned lane = 0; lane < s_blockSize; lane += s_lanes) {
            const auto corner = [&](unsigned i) {
                const auto & [x, y, z] = block.corners[i];
                return Vector3Base<Doubles>(wide(&x[lane]), wide(&y[lane]), wide(&z[lane]));
            };
            Doubles distances{};
            const auto isAny = [](const auto & mask) { return (mask[0] | mask[1]) != 0; };
            const auto isHit =
                meetsTriangle(origin_, direction_, corner(0), corner(1), corner(2), distances, isAny);
            for (unsigned i = 0; i < s_lanes; ++i)
                if (isHit[i]) take(block, lane + i, distances[i]);
        }
    }
    double limit() const { return limit_; }
    std::optional<Hit> nearest() const {
        if (!block_) return std::nullopt;
        return Hit{limit_, block_->numbers[lane_], block_->triangle(lane_)};
    }

private:
    void take(const Block & block, unsigned lane, double distance) {
        if (!(distance <= limit_)) return;
        if (block_ && distance == limit_ && block.numbers[lane] > block_->numbers[lane_]) return;
        block_ = &block;
        lane_ = lane;
        limit_ = distance;
    }

    Vector3Base<Doubles> origin_, direction_;
    double limit_; ///< the distance of the hit, once there is one
    const Block * block_ = nullptr;
    unsigned lane_ = 0;
};

TriangleHierarchy::TriangleHierarchy(const std::vector<Corners> & triangles) {
    blocks_.reserve(triangles.size() / s_blockSize + 1);
    const auto addBlock = [&](const BoxHierarchy::Box * first, unsigned count) {
        Block block{};
        for (unsigned lane = 0; lane < count; ++lane) {
            block.numbers[lane] = first[lane].number;
            for (unsigned corner = 0; corner < 3; ++corner)
                for (unsigned axis = 0; axis < 3; ++axis)
                    block.corners[corner][axis][lane] = triangles[first[lane].number][corner][axis];
        }
        blocks_.push_back(block);
    };
    boxes_ = BoxHierarchy(boxesOf(triangles), s_blockSize, addBlock);
    blocks_.shrink_to_fit();
}

auto TriangleHierarchy::Block::triangle(unsigned lane) const -> Corners {
    Corners result;
    for (unsigned corner = 0; corner < 3; ++corner)
        for (unsigned axis = 0; axis < 3; ++axis)
            result[corner][axis] = corners[corner][axis][lane];
    return result;
}

auto TriangleHierarchy::nearest(const Ray & ray, const BoxRay & boxRay, double limit) const
    -> std::optional<Hit> {
    Search search(ray, limit);
    boxes_.visit(
        boxRay, limit,
        [&](std::uint32_t leaf) {
            search.test(blocks_[leaf]);
            return search.limit();
        },
        [&](std::uint32_t leaf) { BoxHierarchy::fetchAhead(blocks_[leaf]); });
    return search.nearest();
}

} // namespace NBX
