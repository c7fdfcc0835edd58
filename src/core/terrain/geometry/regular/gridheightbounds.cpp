#include "gridheightbounds.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <unordered_map>

#include <nbx/object/wo.h>
#include <nbx/scene/shape/shape.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>

namespace ZMT::CORE {

namespace {

using Range = GridHeightBounds::Range;

constexpr double s_infinity = std::numeric_limits<double>::infinity();

/// Heights of a block while it is looked through.
struct Heights {
    double low = s_infinity, high = -s_infinity;

    void add(double height) {
        low = std::min(low, height);
        high = std::max(high, height);
    }
    Range rounded() const {
        constexpr float infinity = std::numeric_limits<float>::infinity();
        auto below = static_cast<float>(low), above = static_cast<float>(high);
        if (below > low) below = std::nextafter(below, -infinity);
        if (above < high) above = std::nextafter(above, infinity);
        return {below, above};
    }
};

/// Cells from (x, y) up to, and without, (endX, endY).
struct Block {
    unsigned x, y, endX, endY;
};

Block blockAt(const GridData & grid, unsigned x, unsigned y) {
    constexpr unsigned cells = GridHeightBounds::blockCells;
    return {x * cells, y * cells, std::min((x + 1) * cells, grid.sizeX() - 1),
            std::min((y + 1) * cells, grid.sizeY() - 1)};
}

Heights heightsOfVertices(const GridData & grid, const Block & block) {
    Heights heights;
    for (unsigned y = block.y; y <= block.endY; ++y)
        for (unsigned x = block.x; x <= block.endX; ++x)
            heights.add(grid.vertex(x, y).y);
    return heights;
}

Heights heightsOfShape(const GridData & grid, unsigned x, unsigned y, const NBX::Shape & shape) {
    const NBX::Bounds box = shape.boundingBox();
    const NBX::Vector3Base<double> low = grid.vertex(x, y), high = grid.vertex(x + 1, y + 1);
    const bool keepsToCell = box.isDefined() && low.x <= box.getLLF().x && box.getURB().x <= high.x &&
                             low.z <= box.getLLF().z && box.getURB().z <= high.z;
    return keepsToCell ? Heights{box.getLLF().y, box.getURB().y} : Heights{-s_infinity, s_infinity};
}

bool isPlain(const GridData & grid, const Block & block) {
    for (unsigned y = block.y; y < block.endY; ++y)
        for (unsigned x = block.x; x < block.endX; ++x)
            if (grid.cellShape(x, y)) return false;
    return true;
}

Heights heightsOfCells(const GridData & grid, const Block & block) {
    if (isPlain(grid, block)) return heightsOfVertices(grid, block);
    Heights heights;
    for (unsigned y = block.y; y < block.endY; ++y)
        for (unsigned x = block.x; x < block.endX; ++x) {
            const NBX::SO<NBX::Shape> shape = grid.cellShape(x, y);
            const Heights cell =
                shape ? heightsOfShape(grid, x, y, *shape) : heightsOfVertices(grid, {x, y, x + 1, y + 1});
            heights.add(cell.low);
            heights.add(cell.high);
        }
    return heights;
}

Range joined(const Range & a, const Range & b) {
    return {std::min(a.low, b.low), std::max(a.high, b.high)};
}

struct Entry {
    NBX::WO<GridData> grid;
    std::uint64_t transactionNo;
    GridHeightBounds bounds;

    bool isOf(const GridData & other) const { return grid && transactionNo == other.lastTransactionNo(); }
};

} // namespace

GridHeightBounds::GridHeightBounds(const GridData & grid) {
    const bool hasShapes = grid.hasCellShapes();
    const auto blocks = [](unsigned vertices) { return (vertices - 2) / blockCells + 1; };
    Level level{blocks(grid.sizeX()), blocks(grid.sizeY()), {}};
    level.ranges.reserve(std::size_t(level.sizeX) * level.sizeY);
    for (unsigned y = 0; y < level.sizeY; ++y)
        for (unsigned x = 0; x < level.sizeX; ++x) {
            const Block block = blockAt(grid, x, y);
            const Heights heights = hasShapes ? heightsOfCells(grid, block) : heightsOfVertices(grid, block);
            level.ranges.push_back(heights.rounded());
        }
    levels_.push_back(std::move(level));
    while (levels_.back().ranges.size() > 1)
        joinBlocks();
}

void GridHeightBounds::joinBlocks() {
    const Level & fine = levels_.back();
    Level level{(fine.sizeX + 1) / 2, (fine.sizeY + 1) / 2, {}};
    constexpr float infinity = std::numeric_limits<float>::infinity();
    level.ranges.assign(std::size_t(level.sizeX) * level.sizeY, {infinity, -infinity});
    for (unsigned y = 0; y < fine.sizeY; ++y)
        for (unsigned x = 0; x < fine.sizeX; ++x) {
            Range & target = level.ranges[x / 2 + std::size_t(y / 2) * level.sizeX];
            target = joined(target, fine.ranges[x + std::size_t(y) * fine.sizeX]);
        }
    levels_.push_back(std::move(level));
}

std::size_t GridHeightBounds::bytes() const {
    std::size_t count = 0;
    for (const Level & level : levels_)
        count += level.ranges.size();
    return count * sizeof(Range);
}

const GridHeightBounds & GridHeightBounds::of(const GridData & grid) {
    // It stays to the end of the process, as grids may live as long.
    static auto & entries = *new std::unordered_map<const GridData *, Entry>;
    const auto found = entries.find(&grid);
    if (found != entries.end() && found->second.isOf(grid)) return found->second.bounds;
    std::erase_if(entries, [&](const auto & entry) { return !entry.second.grid || entry.first == &grid; });
    Entry entry{NBX::WO<GridData>(const_cast<GridData *>(&grid)), grid.lastTransactionNo(),
                GridHeightBounds(grid)};
    return entries.emplace(&grid, std::move(entry)).first->second.bounds;
}

} // namespace ZMT::CORE
