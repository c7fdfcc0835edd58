#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <nbx/data/memorydataresource.h>
#include <nbx/data/zlibfilter.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/util/validation/filevalidation.h>

/// What tests of validation share: reports of bytes in memory, and streaming files that are taken apart and
/// put together again with other bytes in their blocks.
namespace Validated {

using Bytes = std::vector<std::uint8_t>;
using ZMT::UTIL::ValidationReport;

inline ValidationReport report(const Bytes & bytes, std::uint64_t key = 0) {
    const auto file = ZMT::CORE::AsyncFile::create(NBX::SO<NBX::DataResource>(
        new NBX::MemoryDataResource(bytes.data(), static_cast<unsigned>(bytes.size()), false)));
    return ZMT::UTIL::FileValidation::run(*file, key);
}

/// A line for each fault.
inline std::string text(const ValidationReport & report) {
    std::string lines;
    for (const ValidationReport::Fault & fault : report.faults)
        lines += std::to_string(fault.offset) + ": " + fault.what + "\n";
    return lines;
}

inline std::string faults(const Bytes & bytes, std::uint64_t key = 0) {
    return text(report(bytes, key));
}

template <class T> T get(const Bytes & bytes, std::size_t offset) {
    T value{};
    std::memcpy(&value, &bytes.at(offset + sizeof value - 1) - (sizeof value - 1), sizeof value);
    return value;
}

template <class T> void set(Bytes & bytes, std::size_t offset, T value) {
    std::memcpy(&bytes.at(offset + sizeof value - 1) - (sizeof value - 1), &value, sizeof value);
}

/// Where the references of a format stand.
struct Layout {
    std::size_t root, children;
};
constexpr Layout terrain{88, 64}, texture{24, 96};

/// Puts a stream together again, children first.
class Rewriting {
public:
    /// Changes a block before it is stored; blocks are numbered from 0 on in the order in which they come,
    /// the root last.
    using Edit = std::function<void(Bytes & block, unsigned number)>;

    /// `isDeflated`: all blocks are, or none.
    Rewriting(const Layout & layout, const Bytes & from, bool isDeflated, Edit edit = {})
        : layout_(layout), from_(from), isDeflated_(isDeflated), edit_(std::move(edit)),
          bytes(from.begin(), from.begin() + 256) {
        add(bytes, layout_.root);
        set(bytes, 8, std::uint64_t(bytes.size()));
    }

    /// Where the blocks lie.
    std::vector<std::size_t> blocks;

private:
    const Layout layout_;
    const Bytes & from_;
    const bool isDeflated_;
    const Edit edit_;

public:
    Bytes bytes;

private:
    /// Adds the block that a reference names, which becomes one to its new place.
    void add(Bytes & record, std::size_t refAt) {
        const auto offset = get<std::uint64_t>(record, refAt);
        const auto rawSize = get<std::uint32_t>(record, refAt + 8);
        const auto storedSize = get<std::uint32_t>(record, refAt + 12);
        if (rawSize < 2) return;
        Bytes block(from_.begin() + std::ptrdiff_t(offset),
                    from_.begin() + std::ptrdiff_t(offset + storedSize));
        if (rawSize != storedSize) {
            block.resize(rawSize);
            ASSERT_TRUE(NBX::ZLibFilter::uncompress(&from_[offset], storedSize, block.data(), rawSize));
        }
        for (unsigned i = 0; i < 4; ++i)
            add(block, layout_.children + 16 * i);
        if (edit_) edit_(block, static_cast<unsigned>(blocks.size()));
        Bytes stored = block;
        if (isDeflated_) {
            const auto packed =
                NBX::ZLibFilter::compress(block.data(), static_cast<unsigned>(block.size()), 9);
            const auto * first = static_cast<const std::uint8_t *>(packed->pointer());
            stored.assign(first, first + packed->size());
        }
        const std::size_t at = bytes.size();
        set(record, refAt, std::uint64_t(at));
        set(record, refAt + 12, std::uint32_t(stored.size()));
        blocks.push_back(at);
        bytes.insert(bytes.end(), stored.begin(), stored.end());
        bytes.resize((bytes.size() + 15) / 16 * 16);
    }
};

/// Where the change of a byte is found.
enum class Found {
    Here,      ///< at most 31 bytes behind the offset of a fault, or of a reference that it names
    Elsewhere, ///< where it has consequences
    Perhaps    ///< it is data like any other
};

inline bool isAt(const ValidationReport::Fault & fault, std::size_t position) {
    const auto covers = [position](std::uint64_t offset) {
        return offset <= position && position < offset + 32;
    };
    const std::string words = "referred to at ";
    const std::size_t named = fault.what.find(words);
    return covers(fault.offset) ||
           (named != std::string::npos && covers(std::stoull(fault.what.substr(named + words.size()))));
}

/// Every byte of a sound file is changed, in two ways.
inline void expectChangesFound(const Bytes & sound, const std::function<Found(std::size_t)> & expected,
                               std::uint64_t key = 0) {
    ASSERT_EQ(faults(sound, key), "");
    for (std::size_t i = 0; i < sound.size(); ++i)
        for (const std::uint8_t flip : {0x01, 0x80}) {
            Bytes changed = sound;
            changed[i] ^= flip;
            const ValidationReport found = report(changed, key);
            const bool isHere = std::any_of(found.faults.begin(), found.faults.end(),
                                            [i](const auto & fault) { return isAt(fault, i); });
            const Found where = expected(i);
            EXPECT_TRUE(isHere || where == Found::Perhaps || (where == Found::Elsewhere && !found.isSound()))
                << "byte " << i << " ^ " << int(flip) << "\n"
                << text(found);
        }
}

/// A fault that is planted into a sound file, and what is to be told of it.
struct PlantedFault {
    const char * name;
    std::function<void(Bytes &)> plant;
    std::size_t offset;
    const char * what; ///< words of the line
};

inline void expectTold(const Bytes & sound, const std::vector<PlantedFault> & planted) {
    for (const PlantedFault & fault : planted) {
        Bytes bytes = sound;
        fault.plant(bytes);
        const ValidationReport found = report(bytes);
        const bool isTold = std::any_of(found.faults.begin(), found.faults.end(), [&](const auto & told) {
            return told.offset == fault.offset && told.what.find(fault.what) != std::string::npos;
        });
        EXPECT_TRUE(isTold) << fault.name << "\n" << text(found);
    }
}

/// Every beginning of a sound file is none.
inline void expectCutsFound(const Bytes & sound, std::uint64_t key = 0) {
    for (std::size_t size = 0; size < sound.size(); ++size) {
        const ValidationReport found =
            report(Bytes(sound.begin(), sound.begin() + std::ptrdiff_t(size)), key);
        EXPECT_FALSE(found.isSound()) << size;
        EXPECT_LE(found.faultCount, 3U) << size << "\n" << text(found);
    }
}

} // namespace Validated
