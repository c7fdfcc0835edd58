#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include <nbx/data/zlibfilter.h>

/// A streaming terrain file taken apart by the description of the format alone, byte by byte. Throws
/// `std::runtime_error` for what does not follow it.
class PlainTerrainFile {
public:
    struct Ref {
        std::uint64_t offset;
        std::uint32_t rawSize, storedSize;
    };
    struct Tile {
        std::uint32_t depth, x, y;
        std::array<std::uint32_t, 3> min, max;
        std::array<Ref, 4> children;
        std::vector<std::uint16_t> values;
        Ref ref;
    };
    /// Depth, x and y, in steps of the tile.
    using Place = std::tuple<std::uint32_t, std::uint32_t, std::uint32_t>;

    explicit PlainTerrainFile(const std::vector<std::uint8_t> & file) : bytes(file) {
        require(bytes.size() >= 256 && text(0) == "ZMT-AQTG", "magic");
        dataSize = number(8, 8);
        require(number(16, 8) == 0 && dataSize <= bytes.size(), "header");
        sizeX = static_cast<std::uint32_t>(number(24, 4));
        sizeY = static_cast<std::uint32_t>(number(28, 4));
        level = static_cast<std::uint32_t>(number(32, 4));
        depth = static_cast<std::uint32_t>(number(36, 4));
        originX = real(40);
        originY = real(48);
        minHeight = real(56);
        cellSizeX = real(64);
        cellSizeY = real(72);
        heightScale = real(80);
        root = ref(bytes, 88);
        for (std::size_t i = 104; i < 256; ++i)
            require(bytes[i] == 0, "zeros of the header");
        readTile(root, depth, 0, 0);
        std::uint64_t used = 256;
        for (const auto & [place, tile] : tiles)
            used += (tile.ref.storedSize + 15) / 16 * 16;
        isCompact = used == dataSize;
    }

    unsigned side() const { return (1U << level) + 1; }
    /// Null where there is none.
    const Tile * tile(std::uint32_t d, std::uint32_t x, std::uint32_t y) const {
        const auto found = tiles.find({d, x, y});
        return found == tiles.end() ? nullptr : &found->second;
    }
    unsigned sample(const Tile & t, unsigned column, unsigned row) const {
        return t.values[column + row * side()];
    }
    unsigned border(const Tile & t, unsigned b, unsigned k, unsigned i) const {
        unsigned at = side() * side() + b * ((1U << (level + 1)) + level - 2);
        for (unsigned j = 0; j < k; ++j)
            at += (1U << (level - j)) + 1;
        return t.values[at + i];
    }

    const std::vector<std::uint8_t> bytes;
    std::uint64_t dataSize;
    std::uint32_t sizeX, sizeY, level, depth;
    double originX, originY, minHeight, cellSizeX, cellSizeY, heightScale;
    Ref root;
    std::map<Place, Tile> tiles;
    bool isCompact; ///< every block belongs to a tile, and to one alone

private:
    static void require(bool condition, const char * what) {
        if (!condition) throw std::runtime_error(what);
    }
    static std::uint64_t number(const std::vector<std::uint8_t> & from, std::size_t at, unsigned width) {
        std::uint64_t value = 0;
        for (unsigned i = width; i-- > 0;)
            value = value * 256 + from.at(at + i);
        return value;
    }
    std::uint64_t number(std::size_t at, unsigned width) const { return number(bytes, at, width); }
    double real(std::size_t at) const {
        const std::uint64_t bits = number(at, 8);
        double value;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }
    std::string text(std::size_t at) const {
        return std::string(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                           bytes.begin() + static_cast<std::ptrdiff_t>(at) + 8);
    }
    static Ref ref(const std::vector<std::uint8_t> & from, std::size_t at) {
        return {number(from, at, 8), static_cast<std::uint32_t>(number(from, at + 8, 4)),
                static_cast<std::uint32_t>(number(from, at + 12, 4))};
    }

    std::vector<std::uint8_t> block(const Ref & r) const {
        require(r.offset % 16 == 0 && r.offset + r.storedSize <= dataSize, "place of a block");
        for (std::uint64_t i = r.offset + r.storedSize; i % 16 != 0; ++i)
            require(bytes.at(i) == 0, "padding");
        const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(r.offset);
        std::vector<std::uint8_t> raw(first, first + r.storedSize);
        if (r.rawSize == r.storedSize) return raw;
        require(5ULL * r.storedSize < 4ULL * r.rawSize, "deflated too little");
        raw.resize(r.rawSize);
        require(NBX::ZLibFilter::uncompress(&bytes[r.offset], r.storedSize, raw.data(), r.rawSize),
                "inflate");
        return raw;
    }

    void readTile(const Ref & r, std::uint32_t d, std::uint32_t x, std::uint32_t y) {
        const std::vector<std::uint8_t> raw = block(r);
        const unsigned count = side() * side() + 4 * ((1U << (level + 1)) + level - 2);
        require(raw.size() == 128 + 2 * count, "size of a block");
        require(std::memcmp(raw.data(), "ZMT-AQGP", 8) == 0 && number(raw, 8, 8) == 0, "magic of a tile");
        require(number(raw, 16, 4) == level && number(raw, 20, 4) == d, "level of a tile");
        require(number(raw, 24, 4) == x && number(raw, 28, 4) == y, "position of a tile");
        require(number(raw, 56, 4) == count && number(raw, 60, 4) == 0, "count of a tile");
        Tile t{d, x, y, {}, {}, {}, {}, r};
        for (unsigned i = 0; i < 3; ++i) {
            t.min[i] = static_cast<std::uint32_t>(number(raw, 32 + 4 * i, 4));
            t.max[i] = static_cast<std::uint32_t>(number(raw, 44 + 4 * i, 4));
        }
        for (unsigned i = 0; i < count; ++i)
            t.values.push_back(static_cast<std::uint16_t>(number(raw, 128 + 2 * i, 2)));
        for (unsigned i = 0; i < 4; ++i) {
            const Ref child = t.children[i] = ref(raw, 64 + 16 * i);
            require(d > 0 || (child.offset == 0 && child.rawSize == 0), "children of the finest");
            require(child.rawSize > 1 || (child.offset == 0 && child.storedSize == 0), "empty references");
            if (child.rawSize < 2) continue;
            require(child.offset + child.storedSize <= r.offset, "children in front of their parent");
            readTile(child, d - 1, 2 * x + (i % 2 << level), 2 * y + (i / 2 << level));
        }
        tiles.emplace(Place{d, x, y}, t);
    }
};
