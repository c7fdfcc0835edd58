#include "treeplan.h"

#include <cstdint>

namespace ZMT::CORE {

namespace {

/// Above this level even a rectangle that fits is cut, so that the tree refines smoothly.
constexpr unsigned s_lastSplitLevel = 9;

} // namespace

bool TreePlan::isLeaf(const TreePart & part) const {
    const std::uint64_t w = part.domain.getWidth(), h = part.domain.getHeight();
    if (w * h > maxVertices_ || !(part.level > s_lastSplitLevel || w < 3 || h < 3)) return false;
    return (w + 1) * (h + 1) <= maxVertices_;
}

std::vector<TreePart> TreePlan::cut(const TreePart & part) {
    const int x = part.domain.getX(), y = part.domain.getY();
    const unsigned w = part.domain.getWidth(), h = part.domain.getHeight(), w2 = w / 2, h2 = h / 2;
    std::vector<NBX::Area> areas;
    if (w > h * 1.5)
        areas = {{x, y, w2, h}, {x + int(w2), y, w - w2, h}};
    else if (h > w * 1.5)
        areas = {{x, y, w, h2}, {x, y + int(h2), w, h - h2}};
    else
        areas = {{x, y, w2, h2},
                 {x, y + int(h2), w2, h - h2},
                 {x + int(w2), y + int(h2), w - w2, h - h2},
                 {x + int(w2), y, w - w2, h2}};

    std::vector<TreePart> parts;
    const auto n = static_cast<double>(areas.size());
    for (std::size_t k = 0; k < areas.size(); ++k)
        parts.push_back({areas[k], part.level + 1,
                         part.progressOffset + part.progressScale * static_cast<double>(k) / n,
                         part.progressScale / n});
    return parts;
}

std::size_t TreePlan::innerNodes(const TreePart & part) {
    if (isLeaf(part)) return 0;
    const std::tuple size(part.domain.getWidth(), part.domain.getHeight(), part.level);
    const auto known = innerNodes_.find(size);
    if (known != innerNodes_.end()) return known->second;
    std::size_t count = 1;
    for (const TreePart & child : cut(part))
        count += innerNodes(child);
    innerNodes_[size] = count;
    return count;
}

} // namespace ZMT::CORE
