#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <zmt/core/terrain/geometry/grid/creation/heightresampling.h>

#include "heightlevels.h"
#include "tilethreads.h"

namespace NBX {
class Progress;
}

namespace ZMT::CORE::GRID {

/// Makes the coarser levels of a source, in one pass over it, level by level in step. Large ones lie in a
/// file without a name.
///
/// Law: a point is defined exactly where it or one of its eight neighbours in the level below is.
class HeightPyramid : public HeightLevels {
public:
    /// Levels of more bytes than this together lie in a file.
    static constexpr std::uint64_t s_inMemory = 96U << 20U;

    /// Levels up to `depth`. A file goes to the folder of `path`, or where that cannot be, to that of
    /// temporary files.
    HeightPyramid(const HeightSource & source, unsigned depth, HeightResampling resampling,
                  const std::string & path, std::uint64_t inMemory = s_inMemory);
    /// Levels that will lie somewhere else. `countedRows`: of so many rows of the source, from one whose
    /// number they divide on, the defined points are counted together.
    HeightPyramid(const HeightSource & source, unsigned depth, HeightResampling resampling,
                  std::uint32_t countedRows);
    ~HeightPyramid();

    /// Reads the source. False when the user cancelled.
    bool build(TileThreads & threads, NBX::Progress & progress);

    /// False when nothing is defined.
    bool hasHeights() const { return minHeight_ <= maxHeight_; }
    /// Of all points of the source.
    float minHeight() const { return minHeight_; }
    float maxHeight() const { return maxHeight_; }
    /// For each stretch of counted rows, from that of the area's first row on.
    const std::vector<std::uint64_t> & definedPoints() const { return defined_; }

private:
    /// The rows of a level that the next one still needs.
    struct Rest {
        std::vector<float> before, centre;
        bool hasBefore = false, hasCentre = false;
        std::vector<float> made; ///< a row of this level that is being made
    };

    void addRow(unsigned level, std::uint32_t y, const float * row);
    void makeRow(unsigned level, std::uint32_t y, const float * before, const float * centre,
                 const float * behind);
    void addRows(std::uint32_t y, std::uint32_t rows, const float * heights);

    const HeightSource & source_;
    HeightResampling resampling_;
    std::uint32_t countedRows_;
    std::vector<std::uint64_t> defined_;
    std::vector<Rest> rests_;
    float minHeight_, maxHeight_;
};

} // namespace ZMT::CORE::GRID
