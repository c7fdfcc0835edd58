#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nbx/data/file.h>
#include <nbx/object/so.h>

#include "tilerows.h"
#include "tilesink.h"

namespace ZMT::CORE::GRID {

/// In front of a part.
struct TerrainPartHeader {
    char magic[8];
    std::uint32_t version, zero;
    std::uint32_t part, parts; ///< 1 to `parts`
    std::uint64_t plan;        ///< `TerrainPlanFile::id`
    std::uint64_t options, origin;
    std::uint64_t fileSize;
    std::uint64_t hash; ///< of what stands before

    static TerrainPartHeader of(std::uint32_t part, std::uint32_t parts);
    /// Whether `start`, the first 8 bytes of a file, are those of a part.
    static bool isMagic(const char * start);
    bool isSound() const;
    /// Sets the hash.
    void seal();
};
static_assert(sizeof(TerrainPartHeader) == 64);

/// Stores the tiles of some rows as they come: those of the finest depth as they will stand in the terrain,
/// inner ones plain.
class TerrainPartWriter : public TileSink {
public:
    /// To the beginning of `file`, which is borrowed. `header` has all but the size of the file.
    TerrainPartWriter(const TerrainPartHeader & header, NBX::File & file);

    void add(std::uint32_t depth, std::uint32_t row, std::uint32_t firstColumn,
             std::vector<MadeTile> & tiles) override;
    /// Writes the header anew.
    void finish();

private:
    TerrainPartHeader header_;
    NBX::File & file_;
};

/// A part that was written.
class TerrainPart {
public:
    /// Throws `NBX::InputException` for what is no part, or cut off.
    explicit TerrainPart(const std::string & path);

    const std::string & path() const { return path_; }
    const TerrainPartHeader & header() const { return header_; }
    /// Throws `NBX::InputException` where it is too small for `count` rows of tiles: a plan may claim any
    /// width, and who joins the parts has memory for each tile of a row.
    void checkRoom(const TileRows & rows, std::uint32_t count) const;
    /// Hands on the tiles of `count` rows from `firstRow` on: of all that the part holds. Calls `goesOn` with
    /// the number of finished rows; false ends it. Throws `NBX::InputException` where the part is damaged,
    /// and what `sink` throws.
    template <class GoesOn>
    bool deliver(const TileRows & rows, std::uint32_t firstRow, std::uint32_t count, TileSink & sink,
                 const GoesOn & goesOn) const {
        NBX::File file(path_);
        file.seek(sizeof header_);
        for (std::uint32_t row = firstRow; row < firstRow + count; ++row) {
            for (std::uint32_t depth = 0; depth <= rows.endingDepth(row); ++depth)
                deliverRow(file, rows, depth, row >> depth, sink);
            if (!goesOn(row - firstRow + 1)) return false;
        }
        if (file.position() != header_.fileSize) throwDamaged();
        return true;
    }

private:
    void deliverRow(NBX::File & file, const TileRows & rows, std::uint32_t depth, std::uint32_t row,
                    TileSink & sink) const;
    std::vector<MadeTile> readPiece(NBX::File & file, const TileRows & rows, std::uint32_t depth,
                                    std::uint32_t row, std::uint32_t firstColumn) const;
    [[noreturn]] void throwDamaged() const;

    std::string path_;
    TerrainPartHeader header_{};
};

} // namespace ZMT::CORE::GRID
