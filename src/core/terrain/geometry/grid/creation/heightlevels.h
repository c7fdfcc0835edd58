#pragma once

#include <cstdint>
#include <vector>

#include <nbx/data/file.h>
#include <nbx/object/so.h>

#include "heightsource.h"

namespace ZMT::CORE::GRID {

/// The heights of all coarser levels: level d has every 2^d th point of the lattice in both directions. They
/// lie in memory or in a stretch of a file.
class HeightLevels {
public:
    /// Levels up to `depth` of what lies in `finest`; they lie nowhere yet.
    HeightLevels(const LatticeArea & finest, unsigned depth);
    ~HeightLevels();

    /// Of all of them.
    std::uint64_t bytes() const { return points_ * sizeof(float); }
    /// With a hash behind each row.
    std::uint64_t guardedBytes() const { return bytes() + rows_ * sizeof(std::uint64_t); }
    void keepInMemory() { heights_.resize(points_); }
    /// From `start` on, a place that may not be written yet.
    void keepIn(const NBX::SO<NBX::File> & file, std::uint64_t start);
    /// The same for a file that is kept: behind each row stands a hash, by which damage is found.
    void keepGuarded(const NBX::SO<NBX::File> & file, std::uint64_t start);

    unsigned depth() const { return static_cast<unsigned>(levels_.size()) - 1; }
    /// Of a level, 0 being the source.
    const LatticeArea & area(unsigned level) const { return levels_[level].area; }
    /// Rows from `y` on of a level from 1 on, in the width of its area. NaN where there is no height. Throws
    /// `NBX::IOException`, and `NBX::InputException` where rows are damaged or cut off.
    void read(unsigned level, std::uint32_t y, std::uint32_t rows, float * heights);
    void writeRow(unsigned level, std::uint32_t y, const float * row);

private:
    struct Level {
        LatticeArea area;
        std::uint64_t start = 0;    ///< in points
        std::uint64_t firstRow = 0; ///< among those of all levels
    };

    std::uint64_t pointOf(unsigned level, std::uint32_t y) const;
    void seek(unsigned level, std::uint32_t y);
    void take(void * data, std::size_t bytes);

    std::vector<Level> levels_;
    std::uint64_t points_ = 0, rows_ = 0;
    std::vector<float> heights_; ///< empty where they lie in the file
    NBX::SO<NBX::File> file_;
    std::uint64_t fileStart_ = 0;
    bool isGuarded_ = false;
};

} // namespace ZMT::CORE::GRID
