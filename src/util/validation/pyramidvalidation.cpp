// The tables are read piece by piece, since those of a damaged file may be as large as the file.

#include "pyramidvalidation.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>
#include <vector>

#include "core/terrain/geometry/grid/model/tileblock.h"
#include "util/compressedtexture/texturepyramidformat.h"
#include <zmt/util/compressedtexture/compressedtexture.h>

namespace ZMT::UTIL {

namespace {

using namespace TexturePyramidFormat;
using CORE::GRID::TileRef;
namespace TileBlock = CORE::GRID::TileBlock;

/// Entries of tables that are read at once.
constexpr std::uint64_t s_entries = 4096;
constexpr std::size_t s_tilesAhead = 16;
constexpr std::uint64_t s_bytesAhead = 4U << 20U;
/// Levels begin at multiples of this.
constexpr std::uint64_t s_alignment = 8;

/// A tile as the tables tell of it.
struct Entry {
    std::uint64_t index = 0; ///< in its level
    std::uint64_t at = 0;    ///< of its position, in the file
    std::uint64_t begin = 0; ///< of its bytes; those of its size are among them
    TileRef ref;
    CheckedFile::Request request;
};

class PyramidCheck {
public:
    PyramidCheck(CheckedFile & file, ValidationReport & report, std::uint64_t key)
        : file_(file), report_(report), key_(key) {}

    void run();

private:
    void checkLevel(std::uint32_t index, std::uint64_t position, std::uint64_t namedAt);
    bool checkHeader(const std::string & name, std::uint64_t position, const LevelHeader & header);
    void checkTiles(const std::string & name, std::uint64_t position, const LevelHeader & header);
    std::vector<Entry> entries(std::uint64_t table, const LevelHeader & header, std::uint64_t first,
                               std::uint64_t count);
    bool findSize(Entry & entry);
    void askAhead(std::vector<Entry> & entries, std::size_t first) const;
    void checkTile(const std::string & level, const Entry & entry);
    bool isPadding(std::uint64_t begin, std::uint64_t end);
    void unseen(std::uint64_t offset, const std::string & what) {
        file_.fault(offset, what);
        file_.noteUnseen();
    }

    CheckedFile & file_;
    ValidationReport & report_;
    const std::uint64_t key_;
    std::uint32_t width_ = UINT32_MAX, height_ = UINT32_MAX; ///< of the level before
};

void PyramidCheck::run() {
    PyramidHeader header;
    if (!file_.readRecord(0, header, "its header")) return;
    scramble(header, key_);
    CORE::RecordFaults faults = header.faults();
    CORE::noteNonZero(header.reserved, offsetof(PyramidHeader, reserved), faults);
    file_.faults(0, faults);
    if (header.version != pyramidVersion) return file_.noteUnseen();
    if (header.levels > (file_.size() - headerSize) / (8 + headerSize))
        return unseen(offsetof(PyramidHeader, levels),
                      "the file has no room for " + std::to_string(header.levels) + " levels");
    report_.levels = header.levels;
    file_.take(0, headerSize + 8ULL * header.levels);
    for (std::uint32_t i = 0; i < header.levels && !file_.hasEnded(); ++i) {
        const std::uint64_t at = headerSize + 8ULL * i;
        std::uint64_t position = 0;
        if (file_.readRecord(at, position, "its table")) checkLevel(i, position, at);
    }
    file_.noteGaps(0, file_.size(),
                   [this](std::uint64_t begin, std::uint64_t end) { return isPadding(begin, end); });
}

void PyramidCheck::checkLevel(std::uint32_t index, std::uint64_t position, std::uint64_t namedAt) {
    const std::string name = "level " + std::to_string(index);
    if (position > file_.size() || file_.size() - position < headerSize)
        return unseen(namedAt,
                      name + " begins at " + std::to_string(position) + ", too near to the end of the file");
    LevelHeader header;
    if (!file_.readRecord(position, header, "a level")) return;
    scramble(header, key_);
    const bool isLevel = std::memcmp(header.magic, levelMagic, sizeof header.magic) == 0;
    if (!checkHeader(isLevel ? name : name + ", referred to at " + std::to_string(namedAt), position, header))
        return file_.noteUnseen();
    const std::uint64_t room = file_.size() - position - headerSize;
    if (header.tiles() > room / header.bytesPerTile())
        return unseen(position + offsetof(LevelHeader, tilesX), name + ": the tables reach beyond the end");
    const std::uint64_t end = position + headerSize + header.tiles() * header.bytesPerTile();
    if (!file_.isFree(position, end))
        return unseen(namedAt,
                      name + ", at " + std::to_string(position) + ", leads into what is something else");
    file_.take(position, end);
    checkTiles(name, position, header);
}

/// False where the tables cannot be found.
bool PyramidCheck::checkHeader(const std::string & name, std::uint64_t position, const LevelHeader & header) {
    CORE::RecordFaults faults = header.faults();
    const bool isSound = faults.empty();
    if (isSound) CORE::noteNonZero(header.reserved, offsetof(LevelHeader, reserved), faults);
    if (isSound && header.compression > CompressedTexture::C_Deflate)
        faults.push_back(
            {offsetof(LevelHeader, compression),
             "the compression is " + std::to_string(header.compression) + ", and readers know 0 and 1"});
    if (isSound && (header.pixelsX > width_ || header.pixelsY > height_))
        faults.push_back({offsetof(LevelHeader, pixelsX), "the level is larger than the one before"});
    for (const CORE::RecordFault & found : faults)
        file_.fault(position + found.offset, name + ": " + found.what);
    if (!isSound) return false;
    width_ = header.pixelsX;
    height_ = header.pixelsY;
    return true;
}

void PyramidCheck::checkTiles(const std::string & name, std::uint64_t position, const LevelHeader & header) {
    const std::uint64_t table = position + headerSize;
    for (std::uint64_t first = 0; first < header.tiles() && !file_.hasEnded(); first += s_entries) {
        std::vector<Entry> tiles = entries(table, header, first, std::min(s_entries, header.tiles() - first));
        for (std::size_t i = 0; i < tiles.size() && !file_.hasEnded(); ++i) {
            if (header.hasSizesInTiles()) {
                if (!findSize(tiles[i])) continue;
            } else {
                askAhead(tiles, i);
            }
            checkTile(name, tiles[i]);
            tiles[i].request = nullptr;
        }
    }
}

/// Those of a stretch of the tables that are not empty; their sizes are those of whole tiles where there is
/// no table of them.
std::vector<Entry> PyramidCheck::entries(std::uint64_t table, const LevelHeader & header, std::uint64_t first,
                                         std::uint64_t count) {
    const auto positions = file_.read(table + 8 * first, 8 * count);
    const auto sizes = positions && header.version >= 2
                           ? file_.read(table + 8 * header.tiles() + 4 * first, 4 * count)
                           : nullptr;
    if (!positions || (header.version >= 2 && !sizes)) return {};
    std::vector<Entry> result;
    for (std::uint64_t i = 0; i < count; ++i) {
        Entry entry{first + i, table + 8 * (first + i), 0, {0, header.rawTileSize, header.rawTileSize}, {}};
        std::memcpy(&entry.begin, static_cast<const char *>(positions->pointer()) + 8 * i, 8);
        if (entry.begin == 0) continue;
        if (sizes) std::memcpy(&entry.ref.storedSize, static_cast<const char *>(sizes->pointer()) + 4 * i, 4);
        entry.ref.offset = entry.begin;
        result.push_back(entry);
    }
    return result;
}

/// The size that stands in front of a tile.
bool PyramidCheck::findSize(Entry & entry) {
    entry.ref.offset = entry.begin + sizeof entry.ref.storedSize;
    if (entry.begin <= file_.size() - sizeof entry.ref.storedSize)
        return file_.readRecord(entry.begin, entry.ref.storedSize, "a tile");
    unseen(entry.at, "a tile begins behind the end of the file");
    return false;
}

void PyramidCheck::askAhead(std::vector<Entry> & entries, std::size_t first) const {
    std::uint64_t bytes = 0;
    const std::size_t end = std::min(entries.size(), first + s_tilesAhead);
    for (std::size_t i = first; i < end && bytes < s_bytesAhead; ++i) {
        Entry & entry = entries[i];
        bytes += entry.ref.storedSize;
        if (!entry.request && !TileBlock::fault(entry.ref, file_.size(), headerSize))
            entry.request = file_.ask(entry.ref.offset, entry.ref.storedSize);
    }
}

void PyramidCheck::checkTile(const std::string & level, const Entry & entry) {
    const TileRef & ref = entry.ref;
    const std::string name = level + ", tile " + std::to_string(entry.index);
    const std::string place =
        name + ", " + std::to_string(ref.storedSize) + " bytes at " + std::to_string(ref.offset) + ", ";
    if (const char * fault = TileBlock::fault(ref, file_.size(), headerSize))
        return unseen(entry.at, place + fault);
    const std::uint64_t end = ref.offset + ref.storedSize;
    if (!file_.isFree(entry.begin, end)) return unseen(entry.at, place + "leads into what is something else");
    const auto stored = file_.read(ref.offset, ref.storedSize, entry.request);
    if (!stored) return;
    file_.take(entry.begin, end);
    unsigned used = 0;
    if (!TileBlock::inflated(ref, stored, &used))
        return file_.fault(ref.offset,
                           name + ": does not inflate to " + std::to_string(ref.rawSize) + " bytes");
    ++report_.tiles;
    if (used != ref.storedSize)
        file_.fault(ref.offset + used, name + ": ends " + std::to_string(ref.storedSize - used) +
                                           " bytes before its stored size");
}

/// In front of a level.
bool PyramidCheck::isPadding(std::uint64_t begin, std::uint64_t end) {
    if (end - begin >= s_alignment || end % s_alignment != 0) return false;
    const auto bytes = file_.read(begin, end - begin);
    const auto * first = bytes ? static_cast<const char *>(bytes->pointer()) : nullptr;
    return !first || std::all_of(first, first + bytes->size(), [](char byte) { return byte == 0; });
}

} // namespace

void checkPyramid(CheckedFile & file, ValidationReport & report, std::uint64_t key) {
    PyramidCheck(file, report, key).run();
}

} // namespace ZMT::UTIL
