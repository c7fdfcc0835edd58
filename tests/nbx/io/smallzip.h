#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <nbx/data/dataresource.h>
#include <nbx/data/zlibfilter.h>
#include <nbx/object/so.h>

/// A ZIP archive of names and bytes, stored or deflated. With `copies` above 1 the table names every entry so
/// often, by name and a number, though its bytes stand in the file once.
class SmallZip {
public:
    using Entries = std::vector<std::pair<std::string, std::string>>;

    static std::string of(const Entries & entries, bool isDeflated, int copies) {
        SmallZip zip;
        int count = 0;
        for (const auto & [name, bytes] : entries) {
            const std::string stored = isDeflated ? deflated(bytes) : bytes;
            const auto offset = static_cast<std::uint32_t>(zip.bytes_.size());
            const std::string fields = fieldsOf(bytes, stored, isDeflated);
            zip.bytes_ +=
                number(0x04034B50, 4) + fields + number(name.size(), 2) + number(0, 2) + name + stored;
            for (int i = 0; i < copies; ++i, ++count) {
                const std::string shown = copies > 1 ? name + std::to_string(i) : name;
                zip.table_ += number(0x02014B50, 4) + number(20, 2) + fields + number(shown.size(), 2) +
                              number(0, 12) + number(offset, 4) + shown;
            }
        }
        return zip.bytes_ + zip.table_ + number(0x06054B50, 4) + number(0, 4) +
               number(std::uint64_t(count), 2) + number(std::uint64_t(count), 2) +
               number(zip.table_.size(), 4) + number(zip.bytes_.size(), 4) + number(0, 2);
    }

private:
    static std::string number(std::uint64_t value, int bytes) {
        std::string text;
        for (int i = 0; i < bytes; ++i)
            text += static_cast<char>(i < 8 ? value >> (8 * i) : 0);
        return text;
    }

    /// From the version up to the sizes, as both headers have them.
    static std::string fieldsOf(const std::string & bytes, const std::string & stored, bool isDeflated) {
        return number(20, 2) + number(0, 2) + number(isDeflated ? 8 : 0, 2) + number(0, 2) + number(0x21, 2) +
               number(checkOf(bytes), 4) + number(stored.size(), 4) + number(bytes.size(), 4);
    }

    static std::uint32_t checkOf(const std::string & bytes) {
        std::uint32_t crc = ~0U;
        for (const char c : bytes) {
            crc ^= static_cast<unsigned char>(c);
            for (int i = 0; i < 8; ++i)
                crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320U : 0U);
        }
        return ~crc;
    }

    /// Without the two bytes in front and the four behind, which belong to the other wrapping.
    static std::string deflated(const std::string & bytes) {
        const auto stream = NBX::ZLibFilter::compress(bytes.data(), static_cast<unsigned>(bytes.size()), 9);
        const auto * data = static_cast<const char *>(stream->pointer());
        return std::string(data + 2, data + stream->size() - 4);
    }

    std::string bytes_, table_;
};

inline std::string zipOf(const SmallZip::Entries & entries, bool isDeflated = false, int copies = 1) {
    return SmallZip::of(entries, isDeflated, copies);
}
