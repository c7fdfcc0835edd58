#pragma once

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <unistd.h>

#include <nbx/data/zlibfilter.h>
#include <nbx/object/stringutils.h>

/// An empty folder of its own for each test, removed at the end.
class PyramidFolder {
public:
    PyramidFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "zmt-pyramid-XXXXXX").string();
        path_ = ::mkdtemp(name.data());
    }
    ~PyramidFolder() { std::filesystem::remove_all(path_); }
    PyramidFolder(const PyramidFolder &) = delete;
    PyramidFolder & operator=(const PyramidFolder &) = delete;

    std::string file(const std::string & name) const { return (path_ / name).string(); }
    std::wstring wide(const std::string & name) const {
        return NBX::StringUtils::Utf8String2WString(file(name));
    }
    std::vector<std::uint8_t> bytes(const std::string & name) const {
        std::ifstream stream(file(name), std::ios::binary);
        return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(stream), {});
    }
    void write(const std::string & name, const std::vector<std::uint8_t> & bytes) const {
        // Some file systems bring a file to the disk at once when it is cut and written again.
        std::filesystem::remove(file(name));
        std::ofstream(file(name), std::ios::binary)
            .write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    std::size_t entries() const {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(path_), std::filesystem::directory_iterator()));
    }

private:
    std::filesystem::path path_;
};

template <class T> void putAt(std::vector<std::uint8_t> & bytes, std::size_t offset, T value) {
    if (bytes.size() < offset + sizeof value) bytes.resize(offset + sizeof value);
    std::memcpy(bytes.data() + offset, &value, sizeof value);
}

template <class T> T getAt(const std::vector<std::uint8_t> & bytes, std::size_t offset) {
    T value{};
    if (offset + sizeof value <= bytes.size()) std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

/// The bytes of a pyramid of one level with tiles of luminance, written field by field. Neither its pixels
/// nor its tiles are square.
struct PyramidFile {
    std::uint32_t version = 3, compression = 1;
    std::uint32_t pixelsX = 6, pixelsY = 4, tileWidth = 4, tileHeight = 5;
    /// Row by row; an empty tile has no bytes.
    std::vector<std::vector<std::uint8_t>> tiles = {tile(10), tile(20)};
    bool deflates = true;

    static constexpr std::size_t level = 256 + 8, table = level + 256;

    /// A tile of the usual size in one gray.
    static std::vector<std::uint8_t> tile(std::uint8_t gray) { return std::vector<std::uint8_t>(20, gray); }

    std::vector<std::uint8_t> encode() const {
        std::vector<std::uint8_t> bytes(table);
        std::memcpy(bytes.data(), "ZMT-TEXTURE-PYRAMID", 19);
        putAt<std::uint32_t>(bytes, 32, 1);
        putAt<std::uint32_t>(bytes, 36, 1);
        putAt(bytes, 40, 100.0);
        putAt(bytes, 48, 200.0);
        putAt(bytes, 56, 160.0);
        putAt(bytes, 64, 212.0);
        putAt<std::uint64_t>(bytes, 256, level);
        std::memcpy(bytes.data() + level, "ZMT-TEXTURE-PYRAMID-LEVEL", 25);
        const std::uint32_t tilesX = (pixelsX + tileWidth - 1) / tileWidth;
        const std::uint32_t tilesY = (pixelsY + tileHeight - 1) / tileHeight;
        const std::uint32_t fields[] = {
            version,    pixelsX, pixelsY, tileWidth, tileHeight, tilesX, tilesY, 7, tileWidth * tileHeight,
            compression};
        std::memcpy(bytes.data() + level + 32, fields, sizeof fields);
        bytes.resize(table + tiles.size() * (version >= 2 ? 12 : 8));
        for (std::size_t i = 0; i < tiles.size(); ++i)
            append(bytes, i);
        return bytes;
    }

private:
    void append(std::vector<std::uint8_t> & bytes, std::size_t i) const {
        if (tiles[i].empty()) return;
        std::vector<std::uint8_t> stored = tiles[i];
        if (deflates) {
            const auto packed =
                NBX::ZLibFilter::compress(stored.data(), static_cast<unsigned>(stored.size()), 9);
            const auto * first = static_cast<const std::uint8_t *>(packed->pointer());
            stored.assign(first, first + packed->size());
        }
        const auto size = static_cast<std::uint32_t>(stored.size());
        putAt<std::uint64_t>(bytes, table + 8 * i, bytes.size());
        if (version >= 2) putAt(bytes, table + 8 * tiles.size() + 4 * i, size);
        if (version == 1 && compression == 1) putAt(bytes, bytes.size(), size);
        bytes.insert(bytes.end(), stored.begin(), stored.end());
    }
};
