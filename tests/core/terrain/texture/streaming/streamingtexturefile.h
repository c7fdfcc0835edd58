#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <nbx/data/file.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/data/zlibfilter.h>
#include <nbx/object/so.h>
#include <zmt/core/misc/asyncfile.h>

/// Streaming textures as the document describes them, read and written by their offsets, without the records
/// of the library.
namespace StreamingTextureFile {

using Bytes = std::vector<std::uint8_t>;

template <class T> T field(const Bytes & bytes, std::size_t offset) {
    std::uint64_t bits = 0;
    for (std::size_t b = 0; b < sizeof(T); ++b)
        bits |= std::uint64_t(bytes.at(offset + b)) << (8 * b);
    T value{};
    std::memcpy(&value, &bits, sizeof(T));
    return value;
}

template <class T> void setField(Bytes & bytes, std::size_t offset, T value) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof(T));
    for (std::size_t b = 0; b < sizeof(T); ++b)
        bytes.at(offset + b) = std::uint8_t(bits >> (8 * b));
}

struct Ref {
    std::uint64_t offset = 0;
    std::uint32_t rawSize = 0, storedSize = 0;
};

inline Ref refAt(const Bytes & bytes, std::size_t offset) {
    return {field<std::uint64_t>(bytes, offset), field<std::uint32_t>(bytes, offset + 8),
            field<std::uint32_t>(bytes, offset + 12)};
}

inline void setRef(Bytes & bytes, std::size_t offset, const Ref & ref) {
    setField(bytes, offset, ref.offset);
    setField(bytes, offset + 8, ref.rawSize);
    setField(bytes, offset + 12, ref.storedSize);
}

/// Whole words of eight bytes.
inline Bytes scrambled(Bytes bytes, std::uint64_t key) {
    for (std::size_t i = 0; i < bytes.size() / 8 * 8; ++i)
        bytes[i] ^= std::uint8_t(key >> (8 * (i % 8)));
    return bytes;
}

/// A tile and all below it.
struct Tile {
    Ref ref;
    std::uint32_t width = 0, height = 0, format = 0;
    std::array<double, 4> patch{}, image{};                   ///< least x and y, largest x and y
    std::array<std::optional<std::vector<Tile>>, 4> children; ///< of one element each
    Bytes header, pixels;

    const Tile & child(unsigned i) const { return children.at(i)->at(0); }
    bool hasChild(unsigned i) const { return children.at(i).has_value(); }
    unsigned count() const {
        unsigned n = 1;
        for (unsigned i = 0; i < 4; ++i)
            if (hasChild(i)) n += child(i).count();
        return n;
    }
};

/// What is wrong with a file ends the test.
class Decoder {
public:
    explicit Decoder(Bytes file, std::uint64_t base = 0, std::uint64_t key = 0)
        : file_(std::move(file)), base_(base), key_(key) {}

    Bytes header() const { return scrambled(part(base_, 256), key_); }
    std::uint64_t dataSize() const { return field<std::uint64_t>(header(), 8); }
    Ref rootRef() const { return refAt(header(), 24); }
    Tile root() const { return tile(rootRef()); }

    Bytes block(const Ref & ref) const {
        const Bytes stored = scrambled(part(base_ + ref.offset, ref.storedSize), key_);
        if (ref.rawSize == ref.storedSize) return stored;
        Bytes raw(ref.rawSize);
        EXPECT_TRUE(NBX::ZLibFilter::uncompress(stored.data(), ref.storedSize, raw.data(), ref.rawSize));
        return raw;
    }
    Tile tile(const Ref & ref) const {
        const Bytes bytes = block(ref);
        EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 8), "ZMT-AQTP");
        EXPECT_EQ(field<std::uint64_t>(bytes, 8), 0U);
        EXPECT_EQ(field<std::uint32_t>(bytes, 28), 0U);
        Tile result;
        result.ref = ref;
        result.width = field<std::uint32_t>(bytes, 16);
        result.height = field<std::uint32_t>(bytes, 20);
        result.format = field<std::uint32_t>(bytes, 24);
        for (unsigned i = 0; i < 4; ++i) {
            result.patch[i] = field<double>(bytes, 32 + 8 * i);
            result.image[i] = field<double>(bytes, 64 + 8 * i);
            const Ref child = refAt(bytes, 96 + 16 * i);
            if (child.rawSize == 0)
                EXPECT_EQ(child.offset + child.storedSize, 0U);
            else
                result.children[i] = std::vector<Tile>{tile(child)};
        }
        for (unsigned i = 160; i < 256; ++i)
            EXPECT_EQ(bytes[i], 0) << i;
        result.header = Bytes(bytes.begin(), bytes.begin() + 256);
        result.pixels = Bytes(bytes.begin() + 256, bytes.end());
        return result;
    }

private:
    Bytes part(std::uint64_t offset, std::uint64_t size) const {
        if (offset + size > file_.size()) throw std::runtime_error("a block beyond the file");
        return Bytes(file_.begin() + std::ptrdiff_t(offset), file_.begin() + std::ptrdiff_t(offset + size));
    }

    const Bytes file_;
    const std::uint64_t base_, key_;
};

/// A tile in memory, as it is before it is stored.
inline Bytes tileBytes(std::uint32_t width, std::uint32_t height, std::uint32_t format,
                       const std::array<double, 4> & patch, const std::array<double, 4> & image,
                       const std::array<Ref, 4> & children, const Bytes & pixels) {
    Bytes bytes(256);
    const char magic[] = "ZMT-AQTP";
    std::copy(magic, magic + 8, bytes.begin());
    setField(bytes, 16, width);
    setField(bytes, 20, height);
    setField(bytes, 24, format);
    for (unsigned i = 0; i < 4; ++i) {
        setField(bytes, 32 + 8 * i, patch[i]);
        setField(bytes, 64 + 8 * i, image[i]);
        setRef(bytes, 96 + 16 * i, children[i]);
    }
    bytes.insert(bytes.end(), pixels.begin(), pixels.end());
    return bytes;
}

/// Builds a stream block by block; the last one is the root.
class Encoder {
public:
    Encoder() : file_(256) {}

    Ref add(const Bytes & block) {
        const Ref ref{file_.size(), std::uint32_t(block.size()), std::uint32_t(block.size())};
        append(block);
        return root_ = ref;
    }
    Ref addDeflated(const Bytes & block) {
        const auto packed = NBX::ZLibFilter::compress(block.data(), static_cast<unsigned>(block.size()), 9);
        const auto * first = static_cast<const std::uint8_t *>(packed->pointer());
        const Ref ref{file_.size(), std::uint32_t(block.size()), packed->size()};
        append(Bytes(first, first + packed->size()));
        return root_ = ref;
    }
    Bytes finish() {
        const char magic[] = "ZMT-AQTT";
        std::copy(magic, magic + 8, file_.begin());
        setField(file_, 8, std::uint64_t(file_.size()));
        setRef(file_, 24, root_);
        return file_;
    }

private:
    void append(const Bytes & block) {
        file_.insert(file_.end(), block.begin(), block.end());
        file_.resize((file_.size() + 15) / 16 * 16);
    }

    Bytes file_;
    Ref root_;
};

inline NBX::SO<NBX::DataResource> resource(const Bytes & bytes) {
    return new NBX::MemoryDataResource(bytes.data(), static_cast<unsigned>(bytes.size()), false);
}

inline NBX::SO<ZMT::CORE::AsyncFile> inMemory(const Bytes & bytes) {
    return ZMT::CORE::AsyncFile::create(resource(bytes));
}

} // namespace StreamingTextureFile
