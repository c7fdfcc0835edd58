#include "finestpatches.h"

#include <algorithm>
#include <cstdint>
#include <optional>

#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>

namespace ZMT::UTIL {

namespace {

using CORE::GeometryPatch;
using CORE::GridPatch;
using NBX::SO;

/// The cells below one node.
struct Cells {
    SO<CORE::GridData> grid; ///< null where they have become patches already
    NBX::Area area;
};

std::uint64_t countOf(const NBX::Area & area) {
    return std::uint64_t(area.getWidth()) * area.getHeight();
}

/// The smallest rectangle around both.
NBX::Area around(const NBX::Area & a, const NBX::Area & b) {
    const int x = std::min(a.getX(), b.getX()), y = std::min(a.getY(), b.getY());
    const auto end = [](int from, unsigned size) { return from + static_cast<int>(size); };
    return {x, y,
            static_cast<unsigned>(std::max(end(a.getX(), a.getWidth()), end(b.getX(), b.getWidth())) - x),
            static_cast<unsigned>(std::max(end(a.getY(), a.getHeight()), end(b.getY(), b.getHeight())) - y)};
}

class Gathering {
public:
    bool gather(const GeometryPatch & root) {
        const std::optional<Cells> all = cellsBelow(root);
        if (all) keep(root, *all);
        return all.has_value();
    }

    std::vector<SO<GridPatch>> patches;

private:
    /// Nothing where the tree cannot be put together.
    std::optional<Cells> cellsBelow(const GeometryPatch & node) {
        if (!node.childrenAreInMemory()) return std::nullopt;
        if (node.children() == 0) {
            const auto * leaf = dynamic_cast<const GridPatch *>(&node);
            if (!leaf || !leaf->grid()) return std::nullopt;
            return Cells{leaf->grid(), leaf->domain()};
        }
        std::vector<SO<GeometryPatch>> children;
        std::vector<Cells> cells;
        for (unsigned i = 0; i < node.children(); ++i) {
            const SO<GeometryPatch> child = node.child(i);
            const std::optional<Cells> below = child ? cellsBelow(*child) : std::nullopt;
            if (!below) return std::nullopt;
            children.push_back(child);
            cells.push_back(*below);
        }
        if (const std::optional<Cells> whole = joined(cells)) return whole;
        for (std::size_t i = 0; i < children.size(); ++i)
            keep(*children[i], cells[i]);
        return Cells();
    }

    /// The cells of all children, where they are a rectangle that is small enough.
    static std::optional<Cells> joined(const std::vector<Cells> & parts) {
        Cells whole = parts.front();
        std::uint64_t count = 0;
        for (const Cells & part : parts) {
            if (!part.grid || part.grid != whole.grid) return std::nullopt;
            whole.area = around(whole.area, part.area);
            count += countOf(part.area);
        }
        const bool isSmall =
            std::max(whole.area.getWidth(), whole.area.getHeight()) <= FinestPatches::s_longestSide;
        return isSmall && count == countOf(whole.area) ? std::optional(whole) : std::nullopt;
    }

    void keep(const GeometryPatch & node, const Cells & cells) {
        if (!cells.grid) return;
        const NBX::Bounds box = node.boundingBox();
        patches.push_back(new GridPatch(cells.grid, cells.area, box, 0.0, box.getLLF().y, nullptr));
    }
};

} // namespace

std::vector<SO<GridPatch>> FinestPatches::of(const SO<GeometryPatch> & root) {
    Gathering gathering;
    return root && gathering.gather(*root) ? gathering.patches : std::vector<SO<GridPatch>>();
}

} // namespace ZMT::UTIL
