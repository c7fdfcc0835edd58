#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace ZMT::CORE::GRID {

/// A number that tells contents apart, by eight bytes at a time. It guards against mistakes, not against
/// malice.
class ContentHash {
public:
    void add(const void * data, std::size_t bytes) {
        const char * at = static_cast<const char *>(data);
        addWord(bytes);
        for (; bytes > 0; at += sizeof(std::uint64_t)) {
            std::uint64_t word = 0;
            const std::size_t taken = bytes < sizeof word ? bytes : sizeof word;
            std::memcpy(&word, at, taken);
            addWord(word);
            bytes -= taken;
        }
    }
    void add(const std::string & text) { add(text.data(), text.size()); }
    void add(double number) { addWord(std::bit_cast<std::uint64_t>(number)); }
    std::uint64_t value() const { return value_; }

    /// Of some bytes alone.
    static std::uint64_t of(const void * data, std::size_t bytes) {
        ContentHash hash;
        hash.add(data, bytes);
        return hash.value();
    }

private:
    void addWord(std::uint64_t word) {
        value_ = (value_ ^ word) * 0x9E3779B97F4A7C15U;
        value_ ^= value_ >> 32U;
    }

    std::uint64_t value_ = 0xCBF29CE484222325U;
};

} // namespace ZMT::CORE::GRID
