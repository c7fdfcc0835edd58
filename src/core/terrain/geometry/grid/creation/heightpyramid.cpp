// All coarser levels in one pass over the rows: each row of a level is kept until those beside it have come,
// and then makes one row of the next. A point that stands for others is defined where any of them is, so that
// no island is lost. Levels that are too many for the memory go to an unnamed file.

#include "heightpyramid.h"

#include <algorithm>
#include <array>
#include <limits>

#include <nbx/object/progress.h>

#include "unnamedfile.h"

// The smallest and the largest height of a row are found in registers that hold several.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC optimize("O3")
#endif

namespace ZMT::CORE::GRID {

namespace {

using Resampling = HeightResampling;

/// Points that are read at once.
constexpr std::uint32_t s_pointsAtOnce = 1U << 21U;

bool isDefined(float height) {
    return height == height;
}

/// Three rows of a level, any of which may be missing, with columns by their place in the lattice.
struct Rows {
    const float *before, *centre, *behind;
    std::uint32_t minX, maxX;

    float at(const float * row, std::int64_t x) const {
        return row && x >= minX && x <= maxX ? row[x - minX] : noLatticeHeight;
    }
};

/// The point at `x`, or where that is undefined, the nearest one: beside it, before and behind, at the
/// corners.
float nearest(const Rows & rows, std::int64_t x) {
    const float height = rows.at(rows.centre, x);
    if (isDefined(height)) return height;
    for (const float other :
         {rows.at(rows.centre, x - 1), rows.at(rows.centre, x + 1), rows.at(rows.before, x),
          rows.at(rows.behind, x), rows.at(rows.before, x - 1), rows.at(rows.before, x + 1),
          rows.at(rows.behind, x - 1), rows.at(rows.behind, x + 1)})
        if (isDefined(other)) return other;
    return noLatticeHeight;
}

/// The mean of what is defined: the point itself weighs four times as much as one at a corner.
float average(const Rows & rows, std::int64_t x) {
    double sum = 0.0;
    int weights = 0;
    const float * const all[3] = {rows.before, rows.centre, rows.behind};
    for (int j = 0; j < 3; ++j)
        for (int i = 0; i < 3; ++i) {
            const float height = rows.at(all[j], x + i - 1);
            if (!isDefined(height)) continue;
            const int weight = (i == 1 ? 2 : 1) * (j == 1 ? 2 : 1);
            sum += double(height) * weight;
            weights += weight;
        }
    return weights > 0 ? static_cast<float>(sum / weights) : noLatticeHeight;
}

} // namespace

HeightPyramid::HeightPyramid(const HeightSource & source, unsigned depth, Resampling resampling,
                             std::uint32_t countedRows)
    : HeightLevels(source.area(), depth), source_(source), resampling_(resampling), countedRows_(countedRows),
      defined_(source.area().maxY / countedRows - source.area().minY / countedRows + 1), rests_(depth + 1),
      minHeight_(std::numeric_limits<float>::infinity()), maxHeight_(-minHeight_) {}

HeightPyramid::HeightPyramid(const HeightSource & source, unsigned depth, Resampling resampling,
                             const std::string & path, std::uint64_t inMemory)
    : HeightPyramid(source, depth, resampling, s_pointsAtOnce) {
    if (bytes() > inMemory)
        keepIn(unnamedFile(path), 0);
    else
        keepInMemory();
}

HeightPyramid::~HeightPyramid() = default;

bool HeightPyramid::build(TileThreads & threads, NBX::Progress & progress) {
    const LatticeArea area = this->area(0);
    const std::uint32_t atOnce =
        std::min(area.height(), std::max<std::uint32_t>(1, s_pointsAtOnce / area.width()));
    std::array<std::vector<float>, 2> windows;
    for (std::vector<float> & window : windows)
        window.resize(std::size_t(atOnce) * area.width());
    const AbandonedTileWork abandoned(threads);
    // While one window is read, the one before is worked on.
    std::uint32_t done = 0;
    for (unsigned i = 0; done < area.height(); i ^= 1U) {
        const std::uint32_t y = area.minY + done;
        const std::uint32_t rows = std::min(atOnce, area.height() - done);
        source_.read(area.minX, y, area.width(), rows, windows[i].data());
        threads.finish();
        threads.start(
            1, [this, y, rows, &window = windows[i]](std::size_t) { addRows(y, rows, window.data()); });
        done += rows;
        if (!progress.update(done)) return false;
    }
    threads.finish();
    return true;
}

void HeightPyramid::addRows(std::uint32_t y, std::uint32_t rows, const float * heights) {
    const std::uint32_t width = area(0).width();
    for (std::uint32_t row = 0; row < rows; ++row, heights += width) {
        float low = minHeight_, high = maxHeight_;
        std::uint32_t defined = 0;
        for (std::uint32_t x = 0; x < width; ++x) {
            defined += isDefined(heights[x]);
            // Comparisons with NaN are false.
            low = heights[x] < low ? heights[x] : low;
            high = heights[x] > high ? heights[x] : high;
        }
        minHeight_ = low;
        maxHeight_ = high;
        defined_[(y + row) / countedRows_ - area(0).minY / countedRows_] += defined;
        addRow(0, y + row, heights);
    }
}

/// A row of the next level is made of up to three of this one, which come one by one.
void HeightPyramid::addRow(unsigned level, std::uint32_t y, const float * row) {
    if (level > 0) writeRow(level, y, row);
    if (level == depth()) return;
    const LatticeArea & area = this->area(level);
    Rest & rest = rests_[level];
    const bool isLast = y == area.maxY;
    const float * const before = rest.hasBefore ? rest.before.data() : nullptr;
    if (y % 2 == 0) {
        if (isLast) return makeRow(level + 1, y / 2, before, row, nullptr);
        rest.centre.assign(row, row + area.width());
        rest.hasCentre = true;
        return;
    }
    makeRow(level + 1, y / 2, before, rest.hasCentre ? rest.centre.data() : nullptr, row);
    if (isLast) return makeRow(level + 1, y / 2 + 1, row, nullptr, nullptr);
    rest.before.assign(row, row + area.width());
    rest.hasBefore = true;
}

void HeightPyramid::makeRow(unsigned level, std::uint32_t y, const float * before, const float * centre,
                            const float * behind) {
    const LatticeArea &from = area(level - 1), &to = area(level);
    const Rows rows{before, centre, behind, from.minX, from.maxX};
    std::vector<float> & made = rests_[level].made;
    made.resize(to.width());
    for (std::uint32_t i = 0; i < to.width(); ++i) {
        const std::int64_t x = 2 * (std::int64_t(to.minX) + i);
        made[i] = resampling_ == Resampling::Nearest ? nearest(rows, x) : average(rows, x);
    }
    addRow(level, y, made.data());
}

} // namespace ZMT::CORE::GRID
