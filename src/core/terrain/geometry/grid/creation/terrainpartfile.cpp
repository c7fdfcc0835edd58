// Behind the header, in the order of `TileRows`, the tiles that lie side by side: their number of bytes and
// hash, an entry for each, then their blocks.

#include "terrainpartfile.h"

#include <cstddef>
#include <cstring>

#include <nbx/data/memorydataresource.h>
#include <nbx/object/exception.h>

#include "contenthash.h"

namespace ZMT::CORE::GRID {

using namespace TerrainFileFormat;

namespace {

constexpr char s_partMagic[9] = "ZMT-PART";
constexpr std::uint32_t s_partVersion = 1;

struct PieceHead {
    std::uint64_t blockBytes;
    std::uint64_t hash; ///< of entries and blocks
};
static_assert(sizeof(PieceHead) == 16);

struct Entry {
    std::uint32_t rawSize, storedSize; ///< as in a reference
    std::uint32_t hasData;
    GridBox box;
};
static_assert(sizeof(Entry) == 36);

std::uint64_t hashOf(const TerrainPartHeader & header) {
    return ContentHash::of(&header, offsetof(TerrainPartHeader, hash));
}

std::uint64_t hashOf(const std::vector<Entry> & entries, const std::vector<char> & blocks) {
    ContentHash hash;
    hash.add(entries.data(), entries.size() * sizeof(Entry));
    hash.add(blocks.data(), blocks.size());
    return hash.value();
}

bool isInside(const GridBox & box, const GridBox & limits) {
    for (unsigned axis = 0; axis < 3; ++axis)
        if (box.min[axis] > box.max[axis]) return false;
    return limits.contains(box);
}

/// Whether a tile at `place` may be stored like this.
bool isSound(const Entry & entry, const TilePlace & place) {
    const std::uint32_t size = blockSize(place.tileLevel);
    const bool isBlock = entry.rawSize == size && entry.storedSize > 0 && entry.storedSize <= size &&
                         (place.depth == 0 || entry.storedSize == size);
    const bool isNone =
        entry.storedSize == 0 && (entry.rawSize == 0 || (entry.rawSize == 1 && place.depth == 0));
    return (isBlock || isNone) && (entry.rawSize == 0 || isInside(entry.box, place.box()));
}

} // namespace

TerrainPartHeader TerrainPartHeader::of(std::uint32_t part, std::uint32_t parts) {
    TerrainPartHeader header{};
    std::memcpy(header.magic, s_partMagic, sizeof header.magic);
    header.version = s_partVersion;
    header.part = part;
    header.parts = parts;
    return header;
}

bool TerrainPartHeader::isMagic(const char * start) {
    return std::memcmp(start, s_partMagic, sizeof magic) == 0;
}

bool TerrainPartHeader::isSound() const {
    return isMagic(magic) && version == s_partVersion && part >= 1 && part <= parts && hash == hashOf(*this);
}

void TerrainPartHeader::seal() {
    hash = hashOf(*this);
}

TerrainPartWriter::TerrainPartWriter(const TerrainPartHeader & header, NBX::File & file)
    : header_(header), file_(file) {
    file_.write(&header_, sizeof header_);
}

void TerrainPartWriter::add(std::uint32_t depth, std::uint32_t, std::uint32_t,
                            std::vector<MadeTile> & tiles) {
    std::vector<Entry> entries;
    std::vector<char> blocks;
    for (const MadeTile & made : tiles) {
        TileRef ref = made.ref;
        if (depth > 0 && made.tile.isDefined())
            ref.rawSize = ref.storedSize = blockSize(made.tile.place.tileLevel);
        entries.push_back({ref.rawSize, ref.storedSize, made.tile.hasData, made.tile.box});
        if (!ref.isBlock()) continue;
        const char * const bytes =
            static_cast<const char *>(made.stored ? made.stored->pointer() : made.tile.block.data());
        blocks.insert(blocks.end(), bytes, bytes + ref.storedSize);
    }
    const PieceHead head{blocks.size(), hashOf(entries, blocks)};
    file_.write(&head, sizeof head);
    file_.write(entries.data(), entries.size() * sizeof(Entry));
    file_.write(blocks.data(), blocks.size());
}

void TerrainPartWriter::finish() {
    header_.fileSize = file_.position();
    header_.seal();
    file_.seek(0);
    file_.write(&header_, sizeof header_);
}

TerrainPart::TerrainPart(const std::string & path) : path_(path) {
    NBX::File file(path);
    if (file.read(&header_, sizeof header_) != sizeof header_ || !header_.isSound())
        throw NBX::InputException(L"is no part of a terrain; choose one that --part wrote", path);
    if (header_.fileSize != file.size()) throwDamaged();
}

void TerrainPart::checkRoom(const TileRows & rows, std::uint32_t count) const {
    if (count > 0 && header_.fileSize / sizeof(Entry) / count < rows.columns(0).count()) throwDamaged();
}

void TerrainPart::throwDamaged() const {
    throw NBX::InputException(L"the part is damaged or cut off; make it anew", path_);
}

void TerrainPart::deliverRow(NBX::File & file, const TileRows & rows, std::uint32_t depth, std::uint32_t row,
                             TileSink & sink) const {
    const TileRows::Range & columns = rows.columns(depth);
    for (std::uint32_t first = columns.first; first <= columns.last; first += TileRows::s_tilesAtOnce) {
        std::vector<MadeTile> tiles = readPiece(file, rows, depth, row, first);
        sink.add(depth, row, first, tiles);
    }
}

std::vector<MadeTile> TerrainPart::readPiece(NBX::File & file, const TileRows & rows, std::uint32_t depth,
                                             std::uint32_t row, std::uint32_t firstColumn) const {
    std::vector<Entry> entries(rows.columns(depth).piece(firstColumn));
    PieceHead head{};
    if (file.read(&head, sizeof head) != sizeof head) throwDamaged();
    if (file.read(entries.data(), entries.size() * sizeof(Entry)) != entries.size() * sizeof(Entry))
        throwDamaged();
    std::uint64_t bytes = 0;
    for (std::uint32_t i = 0; i < entries.size(); ++i) {
        if (!isSound(entries[i], rows.place(depth, firstColumn + i, row))) throwDamaged();
        bytes += entries[i].storedSize;
    }
    if (bytes != head.blockBytes) throwDamaged();
    std::vector<char> blocks(bytes);
    if (file.read(blocks.data(), bytes) != bytes || hashOf(entries, blocks) != head.hash) throwDamaged();
    std::vector<MadeTile> tiles(entries.size());
    const char * block = blocks.data();
    for (std::uint32_t i = 0; i < entries.size(); block += entries[i].storedSize, ++i) {
        const Entry & entry = entries[i];
        TileSamples & tile = tiles[i].tile;
        tile.place = rows.place(depth, firstColumn + i, row);
        tile.box = entry.box;
        tile.hasData = entry.hasData != 0;
        tiles[i].ref = {0, entry.rawSize, entry.storedSize};
        if (entry.storedSize == 0) continue;
        if (depth > 0) {
            tile.block.resize(entry.storedSize / 2);
            std::memcpy(tile.block.data(), block, entry.storedSize);
        } else {
            tiles[i].stored = new NBX::MemoryDataResource(block, entry.storedSize);
        }
    }
    return tiles;
}

} // namespace ZMT::CORE::GRID
