#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nbx/data/file.h>
#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/grid/creation/heightresampling.h>

#include "heightsource.h"
#include "tilethreads.h"

namespace NBX {
class Progress;
}

namespace ZMT::CORE::GRID {

/// The heights of all coarser levels: level d has every 2^d th point of the lattice in both directions. Made
/// in one pass over the source, level by level in step. Large ones lie in a file without a name.
///
/// Law: a point is defined exactly where it or one of its eight neighbours in the level below is.
class HeightPyramid {
public:
    /// Levels of more bytes than this together lie in a file.
    static constexpr std::uint64_t s_inMemory = 96U << 20U;

    /// Levels up to `depth`. A file goes to the folder of `path`, or where that cannot be, to that of
    /// temporary files.
    HeightPyramid(const HeightSource & source, unsigned depth, HeightResampling resampling,
                  const std::string & path, std::uint64_t inMemory = s_inMemory);
    ~HeightPyramid();

    /// Reads the source. False when the user cancelled.
    bool build(TileThreads & threads, NBX::Progress & progress);

    /// False when nothing is defined.
    bool hasHeights() const { return minHeight_ <= maxHeight_; }
    /// Of all points of the source.
    float minHeight() const { return minHeight_; }
    float maxHeight() const { return maxHeight_; }

    /// Of a level, 0 being the source.
    const LatticeArea & area(unsigned level) const { return levels_[level].area; }
    /// Rows from `y` on of a level from 1 on, in the width of its area. NaN where there is no height. Throws
    /// `NBX::IOException`.
    void read(unsigned level, std::uint32_t y, std::uint32_t rows, float * heights);

private:
    struct Level {
        LatticeArea area;
        std::uint64_t start = 0; ///< in `heights_` or the file
        /// The rows of this level that the next one still needs.
        std::vector<float> before, centre;
        bool hasBefore = false, hasCentre = false;
        std::vector<float> made; ///< a row of this level that is being made
    };

    void addRow(unsigned level, std::uint32_t y, const float * row);
    void makeRow(unsigned level, std::uint32_t y, const float * before, const float * centre,
                 const float * behind);
    void addRows(std::uint32_t y, std::uint32_t rows, const float * heights);
    void put(unsigned level, std::uint32_t y, const float * row);

    const HeightSource & source_;
    HeightResampling resampling_;
    std::vector<Level> levels_;
    float minHeight_, maxHeight_;
    std::vector<float> heights_; ///< empty where they lie in the file
    NBX::SO<NBX::File> file_;
};

} // namespace ZMT::CORE::GRID
